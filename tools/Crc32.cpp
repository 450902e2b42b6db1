#include "Crc32.h"

#include <array>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define DTM_CRC32_CLMUL 1
#include <immintrin.h>
#else
#define DTM_CRC32_CLMUL 0
#endif

namespace dtmtool {

namespace {

constexpr std::uint32_t kPolynomial = 0xEDB88320u;

// Eight tables so that eight bytes are folded per step ("slicing by 8"): a document of a million
// triangles is some 40 MB, and the byte-wise loop would take a noticeable part of a load.
using Tables = std::array<std::array<std::uint32_t, 256>, 8>;

Tables MakeTables() {
    Tables tables{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1u) ? kPolynomial : 0u);
        tables[0][byte] = crc;
    }
    for (std::size_t byte = 0; byte < 256; ++byte)
        for (std::size_t slice = 1; slice < 8; ++slice)
            tables[slice][byte] =
                (tables[slice - 1][byte] >> 8) ^ tables[0][tables[slice - 1][byte] & 0xFFu];
    return tables;
}

const Tables& TheTables() {
    static const Tables tables = MakeTables();
    return tables;
}

// The running register (the complemented checksum) after @p size more bytes.
std::uint32_t UpdateByTables(const unsigned char* bytes, std::size_t size,
                             std::uint32_t crc) noexcept {
    const Tables& t = TheTables();
    while (size >= 8) {
        // Assembled byte by byte, so the result does not depend on the host's byte order.
        const std::uint32_t low =
            crc ^ (std::uint32_t{bytes[0]} | std::uint32_t{bytes[1]} << 8 |
                   std::uint32_t{bytes[2]} << 16 | std::uint32_t{bytes[3]} << 24);
        crc = t[7][low & 0xFFu] ^ t[6][(low >> 8) & 0xFFu] ^ t[5][(low >> 16) & 0xFFu] ^
              t[4][low >> 24] ^ t[3][bytes[4]] ^ t[2][bytes[5]] ^ t[1][bytes[6]] ^ t[0][bytes[7]];
        bytes += 8;
        size -= 8;
    }
    while (size-- > 0) crc = (crc >> 8) ^ t[0][(crc ^ *bytes++) & 0xFFu];
    return crc;
}

#if DTM_CRC32_CLMUL

// Folding with carry-less multiplication, after Gopal, Ozturk et al., "Fast CRC Computation for
// Generic Polynomials Using PCLMULQDQ Instruction" (Intel, 2009). The tables fold about a byte
// per cycle, some 10 ms for a document of a million triangles; folding 64 bytes at a time is
// five times faster, which saves such a document some 8 ms at every save and every load.
//
// The constants are powers of x modulo the polynomial P = 0x104C11DB7, bit-reflected (33 bits)
// and, as the reflected domain needs, shifted left by one: 4·128 ± 32 fold four lanes of 128 bits
// ahead by 512 bits, 128 ± 32 fold one lane by 128 bits, x^64 folds 96 bits to 64; mu is
// x^64 div P for the Barrett reduction to 32 bits.
constexpr std::uint64_t kFold512Low = 0x154442bd4;   // x^(4·128+32) mod P
constexpr std::uint64_t kFold512High = 0x1c6e41596;  // x^(4·128-32) mod P
constexpr std::uint64_t kFold128Low = 0x1751997d0;   // x^(128+32) mod P
constexpr std::uint64_t kFold128High = 0x0ccaa009e;  // x^(128-32) mod P
constexpr std::uint64_t kFold64 = 0x163cd6124;       // x^64 mod P
constexpr std::uint64_t kPolynomialReflected = 0x1db710641;
constexpr std::uint64_t kMu = 0x1f7011641;

#define DTM_CRC32_TARGET __attribute__((target("pclmul,sse4.1")))

