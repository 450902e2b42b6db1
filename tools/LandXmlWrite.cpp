// Writing projects as LandXML surfaces (see LandXml.h).

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <iterator>

#include "AtomicFile.h"
#include "LandXml.h"
#include "Progress.h"
#include "SurfaceMeasures.h"
#include "TextFormat.h"
#include "ToolError.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_3D;

// Appends text to one growing string; a million triangles make some 60 MB, which is cheaper to
// assemble in memory than through a formatted stream.
class XmlText {
public:
    XmlText& operator<<(const char* text) {
        m_text += text;
        return *this;
    }
    XmlText& operator<<(const std::string& text) {
        m_text += text;
        return *this;
    }
    // The shortest decimal text that reads back as exactly @p value.
    XmlText& operator<<(double value) {
        AppendExact(m_text, value);
        return *this;
    }
    // A point id.
    XmlText& operator<<(long long value) {
        char buffer[24];
        const std::to_chars_result written = std::to_chars(buffer, buffer + sizeof(buffer), value);
        m_text.append(buffer, written.ptr);
        return *this;
    }

    // A point as LandXML writes it: northing easting elevation.
    void Point(const PNT_3D& p) { *this << p.y << " " << p.x << " " << p.z; }

    std::string Take() { return std::move(m_text); }

private:
    std::string m_text;
};

void WritePointList(XmlText& xml, const Polyline3D& points, bool closeRing) {
    xml << "<PntList3D>";
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (i > 0) xml << " ";
        xml.Point(points[i]);
    }
    // LandXML closes a boundary ring by repeating its first point.
    if (closeRing && !points.empty()) {
        xml << " ";
        xml.Point(points.front());
    }
    xml << "</PntList3D>";
}

void WriteAttributes(XmlText& xml, const SurveyAttributes& attributes) {
    for (const auto& attribute : attributes)
        xml << " " << attribute.first << "=\"" << XmlEscaped(attribute.second) << "\"";
}

// Kept elements, each on a line of its own after @p indent.
void WriteElementLines(XmlText& xml, const SurveyElements& elements, const char* indent) {
    for (const std::string& element : elements) xml << indent << element << "\n";
}

// Kept elements inside a line's element, after its point list.
void WriteElementsInline(XmlText& xml, const SurveyElements& elements) {
    for (const std::string& element : elements) xml << element;
}

// A project's boundary is a ring, which LandXML closes by repeating its first point; a kept one
// goes out as the survey listed it.
void WriteBoundary(XmlText& xml, const SurveyAttributes& attributes, const Polyline3D& points,
                   bool closeRing, const SurveyElements& elements = {}) {
    xml << "        <Boundary";
    WriteAttributes(xml, attributes);
    xml << ">";
    WritePointList(xml, points, closeRing);
    WriteElementsInline(xml, elements);
    xml << "</Boundary>\n";
}

// The boundaries in the survey's order and with its attributes while the record still names
// the project's boundaries one for one; else the project's as plain outer boundaries and voids,
// followed by the kept ones.
void WriteBoundaries(XmlText& xml, const TinSurface& surface) {
    const std::vector<Polyline3D>* rings[] = {&surface.externalBoundaries,
                                              &surface.internalBoundaries};
    const bool followRecord = surface.survey.BoundariesFollow(rings[0]->size(), rings[1]->size());
    if (!followRecord) {
        for (const Polyline3D& ring : *rings[0])
            WriteBoundary(xml, {{"bndType", "outer"}}, ring, true);
        for (const Polyline3D& ring : *rings[1])
            WriteBoundary(xml, {{"bndType", "void"}}, ring, true);
    }
    std::size_t next[] = {0, 0};
    for (const SurveyBoundary& boundary : surface.survey.boundaries) {
        if (boundary.role == BoundaryRole::Kept) {
            WriteBoundary(xml, boundary.attributes, boundary.points, false, boundary.elements);
        } else if (followRecord) {
            const auto collection = static_cast<std::size_t>(boundary.role);
            WriteBoundary(xml, boundary.attributes, (*rings[collection])[next[collection]++], true,
                          boundary.elements);
        }
    }
}

