// The elevation query GetCoordZQ on a random network of about 10^6 triangles, at random points,
// as ratios against the indexed query measured in the same run: the literal scan of every
// triangle that defines its answer, the query on the same network in the order it was filled
// (before the octree reorders it), and CGAL's point location in the Delaunay triangulation of
// the same vertices (the same triangles) followed by linear interpolation in the located
// triangle.

#include <dtm/network/CTris.h>
#include <dtm/support/Tolerances.h>

#include "network/CTrisSearchIndex.h"

#include <benchmark/benchmark.h>

#include "common/BenchNetwork.h"
#include "common/RatioReporter.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#if defined(DTM_BENCH_WITH_CGAL)
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Triangulation_hierarchy_2.h>
#include <CGAL/Triangulation_vertex_base_with_info_2.h>

#include <unordered_map>
#include <unordered_set>
#endif

/// The network's reference scan and its index, as the tests reach them (a friend of CTris).
struct CTrisSearchTestAccess {
    static double Scan(const CTris& tris, double x, double y) {
        return tris.GetCoordZQByScan(x, y);
    }
    static const CTrisSearchIndex& Index(const CTris& tris) { return CTrisSearchIndex::Of(tris); }
    static void DropIndex(const CTris& tris) { tris.m_searchIndex.reset(); }
};

