#include <dtm/support/Geom.h>
#include <dtm/support/Tolerances.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

namespace {

using kor::geom::CalcQuoteFromLine;
using kor::geom::CalcQuoteFromTriangle;
using kor::geom::CRightRefSys;
using kor::geom::CrossProduct;
using kor::geom::IsPntInsideTriangle;
using kor::geom::LINE_2D;
using kor::geom::PAR_LINE_2D;
using kor::geom::PLANE_3D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;
using kor::geom::RECT_3D;
using kor::geom::VECTOR_3D;

using Triangle = std::array<PNT_3D, 3>;

constexpr double kUndefinedThreshold = 8.5e199;
constexpr double kTol = dtm::INSIDE_TRIANGLE_TOLERANCE;

// The six orders of three vertices: three of each orientation.
constexpr std::array<std::array<int, 3>, 6> kPermutations = {
    {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}, {2, 1, 0}, {1, 0, 2}}};

Triangle Permuted(const Triangle& t, int permutation) {
    const auto& order = kPermutations[static_cast<std::size_t>(permutation)];
    return {t[static_cast<std::size_t>(order[0])], t[static_cast<std::size_t>(order[1])],
            t[static_cast<std::size_t>(order[2])]};
}

bool Inside(const Triangle& t, const PNT_2D& p) {
    return IsPntInsideTriangle(t[0], t[1], t[2], p);
}
double Quote(const Triangle& t, const PNT_2D& p) {
    return CalcQuoteFromTriangle(t[0], t[1], t[2], p);
}
double QuoteTol(const Triangle& t, const PNT_2D& p, double tol) {
    return CalcQuoteFromTriangle(t[0], t[1], t[2], p, tol);
}

std::string Where(std::uint64_t seed, int step) {
    return "seed " + std::to_string(seed) + " step " + std::to_string(step);
}

double Uniform(std::mt19937_64& rng, double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(rng);
}

int UniformInt(std::mt19937_64& rng, int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(rng);
}

// Barycentric coordinates of p in a-b-c by Cramer's rule in extended precision, independent of
// the kit's formulas.
std::array<long double, 3> Barycentric(const Triangle& t, const PNT_2D& p) {
    const long double ux = static_cast<long double>(t[1].x) - t[0].x;
    const long double uy = static_cast<long double>(t[1].y) - t[0].y;
    const long double vx = static_cast<long double>(t[2].x) - t[0].x;
    const long double vy = static_cast<long double>(t[2].y) - t[0].y;
    const long double px = static_cast<long double>(p.x) - t[0].x;
    const long double py = static_cast<long double>(p.y) - t[0].y;
    const long double det = ux * vy - vx * uy;
    const long double beta = (px * vy - vx * py) / det;
    const long double gamma = (ux * py - px * uy) / det;
    return {1.0L - beta - gamma, beta, gamma};
}

long double IndependentQuote(const Triangle& t, const PNT_2D& p) {
    const auto w = Barycentric(t, p);
    return w[0] * t[0].z + w[1] * t[1].z + w[2] * t[2].z;
}

// A random triangle of reasonable shape (area at least 5% of the square of its longest edge),
// so that rounding cannot blur what is inside.
Triangle RandomTriangle(std::mt19937_64& rng, double extent) {
    for (;;) {
        Triangle t;
        for (auto& v : t) {
            v = PNT_3D(Uniform(rng, -extent, extent), Uniform(rng, -extent, extent),
                       Uniform(rng, -100.0, 3000.0));
        }
        const double twiceArea = std::fabs(CrossProduct(t[0], t[1], t[2]).z);
        const double longest =
            std::max({t[0].dist_square(t[1]), t[1].dist_square(t[2]), t[2].dist_square(t[0])});
        if (twiceArea >= 0.1 * longest) return t;
    }
}

// Exact rounding error of a + b (two-sum), to tell whether a midpoint is representable.
double SumError(double a, double b) {
    const double sum = a + b;
    const double bVirtual = sum - a;
    return (a - (sum - bVirtual)) + (b - bVirtual);
}

// Two triangles u-v-w1 and v-u-w2 on either side of the shared edge u-v, each in a random vertex
// order, so that both orientations of either occur.
struct SharedEdge {
    PNT_3D u;
    PNT_3D v;
    Triangle first;
    Triangle second;
};

PNT_3D ThirdVertex(std::mt19937_64& rng, const PNT_3D& u, const PNT_3D& v, double sideSign) {
    const double dx = v.x - u.x;
    const double dy = v.y - u.y;
    const double height = sideSign * Uniform(rng, 0.1, 2.0);
    const double along = Uniform(rng, 0.0, 1.0);
    return PNT_3D(u.x + along * dx - height * dy, u.y + along * dy + height * dx,
                  Uniform(rng, -100.0, 3000.0));
}

SharedEdge MakeSharedEdge(std::mt19937_64& rng, const PNT_3D& u, const PNT_3D& v) {
    SharedEdge edge{u, v, {}, {}};
    const PNT_3D left = ThirdVertex(rng, u, v, 1.0);
    const PNT_3D right = ThirdVertex(rng, u, v, -1.0);
    edge.first = Permuted({u, v, left}, UniformInt(rng, 0, 5));
    edge.second = Permuted({v, u, right}, UniformInt(rng, 0, 5));
    return edge;
}

