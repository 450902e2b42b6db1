#include <dtm/breaklines/CVnc.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/contours/Spline.h>
#include <dtm/support/String.h>
#include <dtm/support/Tolerances.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

#include "CvLvTestSupport.h"
#include "contours/SplineInternal.h"

namespace {

using cvlv_test::ContourFixture;
using cvlv_test::Log;
using cvlv_test::StateOf;
using kor::geom::PNT_2D;

constexpr std::int32_t TEXT = CCvLvInterv::FLAG_TEXT;
constexpr std::int32_t EMPTY = 0;

class CvLvTest : public ContourFixture {};

std::vector<TCvLvInterv> IntervalsOf(const CCvLv& line) {
    return StateOf(line).intervals;
}

// ---------------------------------------------------------------------------------------------
// Simple change operations

TEST_F(CvLvTest, NewLineIsVisibleWithTheGivenValuesAndNoIntervals) {
    CCvLv* line = AddCurvedLine(123.5);
    EXPECT_EQ(line->GetCvLvs(), cvlvs.get());
    EXPECT_EQ(line->GetDtmPrj(), prj);
    EXPECT_EQ(line->GetQuota(), 123.5);
    EXPECT_EQ(line->GetSigma(), -1.0);
    EXPECT_EQ(line->GetColor(), 7);
    EXPECT_TRUE(line->IsVisible());
    EXPECT_EQ(line->GetNoNodes(), 5u);
    EXPECT_EQ(line->GetNoIntervals(), 0u);
    EXPECT_THROW(line->GetNodeAt(5), std::out_of_range);
    EXPECT_THROW(line->GetIntervalAt(0), std::out_of_range);
}

TEST_F(CvLvTest, SetColorWithTheCurrentColourSendsNothing) {
    CCvLv* line = AddCurvedLine();
    ForgetEvents();
    line->SetColor(7);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_EQ(recorder.opened, 0);
}

TEST_F(CvLvTest, SetColorIsOneEventOfKindColourWithTheOldStateSeen) {
    CCvLv* line = AddCurvedLine();
    ForgetEvents();
    line->SetColor(3);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeColor);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvModifying", "EndEvent"}));
    ASSERT_EQ(listener->taken.size(), 1u);
    EXPECT_EQ(static_cast<CCvLvMemento*>(listener->taken[0].second)->GetColor(), 7);
    EXPECT_EQ(line->GetColor(), 3);
    EXPECT_EQ(line->GetChangeMark(), 0);
}

TEST_F(CvLvTest, SetVisibleWithTheCurrentValueStillSendsAGeometryChange) {
    CCvLv* line = AddCurvedLine();
    ForgetEvents();
    line->SetVisible(true);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeGeometry);
    line->SetVisible(false);
    EXPECT_FALSE(line->IsVisible());
    EXPECT_EQ(recorder.events.size(), 2u);
}

TEST_F(CvLvTest, ChangeSigmaTensionWithTheSameValueSendsNothing) {
    CCvLv* line = AddCurvedLine();
    ForgetEvents();
    line->ChangeSigmaTension(-1.0);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(CvLvTest, ChangeSigmaTensionRecomputesAsAFreshLineWithThatTension) {
    CCvLv* line = AddCurvedLine();
    const std::vector<TVrtPol> before = line->GetNodes();
    ForgetEvents();
    line->ChangeSigmaTension(2.5);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeGeometry);
    // The listener saw the coefficients from before the change.
    ASSERT_EQ(listener->taken.size(), 1u);
    const auto* memento = static_cast<CCvLvMemento*>(listener->taken[0].second);
    EXPECT_TRUE(cvlv_test::SameNodes(memento->GetNodes(), before));
    EXPECT_EQ(memento->GetSigma(), -1.0);

    const CCvLv* fresh = AddLine(100.0, {{0, 0}, {10, 2}, {20, 0}, {30, -3}, {40, 0}}, 2.5);
    EXPECT_EQ(line->GetSigma(), 2.5);
    EXPECT_TRUE(cvlv_test::SameNodes(line->GetNodes(), fresh->GetNodes()));
    EXPECT_EQ(line->GetSigmap(), fresh->GetSigmap());
    EXPECT_FALSE(cvlv_test::SameNodes(line->GetNodes(), before));
}

TEST_F(CvLvTest, ChangesInsideAnOuterEventAreRecordedOnceWithTheFirstKind) {
    CCvLv* line = AddCurvedLine();
    ForgetEvents();
    {
        kor::CEventGuard event(context);
        line->SetColor(1);
        line->SetVisible(false);
        line->ChangeSigmaTension(3.0);
        EXPECT_EQ(line->GetChangeMark(), 2);
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeColor);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvModifying", "EndEvent"}));
    EXPECT_EQ(line->GetChangeMark(), 0);
}

TEST_F(CvLvTest, LineWithoutProjectChangesSilently) {
    CCvLvs orphanCollection(nullptr);
    auto line = kor::CRefPtr<CCvLv>::Adopt(new CCvLv(&orphanCollection, 5.0, -1.0, 7));
    EXPECT_EQ(line->GetDtmPrj(), nullptr);
    line->SetColor(2);
    line->SetVisible(false);
    line->AddInterval(0.0, 1.0, TEXT);
    EXPECT_EQ(line->GetColor(), 2);
    EXPECT_EQ(line->GetNoIntervals(), 1u);
    EXPECT_TRUE(recorder.events.empty());
}

// ---------------------------------------------------------------------------------------------
// Intervals

