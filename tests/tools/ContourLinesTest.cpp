// Contour lines made for a project: traced, smoothed by the library, labelled.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <stdexcept>

#include "ContourGeometry.h"
#include "ContourLines.h"
#include "ContourTracer.h"
#include "SurfaceProject.h"
#include "ToolTestSupport.h"
#include "UsageError.h"
#include "Workspace.h"

namespace {

using dtmtool::ContourSettings;
using dtmtool::MakeContourLines;
using dtmtool::Workspace;
using tool_test::PNT_2D;

const PNT_2D kTop(20.3, 19.7);
// h²/8 for the longest edge of the jittered unit grid, (1.6 · √2)² / 8.
constexpr double kInterpolationTolerance = 0.65;

CDtmPrj& ConeProject(Workspace& workspace) {
    const auto cone = [](double x, double y) { return 100.0 - std::hypot(x - kTop.x, y - kTop.y); };
    return *dtmtool::AddSurfaceProject(workspace,
                                       tool_test::GridSurface(40, 40, 1.0, 0.0, 0.0, cone, 0.3, 4));
}

double TextLength(const CCvLv& line) {
    double length = 0.0;
    for (unsigned k = 0; k < line.GetNoIntervals(); ++k)
        length += line.GetIntervalAt(k)->GetEnd() - line.GetIntervalAt(k)->GetStart();
    return length;
}

double RunLength(const std::vector<PNT_2D>& run) {
    double length = 0.0;
    for (std::size_t i = 1; i < run.size(); ++i) length += run[i].dist(run[i - 1]);
    return length;
}

TEST(ContourLinesTest, AConeGetsSmoothCirclesAtEveryLevelWithLabelsOnIndexLines) {
    Workspace workspace;
    CDtmPrj& prj = ConeProject(workspace);
    // Interval, index lines, label height.
    const ContourSettings settings{2.5, 2, 0.4};
    const dtmtool::ContourSummary summary = MakeContourLines(prj, settings);

    const CCvLvs& lines = *prj.GetCvLvs();
    // The circles of radius 100 - z that lie whole inside the grid (radius below 19.7).
    std::set<double> closedLevels;
    for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i) {
        const CCvLv& line = *lines.GetCvLvAt(i);
        const double radius = 100.0 - line.GetQuota();
        if (radius > 19.0) continue;
        closedLevels.insert(line.GetQuota());
        // The nodes are traced points, on or just inside the cone's circle (by at most h²/(8 r)
        // for the grid's longest edges h); the library's spline through them stays close to
        // it.
        const double tolerance = kInterpolationTolerance / radius;
        for (const TVrtPol& node : line.GetNodes()) {
            const double distance = PNT_2D(node.x, node.y).dist(kTop);
            EXPECT_LE(distance, radius + 1e-9);
            EXPECT_GE(distance, radius - tolerance);
        }
        for (const auto& run : dtmtool::SampleDrawnRuns(line, 0.05))
            for (const PNT_2D& p : run)
                ASSERT_NEAR(p.dist(kTop), radius, tolerance + 0.05) << line.GetQuota();
    }
    const std::set<double> expected = {82.5, 85.0, 87.5, 90.0, 92.5, 95.0, 97.5};
    EXPECT_EQ(closedLevels, expected);
    EXPECT_EQ(summary.closedLines, expected.size());
    EXPECT_EQ(summary.textHeight, 0.4);
    EXPECT_EQ(lines.GetCvLvDir(), eCvLvDirOriented);
    EXPECT_GT(summary.labels, 0u);
    EXPECT_EQ(lines.GetOpzCvLv().GetDecimals(), 1);
    EXPECT_EQ(lines.GetOpzCvLv().GetVAlignment(), TEXT_VALIGN_CENTRED);
}

