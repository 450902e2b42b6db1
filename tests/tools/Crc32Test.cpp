// The document's checksum against the published check value and a bit-by-bit computation.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
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

// Bytes without a period that a fold could line up with.
std::string Scrambled(std::size_t count) {
    std::string bytes;
    std::uint32_t state = 12345u;
    for (std::size_t i = 0; i < count; ++i) {
        state = state * 1664525u + 1013904223u;
        bytes += static_cast<char>(state >> 24);
    }
    return bytes;
}

// Every length up to a few of the 64-byte blocks that long buffers are folded in, from every
// alignment, through both the folding and the tables alone.
TEST(Crc32Test, MatchesTheBitwiseDefinitionForEveryLengthAndAlignment) {
    const std::string bytes = Scrambled(300);
    for (std::size_t start = 0; start < 17; ++start)
        for (std::size_t length = 0; start + length <= bytes.size(); ++length) {
            const std::string piece = bytes.substr(start, length);
            const std::uint32_t expected = BitwiseCrc32(piece);
            ASSERT_EQ(dtmtool::Crc32(piece.data(), piece.size()), expected)
                << "start " << start << " length " << length;
            ASSERT_EQ(dtmtool::detail::Crc32ByTables(piece.data(), piece.size()), expected)
                << "start " << start << " length " << length;
        }
}

TEST(Crc32Test, LongBufferMatchesTheBitwiseDefinition) {
    const std::string bytes = Scrambled((1u << 20) + 13);
    const std::uint32_t expected = BitwiseCrc32(bytes);
    EXPECT_EQ(dtmtool::Crc32(bytes.data(), bytes.size()), expected);
    EXPECT_EQ(dtmtool::detail::Crc32ByTables(bytes.data(), bytes.size()), expected);
    std::printf("checksum folded with carry-less multiply: %s\n",
                dtmtool::detail::Crc32FoldsWithCarrylessMultiply() ? "yes" : "no (tables only)");
}

// A checksum continued in pieces whose ends fall inside and between the folded blocks.
TEST(Crc32Test, ContinuingInUnevenPiecesGivesTheChecksumOfTheWhole) {
    const std::string bytes = Scrambled(5000);
    for (const std::size_t cut : {1u, 15u, 16u, 63u, 64u, 65u, 127u, 1000u, 4999u}) {
        const std::uint32_t first = dtmtool::Crc32(bytes.data(), cut);
        EXPECT_EQ(dtmtool::Crc32(bytes.data() + cut, bytes.size() - cut, first),
                  BitwiseCrc32(bytes))
            << "cut " << cut;
    }
}

TEST(Crc32Test, ContinuingGivesTheChecksumOfTheWhole) {
    const std::string whole = "terrain model document";
    const std::uint32_t first = dtmtool::Crc32(whole.data(), 10);
    EXPECT_EQ(dtmtool::Crc32(whole.data() + 10, whole.size() - 10, first), BitwiseCrc32(whole));
}

}  // namespace
