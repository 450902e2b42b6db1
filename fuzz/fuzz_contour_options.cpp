// The contour options (COpzCvLv::LeggeDaFile, then COpzCvLv::LeggeVisDaFile on the same
// stream, as the project's option section reads them) from arbitrary bytes.
//
// Input: the stream version (int16), then the two groups. Besides the checks every option
// reader shares (FuzzOptionGroups), the alignment and orientation read must be known ones,
// and the label built from the options read (whose decimals, prefix and suffix the file chose)
// is measured, which must stay cheap whatever was stored.

#include <dtm/contours/COpzCvLv.h>

#include <cstdint>

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    dtm_fuzz::VersionedInput input;
    if (!dtm_fuzz::SplitVersion(data, size, input)) return 0;
    dtm_fuzz::FuzzOptionGroups<COpzCvLv>(input, [](const COpzCvLv& options) {
        dtm_fuzz::Check(options.GetVAlignment() == TEXT_VALIGN_0 ||
                            options.GetVAlignment() == TEXT_VALIGN_CENTRED ||
                            options.GetVAlignment() == TEXT_VALIGN_2,
                        "the alignment is a known one");
        dtm_fuzz::Check(options.GetOrientation() == TEXT_ORIENTATION_0 ||
                            options.GetOrientation() == TEXT_ORIENTATION_1,
                        "the orientation is a known one");
        const kor::String label = options.GetFullQuotaText(-1234.5678);
        dtm_fuzz::Check(
            label.length() >= options.GetPrefix().length() + options.GetSuffix().length(),
            "the label holds its prefix and suffix");
        static_cast<void>(options.GetQuotaExtent(-1234.5678));
        static_cast<void>(options.GetQuotaExtent(label.c_str()));
    });
    return 0;
}
