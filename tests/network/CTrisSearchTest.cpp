#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/Tolerances.h>

#include "network/COcTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "CloudNetworkTestSupport.h"
#include "OcTreeChecker.h"

namespace {

using dtm_test::MakeGridNetwork;
using dtm_test::MakeTriangleSoup;
using dtm_test::OcTreeIsValid;
using dtm_test::RandomNetwork;
using dtm_test::TestProject;
using kor::geom::PAR_LINE_2D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;
using kor::geom::RECT_3D;

constexpr double kUndefinedThreshold = 8.5e199;
constexpr double kLargest = std::numeric_limits<double>::max();

using Vertices = std::array<PNT_3D, 3>;

Vertices TriangleVertices(const CTris& tris, int tri) {
    Vertices v;
    for (int k = 0; k < 3; ++k) {
        v[static_cast<std::size_t>(k)] = tris.GetTriVrtAt(tris.GetTriAt(tri)->GetVerIndex(k));
    }
    return v;
}

// A network filled in one change event, in insertion order (the octree is not built).
class Network {
public:
    Network(const std::vector<PNT_3D>& vertices, const std::vector<dtm_test::TriIndices>& tris) {
        m_project.Fill(vertices, tris);
    }
    CTris& Tris() const { return m_project.Tris(); }

private:
    TestProject m_project;
};

// ---- Elevation at a point ------------------------------------------------------------------

TEST(GetCoordZQ, NetworkWithoutTrianglesGivesExactlyUndefinedQuote) {
    Network network({PNT_3D(0, 0, 1), PNT_3D(1, 0, 2), PNT_3D(0, 1, 3)}, {});
    EXPECT_EQ(network.Tris().GetCoordZQ(0.2, 0.2), 1.7e200);
    TestProject empty;
    EXPECT_EQ(empty.Tris().GetCoordZQ(0.0, 0.0), 1.7e200);
}

TEST(GetCoordZQ, OutsideTheNetworkGivesAnUndefinedValue) {
    Network network({PNT_3D(0, 0, 1), PNT_3D(1, 0, 2), PNT_3D(0, 1, 3)}, {{0, 1, 2}});
    EXPECT_GE(network.Tris().GetCoordZQ(5.0, 5.0), kUndefinedThreshold);
    EXPECT_GE(network.Tris().GetCoordZQ(-0.001, 0.5), kUndefinedThreshold);
}

TEST(GetCoordZQ, InsideATriangleGivesItsPlane) {
    // z = x + 2y.
    Network network({PNT_3D(0, 0, 0), PNT_3D(10, 0, 10), PNT_3D(0, 10, 20)}, {{0, 1, 2}});
    EXPECT_NEAR(network.Tris().GetCoordZQ(2.0, 3.0), 8.0, 1e-12);
    EXPECT_NEAR(network.Tris().GetCoordZQ(5.0, 5.0), 15.0, 1e-12);
}

TEST(GetCoordZQ, NearAVertexGivesTheVertexElevationExactly) {
    // A steep triangle, z = 5 + 1000 x: the plane differs from the vertex by 0.08 at 0.00008.
    Network network({PNT_3D(1, 0, 1005), PNT_3D(0, 0, 5), PNT_3D(0, 1, 5)}, {{0, 1, 2}});
    const CTris& tris = network.Tris();
    EXPECT_EQ(tris.GetCoordZQ(0.99992, 0.00003), 1005.0);
    // Also just outside the triangle, where the plane gives nothing.
    EXPECT_EQ(tris.GetCoordZQ(1.00009, -0.00009), 1005.0);
    EXPECT_EQ(tris.GetCoordZQ(0.0000999, 0.0), 5.0);
    // At exactly the snap distance the plane answers (0.0001 - 0 is exact).
    EXPECT_NEAR(tris.GetCoordZQ(0.0001, 0.0), 5.1, 1e-9);
    EXPECT_NE(tris.GetCoordZQ(0.0001, 0.0), 5.0);
    // The same on the y axis, beside the triangle, where the plane gives nothing.
    EXPECT_EQ(tris.GetCoordZQ(1.0, 0.0000999), 1005.0);
    EXPECT_TRUE(dtm::IsUndefinedQuote(tris.GetCoordZQ(1.0, 0.0001)));
}

TEST(GetCoordZQ, SnapTriesTheVerticesInOrder) {
    Network network({PNT_3D(0, 0, 1), PNT_3D(0.00005, 0, 2), PNT_3D(0, 1, 3)}, {{0, 1, 2}});
    EXPECT_EQ(network.Tris().GetCoordZQ(0.00003, 0.0), 1.0);
    Network reversed({PNT_3D(0, 0, 1), PNT_3D(0.00005, 0, 2), PNT_3D(0, 1, 3)}, {{1, 0, 2}});
    EXPECT_EQ(reversed.Tris().GetCoordZQ(0.00003, 0.0), 2.0);
}

TEST(GetCoordZQ, FirstTriangleInArrayOrderWins) {
    // Two overlapping triangles at different elevations.
    const std::vector<PNT_3D> vertices = {PNT_3D(0, 0, 10), PNT_3D(4, 0, 10), PNT_3D(0, 4, 10),
                                          PNT_3D(0, 0, 20), PNT_3D(4, 0, 20), PNT_3D(0, 4, 20)};
    Network lowFirst(vertices, {{0, 1, 2}, {3, 4, 5}});
    Network highFirst(vertices, {{3, 4, 5}, {0, 1, 2}});
    EXPECT_EQ(lowFirst.Tris().GetCoordZQ(1, 1), 10.0);
    EXPECT_EQ(highFirst.Tris().GetCoordZQ(1, 1), 20.0);
}

TEST(GetCoordZQ, AnUndefinedVertexElevationDoesNotStopTheScan) {
    // The first triangle snaps to a vertex whose elevation is undefined; the second holds the
    // point with a plane.
    Network network({PNT_3D(1, 1, UNDEFINED_QUOTE), PNT_3D(5, 1, 0), PNT_3D(1, 5, 0),
                     PNT_3D(0, 0, 7), PNT_3D(4, 0, 7), PNT_3D(0, 4, 7)},
                    {{0, 1, 2}, {3, 4, 5}});
    EXPECT_EQ(network.Tris().GetCoordZQ(1, 1), 7.0);
}

TEST(GetCoordZQ, UndefinedStartsAtHalfTheUndefinedValue) {
    // The first triangle snaps to its vertex (1, 1); the second holds the point with a plane.
    const auto quoteWithSnappedVertexAt = [](double z) {
        Network network({PNT_3D(1, 1, z), PNT_3D(5, 1, 0), PNT_3D(1, 5, 0), PNT_3D(0, 0, 7),
                         PNT_3D(4, 0, 7), PNT_3D(0, 4, 7)},
                        {{0, 1, 2}, {3, 4, 5}});
        return network.Tris().GetCoordZQ(1, 1);
    };
    EXPECT_EQ(quoteWithSnappedVertexAt(kUndefinedThreshold), 7.0);
    const double below = std::nextafter(kUndefinedThreshold, 0.0);
    EXPECT_EQ(quoteWithSnappedVertexAt(below), below);
    EXPECT_EQ(quoteWithSnappedVertexAt(-UNDEFINED_QUOTE), -UNDEFINED_QUOTE);
    EXPECT_TRUE(dtm::IsUndefinedQuote(kUndefinedThreshold));
    EXPECT_FALSE(dtm::IsUndefinedQuote(below));
    EXPECT_FALSE(dtm::IsUndefinedQuote(-UNDEFINED_QUOTE));
}

TEST(GetCoordZQ, WhenNoTriangleHoldsThePointTheLastOnesAnswerIsReturned) {
    const std::vector<PNT_3D> vertices = {PNT_3D(1, 1, 9e199), PNT_3D(5, 1, 0),
                                          PNT_3D(1, 5, 0),     PNT_3D(10, 10, 0),
                                          PNT_3D(11, 10, 0),   PNT_3D(10, 11, 0)};
    Network snapLast(vertices, {{3, 4, 5}, {0, 1, 2}});
    EXPECT_EQ(snapLast.Tris().GetCoordZQ(1, 1), 9e199);
    Network snapFirst(vertices, {{0, 1, 2}, {3, 4, 5}});
    EXPECT_EQ(snapFirst.Tris().GetCoordZQ(1, 1), UNDEFINED_QUOTE);
}

TEST(GetCoordZQ, OfOneTriangleIgnoresTheOthers) {
    const std::vector<PNT_3D> vertices = {PNT_3D(0, 0, 10), PNT_3D(4, 0, 10), PNT_3D(0, 4, 10),
                                          PNT_3D(0, 0, 20), PNT_3D(4, 0, 20), PNT_3D(0, 4, 20)};
    Network network(vertices, {{0, 1, 2}, {3, 4, 5}});
    EXPECT_EQ(network.Tris().GetCoordZQ(1, 1.0, 1.0), 20.0);
    EXPECT_EQ(network.Tris().GetCoordZQ(1, 0.00001, 0.0), 20.0);
    EXPECT_GE(network.Tris().GetCoordZQ(0, 3.0, 3.0), kUndefinedThreshold);
    EXPECT_THROW(network.Tris().GetCoordZQ(2, 1.0, 1.0), std::out_of_range);
}

// The elevation query restated: vertex snap, else barycentric interpolation when the point is
// clearly inside, first triangle in array order. Points too close to an edge of any triangle
// for a double-precision inside test to be trusted give no answer (nullopt), and are skipped.
std::optional<double> BruteForceQuote(const CTris& tris, double x, double y) {
    const double margin = 1e-6;
    std::optional<double> last = UNDEFINED_QUOTE;
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const Vertices v = TriangleVertices(tris, i);
        double quote = UNDEFINED_QUOTE;
        bool snapped = false;
        for (const PNT_3D& p : v) {
            if (std::fabs(p.x - x) < 0.0001 && std::fabs(p.y - y) < 0.0001) {
                quote = p.z;
                snapped = true;
                break;
            }
        }
        if (!snapped) {
            const double area =
                (v[1].x - v[0].x) * (v[2].y - v[0].y) - (v[2].x - v[0].x) * (v[1].y - v[0].y);
            double lengths[3];
            double distances[3];
            for (int k = 0; k < 3; ++k) {
                const PNT_3D& a = v[static_cast<std::size_t>(k)];
                const PNT_3D& b = v[static_cast<std::size_t>((k + 1) % 3)];
                lengths[k] = std::hypot(b.x - a.x, b.y - a.y);
                // Distance on the inner side of edge k, positive inside.
                const double cross = (b.x - a.x) * (y - a.y) - (x - a.x) * (b.y - a.y);
                distances[k] = lengths[k] > 0 ? (area > 0 ? cross : -cross) / lengths[k] : 0;
            }
            const double longest = std::max({lengths[0], lengths[1], lengths[2]});
            const double minDistance = std::min({distances[0], distances[1], distances[2]});
            if (area == 0.0) {
                // No plan area: never holds a point.
            } else if (std::fabs(area) < 1e-9 * longest * longest) {
                const double low = std::min({v[0].x, v[1].x, v[2].x}) - margin;
                const double high = std::max({v[0].x, v[1].x, v[2].x}) + margin;
                if (x >= low && x <= high) return std::nullopt;  // a sliver: not decidable
            } else if (minDistance > margin) {
                const double wa =
                    ((v[1].x - x) * (v[2].y - y) - (v[2].x - x) * (v[1].y - y)) / area;
                const double wb =
                    ((v[2].x - x) * (v[0].y - y) - (v[0].x - x) * (v[2].y - y)) / area;
                quote = wa * v[0].z + wb * v[1].z + (1 - wa - wb) * v[2].z;
            } else if (minDistance > -margin) {
                return std::nullopt;  // too close to the outline to decide
            }
        }
        if (quote < kUndefinedThreshold) return quote;
        last = quote;
    }
    return last;
}