// Breakline @p index as the survey recorded it (attributes and kept elements) where the record
// follows the lines, else a plain standard breakline.
const SurveyBreakline& BreaklineRecord(const TinSurface& surface, std::size_t index) {
    static const SurveyBreakline kPlain{{{"brkType", "standard"}}, 0, {}};
    if (surface.survey.breaklines.size() == surface.breaklines.size())
        return surface.survey.breaklines[index];
    return kPlain;
}

void WriteSourceData(XmlText& xml, const TinSurface& surface) {
    const bool boundaries = !surface.externalBoundaries.empty() ||
                            !surface.internalBoundaries.empty() ||
                            surface.survey.CountBoundaries(BoundaryRole::Kept) > 0;
    if (surface.breaklines.empty() && !boundaries && surface.survey.sourceElements.empty()) return;
    xml << "      <SourceData>\n";
    if (boundaries) {
        xml << "        <Boundaries>\n";
        WriteBoundaries(xml, surface);
        xml << "        </Boundaries>\n";
    }
    if (!surface.breaklines.empty()) {
        xml << "        <Breaklines>\n";
        for (std::size_t i = 0; i < surface.breaklines.size(); ++i) {
            const SurveyBreakline& record = BreaklineRecord(surface, i);
            xml << "          <Breakline";
            WriteAttributes(xml, record.attributes);
            xml << ">";
            WritePointList(xml, surface.breaklines[i], false);
            WriteElementsInline(xml, record.elements);
            xml << "</Breakline>\n";
        }
        xml << "        </Breaklines>\n";
    }
    WriteElementLines(xml, surface.survey.sourceElements, "        ");
    xml << "      </SourceData>\n";
}

// The id a point is written with: the survey's own where the project kept them, else its
// place in the vertex list counted from 1.
class PointIds {
public:
    explicit PointIds(const TinSurface& surface)
        : m_ids(surface.survey.pointIds.size() == surface.points.size() ? &surface.survey.pointIds
                                                                        : nullptr) {}
    long long operator[](std::size_t vertex) const {
        return m_ids ? (*m_ids)[vertex] : static_cast<long long>(vertex) + 1;
    }
    /// Whether the survey's own ids are written, which is when its point attributes, naming
    /// the same vertices, still belong to them.
    bool AreTheSurveys() const noexcept { return m_ids != nullptr; }

private:
    const std::vector<long long>* m_ids;
};

// The attributes of each point in turn, as the survey gave them; none without its ids.
class PointAttributes {
public:
    PointAttributes(const TinSurface& surface, const PointIds& ids)
        : m_next(surface.survey.pointAttributes.begin()),
          m_end(ids.AreTheSurveys() ? surface.survey.pointAttributes.end() : m_next) {}
    /// The attributes of @p vertex; called for every vertex in order.
    const SurveyAttributes& Of(std::size_t vertex) {
        static const SurveyAttributes kNone;
        if (m_next == m_end || m_next->vertex != static_cast<int>(vertex)) return kNone;
        return (m_next++)->attributes;
    }

private:
    std::vector<SurveyPointAttributes>::const_iterator m_next, m_end;
};

// One face: whether it is hidden, the neighbour of each side, the sides on a breakline (when
// any), then the ids of its corners.
void WriteFace(XmlText& xml, const PointIds& ids, const FaceCornersView& face, bool hidden,
               const std::size_t* neighbours, unsigned breaklineSides) {
    xml << (hidden ? "          <F i=\"1\" n=\"" : "          <F n=\"");
    for (int k = 0; k < face.count; ++k)
        xml << (k > 0 ? " " : "") << static_cast<long long>(neighbours[k]);
    xml << "\"";
    if (breaklineSides != 0) xml << " b=\"" << static_cast<long long>(breaklineSides) << "\"";
    xml << ">";
    for (int k = 0; k < face.count; ++k)
        xml << (k > 0 ? " " : "") << ids[static_cast<std::size_t>(face.corners[k])];
    xml << "</F>\n";
}

