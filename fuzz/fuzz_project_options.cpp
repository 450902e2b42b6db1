// The project's option section (CDtmPrj::LeggeOpzDaFile) from arbitrary bytes: the network's
// and the contour lines' option groups, the old text values and the display options block.
//
// Input: the stream version (int16), then the section. Checked after each read: no event left
// open; a section that fails changes no option; apply false changes no option and consumes
// what apply true consumes; and a section read whole writes back to bytes that read back to
// the same bytes.

#include <dtm/project/CDtmPrj.h>

#include <cstdint>

#include "FuzzSupport.h"

namespace {

using dtm_fuzz::Check;

dtm_fuzz::ReadOutcome Read(CDtmPrj& project, const std::string& bytes, short version, bool apply) {
    return dtm_fuzz::ReadFrom(bytes, version,
                              [&](ifpstream& stream) { project.LeggeOpzDaFile(stream, apply); });
}

std::string Written(const CDtmPrj& project, short version) {
    return dtm_fuzz::WrittenBy(version, [&](ofpstream& stream) { project.SalvaOpzInFile(stream); });
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
    const std::string freshState = Written(*dtm_fuzz::NewProject(), dtm_fuzz::kNewestVersion);

    const auto project = dtm_fuzz::NewProject();
    const dtm_fuzz::ReadOutcome applied = Read(*project, input.section, input.version, true);
    Check(dtm_fuzz::EventsClosed(*project), "no change event is left open");
    if (applied.failed)
        Check(Written(*project, dtm_fuzz::kNewestVersion) == freshState,
              "a section that fails changes no option");

    const auto skipping = dtm_fuzz::NewProject();
    const dtm_fuzz::ReadOutcome stepped = Read(*skipping, input.section, input.version, false);
    Check(dtm_fuzz::EventsClosed(*skipping), "no change event is left open (apply false)");
    Check(Written(*skipping, dtm_fuzz::kNewestVersion) == freshState,
          "a read with apply false changes no option");
    Check(stepped.failed == applied.failed && stepped.consumed == applied.consumed,
          "apply false consumes what apply true consumes");

    if (applied.failed) return 0;
    dtm_fuzz::CheckRewriteIsStable(
        Written(*project, input.version), [&](const std::string& bytes, std::string& again) {
            const auto copy = dtm_fuzz::NewProject();
            const dtm_fuzz::ReadOutcome outcome = Read(*copy, bytes, input.version, true);
            again = Written(*copy, input.version);
            return outcome;
        });
    return 0;
}