// Every test the kit offers must find p in both triangles: the library only needs one of them,
// and the kit promises both because its inside test is exact on closed triangles.
void ExpectFoundInBoth(const SharedEdge& edge, const PNT_2D& p, const std::string& where) {
    EXPECT_TRUE(Inside(edge.first, p)) << where;
    EXPECT_TRUE(Inside(edge.second, p)) << where;
    const double first = Quote(edge.first, p);
    const double second = Quote(edge.second, p);
    EXPECT_LT(first, kUndefinedThreshold) << where;
    EXPECT_LT(second, kUndefinedThreshold) << where;
    EXPECT_LT(QuoteTol(edge.first, p, kTol), kUndefinedThreshold) << where;
    EXPECT_LT(QuoteTol(edge.second, p, kTol), kUndefinedThreshold) << where;
    // On the shared edge both planes reduce to the edge's own linear interpolation.
    EXPECT_NEAR(first, second, 1e-9 * (1.0 + std::fabs(first))) << where;
}

TEST(GeomTest, RectAfterInitRegionIsEmpty) {
    RECT_3D box(PNT_3D(1, 2, 3), PNT_3D(4, 5, 6));
    box.initRegion();
    EXPECT_TRUE(box.IsEmpty());
    EXPECT_LT(box.max.x, box.min.x);
    const double largest = 1.7976931348623157e308;
    EXPECT_EQ(box.min.x, largest);
    EXPECT_EQ(box.min.y, largest);
    EXPECT_EQ(box.min.z, largest);
    EXPECT_EQ(box.max.x, -largest);
    EXPECT_EQ(box.max.y, -largest);
    EXPECT_EQ(box.max.z, -largest);
}

TEST(GeomTest, RectUpdateRegionCoversEveryPointOnEachAxis) {
    const std::uint64_t seed = 11;
    std::mt19937_64 rng(seed);
    RECT_3D box;
    box.initRegion();
    std::array<double, 3> low = {1e300, 1e300, 1e300};
    std::array<double, 3> high = {-1e300, -1e300, -1e300};
    for (int step = 0; step < 200; ++step) {
        const PNT_3D p(Uniform(rng, -1e4, 1e4), Uniform(rng, -1e4, 1e4), Uniform(rng, -50, 50));
        box.updateRegion(p);
        const std::array<double, 3> coords = {p.x, p.y, p.z};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], coords[axis]);
            high[axis] = std::max(high[axis], coords[axis]);
        }
        ASSERT_FALSE(box.IsEmpty()) << Where(seed, step);
        ASSERT_EQ(box.min.x, low[0]) << Where(seed, step);
        ASSERT_EQ(box.min.y, low[1]) << Where(seed, step);
        ASSERT_EQ(box.min.z, low[2]) << Where(seed, step);
        ASSERT_EQ(box.max.x, high[0]) << Where(seed, step);
        ASSERT_EQ(box.max.y, high[1]) << Where(seed, step);
        ASSERT_EQ(box.max.z, high[2]) << Where(seed, step);
    }
}

TEST(GeomTest, OnePointRegionIsNotEmpty) {
    RECT_3D box;
    box.initRegion();
    box.updateRegion(PNT_3D(3, 4, 5));
    EXPECT_FALSE(box.IsEmpty());
    EXPECT_EQ(box.min.x, 3.0);
    EXPECT_EQ(box.max.x, 3.0);
    EXPECT_EQ(box.min.z, 5.0);
    EXPECT_EQ(box.max.z, 5.0);
}

TEST(GeomTest, DefaultConstructedValuesAreZero) {
    const PNT_3D p;
    EXPECT_EQ(p.x, 0.0);
    EXPECT_EQ(p.y, 0.0);
    EXPECT_EQ(p.z, 0.0);
    const VECTOR_3D v;
    EXPECT_EQ(v.length(), 0.0);
    const PLANE_3D plane;
    EXPECT_FALSE(plane.IsOnPositiveSide(PNT_3D(1, 2, 3)));
    const RECT_3D box;
    EXPECT_EQ(box.min.x, 0.0);
    EXPECT_EQ(box.max.z, 0.0);
    EXPECT_FALSE(box.IsEmpty());
}

TEST(GeomTest, SideIsPositiveCounterClockwiseAndNegativeClockwise) {
    EXPECT_EQ(SIDE(0, 0, 1, 0, 0, 1), 1.0);
    EXPECT_EQ(SIDE(0, 0, 0, 1, 1, 0), -1.0);
    // (x1 − x0)·(y2 − y0) − (x2 − x0)·(y1 − y0) by hand: 3·5 − (−1)·2 = 17.
    EXPECT_EQ(SIDE(1, 1, 4, 3, 0, 6), 17.0);
}

