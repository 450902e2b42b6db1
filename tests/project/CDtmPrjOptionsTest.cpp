#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CDtmPrjOpz.h>
#include <dtm/support/IniFile.h>
#include <dtm/support/Streams.h>

#include <gtest/gtest.h>

#include "ByteBuilder.h"
#include "OptionsChecks.h"
#include "Probes.h"
#include "RecordedProjectTest.h"
#include "StreamBytes.h"
#include "TempIni.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using dtm_test::ByteBuilder;
using dtm_test::ColorClassesSection;
using dtm_test::ExpectSameOptions;
using dtm_test::ProjectEventSnapshot;
using dtm_test::ReadOutcome;

const char* const kSection = "CURVE";

// ---------------------------------------------------------------------------------------------
// Helpers

/// Every test gets a fresh INI file, so that the options a new project reads are the defaults
/// unless the test wrote others; and a project without library whose events are recorded.
class PrjOptionsTest : public dtm_test::RecordedProjectTest {
protected:
    dtm_test::TempIni ini;
};

/// Every option a project gathers, copied out of it.
struct Options {
    COpzTri tri;
    COpzCvLv cvlv;
    CDtmPrjOpz block;
};

Options OptionsOf(const CDtmPrj& project) {
    return {project.GetTris()->GetOptions(), project.GetCvLvs()->GetOpzCvLv(), project.GetPrjOpz()};
}

CColorClassComputer TriClasses() {
    CColorClassComputer classes;
    classes.AddEntry(0, -2.5, 15);
    classes.AddEntry(1, 12.75, 25);
    classes.AddEntry(2, 40.0, 35);
    classes.SetNoSteps(3);
    return classes;
}

CColorClassComputer CvLvClasses() {
    CColorClassComputer classes;
    classes.AddEntry(0, 4);
    classes.AddEntry(1, 5);
    classes.SetNoSteps(1);
    return classes;
}

/// Puts every option of @p project away from its default, by plain stores. The network colours
/// by classes, the one colour type that every version from 800 keeps; the strings have no
/// blanks at their ends, which the INI file would trim.
void SetSampleOptions(CDtmPrj& project) {
    project.GetPrjOpz().Set(false, true, false, 12, -3, 256);

    TDtmPointCollectionIdentifier byName;
    byName.id = 5;
    byName.byName = true;
    byName.name = "rilievo";
    TDtmPointCollectionIdentifier byId;
    byId.id = 6;
    byId.secondId = 42;
    COpzTri& tri = project.GetTris()->GetOptions();
    tri.SetAutoTriOptions({byName, byId}, false, true, false, false, true, false, true,
                          COpzTri::TRI_COLOR_BY_CLASSES, 33, 44, TriClasses(),
                          COpzTri::TRI_SYMBOL_2, 2.5, 0.75);
    tri.SetFirstDisplayFlag(false);
    tri.SetSecondDisplayFlag(true);

    COpzCvLv& cvlv = project.GetCvLvs()->GetOpzCvLv();
    cvlv.SetInterval1(2.5);
    cvlv.SetInterval2(10.0);
    cvlv.SetTension(0.25);
    cvlv.SetContourFlag(true);
    cvlv.SetTextOptions(1.75, 0.5, 2, "Q=", "m", TEXT_VALIGN_2, TEXT_ORIENTATION_1);
    cvlv.SetVisOptions(false, true, true, false, false, 11, 300, 40000, 0, CvLvClasses());
}

void ExpectSameBlock(const CDtmPrjOpz& expected, const CDtmPrjOpz& actual) {
    EXPECT_EQ(expected.IsVncActive(), actual.IsVncActive());
    EXPECT_EQ(expected.IsCntActive(0), actual.IsCntActive(0));
    EXPECT_EQ(expected.IsCntActive(1), actual.IsCntActive(1));
    EXPECT_EQ(expected.GetVncColor(), actual.GetVncColor());
    EXPECT_EQ(expected.GetCntColor(0), actual.GetCntColor(0));
    EXPECT_EQ(expected.GetCntColor(1), actual.GetCntColor(1));
    EXPECT_TRUE(expected == actual);
}

void ExpectSameOptions(const Options& expected, const Options& actual) {
    ExpectSameOptions(expected.tri, actual.tri);
    ExpectSameOptions(expected.cvlv, actual.cvlv);
    ExpectSameBlock(expected.block, actual.block);
}

