// The whole document file of the command-line host (dtmtool::ParseDocument): the framing, and
// through it every section reader and survey record of every project, from arbitrary bytes. The
// document carries its own version after its magic, so the whole input is the document.
//
// Each block of a document carries a checksum of its payload, which random changes almost
// never keep valid: the target recomputes the checksum of every block it can walk before the
// document is parsed, so that the fuzzer reaches the sections behind the framing. A damaged
// document must be refused with the host's own error (ToolError); any other exception, crash
// or sanitizer report is a defect. A document that loads must be saved, at the newest version
// as the host saves every document, in a form that loads again and saves to the same bytes, and
// its networks hold only triangles over existing vertices.

#include <dtm/dtm.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "Crc32.h"
#include "Document.h"
#include "FuzzSupport.h"
#include "ToolError.h"
#include "Workspace.h"

namespace {

using dtm_fuzz::Check;

// Magic and version; then blocks of tag (4 bytes), payload length (8) and checksum (4).
constexpr std::size_t kHeaderSize = sizeof(dtmtool::kDocumentMagic) + 2;
constexpr std::size_t kBlockHeaderSize = 16;

std::uint64_t LittleEndianAt(const std::vector<char>& bytes, std::size_t at, std::size_t width) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i)
        value |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    return value;
}

// Walks the blocks from the first one and rewrites each checksum to match its payload, up to
// the first block whose header or payload the bytes do not hold.
void FixChecksums(std::vector<char>& bytes) {
    std::size_t at = kHeaderSize;
    while (bytes.size() >= at + kBlockHeaderSize) {
        const std::uint64_t length = LittleEndianAt(bytes, at + 4, 8);
        const std::size_t payload = at + kBlockHeaderSize;
        if (length > bytes.size() - payload) return;
        const std::uint32_t crc =
            dtmtool::Crc32(bytes.data() + payload, static_cast<std::size_t>(length));
        for (std::size_t i = 0; i < 4; ++i)
            bytes[at + 12 + i] = static_cast<char>((crc >> (8 * i)) & 0xFFu);
        at = payload + static_cast<std::size_t>(length);
    }
}

bool TrianglesReferToVertices(const CLibDtm& library) {
    for (unsigned int p = 0; p < library.GetNoPrj(); ++p) {
        const CTris& tris = *library.GetPrj(p)->GetTris();
        for (int i = 0; i < tris.GetNoTris(); ++i) {
            for (int k = 0; k < 3; ++k) {
                const int vertex = tris.GetTriAt(i)->GetVerIndex(k);
                if (vertex < 0 || vertex >= tris.GetNoTriVrts()) return false;
            }
        }
    }
    return true;
}

// Parses @p bytes into @p workspace; false when the host refuses the document.
bool Load(dtmtool::Workspace& workspace, const std::vector<char>& bytes,
          dtmtool::DocumentInfo& info) {
    const dtmtool::UndoSuspension quiet(workspace.Undo());
    try {
        info = dtmtool::ParseDocument(workspace.Library(), bytes.data(), bytes.size(), "fuzz.dtm",
                                      &workspace.Surveys());
        return true;
    } catch (const dtmtool::ToolError&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    std::vector<char> bytes(reinterpret_cast<const char*>(data),
                            reinterpret_cast<const char*>(data) + size);
    FixChecksums(bytes);

    dtmtool::DocumentInfo info;
    std::vector<char> firstSave;
    {
        dtmtool::Workspace workspace;
        if (!Load(workspace, bytes, info)) return 0;
        Check(TrianglesReferToVertices(workspace.Library()),
              "every triangle refers to existing vertices");
        firstSave = dtmtool::SerializeDocument(workspace.Library(), dtmtool::kNewestDocumentVersion,
                                               &workspace.Surveys());
    }
    dtmtool::Workspace again;
    dtmtool::DocumentInfo againInfo;
    Check(Load(again, firstSave, againInfo), "a saved document loads again");
    Check(dtmtool::SerializeDocument(again.Library(), dtmtool::kNewestDocumentVersion,
                                     &again.Surveys()) == firstSave,
          "a document loaded again saves to the same bytes");
    return 0;
}