void ExpectQuotesMatchBruteForce(const CTris& tris, const std::vector<PNT_2D>& points) {
    int decided = 0;
    for (const PNT_2D& p : points) {
        const std::optional<double> expected = BruteForceQuote(tris, p.x, p.y);
        if (!expected) continue;
        ++decided;
        const double actual = tris.GetCoordZQ(p.x, p.y);
        SCOPED_TRACE("at (" + std::to_string(p.x) + ", " + std::to_string(p.y) + ")");
        if (*expected >= kUndefinedThreshold) {
            EXPECT_EQ(actual, *expected);
        } else {
            EXPECT_NEAR(actual, *expected, 1e-9 * (1 + std::fabs(*expected)));
        }
    }
    EXPECT_GT(decided, static_cast<int>(points.size()) * 3 / 4);
}

std::vector<PNT_2D> QueryPoints(const CTris& tris, unsigned seed, double x0, double y0,
                                double size) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::uniform_real_distribution<double> nearby(-0.00009, 0.00009);
    std::vector<PNT_2D> points;
    for (int i = 0; i < 300; ++i) {
        points.emplace_back(x0 - 0.1 * size + 1.2 * size * unit(random),
                            y0 - 0.1 * size + 1.2 * size * unit(random));
    }
    for (int i = 0; i < 100; ++i) {
        const PNT_3D& v = tris.GetTriVrtAt(static_cast<int>(unit(random) * tris.GetNoTriVrts()));
        points.emplace_back(v.x + nearby(random), v.y + nearby(random));
    }
    return points;
}