// A line's nodes are its traced points in order, less those that crowd the point kept before
// them: every kept step is at least a twentieth of the traced line's mean spacing, every point
// left out lies closer than that to the point kept before it, and both ends stay.
TEST(ContourLinesTest, NodesAreTheTracedPointsLessThoseCrowdingTheOneKeptBefore) {
    Workspace workspace;
    CDtmPrj& prj = ConeProject(workspace);
    MakeContourLines(prj, ContourSettings{2.5, 2, 0.4});
    const CCvLvs& lines = *prj.GetCvLvs();
    unsigned next = 0;
    std::size_t left = 0;
    for (const double z :
         dtmtool::ContourLevels(prj.GetTris()->GetMinQuota(), prj.GetTris()->GetMaxQuota(), 2.5)) {
        for (const dtmtool::ContourPolyline& traced : dtmtool::TraceContours(*prj.GetTris(), z)) {
            ASSERT_LT(next, lines.GetNoCvLvs());
            const CCvLv& line = *lines.GetCvLvAt(next++);
            ASSERT_EQ(line.GetQuota(), z);
            const std::vector<PNT_2D>& points = traced.points;
            const double minimum =
                0.05 * RunLength(points) / static_cast<double>(points.size() - 1);
            const std::vector<TVrtPol>& nodes = line.GetNodes();
            ASSERT_GE(nodes.size(), 2u);
            const auto nodePoint = [&](std::size_t k) { return PNT_2D(nodes[k].x, nodes[k].y); };
            EXPECT_EQ(nodePoint(nodes.size() - 1).dist(points.back()), 0.0);
            std::size_t k = 0;  // the node that the next kept point must be
            for (std::size_t i = 0; i < points.size(); ++i) {
                if (k < nodes.size() && nodePoint(k).dist(points[i]) == 0.0) {
                    if (k > 0) {
                        EXPECT_GE(points[i].dist(nodePoint(k - 1)), minimum) << z;
                    }
                    ++k;
                    continue;
                }
                ASSERT_GT(k, 0u) << "the first point was left out at " << z;
                EXPECT_LT(points[i].dist(nodePoint(k - 1)), minimum) << z << " point " << i;
                ++left;
            }
            EXPECT_EQ(k, nodes.size()) << z;
        }
    }
    EXPECT_EQ(next, lines.GetNoCvLvs());
    EXPECT_GT(left, 0u);  // the cone's lines pass close to vertices
}

// Every line takes the options' tension; a tension of exactly 0 means none and the lines take
// the default instead.
TEST(ContourLinesTest, LinesTakeTheOptionsTensionAndZeroMeansTheDefault) {
    for (const double tension : {0.7, -1.0, 0.0}) {
        Workspace workspace;
        CDtmPrj& prj = ConeProject(workspace);
        prj.GetCvLvs()->GetOpzCvLv().SetTension(tension);
        MakeContourLines(prj, ContourSettings{5.0, 2, 0.4});
        const CCvLvs& lines = *prj.GetCvLvs();
        ASSERT_GT(lines.GetNoCvLvs(), 0u);
        for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i)
            EXPECT_EQ(lines.GetCvLvAt(i)->GetSigma(), tension == 0.0 ? -1.0 : tension);
    }
}

TEST(ContourLinesTest, OnlyIndexLinesCarryLabelsAndTheDrawnRunsLeaveThemOut) {
    Workspace workspace;
    CDtmPrj& prj = ConeProject(workspace);
    // Interval, index lines, label height.
    const ContourSettings settings{2.5, 2, 0.4};
    MakeContourLines(prj, settings);
    const CCvLvs& lines = *prj.GetCvLvs();
    std::size_t labelled = 0;
    for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i) {
        const CCvLv& line = *lines.GetCvLvAt(i);
        if (line.GetNoIntervals() == 0) continue;
        ++labelled;
        EXPECT_TRUE(dtmtool::IsIndexLevel(line.GetQuota(), settings)) << line.GetQuota();
        const double extent = lines.GetOpzCvLv().GetQuotaExtent(line.GetQuota());
        for (unsigned k = 0; k < line.GetNoIntervals(); ++k) {
            const CCvLvInterv& interval = *line.GetIntervalAt(k);
            EXPECT_TRUE(interval.IsText());
            EXPECT_NEAR(interval.GetEnd() - interval.GetStart(), extent, 1e-9);
            EXPECT_GE(interval.GetStart(), 0.0);
            EXPECT_LE(interval.GetEnd(), dtmtool::SpineLength(line));
        }
        // What is drawn is the line minus its labels (sampling a curve shortens it a little).
        double drawn = 0.0;
        for (const auto& run : dtmtool::SampleDrawnRuns(line, 0.01)) drawn += RunLength(run);
        EXPECT_NEAR(drawn, dtmtool::SpineLength(line) - TextLength(line),
                    0.01 * dtmtool::SpineLength(line));
    }
    EXPECT_GT(labelled, 0u);
}

