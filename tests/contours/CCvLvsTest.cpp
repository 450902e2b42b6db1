#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

#include "CvLvTestSupport.h"
#include "contours/SplineInternal.h"

namespace {

using cvlv_test::ContourFixture;
using cvlv_test::Log;

constexpr double INF = std::numeric_limits<double>::infinity();

class CvLvsTest : public ContourFixture {
protected:
    void ExpectRange(double expectedMin, double expectedMax) {
        double minQuota = 0.0, maxQuota = 0.0;
        cvlvs->GetMinMaxQuota(minQuota, maxQuota);
        EXPECT_EQ(minQuota, expectedMin);
        EXPECT_EQ(maxQuota, expectedMax);
    }
    /// Sets the display options to @p options' present values except for the given ones.
    void SetVis(bool colorByLayer, const CColorClassComputer& classes, std::uint16_t color1 = 7,
                bool category1 = true) {
        cvlvs->SetVisOptions(category1, true, true, true, colorByLayer, color1, 7, 7, 7, classes);
    }
};

/// A custom table: up to 10 colour 1, up to 20 colour 2, up to 30 colour 3.
CColorClassComputer CustomClasses() {
    CColorClassComputer classes;
    classes.AddEntry(0, 10.0, 1);
    classes.AddEntry(1, 20.0, 2);
    classes.AddEntry(2, 30.0, 3);
    return classes;
}

// A line of its own kind that counts its lives.
class CountedCvLv final : public CCvLv {
public:
    CountedCvLv(int& alive, CCvLvs* cvlvs, double elevation)
        : CCvLv(cvlvs, elevation, -1.0, 7), m_alive(alive) {
        ++m_alive;
    }

private:
    ~CountedCvLv() override { --m_alive; }
    int& m_alive;
};

// ---------------------------------------------------------------------------------------------
// Adding, removing and the elevation range

TEST_F(CvLvsTest, EmptyCollectionReportsAnInfiniteRange) {
    EXPECT_EQ(cvlvs->GetNoCvLvs(), 0u);
    ExpectRange(INF, -INF);
    EXPECT_EQ(cvlvs->GetDtmPrj(), prj);
    EXPECT_EQ(cvlvs->GetContext(), context);
    EXPECT_THROW(cvlvs->GetCvLvAt(0), std::out_of_range);
}

TEST_F(CvLvsTest, AddNewCvLvBuildsAVisibleLineWithItsSpline) {
    const double x[] = {0.0, 10.0, 20.0, 25.0};
    const double y[] = {0.0, 3.0, 1.0, -4.0};
    ForgetEvents();
    CCvLv* line = cvlvs->AddNewCvLv(42.0, 1.5, 9, 4, x, y);
    ASSERT_EQ(cvlvs->GetNoCvLvs(), 1u);
    EXPECT_EQ(cvlvs->GetCvLvAt(0), line);
    EXPECT_EQ(line->GetQuota(), 42.0);
    EXPECT_EQ(line->GetSigma(), 1.5);
    EXPECT_EQ(line->GetColor(), 9);
    EXPECT_TRUE(line->IsVisible());
    std::vector<TVrtPol> expected;
    double sigmap = 0.0;
    BuildSplineNodes(4, x, y, 1.5, expected, sigmap);
    EXPECT_TRUE(cvlv_test::SameNodes(line->GetNodes(), expected));
    EXPECT_EQ(line->GetSigmap(), sigmap);
    // The collection holds the only reference.
    EXPECT_EQ(line->GetReferenceCount(), 1);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvAdded, std::vector<CCvLv*>{line});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvAdded", "EndEvent"}));
    ExpectRange(42.0, 42.0);
}

