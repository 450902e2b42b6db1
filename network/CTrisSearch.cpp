// The network's point queries: the octree rebuild, the search for the edge shared by two
// triangles near a point, the elevation at a plan point and the bounding box.

#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/support/Tolerances.h>

#include "network/COcTree.h"
#include "network/CTrisSearchIndex.h"
#include "network/ITriOcTreeListener.h"

#include <cmath>
#include <cstddef>
#include <vector>

using kor::geom::CalcQuoteFromTriangle;
using kor::geom::PAR_LINE_2D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;
using kor::geom::RECT_3D;

namespace {

// The vertex position opposite edge k (from vertex k to vertex k + 1).
int OppositeVertex(int edge) {
    return edge == 0 ? 2 : edge - 1;
}

// The elevation of the triangle p0-p1-p2 at (x, y): a vertex closer than the snap distance on
// both axes gives its own elevation (vertices tried in order), so that a query at a vertex
// returns exactly the surveyed value; otherwise the plane's elevation when (x, y) lies inside
// the triangle or within the inside tolerance of it, and an undefined value elsewhere.
double QuoteOnTriangle(const PNT_3D (&v)[3], double x, double y) {
    for (const PNT_3D& vertex : v) {
        if (std::fabs(vertex.x - x) < dtm::VERTEX_SNAP_DISTANCE &&
            std::fabs(vertex.y - y) < dtm::VERTEX_SNAP_DISTANCE) {
            return vertex.z;
        }
    }
    return CalcQuoteFromTriangle(v[0], v[1], v[2], PNT_2D(x, y), dtm::INSIDE_TRIANGLE_TOLERANCE);
}

double QuoteOnTriangle(const CTris& tris, const CTri& tri, double x, double y) {
    const PNT_3D v[3] = {NetworkVertex(tris, tri, 0), NetworkVertex(tris, tri, 1),
                         NetworkVertex(tris, tri, 2)};
    return QuoteOnTriangle(v, x, y);
}

/// Collects, from the triangles an octree traversal hands over, the edges that pass within a
/// tolerance of a plan point.
///
/// An edge k (from vertex k to vertex k + 1) matches when the projection of p falls on it
/// (parameter in [0, 1]) and p's distance from its line is strictly below the tolerance. The
/// first match fixes the first triangle, its edge and its opposite vertex; every later match,
/// including a second edge of the first triangle, overwrites the second triangle and its
/// opposite vertex, so the last one wins.
class CFindTriEdgeOcTreeListener : public ITriOcTreeListener {
public:
    /// Searches around @p p within @p tol in @p tris (borrowed).
    CFindTriEdgeOcTreeListener(const CTris* tris, const PNT_2D& p, double tol)
        : m_tris(tris), m_p(p), m_tol(tol) {}

    void OnTri(int tri) override {
        PNT_3D q[4];
        GetTriVertices(tri, q[0], q[1], q[2]);
        q[3] = q[0];
        for (int edge = 0; edge < 3; ++edge) {
            const PAR_LINE_2D line(q[edge], q[edge + 1]);
            const double t = line.calcParam(m_p);
            if (!(t >= 0.0 && t <= 1.0 && std::fabs(line.dist(m_p)) < m_tol)) continue;
            if (tri1 == -1) {
                tri1 = tri;
                edgeStart = edge;
                edgeEnd = edge == 2 ? 0 : edge + 1;
                opp1 = OppositeVertex(edge);
            } else {
                tri2 = tri;
                opp2 = OppositeVertex(edge);
            }
        }
    }

    void GetTriVertices(int tri, PNT_3D& a, PNT_3D& b, PNT_3D& c) override {
        const CTri& triangle = *m_tris->GetTriAt(tri);
        a = NetworkVertex(*m_tris, triangle, 0);
        b = NetworkVertex(*m_tris, triangle, 1);
        c = NetworkVertex(*m_tris, triangle, 2);
    }

    int tri1 = -1;
    int tri2 = -1;
    int edgeStart = -1;
    int edgeEnd = -1;
    int opp1 = -1;
    int opp2 = -1;

private:
    const CTris* m_tris;
    PNT_2D m_p;
    double m_tol;
};

// Receives the search index's candidates in ascending order and stops at the first whose answer
// is an elevation, exactly as the scan of every triangle would.
class CFirstQualifying : public CTrisSearchIndex::IVisitor {
public:
    CFirstQualifying(const CTris& tris, const std::vector<CTri*>& triangles, double x, double y)
        : m_tris(tris), m_triangles(triangles), m_x(x), m_y(y) {}

    bool OnCandidate(int tri) override {
        quote = QuoteOnTriangle(m_tris, *m_triangles[static_cast<std::size_t>(tri)], m_x, m_y);
        return quote < dtm::UNDEFINED_QUOTE_THRESHOLD;
    }

    double quote = UNDEFINED_QUOTE;

private:
    const CTris& m_tris;
    const std::vector<CTri*>& m_triangles;
    double m_x;
    double m_y;
};

}  // namespace

void CTris::CalcOcTree() {
    if (m_broken) return;
    m_octree->Build();
}

bool CTris::FindTri(const PNT_2D& p, double tol, int& tri1, int& tri2, int& edgeStart, int& edgeEnd,
                    int& opp1, int& opp2) const {
    CFindTriEdgeOcTreeListener listener(this, p, tol);
    m_octree->TraversePlanPoint(p, tol, listener);
    tri1 = listener.tri1;
    tri2 = listener.tri2;
    if (listener.tri1 == -1 || listener.tri2 == -1) return false;
    edgeStart = listener.edgeStart;
    edgeEnd = listener.edgeEnd;
    opp1 = listener.opp1;
    opp2 = listener.opp2;
    return true;
}

// The answer is defined as that of a scan of every triangle in array order (GetCoordZQByScan):
// the first triangle whose answer is an elevation wins, and when none has one, the last
// triangle's own answer is returned. The search index hands over, in ascending order, every
// triangle that can have an elevation at (x, y), so stopping at the first of them that does
// gives the scan's answer; when none does, the last triangle is asked as the scan would have.
double CTris::GetCoordZQ(double x, double y) const {
    if (m_tris.empty()) return UNDEFINED_QUOTE;
    CFirstQualifying first(*this, m_tris, x, y);
    if (CTrisSearchIndex::Of(*this).VisitPoint(PNT_2D(x, y), first)) return first.quote;
    return QuoteOnTriangle(*this, *m_tris.back(), x, y);
}

// The reference for GetCoordZQ: a linear scan in array order, whatever the index.
double CTris::GetCoordZQByScan(double x, double y) const {
    double quote = UNDEFINED_QUOTE;
    for (const CTri* tri : m_tris) {
        quote = QuoteOnTriangle(*this, *tri, x, y);
        if (quote < dtm::UNDEFINED_QUOTE_THRESHOLD) return quote;
    }
    // No triangle holds the point: the last triangle's own undefined answer, or UNDEFINED_QUOTE
    // itself on a network without triangles.
    return quote;
}

double CTris::GetCoordZQ(int tri, double x, double y) const {
    return QuoteOnTriangle(*this, *GetTriAt(tri), x, y);
}

bool CTris::GetBdry(RECT_3D& box) const {
    // Only a cloud the network still holds a reference on may be read: after DoRemoveAll the
    // pointer is kept but the cloud may be gone, and the network then answers for its own
    // (removed) vertices.
    if (HoldsCld()) return m_cloud->GetBdry(box);
    box.initRegion();
    if (m_vertices.size() < 2) return false;
    for (const PNT_3D& vertex : m_vertices) box.updateRegion(vertex);
    return true;
}
