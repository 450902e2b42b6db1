#pragma once

// A checker of the properties a contour line's tension spline must have, restated independently
// of the code that computes and evaluates it: the curve of each segment is evaluated from its
// closed form with the standard library's hyperbolic functions, not with the library's
// evaluation routines.

#include <dtm/contours/Spline.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace dtm_test {

/// Point and first derivative of one segment of a tension spline at local parameter t, from
/// the closed form x(t) = ((x1 − xp1)(h − t) + (x2 − xp2)·t)/h + (xp1·sinh(σ(h − t)) +
/// xp2·sinh(σt))/sinh(σh), evaluated with ratios of hyperbolic functions that stay finite for
/// any σh. Valid for 0 ≤ t ≤ h and σ > 0.
struct SplineSample {
    double x;
    double y;
    double dx;
    double dy;
};
SplineSample ReferenceSpline(const TVrtPol& from, const TVrtPol& to, double sigmap, double t);

/// The chord parameter lengths of @p nodes: `len` of each node must be the plan distance to the
/// next node (1e-7 for coincident nodes) and 0 on the last node.
::testing::AssertionResult SplineLengthsAreChords(const std::vector<TVrtPol>& nodes);

/// The curve passes through every node and its first derivative is continuous at every
/// interior node; for a closed line (@p closed), also at the join, and the last node's
/// coefficients equal the first's. Values are compared within @p tolerance times the line's
/// extent, derivatives (unit-order vectors along a chord-length parameter) within
/// @p tolerance.
::testing::AssertionResult SplineIsC1(const std::vector<TVrtPol>& nodes, double sigmap, bool closed,
                                      double tolerance);

/// The library's TrovaSngValSpline and TrovaSngDerValSpline agree with ReferenceSpline at
/// @p samplesPerSegment interior points of every segment, within @p tolerance (relative to the
/// line's extent for points, absolute for derivatives).
::testing::AssertionResult SplineEvaluationMatchesReference(const std::vector<TVrtPol>& nodes,
                                                            double sigmap, int samplesPerSegment,
                                                            double tolerance);

/// Random node coordinates for tests: @p count nodes of a wandering line whose steps are
/// between 0.2 and 5 units long and turn by at most about 100° at a node. Fixed by @p seed.
void MakeWanderingLine(unsigned seed, int count, std::vector<double>& x, std::vector<double>& y);

/// Random nodes of a closed star-shaped line: @p count distinct nodes around a centre at
/// increasing angles and random radii, followed by a copy of the first node. Fixed by @p seed.
void MakeClosedLine(unsigned seed, int count, std::vector<double>& x, std::vector<double>& y);

}  // namespace dtm_test
