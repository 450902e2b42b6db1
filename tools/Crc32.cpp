#include "Crc32.h"

#include <array>

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

}  // namespace

std::uint32_t Crc32(const void* data, std::size_t size, std::uint32_t crc) noexcept {
    const Tables& t = TheTables();
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    crc = ~crc;
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
    return ~crc;
}

}  // namespace dtmtool
