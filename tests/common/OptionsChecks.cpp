#include "OptionsChecks.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace dtm_test {

namespace {

/// Compared element by element, each by the fields of its kind, so that a failure names the
/// collection and the field.
void ExpectSamePointCollections(const std::vector<TDtmPointCollectionIdentifier>& expected,
                                const std::vector<TDtmPointCollectionIdentifier>& actual) {
    ASSERT_EQ(expected.size(), actual.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const TDtmPointCollectionIdentifier& want = expected[i];
        const TDtmPointCollectionIdentifier& got = actual[i];
        EXPECT_EQ(want.id, got.id) << i;
        EXPECT_EQ(want.byName, got.byName) << i;
        if (want.byName)
            EXPECT_EQ(want.name.str(), got.name.str()) << i;
        else
            EXPECT_EQ(want.secondId, got.secondId) << i;
    }
}

}  // namespace

void ExpectSameOptions(const COpzTri& expected, const COpzTri& actual,
                       PointCollections collections) {
    EXPECT_EQ(expected.IsAddStations(), actual.IsAddStations());
    EXPECT_EQ(expected.IsAddBasePoints(), actual.IsAddBasePoints());
    EXPECT_EQ(expected.IsCheckBreaklines(), actual.IsCheckBreaklines());
    EXPECT_EQ(expected.IsCheckVrtInCntE(), actual.IsCheckVrtInCntE());
    EXPECT_EQ(expected.IsCheckVrtInCntI(), actual.IsCheckVrtInCntI());
    EXPECT_EQ(expected.IsCheckTriInCntE(), actual.IsCheckTriInCntE());
    EXPECT_EQ(expected.IsCheckTriInCntI(), actual.IsCheckTriInCntI());
    if (collections == PointCollections::Compare)
        ExpectSamePointCollections(expected.GetPointCollections(), actual.GetPointCollections());
    EXPECT_EQ(expected.GetTextHeight(), actual.GetTextHeight());
    EXPECT_EQ(expected.GetScaleFactor(), actual.GetScaleFactor());
    EXPECT_EQ(expected.GetFixedColor(), actual.GetFixedColor());
    EXPECT_EQ(expected.GetLayerColor(), actual.GetLayerColor());
    EXPECT_EQ(expected.GetSymbol(), actual.GetSymbol());
    EXPECT_EQ(expected.IsFirstDisplayFlag(), actual.IsFirstDisplayFlag());
    EXPECT_EQ(expected.IsSecondDisplayFlag(), actual.IsSecondDisplayFlag());
    EXPECT_EQ(expected.GetColorType(), actual.GetColorType());
    EXPECT_EQ(expected.GetColorClasses().IsCustom(), actual.GetColorClasses().IsCustom());
    EXPECT_TRUE(expected.GetColorClasses() == actual.GetColorClasses());
}

void ExpectSameOptions(const COpzCvLv& expected, const COpzCvLv& actual) {
    EXPECT_EQ(expected.GetInterval1(), actual.GetInterval1());
    EXPECT_EQ(expected.GetInterval2(), actual.GetInterval2());
    EXPECT_EQ(expected.GetTension(), actual.GetTension());
    EXPECT_EQ(expected.GetTextHeight(), actual.GetTextHeight());
    EXPECT_EQ(expected.GetGap(), actual.GetGap());
    EXPECT_EQ(expected.IsContourFlag(), actual.IsContourFlag());
    EXPECT_EQ(expected.GetDecimals(), actual.GetDecimals());
    EXPECT_EQ(expected.GetPrefix().str(), actual.GetPrefix().str());
    EXPECT_EQ(expected.GetSuffix().str(), actual.GetSuffix().str());
    EXPECT_EQ(expected.GetVAlignment(), actual.GetVAlignment());
    EXPECT_EQ(expected.GetOrientation(), actual.GetOrientation());
    for (unsigned i = 0; i < COpzCvLv::kCategoryCount; ++i) {
        EXPECT_EQ(expected.IsCategoryOn(i), actual.IsCategoryOn(i)) << "category " << i;
        EXPECT_EQ(expected.GetCategoryColor(i), actual.GetCategoryColor(i)) << "category " << i;
    }
    EXPECT_EQ(expected.IsColorByLayer(), actual.IsColorByLayer());
    EXPECT_EQ(expected.GetColorClasses().IsCustom(), actual.GetColorClasses().IsCustom());
    EXPECT_TRUE(expected.GetColorClasses() == actual.GetColorClasses());
}

CColorClassComputer SampleColorClasses() {
    CColorClassComputer classes;
    classes.AddEntry(0, -5.5, 11);
    classes.AddEntry(1, 7.25, 22);
    classes.SetNoSteps(2);
    return classes;
}

void ExpectDefaultIniColorClasses(const CColorClassComputer& classes) {
    EXPECT_FALSE(classes.IsCustom());
    EXPECT_EQ(4u, classes.GetNoSteps());
    ASSERT_EQ(3u, classes.GetNoClasses());
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_EQ(static_cast<int>(i + 1), classes.GetClassInfoA(i).color);
}

void ExpectCustomClasses(const CColorClassComputer& classes, unsigned noSteps,
                         std::initializer_list<ColorClass> expected) {
    EXPECT_TRUE(classes.IsCustom());
    EXPECT_EQ(noSteps, classes.GetNoSteps());
    ASSERT_EQ(expected.size(), classes.GetNoClasses());
    unsigned i = 0;
    for (const ColorClass& entry : expected) {
        EXPECT_EQ(entry.value, classes.GetClassInfoA(i).value) << "class " << i;
        EXPECT_EQ(entry.color, classes.GetClassInfoA(i).color) << "class " << i;
        ++i;
    }
}

void WriteIniCustomClasses(CIniFile& ini, const std::string& prefix, unsigned noSteps,
                           std::initializer_list<ColorClass> classes) {
    const char* const section = "CURVE";
    ini.WriteBool(section, (prefix + "-custom").c_str(), true);
    ini.WriteLong(section, (prefix + "-nosteps").c_str(), static_cast<long>(noSteps));
    ini.WriteLong(section, (prefix + "-noclasses").c_str(), static_cast<long>(classes.size()));
    int index = 0;
    for (const ColorClass& entry : classes) {
        const std::string classPrefix = prefix + "-class" + std::to_string(index++);
        ini.WriteDouble(section, (classPrefix + "-value").c_str(), entry.value);
        ini.WriteLong(section, (classPrefix + "-color").c_str(), entry.color);
    }
}

ByteBuilder ColorClassesSection(const CColorClassComputer& classes) {
    return ColorClassesSection(classes, classes.GetNoSteps());
}

ByteBuilder ColorClassesSection(const CColorClassComputer& classes, std::uint32_t noSteps) {
    ByteBuilder bytes;
    bytes.UInt32(noSteps)
        .Int32(classes.IsCustom() ? 1 : 0)
        .Int32(static_cast<std::int32_t>(classes.GetNoClasses()));
    for (unsigned i = 0; i < classes.GetNoClasses(); ++i)
        bytes.Double(classes.GetClassInfoA(i).value).Int32(classes.GetClassInfoA(i).color);
    return bytes;
}

}  // namespace dtm_test
