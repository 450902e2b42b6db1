// Tests of the contour tension spline: the numeric guards, segment evaluation and sampling, the
// coefficient computation for open and closed lines (against dense solves and a cubic spline
// computed here), and the nearest-parameter search (against dense sampling).

#include <dtm/contours/Spline.h>

#include "contours/SplineInternal.h"

#include "SplineChecker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using dtm_test::ReferenceSpline;
using kor::geom::PNT_2D;

constexpr double kPi = 3.14159265358979323846;

std::vector<TVrtPol> Build(const std::vector<double>& x, const std::vector<double>& y, double sigma,
                           double& sigmap) {
    std::vector<TVrtPol> nodes;
    BuildSplineNodes(static_cast<int>(x.size()), x.data(), y.data(), sigma, nodes, sigmap);
    return nodes;
}

PNT_2D Evaluate(const std::vector<TVrtPol>& nodes, double sigmap, std::size_t segment, double t) {
    const TVrtPol& a = nodes[segment];
    const TVrtPol& b = nodes[segment + 1];
    PNT_2D p;
    TrovaSngValSpline(a.len, t, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp, p.x, p.y);
    return p;
}

PNT_2D Derivative(const std::vector<TVrtPol>& nodes, double sigmap, std::size_t segment, double t) {
    const TVrtPol& a = nodes[segment];
    const TVrtPol& b = nodes[segment + 1];
    PNT_2D d;
    TrovaSngDerValSpline(a.len, t, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp, d.x, d.y);
    return d;
}

// Dense Gaussian elimination with partial pivoting; solves a·z = b for several right-hand
// sides at once (one per column of b).
std::vector<std::vector<double>> DenseSolve(std::vector<std::vector<double>> a,
                                            std::vector<std::vector<double>> b) {
    const std::size_t n = a.size();
    for (std::size_t col = 0; col < n; ++col) {
        std::size_t pivot = col;
        for (std::size_t row = col + 1; row < n; ++row) {
            if (std::fabs(a[row][col]) > std::fabs(a[pivot][col])) pivot = row;
        }
        std::swap(a[col], a[pivot]);
        std::swap(b[col], b[pivot]);
        for (std::size_t row = col + 1; row < n; ++row) {
            const double factor = a[row][col] / a[col][col];
            for (std::size_t k = col; k < n; ++k) a[row][k] -= factor * a[col][k];
            for (std::size_t k = 0; k < b[row].size(); ++k) b[row][k] -= factor * b[col][k];
        }
    }
    std::vector<std::vector<double>> z(n, std::vector<double>(b.empty() ? 0 : b[0].size()));
    for (std::size_t row = n; row-- > 0;) {
        for (std::size_t k = 0; k < z[row].size(); ++k) {
            double sum = b[row][k];
            for (std::size_t col = row + 1; col < n; ++col) sum -= a[row][col] * z[col][k];
            z[row][k] = sum / a[row][row];
        }
    }
    return z;
}

// The diagonal and off-diagonal contributions of one segment to the continuity equations of a
// tension spline, from the standard library's hyperbolic functions.
struct Terms {
    double diag;
    double off;
};
Terms SegmentTerms(double chord, double sigmap) {
    const double s = sigmap * chord;
    return {(s * std::cosh(s) - std::sinh(s)) / (chord * std::sinh(s)),
            (std::sinh(s) - s) / (chord * std::sinh(s))};
}

double ChordOf(double x0, double y0, double x1, double y1) {
    const double chord = std::hypot(x1 - x0, y1 - y0);
    return chord == 0.0 ? 1e-7 : chord;
}

double MaxAbs(const std::vector<double>& values) {
    double m = 0.0;
    for (double v : values) m = std::max(m, std::fabs(v));
    return m;
}

// --- guards --------------------------------------------------------------------------------

TEST(SplineGuards, InversoDiAnswersHugeForZeroAndTheReciprocalOtherwise) {
    EXPECT_EQ(InversoDi(0.0), 1e308);
    EXPECT_EQ(InversoDi(-0.0), 1e308);
    EXPECT_EQ(InversoDi(4.0), 0.25);
    EXPECT_EQ(InversoDi(-3.0), 1.0 / -3.0);
    EXPECT_EQ(InversoDi(1e-310), 1.0 / 1e-310);
}

TEST(SplineGuards, EsponenteDiClampsItsArgumentTo705) {
    EXPECT_EQ(EsponenteDi(1.0), std::exp(1.0));
    EXPECT_EQ(EsponenteDi(705.0), std::exp(705.0));
    EXPECT_EQ(EsponenteDi(1000.0), std::exp(705.0));
    EXPECT_EQ(EsponenteDi(-1000.0), std::exp(-705.0));
    EXPECT_TRUE(std::isfinite(EsponenteDi(std::numeric_limits<double>::infinity())));
    EXPECT_GT(EsponenteDi(-std::numeric_limits<double>::infinity()), 0.0);
}

TEST(SplineGuards, SideIsAvailableThroughTheSplineHeader) {
    EXPECT_GT(SIDE(0.0, 0.0, 1.0, 0.0, 0.5, 1.0), 0.0);
    EXPECT_LT(SIDE(0.0, 0.0, 1.0, 0.0, 0.5, -1.0), 0.0);
    EXPECT_EQ(SIDE(0.0, 0.0, 1.0, 0.0, 3.0, 0.0), 0.0);
    EXPECT_EQ(SIDE(1.0, 2.0, 4.0, 6.0, 0.0, 5.0),
              (4.0 - 1.0) * (5.0 - 2.0) - (0.0 - 1.0) * (6.0 - 2.0));
}

// --- single segment ------------------------------------------------------------------------

TEST(SplineSegment, EvaluationAtOrPastTheEndYieldsExactlyTheSecondNode) {
    double x = 0.0, y = 0.0;
    // Coefficients that would move any interior point well away from the chord.
    TrovaSngValSpline(2.0, 2.0, 1.5, 0.1, 0.2, 7.0, -3.0, 1.3, 1.7, -5.0, 9.0, x, y);
    EXPECT_EQ(x, 1.3);
    EXPECT_EQ(y, 1.7);
    TrovaSngValSpline(2.0, 2.5, 1.5, 0.1, 0.2, 7.0, -3.0, 1.3, 1.7, -5.0, 9.0, x, y);
    EXPECT_EQ(x, 1.3);
    EXPECT_EQ(y, 1.7);
}

TEST(SplineSegment, EvaluationMatchesTheClosedFormInside) {
    std::vector<TVrtPol> nodes = {{0.0, 0.0, 0.3, -0.2, 2.0}, {1.5, 1.2, -0.4, 0.6, 0.0}};
    EXPECT_TRUE(dtm_test::SplineEvaluationMatchesReference(nodes, 1.7, 16, 1e-12));
    EXPECT_TRUE(dtm_test::SplineEvaluationMatchesReference(nodes, 40.0, 16, 1e-12));
}

