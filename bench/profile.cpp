// One terrain profile on a random network of about 10^6 triangles, along a segment that crosses
// about a thousand of them, as a ratio against the indexed profile measured in the same run:
// the full scan of every triangle that defines the profile, which the calculator keeps as its
// reference, and one plain pass over the triangles' vertices, the least any scan costs.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/profile/CCalcIntersect.h>

#include <benchmark/benchmark.h>

#include "common/BenchNetwork.h"
#include "common/RatioReporter.h"

#include <cstring>
#include <vector>

/// The calculator's reference scan, as the tests reach it (a friend of CCalcIntersect).
struct CCalcIntersectTestAccess {
    static void Scan(const CCalcIntersect& calc, const kor::geom::LINE_2D& line,
                     std::vector<TLineProgPnt>& out) {
        calc.CalcQuotedPntsByScan(line, out);
    }
};

namespace {

using kor::geom::LINE_2D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

CDtmPrj& Project() {
    static const dtm_bench::ProjectPtr prj =
        dtm_bench::FilledProject(dtm_bench::RandomNetwork(dtm_bench::kMillionCells), true);
    return *prj;
}

// About 4 600 units across the network at a slant: it crosses about a thousand triangles.
LINE_2D ProfileLine() {
    return LINE_2D(PNT_2D(1503.7, 2011.3), PNT_2D(5396.7, 4404.5));
}

bool BitIdentical(const std::vector<TLineProgPnt>& a, const std::vector<TLineProgPnt>& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(TLineProgPnt)) == 0);
}

void CalcQuotedPnts(benchmark::State& state) {
    const CCalcIntersect calc(Project());
    const LINE_2D line = ProfileLine();
    std::vector<TLineProgPnt> profile;
    calc.CalcQuotedPnts(line, profile);  // builds the network's search index outside the clock
    for (auto _ : state) {
        calc.CalcQuotedPnts(line, profile);
        benchmark::DoNotOptimize(profile.data());
    }
    state.counters["points"] = static_cast<double>(profile.size());
    state.counters["triangles"] = static_cast<double>(Project().GetTris()->GetNoTris());
}
BENCHMARK(CalcQuotedPnts)->Unit(benchmark::kMillisecond);

// The reference scan; its profile is compared with the indexed one first.
void LiteralScan(benchmark::State& state) {
    const CCalcIntersect calc(Project());
    const LINE_2D line = ProfileLine();
    std::vector<TLineProgPnt> indexed;
    std::vector<TLineProgPnt> scanned;
    calc.CalcQuotedPnts(line, indexed);
    CCalcIntersectTestAccess::Scan(calc, line, scanned);
    if (!BitIdentical(indexed, scanned)) {
        state.SkipWithError("the indexed profile differs from the scan");
        return;
    }
    for (auto _ : state) {
        CCalcIntersectTestAccess::Scan(calc, line, scanned);
        benchmark::DoNotOptimize(scanned.data());
    }
    state.counters["points"] = static_cast<double>(scanned.size());
}
BENCHMARK(LiteralScan)->Unit(benchmark::kMillisecond);

// One pass over the triangle array reading every triangle's three vertices.
void LinearPass(benchmark::State& state) {
    const CTris& tris = *Project().GetTris();
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

}  // namespace

int main(int argc, char** argv) {
    return dtm_bench::RunWithRatios(argc, argv, "CalcQuotedPnts",
                                    "the indexed profile (CalcQuotedPnts)");
}