TEST(GetCoordZQ, MatchesAnIndependentComputationOnATriangleSoup) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const RandomNetwork soup = MakeTriangleSoup(seed, 60, 150, 100, 200, 50, 30);
        TestProject project;
        project.Fill(soup.vertices, soup.triangles);
        ExpectQuotesMatchBruteForce(project.Tris(),
                                    QueryPoints(project.Tris(), seed, 100, 200, 50));
        // The tree reorders the array; the first-match rule follows the new order.
        project.Tris().CalcOcTree();
        ExpectQuotesMatchBruteForce(project.Tris(),
                                    QueryPoints(project.Tris(), seed, 100, 200, 50));
    }
}

TEST(GetCoordZQ, MatchesAnIndependentComputationOnAGrid) {
    const RandomNetwork grid = MakeGridNetwork(30, 5e5, 4e6, 3.0);
    TestProject project;
    project.Fill(grid.vertices, grid.triangles);
    project.Tris().CalcOcTree();
    ExpectQuotesMatchBruteForce(project.Tris(), QueryPoints(project.Tris(), 9, 5e5, 4e6, 90));
}

// ---- Edge search -------------------------------------------------------------------------

struct FindResult {
    bool found = false;
    int tri1 = -7, tri2 = -7, edgeStart = 99, edgeEnd = 99, opp1 = 99, opp2 = 99;
    bool operator==(const FindResult& o) const {
        return found == o.found && tri1 == o.tri1 && tri2 == o.tri2 && edgeStart == o.edgeStart &&
               edgeEnd == o.edgeEnd && opp1 == o.opp1 && opp2 == o.opp2;
    }
};

