#pragma once

// What a project keeps of the survey file it came from besides what the library holds: the
// units the file states, the survey's own point ids and names, what its breaklines and
// boundaries were called, and the parts of the survey the library has no place for (boundaries
// of other kinds, hidden faces). A surveyor's point numbers and names and the unit of the
// coordinates are part of the survey; an export that lost them would hand a receiving program
// coordinates it may read in the wrong unit, with points it cannot match to the field book.

#include <dtm/support/Geom.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

class CDtmPrj;

namespace dtmtool {

/// Attributes of a LandXML element as they stood: names and values in file order, kept as text
/// so that a value this program has not heard of comes out as it went in.
using SurveyAttributes = std::vector<std::pair<std::string, std::string>>;

/// Elements of the survey file that this program does not read (a breakline's feature codes, a
/// surface's data points, the file's feature dictionary and project and the like), each the XML
/// text of one element as it stood, with the namespace prefixes it uses declared on it, so that
/// it can be written back anywhere in a LandXML file.
using SurveyElements = std::vector<std::string>;

/// The units a LandXML file states: the element inside <Units> ("Metric" or "Imperial") and its
/// attributes. An empty system means the units are not known.
struct SurveyUnits {
    std::string system;
    SurveyAttributes attributes;

    bool IsKnown() const noexcept { return !system.empty(); }
    /// The value of attribute @p name, or an empty text.
    std::string Attribute(const std::string& name) const;
    /// "Imperial, linearUnit USSurveyFoot" and so on; "not recorded" when unknown.
    std::string Describe() const;
    bool operator==(const SurveyUnits& other) const {
        return system == other.system && attributes == other.attributes;
    }
    bool operator!=(const SurveyUnits& other) const { return !(*this == other); }
};

/// One breakline of the survey: its attributes (name, brkType, desc and the like) and the number
/// of the project's breakline segments it became, one per pair of consecutive points, and its
/// elements other than the point list (feature codes and the like). A <Breakline> with several
/// point lists becomes one record per list, the first of which holds its elements.
struct SurveyBreakline {
    SurveyAttributes attributes;
    std::size_t segments = 0;
    SurveyElements elements = {};

    bool operator==(const SurveyBreakline& other) const {
        return attributes == other.attributes && segments == other.segments &&
               elements == other.elements;
    }
};

/// What a boundary of the survey became in the project.
enum class BoundaryRole : std::uint8_t {
    /// The next of the project's external boundaries (an outer boundary or an island).
    External = 0,
    /// The next of the project's internal boundaries (a void).
    Internal = 1,
    /// Nothing: a kind that does not limit the terrain model (texture regions and the like),
    /// which the record keeps whole so that an export gives it back.
    Kept = 2,
};

/// One boundary of the survey: its attributes (bndType, name, desc and the like) and what it
/// became; a kept boundary's points too, as the file listed them (x easting, y northing); and
/// its elements other than the point list.
struct SurveyBoundary {
    BoundaryRole role = BoundaryRole::Kept;
    SurveyAttributes attributes;
    std::vector<kor::geom::PNT_3D> points;
    SurveyElements elements = {};

    bool operator==(const SurveyBoundary& other) const;
};

/// The attributes of one survey point other than its id (name, desc, code and the like), with
/// the vertex the point became.
struct SurveyPointAttributes {
    int vertex = 0;
    SurveyAttributes attributes;

    bool operator==(const SurveyPointAttributes& other) const {
        return vertex == other.vertex && attributes == other.attributes;
    }
};

/// The survey facts of one project.
struct SurveyRecord {
    SurveyUnits units;
    /// The attributes of the file's <CoordinateSystem> element (name, epsgCode,
    /// horizontalDatum and the like) as they stood; empty when the file states none.
    SurveyAttributes coordinateSystem;
    /// The attributes of the survey's <Surface> element other than its name (desc, state and
    /// the like), in file order; the name is the project's.
    SurveyAttributes surfaceAttributes;
    /// The survey's id of each vertex, in vertex order; empty when the points have no ids of
    /// their own (they are then numbered 1..n on export).
    std::vector<long long> pointIds;
    /// The points that carry attributes besides their id, in vertex order (most carry none).
    /// They go out again only with the survey's ids, which name the same vertices.
    std::vector<SurveyPointAttributes> pointAttributes;
    /// The survey's breaklines in the order the project's segments follow them; empty when
    /// not known (an export then joins segments that meet end to start into one line).
    std::vector<SurveyBreakline> breaklines;
    /// The survey's boundaries in file order. Those the project holds name its boundaries in
    /// the order of each collection.
    std::vector<SurveyBoundary> boundaries;
    /// The faces the survey marks hidden (i="1"), in file order, each as its corners: indices
    /// into the project's vertices, three or four as the file gave them. They belong to the
    /// stored triangulation but not to the surface the model shows, so the project does not
    /// hold them.
    std::vector<std::vector<int>> hiddenFaces;
    /// The elements of the survey's <SourceData> other than the breaklines and boundaries read
    /// (data points, contours and the like), in file order.
    SurveyElements sourceElements;
    /// The elements of the survey's <Surface> other than its source data and definition.
    SurveyElements surfaceElements;
    /// The elements of the whole file other than its units, coordinate system and surfaces and
    /// the <Application> an export of this program writes (its project, feature dictionaries,
    /// the application that made it and the like). Every surface of a file holds them; an
    /// export writes each once.
    SurveyElements fileElements;
    /// The attributes of the <Surfaces> group the survey's surface stood in (its name and the
    /// like), in file order, and the group's elements other than its surfaces (features and
    /// the like). Every surface of a group holds them; an export writes them once.
    SurveyAttributes groupAttributes;
    SurveyElements groupElements;

    /// The value of the surface's attribute @p name, or an empty text.
    std::string SurfaceAttribute(const std::string& name) const;

    bool IsEmpty() const noexcept {
        return !units.IsKnown() && coordinateSystem.empty() && surfaceAttributes.empty() &&
               pointIds.empty() && pointAttributes.empty() && breaklines.empty() &&
               boundaries.empty() && hiddenFaces.empty() && groupAttributes.empty() &&
               !HoldsElements();
    }
    /// Whether any element of the survey is kept, at any level.
    bool HoldsElements() const noexcept;
    /// The recorded boundaries of role @p role.
    std::size_t CountBoundaries(BoundaryRole role) const noexcept;
    /// Whether the recorded boundaries still name a project's @p external and @p internal
    /// boundaries one for one; after an edit that added or removed some they do not, and only
    /// the kept ones still hold.
    bool BoundariesFollow(std::size_t external, std::size_t internal) const noexcept;
};

/// "CH1903+ / LV95, EPSG 2056, vertical LN02" and so on: the name of a coordinate system (or
/// its description), its EPSG code and its vertical system, those it has; its attributes as
/// they stood when it has none of them; "not recorded" when it has no attributes at all.
std::string DescribeCoordinateSystem(const SurveyAttributes& coordinateSystem);

/// "Feature (67), DataPoints, Project": the names of the elements @p record keeps, each with
/// how often it is kept when more than once, in the order first kept; empty when it keeps none.
std::string DescribeKeptElements(const SurveyRecord& record);

/// The records of the projects of one library, by project.
using SurveyRecords = std::map<const CDtmPrj*, SurveyRecord>;

/// The record of @p prj in @p records, or null when it has none.
const SurveyRecord* FindSurveyRecord(const SurveyRecords& records, const CDtmPrj& prj);

}  // namespace dtmtool
