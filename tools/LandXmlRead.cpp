// Reading TIN surfaces from LandXML (see LandXml.h).

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <pugixml.hpp>
#include <unordered_map>

#include "Document.h"
#include "LandXml.h"
#include "Progress.h"
#include "ToolError.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_3D;

// The element's name without its namespace prefix: files use the landxml.org namespaces of
// versions 1.1 to 2.0, national flavours, prefixes and no namespace at all.
const char* LocalName(const pugi::xml_node& node) {
    const char* name = node.name();
    const char* colon = std::strrchr(name, ':');
    return colon ? colon + 1 : name;
}

bool Is(const pugi::xml_node& node, const char* localName) {
    return node.type() == pugi::node_element && std::strcmp(LocalName(node), localName) == 0;
}

pugi::xml_node Child(const pugi::xml_node& parent, const char* localName) {
    for (pugi::xml_node child : parent.children())
        if (Is(child, localName)) return child;
    return {};
}

bool EqualsIgnoringCase(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b)
        if (std::tolower(static_cast<unsigned char>(*a)) !=
            std::tolower(static_cast<unsigned char>(*b)))
            return false;
    return *a == *b;
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Splits a text of numbers separated by blanks. Numbers such as "105." (a trailing dot) are
// accepted, as survey programs write them.
class NumberScanner {
public:
    explicit NumberScanner(const char* text) : m_at(text), m_end(text + std::strlen(text)) {}

    // False at the end of the text; throws std::invalid_argument for a token that is not a
    // number.
    template <class T>
    bool Next(T& value) {
        while (m_at < m_end && IsBlank(*m_at)) ++m_at;
        if (m_at == m_end) return false;
        const char* start = m_at;
        if (*start == '+') ++start;
        const std::from_chars_result result = std::from_chars(start, m_end, value);
        if (result.ec != std::errc() || (result.ptr < m_end && !IsBlank(*result.ptr))) {
            const char* tokenEnd = m_at;
            while (tokenEnd < m_end && !IsBlank(*tokenEnd)) ++tokenEnd;
            throw std::invalid_argument(std::string(m_at, tokenEnd));
        }
        m_at = result.ptr;
        return true;
    }

private:
    const char* m_at;
    const char* m_end;
};

// Turns point ids into vertex indices. Ids usually run densely from some small number, where a
// plain array is much faster than hashing a million of them; sparse ids fall back to a map.
class PointIndex {
public:
    void Build(const std::vector<long long>& ids) {
        if (ids.empty()) return;
        long long low = ids[0];
        long long high = ids[0];
        for (const long long id : ids) {
            low = std::min(low, id);
            high = std::max(high, id);
        }
        // Dense when the array would be at most four times the number of ids.
        const unsigned long long span = static_cast<unsigned long long>(high - low);
        m_dense = span < 4 * ids.size() + 1024;
        if (m_dense) {
            m_low = low;
            m_slots.assign(static_cast<std::size_t>(span) + 1, -1);
        }
        for (std::size_t i = 0; i < ids.size(); ++i) {
            int& slot = m_dense ? m_slots[static_cast<std::size_t>(ids[i] - m_low)] : m_map[ids[i]];
            if (!m_dense && slot != 0) throw Repeated{ids[i]};
            if (m_dense && slot != -1) throw Repeated{ids[i]};
            // The map's default 0 must mean "absent", so it stores index + 1.
            slot = m_dense ? static_cast<int>(i) : static_cast<int>(i) + 1;
        }
    }
    // The vertex index of @p id, or -1.
    int Find(long long id) const {
        if (m_dense) {
            if (id < m_low || static_cast<unsigned long long>(id - m_low) >= m_slots.size())
                return -1;
            return m_slots[static_cast<std::size_t>(id - m_low)];
        }
        const auto found = m_map.find(id);
        return found == m_map.end() ? -1 : found->second - 1;
    }

    struct Repeated {
        long long id;
    };

private:
    bool m_dense = false;
    long long m_low = 0;
    std::vector<int> m_slots;
    std::unordered_map<long long, int> m_map;
};

