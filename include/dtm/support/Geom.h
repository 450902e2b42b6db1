#pragma once

/// @file
/// The geometry kit: plain value types in double precision (x and y in plan, z as elevation, all in
/// project units) and the planar and spatial operations the terrain model is built on, plus the
/// library's own orientation test SIDE and the small records that travel between the network's
/// parts (TVrtTri, TTriColor, TTriNormal).
///
/// Inside tests are exact. Whether a plan point lies on the left of, on, or on the right of a
/// line through two points is decided without rounding error (a cheap double-precision test,
/// and an exact evaluation only when that test cannot vouch for its sign). A point on an edge
/// shared by two triangles therefore lies inside both closed triangles, whatever the orientation
/// of either, and is never lost between them. The exactness holds for coordinates whose products
/// neither overflow nor underflow, which covers every project coordinate in practice.

#include <dtm/support/Export.h>

#include <algorithm>
#include <type_traits>

namespace kor {
namespace geom {

/// A planar point.
struct DTM_API PNT_2D {
    double x;  ///< Plan abscissa.
    double y;  ///< Plan ordinate.

    /// The origin. The library always fills a point before reading it.
    constexpr PNT_2D() noexcept : x(0.0), y(0.0) {}
    constexpr PNT_2D(double xValue, double yValue) noexcept : x(xValue), y(yValue) {}

    /// Euclidean plan distance to @p other; the square root of dist_square.
    double dist(const PNT_2D& other) const noexcept;
    /// Square of the Euclidean plan distance to @p other.
    double dist_square(const PNT_2D& other) const noexcept;
};

/// A spatial point: a plan position with its elevation. Derives from PNT_2D so that it is
/// accepted wherever a plan point is expected; only x and y are then read.
struct DTM_API PNT_3D : PNT_2D {
    double z;  ///< Elevation.

    /// The origin. The library always fills a point before reading it.
    constexpr PNT_3D() noexcept : PNT_2D(), z(0.0) {}
    constexpr PNT_3D(double xValue, double yValue, double zValue) noexcept
        : PNT_2D(xValue, yValue), z(zValue) {}
    /// The plan position @p plan at elevation @p zValue.
    constexpr PNT_3D(const PNT_2D& plan, double zValue) noexcept : PNT_2D(plan), z(zValue) {}
};

/// A spatial vector, the result of CrossProduct.
struct DTM_API VECTOR_3D {
    double x;
    double y;
    double z;

    /// The null vector.
    constexpr VECTOR_3D() noexcept : x(0.0), y(0.0), z(0.0) {}
    constexpr VECTOR_3D(double xValue, double yValue, double zValue) noexcept
        : x(xValue), y(yValue), z(zValue) {}

    /// Euclidean length.
    double length() const noexcept;
    /// The opposite vector; exact.
    constexpr VECTOR_3D operator-() const noexcept { return VECTOR_3D(-x, -y, -z); }
};

/// A planar segment from start to end.
struct DTM_API LINE_2D {
    PNT_2D start;  ///< First end point.
    PNT_2D end;    ///< Second end point.

    /// A zero-length segment at the origin.
    constexpr LINE_2D() noexcept = default;
    constexpr LINE_2D(const PNT_2D& startPoint, const PNT_2D& endPoint) noexcept
        : start(startPoint), end(endPoint) {}

    /// Where this segment meets @p other.
    ///
    /// True, with the meeting point in @p out, when the two closed segments share exactly one
    /// point: a proper crossing, an end point lying on the other segment, or two segments
    /// joined at an end point at an angle. The decision is exact. A meeting point that is an
    /// end point of either segment is returned exactly as that end point; a proper crossing is
    /// computed in double precision on this segment and clamped to it.
    ///
    /// False, leaving @p out untouched, when the segments are apart, when they are collinear
    /// (overlapping, touching end to end or disjoint: there is no single crossing point, and
    /// callers find the shared end points through the neighbouring edges), and when either
    /// segment has zero length.
    bool intersect(const LINE_2D& other, PNT_2D& out) const noexcept;
};

/// A spatial segment from start to end; a breakline is one of these.
struct DTM_API LINE_3D {
    PNT_3D start;  ///< First end point.
    PNT_3D end;    ///< Second end point.

    /// A zero-length segment at the origin.
    constexpr LINE_3D() noexcept = default;
    constexpr LINE_3D(const PNT_3D& startPoint, const PNT_3D& endPoint) noexcept
        : start(startPoint), end(endPoint) {}
};

/// An axis-aligned box. Empty when max.x < min.x, which initRegion produces.
struct DTM_API RECT_3D {
    PNT_3D min;  ///< Smallest x, y and z.
    PNT_3D max;  ///< Largest x, y and z.

    /// A box reduced to the origin (not empty). Call initRegion to start an extent.
    constexpr RECT_3D() noexcept = default;
    constexpr RECT_3D(const PNT_3D& minCorner, const PNT_3D& maxCorner) noexcept
        : min(minCorner), max(maxCorner) {}