// One 128-bit lane folded forward over the distance that @p k stands for, onto @p next.
DTM_CRC32_TARGET inline __m128i Fold(__m128i lane, __m128i k, __m128i next) {
    const __m128i low = _mm_clmulepi64_si128(lane, k, 0x00);
    const __m128i high = _mm_clmulepi64_si128(lane, k, 0x11);
    return _mm_xor_si128(_mm_xor_si128(high, low), next);
}

DTM_CRC32_TARGET inline __m128i Load(const unsigned char* bytes) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

// The register after @p size bytes, @p size a multiple of 16 and at least 64.
DTM_CRC32_TARGET std::uint32_t UpdateByFolding(const unsigned char* bytes, std::size_t size,
                                               std::uint32_t crc) noexcept {
    __m128i x1 = _mm_xor_si128(Load(bytes), _mm_cvtsi32_si128(static_cast<int>(crc)));
    __m128i x2 = Load(bytes + 16);
    __m128i x3 = Load(bytes + 32);
    __m128i x4 = Load(bytes + 48);
    bytes += 64;
    size -= 64;
    const __m128i k512 =
        _mm_set_epi64x(static_cast<long long>(kFold512High), static_cast<long long>(kFold512Low));
    for (; size >= 64; bytes += 64, size -= 64) {
        x1 = Fold(x1, k512, Load(bytes));
        x2 = Fold(x2, k512, Load(bytes + 16));
        x3 = Fold(x3, k512, Load(bytes + 32));
        x4 = Fold(x4, k512, Load(bytes + 48));
    }
    const __m128i k128 =
        _mm_set_epi64x(static_cast<long long>(kFold128High), static_cast<long long>(kFold128Low));
    x1 = Fold(x1, k128, x2);
    x1 = Fold(x1, k128, x3);
    x1 = Fold(x1, k128, x4);
    for (; size >= 16; bytes += 16, size -= 16) x1 = Fold(x1, k128, Load(bytes));

    // 128 bits to 64: the low half moved up by the 128-32 power, onto the high half.
    const __m128i low32 = _mm_setr_epi32(~0, 0, ~0, 0);
    x1 = _mm_xor_si128(_mm_srli_si128(x1, 8), _mm_clmulepi64_si128(x1, k128, 0x10));
    // 64 bits to 32 more: the low 32 bits moved up by x^64, onto the rest.
    const __m128i k64 = _mm_set_epi64x(0, static_cast<long long>(kFold64));
    x1 = _mm_xor_si128(_mm_srli_si128(x1, 4),
                       _mm_clmulepi64_si128(_mm_and_si128(x1, low32), k64, 0x00));
    // Barrett reduction to the 32-bit remainder.
    const __m128i barrett =
        _mm_set_epi64x(static_cast<long long>(kMu), static_cast<long long>(kPolynomialReflected));
    __m128i t = _mm_clmulepi64_si128(_mm_and_si128(x1, low32), barrett, 0x10);
    t = _mm_clmulepi64_si128(_mm_and_si128(t, low32), barrett, 0x00);
    return static_cast<std::uint32_t>(_mm_extract_epi32(_mm_xor_si128(x1, t), 1));
}

bool HasCarrylessMultiply() noexcept {
    static const bool has = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    return has;
}

#endif

}  // namespace

std::uint32_t Crc32(const void* data, std::size_t size, std::uint32_t crc) noexcept {
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    crc = ~crc;
#if DTM_CRC32_CLMUL
    if (size >= 64 && HasCarrylessMultiply()) {
        const std::size_t folded = size & ~std::size_t{15};
        crc = UpdateByFolding(bytes, folded, crc);
        bytes += folded;
        size -= folded;
    }
#endif
    return ~UpdateByTables(bytes, size, crc);
}

namespace detail {

std::uint32_t Crc32ByTables(const void* data, std::size_t size, std::uint32_t crc) noexcept {
    return ~UpdateByTables(static_cast<const unsigned char*>(data), size, ~crc);
}

bool Crc32FoldsWithCarrylessMultiply() noexcept {
#if DTM_CRC32_CLMUL
    return HasCarrylessMultiply();
#else
    return false;
#endif
}

}  // namespace detail

}  // namespace dtmtool
