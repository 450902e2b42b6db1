#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/profile/CCalcIntersect.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/Tolerances.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "CCalcIntersectTestAccess.h"
#include "OcTreeChecker.h"

namespace {

using dtm_test::MakeGridNetwork;
using dtm_test::MakeTriangleSoup;
using dtm_test::RandomNetwork;
using dtm_test::TestProject;
using dtm_test::TriIndices;
using kor::geom::LINE_2D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

using Profile = std::vector<TLineProgPnt>;

// The merge tolerance restated: distances within |d| * 1e-12 + 1e-12 of each other are one.
double MergeTolerance(double prog) {
    return std::fabs(prog) * 1e-12 + 1e-12;
}

// Position, distance and elevation agreement between this test's own arithmetic and the
// library's, on coordinates of the order of 100: far above rounding, far below any real gap.
constexpr double kMatchTolerance = 1e-9;

Profile CalcProfile(const TestProject& project, const LINE_2D& line) {
    Profile out;
    CCalcIntersect(*project.Prj()).CalcQuotedPnts(line, out);
    return out;
}

TLineProgPnt MakePnt(double prog, double z = 0.0) {
    TLineProgPnt point;
    point.pnt = PNT_3D(prog, 0.0, z);
    point.prog = prog;
    return point;
}

bool Identical(const Profile& a, const Profile& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i].prog != b[i].prog || a[i].pnt.x != b[i].pnt.x || a[i].pnt.y != b[i].pnt.y ||
            a[i].pnt.z != b[i].pnt.z) {
            return false;
        }
    }
    return true;
}

std::string Describe(const LINE_2D& line) {
    return "segment (" + std::to_string(line.start.x) + ", " + std::to_string(line.start.y) +
           ") -> (" + std::to_string(line.end.x) + ", " + std::to_string(line.end.y) + ")";
}

// ---- The profile computed independently, by brute force over every edge --------------------