std::ostream& operator<<(std::ostream& out, const FindResult& r) {
    return out << (r.found ? "found" : "not found") << " tri1 " << r.tri1 << " tri2 " << r.tri2
               << " edge " << r.edgeStart << "-" << r.edgeEnd << " opp " << r.opp1 << "/" << r.opp2;
}

FindResult Find(const CTris& tris, const PNT_2D& p, double tol) {
    FindResult r;
    r.found = tris.FindTri(p, tol, r.tri1, r.tri2, r.edgeStart, r.edgeEnd, r.opp1, r.opp2);
    return r;
}

// The search restated over every triangle in array order, which is the order in which the
// tree hands them over.
FindResult BruteForceFind(const CTris& tris, const PNT_2D& p, double tol) {
    FindResult r;
    r.tri1 = -1;
    r.tri2 = -1;
    int edgeStart = 99, edgeEnd = 99, opp1 = 99, opp2 = 99;
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const Vertices v = TriangleVertices(tris, i);
        for (int k = 0; k < 3; ++k) {
            const PAR_LINE_2D line(v[static_cast<std::size_t>(k)],
                                   v[static_cast<std::size_t>((k + 1) % 3)]);
            const double t = line.calcParam(p);
            if (!(t >= 0 && t <= 1 && std::fabs(line.dist(p)) < tol)) continue;
            const int opposite = (k + 2) % 3;
            if (r.tri1 == -1) {
                r.tri1 = i;
                edgeStart = k;
                edgeEnd = (k + 1) % 3;
                opp1 = opposite;
            } else {
                r.tri2 = i;
                opp2 = opposite;
            }
        }
    }
    r.found = r.tri1 != -1 && r.tri2 != -1;
    if (r.found) {
        r.edgeStart = edgeStart;
        r.edgeEnd = edgeEnd;
        r.opp1 = opp1;
        r.opp2 = opp2;
    }
    return r;
}

