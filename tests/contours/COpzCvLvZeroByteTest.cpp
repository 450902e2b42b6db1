// Label texts that end in a zero byte survive the document: the reader drops a last zero byte
// (older writers stored the terminator), so the writer stores such a text with one zero byte
// more. Found by the contour-option fuzzer, where each write and read cycle cut one byte off.

#include <dtm/contours/COpzCvLv.h>
#include <dtm/support/Streams.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "ByteBuilder.h"
#include "TempIni.h"

namespace {

using dtm_test::ByteBuilder;

class OpzCvLvZeroByteTest : public dtm_test::TempIniTest {};

std::string WrittenVis(const COpzCvLv& options) {
    std::stringbuf buffer(std::ios::out);
    ofpstream stream(&buffer, 1502);
    options.SalvaVisInFile(stream);
    return buffer.str();
}

COpzCvLv ReadVis(const std::string& bytes) {
    COpzCvLv options;
    std::stringbuf buffer(bytes, std::ios::in);
    ifpstream stream(&buffer, 1502);
    options.LeggeVisDaFile(stream, true);
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(buffer.in_avail(), 0) << "bytes left after the group";
    return options;
}

COpzCvLv WithTexts(const std::string& prefix, const std::string& suffix) {
    COpzCvLv options;
    options.SetTextOptions(1.0, 1.0, 2, kor::String(prefix), kor::String(suffix),
                           TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0);
    return options;
}

}  // namespace

TEST_F(OpzCvLvZeroByteTest, TextsEndingInZeroBytesComeBackWhole) {
    const std::string prefix("h\0\0", 3);
    const std::string suffix("\0", 1);
    const std::string written = WrittenVis(WithTexts(prefix, suffix));
    const COpzCvLv read = ReadVis(written);
    EXPECT_EQ(prefix, read.GetPrefix().str());
    EXPECT_EQ(suffix, read.GetSuffix().str());
    EXPECT_EQ(written, WrittenVis(read)) << "a second cycle changes the bytes";
}

TEST_F(OpzCvLvZeroByteTest, TextEndingInAZeroByteIsStoredWithOneZeroByteMore) {
    const std::string written = WrittenVis(WithTexts(std::string("ab\0", 3), "m"));
    const std::string texts =
        ByteBuilder().Int32(4).Bytes(std::string("ab\0\0", 4)).Int32(1).Bytes("m").Str();
    EXPECT_NE(written.find(texts), std::string::npos);
}

TEST_F(OpzCvLvZeroByteTest, OtherTextsAreStoredAsTheyAre) {
    const std::string written = WrittenVis(WithTexts(std::string("a\0b", 3), "m"));
    const std::string texts =
        ByteBuilder().Int32(3).Bytes(std::string("a\0b", 3)).Int32(1).Bytes("m").Str();
    EXPECT_NE(written.find(texts), std::string::npos);
}
