#include "Document.h"

#include <dtm/dtm.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <type_traits>
#include <utility>

#include "AtomicFile.h"
#include "Crc32.h"
#include "LandXml.h"
#include "MemoryStreams.h"
#include "Progress.h"
#include "ProjectSections.h"
#include "TextFormat.h"
#include "ToolError.h"
#include "Workspace.h"

namespace dtmtool {

const char kDocumentMagic[8] = {'\x89', 'D', 'T', 'M', '\r', '\n', '\x1A', '\n'};

namespace {

constexpr std::uint32_t kDocumentTag = MakeTag('D', 'O', 'C', ' ');
constexpr std::uint32_t kProjectTag = MakeTag('P', 'R', 'J', ' ');
constexpr std::uint32_t kSurveyTag = MakeTag('S', 'R', 'V', 'Y');
// The layouts of the survey record; a reader skips a record of a later layout, as it skips a
// section it does not know. Layout 2 adds the boundaries to layout 1, layout 3 the surface's
// attributes and the hidden faces to layout 2, layout 4 the points' attributes to layout 3,
// layout 5 the coordinate system to layout 4, layout 6 the elements the program does not read
// (per breakline, per boundary, then those of the source data, the surface and the file) to
// layout 5. A record is written in the first layout that holds it, so that a program that knows
// only the earlier ones keeps reading what they can say.
constexpr std::uint16_t kSurveyFormat = 1;
constexpr std::uint16_t kSurveyFormatWithBoundaries = 2;
constexpr std::uint16_t kSurveyFormatWithSurface = 3;
constexpr std::uint16_t kSurveyFormatWithPoints = 4;
constexpr std::uint16_t kSurveyFormatWithCoordinateSystem = 5;
constexpr std::uint16_t kSurveyFormatWithElements = 6;
constexpr std::uint16_t kSurveyFormatWithGroup = 7;
// Tag, payload length, checksum.
constexpr std::size_t kBlockHeaderSize = 4 + 8 + 4;
constexpr std::uint32_t kFlagVisible = 1;
constexpr std::uint32_t kFlagLocked = 2;

// Little-endian encoding of the framing's own numbers, written straight into the buffer.
template <class T>
void PutAt(std::vector<char>& bytes, std::size_t at, T value) {
    using Unsigned = std::make_unsigned_t<T>;
    const Unsigned bits = static_cast<Unsigned>(value);
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bytes[at + i] = static_cast<char>((bits >> (8 * i)) & 0xFFu);
}

template <class T>
void Append(std::vector<char>& bytes, T value) {
    bytes.resize(bytes.size() + sizeof(T));
    PutAt(bytes, bytes.size() - sizeof(T), value);
}

template <class T>
T GetAt(const char* data) {
    using Unsigned = std::make_unsigned_t<T>;
    Unsigned bits = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i)
        bits |= static_cast<Unsigned>(static_cast<unsigned char>(data[i])) << (8 * i);
    return static_cast<T>(bits);
}

// Writing ------------------------------------------------------------------------------------

// Opens a block in the buffer; Close fills in its length and checksum once the payload is in.
class BlockWriter {
public:
    BlockWriter(std::vector<char>& bytes, std::uint32_t tag)
        : m_bytes(bytes), m_start(bytes.size()) {
        Append(m_bytes, tag);
        Append<std::uint64_t>(m_bytes, 0);
        Append<std::uint32_t>(m_bytes, 0);
    }
    void Close() {
        const std::size_t payload = m_start + kBlockHeaderSize;
        const std::size_t length = m_bytes.size() - payload;
        PutAt<std::uint64_t>(m_bytes, m_start + 4, length);
        PutAt<std::uint32_t>(m_bytes, m_start + 12, Crc32(m_bytes.data() + payload, length));
    }

private:
    std::vector<char>& m_bytes;
    std::size_t m_start;
};

int ActiveIndex(const CLibDtm& library) {
    for (unsigned int i = 0; i < library.GetNoPrj(); ++i)
        if (library.GetPrj(i) == library.GetActive()) return static_cast<int>(i);
    return -1;
}

void AppendText(std::vector<char>& bytes, const std::string& text) {
    Append(bytes, static_cast<std::uint32_t>(text.size()));
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void AppendProjectHeader(std::vector<char>& bytes, const CDtmPrj& prj, std::uint32_t blocks) {
    BlockWriter block(bytes, kProjectTag);
    AppendText(bytes, prj.GetName().str());
    const std::uint32_t flags =
        (prj.IsVisible() ? kFlagVisible : 0u) | (prj.IsLocked() ? kFlagLocked : 0u);
    Append(bytes, flags);
    Append(bytes, blocks);
    block.Close();
}

void AppendAttributes(std::vector<char>& bytes, const SurveyAttributes& attributes) {
    Append(bytes, static_cast<std::uint32_t>(attributes.size()));
    for (const auto& attribute : attributes) {
        AppendText(bytes, attribute.first);
        AppendText(bytes, attribute.second);
    }
}

void AppendDouble(std::vector<char>& bytes, double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    Append(bytes, bits);
}

void AppendBoundary(std::vector<char>& bytes, const SurveyBoundary& boundary) {
    Append(bytes, static_cast<std::uint8_t>(boundary.role));
    AppendAttributes(bytes, boundary.attributes);
    Append(bytes, static_cast<std::uint32_t>(boundary.points.size()));
    for (const kor::geom::PNT_3D& point : boundary.points)
        for (const double value : {point.x, point.y, point.z}) AppendDouble(bytes, value);
}

void AppendElements(std::vector<char>& bytes, const SurveyElements& elements) {
    Append(bytes, static_cast<std::uint32_t>(elements.size()));
    for (const std::string& element : elements) AppendText(bytes, element);
}

void AppendHiddenFace(std::vector<char>& bytes, const std::vector<int>& corners) {
    Append(bytes, static_cast<std::uint8_t>(corners.size()));
    for (const int corner : corners) Append<std::int32_t>(bytes, corner);
}

std::uint16_t SurveyFormatOf(const SurveyRecord& record) {
    if (!record.groupAttributes.empty() || !record.groupElements.empty())
        return kSurveyFormatWithGroup;
    if (record.HoldsElements()) return kSurveyFormatWithElements;
    if (!record.coordinateSystem.empty()) return kSurveyFormatWithCoordinateSystem;
    if (!record.pointAttributes.empty()) return kSurveyFormatWithPoints;
    if (!record.surfaceAttributes.empty() || !record.hiddenFaces.empty())
        return kSurveyFormatWithSurface;
    if (!record.boundaries.empty()) return kSurveyFormatWithBoundaries;
    return kSurveyFormat;
}

void AppendSurveyRecord(std::vector<char>& bytes, const SurveyRecord& record) {
    BlockWriter block(bytes, kSurveyTag);
    const std::uint16_t format = SurveyFormatOf(record);
    Append(bytes, format);
    AppendText(bytes, record.units.system);
    AppendAttributes(bytes, record.units.attributes);
    Append(bytes, static_cast<std::uint32_t>(record.pointIds.size()));
    for (const long long id : record.pointIds) Append<std::int64_t>(bytes, id);
    Append(bytes, static_cast<std::uint32_t>(record.breaklines.size()));
    for (const SurveyBreakline& line : record.breaklines) {
        Append(bytes, static_cast<std::uint32_t>(line.segments));
        AppendAttributes(bytes, line.attributes);
    }
    if (format >= kSurveyFormatWithBoundaries) {
        Append(bytes, static_cast<std::uint32_t>(record.boundaries.size()));
        for (const SurveyBoundary& boundary : record.boundaries) AppendBoundary(bytes, boundary);
    }
    if (format >= kSurveyFormatWithSurface) {
        AppendAttributes(bytes, record.surfaceAttributes);
        Append(bytes, static_cast<std::uint32_t>(record.hiddenFaces.size()));
        for (const std::vector<int>& face : record.hiddenFaces) AppendHiddenFace(bytes, face);
    }
    if (format >= kSurveyFormatWithPoints) {
        Append(bytes, static_cast<std::uint32_t>(record.pointAttributes.size()));
        for (const SurveyPointAttributes& point : record.pointAttributes) {
            Append<std::int32_t>(bytes, point.vertex);
            AppendAttributes(bytes, point.attributes);
        }
    }
    if (format >= kSurveyFormatWithCoordinateSystem)
        AppendAttributes(bytes, record.coordinateSystem);
    if (format >= kSurveyFormatWithElements) {
        for (const SurveyBreakline& line : record.breaklines) AppendElements(bytes, line.elements);
        for (const SurveyBoundary& boundary : record.boundaries)
            AppendElements(bytes, boundary.elements);
        for (const SurveyElements* elements :
             {&record.sourceElements, &record.surfaceElements, &record.fileElements})
            AppendElements(bytes, *elements);
    }
    if (format >= kSurveyFormatWithGroup) {
        AppendAttributes(bytes, record.groupAttributes);
        AppendElements(bytes, record.groupElements);
    }
    block.Close();
}

// The record of @p prj in @p surveys, or null when it has none worth writing.
const SurveyRecord* RecordToWrite(const SurveyRecords* surveys, const CDtmPrj& prj) {
    const SurveyRecord* record = surveys ? FindSurveyRecord(*surveys, prj) : nullptr;
    return record && !record->IsEmpty() ? record : nullptr;
}

// What the sections will roughly take, so that the progress bar of a save can move evenly: a
// vertex takes 24 bytes and a triangle 16 plus its share of the spatial index.
std::uint64_t EstimatedBytes(const CLibDtm& library) {
    std::uint64_t bytes = 0;
    for (unsigned int i = 0; i < library.GetNoPrj(); ++i) {
        const CTris& tris = *library.GetPrj(i)->GetTris();
        bytes += 24u * static_cast<std::uint64_t>(tris.GetNoTriVrts()) +
                 18u * static_cast<std::uint64_t>(tris.GetNoTris());
    }
    return bytes;
}

// Reading ------------------------------------------------------------------------------------

// The tag @p tag as its four characters in quotes when they are printable and none is a quote,
// else in hex: a damaged tag must not garble the message that names it.
std::string TagText(std::uint32_t tag) {
    std::string text;
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>((tag >> (8 * i)) & 0xFF);
        if (!std::isprint(static_cast<unsigned char>(c)) || c == '\'') {
            char hex[16];
            std::snprintf(hex, sizeof(hex), "0x%08X", static_cast<unsigned>(tag));
            return hex;
        }
        text += c;
    }
    return "'" + text + "'";
}

// Why @p data, which does not start with the magic, may still be a document: the magic's
// carriage return, line feeds and high byte are there to show the ways a transfer meant for
// text damages a binary file. Empty when it looks like no document at all.
std::string TransferDamage(const char* data, std::size_t size) {
    const auto startsWith = [data, size](const std::string& start) {
        return size >= start.size() && std::memcmp(data, start.data(), start.size()) == 0;
    };
    const std::string name(kDocumentMagic, 4);
    const std::string endOfFile = "\x1A";
    // A copy in text mode turns each CR LF into LF, or each LF into CR LF.
    if (startsWith(name + "\n" + endOfFile + "\n") ||
        startsWith(name + "\r\r\n" + endOfFile + "\r\n"))
        return "its line ends were converted, as a copy in text mode does";
    // A channel of seven bits drops the high bit of each byte.
    if (startsWith(std::string(1, static_cast<char>(kDocumentMagic[0] & 0x7F)) + name.substr(1) +
                   "\r\n" + endOfFile + "\n"))
        return "its bytes lost their high bit, as a 7-bit channel does";
    return {};
}

// Walks the framing of one document held in memory and turns every way it can be wrong into
// a sentence about the file.
class DocumentReader {
public:
    DocumentReader(const char* data, std::size_t size, const std::string& file)
        : m_data(data), m_size(size), m_file(file) {}