TEST(GeomTest, SideOfCollinearPointsIsExactlyZero) {
    EXPECT_EQ(SIDE(0, 0, 1, 1, 2, 2), 0.0);
    EXPECT_EQ(SIDE(5, 1, 5, 7, 5, -3), 0.0);
    EXPECT_EQ(SIDE(1.5, 2.5, 1.5, 2.5, 9, 9), 0.0);
    // Points on a line through full-precision survey coordinates, spaced by a dyadic step so that
    // every point and every difference is exact; the products are not, yet they round alike.
    const std::uint64_t seed = 12;
    std::mt19937_64 rng(seed);
    for (int step = 0; step < 2000; ++step) {
        const double ux = Uniform(rng, 600000.0, 1000000.0);
        const double uy = Uniform(rng, 600000.0, 1000000.0);
        const double scale = std::ldexp(1.0, -UniformInt(rng, 6, 30));
        const double dx = UniformInt(rng, -4096, 4096) * scale;
        const double dy = UniformInt(rng, -4096, 4096) * scale;
        std::array<PNT_2D, 3> points;
        for (auto& p : points) {
            const int k = UniformInt(rng, 0, 64);
            p = PNT_2D(ux + k * dx, uy + k * dy);
        }
        for (int perm = 0; perm < 6; ++perm) {
            const auto& o = kPermutations[static_cast<std::size_t>(perm)];
            const PNT_2D& a = points[static_cast<std::size_t>(o[0])];
            const PNT_2D& b = points[static_cast<std::size_t>(o[1])];
            const PNT_2D& c = points[static_cast<std::size_t>(o[2])];
            ASSERT_EQ(SIDE(a.x, a.y, b.x, b.y, c.x, c.y), 0.0) << Where(seed, step);
        }
    }
}

TEST(GeomTest, QuoteJustOutsideTriangleIsUndefined) {
    const Triangle t = {PNT_3D(0, 0, 0), PNT_3D(10, 0, 10), PNT_3D(0, 10, 20)};
    const PNT_2D belowEdge(5.0, std::nextafter(0.0, -1.0));
    const PNT_2D beyondHypotenuse(5.0, std::nextafter(5.0, 6.0));
    for (int perm = 0; perm < 6; ++perm) {
        const Triangle order = Permuted(t, perm);
        for (const PNT_2D& p : {belowEdge, beyondHypotenuse}) {
            const double z = Quote(order, p);
            EXPECT_EQ(z, UNDEFINED_QUOTE) << "permutation " << perm;
            EXPECT_GE(z, 8.5e199) << "permutation " << perm;
            EXPECT_TRUE(dtm::IsUndefinedQuote(z));
            EXPECT_FALSE(Inside(order, p)) << "permutation " << perm;
        }
        // The boundary itself is inside.
        EXPECT_EQ(Quote(order, PNT_2D(5.0, 0.0)), 5.0) << "permutation " << perm;
        EXPECT_EQ(Quote(order, PNT_2D(5.0, 5.0)), 15.0) << "permutation " << perm;
    }
}

TEST(GeomTest, PointOnSharedEdgeIsFoundInBothTrianglesAtFullPrecision) {
    // Full-precision end points across several magnitudes; the end points and, when it is
    // representable, the midpoint lie exactly on the edge, while the third vertices make every
    // other side test round.
    const std::uint64_t seed = 21;
    std::mt19937_64 rng(seed);
    int midpointsTried = 0;
    for (int step = 0; step < 4000; ++step) {
        const double base = std::pow(10.0, Uniform(rng, 0.0, 6.5));
        const double length = std::pow(10.0, Uniform(rng, -3.0, 3.0));
        const double angle = Uniform(rng, 0.0, 6.283185307179586);
        const PNT_3D u(Uniform(rng, -base, base), Uniform(rng, -base, base),
                       Uniform(rng, -100, 3000));
        const PNT_3D v(u.x + length * std::cos(angle), u.y + length * std::sin(angle),
                       Uniform(rng, -100, 3000));
        const SharedEdge edge = MakeSharedEdge(rng, u, v);
        const std::string where = Where(seed, step);
        ExpectFoundInBoth(edge, u, where + " at u");
        ExpectFoundInBoth(edge, v, where + " at v");
        if (SumError(u.x, v.x) == 0.0 && SumError(u.y, v.y) == 0.0) {
            ++midpointsTried;
            ExpectFoundInBoth(edge, PNT_2D((u.x + v.x) * 0.5, (u.y + v.y) * 0.5),
                              where + " at midpoint");
        }
    }
    EXPECT_GT(midpointsTried, 500);
}

TEST(GeomTest, PointOnSharedEdgeIsFoundInBothTrianglesWhereSideRounds) {
    // Points s·(a, b) lie exactly on the line through the origin with direction (a, b) when a·s
    // and b·s are exact. Taking the edge's ends at very different scales makes the differences
    // in SIDE round, so plain double SIDE of a point on the edge is often not zero and differs
    // between the two triangles' views of the edge: the case a naive inside test loses.
    const std::uint64_t seed = 23;
    std::mt19937_64 rng(seed);
    int pointsWithInexactSide = 0;
    for (int step = 0; step < 3000; ++step) {
        const double a = (2 * UniformInt(rng, 0, 1 << 19) + 1) * (UniformInt(rng, 0, 1) ? 1 : -1);
        const double b = (2 * UniformInt(rng, 0, 1 << 19) + 1) * (UniformInt(rng, 0, 1) ? 1 : -1);
        // Scales m·2^e with m below 2^20, so that a·s and b·s are exact; increasing along the edge.
        const auto scale = [&](int lowExponent, int highExponent) {
            return UniformInt(rng, 1 << 19, (1 << 20) - 1) *
                   std::ldexp(1.0, UniformInt(rng, lowExponent, highExponent));
        };
        const auto at = [&](double s) { return PNT_2D(a * s, b * s); };
        const PNT_3D u(at(scale(-60, -40)), Uniform(rng, -100, 3000));
        const PNT_3D v(at(scale(-20, -15)), Uniform(rng, -100, 3000));
        const SharedEdge edge = MakeSharedEdge(rng, u, v);
        const std::string where = Where(seed, step);
        ExpectFoundInBoth(edge, u, where + " at u");
        ExpectFoundInBoth(edge, v, where + " at v");
        for (int k = 0; k < 4; ++k) {
            const PNT_2D p = at(scale(-39, -22));
            if (SIDE(u.x, u.y, v.x, v.y, p.x, p.y) != 0.0) ++pointsWithInexactSide;
            ExpectFoundInBoth(edge, p, where + " k " + std::to_string(k));
        }
    }
    // Guard on the generator: the test is only worth something if rounding does bite.
    EXPECT_GT(pointsWithInexactSide, 1000);
}

