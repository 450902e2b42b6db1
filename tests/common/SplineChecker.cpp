#include "SplineChecker.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace dtm_test {

namespace {

constexpr double kPi = 3.14159265358979323846;

// sinh(a)/sinh(c) and cosh(a)/sinh(c) for 0 ≤ a ≤ c, c > 0, finite whatever c: for large c
// both are rewritten with exponentials of non-positive arguments.
double SinhRatio(double a, double c) {
    if (c < 20.0) return std::sinh(a) / std::sinh(c);
    return std::exp(a - c) * (1.0 - std::exp(-2.0 * a)) / (1.0 - std::exp(-2.0 * c));
}

double CoshSinhRatio(double a, double c) {
    if (c < 20.0) return std::cosh(a) / std::sinh(c);
    return std::exp(a - c) * (1.0 + std::exp(-2.0 * a)) / (1.0 - std::exp(-2.0 * c));
}

double Extent(const std::vector<TVrtPol>& nodes) {
    double extent = 0.0;
    for (const TVrtPol& a : nodes) {
        extent =
            std::max({extent, std::fabs(a.x - nodes.front().x), std::fabs(a.y - nodes.front().y)});
    }
    return std::max(extent, 1.0);
}

bool Near(double a, double b, double tolerance) {
    return std::fabs(a - b) <= tolerance;
}

}  // namespace

SplineSample ReferenceSpline(const TVrtPol& from, const TVrtPol& to, double sigmap, double t) {
    const double h = from.len;
    const double a = sigmap * (h - t);
    const double b = sigmap * t;
    const double c = sigmap * h;
    SplineSample s;
    s.x = ((from.x - from.xp) * (h - t) + (to.x - to.xp) * t) / h + from.xp * SinhRatio(a, c) +
          to.xp * SinhRatio(b, c);
    s.y = ((from.y - from.yp) * (h - t) + (to.y - to.yp) * t) / h + from.yp * SinhRatio(a, c) +
          to.yp * SinhRatio(b, c);
    s.dx = ((to.x - to.xp) - (from.x - from.xp)) / h +
           sigmap * (-from.xp * CoshSinhRatio(a, c) + to.xp * CoshSinhRatio(b, c));
    s.dy = ((to.y - to.yp) - (from.y - from.yp)) / h +
           sigmap * (-from.yp * CoshSinhRatio(a, c) + to.yp * CoshSinhRatio(b, c));
    return s;
}