TEST(SplineSegment, HugeTensionFallsBackToTheStraightChord) {
    // |t·sigmap| = 1000 > 700: the coefficients are ignored.
    double x = 0.0, y = 0.0;
    TrovaSngValSpline(1.0, 0.5, 2000.0, 1.0, 2.0, 5.0, -4.0, 3.0, 6.0, -2.0, 8.0, x, y);
    EXPECT_EQ(x, 1.0 + (3.0 - 1.0) * 0.5 / 1.0);
    EXPECT_EQ(y, 2.0 + (6.0 - 2.0) * 0.5 / 1.0);
    // Near the start only (h − t)·sigmap exceeds the limit; still the chord.
    TrovaSngValSpline(1.0, 0.1, 2000.0, 1.0, 2.0, 5.0, -4.0, 3.0, 6.0, -2.0, 8.0, x, y);
    EXPECT_DOUBLE_EQ(x, 1.2);
    EXPECT_DOUBLE_EQ(y, 2.4);
}

TEST(SplineSegment, ExactlyAtTheTensionLimitTheHyperbolicFormStillApplies) {
    // t·sigmap = (h − t)·sigmap = 700: not beyond the limit. sinh(σh) overflows to infinity,
    // its guarded reciprocal is 0, and what remains is the linear part of the closed form,
    // which differs from the chord because the coefficients are not zero.
    double x = 0.0, y = 0.0;
    TrovaSngValSpline(1.0, 0.5, 1400.0, 1.0, 2.0, 5.0, -4.0, 3.0, 6.0, -2.0, 8.0, x, y);
    EXPECT_EQ(x, ((1.0 - 5.0) * 0.5 + (3.0 - -2.0) * 0.5) / 1.0);
    EXPECT_EQ(y, ((2.0 - -4.0) * 0.5 + (6.0 - 8.0) * 0.5) / 1.0);
}

TEST(SplineSegment, DerivativeFallsBackToTheUnscaledChordAtHugeTension) {
    double dx = 0.0, dy = 0.0;
    // h = 4: the straight derivative would be (0.5, 1); the fallback is not divided by h.
    TrovaSngDerValSpline(4.0, 2.0, 1000.0, 1.0, 2.0, 5.0, -4.0, 3.0, 6.0, -2.0, 8.0, dx, dy);
    EXPECT_EQ(dx, 2.0);
    EXPECT_EQ(dy, 4.0);
}

TEST(SplineSegment, DerivativePastTheEndIsTheEndPointItself) {
    double dx = 0.0, dy = 0.0;
    TrovaSngDerValSpline(2.0, 2.1, 1.0, 0.0, 0.0, 0.3, 0.1, 1.5, 1.2, 0.2, -0.1, dx, dy);
    EXPECT_EQ(dx, 1.5);
    EXPECT_EQ(dy, 1.2);
    // At t = h exactly the derivative is computed: the closed form's value.
    const TVrtPol a{0.0, 0.0, 0.3, 0.1, 2.0};
    const TVrtPol b{1.5, 1.2, 0.2, -0.1, 0.0};
    TrovaSngDerValSpline(2.0, 2.0, 1.0, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp, dx, dy);
    const dtm_test::SplineSample expected = ReferenceSpline(a, b, 1.0, 2.0);
    EXPECT_NEAR(dx, expected.dx, 1e-12);
    EXPECT_NEAR(dy, expected.dy, 1e-12);
}

// --- sampling ------------------------------------------------------------------------------

TEST(SplineSampling, TheEndPointIsAppendedUnlessTheLastStepLandedOnIt) {
    std::vector<PNT_2D> points = {PNT_2D(9.0, 9.0)};
    // Quarter steps: 0, 0.25, 0.5, 0.75, then the end at 1.
    TrovaArValoriSpline(0.0, 1.0, 0.25, 1.0, 2.0, 0.0, 0.0, 0.1, 0.0, 1.0, 1.0, -0.1, 0.0, points);
    ASSERT_EQ(points.size(), 5u);
    EXPECT_EQ(points.front().x, 0.0);
    EXPECT_EQ(points.back().x, 1.0);
    EXPECT_EQ(points.back().y, 1.0);
    // Tenth steps accumulate to 0.9999999999999999 < 1, a sample that ties on the end within
    // the tolerance: eleven samples and no separate end point.
    TrovaArValoriSpline(0.0, 1.0, 0.1, 1.0, 2.0, 0.0, 0.0, 0.1, 0.0, 1.0, 1.0, -0.1, 0.0, points);
    ASSERT_EQ(points.size(), 11u);
    double last = 0.0;
    for (int k = 0; k < 10; ++k) last += 0.1;
    const PNT_2D expected = [&] {
        PNT_2D p;
        TrovaSngValSpline(1.0, last, 2.0, 0.0, 0.0, 0.1, 0.0, 1.0, 1.0, -0.1, 0.0, p.x, p.y);
        return p;
    }();
    EXPECT_EQ(points.back().x, expected.x);
    EXPECT_EQ(points.back().y, expected.y);
}

TEST(SplineSampling, EqualEndsYieldAtMostTheStartAndAReversedRangeOnlyTheEnd) {
    std::vector<PNT_2D> points = {PNT_2D(9.0, 9.0)};
    TrovaArValoriSpline(0.5, 0.5, 0.1, 1.0, 2.0, 0.0, 0.0, 0.1, 0.0, 1.0, 1.0, -0.1, 0.0, points);
    EXPECT_TRUE(points.empty());
    // Just below t0, within the tolerance: still nothing.
    TrovaArValoriSpline(0.5, 0.5 - 1e-13, 0.1, 1.0, 2.0, 0.0, 0.0, 0.1, 0.0, 1.0, 1.0, -0.1, 0.0,
                        points);
    EXPECT_TRUE(points.empty());
    // Just above t0, within the tolerance: the step loop runs once, so the point at t0 is the
    // only one; the end lies within the tolerance of it and is not added again.
    TrovaArValoriSpline(0.5, 0.5 + 1e-13, 0.1, 1.0, 2.0, 0.0, 0.0, 0.1, 0.0, 1.0, 1.0, -0.1, 0.0,
                        points);
    ASSERT_EQ(points.size(), 1u);
    PNT_2D start;
    TrovaSngValSpline(1.0, 0.5, 2.0, 0.0, 0.0, 0.1, 0.0, 1.0, 1.0, -0.1, 0.0, start.x, start.y);
    EXPECT_EQ(points[0].x, start.x);
    EXPECT_EQ(points[0].y, start.y);
    // Clearly below: the single point at t1.
    TrovaArValoriSpline(0.5, 0.2, 0.1, 1.0, 2.0, 0.0, 0.0, 0.1, 0.0, 1.0, 1.0, -0.1, 0.0, points);
    ASSERT_EQ(points.size(), 1u);
    PNT_2D expected;
    TrovaSngValSpline(1.0, 0.2, 2.0, 0.0, 0.0, 0.1, 0.0, 1.0, 1.0, -0.1, 0.0, expected.x,
                      expected.y);
    EXPECT_EQ(points[0].x, expected.x);
    EXPECT_EQ(points[0].y, expected.y);
}