TEST_F(CvLvsTest, AddNewCvLvRefusesBadNodeArguments) {
    const double x[] = {0.0};
    EXPECT_THROW(cvlvs->AddNewCvLv(1.0, -1.0, 7, -1, x, x), std::invalid_argument);
    EXPECT_THROW(cvlvs->AddNewCvLv(1.0, -1.0, 7, 1, nullptr, x), std::invalid_argument);
    EXPECT_THROW(cvlvs->AddNewCvLv(cvlvs->GetOpzCvLv(), 1.0, -1.0, 0.1, 2, nullptr),
                 std::invalid_argument);
    EXPECT_THROW(cvlvs->AddCvLv(nullptr), std::invalid_argument);
    EXPECT_EQ(cvlvs->GetNoCvLvs(), 0u);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(CvLvsTest, AddCvLvTakesAReferenceWidensTheRangeAndReportsTheLine) {
    int alive = 0;
    auto* line = new CountedCvLv(alive, nullptr, 15.0);
    cvlvs->AddCvLv(line);
    EXPECT_EQ(line->GetReferenceCount(), 2);
    EXPECT_EQ(line->GetCvLvs(), cvlvs.get());
    line->SubReference();
    AddLine(-3.0, {{0, 0}, {1, 1}});
    AddLine(7.0, {{0, 0}, {1, 1}});
    ExpectRange(-3.0, 15.0);
    EXPECT_EQ(recorder.events.size(), 3u);
    cvlvs.reset();
    EXPECT_EQ(alive, 0);
}

TEST_F(CvLvsTest, RemovingTheLowestLineLeavesTheRangeUntilItIsRecomputed) {
    CCvLv* low = AddLine(1.0, {{0, 0}, {1, 1}});
    AddLine(5.0, {{0, 0}, {1, 1}});
    AddLine(9.0, {{0, 0}, {1, 1}});
    cvlvs->RemoveCvLv(low);
    EXPECT_EQ(cvlvs->GetNoCvLvs(), 2u);
    ExpectRange(1.0, 9.0);
    cvlvs->UpdateMinMaxQuota();
    ExpectRange(5.0, 9.0);
    cvlvs->UpdateMinMaxQuota(-2.0);
    ExpectRange(-2.0, 9.0);
    cvlvs->UpdateMinMaxQuota(std::nan(""));
    ExpectRange(-2.0, 9.0);
}

TEST_F(CvLvsTest, RemovedLineLivesUntilTheEventClosesWithItsMarkKept) {
    int alive = 0;
    auto* line = new CountedCvLv(alive, cvlvs.get(), 3.0);
    cvlvs->AddCvLv(line);
    line->SubReference();
    ForgetEvents();
    {
        kor::CEventGuard event(context);
        cvlvs->RemoveCvLv(line);
        EXPECT_EQ(cvlvs->GetNoCvLvs(), 0u);
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(line->GetChangeMark(), 4);
        // A removed line's later changes are not recorded again.
        line->SetColor(1);
    }
    EXPECT_EQ(alive, 0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvRemoved, std::vector<CCvLv*>{line});
    EXPECT_TRUE(recorder.events[0].cvLvModified.empty());
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvRemoved", "EndEvent"}));
}

TEST_F(CvLvsTest, RemovingALineNotInTheCollectionIsIgnored) {
    CCvLvs other(prj);
    CCvLv* foreign = other.AddNewCvLv(1.0, -1.0, 7, 0, nullptr, nullptr);
    AddLine(2.0, {{0, 0}, {1, 1}});
    ForgetEvents();
    cvlvs->RemoveCvLv(foreign);
    cvlvs->RemoveCvLv(nullptr);
    EXPECT_EQ(cvlvs->GetNoCvLvs(), 1u);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(CvLvsTest, RemoveAllIsOneEventInListOrderAndResetsTheRange) {
    CCvLv* a = AddLine(1.0, {{0, 0}, {1, 1}});
    CCvLv* b = AddLine(2.0, {{0, 0}, {1, 1}});
    CCvLv* c = AddLine(3.0, {{0, 0}, {1, 1}});
    ForgetEvents();
    cvlvs->RemoveAllCvLvs();
    EXPECT_EQ(cvlvs->GetNoCvLvs(), 0u);
    ExpectRange(INF, -INF);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvRemoved, (std::vector<CCvLv*>{a, b, c}));
    EXPECT_EQ(listener->log,
              (Log{"BeginEvent", "CvLvRemoved", "CvLvRemoved", "CvLvRemoved", "EndEvent"}));
}

TEST_F(CvLvsTest, RemoveAllOfAnEmptyCollectionOpensOneEmptyEventAndResetsTheRange) {
    CCvLv* line = AddLine(4.0, {{0, 0}, {1, 1}});
    cvlvs->RemoveCvLv(line);
    ExpectRange(4.0, 4.0);
    ForgetEvents();
    cvlvs->RemoveAllCvLvs();
    ExpectRange(INF, -INF);
    EXPECT_EQ(recorder.opened, 1);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].cvLvRemoved.empty());
    EXPECT_FALSE(recorder.events[0].prjModified);
}