    /// Makes the box empty: min is the largest double on every axis, max its negation, so that
    /// the first updateRegion sets both corners to the point.
    void initRegion() noexcept;
    /// Extends the box to contain @p p (per axis: min the smaller, max the larger).
    void updateRegion(const PNT_3D& p) noexcept {
        // Inline: the octree and the drawing call it for every vertex of every triangle.
        min.x = std::min(min.x, p.x);
        min.y = std::min(min.y, p.y);
        min.z = std::min(min.z, p.z);
        max.x = std::max(max.x, p.x);
        max.y = std::max(max.y, p.y);
        max.z = std::max(max.z, p.z);
    }
    /// True when the box holds no point (max.x < min.x); consumers treat it as no extent.
    bool IsEmpty() const noexcept { return max.x < min.x; }
};

/// The plane a·x + b·y + c·z + d = 0.
struct DTM_API PLANE_3D {
    double a;
    double b;
    double c;
    double d;

    /// The degenerate plane with all coefficients zero; no point is on its positive side.
    constexpr PLANE_3D() noexcept : a(0.0), b(0.0), c(0.0), d(0.0) {}
    constexpr PLANE_3D(double aValue, double bValue, double cValue, double dValue) noexcept
        : a(aValue), b(bValue), c(cValue), d(dValue) {}

    /// True when a·x + b·y + c·z + d > 0 at @p p (strict: a point on the plane is not on the
    /// positive side). Clip-plane culling drops what lies on the positive side.
    bool IsOnPositiveSide(const PNT_3D& p) const noexcept;
};

/// A parametric plan line through two points: parameter 0 at the start, 1 at the end.
///
/// A line whose two points coincide has no direction: every point then projects on the start
/// (calcParam gives 0) and dist is the plain distance to the start.
class DTM_API PAR_LINE_2D {
public:
    /// The zero-length line at the origin.
    constexpr PAR_LINE_2D() noexcept = default;
    /// The line through @p start (t = 0) and @p end (t = 1).
    constexpr PAR_LINE_2D(const PNT_2D& start, const PNT_2D& end) noexcept
        : m_start(start), m_end(end) {}

    /// Parameter t of the orthogonal projection of @p p on the line; not clamped, so points
    /// projecting before the start give t < 0 and after the end t > 1. Exactly 0 at the start
    /// and exactly 1 at the end.
    double calcParam(const PNT_2D& p) const noexcept;
    /// Signed distance from @p p to the infinite line: positive on the left of start → end (the
    /// sign of SIDE(start, end, p)), negative on the right. Callers wanting a distance take the
    /// absolute value.
    double dist(const PNT_2D& p) const noexcept;
    /// The point at parameter @p t, computed as (1 − t)·start + t·end so that t = 0 and t = 1
    /// give the two points exactly.
    PNT_2D calcPoint(double t) const noexcept;

private:
    PNT_2D m_start;
    PNT_2D m_end;
};

/// A right-handed reference system: an origin and three axes, the third being the vector
/// product of the first two. The terrain model only stores and copies it.
class DTM_API CRightRefSys {
public:
    /// The world system: origin (0, 0, 0) and the unit axes.
    constexpr CRightRefSys() noexcept
        : m_origin(), m_axisX(1.0, 0.0, 0.0), m_axisY(0.0, 1.0, 0.0), m_axisZ(0.0, 0.0, 1.0) {}
    /// The system at @p origin with the axes @p axisX and @p axisY (expected orthonormal; they
    /// are kept as given) and the third axis axisX × axisY, which makes it right-handed.
    constexpr CRightRefSys(const PNT_3D& origin, const VECTOR_3D& axisX,
                           const VECTOR_3D& axisY) noexcept
        : m_origin(origin),
          m_axisX(axisX),
          m_axisY(axisY),
          m_axisZ(axisX.y * axisY.z - axisX.z * axisY.y, axisX.z * axisY.x - axisX.x * axisY.z,
                  axisX.x * axisY.y - axisX.y * axisY.x) {}

    /// The origin in world coordinates.
    constexpr const PNT_3D& GetOrigin() const noexcept { return m_origin; }
    /// The first axis in world coordinates.
    constexpr const VECTOR_3D& GetAxisX() const noexcept { return m_axisX; }
    /// The second axis in world coordinates.
    constexpr const VECTOR_3D& GetAxisY() const noexcept { return m_axisY; }
    /// The third axis, the vector product of the first two.
    constexpr const VECTOR_3D& GetAxisZ() const noexcept { return m_axisZ; }

    /// True when origin and axes are equal component by component.
    bool operator==(const CRightRefSys& other) const noexcept;
    bool operator!=(const CRightRefSys& other) const noexcept { return !(*this == other); }

