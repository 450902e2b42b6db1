#include <dtm/project/TDtmOpz.h>

#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CDtmPrjOpz.h>

#include <gtest/gtest.h>

#include "Probes.h"
#include "RecordedProjectTest.h"
#include "TempIni.h"

#include <functional>
#include <stdexcept>
#include <vector>

namespace {

class DtmOpzTest : public dtm_test::RecordedProjectTest {
protected:
    dtm_test::TempIni ini;  // a fresh, empty INI file: a new project has the defaults
};

CColorClassComputer Classes(double first, int colour) {
    CColorClassComputer classes;
    classes.AddEntry(0, first, colour);
    classes.AddEntry(1, first + 10.0, colour + 1);
    return classes;
}

/// A record with every field away from the defaults and from every other field.
TDtmOpz Sample() {
    TDtmOpz record;
    record.vncActive = false;
    record.cnt0Active = true;
    record.cnt1Active = false;
    record.triFirstFlag = false;
    record.triSecondFlag = true;
    record.cvLvCategoryOn = {false, true, false, false};
    record.vncColor = 1;
    record.cnt0Color = 2;
    record.cnt1Color = 3;
    record.triFixedColor = 4;
    record.triLayerColor = 5;
    record.cvLvCategoryColor = {6, 8, 9, -25536};  // the last one is 40000 as unsigned
    record.triTextHeight = 2.5;
    record.triScaleFactor = 0.5;
    record.triSymbol = COpzTri::TRI_SYMBOL_2;
    record.triColorType = COpzTri::TRI_COLOR_BY_CLASSES;
    record.triColorClasses = Classes(100.0, 20);
    record.cvLvColorByLayer = false;
    record.cvLvColorClasses = Classes(-5.0, 30);
    return record;
}

void ExpectSameRecord(const TDtmOpz& expected, const TDtmOpz& actual) {
    EXPECT_EQ(expected.vncActive, actual.vncActive);
    EXPECT_EQ(expected.cnt0Active, actual.cnt0Active);
    EXPECT_EQ(expected.cnt1Active, actual.cnt1Active);
    EXPECT_EQ(expected.triFirstFlag, actual.triFirstFlag);
    EXPECT_EQ(expected.triSecondFlag, actual.triSecondFlag);
    EXPECT_EQ(expected.cvLvCategoryOn, actual.cvLvCategoryOn);
    EXPECT_EQ(expected.vncColor, actual.vncColor);
    EXPECT_EQ(expected.cnt0Color, actual.cnt0Color);
    EXPECT_EQ(expected.cnt1Color, actual.cnt1Color);
    EXPECT_EQ(expected.triFixedColor, actual.triFixedColor);
    EXPECT_EQ(expected.triLayerColor, actual.triLayerColor);
    EXPECT_EQ(expected.cvLvCategoryColor, actual.cvLvCategoryColor);
    EXPECT_EQ(expected.triTextHeight, actual.triTextHeight);
    EXPECT_EQ(expected.triScaleFactor, actual.triScaleFactor);
    EXPECT_EQ(expected.triSymbol, actual.triSymbol);
    EXPECT_EQ(expected.triColorType, actual.triColorType);
    EXPECT_TRUE(expected.triColorClasses == actual.triColorClasses);
    EXPECT_EQ(expected.cvLvColorByLayer, actual.cvLvColorByLayer);
    EXPECT_TRUE(expected.cvLvColorClasses == actual.cvLvColorClasses);
}

TDtmOpz RecordOf(const CDtmPrj* project) {
    TDtmOpz record;
    record.GetFromPrj(project);
    return record;
}

TEST_F(DtmOpzTest, FieldsAreDeclaredInTheDocumentedOrder) {
    // Members of one access level are laid out in declaration order, so their addresses
    // increase in it.
    const TDtmOpz record;
    const std::vector<const void*> inOrder = {
        &record.vncActive,       &record.cnt0Active,      &record.cnt1Active,
        &record.triFirstFlag,    &record.triSecondFlag,   &record.cvLvCategoryOn,
        &record.vncColor,        &record.cnt0Color,       &record.cnt1Color,
        &record.triFixedColor,   &record.triLayerColor,   &record.cvLvCategoryColor,
        &record.triTextHeight,   &record.triScaleFactor,  &record.triSymbol,
        &record.triColorType,    &record.triColorClasses, &record.cvLvColorByLayer,
        &record.cvLvColorClasses};
    for (std::size_t i = 1; i < inOrder.size(); ++i)
        EXPECT_TRUE(std::less<const void*>()(inOrder[i - 1], inOrder[i])) << "field " << i;
    EXPECT_EQ(4u, record.cvLvCategoryOn.size());
    EXPECT_EQ(4u, record.cvLvCategoryColor.size());
}

TEST_F(DtmOpzTest, DefaultRecordHoldsTheDocumentedDefaults) {
    const TDtmOpz record;
    EXPECT_TRUE(record.vncActive && record.cnt0Active && record.cnt1Active);
    EXPECT_TRUE(record.triFirstFlag && record.triSecondFlag);
    for (unsigned i = 0; i < TDtmOpz::kCvLvCategoryCount; ++i) {
        EXPECT_TRUE(record.cvLvCategoryOn[i]);
        EXPECT_EQ(7, record.cvLvCategoryColor[i]);
    }
    EXPECT_EQ(7, record.vncColor);
    EXPECT_EQ(7, record.cnt0Color);
    EXPECT_EQ(7, record.cnt1Color);
    EXPECT_EQ(7, record.triFixedColor);
    EXPECT_EQ(7, record.triLayerColor);
    EXPECT_EQ(1.0, record.triTextHeight);
    EXPECT_EQ(1.0, record.triScaleFactor);
    EXPECT_EQ(COpzTri::TRI_SYMBOL_0, record.triSymbol);
    EXPECT_EQ(COpzTri::TRI_COLOR_FIXED, record.triColorType);
    EXPECT_TRUE(record.cvLvColorByLayer);
}

TEST_F(DtmOpzTest, GetFromPrjCopiesEveryField) {
    prj->GetPrjOpz().Set(false, true, false, 11, 12, 13);
    COpzTri& tri = prj->GetTris()->GetOptions();
    tri.SetFirstDisplayFlag(false);
    tri.SetSecondDisplayFlag(true);
    tri.SetFixedColor(21);
    tri.SetLayerColor(22);
    tri.SetTextHeight(3.25);
    tri.SetScaleFactor(4.5);
    tri.SetSymbol(COpzTri::TRI_SYMBOL_3);
    tri.SetColorType(COpzTri::TRI_COLOR_BY_CLOUD);
    tri.SetColorClasses(Classes(1.0, 40));
    prj->GetCvLvs()->GetOpzCvLv().SetVisOptions(true, false, false, true, false, 31, 32, 33, 65535,
                                                Classes(2.0, 50));

    const TDtmOpz record = RecordOf(prj);
    EXPECT_FALSE(record.vncActive);
    EXPECT_TRUE(record.cnt0Active);
    EXPECT_FALSE(record.cnt1Active);
    EXPECT_EQ(11, record.vncColor);
    EXPECT_EQ(12, record.cnt0Color);
    EXPECT_EQ(13, record.cnt1Color);
    EXPECT_FALSE(record.triFirstFlag);
    EXPECT_TRUE(record.triSecondFlag);
    EXPECT_EQ(21, record.triFixedColor);
    EXPECT_EQ(22, record.triLayerColor);
    EXPECT_EQ(3.25, record.triTextHeight);
    EXPECT_EQ(4.5, record.triScaleFactor);
    EXPECT_EQ(COpzTri::TRI_SYMBOL_3, record.triSymbol);
    EXPECT_EQ(COpzTri::TRI_COLOR_BY_CLOUD, record.triColorType);
    EXPECT_TRUE(Classes(1.0, 40) == record.triColorClasses);
    EXPECT_EQ((std::array<bool, 4>{{true, false, false, true}}), record.cvLvCategoryOn);
    EXPECT_EQ((std::array<short, 4>{{31, 32, 33, -1}}), record.cvLvCategoryColor);
    EXPECT_FALSE(record.cvLvColorByLayer);
    EXPECT_TRUE(Classes(2.0, 50) == record.cvLvColorClasses);
    EXPECT_TRUE(recorder.events.empty());  // reading sends nothing
}

TEST_F(DtmOpzTest, SetToPrjStoresEveryField) {
    const TDtmOpz record = Sample();
    record.SetToPrj(prj);

    const CDtmPrjOpz& block = prj->GetPrjOpz();
    EXPECT_FALSE(block.IsVncActive());
    EXPECT_TRUE(block.IsCntActive(0));
    EXPECT_FALSE(block.IsCntActive(1));
    EXPECT_EQ(1, block.GetVncColor());
    EXPECT_EQ(2, block.GetCntColor(0));
    EXPECT_EQ(3, block.GetCntColor(1));
    const COpzTri& tri = prj->GetTris()->GetOptions();
    EXPECT_FALSE(tri.IsFirstDisplayFlag());
    EXPECT_TRUE(tri.IsSecondDisplayFlag());
    EXPECT_EQ(4, tri.GetFixedColor());
    EXPECT_EQ(5, tri.GetLayerColor());
    EXPECT_EQ(2.5, tri.GetTextHeight());
    EXPECT_EQ(0.5, tri.GetScaleFactor());
    EXPECT_EQ(COpzTri::TRI_SYMBOL_2, tri.GetSymbol());
    EXPECT_EQ(COpzTri::TRI_COLOR_BY_CLASSES, tri.GetColorType());
    EXPECT_TRUE(Classes(100.0, 20) == tri.GetColorClasses());
    const COpzCvLv& cvlv = prj->GetCvLvs()->GetOpzCvLv();
    EXPECT_FALSE(cvlv.IsCategoryOn(0));
    EXPECT_TRUE(cvlv.IsCategoryOn(1));
    EXPECT_FALSE(cvlv.IsCategoryOn(2));
    EXPECT_FALSE(cvlv.IsCategoryOn(3));
    EXPECT_EQ(6, cvlv.GetCategoryColor(0));
    EXPECT_EQ(8, cvlv.GetCategoryColor(1));
    EXPECT_EQ(9, cvlv.GetCategoryColor(2));
    EXPECT_EQ(40000, cvlv.GetCategoryColor(3));  // the same 16 bits
    EXPECT_FALSE(cvlv.IsColorByLayer());
    EXPECT_TRUE(Classes(-5.0, 30) == cvlv.GetColorClasses());

    // And back: the record read from the project is the one handed to it.
    ExpectSameRecord(record, RecordOf(prj));
}

TEST_F(DtmOpzTest, SetToPrjMakesExactlyOneEventOfEveryChange) {
    Sample().SetToPrj(prj);
    EXPECT_EQ(1, recorder.opened);
    ASSERT_EQ(1u, recorder.events.size());
    const dtm_test::ProjectEventSnapshot& event = recorder.events[0];
    EXPECT_TRUE(event.vncLayers);
    EXPECT_TRUE(event.cntLayers);
    EXPECT_TRUE(event.triLayers);
    EXPECT_TRUE(event.triInnerDraw);  // text height, scale and symbol changed
    EXPECT_TRUE(event.cvLvLayers);
    EXPECT_FALSE(event.prjModified);
}

TEST_F(DtmOpzTest, SetToPrjOfTheProjectsOwnRecordChangesNothingInItsOneEvent) {
    const TDtmOpz record = RecordOf(prj);
    record.SetToPrj(prj);
    ASSERT_EQ(1u, recorder.events.size());
    const dtm_test::ProjectEventSnapshot& event = recorder.events[0];
    EXPECT_FALSE(event.vncLayers || event.cntLayers || event.triLayers || event.cvLvLayers ||
                 event.triInnerDraw);
    ExpectSameRecord(record, RecordOf(prj));
}

TEST_F(DtmOpzTest, SetToPrjNotifiesOnlyThePartsThatChanged) {
    TDtmOpz record = RecordOf(prj);
    record.cnt1Color = 99;  // boundaries only
    record.SetToPrj(prj);
    record.cvLvCategoryColor[2] = 98;  // then contour lines only
    record.SetToPrj(prj);
    ASSERT_EQ(2u, recorder.events.size());
    EXPECT_FALSE(recorder.events[0].vncLayers);
    EXPECT_TRUE(recorder.events[0].cntLayers);
    EXPECT_FALSE(recorder.events[0].triLayers);
    EXPECT_FALSE(recorder.events[0].cvLvLayers);
    EXPECT_FALSE(recorder.events[1].cntLayers);
    EXPECT_FALSE(recorder.events[1].triLayers);
    EXPECT_TRUE(recorder.events[1].cvLvLayers);
}

TEST_F(DtmOpzTest, SetToPrjInsideAHostEventAddsToIt) {
    prj->GetContext()->BeginEvent();
    Sample().SetToPrj(prj);
    prj->SetName("Altro");
    prj->GetContext()->EndEvent();
    ASSERT_EQ(1u, recorder.events.size());
    EXPECT_TRUE(recorder.events[0].prjModified);
    EXPECT_TRUE(recorder.events[0].vncLayers);
}

TEST_F(DtmOpzTest, NullProjectThrowsAndChangesNothing) {
    TDtmOpz record = Sample();
    EXPECT_THROW(record.GetFromPrj(nullptr), std::invalid_argument);
    ExpectSameRecord(Sample(), record);
    EXPECT_THROW(record.SetToPrj(nullptr), std::invalid_argument);
}

}  // namespace
