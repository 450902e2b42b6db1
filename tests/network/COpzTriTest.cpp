#include <dtm/network/COpzTri.h>
#include <dtm/support/IniFile.h>
#include <dtm/support/Streams.h>

#include "ByteBuilder.h"
#include "OptionsChecks.h"
#include "StreamBytes.h"
#include "TempDir.h"
#include "TempIni.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using dtm_test::ByteBuilder;
using dtm_test::ExpectSameOptions;
using dtm_test::ReadFromBytes;
using dtm_test::ReadOutcome;
using dtm_test::SampleColorClasses;
using dtm_test::WriteToBytes;
using Collection = TDtmPointCollectionIdentifier;

const char* const kSection = "CURVE";

// ---------------------------------------------------------------------------------------------
// Helpers

/// Every test reads and writes a fresh INI file, so that COpzTri's constructor sees a known one.
class OpzTriTest : public dtm_test::TempIniTest {};

Collection ByName(std::int32_t id, const std::string& name) {
    Collection item;
    item.id = id;
    item.byName = true;
    item.name = name;
    return item;
}

Collection ById(std::int32_t id, std::int32_t secondId) {
    Collection item;
    item.id = id;
    item.secondId = secondId;
    return item;
}

/// Options with every field away from the INI defaults, flags alternating.
COpzTri Sample() {
    COpzTri options;
    options.SetAutoTriOptions({ByName(17, "Survey A"), ById(-3, 99), ByName(0, ""),
                               ByName(5, std::string("with\0zero", 9))},
                              false, true, false, true, false, true, false,
                              COpzTri::TRI_COLOR_BY_CLASSES, 12, 34, SampleColorClasses(),
                              COpzTri::TRI_SYMBOL_3, 2.5, 0.75);
    options.SetFirstDisplayFlag(false);
    options.SetSecondDisplayFlag(true);
    return options;
}

/// Options that differ from Sample() in every field, so that a read is seen in each one.
COpzTri Target() {
    COpzTri options;
    CColorClassComputer classes;
    classes.AddEntry(0, 1);
    classes.AddEntry(1, 2);
    options.SetAutoTriOptions({ById(1, 2)}, true, false, true, false, true, false, true,
                              COpzTri::TRI_COLOR_BY_CLOUD, 3, 4, classes, COpzTri::TRI_SYMBOL_2,
                              9.0, 8.0);
    options.SetFirstDisplayFlag(true);
    options.SetSecondDisplayFlag(false);
    return options;
}

/// The two groups, for the tests that hold for both.
using Group = dtm_test::SectionGroup<COpzTri>;
const Group kGroups[] = {{"automatic triangulation", &COpzTri::SalvaInFile, &COpzTri::LeggeDaFile},
                         {"display", &COpzTri::SalvaVisInFile, &COpzTri::LeggeVisDaFile}};

// ---------------------------------------------------------------------------------------------
// INI file

TEST_F(OpzTriTest, DefaultConstructionReadsDefaultsFromEmptyIni) {
    const COpzTri options;
    EXPECT_TRUE(options.IsAddStations());
    EXPECT_FALSE(options.IsAddBasePoints());
    EXPECT_TRUE(options.IsCheckBreaklines());
    EXPECT_TRUE(options.IsCheckVrtInCntE());
    EXPECT_TRUE(options.IsCheckVrtInCntI());
    EXPECT_TRUE(options.IsCheckTriInCntE());
    EXPECT_TRUE(options.IsCheckTriInCntI());
    EXPECT_TRUE(options.GetPointCollections().empty());
    EXPECT_EQ(1.0, options.GetTextHeight());
    EXPECT_EQ(1.0, options.GetScaleFactor());
    EXPECT_EQ(7, options.GetFixedColor());
    EXPECT_EQ(7, options.GetLayerColor());
    EXPECT_EQ(COpzTri::TRI_SYMBOL_0, options.GetSymbol());
    EXPECT_TRUE(options.IsFirstDisplayFlag());
    EXPECT_TRUE(options.IsSecondDisplayFlag());
    EXPECT_EQ(COpzTri::TRI_COLOR_FIXED, options.GetColorType());
    // No classes stored: the default graded table of colours 1, 2, 3.
    dtm_test::ExpectDefaultIniColorClasses(options.GetColorClasses());
}