TEST(FindTri, EdgeOfTheOutlineGivesFalse) {
    Network network({PNT_3D(0, 0, 0), PNT_3D(2, 0, 0), PNT_3D(0, 2, 0)}, {{0, 1, 2}});
    network.Tris().CalcOcTree();
    const FindResult r = Find(network.Tris(), PNT_2D(1, 0.001), 0.01);
    EXPECT_FALSE(r.found);
    EXPECT_EQ(r.tri1, 0);
    EXPECT_EQ(r.tri2, -1);
    // The four positions are left as they were.
    EXPECT_EQ(r.edgeStart, 99);
    EXPECT_EQ(r.edgeEnd, 99);
    EXPECT_EQ(r.opp1, 99);
    EXPECT_EQ(r.opp2, 99);
}

TEST(FindTri, NothingNearGivesFalseWithBothTrianglesUnset) {
    Network network({PNT_3D(0, 0, 0), PNT_3D(2, 0, 0), PNT_3D(0, 2, 0)}, {{0, 1, 2}});
    network.Tris().CalcOcTree();
    const FindResult r = Find(network.Tris(), PNT_2D(0.5, 0.5), 0.01);
    EXPECT_FALSE(r.found);
    EXPECT_EQ(r.tri1, -1);
    EXPECT_EQ(r.tri2, -1);
}

TEST(FindTri, SharedEdgeGivesBothTrianglesWithEdgeAndOppositeVertexPositions) {
    // The unit square cut along its diagonal (0,0)-(1,1): the diagonal is edge 2 (vertex 2 to
    // vertex 0) of the first triangle and edge 0 of the second.
    Network network({PNT_3D(0, 0, 0), PNT_3D(1, 0, 0), PNT_3D(1, 1, 0), PNT_3D(0, 1, 0)},
                    {{0, 1, 2}, {0, 2, 3}});
    CTri* lower = network.Tris().GetTriAt(0);
    network.Tris().CalcOcTree();
    const FindResult r = Find(network.Tris(), PNT_2D(0.5, 0.5005), 0.001);
    ASSERT_TRUE(r.found);
    const int lowerIndex = network.Tris().FindTriIndex(lower);
    if (lowerIndex == 0) {
        EXPECT_EQ(r, (FindResult{true, 0, 1, 2, 0, 1, 2}));
    } else {
        EXPECT_EQ(r, (FindResult{true, 0, 1, 0, 1, 2, 1}));
    }
}

TEST(FindTri, ASecondMatchingEdgeOfTheFirstTriangleCountsAsALaterMatch) {
    // At a vertex two edges of the one triangle pass: edge 0 (parameter 0) and edge 2
    // (parameter 1).
    Network network({PNT_3D(0, 0, 0), PNT_3D(2, 0, 0), PNT_3D(0, 2, 0)}, {{0, 1, 2}});
    network.Tris().CalcOcTree();
    EXPECT_EQ(Find(network.Tris(), PNT_2D(0, 0), 0.01), (FindResult{true, 0, 0, 0, 1, 2, 1}));
}

TEST(FindTri, ToleranceIsStrict) {
    // Two triangles sharing the vertical edge x = 1.
    Network network({PNT_3D(0, 0, 0), PNT_3D(1, 0, 0), PNT_3D(1, 2, 0), PNT_3D(2, 1, 0)},
                    {{0, 1, 2}, {1, 3, 2}});
    network.Tris().CalcOcTree();
    EXPECT_FALSE(Find(network.Tris(), PNT_2D(1.25, 1), 0.25).found);
    EXPECT_TRUE(Find(network.Tris(), PNT_2D(1.25, 1), 0.2500001).found);
}