TEST_F(CvLvsTest, DoRemoveAllWithoutAContextIsSilent) {
    AddLine(1.0, {{0, 0}, {1, 1}});
    AddLine(2.0, {{0, 0}, {1, 1}});
    ForgetEvents();
    cvlvs->DoRemoveAllCvLvls(nullptr);
    EXPECT_EQ(cvlvs->GetNoCvLvs(), 0u);
    ExpectRange(INF, -INF);
    EXPECT_TRUE(recorder.events.empty());
}

// A listener that fails on the second removal it is told of.
class FailingRemovalListener : public IEventListener {
public:
    void OnCvLvRemoved(CCvLv*) override {
        if (++removals == 2) throw std::runtime_error("listener failed");
    }
    int removals = 0;
};

TEST_F(CvLvsTest, FailedRemoveAllKeepsTheLinesNotYetReported) {
    AddLine(1.0, {{0, 0}, {1, 1}});
    CCvLv* second = AddLine(2.0, {{0, 0}, {1, 1}});
    CCvLv* third = AddLine(3.0, {{0, 0}, {1, 1}});
    context->SetUndoListener(std::make_unique<FailingRemovalListener>());
    listener = nullptr;
    EXPECT_THROW(cvlvs->RemoveAllCvLvs(), std::runtime_error);
    EXPECT_EQ(context->GetEventDepth(), 0);
    ASSERT_EQ(cvlvs->GetNoCvLvs(), 2u);
    EXPECT_EQ(cvlvs->GetCvLvAt(0), second);
    EXPECT_EQ(cvlvs->GetCvLvAt(1), third);
    ExpectRange(1.0, 3.0);
}

