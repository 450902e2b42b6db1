#include <dtm/support/RawIO.h>
#include <dtm/support/Streams.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "TempDir.h"

using dtm::io::ReadChunks;
using dtm::io::ReadCountedText;
using dtm::io::ReadRaw;
using dtm::io::ReadText;
using dtm::io::SkipBytes;
using dtm::io::WriteBool32;
using dtm::io::WriteRaw;

namespace {

using Bytes = std::vector<unsigned char>;

std::string Text(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

template <class T>
Bytes BytesOf(T value) {
    std::stringbuf buffer;
    ofpstream stream(&buffer, 1502);
    WriteRaw(stream, value);
    const std::string written = buffer.str();
    return Bytes(written.begin(), written.end());
}

/// Counts the write calls that reach the buffer, to check that every value is one call.
class CountingBuffer : public std::stringbuf {
public:
    int writes = 0;

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        ++writes;
        return std::stringbuf::xsputn(bytes, count);
    }
};

}  // namespace

TEST(StreamsTest, StreamsOverMemoryCarryTheirVersion) {
    std::stringbuf buffer;
    ofpstream out(&buffer, 800);
    EXPECT_EQ(out.GetVersion(), 800);
    out.SetVersion(-3);
    EXPECT_EQ(out.GetVersion(), -3);
    WriteRaw<std::int32_t>(out, 77);
    EXPECT_TRUE(out.good());

    ifpstream in(&buffer, 1502);
    EXPECT_EQ(in.GetVersion(), 1502);
    in.SetVersion(std::numeric_limits<short>::min());
    EXPECT_EQ(in.GetVersion(), std::numeric_limits<short>::min());
    std::int32_t value = 0;
    ASSERT_TRUE(ReadRaw(in, value));
    EXPECT_EQ(value, 77);
}

TEST(StreamsTest, StreamsOverFilesCarryTheirVersionAndRoundTrip) {
    dtm_test::TempDir dir;
    const std::string path = dir.File("doc.bin");
    {
        std::filebuf file;
        ASSERT_TRUE(file.open(path, std::ios::out | std::ios::binary));
        ofpstream out(&file, 799);
        EXPECT_EQ(out.GetVersion(), 799);
        WriteRaw<std::int16_t>(out, -2);
        WriteRaw<double>(out, 0.1);
        WriteBool32(out, true);
        EXPECT_TRUE(out.good());
    }
    std::filebuf file;
    ASSERT_TRUE(file.open(path, std::ios::in | std::ios::binary));
    ifpstream in(&file, 800);
    EXPECT_EQ(in.GetVersion(), 800);
    std::int16_t small = 0;
    double real = 0.0;
    std::int32_t flag = 0;
    ASSERT_TRUE(ReadRaw(in, small));
    ASSERT_TRUE(ReadRaw(in, real));
    ASSERT_TRUE(ReadRaw(in, flag));
    EXPECT_EQ(small, -2);
    EXPECT_EQ(real, 0.1);
    EXPECT_EQ(flag, 1);
    char extra = 0;
    EXPECT_FALSE(ReadRaw(in, extra));
}