    /// The world system every project starts from. Constant-initialised, so it is usable from
    /// any other static initialiser.
    static const CRightRefSys s_WorldRefSys;

private:
    PNT_3D m_origin;
    VECTOR_3D m_axisX;
    VECTOR_3D m_axisY;
    VECTOR_3D m_axisZ;
};

/// Elevation at @p p of the plane through @p a, @p b and @p c, when p lies inside the closed
/// plan triangle a-b-c (boundary included, either orientation); otherwise UNDEFINED_QUOTE.
///
/// At a vertex the result is exactly that vertex's z. A triangle with no plan area (collinear
/// or coincident vertices, or so thin that double precision cannot tell its orientation) has
/// no inside and gives UNDEFINED_QUOTE everywhere: its plane is vertical or undefined. The
/// result is never NaN for finite input.
DTM_API double CalcQuoteFromTriangle(const PNT_3D& a, const PNT_3D& b, const PNT_3D& c,
                                     const PNT_2D& p) noexcept;

/// As the four-argument form, where p also counts as inside when its plan distance to the
/// closed triangle is at most @p tol (the plane is then extended to p). A @p tol that is zero,
/// negative or NaN gives the exact test. A degenerate triangle still gives UNDEFINED_QUOTE.
DTM_API double CalcQuoteFromTriangle(const PNT_3D& a, const PNT_3D& b, const PNT_3D& c,
                                     const PNT_2D& p, double tol) noexcept;

/// Elevation at @p p by linear interpolation along @p a → @p b: p is projected orthogonally on
/// the plan line a-b and the elevation taken at that parameter (not clamped, so a projection
/// outside the segment extrapolates). Exactly a.z at a and b.z at b. UNDEFINED_QUOTE when a
/// and b share their plan position, where the elevation is not a function of the plan point.
DTM_API double CalcQuoteFromLine(const PNT_3D& a, const PNT_3D& b, const PNT_2D& p) noexcept;

/// True when @p p lies inside the closed plan triangle a-b-c (boundary included), whatever the
/// orientation of a-b-c. Exact; the same answer for every order of the three vertices. False
/// for a triangle with no plan area, as in CalcQuoteFromTriangle.
DTM_API bool IsPntInsideTriangle(const PNT_2D& a, const PNT_2D& b, const PNT_2D& c,
                                 const PNT_2D& p) noexcept;

/// Vector product (b − a) × (c − a), not normalised: its length is twice the triangle's area
/// and it points up (z > 0) when a-b-c turns counter-clockwise in plan. Its z component equals
/// SIDE(a, b, c) exactly.
DTM_API VECTOR_3D CrossProduct(const PNT_3D& a, const PNT_3D& b, const PNT_3D& c) noexcept;

// The kit's values are copied and written as raw bytes by the network's file section.
static_assert(std::is_trivially_copyable<PNT_3D>::value, "PNT_3D is copied as raw bytes");
static_assert(sizeof(PNT_3D) == 3 * sizeof(double), "PNT_3D is three packed doubles");
static_assert(sizeof(RECT_3D) == 6 * sizeof(double), "RECT_3D is six packed doubles");

}  // namespace geom
}  // namespace kor

/// The library's orientation test: (x1 − x0)·(y2 − y0) − (x2 − x0)·(y1 − y0), evaluated in
/// exactly that order of operations in double precision, because triangle ordering compares its
/// results and must give the same answer on every build. Positive when (x0, y0), (x1, y1),
/// (x2, y2) turn counter-clockwise (x to the right, y up), negative when clockwise, zero when
/// the points are collinear. Collinear points whose coordinate differences are exact in double
/// precision give exactly zero, as both products are then one real number rounded alike; other
/// collinear points may give a tiny non-zero value, which is why the kit's own inside tests do
/// not rely on this function's sign alone.
DTM_API double SIDE(double x0, double y0, double x1, double y1, double x2, double y2) noexcept;

/// The vertices of one triangle in its vertex order, followed by the first vertex again, so
/// that edge k runs from p[k] to p[k + 1] (k = 0, 1, 2) without a modulo.
struct TVrtTri {
    kor::geom::PNT_3D p[4];

    /// Fills the record from the triangle's three vertices in order, repeating @p first.
    void Set(const kor::geom::PNT_3D& first, const kor::geom::PNT_3D& second,
             const kor::geom::PNT_3D& third) noexcept {
        p[0] = first;
        p[1] = second;
        p[2] = third;
        p[3] = first;
    }
};

/// One colour per network vertex, each channel in 0.0 to 1.0. Arrays of it are owned by the
/// network and handed out read-only.
struct TTriColor {
    float r;
    float g;
    float b;
};

/// One unit normal per network vertex. Arrays of it are owned by the network and handed out
/// read-only.
struct TTriNormal {
    float x;
    float y;
    float z;
};

static_assert(sizeof(TTriColor) == 3 * sizeof(float), "colours are handed out as float triples");
static_assert(sizeof(TTriNormal) == 3 * sizeof(float), "normals are handed out as float triples");