TEST_F(CvLvsTest, DestroyingTheCollectionReleasesLinesQuietlyAndDetachesSurvivors) {
    CCvLv* line = AddLine(1.0, {{0, 0}, {1, 1}});
    const auto kept = kor::CRefPtr<CCvLv>::Share(line);
    AddLine(2.0, {{0, 0}, {1, 1}});
    ForgetEvents();
    cvlvs.reset();
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_EQ(kept->GetReferenceCount(), 1);
    EXPECT_EQ(kept->GetCvLvs(), nullptr);
    EXPECT_EQ(kept->GetDtmPrj(), nullptr);
    // It changes silently from now on.
    kept->SetColor(3);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(CvLvsTest, CopyIsMemberWiseAndTakesItsOwnReferences) {
    CCvLv* line = AddLine(5.0, {{0, 0}, {1, 1}});
    cvlvs->SetCvLvDir(eCvLvDirOriented);
    {
        const CCvLvs copy(*cvlvs);
        EXPECT_EQ(copy.GetNoCvLvs(), 1u);
        EXPECT_EQ(copy.GetCvLvAt(0), line);
        EXPECT_EQ(copy.GetDtmPrj(), prj);
        EXPECT_EQ(copy.GetCvLvDir(), eCvLvDirOriented);
        double minQuota = 0.0, maxQuota = 0.0;
        copy.GetMinMaxQuota(minQuota, maxQuota);
        EXPECT_EQ(minQuota, 5.0);
        EXPECT_EQ(line->GetReferenceCount(), 2);
    }
    EXPECT_EQ(line->GetReferenceCount(), 1);
    // The line still names its own collection.
    EXPECT_EQ(line->GetCvLvs(), cvlvs.get());
}

TEST_F(CvLvsTest, DirectionIsStoredWithoutNotification) {
    EXPECT_EQ(cvlvs->GetCvLvDir(), eCvLvDirUnknown);
    cvlvs->SetCvLvDir(eCvLvDirOriented);
    EXPECT_EQ(cvlvs->GetCvLvDir(), eCvLvDirOriented);
    EXPECT_TRUE(recorder.events.empty());
}

// ---------------------------------------------------------------------------------------------
// The change context's contour rules, through the real collection

TEST_F(CvLvsTest, LineAddedThenModifiedInOneEventIsListedOnlyAsAdded) {
    ForgetEvents();
    CCvLv* line = nullptr;
    {
        kor::CEventGuard event(context);
        line = AddCurvedLine();
        EXPECT_EQ(line->GetChangeMark(), 1);
        line->SetColor(1);
        line->AddInterval(1.0, 2.0, CCvLvInterv::FLAG_TEXT);
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvAdded, std::vector<CCvLv*>{line});
    EXPECT_TRUE(recorder.events[0].cvLvModified.empty());
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeNone);
    EXPECT_EQ(line->GetChangeMark(), 0);
}

TEST_F(CvLvsTest, MarksAreResetSoTheNextEventRecordsTheLineAgain) {
    CCvLv* line = AddCurvedLine();
    EXPECT_EQ(line->GetChangeMark(), 0);
    ForgetEvents();
    line->SetColor(1);
    EXPECT_EQ(line->GetChangeMark(), 0);
    line->SetColor(2);
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_EQ(recorder.events[1].cvLvModified, std::vector<CCvLv*>{line});
}

TEST_F(CvLvsTest, IntervalsRemovedAreHeldUntilTheOutermostEventCloses) {
    CCvLv* line = AddCurvedLine();
    const auto label = kor::CRefPtr<CCvLvInterv>::Share(line->AddInterval(1.0, 2.0, 1));
    const auto gap = kor::CRefPtr<CCvLvInterv>::Share(line->AddInterval(3.0, 4.0, 0));
    ForgetEvents();
    context->BeginEvent();
    context->BeginEvent();
    line->RemoveTextIntervals();
    cvlvs->RemoveCvLv(line);
    context->EndEvent();
    EXPECT_EQ(label->GetReferenceCount(), 2);
    context->EndEvent();
    EXPECT_EQ(label->GetReferenceCount(), 1);
    // The gap went with its line, which the event released.
    EXPECT_EQ(gap->GetReferenceCount(), 1);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].intervalsRemoved, std::vector<CCvLvInterv*>{label.Get()});
    EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
    EXPECT_EQ(recorder.events[0].cvLvRemoved, std::vector<CCvLv*>{line});
}

// ---------------------------------------------------------------------------------------------
// Colours