TEST(SplineSampling, PointsReachingTheUndefinedMagnitudeAreDropped) {
    // A straight segment from x = 0 to x = 1.7e200: x = 1.7e200·t, so the samples from
    // t = 0.5 on (x ≥ 8.5e199) and the end are dropped.
    std::vector<PNT_2D> points;
    TrovaArValoriSpline(0.0, 1.0, 0.1, 1.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.7e200, 0.0, 0.0, 0.0,
                        points);
    ASSERT_EQ(points.size(), 5u);
    for (const PNT_2D& p : points) EXPECT_LT(std::fabs(p.x), 8.5e199);
    // The same in y, negative.
    TrovaArValoriSpline(0.0, 1.0, 0.25, 1.0, 1.0, 0.0, 0.0, 0.0, 0.0, 0.0, -1.7e200, 0.0, 0.0,
                        points);
    ASSERT_EQ(points.size(), 2u);
}

TEST(SplineSampling, AStepThatDoesNotAdvanceIsRefused) {
    std::vector<PNT_2D> points;
    const auto sample = [&](double step) {
        TrovaArValoriSpline(0.0, 1.0, step, 1.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0,
                            points);
    };
    EXPECT_THROW(sample(0.0), std::invalid_argument);
    EXPECT_THROW(sample(-0.1), std::invalid_argument);
    EXPECT_THROW(sample(std::numeric_limits<double>::quiet_NaN()), std::invalid_argument);
    EXPECT_THROW(TrovaArValoriSpline(1e20, 2e20, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0,
                                     0.0, points),
                 std::invalid_argument);
    // No sample due: the step is never used.
    EXPECT_NO_THROW(TrovaArValoriSpline(1.0, 0.5, 0.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0,
                                        0.0, points));
}

// --- sampling step -------------------------------------------------------------------------

TEST(SplineStep, AStepLongerThanTheSegmentBecomesTheSegment) {
    double step = 3.0;
    TrovaIncremCurvaOtt(2.0, 1.0, 0.0, 0.0, 0.5, 0.5, 2.0, 0.0, -0.5, 0.5, step);
    EXPECT_EQ(step, 2.0);
}

TEST(SplineStep, AStraightSegmentKeepsItsStep) {
    double step = 0.25;
    TrovaIncremCurvaOtt(2.0, 1.0, 0.0, 0.0, 0.0, 0.0, 2.0, 0.0, 0.0, 0.0, step);
    EXPECT_NEAR(step, 0.25, 1e-15);
}

TEST(SplineStep, MoreThanAHundredSamplesAreReplacedByThirty) {
    double step = 2.0 / 200.0;
    TrovaIncremCurvaOtt(2.0, 1.0, 0.0, 0.0, 0.0, 0.0, 2.0, 0.0, 0.0, 0.0, step);
    EXPECT_EQ(step, 2.0 / 30.0);
    // Curvature that would shorten the step below h/100 ends there too.
    std::mt19937 random(11);
    std::uniform_real_distribution<double> coefficient(-50.0, 50.0);
    for (int trial = 0; trial < 200; ++trial) {
        double s = 0.2;
        TrovaIncremCurvaOtt(2.0, 0.5, 0.0, 0.0, coefficient(random), coefficient(random), 2.0, 0.0,
                            coefficient(random), coefficient(random), s);
        EXPECT_LE(2.0 / s, 100.0) << "seed 11, trial " << trial;
    }
}

TEST(SplineStep, ABendingSegmentShortensTheStepToStepSquaredOverTheRunAway) {
    // Strong coefficients: near both ends the curve runs away from its node faster than the
    // parameter grows.
    const TVrtPol a{0.0, 0.0, 0.0, -3.0, 2.0};
    const TVrtPol b{2.0, 0.0, 0.0, 2.0, 0.0};
    const double sigmap = 1.0;
    const double entry = 0.4;
    const dtm_test::SplineSample nearStart = ReferenceSpline(a, b, sigmap, entry);
    const dtm_test::SplineSample nearEnd = ReferenceSpline(a, b, sigmap, 2.0 - entry);
    const double expected = std::min({entry, entry * entry / std::hypot(nearStart.x, nearStart.y),
                                      entry * entry / std::hypot(nearEnd.x - 2.0, nearEnd.y)});
    ASSERT_LT(expected, entry);
    ASSERT_LE(2.0 / expected, 100.0);
    double step = entry;
    TrovaIncremCurvaOtt(a.len, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp, step);
    EXPECT_NEAR(step, expected, 1e-12);
}

// --- coefficients: special lines -----------------------------------------------------------

TEST(SplineCoefficients, CoincidentNodesGiveAChordOfOneTenMillionth) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes =
        Build({0.0, 1.0, 1.0, 2.0}, {0.0, 0.0, 0.0, 1.0}, 1.0, sigmap);
    EXPECT_EQ(nodes[1].len, 1e-7);
    EXPECT_TRUE(std::isfinite(sigmap));
    for (const TVrtPol& node : nodes) {
        EXPECT_TRUE(std::isfinite(node.xp) && std::isfinite(node.yp));
    }
    EXPECT_TRUE(dtm_test::SplineLengthsAreChords(nodes));
    const std::vector<TVrtPol> pair = Build({3.0, 3.0}, {4.0, 4.0}, 2.0, sigmap);
    EXPECT_EQ(pair[0].len, 1e-7);
    EXPECT_EQ(sigmap, 2.0 * 1 / 1e-7);
    EXPECT_TRUE(std::isfinite(pair[0].xp) && std::isfinite(pair[1].yp));
}

