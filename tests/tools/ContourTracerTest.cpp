// Contour tracing checked on surfaces whose contour lines are known exactly: planes, a cone,
// two hills, and a grid whose vertices lie exactly on the traced elevation.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "ContourTracer.h"
#include "SurfaceProject.h"
#include "ToolTestSupport.h"
#include "Workspace.h"

namespace {

using dtmtool::ContourLevels;
using dtmtool::ContourPolyline;
using dtmtool::TraceContours;
using dtmtool::Workspace;
using tool_test::PNT_2D;

const CTris& Network(Workspace& workspace, const dtmtool::TinSurface& surface) {
    return *dtmtool::AddSurfaceProject(workspace, surface)->GetTris();
}

// Twice the signed area: positive for a counter-clockwise ring.
double SignedArea(const std::vector<PNT_2D>& ring) {
    double area = 0.0;
    for (std::size_t i = 0; i + 1 < ring.size(); ++i)
        area += ring[i].x * ring[i + 1].y - ring[i + 1].x * ring[i].y;
    return area;
}

// h²/8 for the longest edge of the jittered unit grid of the cone tests, (1.6 · √2)² / 8.
constexpr double kConeTolerance = 0.65;

bool OnBorder(const PNT_2D& p, double xMax, double yMax) {
    const double tol = 1e-9;
    return std::fabs(p.x) < tol || std::fabs(p.y) < tol || std::fabs(p.x - xMax) < tol ||
           std::fabs(p.y - yMax) < tol;
}

TEST(ContourTracerTest, LevelsAreTheMultiplesOfTheIntervalInTheRange) {
    EXPECT_EQ(ContourLevels(0.3, 2.1, 0.5), (std::vector<double>{0.5, 1.0, 1.5, 2.0}));
    EXPECT_EQ(ContourLevels(-3.0, -1.0, 1.0), (std::vector<double>{-3.0, -2.0, -1.0}));
    EXPECT_EQ(ContourLevels(2.2, 2.4, 1.0), std::vector<double>{});
    // Each level is one product, so 3 × 0.1 is what it is, not 0.1 + 0.1 + 0.1.
    EXPECT_EQ(ContourLevels(0.25, 0.35, 0.1), std::vector<double>{3 * 0.1});
    EXPECT_THROW(ContourLevels(0.0, 1.0, 0.0), std::invalid_argument);
    EXPECT_THROW(ContourLevels(0.0, 1.0, -1.0), std::invalid_argument);
    EXPECT_THROW(ContourLevels(0.0, 1.0, std::nan("")), std::invalid_argument);
    EXPECT_THROW(ContourLevels(0.0, 1e9, 1e-3), std::length_error);
}

// Level numbers past 2^53 (or infinite) no longer step by one, however few levels they stand
// for: such intervals are refused instead of looping for ever.
TEST(ContourTracerTest, IntervalsTooSmallForTheElevationsThemselvesAreRefused) {
    EXPECT_THROW(ContourLevels(447.391, 526.014, 1e-308), std::length_error);
    EXPECT_THROW(ContourLevels(100.0, 100.0, 1e-15), std::length_error);
    EXPECT_THROW(ContourLevels(-100.0, -100.0, 1e-15), std::length_error);
    // Just below 2^53 the levels are still whole numbers apart.
    EXPECT_EQ(ContourLevels(9007199254740990.0, 9007199254740991.0, 1.0).size(), 2u);
    EXPECT_THROW(ContourLevels(9007199254740991.0, 9007199254740992.0, 1.0), std::length_error);
}

TEST(ContourTracerTest, TheLevelLimitAdmitsExactlyThatManyLevels) {
    EXPECT_EQ(ContourLevels(0.0, 9.0, 1.0, 10).size(), 10u);
    EXPECT_THROW(ContourLevels(0.0, 10.0, 1.0, 10), std::length_error);
    EXPECT_EQ(ContourLevels(0.5, 0.7, 1.0, 0).size(), 0u);
}

// A range that is empty, upside down or not finite (a network without elevations) has no
// levels, and asks for none rather than for endlessly many.
TEST(ContourTracerTest, ARangeThatIsNotFiniteOrIsUpsideDownHasNoLevels) {
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_TRUE(ContourLevels(5.0, 1.0, 1.0).empty());
    EXPECT_TRUE(ContourLevels(0.0, inf, 1.0).empty());
    EXPECT_TRUE(ContourLevels(-inf, 0.0, 1.0).empty());
    EXPECT_TRUE(ContourLevels(-inf, inf, 1.0).empty());
    EXPECT_TRUE(ContourLevels(std::nan(""), 3.0, 1.0).empty());
    EXPECT_TRUE(ContourLevels(0.0, std::nan(""), 1.0).empty());
}

// A triangle with a corner that is not finite has no contour segment: the lines never take a
// point that is not finite from it.
TEST(ContourTracerTest, TrianglesWithACornerThatIsNotFiniteAreLeftOut) {
    Workspace workspace;
    dtmtool::TinSurface surface =
        tool_test::GridSurface(6, 6, 1.0, 0.0, 0.0, [](double x, double) { return x; });
    surface.points[24].z = std::numeric_limits<double>::infinity();  // (3, 3), inside
    const CTris& tris = Network(workspace, surface);
    // Level 3.5 crosses the triangles round (3, 3): those are left out, so the line has a gap.
    const std::vector<ContourPolyline> lines = TraceContours(tris, 3.5);
    ASSERT_EQ(lines.size(), 2u);
    for (const ContourPolyline& line : lines)
        for (const PNT_2D& p : line.points) {
            EXPECT_TRUE(std::isfinite(p.x) && std::isfinite(p.y));
            EXPECT_DOUBLE_EQ(p.x, 3.5);
        }
}

TEST(ContourTracerTest, APlaneGivesOneStraightLinePerLevelFromBorderToBorder) {
    Workspace workspace;
    const auto plane = [](double x, double y) { return 0.3 * x + 0.2 * y + 5.0; };
    const CTris& tris =
        Network(workspace, tool_test::GridSurface(20, 15, 1.0, 0.0, 0.0, plane, 0.3, 11));
    for (const double z : ContourLevels(tris.GetMinQuota(), tris.GetMaxQuota(), 0.7)) {
        const std::vector<ContourPolyline> lines = TraceContours(tris, z);
        // The lowest and highest level may touch only a corner vertex.
        if (z <= tris.GetMinQuota() + 0.3 || z >= tris.GetMaxQuota() - 0.3) continue;
        ASSERT_EQ(lines.size(), 1u) << z;
        const ContourPolyline& line = lines[0];
        EXPECT_FALSE(line.closed);
        for (const PNT_2D& p : line.points) ASSERT_NEAR(plane(p.x, p.y), z, 1e-9);
        EXPECT_TRUE(OnBorder(line.points.front(), 20.0, 15.0)) << z;
        EXPECT_TRUE(OnBorder(line.points.back(), 20.0, 15.0)) << z;
        // Higher ground on the left: the gradient (0.3, 0.2) points to the left of the line.
        const double dx = line.points.back().x - line.points.front().x;
        const double dy = line.points.back().y - line.points.front().y;
        EXPECT_GT(dx * 0.2 - dy * 0.3, 0.0) << z;
        for (std::size_t i = 1; i < line.points.size(); ++i)
            EXPECT_FALSE(line.points[i].x == line.points[i - 1].x &&
                         line.points[i].y == line.points[i - 1].y);
    }
}

TEST(ContourTracerTest, AConeGivesClosedCirclesTurningCounterClockwiseAroundItsTop) {
    Workspace workspace;
    const PNT_2D top(20.3, 19.7);
    const auto cone = [&](double x, double y) { return 100.0 - std::hypot(x - top.x, y - top.y); };
    const CTris& tris =
        Network(workspace, tool_test::GridSurface(40, 40, 1.0, 0.0, 0.0, cone, 0.3, 4));
    for (const double radius : {5.0, 10.5, 15.0}) {
        const std::vector<ContourPolyline> lines = TraceContours(tris, 100.0 - radius);
        ASSERT_EQ(lines.size(), 1u) << radius;
        const ContourPolyline& line = lines[0];
        EXPECT_TRUE(line.closed);
        EXPECT_EQ(line.points.front().x, line.points.back().x);
        EXPECT_EQ(line.points.front().y, line.points.back().y);
        double length = 0.0;
        for (std::size_t i = 0; i < line.points.size(); ++i) {
            // The distance to the top is convex, so interpolating it linearly along an edge
            // overestimates it: the traced points lie on or inside the circle, by at most
            // h²/(8 r) for edges of length h, here at most (1 + 2 · 0.3) · √2 long.
            const double distance = line.points[i].dist(top);
            EXPECT_LE(distance, radius + 1e-9);
            EXPECT_GE(distance, radius - kConeTolerance / radius);
            if (i > 0) length += line.points[i].dist(line.points[i - 1]);
        }
        EXPECT_NEAR(length, 2.0 * M_PI * radius, 0.01 * 2.0 * M_PI * radius);
        EXPECT_GT(SignedArea(line.points), 0.0);
    }
}

TEST(ContourTracerTest, TwoHillsGiveTwoLinesAndAPassLevelJoinsThem) {
    Workspace workspace;
    const auto hills = [](double x, double y) {
        return 10.0 * std::exp(-((x - 8) * (x - 8) + (y - 10) * (y - 10)) / 18.0) +
               10.0 * std::exp(-((x - 22) * (x - 22) + (y - 10) * (y - 10)) / 18.0);
    };
    const CTris& fine =
        Network(workspace, tool_test::GridSurface(60, 40, 0.5, 0.0, 0.0, hills, 0.2, 8));
    EXPECT_EQ(TraceContours(fine, 5.0).size(), 2u);
    for (const ContourPolyline& line : TraceContours(fine, 5.0)) EXPECT_TRUE(line.closed);
    // The pass between the hills lies far below 1, so at 0.5 one line surrounds both.
    const std::vector<ContourPolyline> low = TraceContours(fine, 0.5);
    ASSERT_EQ(low.size(), 1u);
    EXPECT_TRUE(low[0].closed);
}

TEST(ContourTracerTest, VerticesExactlyAtTheLevelCountAsAboveAndGiveOneCleanLine) {
    Workspace workspace;
    // Every vertex has a whole elevation, so level 10 runs through vertices and along edges.
    const CTris& tris = Network(
        workspace,
        tool_test::GridSurface(12, 12, 1.0, 0.0, 0.0, [](double x, double y) { return x + y; }));
    const std::vector<ContourPolyline> lines = TraceContours(tris, 10.0);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_FALSE(lines[0].closed);
    for (const PNT_2D& p : lines[0].points) EXPECT_EQ(p.x + p.y, 10.0);
    EXPECT_GE(lines[0].points.size(), 2u);
    // The line runs from one border to the other, wherever it passes vertices.
    EXPECT_NEAR(lines[0].points.front().dist(lines[0].points.back()), 10.0 * std::sqrt(2.0), 1e-12);
}

TEST(ContourTracerTest, LinesEndWhereTheNetworkHasAHole) {
    Workspace workspace;
    dtmtool::TinSurface surface =
        tool_test::GridSurface(10, 10, 1.0, 0.0, 0.0, [](double x, double) { return x; });
    // Leave out the triangles of the cells in the middle column band 4 <= x <= 6, 4 <= y <= 6.
    std::vector<std::array<int, 3>> kept;
    for (const auto& face : surface.faces) {
        double cx = 0.0, cy = 0.0;
        for (const int v : face) {
            cx += surface.points[static_cast<std::size_t>(v)].x / 3.0;
            cy += surface.points[static_cast<std::size_t>(v)].y / 3.0;
        }
        if (!(cx > 4 && cx < 6 && cy > 4 && cy < 6)) kept.push_back(face);
    }
    surface.faces = kept;
    const std::vector<ContourPolyline> lines = TraceContours(Network(workspace, surface), 5.5);
    ASSERT_EQ(lines.size(), 2u);
    for (const ContourPolyline& line : lines) {
        EXPECT_FALSE(line.closed);
        for (const PNT_2D& p : line.points) EXPECT_NEAR(p.x, 5.5, 1e-12);
    }
}

TEST(ContourTracerTest, TheRangeEndsFollowTheRuleThatTheLevelCountsAsAbove) {
    Workspace workspace;
    const CTris& tris = Network(
        workspace, tool_test::GridSurface(3, 3, 1.0, 0.0, 0.0, [](double x, double) { return x; }));
    EXPECT_TRUE(TraceContours(tris, -1.0).empty());
    EXPECT_TRUE(TraceContours(tris, 3.5).empty());
    // At the lowest elevation nothing lies below the level: no line.
    EXPECT_TRUE(TraceContours(tris, 0.0).empty());
    // At the highest, the border at that elevation separates it from the ground below.
    const std::vector<ContourPolyline> top = TraceContours(tris, 3.0);
    ASSERT_EQ(top.size(), 1u);
    EXPECT_EQ(top[0].points.size(), 4u);
    for (const PNT_2D& p : top[0].points) EXPECT_EQ(p.x, 3.0);
}

}  // namespace
