// The coefficients of a contour line's tension spline (planar curve fitting with splines under
// tension, after Cline), for open and closed lines, and their upkeep in a line's node list.
//
// Both x and y are splines of the cumulative chord length. At each node the coefficients xp, yp
// (second derivatives divided by sigmap²) make the first derivative continuous, which gives one
// symmetric, diagonally dominant tridiagonal system shared by x and y: for segment k of chord d
// and s = sigmap·d, the diagonal term is (s·cosh s − sinh s)/(d·sinh s) and the off-diagonal term
// (sinh s − s)/(d·sinh s). The open system is solved by one sweep each way; the closed one is
// cyclic and is solved in linear time with one extra column for the corner term.
//
// The order of floating-point operations below is the one the coefficients have always been
// computed with; lines read from files carry coefficients computed this way, and recomputing them
// must give the same bits.

#include "contours/SplineInternal.h"

#include <dtm/support/Tolerances.h>

#include <cassert>
#include <cmath>
#include <cstddef>

namespace {

// Chord between two nodes; a chord of exactly 0 becomes SPLINE_ZERO_CHORD so that coincident
// nodes never divide by zero.
double Chord(double xFrom, double yFrom, double xTo, double yTo) noexcept {
    const double dx = xTo - xFrom;
    const double dy = yTo - yFrom;
    const double length = std::sqrt(dx * dx + dy * dy);
    return length == 0.0 ? dtm::SPLINE_ZERO_CHORD : length;
}

// The diagonal and off-diagonal contributions of one segment of chord `chord` to the system.
struct SegmentTerms {
    double diag;
    double spdiag;
};

SegmentTerms TermsOf(double chord, double sigmap) noexcept {
    const double s = sigmap * chord;
    const double e = EsponenteDi(s);
    const double sinhs = (e - InversoDi(e)) * 0.5;
    const double sinhin = InversoDi(chord * sinhs);
    SegmentTerms terms;
    terms.diag = sinhin * (s * 0.5 * (e + InversoDi(e)) - sinhs);
    terms.spdiag = sinhin * (sinhs - s);
    return terms;
}

// Angle from +x of the curve's tangent at the first node, from the first three nodes
// (three-point difference formula on the chord parameter).
double StartAngleFromNodes(const double* x, const double* y, double d1, double d2) noexcept {
    const double d12 = d1 + d2;
    const double c1 = -(d12 + d1) / d12 / d1;
    const double c2 = d12 / d1 / d2;
    const double c3 = -d1 / d12 / d2;
    return std::atan2(c1 * y[0] + c2 * y[1] + c3 * y[2], c1 * x[0] + c2 * x[1] + c3 * x[2]);
}

// The same at the last node, from the last three nodes.
double EndAngleFromNodes(const double* x, const double* y, int n, double dm, double dn) noexcept {
    const double dnn = dm + dn;
    const double e1 = (dnn + dn) / dnn / dn;
    const double e2 = -dnn / dn / dm;
    const double e3 = dn / dnn / dm;
    return std::atan2(e3 * y[n - 3] + e2 * y[n - 2] + e1 * y[n - 1],
                      e3 * x[n - 3] + e2 * x[n - 2] + e1 * x[n - 1]);
}

// The end tangents of an open line, as angles from +x: from the first and last three nodes when
// the tension is negative (n ≥ 3), else the slopes given in degrees.
struct EndAngles {
    double first;
    double last;
};

EndAngles OpenEndAngles(const double* x, const double* y, int n, double d1, double slope1Deg,
                        double slopeNDeg, double sigma) noexcept {
    if (sigma < 0.0) {
        const double d2 = Chord(x[1], y[1], x[2], y[2]);
        const double dm = Chord(x[n - 3], y[n - 3], x[n - 2], y[n - 2]);
        const double dn = Chord(x[n - 2], y[n - 2], x[n - 1], y[n - 1]);
        return {StartAngleFromNodes(x, y, d1, d2), EndAngleFromNodes(x, y, n, dm, dn)};
    }
    // Every caller passes 0: a line of non-negative tension starts and ends tangent to +x.
    // That is how contour lines have always been drawn, and it is kept.
    return {slope1Deg * dtm::SPLINE_DEGREES_TO_RADIANS, slopeNDeg * dtm::SPLINE_DEGREES_TO_RADIANS};
}

// The open system's right-hand sides: the jump of the unit chord direction at each node, the
// end tangents standing in for the missing chords. Fills chord[0 … n−2] and temp[1 … n−2] with
// the chords and answers the line's length.
double OpenRightHandSides(const double* x, const double* y, int n, double d1,
                          const EndAngles& angles, double* xp, double* yp, double* chord,
                          double* temp) noexcept {
    const double dx1 = (x[1] - x[0]) / d1;
    const double dy1 = (y[1] - y[0]) / d1;
    chord[0] = d1;
    xp[0] = dx1 - std::cos(angles.first);
    yp[0] = dy1 - std::sin(angles.first);
    double arrivingX = dx1;
    double arrivingY = dy1;
    double perimeter = d1;
    for (int i = 1; i < n - 1; ++i) {
        const double d = Chord(x[i], y[i], x[i + 1], y[i + 1]);
        const double leavingX = (x[i + 1] - x[i]) / d;
        const double leavingY = (y[i + 1] - y[i]) / d;
        xp[i] = leavingX - arrivingX;
        yp[i] = leavingY - arrivingY;
        chord[i] = d;
        temp[i] = d;
        perimeter += d;
        arrivingX = leavingX;
        arrivingY = leavingY;
    }
    xp[n - 1] = std::cos(angles.last) - arrivingX;
    yp[n - 1] = std::sin(angles.last) - arrivingY;
    return perimeter;
}

// Solves the open tridiagonal system in place (xp, yp), one sweep each way. On entry
// temp[1 … n−2] holds the chords after the first (d1); temp ends as the eliminated
// off-diagonals.
void SolveOpenSystem(int n, double d1, double sigmap, double* xp, double* yp,
                     double* temp) noexcept {
    // Forward elimination.
    SegmentTerms first = TermsOf(d1, sigmap);
    double diag1 = first.diag;
    double diagin = InversoDi(diag1);
    xp[0] *= diagin;
    yp[0] *= diagin;
    double spdiag = first.spdiag;
    temp[0] = spdiag * diagin;
    for (int i = 1; i < n - 1; ++i) {
        const SegmentTerms leaving = TermsOf(temp[i], sigmap);
        const double diag2 = leaving.diag;
        diagin = InversoDi(diag1 + diag2 - spdiag * temp[i - 1]);
        xp[i] = diagin * (xp[i] - spdiag * xp[i - 1]);
        yp[i] = diagin * (yp[i] - spdiag * yp[i - 1]);
        spdiag = leaving.spdiag;
        temp[i] = diagin * spdiag;
        diag1 = diag2;
    }
    diagin = InversoDi(diag1 - spdiag * temp[n - 2]);
    xp[n - 1] = diagin * (xp[n - 1] - spdiag * xp[n - 2]);
    yp[n - 1] = diagin * (yp[n - 1] - spdiag * yp[n - 2]);

    // Back substitution.
    for (int i = n - 2; i >= 0; --i) {
        xp[i] -= temp[i] * xp[i + 1];
        yp[i] -= temp[i] * yp[i + 1];
    }
}

// The closed system's right-hand sides: chords and unit directions of all m segments, the last
// one returning to node 0; at node i the leaving direction minus the arriving one. Answers the
// perimeter.
double ClosedRightHandSides(const double* x, const double* y, int m, double* xp, double* yp,
                            double* chord) noexcept {
    double perimeter = 0.0;
    double arrivingX = 0.0;
    double arrivingY = 0.0;
    for (int i = 0; i < m; ++i) {
        const int next = i + 1 < m ? i + 1 : 0;
        const double d = Chord(x[i], y[i], x[next], y[next]);
        chord[i] = d;
        perimeter += d;
        const double leavingX = (x[next] - x[i]) / d;
        const double leavingY = (y[next] - y[i]) / d;
        if (i == 0) {
            xp[0] = leavingX;
            yp[0] = leavingY;
        } else {
            xp[i] = leavingX - arrivingX;
            yp[i] = leavingY - arrivingY;
        }
        arrivingX = leavingX;
        arrivingY = leavingY;
    }
    xp[0] -= arrivingX;
    yp[0] -= arrivingY;
    return perimeter;
}

// Row i of the cyclic system reads a_i·z(i−1) + b_i·z(i) + c_i·z(i+1) = r_i, indices modulo m,
// with a_i = spdiag(i−1), b_i = diag(i−1) + diag(i), c_i = spdiag(i). Rows 0 … m−2 are reduced to
// z(i) + temp(i)·z(i+1) + corner(i)·z(m−1) = r'(i): row 0's wrap-around term a_0·z(m−1) starts
// the corner column, and each later row inherits a multiple of it. Row m−2's own off-diagonal
// also falls on column m−1 and is folded into the corner. Answers the terms of segment m−2.
SegmentTerms ReduceClosedRows(int m, const SegmentTerms& last, const double* chord, double sigmap,
                              double* xp, double* yp, double* temp, double* corner) noexcept {
    SegmentTerms arriving = last;
    for (int i = 0; i < m - 1; ++i) {
        const SegmentTerms leaving = TermsOf(chord[i], sigmap);
        const double sub = arriving.spdiag;
        if (i == 0) {
            const double diagin = InversoDi(arriving.diag + leaving.diag);
            xp[0] *= diagin;
            yp[0] *= diagin;
            corner[0] = diagin * sub;
            temp[0] = diagin * leaving.spdiag;
        } else {
            const double diagin = InversoDi(arriving.diag + leaving.diag - sub * temp[i - 1]);
            xp[i] = diagin * (xp[i] - sub * xp[i - 1]);
            yp[i] = diagin * (yp[i] - sub * yp[i - 1]);
            corner[i] = -diagin * sub * corner[i - 1];
            temp[i] = diagin * leaving.spdiag;
        }
        arriving = leaving;
    }
    corner[m - 2] += temp[m - 2];
    return arriving;
}

// The last row is reduced from left to right against the reduced rows, which leaves one
// unknown, z(m−1); back substitution then gives the others. c(m−1) sits on column 0 and a(m−1)
// on column m−2 (the same column when m = 2); @p beforeLast holds the terms of segment m−2.
void SolveClosedLastRow(int m, const SegmentTerms& last, const SegmentTerms& beforeLast, double* xp,
                        double* yp, const double* temp, const double* corner) noexcept {
    double fill = last.spdiag;
    double lastDiag = beforeLast.diag + last.diag;
    double lastX = xp[m - 1];
    double lastY = yp[m - 1];
    for (int j = 0; j < m - 1; ++j) {
        if (j == m - 2) fill += beforeLast.spdiag;
        lastX -= fill * xp[j];
        lastY -= fill * yp[j];
        lastDiag -= fill * corner[j];
        fill = -fill * temp[j];
    }
    const double lastInverse = InversoDi(lastDiag);
    xp[m - 1] = lastX * lastInverse;
    yp[m - 1] = lastY * lastInverse;

    // Row m−2 has no temp term left (it went into the corner).
    xp[m - 2] -= corner[m - 2] * xp[m - 1];
    yp[m - 2] -= corner[m - 2] * yp[m - 1];
    for (int i = m - 3; i >= 0; --i) {
        xp[i] -= temp[i] * xp[i + 1] + corner[i] * xp[m - 1];
        yp[i] -= temp[i] * yp[i + 1] + corner[i] * yp[m - 1];
    }
}

}  // namespace

