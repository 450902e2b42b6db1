#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/contours/COpzCvLv.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "CvLvTestSupport.h"

namespace {

using cvlv_test::ContourFixture;
using cvlv_test::Log;

constexpr std::int32_t TEXT = CCvLvInterv::FLAG_TEXT;
constexpr std::int32_t EMPTY = 0;

/// The length a label of @p characters characters takes along a line at text height @p height
/// when it is centred on it.
double LabelExtent(std::size_t characters, double height) {
    return (static_cast<double>(characters) - 0.3333 + 1.0) * height;
}

/// The text height at which a one-character label takes @p extent.
double HeightForExtent(double extent) {
    return extent / (1.0 - 0.3333 + 1.0);
}

/// The labels of @p before fitted to @p extent, visited in order as the design states it: the
/// centre stays; lo = c - ext/2 raised to 0, lowered to the previous interval's end when beyond
/// it; hi = c + ext/2 lowered to the next interval's start; the half-length is the smaller side.
std::vector<TCvLvInterv> Fitted(std::vector<TCvLvInterv> intervals, double extent) {
    for (std::size_t i = 0; i < intervals.size(); ++i) {
        TCvLvInterv& label = intervals[i];
        if ((label.flags & TEXT) == 0) continue;
        const double c = (label.start + label.end) / 2;
        if (extent == 0) {
            label.start = label.end = c;
            continue;
        }
        double lo = c - extent / 2;
        if (lo < 0) lo = 0;
        double hi = c + extent / 2;
        if (i > 0 && lo > intervals[i - 1].end) lo = intervals[i - 1].end;
        if (i + 1 < intervals.size() && hi > intervals[i + 1].start) hi = intervals[i + 1].start;
        double half = std::min(c - lo, hi - c);
        if (half < 0) half = 0;
        label.start = c - half;
        label.end = c + half;
    }
    return intervals;
}

class LabelsTest : public ContourFixture {
protected:
    /// A straight line 100 long at elevation 5, whose label text is "5" with the fixture's
    /// options.
    CCvLv* AddStraightLine() { return AddLine(5.0, {{0, 0}, {100, 0}}); }
    /// Sets the text options with height @p height and alignment @p alignment, the rest as the
    /// fixture has them.
    void SetText(double height, enumTextVAlignment alignment = TEXT_VALIGN_CENTRED) {
        cvlvs->SetTextOptions(height, 1.0, 0, "", "", alignment, TEXT_ORIENTATION_0);
    }
    void ExpectInterval(const CCvLv& line, unsigned i, double start, double end) {
        EXPECT_EQ(line.GetIntervalAt(i)->GetStart(), start) << "interval " << i;
        EXPECT_EQ(line.GetIntervalAt(i)->GetEnd(), end) << "interval " << i;
    }
};

TEST_F(LabelsTest, LabelsAreFittedToTheTextExtentAroundTheirCentres) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(19.0, 21.0, TEXT);
    line->AddInterval(49.5, 50.5, TEXT);
    SetText(3.0);
    const double half = LabelExtent(1, 3.0) / 2;
    ExpectInterval(*line, 0, 20.0 - half, 20.0 + half);
    ExpectInterval(*line, 1, 50.0 - half, 50.0 + half);
}

TEST_F(LabelsTest, TheLabelTextIsPrefixElevationWithDecimalsAndSuffix) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(40.0, 60.0, TEXT);
    cvlvs->SetTextOptions(0.5, 1.0, 2, "h=", " m", TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0);
    const double half = LabelExtent(std::string("h=5.00 m").size(), 0.5) / 2;
    ExpectInterval(*line, 0, 50.0 - half, 50.0 + half);
}

TEST_F(LabelsTest, LabelsNotCentredOnTheLineCollapseToTheirCentre) {
    for (enumTextVAlignment alignment : {TEXT_VALIGN_0, TEXT_VALIGN_2}) {
        CCvLv* line = AddStraightLine();
        line->AddInterval(10.0, 14.0, TEXT);
        line->AddInterval(20.0, 23.0, EMPTY);
        line->AddInterval(30.0, 31.0, TEXT);
        SetText(1.0, alignment);
        ExpectInterval(*line, 0, 12.0, 12.0);
        ExpectInterval(*line, 1, 20.0, 23.0);
        ExpectInterval(*line, 2, 30.5, 30.5);
        SetText(1.0);  // back to centred for the next round
        cvlvs->RemoveCvLv(line);
    }
}