double Cross(const PNT_2D& o, const PNT_2D& a, const PNT_2D& b) {
    return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

double Dot(const PNT_2D& o, const PNT_2D& a, const PNT_2D& b) {
    return (a.x - o.x) * (b.x - o.x) + (a.y - o.y) * (b.y - o.y);
}

int Sign(double v) {
    return (v > 0.0) - (v < 0.0);
}

bool SamePlan(const PNT_2D& a, const PNT_2D& b) {
    return a.x == b.x && a.y == b.y;
}

double PlanDistance(const PNT_2D& a, const PNT_2D& b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

// True when p lies on the closed segment u-v (a point segment holds only its own point).
bool OnClosedSegment(const PNT_2D& u, const PNT_2D& v, const PNT_2D& p) {
    if (SamePlan(u, v)) return SamePlan(u, p);
    return Cross(u, v, p) == 0.0 && Dot(u, v, p) >= 0.0 && Dot(v, u, p) >= 0.0;
}

// The elevation at p, a point of the edge a-b, by its share of the edge's plan length.
double ElevationOnEdge(const PNT_3D& a, const PNT_3D& b, const PNT_2D& p) {
    const double share = PlanDistance(a, p) / PlanDistance(a, b);
    return a.z + share * (b.z - a.z);
}

// The points where the profile segment s-e meets the edge a-b, each with the elevation
// interpolated along the edge. A crossing or a touch gives one point; a segment lying along the
// edge gives the two ends of the overlap (in a triangle with area the other edge at such a
// vertex meets the segment there too). An edge without plan length gives nothing.
std::vector<PNT_3D> EdgeMeetings(const PNT_2D& s, const PNT_2D& e, const PNT_3D& a,
                                 const PNT_3D& b) {
    if (SamePlan(a, b)) return {};
    const double sideA = Cross(s, e, a);
    const double sideB = Cross(s, e, b);
    const double sideS = Cross(a, b, s);
    const double sideE = Cross(a, b, e);
    std::vector<PNT_2D> points;
    if ((sideA == 0.0 && sideB == 0.0) || (sideS == 0.0 && sideE == 0.0)) {
        for (const PNT_2D& p : {s, e}) {
            if (OnClosedSegment(a, b, p)) points.push_back(p);
        }
        for (const PNT_2D& p : {static_cast<const PNT_2D&>(a), static_cast<const PNT_2D&>(b)}) {
            if (OnClosedSegment(s, e, p)) points.push_back(p);
        }
    } else if (Sign(sideA) * Sign(sideB) <= 0 && Sign(sideS) * Sign(sideE) <= 0) {
        if (sideA == 0.0) {
            points.push_back(a);
        } else if (sideB == 0.0) {
            points.push_back(b);
        } else if (sideS == 0.0) {
            points.push_back(s);
        } else if (sideE == 0.0) {
            points.push_back(e);
        } else {
            const double t = sideA / (sideA - sideB);
            points.emplace_back(a.x + t * (b.x - a.x), a.y + t * (b.y - a.y));
        }
    }
    std::vector<PNT_3D> meetings;
    for (const PNT_2D& p : points) meetings.emplace_back(p, ElevationOnEdge(a, b, p));
    return meetings;
}

std::vector<PNT_3D> TriangleVertices(const CTris& tris, int tri) {
    std::vector<PNT_3D> v;
    for (int k = 0; k < 3; ++k) v.push_back(tris.GetTriVrtAt(tris.GetTriAt(tri)->GetVerIndex(k)));
    return v;
}

// The elevation at p of every triangle with plan area that holds p (boundary included), by
// barycentric weights.
std::vector<double> ElevationsAt(const CTris& tris, const PNT_2D& p) {
    std::vector<double> elevations;
    for (int tri = 0; tri < tris.GetNoTris(); ++tri) {
        const std::vector<PNT_3D> v = TriangleVertices(tris, tri);
        const double area = Cross(v[0], v[1], v[2]);
        if (area == 0.0) continue;
        const double w0 = Cross(v[1], v[2], p) / area;
        const double w1 = Cross(v[2], v[0], p) / area;
        const double w2 = Cross(v[0], v[1], p) / area;
        if (w0 < 0.0 || w1 < 0.0 || w2 < 0.0) continue;
        elevations.push_back(w0 * v[0].z + w1 * v[1].z + w2 * v[2].z);
    }
    return elevations;
}

struct ExpectedPnt {
    PNT_3D pnt;
    double prog;
};

// Every point the profile may draw from, with repeats, sorted by distance: every meeting of the
// segment with every triangle edge, and each end point with the elevation of every triangle
// holding it, or without elevation when none does.
std::vector<ExpectedPnt> BruteForceProfile(const CTris& tris, const LINE_2D& line) {
    const PNT_2D& s = line.start;
    const PNT_2D& e = line.end;
    std::vector<ExpectedPnt> expected;
    for (int tri = 0; tri < tris.GetNoTris(); ++tri) {
        const std::vector<PNT_3D> v = TriangleVertices(tris, tri);
        for (int k = 0; k < 3; ++k) {
            for (const PNT_3D& p : EdgeMeetings(s, e, v[k], v[(k + 1) % 3])) {
                expected.push_back({p, PlanDistance(p, s)});
            }
        }
    }
    for (const PNT_2D& end : {s, e}) {
        std::vector<double> elevations = ElevationsAt(tris, end);
        if (elevations.empty()) elevations.push_back(UNDEFINED_QUOTE);
        for (double z : elevations) expected.push_back({PNT_3D(end, z), PlanDistance(end, s)});
    }
    std::sort(expected.begin(), expected.end(),
              [](const ExpectedPnt& a, const ExpectedPnt& b) { return a.prog < b.prog; });
    return expected;
}

bool SamePlace(const TLineProgPnt& point, const ExpectedPnt& expected) {
    return std::fabs(point.prog - expected.prog) <= kMatchTolerance &&
           std::fabs(point.pnt.x - expected.pnt.x) <= kMatchTolerance &&
           std::fabs(point.pnt.y - expected.pnt.y) <= kMatchTolerance;
}

// An undefined elevation must be the sentinel itself; a defined one must agree.
bool SameElevation(double z, double expectedZ) {
    if (dtm::IsUndefinedQuote(expectedZ)) return z == UNDEFINED_QUOTE;
    return std::fabs(z - expectedZ) <= kMatchTolerance;
}

// Checks @p profile against the brute-force computation: it starts exactly at the start with
// distance 0, ends at the end's distance, is sorted with no two points within the merge
// tolerance, each of its points is one of the expected points with that point's elevation,
// and it holds exactly one point per group of expected points at one place.
void ExpectMatchesBruteForce(const CTris& tris, const LINE_2D& line, const Profile& profile) {
    SCOPED_TRACE(Describe(line));
    const std::vector<ExpectedPnt> expected = BruteForceProfile(tris, line);
    ASSERT_FALSE(profile.empty());
    EXPECT_EQ(profile.front().prog, 0.0);
    EXPECT_EQ(profile.front().pnt.x, line.start.x);
    EXPECT_EQ(profile.front().pnt.y, line.start.y);
    EXPECT_NEAR(profile.back().prog, PlanDistance(line.end, line.start), kMatchTolerance);

    for (std::size_t i = 1; i < profile.size(); ++i) {
        EXPECT_GT(profile[i].prog - profile[i - 1].prog, MergeTolerance(profile[i - 1].prog))
            << "points " << i - 1 << " and " << i;
    }
    for (const TLineProgPnt& point : profile) {
        const bool matched =
            std::any_of(expected.begin(), expected.end(), [&](const ExpectedPnt& candidate) {
                return SamePlace(point, candidate) && SameElevation(point.pnt.z, candidate.pnt.z);
            });
        EXPECT_TRUE(matched) << "unexpected point (" << point.pnt.x << ", " << point.pnt.y << ", "
                             << point.pnt.z << ") at " << point.prog;
    }
    std::size_t groups = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (i == 0 || expected[i].prog - expected[i - 1].prog > kMatchTolerance) ++groups;
        const bool present =
            std::any_of(profile.begin(), profile.end(), [&](const TLineProgPnt& point) {
                return std::fabs(point.prog - expected[i].prog) <= kMatchTolerance;
            });
        EXPECT_TRUE(present) << "missing point (" << expected[i].pnt.x << ", " << expected[i].pnt.y
                             << ") at " << expected[i].prog;
    }
    EXPECT_EQ(profile.size(), groups);
}

// The profile through the public entry, checked against the brute force, and identical to the
// full scan that stays the reference.
void CheckProfile(const TestProject& project, const LINE_2D& line) {
    const Profile profile = CalcProfile(project, line);
    ExpectMatchesBruteForce(project.Tris(), line, profile);
    Profile scanned;
    CCalcIntersectTestAccess::Scan(CCalcIntersect(*project.Prj()), line, scanned);
    EXPECT_TRUE(Identical(profile, scanned)) << Describe(line);
}

// A grid network whose vertices are moved at random inside their cells: a proper network with
// shared edges and no vertex on a lattice.
RandomNetwork MakeJitteredGrid(unsigned seed, int n, double step) {
    RandomNetwork network = MakeGridNetwork(n, 0.0, 0.0, step);
    std::mt19937 random(seed);
    // Within a fifth of a cell every triangle keeps its orientation, so none overlaps another.
    std::uniform_real_distribution<double> jitter(-0.2 * step, 0.2 * step);
    for (PNT_3D& vertex : network.vertices) {
        vertex.x += jitter(random);
        vertex.y += jitter(random);
    }
    return network;
}

LINE_2D RandomSegment(std::mt19937& random, double low, double high) {
    std::uniform_real_distribution<double> coordinate(low, high);
    const PNT_2D start(coordinate(random), coordinate(random));
    return LINE_2D(start, PNT_2D(coordinate(random), coordinate(random)));
}

// ---- Profiles on random networks against the brute force -----------------------------------

TEST(CCalcIntersect, ProfilesOnTriangleSoupsMatchBruteForce) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TestProject project;
        const RandomNetwork network = MakeTriangleSoup(seed, 40, 120, 0.0, 0.0, 100.0, 50.0);
        project.Fill(network.vertices, network.triangles);
        std::mt19937 random(seed * 7919u);
        for (int segment = 0; segment < 20; ++segment) {
            SCOPED_TRACE("segment " + std::to_string(segment));
            // Wider than the network, so that some ends lie outside it.
            CheckProfile(project, RandomSegment(random, -20.0, 120.0));
        }
    }
}