TEST_F(OpzTriTest, DefaultConstructionReadsEveryKey) {
    {
        CIniFile ini;
        ini.WriteBool(kSection, "AddSta", false);
        ini.WriteBool(kSection, "AddBaseGps", true);
        ini.WriteBool(kSection, "CheckVncs", false);
        ini.WriteBool(kSection, "CheckVrtInCntE", true);
        ini.WriteBool(kSection, "CheckVrtInCntI", false);
        ini.WriteBool(kSection, "CheckTriInCntE", true);
        ini.WriteBool(kSection, "CheckTriInCntI", false);
        ini.WriteDouble(kSection, "DmC2", 2.5);
        ini.WriteDouble(kSection, "TriSlFct", 0.125);
        ini.WriteShort(kSection, "ClCo3", 12);
        ini.WriteShort(kSection, "ClCo4", -34);
        ini.WriteLong(kSection, "TriSymb", 2);
        ini.WriteBool(kSection, "ClAt3", false);
        ini.WriteBool(kSection, "ClAt4", true);
        ini.WriteLong(kSection, "TriClrType", 2);
        dtm_test::WriteIniCustomClasses(ini, "TriGrCol", 3, {{100.5, 40}, {200.5, 41}});
    }
    const COpzTri options;
    EXPECT_FALSE(options.IsAddStations());
    EXPECT_TRUE(options.IsAddBasePoints());
    EXPECT_FALSE(options.IsCheckBreaklines());
    EXPECT_TRUE(options.IsCheckVrtInCntE());
    EXPECT_FALSE(options.IsCheckVrtInCntI());
    EXPECT_TRUE(options.IsCheckTriInCntE());
    EXPECT_FALSE(options.IsCheckTriInCntI());
    EXPECT_EQ(2.5, options.GetTextHeight());
    EXPECT_EQ(0.125, options.GetScaleFactor());
    EXPECT_EQ(12, options.GetFixedColor());
    EXPECT_EQ(-34, options.GetLayerColor());
    EXPECT_EQ(COpzTri::TRI_SYMBOL_2, options.GetSymbol());
    EXPECT_FALSE(options.IsFirstDisplayFlag());
    EXPECT_TRUE(options.IsSecondDisplayFlag());
    EXPECT_EQ(COpzTri::TRI_COLOR_BY_CLOUD, options.GetColorType());
    dtm_test::ExpectCustomClasses(options.GetColorClasses(), 3, {{100.5, 40}, {200.5, 41}});
}

TEST_F(OpzTriTest, ColorTypeFallsBackToByLayerKey) {
    struct Case {
        const char* type;     // "TriClrType", null when absent
        const char* byLayer;  // "TriClrByLayer", null when absent
        COpzTri::enumTriColorType expected;
    };
    const Case cases[] = {
        {nullptr, nullptr, COpzTri::TRI_COLOR_FIXED},
        {nullptr, "1", COpzTri::TRI_COLOR_FIXED},
        {nullptr, "0", COpzTri::TRI_COLOR_BY_CLASSES},
        {"not a number", "0", COpzTri::TRI_COLOR_BY_CLASSES},
        {"0", "0", COpzTri::TRI_COLOR_FIXED},
        {"1", "1", COpzTri::TRI_COLOR_BY_CLASSES},
        {"2", "0", COpzTri::TRI_COLOR_BY_CLOUD},
    };
    for (const Case& test : cases) {
        dtm_test::TempDir dir;
        CIniFile::SetDefaultPath(dir.File("case.ini"));
        CIniFile ini;
        if (test.type) ini.WriteString(kSection, "TriClrType", test.type);
        if (test.byLayer) ini.WriteString(kSection, "TriClrByLayer", test.byLayer);
        const COpzTri options;
        EXPECT_EQ(test.expected, options.GetColorType())
            << (test.type ? test.type : "-") << " / " << (test.byLayer ? test.byLayer : "-");
    }
}

TEST_F(OpzTriTest, SymbolOutsideZeroToThreeReadsAsOne) {
    for (long stored : {-1L, 4L, 100L, -2147483647L - 1}) {
        CIniFile().WriteLong(kSection, "TriSymb", stored);
        EXPECT_EQ(COpzTri::TRI_SYMBOL_1, COpzTri().GetSymbol()) << stored;
    }
    for (long stored : {0L, 1L, 2L, 3L}) {
        CIniFile().WriteLong(kSection, "TriSymb", stored);
        EXPECT_EQ(stored, COpzTri().GetSymbol()) << stored;
    }
}