    short ReadHeader() {
        if (m_size == 0) throw FileError(m_file, "is empty");
        const std::size_t compared = std::min(m_size, sizeof(kDocumentMagic));
        if (std::memcmp(m_data, kDocumentMagic, compared) != 0) {
            const std::string damage = TransferDamage(m_data, m_size);
            if (!damage.empty())
                throw FileError(m_file, "is a dtm document damaged in transfer: " + damage +
                                            "; copy it again as binary");
            throw FileError(m_file, "is not a dtm document");
        }
        if (m_size < sizeof(kDocumentMagic) + 2)
            throw FileError(m_file, "is truncated: the document version is missing");
        const short version = GetAt<std::int16_t>(m_data + sizeof(kDocumentMagic));
        m_at = sizeof(kDocumentMagic) + 2;
        if (version <= 0)
            throw Damaged("document version " + std::to_string(version) + " is not valid");
        if (version > kNewestDocumentVersion)
            throw FileError(m_file, "was written at document version " + std::to_string(version) +
                                        ", newer than this program reads (up to " +
                                        std::to_string(kNewestDocumentVersion) + ")");
        return version;
    }

    // The payload of the next block, which must carry @p tag; @p what names it in messages.
    std::pair<const char*, std::size_t> ReadBlock(std::uint32_t tag, const std::string& what) {
        return Read(&tag, what);
    }