TEST(CCalcIntersect, ProfilesOnJitteredGridsMatchBruteForce) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TestProject project;
        const RandomNetwork network = MakeJitteredGrid(seed, 12, 10.0);
        project.Fill(network.vertices, network.triangles);
        std::mt19937 random(seed * 104729u);
        for (int segment = 0; segment < 20; ++segment) {
            SCOPED_TRACE("segment " + std::to_string(segment));
            CheckProfile(project, RandomSegment(random, -20.0, 140.0));
        }
    }
}

// Segments between lattice points of a regular grid network pass through vertices, run along
// edges, start and end on vertices and edges, and sometimes have zero length; the lattice keeps
// this test's arithmetic exact there.
TEST(CCalcIntersect, ProfilesBetweenLatticePointsOfAGridMatchBruteForce) {
    TestProject project;
    const RandomNetwork network = MakeGridNetwork(6, 0.0, 0.0, 10.0);
    project.Fill(network.vertices, network.triangles);
    std::mt19937 random(31);
    std::uniform_int_distribution<int> lattice(-3, 15);
    for (int segment = 0; segment < 300; ++segment) {
        SCOPED_TRACE("segment " + std::to_string(segment));
        const PNT_2D start(5.0 * lattice(random), 5.0 * lattice(random));
        const PNT_2D end(5.0 * lattice(random), 5.0 * lattice(random));
        CheckProfile(project, LINE_2D(start, end));
    }
}

