#pragma once

// The library-internal side of the contour spline: the coefficient computation for open and
// closed lines, the upkeep of a line's node list and the search for the spine parameter nearest
// to a point. The contour line model calls these; the host never sees them.

#include <dtm/contours/Spline.h>
#include <dtm/support/Geom.h>

#include <vector>

namespace dtm {

/// A chord of length exactly 0 between two nodes is taken as this length, so that a repeated
/// node never divides by zero.
constexpr double SPLINE_ZERO_CHORD = 1e-7;

/// What InversoDi answers for the reciprocal of 0.
constexpr double SPLINE_HUGE_RECIPROCAL = 1e308;

/// EsponenteDi clamps its argument to ±this value: exp(705) ≈ 1.6e306 still leaves room for the
/// products of two exponentials that the evaluation forms before inverting them.
constexpr double SPLINE_EXPONENT_LIMIT = 705.0;

/// Above this |t·sigmap| the hyperbolic terms are of no use any more (the curve is the chord to
/// within rounding) and the evaluation falls back to the straight chord.
constexpr double SPLINE_STRAIGHT_LIMIT = 700.0;

/// TrovaIncremCurvaOtt never asks for more than this many samples per segment…
constexpr double SPLINE_MAX_SAMPLES = 100.0;
/// …and falls back to this many when the curvature would ask for more.
constexpr double SPLINE_FALLBACK_SAMPLES = 30.0;

/// Degrees to radians for the end tangent angles.
constexpr double SPLINE_DEGREES_TO_RADIANS = 0.017453292519943295;

}  // namespace dtm

/// Fills the coefficients of an open line of @p n ≥ 2 nodes and returns its sigmap.
///
/// @p x and @p y are the nodes; @p xp, @p yp, @p chord and @p temp are scratch arrays of @p n
/// entries each, borrowed from the caller. On return @p xp and @p yp hold the coefficients and
/// chord[i] the chord from node i to node i + 1 (i < n − 1). The end tangents are the angles
/// @p slope1Deg and @p slopeNDeg (degrees from +x) when @p sigma ≥ 0; a negative @p sigma derives
/// them from the first and last three nodes instead, and a two-node line with negative @p sigma is
/// straight (all coefficients 0).
double ComputeOpenTensionSpline(const double* x, const double* y, int n, double slope1Deg,
                                double slopeNDeg, double sigma, double* xp, double* yp,
                                double* chord, double* temp) noexcept;

/// Fills the coefficients of a closed line of @p m ≥ 2 distinct nodes, the segment after node
/// m − 1 returning to node 0, and returns its sigmap.
///
/// Scratch arrays as for ComputeOpenTensionSpline, of @p m entries each, plus @p corner for the
/// cyclic elimination. chord[i] is the chord from node i to node (i + 1) mod m.
double ComputeClosedTensionSpline(const double* x, const double* y, int m, double sigma, double* xp,
                                  double* yp, double* chord, double* temp, double* corner) noexcept;

/// Recomputes `xp`, `yp` and `len` of every node of a line in place from its `x` and `y`, and
/// writes the line's denormalised tension to @p sigmap.
///
/// A line of at least 3 nodes whose last node repeats its first (per coordinate within
/// |last|·1e-12 + 1e-12, exactly when not finite) is smoothed as a closed curve over its n − 1
/// distinct nodes, the last node taking the first node's coefficients. Any other line is open
/// with both end angles 0. A line of fewer than 2 nodes has no segment: its nodes get zero
/// coefficients and lengths and @p sigmap becomes 0. The last node's `len` is 0.
void RefreshSplineNodes(double sigma, std::vector<TVrtPol>& nodes, double& sigmap);

/// Builds a fresh node list from @p n coordinates @p x and @p y (borrowed) into @p nodes,
/// replacing its contents, with coefficients as RefreshSplineNodes computes them.
void BuildSplineNodes(int n, const double* x, const double* y, double sigma,
                      std::vector<TVrtPol>& nodes, double& sigmap);

/// Finds the curve parameter of a line nearest to @p point: a coarse pass over every segment at
/// ten samples each, then five levels of tenfold refinement around the best sample.
///
/// The answer is at least as near as every hundredth of every segment (the last point of the
/// line excepted, which is never examined). The finer levels only look forward from the best
/// sample of the level before, so the answer reaches a millionth of the segment only when the
/// nearest point lies after those samples; this is the search's established pattern, kept.
///
/// On success returns true with @p segment the segment index, @p t the local parameter and
/// @p spine the spine parameter. Returns false with @p segment set to −1 (leaving @p t and
/// @p spine untouched) when the line has no segment or no sample came closer than 1.7e200
/// squared units.
bool FindSplineParam(const std::vector<TVrtPol>& nodes, double sigmap,
                     const kor::geom::PNT_2D& point, int& segment, double& t, double& spine);