// The areas and the elevation range of the visible faces, as the definition's attributes;
// none for a surface without a face, or one whose figures are not numbers.
void WriteMeasures(XmlText& xml, const SurfaceMeasures& measures) {
    const double figures[] = {measures.planArea, measures.surfaceArea, measures.highest,
                              measures.lowest};
    if (!measures.measured || !std::all_of(std::begin(figures), std::end(figures),
                                           [](double v) { return std::isfinite(v); }))
        return;
    xml << " area2DSurf=\"" << measures.planArea << "\" area3DSurf=\"" << measures.surfaceArea
        << "\" elevMax=\"" << measures.highest << "\" elevMin=\"" << measures.lowest << "\"";
}

void WriteDefinition(XmlText& xml, const TinSurface& surface, Progress& progress) {
    const PointIds ids(surface);
    PointAttributes attributes(surface, ids);
    xml << "      <Definition surfType=\"TIN\"";
    WriteMeasures(xml, MeasureSurface(surface));
    xml << ">\n        <Pnts>\n";
    for (std::size_t i = 0; i < surface.points.size(); ++i) {
        xml << "          <P id=\"" << ids[i] << "\"";
        WriteAttributes(xml, attributes.Of(i));
        xml << ">";
        xml.Point(surface.points[i]);
        xml << "</P>\n";
        progress.Advance();
    }
    xml << "        </Pnts>\n        <Faces>\n";
    // The order of faces means nothing in LandXML, and the network's triangles are in the order
    // of its spatial index, not the file's; the hidden faces simply follow. Neighbours and
    // breakline sides are found anew: the faces may have changed since the file was read.
    const std::vector<FaceCornersView> faces = FacesInFileOrder(surface);
    const std::vector<std::size_t> neighbours = FaceNeighbours(faces);
    const std::vector<std::uint8_t> breaklineSides = BreaklineSides(surface, faces);
    for (std::size_t f = 0; f < faces.size(); ++f) {
        WriteFace(xml, ids, faces[f], f >= surface.faces.size(), &neighbours[4 * f],
                  breaklineSides[f]);
        progress.Advance();
    }
    xml << "        </Faces>\n      </Definition>\n";
}

// Date and time attributes that the schema requires of the root element.
std::string Timestamp(const char* format) {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char buffer[32];
    std::strftime(buffer, sizeof(buffer), format, &utc);
    return buffer;
}

void WriteUnits(XmlText& xml, const SurveyUnits& units) {
    if (!units.IsKnown()) return;
    xml << "  <Units>\n    <" << units.system;
    WriteAttributes(xml, units.attributes);
    xml << "/>\n  </Units>\n";
}

void WriteCoordinateSystem(XmlText& xml, const SurveyAttributes& coordinateSystem) {
    if (coordinateSystem.empty()) return;
    xml << "  <CoordinateSystem";
    WriteAttributes(xml, coordinateSystem);
    xml << "/>\n";
}

// A fact a LandXML file states once for all its surfaces (@p what: "units", "coordinate
// systems"): the one that the surfaces which know theirs (@p known) share. Surfaces that know
// different ones cannot go into one file, and @p file (the document) is told which.
template <class Fact, class Known, class Describe>
Fact SharedFileFact(const std::vector<TinSurface>& surfaces, const std::string& file,
                    Fact SurveyRecord::*fact, Known known, Describe describe,
                    const std::string& what, const std::string& oneOfThem) {
    const TinSurface* first = nullptr;
    for (const TinSurface& surface : surfaces) {
        if (!known(surface.survey.*fact)) continue;
        if (!first) {
            first = &surface;
        } else if (surface.survey.*fact != first->survey.*fact) {
            throw FileError(file, "projects '" + first->name + "' and '" + surface.name +
                                      "' are in different " + what + " (" +
                                      describe(first->survey.*fact) + "; " +
                                      describe(surface.survey.*fact) +
                                      "), and a LandXML file has " + oneOfThem);
        }
    }
    return first ? first->survey.*fact : Fact{};
}

// The elements that @p surfaces keep at one level above them (@p level: the file's top level,
// their <Surfaces> group), each once, in the order of the surfaces: surfaces of one file or
// group all keep the same ones.
SurveyElements ElementsAbove(const std::vector<TinSurface>& surfaces,
                             SurveyElements SurveyRecord::*level) {
    SurveyElements elements;
    for (const TinSurface& surface : surfaces)
        for (const std::string& element : surface.survey.*level)
            if (std::find(elements.begin(), elements.end(), element) == elements.end())
                elements.push_back(element);
    return elements;
}