TEST(GeomTest, PointOnSharedEdgeIsFoundInBothTrianglesAlongTheEdge) {
    // Survey-sized coordinates in [2^19, 2^20), where doubles are spaced 2^-33: stepping by a
    // multiple of 2^-30 keeps every point of u + k·d exactly representable and exactly on u-v.
    const std::uint64_t seed = 22;
    std::mt19937_64 rng(seed);
    for (int step = 0; step < 3000; ++step) {
        const double low = 524288.0 + 16384.0;
        const double high = 1048576.0 - 16384.0;
        const double ux = Uniform(rng, low, high);
        const double uy = Uniform(rng, low, high);
        const double scale = std::ldexp(1.0, -UniformInt(rng, 6, 30));
        int di = 0;
        int dj = 0;
        while (di == 0 && dj == 0) {
            di = UniformInt(rng, -4096, 4096);
            dj = UniformInt(rng, -4096, 4096);
        }
        const int count = UniformInt(rng, 2, 64);
        const auto along = [&](int k) {
            return PNT_2D(ux + k * (di * scale), uy + k * (dj * scale));
        };
        const PNT_3D u(along(0), Uniform(rng, -100, 3000));
        const PNT_3D v(along(count), Uniform(rng, -100, 3000));
        const SharedEdge edge = MakeSharedEdge(rng, u, v);
        for (int k = 0; k <= count; ++k) {
            ExpectFoundInBoth(edge, along(k), Where(seed, step) + " k " + std::to_string(k));
        }
    }
}

TEST(GeomTest, ElevationAtVertexIsExactlyVertexZ) {
    const std::uint64_t seed = 31;
    std::mt19937_64 rng(seed);
    for (int step = 0; step < 2000; ++step) {
        const Triangle t = RandomTriangle(rng, step % 2 == 0 ? 50.0 : 2e6);
        for (int perm = 0; perm < 6; ++perm) {
            const Triangle order = Permuted(t, perm);
            for (const PNT_3D& vertex : t) {
                ASSERT_EQ(Quote(order, vertex), vertex.z) << Where(seed, step);
                ASSERT_EQ(QuoteTol(order, vertex, kTol), vertex.z) << Where(seed, step);
                ASSERT_TRUE(Inside(order, vertex)) << Where(seed, step);
            }
        }
    }
}

TEST(GeomTest, ElevationMatchesIndependentBarycentricInterpolation) {
    const std::uint64_t seed = 32;
    std::mt19937_64 rng(seed);
    for (int step = 0; step < 3000; ++step) {
        const Triangle t = RandomTriangle(rng, 1000.0);
        std::array<double, 3> w = {Uniform(rng, 0.02, 1.0), Uniform(rng, 0.02, 1.0),
                                   Uniform(rng, 0.02, 1.0)};
        const double total = w[0] + w[1] + w[2];
        const PNT_2D p((w[0] * t[0].x + w[1] * t[1].x + w[2] * t[2].x) / total,
                       (w[0] * t[0].y + w[1] * t[1].y + w[2] * t[2].y) / total);
        const long double expected = IndependentQuote(t, p);
        for (int perm = 0; perm < 6; ++perm) {
            const Triangle order = Permuted(t, perm);
            const double z = Quote(order, p);
            ASSERT_NEAR(z, static_cast<double>(expected), 1e-9) << Where(seed, step);
            ASSERT_EQ(QuoteTol(order, p, kTol), z) << Where(seed, step);
        }
    }
}

TEST(GeomTest, InsideTestAgreesWithBarycentricSignsInEveryVertexOrder) {
    const std::uint64_t seed = 33;
    std::mt19937_64 rng(seed);
    int insideCount = 0;
    int outsideCount = 0;
    for (int step = 0; step < 5000; ++step) {
        const Triangle t = RandomTriangle(rng, 100.0);
        // Within the triangle's bounding box widened by a tenth on each side.
        const auto within = [&](double p0, double p1, double p2) {
            const double low = std::min({p0, p1, p2});
            const double high = std::max({p0, p1, p2});
            const double margin = 0.1 * (high - low);
            return Uniform(rng, low - margin, high + margin);
        };
        const PNT_2D p(within(t[0].x, t[1].x, t[2].x), within(t[0].y, t[1].y, t[2].y));
        const bool inside = Inside(t, p);
        for (int perm = 0; perm < 6; ++perm) {
            const Triangle order = Permuted(t, perm);
            ASSERT_EQ(Inside(order, p), inside) << Where(seed, step);
            // The elevation is defined exactly where the inside test says so: the profile asks
            // one and then the other.
            ASSERT_EQ(Quote(order, p) < kUndefinedThreshold, inside) << Where(seed, step);
        }
        const auto w = Barycentric(t, p);
        const long double smallest = std::min({w[0], w[1], w[2]});
        if (smallest > 1e-9L) {
            ASSERT_TRUE(inside) << Where(seed, step);
            ++insideCount;
        } else if (smallest < -1e-9L) {
            ASSERT_FALSE(inside) << Where(seed, step);
            ASSERT_EQ(Quote(t, p), UNDEFINED_QUOTE) << Where(seed, step);
            ++outsideCount;
        }
    }
    EXPECT_GT(insideCount, 500);
    EXPECT_GT(outsideCount, 500);
}

