#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/profile/CCalcIntersect.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Tolerances.h>

#include "network/COcTree.h"
#include "network/CTrisSearchIndex.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

using kor::geom::LINE_2D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

namespace {

// Two distances are one when they agree within the library's tolerance around the earlier one.
// Infinite distances (from infinite coordinates) have no tolerance and must match exactly.
bool IsSameProg(double later, double earlier) {
    return std::isfinite(earlier) ? std::fabs(later - earlier) <= dtm::ToleranceOf(earlier)
                                  : later == earlier;
}

TLineProgPnt ProgPoint(double z, const PNT_2D& p, double prog) {
    TLineProgPnt point;
    point.pnt = PNT_3D(p, z);
    point.prog = prog;
    return point;
}

void AppendPoint(double z, const PNT_2D& origin, const PNT_2D& p, std::vector<TLineProgPnt>& out) {
    out.push_back(ProgPoint(z, p, std::fabs(p.dist(origin))));
}

// The three vertices of triangle @p tri, the first repeated. A vertex that does not exist (a
// triangle may refer past the vertex array) is a point with no position, which lies in no
// triangle and meets no segment.
TVrtTri VerticesOf(const CTris& tris, int tri) {
    const CTri& triangle = *tris.GetTriAt(tri);
    TVrtTri points;
    points.Set(NetworkVertex(tris, triangle, 0), NetworkVertex(tris, triangle, 1),
               NetworkVertex(tris, triangle, 2));
    return points;
}

// What one triangle adds to the profile along @p line: its plane's elevation at an end of the
// segment that it holds, and the crossing of each of its edges with the segment, computed on
// the edge, so that it lies on the edge whose elevations are interpolated, its distance then
// measured from the start. An edge shared by two triangles, or an end point on an edge or a
// vertex, is thus appended once per triangle; the final sort and merge reduce the repeats.
void AddTrianglePoints(const TVrtTri& tri, const LINE_2D& line, std::vector<TLineProgPnt>& out,
                       bool& startFound, bool& endFound) {
    const PNT_2D& start = line.start;
    const PNT_2D& end = line.end;
    if (kor::geom::IsPntInsideTriangle(tri.p[0], tri.p[1], tri.p[2], start)) {
        // The start is at distance 0 by definition, also where its distance from itself cannot
        // be computed (an infinite coordinate).
        out.push_back(ProgPoint(
            kor::geom::CalcQuoteFromTriangle(tri.p[0], tri.p[1], tri.p[2], start), start, 0.0));
        startFound = true;
    }
    if (kor::geom::IsPntInsideTriangle(tri.p[0], tri.p[1], tri.p[2], end)) {
        AppendPoint(kor::geom::CalcQuoteFromTriangle(tri.p[0], tri.p[1], tri.p[2], end), start, end,
                    out);
        endFound = true;
    }
    for (int k = 0; k < 3; ++k) {
        const LINE_2D edge(tri.p[k], tri.p[k + 1]);
        PNT_2D crossing;
        if (edge.intersect(line, crossing)) {
            AppendPoint(kor::geom::CalcQuoteFromLine(tri.p[k], tri.p[k + 1], crossing), start,
                        crossing, out);
        }
    }
}

// The profile from the triangles @p forEachTri hands over (each through a callback taking its
// index), which must come in ascending order and include every triangle that adds a point: the
// list, and therefore the sorted result, is then the one of a scan of every triangle.
template <class ForEachTri>
void Profile(const CTris& tris, const LINE_2D& line, std::vector<TLineProgPnt>& out,
             ForEachTri&& forEachTri) {
    out.clear();
    bool startFound = false;
    bool endFound = false;
    forEachTri([&](int tri) {
        AddTrianglePoints(VerticesOf(tris, tri), line, out, startFound, endFound);
    });
    // The end points are always part of the profile, without elevation off the network. A
    // start off the network goes first, so that the stable sort keeps it ahead of any crossing
    // at distance 0 (an edge of a triangle without area through the start): the profile then
    // begins without elevation, as it does wherever the network does not hold the start.
    if (!startFound) out.insert(out.begin(), ProgPoint(UNDEFINED_QUOTE, line.start, 0.0));
    if (!endFound) AppendPoint(UNDEFINED_QUOTE, line.start, line.end, out);
}

}  // namespace

