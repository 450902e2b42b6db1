// Number and text formatting of the tool's outputs.

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

#include "TextFormat.h"

namespace {

using dtmtool::Count;
using dtmtool::Exact;
using dtmtool::Fixed;

TEST(TextFormatTest, ExactTextReadsBackAsTheSameDouble) {
    const double values[] = {0.1,
                             1.0 / 3.0,
                             6399017.829,
                             -1765.746,
                             1e-300,
                             21530213.801123,
                             std::numeric_limits<double>::max()};
    for (const double value : values) {
        const std::string text = Exact(value);
        EXPECT_EQ(std::strtod(text.c_str(), nullptr), value) << text;
    }
    EXPECT_EQ(Exact(105.0), "105");
}

TEST(TextFormatTest, FixedRoundsToTheDecimalsAsked) {
    EXPECT_EQ(Fixed(2.345678, 2), "2.35");
    EXPECT_EQ(Fixed(-0.04, 1), "-0.0");
    EXPECT_EQ(Fixed(1500.0, 0), "1500");
}

TEST(TextFormatTest, FixedOfAnUndefinedElevationFallsBackToTheShortestForm) {
    EXPECT_EQ(Fixed(1.7e200, 3), "1.7e+200");
}

TEST(TextFormatTest, CountGroupsThousands) {
    EXPECT_EQ(Count(0), "0");
    EXPECT_EQ(Count(999), "999");
    EXPECT_EQ(Count(1000), "1,000");
    EXPECT_EQ(Count(33000), "33,000");
    EXPECT_EQ(Count(1234567), "1,234,567");
}

TEST(TextFormatTest, XmlEscapedReplacesTheReservedCharacters) {
    EXPECT_EQ(dtmtool::XmlEscaped("a<b & \"c\" 'd'>"),
              "a&lt;b &amp; &quot;c&quot; &apos;d&apos;&gt;");
}

}  // namespace