TEST(CCalcIntersect, SegmentsAlongEdgesOfAJitteredGridGiveTheirEndVertices) {
    TestProject project;
    const RandomNetwork network = MakeJitteredGrid(3, 6, 10.0);
    project.Fill(network.vertices, network.triangles);
    for (const TriIndices& tri : network.triangles) {
        ASSERT_GT(Cross(network.vertices[static_cast<std::size_t>(tri[0])],
                        network.vertices[static_cast<std::size_t>(tri[1])],
                        network.vertices[static_cast<std::size_t>(tri[2])]),
                  0.0);
    }
    for (const TriIndices& tri : network.triangles) {
        for (int k = 0; k < 3; ++k) {
            const PNT_3D& a = network.vertices[static_cast<std::size_t>(tri[k])];
            const PNT_3D& b = network.vertices[static_cast<std::size_t>(tri[(k + 1) % 3])];
            const LINE_2D line(a, b);
            const Profile profile = CalcProfile(project, line);
            SCOPED_TRACE(Describe(line));
            ASSERT_EQ(profile.size(), 2u);
            EXPECT_EQ(profile[0].pnt.z, a.z);
            EXPECT_EQ(profile[1].pnt.z, b.z);
            EXPECT_EQ(profile[1].prog, a.dist(b));
        }
    }
}

// ---- Hand-made networks --------------------------------------------------------------------

// Two triangles over the square (0, 0)-(10, 10), sharing the diagonal (10, 0)-(0, 10), each
// with its own plane: z = x + 2y below the diagonal, and through (10, 10, 50) above it.
void FillSquare(TestProject& project) {
    project.Fill({PNT_3D(0, 0, 0), PNT_3D(10, 0, 10), PNT_3D(0, 10, 20), PNT_3D(10, 10, 50)},
                 {{0, 1, 2}, {1, 3, 2}});
}

TEST(CCalcIntersect, SegmentEntirelyOutsideGivesTwoUndefinedEnds) {
    TestProject project;
    FillSquare(project);
    const Profile profile = CalcProfile(project, LINE_2D(PNT_2D(20, 0), PNT_2D(23, 4)));
    ASSERT_EQ(profile.size(), 2u);
    EXPECT_EQ(profile[0].prog, 0.0);
    EXPECT_EQ(profile[0].pnt.x, 20.0);
    EXPECT_EQ(profile[0].pnt.y, 0.0);
    EXPECT_EQ(profile[0].pnt.z, 1.7e200);
    EXPECT_EQ(profile[1].prog, 5.0);
    EXPECT_EQ(profile[1].pnt.x, 23.0);
    EXPECT_EQ(profile[1].pnt.y, 4.0);
    EXPECT_EQ(profile[1].pnt.z, 1.7e200);
}

TEST(CCalcIntersect, NetworkWithoutTrianglesGivesTwoUndefinedEnds) {
    TestProject project;
    project.Fill({PNT_3D(0, 0, 0), PNT_3D(10, 0, 10), PNT_3D(0, 10, 20)}, {});
    const Profile profile = CalcProfile(project, LINE_2D(PNT_2D(1, 1), PNT_2D(4, 5)));
    ASSERT_EQ(profile.size(), 2u);
    EXPECT_EQ(profile[0].prog, 0.0);
    EXPECT_EQ(profile[0].pnt.z, UNDEFINED_QUOTE);
    EXPECT_EQ(profile[1].prog, 5.0);
    EXPECT_EQ(profile[1].pnt.z, UNDEFINED_QUOTE);
}

TEST(CCalcIntersect, SegmentInsideOneTriangleGivesItsEndsWithInterpolatedElevations) {
    TestProject project;
    FillSquare(project);
    const Profile profile = CalcProfile(project, LINE_2D(PNT_2D(1, 1), PNT_2D(4, 5)));
    ASSERT_EQ(profile.size(), 2u);
    EXPECT_EQ(profile[0].prog, 0.0);
    EXPECT_NEAR(profile[0].pnt.z, 3.0, 1e-12);
    EXPECT_EQ(profile[1].pnt.x, 4.0);
    EXPECT_EQ(profile[1].pnt.y, 5.0);
    EXPECT_EQ(profile[1].prog, 5.0);
    EXPECT_NEAR(profile[1].pnt.z, 14.0, 1e-12);
}