    // Skips the next block whatever its tag: a section that a newer writer added.
    void SkipBlock(const std::string& what) { Read(nullptr, what); }

    // The tag of the next block, or 0 when not even a tag is left.
    std::uint32_t NextTag() const {
        return m_size - m_at < 4 ? 0u : GetAt<std::uint32_t>(m_data + m_at);
    }

    void ExpectEnd() const {
        if (m_at != m_size)
            throw Damaged(
                Counted(m_size - m_at, "unexpected byte follows", "unexpected bytes follow") +
                " the last project");
    }

    std::size_t Offset() const noexcept { return m_at; }

    ToolError Damaged(const std::string& what) const {
        return FileError(m_file, "is damaged: " + what);
    }
    ToolError Truncated(const std::string& what) const {
        return FileError(m_file, "is truncated: " + what);
    }

private:
    std::pair<const char*, std::size_t> Read(const std::uint32_t* tag, const std::string& what) {
        if (m_at == m_size) throw Truncated(what + " is missing");
        if (m_size - m_at < kBlockHeaderSize)
            throw Truncated(what + " is cut short in its block header");
        const std::uint32_t found = GetAt<std::uint32_t>(m_data + m_at);
        if (tag && found != *tag)
            throw Damaged("expected " + what + ", found a block tagged " + TagText(found));
        const std::uint64_t length = GetAt<std::uint64_t>(m_data + m_at + 4);
        const std::uint32_t crc = GetAt<std::uint32_t>(m_data + m_at + 12);
        m_at += kBlockHeaderSize;
        if (length > m_size - m_at)
            throw Truncated(what + " ends after " + Count(m_size - m_at) + " of " +
                            Counted(length, "byte", "bytes"));
        const char* payload = m_data + m_at;
        if (Crc32(payload, static_cast<std::size_t>(length)) != crc)
            throw Damaged("the checksum of " + what + " does not match");
        m_at += static_cast<std::size_t>(length);
        return {payload, static_cast<std::size_t>(length)};
    }

