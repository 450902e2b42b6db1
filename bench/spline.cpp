// Cost of the contour spline on long lines: computing the coefficients of an open and a closed
// line, sampling every segment for drawing, and the nearest-parameter search. Times are reported
// against sampling the same line as a plain polyline (linear interpolation at the same number of
// points), the least any drawing of the line costs.

#include <dtm/contours/Spline.h>

#include "contours/SplineInternal.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "common/RatioReporter.h"

namespace {

using kor::geom::PNT_2D;

// Samples per segment when drawing: the step TrovaIncremCurvaOtt aims at on gentle segments.
constexpr int kSamplesPerSegment = 10;

// A wandering contour-like line of `count` nodes, steps of 1 to 5 units, fixed seed.
void MakeLine(int count, std::vector<double>& x, std::vector<double>& y) {
    std::mt19937 random(42);
    std::uniform_real_distribution<double> turn(-0.6, 0.6);
    std::uniform_real_distribution<double> length(1.0, 5.0);
    x.assign(1, 0.0);
    y.assign(1, 0.0);
    double heading = 0.0;
    for (int i = 1; i < count; ++i) {
        heading += turn(random);
        const double l = length(random);
        x.push_back(x.back() + l * std::cos(heading));
        y.push_back(y.back() + l * std::sin(heading));
    }
}

// The same line closed on itself: a star-shaped loop of `count` distinct nodes plus the repeat.
void MakeLoop(int count, std::vector<double>& x, std::vector<double>& y) {
    std::mt19937 random(43);
    std::uniform_real_distribution<double> radius(900.0, 1100.0);
    x.clear();
    y.clear();
    for (int i = 0; i < count; ++i) {
        const double angle = 6.283185307179586 * i / count;
        const double r = radius(random);
        x.push_back(r * std::cos(angle));
        y.push_back(r * std::sin(angle));
    }
    x.push_back(x.front());
    y.push_back(y.front());
}

std::vector<TVrtPol> BuiltLine(int count, double& sigmap) {
    std::vector<double> x, y;
    MakeLine(count, x, y);
    std::vector<TVrtPol> nodes;
    BuildSplineNodes(count, x.data(), y.data(), 1.0, nodes, sigmap);
    return nodes;
}

// Baseline: the line drawn as a polyline at the same sampling density, by linear interpolation.
void LinearPolyline(benchmark::State& state) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = BuiltLine(static_cast<int>(state.range(0)), sigmap);
    std::vector<PNT_2D> points;
    for (auto _ : state) {
        points.clear();
        for (std::size_t i = 0; i + 1 < nodes.size(); ++i) {
            const TVrtPol& a = nodes[i];
            const TVrtPol& b = nodes[i + 1];
            for (int k = 0; k < kSamplesPerSegment; ++k) {
                const double f = static_cast<double>(k) / kSamplesPerSegment;
                points.emplace_back(a.x + (b.x - a.x) * f, a.y + (b.y - a.y) * f);
            }
        }
        points.emplace_back(nodes.back().x, nodes.back().y);
        benchmark::DoNotOptimize(points.data());
    }
}
BENCHMARK(LinearPolyline)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BuildOpenLine(benchmark::State& state) {
    std::vector<double> x, y;
    const int count = static_cast<int>(state.range(0));
    MakeLine(count, x, y);
    std::vector<TVrtPol> nodes;
    double sigmap = 0.0;
    for (auto _ : state) {
        BuildSplineNodes(count, x.data(), y.data(), 1.0, nodes, sigmap);
        benchmark::DoNotOptimize(nodes.data());
    }
}
BENCHMARK(BuildOpenLine)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BuildClosedLine(benchmark::State& state) {
    std::vector<double> x, y;
    const int count = static_cast<int>(state.range(0));
    MakeLoop(count, x, y);
    std::vector<TVrtPol> nodes;
    double sigmap = 0.0;
    for (auto _ : state) {
        BuildSplineNodes(count + 1, x.data(), y.data(), 1.0, nodes, sigmap);
        benchmark::DoNotOptimize(nodes.data());
    }
}
BENCHMARK(BuildClosedLine)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// Draws the whole line: every segment sampled with TrovaArValoriSpline, at a tenth of its
// length, or (@p adaptive) at the step TrovaIncremCurvaOtt adapts to its curvature, as a host
// does.
void SampleLine(benchmark::State& state, bool adaptive) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = BuiltLine(static_cast<int>(state.range(0)), sigmap);
    std::vector<PNT_2D> segment;
    std::vector<PNT_2D> points;
    for (auto _ : state) {
        points.clear();
        for (std::size_t i = 0; i + 1 < nodes.size(); ++i) {
            const TVrtPol& a = nodes[i];
            const TVrtPol& b = nodes[i + 1];
            double step = a.len / kSamplesPerSegment;
            if (adaptive)
                TrovaIncremCurvaOtt(a.len, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp,
                                    step);
            TrovaArValoriSpline(0.0, a.len, step, a.len, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y,
                                b.xp, b.yp, segment);
            points.insert(points.end(), segment.begin(), segment.end() - 1);
        }
        points.emplace_back(nodes.back().x, nodes.back().y);
        benchmark::DoNotOptimize(points.data());
    }
}

void SampleSpline(benchmark::State& state) {
    SampleLine(state, false);
}
BENCHMARK(SampleSpline)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void SampleSplineAdaptive(benchmark::State& state) {
    SampleLine(state, true);
}
BENCHMARK(SampleSplineAdaptive)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// One nearest-parameter search: a coarse pass over every segment and ten refinements.
void FindNearestParameter(benchmark::State& state) {
    double sigmap = 0.0;
    const std::vector<TVrtPol> nodes = BuiltLine(static_cast<int>(state.range(0)), sigmap);
    const TVrtPol& middle = nodes[nodes.size() / 2];
    const PNT_2D point(middle.x + 0.3, middle.y - 0.2);
    for (auto _ : state) {
        int segment = 0;
        double t = 0.0;
        double spine = 0.0;
        benchmark::DoNotOptimize(FindSplineParam(nodes, sigmap, point, segment, t, spine));
    }
}
BENCHMARK(FindNearestParameter)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return dtm_bench::RunWithRatios(argc, argv, "LinearPolyline/10000",
                                    "drawing a 10 000-node line as a plain polyline");
}