TEST(GeomTest, DegenerateTriangleHasNoInsideAndNoElevation) {
    const Triangle collinear = {PNT_3D(0, 0, 1), PNT_3D(2, 2, 5), PNT_3D(1, 1, 30)};
    const Triangle coincident = {PNT_3D(3, 4, 1), PNT_3D(3, 4, 2), PNT_3D(3, 4, 3)};
    const Triangle twoEqual = {PNT_3D(0, 0, 1), PNT_3D(0, 0, 2), PNT_3D(5, 1, 3)};
    for (const Triangle& t : {collinear, coincident, twoEqual}) {
        for (int perm = 0; perm < 6; ++perm) {
            const Triangle order = Permuted(t, perm);
            for (const PNT_2D& p : {PNT_2D(t[0]), PNT_2D(t[1]), PNT_2D(t[2]), PNT_2D(0.5, 0.5),
                                    PNT_2D(1.0, 0.0), PNT_2D(3, 4)}) {
                EXPECT_FALSE(Inside(order, p)) << "permutation " << perm;
                EXPECT_EQ(Quote(order, p), UNDEFINED_QUOTE) << "permutation " << perm;
                EXPECT_EQ(QuoteTol(order, p, kTol), UNDEFINED_QUOTE) << "permutation " << perm;
            }
        }
    }
}

TEST(GeomTest, ThinButMeasurableTriangleGivesFiniteElevation) {
    const Triangle t = {PNT_3D(0, 0, 0), PNT_3D(1000, 0, 10), PNT_3D(500, 1e-9, 5)};
    const double z = Quote(t, PNT_2D(500, 0.5e-9));
    ASSERT_TRUE(std::isfinite(z));
    EXPECT_NEAR(z, 5.0, 1e-9);
}

TEST(GeomTest, ToleranceAcceptsPointsWithinTolOfTheTriangle) {
    // The plane z = x + 2y over a right triangle; tol is a plan distance to the closed triangle.
    const Triangle t = {PNT_3D(0, 0, 0), PNT_3D(10, 0, 10), PNT_3D(0, 10, 20)};
    const double diagonal = 1.0 / std::sqrt(2.0);
    const PNT_2D nearEdge(5.0, -0.5 * kTol);
    const PNT_2D nearHypotenuse(5.0 + 0.5 * kTol * diagonal, 5.0 + 0.5 * kTol * diagonal);
    const PNT_2D nearCorner(-0.6 * kTol, -0.6 * kTol);  // 0.85 tol from the vertex
    const PNT_2D farFromEdge(5.0, -2.0 * kTol);
    const PNT_2D farFromCorner(-0.8 * kTol, -0.8 * kTol);  // 1.13 tol: inside the widened box
    for (int perm = 0; perm < 6; ++perm) {
        const Triangle order = Permuted(t, perm);
        for (const PNT_2D& p : {nearEdge, nearHypotenuse, nearCorner}) {
            EXPECT_NEAR(QuoteTol(order, p, kTol), p.x + 2.0 * p.y, 1e-12) << "permutation " << perm;
            EXPECT_EQ(Quote(order, p), UNDEFINED_QUOTE) << "permutation " << perm;
            EXPECT_FALSE(Inside(order, p)) << "permutation " << perm;
        }
        for (const PNT_2D& p : {farFromEdge, farFromCorner}) {
            EXPECT_EQ(QuoteTol(order, p, kTol), UNDEFINED_QUOTE) << "permutation " << perm;
        }
    }
}

TEST(GeomTest, ZeroNegativeOrNaNToleranceIsTheExactTest) {
    const Triangle t = {PNT_3D(0, 0, 0), PNT_3D(10, 0, 10), PNT_3D(0, 10, 20)};
    const PNT_2D nearEdge(5.0, -0.5 * kTol);
    for (double tol : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(QuoteTol(t, nearEdge, tol), UNDEFINED_QUOTE) << "tol " << tol;
        EXPECT_EQ(QuoteTol(t, PNT_2D(5.0, 0.0), tol), 5.0) << "tol " << tol;
    }
}

TEST(GeomTest, QuoteFromLineInterpolatesAndIsExactAtTheEnds) {
    const PNT_3D a(1.1, 2.3, 100.7);
    const PNT_3D b(7.9, -4.1, -3.3);
    EXPECT_EQ(CalcQuoteFromLine(a, b, a), a.z);
    EXPECT_EQ(CalcQuoteFromLine(a, b, b), b.z);
    EXPECT_NEAR(CalcQuoteFromLine(a, b, PNT_2D(4.5, -0.9)), (100.7 - 3.3) / 2.0, 1e-12);
    // A point beside the segment takes the elevation of its orthogonal projection.
    const PNT_3D c(0, 0, 0);
    const PNT_3D d(10, 0, 20);
    EXPECT_NEAR(CalcQuoteFromLine(c, d, PNT_2D(2.5, 7.0)), 5.0, 1e-12);
    // Vertical in plan: the elevation is not a function of the plan point.
    EXPECT_EQ(CalcQuoteFromLine(c, PNT_3D(0, 0, 5), PNT_2D(0, 0)), UNDEFINED_QUOTE);
}