    const char* m_data;
    std::size_t m_size;
    const std::string& m_file;
    std::size_t m_at = 0;
};

// Reads the fixed fields of a framing block, each checked against the block's end.
class FieldReader {
public:
    FieldReader(std::pair<const char*, std::size_t> block, const DocumentReader& document,
                std::string what)
        : m_data(block.first),
          m_size(block.second),
          m_document(document),
          m_what(std::move(what)) {}

    template <class T>
    T Read() {
        Need(sizeof(T));
        const T value = GetAt<T>(m_data + m_at);
        m_at += sizeof(T);
        return value;
    }
    double ReadDouble() {
        const auto bits = Read<std::uint64_t>();
        double value = 0.0;
        std::memcpy(&value, &bits, sizeof(value));
        return value;
    }
    std::string ReadText() { return ReadText(Read<std::uint32_t>()); }
    std::string ReadText(std::uint32_t length) {
        Need(length);
        std::string text(m_data + m_at, length);
        m_at += length;
        return text;
    }
    void ExpectEnd() const {
        if (m_at != m_size) throw m_document.Damaged(m_what + " holds unexpected bytes");
    }

private:
    void Need(std::size_t count) const {
        if (m_size - m_at < count) throw m_document.Damaged(m_what + " is too short");
    }

    const char* m_data;
    std::size_t m_size;
    const DocumentReader& m_document;
    std::string m_what;
    std::size_t m_at = 0;
};

struct FileCloser {
    int fd;
    ~FileCloser() { ::close(fd); }
};

std::string Quoted(const std::string& name) {
    return "'" + name + "'";
}

// Hands one section's bytes to the library and checks that it used exactly those bytes.
void ReadSection(CDtmPrj& prj, const ProjectSection& section,
                 std::pair<const char*, std::size_t> payload, short version,
                 const DocumentReader& document, const std::string& what,
                 const ByteProgress& progress) {
    // A section with nothing in it: the library wrote no bytes, so it is not asked to read any.
    if (payload.second == 0) return;
    SpanBuffer buffer(payload.first, payload.second, progress);
    ifpstream stream(&buffer, version);
    try {
        section.read(prj, stream);
    } catch (const std::exception& error) {
        throw document.Damaged(what + " could not be read (" + error.what() + ")");
    }
    if (stream.fail()) throw document.Damaged(what + " ends before its reader is done");
    if (buffer.Consumed() != payload.second)
        throw document.Damaged(what + " holds " + Counted(payload.second, "byte", "bytes") +
                               " but its reader used " + Count(buffer.Consumed()));
}

SurveyAttributes ReadAttributes(FieldReader& fields) {
    SurveyAttributes attributes;
    const std::uint32_t count = fields.Read<std::uint32_t>();
    for (std::uint32_t i = 0; i < count; ++i) {
        std::string name = fields.ReadText();
        attributes.emplace_back(std::move(name), fields.ReadText());
    }
    return attributes;
}

// The boundaries of a record of layout 2. Their points were finite when the survey was
// imported; one that is not has been damaged since.
void ReadBoundaries(FieldReader& fields, const DocumentReader& document, const std::string& what,
                    SurveyRecord& record) {
    const std::uint32_t count = fields.Read<std::uint32_t>();
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::string boundary = what + " holds boundary " + std::to_string(i + 1);
        SurveyBoundary read;
        const auto role = fields.Read<std::uint8_t>();
        if (role > static_cast<std::uint8_t>(BoundaryRole::Kept))
            throw document.Damaged(boundary + " of unknown role " + std::to_string(role));
        read.role = static_cast<BoundaryRole>(role);
        read.attributes = ReadAttributes(fields);
        const std::uint32_t points = fields.Read<std::uint32_t>();
        for (std::uint32_t p = 0; p < points; ++p) {
            kor::geom::PNT_3D point;
            for (double* value : {&point.x, &point.y, &point.z}) *value = fields.ReadDouble();
            if (!std::isfinite(point.x) || !std::isfinite(point.y) || !std::isfinite(point.z))
                throw document.Damaged(boundary + " with a point that is not a finite number");
            read.points.push_back(point);
        }
        record.boundaries.push_back(std::move(read));
    }
}

