// Cost of the network's octree build and point queries on 10^5 triangles, as ratios against a
// plain linear pass over the same triangles measured in the same run.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>

#include <benchmark/benchmark.h>

#include "common/RatioReporter.h"

#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

// A triangulated jittered grid: 224 × 224 cells of two triangles, 100 352 triangles, each
// vertex moved at random inside its cell, on a smooth terrain with a little random roughness.
constexpr int kCells = 224;
constexpr double kCellSize = 10.0;

class BenchNetwork {
public:
    BenchNetwork() : m_prj(new CDtmPrj(nullptr, "Bench", true, false)) {
        std::mt19937 random(2024);
        std::uniform_real_distribution<double> jitter(-0.3, 0.3);
        std::uniform_real_distribution<double> roughness(-0.5, 0.5);
        CTris& tris = Tris();
        kor::CEventGuard event(m_prj->GetContext());
        for (int row = 0; row <= kCells; ++row) {
            for (int column = 0; column <= kCells; ++column) {
                const double x = (column + jitter(random)) * kCellSize;
                const double y = (row + jitter(random)) * kCellSize;
                const double z =
                    120.0 + 15.0 * std::sin(x / 300.0) * std::cos(y / 400.0) + roughness(random);
                tris.AddTriVrt(PNT_3D(x, y, z));
            }
        }
        const auto index = [](int row, int column) { return row * (kCells + 1) + column; };
        for (int row = 0; row < kCells; ++row) {
            for (int column = 0; column < kCells; ++column) {
                tris.AddNewTri(1, index(row, column), index(row, column + 1),
                               index(row + 1, column + 1));
                tris.AddNewTri(1, index(row, column), index(row + 1, column + 1),
                               index(row + 1, column));
            }
        }
    }
    ~BenchNetwork() { m_prj->SubReference(); }
    BenchNetwork(const BenchNetwork&) = delete;
    BenchNetwork& operator=(const BenchNetwork&) = delete;

    CTris& Tris() const { return *m_prj->GetTris(); }

private:
    CDtmPrj* m_prj;
};

BenchNetwork& Network() {
    static BenchNetwork network;
    return network;
}

std::vector<PNT_2D> QueryPoints() {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> coordinate(0.0, kCells * kCellSize);
    std::vector<PNT_2D> points(1024);
    for (PNT_2D& p : points) p = PNT_2D(coordinate(random), coordinate(random));
    return points;
}

// Baseline: one pass over the triangle array reading every triangle's three vertices, the
// least any full scan of the network costs.
void LinearPass(benchmark::State& state) {
    const CTris& tris = Network().Tris();
    const std::vector<PNT_3D>& vertices = tris.GetPnts();
    for (auto _ : state) {
        double sum = 0.0;
        for (int i = 0; i < tris.GetNoTris(); ++i) {
            const CTri* tri = tris.GetTriAt(i);
            for (int k = 0; k < 3; ++k) {
                const PNT_3D& p = vertices[static_cast<std::size_t>(tri->GetVerIndex(k))];
                sum += p.x + p.y + p.z;
            }
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(LinearPass)->Unit(benchmark::kMillisecond);

void CalcOcTree(benchmark::State& state) {
    CTris& tris = Network().Tris();
    for (auto _ : state) tris.CalcOcTree();
}
BENCHMARK(CalcOcTree)->Unit(benchmark::kMillisecond);

// One elevation query: a linear scan in array order that stops at the first triangle holding
// the point, so on average half the network.
void GetCoordZQ(benchmark::State& state) {
    CTris& tris = Network().Tris();
    tris.CalcOcTree();
    const std::vector<PNT_2D> points = QueryPoints();
    std::size_t next = 0;
    for (auto _ : state) {
        const PNT_2D& p = points[next++ % points.size()];
        benchmark::DoNotOptimize(tris.GetCoordZQ(p.x, p.y));
    }
}
BENCHMARK(GetCoordZQ)->Unit(benchmark::kMillisecond);

// One edge search through the octree, for comparison with the linear elevation query.
void FindTri(benchmark::State& state) {
    CTris& tris = Network().Tris();
    tris.CalcOcTree();
    const std::vector<PNT_2D> points = QueryPoints();
    std::size_t next = 0;
    for (auto _ : state) {
        const PNT_2D& p = points[next++ % points.size()];
        int tri1, tri2, edgeStart, edgeEnd, opp1, opp2;
        benchmark::DoNotOptimize(tris.FindTri(p, 0.5, tri1, tri2, edgeStart, edgeEnd, opp1, opp2));
    }
}
BENCHMARK(FindTri)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return dtm_bench::RunWithRatios(argc, argv, "LinearPass",
                                    "one linear pass over the network's triangles");
}