TEST(SplineCoefficients, ATwoNodeLineWithNegativeTensionIsStraight) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build({1.0, 4.0}, {2.0, 6.0}, -3.0, sigmap);
    EXPECT_EQ(sigmap, 3.0 / 5.0);
    for (const TVrtPol& node : nodes) {
        EXPECT_EQ(node.xp, 0.0);
        EXPECT_EQ(node.yp, 0.0);
    }
    EXPECT_EQ(nodes[0].len, 5.0);
    EXPECT_EQ(nodes[1].len, 0.0);
    for (double t : {0.5, 1.25, 2.5, 4.9}) {
        const PNT_2D p = Evaluate(nodes, sigmap, 0, t);
        EXPECT_NEAR(p.x, 1.0 + 3.0 * t / 5.0, 1e-12) << "t = " << t;
        EXPECT_NEAR(p.y, 2.0 + 4.0 * t / 5.0, 1e-12) << "t = " << t;
    }
}

TEST(SplineCoefficients, AnOpenLineWithNonNegativeTensionStartsAndEndsTangentToPlusX) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::vector<double> x, y;
        dtm_test::MakeWanderingLine(seed, 2 + static_cast<int>(seed % 7), x, y);
        for (double sigma : {0.0 + 0.5, 1.0, 8.0}) {
            double sigmap = 0.0;
            const std::vector<TVrtPol> nodes = Build(x, y, sigma, sigmap);
            const PNT_2D start = Derivative(nodes, sigmap, 0, 0.0);
            const std::size_t lastSegment = nodes.size() - 2;
            const PNT_2D end = Derivative(nodes, sigmap, lastSegment, nodes[lastSegment].len);
            EXPECT_NEAR(start.x, 1.0, 1e-9) << "seed " << seed << ", sigma " << sigma;
            EXPECT_NEAR(start.y, 0.0, 1e-9) << "seed " << seed << ", sigma " << sigma;
            EXPECT_NEAR(end.x, 1.0, 1e-9) << "seed " << seed << ", sigma " << sigma;
            EXPECT_NEAR(end.y, 0.0, 1e-9) << "seed " << seed << ", sigma " << sigma;
        }
    }
}

// Derivative at `at` of the quadratic through (t_k, f_k), k = 0..2, in Lagrange form.
double QuadraticSlope(const double t[3], const double f[3], double at) {
    double slope = 0.0;
    for (int k = 0; k < 3; ++k) {
        const int i = (k + 1) % 3;
        const int j = (k + 2) % 3;
        slope += f[k] * ((at - t[i]) + (at - t[j])) / ((t[k] - t[i]) * (t[k] - t[j]));
    }
    return slope;
}

TEST(SplineCoefficients, NegativeTensionTakesTheEndTangentsFromThreeNodes) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::vector<double> x, y;
        dtm_test::MakeWanderingLine(seed, 3 + static_cast<int>(seed % 6), x, y);
        double sigmap = 0.0;
        const std::vector<TVrtPol> nodes = Build(x, y, -2.0, sigmap);
        const std::size_t n = nodes.size();
        // Quadratics through the first and the last three nodes on the chord parameter.
        const double ts[3] = {0.0, nodes[0].len, nodes[0].len + nodes[1].len};
        const double te[3] = {0.0, nodes[n - 3].len, nodes[n - 3].len + nodes[n - 2].len};
        const double xs[3] = {x[0], x[1], x[2]}, ys[3] = {y[0], y[1], y[2]};
        const double xe[3] = {x[n - 3], x[n - 2], x[n - 1]}, ye[3] = {y[n - 3], y[n - 2], y[n - 1]};
        const double startAngle =
            std::atan2(QuadraticSlope(ts, ys, ts[0]), QuadraticSlope(ts, xs, ts[0]));
        const double endAngle =
            std::atan2(QuadraticSlope(te, ye, te[2]), QuadraticSlope(te, xe, te[2]));
        const PNT_2D start = Derivative(nodes, sigmap, 0, 0.0);
        const PNT_2D end = Derivative(nodes, sigmap, n - 2, nodes[n - 2].len);
        EXPECT_NEAR(start.x, std::cos(startAngle), 1e-9) << "seed " << seed;
        EXPECT_NEAR(start.y, std::sin(startAngle), 1e-9) << "seed " << seed;
        EXPECT_NEAR(end.x, std::cos(endAngle), 1e-9) << "seed " << seed;
        EXPECT_NEAR(end.y, std::sin(endAngle), 1e-9) << "seed " << seed;
        EXPECT_TRUE(dtm_test::SplineIsC1(nodes, sigmap, false, 1e-9)) << "seed " << seed;
    }
}

TEST(SplineCoefficients, NodesOnAStraightLineWithNegativeTensionStayOnIt) {
    std::vector<double> x, y;
    double along = 0.0;
    for (double step : {0.0, 1.0, 2.5, 0.5, 3.0, 1.5}) {
        along += step;
        x.push_back(10.0 + along * std::cos(kPi / 6));
        y.push_back(-4.0 + along * std::sin(kPi / 6));
    }
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build(x, y, -1.0, sigmap);
    for (const TVrtPol& node : nodes) {
        EXPECT_NEAR(node.xp, 0.0, 1e-12);
        EXPECT_NEAR(node.yp, 0.0, 1e-12);
    }
    const PNT_2D start = Derivative(nodes, sigmap, 0, 0.0);
    EXPECT_NEAR(start.x, std::cos(kPi / 6), 1e-12);
    EXPECT_NEAR(start.y, std::sin(kPi / 6), 1e-12);
}

TEST(SplineCoefficients, DenormalisedTensionIsTensionPerMeanChord) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> open =
        Build({0.0, 3.0, 3.0, 0.0}, {0.0, 4.0, 0.0, 0.0}, -2.0, sigmap);
    EXPECT_DOUBLE_EQ(sigmap, 2.0 * 3 / (5.0 + 4.0 + 3.0));
    // The same nodes closed: three distinct nodes, perimeter 12.
    const std::vector<TVrtPol> closed =
        Build({0.0, 3.0, 3.0, 0.0}, {0.0, 4.0, 0.0, 0.0}, 2.0, sigmap);
    EXPECT_DOUBLE_EQ(sigmap, 2.0 * 3 / 12.0);
    std::vector<TVrtPol> none;
    BuildSplineNodes(1, std::vector<double>{5.0}.data(), std::vector<double>{6.0}.data(), 1.0, none,
                     sigmap);
    ASSERT_EQ(none.size(), 1u);
    EXPECT_EQ(sigmap, 0.0);
    EXPECT_EQ(none[0].x, 5.0);
    EXPECT_EQ(none[0].xp, 0.0);
    EXPECT_EQ(none[0].len, 0.0);
    BuildSplineNodes(0, nullptr, nullptr, 1.0, none, sigmap);
    EXPECT_TRUE(none.empty());
}

// --- closed lines --------------------------------------------------------------------------

