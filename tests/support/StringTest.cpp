#include <dtm/support/String.h>

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

int Sign(int value) {
    return (value > 0) - (value < 0);
}

/// Compare and CompareIgnoreCase must order a pair and its mirror oppositely.
void ExpectAntisymmetric(const kor::String& a, const kor::String& b) {
    EXPECT_EQ(Sign(a.Compare(b)), -Sign(b.Compare(a))) << a.c_str() << " / " << b.c_str();
    EXPECT_EQ(Sign(a.CompareIgnoreCase(b)), -Sign(b.CompareIgnoreCase(a)))
        << a.c_str() << " / " << b.c_str();
}

/// Reads back a number written with '.' whatever locale the C library has.
double ParseWithPoint(const std::string& text) {
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    double value = 0.0;
    stream >> value;
    return value;
}

/// A C++ locale with ',' as decimal separator that needs no installed locale.
struct CommaPunct : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

}  // namespace

TEST(StringTest, CompareIsByteWiseAndCaseSensitive) {
    EXPECT_EQ(kor::String("CURVE").Compare("CURVE"), 0);
    EXPECT_LT(kor::String("abc").Compare("abd"), 0);
    EXPECT_GT(kor::String("abd").Compare("abc"), 0);
    EXPECT_LT(kor::String("ab").Compare("abc"), 0);
    EXPECT_LT(kor::String("").Compare("a"), 0);
    // 'A' is 0x41 and 'a' 0x61.
    EXPECT_LT(kor::String("A").Compare("a"), 0);
    EXPECT_LT(kor::String("Z").Compare("a"), 0);
    EXPECT_NE(kor::String("Curve").Compare("CURVE"), 0);
}

TEST(StringTest, CompareIgnoreCaseFoldsAsciiLetters) {
    EXPECT_EQ(kor::String("Curve").CompareIgnoreCase("CURVE"), 0);
    EXPECT_EQ(kor::String("TriGrCol-Class0").CompareIgnoreCase("trigrcol-class0"), 0);
    EXPECT_LT(kor::String("abc").CompareIgnoreCase("ABD"), 0);
    // Folded, 'Z' is 'z', which sorts after 'a' (unlike the case-sensitive order).
    EXPECT_GT(kor::String("Z").CompareIgnoreCase("a"), 0);
    // Characters that are not letters are not folded: '[' (0x5B) lies between 'Z' and 'a'.
    EXPECT_NE(kor::String("[").CompareIgnoreCase("{"), 0);
    EXPECT_LT(kor::String("[").CompareIgnoreCase("a"), 0);
}

TEST(StringTest, NonAsciiBytesStayDistinctAndSortUnsigned) {
    const kor::String lower("è");  // C3 A8
    const kor::String upper("È");  // C3 88
    EXPECT_NE(lower.Compare(upper), 0);
    EXPECT_NE(lower.CompareIgnoreCase(upper), 0);
    EXPECT_GT(lower.CompareIgnoreCase(upper), 0);
    // Bytes are unsigned: a lead byte 0xC3 sorts after every ASCII character.
    EXPECT_GT(lower.Compare("e"), 0);
    EXPECT_GT(lower.CompareIgnoreCase("z"), 0);
    EXPECT_EQ(kor::String("Qualità").CompareIgnoreCase("QUALITà"), 0);
    EXPECT_NE(kor::String("Qualità").CompareIgnoreCase("QUALITÀ"), 0);
}

TEST(StringTest, InvalidUtf8AndEmbeddedNulCompareSafely) {
    const kor::String broken(std::string("\xFF\xFE\xC3", 3));
    EXPECT_EQ(broken.Compare(broken), 0);
    EXPECT_GT(broken.Compare("abc"), 0);
    EXPECT_GT(broken.CompareIgnoreCase("ABC"), 0);
    const kor::String withNul(std::string("a\0b", 3));
    const kor::String withNul2(std::string("a\0c", 3));
    EXPECT_LT(withNul.Compare(withNul2), 0);
    EXPECT_GT(withNul.Compare("a"), 0);
}