TEST_F(LabelsTest, TheStartOfTheLineLimitsTheHalfLength) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(0.5, 1.5, TEXT);
    SetText(HeightForExtent(4.0));
    ExpectInterval(*line, 0, 0.0, 2.0);
}

TEST_F(LabelsTest, TheStartOfTheNextIntervalLimitsTheHalfLength) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(9.8, 10.2, TEXT);
    line->AddInterval(10.5, 12.0, EMPTY);
    SetText(HeightForExtent(4.0));
    ExpectInterval(*line, 0, 9.5, 10.5);
    ExpectInterval(*line, 1, 10.5, 12.0);
}

TEST_F(LabelsTest, ThePreviousIntervalDoesNotLimitTheLabel) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(8.0, 9.5, EMPTY);
    line->AddInterval(9.8, 10.2, TEXT);
    const double height = HeightForExtent(4.0);
    SetText(height);
    const double half = LabelExtent(1, height) / 2;
    EXPECT_DOUBLE_EQ(half, 2.0);
    // [8, 12] when nothing else limits it, overlapping the gap before it.
    ExpectInterval(*line, 0, 8.0, 9.5);
    ExpectInterval(*line, 1, 10.0 - half, 10.0 + half);
}

TEST_F(LabelsTest, UpdatingALineStoresEveryTextIntervalAsAChangeOfItsOwn) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(10.0, 11.0, TEXT);
    line->AddInterval(20.0, 21.0, TEXT);
    line->AddInterval(30.0, 31.0, EMPTY);
    ForgetEvents();
    // Unchanged extents are stored and reported all the same; the gap is not visited.
    cvlvs->UpdateCvLvTextIntervals(line);
    cvlvs->UpdateCvLvTextIntervals(line);
    ASSERT_EQ(recorder.events.size(), 4u);
    for (const auto& event : recorder.events) {
        EXPECT_EQ(event.cvLvModified, std::vector<CCvLv*>{line});
        EXPECT_EQ(event.cvLvChangeType, eCvLvChangeGeometry);
    }
    const Log one{"BeginEvent", "CvLvModifying", "EndEvent"};
    Log four;
    for (int i = 0; i < 4; ++i) four.insert(four.end(), one.begin(), one.end());
    EXPECT_EQ(listener->log, four);
}

TEST_F(LabelsTest, UpdatingALineInsideAnEventOfTheCallerIsPartOfIt) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(10.0, 11.0, TEXT);
    line->AddInterval(20.0, 21.0, TEXT);
    ForgetEvents();
    {
        kor::CEventGuard event(context);
        cvlvs->UpdateCvLvTextIntervals(line);
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvModifying", "EndEvent"}));
}

TEST_F(LabelsTest, LinesWithoutNodesOrLabelsAreLeftAlone) {
    CCvLv* bare = cvlvs->AddNewCvLv(5.0, -1.0, 7, 0, nullptr, nullptr);
    bare->AddInterval(1.0, 3.0, TEXT);
    CCvLv* gapsOnly = AddStraightLine();
    gapsOnly->AddInterval(1.0, 3.0, EMPTY);
    CCvLv* nothing = AddStraightLine();
    ForgetEvents();
    cvlvs->UpdateCvLvTextIntervals(bare);
    cvlvs->UpdateCvLvTextIntervals(gapsOnly);
    cvlvs->UpdateCvLvTextIntervals(nothing);
    EXPECT_TRUE(recorder.events.empty());
    ExpectInterval(*bare, 0, 1.0, 3.0);
    EXPECT_THROW(cvlvs->UpdateCvLvTextIntervals(nullptr), std::invalid_argument);
}

TEST_F(LabelsTest, GapsKeepTheirExtentsThroughTextOptionChanges) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(1.0, 2.0, EMPTY);
    line->AddInterval(5.0, 6.0, TEXT);
    line->AddInterval(6.5, 9.0, EMPTY);
    for (double height : {0.1, 2.0, 7.0}) {
        SetText(height);
        ExpectInterval(*line, 0, 1.0, 2.0);
        ExpectInterval(*line, 2, 6.5, 9.0);
    }
}

TEST_F(LabelsTest, SetTextOptionsWithTheStoredValuesDoesNothing) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(10.0, 11.0, TEXT);
    ForgetEvents();
    SetText(1.0);  // the fixture's values
    EXPECT_TRUE(recorder.events.empty());
    ExpectInterval(*line, 0, 10.0, 11.0);
}