// The hidden faces of a record of layout 3: three or four corners each, every one a vertex of
// the project.
void ReadHiddenFaces(FieldReader& fields, const DocumentReader& document, const std::string& what,
                     int vertices, SurveyRecord& record) {
    const std::uint32_t count = fields.Read<std::uint32_t>();
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::string face = what + " holds hidden face " + std::to_string(i + 1);
        std::vector<int> read;
        const auto corners = fields.Read<std::uint8_t>();
        if (corners != 3 && corners != 4)
            throw document.Damaged(face + " with " + std::to_string(corners) + " corners");
        for (std::uint8_t c = 0; c < corners; ++c) {
            const auto corner = fields.Read<std::int32_t>();
            if (corner < 0 || corner >= vertices)
                throw document.Damaged(
                    face + " with corner " + std::to_string(corner) + ", which is not one of the " +
                    Counted(static_cast<std::size_t>(vertices), "vertex", "vertices"));
            read.push_back(corner);
        }
        record.hiddenFaces.push_back(std::move(read));
    }
}

// The points' attributes of a record of layout 4: each names a vertex of the project, in
// rising order, and has something to say.
void ReadPointAttributes(FieldReader& fields, const DocumentReader& document,
                         const std::string& what, int vertices, SurveyRecord& record) {
    const std::uint32_t count = fields.Read<std::uint32_t>();
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::string point = what + " holds the attributes of point " + std::to_string(i + 1);
        SurveyPointAttributes read;
        read.vertex = fields.Read<std::int32_t>();
        if (read.vertex < 0 || read.vertex >= vertices)
            throw document.Damaged(
                point + " for vertex " + std::to_string(read.vertex) +
                ", which is not one of the " +
                Counted(static_cast<std::size_t>(vertices), "vertex", "vertices"));
        if (!record.pointAttributes.empty() && read.vertex <= record.pointAttributes.back().vertex)
            throw document.Damaged(point + " out of vertex order");
        read.attributes = ReadAttributes(fields);
        if (read.attributes.empty()) throw document.Damaged(point + ", which has none");
        record.pointAttributes.push_back(std::move(read));
    }
}