TEST(SplineClosed, ALastNodeRepeatingTheFirstWithinTheToleranceClosesTheLine) {
    std::vector<double> x, y;
    dtm_test::MakeClosedLine(3, 7, x, y);
    x.back() = x.front() * (1.0 + 4e-13);
    y.back() = y.front() + 5e-13;
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build(x, y, 1.5, sigmap);
    EXPECT_TRUE(dtm_test::SplineIsC1(nodes, sigmap, true, 1e-9));
    EXPECT_DOUBLE_EQ(
        sigmap, 1.5 * 7 / [&] {
            double perimeter = 0.0;
            for (int i = 0; i < 7; ++i) {
                perimeter += std::hypot(x[(i + 1) % 7] - x[i], y[(i + 1) % 7] - y[i]);
            }
            return perimeter;
        }());
}

TEST(SplineClosed, ALastNodeBeyondTheToleranceLeavesTheLineOpen) {
    std::vector<double> x, y;
    dtm_test::MakeClosedLine(3, 7, x, y);
    y.back() = y.front() + 1e-9;
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build(x, y, 1.5, sigmap);
    const PNT_2D start = Derivative(nodes, sigmap, 0, 0.0);
    EXPECT_NEAR(start.x, 1.0, 1e-9);
    EXPECT_NEAR(start.y, 0.0, 1e-9);
    EXPECT_TRUE(dtm_test::SplineIsC1(nodes, sigmap, false, 1e-9));
}

TEST(SplineClosed, ThreeNodesClosingOnTheFirstMakeATwoNodeLoop) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build({0.0, 4.0, 0.0}, {0.0, 3.0, 0.0}, 1.0, sigmap);
    EXPECT_TRUE(dtm_test::SplineIsC1(nodes, sigmap, true, 1e-9));
    EXPECT_EQ(nodes[0].len, 5.0);
    EXPECT_EQ(nodes[1].len, 5.0);
    // A symmetric loop: the coefficients of the two nodes are opposite.
    EXPECT_NEAR(nodes[0].xp, -nodes[1].xp, 1e-12);
    EXPECT_NEAR(nodes[0].yp, -nodes[1].yp, 1e-12);
}

TEST(SplineClosed, TwoNodesRepeatingAreNotAClosedLine) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build({2.0, 2.0}, {1.0, 1.0}, 1.0, sigmap);
    EXPECT_EQ(nodes[0].len, 1e-7);
    const PNT_2D start = Derivative(nodes, sigmap, 0, 0.0);
    EXPECT_NEAR(start.x, 1.0, 1e-9);
    EXPECT_NEAR(start.y, 0.0, 1e-9);
}

// --- random lines through the checker ------------------------------------------------------

TEST(SplineRandom, OpenLinesInterpolateTheirNodesWithAContinuousTangent) {
    for (unsigned seed = 100; seed < 160; ++seed) {
        std::vector<double> x, y;
        dtm_test::MakeWanderingLine(seed, 2 + static_cast<int>(seed % 40), x, y);
        for (double sigma : {0.3, 1.0, 6.0, -1.0, -20.0}) {
            double sigmap = 0.0;
            const std::vector<TVrtPol> nodes = Build(x, y, sigma, sigmap);
            EXPECT_TRUE(dtm_test::SplineLengthsAreChords(nodes)) << "seed " << seed;
            EXPECT_TRUE(dtm_test::SplineIsC1(nodes, sigmap, false, 1e-8))
                << "seed " << seed << ", sigma " << sigma;
            EXPECT_TRUE(dtm_test::SplineEvaluationMatchesReference(nodes, sigmap, 3, 1e-9))
                << "seed " << seed << ", sigma " << sigma;
        }
    }
}

TEST(SplineRandom, ClosedLinesAreSmoothAcrossTheJoin) {
    for (unsigned seed = 200; seed < 260; ++seed) {
        std::vector<double> x, y;
        dtm_test::MakeClosedLine(seed, 2 + static_cast<int>(seed % 40), x, y);
        for (double sigma : {0.3, 1.0, 6.0, -2.0}) {
            double sigmap = 0.0;
            const std::vector<TVrtPol> nodes = Build(x, y, sigma, sigmap);
            EXPECT_TRUE(dtm_test::SplineLengthsAreChords(nodes)) << "seed " << seed;
            EXPECT_TRUE(dtm_test::SplineIsC1(nodes, sigmap, true, 1e-8))
                << "seed " << seed << ", sigma " << sigma;
            EXPECT_TRUE(dtm_test::SplineEvaluationMatchesReference(nodes, sigmap, 3, 1e-9))
                << "seed " << seed << ", sigma " << sigma;
        }
    }
}

TEST(SplineRandom, RefreshingAfterAMoveEqualsBuildingFromTheMovedNodes) {
    for (unsigned seed = 300; seed < 320; ++seed) {
        std::vector<double> x, y;
        dtm_test::MakeWanderingLine(seed, 3 + static_cast<int>(seed % 12), x, y);
        double sigmap = 0.0;
        std::vector<TVrtPol> nodes = Build(x, y, 2.0, sigmap);
        const std::size_t moved = seed % x.size();
        x[moved] += 0.75;
        y[moved] -= 0.5;
        nodes[moved].x = x[moved];
        nodes[moved].y = y[moved];
        double refreshedSigmap = 0.0;
        RefreshSplineNodes(2.0, nodes, refreshedSigmap);
        double builtSigmap = 0.0;
        const std::vector<TVrtPol> built = Build(x, y, 2.0, builtSigmap);
        EXPECT_EQ(refreshedSigmap, builtSigmap) << "seed " << seed;
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            EXPECT_EQ(nodes[i].xp, built[i].xp) << "seed " << seed << ", node " << i;
            EXPECT_EQ(nodes[i].yp, built[i].yp) << "seed " << seed << ", node " << i;
            EXPECT_EQ(nodes[i].len, built[i].len) << "seed " << seed << ", node " << i;
        }
    }
}

// --- the linear systems against dense solves -----------------------------------------------

