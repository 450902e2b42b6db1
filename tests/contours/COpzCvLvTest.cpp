#include <dtm/contours/COpzCvLv.h>
#include <dtm/support/IniFile.h>
#include <dtm/support/Streams.h>

#include "ByteBuilder.h"
#include "OptionsChecks.h"
#include "StreamBytes.h"
#include "TempIni.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

// The largest allocation is watched through the address sanitizer's allocation hooks rather
// than by replacing operator new, which belongs to the whole test program. The hook interface
// is declared here because GCC does not ship its header.
#if defined(__SANITIZE_ADDRESS__)
#define OPZCVLV_TEST_WATCHES_ALLOCATIONS 1
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*mallocHook)(const volatile void*,
                                                                            std::size_t),
                                                         void (*freeHook)(const volatile void*));
#endif

namespace {

using dtm_test::ByteBuilder;
using dtm_test::ExpectSameOptions;
using dtm_test::ReadOutcome;

const char* const kSection = "CURVE";

// ---------------------------------------------------------------------------------------------
// Helpers

/// Every test reads and writes a fresh INI file, so that COpzCvLv's constructor sees a known one.
class OpzCvLvTest : public dtm_test::TempIniTest {};

/// Options with every field away from the defaults. The strings have no blanks at their ends,
/// which the INI file would trim.
COpzCvLv Sample() {
    COpzCvLv options;
    options.SetInterval1(2.5);
    options.SetInterval2(10.0);
    options.SetTension(3.25);
    options.SetContourFlag(true);
    options.SetTextOptions(2.0, 0.5, 2, "h:", "m\xC2\xB2", TEXT_VALIGN_2, TEXT_ORIENTATION_1);
    options.SetVisOptions(false, true, false, true, false, 12, 300, 40000, 0,
                          dtm_test::SampleColorClasses());
    return options;
}

/// Options that differ from Sample() and from the defaults in every field, so that a read is
/// seen in each one.
COpzCvLv Target() {
    COpzCvLv options;
    options.SetInterval1(0.25);
    options.SetInterval2(0.75);
    options.SetTension(9.0);
    options.SetContourFlag(false);
    CColorClassComputer classes;
    classes.AddEntry(0, 1);
    classes.AddEntry(1, 2);
    options.SetTextOptions(8.0, 9.0, 5, "old prefix", "old suffix", TEXT_VALIGN_0,
                           TEXT_ORIENTATION_0);
    options.SetVisOptions(true, false, true, false, true, 1, 2, 3, 4, classes);
    return options;
}

void ExpectDefaultTextGroup(const COpzCvLv& options) {
    EXPECT_EQ(1.0, options.GetInterval1());
    EXPECT_EQ(5.0, options.GetInterval2());
    EXPECT_EQ(-1.0, options.GetTension());
    EXPECT_EQ(1.0, options.GetTextHeight());
    EXPECT_EQ(1.0, options.GetGap());
    EXPECT_FALSE(options.IsContourFlag());
    EXPECT_EQ(0, options.GetDecimals());
    EXPECT_EQ("", options.GetPrefix().str());
    EXPECT_EQ("", options.GetSuffix().str());
    EXPECT_EQ(TEXT_VALIGN_CENTRED, options.GetVAlignment());
    EXPECT_EQ(TEXT_ORIENTATION_0, options.GetOrientation());
}

void ExpectDefaultDisplayGroup(const COpzCvLv& options) {
    for (unsigned i = 0; i < COpzCvLv::kCategoryCount; ++i) {
        EXPECT_TRUE(options.IsCategoryOn(i)) << i;
        EXPECT_EQ(7, options.GetCategoryColor(i)) << i;
    }
    EXPECT_TRUE(options.IsColorByLayer());
    // No classes stored: the default graded table of colours 1, 2, 3.
    dtm_test::ExpectDefaultIniColorClasses(options.GetColorClasses());
}

std::string WriteCategories(const COpzCvLv& options, short version) {
    return dtm_test::WriteToBytes(options, &COpzCvLv::SalvaInFile, version);
}

std::string WriteVis(const COpzCvLv& options, short version) {
    return dtm_test::WriteToBytes(options, &COpzCvLv::SalvaVisInFile, version);
}

ReadOutcome ReadCategories(COpzCvLv& options, const std::string& bytes, short version, bool apply) {
    return dtm_test::ReadFromBytes(options, &COpzCvLv::LeggeDaFile, bytes, version, apply);
}

ReadOutcome ReadVis(COpzCvLv& options, const std::string& bytes, short version, bool apply) {
    return dtm_test::ReadFromBytes(options, &COpzCvLv::LeggeVisDaFile, bytes, version, apply);
}

/// A current second group: by layer off, an empty classes table, text height 3, gap 4,
/// decimals 1, then @p strings (prefix and suffix as stored, lengths included), alignment
/// @p vAlign and orientation @p orientation.
std::string CurrentVisGroup(const ByteBuilder& strings, std::int32_t vAlign,
                            std::int32_t orientation) {
    return ByteBuilder()
        .Int32(0)
        .Append(dtm_test::ColorClassesSection(CColorClassComputer()))
        .Double(3.0)
        .Double(4.0)
        .Int32(1)
        .Append(strings)
        .Int32(vAlign)
        .Int32(orientation)
        .Str();
}

/// What a read of @p written's first group into @p target gives: the categories, at every
/// version.
COpzCvLv ExpectedAfterCategoryRead(const COpzCvLv& written, const COpzCvLv& target) {
    COpzCvLv expected = target;
    for (unsigned i = 0; i < COpzCvLv::kCategoryCount; ++i) {
        expected.SetCategoryOn(i, written.IsCategoryOn(i));
        expected.SetCategoryColor(i, written.GetCategoryColor(i));
    }
    return expected;
}

/// What a read of @p written's second group into @p target gives at @p version: nothing before
/// 800, the display switch, classes and text settings from then on.
COpzCvLv ExpectedAfterVisRead(const COpzCvLv& written, const COpzCvLv& target, short version) {
    COpzCvLv expected = target;
    if (version < 800) return expected;
    expected.SetColorByLayer(written.IsColorByLayer());
    expected.SetColorClasses(written.GetColorClasses());
    expected.SetTextOptions(written.GetTextHeight(), written.GetGap(), written.GetDecimals(),
                            written.GetPrefix(), written.GetSuffix(), written.GetVAlignment(),
                            written.GetOrientation());
    return expected;
}

// ---------------------------------------------------------------------------------------------
// INI file

TEST_F(OpzCvLvTest, DefaultConstructionReadsDefaultsFromEmptyIni) {
    const COpzCvLv options;
    ExpectDefaultTextGroup(options);
    ExpectDefaultDisplayGroup(options);
}

TEST_F(OpzCvLvTest, DefaultConstructionReadsEveryKey) {
    {
        CIniFile ini;
        ini.WriteDouble(kSection, "QuI1", 0.5);
        ini.WriteDouble(kSection, "QuI2", 2.5);
        ini.WriteDouble(kSection, "SiTe", 4.75);
        ini.WriteDouble(kSection, "DmC1", 1.5);
        ini.WriteDouble(kSection, "CvLvGap", 0.25);
        ini.WriteBool(kSection, "CntS", true);
        ini.WriteLong(kSection, "CdcC", 3);
        ini.WriteString(kSection, "CvLvPref", "Z=");
        ini.WriteString(kSection, "CvLvSuff", "m;#x");  // no end-of-line comments in values
        ini.WriteLong(kSection, "CvLvVAlgn", 2);
        ini.WriteLong(kSection, "CvLvOrien", 1);
        ini.WriteBool(kSection, "ClAt5", false);
        ini.WriteBool(kSection, "ClAt6", true);
        ini.WriteBool(kSection, "ClAt7", false);
        ini.WriteBool(kSection, "ClAt8", true);
        ini.WriteBool(kSection, "CvLvClrByLayer", false);
        ini.WriteLong(kSection, "ClCo5", 1);
        ini.WriteLong(kSection, "ClCo6", 256);
        ini.WriteLong(kSection, "ClCo7", 65535);
        ini.WriteLong(kSection, "ClCo8", 0);
        dtm_test::WriteIniCustomClasses(ini, "CvLvsGrCol", 3, {{100.5, 40}, {200.5, 41}});
    }
    const COpzCvLv options;
    EXPECT_EQ(0.5, options.GetInterval1());
    EXPECT_EQ(2.5, options.GetInterval2());
    EXPECT_EQ(4.75, options.GetTension());
    EXPECT_EQ(1.5, options.GetTextHeight());
    EXPECT_EQ(0.25, options.GetGap());
    EXPECT_TRUE(options.IsContourFlag());
    EXPECT_EQ(3, options.GetDecimals());
    EXPECT_EQ("Z=", options.GetPrefix().str());
    EXPECT_EQ("m;#x", options.GetSuffix().str());
    EXPECT_EQ(TEXT_VALIGN_2, options.GetVAlignment());
    EXPECT_EQ(TEXT_ORIENTATION_1, options.GetOrientation());
    EXPECT_FALSE(options.IsCategoryOn(0));
    EXPECT_TRUE(options.IsCategoryOn(1));
    EXPECT_FALSE(options.IsCategoryOn(2));
    EXPECT_TRUE(options.IsCategoryOn(3));
    EXPECT_FALSE(options.IsColorByLayer());
    EXPECT_EQ(1, options.GetCategoryColor(0));
    EXPECT_EQ(256, options.GetCategoryColor(1));
    EXPECT_EQ(65535, options.GetCategoryColor(2));
    EXPECT_EQ(0, options.GetCategoryColor(3));
    dtm_test::ExpectCustomClasses(options.GetColorClasses(), 3, {{100.5, 40}, {200.5, 41}});
}

TEST_F(OpzCvLvTest, IniRoundTripThroughTheFileKeepsEveryOption) {
    const COpzCvLv written = Sample();
    written.SetInIni();
    written.SetVisInIni();
    // The values went to the temporary file itself, not to a cache.
    std::ifstream file(m_ini.Path());
    ASSERT_TRUE(file.good());
    const std::string text((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    EXPECT_NE(std::string::npos, text.find("[CURVE]"));
    EXPECT_NE(std::string::npos, text.find("CvLvPref=h:"));

    const COpzCvLv read;  // a fresh object reads the INI file
    ExpectSameOptions(written, read);
}

TEST_F(OpzCvLvTest, IniWritesTheDocumentedKeys) {
    const COpzCvLv written = Sample();
    written.SetInIni();
    written.SetVisInIni();
    // Read back through an independent CIniFile bound to the file by its path.
    CIniFile ini(m_ini.Path());
    EXPECT_EQ(2.5, ini.GetDouble(kSection, "QuI1", 0));
    EXPECT_EQ(10.0, ini.GetDouble(kSection, "QuI2", 0));
    EXPECT_EQ(3.25, ini.GetDouble(kSection, "SiTe", 0));
    EXPECT_EQ(2.0, ini.GetDouble(kSection, "DmC1", 0));
    EXPECT_EQ(0.5, ini.GetDouble(kSection, "CvLvGap", 0));
    EXPECT_TRUE(ini.GetBool(kSection, "CntS", false));
    EXPECT_EQ(2, ini.GetLong(kSection, "CdcC", 0));
    EXPECT_EQ("h:", ini.GetKorString(kSection, "CvLvPref", "").str());
    EXPECT_EQ("m\xC2\xB2", ini.GetKorString(kSection, "CvLvSuff", "").str());
    EXPECT_EQ(2, ini.GetLong(kSection, "CvLvVAlgn", 0));
    EXPECT_EQ(1, ini.GetLong(kSection, "CvLvOrien", 0));
    EXPECT_FALSE(ini.GetBool(kSection, "ClAt5", true));
    EXPECT_TRUE(ini.GetBool(kSection, "ClAt6", false));
    EXPECT_FALSE(ini.GetBool(kSection, "ClAt7", true));
    EXPECT_TRUE(ini.GetBool(kSection, "ClAt8", false));
    EXPECT_FALSE(ini.GetBool(kSection, "CvLvClrByLayer", true));
    EXPECT_EQ(12, ini.GetLong(kSection, "ClCo5", 0));
    EXPECT_EQ(300, ini.GetLong(kSection, "ClCo6", 0));
    EXPECT_EQ(40000, ini.GetLong(kSection, "ClCo7", 0));  // unsigned, as stored
    EXPECT_EQ(0, ini.GetLong(kSection, "ClCo8", 7));
    EXPECT_EQ(2, ini.GetLong(kSection, "CvLvsGrCol-noclasses", 0));
    EXPECT_EQ(7.25, ini.GetDouble(kSection, "CvLvsGrCol-class1-value", 0));
}

TEST_F(OpzCvLvTest, TextAndDisplayGroupsAreReadAndWrittenSeparately) {
    Sample().SetInIni();  // only the text group reaches the file
    const COpzCvLv fresh;
    ExpectDefaultDisplayGroup(fresh);
    EXPECT_EQ(2.5, fresh.GetInterval1());
    EXPECT_EQ(TEXT_VALIGN_2, fresh.GetVAlignment());

    // Each reader leaves the other group's fields as they are.
    COpzCvLv options = Target();
    options.GetDaIni();
    EXPECT_EQ(2.0, options.GetTextHeight());
    EXPECT_EQ(Target().IsColorByLayer(), options.IsColorByLayer());
    EXPECT_EQ(Target().GetCategoryColor(0), options.GetCategoryColor(0));
    EXPECT_TRUE(Target().GetColorClasses() == options.GetColorClasses());
    options = Target();
    options.GetVisDaIni();
    ExpectDefaultDisplayGroup(options);
    EXPECT_EQ(Target().GetTextHeight(), options.GetTextHeight());
    EXPECT_EQ(Target().GetPrefix().str(), options.GetPrefix().str());
}

TEST_F(OpzCvLvTest, AlignmentOutsideZeroToTwoInIniReadsAsCentred) {
    for (long stored : {5L, -1L, 3L, 2147483647L, -2147483647L - 1}) {
        CIniFile().WriteLong(kSection, "CvLvVAlgn", stored);
        EXPECT_EQ(TEXT_VALIGN_CENTRED, COpzCvLv().GetVAlignment()) << stored;
    }
    for (long stored : {0L, 1L, 2L}) {
        CIniFile().WriteLong(kSection, "CvLvVAlgn", stored);
        EXPECT_EQ(stored, COpzCvLv().GetVAlignment()) << stored;
    }
}

TEST_F(OpzCvLvTest, OrientationOutsideZeroToOneInIniReadsAsZero) {
    for (long stored : {2L, -1L, 7L}) {
        CIniFile().WriteLong(kSection, "CvLvOrien", stored);
        EXPECT_EQ(TEXT_ORIENTATION_0, COpzCvLv().GetOrientation()) << stored;
    }
    CIniFile().WriteLong(kSection, "CvLvOrien", 1);
    EXPECT_EQ(TEXT_ORIENTATION_1, COpzCvLv().GetOrientation());
}

TEST_F(OpzCvLvTest, IniValuesOfTheWrongTypeFallBackToDefaults) {
    {
        CIniFile ini;
        ini.WriteString(kSection, "QuI1", "one");
        ini.WriteString(kSection, "QuI2", "5,0");  // a locale's comma is not a separator
        ini.WriteString(kSection, "SiTe", "tight");
        ini.WriteString(kSection, "DmC1", "1e999");  // overflows a double
        ini.WriteString(kSection, "CvLvGap", "");
        ini.WriteString(kSection, "CntS", "maybe");
        ini.WriteString(kSection, "CdcC", "2.5");
        ini.WriteString(kSection, "CvLvVAlgn", "centre");
        ini.WriteString(kSection, "CvLvOrien", "0x1");
        ini.WriteString(kSection, "ClAt5", "perhaps");
        ini.WriteString(kSection, "ClAt6", "");
        ini.WriteString(kSection, "ClAt7", "2.0");
        ini.WriteString(kSection, "ClAt8", "yes please");
        ini.WriteString(kSection, "CvLvClrByLayer", "no way");
        ini.WriteString(kSection, "ClCo5", "red");
        ini.WriteString(kSection, "ClCo6", "65536");   // beyond 16 bits
        ini.WriteString(kSection, "ClCo7", "-32769");  // beyond 16 bits
        ini.WriteString(kSection, "ClCo8", "9999999999");
        ini.WriteString(kSection, "CvLvsGrCol-noclasses", "many");
    }
    const COpzCvLv options;
    ExpectDefaultTextGroup(options);
    ExpectDefaultDisplayGroup(options);
}

TEST_F(OpzCvLvTest, IniColoursAcceptSignedAndUnsignedSpellingsOfSixteenBits) {
    struct Case {
        const char* stored;
        std::uint16_t expected;
    };
    for (const Case& test : {Case{"-1", 65535}, Case{"65535", 65535}, Case{"-32768", 32768},
                             Case{"32767", 32767}, Case{"0", 0}, Case{"256", 256}}) {
        CIniFile().WriteString(kSection, "ClCo6", test.stored);
        EXPECT_EQ(test.expected, COpzCvLv().GetCategoryColor(1)) << test.stored;
    }
}

TEST_F(OpzCvLvTest, IniKeepsBlanksAroundPrefixAndSuffix) {
    COpzCvLv written;
    written.SetPrefix("  Z = ");
    written.SetSuffix(" m");
    written.SetInIni();
    const COpzCvLv read;
    EXPECT_EQ("  Z = ", read.GetPrefix().str());
    EXPECT_EQ(" m", read.GetSuffix().str());
    EXPECT_EQ(written.GetFullQuotaText(12.0), read.GetFullQuotaText(12.0));
}

TEST_F(OpzCvLvTest, CopyDoesNotReadIni) {
    dtm_test::ExpectCopyIgnoresIni(Sample(), "DmC1");
}

// ---------------------------------------------------------------------------------------------
// Setters

TEST_F(OpzCvLvTest, SetTextOptionsStoresEachArgumentInItsField) {
    COpzCvLv options = Target();
    options.SetTextOptions(1.25, 2.25, -3, "pre", "suf", TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_1);
    EXPECT_EQ(1.25, options.GetTextHeight());
    EXPECT_EQ(2.25, options.GetGap());
    EXPECT_EQ(-3, options.GetDecimals());
    EXPECT_EQ("pre", options.GetPrefix().str());
    EXPECT_EQ("suf", options.GetSuffix().str());
    EXPECT_EQ(TEXT_VALIGN_CENTRED, options.GetVAlignment());
    EXPECT_EQ(TEXT_ORIENTATION_1, options.GetOrientation());
    // Not text options: untouched.
    EXPECT_EQ(Target().GetInterval1(), options.GetInterval1());
    EXPECT_EQ(Target().IsColorByLayer(), options.IsColorByLayer());
}

TEST_F(OpzCvLvTest, SetVisOptionsStoresEachArgumentInItsField) {
    COpzCvLv options = Sample();
    // One flag true at a time shows which argument lands where.
    for (unsigned on = 0; on < 5; ++on) {
        options.SetVisOptions(on == 0, on == 1, on == 2, on == 3, on == 4, 11, 22, 33, 44,
                              CColorClassComputer());
        for (unsigned i = 0; i < COpzCvLv::kCategoryCount; ++i)
            EXPECT_EQ(on == i, options.IsCategoryOn(i)) << on << " " << i;
        EXPECT_EQ(on == 4, options.IsColorByLayer()) << on;
    }
    EXPECT_EQ(11, options.GetCategoryColor(0));
    EXPECT_EQ(22, options.GetCategoryColor(1));
    EXPECT_EQ(33, options.GetCategoryColor(2));
    EXPECT_EQ(44, options.GetCategoryColor(3));
    EXPECT_EQ(0u, options.GetColorClasses().GetNoClasses());
    EXPECT_EQ(Sample().GetTextHeight(), options.GetTextHeight());
}

TEST_F(OpzCvLvTest, CategoryIndexOutOfRangeThrowsAndChangesNothing) {
    COpzCvLv options = Sample();
    EXPECT_THROW(options.IsCategoryOn(4), std::out_of_range);
    EXPECT_THROW(options.GetCategoryColor(4), std::out_of_range);
    EXPECT_THROW(options.SetCategoryOn(4, true), std::out_of_range);
    EXPECT_THROW(options.SetCategoryColor(static_cast<unsigned>(-1), 9), std::out_of_range);
    ExpectSameOptions(Sample(), options);
}

TEST_F(OpzCvLvTest, ColorClassesCanBeEditedInPlace) {
    dtm_test::ExpectColorClassesEditableInPlace<COpzCvLv>();
}

// ---------------------------------------------------------------------------------------------
// Label text and extent

TEST_F(OpzCvLvTest, FullQuotaTextIsPrefixElevationSuffix) {
    COpzCvLv options;
    options.SetTextOptions(1.0, 1.0, 2, "Z=", " m", TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0);
    EXPECT_EQ("Z=123.46 m", options.GetFullQuotaText(123.456).str());
    EXPECT_EQ("Z=-0.50 m", options.GetFullQuotaText(-0.5).str());
    options.SetDecimals(0);
    EXPECT_EQ("Z=124 m", options.GetFullQuotaText(123.5).str());
    options.SetPrefix("");
    options.SetSuffix("");
    EXPECT_EQ("7", options.GetFullQuotaText(7.0).str());
}

TEST_F(OpzCvLvTest, FullQuotaTextCountsNegativeDecimalsAsZero) {
    COpzCvLv options;
    options.SetDecimals(-4);
    EXPECT_EQ("12", options.GetFullQuotaText(12.25).str());
}

TEST_F(OpzCvLvTest, FullQuotaTextWritesTheDecimalsAsSetUpToTheFormattersLimit) {
    COpzCvLv options;
    options.SetDecimals(20);
    EXPECT_EQ("0.50000000000000000000", options.GetFullQuotaText(0.5).str());
    EXPECT_EQ(StringDaDouble(0.1, 20), options.GetFullQuotaText(0.1));
    options.SetDecimals(2000000000);  // would make a label of two thousand million digits
    EXPECT_EQ(std::string("0.5") + std::string(STRING_MAX_DECIMALS - 1, '0'),
              options.GetFullQuotaText(0.5).str());
    EXPECT_EQ(2000000000, options.GetDecimals());  // stored as set
}

TEST_F(OpzCvLvTest, ThreeCharacterLabelAtHeightTwoExtends7Point3334) {
    COpzCvLv options;
    options.SetVAlignment(TEXT_VALIGN_CENTRED);
    options.SetTextHeight(2.0);
    EXPECT_NEAR(7.3334, options.GetQuotaExtent("abc"), 1e-12);
}

TEST_F(OpzCvLvTest, LabelExtentIsTheMeasureGetQuotaExtentUses) {
    EXPECT_NEAR(7.3334, COpzCvLv::LabelExtent(3, 2.0), 1e-12);
    EXPECT_NEAR(0.6667, COpzCvLv::LabelExtent(0, 1.0), 1e-12);
    EXPECT_EQ(0.0, COpzCvLv::LabelExtent(12, 0.0));
    COpzCvLv options;
    options.SetVAlignment(TEXT_VALIGN_CENTRED);
    options.SetTextHeight(0.7);
    // The same bits, not merely close: both are the one formula.
    EXPECT_EQ(COpzCvLv::LabelExtent(5, 0.7), options.GetQuotaExtent("12.50"));
    options.SetVAlignment(TEXT_VALIGN_0);
    EXPECT_NE(0.0, COpzCvLv::LabelExtent(5, 0.7));  // the helper ignores the alignment
    EXPECT_EQ(0.0, options.GetQuotaExtent("12.50"));
}

TEST_F(OpzCvLvTest, QuotaExtentFollowsTheFormulaForAnyLength) {
    COpzCvLv options;
    options.SetVAlignment(TEXT_VALIGN_CENTRED);
    for (double height : {0.5, 1.0, 3.75}) {
        options.SetTextHeight(height);
        std::string text;
        for (int characters = 0; characters < 40; ++characters) {
            EXPECT_DOUBLE_EQ((characters + 0.6667) * height, options.GetQuotaExtent(text.c_str()))
                << characters << " characters at height " << height;
            text += static_cast<char>('a' + characters % 26);
        }
    }
}

TEST_F(OpzCvLvTest, QuotaExtentIsZeroUnlessCentred) {
    COpzCvLv options;
    options.SetTextHeight(2.0);
    options.SetPrefix("elevation ");
    for (enumTextVAlignment align : {TEXT_VALIGN_0, TEXT_VALIGN_2}) {
        options.SetVAlignment(align);
        for (const char* text :
             {"", "abc", "a much longer label text", static_cast<const char*>(nullptr)})
            EXPECT_EQ(0.0, options.GetQuotaExtent(text)) << align;
        EXPECT_EQ(0.0, options.GetQuotaExtent(1234.5)) << align;
        EXPECT_EQ(0.0, options.GetQuotaExtent(-1e300)) << align;
    }
    // A value no reader would let through, but a setter stores: not centred either.
    options.SetVAlignment(static_cast<enumTextVAlignment>(7));
    EXPECT_EQ(0.0, options.GetQuotaExtent("abc"));
}

TEST_F(OpzCvLvTest, QuotaExtentIgnoresOrientation) {
    COpzCvLv options;
    options.SetVAlignment(TEXT_VALIGN_CENTRED);
    options.SetTextHeight(1.0);
    options.SetOrientation(TEXT_ORIENTATION_0);
    const double upright = options.GetQuotaExtent("12.5");
    options.SetOrientation(TEXT_ORIENTATION_1);
    EXPECT_EQ(upright, options.GetQuotaExtent("12.5"));
}

TEST_F(OpzCvLvTest, QuotaExtentCountsCharactersNotBytes) {
    COpzCvLv options;
    options.SetVAlignment(TEXT_VALIGN_CENTRED);
    options.SetTextHeight(1.0);
    // "m²" and "°C" are two characters each, though three bytes in UTF-8; "€" is one of three.
    EXPECT_EQ(options.GetQuotaExtent("ab"), options.GetQuotaExtent("m\xC2\xB2"));
    EXPECT_EQ(options.GetQuotaExtent("ab"), options.GetQuotaExtent("\xC2\xB0"
                                                                   "C"));
    EXPECT_EQ(options.GetQuotaExtent("a"), options.GetQuotaExtent("\xE2\x82\xAC"));
    EXPECT_EQ(options.GetQuotaExtent("a"), options.GetQuotaExtent("\xF0\x9F\x8C\x8D"));
}

// A label written in a single-byte code page: a byte that continues no UTF-8 sequence is a
// character of its own ("5\xB0" is 5 degrees), and a lead byte that is not continued is one too.
TEST_F(OpzCvLvTest, QuotaExtentCountsBytesOutsideUtf8SequencesAsCharacters) {
    COpzCvLv options;
    options.SetVAlignment(TEXT_VALIGN_CENTRED);
    options.SetTextHeight(1.0);
    EXPECT_EQ(options.GetQuotaExtent("5m"), options.GetQuotaExtent("5\xB0"));
    EXPECT_EQ(options.GetQuotaExtent("abc"), options.GetQuotaExtent("\xB0\xB2\xB3"));
    EXPECT_EQ(options.GetQuotaExtent("abc"), options.GetQuotaExtent("\xE9t\xE9"));
    // A sequence cut short ends where the next byte does not continue it.
    EXPECT_EQ(options.GetQuotaExtent("ab"), options.GetQuotaExtent("\xE2\x82"
                                                                   "C"));
    EXPECT_EQ(options.GetQuotaExtent("ab"), options.GetQuotaExtent("\xC2\xB0\xB0"));
}

TEST_F(OpzCvLvTest, NullTextCountsAsEmpty) {
    COpzCvLv options;
    options.SetVAlignment(TEXT_VALIGN_CENTRED);
    options.SetTextHeight(3.0);
    EXPECT_EQ(options.GetQuotaExtent(""), options.GetQuotaExtent(nullptr));
    EXPECT_NEAR(2.0001, options.GetQuotaExtent(nullptr), 1e-12);  // (0 - 0.3333 + 1) * 3
}

TEST_F(OpzCvLvTest, QuotaExtentOfAnElevationMeasuresItsFullLabel) {
    COpzCvLv options;
    options.SetTextOptions(0.5, 1.0, 1, "Q", "m\xC2\xB2", TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0);
    // "Q12.3m²": seven characters.
    EXPECT_NEAR((7 - 0.3333 + 1.0) * 0.5, options.GetQuotaExtent(12.34), 1e-12);
    EXPECT_EQ(options.GetQuotaExtent(options.GetFullQuotaText(-8.25).c_str()),
              options.GetQuotaExtent(-8.25));
}

// ---------------------------------------------------------------------------------------------
// Stream groups

/// One of the two stream groups, for the tests that hold for both.
using Group = dtm_test::SectionGroup<COpzCvLv>;

const Group kGroups[] = {{"first", &COpzCvLv::SalvaInFile, &COpzCvLv::LeggeDaFile},
                         {"second", &COpzCvLv::SalvaVisInFile, &COpzCvLv::LeggeVisDaFile}};

class OpzCvLvStreamTest : public OpzCvLvTest, public ::testing::WithParamInterface<short> {};

TEST_P(OpzCvLvStreamTest, FirstGroupRoundTrip) {
    const short version = GetParam();
    const COpzCvLv written = Sample();
    const std::string bytes = WriteCategories(written, version);
    EXPECT_EQ(24u, bytes.size());  // four int32 flags and four uint16 colours, at every version
    COpzCvLv read = Target();
    const ReadOutcome outcome = ReadCategories(read, bytes + "next section", version, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
    ExpectSameOptions(ExpectedAfterCategoryRead(written, Target()), read);
    EXPECT_EQ(bytes, WriteCategories(read, version));
}

TEST_P(OpzCvLvStreamTest, SecondGroupRoundTrip) {
    const short version = GetParam();
    const COpzCvLv written = Sample();
    const std::string bytes = WriteVis(written, version);
    EXPECT_EQ(version < 800, bytes.empty());
    COpzCvLv read = Target();
    const ReadOutcome outcome = ReadVis(read, bytes + "next section", version, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
    ExpectSameOptions(ExpectedAfterVisRead(written, Target(), version), read);
    // Written again, the options give the same bytes.
    EXPECT_EQ(bytes, WriteVis(read, version));
}

TEST_P(OpzCvLvStreamTest, BothGroupsTogetherCarryEveryDocumentOption) {
    const short version = GetParam();
    const COpzCvLv written = Sample();
    const std::string first = WriteCategories(written, version);
    const std::string second = WriteVis(written, version);
    std::stringbuf buffer(first + second);
    ifpstream in(&buffer, version);
    COpzCvLv read = Target();
    read.LeggeDaFile(in, true);
    read.LeggeVisDaFile(in, true);
    EXPECT_TRUE(static_cast<bool>(in));
    EXPECT_EQ(std::char_traits<char>::eof(), buffer.sgetc());  // every byte consumed
    ExpectSameOptions(
        ExpectedAfterVisRead(written, ExpectedAfterCategoryRead(written, Target()), version), read);
}

TEST_P(OpzCvLvStreamTest, ApplyFalseConsumesTheSameBytesAndChangesNothing) {
    const short version = GetParam();
    for (const Group& group : kGroups)
        dtm_test::ExpectApplyFalseChangesNothing(Sample(), Target(), group, version);
}

TEST_P(OpzCvLvStreamTest, TruncatedGroupFailsAndChangesNothing) {
    const short version = GetParam();
    for (const Group& group : kGroups) {
        const std::string bytes = dtm_test::WriteToBytes(Sample(), group.writer, version);
        for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
            for (bool apply : {true, false}) {
                COpzCvLv read = Target();
                const ReadOutcome outcome = dtm_test::ReadFromBytes(
                    read, group.reader, bytes.substr(0, cut), version, apply);
                EXPECT_FALSE(outcome.streamGood)
                    << group.name << " cut " << cut << " apply " << apply;
                ExpectSameOptions(Target(), read);
            }
        }
    }
}

// 800 is the one threshold of the groups; 1501 and 1502 are the network's, and must change
// nothing here. Negative versions are older than any threshold: the comparison is signed.
INSTANTIATE_TEST_SUITE_P(Versions, OpzCvLvStreamTest,
                         ::testing::Values(short{-1}, short{0}, short{799}, short{800}, short{1501},
                                           short{1502}, short{32767}));

TEST_F(OpzCvLvTest, FirstGroupWritesTheDocumentedLayout) {
    const COpzCvLv options = Sample();  // categories F 12, T 300, F 40000, T 0
    const std::string categories = ByteBuilder()
                                       .Int32(0)
                                       .UInt16(12)
                                       .Int32(1)
                                       .UInt16(300)
                                       .Int32(0)
                                       .UInt16(40000)
                                       .Int32(1)
                                       .UInt16(0)
                                       .Str();
    for (short version : {short{-32768}, short{799}, short{800}, short{1502}})
        EXPECT_EQ(categories, WriteCategories(options, version)) << version;
}

TEST_F(OpzCvLvTest, OldDocumentsCarryOnlyTheCategories) {
    // Before version 800 the second group does not exist: nothing written, nothing read.
    EXPECT_EQ("", WriteVis(Sample(), 799));
    EXPECT_EQ("", WriteVis(Sample(), -32768));
    for (bool apply : {true, false}) {
        COpzCvLv read = Target();
        const ReadOutcome outcome = ReadVis(read, WriteVis(Sample(), 800), 799, apply);
        EXPECT_TRUE(outcome.streamGood);
        EXPECT_EQ(0, outcome.consumed);
        ExpectSameOptions(Target(), read);
    }
}

TEST_F(OpzCvLvTest, SecondGroupWritesTheDocumentedLayout) {
    COpzCvLv options = Sample();
    options.SetSuffix(" m");  // a blank survives in the document
    const std::string expected =
        ByteBuilder()
            .Int32(0)  // colour by layer
            .Append(dtm_test::ColorClassesSection(dtm_test::SampleColorClasses()))
            .Double(2.0)  // text height
            .Double(0.5)  // gap
            .Int32(2)     // decimals
            .Int32(2)
            .Bytes("h:")  // no terminator
            .Int32(2)
            .Bytes(" m")
            .Int32(2)  // alignment
            .Int32(1)  // orientation
            .Str();
    EXPECT_EQ(expected, WriteVis(options, 800));
    EXPECT_EQ(expected, WriteVis(options, 1502));
}

TEST_F(OpzCvLvTest, EmptyStringsAreWrittenAsLengthZeroAlone) {
    COpzCvLv options = Sample();
    options.SetPrefix("");
    options.SetSuffix("");
    const std::string bytes = WriteVis(options, 800);
    const std::string tail = ByteBuilder().Int32(2).Int32(0).Int32(0).Int32(2).Int32(1).Str();
    ASSERT_GE(bytes.size(), tail.size());
    EXPECT_EQ(tail, bytes.substr(bytes.size() - tail.size()));  // decimals, 0, 0, align, orient
}

TEST_F(OpzCvLvTest, ReadsHandAssembledFirstGroup) {
    const std::string bytes = ByteBuilder()
                                  .Int32(2)  // > 0: on
                                  .UInt16(0xFFFF)
                                  .Int32(0)
                                  .UInt16(256)
                                  .Int32(-1)  // not > 0: off
                                  .UInt16(1)
                                  .Int32(1)
                                  .UInt16(40000)
                                  .Str();
    for (short version : {short{799}, short{1502}}) {
        COpzCvLv read = Target();
        const ReadOutcome outcome = ReadCategories(read, bytes + "next", version, true);
        EXPECT_TRUE(outcome.streamGood);
        EXPECT_EQ(24, outcome.consumed);
        EXPECT_TRUE(read.IsCategoryOn(0));
        EXPECT_EQ(0xFFFF, read.GetCategoryColor(0));
        EXPECT_FALSE(read.IsCategoryOn(1));
        EXPECT_EQ(256, read.GetCategoryColor(1));
        EXPECT_FALSE(read.IsCategoryOn(2));
        EXPECT_EQ(1, read.GetCategoryColor(2));
        EXPECT_TRUE(read.IsCategoryOn(3));
        EXPECT_EQ(40000, read.GetCategoryColor(3));
        // Not in the first group: kept.
        ExpectSameOptions(ExpectedAfterCategoryRead(read, Target()), read);
    }
}

TEST_F(OpzCvLvTest, ReadsHandAssembledCurrentSecondGroup) {
    const std::string bytes = ByteBuilder()
                                  .Int32(7)   // colour by layer: > 0 is true
                                  .UInt32(9)  // colour classes: unclamped step count
                                  .Int32(1)
                                  .Int32(2)
                                  .Double(1.5)
                                  .Int32(31)
                                  .Double(2.5)
                                  .Int32(32)
                                  .Double(0.125)  // text height
                                  .Double(-2.0)   // gap
                                  .Int32(3)       // decimals
                                  .Int32(4)
                                  .Bytes("Zq=\0", 4)  // the last zero byte is dropped
                                  .Int32(0)           // empty suffix, no bytes
                                  .Int32(5)           // alignment out of range: centred
                                  .Int32(2)           // orientation out of range: 0
                                  .Str();
    COpzCvLv read = Target();
    const ReadOutcome outcome = ReadVis(read, bytes + "next", 800, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
    EXPECT_TRUE(read.IsColorByLayer());
    dtm_test::ExpectCustomClasses(read.GetColorClasses(), 9, {{1.5, 31}, {2.5, 32}});
    EXPECT_EQ(0.125, read.GetTextHeight());
    EXPECT_EQ(-2.0, read.GetGap());
    EXPECT_EQ(3, read.GetDecimals());
    EXPECT_EQ("Zq=", read.GetPrefix().str());  // four stored bytes, three characters
    EXPECT_EQ("", read.GetSuffix().str());
    EXPECT_EQ(TEXT_VALIGN_CENTRED, read.GetVAlignment());
    EXPECT_EQ(TEXT_ORIENTATION_0, read.GetOrientation());
    // Not in the second group: the categories and the INI-only options keep their values.
    for (unsigned i = 0; i < COpzCvLv::kCategoryCount; ++i) {
        EXPECT_EQ(Target().IsCategoryOn(i), read.IsCategoryOn(i)) << i;
        EXPECT_EQ(Target().GetCategoryColor(i), read.GetCategoryColor(i)) << i;
    }
    EXPECT_EQ(Target().GetInterval1(), read.GetInterval1());
    EXPECT_EQ(Target().GetInterval2(), read.GetInterval2());
    EXPECT_EQ(Target().GetTension(), read.GetTension());
    EXPECT_EQ(Target().IsContourFlag(), read.IsContourFlag());
}

TEST_F(OpzCvLvTest, StoredStringRules) {
    struct Case {
        ByteBuilder stored;  // length and bytes as in the document
        std::string expected;
    };
    const Case cases[] = {
        {ByteBuilder().Int32(0), ""},
        {ByteBuilder().Int32(-5), ""},  // below 1: empty, and no bytes follow
        {ByteBuilder().Int32(-2147483647 - 1), ""},
        {ByteBuilder().Int32(1).Bytes("\0", 1), ""},
        {ByteBuilder().Int32(3).Bytes("xyz"), "xyz"},       // no trailing zero: kept whole
        {ByteBuilder().Int32(4).Bytes("abc\0", 4), "abc"},  // length 4, last byte zero
        {ByteBuilder().Int32(3).Bytes("q\0\0", 3), std::string("q\0", 2)},  // one zero dropped
        {ByteBuilder().Int32(4).Bytes("a\0b ", 4), std::string("a\0b ", 4)},
        {ByteBuilder().Int32(4).Bytes(" \xC2\xB0 "), " \xC2\xB0 "},
    };
    for (const Case& test : cases) {
        // The same stored string as prefix and as suffix.
        const std::string bytes =
            CurrentVisGroup(ByteBuilder().Append(test.stored).Append(test.stored), 1, 0);
        COpzCvLv read = Target();
        const ReadOutcome outcome = ReadVis(read, bytes + "next", 800, true);
        EXPECT_TRUE(outcome.streamGood) << test.expected;
        EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed) << test.expected;
        EXPECT_EQ(test.expected, read.GetPrefix().str());
        EXPECT_EQ(test.expected, read.GetSuffix().str());
        EXPECT_EQ(TEXT_VALIGN_CENTRED, read.GetVAlignment()) << test.expected;
    }
}

TEST_F(OpzCvLvTest, StreamKeepsBlanksAndInnerZeroBytesOfStrings) {
    COpzCvLv written = Sample();
    written.SetPrefix(std::string(" a\0b ", 5));
    written.SetSuffix("  ");
    COpzCvLv read = Target();
    const std::string bytes = WriteVis(written, 1502);
    EXPECT_TRUE(ReadVis(read, bytes, 1502, true).streamGood);
    EXPECT_EQ(std::string(" a\0b ", 5), read.GetPrefix().str());
    EXPECT_EQ("  ", read.GetSuffix().str());
}

TEST_F(OpzCvLvTest, StreamAlignmentAndOrientationAreRangeChecked) {
    const ByteBuilder noStrings = ByteBuilder().Int32(0).Int32(0);
    struct Case {
        std::int32_t align;
        std::int32_t orientation;
        enumTextVAlignment expectedAlign;
        enumTextOrientation expectedOrientation;
    };
    for (const Case& test : {Case{0, 0, TEXT_VALIGN_0, TEXT_ORIENTATION_0},
                             Case{1, 1, TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_1},
                             Case{2, 1, TEXT_VALIGN_2, TEXT_ORIENTATION_1},
                             Case{3, 2, TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0},
                             Case{5, -1, TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0},
                             Case{-1, 7, TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0}}) {
        COpzCvLv read = Target();  // alignment 0, orientation 0
        read.SetVAlignment(TEXT_VALIGN_2);
        read.SetOrientation(TEXT_ORIENTATION_1);
        EXPECT_TRUE(
            ReadVis(read, CurrentVisGroup(noStrings, test.align, test.orientation), 800, true)
                .streamGood);
        EXPECT_EQ(test.expectedAlign, read.GetVAlignment()) << test.align;
        EXPECT_EQ(test.expectedOrientation, read.GetOrientation()) << test.orientation;
    }
}

TEST_F(OpzCvLvTest, DamagedClassesSectionFailsTheGroup) {
    // A class count of two thousand million with one class behind it.
    const std::string bytes =
        ByteBuilder().Int32(1).UInt32(4).Int32(1).Int32(0x7FFFFFFF).Double(1.0).Int32(2).Str();
    for (bool apply : {true, false}) {
        COpzCvLv read = Target();
        EXPECT_FALSE(ReadVis(read, bytes, 800, apply).streamGood);
        ExpectSameOptions(Target(), read);
    }
}

#if defined(OPZCVLV_TEST_WATCHES_ALLOCATIONS)
/// Far below the two thousand million bytes a damaged length claims, far above any text here.
constexpr std::size_t kModestAllocation = 1 << 16;
std::atomic<std::size_t> largestAllocation{0};
std::atomic<bool> watching{false};

void WatchAllocation(const volatile void*, std::size_t size) {
    if (!watching.load(std::memory_order_relaxed)) return;
    std::size_t largest = largestAllocation.load(std::memory_order_relaxed);
    while (size > largest && !largestAllocation.compare_exchange_weak(largest, size)) {
    }
}

void IgnoreFree(const volatile void*) {}

/// Installs the hooks once for the program; they record only while a test watches.
bool InstallAllocationWatch() {
    static const bool installed =
        __sanitizer_install_malloc_and_free_hooks(&WatchAllocation, &IgnoreFree) != 0;
    return installed;
}
#endif

TEST_F(OpzCvLvTest, CorruptStringLengthCostsNoMoreThanTheStreamHolds) {
    // Lengths of two thousand million with a few bytes behind them: the reader fails at the
    // stream's end without reserving room for them, whether it applies or skips.
    const std::string hugePrefix =
        CurrentVisGroup(ByteBuilder().Int32(0x7FFFFFFF).Bytes("short"), 1, 0);
    const std::string hugeSuffix =
        CurrentVisGroup(ByteBuilder().Int32(1).Bytes("a").Int32(0x7FFFFFFF).Bytes("x"), 1, 0);
    for (const std::string* full : {&hugePrefix, &hugeSuffix}) {
        // The group as assembled ends with alignment and orientation; what a damaged length
        // claims runs past them, so the stream ends inside the string.
        for (bool apply : {true, false}) {
#if defined(OPZCVLV_TEST_WATCHES_ALLOCATIONS)
            ASSERT_TRUE(InstallAllocationWatch());
            largestAllocation = 0;
            watching = true;
#endif
            COpzCvLv read = Target();
            const ReadOutcome outcome = ReadVis(read, *full, 800, apply);
#if defined(OPZCVLV_TEST_WATCHES_ALLOCATIONS)
            watching = false;
            EXPECT_LT(largestAllocation.load(), kModestAllocation) << "apply " << apply;
#endif
            EXPECT_FALSE(outcome.streamGood);
            EXPECT_EQ(static_cast<std::streamoff>(full->size()), outcome.consumed);
            ExpectSameOptions(Target(), read);
        }
    }
}

}  // namespace