TEST(GeomTest, CrossProductFollowsOrientationAndMatchesSide) {
    const VECTOR_3D up = CrossProduct(PNT_3D(0, 0, 0), PNT_3D(1, 0, 0), PNT_3D(0, 1, 0));
    EXPECT_EQ(up.x, 0.0);
    EXPECT_EQ(up.y, 0.0);
    EXPECT_EQ(up.z, 1.0);
    const VECTOR_3D down = CrossProduct(PNT_3D(0, 0, 0), PNT_3D(0, 1, 0), PNT_3D(1, 0, 0));
    EXPECT_EQ(down.z, -1.0);
    // (2,0,0) × (0,3,4) = (0·4 − 0·3, 0·0 − 2·4, 2·3 − 0·0) = (0, −8, 6).
    const VECTOR_3D tilted = CrossProduct(PNT_3D(1, 1, 1), PNT_3D(3, 1, 1), PNT_3D(1, 4, 5));
    EXPECT_EQ(tilted.x, 0.0);
    EXPECT_EQ(tilted.y, -8.0);
    EXPECT_EQ(tilted.z, 6.0);
    EXPECT_EQ((-tilted).y, 8.0);
}

TEST(GeomTest, CrossProductLengthIsTwiceTheArea) {
    const std::uint64_t seed = 41;
    std::mt19937_64 rng(seed);
    for (int step = 0; step < 2000; ++step) {
        Triangle t;
        for (auto& v : t) {
            v = PNT_3D(Uniform(rng, -100, 100), Uniform(rng, -100, 100), Uniform(rng, -100, 100));
        }
        const VECTOR_3D n = CrossProduct(t[0], t[1], t[2]);
        ASSERT_EQ(n.z, SIDE(t[0].x, t[0].y, t[1].x, t[1].y, t[2].x, t[2].y)) << Where(seed, step);
        // Area from the three side lengths (Kahan's stable form of Heron's formula).
        const auto edge = [](const PNT_3D& p, const PNT_3D& q) {
            const long double dx = static_cast<long double>(p.x) - q.x;
            const long double dy = static_cast<long double>(p.y) - q.y;
            const long double dz = static_cast<long double>(p.z) - q.z;
            return std::sqrt(dx * dx + dy * dy + dz * dz);
        };
        std::array<long double, 3> s = {edge(t[0], t[1]), edge(t[1], t[2]), edge(t[2], t[0])};
        std::sort(s.begin(), s.end(), [](long double x, long double y) { return x > y; });
        const long double product = (s[0] + (s[1] + s[2])) * (s[2] - (s[0] - s[1])) *
                                    (s[2] + (s[0] - s[1])) * (s[0] + (s[1] - s[2]));
        const long double area = 0.25L * std::sqrt(std::max(product, 0.0L));
        ASSERT_NEAR(n.length(), static_cast<double>(2.0L * area), 1e-9 * (1.0 + n.length()))
            << Where(seed, step);
    }
}

TEST(GeomTest, DistanceBetweenPointsIsEuclideanInPlan) {
    const PNT_2D a(1, 2);
    const PNT_3D b(4, 6, 1000);  // the elevation is ignored
    EXPECT_EQ(a.dist(b), 5.0);
    EXPECT_EQ(a.dist_square(b), 25.0);
    EXPECT_EQ(b.dist(a), 5.0);
    EXPECT_EQ(a.dist(a), 0.0);
}

TEST(GeomTest, ParLineParameterAndDistanceMatchHandComputation) {
    // start (1, 1), end (5, 4): direction (4, 3), length 5.
    const PAR_LINE_2D line(PNT_2D(1, 1), PNT_2D(5, 4));
    // p − start = (3, 7): t = (3·4 + 7·3) / 25 = 33/25; distance (4·7 − 3·3) / 5 = 19/5, left.
    EXPECT_DOUBLE_EQ(line.calcParam(PNT_2D(4, 8)), 1.32);
    EXPECT_DOUBLE_EQ(line.dist(PNT_2D(4, 8)), 3.8);
    // p − start = (4, −1): t = (16 − 3) / 25 = 0.52; distance (4·(−1) − 4·3) / 5 = −3.2, right.
    EXPECT_DOUBLE_EQ(line.calcParam(PNT_2D(5, 0)), 0.52);
    EXPECT_DOUBLE_EQ(line.dist(PNT_2D(5, 0)), -3.2);
    // Before the start and on the line.
    EXPECT_DOUBLE_EQ(line.calcParam(PNT_2D(-3, -2)), -1.0);
    EXPECT_EQ(line.dist(PNT_2D(9, 7)), 0.0);
    // The end points exactly.
    EXPECT_EQ(line.calcParam(PNT_2D(1, 1)), 0.0);
    EXPECT_EQ(line.calcParam(PNT_2D(5, 4)), 1.0);
    const PNT_2D start = line.calcPoint(0.0);
    const PNT_2D end = line.calcPoint(1.0);
    EXPECT_EQ(start.x, 1.0);
    EXPECT_EQ(start.y, 1.0);
    EXPECT_EQ(end.x, 5.0);
    EXPECT_EQ(end.y, 4.0);
    const PNT_2D foot = line.calcPoint(1.32);
    EXPECT_DOUBLE_EQ(foot.x, 6.28);
    EXPECT_DOUBLE_EQ(foot.y, 4.96);
    EXPECT_NEAR(foot.dist(PNT_2D(4, 8)), 3.8, 1e-12);
}

