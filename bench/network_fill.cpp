// Filling a network inside one change event, closing the event (which recomputes colours,
// normals, octree and selection), and the normals of a cloud-bound network. Times are reported
// against filling the network of 10^5 triangles, so linear growth shows as ratios of 0.1 and
// 10 (the target for 10^6 is at most 11); the memory held per triangle of each network is
// reported as a counter.

#include <dtm/network/CCld.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>

#include <benchmark/benchmark.h>

#include <unistd.h>
#include <cmath>
#include <cstdio>
#include <random>

#include "common/RatioReporter.h"

namespace {

using kor::geom::PNT_3D;

// Resident memory of the process in bytes, read from the kernel.
double ResidentBytes() {
    long pages = 0, resident = 0;
    std::FILE* statm = std::fopen("/proc/self/statm", "r");
    if (!statm) return 0.0;
    if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(statm);
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// A jittered grid of cells × cells × 2 triangles over smooth relief, added in one event.
void FillGrid(CTris& tris, int cells, CCld* cloud) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> jitter(-0.3, 0.3);
    kor::CEventGuard event(tris.GetContext());
    tris.SetNoTriVrts((cells + 1) * (cells + 1));
    for (int row = 0; row <= cells; ++row) {
        for (int column = 0; column <= cells; ++column) {
            const double x = column + jitter(random);
            const double y = row + jitter(random);
            const PNT_3D p(x, y, 100.0 + 10.0 * std::sin(x / 50.0) * std::cos(y / 70.0));
            if (cloud)
                tris.AddTriVrt(row * (cells + 1) + column);
            else
                tris.AddTriVrt(p);
        }
    }
    const auto index = [cells](int row, int column) { return row * (cells + 1) + column; };
    for (int row = 0; row < cells; ++row) {
        for (int column = 0; column < cells; ++column) {
            tris.AddNewTri(1, index(row, column), index(row, column + 1),
                           index(row + 1, column + 1));
            tris.AddNewTri(1, index(row, column), index(row + 1, column + 1),
                           index(row + 1, column));
        }
    }
}

int CellsFor(std::int64_t triangles) {
    return static_cast<int>(std::lround(std::sqrt(static_cast<double>(triangles) / 2.0)));
}

// Fills a fresh project's network in one event and closes it; the project's first, empty event
// arms the network's listener so that the close runs the full recomputation.
void FillInOneEvent(benchmark::State& state) {
    const int cells = CellsFor(state.range(0));
    double bytesPerTriangle = 0.0;
    for (auto _ : state) {
        state.PauseTiming();
        auto* prj = new CDtmPrj(nullptr, "Bench", true, false);
        { kor::CEventGuard arm(prj->GetContext()); }
        const double before = ResidentBytes();
        state.ResumeTiming();
        FillGrid(*prj->GetTris(), cells, nullptr);
        state.PauseTiming();
        bytesPerTriangle = (ResidentBytes() - before) / prj->GetTris()->GetNoTris();
        prj->SubReference();
        state.ResumeTiming();
    }
    state.counters["triangles"] = 2.0 * cells * cells;
    state.counters["bytes_per_triangle"] = bytesPerTriangle;
}
// Repeated, and compared by the median: the ratio of two sizes is the figure wanted, and a
// single run of the larger one moves with the machine's load by more than the margin it is
// judged by.
BENCHMARK(FillInOneEvent)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true);

// Normals exist only on a cloud-bound network: the cloud holds the grid's points.
void CalcNormals(benchmark::State& state) {
    const int cells = CellsFor(state.range(0));
    auto* cloud = new CMemCld();
    for (int row = 0; row <= cells; ++row)
        for (int column = 0; column <= cells; ++column)
            cloud->AddPnt(
                PNT_3D(column, row, 100.0 + std::sin(column / 9.0) * std::cos(row / 7.0)));
    auto* prj = new CDtmPrj(nullptr, "Bench", true, false);
    prj->GetTris()->SetCld(cloud);
    FillGrid(*prj->GetTris(), cells, cloud);
    for (auto _ : state) prj->GetTris()->CalcNormals();
    state.counters["triangles"] = prj->GetTris()->GetNoTris();
    prj->SubReference();
    cloud->SubReference();
}
BENCHMARK(CalcNormals)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return dtm_bench::RunWithRatios(argc, argv, "FillInOneEvent/100000",
                                    "filling a network of 10^5 triangles in one event");
}
