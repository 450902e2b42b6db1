#include <dtm/support/Geom.h>

#include <dtm/support/Tolerances.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

namespace {

/// The two products whose difference is SIDE, kept apart because the error bound of the
/// difference depends on their magnitudes.
struct SideProducts {
    double left;
    double right;
};

// One home for the formula of SIDE: the library's ordering and the kit's filtered orientation
// test must round identically, or the filter's error bound would not apply to SIDE's value.
SideProducts ComputeSideProducts(double x0, double y0, double x1, double y1, double x2,
                                 double y2) noexcept {
    return {(x1 - x0) * (y2 - y0), (x2 - x0) * (y1 - y0)};
}

}  // namespace

double SIDE(double x0, double y0, double x1, double y1, double x2, double y2) noexcept {
    const SideProducts products = ComputeSideProducts(x0, y0, x1, y1, x2, y2);
    return products.left - products.right;
}

namespace kor {
namespace geom {
namespace {

// Half the distance from 1.0 to the next double: the unit roundoff of one operation.
constexpr double kUnitRoundoff = std::numeric_limits<double>::epsilon() / 2.0;

// Largest rounding error of SIDE relative to |left| + |right| when both products have the same
// sign (Shewchuk, "Adaptive precision floating-point arithmetic and fast robust geometric
// predicates", 1997: the bound of the first stage of orient2d, derived for this very sequence
// of two differences, two products and one difference).
constexpr double kSideRelativeErrorBound = (3.0 + 16.0 * kUnitRoundoff) * kUnitRoundoff;

// The sign of SIDE when the double-precision value can vouch for it. The signs of the two
// products are always exact (a rounded difference is zero only when the operands are equal, and
// rounding keeps signs), so when they differ, or one is zero, the difference has the sign of
// the exact value; otherwise the value must exceed the error bound. False when it does not.
bool TryCertifiedSideSign(const SideProducts& products, int& sign) noexcept {
    const double value = products.left - products.right;
    const bool sameSignNonZero = (products.left > 0.0 && products.right > 0.0) ||
                                 (products.left < 0.0 && products.right < 0.0);
    if (sameSignNonZero) {
        const double bound =
            kSideRelativeErrorBound * (std::fabs(products.left) + std::fabs(products.right));
        if (!(std::fabs(value) >= bound)) return false;
    } else if (std::isnan(value)) {
        return false;
    }
    sign = (value > 0.0) - (value < 0.0);
    return true;
}

// a + b as the rounded sum and its exact rounding error (Knuth's two-sum; no branch, valid in
// round-to-nearest without extended precision, which x86-64 and AArch64 guarantee).
void TwoSum(double a, double b, double& sum, double& error) noexcept {
    sum = a + b;
    const double bVirtual = sum - a;
    const double aVirtual = sum - bVirtual;
    error = (a - aVirtual) + (b - bVirtual);
}

// An exact sum of doubles kept as a non-overlapping expansion (Shewchuk's grow-expansion):
// components grow in magnitude, so the last non-zero one carries the sign of the sum.
class ExactSum {
public:
    void Add(double term) noexcept {
        double carry = term;
        for (std::size_t i = 0; i < m_count; ++i) TwoSum(carry, m_parts[i], carry, m_parts[i]);
        m_parts[m_count++] = carry;
    }

    // Adds the exact product a·b as its rounded value and its rounding error.
    void AddProduct(double a, double b) noexcept {
        const double product = a * b;
        Add(std::fma(a, b, -product));
        Add(product);
    }