/// What reading the section that @p written gives at @p version makes of @p target, stated
/// from the documented layout rather than from the readers.
Options ExpectedAfterRead(const Options& written, const Options& target, short version) {
    Options expected = target;
    COpzTri& tri = expected.tri;
    const COpzTri& from = written.tri;
    tri.SetAddStations(from.IsAddStations());
    // From 720 in the legacy tail, then in a field of its own.
    if (version >= 720) tri.SetAddBasePoints(from.IsAddBasePoints());
    tri.SetCheckBreaklines(from.IsCheckBreaklines());
    tri.SetCheckVrtInCntE(from.IsCheckVrtInCntE());
    tri.SetCheckVrtInCntI(from.IsCheckVrtInCntI());
    tri.SetCheckTriInCntE(from.IsCheckTriInCntE());
    tri.SetCheckTriInCntI(from.IsCheckTriInCntI());
    if (version >= 812) tri.SetPointCollections(from.GetPointCollections());
    tri.SetFirstDisplayFlag(from.IsFirstDisplayFlag());
    tri.SetSecondDisplayFlag(from.IsSecondDisplayFlag());
    tri.SetFixedColor(from.GetFixedColor());
    tri.SetLayerColor(from.GetLayerColor());

    COpzCvLv& cvlv = expected.cvlv;
    for (unsigned i = 0; i < COpzCvLv::kCategoryCount; ++i) {
        cvlv.SetCategoryOn(i, written.cvlv.IsCategoryOn(i));
        cvlv.SetCategoryColor(i, written.cvlv.GetCategoryColor(i));
    }
    expected.block = written.block;

    if (version < 800) {
        // One text height for both, from the contour options; the rest of the label settings
        // fall back to fixed values; the network always showed labels and coloured by layer.
        const double height = written.cvlv.GetTextHeight();
        cvlv.SetTextOptions(height, height, written.cvlv.GetDecimals(), "", "", TEXT_VALIGN_CENTRED,
                            TEXT_ORIENTATION_0);
        tri.SetTextHeight(height);
        tri.SetSymbol(COpzTri::TRI_SYMBOL_1);
        tri.SetColorType(COpzTri::TRI_COLOR_FIXED);
        return expected;
    }
    tri.SetColorType(from.GetColorType());
    tri.SetColorClasses(from.GetColorClasses());
    tri.SetSymbol(from.GetSymbol());
    tri.SetTextHeight(from.GetTextHeight());
    tri.SetScaleFactor(from.GetScaleFactor());
    cvlv.SetColorByLayer(written.cvlv.IsColorByLayer());
    cvlv.SetColorClasses(written.cvlv.GetColorClasses());
    cvlv.SetTextOptions(written.cvlv.GetTextHeight(), written.cvlv.GetGap(),
                        written.cvlv.GetDecimals(), written.cvlv.GetPrefix(),
                        written.cvlv.GetSuffix(), written.cvlv.GetVAlignment(),
                        written.cvlv.GetOrientation());
    return expected;
}

std::string WriteSection(const CDtmPrj& project, short version) {
    return dtm_test::WriteToBytes(project, &CDtmPrj::SalvaOpzInFile, version);
}

ReadOutcome ReadSection(CDtmPrj& project, const std::string& bytes, short version, bool apply) {
    return dtm_test::ReadFromBytes(project, &CDtmPrj::LeggeOpzDaFile, bytes, version, apply);
}

bool AllFourLayerKinds(const ProjectEventSnapshot& event) {
    return event.vncLayers && event.cntLayers && event.triLayers && event.cvLvLayers;
}

// ---------------------------------------------------------------------------------------------
// Display options block and its setters

TEST_F(PrjOptionsTest, NewProjectBlockHasTheDefaultsOfAnEmptyIni) {
    const CDtmPrjOpz& block = prj->GetPrjOpz();
    EXPECT_TRUE(block.IsVncActive());
    EXPECT_TRUE(block.IsCntActive(0));
    EXPECT_TRUE(block.IsCntActive(1));
    EXPECT_EQ(7, block.GetVncColor());
    EXPECT_EQ(7, block.GetCntColor(0));
    EXPECT_EQ(7, block.GetCntColor(1));
}

TEST_F(PrjOptionsTest, NewProjectReadsTheBlockFromTheIniFile) {
    {
        CIniFile file;
        file.WriteBool(kSection, "ClAt0", false);
        file.WriteBool(kSection, "ClAt1", true);
        file.WriteBool(kSection, "ClAt2", false);
        file.WriteShort(kSection, "ClCo0", 1);
        file.WriteShort(kSection, "ClCo1", -2);
        file.WriteShort(kSection, "ClCo2", 256);
    }
    CDtmPrj* other = NewProject();
    const CDtmPrjOpz& block = other->GetPrjOpz();
    EXPECT_FALSE(block.IsVncActive());
    EXPECT_TRUE(block.IsCntActive(0));
    EXPECT_FALSE(block.IsCntActive(1));
    EXPECT_EQ(1, block.GetVncColor());
    EXPECT_EQ(-2, block.GetCntColor(0));
    EXPECT_EQ(256, block.GetCntColor(1));
    EXPECT_TRUE(recorder.events.empty());  // reading options notifies nothing
}

TEST_F(PrjOptionsTest, SetVisOptionsWithNothingChangedSendsNothing) {
    prj->SetVisOptions(true, true, true, 7, 7, 7);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_EQ(0, recorder.opened);
}

TEST_F(PrjOptionsTest, SetVisOptionsNotifiesOnlyTheBreaklinePartWhenOnlyItChanged) {
    prj->SetVisOptions(false, true, true, 7, 7, 7);
    prj->SetVisOptions(false, true, true, 9, 7, 7);  // the colour alone counts as well
    ASSERT_EQ(2u, recorder.events.size());
    for (const ProjectEventSnapshot& event : recorder.events) {
        EXPECT_TRUE(event.vncLayers);
        EXPECT_FALSE(event.cntLayers);
        EXPECT_FALSE(event.triLayers);
        EXPECT_FALSE(event.cvLvLayers);
    }
    EXPECT_FALSE(prj->GetPrjOpz().IsVncActive());
    EXPECT_EQ(9, prj->GetPrjOpz().GetVncColor());
}