TEST(CCalcIntersect, CrossingOfASharedEdgeAppearsOnce) {
    TestProject project;
    FillSquare(project);
    const LINE_2D line(PNT_2D(2, 2), PNT_2D(8, 8));
    const Profile profile = CalcProfile(project, line);
    ASSERT_EQ(profile.size(), 3u);
    EXPECT_NEAR(profile[0].pnt.z, 6.0, 1e-12);
    EXPECT_NEAR(profile[1].pnt.x, 5.0, 1e-12);
    EXPECT_NEAR(profile[1].pnt.y, 5.0, 1e-12);
    EXPECT_NEAR(profile[1].prog, 3.0 * std::sqrt(2.0), 1e-12);
    // Halfway along the diagonal from (10, 0, 10) to (0, 10, 20).
    EXPECT_NEAR(profile[1].pnt.z, 15.0, 1e-12);
    // Above the diagonal the plane is z = -20 + 3x + 4y.
    EXPECT_NEAR(profile[2].pnt.z, 36.0, 1e-12);
    ExpectMatchesBruteForce(project.Tris(), line, profile);
}

TEST(CCalcIntersect, SegmentLeavingTheNetworkEndsWithoutElevation) {
    TestProject project;
    FillSquare(project);
    const LINE_2D line(PNT_2D(5, 2), PNT_2D(15, 2));
    const Profile profile = CalcProfile(project, line);
    ASSERT_EQ(profile.size(), 4u);
    EXPECT_NEAR(profile[0].pnt.z, 9.0, 1e-12);
    // The shared diagonal x + y = 10.
    EXPECT_NEAR(profile[1].pnt.x, 8.0, 1e-12);
    EXPECT_NEAR(profile[1].prog, 3.0, 1e-12);
    EXPECT_NEAR(profile[1].pnt.z, 12.0, 1e-12);
    // The outline edge x = 10 runs from (10, 0, 10) to (10, 10, 50).
    EXPECT_NEAR(profile[2].pnt.x, 10.0, 1e-12);
    EXPECT_NEAR(profile[2].prog, 5.0, 1e-12);
    EXPECT_NEAR(profile[2].pnt.z, 18.0, 1e-12);
    EXPECT_EQ(profile[3].pnt.x, 15.0);
    EXPECT_EQ(profile[3].prog, 10.0);
    EXPECT_EQ(profile[3].pnt.z, UNDEFINED_QUOTE);
    ExpectMatchesBruteForce(project.Tris(), line, profile);
}

TEST(CCalcIntersect, ZeroLengthSegmentGivesOnePoint) {
    TestProject project;
    const RandomNetwork network = MakeGridNetwork(4, 0.0, 0.0, 10.0);
    project.Fill(network.vertices, network.triangles);
    const PNT_3D& vertex = network.vertices[6];  // (10, 10), an interior vertex of six triangles
    const struct {
        const char* where;
        PNT_2D point;
    } cases[] = {{"inside a triangle", PNT_2D(13, 16)},
                 {"on a shared edge", PNT_2D(15, 15)},
                 {"on an interior vertex", vertex},
                 {"outside", PNT_2D(-3, 7)}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        const LINE_2D line(c.point, c.point);
        const Profile profile = CalcProfile(project, line);
        ASSERT_EQ(profile.size(), 1u);
        EXPECT_EQ(profile[0].prog, 0.0);
        EXPECT_EQ(profile[0].pnt.x, c.point.x);
        EXPECT_EQ(profile[0].pnt.y, c.point.y);
        ExpectMatchesBruteForce(project.Tris(), line, profile);
    }
    const Profile atVertex = CalcProfile(project, LINE_2D(vertex, vertex));
    EXPECT_EQ(atVertex[0].pnt.z, vertex.z);
    EXPECT_EQ(CalcProfile(project, LINE_2D(PNT_2D(-3, 7), PNT_2D(-3, 7)))[0].pnt.z,
              UNDEFINED_QUOTE);
}

