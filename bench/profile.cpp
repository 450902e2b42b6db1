// Cost of one terrain profile on 10^5 triangles, along a segment that crosses about 900 of them,
// as a ratio against a plain linear pass over the same triangles measured in the same run. The
// profile visits every triangle by design, so the ratio shows what its per-triangle tests and
// the final sort cost on top of the least any full scan costs.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/profile/CCalcIntersect.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>

#include <benchmark/benchmark.h>

#include "common/RatioReporter.h"

#include <cmath>
#include <random>
#include <vector>

namespace {

using kor::geom::LINE_2D;
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
        std::uniform_real_distribution<double> jitter(-0.2, 0.2);
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

    CDtmPrj& Prj() const { return *m_prj; }
    CTris& Tris() const { return *m_prj->GetTris(); }

private:
    CDtmPrj* m_prj;
};

BenchNetwork& Network() {
    static BenchNetwork network;
    return network;
}

// Corner to corner against the grid's diagonals, which meets the most edges a straight segment
// can here: one vertical, one horizontal and two diagonal crossings per cell width.
LINE_2D ProfileLine() {
    const double far = kCells * kCellSize;
    return LINE_2D(PNT_2D(3.0, far - 7.0), PNT_2D(far - 4.0, 6.0));
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

void CalcQuotedPnts(benchmark::State& state) {
    const CCalcIntersect calc(Network().Prj());
    const LINE_2D line = ProfileLine();
    std::vector<TLineProgPnt> profile;
    for (auto _ : state) {
        calc.CalcQuotedPnts(line, profile);
        benchmark::DoNotOptimize(profile.data());
    }
    state.counters["points"] = static_cast<double>(profile.size());
}
BENCHMARK(CalcQuotedPnts)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return dtm_bench::RunWithRatios(argc, argv, "LinearPass",
                                    "one linear pass over the network's triangles");
}