TEST_F(LabelsTest, SetTextOptionsStoresAndRelabelsEveryLineInOneEvent) {
    CCvLv* a = AddStraightLine();
    CCvLv* b = AddStraightLine();
    a->AddInterval(10.0, 11.0, TEXT);
    b->AddInterval(30.0, 31.0, TEXT);
    ForgetEvents();
    cvlvs->SetTextOptions(2.0, 3.0, 1, "p", "s", TEXT_VALIGN_2, TEXT_ORIENTATION_1);
    const COpzCvLv& options = cvlvs->GetOpzCvLv();
    EXPECT_EQ(options.GetTextHeight(), 2.0);
    EXPECT_EQ(options.GetGap(), 3.0);
    EXPECT_EQ(options.GetDecimals(), 1);
    EXPECT_EQ(options.GetPrefix(), kor::String("p"));
    EXPECT_EQ(options.GetSuffix(), kor::String("s"));
    EXPECT_EQ(options.GetVAlignment(), TEXT_VALIGN_2);
    EXPECT_EQ(options.GetOrientation(), TEXT_ORIENTATION_1);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cvLvModified, (std::vector<CCvLv*>{a, b}));
    ExpectInterval(*a, 0, 10.5, 10.5);
    ExpectInterval(*b, 0, 30.5, 30.5);
    // Each option alone counts as a change, the strings compared case-sensitively.
    ForgetEvents();
    cvlvs->SetTextOptions(2.0, 3.0, 1, "P", "s", TEXT_VALIGN_2, TEXT_ORIENTATION_1);
    EXPECT_EQ(recorder.events.size(), 1u);
}

// Each option on its own is a change: a comparison that skipped one would lose the new value
// without a word, most easily the gap or the orientation, which move no label. Every change
// stores the value and relabels the line (text "5", "5.0", then "5.0m") in one event.
TEST_F(LabelsTest, SetTextOptionsNoticesAChangeOfAnyOneOption) {
    CCvLv* line = AddStraightLine();
    line->AddInterval(10.0, 11.0, TEXT);
    const COpzCvLv& options = cvlvs->GetOpzCvLv();
    // Sets the options and expects one event relabelling the line for a text of @p characters.
    const auto set = [&](std::int32_t decimals, const char* suffix, enumTextOrientation orientation,
                         std::size_t characters) {
        const std::vector<TCvLvInterv> expected =
            Fitted(cvlv_test::StateOf(*line).intervals, LabelExtent(characters, 1.0));
        ForgetEvents();
        cvlvs->SetTextOptions(1.0, 2.0, decimals, "", suffix, TEXT_VALIGN_CENTRED, orientation);
        ASSERT_EQ(recorder.events.size(), 1u);
        EXPECT_EQ(recorder.events[0].cvLvModified, std::vector<CCvLv*>{line});
        EXPECT_TRUE(cvlv_test::SameIntervals(cvlv_test::StateOf(*line).intervals, expected));
    };

    set(0, "", TEXT_ORIENTATION_0, 1);  // the gap alone, 1 to 2
    EXPECT_EQ(options.GetGap(), 2.0);

    set(1, "", TEXT_ORIENTATION_0, 3);  // the decimals alone: "5.0"
    EXPECT_EQ(options.GetDecimals(), 1);

    set(1, "m", TEXT_ORIENTATION_0, 4);  // the suffix alone: "5.0m"
    EXPECT_EQ(options.GetSuffix(), kor::String("m"));

    set(1, "m", TEXT_ORIENTATION_1, 4);  // the orientation alone
    EXPECT_EQ(options.GetOrientation(), TEXT_ORIENTATION_1);
}

// Random lines of labels and gaps against the sequential computation above, for several text
// heights; the seed and the round are named on failure.
TEST_F(LabelsTest, RandomLabelsMatchTheStatedComputation) {
    for (unsigned seed = 1; seed <= 30; ++seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> position(0.0, 60.0);
        std::uniform_real_distribution<double> length(0.0, 4.0);
        std::bernoulli_distribution isText(0.6);
        CCvLv* line = AddStraightLine();
        for (int i = 0; i < 12; ++i) {
            const double start = position(random);
            line->AddInterval(start, start + length(random), isText(random) ? TEXT : EMPTY);
        }
        for (int round = 0; round < 3; ++round) {
            const double height = std::uniform_real_distribution<double>(0.05, 5.0)(random);
            const std::vector<TCvLvInterv> expected =
                Fitted(cvlv_test::StateOf(*line).intervals, LabelExtent(1, height));
            SetText(height);
            ASSERT_TRUE(cvlv_test::SameIntervals(cvlv_test::StateOf(*line).intervals, expected))
                << "seed " << seed << " round " << round;
        }
        cvlvs->RemoveCvLv(line);
    }
}

}  // namespace