TEST_F(CvLvTest, ChangeIntervalDimensionNeitherSortsNorMerges) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(1.0, 2.0, TEXT);
    line->AddInterval(5.0, 6.0, TEXT);
    ForgetEvents();
    line->ChangeIntervalDimension(0, 7.0, 9.0);
    EXPECT_EQ(line->GetIntervalAt(0)->GetStart(), 7.0);
    EXPECT_EQ(line->GetIntervalAt(0)->GetEnd(), 9.0);
    EXPECT_EQ(line->GetIntervalAt(1)->GetStart(), 5.0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeGeometry);
}

TEST_F(CvLvTest, ChangeIntervalDimensionOutOfRangeThrowsAndSendsNothing) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(1.0, 2.0, TEXT);
    ForgetEvents();
    EXPECT_THROW(line->ChangeIntervalDimension(1, 0.0, 1.0), std::out_of_range);
    EXPECT_THROW(line->ChangeIntervalDimension(-1, 0.0, 1.0), std::out_of_range);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_EQ(context->GetEventDepth(), 0);
}

TEST_F(CvLvTest, IntervalsAreKeptSortedByStart) {
    CCvLv* line = AddCurvedLine();
    for (double start : {8.0, 2.0, 14.0, 5.0, 11.0}) line->AddInterval(start, start + 1.0, TEXT);
    ASSERT_EQ(line->GetNoIntervals(), 5u);
    for (unsigned i = 0; i + 1 < line->GetNoIntervals(); ++i)
        EXPECT_LT(line->GetIntervalAt(i)->GetStart(), line->GetIntervalAt(i + 1)->GetStart());
}

TEST_F(CvLvTest, AddedIntervalIsOneGeometryChangeAndIsReturned) {
    CCvLv* line = AddCurvedLine();
    ForgetEvents();
    CCvLvInterv* added = line->AddInterval(3.0, 4.0, TEXT | CCvLvInterv::FLAG_INVERTED);
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(line->GetIntervalAt(0), added);
    EXPECT_EQ(added->GetFlags(), 3);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeGeometry);
    EXPECT_TRUE(recorder.events[0].intervalsRemoved.empty());
    // The listener saw the line without the interval.
    ASSERT_EQ(listener->taken.size(), 1u);
    EXPECT_TRUE(static_cast<CCvLvMemento*>(listener->taken[0].second)->GetIntervals().empty());
}

TEST_F(CvLvTest, EmptyIntervalThatTouchesAnotherEmptyOneMergesWithIt) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(0.0, 1.0, EMPTY);
    ForgetEvents();
    line->AddInterval(1.0, 2.0, EMPTY);
    ASSERT_EQ(line->GetNoIntervals(), 1u);
    EXPECT_EQ(line->GetIntervalAt(0)->GetStart(), 0.0);
    EXPECT_EQ(line->GetIntervalAt(0)->GetEnd(), 2.0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].intervalsRemoved.size(), 1u);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvModifying", "EndEvent"}));
}

TEST_F(CvLvTest, AGapStartingWithinTheToleranceAfterTheNewOneMergesWithIt) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(2.0, 3.0, EMPTY);
    // 2 − 1e-12 + tolerance(2 − 1e-12) ≈ 2 + 1e-12 reaches the start at 2.
    line->AddInterval(1.0, 2.0 - 1e-12, EMPTY);
    ASSERT_EQ(line->GetNoIntervals(), 1u);
    EXPECT_EQ(line->GetIntervalAt(0)->GetStart(), 1.0);
    EXPECT_EQ(line->GetIntervalAt(0)->GetEnd(), 3.0);
    line->AddInterval(0.0, 1.0 - 1e-9, EMPTY);
    EXPECT_EQ(line->GetNoIntervals(), 2u);
}

// The search for what a new gap meets starts at the first interval that does not end before
// the new start, so a gap ending just short of it is never compared, tolerance or not.
TEST_F(CvLvTest, AGapEndingJustBeforeTheNewOneIsNotCompared) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(0.0, 1.0, EMPTY);
    line->AddInterval(1.0 + 1e-13, 2.0, EMPTY);
    EXPECT_EQ(line->GetNoIntervals(), 2u);
}

TEST_F(CvLvTest, EmptyIntervalSwallowsOverlappedLabelsWithoutTakingTheirExtent) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(1.0, 2.0, TEXT);
    line->AddInterval(5.0, 6.0, TEXT);
    ForgetEvents();
    line->AddInterval(1.5, 3.0, EMPTY);
    ASSERT_EQ(line->GetNoIntervals(), 2u);
    EXPECT_EQ(line->GetIntervalAt(0)->GetStart(), 1.5);
    EXPECT_EQ(line->GetIntervalAt(0)->GetEnd(), 3.0);
    EXPECT_FALSE(line->GetIntervalAt(0)->IsText());
    EXPECT_EQ(line->GetIntervalAt(1)->GetStart(), 5.0);
    EXPECT_EQ(recorder.events.at(0).intervalsRemoved.size(), 1u);
}

TEST_F(CvLvTest, LabelTouchingOnlyAtAPointDoesNotBlockAnEmptyInterval) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(0.0, 1.0, TEXT);
    ASSERT_NE(line->AddInterval(1.0, 2.0, EMPTY), nullptr);
    ASSERT_EQ(line->GetNoIntervals(), 2u);
    EXPECT_TRUE(line->GetIntervalAt(0)->IsText());
    EXPECT_FALSE(line->GetIntervalAt(1)->IsText());
}