TEST(CCalcIntersect, SegmentAlongAGridLineGivesEachVertexOnce) {
    TestProject project;
    const RandomNetwork network = MakeGridNetwork(4, 0.0, 0.0, 10.0);
    project.Fill(network.vertices, network.triangles);
    const Profile profile = CalcProfile(project, LINE_2D(PNT_2D(5, 20), PNT_2D(35, 20)));
    const std::vector<double> progs = {0, 5, 15, 25, 30};
    ASSERT_EQ(profile.size(), progs.size());
    for (std::size_t i = 0; i < progs.size(); ++i) {
        EXPECT_EQ(profile[i].prog, progs[i]) << i;
        EXPECT_EQ(profile[i].pnt.y, 20.0) << i;
    }
    // Row 2 of the grid is y = 20; its vertex in column c has index 2 * 5 + c.
    for (int column = 1; column <= 3; ++column) {
        EXPECT_EQ(profile[static_cast<std::size_t>(column)].pnt.z,
                  network.vertices[static_cast<std::size_t>(10 + column)].z)
            << column;
    }
    const double halfway = (network.vertices[10].z + network.vertices[11].z) / 2.0;
    EXPECT_NEAR(profile[0].pnt.z, halfway, 1e-12);
}

TEST(CCalcIntersect, SegmentThroughVerticesAcrossTheDiagonals) {
    TestProject project;
    const RandomNetwork network = MakeGridNetwork(4, 0.0, 0.0, 10.0);
    project.Fill(network.vertices, network.triangles);
    // The line x + y = 40 passes the vertices (0, 40), (10, 30), ..., (40, 0) and crosses the
    // cell diagonals halfway between them.
    const Profile profile = CalcProfile(project, LINE_2D(PNT_2D(0, 40), PNT_2D(40, 0)));
    ASSERT_EQ(profile.size(), 9u);
    const auto z = [&](int column, int row) {
        return network.vertices[static_cast<std::size_t>(row * 5 + column)].z;
    };
    for (int i = 0; i <= 8; ++i) {
        const TLineProgPnt& point = profile[static_cast<std::size_t>(i)];
        EXPECT_NEAR(point.prog, i * 5.0 * std::sqrt(2.0), 1e-12) << i;
        if (i % 2 == 0) {
            EXPECT_EQ(point.pnt.z, z(i / 2, 4 - i / 2)) << i;
        } else {
            // The diagonal of the cell whose low corner is (column, row) = (i / 2, 3 - i / 2).
            const int column = i / 2;
            const int row = 3 - i / 2;
            EXPECT_NEAR(point.pnt.z, (z(column, row) + z(column + 1, row + 1)) / 2.0, 1e-12) << i;
        }
    }
}

// ---- Points at nearly one distance ---------------------------------------------------------

TEST(CCalcIntersect, StartJustOutsideKeepsNoElevationOverANearbyCrossing) {
    TestProject project;
    FillSquare(project);
    // The outline edge x = 0 is crossed 1e-13 after the start: within the tolerance at 0.
    const LINE_2D line(PNT_2D(-1e-13, 1), PNT_2D(4, 1));
    const Profile profile = CalcProfile(project, line);
    ASSERT_EQ(profile.size(), 2u);
    EXPECT_EQ(profile[0].pnt.x, -1e-13);
    EXPECT_EQ(profile[0].pnt.z, UNDEFINED_QUOTE);
    EXPECT_NEAR(profile[1].pnt.z, 6.0, 1e-12);
}

TEST(CCalcIntersect, CrossingJustBeforeAnOutsideEndStandsForTheEnd) {
    TestProject project;
    FillSquare(project);
    // The end lies 1e-13 beyond the outline edge x = 0: the crossing comes first and survives.
    const LINE_2D line(PNT_2D(5, 1), PNT_2D(-1e-13, 1));
    const Profile profile = CalcProfile(project, line);
    ASSERT_EQ(profile.size(), 2u);
    EXPECT_EQ(profile[1].pnt.x, 0.0);
    EXPECT_EQ(profile[1].prog, 5.0);
    EXPECT_NEAR(profile[1].pnt.z, 2.0, 1e-12);
}

