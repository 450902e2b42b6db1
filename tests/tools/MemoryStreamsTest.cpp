// The stream buffers that carry the library's sections to and from memory.

#include <dtm/dtm.h>
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "MemoryStreams.h"

namespace {

using dtmtool::GrowingBuffer;
using dtmtool::SpanBuffer;

TEST(MemoryStreamsTest, GrowingBufferAppendsAfterWhatTheVectorHeld) {
    std::vector<char> bytes = {'a', 'b'};
    GrowingBuffer buffer(bytes);
    ofpstream out(&buffer, 1502);
    dtm::io::WriteRaw<std::int32_t>(out, 0x04030201);
    out.put('z');
    ASSERT_TRUE(out.good());
    EXPECT_EQ(bytes, (std::vector<char>{'a', 'b', 1, 2, 3, 4, 'z'}));
}

TEST(MemoryStreamsTest, GrowingBufferReportsProgressAboutOncePerMebibyte) {
    std::vector<char> bytes;
    std::vector<std::size_t> reports;
    GrowingBuffer buffer(bytes, [&](std::size_t size) { reports.push_back(size); });
    ofpstream out(&buffer, 1502);
    for (int i = 0; i < 3 * 1024 * 1024 / 8; ++i) dtm::io::WriteRaw<double>(out, i);
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0], 1024u * 1024u);
    EXPECT_EQ(bytes.size(), 3u * 1024u * 1024u);
}

TEST(MemoryStreamsTest, SpanBufferReadsEveryByteAndCountsThemAcrossWindows) {
    std::vector<char> data(3 * 1024 * 1024 + 5);
    std::iota(data.begin(), data.end(), 0);
    std::size_t lastReport = 0;
    SpanBuffer buffer(data.data(), data.size(),
                      [&](std::size_t consumed) { lastReport = consumed; });
    ifpstream in(&buffer, 1502);
    std::vector<char> read(data.size());
    in.read(read.data(), static_cast<std::streamsize>(read.size()));
    EXPECT_TRUE(in.good());
    EXPECT_EQ(read, data);
    EXPECT_EQ(buffer.Consumed(), data.size());
    EXPECT_GE(lastReport, 3u * 1024u * 1024u);
    EXPECT_EQ(in.get(), std::char_traits<char>::eof());
}

TEST(MemoryStreamsTest, SpanBufferSeeksWithinTheSpanOnly) {
    const char data[] = {10, 11, 12, 13, 14, 15};
    SpanBuffer buffer(data, sizeof(data), [](std::size_t) {});
    ifpstream in(&buffer, 1502);
    in.seekg(4);
    EXPECT_EQ(in.get(), 14);
    in.seekg(-3, std::ios::cur);
    EXPECT_EQ(in.tellg(), 2);
    EXPECT_EQ(in.get(), 12);
    in.seekg(0, std::ios::end);
    EXPECT_FALSE(in.fail());
    EXPECT_EQ(in.tellg(), 6);
    EXPECT_EQ(buffer.Consumed(), sizeof(data));
    EXPECT_EQ(in.get(), std::char_traits<char>::eof());
    in.clear();
    in.seekg(6);
    EXPECT_FALSE(in.fail());
    in.seekg(0);
    EXPECT_EQ(in.get(), 10);
    in.seekg(7);
    EXPECT_TRUE(in.fail());
}

TEST(MemoryStreamsTest, ShortReadLeavesTheStreamFailed) {
    const char data[] = {1, 2};
    SpanBuffer buffer(data, sizeof(data));
    ifpstream in(&buffer, 1502);
    std::int32_t value = 0;
    EXPECT_FALSE(dtm::io::ReadRaw(in, value));
    EXPECT_TRUE(in.fail());
}

}  // namespace