// The tolerance of the overlap with a label is that of its end, |e|·1e-12 + 1e-12, about
// 2e-12 here: a label reaching less than that into the new gap is kept, one reaching further
// is swallowed without widening the gap.
TEST_F(CvLvTest, ALabelIsSwallowedByAGapOnlyWhenItReachesInBeyondTheTolerance) {
    CCvLv* kept = AddCurvedLine();
    kept->AddInterval(0.0, 1.0 + 1e-12, TEXT);
    ForgetEvents();
    ASSERT_NE(kept->AddInterval(1.0, 2.0, EMPTY), nullptr);
    ASSERT_EQ(kept->GetNoIntervals(), 2u);
    EXPECT_TRUE(kept->GetIntervalAt(0)->IsText());
    EXPECT_EQ(kept->GetIntervalAt(0)->GetEnd(), 1.0 + 1e-12);
    EXPECT_FALSE(kept->GetIntervalAt(1)->IsText());
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].intervalsRemoved.empty());

    CCvLv* swallowed = AddCurvedLine();
    CCvLvInterv* label = swallowed->AddInterval(0.0, 1.0 + 3e-12, TEXT);
    ForgetEvents();
    ASSERT_NE(swallowed->AddInterval(1.0, 2.0, EMPTY), nullptr);
    ASSERT_EQ(swallowed->GetNoIntervals(), 1u);
    EXPECT_FALSE(swallowed->GetIntervalAt(0)->IsText());
    EXPECT_EQ(swallowed->GetIntervalAt(0)->GetStart(), 1.0);
    EXPECT_EQ(swallowed->GetIntervalAt(0)->GetEnd(), 2.0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].intervalsRemoved, std::vector<CCvLvInterv*>{label});
}

// At the boundary itself: a label reaching into the gap by exactly the tolerance of its end
// still only touches it.
TEST_F(CvLvTest, ALabelReachingInByExactlyTheToleranceIsKept) {
    CCvLv* line = AddCurvedLine();
    const double end = 1.5;
    const double start = end - dtm::ToleranceOf(end);
    ASSERT_LT(start, end);
    line->AddInterval(0.0, end, TEXT);
    ASSERT_NE(line->AddInterval(start, 2.0, EMPTY), nullptr);
    ASSERT_EQ(line->GetNoIntervals(), 2u);
    EXPECT_TRUE(line->GetIntervalAt(0)->IsText());
    EXPECT_EQ(line->GetIntervalAt(0)->GetEnd(), end);
    EXPECT_EQ(line->GetIntervalAt(1)->GetStart(), start);
}

// A gap that starts where a label starts and reaches less than the tolerance into it keeps
// the label, and goes in after it: a new interval follows every one that starts at or before
// its start.
TEST_F(CvLvTest, AGapStartingWhereALabelStartsGoesInAfterIt) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(1.0, 2.0, TEXT);
    ASSERT_NE(line->AddInterval(1.0, 1.0 + 1e-13, EMPTY), nullptr);
    ASSERT_EQ(line->GetNoIntervals(), 2u);
    EXPECT_TRUE(line->GetIntervalAt(0)->IsText());
    EXPECT_FALSE(line->GetIntervalAt(1)->IsText());
    EXPECT_EQ(line->GetIntervalAt(1)->GetStart(), 1.0);
}

TEST_F(CvLvTest, AnyOverlapWithTheFoundNeighbourRefusesANewLabelSilently) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(1.0, 2.0, EMPTY);
    const std::vector<TCvLvInterv> before = IntervalsOf(*line);
    ForgetEvents();
    EXPECT_EQ(line->AddInterval(0.0, 1.0, TEXT), nullptr);          // touches the start
    EXPECT_EQ(line->AddInterval(2.0, 3.0, TEXT), nullptr);          // touches the end
    EXPECT_EQ(line->AddInterval(1.2, 1.4, TEXT), nullptr);          // inside
    EXPECT_EQ(line->AddInterval(0.0, 5.0, TEXT), nullptr);          // around
    EXPECT_EQ(line->AddInterval(0.0, 1.0 - 1e-13, TEXT), nullptr);  // within the tolerance
    EXPECT_TRUE(cvlv_test::SameIntervals(IntervalsOf(*line), before));
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_EQ(recorder.opened, 0);
    EXPECT_NE(line->AddInterval(2.5, 3.0, TEXT), nullptr);
    EXPECT_NE(line->AddInterval(0.0, 0.9, TEXT), nullptr);
    EXPECT_EQ(line->GetNoIntervals(), 3u);
}

TEST_F(CvLvTest, IntervalsEndingBeforeANewLabelDoNotBlockIt) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(0.0, 1.0, TEXT);
    line->AddInterval(3.0, 4.0, EMPTY);
    // [0, 1] ends before the new start and is never compared; [3, 4] is the found neighbour
    // and lies clear of the new label.
    EXPECT_NE(line->AddInterval(1.5, 2.5, TEXT), nullptr);
    ASSERT_EQ(line->GetNoIntervals(), 3u);
    EXPECT_EQ(line->GetIntervalAt(1)->GetStart(), 1.5);
}

TEST_F(CvLvTest, GapsJoinedByANewGapBecomeOne) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(0.0, 1.0, EMPTY);
    line->AddInterval(2.0, 3.0, EMPTY);
    line->AddInterval(4.0, 5.0, EMPTY);
    line->AddInterval(7.0, 8.0, TEXT);
    ForgetEvents();
    line->AddInterval(1.0, 4.0, EMPTY);
    ASSERT_EQ(line->GetNoIntervals(), 2u);
    EXPECT_EQ(line->GetIntervalAt(0)->GetStart(), 0.0);
    EXPECT_EQ(line->GetIntervalAt(0)->GetEnd(), 5.0);
    EXPECT_TRUE(line->GetIntervalAt(1)->IsText());
    EXPECT_EQ(recorder.events.at(0).intervalsRemoved.size(), 3u);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvModifying", "EndEvent"}));
}