TEST(FindTri, PointBeyondTheEndOfAnEdgeDoesNotMatchIt) {
    Network network({PNT_3D(0, 0, 0), PNT_3D(1, 0, 0), PNT_3D(1, 2, 0), PNT_3D(2, 1, 0)},
                    {{0, 1, 2}, {1, 3, 2}});
    network.Tris().CalcOcTree();
    // On the line x = 1 beyond (1, 2), but farther than tol from every vertex.
    const FindResult r = Find(network.Tris(), PNT_2D(1, 2.5), 0.1);
    EXPECT_FALSE(r.found);
    EXPECT_EQ(r.tri1, -1);
}

TEST(FindTri, WithoutATreeNothingIsFound) {
    // The tree is built by CalcOcTree (or after a change event); before that the search has
    // no candidates.
    Network network({PNT_3D(0, 0, 0), PNT_3D(1, 0, 0), PNT_3D(1, 1, 0), PNT_3D(0, 1, 0)},
                    {{0, 1, 2}, {0, 2, 3}});
    ASSERT_FALSE(COcTree::Of(network.Tris()).HasRoot());
    EXPECT_FALSE(Find(network.Tris(), PNT_2D(0.5, 0.5), 0.01).found);
}

std::vector<PNT_2D> EdgeProbePoints(const CTris& tris, unsigned seed, double x0, double y0,
                                    double size) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<PNT_2D> points;
    for (int i = 0; i < 60; ++i) {
        const Vertices v =
            TriangleVertices(tris, static_cast<int>(unit(random) * tris.GetNoTris()));
        const int k = i % 3;
        const double t = unit(random);
        const PNT_3D& a = v[static_cast<std::size_t>(k)];
        const PNT_3D& b = v[static_cast<std::size_t>((k + 1) % 3)];
        points.emplace_back(a.x + t * (b.x - a.x) + 0.001 * (unit(random) - 0.5),
                            a.y + t * (b.y - a.y) + 0.001 * (unit(random) - 0.5));
        points.push_back(a);
    }
    for (int i = 0; i < 40; ++i)
        points.emplace_back(x0 + size * unit(random), y0 + size * unit(random));
    return points;
}

TEST(FindTri, MatchesAScanOfEveryTriangle) {
    struct Case {
        std::string name;
        RandomNetwork network;
        double x0, y0, size;
    };
    const std::vector<Case> cases = {
        {"grid", MakeGridNetwork(40, 100, 100, 1.0), 100, 100, 40},
        {"soup", MakeTriangleSoup(71, 300, 1500, 0, 0, 30, 10), 0, 0, 30},
    };
    for (const Case& c : cases) {
        TestProject project;
        project.Fill(c.network.vertices, c.network.triangles);
        project.Tris().CalcOcTree();
        ASSERT_TRUE(OcTreeIsValid(project.Tris()));
        for (const PNT_2D& p : EdgeProbePoints(project.Tris(), 72, c.x0, c.y0, c.size)) {
            for (double tol : {0.0005, 0.01, 0.3}) {
                SCOPED_TRACE(c.name + " at (" + std::to_string(p.x) + ", " + std::to_string(p.y) +
                             "), tol " + std::to_string(tol));
                const FindResult actual = Find(project.Tris(), p, tol);
                ASSERT_EQ(actual, BruteForceFind(project.Tris(), p, tol));
            }
        }
    }
}