TEST(StringTest, OrdersAreAntisymmetric) {
    const char* samples[] = {"", "a", "A", "ab", "aB", "è", "È", "\xFF", "z", "Z", "[", "{"};
    for (const char* a : samples)
        for (const char* b : samples) ExpectAntisymmetric(a, b);
}

TEST(StringTest, BasicOperations) {
    kor::String text(static_cast<const char*>(nullptr));
    EXPECT_TRUE(text.empty());
    EXPECT_STREQ(text.c_str(), "");
    text += "Quota";
    const kor::String joined = text + " m";
    EXPECT_EQ(joined.str(), "Quota m");
    EXPECT_EQ(joined.length(), 7u);
    EXPECT_TRUE(joined == kor::String("Quota m"));
    EXPECT_TRUE(joined != text);
}

TEST(StringTest, KorSprintfFormatsKeyPatterns) {
    char buffer[64];
    EXPECT_EQ(kor_sprintf(buffer, sizeof(buffer), "%s%s", "TriGrCol", "-custom"), 15);
    EXPECT_STREQ(buffer, "TriGrCol-custom");
    EXPECT_EQ(kor_sprintf(buffer, sizeof(buffer), "%s%s%d%s", "CvLvsGrCol", "-class", 12, "-value"),
              24);
    EXPECT_STREQ(buffer, "CvLvsGrCol-class12-value");
}

TEST(StringTest, KorSprintfTruncatesWithinTheBuffer) {
    char buffer[32];
    std::memset(buffer, 'X', sizeof(buffer));
    // Only 8 bytes are given: 7 characters and the terminator; the rest must stay untouched.
    EXPECT_EQ(kor_sprintf(buffer, 8, "%s%s%d%s", "TriGrCol", "-class", 3, "-color"), 21);
    EXPECT_STREQ(buffer, "TriGrCo");
    for (std::size_t i = 8; i < sizeof(buffer); ++i) EXPECT_EQ(buffer[i], 'X') << i;

    std::memset(buffer, 'X', sizeof(buffer));
    EXPECT_EQ(kor_sprintf(buffer, 1, "%s%s", "a", "b"), 2);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], 'X');

    // Size zero writes nothing and still tells the length needed.
    EXPECT_EQ(kor_sprintf(nullptr, 0, "%s%s", "abc", "de"), 5);
}

TEST(StringTest, StringDaDoubleGivesTheAskedDecimals) {
    const double value = 3.14159265;
    EXPECT_EQ(StringDaDouble(value, 0).str(), "3");
    EXPECT_EQ(StringDaDouble(value, 1).str(), "3.1");
    EXPECT_EQ(StringDaDouble(value, 2).str(), "3.14");
    EXPECT_EQ(StringDaDouble(value, 3).str(), "3.142");
    EXPECT_EQ(StringDaDouble(value, 4).str(), "3.1416");
    EXPECT_EQ(StringDaDouble(value, 5).str(), "3.14159");
    EXPECT_EQ(StringDaDouble(value, 6).str(), "3.141593");
    EXPECT_EQ(StringDaDouble(value, -2).str(), "3");
    EXPECT_EQ(StringDaDouble(120.0, 2).str(), "120.00");
}

TEST(StringTest, StringDaDoubleWritesEveryDigitADoubleHasAndNoMore) {
    // The smallest subnormal, 2^-1074, written out exactly, needs all 1074 decimals; its last
    // digit is the 5 every negative power of two ends with.
    const double tiny = std::numeric_limits<double>::denorm_min();
    const std::string full = StringDaDouble(tiny, STRING_MAX_DECIMALS).str();
    ASSERT_EQ(full.size(), 2u + STRING_MAX_DECIMALS);
    EXPECT_EQ(full.substr(0, 2), "0.");
    EXPECT_EQ(full.back(), '5');
    // Asking for more gives the same text: beyond the cap only zeros would follow.
    EXPECT_EQ(StringDaDouble(tiny, STRING_MAX_DECIMALS + 1).str(), full);
    EXPECT_EQ(StringDaDouble(1.5, 2000000000).str().size(), 2u + STRING_MAX_DECIMALS);
}