CCalcIntersect::CCalcIntersect(CDtmPrj& project) : m_tris(project.GetTris()) {}

// The profile is defined as a scan of every triangle in index order (CalcQuotedPntsByScan). The
// search index hands over, in ascending order, every triangle whose plan box the segment may
// meet; the others add nothing to the scan's list, so the list and the profile are the same.
void CCalcIntersect::CalcQuotedPnts(const LINE_2D& line, std::vector<TLineProgPnt>& out) const {
    std::vector<std::int32_t> candidates;
    if (m_tris->GetNoTris() > 0) CTrisSearchIndex::Of(*m_tris).CollectSegment(line, candidates);
    Profile(*m_tris, line, out, [&candidates](const auto& visit) {
        for (const std::int32_t tri : candidates) visit(tri);
    });
    SortAndDeleteDuplicates(out);
}

void CCalcIntersect::CalcQuotedPntsByScan(const LINE_2D& line,
                                          std::vector<TLineProgPnt>& out) const {
    // Every triangle is visited, without a spatial search.
    const int triCount = m_tris->GetNoTris();
    Profile(*m_tris, line, out, [triCount](const auto& visit) {
        for (int tri = 0; tri < triCount; ++tri) visit(tri);
    });
    SortAndDeleteDuplicates(out);
}

void CCalcIntersect::AddPnt(double z, const PNT_2D& origin, const PNT_2D& p,
                            std::vector<TLineProgPnt>& out) {
    AppendPoint(z, origin, p, out);
}

void CCalcIntersect::CalcAndAddPnt(const TVrtTri& tri, const PNT_2D& origin, const PNT_2D& p,
                                   std::vector<TLineProgPnt>& out) {
    AppendPoint(kor::geom::CalcQuoteFromTriangle(tri.p[0], tri.p[1], tri.p[2], p), origin, p, out);
}

void CCalcIntersect::CalcAndAddPnt(const PNT_3D& a, const PNT_3D& b, const PNT_2D& origin,
                                   const PNT_2D& p, std::vector<TLineProgPnt>& out) {
    AppendPoint(kor::geom::CalcQuoteFromLine(a, b, p), origin, p, out);
}

void CCalcIntersect::SortAndDeleteDuplicates(std::vector<TLineProgPnt>& pnts) {
    if (pnts.size() < 2) return;
    // Stable: among points at one distance the first listed survives. They are mostly the same
    // place on the surface seen from different triangles, listed in the triangles' order; the
    // one exception is the start off the network, listed first so that it keeps its place.
    std::stable_sort(pnts.begin(), pnts.end(),
                     [](const TLineProgPnt& a, const TLineProgPnt& b) { return a.prog < b.prog; });

    // Walking from the last point down, each point is erased when it repeats the one before it.
    // Erasures only ever touch later positions, so every comparison is between neighbours of the
    // sorted order, and a run of near-equal distances collapses to its first point even when the
    // run as a whole spans more than the tolerance. The same outcome is reached here in one
    // forward pass that compares each point with its sorted predecessor and keeps it only when
    // it is not a repeat, instead of erasing one element at a time.
    std::size_t kept = 1;
    double previousProg = pnts[0].prog;
    for (std::size_t i = 1; i < pnts.size(); ++i) {
        const double prog = pnts[i].prog;
        if (!IsSameProg(prog, previousProg)) pnts[kept++] = pnts[i];
        previousProg = prog;
    }
    pnts.resize(kept);
}