// A list of kept elements, each of which must be the XML of one element, since an export
// writes it as it stands.
SurveyElements ReadElements(FieldReader& fields, const DocumentReader& document,
                            const std::string& what) {
    SurveyElements elements;
    const std::uint32_t count = fields.Read<std::uint32_t>();
    for (std::uint32_t i = 0; i < count; ++i) {
        elements.push_back(fields.ReadText());
        if (!IsXmlElement(elements.back()))
            throw document.Damaged(what + " holds a kept element that is not XML");
    }
    return elements;
}

// The kept elements of a record of layout 6, which has at least one, and from layout 7 on the
// record's group of surfaces, which has an attribute or an element (a record without either
// takes an earlier layout, so that every record has one encoding).
void ReadAllElements(FieldReader& fields, const DocumentReader& document, const std::string& what,
                     std::uint16_t format, SurveyRecord& record) {
    for (SurveyBreakline& line : record.breaklines)
        line.elements = ReadElements(fields, document, what);
    for (SurveyBoundary& boundary : record.boundaries)
        boundary.elements = ReadElements(fields, document, what);
    for (SurveyElements* elements :
         {&record.sourceElements, &record.surfaceElements, &record.fileElements})
        *elements = ReadElements(fields, document, what);
    if (format >= kSurveyFormatWithGroup) {
        record.groupAttributes = ReadAttributes(fields);
        record.groupElements = ReadElements(fields, document, what);
        if (record.groupAttributes.empty() && record.groupElements.empty())
            throw document.Damaged(what +
                                   " holds a group of surfaces without attributes or "
                                   "elements");
    } else if (!record.HoldsElements()) {
        throw document.Damaged(what + " holds no kept element");
    }
}

