#include <dtm/network/CTris.h>
#include <dtm/profile/CCalcIntersect.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Tolerances.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

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

}  // namespace

CCalcIntersect::CCalcIntersect(CDtmPrj& project) : m_tris(project.GetTris()) {}

void CCalcIntersect::CalcQuotedPnts(const LINE_2D& line, std::vector<TLineProgPnt>& out) const {
    CalcQuotedPntsByScan(line, out);
}

void CCalcIntersect::CalcQuotedPntsByScan(const LINE_2D& line,
                                          std::vector<TLineProgPnt>& out) const {
    const PNT_2D& start = line.start;
    const PNT_2D& end = line.end;
    out.clear();
    bool startFound = false;
    bool endFound = false;

    // Every triangle is visited, without a spatial search, and each contributes on its own: an
    // edge shared by two triangles, or an end point on an edge or a vertex, is appended once per
    // triangle, and the final sort and merge reduce the repeats to one point.
    const int triCount = m_tris->GetNoTris();
    for (int t = 0; t < triCount; ++t) {
        const TVrtTri tri = m_tris->GetVrtTriAt(t);
        if (kor::geom::IsPntInsideTriangle(tri.p[0], tri.p[1], tri.p[2], start)) {
            CalcAndAddPnt(tri, start, start, out);
            startFound = true;
        }
        if (kor::geom::IsPntInsideTriangle(tri.p[0], tri.p[1], tri.p[2], end)) {
            CalcAndAddPnt(tri, start, end, out);
            endFound = true;
        }
        for (int k = 0; k < 3; ++k) {
            // The crossing is computed on the edge, so that it lies on the edge whose elevations
            // are interpolated, and its distance is then measured from the start.
            const LINE_2D edge(tri.p[k], tri.p[k + 1]);
            PNT_2D crossing;
            if (edge.intersect(line, crossing)) {
                CalcAndAddPnt(tri.p[k], tri.p[k + 1], start, crossing, out);
            }
        }
    }

    // The end points are always part of the profile, without elevation off the network.
    if (!startFound) AddPnt(UNDEFINED_QUOTE, start, start, out);
    if (!endFound) AddPnt(UNDEFINED_QUOTE, start, end, out);
    SortAndDeleteDuplicates(out);
}

void CCalcIntersect::AddPnt(double z, const PNT_2D& origin, const PNT_2D& p,
                            std::vector<TLineProgPnt>& out) {
    TLineProgPnt point;
    point.pnt = PNT_3D(p, z);
    point.prog = std::fabs(p.dist(origin));
    out.push_back(point);
}

void CCalcIntersect::CalcAndAddPnt(const TVrtTri& tri, const PNT_2D& origin, const PNT_2D& p,
                                   std::vector<TLineProgPnt>& out) {
    AddPnt(kor::geom::CalcQuoteFromTriangle(tri.p[0], tri.p[1], tri.p[2], p), origin, p, out);
}

void CCalcIntersect::CalcAndAddPnt(const PNT_3D& a, const PNT_3D& b, const PNT_2D& origin,
                                   const PNT_2D& p, std::vector<TLineProgPnt>& out) {
    AddPnt(kor::geom::CalcQuoteFromLine(a, b, p), origin, p, out);
}

void CCalcIntersect::SortAndDeleteDuplicates(std::vector<TLineProgPnt>& pnts) {
    if (pnts.size() < 2) return;
    // Unstable on purpose: among points at one distance any may come first and survive; they
    // are the same place on the surface seen from different triangles.
    std::sort(pnts.begin(), pnts.end(),
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
