// The boundaries' file section (CCnts::LeggeDaFile) from arbitrary bytes. The section has no
// version: the whole input is the section.
//
// The target reads the same bytes with a parser of its own and states what the reader must
// have done: a complete section adds exactly its boundaries, each with exactly its stored
// vertices (bit for bit) and leaves the stream just after the section; a section that ends
// early fails the stream and adds nothing. A read with apply false consumes the same bytes and
// adds nothing; no event is left open; and what was read writes back to the same bytes again.

#include <dtm/boundaries/CCnt.h>
#include <dtm/boundaries/CCnts.h>

#include <cstdint>
#include <vector>

#include "FuzzSupport.h"

namespace {

using dtm_fuzz::Check;
using kor::geom::PNT_3D;

using Boundary = std::vector<PNT_3D>;

// The boundaries of @p bytes as the section's layout defines them; false when the bytes end
// inside the section. A negative count of either kind counts as none.
bool ParseSection(const std::string& bytes, std::vector<Boundary>& boundaries,
                  std::size_t& length) {
    dtm_fuzz::Cursor cursor(bytes);
    std::int32_t count = 0;
    if (!cursor.Int32(count)) return false;
    for (std::int32_t i = 0; i < count; ++i) {
        std::int32_t vertexCount = 0;
        if (!cursor.Int32(vertexCount)) return false;
        Boundary boundary;
        for (std::int32_t k = 0; k < vertexCount; ++k) {
            PNT_3D p;
            if (!cursor.Double(p.x) || !cursor.Double(p.y) || !cursor.Double(p.z)) return false;
            boundary.push_back(p);
        }
        boundaries.push_back(std::move(boundary));
    }
    length = cursor.Offset();
    return true;
}

bool SameVertices(const CCnt& cnt, const Boundary& expected) {
    const std::vector<PNT_3D>& stored = cnt.GetExtendedVrts();
    if (stored.size() != expected.size()) return false;
    for (std::size_t i = 0; i < stored.size(); ++i) {
        if (!dtm_fuzz::SameBits(stored[i].x, expected[i].x) ||
            !dtm_fuzz::SameBits(stored[i].y, expected[i].y) ||
            !dtm_fuzz::SameBits(stored[i].z, expected[i].z))
            return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    const std::string section = dtm_fuzz::WholeInput(data, size);
    std::vector<Boundary> expected;
    std::size_t length = 0;
    const bool complete = ParseSection(section, expected, length);

    const auto project = dtm_fuzz::NewProject();
    CCnts& external = *project->GetCnts(false);
    const dtm_fuzz::ReadOutcome applied = dtm_fuzz::ReadSection(external, section, 0, true);
    Check(dtm_fuzz::EventsClosed(*project), "no change event is left open");
    Check(applied.failed == !complete, "the stream fails exactly when the section is cut short");
    if (!complete) {
        Check(external.GetNoCnts() == 0, "a section cut short adds no boundary");
    } else {
        Check(applied.consumed == length, "a complete section is read to its end and no further");
        Check(external.GetNoCnts() == static_cast<int>(expected.size()),
              "a complete section adds each of its boundaries");
        for (int i = 0; i < external.GetNoCnts(); ++i) {
            Check(SameVertices(*external.GetCntAt(i), expected[static_cast<std::size_t>(i)]),
                  "a boundary has exactly its stored vertices");
            Check(external.GetCntAt(i)->GetCnts() == &external, "a boundary knows its collection");
        }
    }

    CCnts& internal = *project->GetCnts(true);
    const dtm_fuzz::ReadOutcome skipped = dtm_fuzz::ReadSection(internal, section, 0, false);
    Check(dtm_fuzz::EventsClosed(*project), "no change event is left open (apply false)");
    Check(internal.GetNoCnts() == 0, "a read with apply false adds nothing");
    Check(skipped.failed == applied.failed, "apply false fails exactly where apply true fails");
    if (complete) Check(skipped.consumed == length, "apply false consumes the section");

    if (!complete) return 0;
    dtm_fuzz::CheckRewriteIsStable(
        dtm_fuzz::WrittenSection(external, 0), [](const std::string& bytes, std::string& again) {
            const auto copyProject = dtm_fuzz::NewProject();
            CCnts& copy = *copyProject->GetCnts(false);
            const dtm_fuzz::ReadOutcome outcome = dtm_fuzz::ReadSection(copy, bytes, 0, true);
            again = dtm_fuzz::WrittenSection(copy, 0);
            return outcome;
        });
    return 0;
}
