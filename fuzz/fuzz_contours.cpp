// The contour lines' file section (CCvLvs::LeggeDaFile) from arbitrary bytes, old layout
// (label nodes converted into label intervals) and later layout alike.
//
// Input: the stream version (int16), then the section. Checked after each read: no event left
// open; every line read belongs to the collection; a section that fails leaves the collection
// as it was; a read with load false changes nothing and consumes what load true consumes; and a
// section read whole writes back to bytes that read back to the same bytes.

#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>

#include <cstdint>

#include "FuzzSupport.h"

using dtm_fuzz::Check;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    dtm_fuzz::VersionedInput input;
    if (!dtm_fuzz::SplitVersion(data, size, input)) return 0;
    const std::string freshState =
        dtm_fuzz::WrittenSection(*dtm_fuzz::NewProject()->GetCvLvs(), dtm_fuzz::kNewestVersion);

    const auto project = dtm_fuzz::NewProject();
    CCvLvs& cvlvs = *project->GetCvLvs();
    const dtm_fuzz::ReadOutcome loaded =
        dtm_fuzz::ReadSection(cvlvs, input.section, input.version, true);
    Check(dtm_fuzz::EventsClosed(*project), "no change event is left open");
    for (unsigned i = 0; i < cvlvs.GetNoCvLvs(); ++i)
        Check(cvlvs.GetCvLvAt(i)->GetCvLvs() == &cvlvs, "a line knows its collection");
    if (loaded.failed)
        Check(dtm_fuzz::WrittenSection(cvlvs, dtm_fuzz::kNewestVersion) == freshState,
              "a section that fails leaves the collection as it was");

    const auto skipping = dtm_fuzz::NewProject();
    CCvLvs& skipped = *skipping->GetCvLvs();
    const dtm_fuzz::ReadOutcome stepped =
        dtm_fuzz::ReadSection(skipped, input.section, input.version, false);
    Check(dtm_fuzz::EventsClosed(*skipping), "no change event is left open (load false)");
    Check(dtm_fuzz::WrittenSection(skipped, dtm_fuzz::kNewestVersion) == freshState,
          "a read with load false changes nothing");
    Check(stepped.failed == loaded.failed && stepped.consumed == loaded.consumed,
          "load false consumes what load true consumes");

    if (loaded.failed) return 0;
    dtm_fuzz::CheckRewriteIsStable(dtm_fuzz::WrittenSection(cvlvs, input.version),
                                   [&](const std::string& bytes, std::string& again) {
                                       const auto copyProject = dtm_fuzz::NewProject();
                                       CCvLvs& copy = *copyProject->GetCvLvs();
                                       const dtm_fuzz::ReadOutcome outcome =
                                           dtm_fuzz::ReadSection(copy, bytes, input.version, true);
                                       again = dtm_fuzz::WrittenSection(copy, input.version);
                                       return outcome;
                                   });
    return 0;
}