// Reads the survey record of @p prj; a record of a later layout is skipped, and said so in
// @p skipped.
void ReadSurveyRecord(const CDtmPrj& prj, DocumentReader& document, const std::string& what,
                      SurveyRecords& surveys, std::vector<std::string>& skipped) {
    FieldReader fields(document.ReadBlock(kSurveyTag, what), document, what);
    const std::uint16_t format = fields.Read<std::uint16_t>();
    if (format < kSurveyFormat || format > kSurveyFormatWithGroup) {
        skipped.push_back(what + " has layout " + std::to_string(format) +
                          ", which this program does not know; the survey facts in it (units, "
                          "coordinate system, point ids, surface group, surface, point, breakline "
                          "and boundary attributes, hidden faces, elements kept for export) were "
                          "left out");
        return;
    }
    SurveyRecord record;
    record.units.system = fields.ReadText();
    record.units.attributes = ReadAttributes(fields);
    const std::uint32_t ids = fields.Read<std::uint32_t>();
    const int vertices = prj.GetTris()->GetNoTriVrts();
    if (ids != 0 && ids != static_cast<std::uint32_t>(vertices))
        throw document.Damaged(what + " holds " + Counted(ids, "point id", "point ids") + " for " +
                               Counted(static_cast<std::size_t>(vertices), "vertex", "vertices"));
    record.pointIds.reserve(ids);
    for (std::uint32_t i = 0; i < ids; ++i) record.pointIds.push_back(fields.Read<std::int64_t>());
    const std::uint32_t breaklines = fields.Read<std::uint32_t>();
    for (std::uint32_t i = 0; i < breaklines; ++i) {
        SurveyBreakline line;
        line.segments = fields.Read<std::uint32_t>();
        if (line.segments == 0)
            throw document.Damaged(what + " holds breakline " + std::to_string(i + 1) +
                                   " without a segment");
        line.attributes = ReadAttributes(fields);
        record.breaklines.push_back(std::move(line));
    }
    if (format >= kSurveyFormatWithBoundaries) ReadBoundaries(fields, document, what, record);
    if (format >= kSurveyFormatWithSurface) {
        record.surfaceAttributes = ReadAttributes(fields);
        ReadHiddenFaces(fields, document, what, vertices, record);
    }
    if (format >= kSurveyFormatWithPoints)
        ReadPointAttributes(fields, document, what, vertices, record);
    if (format >= kSurveyFormatWithCoordinateSystem) {
        record.coordinateSystem = ReadAttributes(fields);
        if (format == kSurveyFormatWithCoordinateSystem && record.coordinateSystem.empty())
            throw document.Damaged(what + " holds a coordinate system without attributes");
    }
    if (format >= kSurveyFormatWithElements)
        ReadAllElements(fields, document, what, format, record);
    fields.ExpectEnd();
    surveys[&prj] = std::move(record);
}

void ReadProject(CLibDtm& library, DocumentReader& document, unsigned int number, short version,
                 Progress& progress, SurveyRecords* surveys, std::vector<std::string>& skipped) {
    const std::string header = "the header of project " + std::to_string(number + 1);
    FieldReader fields(document.ReadBlock(kProjectTag, header), document, header);
    const std::string name = fields.ReadText();
    const std::uint32_t flags = fields.Read<std::uint32_t>();
    const std::uint32_t sectionCount = fields.Read<std::uint32_t>();
    fields.ExpectEnd();
    const auto& sections = ProjectSections();
    if (sectionCount < sections.size())
        throw document.Damaged("project " + Quoted(name) + " has " +
                               Counted(sectionCount, "section", "sections") + " instead of " +
                               std::to_string(sections.size()));

    CDtmPrj* prj =
        library.AddPrj(name.c_str(), (flags & kFlagVisible) != 0, (flags & kFlagLocked) != 0);
    for (const ProjectSection& section : sections) {
        const std::string what = "the " + std::string(section.name) + " of project " + Quoted(name);
        const auto payload = document.ReadBlock(section.tag, what);
        const std::size_t start = document.Offset() - payload.second;
        ReadSection(*prj, section, payload, version, document, what,
                    [&progress, start](std::size_t consumed) { progress.Set(start + consumed); });
        progress.Set(document.Offset());
    }
    // The survey record, and sections a newer writer added after the known ones: their lengths
    // let this reader step over them.
    for (std::uint32_t extra = static_cast<std::uint32_t>(sections.size()); extra < sectionCount;
         ++extra) {
        const std::string what =
            "section " + std::to_string(extra + 1) + " of project " + Quoted(name);
        const std::uint32_t tag = document.NextTag();
        if (tag == kSurveyTag) {
            if (surveys)
                ReadSurveyRecord(*prj, document, "the survey record of project " + Quoted(name),
                                 *surveys, skipped);
            else
                document.SkipBlock(what);
            continue;
        }
        document.SkipBlock(what);
        // A block of a newer writer, or one whose tag was damaged (the checksum covers only
        // the payload): either way something the document holds is not in what was read.
        skipped.push_back(what + " (tagged " + TagText(tag) +
                          ") is not one this program knows; it was left out");
    }
}

}  // namespace