TEST(StringTest, StringDaDoubleRoundsToNearest) {
    EXPECT_EQ(StringDaDouble(2.96, 1).str(), "3.0");
    EXPECT_EQ(StringDaDouble(9.9996, 3).str(), "10.000");
    EXPECT_EQ(StringDaDouble(0.4999, 0).str(), "0");
    EXPECT_EQ(StringDaDouble(0.5001, 0).str(), "1");
    // 2.675 is stored as 2.67499999999999982236431605997495353221893310546875.
    EXPECT_EQ(StringDaDouble(2.675, 2).str(), "2.67");
}

TEST(StringTest, StringDaDoubleFormatsNegativeValues) {
    EXPECT_EQ(StringDaDouble(-3.14159, 2).str(), "-3.14");
    EXPECT_EQ(StringDaDouble(-1234.5678, 1).str(), "-1234.6");
    EXPECT_EQ(StringDaDouble(-7.0, 0).str(), "-7");
}

TEST(StringTest, StringDaDoubleIsWithinHalfAUnitOfTheLastDigit) {
    const unsigned seed = 7;
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> values(-1e5, 1e5);
    for (int step = 0; step < 2000; ++step) {
        const double value = values(random);
        const int decimals = step % 7;
        const std::string text = StringDaDouble(value, decimals).str();
        const std::size_t point = text.find('.');
        if (decimals == 0) {
            EXPECT_EQ(point, std::string::npos) << text;
        } else {
            ASSERT_NE(point, std::string::npos) << text;
            EXPECT_EQ(text.size() - point - 1, static_cast<std::size_t>(decimals)) << text;
        }
        const double halfUnit = 0.5 * std::pow(10.0, -decimals);
        EXPECT_LE(std::fabs(ParseWithPoint(text) - value), halfUnit * (1 + 1e-9))
            << "seed " << seed << ", step " << step << ": " << value << " -> " << text;
    }
}

TEST(StringTest, StringDaDoubleUsesAPointWhateverTheCppGlobalLocale) {
    const std::locale previous =
        std::locale::global(std::locale(std::locale::classic(), new CommaPunct));
    const std::string text = StringDaDouble(1234.5, 2).str();
    std::locale::global(previous);
    EXPECT_EQ(text, "1234.50");
}

TEST(StringTest, StringDaDoubleUsesAPointUnderAnInstalledCommaLocale) {
    const std::string previous = std::setlocale(LC_ALL, nullptr);
    const char* found = nullptr;
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "it_IT.UTF-8", "it_IT.utf8",
                             "fr_FR.UTF-8", "fr_FR.utf8"}) {
        if (std::setlocale(LC_ALL, name) &&
            std::strcmp(std::localeconv()->decimal_point, ",") == 0) {
            found = name;
            break;
        }
    }
    if (!found) {
        std::setlocale(LC_ALL, previous.c_str());
        GTEST_SKIP() << "no installed locale uses a decimal comma";
    }
    std::string text;
    try {
        const std::locale cpp = std::locale::global(std::locale(found));
        text = StringDaDouble(-0.5, 3).str();
        std::locale::global(cpp);
    } catch (const std::runtime_error&) {
        text = StringDaDouble(-0.5, 3).str();
    }
    std::setlocale(LC_ALL, previous.c_str());
    EXPECT_EQ(text, "-0.500");
}

namespace {

TEST(StringDaDoubleSign, ValuesRoundingToZeroHaveNoSign) {
    EXPECT_EQ(StringDaDouble(-0.004, 2), kor::String("0.00"));
    EXPECT_EQ(StringDaDouble(-0.0, 1), kor::String("0.0"));
    EXPECT_EQ(StringDaDouble(-0.006, 2), kor::String("-0.01"));
    EXPECT_EQ(StringDaDouble(-0.4, 0), kor::String("0"));
}

}  // namespace