::testing::AssertionResult SplineLengthsAreChords(const std::vector<TVrtPol>& nodes) {
    for (std::size_t i = 0; i + 1 < nodes.size(); ++i) {
        double chord = std::hypot(nodes[i + 1].x - nodes[i].x, nodes[i + 1].y - nodes[i].y);
        if (chord == 0.0) chord = 1e-7;
        if (!Near(nodes[i].len, chord, 1e-12 * chord)) {
            return ::testing::AssertionFailure()
                   << "node " << i << ": len " << nodes[i].len << ", chord " << chord;
        }
    }
    if (!nodes.empty() && nodes.back().len != 0.0) {
        return ::testing::AssertionFailure() << "last node len " << nodes.back().len;
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult SplineIsC1(const std::vector<TVrtPol>& nodes, double sigmap, bool closed,
                                      double tolerance) {
    const double extent = Extent(nodes);
    const std::size_t segments = nodes.size() < 2 ? 0 : nodes.size() - 1;
    std::vector<SplineSample> starts;
    std::vector<SplineSample> ends;
    for (std::size_t i = 0; i < segments; ++i) {
        starts.push_back(ReferenceSpline(nodes[i], nodes[i + 1], sigmap, 0.0));
        ends.push_back(ReferenceSpline(nodes[i], nodes[i + 1], sigmap, nodes[i].len));
        const SplineSample& s = starts.back();
        const SplineSample& e = ends.back();
        if (!Near(s.x, nodes[i].x, tolerance * extent) ||
            !Near(s.y, nodes[i].y, tolerance * extent)) {
            return ::testing::AssertionFailure()
                   << "segment " << i << " starts at (" << s.x << ", " << s.y << "), node ("
                   << nodes[i].x << ", " << nodes[i].y << ")";
        }
        if (!Near(e.x, nodes[i + 1].x, tolerance * extent) ||
            !Near(e.y, nodes[i + 1].y, tolerance * extent)) {
            return ::testing::AssertionFailure()
                   << "segment " << i << " ends at (" << e.x << ", " << e.y << "), node ("
                   << nodes[i + 1].x << ", " << nodes[i + 1].y << ")";
        }
    }
    const auto derivativeJump = [&](std::size_t arriving, std::size_t leaving,
                                    const char* where) -> ::testing::AssertionResult {
        const SplineSample& e = ends[arriving];
        const SplineSample& s = starts[leaving];
        if (!Near(e.dx, s.dx, tolerance) || !Near(e.dy, s.dy, tolerance)) {
            return ::testing::AssertionFailure()
                   << where << " node after segment " << arriving << ": derivative (" << e.dx
                   << ", " << e.dy << ") arriving, (" << s.dx << ", " << s.dy << ") leaving";
        }
        return ::testing::AssertionSuccess();
    };
    for (std::size_t i = 0; i + 1 < segments; ++i) {
        ::testing::AssertionResult result = derivativeJump(i, i + 1, "interior");
        if (!result) return result;
    }
    if (closed) {
        if (segments < 2) return ::testing::AssertionFailure() << "closed line without segments";
        if (nodes.back().xp != nodes.front().xp || nodes.back().yp != nodes.front().yp) {
            return ::testing::AssertionFailure()
                   << "last node's coefficients differ from the first";
        }
        ::testing::AssertionResult result = derivativeJump(segments - 1, 0, "closing");
        if (!result) return result;
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult SplineEvaluationMatchesReference(const std::vector<TVrtPol>& nodes,
                                                            double sigmap, int samplesPerSegment,
                                                            double tolerance) {
    const double extent = Extent(nodes);
    for (std::size_t i = 0; i + 1 < nodes.size(); ++i) {
        const TVrtPol& a = nodes[i];
        const TVrtPol& b = nodes[i + 1];
        for (int k = 0; k < samplesPerSegment; ++k) {
            const double t = a.len * (k + 0.5) / samplesPerSegment;
            const SplineSample expected = ReferenceSpline(a, b, sigmap, t);
            double x, y, dx, dy;
            TrovaSngValSpline(a.len, t, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp, x, y);
            TrovaSngDerValSpline(a.len, t, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp, dx,
                                 dy);
            if (!Near(x, expected.x, tolerance * extent) ||
                !Near(y, expected.y, tolerance * extent) || !Near(dx, expected.dx, tolerance) ||
                !Near(dy, expected.dy, tolerance)) {
                return ::testing::AssertionFailure()
                       << "segment " << i << " at t = " << t << ": library (" << x << ", " << y
                       << ") d(" << dx << ", " << dy << "), reference (" << expected.x << ", "
                       << expected.y << ") d(" << expected.dx << ", " << expected.dy << ")";
            }
        }
    }
    return ::testing::AssertionSuccess();
}

void MakeWanderingLine(unsigned seed, int count, std::vector<double>& x, std::vector<double>& y) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> stepLength(0.2, 5.0);
    std::uniform_real_distribution<double> turn(-1.75, 1.75);
    std::uniform_real_distribution<double> start(-100.0, 100.0);
    x.assign(1, start(random));
    y.assign(1, start(random));
    double heading = turn(random) * 2.0;
    for (int i = 1; i < count; ++i) {
        heading += turn(random);
        const double length = stepLength(random);
        x.push_back(x.back() + length * std::cos(heading));
        y.push_back(y.back() + length * std::sin(heading));
    }
}

void MakeClosedLine(unsigned seed, int count, std::vector<double>& x, std::vector<double>& y) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> radius(5.0, 15.0);
    std::uniform_real_distribution<double> jitter(0.1, 0.9);
    std::uniform_real_distribution<double> centre(-50.0, 50.0);
    const double cx = centre(random);
    const double cy = centre(random);
    x.clear();
    y.clear();
    for (int i = 0; i < count; ++i) {
        const double angle = 2.0 * kPi * (i + jitter(random)) / count;
        const double r = radius(random);
        x.push_back(cx + r * std::cos(angle));
        y.push_back(cy + r * std::sin(angle));
    }
    x.push_back(x.front());
    y.push_back(y.front());
}

}  // namespace dtm_test
