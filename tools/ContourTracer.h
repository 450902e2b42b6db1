#pragma once

// Tracing contour lines through a network: the host's side of contouring. The library hands
// over the triangles that a horizontal plane crosses (CTris::GetTris_Quote); the tracer cuts
// each one into a segment and joins the segments of neighbouring triangles, which meet on the
// edge they share, into polylines.

#include <dtm/dtm.h>

#include <vector>

namespace dtmtool {

/// One traced contour line.
struct ContourPolyline {
    /// The points in order, consecutive duplicates removed; a closed line repeats its first
    /// point exactly at the end.
    std::vector<kor::geom::PNT_2D> points;
    /// True when the line closes on itself; false when it ends on the network's border (or at a
    /// hole, or where the network is not a clean surface).
    bool closed = false;
};

/// The largest level number k (in absolute value) that ContourLevels takes: 2^53, beyond which
/// whole doubles no longer step by one.
constexpr double kLevelNumberLimit = 9007199254740992.0;
/// The most levels ContourLevels gives unless told otherwise.
constexpr std::size_t kMaximumContourLevels = 100000;

/// The elevations k·@p interval (k whole) from @p minZ to @p maxZ, both included, lowest first,
/// each computed as one product so that no error accumulates. Throws std::invalid_argument for
/// an interval that is not a positive number, and std::length_error when the range would need
/// more than @p maxLevels levels or a level number k of kLevelNumberLimit or more.
std::vector<double> ContourLevels(double minZ, double maxZ, double interval,
                                  std::size_t maxLevels = kMaximumContourLevels);

/// The contour lines of @p tris at elevation @p z, oriented with higher ground on the left.
///
/// A vertex exactly at @p z counts as above it. Every triangle then has either no vertex below
/// and none above (no segment), or exactly two edges that change side, so each line passes
/// through shared edges from triangle to triangle and the lines never cross. The crossing point
/// of an edge is computed from its vertices in index order, so both triangles that share the
/// edge find the very same point. Triangles whose vertices the network does not have are
/// skipped.
std::vector<ContourPolyline> TraceContours(const CTris& tris, double z);

}  // namespace dtmtool