TEST(StreamsTest, WriteRawProducesLittleEndianBytes) {
    EXPECT_EQ(BytesOf<std::int16_t>(0x1234), (Bytes{0x34, 0x12}));
    EXPECT_EQ(BytesOf<std::int16_t>(-2), (Bytes{0xFE, 0xFF}));
    EXPECT_EQ(BytesOf<std::int32_t>(0x12345678), (Bytes{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(BytesOf<std::int32_t>(-1), (Bytes{0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(BytesOf<std::int32_t>(std::numeric_limits<std::int32_t>::min()),
              (Bytes{0x00, 0x00, 0x00, 0x80}));
    EXPECT_EQ(BytesOf<std::uint32_t>(0xDEADBEEFu), (Bytes{0xEF, 0xBE, 0xAD, 0xDE}));
    EXPECT_EQ(BytesOf<std::int64_t>(0x0102030405060708LL),
              (Bytes{0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01}));
    EXPECT_EQ(BytesOf<std::int64_t>(-2), (Bytes{0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    // IEEE binary64: 1.0 = 0x3FF0000000000000, -2.5 = 0xC004000000000000,
    // 0.1 = 0x3FB999999999999A, -0.0 = 0x8000000000000000.
    EXPECT_EQ(BytesOf<double>(1.0), (Bytes{0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
    EXPECT_EQ(BytesOf<double>(-2.5), (Bytes{0, 0, 0, 0, 0, 0, 0x04, 0xC0}));
    EXPECT_EQ(BytesOf<double>(0.1), (Bytes{0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}));
    EXPECT_EQ(BytesOf<double>(-0.0), (Bytes{0, 0, 0, 0, 0, 0, 0, 0x80}));
}

TEST(StreamsTest, WriteBool32StoresFourByteOneOrZero) {
    std::stringbuf buffer;
    ofpstream out(&buffer, 800);
    WriteBool32(out, true);
    WriteBool32(out, false);
    EXPECT_EQ(buffer.str(), Text({1, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(StreamsTest, EveryValueIsOneWriteCall) {
    CountingBuffer buffer;
    ofpstream out(&buffer, 800);
    WriteRaw<std::int32_t>(out, 1);
    WriteRaw<double>(out, 2.0);
    WriteRaw<std::int64_t>(out, 3);
    WriteBool32(out, true);
    EXPECT_EQ(buffer.writes, 4);
    EXPECT_EQ(buffer.str().size(), 4u + 8u + 8u + 4u);
}

TEST(StreamsTest, ReadRawDecodesHandAssembledBytes) {
    std::stringbuf buffer(Text({0x34, 0x12,                                         // int16
                                0xEF, 0xBE, 0xAD, 0xDE,                             // uint32
                                0xFE, 0xFF, 0xFF, 0xFF,                             // int32
                                0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,     // int64
                                0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}));  // double
    ifpstream in(&buffer, 1502);
    std::int16_t small = 0;
    std::uint32_t unsignedValue = 0;
    std::int32_t signedValue = 0;
    std::int64_t wide = 0;
    double real = 0.0;
    ASSERT_TRUE(ReadRaw(in, small));
    ASSERT_TRUE(ReadRaw(in, unsignedValue));
    ASSERT_TRUE(ReadRaw(in, signedValue));
    ASSERT_TRUE(ReadRaw(in, wide));
    ASSERT_TRUE(ReadRaw(in, real));
    EXPECT_EQ(small, 0x1234);
    EXPECT_EQ(unsignedValue, 0xDEADBEEFu);
    EXPECT_EQ(signedValue, -2);
    EXPECT_EQ(wide, 0x0102030405060708LL);
    EXPECT_EQ(real, 0.1);
    EXPECT_TRUE(in.good());
}

TEST(StreamsTest, ShortReadLeavesValueUntouchedAndFailsStream) {
    std::stringbuf buffer(Text({0x01, 0x02, 0x03}));
    ifpstream in(&buffer, 800);
    std::int32_t value = 12345;
    EXPECT_FALSE(ReadRaw(in, value));
    EXPECT_EQ(value, 12345);
    EXPECT_TRUE(in.fail());

    std::stringbuf sevenBytes(std::string(7, '\x11'));
    ifpstream shortDouble(&sevenBytes, 800);
    double real = -4.5;
    EXPECT_FALSE(ReadRaw(shortDouble, real));
    EXPECT_EQ(real, -4.5);
    EXPECT_TRUE(shortDouble.fail());

    std::stringbuf empty;
    ifpstream emptyStream(&empty, 800);
    std::int16_t small = 9;
    EXPECT_FALSE(ReadRaw(emptyStream, small));
    EXPECT_EQ(small, 9);
    EXPECT_TRUE(emptyStream.fail());
}

TEST(StreamsTest, ReadRawOnAFailedStreamReadsNothing) {
    std::stringbuf buffer(Text({1, 0, 0, 0}));
    ifpstream in(&buffer, 800);
    in.setstate(std::ios::failbit);
    std::int32_t value = 5;
    EXPECT_FALSE(ReadRaw(in, value));
    EXPECT_EQ(value, 5);
}

TEST(StreamsTest, ReadTextReadsExactlyAcrossChunks) {
    std::string content;
    for (int i = 0; i < 1000; ++i) content += static_cast<char>('a' + i % 26);
    std::stringbuf buffer(content + "tail");
    ifpstream in(&buffer, 800);
    std::string text = "old";
    ASSERT_TRUE(ReadText(in, 1000, text));
    EXPECT_EQ(text, content);
    ASSERT_TRUE(ReadText(in, 0, text));
    EXPECT_EQ(text, "");
    ASSERT_TRUE(ReadText(in, 4, text));
    EXPECT_EQ(text, "tail");
}

TEST(StreamsTest, ShortReadTextLeavesTextUntouched) {
    std::stringbuf buffer(std::string(300, 'x'));
    ifpstream in(&buffer, 800);
    std::string text = "before";
    EXPECT_FALSE(ReadText(in, 301, text));
    EXPECT_EQ(text, "before");
    EXPECT_TRUE(in.fail());
}

// A counted string: int32 length, then that many bytes when the length is above 0.
std::string Counted(std::int32_t length, const std::string& bytes) {
    std::ostringstream out;
    WriteRaw(out, length);
    out << bytes;
    return out.str();
}

TEST(StreamsTest, ReadCountedTextDropsOnlyALastZeroByte) {
    const std::string stored = Counted(4, std::string("abc\0", 4)) + Counted(3, "xyz") +
                               Counted(3, std::string("q\0\0", 3)) +
                               Counted(1, std::string(1, '\0'));
    std::stringbuf buffer(stored);
    ifpstream in(&buffer, 800);
    std::string text;
    ASSERT_TRUE(ReadCountedText(in, text));
    EXPECT_EQ("abc", text);
    ASSERT_TRUE(ReadCountedText(in, text));
    EXPECT_EQ("xyz", text);
    ASSERT_TRUE(ReadCountedText(in, text));
    EXPECT_EQ(std::string("q\0", 2), text);
    ASSERT_TRUE(ReadCountedText(in, text));
    EXPECT_EQ("", text);
    EXPECT_EQ(static_cast<std::streamoff>(stored.size()), static_cast<std::streamoff>(in.tellg()));
}

TEST(StreamsTest, ReadCountedTextOfLengthBelowOneIsEmptyAndTakesNoBytes) {
    for (const std::int32_t length : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
        std::stringbuf buffer(Counted(length, "next"));
        ifpstream in(&buffer, 800);
        std::string text = "old";
        ASSERT_TRUE(ReadCountedText(in, text)) << length;
        EXPECT_EQ("", text) << length;
        std::string rest;
        ASSERT_TRUE(ReadText(in, 4, rest)) << length;
        EXPECT_EQ("next", rest) << length;
    }
}

TEST(StreamsTest, ShortCountedTextFailsAndLeavesTextUntouched) {
    for (const std::string& stored :
         {Counted(5, "abcd"), Counted(0x7FFFFFFF, "short"), std::string("\x02\0", 2)}) {
        std::stringbuf buffer(stored);
        ifpstream in(&buffer, 800);
        std::string text = "before";
        EXPECT_FALSE(ReadCountedText(in, text));
        EXPECT_EQ("before", text);
        EXPECT_TRUE(in.fail());
    }
}

TEST(StreamsTest, SkipBytesStepsOverExactlyThatMany) {
    std::stringbuf buffer(std::string(600, '\0') + Text({0x2A, 0, 0, 0}));
    ifpstream in(&buffer, 800);
    ASSERT_TRUE(SkipBytes(in, 600));
    std::int32_t value = 0;
    ASSERT_TRUE(ReadRaw(in, value));
    EXPECT_EQ(value, 42);
    EXPECT_TRUE(SkipBytes(in, 0));
    EXPECT_TRUE(in.good());
}

TEST(StreamsTest, SkipBytesOnShortStreamFailsWithoutReservingTheSize) {
    std::stringbuf buffer(std::string(10, 'x'));
    ifpstream in(&buffer, 800);
    // A corrupt size far beyond the stream: read in small chunks, it fails at the end of data.
    EXPECT_FALSE(SkipBytes(in, std::uint64_t{1} << 40));
    EXPECT_TRUE(in.fail());

    std::stringbuf buffer2(std::string(10, 'x'));
    ifpstream in2(&buffer2, 800);
    std::string text = "kept";
    EXPECT_FALSE(ReadText(in2, std::uint64_t{1} << 40, text));
    EXPECT_EQ(text, "kept");
}

TEST(StreamsTest, ReadChunksHandsEveryByteInOrder) {
    std::string content;
    for (int i = 0; i < 700; ++i) content += static_cast<char>(i % 251);
    std::stringbuf buffer(content);
    ifpstream in(&buffer, 800);
    std::string collected;
    std::size_t largestChunk = 0;
    ASSERT_TRUE(ReadChunks(in, 700, [&](const char* bytes, std::size_t count) {
        collected.append(bytes, count);
        largestChunk = std::max(largestChunk, count);
    }));
    EXPECT_EQ(collected, content);
    EXPECT_LE(largestChunk, 256u);
}
