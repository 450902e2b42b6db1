// Building the network's octree (CalcOcTree) on a random network of about 10^6 triangles, and
// the edge search that walks it, as ratios against CalcOcTree measured in the same run; the
// baseline it must not be slower than is CGAL's AABB tree built over the same triangles.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>

#include <benchmark/benchmark.h>

#include "common/BenchNetwork.h"
#include "common/RatioReporter.h"

#include <cstdio>
#include <random>
#include <vector>

#if defined(DTM_BENCH_WITH_CGAL)
#include <CGAL/AABB_traits.h>
#include <CGAL/AABB_tree.h>
#include <CGAL/AABB_triangle_primitive.h>
#include <CGAL/Simple_cartesian.h>
#endif

namespace {

using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

CTris& Network() {
    static const dtm_bench::ProjectPtr prj =
        dtm_bench::FilledProject(dtm_bench::RandomNetwork(dtm_bench::kMillionCells), true);
    return *prj->GetTris();
}

// Rebuilt each time; the first build (when the network's event closed) already put the
// triangles in the tree's order, as every later build of a network finds them.
void CalcOcTree(benchmark::State& state) {
    CTris& tris = Network();
    for (auto _ : state) tris.CalcOcTree();
    state.counters["triangles"] = static_cast<double>(tris.GetNoTris());
}
BENCHMARK(CalcOcTree)->Unit(benchmark::kMillisecond);

#if defined(DTM_BENCH_WITH_CGAL)

using Kernel = CGAL::Simple_cartesian<double>;
using Triangles = std::vector<Kernel::Triangle_3>;
using Primitive = CGAL::AABB_triangle_primitive<Kernel, Triangles::const_iterator>;
using AabbTree = CGAL::AABB_tree<CGAL::AABB_traits<Kernel, Primitive>>;

// CGAL's AABB tree over the network's triangles, in the network's order; the triangles are
// copied out of the network before the clock runs.
void CgalAabbTreeBuild(benchmark::State& state) {
    const CTris& tris = Network();
    Triangles triangles;
    triangles.reserve(static_cast<std::size_t>(tris.GetNoTris()));
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const TVrtTri v = tris.GetVrtTriAt(i);
        triangles.emplace_back(Kernel::Point_3(v.p[0].x, v.p[0].y, v.p[0].z),
                               Kernel::Point_3(v.p[1].x, v.p[1].y, v.p[1].z),
                               Kernel::Point_3(v.p[2].x, v.p[2].y, v.p[2].z));
    }
    for (auto _ : state) {
        AabbTree tree(triangles.cbegin(), triangles.cend());
        tree.build();
        benchmark::DoNotOptimize(tree.size());
    }
}
BENCHMARK(CgalAabbTreeBuild)->Unit(benchmark::kMillisecond);

#endif

// One edge search through the octree at random points.
void FindTri(benchmark::State& state) {
    CTris& tris = Network();
    std::mt19937 random(7);
    const double size = dtm_bench::kMillionCells * dtm_bench::kCellSize;
    std::uniform_real_distribution<double> coordinate(0.0, size);
    std::vector<PNT_2D> points(1024);
    for (PNT_2D& p : points) p = PNT_2D(coordinate(random), coordinate(random));
    std::size_t next = 0;
    for (auto _ : state) {
        const PNT_2D& p = points[next++ % points.size()];
        int tri1, tri2, edgeStart, edgeEnd, opp1, opp2;
        benchmark::DoNotOptimize(tris.FindTri(p, 0.5, tri1, tri2, edgeStart, edgeEnd, opp1, opp2));
    }
}
BENCHMARK(FindTri)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
#if !defined(DTM_BENCH_WITH_CGAL)
    std::printf(
        "CGAL was not found when the benchmarks were configured: its baseline is skipped.\n");
#endif
    return dtm_bench::RunWithRatios(argc, argv, "CalcOcTree", "building the octree (CalcOcTree)");
}