TEST(CCalcIntersect, StartOffTheNetworkKeepsNoElevationOverACrossingAtTheStart) {
    // A triangle without area holds no point, yet its edges along y = 0 meet the segment exactly
    // at its start: the crossing at distance 0 does not lend the start an elevation.
    TestProject project;
    project.Fill({PNT_3D(0, 0, 10), PNT_3D(1, 0, 20), PNT_3D(2, 0, 30)}, {{0, 1, 2}});
    const LINE_2D line(PNT_2D(0.5, 0), PNT_2D(0.5, 1));
    const Profile profile = CalcProfile(project, line);
    ASSERT_EQ(profile.size(), 2u);
    EXPECT_EQ(profile[0].prog, 0.0);
    EXPECT_EQ(profile[0].pnt.x, 0.5);
    EXPECT_EQ(profile[0].pnt.z, UNDEFINED_QUOTE);
    EXPECT_EQ(profile[1].prog, 1.0);
    EXPECT_EQ(profile[1].pnt.z, UNDEFINED_QUOTE);
    Profile scanned;
    CCalcIntersectTestAccess::Scan(CCalcIntersect(*project.Prj()), line, scanned);
    EXPECT_TRUE(Identical(profile, scanned));
}

TEST(CCalcIntersect, StartWithAnInfiniteCoordinateIsAtDistanceZero) {
    // Its distance from itself would be inf - inf; the start is at 0 by definition.
    TestProject project;
    FillSquare(project);
    const double inf = std::numeric_limits<double>::infinity();
    const Profile profile = CalcProfile(project, LINE_2D(PNT_2D(inf, 0.5), PNT_2D(0.5, 1)));
    ASSERT_FALSE(profile.empty());
    EXPECT_EQ(profile[0].pnt.x, inf);
    EXPECT_EQ(profile[0].prog, 0.0);
    EXPECT_EQ(profile[0].pnt.z, UNDEFINED_QUOTE);
    EXPECT_EQ(profile.back().pnt.x, 0.5);
    EXPECT_EQ(profile.back().prog, inf);
}

TEST(SortAndDeleteDuplicates, FewerThanTwoPointsAreLeftAsTheyAre) {
    Profile none;
    CCalcIntersectTestAccess::SortAndDeleteDuplicates(none);
    EXPECT_TRUE(none.empty());
    Profile one = {MakePnt(3.0, 7.0)};
    CCalcIntersectTestAccess::SortAndDeleteDuplicates(one);
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one[0].prog, 3.0);
    EXPECT_EQ(one[0].pnt.z, 7.0);
}

TEST(SortAndDeleteDuplicates, SortsByDistance) {
    Profile pnts = {MakePnt(3.0), MakePnt(1.0), MakePnt(2.0), MakePnt(0.0)};
    CCalcIntersectTestAccess::SortAndDeleteDuplicates(pnts);
    ASSERT_EQ(pnts.size(), 4u);
    for (std::size_t i = 0; i < pnts.size(); ++i) EXPECT_EQ(pnts[i].prog, double(i));
}

TEST(SortAndDeleteDuplicates, DistancesWithinTheToleranceAreMergedIntoTheEarlier) {
    const double base = 10.0;
    const double tolerance = base * 1e-12 + 1e-12;  // 1.1e-11
    Profile pnts = {MakePnt(base + 0.9 * tolerance, 2.0), MakePnt(base, 1.0)};
    CCalcIntersectTestAccess::SortAndDeleteDuplicates(pnts);
    ASSERT_EQ(pnts.size(), 1u);
    EXPECT_EQ(pnts[0].prog, base);
    EXPECT_EQ(pnts[0].pnt.z, 1.0);

    Profile apart = {MakePnt(base + 1.1 * tolerance, 2.0), MakePnt(base, 1.0)};
    CCalcIntersectTestAccess::SortAndDeleteDuplicates(apart);
    EXPECT_EQ(apart.size(), 2u);
}

TEST(SortAndDeleteDuplicates, NearZeroTheAbsoluteToleranceApplies) {
    Profile merged = {MakePnt(0.0, 1.0), MakePnt(0.9e-12, 2.0)};
    CCalcIntersectTestAccess::SortAndDeleteDuplicates(merged);
    ASSERT_EQ(merged.size(), 1u);
    EXPECT_EQ(merged[0].pnt.z, 1.0);
    Profile apart = {MakePnt(0.0, 1.0), MakePnt(1.1e-12, 2.0)};
    CCalcIntersectTestAccess::SortAndDeleteDuplicates(apart);
    EXPECT_EQ(apart.size(), 2u);
}

TEST(SortAndDeleteDuplicates, ARunOfNearNeighboursCollapsesToItsFirstPoint) {
    // Each step is 0.8 of the tolerance, so the run spans 2.4 tolerances in all.
    const double step = 0.8 * (1.0 * 1e-12 + 1e-12);
    Profile pnts = {MakePnt(1.0 + 2 * step, 3.0), MakePnt(1.0, 1.0), MakePnt(1.0 + 3 * step, 4.0),
                    MakePnt(1.0 + step, 2.0)};
    CCalcIntersectTestAccess::SortAndDeleteDuplicates(pnts);
    ASSERT_EQ(pnts.size(), 1u);
    EXPECT_EQ(pnts[0].pnt.z, 1.0);
}

