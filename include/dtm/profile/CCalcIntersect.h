#pragma once

/// @file
/// The terrain profile along a plan segment.

#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>

#include <vector>

class CDtmPrj;
class CTris;

/// One point of a profile: where it lies, its elevation there and how far along the segment.
struct TLineProgPnt {
    /// Plan position and elevation on the surface; the elevation is UNDEFINED_QUOTE (test it
    /// with dtm::IsUndefinedQuote) where the network does not cover the point.
    kor::geom::PNT_3D pnt;
    /// Progressive distance: the plan distance of pnt from the segment's start, never negative.
    double prog = 0.0;
};

/// Computes the terrain profile of one project along a plan segment: the points where the
/// segment meets the edges of the project's network, and its two end points, each with its
/// elevation and its distance from the start, in order of distance.
///
/// The calculator reads the network at each call and never changes it, so one calculator can
/// be kept and reused while the network is edited. It borrows the network: the project must
/// outlive the calculator.
class DTM_API CCalcIntersect {
public:
    /// A calculator on @p project's network (borrowed: the project keeps it).
    explicit CCalcIntersect(CDtmPrj& project);

    /// Replaces @p out by the profile along @p line.
    ///
    /// The result is that of visiting every triangle of the network in index order; a search
    /// index of the network's plan limits the visit to the triangles whose boxes the segment
    /// meets, with exactly the same points and order. The result holds the crossing
    /// of every triangle edge with the segment, its elevation interpolated along that edge, and
    /// the start and end of the segment with the elevation of a triangle that holds them, or
    /// UNDEFINED_QUOTE when none does. It is sorted by distance from the start, and of points
    /// whose distances agree within the library's relative tolerance (1e-12 of the distance plus
    /// 1e-12) only the first in that order is kept. The start therefore always comes first, with
    /// distance 0; a start that no triangle holds keeps UNDEFINED_QUOTE even where an edge meets
    /// the segment exactly there (an edge of a triangle without area). The end comes last unless
    /// a crossing lies within that tolerance before it, in which case the crossing stands for it. A
    /// segment of zero length gives one point. A network without triangles gives the two end points
    /// with UNDEFINED_QUOTE.
    void CalcQuotedPnts(const kor::geom::LINE_2D& line, std::vector<TLineProgPnt>& out) const;

private:
    friend struct CCalcIntersectTestAccess;

    /// The profile by a full scan of the triangle array, the reference that any faster route
    /// to the same points must reproduce exactly.
    void CalcQuotedPntsByScan(const kor::geom::LINE_2D& line, std::vector<TLineProgPnt>& out) const;

    /// Appends (p.x, p.y, z) with its distance from @p origin.
    static void AddPnt(double z, const kor::geom::PNT_2D& origin, const kor::geom::PNT_2D& p,
                       std::vector<TLineProgPnt>& out);
    /// Appends @p p with the elevation of @p tri's plane there.
    static void CalcAndAddPnt(const TVrtTri& tri, const kor::geom::PNT_2D& origin,
                              const kor::geom::PNT_2D& p, std::vector<TLineProgPnt>& out);
    /// Appends @p p with the elevation interpolated along the edge @p a → @p b.
    static void CalcAndAddPnt(const kor::geom::PNT_3D& a, const kor::geom::PNT_3D& b,
                              const kor::geom::PNT_2D& origin, const kor::geom::PNT_2D& p,
                              std::vector<TLineProgPnt>& out);
    /// Sorts by distance and keeps the first of every run of points at equal distance.
    static void SortAndDeleteDuplicates(std::vector<TLineProgPnt>& pnts);

    CTris* m_tris;
};