// On a plane rising to the north the lines run west to east (higher ground on the left), and
// their labels read along them; falling to the north they run east to west, and the labels
// are turned so that they still read upright.
TEST(ContourLinesTest, LabelsAreTurnedWhereTheLineRunsRightToLeft) {
    for (const double slope : {0.5, -0.5}) {
        Workspace workspace;
        CDtmPrj& prj = *dtmtool::AddSurfaceProject(
            workspace, tool_test::GridSurface(40, 10, 1.0, 0.0, 0.0,
                                              [slope](double, double y) { return slope * y; }));
        // Interval, index lines, label height.
        const ContourSettings settings{1.0, 1, 0.5};
        MakeContourLines(prj, settings);
        const CCvLvs& lines = *prj.GetCvLvs();
        std::size_t labels = 0;
        for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i) {
            const CCvLv& line = *lines.GetCvLvAt(i);
            const TVrtPol& first = line.GetNodes().front();
            const TVrtPol& last = line.GetNodes().back();
            EXPECT_EQ(last.x > first.x, slope > 0.0);
            for (unsigned k = 0; k < line.GetNoIntervals(); ++k, ++labels)
                EXPECT_EQ((line.GetIntervalAt(k)->GetFlags() & CCvLvInterv::FLAG_INVERTED) != 0,
                          slope < 0.0);
        }
        EXPECT_GT(labels, 0u) << slope;
    }
}

TEST(ContourLinesTest, RunningAgainReplacesTheLines) {
    Workspace workspace;
    CDtmPrj& prj = ConeProject(workspace);
    ContourSettings settings;
    settings.interval = 5.0;
    MakeContourLines(prj, settings);
    const unsigned first = prj.GetCvLvs()->GetNoCvLvs();
    settings.interval = 2.5;
    MakeContourLines(prj, settings);
    EXPECT_GT(prj.GetCvLvs()->GetNoCvLvs(), first);
    settings.interval = 5.0;
    MakeContourLines(prj, settings);
    EXPECT_EQ(prj.GetCvLvs()->GetNoCvLvs(), first);
}

TEST(ContourLinesTest, DecimalsFollowTheInterval) {
    Workspace workspace;
    CDtmPrj& prj = ConeProject(workspace);
    ContourSettings settings;
    settings.interval = 0.25;
    settings.labelEvery = 4;
    MakeContourLines(prj, settings);
    EXPECT_EQ(prj.GetCvLvs()->GetOpzCvLv().GetDecimals(), 2);
    EXPECT_TRUE(dtmtool::IsIndexLevel(99.0, settings));
    EXPECT_FALSE(dtmtool::IsIndexLevel(99.25, settings));
}