// Gaps only: whatever the order of addition, the line's gaps must cover exactly the union of
// the gaps added (closed intervals), be sorted and never touch one another.
TEST_F(CvLvTest, RandomGapsCoverExactlyTheUnionOfWhatWasAdded) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        CCvLv* line = AddCurvedLine();
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> startHalves(0, 60);
        std::uniform_int_distribution<int> lengthHalves(0, 6);
        std::vector<TCvLvInterv> added;
        for (int step = 0; step < 25; ++step) {
            const double start = startHalves(random) * 0.5;
            const double end = start + lengthHalves(random) * 0.5;
            line->AddInterval(start, end, EMPTY);
            added.push_back({start, end, EMPTY});

            const std::vector<TCvLvInterv> held = IntervalsOf(*line);
            for (std::size_t i = 0; i + 1 < held.size(); ++i)
                ASSERT_LT(held[i].end, held[i + 1].start) << "seed " << seed << " step " << step;
            // Every quarter point: covered by a held gap exactly when covered by an added one.
            for (int quarter = -2; quarter <= 140; ++quarter) {
                const double at = quarter * 0.25;
                bool inAdded = false, inHeld = false;
                for (const auto& gap : added)
                    inAdded = inAdded || (gap.start <= at && at <= gap.end);
                for (const auto& gap : held) inHeld = inHeld || (gap.start <= at && at <= gap.end);
                ASSERT_EQ(inAdded, inHeld) << "seed " << seed << " step " << step << " at " << at;
            }
        }
        cvlvs->RemoveCvLv(line);
    }
}

TEST_F(CvLvTest, RemovedIntervalLivesUntilTheEventClosesThenIsReleased) {
    CCvLv* line = AddCurvedLine();
    const auto interval = kor::CRefPtr<CCvLvInterv>::Share(line->AddInterval(1.0, 2.0, TEXT));
    ASSERT_EQ(interval->GetReferenceCount(), 2);
    ForgetEvents();
    {
        kor::CEventGuard event(context);
        EXPECT_TRUE(line->RemoveInterval(interval.Get()));
        // The line let go of it; the context holds one until the event closes.
        EXPECT_EQ(line->GetNoIntervals(), 0u);
        EXPECT_EQ(interval->GetReferenceCount(), 2);
        EXPECT_EQ(context->GetCvLvIntervalsRemoved(), std::vector<CCvLvInterv*>{interval.Get()});
    }
    EXPECT_EQ(interval->GetReferenceCount(), 1);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].intervalsRemoved, std::vector<CCvLvInterv*>{interval.Get()});
    EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
}

TEST_F(CvLvTest, RemovingAnIntervalTheLineDoesNotHoldReturnsFalseAndSendsNothing) {
    CCvLv* line = AddCurvedLine();
    CCvLv* other = AddCurvedLine();
    CCvLvInterv* foreign = other->AddInterval(1.0, 2.0, TEXT);
    ForgetEvents();
    EXPECT_FALSE(line->RemoveInterval(foreign));
    EXPECT_FALSE(line->RemoveInterval(nullptr));
    line->InvertTextDirection(foreign);
    EXPECT_EQ(foreign->GetFlags(), TEXT);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(CvLvTest, IntervalRemovedWithoutAContextIsSimplyReleased) {
    CCvLvs orphanCollection(nullptr);
    auto line = kor::CRefPtr<CCvLv>::Adopt(new CCvLv(&orphanCollection, 5.0, -1.0, 7));
    const auto interval = kor::CRefPtr<CCvLvInterv>::Share(line->AddInterval(1.0, 2.0, TEXT));
    EXPECT_TRUE(line->RemoveInterval(interval.Get()));
    EXPECT_EQ(interval->GetReferenceCount(), 1);
}

TEST_F(CvLvTest, RemoveTextIntervalsLeavesGapsAndTheReverse) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(0.0, 1.0, EMPTY);
    line->AddInterval(2.0, 3.0, TEXT);
    line->AddInterval(4.0, 5.0, EMPTY);
    line->AddInterval(6.0, 7.0, TEXT | CCvLvInterv::FLAG_INVERTED);
    ForgetEvents();
    line->RemoveTextIntervals();
    ASSERT_EQ(line->GetNoIntervals(), 2u);
    EXPECT_EQ(line->GetIntervalAt(0)->GetStart(), 0.0);
    EXPECT_EQ(line->GetIntervalAt(1)->GetStart(), 4.0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].intervalsRemoved.size(), 2u);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvModifying", "EndEvent"}));

    // No labels left: nothing to report.
    ForgetEvents();
    line->RemoveTextIntervals();
    EXPECT_TRUE(recorder.events.empty());

    line->AddInterval(8.0, 9.0, TEXT);
    line->RemoveEmptyIntervals();
    ASSERT_EQ(line->GetNoIntervals(), 1u);
    EXPECT_TRUE(line->GetIntervalAt(0)->IsText());
    EXPECT_EQ(line->GetIntervalAt(0)->GetStart(), 8.0);
}