double ComputeOpenTensionSpline(const double* x, const double* y, int n, double slope1Deg,
                                double slopeNDeg, double sigma, double* xp, double* yp,
                                double* chord, double* temp) noexcept {
    assert(n >= 2);
    const double d1 = Chord(x[0], y[0], x[1], y[1]);
    if (sigma < 0.0 && n == 2) {
        // Two nodes with derived end tangents: the tangents are the chord itself.
        chord[0] = d1;
        xp[0] = yp[0] = xp[1] = yp[1] = 0.0;
        return std::fabs(sigma) / d1;
    }
    const EndAngles angles = OpenEndAngles(x, y, n, d1, slope1Deg, slopeNDeg, sigma);
    const double perimeter = OpenRightHandSides(x, y, n, d1, angles, xp, yp, chord, temp);
    const double sigmap = std::fabs(sigma) * (n - 1) / perimeter;
    SolveOpenSystem(n, d1, sigmap, xp, yp, temp);
    return sigmap;
}

double ComputeClosedTensionSpline(const double* x, const double* y, int m, double sigma, double* xp,
                                  double* yp, double* chord, double* temp,
                                  double* corner) noexcept {
    assert(m >= 2);
    const double perimeter = ClosedRightHandSides(x, y, m, xp, yp, chord);
    const double sigmap = std::fabs(sigma) * m / perimeter;
    const SegmentTerms last = TermsOf(chord[m - 1], sigmap);
    const SegmentTerms beforeLast = ReduceClosedRows(m, last, chord, sigmap, xp, yp, temp, corner);
    SolveClosedLastRow(m, last, beforeLast, xp, yp, temp, corner);
    return sigmap;
}

