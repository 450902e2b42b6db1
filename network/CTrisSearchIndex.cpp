#include "network/CTrisSearchIndex.h"

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/support/Tolerances.h>

#include "network/COcTree.h"

#include <algorithm>
#include <cmath>
#include <limits>

using dtm::detail::TPlanBox;
using kor::geom::LINE_2D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

namespace {

// The elevation query accepts a triangle for a point closer than the vertex snap distance to a
// vertex on both axes, or within the inside tolerance of the triangle, so it never accepts a
// point outside the triangle's plan box widened by the larger of the two. Boxes are widened by
// twice that, plus a relative part of 1e-15 (several units in the last place) that covers the
// rounding of the widening itself and of the query's own comparisons at any magnitude. The
// profile needs no widening at all: it accepts only points of the closed triangle.
constexpr double kReach = 2.0 * std::max(dtm::VERTEX_SNAP_DISTANCE, dtm::INSIDE_TRIANGLE_TOLERANCE);
constexpr double kRelativeReach = 1e-15;

// Plan coordinates the grid files by position. The queries' arithmetic (products of coordinate
// differences, sums of a few of them) stays finite only while coordinates stay below about
// 1e154; beyond that a profile's crossing test can report crossings of segments far apart, so
// that a triangle outside a segment's box could take part. A triangle with a coordinate beyond
// this bound is therefore listed apart, and a query beyond it is handed every triangle: both are
// answered as the scan would answer them. No survey comes near the bound.
constexpr double kLargestFiled = 0x1p508;

bool IsFiled(double v) {
    return std::fabs(v) <= kLargestFiled;  // false for NaN and the infinities too
}

bool IsFiledPoint(const PNT_2D& p) {
    return IsFiled(p.x) && IsFiled(p.y);
}

double Below(double v) {
    return v - (kReach + std::fabs(v) * kRelativeReach);
}

double Above(double v) {
    return v + (kReach + std::fabs(v) * kRelativeReach);
}

// The plan box of triangle @p tri widened by the reach; false when a vertex does not exist or
// has a plan coordinate beyond the filed bound (such a triangle belongs in no cell). It runs for
// every triangle in every pass of a build, so it reads the vertices in place, as the octree's
// passes do (a missing vertex reads as a point with no position).
bool ReachBox(const PNT_3D* points, std::size_t pointCount, const CTri& tri, TPlanBox& box) {
    const PNT_3D& a = VertexAt(points, pointCount, tri.GetVerIndex(0));
    const PNT_3D& b = VertexAt(points, pointCount, tri.GetVerIndex(1));
    const PNT_3D& c = VertexAt(points, pointCount, tri.GetVerIndex(2));
    if (!(IsFiled(a.x) && IsFiled(a.y) && IsFiled(b.x) && IsFiled(b.y) && IsFiled(c.x) &&
          IsFiled(c.y)))
        return false;
    box = {Below(std::min({a.x, b.x, c.x})), Below(std::min({a.y, b.y, c.y})),
           Above(std::max({a.x, b.x, c.x})), Above(std::max({a.y, b.y, c.y}))};
    return box.IsFinite();
}

// The reach box of the network's vertices with filed plan coordinates: the extent of the
// triangles' boxes whenever every such vertex belongs to a triangle, which is the rule, found
// from an array that is read in order and holds half as many points as there are triangles.
TPlanBox VertexReachExtent(const std::vector<PNT_3D>& vertices) {
    double x0 = std::numeric_limits<double>::infinity();
    double y0 = x0;
    double x1 = -x0;
    double y1 = -x0;
    for (const PNT_3D& v : vertices) {
        if (!(IsFiled(v.x) && IsFiled(v.y))) continue;
        x0 = std::min(x0, v.x);
        y0 = std::min(y0, v.y);
        x1 = std::max(x1, v.x);
        y1 = std::max(y1, v.y);
    }
    return {Below(x0), Below(y0), Above(x1), Above(y1)};
}

// Grid shape: about 64 triangles per cell counted once, so that each triangle overlaps some 1.4
// cells and a cell lists about ninety, of which the covered parts let a few through. Smaller
// cells answer little faster but list a triangle in more of them: at 32 per cell the index took
// 9.8 bytes per triangle, at 64 it takes about 8.5, which keeps a loaded network of a million
// triangles within 64 bytes per triangle with its index. A triangle that would cover more
// cells than this goes to the list that every query scans. The cell count is bounded so that
// the offsets of a huge network still fit.
constexpr double kTrisPerCell = 64.0;
constexpr std::size_t kMaxCellsPerTri = 64;
constexpr std::size_t kMaxCells = std::size_t{1} << 24;

// The cells per triangle the grid may register without its 32-bit offsets overflowing.
std::size_t CellsPerTriLimit(std::size_t count) {
    const std::size_t limit =
        count == 0 ? kMaxCellsPerTri : std::numeric_limits<std::uint32_t>::max() / count;
    return std::max<std::size_t>(1, std::min(kMaxCellsPerTri, limit));
}

// Triangles appended since the build are scanned one by one. Past this many, a rebuild (linear
// in the network) costs less than the scans it saves.
std::size_t TailLimit(std::size_t covered) {
    return 64 + static_cast<std::size_t>(std::sqrt(static_cast<double>(covered)));
}

// Hands the visitor the triangles [from, to) in array order; true as soon as it stops the walk.
bool VisitInOrder(std::size_t from, std::size_t to, CTrisSearchIndex::IVisitor& visitor) {
    for (std::size_t tri = from; tri < to; ++tri)
        if (visitor.OnCandidate(static_cast<int>(tri))) return true;
    return false;
}

// Appends the positions [from, to) to a candidate list.
void AppendInOrder(std::size_t from, std::size_t to, std::vector<std::int32_t>& out) {
    for (std::size_t tri = from; tri < to; ++tri) out.push_back(static_cast<std::int32_t>(tri));
}

}  // namespace