TEST_F(CvLvTest, InvertTextDirectionTogglesBitOne) {
    CCvLv* line = AddCurvedLine();
    CCvLvInterv* label = line->AddInterval(1.0, 2.0, TEXT);
    ForgetEvents();
    line->InvertTextDirection(label);
    EXPECT_EQ(label->GetFlags(), TEXT | CCvLvInterv::FLAG_INVERTED);
    line->InvertTextDirection(label);
    EXPECT_EQ(label->GetFlags(), TEXT);
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeGeometry);
    EXPECT_EQ(line->FindInterval(label), 0);
}

// ---------------------------------------------------------------------------------------------
// The node editor

TEST_F(CvLvTest, ModifierReportsTheFirstMoveOnlyAndRecomputesTheSplineWhenItGoes) {
    CCvLv* line = AddCurvedLine();
    ForgetEvents();
    {
        kor::CEventGuard event(context);
        CCvLvModifier modifier(line);
        EXPECT_FALSE(modifier.IsChanged());
        modifier.MoveNode(1, 10.0, 5.0);
        modifier.MoveNode(3, 30.0, -6.0);
        EXPECT_TRUE(modifier.IsChanged());
        EXPECT_EQ(listener->taken.size(), 1u);
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeAll);
    EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
    // The listener saw the nodes from before the first move.
    const auto* memento = static_cast<CCvLvMemento*>(listener->taken.at(0).second);
    EXPECT_EQ(memento->GetNodes()[1].y, 2.0);

    const CCvLv* fresh = AddLine(100.0, {{0, 0}, {10, 5}, {20, 0}, {30, -6}, {40, 0}});
    EXPECT_TRUE(cvlv_test::SameNodes(line->GetNodes(), fresh->GetNodes()));
    EXPECT_EQ(line->GetSigmap(), fresh->GetSigmap());
}

TEST_F(CvLvTest, ModifierWithoutMovesChangesAndSendsNothing) {
    CCvLv* line = AddCurvedLine();
    const auto before = StateOf(*line);
    ForgetEvents();
    { CCvLvModifier modifier(line); }
    cvlv_test::ExpectSameState(before, StateOf(*line));
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(CvLvTest, ModifierOutOfRangeMoveThrowsAndSendsNothing) {
    CCvLv* line = AddCurvedLine();
    ForgetEvents();
    {
        CCvLvModifier modifier(line);
        EXPECT_THROW(modifier.MoveNode(5, 0.0, 0.0), std::out_of_range);
        EXPECT_FALSE(modifier.IsChanged());
    }
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_THROW(CCvLvModifier(nullptr), std::invalid_argument);
}

TEST_F(CvLvTest, CopiedAndAssignedModifiersCarryTheLineAndTheChangedMark) {
    CCvLv* line = AddCurvedLine();
    CCvLv* other = AddLine(200.0, {{0, 0}, {5, 5}, {10, 0}});
    const auto otherBefore = StateOf(*other);
    ForgetEvents();
    {
        kor::CEventGuard event(context);
        CCvLvModifier modifier(line);
        const CCvLvModifier unchangedCopy(modifier);
        EXPECT_FALSE(unchangedCopy.IsChanged());
        modifier.MoveNode(1, 10.0, 5.0);
        CCvLvModifier copy(modifier);
        EXPECT_TRUE(copy.IsChanged());
        CCvLvModifier assigned(other);
        assigned = modifier;
        EXPECT_TRUE(assigned.IsChanged());
        // Both copies edit the first line and, already marked, announce nothing more.
        copy.MoveNode(3, 30.0, -6.0);
        assigned.MoveNode(2, 20.0, 1.0);
        EXPECT_EQ(listener->taken.size(), 1u);
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
    const CCvLv* fresh = AddLine(100.0, {{0, 0}, {10, 5}, {20, 1}, {30, -6}, {40, 0}});
    EXPECT_TRUE(cvlv_test::SameNodes(line->GetNodes(), fresh->GetNodes()));
    EXPECT_EQ(line->GetSigmap(), fresh->GetSigmap());
    cvlv_test::ExpectSameState(otherBefore, StateOf(*other));
}

// ---------------------------------------------------------------------------------------------
// Mementos

TEST_F(CvLvTest, MementoReportsItsSizeFromNodesAndIntervals) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(1.0, 2.0, TEXT);
    line->AddInterval(4.0, 5.0, EMPTY);
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(line->CreateMemento());
    EXPECT_EQ(memento->GetSize(), 96u + 40u * 5u + 48u * 2u);
    CCvLv* bare = cvlvs->AddNewCvLv(1.0, -1.0, 7, 0, nullptr, nullptr);
    const auto empty = kor::CRefPtr<kor::IMemento>::Adopt(bare->CreateMemento());
    EXPECT_EQ(empty->GetSize(), 96u);
}

TEST_F(CvLvTest, HasChangedAlwaysAnswersTrue) {
    CCvLv* line = AddCurvedLine();
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(line->CreateMemento());
    EXPECT_TRUE(line->HasChanged(memento.Get()));
    EXPECT_TRUE(line->HasChanged(nullptr));
}

TEST_F(CvLvTest, UndoLikeRestoreBringsBackEverythingTheMementoHolds) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(1.0, 2.0, TEXT);
    line->AddInterval(4.0, 6.0, EMPTY);
    const cvlv_test::LineState before = StateOf(*line);
    ForgetEvents();
    {
        kor::CEventGuard event(context);
        line->SetColor(12);
        line->ChangeSigmaTension(4.0);
        {
            CCvLvModifier modifier(line);
            modifier.MoveNode(2, 21.0, 3.0);
        }
        line->RemoveTextIntervals();
        line->AddInterval(10.0, 11.0, TEXT);
        line->AddInterval(5.0, 8.0, EMPTY);
    }
    ASSERT_EQ(listener->taken.size(), 1u);
    kor::IMemento* memento = listener->taken[0].second;
    memento->AddReference();
    const cvlv_test::LineState changed = StateOf(*line);
    const auto redo = kor::CRefPtr<kor::IMemento>::Adopt(line->CreateMemento());
    ForgetEvents();

    {
        kor::CEventGuard undo(context);
        line->SetMemento(memento);
    }
    // sigmap is no part of a memento: see the two tests that follow.
    cvlv_test::ExpectSameState(before, StateOf(*line), cvlv_test::Sigmap::Ignored);
    // Restoring is itself recorded, so the undo can be undone.
    ASSERT_EQ(listener->taken.size(), 1u);
    EXPECT_EQ(recorder.events.at(0).intervalsRemoved.size(), 2u);

    {
        kor::CEventGuard redoEvent(context);
        line->SetMemento(redo.Get());
    }
    cvlv_test::ExpectSameState(changed, StateOf(*line), cvlv_test::Sigmap::Ignored);
    memento->SubReference();
}