    int Sign() const noexcept {
        for (std::size_t i = m_count; i > 0; --i) {
            const double part = m_parts[i - 1];
            if (part != 0.0) return (part > 0.0) - (part < 0.0);
        }
        return 0;
    }

private:
    std::array<double, 12> m_parts{};
    std::size_t m_count = 0;
};

// The exact sign of SIDE. Expanding the differences gives six products,
// x1·y2 − x1·y0 − x0·y2 − x2·y1 + x2·y0 + x0·y1, each split exactly into two doubles.
int ExactSideSign(const PNT_2D& p0, const PNT_2D& p1, const PNT_2D& p2) noexcept {
    ExactSum sum;
    sum.AddProduct(p1.x, p2.y);
    sum.AddProduct(-p1.x, p0.y);
    sum.AddProduct(-p0.x, p2.y);
    sum.AddProduct(-p2.x, p1.y);
    sum.AddProduct(p2.x, p0.y);
    sum.AddProduct(p0.x, p1.y);
    return sum.Sign();
}

double Side(const PNT_2D& p0, const PNT_2D& p1, const PNT_2D& p2) noexcept {
    return SIDE(p0.x, p0.y, p1.x, p1.y, p2.x, p2.y);
}

// +1 when p2 lies on the left of p0 → p1, −1 on the right, 0 on the line; exact. The double
// value settles nearly every case; the exact sum runs only near the line.
int SideSign(const PNT_2D& p0, const PNT_2D& p1, const PNT_2D& p2) noexcept {
    int sign = 0;
    if (TryCertifiedSideSign(ComputeSideProducts(p0.x, p0.y, p1.x, p1.y, p2.x, p2.y), sign)) {
        return sign;
    }
    return ExactSideSign(p0, p1, p2);
}

// Orientation of a-b-c in plan: +1 counter-clockwise, −1 clockwise, 0 when the double value of
// SIDE cannot vouch for its sign. Such a triangle is treated as having no area: its plane
// could not be interpolated in double precision anyway, and interpolating would divide by a
// value that is zero or pure rounding noise.
int UsableOrientation(const PNT_2D& a, const PNT_2D& b, const PNT_2D& c) noexcept {
    int sign = 0;
    return TryCertifiedSideSign(ComputeSideProducts(a.x, a.y, b.x, b.y, c.x, c.y), sign) ? sign : 0;
}

// False when p is certainly outside the triangle's bounding box widened by margin; rejects
// NaN positions too. With a zero margin it never rejects a point of the closed triangle.
bool IsInWidenedBox(const PNT_2D& a, const PNT_2D& b, const PNT_2D& c, const PNT_2D& p,
                    double margin) noexcept {
    return p.x >= std::min({a.x, b.x, c.x}) - margin && p.x <= std::max({a.x, b.x, c.x}) + margin &&
           p.y >= std::min({a.y, b.y, c.y}) - margin && p.y <= std::max({a.y, b.y, c.y}) + margin;
}

// Exact membership in the closed triangle of the given non-zero orientation: p must not lie
// strictly on the outer side of any edge. A point on an edge gives an exact zero there, and
// the same zero from the neighbouring triangle, so shared edges belong to both.
bool IsInsideClosed(const PNT_2D& a, const PNT_2D& b, const PNT_2D& c, const PNT_2D& p,
                    int orientation) noexcept {
    return SideSign(a, b, p) * orientation >= 0 && SideSign(b, c, p) * orientation >= 0 &&
           SideSign(c, a, p) * orientation >= 0;
}

double DistanceToSegment(const PNT_2D& start, const PNT_2D& end, const PNT_2D& p) noexcept {
    const PAR_LINE_2D line(start, end);
    const double t = std::clamp(line.calcParam(p), 0.0, 1.0);
    return p.dist(line.calcPoint(t));
}

// Inside the closed triangle, or (tol > 0) within plan distance tol of it.
bool IsInsideWithTolerance(const PNT_2D& a, const PNT_2D& b, const PNT_2D& c, const PNT_2D& p,
                           int orientation, double tol) noexcept {
    const double margin = tol > 0.0 ? tol : 0.0;
    if (!IsInWidenedBox(a, b, c, p, margin)) return false;
    if (IsInsideClosed(a, b, c, p, orientation)) return true;
    if (!(tol > 0.0)) return false;
    const double nearest = std::min(
        {DistanceToSegment(a, b, p), DistanceToSegment(b, c, p), DistanceToSegment(c, a, p)});
    return nearest <= tol;
}

// Barycentric interpolation. Each weight's numerator is SIDE with p in place of one vertex, so
// at a vertex it is bit-for-bit the denominator (weight exactly 1) and the other two are exact
// zeros: the vertex's own z comes back unchanged.
double InterpolatePlane(const PNT_3D& a, const PNT_3D& b, const PNT_3D& c,
                        const PNT_2D& p) noexcept {
    const double area = Side(a, b, c);
    const double weightA = Side(p, b, c) / area;
    const double weightB = Side(a, p, c) / area;
    const double weightC = Side(a, b, p) / area;
    return weightA * a.z + weightB * b.z + weightC * c.z;
}

double Dot(double ux, double uy, double vx, double vy) noexcept {
    return ux * vx + uy * vy;
}

}  // namespace

double PNT_2D::dist(const PNT_2D& other) const noexcept {
    return std::sqrt(dist_square(other));
}

double PNT_2D::dist_square(const PNT_2D& other) const noexcept {
    const double dx = x - other.x;
    const double dy = y - other.y;
    return dx * dx + dy * dy;
}

double VECTOR_3D::length() const noexcept {
    return std::sqrt(x * x + y * y + z * z);
}

bool LINE_2D::intersect(const LINE_2D& other, PNT_2D& out) const noexcept {
    const int startSide = SideSign(other.start, other.end, start);
    const int endSide = SideSign(other.start, other.end, end);
    const int otherStartSide = SideSign(start, end, other.start);
    const int otherEndSide = SideSign(start, end, other.end);
    // Both ends on the other's line: collinear, or one segment has zero length.
    if (startSide == 0 && endSide == 0) return false;
    if (otherStartSide == 0 && otherEndSide == 0) return false;
    if (startSide * endSide > 0 || otherStartSide * otherEndSide > 0) return false;

    if (startSide == 0) {
        out = start;
    } else if (endSide == 0) {
        out = end;
    } else if (otherStartSide == 0) {
        out = other.start;
    } else if (otherEndSide == 0) {
        out = other.end;
    } else {
        // A proper crossing: the ends of this segment are strictly on either side of the other
        // line, at heights proportional to their SIDE values. Near-parallel segments can leave
        // the double values without a usable difference; the middle is then as good as any.
        const double startHeight = Side(other.start, other.end, start);
        const double endHeight = Side(other.start, other.end, end);
        const double denominator = startHeight - endHeight;
        const double t = denominator != 0.0 ? startHeight / denominator : 0.5;
        out = PAR_LINE_2D(start, end).calcPoint(std::clamp(t, 0.0, 1.0));
    }
    return true;
}

void RECT_3D::initRegion() noexcept {
    const double largest = std::numeric_limits<double>::max();
    min = PNT_3D(largest, largest, largest);
    max = PNT_3D(-largest, -largest, -largest);
}

bool PLANE_3D::IsOnPositiveSide(const PNT_3D& p) const noexcept {
    return a * p.x + b * p.y + c * p.z + d > 0.0;
}

double PAR_LINE_2D::calcParam(const PNT_2D& p) const noexcept {
    const double dx = m_end.x - m_start.x;
    const double dy = m_end.y - m_start.y;
    // The numerator at p = end repeats the denominator's operations, so the end gives exactly 1.
    const double lengthSquare = Dot(dx, dy, dx, dy);
    if (lengthSquare == 0.0) return 0.0;
    return Dot(p.x - m_start.x, p.y - m_start.y, dx, dy) / lengthSquare;
}

double PAR_LINE_2D::dist(const PNT_2D& p) const noexcept {
    const double length = m_start.dist(m_end);
    if (length == 0.0) return m_start.dist(p);
    return Side(m_start, m_end, p) / length;
}

PNT_2D PAR_LINE_2D::calcPoint(double t) const noexcept {
    return PNT_2D((1.0 - t) * m_start.x + t * m_end.x, (1.0 - t) * m_start.y + t * m_end.y);
}

bool CRightRefSys::operator==(const CRightRefSys& other) const noexcept {
    const auto samePoint = [](const PNT_3D& u, const PNT_3D& v) {
        return u.x == v.x && u.y == v.y && u.z == v.z;
    };
    const auto sameVector = [](const VECTOR_3D& u, const VECTOR_3D& v) {
        return u.x == v.x && u.y == v.y && u.z == v.z;
    };
    return samePoint(m_origin, other.m_origin) && sameVector(m_axisX, other.m_axisX) &&
           sameVector(m_axisY, other.m_axisY) && sameVector(m_axisZ, other.m_axisZ);
}

const CRightRefSys CRightRefSys::s_WorldRefSys;

double CalcQuoteFromTriangle(const PNT_3D& a, const PNT_3D& b, const PNT_3D& c,
                             const PNT_2D& p) noexcept {
    return CalcQuoteFromTriangle(a, b, c, p, 0.0);
}

double CalcQuoteFromTriangle(const PNT_3D& a, const PNT_3D& b, const PNT_3D& c, const PNT_2D& p,
                             double tol) noexcept {
    const int orientation = UsableOrientation(a, b, c);
    if (orientation == 0) return UNDEFINED_QUOTE;
    if (!IsInsideWithTolerance(a, b, c, p, orientation, tol)) return UNDEFINED_QUOTE;
    return InterpolatePlane(a, b, c, p);
}

double CalcQuoteFromLine(const PNT_3D& a, const PNT_3D& b, const PNT_2D& p) noexcept {
    if (a.x == b.x && a.y == b.y) return UNDEFINED_QUOTE;
    // (1 − t)·a.z + t·b.z rather than a.z + t·(b.z − a.z): t is exactly 0 or 1 at the end points
    // and this form then returns their elevations unchanged.
    const double t = PAR_LINE_2D(a, b).calcParam(p);
    return (1.0 - t) * a.z + t * b.z;
}

bool IsPntInsideTriangle(const PNT_2D& a, const PNT_2D& b, const PNT_2D& c,
                         const PNT_2D& p) noexcept {
    const int orientation = UsableOrientation(a, b, c);
    return orientation != 0 && IsInsideWithTolerance(a, b, c, p, orientation, 0.0);
}

VECTOR_3D CrossProduct(const PNT_3D& a, const PNT_3D& b, const PNT_3D& c) noexcept {
    const double ux = b.x - a.x;
    const double uy = b.y - a.y;
    const double uz = b.z - a.z;
    const double vx = c.x - a.x;
    const double vy = c.y - a.y;
    const double vz = c.z - a.z;
    // The z component is written as SIDE is, so that the two agree bit for bit.
    return VECTOR_3D(uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - vx * uy);
}

}  // namespace geom
}  // namespace kor