TEST(SplineSystems, TheCyclicSolveMatchesADenseSolve) {
    for (unsigned seed = 400; seed < 480; ++seed) {
        std::vector<double> x, y;
        const int m = 2 + static_cast<int>(seed % 37);
        dtm_test::MakeClosedLine(seed, m, x, y);
        std::mt19937 random(seed);
        const double sigma = std::uniform_real_distribution<double>(0.05, 60.0)(random);
        std::vector<double> xp(m), yp(m), chord(m), temp(m), corner(m);
        const double sigmap =
            ComputeClosedTensionSpline(x.data(), y.data(), m, sigma, xp.data(), yp.data(),
                                       chord.data(), temp.data(), corner.data());
        double perimeter = 0.0;
        std::vector<double> ux(m), uy(m), d(m);
        for (int i = 0; i < m; ++i) {
            const int next = (i + 1) % m;
            d[i] = ChordOf(x[i], y[i], x[next], y[next]);
            ux[i] = (x[next] - x[i]) / d[i];
            uy[i] = (y[next] - y[i]) / d[i];
            perimeter += d[i];
            ASSERT_NEAR(chord[i], d[i], 1e-12 * d[i]) << "seed " << seed;
        }
        ASSERT_NEAR(sigmap, sigma * m / perimeter, 1e-12 * sigmap) << "seed " << seed;
        std::vector<std::vector<double>> a(m, std::vector<double>(m, 0.0));
        std::vector<std::vector<double>> rhs(m, std::vector<double>(2, 0.0));
        for (int i = 0; i < m; ++i) {
            const int before = (i + m - 1) % m;
            const Terms arriving = SegmentTerms(d[before], sigmap);
            const Terms leaving = SegmentTerms(d[i], sigmap);
            a[i][i] += arriving.diag + leaving.diag;
            a[i][before] += arriving.off;
            a[i][(i + 1) % m] += leaving.off;
            rhs[i][0] = ux[i] - ux[before];
            rhs[i][1] = uy[i] - uy[before];
        }
        const std::vector<std::vector<double>> z = DenseSolve(a, rhs);
        const double scale = std::max(MaxAbs(xp), MaxAbs(yp));
        for (int i = 0; i < m; ++i) {
            EXPECT_NEAR(xp[i], z[i][0], 1e-9 * scale)
                << "seed " << seed << ", m " << m << ", row " << i;
            EXPECT_NEAR(yp[i], z[i][1], 1e-9 * scale)
                << "seed " << seed << ", m " << m << ", row " << i;
        }
    }
}

TEST(SplineSystems, TheOpenSolveWithGivenEndAnglesMatchesADenseSolve) {
    for (unsigned seed = 500; seed < 560; ++seed) {
        std::vector<double> x, y;
        const int n = 2 + static_cast<int>(seed % 33);
        dtm_test::MakeWanderingLine(seed, n, x, y);
        std::mt19937 random(seed);
        const double sigma = std::uniform_real_distribution<double>(0.05, 60.0)(random);
        const double angle1 = std::uniform_real_distribution<double>(-180.0, 180.0)(random);
        const double angleN = std::uniform_real_distribution<double>(-180.0, 180.0)(random);
        std::vector<double> xp(n), yp(n), chord(n), temp(n);
        const double sigmap =
            ComputeOpenTensionSpline(x.data(), y.data(), n, angle1, angleN, sigma, xp.data(),
                                     yp.data(), chord.data(), temp.data());
        std::vector<double> ux(n - 1), uy(n - 1), d(n - 1);
        double total = 0.0;
        for (int i = 0; i + 1 < n; ++i) {
            d[i] = ChordOf(x[i], y[i], x[i + 1], y[i + 1]);
            ux[i] = (x[i + 1] - x[i]) / d[i];
            uy[i] = (y[i + 1] - y[i]) / d[i];
            total += d[i];
        }
        ASSERT_NEAR(sigmap, sigma * (n - 1) / total, 1e-12 * sigmap) << "seed " << seed;
        std::vector<std::vector<double>> a(n, std::vector<double>(n, 0.0));
        std::vector<std::vector<double>> rhs(n, std::vector<double>(2, 0.0));
        for (int i = 0; i < n; ++i) {
            if (i > 0) {
                const Terms arriving = SegmentTerms(d[i - 1], sigmap);
                a[i][i] += arriving.diag;
                a[i][i - 1] += arriving.off;
            }
            if (i + 1 < n) {
                const Terms leaving = SegmentTerms(d[i], sigmap);
                a[i][i] += leaving.diag;
                a[i][i + 1] += leaving.off;
            }
        }
        const double a1 = angle1 * kPi / 180.0;
        const double aN = angleN * kPi / 180.0;
        rhs[0] = {ux[0] - std::cos(a1), uy[0] - std::sin(a1)};
        for (int i = 1; i + 1 < n; ++i) rhs[i] = {ux[i] - ux[i - 1], uy[i] - uy[i - 1]};
        rhs[n - 1] = {std::cos(aN) - ux[n - 2], std::sin(aN) - uy[n - 2]};
        const std::vector<std::vector<double>> z = DenseSolve(a, rhs);
        const double scale = std::max(MaxAbs(xp), MaxAbs(yp));
        for (int i = 0; i < n; ++i) {
            EXPECT_NEAR(xp[i], z[i][0], 1e-9 * scale)
                << "seed " << seed << ", n " << n << ", row " << i;
            EXPECT_NEAR(yp[i], z[i][1], 1e-9 * scale)
                << "seed " << seed << ", n " << n << ", row " << i;
        }
    }
}

// --- tension limits ------------------------------------------------------------------------

// Largest distance of the curve from the chord of its own segment, over dense samples.
double LargestDistanceFromThePolyline(const std::vector<TVrtPol>& nodes, double sigmap) {
    double largest = 0.0;
    for (std::size_t i = 0; i + 1 < nodes.size(); ++i) {
        const TVrtPol& a = nodes[i];
        const TVrtPol& b = nodes[i + 1];
        for (int k = 1; k < 50; ++k) {
            const double t = a.len * k / 50.0;
            const PNT_2D p = Evaluate(nodes, sigmap, i, t);
            const double side = SIDE(a.x, a.y, b.x, b.y, p.x, p.y) / a.len;
            largest = std::max(largest, std::fabs(side));
        }
    }
    return largest;
}

TEST(SplineTension, LargeTensionTendsToThePolyline) {
    for (unsigned seed = 600; seed < 610; ++seed) {
        std::vector<double> x, y;
        dtm_test::MakeWanderingLine(seed, 12, x, y);
        double previous = std::numeric_limits<double>::infinity();
        for (double sigma : {1.0, 10.0, 100.0, 1000.0}) {
            double sigmap = 0.0;
            const std::vector<TVrtPol> nodes = Build(x, y, -sigma, sigmap);
            const double distance = LargestDistanceFromThePolyline(nodes, sigmap);
            EXPECT_LT(distance, previous) << "seed " << seed << ", sigma " << sigma;
            previous = distance;
        }
        EXPECT_LT(previous, 0.01) << "seed " << seed;
    }
}