namespace {

using dtm_bench::ProjectPtr;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

const dtm_bench::TNetworkData& Data() {
    static const dtm_bench::TNetworkData data = dtm_bench::RandomNetwork(dtm_bench::kMillionCells);
    return data;
}

// The network as a host has it after filling it in one event: with its octree.
const CTris& Network() {
    static const ProjectPtr prj = dtm_bench::FilledProject(Data(), true);
    return *prj->GetTris();
}

// The same network filled in a project's first event, which builds no octree: its triangles
// stay in the order they were added.
const CTris& NetworkInFillOrder() {
    static const ProjectPtr prj = dtm_bench::FilledProject(Data(), false);
    return *prj->GetTris();
}

// Random points over the network's square and a little beyond it.
const std::vector<PNT_2D>& Points() {
    static const std::vector<PNT_2D> points = [] {
        std::mt19937 random(7);
        const double size = Data().size;
        std::uniform_real_distribution<double> coordinate(-0.01 * size, 1.01 * size);
        std::vector<PNT_2D> result(1 << 16);
        for (PNT_2D& p : result) p = PNT_2D(coordinate(random), coordinate(random));
        return result;
    }();
    return points;
}

template <class Query>
void RunQueries(benchmark::State& state, Query&& query) {
    const std::vector<PNT_2D>& points = Points();
    std::size_t next = 0;
    for (auto _ : state) {
        const PNT_2D& p = points[next++ & (points.size() - 1)];
        benchmark::DoNotOptimize(query(p));
    }
    state.counters["triangles"] = static_cast<double>(Data().triangles.size());
}

void GetCoordZQ(benchmark::State& state) {
    const CTris& tris = Network();
    tris.GetCoordZQ(0.0, 0.0);  // builds the index outside the clock
    state.counters["index_bytes_per_triangle"] =
        static_cast<double>(CTrisSearchTestAccess::Index(tris).GetMemoryBytes()) /
        static_cast<double>(tris.GetNoTris());
    RunQueries(state, [&tris](const PNT_2D& p) { return tris.GetCoordZQ(p.x, p.y); });
}
BENCHMARK(GetCoordZQ)->Unit(benchmark::kMicrosecond);

void GetCoordZQInFillOrder(benchmark::State& state) {
    const CTris& tris = NetworkInFillOrder();
    tris.GetCoordZQ(0.0, 0.0);
    RunQueries(state, [&tris](const PNT_2D& p) { return tris.GetCoordZQ(p.x, p.y); });
}
BENCHMARK(GetCoordZQInFillOrder)->Unit(benchmark::kMicrosecond);

// The literal scan that defines the answer; checked once against the indexed query first.
void LiteralScan(benchmark::State& state) {
    const CTris& tris = Network();
    const std::vector<PNT_2D>& points = Points();
    for (std::size_t i = 0; i < 32; ++i) {
        const double indexed = tris.GetCoordZQ(points[i].x, points[i].y);
        const double scanned = CTrisSearchTestAccess::Scan(tris, points[i].x, points[i].y);
        if (std::memcmp(&indexed, &scanned, sizeof(double)) != 0) {
            state.SkipWithError("the indexed query differs from the scan");
            return;
        }
    }
    RunQueries(state,
               [&tris](const PNT_2D& p) { return CTrisSearchTestAccess::Scan(tris, p.x, p.y); });
}
BENCHMARK(LiteralScan)->Unit(benchmark::kMicrosecond);

// What the first query after a load or an edit pays on top of the query: building the index
// over the whole network. Compared with the literal scan, it says after how many queries the
// index has paid for itself.
void BuildIndex(benchmark::State& state) {
    const CTris& tris = Network();
    for (auto _ : state) {
        state.PauseTiming();
        CTrisSearchTestAccess::DropIndex(tris);
        state.ResumeTiming();
        benchmark::DoNotOptimize(&CTrisSearchTestAccess::Index(tris));
    }
}
BENCHMARK(BuildIndex)->Unit(benchmark::kMicrosecond);

#if defined(DTM_BENCH_WITH_CGAL)

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using VertexBase = CGAL::Triangulation_hierarchy_vertex_base_2<
    CGAL::Triangulation_vertex_base_with_info_2<int, Kernel>>;
using FaceBase = CGAL::Triangulation_face_base_2<Kernel>;
using Tds = CGAL::Triangulation_data_structure_2<VertexBase, FaceBase>;
using Delaunay = CGAL::Delaunay_triangulation_2<Kernel, Tds>;
using Hierarchy = CGAL::Triangulation_hierarchy_2<Delaunay>;

// The Delaunay triangulation of the network's vertices, each carrying its index. Built once;
// its triangles are compared with the network's, which must be the same.
const Hierarchy& CgalTriangulation(std::size_t& differing) {
    static std::size_t missing = 0;
    static const Hierarchy triangulation = [] {
        const dtm_bench::TNetworkData& data = Data();
        // The hierarchy inserts plain points (in its own spatial order); each vertex is then
        // given the index of the network vertex at its position.
        std::vector<Kernel::Point_2> points;
        points.reserve(data.vertices.size());
        std::unordered_map<std::uint64_t, int> indexAt;
        const auto positionKey = [](double x, double y) {
            std::uint64_t bx = 0, by = 0;
            std::memcpy(&bx, &x, sizeof(bx));
            std::memcpy(&by, &y, sizeof(by));
            return bx * 0x9E3779B97F4A7C15ull ^ by;
        };
        for (std::size_t i = 0; i < data.vertices.size(); ++i) {
            points.emplace_back(data.vertices[i].x, data.vertices[i].y);
            indexAt[positionKey(data.vertices[i].x, data.vertices[i].y)] = static_cast<int>(i);
        }
        Hierarchy built;
        built.insert(points.begin(), points.end());
        for (auto vertex = built.finite_vertices_begin(); vertex != built.finite_vertices_end();
             ++vertex)
            vertex->info() = indexAt.at(positionKey(vertex->point().x(), vertex->point().y()));
        // Every triangle of the network must be a face of CGAL's triangulation. CGAL's also
        // fills the convex hull, beyond the network's jagged border; points there are not
        // inside the network and get an elevation from CGAL only.
        std::unordered_set<std::uint64_t> faces;
        const auto key = [](int a, int b, int c) {
            int v[3] = {a, b, c};
            std::sort(v, v + 3);
            return (static_cast<std::uint64_t>(v[0]) << 42) ^
                   (static_cast<std::uint64_t>(v[1]) << 21) ^ static_cast<std::uint64_t>(v[2]);
        };
        for (auto face = built.finite_faces_begin(); face != built.finite_faces_end(); ++face)
            faces.insert(
                key(face->vertex(0)->info(), face->vertex(1)->info(), face->vertex(2)->info()));
        for (const auto& t : data.triangles) {
            if (faces.count(key(t[0], t[1], t[2])) == 0) ++missing;
        }
        return built;
    }();
    differing = missing;
    return triangulation;
}

void CgalLocateAndInterpolate(benchmark::State& state) {
    std::size_t differing = 0;
    const Hierarchy& triangulation = CgalTriangulation(differing);
    if (differing != 0) state.SkipWithError("CGAL's triangulation lacks triangles of the network");
    const std::vector<PNT_3D>& vertices = Data().vertices;
    RunQueries(state, [&](const PNT_2D& p) {
        const Hierarchy::Face_handle face = triangulation.locate(Kernel::Point_2(p.x, p.y));
        if (triangulation.is_infinite(face)) return UNDEFINED_QUOTE;
        const PNT_3D& a = vertices[static_cast<std::size_t>(face->vertex(0)->info())];
        const PNT_3D& b = vertices[static_cast<std::size_t>(face->vertex(1)->info())];
        const PNT_3D& c = vertices[static_cast<std::size_t>(face->vertex(2)->info())];
        const double area = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
        const double wb = ((p.x - a.x) * (c.y - a.y) - (c.x - a.x) * (p.y - a.y)) / area;
        const double wc = ((b.x - a.x) * (p.y - a.y) - (p.x - a.x) * (b.y - a.y)) / area;
        return (1.0 - wb - wc) * a.z + wb * b.z + wc * c.z;
    });
}
BENCHMARK(CgalLocateAndInterpolate)->Unit(benchmark::kMicrosecond);

#endif

}  // namespace

int main(int argc, char** argv) {
#if !defined(DTM_BENCH_WITH_CGAL)
    std::printf(
        "CGAL was not found when the benchmarks were configured: its baseline is skipped.\n");
#endif
    return dtm_bench::RunWithRatios(argc, argv, "GetCoordZQ",
                                    "the indexed elevation query (GetCoordZQ)");
}