std::vector<char> SerializeDocument(const CLibDtm& library, short version,
                                    const SurveyRecords* surveys) {
    std::vector<char> bytes(kDocumentMagic, kDocumentMagic + sizeof(kDocumentMagic));
    Append<std::int16_t>(bytes, version);
    {
        BlockWriter block(bytes, kDocumentTag);
        Append(bytes, static_cast<std::uint32_t>(library.GetNoPrj()));
        Append<std::int32_t>(bytes, ActiveIndex(library));
        block.Close();
    }
    Progress progress("saving", EstimatedBytes(library));
    GrowingBuffer buffer(bytes, [&progress](std::size_t size) { progress.Set(size); });
    for (unsigned int i = 0; i < library.GetNoPrj(); ++i) {
        const CDtmPrj& prj = *library.GetPrj(i);
        const SurveyRecord* record = RecordToWrite(surveys, prj);
        AppendProjectHeader(
            bytes, prj, static_cast<std::uint32_t>(ProjectSections().size()) + (record ? 1 : 0));
        for (const ProjectSection& section : ProjectSections()) {
            BlockWriter block(bytes, section.tag);
            ofpstream stream(&buffer, version);
            section.write(prj, stream);
            block.Close();
        }
        if (record) AppendSurveyRecord(bytes, *record);
    }
    progress.Finish();
    return bytes;
}

DocumentInfo ParseDocument(CLibDtm& library, const char* data, std::size_t size,
                           const std::string& file, SurveyRecords* surveys) {
    DocumentReader document(data, size, file);
    DocumentInfo info;
    info.version = document.ReadHeader();
    info.bytes = size;

    FieldReader fields(document.ReadBlock(kDocumentTag, "the document header"), document,
                       "the document header");
    const std::uint32_t projectCount = fields.Read<std::uint32_t>();
    const std::int32_t active = fields.Read<std::int32_t>();
    fields.ExpectEnd();
    if (active < -1 || (active >= 0 && static_cast<std::uint32_t>(active) >= projectCount))
        throw document.Damaged("the active project " + std::to_string(active) + " does not exist");

    Progress progress("loading", size);
    for (std::uint32_t i = 0; i < projectCount; ++i)
        ReadProject(library, document, i, info.version, progress, surveys, info.skipped);
    document.ExpectEnd();
    if (active >= 0) library.SetActive(library.GetPrj(static_cast<unsigned int>(active)), false);
    progress.Finish();
    return info;
}

void SaveDocument(const CLibDtm& library, const std::string& path, const SurveyRecords* surveys) {
    const std::vector<char> bytes = SerializeDocument(library, kNewestDocumentVersion, surveys);
    WriteFileAtomically(path, bytes.data(), bytes.size());
}

void SaveDocument(const Workspace& workspace, const std::string& path) {
    SaveDocument(workspace.Library(), path, &workspace.Surveys());
}

DocumentInfo LoadDocument(CLibDtm& library, const std::string& path, SurveyRecords* surveys) {
    const std::vector<char> bytes = ReadWholeFile(path);
    return ParseDocument(library, bytes.data(), bytes.size(), path, surveys);
}

DocumentInfo LoadDocument(Workspace& workspace, const std::string& path) {
    DocumentInfo info = LoadDocument(workspace.Library(), path, &workspace.Surveys());
    for (const std::string& sentence : info.skipped)
        std::cerr << "dtm: warning: " << path << ": " << sentence << "\n";
    return info;
}

std::vector<char> ReadWholeFile(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) throw FileError(path, std::string("cannot be opened: ") + std::strerror(errno));
    const FileCloser closer{fd};
    struct stat info;
    if (::fstat(fd, &info) != 0)
        throw FileError(path, std::string("cannot be read: ") + std::strerror(errno));
    if (S_ISDIR(info.st_mode)) throw FileError(path, "is a folder, not a file");
    if (!S_ISREG(info.st_mode)) throw FileError(path, "is not a regular file");
    std::vector<char> bytes(static_cast<std::size_t>(info.st_size));
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = ::read(fd, bytes.data() + done, bytes.size() - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw FileError(path, std::string("cannot be read: ") + std::strerror(errno));
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

}  // namespace dtmtool