TEST_F(CvLvsTest, ColourClassesGiveEachLineTheColourOfItsElevation) {
    CCvLv* a = AddLine(5.0, {{0, 0}, {1, 1}});
    CCvLv* b = AddLine(15.0, {{0, 0}, {1, 1}});
    CCvLv* c = AddLine(25.0, {{0, 0}, {1, 1}});
    cvlvs->GetOpzCvLv().SetColorClasses(CustomClasses());
    cvlvs->GetOpzCvLv().SetColorByLayer(false);
    ForgetEvents();
    cvlvs->UpdateCvLvColors();
    EXPECT_EQ(a->GetColor(), 1);
    EXPECT_EQ(b->GetColor(), 2);
    EXPECT_EQ(c->GetColor(), 3);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvModified, (std::vector<CCvLv*>{a, b, c}));
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeColor);
    // Nothing left to change: no event at all.
    ForgetEvents();
    cvlvs->UpdateCvLvColors();
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(CvLvsTest, GradedClassesAreSpreadOverTheCollectionsRange) {
    CColorClassComputer graded;
    graded.AddEntry(0, 10);
    graded.AddEntry(1, 200);
    cvlvs->GetOpzCvLv().SetColorClasses(graded);
    std::vector<CCvLv*> lines;
    for (double z : {100.0, 110.0, 120.0, 130.0, 140.0})
        lines.push_back(AddLine(z, {{0.0, 0.0}, {1.0, 1.0}}));
    cvlvs->UpdateCvLvColors();
    // The lowest line takes the first class, the highest the last, whatever their elevations.
    EXPECT_EQ(lines.front()->GetColor(), graded.GetColor(0.0, 1.0, 0.0));
    EXPECT_EQ(lines.back()->GetColor(), graded.GetColor(0.0, 1.0, 1.0));
    for (CCvLv* line : lines)
        EXPECT_EQ(line->GetColor(), graded.GetColor(100.0, 140.0, line->GetQuota()));
}

TEST_F(CvLvsTest, WithColourByLayerEveryLineEndsWithColour256) {
    CCvLv* a = AddLine(5.0, {{0, 0}, {1, 1}});
    CCvLv* b = AddLine(15.0, {{0, 0}, {1, 1}});
    SetVis(false, CustomClasses());
    EXPECT_EQ(a->GetColor(), 1);
    EXPECT_EQ(b->GetColor(), 2);
    ForgetEvents();
    SetVis(true, CustomClasses());
    EXPECT_EQ(a->GetColor(), 256);
    EXPECT_EQ(b->GetColor(), 256);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].cvLvLayers);
    EXPECT_EQ(recorder.events[0].cvLvModified, (std::vector<CCvLv*>{a, b}));
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeColor);

    // Other classes change no line's colour while colouring by layer: no line is reported.
    CColorClassComputer other = CustomClasses();
    other.SetEntryColor(1, 55);
    SetVis(true, other);
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_TRUE(recorder.events[1].cvLvModified.empty());
    EXPECT_EQ(a->GetColor(), 256);
}

TEST_F(CvLvsTest, SetVisOptionsWithIdenticalValuesSendsNothing) {
    AddLine(5.0, {{0, 0}, {1, 1}});
    SetVis(false, CustomClasses());
    ForgetEvents();
    SetVis(false, CustomClasses());
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_EQ(recorder.opened, 0);
}

TEST_F(CvLvsTest, SetVisOptionsStoresEveryValue) {
    cvlvs->SetVisOptions(false, true, false, true, false, 1, 2, 3, 4, CustomClasses());
    const COpzCvLv& options = cvlvs->GetOpzCvLv();
    EXPECT_FALSE(options.IsCategoryOn(0));
    EXPECT_TRUE(options.IsCategoryOn(1));
    EXPECT_FALSE(options.IsCategoryOn(2));
    EXPECT_TRUE(options.IsCategoryOn(3));
    EXPECT_FALSE(options.IsColorByLayer());
    for (unsigned i = 0; i < 4; ++i) EXPECT_EQ(options.GetCategoryColor(i), i + 1);
    EXPECT_TRUE(options.GetColorClasses() == CustomClasses());
}

TEST_F(CvLvsTest, LayersAreReportedModifiedByTheSwitchAndTheColoursNotTheFlags) {
    SetVis(false, CustomClasses());
    ForgetEvents();
    SetVis(false, CustomClasses(), 7, false);  // a category flag only
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_FALSE(recorder.events[0].cvLvLayers);

    SetVis(false, CustomClasses(), 9, false);  // a category colour
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_TRUE(recorder.events[1].cvLvLayers);

    CColorClassComputer other = CustomClasses();
    other.SetEntryColor(0, 44);
    SetVis(false, other, 9, false);  // the classes, while not colouring by layer
    ASSERT_EQ(recorder.events.size(), 3u);
    EXPECT_FALSE(recorder.events[2].cvLvLayers);

    SetVis(true, other, 9, false);  // the switch
    ASSERT_EQ(recorder.events.size(), 4u);
    EXPECT_TRUE(recorder.events[3].cvLvLayers);

    SetVis(true, CustomClasses(), 9, false);  // the classes, while colouring by layer
    ASSERT_EQ(recorder.events.size(), 5u);
    EXPECT_TRUE(recorder.events[4].cvLvLayers);
}

