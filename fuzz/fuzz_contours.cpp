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

namespace {

using dtm_fuzz::Check;

dtm_fuzz::ReadOutcome Read(CCvLvs& cvlvs, const std::string& bytes, short version, bool load) {
    return dtm_fuzz::ReadFrom(bytes, version,
                              [&](ifpstream& stream) { cvlvs.LeggeDaFile(stream, load); });
}

std::string Written(const CCvLvs& cvlvs, short version) {
    return dtm_fuzz::WrittenBy(version, [&](ofpstream& stream) { cvlvs.SalvaInFile(stream); });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    dtm_fuzz::VersionedInput input;
    if (!dtm_fuzz::SplitVersion(data, size, input)) return 0;
    const std::string freshState =
        Written(*dtm_fuzz::NewProject()->GetCvLvs(), dtm_fuzz::kNewestVersion);

    const auto project = dtm_fuzz::NewProject();
    CCvLvs& cvlvs = *project->GetCvLvs();
    const dtm_fuzz::ReadOutcome loaded = Read(cvlvs, input.section, input.version, true);
    Check(dtm_fuzz::EventsClosed(*project), "no change event is left open");
    for (unsigned i = 0; i < cvlvs.GetNoCvLvs(); ++i)
        Check(cvlvs.GetCvLvAt(i)->GetCvLvs() == &cvlvs, "a line knows its collection");
    if (loaded.failed)
        Check(Written(cvlvs, dtm_fuzz::kNewestVersion) == freshState,
              "a section that fails leaves the collection as it was");

    const auto skipping = dtm_fuzz::NewProject();
    CCvLvs& skipped = *skipping->GetCvLvs();
    const dtm_fuzz::ReadOutcome stepped = Read(skipped, input.section, input.version, false);
    Check(dtm_fuzz::EventsClosed(*skipping), "no change event is left open (load false)");
    Check(Written(skipped, dtm_fuzz::kNewestVersion) == freshState,
          "a read with load false changes nothing");
    Check(stepped.failed == loaded.failed && stepped.consumed == loaded.consumed,
          "load false consumes what load true consumes");

    if (loaded.failed) return 0;
    dtm_fuzz::CheckRewriteIsStable(
        Written(cvlvs, input.version), [&](const std::string& bytes, std::string& again) {
            const auto copyProject = dtm_fuzz::NewProject();
            CCvLvs& copy = *copyProject->GetCvLvs();
            const dtm_fuzz::ReadOutcome outcome = Read(copy, bytes, input.version, true);
            again = Written(copy, input.version);
            return outcome;
        });
    return 0;
}