namespace {

// Whether the last coordinate repeats the first: within the tolerance of the last when it is
// finite, exactly otherwise (infinities would give a NaN difference).
bool SameCoordinate(double first, double last) noexcept {
    return std::isfinite(last) ? std::fabs(first - last) <= dtm::ToleranceOf(last) : first == last;
}

bool IsClosedLine(const std::vector<TVrtPol>& nodes) noexcept {
    if (nodes.size() < 3) return false;
    const TVrtPol& first = nodes.front();
    const TVrtPol& last = nodes.back();
    return SameCoordinate(first.x, last.x) && SameCoordinate(first.y, last.y);
}

}  // namespace

void RefreshSplineNodes(double sigma, std::vector<TVrtPol>& nodes, double& sigmap) {
    const std::size_t n = nodes.size();
    if (n < 2) {
        // No segment: nothing to smooth. 0 is what |sigma|·(n − 1)/S tends to with no segment.
        for (TVrtPol& node : nodes) node.xp = node.yp = node.len = 0.0;
        sigmap = 0.0;
        return;
    }
    const bool closed = IsClosedLine(nodes);

    // One scratch block for everything: x, y, xp, yp, chord, temp, and for a closed line the
    // corner column of the cyclic elimination.
    const std::size_t blocks = closed ? 7 : 6;
    std::vector<double> scratch(blocks * n);
    double* x = scratch.data();
    double* y = x + n;
    double* xp = y + n;
    double* yp = xp + n;
    double* chord = yp + n;
    double* temp = chord + n;
    double* corner = closed ? temp + n : nullptr;
    for (std::size_t i = 0; i < n; ++i) {
        x[i] = nodes[i].x;
        y[i] = nodes[i].y;
    }

    const int count = static_cast<int>(n);
    if (closed) {
        sigmap = ComputeClosedTensionSpline(x, y, count - 1, sigma, xp, yp, chord, temp, corner);
        // The repeated last node is the first node again, coefficients included.
        xp[n - 1] = xp[0];
        yp[n - 1] = yp[0];
    } else {
        sigmap = ComputeOpenTensionSpline(x, y, count, 0.0, 0.0, sigma, xp, yp, chord, temp);
    }

    for (std::size_t i = 0; i < n; ++i) {
        nodes[i].xp = xp[i];
        nodes[i].yp = yp[i];
        nodes[i].len = i + 1 < n ? chord[i] : 0.0;
    }
}

void BuildSplineNodes(int n, const double* x, const double* y, double sigma,
                      std::vector<TVrtPol>& nodes, double& sigmap) {
    const std::size_t count = n > 0 ? static_cast<std::size_t>(n) : 0;
    nodes.assign(count, TVrtPol{0.0, 0.0, 0.0, 0.0, 0.0});
    for (std::size_t i = 0; i < count; ++i) {
        nodes[i].x = x[i];
        nodes[i].y = y[i];
    }
    RefreshSplineNodes(sigma, nodes, sigmap);
}