TEST(FindTri, OnAGridFindsThePairOfTrianglesThatShareTheNearEdge) {
    // Brute force over all pairs of triangles: the edges that two triangles share (the same two
    // vertex indices). A point near exactly one of them, away from every vertex, must give that
    // pair, the lower array index first.
    const RandomNetwork grid = MakeGridNetwork(12, 0, 0, 1.0);
    TestProject project;
    project.Fill(grid.vertices, grid.triangles);
    project.Tris().CalcOcTree();
    const CTris& tris = project.Tris();
    struct SharedEdge {
        int a, b, edgeInA, edgeInB;
    };
    std::vector<SharedEdge> shared;
    for (int a = 0; a < tris.GetNoTris(); ++a) {
        for (int b = a + 1; b < tris.GetNoTris(); ++b) {
            for (int ka = 0; ka < 3; ++ka) {
                for (int kb = 0; kb < 3; ++kb) {
                    const int a0 = tris.GetTriAt(a)->GetVerIndex(ka);
                    const int a1 = tris.GetTriAt(a)->GetVerIndex((ka + 1) % 3);
                    const int b0 = tris.GetTriAt(b)->GetVerIndex(kb);
                    const int b1 = tris.GetTriAt(b)->GetVerIndex((kb + 1) % 3);
                    if ((a0 == b1 && a1 == b0) || (a0 == b0 && a1 == b1)) {
                        shared.push_back({a, b, ka, kb});
                    }
                }
            }
        }
    }
    ASSERT_EQ(shared.size(), 3u * 12 * 12 - 2 * 12);

    std::mt19937 random(81);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double tol = 0.05;
    int checked = 0;
    for (int step = 0; step < 300; ++step) {
        const PNT_2D p(0.5 + 11 * unit(random), 0.5 + 11 * unit(random));
        bool nearVertex = false;
        for (const PNT_3D& v : tris.GetPnts()) nearVertex |= std::hypot(v.x - p.x, v.y - p.y) < 0.2;
        std::vector<SharedEdge> near;
        for (const SharedEdge& edge : shared) {
            const Vertices v = TriangleVertices(tris, edge.a);
            const PNT_3D& s = v[static_cast<std::size_t>(edge.edgeInA)];
            const PNT_3D& e = v[static_cast<std::size_t>((edge.edgeInA + 1) % 3)];
            const double dx = e.x - s.x, dy = e.y - s.y;
            const double t = ((p.x - s.x) * dx + (p.y - s.y) * dy) / (dx * dx + dy * dy);
            const double d = std::fabs(dx * (p.y - s.y) - dy * (p.x - s.x)) / std::hypot(dx, dy);
            if (t > 0.1 && t < 0.9 && d < tol) near.push_back(edge);
        }
        if (near.size() != 1 || nearVertex) continue;
        SCOPED_TRACE("step " + std::to_string(step));
        const SharedEdge& edge = near[0];
        EXPECT_EQ(Find(tris, p, tol),
                  (FindResult{true, edge.a, edge.b, edge.edgeInA, (edge.edgeInA + 1) % 3,
                              (edge.edgeInA + 2) % 3, (edge.edgeInB + 2) % 3}));
        ++checked;
    }
    EXPECT_GT(checked, 20);
}

// ---- Bounding box ------------------------------------------------------------------------

TEST(GetBdry, NoVertexGivesFalseAndAnEmptyBox) {
    TestProject project;
    RECT_3D box(PNT_3D(1, 2, 3), PNT_3D(4, 5, 6));
    EXPECT_FALSE(project.Tris().GetBdry(box));
    EXPECT_EQ(box.min.x, kLargest);
    EXPECT_EQ(box.max.z, -kLargest);
}

TEST(GetBdry, OneVertexGivesFalseAndAnEmptyBox) {
    Network network({PNT_3D(3, 4, 5)}, {});
    RECT_3D box(PNT_3D(1, 2, 3), PNT_3D(4, 5, 6));
    EXPECT_FALSE(network.Tris().GetBdry(box));
    EXPECT_EQ(box.min.x, kLargest);
    EXPECT_EQ(box.min.y, kLargest);
    EXPECT_EQ(box.min.z, kLargest);
    EXPECT_EQ(box.max.x, -kLargest);
    EXPECT_EQ(box.max.y, -kLargest);
    EXPECT_EQ(box.max.z, -kLargest);
}

TEST(GetBdry, CoversEveryVertexAlsoThoseOfNoTriangle) {
    Network network({PNT_3D(0, 0, 1), PNT_3D(2, 0, 2), PNT_3D(0, 2, 3), PNT_3D(-5, 9, -4)},
                    {{0, 1, 2}});
    RECT_3D box;
    ASSERT_TRUE(network.Tris().GetBdry(box));
    EXPECT_EQ(box.min.x, -5.0);
    EXPECT_EQ(box.min.y, 0.0);
    EXPECT_EQ(box.min.z, -4.0);
    EXPECT_EQ(box.max.x, 2.0);
    EXPECT_EQ(box.max.y, 9.0);
    EXPECT_EQ(box.max.z, 3.0);
}