TEST(SortAndDeleteDuplicates, InfiniteDistancesMergeOnlyWhenEqual) {
    const double inf = std::numeric_limits<double>::infinity();
    const double largest = std::numeric_limits<double>::max();
    Profile pnts = {MakePnt(inf, 1.0), MakePnt(largest, 2.0), MakePnt(inf, 3.0)};
    CCalcIntersectTestAccess::SortAndDeleteDuplicates(pnts);
    ASSERT_EQ(pnts.size(), 2u);
    EXPECT_EQ(pnts[0].prog, largest);
    EXPECT_EQ(pnts[1].prog, inf);
}

// The merge as first stated: sort, then walk from the last point down and erase each point that
// repeats the one before it.
void EraseRepeatsFromTheBack(Profile& pnts) {
    if (pnts.size() < 2) return;
    std::sort(pnts.begin(), pnts.end(),
              [](const TLineProgPnt& a, const TLineProgPnt& b) { return a.prog < b.prog; });
    for (std::size_t i = pnts.size() - 1; i >= 1; --i) {
        const double previous = pnts[i - 1].prog;
        const bool repeat = std::isfinite(previous)
                                ? std::fabs(pnts[i].prog - previous) <= MergeTolerance(previous)
                                : pnts[i].prog == previous;
        if (repeat) pnts.erase(pnts.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

TEST(SortAndDeleteDuplicates, AgreesWithErasingRepeatsFromTheBackOnRandomLists) {
    for (unsigned seed = 1; seed <= 50; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> base(0.0, 1000.0);
        std::uniform_real_distribution<double> spacing(0.1, 1.5);
        std::uniform_int_distribution<int> runLength(1, 5);
        Profile pnts;
        for (int run = 0; run < 40; ++run) {
            // Distinct distances in runs whose steps straddle the tolerance, so that the sorted
            // order is unique and some runs merge, some split.
            const double first = base(random);
            const double step = spacing(random) * MergeTolerance(first);
            const int length = runLength(random);
            for (int j = 0; j < length; ++j) {
                pnts.push_back(MakePnt(first + j * step, double(pnts.size())));
            }
        }
        if (seed % 5 == 0) pnts.push_back(MakePnt(0.0, -1.0));
        std::shuffle(pnts.begin(), pnts.end(), random);
        Profile reference = pnts;
        EraseRepeatsFromTheBack(reference);
        CCalcIntersectTestAccess::SortAndDeleteDuplicates(pnts);
        EXPECT_TRUE(Identical(pnts, reference));
    }
}

// ---- The calculator itself -----------------------------------------------------------------

TEST(CCalcIntersect, PreviousContentsOfTheOutputAreDiscarded) {
    TestProject project;
    FillSquare(project);
    Profile out = {MakePnt(-5.0, 1.0), MakePnt(100.0, 2.0)};
    CCalcIntersect(*project.Prj()).CalcQuotedPnts(LINE_2D(PNT_2D(1, 1), PNT_2D(4, 5)), out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].prog, 0.0);
    EXPECT_EQ(out[1].prog, 5.0);
}

TEST(CCalcIntersect, CopyAssignmentReadsTheOtherProjectsNetwork) {
    TestProject square;
    FillSquare(square);
    TestProject empty;
    CCalcIntersect calc(*empty.Prj());
    const LINE_2D line(PNT_2D(1, 1), PNT_2D(4, 5));
    Profile out;
    calc.CalcQuotedPnts(line, out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].pnt.z, UNDEFINED_QUOTE);
    calc = CCalcIntersect(*square.Prj());
    calc.CalcQuotedPnts(line, out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_NEAR(out[0].pnt.z, 3.0, 1e-12);
}

TEST(CCalcIntersect, ReadsTheNetworkAsItIsAtEachCall) {
    TestProject project;
    CCalcIntersect calc(*project.Prj());
    const LINE_2D line(PNT_2D(1, 1), PNT_2D(4, 5));
    Profile out;
    calc.CalcQuotedPnts(line, out);
    EXPECT_EQ(out[0].pnt.z, UNDEFINED_QUOTE);
    FillSquare(project);
    calc.CalcQuotedPnts(line, out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_NEAR(out[1].pnt.z, 14.0, 1e-12);
}

}  // namespace
