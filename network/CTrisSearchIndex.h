#pragma once

// The network's search index for plan queries: the candidate triangles of the elevation query
// (GetCoordZQ) and of the profile (CCalcIntersect), in array order. Private to the library.

#include <dtm/support/Geom.h>

#include "network/CPlanGrid.h"
#include "network/TShapeStamp.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class CTris;

/// A spatial index over a network's triangles that yields, for a plan point or a plan segment,
/// a superset of the triangles that can take part in the answer, in ascending array order.
///
/// The queries that use it are defined as scans of every triangle in array order, where the
/// first triangle to qualify wins. Handing the same per-triangle test only the candidates, in
/// ascending order, gives bit for bit the scan's answer, provided that no triangle left out
/// could have qualified. The index therefore only ever errs on the side of a candidate too
/// many: the box it files a triangle under is widened beyond the reach of the elevation query
/// (the vertex snap and the inside tolerance) and beyond the rounding of the arithmetic that
/// files it, and every cell a triangle's box touches lists it.
///
/// The index is a uniform grid over the triangles' plan boxes (see CPlanGrid) whose cells list
/// the triangles overlapping them in ascending order, each with the part of the cell its box
/// covers, so that a point query hands over only the few triangles whose box holds the point.
/// A triangle that fits no cell (a coordinate that is not finite or beyond about 1e153, where
/// the queries' arithmetic could overflow, a vertex that does not exist, a box over too many
/// cells) is listed apart and handed to every query; a query point or segment end beyond that
/// bound is handed every triangle. The index does not depend on the octree, so it serves alike
/// inside a change event, on a broken network and for any triangle order. It was chosen over a
/// walk of the octree, which costs a byte per triangle instead of about a dozen, because a point
/// query then touches a handful of cache lines instead of dozens, and that is what makes it
/// faster than a triangulation's point location.
///
/// The index is derived data: Of() compares the network's stamp with the one it was built at
/// and rebuilds when it moved. Triangles appended since the build are scanned one by one, up to
/// a limit that grows with the square root of the network, beyond which the index is rebuilt.
class CTrisSearchIndex {
public:
    /// A callback that receives candidate triangles; returning true stops the query.
    class IVisitor {
    public:
        virtual bool OnCandidate(int tri) = 0;

    protected:
        ~IVisitor() = default;
    };

    /// The index of @p tris, first built or rebuilt when the network changed since. The
    /// reference stays valid until the next change of the network.
    static const CTrisSearchIndex& Of(const CTris& tris);

    CTrisSearchIndex(const CTrisSearchIndex&) = delete;
    CTrisSearchIndex& operator=(const CTrisSearchIndex&) = delete;

    /// Hands @p visitor, in ascending order, every triangle that the elevation query at @p p
    /// could accept (and possibly others), until the visitor stops it. True when it was stopped.
    bool VisitPoint(const kor::geom::PNT_2D& p, IVisitor& visitor) const;
    /// Replaces @p out by the triangles, in ascending order and each once, whose plan box may
    /// meet the segment @p line (and possibly others): every triangle that holds an end of the
    /// segment or has an edge meeting it is among them. A segment with an end that is not
    /// finite or beyond the filed bound gives every triangle.
    void CollectSegment(const kor::geom::LINE_2D& line, std::vector<std::int32_t>& out) const;

    /// Bytes the index holds beyond the network (for tests and benchmarks).
    std::size_t GetMemoryBytes() const noexcept { return m_grid.GetMemoryBytes(); }

private:
    explicit CTrisSearchIndex(const CTris& tris);
    bool IsCurrentFor(const CTris& tris) const noexcept;

    const CTris* m_tris;
    TShapeStamp m_stamp;
    // Triangles [0, m_covered) are in the grid; the later ones were appended since the build.
    std::size_t m_covered;
    dtm::detail::CPlanGrid m_grid;
};