const CTrisSearchIndex& CTrisSearchIndex::Of(const CTris& tris) {
    std::unique_ptr<CTrisSearchIndex>& index = tris.m_searchIndex;
    if (!index || !index->IsCurrentFor(tris)) {
        // The old index goes first, so that the two never take memory at the same time.
        index.reset();
        index.reset(new CTrisSearchIndex(tris));
    }
    return *index;
}

CTrisSearchIndex::CTrisSearchIndex(const CTris& tris)
    : m_tris(&tris), m_stamp(TShapeStamp::Of(tris)), m_covered(tris.m_tris.size()) {
    const std::vector<CTri*>& triangles = tris.m_tris;
    const PNT_3D* const points = tris.m_vertices.data();
    const std::size_t pointCount = tris.m_vertices.size();
    m_grid.Build(
        m_covered,
        [&tris, &triangles, points, pointCount](std::size_t tri, TPlanBox& box) {
            PrefetchTriangle(triangles, tris.m_vertices, tri);
            return ReachBox(points, pointCount, *triangles[tri], box);
        },
        VertexReachExtent(tris.m_vertices), kTrisPerCell, kMaxCells, CellsPerTriLimit(m_covered));
}

bool CTrisSearchIndex::IsCurrentFor(const CTris& tris) const noexcept {
    const std::size_t count = tris.m_tris.size();
    return TShapeStamp::Of(tris) == m_stamp && count >= m_covered &&
           count - m_covered <= TailLimit(m_covered);
}

bool CTrisSearchIndex::VisitPoint(const PNT_2D& p, IVisitor& visitor) const {
    const std::size_t count = m_tris->m_tris.size();
    if (!IsFiledPoint(p)) return VisitInOrder(0, count, visitor);
    // The point's cell and the triangles listed apart, in ascending order.
    if (m_grid.VisitPoint(p.x, p.y, [&visitor](std::uint32_t tri) {
            return visitor.OnCandidate(static_cast<int>(tri));
        }))
        return true;
    // Then the triangles appended since the build, which all come later in the array.
    return VisitInOrder(m_covered, count, visitor);
}

void CTrisSearchIndex::CollectSegment(const LINE_2D& line, std::vector<std::int32_t>& out) const {
    out.clear();
    const std::size_t count = m_tris->m_tris.size();
    if (!IsFiledPoint(line.start) || !IsFiledPoint(line.end)) {
        AppendInOrder(0, count, out);
        return;
    }
    std::vector<std::uint32_t> found;
    m_grid.CollectAlongSegment(line.start.x, line.start.y, line.end.x, line.end.y, found);
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    out.assign(found.begin(), found.end());
    AppendInOrder(m_covered, count, out);
}