TEST(GetBdry, TwoVerticesGiveTheirBox) {
    Network network({PNT_3D(1, 8, 3), PNT_3D(4, 5, 6)}, {});
    RECT_3D box;
    ASSERT_TRUE(network.Tris().GetBdry(box));
    EXPECT_EQ(box.min.x, 1.0);
    EXPECT_EQ(box.min.y, 5.0);
    EXPECT_EQ(box.max.y, 8.0);
    EXPECT_EQ(box.max.z, 6.0);
}

using CloudBoundSearchTest = dtm_test::CloudNetworkTest;

TEST_F(CloudBoundSearchTest, CloudBoundNetworkAnswersWithTheCloudsBox) {
    cloud->AddPnt(PNT_3D(0, 0, 0));
    cloud->AddPnt(PNT_3D(10, 20, 30));
    cloud->AddPnt(PNT_3D(-1, 5, 2));
    tris.SetCld(cloud.Get());
    // One vertex only: the network's own rule would answer false.
    tris.AddTriVrt(1);
    RECT_3D box;
    ASSERT_TRUE(tris.GetBdry(box));
    EXPECT_EQ(box.min.x, -1.0);
    EXPECT_EQ(box.max.y, 20.0);
    EXPECT_EQ(box.max.z, 30.0);
}

TEST_F(CloudBoundSearchTest, EmptyCloudGivesFalseWhateverTheVertices) {
    tris.AddTriVrt(PNT_3D(0, 0, 0));
    tris.AddTriVrt(PNT_3D(1, 1, 1));
    tris.SetCld(cloud.Get());
    RECT_3D box;
    EXPECT_FALSE(tris.GetBdry(box));
}

// ---- Octree rebuild ----------------------------------------------------------------------

TEST(CalcOcTree, TriangleIndicesMayChangeAcrossARebuild) {
    // The first triangle does not straddle the root's centre planes, the second does: the
    // rebuild moves the second to the front.
    Network network({PNT_3D(5, 2, 0), PNT_3D(5, 4, 0), PNT_3D(3, 3, 0), PNT_3D(0, 0, 0),
                     PNT_3D(10, 0, 0), PNT_3D(0, 10, 0)},
                    {{0, 1, 2}, {3, 4, 5}});
    CTri* first = network.Tris().GetTriAt(0);
    CTri* second = network.Tris().GetTriAt(1);
    network.Tris().CalcOcTree();
    EXPECT_EQ(network.Tris().GetTriAt(0), second);
    EXPECT_EQ(network.Tris().GetTriAt(1), first);
    EXPECT_EQ(network.Tris().FindTriIndex(first), 1);
}

int CoveredTriangles(const COcTreeNode& node) {
    int covered = node.GetCount();
    for (int octant = 0; octant < 8; ++octant) {
        if (node.HasLeafChild(octant)) covered += node.GetLeaf(octant).count;
        if (node.HasNodeChild(octant)) covered += CoveredTriangles(node.GetNode(octant));
    }
    return covered;
}

TEST_F(CloudBoundSearchTest, BrokenNetworkKeepsItsOldTree) {
    for (int i = 0; i < 30; ++i) cloud->AddPnt(PNT_3D(i % 6, i / 6, i));
    BindCloudAndAddEveryPoint();
    {
        kor::CEventGuard event(prj->GetContext());
        for (int i = 0; i + 7 < 30; ++i) tris.AddNewTri(1, i, i + 1, i + 7);
    }
    tris.CalcOcTree();
    const COcTree& tree = COcTree::Of(tris);
    ASSERT_TRUE(tree.HasRoot());
    const TOcTreeGeometry before = tree.GetGeometry();
    ASSERT_EQ(CoveredTriangles(*tree.GetRoot()), 23);

    cloud->missing = 1;
    tris.CheckBroken();
    ASSERT_TRUE(tris.IsBroken());
    // A broken network skips the index check; a rebuild would index this triangle too.
    ASSERT_NE(tris.AddNewTri(1, 0, 1, 400), nullptr);
    const CTri* added = tris.GetTriAt(23);
    tris.CalcOcTree();
    ASSERT_TRUE(tree.HasRoot());
    EXPECT_EQ(CoveredTriangles(*tree.GetRoot()), 23);
    EXPECT_EQ(tree.GetGeometry().side, before.side);
    EXPECT_EQ(tree.GetGeometry().centreX, before.centreX);
    EXPECT_EQ(tris.GetTriAt(23), added);
}

}  // namespace