// The attributes of the one <Surfaces> group an export writes: those that every surface which
// knows its group's gives it alike (projects of one group keep its name; projects of groups
// named differently share no name, and the group goes out without one).
SurveyAttributes GroupAttributesOfSurfaces(const std::vector<TinSurface>& surfaces) {
    const TinSurface* first = nullptr;
    for (const TinSurface& surface : surfaces)
        if (!surface.survey.groupAttributes.empty()) {
            first = &surface;
            break;
        }
    if (!first) return {};
    SurveyAttributes shared;
    for (const auto& attribute : first->survey.groupAttributes) {
        const auto holds = [&attribute](const TinSurface& surface) {
            const SurveyAttributes& own = surface.survey.groupAttributes;
            return own.empty() || std::find(own.begin(), own.end(), attribute) != own.end();
        };
        if (std::all_of(surfaces.begin(), surfaces.end(), holds)) shared.push_back(attribute);
    }
    return shared;
}

}  // namespace

SurveyUnits UnitsOfSurfaces(const std::vector<TinSurface>& surfaces, const std::string& file) {
    return SharedFileFact(
        surfaces, file, &SurveyRecord::units,
        [](const SurveyUnits& units) { return units.IsKnown(); },
        [](const SurveyUnits& units) { return units.Describe(); }, "units", "one set of units");
}

SurveyAttributes CoordinateSystemOfSurfaces(const std::vector<TinSurface>& surfaces,
                                            const std::string& file) {
    return SharedFileFact(
        surfaces, file, &SurveyRecord::coordinateSystem,
        [](const SurveyAttributes& system) { return !system.empty(); }, DescribeCoordinateSystem,
        "coordinate systems", "one coordinate system");
}

std::string LandXmlText(const std::vector<TinSurface>& surfaces, const SurveyUnits& units,
                        const SurveyAttributes& coordinateSystem) {
    std::size_t work = 0;
    for (const TinSurface& surface : surfaces)
        work += surface.points.size() + surface.faces.size() + surface.survey.hiddenFaces.size();
    Progress progress("exporting", work);

    XmlText xml;
    xml << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<LandXML xmlns=\"http://www.landxml.org/schema/LandXML-1.2\" version=\"1.2\" date=\""
        << Timestamp("%Y-%m-%d") << "\" time=\"" << Timestamp("%H:%M:%S") << "\">\n";
    WriteUnits(xml, units);
    WriteCoordinateSystem(xml, coordinateSystem);
    xml << "  <Application name=\"" << kApplicationName << "\" manufacturer=\"" << kApplicationName
        << "\"/>\n";
    WriteElementLines(xml, ElementsAbove(surfaces, &SurveyRecord::fileElements), "  ");
    xml << "  <Surfaces";
    WriteAttributes(xml, GroupAttributesOfSurfaces(surfaces));
    xml << ">\n";
    for (const TinSurface& surface : surfaces) {
        xml << "    <Surface name=\"" << XmlEscaped(surface.name) << "\"";
        WriteAttributes(xml, surface.survey.surfaceAttributes);
        xml << ">\n";
        WriteSourceData(xml, surface);
        WriteDefinition(xml, surface, progress);
        WriteElementLines(xml, surface.survey.surfaceElements, "      ");
        xml << "    </Surface>\n";
    }
    WriteElementLines(xml, ElementsAbove(surfaces, &SurveyRecord::groupElements), "    ");
    xml << "  </Surfaces>\n</LandXML>\n";
    progress.Finish();
    return xml.Take();
}

void WriteLandXml(const std::string& path, const std::vector<TinSurface>& surfaces,
                  const SurveyUnits& units, const SurveyAttributes& coordinateSystem) {
    const std::string text = LandXmlText(surfaces, units, coordinateSystem);
    WriteFileAtomically(path, text.data(), text.size());
}

}  // namespace dtmtool