// The cone's network is 40 across: a hundred-thousandth of that, 0.0004, is the least label
// height accepted. A smaller one is refused before the lines there are touched.
TEST(ContourLinesTest, ALabelHeightFarBelowTheExtentIsRefusedAndTheLinesStay) {
    Workspace workspace;
    CDtmPrj& prj = ConeProject(workspace);
    ContourSettings settings;
    settings.interval = 5.0;
    MakeContourLines(prj, settings);
    const unsigned lines = prj.GetCvLvs()->GetNoCvLvs();
    settings.interval = 2.5;
    settings.textHeight = 1e-9;
    try {
        MakeContourLines(prj, settings);
        ADD_FAILURE() << "a height of 1e-9 was accepted";
    } catch (const dtmtool::UsageError& error) {
        EXPECT_STREQ(
            error.what(),
            "--text-height 1e-09 is too small for project 'Grid', 40 across: give at least "
            "0.00040, or leave the option out for a height from the extent");
    }
    EXPECT_EQ(prj.GetCvLvs()->GetNoCvLvs(), lines);
    settings.textHeight = 0.0004;
    EXPECT_GT(MakeContourLines(prj, settings).labels, 0u);
}

TEST(ContourLinesTest, ALabelHeightThatIsNegativeOrNotFiniteIsRefused) {
    Workspace workspace;
    CDtmPrj& prj = ConeProject(workspace);
    ContourSettings settings;
    for (const double height : {-1.0, std::numeric_limits<double>::infinity(),
                                std::numeric_limits<double>::quiet_NaN()}) {
        settings.textHeight = height;
        EXPECT_THROW(MakeContourLines(prj, settings), std::invalid_argument) << height;
    }
}

// At the least height a circle of radius 19 would take about 6,000 labels 50 heights apart; it
// gets 300, spread over its whole length.
TEST(ContourLinesTest, ALineCarriesAtMostThreeHundredLabels) {
    Workspace workspace;
    CDtmPrj& prj = ConeProject(workspace);
    // Interval, index lines, label height.
    const ContourSettings settings{10.0, 1, 0.0004};
    MakeContourLines(prj, settings);
    const CCvLvs& lines = *prj.GetCvLvs();
    unsigned most = 0;
    for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i) {
        const CCvLv& line = *lines.GetCvLvAt(i);
        most = std::max(most, line.GetNoIntervals());
        if (line.GetNoIntervals() < 2) continue;
        const double length = dtmtool::SpineLength(line);
        EXPECT_LT(line.GetIntervalAt(0)->GetStart(), 0.01 * length);
        EXPECT_GT(line.GetIntervalAt(line.GetNoIntervals() - 1)->GetEnd(), 0.99 * length);
    }
    EXPECT_EQ(most, 300u);
}

// The round steps, 1, 2, 2.5 and 5 times a power of ten, found here from their mantissa.
bool IsRoundStep(double step) {
    const double mantissa = step / std::pow(10.0, std::floor(std::log10(step)));
    for (const double round : {1.0, 2.0, 2.5, 5.0, 10.0})
        if (std::fabs(mantissa - round) < 1e-9 * round) return true;
    return false;
}

// The round step just below @p step.
double RoundStepBelow(double step) {
    const double power = std::pow(10.0, std::floor(std::log10(step) + 1e-9));
    const double mantissa = std::round(step / power * 10.0) / 10.0;
    if (mantissa >= 5.0) return 2.5 * power;
    if (mantissa >= 2.5) return 2.0 * power;
    if (mantissa >= 2.0) return 1.0 * power;
    return 0.5 * power;
}

