// The document's checksum against the published check value and a bit-by-bit computation.

#include <gtest/gtest.h>

#include <string>

#include "Crc32.h"

namespace {

// The textbook definition, one bit at a time: the reference the table-driven code must match.
std::uint32_t BitwiseCrc32(const std::string& bytes) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (const char c : bytes) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1u) ? 0xEDB88320u : 0u);
    }
    return ~crc;
}

TEST(Crc32Test, MatchesThePublishedCheckValue) {
    EXPECT_EQ(dtmtool::Crc32("123456789", 9), 0xCBF43926u);
}

TEST(Crc32Test, EmptyInputGivesZero) {
    EXPECT_EQ(dtmtool::Crc32("", 0), 0u);
}

TEST(Crc32Test, MatchesTheBitwiseDefinitionForEveryLengthAndAlignment) {
    std::string bytes;
    for (int i = 0; i < 300; ++i) bytes += static_cast<char>((i * 131 + 7) & 0xFF);
    for (std::size_t start = 0; start < 9; ++start)
        for (std::size_t length = 0; start + length <= bytes.size(); length += 7) {
            const std::string piece = bytes.substr(start, length);
            ASSERT_EQ(dtmtool::Crc32(piece.data(), piece.size()), BitwiseCrc32(piece))
                << "start " << start << " length " << length;
        }
}

TEST(Crc32Test, ContinuingGivesTheChecksumOfTheWhole) {
    const std::string whole = "terrain model document";
    const std::uint32_t first = dtmtool::Crc32(whole.data(), 10);
    EXPECT_EQ(dtmtool::Crc32(whole.data() + 10, whole.size() - 10, first), BitwiseCrc32(whole));
}

}  // namespace