TEST_F(PrjOptionsTest, SetVisOptionsNotifiesOnlyTheBoundaryPartWhenOnlyItChanged) {
    struct Case {
        bool cnt0Active, cnt1Active;
        short cnt0Colour, cnt1Colour;
    };
    // Each of the four boundary values on its own marks the boundary layers.
    for (const Case& test : {Case{false, true, 7, 7}, Case{true, false, 7, 7},
                             Case{true, true, 8, 7}, Case{true, true, 7, 8}}) {
        recorder.events.clear();
        prj->SetVisOptions(true, test.cnt0Active, test.cnt1Active, 7, test.cnt0Colour,
                           test.cnt1Colour);
        ASSERT_EQ(1u, recorder.events.size());
        EXPECT_FALSE(recorder.events[0].vncLayers);
        EXPECT_TRUE(recorder.events[0].cntLayers);
        EXPECT_EQ(test.cnt0Active, prj->GetPrjOpz().IsCntActive(0));
        EXPECT_EQ(test.cnt1Active, prj->GetPrjOpz().IsCntActive(1));
        EXPECT_EQ(test.cnt0Colour, prj->GetPrjOpz().GetCntColor(0));
        EXPECT_EQ(test.cnt1Colour, prj->GetPrjOpz().GetCntColor(1));
        prj->SetVisOptions(true, true, true, 7, 7, 7);  // back, for the next case
    }
}

TEST_F(PrjOptionsTest, SetVisOptionsNotifiesBreaklinesThenBoundariesAfterStoringAll) {
    // A listener sees the values already stored when the first notification's event closes.
    struct StoredAtFirstClose : kor::CSourceEvent::IEvent {
        CDtmPrj* project = nullptr;
        std::vector<short> colours;
        void OnEventOpened(kor::CSourceEvent&) override {}
        void OnEventClosed(kor::CSourceEvent&) override {
            colours.push_back(project->GetPrjOpz().GetCntColor(1));
        }
    } stored;
    stored.project = prj;
    prj->GetContext()->Register(&stored);
    prj->SetVisOptions(false, false, false, 1, 2, 3);
    prj->GetContext()->Unregister(&stored);

    ASSERT_EQ(2u, recorder.events.size());  // each notification is an event of its own
    EXPECT_TRUE(recorder.events[0].vncLayers);
    EXPECT_FALSE(recorder.events[0].cntLayers);
    EXPECT_FALSE(recorder.events[1].vncLayers);
    EXPECT_TRUE(recorder.events[1].cntLayers);
    EXPECT_EQ((std::vector<short>{3, 3}), stored.colours);
}

TEST_F(PrjOptionsTest, SetVisOptionsInsideAHostEventMakesOneEvent) {
    prj->GetContext()->BeginEvent();
    prj->SetVisOptions(false, false, false, 1, 2, 3);
    prj->GetContext()->EndEvent();
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(recorder.events[0].vncLayers);
    EXPECT_TRUE(recorder.events[0].cntLayers);
}

TEST_F(PrjOptionsTest, SetVncActiveNotifiesOnlyWhenTheFlagChanges) {
    prj->SetVncActive(true);
    EXPECT_TRUE(recorder.events.empty());
    prj->SetVncActive(false);
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(recorder.events[0].vncLayers);
    EXPECT_FALSE(recorder.events[0].cntLayers);
    EXPECT_FALSE(prj->GetPrjOpz().IsVncActive());
}

TEST_F(PrjOptionsTest, SetCntActiveGroupZeroActsOnGroupZero) {
    prj->SetCntActive(0, true);
    EXPECT_TRUE(recorder.events.empty());
    prj->SetCntActive(0, false);
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(recorder.events[0].cntLayers);
    EXPECT_FALSE(recorder.events[0].vncLayers);
    EXPECT_FALSE(prj->GetPrjOpz().IsCntActive(0));
    EXPECT_TRUE(prj->GetPrjOpz().IsCntActive(1));
}

TEST_F(PrjOptionsTest, SetCntActiveAnyOtherGroupActsOnGroupOne) {
    for (int group : {1, 5, -1, 2147483647}) {
        recorder.events.clear();
        prj->SetCntActive(group, false);
        ASSERT_EQ(1u, recorder.events.size()) << group;
        EXPECT_TRUE(recorder.events[0].cntLayers) << group;
        EXPECT_TRUE(prj->GetPrjOpz().IsCntActive(0)) << group;
        EXPECT_FALSE(prj->GetPrjOpz().IsCntActive(1)) << group;
        // Group 1 is already off: the same call again changes nothing.
        prj->SetCntActive(group, false);
        EXPECT_EQ(1u, recorder.events.size()) << group;
        prj->GetPrjOpz().SetCntActive(1, true);
    }
}

// ---------------------------------------------------------------------------------------------
// INI file