// Clamped cubic spline on the chord parameter with unit end tangents (1, 0), solved densely:
// second derivatives at the nodes for one coordinate.
std::vector<double> ClampedCubicMoments(const std::vector<double>& f, const std::vector<double>& h,
                                        double startSlope, double endSlope) {
    const std::size_t n = f.size();
    std::vector<std::vector<double>> a(n, std::vector<double>(n, 0.0));
    std::vector<std::vector<double>> rhs(n, std::vector<double>(1, 0.0));
    a[0][0] = 2.0 * h[0];
    a[0][1] = h[0];
    rhs[0][0] = 6.0 * ((f[1] - f[0]) / h[0] - startSlope);
    for (std::size_t i = 1; i + 1 < n; ++i) {
        a[i][i - 1] = h[i - 1];
        a[i][i] = 2.0 * (h[i - 1] + h[i]);
        a[i][i + 1] = h[i];
        rhs[i][0] = 6.0 * ((f[i + 1] - f[i]) / h[i] - (f[i] - f[i - 1]) / h[i - 1]);
    }
    a[n - 1][n - 2] = h[n - 2];
    a[n - 1][n - 1] = 2.0 * h[n - 2];
    rhs[n - 1][0] = 6.0 * (endSlope - (f[n - 1] - f[n - 2]) / h[n - 2]);
    const std::vector<std::vector<double>> z = DenseSolve(a, rhs);
    std::vector<double> moments;
    for (const auto& row : z) moments.push_back(row[0]);
    return moments;
}

double Cubic(double f0, double f1, double m0, double m1, double h, double t) {
    return m0 * (h - t) * (h - t) * (h - t) / (6.0 * h) + m1 * t * t * t / (6.0 * h) +
           (f0 / h - m0 * h / 6.0) * (h - t) + (f1 / h - m1 * h / 6.0) * t;
}

TEST(SplineTension, SmallTensionTendsToTheCubicSpline) {
    for (unsigned seed = 700; seed < 710; ++seed) {
        std::vector<double> x, y;
        dtm_test::MakeWanderingLine(seed, 9, x, y);
        std::vector<double> h;
        for (std::size_t i = 0; i + 1 < x.size(); ++i) {
            h.push_back(ChordOf(x[i], y[i], x[i + 1], y[i + 1]));
        }
        const std::vector<double> mx = ClampedCubicMoments(x, h, 1.0, 1.0);
        const std::vector<double> my = ClampedCubicMoments(y, h, 0.0, 0.0);
        double previous = std::numeric_limits<double>::infinity();
        for (double sigma : {2.0, 0.5, 0.1, 0.02}) {
            double sigmap = 0.0;
            const std::vector<TVrtPol> nodes = Build(x, y, sigma, sigmap);
            double largest = 0.0;
            for (std::size_t i = 0; i + 1 < nodes.size(); ++i) {
                for (int k = 1; k < 20; ++k) {
                    const double t = h[i] * k / 20.0;
                    const PNT_2D p = Evaluate(nodes, sigmap, i, t);
                    largest = std::max(
                        {largest, std::fabs(p.x - Cubic(x[i], x[i + 1], mx[i], mx[i + 1], h[i], t)),
                         std::fabs(p.y - Cubic(y[i], y[i + 1], my[i], my[i + 1], h[i], t))});
                }
            }
            EXPECT_LT(largest, previous) << "seed " << seed << ", sigma " << sigma;
            previous = largest;
        }
        EXPECT_LT(previous, 1e-3) << "seed " << seed;
    }
}

// --- nearest-parameter search --------------------------------------------------------------

// Smallest squared distance from `point` to the curve sampled at `perSegment` equal steps of
// every segment (the segment's end is the next segment's start; the line's very end is left
// out, as the search never examines it).
double NearestOnGrid(const std::vector<TVrtPol>& nodes, double sigmap, const PNT_2D& point,
                     int perSegment) {
    double best = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i + 1 < nodes.size(); ++i) {
        for (int k = 0; k < perSegment; ++k) {
            const double t = nodes[i].len * k / perSegment;
            best = std::min(best, Evaluate(nodes, sigmap, i, t).dist_square(point));
        }
    }
    return best;
}

// Gentle random lines (turns of at most half a radian), so that the distance to a query point
// near the curve has one clear minimum.
void MakeGentleLine(std::mt19937& random, int n, std::vector<double>& x, std::vector<double>& y) {
    std::uniform_real_distribution<double> turn(-0.5, 0.5);
    std::uniform_real_distribution<double> length(0.5, 4.0);
    x.assign(1, 0.0);
    y.assign(1, 0.0);
    double heading = 0.0;
    for (int i = 1; i < n; ++i) {
        heading += turn(random);
        const double l = length(random);
        x.push_back(x.back() + l * std::cos(heading));
        y.push_back(y.back() + l * std::sin(heading));
    }
}

// The refinement examines every hundredth of a segment within a tenth on either side of the
// best coarse sample, then refines forward from the best sample only. So the search always
// does at least as well as sampling every segment at hundredths; it does better only when the
// nearest point lies after the best sample of each level.
TEST(SplineSearch, DoesAtLeastAsWellAsDenseSamplingAtHundredths) {
    for (unsigned seed = 800; seed < 840; ++seed) {
        std::mt19937 random(seed);
        std::vector<double> x, y;
        MakeGentleLine(random, 2 + static_cast<int>(seed % 15), x, y);
        for (double sigma : {1.0, 5.0, -1.0}) {
            double sigmap = 0.0;
            const std::vector<TVrtPol> nodes = Build(x, y, sigma, sigmap);
            for (int query = 0; query < 8; ++query) {
                const std::size_t seg = random() % (nodes.size() - 1);
                const double t0 =
                    std::uniform_real_distribution<double>(0.0, nodes[seg].len)(random);
                const PNT_2D onCurve = Evaluate(nodes, sigmap, seg, t0);
                const double offset = std::uniform_real_distribution<double>(-0.2, 0.2)(random);
                const PNT_2D d = Derivative(nodes, sigmap, seg, t0);
                const double norm = std::hypot(d.x, d.y);
                const PNT_2D point(onCurve.x - offset * d.y / norm,
                                   onCurve.y + offset * d.x / norm);

                int segment = -2;
                double t = -1.0;
                double spine = -1.0;
                ASSERT_TRUE(FindSplineParam(nodes, sigmap, point, segment, t, spine))
                    << "seed " << seed << ", sigma " << sigma << ", query " << query;
                ASSERT_GE(segment, 0);
                ASSERT_LT(static_cast<std::size_t>(segment), nodes.size() - 1);
                const TVrtPol& found = nodes[static_cast<std::size_t>(segment)];
                EXPECT_GE(t, 0.0);
                EXPECT_LT(t, found.len);
                double before = 0.0;
                for (int i = 0; i < segment; ++i) before += nodes[static_cast<std::size_t>(i)].len;
                EXPECT_NEAR(spine, before + t, 1e-9)
                    << "seed " << seed << ", sigma " << sigma << ", query " << query;

                const double foundDistance =
                    Evaluate(nodes, sigmap, static_cast<std::size_t>(segment), t)
                        .dist_square(point);
                const double grid = NearestOnGrid(nodes, sigmap, point, 100);
                EXPECT_LE(foundDistance, grid * (1.0 + 1e-12))
                    << "seed " << seed << ", sigma " << sigma << ", query " << query;
            }
        }
    }
}

