#pragma once

// The bit pattern of a double, for tests that demand results identical to the last bit (signed
// zeros and NaN payloads included), where == would call -0.0 and 0.0 equal and NaN unequal.

#include <cstdint>
#include <cstring>

namespace dtm_test {

inline std::uint64_t Bits(double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

}  // namespace dtm_test