TEST_F(CvLvTest, RestoringMovedNodesAtTheSameTensionKeepsThePresentSigmap) {
    CCvLv* line = AddCurvedLine();
    line->ChangeSigmaTension(1.0);
    const double original = line->GetSigmap();
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(line->CreateMemento());
    {
        kor::CEventGuard event(context);
        CCvLvModifier modifier(line);
        modifier.MoveNode(3, 30.0, -40.0);
    }
    const double moved = line->GetSigmap();
    ASSERT_FALSE(cvlv_test::SameBits(moved, original));
    const std::vector<TVrtPol> savedNodes =
        static_cast<const CCvLvMemento*>(memento.Get())->GetNodes();
    line->SetMemento(memento.Get());
    // The nodes and their coefficients come back as they were; sigmap, derived and not kept,
    // stays the one the moved line computed, since the tension did not change.
    EXPECT_TRUE(cvlv_test::SameNodes(line->GetNodes(), savedNodes));
    EXPECT_TRUE(cvlv_test::SameBits(line->GetSigmap(), moved));
}

TEST_F(CvLvTest, RestoringAnotherTensionRecomputesSigmapOverThePresentNodes) {
    CCvLv* line = AddCurvedLine();
    line->ChangeSigmaTension(1.0);
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(line->CreateMemento());
    {
        kor::CEventGuard event(context);
        line->ChangeSigmaTension(5.0);
        CCvLvModifier modifier(line);
        modifier.MoveNode(3, 30.0, -40.0);
    }
    // The sigmap that tension 1 gives over the moved nodes, computed on a line of its own.
    CCvLv* twin = AddLine(100.0, {{0, 0}, {10, 2}, {20, 0}, {30, -40}, {40, 0}});
    twin->ChangeSigmaTension(1.0);
    line->SetMemento(memento.Get());
    EXPECT_EQ(line->GetSigma(), 1.0);
    EXPECT_TRUE(cvlv_test::SameBits(line->GetSigmap(), twin->GetSigmap()));
    EXPECT_TRUE(cvlv_test::SameNodes(line->GetNodes(),
                                     static_cast<const CCvLvMemento*>(memento.Get())->GetNodes()));
}

TEST_F(CvLvTest, RestoringAMementoWithEqualColourAndTensionSendsOnlyTheGeometryChange) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(1.0, 2.0, TEXT);
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(line->CreateMemento());
    CCvLvInterv* old = line->GetIntervalAt(0);
    ForgetEvents();
    line->SetMemento(memento.Get());
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeGeometry);
    EXPECT_EQ(recorder.events[0].intervalsRemoved, std::vector<CCvLvInterv*>{old});
    // New interval objects were made from the memento's values.
    ASSERT_EQ(line->GetNoIntervals(), 1u);
    EXPECT_EQ(line->GetIntervalAt(0)->GetStart(), 1.0);
    EXPECT_EQ(line->GetIntervalAt(0)->GetEnd(), 2.0);
}

TEST_F(CvLvTest, RestoringPutsColourThenTensionThenGeometryBackAsSeparateChanges) {
    CCvLv* line = AddCurvedLine();
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(line->CreateMemento());
    line->SetColor(2);
    line->ChangeSigmaTension(6.0);
    ForgetEvents();
    line->SetMemento(memento.Get());
    ASSERT_EQ(recorder.events.size(), 3u);
    EXPECT_EQ(recorder.events[0].cvLvChangeType, eCvLvChangeColor);
    EXPECT_EQ(recorder.events[1].cvLvChangeType, eCvLvChangeGeometry);
    EXPECT_EQ(recorder.events[2].cvLvChangeType, eCvLvChangeGeometry);
    // The state seen before each step: the colour first, then the tension.
    ASSERT_EQ(listener->taken.size(), 3u);
    const auto seen = [&](std::size_t i) {
        return static_cast<CCvLvMemento*>(listener->taken[i].second);
    };
    EXPECT_EQ(seen(0)->GetColor(), 2);
    EXPECT_EQ(seen(1)->GetColor(), 7);
    EXPECT_EQ(seen(1)->GetSigma(), 6.0);
    EXPECT_EQ(seen(2)->GetSigma(), -1.0);
    EXPECT_EQ(line->GetColor(), 7);
}