TEST(ContourLinesTest, AChosenIntervalIsTheSmallestRoundOneGivingTwentyStepsAtMost) {
    EXPECT_EQ(dtmtool::ChosenInterval(14.817, 22.815), 0.5);
    EXPECT_EQ(dtmtool::ChosenInterval(0.0, 100.0), 5.0);
    EXPECT_EQ(dtmtool::ChosenInterval(0.0, 20.0), 1.0);
    EXPECT_EQ(dtmtool::ChosenInterval(0.0, 21.0), 2.0);
    EXPECT_EQ(dtmtool::ChosenInterval(0.0, 45.0), 2.5);
    EXPECT_EQ(dtmtool::ChosenInterval(0.0, 0.3), 0.02);
    EXPECT_EQ(dtmtool::ChosenInterval(-3.0, 2.0), 0.25);
    EXPECT_EQ(dtmtool::ChosenInterval(0.0, 1e6), 50000.0);

    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> exponent(-6.0, 6.0);
    std::uniform_real_distribution<double> share(0.0, 1.0);
    for (int i = 0; i < 2000; ++i) {
        const double range = std::pow(10.0, exponent(random));
        const double low = (share(random) - 0.5) * 1000.0 * range;
        const double step = dtmtool::ChosenInterval(low, low + range);
        SCOPED_TRACE(testing::Message() << "range " << range << " from " << low);
        EXPECT_TRUE(IsRoundStep(step)) << step;
        EXPECT_GE(step * 20.0, range * (1.0 - 1e-12));
        EXPECT_LT(RoundStepBelow(step) * 20.0, range * (1.0 + 1e-12));
        const std::size_t levels = dtmtool::ContourLevels(low, low + range, step).size();
        EXPECT_GE(levels, 9u);
        EXPECT_LE(levels, 21u);
    }
}

TEST(ContourLinesTest, WithoutARangeTheChosenIntervalIsOneAndItIsNeverTooSmall) {
    EXPECT_EQ(dtmtool::ChosenInterval(5.0, 5.0), 1.0);
    EXPECT_EQ(dtmtool::ChosenInterval(1e300, -1e300), 1.0);  // no elevations at all
    EXPECT_EQ(dtmtool::ChosenInterval(std::nan(""), 1.0), 1.0);
    // Elevations that differ in their last digits only: the interval keeps the levels'
    // multiples stepping by one, so the lines it asks for can be made.
    const double low = 1000.0;
    const double high = std::nextafter(std::nextafter(low, 2000.0), 2000.0);
    const double step = dtmtool::ChosenInterval(low, high);
    EXPECT_GT(step, 0.0);
    EXPECT_NO_THROW(dtmtool::ContourLevels(low, high, step));
    // The widest range a double holds, and the narrowest whose half it holds.
    const double most = std::numeric_limits<double>::max();
    EXPECT_EQ(dtmtool::ChosenInterval(-most, most), 2e307);
    EXPECT_EQ(dtmtool::ContourLevels(-most, most, 2e307).size(), 17u);
    const double least = 2.0 * std::numeric_limits<double>::denorm_min();
    EXPECT_EQ(dtmtool::ChosenInterval(0.0, least), 1e-300);
    EXPECT_EQ(dtmtool::ContourLevels(0.0, least, 1e-300).size(), 1u);
}

TEST(ContourLinesTest, AnIntervalLeftAtZeroIsChosenFromTheProjectsElevations) {
    Workspace workspace;
    CDtmPrj& prj = ConeProject(workspace);
    const CTris& tris = *prj.GetTris();
    const double chosen = dtmtool::ChosenInterval(tris.GetMinQuota(), tris.GetMaxQuota());
    EXPECT_EQ(dtmtool::SettingsFor(prj, ContourSettings{0.0, 2, 0.4}).interval, chosen);
    EXPECT_EQ(dtmtool::SettingsFor(prj, ContourSettings{0.3, 2, 0.4}).interval, 0.3);
    const dtmtool::ContourSummary summary = MakeContourLines(prj, ContourSettings{0.0, 2, 0.4});
    EXPECT_EQ(summary.interval, chosen);
    EXPECT_EQ(summary.levels,
              dtmtool::ContourLevels(tris.GetMinQuota(), tris.GetMaxQuota(), chosen).size());
    // The lines stand at multiples of the chosen interval.
    const CCvLvs& lines = *prj.GetCvLvs();
    ASSERT_GT(lines.GetNoCvLvs(), 0u);
    for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i) {
        const double ratio = lines.GetCvLvAt(i)->GetQuota() / chosen;
        EXPECT_NEAR(ratio, std::round(ratio), 1e-9);
    }
}

}  // namespace
