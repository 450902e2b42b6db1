// The network's options (COpzTri::LeggeDaFile, then COpzTri::LeggeVisDaFile on the same
// stream, as the project's option section reads them) from arbitrary bytes.
//
// Input: the stream version (int16), then the two groups. Besides the checks every option
// reader shares (FuzzOptionGroups), the symbol read must be one the drawing code knows.

#include <dtm/network/COpzTri.h>

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
    dtm_fuzz::FuzzOptionGroups<COpzTri>(input, [](const COpzTri& options) {
        dtm_fuzz::Check(options.GetSymbol() >= COpzTri::TRI_SYMBOL_0 &&
                            options.GetSymbol() <= COpzTri::TRI_SYMBOL_3,
                        "the symbol is a known one");
    });
    return 0;
}
