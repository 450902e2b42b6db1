// Number and text formatting of the tool's outputs.

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <limits>

#include "TextFormat.h"

namespace {

using dtmtool::Count;
using dtmtool::Exact;
using dtmtool::Fixed;
using dtmtool::NumberText;
using dtmtool::ReadNumber;

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

TEST(TextFormatTest, XmlEscapedKeepsWhitespaceAsReferences) {
    EXPECT_EQ(dtmtool::XmlEscaped("line1\nline2\ttab\r"), "line1&#10;line2&#9;tab&#13;");
}

TEST(TextFormatTest, XmlEscapedKeepsWellFormedUtf8) {
    const std::string text = "Sj\xC3\xB6 \xE5\x8C\x97 \xF0\x9F\x98\x80 \xEF\xBF\xBD \x7F";
    EXPECT_EQ(dtmtool::XmlEscaped(text), text);
    // The characters next to the ranges XML leaves out: U+D7FF and U+E000 around the
    // surrogates, U+FFFD below U+FFFE, and the last one, U+10FFFF.
    const std::string edges = "\xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBD \xF4\x8F\xBF\xBF";
    EXPECT_EQ(dtmtool::XmlEscaped(edges), edges);
}

TEST(TextFormatTest, XmlEscapedReplacesWhatXmlCannotHoldByteByByte) {
    const std::string r = "\xEF\xBF\xBD";
    EXPECT_EQ(dtmtool::XmlEscaped(std::string("a\x01"
                                              "b\x1F",
                                              4) +
                                  std::string(1, '\0')),
              "a" + r + "b" + r + r);
    EXPECT_EQ(dtmtool::XmlEscaped("\xFF\xFE"), r + r);                  // not UTF-8
    EXPECT_EQ(dtmtool::XmlEscaped("\xC0\xAF"), r + r);                  // overlong '/'
    EXPECT_EQ(dtmtool::XmlEscaped("\xED\xA0\x80"), r + r + r);          // the first surrogate
    EXPECT_EQ(dtmtool::XmlEscaped("\xED\xBF\xBF"), r + r + r);          // the last surrogate
    EXPECT_EQ(dtmtool::XmlEscaped("\xEF\xBF\xBE"), r + r + r);          // U+FFFE
    EXPECT_EQ(dtmtool::XmlEscaped("\xF4\x90\x80\x80"), r + r + r + r);  // past U+10FFFF
    EXPECT_EQ(dtmtool::XmlEscaped("x\xE5\x8C"), "x" + r + r);           // cut short
}

TEST(TextFormatTest, XmlEscapedTextReadsBackInAnAttributeAndAnElement) {
    const std::string text = std::string(
        "a\x01"
        "<&>\"'\n\t\r\xFF b",
        13);
    const std::string escaped = dtmtool::XmlEscaped(text);
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(("<e v=\"" + escaped + "\">" + escaped + "</e>").c_str()));
    const std::string expected = "a\xEF\xBF\xBD<&>\"'\n\t\r\xEF\xBF\xBD b";
    EXPECT_EQ(document.child("e").attribute("v").value(), expected);
    EXPECT_EQ(document.child("e").text().get(), expected);
}

TEST(TextFormatTest, CountedAgreesInNumber) {
    EXPECT_EQ(dtmtool::Counted(1, "point", "points"), "1 point");
    EXPECT_EQ(dtmtool::Counted(0, "point", "points"), "0 points");
    EXPECT_EQ(dtmtool::Counted(1200, "point", "points"), "1,200 points");
}

TEST(TextFormatTest, QuotedForMessageCutsLongTextShort) {
    EXPECT_EQ(dtmtool::QuotedForMessage("835560,l068540"), "'835560,l068540'");
    EXPECT_EQ(dtmtool::QuotedForMessage(std::string(40, '9')), "'" + std::string(40, '9') + "'");
    EXPECT_EQ(dtmtool::QuotedForMessage(std::string(400, '9')),
              "'" + std::string(37, '9') + "...'");
}

TEST(TextFormatTest, ReadNumberReadsWholeFiniteNumbers) {
    double value = 0.0;
    EXPECT_EQ(ReadNumber("-12.5", value), NumberText::Finite);
    EXPECT_EQ(value, -12.5);
    EXPECT_EQ(ReadNumber("+3", value), NumberText::Finite);
    EXPECT_EQ(value, 3.0);
    EXPECT_EQ(ReadNumber("1e-3", value), NumberText::Finite);
    EXPECT_EQ(value, 1e-3);
    EXPECT_EQ(ReadNumber("835560.125", value), NumberText::Finite);
    EXPECT_EQ(value, 835560.125);
}

TEST(TextFormatTest, ReadNumberTellsNumbersThatAreNotFiniteFromText) {
    for (const char* text : {"inf", "-inf", "nan", "NaN", "1e999", "1e-999"}) {
        double value = 7.0;
        EXPECT_EQ(ReadNumber(text, value), NumberText::NotFinite) << text;
        EXPECT_EQ(value, 7.0) << text;
    }
    const std::string digits(400, '1');
    double value = 7.0;
    EXPECT_EQ(ReadNumber(digits, value), NumberText::NotFinite);
    for (const char* text :
         {"", "+", "x", "l068540", "12abc", " 12", "12 ", "+-1", "\"12\"", "1,5"}) {
        EXPECT_EQ(ReadNumber(text, value), NumberText::NotANumber) << text;
        EXPECT_EQ(value, 7.0) << text;
    }
}

}  // namespace