TEST_F(OpzTriTest, MalformedIniValuesFallBackToDefaults) {
    {
        CIniFile ini;
        ini.WriteString(kSection, "AddSta", "maybe");
        ini.WriteString(kSection, "AddBaseGps", "maybe");
        ini.WriteString(kSection, "DmC2", "tall");
        ini.WriteString(kSection, "TriSlFct", "1,5");
        ini.WriteString(kSection, "ClCo3", "red");
        ini.WriteString(kSection, "ClCo4", "70000");  // outside 16 bits
        ini.WriteString(kSection, "TriSymb", "two");
        ini.WriteString(kSection, "ClAt3", "perhaps");
    }
    const COpzTri options;
    EXPECT_TRUE(options.IsAddStations());
    EXPECT_FALSE(options.IsAddBasePoints());
    EXPECT_EQ(1.0, options.GetTextHeight());
    EXPECT_EQ(1.0, options.GetScaleFactor());
    EXPECT_EQ(7, options.GetFixedColor());
    EXPECT_EQ(7, options.GetLayerColor());
    EXPECT_EQ(COpzTri::TRI_SYMBOL_0, options.GetSymbol());
    EXPECT_TRUE(options.IsFirstDisplayFlag());
}

TEST_F(OpzTriTest, IniRoundTripKeepsEveryOptionButCollections) {
    const COpzTri written = Sample();
    written.SetInIni();
    const COpzTri read;  // a fresh object reads the INI file
    COpzTri expected = written;
    expected.SetPointCollections({});  // not kept in the INI file
    ExpectSameOptions(expected, read);
}

TEST_F(OpzTriTest, IniRoundTripOfEachColorType) {
    for (COpzTri::enumTriColorType type :
         {COpzTri::TRI_COLOR_FIXED, COpzTri::TRI_COLOR_BY_CLASSES, COpzTri::TRI_COLOR_BY_CLOUD}) {
        COpzTri written;
        written.SetColorType(type);
        written.SetInIni();
        EXPECT_EQ(type, COpzTri().GetColorType());
        // The older key agrees, so an INI file without "TriClrType" still reads sensibly.
        CIniFile ini;
        EXPECT_EQ(type != COpzTri::TRI_COLOR_BY_CLASSES,
                  ini.GetBool(kSection, "TriClrByLayer", type == COpzTri::TRI_COLOR_BY_CLASSES));
        EXPECT_EQ(type, ini.GetLong(kSection, "TriClrType", -1));
    }
}

TEST_F(OpzTriTest, GetDaIniKeepsPointCollections) {
    COpzTri options = Sample();
    options.GetDaIni();
    EXPECT_EQ(Sample().GetPointCollections(), options.GetPointCollections());
    EXPECT_EQ(1.0, options.GetTextHeight());
}

TEST_F(OpzTriTest, CopyDoesNotReadIni) {
    dtm_test::ExpectCopyIgnoresIni(Sample(), "DmC2");
}

// ---------------------------------------------------------------------------------------------
// Setters

TEST_F(OpzTriTest, SetAutoTriOptionsSetsSevenTriangulationFlagsInOrder) {
    COpzTri options;
    const std::vector<Collection> collections = {ByName(1, "a"), ById(2, 3)};
    // One flag false at a time shows which argument lands where.
    for (int off = 0; off < 7; ++off) {
        options.SetFirstDisplayFlag(false);
        options.SetSecondDisplayFlag(true);
        options.SetAutoTriOptions(collections, off != 0, off != 1, off != 2, off != 3, off != 4,
                                  off != 5, off != 6, COpzTri::TRI_COLOR_BY_CLOUD, 5, 6,
                                  SampleColorClasses(), COpzTri::TRI_SYMBOL_2, 3.5, 4.5);
        EXPECT_EQ(off != 0, options.IsAddStations()) << off;
        EXPECT_EQ(off != 1, options.IsAddBasePoints()) << off;
        EXPECT_EQ(off != 2, options.IsCheckBreaklines()) << off;
        EXPECT_EQ(off != 3, options.IsCheckVrtInCntE()) << off;
        EXPECT_EQ(off != 4, options.IsCheckVrtInCntI()) << off;
        EXPECT_EQ(off != 5, options.IsCheckTriInCntE()) << off;
        EXPECT_EQ(off != 6, options.IsCheckTriInCntI()) << off;
        // The display flags are not among the seven.
        EXPECT_FALSE(options.IsFirstDisplayFlag());
        EXPECT_TRUE(options.IsSecondDisplayFlag());
    }
    EXPECT_EQ(collections, options.GetPointCollections());
    EXPECT_EQ(COpzTri::TRI_COLOR_BY_CLOUD, options.GetColorType());
    EXPECT_EQ(5, options.GetFixedColor());
    EXPECT_EQ(6, options.GetLayerColor());
    EXPECT_TRUE(SampleColorClasses() == options.GetColorClasses());
    EXPECT_EQ(COpzTri::TRI_SYMBOL_2, options.GetSymbol());
    EXPECT_EQ(3.5, options.GetTextHeight());
    EXPECT_EQ(4.5, options.GetScaleFactor());
}