// What the search finds for @p point on a straight segment of length 10 along +x (negative
// tension, two nodes: no coefficients).
struct TFoundParam {
    bool found = false;
    int segment = -2;
    double t = -1.0;
    double spine = -1.0;
};

TFoundParam SearchStraightSegment(const PNT_2D& point) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build({0.0, 10.0}, {0.0, 0.0}, -1.0, sigmap);
    TFoundParam result;
    result.found = FindSplineParam(nodes, sigmap, point, result.segment, result.t, result.spine);
    return result;
}

TEST(SplineSearch, RefinesForwardFromTheBestSampleToAMillionthOfTheSegment) {
    // 3.1411111 lies just after the sample of every level: 3.1, 3.14, 3.141, 3.1411, 3.14111.
    const TFoundParam found = SearchStraightSegment(PNT_2D(3.1411111, 1.0));
    ASSERT_TRUE(found.found);
    EXPECT_EQ(found.segment, 0);
    EXPECT_NEAR(found.t, 3.14111, 1e-9);
    EXPECT_EQ(found.spine, found.t);
}

TEST(SplineSearch, ANearestPointJustBeforeASampleStaysOnThatSample) {
    // The nearest point lies at 3.0999, just before the level-1 sample at 3.1: the finer levels
    // only look forward from 3.1, find nothing nearer, and the answer stays at 3.1.
    const TFoundParam found = SearchStraightSegment(PNT_2D(3.0999, 1.0));
    ASSERT_TRUE(found.found);
    EXPECT_EQ(found.segment, 0);
    EXPECT_NEAR(found.t, 3.1, 1e-9);
}

TEST(SplineSearch, ALevelThatImprovesNothingHandsOnTheFirstTenthOfItsPart) {
    // The nearest point lies at 3.0006. The coarse sample 3.0 is best; level 1 (3.0, 3.1, …)
    // and level 2 (3.00, 3.01, …) find nothing nearer, so each hands on the first tenth of the
    // part it probed, and level 3 (3.000, 3.001, …) moves forward to 3.001, which no finer
    // level improves on.
    const TFoundParam found = SearchStraightSegment(PNT_2D(3.0006, 1.0));
    ASSERT_TRUE(found.found);
    EXPECT_EQ(found.segment, 0);
    EXPECT_NEAR(found.t, 3.001, 1e-9);
}

TEST(SplineSearch, ABestSampleAtASegmentStartAlsoRefinesTheEndOfThePreviousSegment) {
    // Nodes at x = 0, 10, 20 on a straight line; the nearest point 9.93 lies in the last tenth
    // of segment 0, while the best coarse sample is the start of segment 1.
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build({0.0, 10.0, 20.0}, {0.0, 0.0, 0.0}, -1e4, sigmap);
    int segment = -2;
    double t = -1.0, spine = -1.0;
    ASSERT_TRUE(FindSplineParam(nodes, sigmap, PNT_2D(9.93, 1.0), segment, t, spine));
    EXPECT_EQ(segment, 0);
    EXPECT_NEAR(t, 9.93, 1e-5);
    EXPECT_NEAR(spine, t, 1e-12);
}

TEST(SplineSearch, APointBeforeTheStartFindsTheCurveContinuedBackwards) {
    // A best coarse sample at the very start of the line refines the tenth before it: the
    // straight segment of length 10 continued back to x = -1. Each case gives the parameter
    // that the forward-only refinement reaches there.
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build({0.0, 10.0}, {0.0, 0.0}, -1.0, sigmap);
    struct Case {
        PNT_2D point;
        double t;
    };
    for (const Case& test : {
             // Beyond the tenth: its first sample, x = -1.
             Case{PNT_2D(-5.0, 0.0), -1.0},
             // Level 1 finds -0.5, level 2 -0.46; -0.463 lies behind that sample.
             Case{PNT_2D(-0.463, 1.0), -0.46},
             // Level 1 finds its last sample, -0.1: the found index j + 10k is then -1, which
             // level 2 refines like any other (to -0.08).
             Case{PNT_2D(-0.08, 1.0), -0.08},
         }) {
        int segment = -2;
        double t = 1.0, spine = 1.0;
        ASSERT_TRUE(FindSplineParam(nodes, sigmap, test.point, segment, t, spine)) << test.t;
        EXPECT_EQ(segment, 0) << test.t;
        EXPECT_NEAR(t, test.t, 1e-12);
        EXPECT_EQ(spine, t) << test.t;
        EXPECT_NEAR(Evaluate(nodes, sigmap, 0, t).x, test.t, 1e-12);
    }
}

TEST(SplineSearch, APointOnAnInteriorNodeFindsTheStartOfItsSegment) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes =
        Build({0.0, 2.0, 4.0, 5.0}, {0.0, 1.0, 0.5, 2.0}, 1.0, sigmap);
    int segment = -2;
    double t = -1.0, spine = -1.0;
    ASSERT_TRUE(FindSplineParam(nodes, sigmap, PNT_2D(4.0, 0.5), segment, t, spine));
    EXPECT_EQ(segment, 2);
    EXPECT_EQ(t, 0.0);
    EXPECT_EQ(spine, nodes[0].len + nodes[1].len);
}

TEST(SplineSearch, ALineWithoutSegmentsFindsNothing) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> single = Build({1.0}, {1.0}, 1.0, sigmap);
    int segment = 7;
    double t = 3.0, spine = 4.0;
    EXPECT_FALSE(FindSplineParam(single, sigmap, PNT_2D(1.0, 1.0), segment, t, spine));
    EXPECT_EQ(segment, -1);
    EXPECT_FALSE(FindSplineParam({}, sigmap, PNT_2D(1.0, 1.0), segment, t, spine));
    EXPECT_EQ(segment, -1);
}

TEST(SplineSearch, APointBeyondTheUndefinedDistanceFindsNothing) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = Build({0.0, 1.0}, {0.0, 0.0}, 1.0, sigmap);
    int segment = 7;
    double t = 3.0, spine = 4.0;
    // Squared distance 1e202 is not below the starting best of 1.7e200.
    EXPECT_FALSE(FindSplineParam(nodes, sigmap, PNT_2D(0.0, 1e101), segment, t, spine));
    EXPECT_EQ(segment, -1);
}

}  // namespace