TEST_F(PrjOptionsTest, IniRoundTripOfEveryOptionThroughTheFile) {
    CDtmPrj* readLater = NewProject();  // built before the file holds anything
    SetSampleOptions(*prj);
    prj->SetOpzDtmInIni();

    std::ifstream file(ini.Path());
    ASSERT_TRUE(file.good());
    const std::string text((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    EXPECT_NE(std::string::npos, text.find("[CURVE]"));

    // A new project reads everything when it is built...
    CDtmPrj* fresh = NewProject();
    const Options written = OptionsOf(*prj);
    // The point collections do not live in the INI file: a new project has none.
    ExpectSameOptions(written.tri, fresh->GetTris()->GetOptions(),
                      dtm_test::PointCollections::Ignore);
    EXPECT_TRUE(fresh->GetTris()->GetOptions().GetPointCollections().empty());
    ExpectSameOptions(written.cvlv, fresh->GetCvLvs()->GetOpzCvLv());
    ExpectSameBlock(written.block, fresh->GetPrjOpz());

    // ...and an existing one on request, keeping its point collections.
    TDtmPointCollectionIdentifier kept;
    kept.id = 99;
    kept.secondId = 3;
    readLater->GetTris()->GetOptions().SetPointCollections({kept});
    readLater->GetOpzDtmDaIni();
    ExpectSameOptions(written.tri, readLater->GetTris()->GetOptions(),
                      dtm_test::PointCollections::Ignore);
    ASSERT_EQ(1u, readLater->GetTris()->GetOptions().GetPointCollections().size());
    EXPECT_TRUE(kept == readLater->GetTris()->GetOptions().GetPointCollections()[0]);
    ExpectSameOptions(written.cvlv, readLater->GetCvLvs()->GetOpzCvLv());
    ExpectSameBlock(written.block, readLater->GetPrjOpz());

    EXPECT_TRUE(recorder.events.empty());  // neither writing nor reading the INI notifies
}

TEST_F(PrjOptionsTest, IniHoldsTheBlockUnderItsKeys) {
    prj->GetPrjOpz().Set(false, true, false, 12, -3, 256);
    prj->SetOpzDtmInIni();
    CIniFile file(ini.Path());  // an independent reader of the same file
    EXPECT_FALSE(file.GetBool(kSection, "ClAt0", true));
    EXPECT_TRUE(file.GetBool(kSection, "ClAt1", false));
    EXPECT_FALSE(file.GetBool(kSection, "ClAt2", true));
    EXPECT_EQ(12, file.GetShort(kSection, "ClCo0", 0));
    EXPECT_EQ(-3, file.GetShort(kSection, "ClCo1", 0));
    EXPECT_EQ(256, file.GetShort(kSection, "ClCo2", 0));
}

TEST_F(PrjOptionsTest, IniIsWrittenBlockThenNetworkThenBothContourGroups) {
    prj->SetOpzDtmInIni();
    std::ifstream file(ini.Path());
    const std::string text((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    // A fresh file gets its keys in the order in which they are first written.
    const std::vector<std::string> firstKeys = {"\nClAt0=", "\nAddSta=", "\nQuI1=", "\nClAt5="};
    std::size_t previous = 0;
    for (const std::string& key : firstKeys) {
        const std::size_t at = text.find(key);
        ASSERT_NE(std::string::npos, at) << key;
        EXPECT_LT(previous, at) << key;
        previous = at;
    }
}

// ---------------------------------------------------------------------------------------------
// Option section of the document

class PrjOptionsStreamTest : public PrjOptionsTest, public ::testing::WithParamInterface<short> {};

TEST_P(PrjOptionsStreamTest, RoundTripIntoAFreshProject) {
    const short version = GetParam();
    SetSampleOptions(*prj);
    const std::string bytes = WriteSection(*prj, version);

    CDtmPrj* fresh = NewProject();
    const Options before = OptionsOf(*fresh);
    recorder.events.clear();
    const ReadOutcome outcome = ReadSection(*fresh, bytes + "next section", version, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);
    ExpectSameOptions(ExpectedAfterRead(OptionsOf(*prj), before, version), OptionsOf(*fresh));
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(AllFourLayerKinds(recorder.events[0]));

    // Written again, the options read give the same bytes.
    EXPECT_EQ(bytes, WriteSection(*fresh, version));
}

TEST_P(PrjOptionsStreamTest, ApplyFalseChangesNothingButMarksAllFourLayerKinds) {
    const short version = GetParam();
    CDtmPrj* source = NewProject();
    SetSampleOptions(*source);
    const std::string bytes = WriteSection(*source, version) + "next section";

    CDtmPrj* applied = NewProject();
    const ReadOutcome withApply = ReadSection(*applied, bytes, version, true);
    recorder.events.clear();
    const Options before = OptionsOf(*prj);
    const ReadOutcome withoutApply = ReadSection(*prj, bytes, version, false);
    EXPECT_TRUE(withoutApply.streamGood);
    EXPECT_EQ(withApply.consumed, withoutApply.consumed);
    ExpectSameOptions(before, OptionsOf(*prj));
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(AllFourLayerKinds(recorder.events[0]));
    EXPECT_FALSE(recorder.events[0].triInnerDraw);  // no setter ran
}

TEST_P(PrjOptionsStreamTest, TruncatedSectionFailsAndLeavesEveryOptionUnchanged) {
    const short version = GetParam();
    CDtmPrj* source = NewProject();
    SetSampleOptions(*source);
    const std::string bytes = WriteSection(*source, version);
    const Options before = OptionsOf(*prj);
    // Stops at the first failing cut, so that one fault does not print hundreds of them.
    for (std::size_t cut = 0; cut < bytes.size() && !HasFailure(); ++cut) {
        for (bool apply : {true, false}) {
            recorder.events.clear();
            const ReadOutcome outcome = ReadSection(*prj, bytes.substr(0, cut), version, apply);
            EXPECT_FALSE(outcome.streamGood) << "cut " << cut << " apply " << apply;
            ExpectSameOptions(before, OptionsOf(*prj));
            // The layers are marked whatever happens next; nothing else is.
            ASSERT_EQ(1u, recorder.events.size());
            EXPECT_TRUE(AllFourLayerKinds(recorder.events[0]));
            EXPECT_FALSE(recorder.events[0].triInnerDraw) << "cut " << cut;
            EXPECT_TRUE(recorder.events[0].cvLvModified.empty());
        }
    }
}

// 800 and 1502 are the thresholds of the section; 812 that of the network's point collections;
// 799 and 1501 the last versions before them; a negative version is older than every threshold.
INSTANTIATE_TEST_SUITE_P(Versions, PrjOptionsStreamTest,
                         ::testing::Values(short{-1}, short{799}, short{800}, short{812},
                                           short{1501}, short{1502}));

TEST_F(PrjOptionsTest, EvenAnEmptyStreamMarksAllFourLayerKinds) {
    for (bool apply : {true, false}) {
        recorder.events.clear();
        EXPECT_FALSE(ReadSection(*prj, "", 1502, apply).streamGood);
        ASSERT_EQ(1u, recorder.events.size());
        EXPECT_TRUE(AllFourLayerKinds(recorder.events[0]));
    }
}

TEST_F(PrjOptionsTest, ReadingInsideAHostEventAddsToIt) {
    SetSampleOptions(*prj);
    const std::string bytes = WriteSection(*prj, 1502);
    prj->GetContext()->BeginEvent();
    ReadSection(*prj, bytes, 1502, true);
    prj->SetVncActive(!prj->GetPrjOpz().IsVncActive());
    prj->GetContext()->EndEvent();
    EXPECT_EQ(1u, recorder.events.size());
}

/// The section at @p version (below 800) with every value spelled out, as a writer of that
/// version leaves it for the sample options: flags 1 or 0, unused values 0.
ByteBuilder SampleSectionBefore800(short version) {
    ByteBuilder bytes;
    // network, first group, older than 812
    bytes
        .Int32(0)  // add stations
        .Int32(0)  // two values nothing uses
        .Int32(0)
        .Int32(0)   // check breaklines
        .Int32(0)   // vertices in external boundaries
        .Int32(1)   // vertices in internal boundaries
        .Int32(0)   // triangles in external boundaries
        .Int32(1);  // triangles in internal boundaries
    // From 690 a value nothing uses; from 720 another, then add base points.
    if (version >= 690) bytes.Int32(0);
    if (version >= 720) bytes.Int32(0).Int32(1);
    return bytes
        // contour categories
        .Int32(0)
        .UInt16(11)
        .Int32(1)
        .UInt16(300)
        .Int32(1)
        .UInt16(40000)
        .Int32(0)
        .UInt16(0)
        // text values of old documents: contour text height twice, contour decimals
        .Double(1.75)
        .Double(1.75)
        .Int32(2)
        // display options block
        .Int32(0)
        .Int16(12)
        .Int32(1)
        .Int16(-3)
        .Int32(0)
        .Int16(256)
        // network, display group, older than 800
        .Int32(0)
        .Int16(33)
        .Int32(1)
        .Int16(44);
    // contour options, second group: none before 800
}

TEST_F(PrjOptionsTest, SectionsWrittenBefore800HaveTheDocumentedLayout) {
    SetSampleOptions(*prj);
    for (short version : {short{799}, short{720}, short{719}, short{690}, short{689}, short{-1}})
        EXPECT_EQ(SampleSectionBefore800(version).Str(), WriteSection(*prj, version)) << version;
}

TEST_F(PrjOptionsTest, ReadsAHandAssembledSectionAt799FieldByField) {
    const std::string bytes = ByteBuilder()
                                  .Int32(0)  // add stations: off
                                  .Int32(77)
                                  .Int32(-9)  // skipped
                                  .Int32(1)   // check breaklines
                                  .Int32(0)   // vertices in external
                                  .Int32(5)   // vertices in internal: > 0 is on
                                  .Int32(-1)  // triangles in external: not > 0, off
                                  .Int32(1)   // triangles in internal
                                  .Int32(123)
                                  .Int32(456)  // skipped
                                  .Int32(1)    // add base points
                                  .Int32(0)
                                  .UInt16(21)
                                  .Int32(1)
                                  .UInt16(22)
                                  .Int32(2)
                                  .UInt16(65535)
                                  .Int32(0)
                                  .UInt16(24)
                                  .Double(2.25)  // contour text height and gap
                                  .Double(3.5)   // network text height
                                  .Int32(3)      // contour decimals
                                  .Int32(0)
                                  .Int16(-5)
                                  .Int32(1)
                                  .Int16(256)
                                  .Int32(3)
                                  .Int16(9)
                                  .Int32(0)
                                  .Int16(31)
                                  .Int32(1)
                                  .Int16(32)
                                  .Str();
    SetSampleOptions(*prj);
    const Options before = OptionsOf(*prj);
    recorder.events.clear();
    const ReadOutcome outcome = ReadSection(*prj, bytes + "next", 799, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);

    const COpzTri& tri = prj->GetTris()->GetOptions();
    EXPECT_FALSE(tri.IsAddStations());
    EXPECT_TRUE(tri.IsAddBasePoints());
    EXPECT_TRUE(tri.IsCheckBreaklines());
    EXPECT_FALSE(tri.IsCheckVrtInCntE());
    EXPECT_TRUE(tri.IsCheckVrtInCntI());
    EXPECT_FALSE(tri.IsCheckTriInCntE());
    EXPECT_TRUE(tri.IsCheckTriInCntI());
    EXPECT_TRUE(before.tri.GetPointCollections() == tri.GetPointCollections());
    EXPECT_FALSE(tri.IsFirstDisplayFlag());
    EXPECT_EQ(31, tri.GetFixedColor());
    EXPECT_TRUE(tri.IsSecondDisplayFlag());
    EXPECT_EQ(32, tri.GetLayerColor());
    EXPECT_EQ(3.5, tri.GetTextHeight());  // the second double
    EXPECT_EQ(COpzTri::TRI_SYMBOL_1, tri.GetSymbol());
    EXPECT_EQ(COpzTri::TRI_COLOR_FIXED, tri.GetColorType());
    EXPECT_EQ(before.tri.GetScaleFactor(), tri.GetScaleFactor());
    EXPECT_TRUE(before.tri.GetColorClasses() == tri.GetColorClasses());

    const COpzCvLv& cvlv = prj->GetCvLvs()->GetOpzCvLv();
    EXPECT_FALSE(cvlv.IsCategoryOn(0));
    EXPECT_EQ(21, cvlv.GetCategoryColor(0));
    EXPECT_TRUE(cvlv.IsCategoryOn(1));
    EXPECT_EQ(22, cvlv.GetCategoryColor(1));
    EXPECT_TRUE(cvlv.IsCategoryOn(2));
    EXPECT_EQ(65535, cvlv.GetCategoryColor(2));
    EXPECT_FALSE(cvlv.IsCategoryOn(3));
    EXPECT_EQ(24, cvlv.GetCategoryColor(3));
    EXPECT_EQ(2.25, cvlv.GetTextHeight());  // the first double, as height and as gap
    EXPECT_EQ(2.25, cvlv.GetGap());
    EXPECT_EQ(3, cvlv.GetDecimals());
    EXPECT_EQ("", cvlv.GetPrefix().str());
    EXPECT_EQ("", cvlv.GetSuffix().str());
    EXPECT_EQ(TEXT_VALIGN_CENTRED, cvlv.GetVAlignment());
    EXPECT_EQ(TEXT_ORIENTATION_0, cvlv.GetOrientation());
    EXPECT_EQ(before.cvlv.IsColorByLayer(), cvlv.IsColorByLayer());
    EXPECT_TRUE(before.cvlv.GetColorClasses() == cvlv.GetColorClasses());
    EXPECT_EQ(before.cvlv.GetInterval1(), cvlv.GetInterval1());
    EXPECT_EQ(before.cvlv.GetInterval2(), cvlv.GetInterval2());
    EXPECT_EQ(before.cvlv.GetTension(), cvlv.GetTension());
    EXPECT_EQ(before.cvlv.IsContourFlag(), cvlv.IsContourFlag());

    const CDtmPrjOpz& block = prj->GetPrjOpz();
    EXPECT_FALSE(block.IsVncActive());
    EXPECT_EQ(-5, block.GetVncColor());
    EXPECT_TRUE(block.IsCntActive(0));
    EXPECT_EQ(256, block.GetCntColor(0));
    EXPECT_TRUE(block.IsCntActive(1));
    EXPECT_EQ(9, block.GetCntColor(1));

    // One event: the four layer kinds, and the network's text height through its notifying
    // setter.
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(AllFourLayerKinds(recorder.events[0]));
    EXPECT_TRUE(recorder.events[0].triInnerDraw);
}

TEST_F(PrjOptionsTest, OldSectionLeavesTheNetworkDrawingAloneWhenItsTextIsUnchanged) {
    // The network's text setter notifies only when the height changes or the symbol is not
    // yet 1.
    prj->GetTris()->GetOptions().SetSymbol(COpzTri::TRI_SYMBOL_1);
    prj->GetTris()->GetOptions().SetTextHeight(1.75);
    prj->GetCvLvs()->GetOpzCvLv().SetTextHeight(1.75);
    const std::string bytes = WriteSection(*prj, 799);
    recorder.events.clear();
    EXPECT_TRUE(ReadSection(*prj, bytes, 799, true).streamGood);
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_FALSE(recorder.events[0].triInnerDraw);
    prj->GetTris()->GetOptions().SetSymbol(COpzTri::TRI_SYMBOL_0);
    recorder.events.clear();
    EXPECT_TRUE(ReadSection(*prj, bytes, 799, true).streamGood);
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(recorder.events[0].triInnerDraw);
    EXPECT_EQ(COpzTri::TRI_SYMBOL_1, prj->GetTris()->GetOptions().GetSymbol());
}

/// The three flags of the display options block, breaklines first.
struct BlockFlags {
    std::int32_t breaklines = 1, externalBoundaries = 0, internalBoundaries = 1;
};

/// A section at 1502 with every value spelled out the way a writer leaves it, unless the block
/// flags say otherwise.
std::string HandSectionAt1502(BlockFlags flags = {}) {
    CColorClassComputer triClasses;
    triClasses.AddEntry(0, 100.0, 5);
    triClasses.AddEntry(1, 200.0, 6);
    triClasses.SetNoSteps(3);
    CColorClassComputer cvlvClasses;
    cvlvClasses.AddEntry(0, -10.0, 50);
    cvlvClasses.AddEntry(1, 10.0, 60);
    cvlvClasses.SetNoSteps(2);
    return ByteBuilder()
        // network, first group, 812 and later
        .Int32(1)  // add stations
        .Int32(0)  // add base points
        .Int32(0)  // check breaklines
        .Int32(1)  // vertices in external boundaries
        .Int32(0)  // vertices in internal boundaries
        .Int32(1)  // triangles in external boundaries
        .Int32(0)  // triangles in internal boundaries
        .Int32(2)  // point collections
        .Int32(17)
        .Int32(1)  // by name
        .Int32(5)
        .Bytes("Cava\0", 5)  // stored with its terminator
        .Int32(18)
        .Int32(0)  // by second identifier
        .Int32(99)
        // contour categories
        .Int32(1)
        .UInt16(1)
        .Int32(0)
        .UInt16(2)
        .Int32(1)
        .UInt16(3)
        .Int32(0)
        .UInt16(4)
        // display options block
        .Int32(flags.breaklines)
        .Int16(10)
        .Int32(flags.externalBoundaries)
        .Int16(11)
        .Int32(flags.internalBoundaries)
        .Int16(12)
        // network, display group
        .Int32(1)
        .Int16(41)
        .Int32(0)
        .Int16(42)
        .Int16(2)  // colour type: cloud colours
        .Append(ColorClassesSection(triClasses))
        .Int32(3)      // symbol
        .Double(0.8)   // text height
        .Double(1.25)  // scale factor
                       // contour options, second group
        .Int32(1)      // colour by layer
        .Append(ColorClassesSection(cvlvClasses))
        .Double(1.5)   // text height
        .Double(0.25)  // gap
        .Int32(1)      // decimals
        .Int32(2)
        .Bytes("H=")
        .Int32(2)
        .Bytes(" m")
        .Int32(0)  // alignment
        .Int32(1)  // orientation
        .Str();
}

TEST_F(PrjOptionsTest, ReadsAHandAssembledSectionAt1502FieldByField) {
    const std::string bytes = HandSectionAt1502();
    SetSampleOptions(*prj);
    const Options before = OptionsOf(*prj);
    const ReadOutcome outcome = ReadSection(*prj, bytes + "next", 1502, true);
    EXPECT_TRUE(outcome.streamGood);
    EXPECT_EQ(static_cast<std::streamoff>(bytes.size()), outcome.consumed);

    const COpzTri& tri = prj->GetTris()->GetOptions();
    EXPECT_TRUE(tri.IsAddStations());
    EXPECT_FALSE(tri.IsAddBasePoints());
    EXPECT_FALSE(tri.IsCheckBreaklines());
    EXPECT_TRUE(tri.IsCheckVrtInCntE());
    EXPECT_FALSE(tri.IsCheckVrtInCntI());
    EXPECT_TRUE(tri.IsCheckTriInCntE());
    EXPECT_FALSE(tri.IsCheckTriInCntI());
    const std::vector<TDtmPointCollectionIdentifier>& collections = tri.GetPointCollections();
    ASSERT_EQ(2u, collections.size());
    EXPECT_EQ(17, collections[0].id);
    EXPECT_TRUE(collections[0].byName);
    EXPECT_EQ("Cava", collections[0].name.str());
    EXPECT_EQ(18, collections[1].id);
    EXPECT_FALSE(collections[1].byName);
    EXPECT_EQ(99, collections[1].secondId);
    EXPECT_TRUE(tri.IsFirstDisplayFlag());
    EXPECT_EQ(41, tri.GetFixedColor());
    EXPECT_FALSE(tri.IsSecondDisplayFlag());
    EXPECT_EQ(42, tri.GetLayerColor());
    EXPECT_EQ(COpzTri::TRI_COLOR_BY_CLOUD, tri.GetColorType());
    ASSERT_EQ(2u, tri.GetColorClasses().GetNoClasses());
    EXPECT_EQ(3u, tri.GetColorClasses().GetNoSteps());
    EXPECT_EQ(200.0, tri.GetColorClasses().GetClassInfoA(1).value);
    EXPECT_EQ(6, tri.GetColorClasses().GetClassInfoA(1).color);
    EXPECT_EQ(COpzTri::TRI_SYMBOL_3, tri.GetSymbol());
    EXPECT_EQ(0.8, tri.GetTextHeight());
    EXPECT_EQ(1.25, tri.GetScaleFactor());

    const COpzCvLv& cvlv = prj->GetCvLvs()->GetOpzCvLv();
    for (unsigned i = 0; i < COpzCvLv::kCategoryCount; ++i) {
        EXPECT_EQ(i % 2 == 0, cvlv.IsCategoryOn(i)) << i;
        EXPECT_EQ(i + 1, cvlv.GetCategoryColor(i)) << i;
    }
    EXPECT_TRUE(cvlv.IsColorByLayer());
    ASSERT_EQ(2u, cvlv.GetColorClasses().GetNoClasses());
    EXPECT_EQ(2u, cvlv.GetColorClasses().GetNoSteps());
    EXPECT_EQ(-10.0, cvlv.GetColorClasses().GetClassInfoA(0).value);
    EXPECT_EQ(50, cvlv.GetColorClasses().GetClassInfoA(0).color);
    EXPECT_EQ(1.5, cvlv.GetTextHeight());
    EXPECT_EQ(0.25, cvlv.GetGap());
    EXPECT_EQ(1, cvlv.GetDecimals());
    EXPECT_EQ("H=", cvlv.GetPrefix().str());
    EXPECT_EQ(" m", cvlv.GetSuffix().str());
    EXPECT_EQ(TEXT_VALIGN_0, cvlv.GetVAlignment());
    EXPECT_EQ(TEXT_ORIENTATION_1, cvlv.GetOrientation());
    EXPECT_EQ(before.cvlv.GetInterval1(), cvlv.GetInterval1());  // the INI-only ones stay
    EXPECT_EQ(before.cvlv.GetTension(), cvlv.GetTension());
    EXPECT_EQ(before.cvlv.IsContourFlag(), cvlv.IsContourFlag());

    const CDtmPrjOpz& block = prj->GetPrjOpz();
    EXPECT_TRUE(block.IsVncActive());
    EXPECT_EQ(10, block.GetVncColor());
    EXPECT_FALSE(block.IsCntActive(0));
    EXPECT_EQ(11, block.GetCntColor(0));
    EXPECT_TRUE(block.IsCntActive(1));
    EXPECT_EQ(12, block.GetCntColor(1));

    // Written again: the same bytes.
    EXPECT_EQ(bytes, WriteSection(*prj, 1502));
}

// A block flag is on only when its stored value is above zero.
TEST_F(PrjOptionsTest, BlockFlagsAtOrBelowZeroReadAsOff) {
    const std::string bytes = HandSectionAt1502({-1, INT32_MIN, 2});
    EXPECT_TRUE(ReadSection(*prj, bytes, 1502, true).streamGood);
    CDtmPrjOpz expected;
    expected.Set(false, false, true, 10, 11, 12);
    ExpectSameBlock(expected, prj->GetPrjOpz());
}

// The block read on its own, as a host may: cut anywhere, it leaves the stream failed and every
// option as it was, the first pairs read included.
TEST_F(PrjOptionsTest, BlockCutAnywhereFailsAndChangesNothing) {
    CDtmPrjOpz written;
    written.Set(false, true, false, 12, -3, 256);
    const std::string bytes = dtm_test::WriteToBytes(written, &CDtmPrjOpz::SalvaInFile, 1502);
    ASSERT_EQ(3u * (sizeof(std::int32_t) + sizeof(std::int16_t)), bytes.size());
    CDtmPrjOpz target;
    target.Set(true, false, true, 1, 2, 3);
    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
        CDtmPrjOpz read = target;
        const ReadOutcome outcome = dtm_test::ReadFromBytes(read, &CDtmPrjOpz::LeggeDaFile,
                                                            bytes.substr(0, cut), 1502, true);
        EXPECT_FALSE(outcome.streamGood) << "cut " << cut;
        ExpectSameBlock(target, read);
    }
    CDtmPrjOpz whole = target;
    EXPECT_TRUE(
        dtm_test::ReadFromBytes(whole, &CDtmPrjOpz::LeggeDaFile, bytes, 1502, true).streamGood);
    ExpectSameBlock(written, whole);
}

// The label settings of an old section reach the contour lines already in the project: their
// labels are fitted to the new text, as any change of the text options fits them.
TEST_F(PrjOptionsTest, OldSectionFitsTheLabelsOfTheLinesAlreadyThere) {
    CDtmPrj* source = NewProject();
    source->GetCvLvs()->GetOpzCvLv().SetTextOptions(3.0, 3.0, 0, "", "", TEXT_VALIGN_CENTRED,
                                                    TEXT_ORIENTATION_0);
    const std::string bytes = WriteSection(*source, 799);

    CCvLvs& lines = *prj->GetCvLvs();
    const double x[] = {0.0, 100.0};
    const double y[] = {0.0, 0.0};
    CCvLv* line = lines.AddNewCvLv(5.0, 1.0, 3, 2, x, y);
    ASSERT_NE(nullptr, line->AddInterval(49.0, 51.0, CCvLvInterv::FLAG_TEXT));
    // Set twice, so that the second setting changes something whatever the defaults are.
    lines.SetTextOptions(2.0, 2.0, 1, "", "", TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0);
    lines.SetTextOptions(1.0, 1.0, 2, "", "", TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0);
    // "5.00" at height 1 before the read, "5" at height 3 after it; centred on 50 both times.
    const auto expectLabel = [line](double characters, double height) {
        const double half = (characters - 0.3333 + 1.0) * height / 2.0;
        ASSERT_EQ(1u, line->GetNoIntervals());
        EXPECT_NEAR(50.0 - half, line->GetIntervalAt(0)->GetStart(), 1e-9);
        EXPECT_NEAR(50.0 + half, line->GetIntervalAt(0)->GetEnd(), 1e-9);
    };
    expectLabel(4, 1.0);

    recorder.events.clear();
    EXPECT_TRUE(ReadSection(*prj, bytes, 799, false).streamGood);
    expectLabel(4, 1.0);
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(recorder.events[0].cvLvModified.empty());

    recorder.events.clear();
    EXPECT_TRUE(ReadSection(*prj, bytes, 799, true).streamGood);
    expectLabel(1, 3.0);
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_EQ(std::vector<CCvLv*>{line}, recorder.events[0].cvLvModified);
}

}  // namespace