// Parses one document; every message names the file and, where it can, the line.
class LandXmlParser {
public:
    LandXmlParser(const char* data, std::size_t size, const std::string& file)
        : m_data(data), m_size(size), m_file(file) {}

    std::vector<TinSurface> Parse() {
        pugi::xml_document document;
        const pugi::xml_parse_result parsed = document.load_buffer(m_data, m_size);
        m_offsetsValid = parsed.encoding == pugi::encoding_utf8;
        if (!parsed)
            throw Error(parsed.offset, std::string("is not valid XML: ") + parsed.description());
        const pugi::xml_node root = document.document_element();
        if (!Is(root, "LandXML"))
            throw FileError(m_file, std::string("is not a LandXML file (its root element is <") +
                                        root.name() + ">)");

        std::vector<TinSurface> surfaces;
        for (pugi::xml_node group : root.children())
            if (Is(group, "Surfaces"))
                for (pugi::xml_node surface : group.children())
                    if (Is(surface, "Surface")) ReadSurface(surface, surfaces);
        if (surfaces.empty()) throw FileError(m_file, "holds no TIN surface");
        return surfaces;
    }

private:
    ToolError Error(std::ptrdiff_t offset, const std::string& what) const {
        if (!m_offsetsValid || offset < 0 || static_cast<std::size_t>(offset) > m_size)
            return FileError(m_file, what);
        const long line = 1 + std::count(m_data, m_data + offset, '\n');
        return FileError(m_file, "line " + std::to_string(line) + ": " + what);
    }
    ToolError Error(const pugi::xml_node& node, const std::string& what) const {
        return Error(node.offset_debug(), what);
    }

    void ReadSurface(const pugi::xml_node& element, std::vector<TinSurface>& surfaces) {
        const pugi::xml_node definition = Child(element, "Definition");
        if (!definition) return;
        const char* type = definition.attribute("surfType").as_string("TIN");
        if (!EqualsIgnoringCase(type, "TIN")) return;

        TinSurface surface;
        surface.name = element.attribute("name").as_string();
        if (surface.name.empty()) surface.name = "Surface " + std::to_string(surfaces.size() + 1);
        m_surfaceName = "'" + surface.name + "'";
        ReadPoints(Child(definition, "Pnts"), surface);
        ReadFaces(Child(definition, "Faces"), surface);
        const pugi::xml_node source = Child(element, "SourceData");
        ReadBreaklines(Child(source, "Breaklines"), surface);
        ReadBoundaries(Child(source, "Boundaries"), surface);
        surfaces.push_back(std::move(surface));
    }

    void ReadPoints(const pugi::xml_node& pnts, TinSurface& surface) {
        std::vector<long long> ids;
        for (pugi::xml_node p : pnts.children()) {
            if (!Is(p, "P")) continue;
            const char* idText = p.attribute("id").as_string();
            long long id = 0;
            try {
                NumberScanner scanner(idText);
                if (!scanner.Next(id)) throw std::invalid_argument(idText);
            } catch (const std::invalid_argument&) {
                throw Error(p, "a point of surface " + m_surfaceName + " has the id '" + idText +
                                   "', which is not a whole number");
            }
            double northing = 0.0, easting = 0.0, elevation = 0.0;
            if (!ReadTriple(p.child_value(), northing, easting, elevation))
                throw Error(p, "point " + std::to_string(id) + " of surface " + m_surfaceName +
                                   " does not hold three numbers (northing easting elevation)");
            ids.push_back(id);
            surface.points.emplace_back(easting, northing, elevation);
        }
        try {
            m_index = PointIndex();
            m_index.Build(ids);
        } catch (const PointIndex::Repeated& repeated) {
            throw FileError(m_file, "point id " + std::to_string(repeated.id) +
                                        " appears twice in surface " + m_surfaceName);
        }
    }

