// Writing projects as LandXML surfaces (see LandXml.h).

#include <charconv>
#include <ctime>

#include "AtomicFile.h"
#include "LandXml.h"
#include "Progress.h"
#include "TextFormat.h"

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
    XmlText& operator<<(std::size_t value) {
        char buffer[24];
        const std::to_chars_result written = std::to_chars(buffer, buffer + sizeof(buffer), value);
        m_text.append(buffer, written.ptr);
        return *this;
    }
    XmlText& operator<<(int value) { return *this << static_cast<std::size_t>(value); }

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

void WriteBoundaries(XmlText& xml, const std::vector<Polyline3D>& rings, const char* type) {
    for (const Polyline3D& ring : rings) {
        xml << "        <Boundary bndType=\"" << type << "\">";
        WritePointList(xml, ring, true);
        xml << "</Boundary>\n";
    }
}

void WriteSourceData(XmlText& xml, const TinSurface& surface) {
    if (surface.breaklines.empty() && surface.externalBoundaries.empty() &&
        surface.internalBoundaries.empty())
        return;
    xml << "      <SourceData>\n";
    if (!surface.externalBoundaries.empty() || !surface.internalBoundaries.empty()) {
        xml << "        <Boundaries>\n";
        WriteBoundaries(xml, surface.externalBoundaries, "outer");
        WriteBoundaries(xml, surface.internalBoundaries, "void");
        xml << "        </Boundaries>\n";
    }
    if (!surface.breaklines.empty()) {
        xml << "        <Breaklines>\n";
        for (const Polyline3D& line : surface.breaklines) {
            xml << "          <Breakline brkType=\"standard\">";
            WritePointList(xml, line, false);
            xml << "</Breakline>\n";
        }
        xml << "        </Breaklines>\n";
    }
    xml << "      </SourceData>\n";
}

void WriteDefinition(XmlText& xml, const TinSurface& surface, Progress& progress) {
    xml << "      <Definition surfType=\"TIN\">\n        <Pnts>\n";
    for (std::size_t i = 0; i < surface.points.size(); ++i) {
        xml << "          <P id=\"" << i + 1 << "\">";
        xml.Point(surface.points[i]);
        xml << "</P>\n";
        progress.Advance();
    }
    xml << "        </Pnts>\n        <Faces>\n";
    for (const auto& face : surface.faces) {
        xml << "          <F>" << face[0] + 1 << " " << face[1] + 1 << " " << face[2] + 1
            << "</F>\n";
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

}  // namespace

std::string LandXmlText(const std::vector<TinSurface>& surfaces) {
    std::size_t work = 0;
    for (const TinSurface& surface : surfaces) work += surface.points.size() + surface.faces.size();
    Progress progress("exporting", work);

    XmlText xml;
    xml << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<LandXML xmlns=\"http://www.landxml.org/schema/LandXML-1.2\" version=\"1.2\" date=\""
        << Timestamp("%Y-%m-%d") << "\" time=\"" << Timestamp("%H:%M:%S") << "\">\n"
        << "  <Application name=\"dtm\" manufacturer=\"dtm\"/>\n"
        << "  <Surfaces>\n";
    for (const TinSurface& surface : surfaces) {
        xml << "    <Surface name=\"" << XmlEscaped(surface.name) << "\">\n";
        WriteSourceData(xml, surface);
        WriteDefinition(xml, surface, progress);
        xml << "    </Surface>\n";
    }
    xml << "  </Surfaces>\n</LandXML>\n";
    progress.Finish();
    return xml.Take();
}

void WriteLandXml(const std::string& path, const std::vector<TinSurface>& surfaces) {
    const std::string text = LandXmlText(surfaces);
    WriteFileAtomically(path, text.data(), text.size());
}

}  // namespace dtmtool