TEST_F(OpzTriTest, ColorClassesCanBeEditedInPlace) {
    dtm_test::ExpectColorClassesEditableInPlace<COpzTri>();
}

TEST(PointCollectionIdentifier, EqualityComparesOnlyTheFieldsOfItsKind) {
    Collection a = ByName(1, "x");
    Collection b = a;
    b.secondId = 77;  // unused by a by-name collection
    EXPECT_EQ(a, b);
    b.name = "y";
    EXPECT_NE(a, b);
    Collection c = ById(1, 2);
    Collection d = c;
    d.name = "ignored";
    EXPECT_EQ(c, d);
    d.secondId = 3;
    EXPECT_NE(c, d);
    EXPECT_NE(ById(1, 2), ById(2, 2));
    EXPECT_NE(ByName(1, ""), ById(1, 0));
}

// ---------------------------------------------------------------------------------------------
// Automatic-triangulation group

/// What a read of @p written's automatic-triangulation group into @p target gives at @p version.
COpzTri ExpectedAfterAutoTriRead(const COpzTri& written, const COpzTri& target, short version) {
    COpzTri expected = target;
    expected.SetAddStations(written.IsAddStations());
    expected.SetCheckBreaklines(written.IsCheckBreaklines());
    expected.SetCheckVrtInCntE(written.IsCheckVrtInCntE());
    expected.SetCheckVrtInCntI(written.IsCheckVrtInCntI());
    expected.SetCheckTriInCntE(written.IsCheckTriInCntE());
    expected.SetCheckTriInCntI(written.IsCheckTriInCntI());
    if (version >= 720) expected.SetAddBasePoints(written.IsAddBasePoints());
    if (version >= 812) expected.SetPointCollections(written.GetPointCollections());
    return expected;
}

/// What a read of @p written's display group into @p target gives at @p version.
COpzTri ExpectedAfterDisplayRead(const COpzTri& written, const COpzTri& target, short version) {
    COpzTri expected = target;
    expected.SetFirstDisplayFlag(written.IsFirstDisplayFlag());
    expected.SetFixedColor(written.GetFixedColor());
    expected.SetSecondDisplayFlag(written.IsSecondDisplayFlag());
    expected.SetLayerColor(written.GetLayerColor());
    if (version < 800) {
        expected.SetSymbol(COpzTri::TRI_SYMBOL_1);
        expected.SetColorType(COpzTri::TRI_COLOR_FIXED);
        return expected;
    }
    expected.SetColorType(written.GetColorType());
    expected.SetColorClasses(written.GetColorClasses());
    expected.SetSymbol(written.GetSymbol());
    expected.SetTextHeight(written.GetTextHeight());
    expected.SetScaleFactor(written.GetScaleFactor());
    return expected;
}

class OpzTriStreamTest : public OpzTriTest, public ::testing::WithParamInterface<short> {};

