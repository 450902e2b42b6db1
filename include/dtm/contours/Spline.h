#pragma once

/// @file
/// The tension-spline smoothing of contour lines: the node record TVrtPol and the exported free
/// functions that evaluate and sample one segment of a smoothed line.
///
/// A contour line is a parametric spline under tension in which x and y are both functions of
/// the cumulative chord length along the nodes. Segment i runs from node i to node i + 1; its
/// local parameter t runs from 0 to the `len` of node i. The spine parameter of a point is the sum
/// of the `len` of all earlier segments plus its local t. The library computes the coefficients
/// (`xp`, `yp`, `len`) and the denormalised tension `sigmap` whenever a line's nodes or tension
/// change; drawing and searching only evaluate.
///
/// In every segment function, h is the segment's `len`, (x1, y1, xp1, yp1) are the fields of the
/// segment's first node and (x2, y2, xp2, yp2) those of its second node, and sigmap is the
/// line's denormalised tension.
///
/// The orientation test SIDE, which belongs to the same exported set, is declared in
/// <dtm/support/Geom.h> and is made available by this header.

#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>

#include <vector>

/// One node of a contour line with its spline coefficients, as kept by the line and handed to
/// the host: five doubles in this order.
struct TVrtPol {
    double x;    ///< Node easting.
    double y;    ///< Node northing.
    double xp;   ///< Second derivative of x along the chord parameter, divided by sigmap².
    double yp;   ///< The same for y.
    double len;  ///< Chord length to the next node: the parameter length of the segment that
                 ///< starts here. The last node of a line belongs to no segment and holds 0.
};

static_assert(sizeof(TVrtPol) == 5 * sizeof(double), "TVrtPol is five packed doubles");

/// The reciprocal of @p x, guarded: 1e308 when @p x equals 0, otherwise 1 / @p x.
///
/// Every reciprocal of the spline mathematics goes through this function, so that a
/// degenerate segment yields huge but finite numbers instead of a division by zero.
DTM_API double InversoDi(double x) noexcept;

/// exp(@p x) with @p x first clamped to [-705, 705], so that the result and its reciprocal are
/// both finite, non-zero doubles.
DTM_API double EsponenteDi(double x) noexcept;

/// The point of a segment at local parameter @p t, written to @p x and @p y.
///
/// For @p t ≥ @p h the result is exactly the second node (@p x2, @p y2). When the tension is so
/// large that |t·sigmap| or |(h − t)·sigmap| exceeds 700, the point is interpolated on the
/// straight chord instead, which is what the curve tends to at that tension.
DTM_API void TrovaSngValSpline(double h, double t, double sigmap, double x1, double y1, double xp1,
                               double yp1, double x2, double y2, double xp2, double yp2, double& x,
                               double& y) noexcept;

/// The derivative (dx/dt, dy/dt) of a segment at local parameter @p t, written to @p dx and
/// @p dy.
///
/// Two fallbacks are deliberate and kept for the callers that rely on them: for @p t > @p h the
/// result is the end point (@p x2, @p y2) itself, not a derivative; and when |t·sigmap| or
/// |(h − t)·sigmap| exceeds 700 the result is the chord difference (x2 − x1, y2 − y1), not
/// divided by @p h.
DTM_API void TrovaSngDerValSpline(double h, double t, double sigmap, double x1, double y1,
                                  double xp1, double yp1, double x2, double y2, double xp2,
                                  double yp2, double& dx, double& dy) noexcept;

/// Adapts the sampling step of a segment to its curvature; @p step is read and written.
///
/// A step longer than the segment becomes @p h. Otherwise the step is shortened where the curve
/// bends away from its end points, and a step that would need more than 100 samples over the
/// segment is replaced by @p h / 30.
DTM_API void TrovaIncremCurvaOtt(double h, double sigmap, double x1, double y1, double xp1,
                                 double yp1, double x2, double y2, double xp2, double yp2,
                                 double& step) noexcept;

/// Samples a segment into a polyline from local parameter @p t0 to @p t1, replacing the
/// contents of @p points.
///
/// Points are taken at t0, t0 + step, … while below @p t1, and then at @p t1 unless the last
/// sample already landed on it (within |t1|·1e-12 + 1e-12). A point any of whose coordinates
/// reaches 8.5e199 in magnitude is dropped. With @p t1 below @p t0 the result is the single point
/// at @p t1; with @p t1 equal to @p t0 it is empty.
///
/// @throws std::invalid_argument when a sample is due and @p step does not advance the parameter
/// (zero, negative, NaN, or too small to change t), which would never end.
DTM_API void TrovaArValoriSpline(double t0, double t1, double step, double h, double sigmap,
                                 double x1, double y1, double xp1, double yp1, double x2, double y2,
                                 double xp2, double yp2, std::vector<kor::geom::PNT_2D>& points);