TEST(GeomTest, ParLineEndsAreExactForFullPrecisionPoints) {
    const std::uint64_t seed = 42;
    std::mt19937_64 rng(seed);
    for (int step = 0; step < 1000; ++step) {
        const PNT_2D a(Uniform(rng, -1e6, 1e6), Uniform(rng, -1e6, 1e6));
        const PNT_2D b(Uniform(rng, -1e6, 1e6), Uniform(rng, -1e6, 1e6));
        const PAR_LINE_2D line(a, b);
        ASSERT_EQ(line.calcParam(a), 0.0) << Where(seed, step);
        ASSERT_EQ(line.calcParam(b), 1.0) << Where(seed, step);
        ASSERT_EQ(line.dist(a), 0.0) << Where(seed, step);
        ASSERT_EQ(line.dist(b), 0.0) << Where(seed, step);
    }
}

TEST(GeomTest, ParLineOfCoincidentPointsMeasuresFromTheStart) {
    const PAR_LINE_2D line(PNT_2D(2, 3), PNT_2D(2, 3));
    EXPECT_EQ(line.calcParam(PNT_2D(5, 7)), 0.0);
    EXPECT_EQ(line.dist(PNT_2D(5, 7)), 5.0);
}

TEST(GeomTest, CrossingSegmentsIntersectAtTheCrossing) {
    const LINE_2D first(PNT_2D(0, 0), PNT_2D(4, 4));
    const LINE_2D second(PNT_2D(0, 4), PNT_2D(4, 0));
    PNT_2D out;
    ASSERT_TRUE(first.intersect(second, out));
    EXPECT_EQ(out.x, 2.0);
    EXPECT_EQ(out.y, 2.0);
    ASSERT_TRUE(second.intersect(first, out));
    EXPECT_EQ(out.x, 2.0);
    EXPECT_EQ(out.y, 2.0);
}

TEST(GeomTest, SegmentsTouchingAtAnEndPointIntersectThere) {
    PNT_2D out;
    const LINE_2D base(PNT_2D(0, 0), PNT_2D(4, 0));
    // T: an end point on the other segment's interior.
    const LINE_2D stem(PNT_2D(2, 0), PNT_2D(2, 3));
    ASSERT_TRUE(base.intersect(stem, out));
    EXPECT_EQ(out.x, 2.0);
    EXPECT_EQ(out.y, 0.0);
    ASSERT_TRUE(stem.intersect(base, out));
    EXPECT_EQ(out.x, 2.0);
    EXPECT_EQ(out.y, 0.0);
    // L: two segments joined at an end point at an angle.
    const LINE_2D corner(PNT_2D(4, 0), PNT_2D(4, 3));
    ASSERT_TRUE(base.intersect(corner, out));
    EXPECT_EQ(out.x, 4.0);
    EXPECT_EQ(out.y, 0.0);
    // T at a point whose coordinates make every product inexact: the end point comes back as is.
    const LINE_2D slanted(PNT_2D(1.1, 0.25), PNT_2D(2.3, 0.7));
    const PNT_2D mid((1.1 + 2.3) * 0.5, (0.25 + 0.7) * 0.5);
    ASSERT_EQ(SumError(1.1, 2.3), 0.0);
    ASSERT_EQ(SumError(0.25, 0.7), 0.0);
    const LINE_2D spur(mid, PNT_2D(7.3, -1.9));
    ASSERT_TRUE(spur.intersect(slanted, out));
    EXPECT_EQ(out.x, mid.x);
    EXPECT_EQ(out.y, mid.y);
}

TEST(GeomTest, ParallelCollinearDisjointAndZeroLengthSegmentsDoNotIntersect) {
    const PNT_2D sentinel(-123.0, 456.0);
    const LINE_2D base(PNT_2D(0, 0), PNT_2D(4, 0));
    const std::array<LINE_2D, 6> others = {
        LINE_2D(PNT_2D(0, 1), PNT_2D(4, 1)),   // parallel
        LINE_2D(PNT_2D(2, 0), PNT_2D(6, 0)),   // collinear, overlapping
        LINE_2D(PNT_2D(4, 0), PNT_2D(7, 0)),   // collinear, touching end to end
        LINE_2D(PNT_2D(5, 0), PNT_2D(7, 0)),   // collinear, apart
        LINE_2D(PNT_2D(6, -1), PNT_2D(6, 1)),  // lines cross outside the segments
        LINE_2D(PNT_2D(2, 0), PNT_2D(2, 0)),   // zero length, on the segment
    };
    for (std::size_t i = 0; i < others.size(); ++i) {
        PNT_2D out = sentinel;
        EXPECT_FALSE(base.intersect(others[i], out)) << "case " << i;
        EXPECT_FALSE(others[i].intersect(base, out)) << "case " << i;
        EXPECT_EQ(out.x, sentinel.x) << "case " << i;
        EXPECT_EQ(out.y, sentinel.y) << "case " << i;
    }
}