TEST_P(OpzTriStreamTest, AutoTriGroupRoundTrip) {
    const short version = GetParam();
    const COpzTri written = Sample();
    const std::string bytes = WriteToBytes(written, &COpzTri::SalvaInFile, version);
    COpzTri read = Target();
    const ReadOutcome outcome = ReadFromBytes(read, &COpzTri::LeggeDaFile, bytes, version, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
    ExpectSameOptions(ExpectedAfterAutoTriRead(written, Target(), version), read);
    EXPECT_EQ(bytes, WriteToBytes(read, &COpzTri::SalvaInFile, version));
}

TEST_P(OpzTriStreamTest, DisplayGroupRoundTrip) {
    const short version = GetParam();
    const COpzTri written = Sample();
    const std::string bytes = WriteToBytes(written, &COpzTri::SalvaVisInFile, version);
    COpzTri read = Target();
    const ReadOutcome outcome = ReadFromBytes(read, &COpzTri::LeggeVisDaFile, bytes, version, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
    ExpectSameOptions(ExpectedAfterDisplayRead(written, Target(), version), read);
}

TEST_P(OpzTriStreamTest, ApplyFalseConsumesTheSameBytesAndChangesNothing) {
    const short version = GetParam();
    for (const Group& group : kGroups)
        dtm_test::ExpectApplyFalseChangesNothing(Sample(), Target(), group, version);
}

TEST_P(OpzTriStreamTest, TruncatedGroupsFailAndChangeNothing) {
    const short version = GetParam();
    const COpzTri written = Sample();
    for (const Group& group : kGroups) {
        const std::string bytes = WriteToBytes(written, group.writer, version);
        for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
            COpzTri read = Target();
            const ReadOutcome outcome =
                ReadFromBytes(read, group.reader, bytes.substr(0, cut), version, true);
            EXPECT_FALSE(outcome.streamGood) << group.name << " cut " << cut;
            ExpectSameOptions(Target(), read);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Versions, OpzTriStreamTest,
                         ::testing::Values(short{600}, short{690}, short{700}, short{720},
                                           short{799}, short{800}, short{811}, short{812},
                                           short{1501}, short{1502}));

TEST_F(OpzTriTest, AutoTriGroupWritesTheDocumentedLayout) {
    const COpzTri options = Sample();
    // Flags of Sample(): stations F, base T, breaklines F, VrtE T, VrtI F, TriE T, TriI F.
    const ByteBuilder flags = ByteBuilder().Int32(0).Int32(1).Int32(0).Int32(1).Int32(0);
    EXPECT_EQ(ByteBuilder().Int32(0).Int32(0).Int32(0).Append(flags).Str(),
              WriteToBytes(options, &COpzTri::SalvaInFile, 689));
    EXPECT_EQ(ByteBuilder().Int32(0).Int32(0).Int32(0).Append(flags).Int32(0).Str(),
              WriteToBytes(options, &COpzTri::SalvaInFile, 719));
    EXPECT_EQ(
        ByteBuilder().Int32(0).Int32(0).Int32(0).Append(flags).Int32(0).Int32(0).Int32(1).Str(),
        WriteToBytes(options, &COpzTri::SalvaInFile, 811));
    const std::string expected = ByteBuilder()
                                     .Int32(0)
                                     .Int32(1)
                                     .Append(flags)
                                     .Int32(4)
                                     .Int32(17)
                                     .Int32(1)
                                     .Int32(9)
                                     .Bytes("Survey A", 9)  // with its terminating zero
                                     .Int32(-3)
                                     .Int32(0)
                                     .Int32(99)
                                     .Int32(0)
                                     .Int32(1)
                                     .Int32(1)
                                     .Bytes("", 1)
                                     .Int32(5)
                                     .Int32(1)
                                     .Int32(10)
                                     .Bytes("with\0zero", 10)
                                     .Str();
    EXPECT_EQ(expected, WriteToBytes(options, &COpzTri::SalvaInFile, 812));
}

TEST_F(OpzTriTest, ReadsHandAssembledCurrentAutoTriGroup) {
    const std::string bytes = ByteBuilder()
                                  .Int32(2)   // add stations: > 0 is true
                                  .Int32(-1)  // add base points: false
                                  .Int32(0)
                                  .Int32(7)
                                  .Int32(1)
                                  .Int32(0)
                                  .Int32(3)
                                  .Int32(6)  // collections
                                  .Int32(10)
                                  .Int32(1)
                                  .Int32(4)
                                  .Bytes("abc", 4)  // trailing zero dropped
                                  .Int32(11)
                                  .Int32(1)
                                  .Int32(3)
                                  .Bytes("xyz")  // no trailing zero: kept whole
                                  .Int32(12)
                                  .Int32(1)
                                  .Int32(0)  // empty name, no bytes
                                  .Int32(13)
                                  .Int32(0)
                                  .Int32(-44)  // second identifier
                                  .Int32(14)
                                  .Int32(2)  // by-name flag 2 is true
                                  .Int32(3)
                                  .Bytes("q\0\0", 3)  // only one trailing zero is dropped
                                  .Int32(15)
                                  .Int32(-1)  // by-name flag -1 is false
                                  .Int32(8)
                                  .Str() +
                              "after";
    COpzTri read = Target();
    const ReadOutcome outcome = ReadFromBytes(read, &COpzTri::LeggeDaFile, bytes, 812, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size() - 5), outcome.consumed);
    EXPECT_TRUE(read.IsAddStations());
    EXPECT_FALSE(read.IsAddBasePoints());
    EXPECT_FALSE(read.IsCheckBreaklines());
    EXPECT_TRUE(read.IsCheckVrtInCntE());
    EXPECT_TRUE(read.IsCheckVrtInCntI());
    EXPECT_FALSE(read.IsCheckTriInCntE());
    EXPECT_TRUE(read.IsCheckTriInCntI());
    const std::vector<Collection>& items = read.GetPointCollections();
    ASSERT_EQ(6u, items.size());
    EXPECT_EQ(10, items[0].id);
    EXPECT_TRUE(items[0].byName);
    EXPECT_EQ("abc", items[0].name.str());
    EXPECT_EQ("xyz", items[1].name.str());
    EXPECT_TRUE(items[2].byName);
    EXPECT_EQ("", items[2].name.str());
    EXPECT_EQ(13, items[3].id);
    EXPECT_FALSE(items[3].byName);
    EXPECT_EQ(-44, items[3].secondId);
    EXPECT_TRUE(items[4].byName);
    EXPECT_EQ(std::string("q\0", 2), items[4].name.str());
    EXPECT_EQ(15, items[5].id);
    EXPECT_FALSE(items[5].byName);
    EXPECT_EQ(8, items[5].secondId);
    // Display options are not part of this group.
    EXPECT_EQ(Target().GetTextHeight(), read.GetTextHeight());
    EXPECT_EQ(Target().GetColorType(), read.GetColorType());
}

TEST_F(OpzTriTest, ReadsHandAssembledLegacyAutoTriGroups) {
    struct Case {
        short version;
        int tailValues;  // int32 values after the five check flags
        bool basePointsRead;
    };
    for (const Case& test : {Case{689, 0, false}, Case{690, 1, false}, Case{719, 1, false},
                             Case{720, 3, true}, Case{811, 3, true}}) {
        ByteBuilder bytes;
        bytes.Int32(0).Int32(1).Int32(1).Int32(0).Int32(1).Int32(0).Int32(1).Int32(0);
        if (test.tailValues >= 1) bytes.Int32(1);           // unused value
        if (test.tailValues >= 3) bytes.Int32(1).Int32(5);  // unused, then add base points
        COpzTri read = Target();                            // add base points false, one collection
        const ReadOutcome outcome =
            ReadFromBytes(read, &COpzTri::LeggeDaFile, bytes.Str() + "after", test.version, true);
        EXPECT_TRUE(outcome.streamGood) << test.version;
        EXPECT_EQ(static_cast<std::streamoff>(bytes.Size()), outcome.consumed) << test.version;
        EXPECT_FALSE(read.IsAddStations()) << test.version;
        EXPECT_FALSE(read.IsCheckBreaklines()) << test.version;  // the two skipped came first
        EXPECT_TRUE(read.IsCheckVrtInCntE()) << test.version;
        EXPECT_FALSE(read.IsCheckVrtInCntI()) << test.version;
        EXPECT_TRUE(read.IsCheckTriInCntE()) << test.version;
        EXPECT_FALSE(read.IsCheckTriInCntI()) << test.version;
        EXPECT_EQ(test.basePointsRead, read.IsAddBasePoints()) << test.version;
        EXPECT_EQ(Target().GetPointCollections(), read.GetPointCollections()) << test.version;
    }
}

TEST_F(OpzTriTest, CollectionCountOfZeroOrLessGivesNoCollections) {
    for (std::int32_t count : {0, -1, -2147483647 - 1}) {
        const std::string bytes = ByteBuilder()
                                      .Int32(1)
                                      .Int32(1)
                                      .Int32(1)
                                      .Int32(1)
                                      .Int32(1)
                                      .Int32(1)
                                      .Int32(1)
                                      .Int32(count)
                                      .Str();
        COpzTri read = Target();
        const ReadOutcome outcome =
            ReadFromBytes(read, &COpzTri::LeggeDaFile, bytes + "x", 812, true);
        EXPECT_TRUE(outcome.streamGood) << count;
        EXPECT_EQ(32, outcome.consumed) << count;
        EXPECT_TRUE(read.GetPointCollections().empty()) << count;
    }
}

ByteBuilder CurrentFlags() {
    return ByteBuilder().Int32(1).Int32(1).Int32(1).Int32(1).Int32(1).Int32(1).Int32(1);
}

TEST_F(OpzTriTest, NameLengthBelowOneIsAnEmptyNameWithNoBytes) {
    for (const std::int32_t length : {0, -1, -2147483647 - 1}) {
        const std::string bytes = CurrentFlags()
                                      .Int32(2)
                                      .Int32(1)
                                      .Int32(1)
                                      .Int32(length)  // no name bytes follow
                                      .Int32(5)
                                      .Int32(0)
                                      .Int32(-9)
                                      .Str();
        for (bool apply : {true, false}) {
            COpzTri read = Target();
            const ReadOutcome outcome =
                ReadFromBytes(read, &COpzTri::LeggeDaFile, bytes + "after", 812, apply);
            EXPECT_TRUE(outcome.streamGood) << length;
            EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed) << length;
            if (!apply) {
                ExpectSameOptions(Target(), read);
                continue;
            }
            const std::vector<Collection>& items = read.GetPointCollections();
            ASSERT_EQ(2u, items.size()) << length;
            EXPECT_EQ(1, items[0].id);
            EXPECT_TRUE(items[0].byName);
            EXPECT_EQ("", items[0].name.str());
            EXPECT_EQ(5, items[1].id);
            EXPECT_FALSE(items[1].byName);
            EXPECT_EQ(-9, items[1].secondId);
        }
    }
}

TEST_F(OpzTriTest, CorruptCountsStopAtTheEndOfTheStream) {
    // Counts and lengths of two thousand million with a few bytes behind them: the reader must
    // fail at the stream's end without reserving room for them.
    const std::string hugeCount = CurrentFlags().Int32(0x7FFFFFFF).Int32(1).Int32(0).Int32(2).Str();
    const std::string hugeName =
        CurrentFlags().Int32(1).Int32(1).Int32(1).Int32(0x7FFFFFFF).Bytes("short").Str();
    for (const std::string& bytes : {hugeCount, hugeName}) {
        COpzTri read = Target();
        const ReadOutcome outcome = ReadFromBytes(read, &COpzTri::LeggeDaFile, bytes, 1502, true);
        EXPECT_FALSE(outcome.streamGood);
        EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
        ExpectSameOptions(Target(), read);
    }
}

// ---------------------------------------------------------------------------------------------
// Display group

TEST_F(OpzTriTest, DisplayGroupWritesTheDocumentedLayout) {
    const COpzTri options = Sample();  // first F, fixed 12, second T, layer 34
    const ByteBuilder head = ByteBuilder().Int32(0).Int16(12).Int32(1).Int16(34);
    const ByteBuilder tail =
        dtm_test::ColorClassesSection(SampleColorClasses()).Int32(3).Double(2.5).Double(0.75);
    EXPECT_EQ(head.Str(), WriteToBytes(options, &COpzTri::SalvaVisInFile, 799));
    // Colour type 1 (by classes) is not by layer: flag 0.
    EXPECT_EQ(ByteBuilder().Append(head).Int32(0).Append(tail).Str(),
              WriteToBytes(options, &COpzTri::SalvaVisInFile, 1501));
    EXPECT_EQ(ByteBuilder().Append(head).Int16(1).Append(tail).Str(),
              WriteToBytes(options, &COpzTri::SalvaVisInFile, 1502));
    COpzTri cloud = options;
    cloud.SetColorType(COpzTri::TRI_COLOR_BY_CLOUD);
    EXPECT_EQ(ByteBuilder().Append(head).Int32(1).Append(tail).Str(),
              WriteToBytes(cloud, &COpzTri::SalvaVisInFile, 800));
}

TEST_F(OpzTriTest, ReadsHandAssembledOldDisplayGroup) {
    const std::string bytes = ByteBuilder().Int32(5).Int16(-2).Int32(0).Int16(300).Str();
    COpzTri read = Target();
    const ReadOutcome outcome =
        ReadFromBytes(read, &COpzTri::LeggeVisDaFile, bytes + "next", 799, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(12, outcome.consumed);
    EXPECT_TRUE(read.IsFirstDisplayFlag());
    EXPECT_EQ(-2, read.GetFixedColor());
    EXPECT_FALSE(read.IsSecondDisplayFlag());
    EXPECT_EQ(300, read.GetLayerColor());
    EXPECT_EQ(COpzTri::TRI_SYMBOL_1, read.GetSymbol());
    EXPECT_EQ(COpzTri::TRI_COLOR_FIXED, read.GetColorType());
    // Not in old documents: kept.
    EXPECT_TRUE(Target().GetColorClasses() == read.GetColorClasses());
    EXPECT_EQ(Target().GetTextHeight(), read.GetTextHeight());
    EXPECT_EQ(Target().GetScaleFactor(), read.GetScaleFactor());
}

TEST_F(OpzTriTest, ReadsHandAssembledByLayerDisplayGroup) {
    struct Case {
        std::int32_t byLayer;
        COpzTri::enumTriColorType expected;
    };
    for (const Case& test :
         {Case{1, COpzTri::TRI_COLOR_FIXED}, Case{2, COpzTri::TRI_COLOR_FIXED},
          Case{0, COpzTri::TRI_COLOR_BY_CLASSES}, Case{-1, COpzTri::TRI_COLOR_BY_CLASSES}}) {
        const std::string bytes = ByteBuilder()
                                      .Int32(0)
                                      .Int16(21)
                                      .Int32(1)
                                      .Int16(22)
                                      .Int32(test.byLayer)
                                      .UInt32(9)  // unclamped step count
                                      .Int32(1)
                                      .Int32(2)
                                      .Double(1.5)
                                      .Int32(31)
                                      .Double(2.5)
                                      .Int32(32)
                                      .Int32(2)  // symbol
                                      .Double(4.25)
                                      .Double(-0.5)
                                      .Str();
        COpzTri read = Target();
        const ReadOutcome outcome =
            ReadFromBytes(read, &COpzTri::LeggeVisDaFile, bytes, 1501, true);
        EXPECT_TRUE(outcome.streamGood);
        EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
        EXPECT_FALSE(read.IsFirstDisplayFlag());
        EXPECT_EQ(21, read.GetFixedColor());
        EXPECT_TRUE(read.IsSecondDisplayFlag());
        EXPECT_EQ(22, read.GetLayerColor());
        EXPECT_EQ(test.expected, read.GetColorType()) << test.byLayer;
        dtm_test::ExpectCustomClasses(read.GetColorClasses(), 9, {{1.5, 31}, {2.5, 32}});
        EXPECT_EQ(COpzTri::TRI_SYMBOL_2, read.GetSymbol());
        EXPECT_EQ(4.25, read.GetTextHeight());
        EXPECT_EQ(-0.5, read.GetScaleFactor());
        // The automatic-triangulation options are not part of this group.
        EXPECT_EQ(Target().GetPointCollections(), read.GetPointCollections());
    }
}

TEST_F(OpzTriTest, ReadsHandAssembledCurrentDisplayGroup) {
    for (std::int16_t type : {std::int16_t{0}, std::int16_t{1}, std::int16_t{2}, std::int16_t{7}}) {
        const std::string bytes = ByteBuilder()
                                      .Int32(1)
                                      .Int16(5)
                                      .Int32(0)
                                      .Int16(6)
                                      .Int16(type)
                                      .UInt32(0)
                                      .Int32(0)
                                      .Int32(0)
                                      .Int32(3)
                                      .Double(0.0)
                                      .Double(1e10)
                                      .Str();
        COpzTri read = Target();
        const ReadOutcome outcome =
            ReadFromBytes(read, &COpzTri::LeggeVisDaFile, bytes, 1502, true);
        EXPECT_TRUE(outcome.streamGood);
        EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
        EXPECT_TRUE(read.IsFirstDisplayFlag());
        EXPECT_EQ(5, read.GetFixedColor());
        EXPECT_FALSE(read.IsSecondDisplayFlag());
        EXPECT_EQ(6, read.GetLayerColor());
        EXPECT_EQ(type, read.GetColorType());  // kept as read, unknown types included
        EXPECT_EQ(0u, read.GetColorClasses().GetNoClasses());
        EXPECT_EQ(0u, read.GetColorClasses().GetNoSteps());
        EXPECT_EQ(COpzTri::TRI_SYMBOL_3, read.GetSymbol());
        EXPECT_EQ(0.0, read.GetTextHeight());
        EXPECT_EQ(1e10, read.GetScaleFactor());
    }
}

TEST_F(OpzTriTest, StreamSymbolOutsideZeroToThreeReadsAsOne) {
    for (std::int32_t symbol : {4, -1, 1000, 0, 3}) {
        const std::string bytes = ByteBuilder()
                                      .Int32(1)
                                      .Int16(5)
                                      .Int32(1)
                                      .Int16(6)
                                      .Int16(1)
                                      .Append(dtm_test::ColorClassesSection(SampleColorClasses()))
                                      .Int32(symbol)
                                      .Double(1.0)
                                      .Double(1.0)
                                      .Str();
        COpzTri read = Target();
        ReadFromBytes(read, &COpzTri::LeggeVisDaFile, bytes, 1502, true);
        const bool known = symbol >= 0 && symbol <= 3;
        EXPECT_EQ(known ? symbol : 1, read.GetSymbol()) << symbol;
    }
}

TEST_F(OpzTriTest, CloudColorTypeBeforeInt16FormatReadsBackAsFixed) {
    // Older documents hold only a by-layer flag: the cloud type is written as by layer.
    COpzTri written = Sample();
    written.SetColorType(COpzTri::TRI_COLOR_BY_CLOUD);
    COpzTri read = Target();
    ReadFromBytes(read, &COpzTri::LeggeVisDaFile,
                  WriteToBytes(written, &COpzTri::SalvaVisInFile, 1501), 1501, true);
    EXPECT_EQ(COpzTri::TRI_COLOR_FIXED, read.GetColorType());
    ReadFromBytes(read, &COpzTri::LeggeVisDaFile,
                  WriteToBytes(written, &COpzTri::SalvaVisInFile, 1502), 1502, true);
    EXPECT_EQ(COpzTri::TRI_COLOR_BY_CLOUD, read.GetColorType());
}

}  // namespace