TEST_F(CvLvsTest, ChangedClassesRecolourTheLines) {
    CCvLv* line = AddLine(5.0, {{0, 0}, {1, 1}});
    SetVis(false, CustomClasses());
    EXPECT_EQ(line->GetColor(), 1);
    CColorClassComputer other = CustomClasses();
    other.SetEntryColor(0, 44);
    ForgetEvents();
    SetVis(false, other);
    EXPECT_EQ(line->GetColor(), 44);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
}

// ---------------------------------------------------------------------------------------------
// Lines of old files

TEST_F(CvLvsTest, OldNodesBecomeNodesAndTheirLabelNodesLabelIntervals) {
    COpzCvLv options = cvlvs->GetOpzCvLv();
    options.SetTextHeight(0.2);
    options.SetDecimals(2);
    // Label nodes at index 1 and 3; the last node (4) is marked too but has no segment.
    const std::vector<TOldVrtPol> old = {{1, -1, 0.0, 0.0, 0.1, 0.2, 10.0},
                                         {2, 30, 10.0, 0.0, 0.0, 0.3, 12.0},
                                         {1, -1, 20.0, 7.0, 0.0, 0.0, 9.0},
                                         {2, -40, 28.0, 9.0, 0.4, 0.0, 11.0},
                                         {2, 10, 39.0, 9.0, 0.0, 0.0, 0.0}};
    ForgetEvents();
    CCvLv* line = cvlvs->AddNewCvLv(options, 250.0, -1.0, 0.37, 5, old.data());
    EXPECT_EQ(line->GetColor(), 256);
    EXPECT_TRUE(line->IsVisible());
    EXPECT_EQ(line->GetSigma(), -1.0);
    EXPECT_EQ(line->GetSigmap(), 0.37);
    ASSERT_EQ(line->GetNoNodes(), 5u);
    for (unsigned i = 0; i < 5; ++i) {
        const TVrtPol& node = line->GetNodeAt(i);
        EXPECT_EQ(node.x, old[i].x);
        EXPECT_EQ(node.y, old[i].y);
        EXPECT_EQ(node.xp, old[i].xp);
        EXPECT_EQ(node.yp, old[i].yp);
        EXPECT_EQ(node.len, old[i].len);
    }
    ASSERT_EQ(line->GetNoIntervals(), 2u);
    const double offsets[] = {10.0, 10.0 + 12.0 + 9.0};
    const unsigned labelNodes[] = {1, 3};
    for (unsigned k = 0; k < 2; ++k) {
        const TOldVrtPol& node = old[labelNodes[k]];
        double start = 0.0, end = 0.0;
        std::int32_t flags = 0;
        CCvLv::ConvertOldVrtPolTipo2(0.37, 250.0, 0.2, 2, offsets[k], node, old[labelNodes[k] + 1],
                                     node.position, start, end, flags);
        EXPECT_EQ(line->GetIntervalAt(k)->GetStart(), start);
        EXPECT_EQ(line->GetIntervalAt(k)->GetEnd(), end);
        EXPECT_EQ(line->GetIntervalAt(k)->GetFlags(), flags);
    }
    EXPECT_EQ(line->GetIntervalAt(1)->GetFlags(), 3);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvAdded, std::vector<CCvLv*>{line});
    EXPECT_TRUE(recorder.events[0].cvLvModified.empty());
}

}  // namespace