TEST(GeomTest, RandomSegmentsIntersectAsAnIndependentSolveSays) {
    const std::uint64_t seed = 51;
    std::mt19937_64 rng(seed);
    int crossings = 0;
    int misses = 0;
    for (int step = 0; step < 5000; ++step) {
        const LINE_2D first(PNT_2D(Uniform(rng, 0, 10), Uniform(rng, 0, 10)),
                            PNT_2D(Uniform(rng, 0, 10), Uniform(rng, 0, 10)));
        const LINE_2D second(PNT_2D(Uniform(rng, 0, 10), Uniform(rng, 0, 10)),
                             PNT_2D(Uniform(rng, 0, 10), Uniform(rng, 0, 10)));
        // Solve start1 + s·d1 = start2 + t·d2 in extended precision.
        const long double d1x = static_cast<long double>(first.end.x) - first.start.x;
        const long double d1y = static_cast<long double>(first.end.y) - first.start.y;
        const long double d2x = static_cast<long double>(second.end.x) - second.start.x;
        const long double d2y = static_cast<long double>(second.end.y) - second.start.y;
        const long double ex = static_cast<long double>(second.start.x) - first.start.x;
        const long double ey = static_cast<long double>(second.start.y) - first.start.y;
        const long double denominator = d1x * d2y - d1y * d2x;
        if (std::fabs(denominator) < 1e-3L) continue;
        const long double s = (ex * d2y - ey * d2x) / denominator;
        const long double t = (ex * d1y - ey * d1x) / denominator;
        const long double margin = 1e-9L;
        PNT_2D out;
        const bool found = first.intersect(second, out);
        PNT_2D swappedOut;
        ASSERT_EQ(second.intersect(first, swappedOut), found) << Where(seed, step);
        if (s > margin && s < 1 - margin && t > margin && t < 1 - margin) {
            ASSERT_TRUE(found) << Where(seed, step);
            EXPECT_NEAR(out.x, static_cast<double>(first.start.x + s * d1x), 1e-9)
                << Where(seed, step);
            EXPECT_NEAR(out.y, static_cast<double>(first.start.y + s * d1y), 1e-9)
                << Where(seed, step);
            EXPECT_NEAR(swappedOut.x, out.x, 1e-9) << Where(seed, step);
            EXPECT_NEAR(swappedOut.y, out.y, 1e-9) << Where(seed, step);
            ++crossings;
        } else if (s < -margin || s > 1 + margin || t < -margin || t > 1 + margin) {
            ASSERT_FALSE(found) << Where(seed, step);
            ++misses;
        }
    }
    EXPECT_GT(crossings, 500);
    EXPECT_GT(misses, 500);
}

TEST(GeomTest, PositiveSideOfPlaneIsStrict) {
    const PLANE_3D plane(0, 0, 1, -10);  // z = 10
    EXPECT_TRUE(plane.IsOnPositiveSide(PNT_3D(5, 5, 10.5)));
    EXPECT_FALSE(plane.IsOnPositiveSide(PNT_3D(5, 5, 10)));
    EXPECT_FALSE(plane.IsOnPositiveSide(PNT_3D(5, 5, 9)));
    const PLANE_3D tilted(1, -2, 0, 3);  // x − 2y + 3
    EXPECT_TRUE(tilted.IsOnPositiveSide(PNT_3D(0, 1, 100)));
    EXPECT_FALSE(tilted.IsOnPositiveSide(PNT_3D(1, 2, -100)));
}

TEST(GeomTest, WorldReferenceSystemIsRightHandedAndCopiesCompareEqual) {
    const CRightRefSys& world = CRightRefSys::s_WorldRefSys;
    EXPECT_EQ(world.GetOrigin().x, 0.0);
    EXPECT_EQ(world.GetOrigin().z, 0.0);
    EXPECT_EQ(world.GetAxisX().x, 1.0);
    EXPECT_EQ(world.GetAxisY().y, 1.0);
    EXPECT_EQ(world.GetAxisZ().z, 1.0);
    const CRightRefSys copy(world);
    EXPECT_TRUE(copy == world);
    EXPECT_TRUE(CRightRefSys() == world);
    // A system turned a quarter turn about z: its third axis is still up.
    const CRightRefSys turned(PNT_3D(10, 20, 30), VECTOR_3D(0, 1, 0), VECTOR_3D(-1, 0, 0));
    EXPECT_EQ(turned.GetAxisZ().x, 0.0);
    EXPECT_EQ(turned.GetAxisZ().y, 0.0);
    EXPECT_EQ(turned.GetAxisZ().z, 1.0);
    EXPECT_TRUE(turned != world);
    CRightRefSys assigned;
    assigned = turned;
    EXPECT_TRUE(assigned == turned);
}

TEST(GeomTest, VrtTriRepeatsTheFirstVertexAsTheFourth) {
    TVrtTri tri;
    tri.Set(PNT_3D(1, 2, 3), PNT_3D(4, 5, 6), PNT_3D(7, 8, 9));
    EXPECT_EQ(tri.p[0].x, 1.0);
    EXPECT_EQ(tri.p[1].y, 5.0);
    EXPECT_EQ(tri.p[2].z, 9.0);
    EXPECT_EQ(tri.p[3].x, tri.p[0].x);
    EXPECT_EQ(tri.p[3].y, tri.p[0].y);
    EXPECT_EQ(tri.p[3].z, tri.p[0].z);
}

}  // namespace
