#pragma once

// LandXML surfaces: reading TIN surfaces from a survey file and writing projects back.
//
// LandXML writes every point as "northing easting elevation"; the library's plan is x = easting,
// y = northing, so the first two values are swapped on the way in and out. Faces refer to point
// ids, which are unique only within a surface, need not start at 1 and may have gaps. A face
// with the attribute i="1" is hidden: it belongs to the stored triangulation but not to the
// visible surface, so the project does not hold it; the survey record keeps it, and an export
// writes it back.

#include <cstddef>
#include <string>
#include <vector>

#include "TinSurface.h"

namespace dtmtool {

/// The name and manufacturer of the <Application> element an export writes.
inline constexpr const char* kApplicationName = "dtm";

/// The TIN surfaces of the LandXML document in @p size bytes at @p data, in file order, each
/// with its breaklines, its outer (external) and void (internal) boundaries, the ids of its
/// points and the units the file states; boundaries of other kinds are counted, not read. Elements
/// are matched by local name, so every LandXML namespace (and none) is read alike. The elements
/// this program does not read go into each surface's record as they stood (see SurveyElements).
/// @p file names the document in messages.
///
/// Throws ToolError naming @p file (and the line, where the parser knows it) for text that is
/// not XML, a document that is not LandXML, one without a TIN surface, a point without a
/// numeric id or three coordinates, a coordinate that is not finite ("nan", "inf") in a point,
/// breakline or boundary, a repeated point id, and a face that refers to a point its surface
/// does not define.
///
/// A triangulation that is doubtful but usable is read as it is, since survey data is what it
/// is and the library takes such triangles. When @p warnings is given, it receives one sentence
/// per surface and kind of doubt, naming the file, the surface and the first few points (by
/// id) or faces (by number in the file and point ids), with the count of the others:
///   - points with different ids at the same northing and easting;
///   - a face that names one point twice ("7 9 9");
///   - a face listed again, with the same three points in any order;
///   - a face of three different points without area in plan: its corners lie on one line or
///     at one place (within the rounding of their coordinates).
/// A hidden face that does not hold three or four point ids of its surface is left out with a
/// warning naming it, since the model does not use it; the same in a visible face is an error.
/// Hidden faces are not checked otherwise, nor are faces that overlap or cross one another.
std::vector<TinSurface> ParseLandXml(const char* data, std::size_t size, const std::string& file,
                                     std::vector<std::string>* warnings = nullptr);

/// Whether @p text is the XML of one element and nothing else, as a survey record keeps the
/// elements this program does not read.
bool IsXmlElement(const std::string& text);

/// ParseLandXml of the file at @p path.
std::vector<TinSurface> ReadLandXml(const std::string& path,
                                    std::vector<std::string>* warnings = nullptr);

/// The units one LandXML file of @p surfaces states: those the surfaces that know their units
/// share (unknown when none does). Throws ToolError naming @p file (the document the surfaces
/// come from) when two surfaces are in different units, since a LandXML file has one set.
SurveyUnits UnitsOfSurfaces(const std::vector<TinSurface>& surfaces, const std::string& file);

/// The coordinate system one LandXML file of @p surfaces states, as UnitsOfSurfaces finds the
/// units: the one the surfaces that record one share (none when none does).
SurveyAttributes CoordinateSystemOfSurfaces(const std::vector<TinSurface>& surfaces,
                                            const std::string& file);

/// The LandXML 1.2 text of @p surfaces: @p units (left out when unknown), the attributes of
/// @p coordinateSystem as a <CoordinateSystem> element (left out when empty), then per surface the
/// points in vertex order with the survey's ids where the surface has one per point (else
/// numbered 1..n), the faces (the visible ones, then the survey record's hidden ones), and in
/// SourceData the breaklines and the boundaries (outer and void), every number written with the
/// fewest digits that read back as exactly the same double. The elements the records keep go
/// back where they stood: after a line's point list, after the breaklines in SourceData, after
/// the Definition in the Surface, and after this program's <Application> for the file's own,
/// each of those once.
std::string LandXmlText(const std::vector<TinSurface>& surfaces, const SurveyUnits& units = {},
                        const SurveyAttributes& coordinateSystem = {});

/// Writes LandXmlText(@p surfaces, @p units, @p coordinateSystem) to @p path atomically.
void WriteLandXml(const std::string& path, const std::vector<TinSurface>& surfaces,
                  const SurveyUnits& units = {}, const SurveyAttributes& coordinateSystem = {});

}  // namespace dtmtool
