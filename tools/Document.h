#pragma once

// The document file: the tool's framing around the library's sections.
//
// Layout (all numbers little-endian):
//
//   magic          8 bytes  0x89 'D' 'T' 'M' CR LF 0x1A LF
//   version        int16    the stream version every section is written with
//   block "DOC "            uint32 project count, int32 index of the active project (-1: none)
//   per project:
//     block "PRJ "          uint32 name length, name (UTF-8), uint32 flags (1 visible,
//                           2 locked), uint32 number of section blocks that follow
//     one block per section, in the order of ProjectSections()
//     block "SRVY"          only for a project with a survey record, after the sections (and
//                           counted with them): uint16 record layout (1; 2 when it holds
//                           boundaries; 3 when it holds surface attributes or hidden faces; 4
//                           when it holds point attributes; 5 when it holds a coordinate
//                           system; 6 when it keeps elements the model does not use); the
//                           units as uint32 length and text of the system ("" when unknown) and
//                           attributes; uint32 point id count (0 or the vertex count), int64 ids
//                           in vertex order; uint32 breakline count, each as uint32 segment count
//                           (at least 1) and attributes. Layout 2 goes on with uint32 boundary
//                           count, each as uint8 role (0 external, 1 internal, 2 kept),
//                           attributes, uint32 point count and the points as float64 x y z
//                           (easting northing elevation; a kept boundary's only). Layout 3 goes
//                           on with the surface's attributes, then uint32 hidden face count, each
//                           as uint8 corner count (3 or 4) and the corners as int32 vertex
//                           indices. Layout 4 goes on with uint32 count of points with
//                           attributes, each as int32 vertex index (rising) and attributes (at
//                           least one). Layout 5 goes on with the coordinate system's
//                           attributes (at least one; in layout 6, none when there is none).
//                           Layout 6 goes on with the kept elements: a list per breakline, a
//                           list per boundary, then those of the source data, of the surface and
//                           of the file (at least one element in all). Attributes are a uint32
//                           count, then each name and value as uint32 length and text; a list
//                           of elements is a uint32 count, then each element's XML as uint32
//                           length and text.
//
// A block is: uint32 tag (four ASCII letters), uint64 payload length, uint32 CRC-32 of the
// payload, then the payload. The length lets a reader check that a section's reader consumed
// exactly its bytes, and skip a section; the checksum catches damage that the library's
// sections, which carry no checks of their own, would read as data. A section block of length
// 0 stands for a section with nothing to say (the network of a project without vertices writes
// no bytes at all) and is not handed to the library.
//
// The magic's high byte, CR LF and Ctrl-Z reveal transfers that strip the eighth bit or
// convert line ends, as PNG's signature does.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "SurveyRecord.h"

class CLibDtm;

namespace dtmtool {

class Workspace;

/// The version new documents are written with: the newest the library knows, at which the
/// network keeps its spatial index in the file (so a load does not rebuild it).
constexpr short kNewestDocumentVersion = 1502;

/// The eight bytes every document starts with.
extern const char kDocumentMagic[8];

/// What a load found besides the projects.
struct DocumentInfo {
    short version = 0;
    std::uint64_t bytes = 0;
    /// A sentence for each block of a project that was stepped over unread: a section or a
    /// survey record of a layout this program does not know (a newer writer's, or one whose
    /// tag was damaged).
    std::vector<std::string> skipped;
};

/// The bytes of a document holding every project of @p library, written at @p version, with the
/// survey record that @p surveys (when given) holds for a project. Documents are saved at the
/// newest version: below 1502 the network's section carries a cloud identifier and a tree block
/// that only a reader of 1502 or later takes, so a project with a network would not load back.
std::vector<char> SerializeDocument(const CLibDtm& library, short version = kNewestDocumentVersion,
                                    const SurveyRecords* surveys = nullptr);

/// Adds to @p library (which should hold no project) the projects of the document in @p size
/// bytes at @p data, and their survey records to @p surveys when given (without it they are
/// skipped). @p file names the document in messages. Throws ToolError, naming @p file and what
/// is wrong, for a foreign, truncated, damaged or too new document; the projects read so far
/// are then still in @p library, so a caller reads into a library it can throw away.
DocumentInfo ParseDocument(CLibDtm& library, const char* data, std::size_t size,
                           const std::string& file, SurveyRecords* surveys = nullptr);

/// Writes every project of @p library, with its survey record from @p surveys when given, to
/// @p path atomically: a failed save leaves the previous file as it was. Throws ToolError
/// naming @p path.
void SaveDocument(const CLibDtm& library, const std::string& path,
                  const SurveyRecords* surveys = nullptr);
/// SaveDocument of the workspace's library and survey records.
void SaveDocument(const Workspace& workspace, const std::string& path);

/// Reads the document at @p path into @p library (and its survey records into @p surveys) as
/// ParseDocument does. Throws ToolError for a file that is missing or cannot be read, and for
/// everything ParseDocument rejects.
DocumentInfo LoadDocument(CLibDtm& library, const std::string& path,
                          SurveyRecords* surveys = nullptr);
/// LoadDocument into the workspace's library and survey records; each block stepped over is
/// told on standard error as a warning that names @p path.
DocumentInfo LoadDocument(Workspace& workspace, const std::string& path);

/// The whole content of the file at @p path. Throws ToolError naming @p path when it is
/// missing, not a regular file or cannot be read.
std::vector<char> ReadWholeFile(const std::string& path);

}  // namespace dtmtool