// Restoring takes the memento's intervals as they were held, even unsorted and overlapping:
// going through the adding rules would sort them and let the gap swallow the labels.
TEST_F(CvLvTest, RestoredIntervalsKeepTheMementosOrderWithoutSortingOrMerging) {
    CCvLv* line = AddCurvedLine();
    line->AddInterval(1.0, 2.0, TEXT);
    line->AddInterval(5.0, 6.0, TEXT);
    line->AddInterval(10.0, 11.0, EMPTY);
    line->ChangeIntervalDimension(0, 7.0, 9.0);
    line->ChangeIntervalDimension(2, 5.5, 8.0);
    const std::vector<TCvLvInterv> held = {{7.0, 9.0, TEXT}, {5.0, 6.0, TEXT}, {5.5, 8.0, EMPTY}};
    ASSERT_TRUE(cvlv_test::SameIntervals(IntervalsOf(*line), held));
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(line->CreateMemento());
    line->RemoveTextIntervals();
    line->RemoveEmptyIntervals();
    ASSERT_EQ(line->GetNoIntervals(), 0u);
    line->SetMemento(memento.Get());
    EXPECT_TRUE(cvlv_test::SameIntervals(IntervalsOf(*line), held));
}

TEST_F(CvLvTest, RestoringAnotherEntitysMementoThrowsAndChangesNothing) {
    CCvLv* line = AddCurvedLine();
    const auto before = StateOf(*line);
    const auto foreign = kor::CRefPtr<kor::IMemento>::Adopt(new CVncMemento(kor::geom::LINE_3D()));
    ForgetEvents();
    EXPECT_THROW(line->SetMemento(foreign.Get()), std::invalid_argument);
    cvlv_test::ExpectSameState(before, StateOf(*line));
    EXPECT_TRUE(recorder.events.empty());
}

// ---------------------------------------------------------------------------------------------
// Nearest spine parameter

TEST_F(CvLvTest, FindSpineParamOnAStraightLineIsTheProjection) {
    CCvLv* line = AddLine(0.0, {{0, 0}, {10, 0}});
    int segment = 0;
    double t = 0.0, spine = 0.0;
    ASSERT_TRUE(line->FindSpineParam(PNT_2D(3.3, 5.0), segment, t, spine));
    EXPECT_EQ(segment, 0);
    EXPECT_NEAR(t, 3.3, 1e-4);
    EXPECT_NEAR(spine, 3.3, 1e-4);
}

TEST_F(CvLvTest, FindSpineParamMatchesADenseSamplingOfTheCurve) {
    CCvLv* line = AddCurvedLine();
    const std::vector<TVrtPol>& nodes = line->GetNodes();
    const PNT_2D probe(23.0, 4.0);
    // Brute force: the curve sampled every 1e-4 of its spine.
    double bestDistance = 1e300, bestSpine = 0.0, offset = 0.0;
    for (std::size_t i = 0; i + 1 < nodes.size(); ++i) {
        const TVrtPol& a = nodes[i];
        const TVrtPol& b = nodes[i + 1];
        for (double t = 0.0; t <= a.len; t += 1e-4) {
            double x = 0.0, y = 0.0;
            TrovaSngValSpline(a.len, t, line->GetSigmap(), a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp,
                              b.yp, x, y);
            const double d = probe.dist(PNT_2D(x, y));
            if (d < bestDistance) {
                bestDistance = d;
                bestSpine = offset + t;
            }
        }
        offset += a.len;
    }
    int segment = -1;
    double t = 0.0, spine = 0.0;
    ASSERT_TRUE(line->FindSpineParam(probe, segment, t, spine));
    ASSERT_EQ(segment, 2);
    // Each refinement level of the search only looks on from the best sample of the level
    // before, so it may settle a little way from the true minimum; near the minimum the
    // distance hardly changes along the curve, so the distance is compared more tightly.
    EXPECT_NEAR(spine, bestSpine, 0.05);
    EXPECT_NEAR(spine, nodes[0].len + nodes[1].len + t, 1e-9);
    const TVrtPol& a = nodes[2];
    const TVrtPol& b = nodes[3];
    double x = 0.0, y = 0.0;
    TrovaSngValSpline(a.len, t, line->GetSigmap(), a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp, x,
                      y);
    EXPECT_NEAR(probe.dist(PNT_2D(x, y)), bestDistance, 1e-3);
}

TEST_F(CvLvTest, FindSpineParamOnALineWithoutSegmentsFails) {
    CCvLv* line = cvlvs->AddNewCvLv(1.0, -1.0, 7, 0, nullptr, nullptr);
    int segment = 5;
    double t = 0.0, spine = 0.0;
    EXPECT_FALSE(line->FindSpineParam(PNT_2D(0.0, 0.0), segment, t, spine));
    EXPECT_EQ(segment, -1);
}

// ---------------------------------------------------------------------------------------------
// Labels of old files

// What ConvertOldVrtPolTipo2 makes of a label at elevation 5, written without decimals, placed
// at @p position on a straight segment of length @p len along the x axis (node 2 at x = 10,
// coefficients zero).
struct OldLabel {
    double start = 0.0, end = 0.0;
    std::int32_t flags = 0;
};
OldLabel ConvertOldLabel(double len, double charHeight, double base, short position) {
    const TOldVrtPol node1{2, position, 0.0, 0.0, 0.0, 0.0, len};
    const TOldVrtPol node2{1, 0, 10.0, 0.0, 0.0, 0.0, 0.0};
    OldLabel label;
    CCvLv::ConvertOldVrtPolTipo2(1.0, 5.0, charHeight, 0, base, node1, node2, position, label.start,
                                 label.end, label.flags);
    return label;
}

