// The breaklines' file section (CVncs::LeggeDaFile) from arbitrary bytes. The section has no
// version: the whole input is the section.
//
// The target reads the same bytes with a parser of its own and states what the reader must
// have done: each whole breakline of the section is added, bit for bit, in order; the stream
// fails exactly when the section ends inside a breakline the count promises, and then only
// the whole breaklines before it are kept. A read with apply false consumes the same bytes and
// adds nothing; no event is left open; what was read writes back to the same bytes again.

#include <dtm/breaklines/CVnc.h>
#include <dtm/breaklines/CVncs.h>

#include <cstdint>
#include <vector>

#include "FuzzSupport.h"

namespace {

using dtm_fuzz::Check;
using dtm_fuzz::SameBits;
using kor::geom::LINE_3D;
using kor::geom::PNT_3D;

struct Parsed {
    std::vector<LINE_3D> whole;  // the breaklines that the bytes hold completely
    bool complete = false;       // every promised breakline is there
    std::size_t length = 0;      // bytes of a complete section
};

bool ParsePoint(dtm_fuzz::Cursor& cursor, PNT_3D& p) {
    return cursor.Double(p.x) && cursor.Double(p.y) && cursor.Double(p.z);
}

Parsed ParseSection(const std::string& bytes) {
    Parsed parsed;
    dtm_fuzz::Cursor cursor(bytes);
    std::int32_t count = 0;
    if (!cursor.Int32(count)) return parsed;
    for (std::int32_t i = 0; i < count; ++i) {
        LINE_3D segment;
        if (!ParsePoint(cursor, segment.start) || !ParsePoint(cursor, segment.end)) return parsed;
        parsed.whole.push_back(segment);
    }
    parsed.complete = true;
    parsed.length = cursor.Offset();
    return parsed;
}

bool SamePoint(const PNT_3D& a, const PNT_3D& b) {
    return SameBits(a.x, b.x) && SameBits(a.y, b.y) && SameBits(a.z, b.z);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    const std::string section = dtm_fuzz::WholeInput(data, size);
    const Parsed expected = ParseSection(section);

    const auto project = dtm_fuzz::NewProject();
    CVncs& vncs = *project->GetVncs();
    const dtm_fuzz::ReadOutcome applied = dtm_fuzz::ReadSection(vncs, section, 0, true);
    Check(dtm_fuzz::EventsClosed(*project), "no change event is left open");
    Check(applied.failed == !expected.complete,
          "the stream fails exactly when the section is cut short");
    if (expected.complete)
        Check(applied.consumed == expected.length, "a complete section is read to its end");
    Check(vncs.GetNoVncs() == static_cast<int>(expected.whole.size()),
          "every whole breakline and nothing else is added");
    for (int i = 0; i < vncs.GetNoVncs(); ++i) {
        const LINE_3D& stored = vncs.GetVncAt(i)->GetCoords();
        const LINE_3D& wanted = expected.whole[static_cast<std::size_t>(i)];
        Check(SamePoint(stored.start, wanted.start) && SamePoint(stored.end, wanted.end),
              "a breakline has exactly its stored coordinates");
        Check(vncs.GetVncAt(i)->GetVncs() == &vncs, "a breakline knows its collection");
    }

    const auto skipping = dtm_fuzz::NewProject();
    CVncs& skipped = *skipping->GetVncs();
    const dtm_fuzz::ReadOutcome stepped = dtm_fuzz::ReadSection(skipped, section, 0, false);
    Check(dtm_fuzz::EventsClosed(*skipping), "no change event is left open (apply false)");
    Check(skipped.GetNoVncs() == 0, "a read with apply false adds nothing");
    Check(stepped.failed == applied.failed, "apply false fails exactly where apply true fails");
    if (expected.complete) Check(stepped.consumed == expected.length, "apply false consumes it");

    if (!expected.complete) return 0;
    dtm_fuzz::CheckRewriteIsStable(
        dtm_fuzz::WrittenSection(vncs, 0), [](const std::string& bytes, std::string& again) {
            const auto copyProject = dtm_fuzz::NewProject();
            CVncs& copy = *copyProject->GetVncs();
            const dtm_fuzz::ReadOutcome outcome = dtm_fuzz::ReadSection(copy, bytes, 0, true);
            again = dtm_fuzz::WrittenSection(copy, 0);
            return outcome;
        });
    return 0;
}
