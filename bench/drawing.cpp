// Cost of drawing the network with clip planes (GetTris_Clip, which culls through the octree)
// against handing over every triangle (GetTris), on about 10^5 triangles, as ratios against
// GetTris measured in the same run.

#include <dtm/network/CTris.h>
#include <dtm/network/ITris.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Geom.h>

#include <benchmark/benchmark.h>

#include "common/BenchNetwork.h"
#include "common/RatioReporter.h"

#include <cmath>
#include <vector>

namespace {

using kor::geom::PLANE_3D;

// A surveyed grid of 224 × 224 cells of two triangles: 100 352 triangles.
constexpr int kCells = dtm_bench::kHundredThousandCells;
constexpr double kCellSize = dtm_bench::kCellSize;
constexpr double kExtent = kCells * kCellSize;
// Records per buffer, as a host would ask for.
constexpr int kBufferSize = 1024;

// The network, built once. Its fill is the project's first event, which only arms the network's
// listener, so the derived data are built by hand.
const CTris& Network() {
    static const dtm_bench::ProjectPtr prj = [] {
        dtm_bench::ProjectPtr filled =
            dtm_bench::FilledProject(dtm_bench::SurveyGrid(kCells, kCellSize), false);
        filled->GetTris()->CalcOcTree();
        filled->GetTris()->InitSelTris();
        return filled;
    }();
    return *prj->GetTris();
}

// A host listener that only touches what it is handed.
class CountingListener : public ITrisListener {
public:
    void OnTris(int count, TTriDraw* records) override {
        triangles += count;
        for (int i = 0; i < count; ++i) checksum += records[i].pnts[0].x;
    }
    void OnTriIndexes(int i0, int, int, bool, int, int) override {
        ++triangles;
        checksum += i0;
    }

    long triangles = 0;
    double checksum = 0.0;
};

// The four side planes of a view window [x0, x1] × [y0, y1]; what lies outside is on their
// positive side.
std::vector<PLANE_3D> WindowPlanes(double x0, double y0, double x1, double y1) {
    return {PLANE_3D(-1, 0, 0, x0), PLANE_3D(1, 0, 0, -x1), PLANE_3D(0, -1, 0, y0),
            PLANE_3D(0, 1, 0, -y1)};
}

// A view of the south-west corner bounded by oblique planes: two vertical planes through the
// corner, a diagonal far plane, and two horizontal planes far above and below the terrain that
// cull nothing but still cost their tests. About a seventh of the triangles stay.
std::vector<PLANE_3D> ObliqueFrustum() {
    const double s = std::sqrt(0.5);
    return {PLANE_3D(-s, 0.2, 0, 0.0), PLANE_3D(0.2, -s, 0, 0.0), PLANE_3D(0, 0, 1, -10000.0),
            PLANE_3D(0, 0, -1, -10.0), PLANE_3D(s, s, 0, -0.5 * kExtent)};
}

void Report(benchmark::State& state, const CountingListener& listener) {
    state.counters["triangles"] =
        static_cast<double>(listener.triangles) / static_cast<double>(state.iterations());
    benchmark::DoNotOptimize(listener.checksum);
}

// Baseline: every triangle handed over in buffers of records, in array order.
void GetTris(benchmark::State& state) {
    const CTris& tris = Network();
    CountingListener listener;
    for (auto _ : state) tris.GetTris(&listener, kBufferSize);
    Report(state, listener);
}
BENCHMARK(GetTris)->Unit(benchmark::kMillisecond);

// Every triangle again, but through the octree: the cost of the traversal itself.
void GetTris_Clip_NoPlanes(benchmark::State& state) {
    const CTris& tris = Network();
    CountingListener listener;
    for (auto _ : state) tris.GetTris_Clip(&listener, {}, kBufferSize, false);
    Report(state, listener);
}
BENCHMARK(GetTris_Clip_NoPlanes)->Unit(benchmark::kMillisecond);

// A window over a quarter of the network's side (about 1/16 of the triangles).
void GetTris_Clip_Window16th(benchmark::State& state) {
    const CTris& tris = Network();
    const std::vector<PLANE_3D> planes =
        WindowPlanes(0.4 * kExtent, 0.3 * kExtent, 0.65 * kExtent, 0.55 * kExtent);
    CountingListener listener;
    for (auto _ : state) tris.GetTris_Clip(&listener, planes, kBufferSize, false);
    Report(state, listener);
}
BENCHMARK(GetTris_Clip_Window16th)->Unit(benchmark::kMillisecond);

// A window over a tenth of the network's side (about 1/100 of the triangles).
void GetTris_Clip_Window100th(benchmark::State& state) {
    const CTris& tris = Network();
    const std::vector<PLANE_3D> planes =
        WindowPlanes(0.5 * kExtent, 0.5 * kExtent, 0.6 * kExtent, 0.6 * kExtent);
    CountingListener listener;
    for (auto _ : state) tris.GetTris_Clip(&listener, planes, kBufferSize, false);
    Report(state, listener);
}
BENCHMARK(GetTris_Clip_Window100th)->Unit(benchmark::kMillisecond);

// Five planes, three of them oblique, keeping about a seventh of the triangles.
void GetTris_Clip_Oblique(benchmark::State& state) {
    const CTris& tris = Network();
    const std::vector<PLANE_3D> planes = ObliqueFrustum();
    CountingListener listener;
    for (auto _ : state) tris.GetTris_Clip(&listener, planes, kBufferSize, false);
    Report(state, listener);
}
BENCHMARK(GetTris_Clip_Oblique)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return dtm_bench::RunWithRatios(argc, argv, "GetTris",
                                    "GetTris handing over every triangle in buffers");
}