// On a straight segment with zero coefficients, evaluated with h = base, the curve is the chord
// traversed at rate chord/base; the walk of k steps has gone k·step·chord/base from its start.
TEST_F(CvLvTest, ConvertOldLabelWalksUntilTheTextFits) {
    const TOldVrtPol node1{2, 20, 0.0, 0.0, 0.0, 0.0, 10.0};
    const TOldVrtPol node2{1, 0, 10.0, 0.0, 0.0, 0.0, 0.0};
    const double base = 20.0, height = 0.1, chord = 10.0, step = 10.0 / 100.0;
    for (int decimals : {0, 1, 3}) {
        double start = 0.0, end = 0.0;
        std::int32_t flags = 0;
        CCvLv::ConvertOldVrtPolTipo2(1.0, 123.0, height, decimals, base, node1, node2,
                                     node1.position, start, end, flags);
        const double characters = static_cast<double>(StringDaDouble(123.0, decimals).length());
        const double span = (characters - 0.3333 + 1.0) * height;
        const double perStep = step * chord / base;
        const double steps = std::floor(span / perStep) + 1.0;
        EXPECT_EQ(flags, 1);
        EXPECT_NEAR(start, 20 * step + base, 1e-12);
        EXPECT_NEAR(end, 20 * step + steps * step + base, 1e-9) << decimals << " decimals";
    }
}

TEST_F(CvLvTest, ConvertOldLabelWithNegativePositionReadsAgainstTheLine) {
    const OldLabel label = ConvertOldLabel(10.0, 0.1, 20.0, -30);
    EXPECT_EQ(label.flags, 3);
    EXPECT_NEAR(label.start, -3.0 + 20.0, 1e-12);
    EXPECT_GT(label.end, label.start);
}

TEST_F(CvLvTest, ConvertOldLabelLongerThanItsSegmentEndsAtTheSegmentEnd) {
    const OldLabel label = ConvertOldLabel(10.0, 100.0, 20.0, 50);
    EXPECT_NEAR(label.start, 25.0, 1e-12);
    // The walk stops at the segment's end: len + base, give or take the rounding of the steps.
    EXPECT_NEAR(label.end, 30.0, 1e-9);
    EXPECT_LE(label.end, 30.0);
}

// A label placed past its segment (position 150 of 100) starts where it was placed but ends at
// the segment's end: there the walk has nothing to do, and the end is clamped to len + base.
TEST_F(CvLvTest, ConvertOldLabelPlacedPastItsSegmentIsClampedToTheSegmentEnd) {
    const OldLabel label = ConvertOldLabel(10.0, 0.1, 20.0, 150);
    EXPECT_EQ(label.flags, 1);
    EXPECT_EQ(label.start, 150 * (10.0 / 100.0) + 20.0);
    EXPECT_EQ(label.end, 10.0 + 20.0);
}

// A text far longer than the segment: only the segment's length stops the walk. A hundred steps
// of 0.1 add up to just under 10, within the tolerance of len (10·1e-12 + 1e-12), so the walk
// stops there and the end is that sum plus base, short of len + base.
TEST_F(CvLvTest, ConvertOldLabelWalkStopsWithinTheToleranceOfTheSegmentLength) {
    const double step = 10.0 / 100.0;
    double walked = 0.0;
    for (int k = 0; k < 100; ++k) walked += step;
    ASSERT_LT(walked, 10.0);
    ASSERT_GE(walked, 10.0 - (10.0 * 1e-12 + 1e-12));
    const OldLabel label = ConvertOldLabel(10.0, 100.0, 10.0, 0);
    EXPECT_EQ(label.flags, 1);
    EXPECT_EQ(label.start, 10.0);
    EXPECT_EQ(label.end, walked + 10.0);
    EXPECT_LT(label.end, 20.0);
}

// A label placed exactly where the walk must stop, at the segment's length less its tolerance:
// the walk takes no step there, so the label ends where it starts. Such a place exists only on
// a tiny segment (position 99 of 100 lies a tolerance, about 1e-12, short of the end when the
// segment is about 1e-10 long); the length is searched for among the doubles near there.
TEST_F(CvLvTest, ConvertOldLabelPlacedWhereTheWalkStopsTakesNoStep) {
    const short position = 99;
    double len = 1e-12 / (1.0 - position / 100.0 - 1e-12);
    int tries = 0;
    while (position * (len / 100.0) != len - dtm::ToleranceOf(len) && ++tries < 10000)
        len = std::nextafter(len, 1.0);
    ASSERT_LT(tries, 10000) << "no length near " << len << " puts the label at the stop";
    const OldLabel label = ConvertOldLabel(len, 100.0, 1.0, position);
    EXPECT_EQ(label.start, position * (len / 100.0) + 1.0);
    EXPECT_EQ(label.end, label.start);
    // One step more would have ended it a step (about 1e-12) further: far more than the
    // rounding of the sum with the base, 2e-16.
    EXPECT_LT(std::nextafter(label.start, 2.0), label.start + len / 100.0);
}

TEST_F(CvLvTest, ConvertOldLabelOnAZeroLengthSegmentEndsWhereItStarts) {
    const TOldVrtPol node1{2, 10, 0.0, 0.0, 0.0, 0.0, 0.0};
    const TOldVrtPol node2{1, 0, 0.0, 0.0, 0.0, 0.0, 0.0};
    double start = -1.0, end = -1.0;
    std::int32_t flags = 0;
    CCvLv::ConvertOldVrtPolTipo2(1.0, 5.0, 1.0, 0, 7.0, node1, node2, 10, start, end, flags);
    EXPECT_EQ(start, 7.0);
    EXPECT_EQ(end, 7.0);
}

}  // namespace