    void ReadFaces(const pugi::xml_node& faces, TinSurface& surface) {
        std::size_t faceNumber = 0;
        for (pugi::xml_node f : faces.children()) {
            if (!Is(f, "F")) continue;
            ++faceNumber;
            if (f.attribute("i").as_int(0) == 1) {
                ++surface.hiddenFaces;
                continue;
            }
            int corners[4];
            int count = 0;
            try {
                NumberScanner scanner(f.child_value());
                long long id = 0;
                while (scanner.Next(id)) {
                    if (count == 4) throw std::invalid_argument("");
                    corners[count] = m_index.Find(id);
                    if (corners[count] < 0)
                        throw Error(f, "face " + std::to_string(faceNumber) + " of surface " +
                                           m_surfaceName + " refers to point " +
                                           std::to_string(id) +
                                           ", which the surface does not define");
                    ++count;
                }
            } catch (const std::invalid_argument&) {
                count = -1;
            }
            if (count != 3 && count != 4)
                throw Error(f, "face " + std::to_string(faceNumber) + " of surface " +
                                   m_surfaceName + " does not hold three point ids");
            surface.faces.push_back({corners[0], corners[1], corners[2]});
            // A four-sided face is split along its first diagonal.
            if (count == 4) surface.faces.push_back({corners[0], corners[2], corners[3]});
        }
    }

    void ReadBreaklines(const pugi::xml_node& breaklines, TinSurface& surface) {
        for (pugi::xml_node breakline : breaklines.children()) {
            if (!Is(breakline, "Breakline")) continue;
            for (pugi::xml_node list : breakline.children())
                if (Is(list, "PntList3D")) {
                    Polyline3D line = ReadPointList(list, "breakline");
                    if (line.size() >= 2) surface.breaklines.push_back(std::move(line));
                }
        }
    }

    void ReadBoundaries(const pugi::xml_node& boundaries, TinSurface& surface) {
        for (pugi::xml_node boundary : boundaries.children()) {
            if (!Is(boundary, "Boundary")) continue;
            const char* type = boundary.attribute("bndType").as_string();
            std::vector<Polyline3D>* target = nullptr;
            // An island is land inside a void, so it limits the model as an outer boundary does.
            if (EqualsIgnoringCase(type, "outer") || EqualsIgnoringCase(type, "island"))
                target = &surface.externalBoundaries;
            else if (EqualsIgnoringCase(type, "void"))
                target = &surface.internalBoundaries;
            const pugi::xml_node list = Child(boundary, "PntList3D");
            if (!target || !list) {
                ++surface.otherBoundaries;
                continue;
            }
            Polyline3D ring = ReadPointList(list, "boundary");
            if (ring.size() >= 2 && ring.front().x == ring.back().x &&
                ring.front().y == ring.back().y && ring.front().z == ring.back().z)
                ring.pop_back();
            if (ring.size() >= 3) target->push_back(std::move(ring));
        }
    }

    Polyline3D ReadPointList(const pugi::xml_node& list, const char* what) {
        Polyline3D points;
        try {
            NumberScanner scanner(list.child_value());
            double northing = 0.0, easting = 0.0, elevation = 0.0;
            while (scanner.Next(northing)) {
                if (!scanner.Next(easting) || !scanner.Next(elevation))
                    throw std::invalid_argument("");
                points.emplace_back(easting, northing, elevation);
            }
        } catch (const std::invalid_argument&) {
            throw Error(list, std::string("a ") + what + " of surface " + m_surfaceName +
                                  " does not hold northing easting elevation triples");
        }
        return points;
    }

    static bool ReadTriple(const char* text, double& a, double& b, double& c) {
        try {
            NumberScanner scanner(text);
            double extra = 0.0;
            return scanner.Next(a) && scanner.Next(b) && scanner.Next(c) && !scanner.Next(extra);
        } catch (const std::invalid_argument&) {
            return false;
        }
    }

    const char* m_data;
    std::size_t m_size;
    const std::string& m_file;
    bool m_offsetsValid = false;
    std::string m_surfaceName;
    PointIndex m_index;
};

}  // namespace

std::vector<TinSurface> ParseLandXml(const char* data, std::size_t size, const std::string& file) {
    return LandXmlParser(data, size, file).Parse();
}

std::vector<TinSurface> ReadLandXml(const std::string& path) {
    const std::vector<char> bytes = ReadWholeFile(path);
    return ParseLandXml(bytes.data(), bytes.size(), path);
}

}  // namespace dtmtool
