// Reading TIN surfaces from LandXML (see LandXml.h).

#include <algorithm>
#include <array>
#include <cctype>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <numeric>
#include <optional>
#include <pugixml.hpp>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "Document.h"
#include "LandXml.h"
#include "Progress.h"
#include "TextFormat.h"
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

// How far @p id lies above @p low (at most their whole span, which may not fit a long long when
// the ids reach both ends of its range); @p id must not be below @p low.
unsigned long long IdOffset(long long id, long long low) {
    return static_cast<unsigned long long>(id) - static_cast<unsigned long long>(low);
}

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
        const unsigned long long span = IdOffset(high, low);
        m_dense = span < 4 * ids.size() + 1024;
        if (m_dense) {
            m_low = low;
            m_slots.assign(static_cast<std::size_t>(span) + 1, -1);
        }
        for (std::size_t i = 0; i < ids.size(); ++i) {
            int& slot = m_dense ? m_slots[static_cast<std::size_t>(IdOffset(ids[i], m_low))]
                                : m_map[ids[i]];
            if (!m_dense && slot != 0) throw Repeated{ids[i]};
            if (m_dense && slot != -1) throw Repeated{ids[i]};
            // The map's default 0 must mean "absent", so it stores index + 1.
            slot = m_dense ? static_cast<int>(i) : static_cast<int>(i) + 1;
        }
    }
    // The vertex index of @p id, or -1.
    int Find(long long id) const {
        if (m_dense) {
            if (id < m_low || IdOffset(id, m_low) >= m_slots.size()) return -1;
            return m_slots[static_cast<std::size_t>(IdOffset(id, m_low))];
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

constexpr const char* kCoordinateRule =
    " holds a value that is not a number within 1e15 of zero, which every northing, easting and "
    "elevation must be";

bool IsUsablePoint(const PNT_3D& point) {
    return IsUsableCoordinate(point.x) && IsUsableCoordinate(point.y) &&
           IsUsableCoordinate(point.z);
}

// Every instance of one kind of doubt is counted, but only the first few are described: a bad
// file of a million faces must not flood the terminal.
class Findings {
public:
    Findings(const char* singular, const char* plural) : m_singular(singular), m_plural(plural) {}

    // @p describe makes the description, called only for the instances that are listed.
    template <class Describe>
    void Add(Describe describe) {
        if (m_listed.size() < kListed) m_listed.push_back(describe());
        ++m_count;
    }

    // "@p subject N faces repeat a point: face 3 (7 9 9), ... and M more", when there are any.
    void Report(const std::string& subject, std::vector<std::string>& warnings) const {
        if (m_count == 0) return;
        std::string text = subject + Counted(m_count, m_singular, m_plural) + ": ";
        for (std::size_t i = 0; i < m_listed.size(); ++i) text += (i > 0 ? ", " : "") + m_listed[i];
        if (m_count > m_listed.size()) text += " and " + Count(m_count - m_listed.size()) + " more";
        warnings.push_back(std::move(text));
    }

private:
    static constexpr std::size_t kListed = 5;
    const char* m_singular;
    const char* m_plural;
    std::vector<std::string> m_listed;
    std::uint64_t m_count = 0;
};

// True when the triangle has no area in plan: its corners lie on one line or at one place.
// Coordinates written in decimal are rarely exactly on a line in binary, so the test allows
// what rounding does to numbers of the corners' size: a height over the longest side of a few
// units in the last place, far below anything a survey measures.
bool IsFlatInPlan(const PNT_3D& a, const PNT_3D& b, const PNT_3D& c) {
    const std::array<const PNT_3D*, 3> corners = {&a, &b, &c};
    const auto squaredSide = [&corners](int k) {
        const PNT_3D& p = *corners[k];
        const PNT_3D& q = *corners[(k + 1) % 3];
        return (q.x - p.x) * (q.x - p.x) + (q.y - p.y) * (q.y - p.y);
    };
    // The longest side runs from p to q; r is the opposite corner.
    int longest = 0;
    for (int k = 1; k < 3; ++k)
        if (squaredSide(k) > squaredSide(longest)) longest = k;
    const PNT_3D& p = *corners[longest];
    const PNT_3D& q = *corners[(longest + 1) % 3];
    const PNT_3D& r = *corners[(longest + 2) % 3];
    const double length = std::sqrt(squaredSide(longest));
    const double twiceArea = std::fabs((q.x - p.x) * (r.y - p.y) - (q.y - p.y) * (r.x - p.x));
    double size = length;
    for (const PNT_3D* corner : corners)
        size = std::max({size, std::fabs(corner->x), std::fabs(corner->y)});
    return twiceArea <= 64 * DBL_EPSILON * size * length;
}

// Looks for what a triangulation should not hold but the library takes as it is: points at
// the same northing and easting, faces that repeat a point, faces listed twice and faces
// without area in plan. Points and faces are named as the file names them, by point id and
// face number, and listed in file order.
class TriangulationCheck {
public:
    TriangulationCheck(const std::vector<PNT_3D>& points, const std::vector<long long>& ids)
        : m_points(points), m_ids(ids) {}

    // Only records the face: the checks run after the whole file is parsed, when the points
    // are no longer pushed out of the cache by the parser's work between faces.
    void AddFace(const std::array<int, 3>& face, std::size_t number) {
        m_faces.push_back({face[0], face[1], face[2], static_cast<int>(number)});
    }

    // One sentence per kind found, each starting with @p subject.
    void Report(const std::string& subject, std::vector<std::string>& warnings) const {
        Findings sharedPlace("point has the northing and easting of an earlier point",
                             "points have the northing and easting of an earlier point");
        // Structured bindings cannot be captured by a lambda in C++17, hence the plain pairs.
        for (const std::pair<int, int>& repeat : SharedPlaces())
            sharedPlace.Add([&] {
                return std::to_string(m_ids[repeat.first]) + " (as " +
                       std::to_string(m_ids[repeat.second]) + ")";
            });
        Findings repeatedPoint("face repeats a point", "faces repeat a point");
        Findings flat("face has no area in plan (its corners lie on one line)",
                      "faces have no area in plan (their corners lie on one line)");
        for (const Face& face : m_faces) {
            const auto describe = [&] { return FaceText(face); };
            if (face[0] == face[1] || face[1] == face[2] || face[2] == face[0])
                repeatedPoint.Add(describe);
            else if (IsFlatInPlan(m_points[face[0]], m_points[face[1]], m_points[face[2]]))
                flat.Add(describe);
        }
        Findings repeatedFace("face repeats an earlier face", "faces repeat an earlier face");
        for (const std::pair<int, int>& repeat : RepeatedFaces())
            repeatedFace.Add([&] {
                return "face " + std::to_string(m_faces[repeat.first][3]) + " = " +
                       FaceText(m_faces[repeat.second]);
            });
        for (const Findings* findings : {&sharedPlace, &repeatedPoint, &repeatedFace, &flat})
            findings->Report(subject, warnings);
    }

private:
    // The three corners of a face as indices into the points, then its number in the file.
    using Face = std::array<int, 4>;
    // Each pair is a later and an earlier instance of the same thing, sorted by the later one,
    // so that the findings are listed in file order.
    using Pairs = std::vector<std::pair<int, int>>;

    // The pairs of equal keys among @p keys, each a later key with the first one equal to it,
    // in file order. Equal keys must fall into the same of @p bucketCount buckets by
    // @p bucketOf; one counting pass groups the keys by bucket, and the buckets, small when
    // the buckets are about as many as the keys, are sorted to bring equal keys together.
    // Linear where a sort of all keys would not be, which a million faces notice.
    template <class Key, class BucketOf>
    static Pairs RepeatedKeys(const std::vector<Key>& keys, std::size_t bucketCount,
                              BucketOf bucketOf) {
        std::vector<std::size_t> bucketStart(bucketCount + 1, 0);
        for (const Key& key : keys) ++bucketStart[bucketOf(key) + 1];
        std::partial_sum(bucketStart.begin(), bucketStart.end(), bucketStart.begin());
        std::vector<std::size_t> next(bucketStart.begin(), bucketStart.end() - 1);
        std::vector<Key> grouped(keys.size());
        for (const Key& key : keys) grouped[next[bucketOf(key)]++] = key;
        Pairs found;
        for (std::size_t bucket = 0; bucket < bucketCount; ++bucket) {
            const auto begin = grouped.begin() + bucketStart[bucket];
            const auto end = grouped.begin() + bucketStart[bucket + 1];
            std::sort(begin, end);
            for (auto at = begin, first = begin; at != end; ++at) {
                if (!at->SameAs(*first))
                    first = at;
                else if (at != first)
                    found.emplace_back(at->index, first->index);
            }
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    // Every point at the place of an earlier one, with the first point at that place.
    Pairs SharedPlaces() const {
        struct Place {
            double x, y;
            int index;
            bool SameAs(const Place& other) const { return x == other.x && y == other.y; }
            bool operator<(const Place& other) const {
                return std::tie(x, y, index) < std::tie(other.x, other.y, other.index);
            }
        };
        std::vector<Place> places;
        places.reserve(m_points.size());
        for (const PNT_3D& point : m_points)
            places.push_back({point.x, point.y, static_cast<int>(places.size())});
        // std::hash gives equal numbers (0 and -0 too) equal hashes.
        const std::size_t buckets = places.size() + 1;
        return RepeatedKeys(places, buckets, [buckets](const Place& place) {
            return (std::hash<double>()(place.x) * 31 + std::hash<double>()(place.y)) % buckets;
        });
    }

    // Every face (as an index into m_faces) with the same corners as an earlier one, with the
    // first face of those corners. The copies of a face share their smallest corner, which
    // is the bucket.
    Pairs RepeatedFaces() const {
        struct Corners {
            std::array<int, 3> sorted;
            int index;
            bool SameAs(const Corners& other) const { return sorted == other.sorted; }
            bool operator<(const Corners& other) const {
                return std::tie(sorted, index) < std::tie(other.sorted, other.index);
            }
        };
        std::vector<Corners> keys;
        keys.reserve(m_faces.size());
        for (const Face& face : m_faces) {
            Corners key{{face[0], face[1], face[2]}, static_cast<int>(keys.size())};
            std::sort(key.sorted.begin(), key.sorted.end());
            keys.push_back(key);
        }
        return RepeatedKeys(keys, m_points.size(), [](const Corners& key) {
            return static_cast<std::size_t>(key.sorted[0]);
        });
    }

    // "face 12 (7 9 9)": the face's number and its corners' ids, as the file has them.
    std::string FaceText(const Face& face) const {
        return "face " + std::to_string(face[3]) + " (" + std::to_string(m_ids[face[0]]) + " " +
               std::to_string(m_ids[face[1]]) + " " + std::to_string(m_ids[face[2]]) + ")";
    }

    const std::vector<PNT_3D>& m_points;
    const std::vector<long long>& m_ids;
    std::vector<Face> m_faces;
};

// Parses one document; every message names the file and, where it can, the line.
class LandXmlParser {
public:
    LandXmlParser(const char* data, std::size_t size, const std::string& file,
                  std::vector<std::string>* warnings)
        : m_data(data), m_size(size), m_file(file), m_warnings(warnings) {}

    std::vector<TinSurface> Parse() {
        // The parse cannot tell how far it got, so it counts as the first half of the work,
        // shown from its start, and reading the elements as the second, by their place in the
        // file.
        Progress progress("reading " + m_file, 2 * static_cast<std::uint64_t>(m_size));
        progress.Set(0);
        pugi::xml_document document;
        const pugi::xml_parse_result parsed = document.load_buffer(m_data, m_size);
        m_offsetsValid = parsed.encoding == pugi::encoding_utf8;
        progress.Set(m_size);
        if (m_offsetsValid) m_progress = &progress;
        if (!parsed)
            throw Error(parsed.offset, std::string("is not valid XML: ") + parsed.description());
        const pugi::xml_node root = document.document_element();
        if (!Is(root, "LandXML"))
            throw FileError(m_file, std::string("is not a LandXML file (its root element is <") +
                                        root.name() + ">)");

        std::vector<TinSurface> surfaces;
        ForEachInGroups(root, "Surfaces", "Surface",
                        [&](const pugi::xml_node& surface) { ReadSurface(surface, surfaces); });
        if (surfaces.empty()) throw FileError(m_file, "holds no TIN surface" + LeftOutWords());
        const SurveyUnits units = ReadUnits(Child(root, "Units"));
        const pugi::xml_node coordinateSystem = Child(root, "CoordinateSystem");
        const SurveyAttributes frame =
            coordinateSystem ? ReadAttributes(coordinateSystem) : SurveyAttributes{};
        // The surfaces become the projects. A second set of units or coordinate system would
        // contradict the first, which alone counts. The application that made the file stays
        // with it (who surveyed and with what), except this program's own: an export names
        // itself afresh, and would otherwise name itself once more on every round trip.
        // A group of surfaces none of which is a TIN became no project, so nothing else
        // carries its name and features: it is kept whole, where it stood.
        SurveyElements fileElements = KeptElements(root, [](const pugi::xml_node& child) {
            return Is(child, "Units") || Is(child, "CoordinateSystem") ||
                   (Is(child, "Surfaces") && HoldsTin(child)) || IsOwnApplication(child);
        });
        // The surfaces that are not TINs but stood beside one go out again as a group of their
        // own, after this program's application and before the surfaces it made: passed over
        // again when the export is read, they come back as the same group.
        std::string passedOver;
        for (pugi::xml_node group : root.children())
            if (Is(group, "Surfaces") && HoldsTin(group))
                for (pugi::xml_node surface : group.children())
                    if (Is(surface, "Surface") && !IsTin(surface))
                        passedOver += ElementText(surface);
        if (!passedOver.empty()) fileElements.push_back("<Surfaces>" + passedOver + "</Surfaces>");
        for (TinSurface& surface : surfaces) {
            surface.survey.units = units;
            surface.survey.coordinateSystem = frame;
            surface.survey.fileElements = fileElements;
        }
        m_progress = nullptr;
        progress.Finish();
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

    // The attributes of @p element as they stand, namespace declarations aside, followed by the
    // declaration of each prefix they use (xsi:type, say), wherever in the file it was made.
    // Kept beside them, it goes out with them: an export that wrote xsi:type without it would
    // not be well-formed to any reader that knows namespaces. Reading such an export gives the
    // same list again, the declaration now found on the element itself.
    static SurveyAttributes ReadAttributes(const pugi::xml_node& element) {
        SurveyAttributes attributes;
        std::vector<std::string> prefixes;
        for (pugi::xml_attribute attribute : element.attributes()) {
            const std::string name = attribute.name();
            if (IsNamespaceDeclaration(name)) continue;
            attributes.emplace_back(name, attribute.value());
            AddPrefix(name.c_str(), prefixes);
        }
        AddDeclarations(element, prefixes, attributes);
        return attributes;
    }

    static bool IsNamespaceDeclaration(const std::string& name) {
        return name == "xmlns" || name.rfind("xmlns:", 0) == 0;
    }

    // Adds the prefix of @p name to @p prefixes unless it is there already. The xml prefix is
    // bound without a declaration and xmlns is none, so neither is added.
    static void AddPrefix(const char* name, std::vector<std::string>& prefixes) {
        const char* colon = std::strchr(name, ':');
        if (!colon) return;
        std::string prefix(name, colon);
        if (prefix == "xml" || prefix == "xmlns" ||
            std::find(prefixes.begin(), prefixes.end(), prefix) != prefixes.end())
            return;
        prefixes.push_back(std::move(prefix));
    }

    // Adds to @p attributes the declaration in scope at @p element of each of @p prefixes. A
    // prefix the file never declared goes out as it came in.
    static void AddDeclarations(const pugi::xml_node& element,
                                const std::vector<std::string>& prefixes,
                                SurveyAttributes& attributes) {
        for (const std::string& prefix : prefixes) {
            const std::string declaration = "xmlns:" + prefix;
            for (pugi::xml_node scope = element; scope; scope = scope.parent())
                if (const pugi::xml_attribute uri = scope.attribute(declaration.c_str())) {
                    attributes.emplace_back(declaration, uri.value());
                    break;
                }
        }
    }

    // The XML of each element among the children of @p parent that @p isRead does not claim,
    // in file order: what the file says that this program does not read, kept so that an
    // export gives it back.
    template <class IsRead>
    static SurveyElements KeptElements(const pugi::xml_node& parent, IsRead isRead) {
        SurveyElements kept;
        for (pugi::xml_node child : parent.children())
            if (child.type() == pugi::node_element && !isRead(child))
                kept.push_back(ElementText(child));
        return kept;
    }

    // KeptElements of the children of @p parent whose local name is none of @p names.
    static SurveyElements KeptElements(const pugi::xml_node& parent,
                                       std::initializer_list<const char*> names) {
        return KeptElements(parent, [names](const pugi::xml_node& child) {
            return std::any_of(names.begin(), names.end(),
                               [&child](const char* name) { return Is(child, name); });
        });
    }

    // KeptElements of the children of @p parent other than @p read.
    static SurveyElements KeptElements(const pugi::xml_node& parent,
                                       const std::vector<pugi::xml_node>& read) {
        return KeptElements(parent, [&read](const pugi::xml_node& child) {
            return std::find(read.begin(), read.end(), child) != read.end();
        });
    }

    // The XML of @p top and everything in it: elements, attributes and text, escaped as every
    // text of an export is (comments and processing instructions are left out). Declarations
    // of the prefixes used inside it that were made on its ancestors go on @p top, so that the
    // text means the same wherever it is written. The walk is a loop, not a recursion: a file
    // may nest elements as deep as it likes.
    static std::string ElementText(const pugi::xml_node& top) {
        std::vector<std::string> outer = PrefixesWithin(top);
        outer.erase(std::remove_if(outer.begin(), outer.end(),
                                   [&top](const std::string& prefix) {
                                       return top.attribute(("xmlns:" + prefix).c_str());
                                   }),
                    outer.end());
        SurveyAttributes declarations;
        AddDeclarations(top.parent(), outer, declarations);
        std::string text;
        const auto appendAttribute = [&text](const char* name, const char* value) {
            text += ' ';
            text += name;
            text += "=\"" + XmlEscaped(value) + "\"";
        };
        pugi::xml_node node = top;
        for (;;) {
            if (node.type() == pugi::node_element) {
                text += '<';
                text += node.name();
                for (pugi::xml_attribute attribute : node.attributes())
                    appendAttribute(attribute.name(), attribute.value());
                if (node == top)
                    for (const auto& declaration : declarations)
                        appendAttribute(declaration.first.c_str(), declaration.second.c_str());
                if (node.first_child()) {
                    text += '>';
                    node = node.first_child();
                    continue;
                }
                text += "/>";
            } else if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) {
                text += XmlEscaped(node.value());
            }
            while (node != top && !node.next_sibling()) {
                node = node.parent();
                text += "</";
                text += node.name();
                text += '>';
            }
            if (node == top) return text;
            node = node.next_sibling();
        }
    }

    // The namespace prefixes of the element and attribute names in and below @p top.
    static std::vector<std::string> PrefixesWithin(const pugi::xml_node& top) {
        std::vector<std::string> prefixes;
        for (pugi::xml_node node = top; node; node = NextWithin(node, top)) {
            if (node.type() != pugi::node_element) continue;
            AddPrefix(node.name(), prefixes);
            for (pugi::xml_attribute attribute : node.attributes())
                AddPrefix(attribute.name(), prefixes);
        }
        return prefixes;
    }

    // The node after @p node in file order within @p top, or null after the last.
    static pugi::xml_node NextWithin(pugi::xml_node node, const pugi::xml_node& top) {
        if (node.first_child()) return node.first_child();
        while (node != top && !node.next_sibling()) node = node.parent();
        return node == top ? pugi::xml_node() : node.next_sibling();
    }

    // Whether @p element is the <Application> that an export of this program writes.
    static bool IsOwnApplication(const pugi::xml_node& element) {
        return Is(element, "Application") &&
               std::strcmp(element.attribute("name").as_string(), kApplicationName) == 0 &&
               std::strcmp(element.attribute("manufacturer").as_string(), kApplicationName) == 0;
    }

    // The units the whole file is in: the first element inside <Units>, with its attributes.
    static SurveyUnits ReadUnits(const pugi::xml_node& element) {
        for (pugi::xml_node system : element.children())
            if (system.type() == pugi::node_element)
                return {LocalName(system), ReadAttributes(system)};
        return {};
    }

    // Whether @p surface can become a network: it has a definition, of a TIN (the type a
    // definition that names none has).
    static bool IsTin(const pugi::xml_node& surface) {
        const pugi::xml_node definition = Child(surface, "Definition");
        return definition &&
               EqualsIgnoringCase(definition.attribute("surfType").as_string("TIN"), "TIN");
    }

    // Whether the <Surfaces> group @p group holds a surface that becomes a project.
    static bool HoldsTin(const pugi::xml_node& group) {
        for (pugi::xml_node child : group.children())
            if (Is(child, "Surface") && IsTin(child)) return true;
        return false;
    }

    void ReadSurface(const pugi::xml_node& element, std::vector<TinSurface>& surfaces) {
        const pugi::xml_node definition = Child(element, "Definition");
        if (!IsTin(element)) {
            // A grid, or a surface known only by its source data, cannot become a network; the
            // surveyor hears which one was passed over, and why, and the export gives it back.
            std::string why =
                SurfaceWords(element) +
                (definition ? std::string(" is a ") + definition.attribute("surfType").as_string() +
                                  " surface, not a TIN"
                            : std::string(" has no Definition"));
            LeftOut(element, definition ? why + "," : why, "was kept for export, not imported");
            m_leftOutSurfaces.push_back(std::move(why));
            return;
        }

        TinSurface surface;
        surface.name = element.attribute("name").as_string();
        if (surface.name.empty()) surface.name = "Surface " + std::to_string(surfaces.size() + 1);
        m_surfaceName = "'" + surface.name + "'";
        for (auto& attribute : ReadAttributes(element))
            if (attribute.first != "name") surface.survey.surfaceAttributes.push_back(attribute);
        ReadPoints(definition, surface);
        // The check costs a few passes over the points and faces, spent only when someone
        // hears its findings.
        std::optional<TriangulationCheck> check;
        if (m_warnings) check.emplace(surface.points, surface.survey.pointIds);
        ReadFaces(definition, surface, check);
        const std::string subject = m_file + ": surface " + m_surfaceName + ": ";
        if (check) check->Report(subject, *m_warnings);
        if (m_warnings && surface.faces.empty())
            m_warnings->push_back(subject + NoFaceWords(surface));
        for (pugi::xml_node source : element.children()) {
            if (!Is(source, "SourceData")) continue;
            ReadBreaklines(source, surface);
            ReadBoundaries(source, surface);
            for (std::string& kept : KeptElements(source, {"Breaklines", "Boundaries"}))
                surface.survey.sourceElements.push_back(std::move(kept));
        }
        // A second definition is not read; like a second set of units, it would contradict the
        // first.
        surface.survey.surfaceElements = KeptElements(element, {"Definition", "SourceData"});
        // The group's name and features belong to each of its surfaces: projects of one group
        // exported together go out in one group again, named as it was.
        const pugi::xml_node group = element.parent();
        surface.survey.groupAttributes = ReadAttributes(group);
        surface.survey.groupElements = KeptElements(group, {"Surface"});
        surfaces.push_back(std::move(surface));
    }

    // The elements named @p localName among the children of each of @p parent's children named
    // @p groupName, in file order: a file may hold several groups of surfaces, and a writer may
    // split a long point or face list into several groups; every one of them counts. Each
    // element visited moves the bar to its place in the file.
    template <class Visit>
    void ForEachInGroups(const pugi::xml_node& parent, const char* groupName, const char* localName,
                         Visit&& visit) {
        for (pugi::xml_node group : parent.children())
            if (Is(group, groupName))
                for (pugi::xml_node element : group.children())
                    if (Is(element, localName)) {
                        ShowProgressAt(element);
                        visit(element);
                    }
    }

    void ShowProgressAt(const pugi::xml_node& element) {
        const std::ptrdiff_t offset = element.offset_debug();
        if (m_progress && offset >= 0) m_progress->Set(m_size + static_cast<std::uint64_t>(offset));
    }

    void ReadPoints(const pugi::xml_node& definition, TinSurface& surface) {
        ForEachInGroups(definition, "Pnts", "P", [&](const pugi::xml_node& p) {
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
            const auto point = [&] {
                return "point " + std::to_string(id) + " of surface " + m_surfaceName;
            };
            if (!ReadTriple(p.child_value(), northing, easting, elevation))
                throw Error(p,
                            point() + " does not hold three numbers (northing easting elevation)");
            surface.survey.pointIds.push_back(id);
            surface.points.emplace_back(easting, northing, elevation);
            // "nan" and "inf" read as numbers, but no surface can be made of them.
            if (!IsUsablePoint(surface.points.back())) throw Error(p, point() + kCoordinateRule);
            // Most points carry only their id; a name or code beside it is the surveyor's.
            if (p.first_attribute().next_attribute()) KeepPointAttributes(p, surface);
        });
        try {
            m_index = PointIndex();
            m_index.Build(surface.survey.pointIds);
        } catch (const PointIndex::Repeated& repeated) {
            throw FileError(m_file, "point id " + std::to_string(repeated.id) +
                                        " appears twice in surface " + m_surfaceName);
        }
    }

    // The attributes of point @p p, the last read, other than its id.
    static void KeepPointAttributes(const pugi::xml_node& p, TinSurface& surface) {
        SurveyAttributes attributes = ReadAttributes(p);
        attributes.erase(
            std::remove_if(attributes.begin(), attributes.end(),
                           [](const auto& attribute) { return attribute.first == "id"; }),
            attributes.end());
        if (attributes.empty()) return;
        surface.survey.pointAttributes.push_back(
            {static_cast<int>(surface.points.size()) - 1, std::move(attributes)});
    }

    // Why @p surface, which has no visible face, comes in as a project without triangles: a
    // file that holds only the points, or one whose every face is hidden, is imported all the
    // same, but the surveyor who expects a surface must hear that there is none.
    static std::string NoFaceWords(const TinSurface& surface) {
        const std::size_t hidden = surface.survey.hiddenFaces.size();
        const std::string why = hidden == 0   ? std::string("holds no face")
                                : hidden == 1 ? std::string("its one face is hidden")
                                              : "all " + Count(hidden) + " of its faces are hidden";
        return why + ", so its project has no triangles";
    }

    // The corners of a face as indices into the surface's points.
    struct FaceCorners {
        std::array<int, 4> index{};
        // 3 or 4 when the face was read; 0 when it cannot be.
        int count = 0;
        // Why it cannot be: the id of a point the surface does not define, or none when the
        // face does not hold three or four point ids.
        std::optional<long long> unknownPoint;

        bool Read() const noexcept { return count != 0; }
    };

    void ReadFaces(const pugi::xml_node& definition, TinSurface& surface,
                   std::optional<TriangulationCheck>& check) {
        std::size_t faceNumber = 0;
        ForEachInGroups(definition, "Faces", "F", [&](const pugi::xml_node& f) {
            ++faceNumber;
            const FaceCorners face = Corners(f);
            if (f.attribute("i").as_int(0) == 1) {
                // A hidden face is not part of the model, so one that cannot be read costs the
                // model nothing: it is told and left out, where a visible one stops the import.
                if (face.Read())
                    surface.survey.hiddenFaces.emplace_back(face.index.begin(),
                                                            face.index.begin() + face.count);
                else if (m_warnings)
                    m_warnings->push_back(
                        Error(f, "hidden " + Unreadable(face, faceNumber) + "; it was left out")
                            .what());
                return;
            }
            if (!face.Read()) throw Error(f, Unreadable(face, faceNumber));
            const auto& c = face.index;
            AddFace(surface, {c[0], c[1], c[2]}, faceNumber, check);
            // A four-sided face is split along its first diagonal.
            if (face.count == 4) AddFace(surface, {c[0], c[2], c[3]}, faceNumber, check);
        });
    }

    FaceCorners Corners(const pugi::xml_node& f) const {
        FaceCorners face;
        int count = 0;
        try {
            NumberScanner scanner(f.child_value());
            long long id = 0;
            while (scanner.Next(id)) {
                if (count == 4) return face;
                face.index[count] = m_index.Find(id);
                if (face.index[count] < 0) {
                    face.unknownPoint = id;
                    return face;
                }
                ++count;
            }
        } catch (const std::invalid_argument&) {
            return face;
        }
        if (count == 3 || count == 4) face.count = count;
        return face;
    }

    // What is wrong with face @p number, which Corners could not read.
    std::string Unreadable(const FaceCorners& face, std::size_t number) const {
        const std::string name = "face " + std::to_string(number) + " of surface " + m_surfaceName;
        if (face.unknownPoint)
            return name + " refers to point " + std::to_string(*face.unknownPoint) +
                   ", which the surface does not define";
        return name + " does not hold three point ids";
    }

    static void AddFace(TinSurface& surface, const std::array<int, 3>& face, std::size_t number,
                        std::optional<TriangulationCheck>& check) {
        surface.faces.push_back(face);
        if (check) check->AddFace(face, number);
    }

    static std::string SurfaceWords(const pugi::xml_node& element) {
        const std::string name = element.attribute("name").as_string();
        return name.empty() ? std::string("a surface without a name") : "surface '" + name + "'";
    }

    // " (surface 'G' is a grid surface, not a TIN; ...)", or nothing when no surface was passed
    // over: a file refused for holding no TIN surface says what it held instead.
    std::string LeftOutWords() const {
        std::string words;
        for (const std::string& why : m_leftOutSurfaces) words += (words.empty() ? "" : "; ") + why;
        return words.empty() ? words : " (" + words + ")";
    }

    // Tells the surveyor, when someone listens, that @p element was left out (or what else
    // became of it: @p outcome) and why.
    void LeftOut(const pugi::xml_node& element, const std::string& what,
                 const char* outcome = "was left out") const {
        if (m_warnings) m_warnings->push_back(Error(element, what + " and " + outcome).what());
    }

    // The breaklines of every <Breaklines> group in @p source.
    void ReadBreaklines(const pugi::xml_node& source, TinSurface& surface) {
        std::size_t number = 0;
        ForEachInGroups(source, "Breaklines", "Breakline", [&](const pugi::xml_node& breakline) {
            const std::string name =
                "breakline " + std::to_string(++number) + " of surface " + m_surfaceName;
            const std::size_t first = surface.breaklines.size();
            std::vector<pugi::xml_node> taken;
            for (pugi::xml_node list : breakline.children())
                if (Is(list, "PntList3D")) {
                    Polyline3D line = ReadPointList(list, "breakline");
                    if (line.size() < 2) {
                        LeftOut(list, "a point list of " + name + " holds fewer than two points");
                        continue;
                    }
                    surface.survey.breaklines.push_back(
                        {ReadAttributes(breakline), line.size() - 1, {}});
                    surface.breaklines.push_back(std::move(line));
                    taken.push_back(list);
                }
            if (!taken.empty()) {
                surface.survey.breaklines[first].elements = KeptElements(breakline, taken);
            } else if (!Child(breakline, "PntList3D")) {
                // A plan-only line (PntList2D) has no elevations to constrain the surface with.
                LeftOut(breakline, name + " has no PntList3D");
            }
        });
    }

    static BoundaryRole RoleOf(const char* type) {
        // An island is land inside a void, so it limits the model as an outer boundary does.
        if (EqualsIgnoringCase(type, "outer") || EqualsIgnoringCase(type, "island"))
            return BoundaryRole::External;
        if (EqualsIgnoringCase(type, "void")) return BoundaryRole::Internal;
        return BoundaryRole::Kept;
    }

    // The boundaries of every <Boundaries> group in @p source.
    void ReadBoundaries(const pugi::xml_node& source, TinSurface& surface) {
        std::size_t number = 0;
        ForEachInGroups(source, "Boundaries", "Boundary", [&](const pugi::xml_node& boundary) {
            const std::string name =
                "boundary " + std::to_string(++number) + " of surface " + m_surfaceName;
            const pugi::xml_node list = Child(boundary, "PntList3D");
            if (!list) {
                LeftOut(boundary, name + " has no PntList3D");
                return;
            }
            const char* type = boundary.attribute("bndType").as_string();
            SurveyBoundary record{
                RoleOf(type), ReadAttributes(boundary), {}, KeptElements(boundary, {list})};
            if (record.role == BoundaryRole::Kept) {
                // The model never reads it, so unreadable numbers cost the boundary and not
                // the import.
                try {
                    record.points = ReadPointList(list, "boundary");
                } catch (const ToolError& error) {
                    if (m_warnings)
                        m_warnings->push_back(error.what() + std::string("; it was left out"));
                    return;
                }
            } else {
                Polyline3D ring = ReadPointList(list, "boundary");
                if (ring.size() >= 2 && ring.front().x == ring.back().x &&
                    ring.front().y == ring.back().y && ring.front().z == ring.back().z)
                    ring.pop_back();
                if (ring.size() < 3) {
                    LeftOut(boundary, name + " (" + type + ") has fewer than three corners");
                    return;
                }
                (record.role == BoundaryRole::External ? surface.externalBoundaries
                                                       : surface.internalBoundaries)
                    .push_back(std::move(ring));
            }
            surface.survey.boundaries.push_back(std::move(record));
        });
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
        if (!std::all_of(points.begin(), points.end(), IsUsablePoint))
            throw Error(
                list, std::string("a ") + what + " of surface " + m_surfaceName + kCoordinateRule);
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
    std::vector<std::string>* m_warnings;
    bool m_offsetsValid = false;
    // The bar of the read, while the elements are visited in file order.
    Progress* m_progress = nullptr;
    std::string m_surfaceName;
    // Why each surface that is not a TIN was passed over, for the error when none is.
    std::vector<std::string> m_leftOutSurfaces;
    // The point ids of the current surface, for its faces to look up.
    PointIndex m_index;
};

}  // namespace

bool IsXmlElement(const std::string& text) {
    pugi::xml_document document;
    if (!document.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_fragment,
                              pugi::encoding_utf8))
        return false;
    const pugi::xml_node first = document.first_child();
    return first.type() == pugi::node_element && !first.next_sibling();
}

std::vector<TinSurface> ParseLandXml(const char* data, std::size_t size, const std::string& file,
                                     std::vector<std::string>* warnings) {
    return LandXmlParser(data, size, file, warnings).Parse();
}

std::vector<TinSurface> ReadLandXml(const std::string& path, std::vector<std::string>* warnings) {
    const std::vector<char> bytes = ReadWholeFile(path);
    return ParseLandXml(bytes.data(), bytes.size(), path, warnings);
}

}  // namespace dtmtool
