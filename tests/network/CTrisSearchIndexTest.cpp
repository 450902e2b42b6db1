// The indexed elevation query against the literal scan of every triangle in array order, which
// the network keeps as its reference: on every kind of network and query point, in both
// triangle orders, inside open change events, after removals, loads and on broken networks, the
// two answers must agree bit for bit.

#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/Streams.h>
#include <dtm/support/Tolerances.h>

#include "Bits.h"
#include "network/CTrisSearchIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ByteBuilder.h"
#include "CloudNetworkTestSupport.h"
#include "OcTreeChecker.h"

/// Reaches the reference scan and the index of a network (a friend of CTris).
struct CTrisSearchTestAccess {
    static double Scan(const CTris& tris, double x, double y) {
        return tris.GetCoordZQByScan(x, y);
    }
    static const CTrisSearchIndex& Index(const CTris& tris) { return CTrisSearchIndex::Of(tris); }
};

namespace {

using dtm_test::Bits;

using dtm_test::RandomNetwork;
using dtm_test::TestProject;
using dtm_test::TriIndices;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Offsets around the vertex snap distance and the inside tolerance, on either side of each.
const std::vector<double>& NearOffsets() {
    static const std::vector<double> offsets{
        0.0,   5e-5, -5e-5, 9.9999e-5, -9.9999e-5, 1e-4,   -1e-4,   1.0001e-4, -1.0001e-4, 2e-4,
        -2e-4, 1e-9, -1e-9, 1e-8,      -1e-8,      1.1e-8, -1.1e-8, 1e-7,      -1e-7,      1e-3};
    return offsets;
}

// Query points for @p tris: uniform over (and around) its box, at and near vertices, on and
// near edges, inside triangles, far outside, and a few that are not finite. Fixed by @p seed.
std::vector<PNT_2D> QueryPoints(const CTris& tris, unsigned seed, int count) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    kor::geom::RECT_3D box;
    box.initRegion();
    for (const PNT_3D& v : tris.GetPnts()) {
        if (std::isfinite(v.x) && std::isfinite(v.y) && std::fabs(v.x) < 1e100 &&
            std::fabs(v.y) < 1e100)
            box.updateRegion(v);
    }
    if (box.IsEmpty()) box = kor::geom::RECT_3D(PNT_3D(0, 0, 0), PNT_3D(1, 1, 0));
    const double width = box.max.x - box.min.x;
    const double height = box.max.y - box.min.y;
    const auto offset = [&]() {
        const std::vector<double>& offsets = NearOffsets();
        return offsets[static_cast<std::size_t>(random() % offsets.size())];
    };
    const auto vertexOf = [&](int tri, int k) {
        const int index = tris.GetTriAt(tri)->GetVerIndex(k);
        return index >= 0 && index < tris.GetNoTriVrts() ? tris.GetTriVrtAt(index)
                                                         : PNT_3D(0.0, 0.0, 0.0);
    };
    std::vector<PNT_2D> points;
    points.reserve(static_cast<std::size_t>(count));
    const int triCount = tris.GetNoTris();
    for (int i = 0; i < count; ++i) {
        const int kind = static_cast<int>(random() % 10);
        const int tri = triCount > 0 ? static_cast<int>(random() % triCount) : 0;
        if (triCount == 0 || kind <= 1) {
            points.emplace_back(box.min.x - 0.1 * width + 1.2 * width * unit(random),
                                box.min.y - 0.1 * height + 1.2 * height * unit(random));
        } else if (kind <= 3) {
            const PNT_3D v = vertexOf(tri, static_cast<int>(random() % 3));
            points.emplace_back(v.x + offset(), v.y + offset());
        } else if (kind <= 6) {
            const int k = static_cast<int>(random() % 3);
            const PNT_3D a = vertexOf(tri, k);
            const PNT_3D b = vertexOf(tri, (k + 1) % 3);
            const double t = random() % 4 == 0 ? 0.5 : unit(random);
            const double dx = b.x - a.x;
            const double dy = b.y - a.y;
            const double length = std::hypot(dx, dy);
            const double side = length > 0.0 ? offset() / length : 0.0;
            points.emplace_back(a.x + t * dx - side * dy, a.y + t * dy + side * dx);
        } else if (kind <= 8) {
            const PNT_3D a = vertexOf(tri, 0);
            const PNT_3D b = vertexOf(tri, 1);
            const PNT_3D c = vertexOf(tri, 2);
            double u = unit(random);
            double v = unit(random);
            if (u + v > 1.0) {
                u = 1.0 - u;
                v = 1.0 - v;
            }
            points.emplace_back(a.x + u * (b.x - a.x) + v * (c.x - a.x),
                                a.y + u * (b.y - a.y) + v * (c.y - a.y));
        } else {
            static const PNT_2D specials[] = {PNT_2D(kNaN, 0.0),      PNT_2D(0.0, kNaN),
                                              PNT_2D(kInfinity, 0.0), PNT_2D(-kInfinity, 1.0),
                                              PNT_2D(1e300, -1e300),  PNT_2D(-0.0, -0.0),
                                              PNT_2D(1e9, 1e9),       PNT_2D(-1e9, 3.0)};
            points.push_back(random() % 4 == 0
                                 ? specials[random() % (sizeof(specials) / sizeof(specials[0]))]
                                 : PNT_2D(box.max.x + width * (1.0 + unit(random)),
                                          box.min.y - height * unit(random)));
        }
    }
    return points;
}

// Every answer of GetCoordZQ at @p points equals the scan's, bit for bit.
::testing::AssertionResult AgreesWithScan(const CTris& tris, const std::vector<PNT_2D>& points) {
    int mismatches = 0;
    std::ostringstream report;
    for (const PNT_2D& p : points) {
        const double indexed = tris.GetCoordZQ(p.x, p.y);
        const double scanned = CTrisSearchTestAccess::Scan(tris, p.x, p.y);
        if (Bits(indexed) == Bits(scanned)) continue;
        if (++mismatches <= 5) {
            report.precision(17);
            report << "\n  at (" << p.x << ", " << p.y << "): indexed " << indexed << ", scan "
                   << scanned;
        }
    }
    if (mismatches == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << mismatches << " of " << points.size() << " points differ" << report.str();
}

::testing::AssertionResult AgreesWithScan(const CTris& tris, unsigned seed, int count) {
    return AgreesWithScan(tris, QueryPoints(tris, seed, count));
}

// Checks a network in two triangle orders: as filled (in the project's first event, which
// builds no octree), then in the octree's order, where triangles that share a point often come
// in another order.
void ExpectBothOrdersAgree(TestProject& project, unsigned seed, int pointsPerOrder) {
    const CTris& tris = project.Tris();
    EXPECT_TRUE(AgreesWithScan(tris, seed, pointsPerOrder)) << "as filled, seed " << seed;
    project.Tris().CalcOcTree();
    EXPECT_TRUE(AgreesWithScan(tris, seed + 1, pointsPerOrder)) << "octree order, seed " << seed;
}

TEST(SearchIndex, JitteredGridAgreesWithTheScanInBothOrders) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(11, 24, 10.0);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 100, 15000);
}

TEST(SearchIndex, RegularGridWithVerticesOnTheCentrePlanesAgreesWithTheScan) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeGridNetwork(20, -40.0, -40.0, 4.0);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 200, 10000);
}

TEST(SearchIndex, OverlappingAndDegenerateSoupAgreesWithTheScan) {
    TestProject project;
    const RandomNetwork network =
        dtm_test::MakeTriangleSoup(7, 120, 500, 1000.0, 2000.0, 50.0, 9.0);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 300, 10000);
}

TEST(SearchIndex, SmallScatteredTrianglesAgreeWithTheScan) {
    TestProject project;
    const RandomNetwork network =
        dtm_test::MakeSmallTriangles(5, 800, 5e5, 4e6, 2000.0, 3.0, 100.0);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 400, 10000);
}

TEST(SearchIndex, LongSliversAmongSmallTrianglesAgreeWithTheScan) {
    // Long slivers all crossing the centre, which cover many cells each, among ordinary small
    // triangles.
    TestProject project;
    RandomNetwork network = dtm_test::MakeSmallTriangles(9, 400, 0.0, 0.0, 100.0, 2.0, 10.0);
    dtm_test::AppendSlivers(network, 3, 600);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 500, 6000);
}

TEST(SearchIndex, DegenerateNonFiniteAndDanglingTrianglesAgreeWithTheScan) {
    TestProject project;
    RandomNetwork network = dtm_test::MakeJitteredGrid(21, 8, 1.0);
    const auto add = [&network](PNT_3D a, PNT_3D b, PNT_3D c) {
        dtm_test::AppendTriangle(network, a, b, c);
    };
    add(PNT_3D(2, 2, 1), PNT_3D(4, 4, 2), PNT_3D(6, 6, 3));                  // collinear
    add(PNT_3D(3, 3, 1), PNT_3D(3, 3, 2), PNT_3D(3, 3, 3));                  // one point
    add(PNT_3D(1, 1, 1), PNT_3D(1 + 1e-13, 1, 1), PNT_3D(1, 1 + 1e-13, 1));  // too thin
    add(PNT_3D(kNaN, 2, 1), PNT_3D(5, 2, 2), PNT_3D(5, 5, 3));               // NaN coordinate
    add(PNT_3D(2, 2, 1), PNT_3D(kInfinity, 2, 2), PNT_3D(2, 6, 3));          // infinite coordinate
    add(PNT_3D(1e300, 1e300, 1), PNT_3D(-1e300, 1e300, 2), PNT_3D(0, -1e300, 3));  // huge
    add(PNT_3D(4, 4, kNaN), PNT_3D(5, 4, 1e201), PNT_3D(4, 5, 9e199));  // undefined elevations
    add(PNT_3D(-0.0, -0.0, 1), PNT_3D(1, 0, 2), PNT_3D(0, 1, 3));
    // Triangles that refer to vertices that do not exist, also negative ones.
    network.triangles.push_back({0, 1, 100000});
    network.triangles.push_back({-1, 2, 3});
    project.Fill(network.vertices, network.triangles);
    CTris& tris = project.Tris();
    // Fill checks the indices; the dangling triangles are added as a broken network would.
    EXPECT_TRUE(AgreesWithScan(tris, 600, 5000));
    tris.CalcOcTree();
    EXPECT_TRUE(AgreesWithScan(tris, 601, 5000));
    // A removed vertex leaves the triangles that referred to the last one dangling.
    tris.RemoveTriVrt(0);
    EXPECT_TRUE(AgreesWithScan(tris, 602, 5000));
}

// Networks and query points up to the top of the double range, where the geometry's products
// overflow: the answers stay the scan's whether the grid files the triangles or lists them apart.
TEST(SearchIndex, SoupsAtEveryMagnitudeUpToTheTopOfTheRangeAgreeWithTheScan) {
    unsigned seed = 650;
    for (const double size : {1e150, 1e153, 1e154, 1e155, 1e200, 1e300}) {
        SCOPED_TRACE(size);
        TestProject project;
        const RandomNetwork network =
            dtm_test::MakeTriangleSoup(seed++, 200, 600, -0.5 * size, -0.4 * size, size, 5.0);
        project.Fill(network.vertices, network.triangles);
        EXPECT_TRUE(AgreesWithScan(project.Tris(), seed++, 3000));
    }
}

// Query points beyond the filed bound, and huge triangles beside ordinary ones: one whose
// plane can still be interpolated, one whose arithmetic overflows.
TEST(SearchIndex, HugeQueryPointsAndHugeTrianglesAgreeWithTheScan) {
    TestProject project;
    RandomNetwork network = dtm_test::MakeJitteredGrid(24, 8, 1.0);
    dtm_test::AppendTriangle(network, PNT_3D(-2e153, -2e153, 1), PNT_3D(2e153, -2e153, 2),
                             PNT_3D(0, 2e153, 3));
    dtm_test::AppendTriangle(network, PNT_3D(-1e200, -1e200, 1), PNT_3D(1e200, -1e200, 2),
                             PNT_3D(0, 1e200, 3));
    project.Fill(network.vertices, network.triangles);
    const CTris& tris = project.Tris();
    const std::vector<PNT_2D> points = {
        PNT_2D(1e152, 0),      PNT_2D(1e160, 0),     PNT_2D(0, -1e160),
        PNT_2D(-1e199, 1e199), PNT_2D(3e199, 3e199), PNT_2D(1.5, 2.5),
        PNT_2D(1e308, -1e308), PNT_2D(kNaN, 1.0),    PNT_2D(1.0, kInfinity)};
    EXPECT_TRUE(AgreesWithScan(tris, points));
    // Off the ordinary triangles, within the filed bound: only the first huge triangle, which
    // the grid lists apart, holds the point.
    EXPECT_LT(tris.GetCoordZQ(1e152, 0), dtm::UNDEFINED_QUOTE_THRESHOLD);
    EXPECT_TRUE(AgreesWithScan(tris, 660, 3000));
}

// Finite coordinates whose plan extent is too wide for a double: the span of one axis
// overflows while the other stays finite (the index must still pick a sane number of cells).
TEST(SearchIndex, ExtentWiderThanADoubleOnOneAxisAgreesWithTheScan) {
    for (const RandomNetwork& network : dtm_test::MakeGridsWithASpanWiderThanADouble(23, 12)) {
        TestProject project;
        project.Fill(network.vertices, network.triangles);
        EXPECT_TRUE(AgreesWithScan(project.Tris(), 610, 3000));
        project.Tris().CalcOcTree();
        EXPECT_TRUE(AgreesWithScan(project.Tris(), 611, 3000));
    }
}

// Counts the candidates the index hands over for one point, without stopping it.
class CandidateCounter : public CTrisSearchIndex::IVisitor {
public:
    bool OnCandidate(int) override {
        ++m_count;
        return false;
    }
    std::size_t Count() const { return m_count; }

private:
    std::size_t m_count = 0;
};

// The mean number of candidates the index of @p tris hands over for points inside the triangles.
double MeanCandidates(const CTris& tris, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const CTrisSearchIndex& index = CTrisSearchTestAccess::Index(tris);
    std::size_t total = 0;
    constexpr int kPoints = 500;
    for (int i = 0; i < kPoints; ++i) {
        const CTri& tri = *tris.GetTriAt(static_cast<int>(random() % tris.GetNoTris()));
        const PNT_3D a = tris.GetTriVrtAt(tri.GetVerIndex(0));
        const PNT_3D b = tris.GetTriVrtAt(tri.GetVerIndex(1));
        const PNT_3D c = tris.GetTriVrtAt(tri.GetVerIndex(2));
        const double u = unit(random) / 2.0;
        const double v = unit(random) / 2.0;
        CandidateCounter counter;
        index.VisitPoint(PNT_2D(a.x + u * (b.x - a.x) + v * (c.x - a.x),
                                a.y + u * (b.y - a.y) + v * (c.y - a.y)),
                         counter);
        total += counter.Count();
    }
    return static_cast<double>(total) / kPoints;
}

TEST(SearchIndex, FarVerticesThatNoTriangleUsesNeitherChangeAnswersNorCrowdTheCells) {
    // The index takes its extent from the vertices, which is the triangles' extent when every
    // vertex is used. Vertices far away that no triangle uses make that extent far too large;
    // the index must notice and spread the triangles over cells of their own extent.
    TestProject plain;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(41, 40, 10.0);
    plain.Fill(network.vertices, network.triangles);
    const double usual = MeanCandidates(plain.Tris(), 1);

    RandomNetwork strayed = network;
    strayed.vertices.push_back(PNT_3D(1e7, 1e7, 0.0));
    strayed.vertices.push_back(PNT_3D(-3e6, 2e5, 0.0));
    strayed.vertices.push_back(PNT_3D(kNaN, 5.0, 0.0));
    TestProject project;
    project.Fill(strayed.vertices, strayed.triangles);
    const CTris& tris = project.Tris();
    EXPECT_TRUE(AgreesWithScan(tris, 650, 6000));
    EXPECT_EQ(CTrisSearchTestAccess::Index(tris).GetMemoryBytes(),
              CTrisSearchTestAccess::Index(plain.Tris()).GetMemoryBytes());
    EXPECT_DOUBLE_EQ(MeanCandidates(tris, 1), usual);
    EXPECT_LT(usual, 40.0);
}

TEST(SearchIndex, TrianglesMostlyWithoutPlanPositionsAgreeWithTheScan) {
    // Two thirds of the triangles have a vertex with no plan position and belong in no cell:
    // the cells are sized for the third that remain, and every answer is the scan's.
    RandomNetwork network = dtm_test::MakeJitteredGrid(43, 30, 10.0);
    const int lost = static_cast<int>(network.vertices.size());
    network.vertices.push_back(PNT_3D(kNaN, kNaN, 0.0));
    const std::size_t kept = network.triangles.size();
    for (std::size_t i = 0; i < 2 * kept; ++i) {
        TriIndices tri = network.triangles[i % kept];
        tri[i % 3] = lost;
        network.triangles.push_back(tri);
    }
    TestProject project;
    project.Fill(network.vertices, network.triangles);
    const CTris& tris = project.Tris();
    EXPECT_TRUE(AgreesWithScan(tris, 660, 6000));
    project.Tris().CalcOcTree();
    EXPECT_TRUE(AgreesWithScan(tris, 661, 6000));
}

TEST(SearchIndex, TheLastTrianglesOwnUndefinedAnswerComesBackWhenNoneQualifies) {
    TestProject project;
    // The last triangle, far from the others, snaps to a vertex whose elevation is NaN or
    // undefined: that answer, not UNDEFINED_QUOTE, is the scan's when nothing else qualifies.
    RandomNetwork network = dtm_test::MakeJitteredGrid(31, 4, 1.0);
    dtm_test::AppendTriangle(network, PNT_3D(100.0, 100.0, kNaN), PNT_3D(101.0, 100.0, 2e200),
                             PNT_3D(100.0, 101.0, 1.0));
    project.Fill(network.vertices, network.triangles);
    const CTris& tris = project.Tris();
    for (int form = 0; form < 2; ++form) {
        EXPECT_TRUE(std::isnan(tris.GetCoordZQ(100.00005, 100.0)));
        EXPECT_EQ(tris.GetCoordZQ(101.0, 100.00005), 2e200);
        EXPECT_EQ(tris.GetCoordZQ(500.0, 500.0), UNDEFINED_QUOTE);
        EXPECT_TRUE(AgreesWithScan(tris, {PNT_2D(100.00005, 100.0), PNT_2D(101.0, 100.00005),
                                          PNT_2D(100.0, 100.0), PNT_2D(500.0, 500.0)}));
        project.Tris().CalcOcTree();
    }
}

TEST(SearchIndex, NetworkWithoutTrianglesGivesUndefinedQuote) {
    TestProject project;
    project.Fill({PNT_3D(0, 0, 0), PNT_3D(1, 0, 0)}, {});
    EXPECT_EQ(project.Tris().GetCoordZQ(0.0, 0.0), UNDEFINED_QUOTE);
}

// Applies one random change of the kinds a host can make, some of which send no notification.
void ApplyRandomChange(CTris& tris, std::mt19937& random) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const int triCount = tris.GetNoTris();
    const int vertexCount = tris.GetNoTriVrts();
    const auto anyTri = [&] { return static_cast<int>(random() % triCount); };
    const auto anyVertex = [&] { return static_cast<int>(random() % vertexCount); };
    switch (random() % 9) {
        case 0:
            tris.SetTriVrtAt(anyVertex(), PNT_3D(240.0 * unit(random), 240.0 * unit(random),
                                                 10.0 * unit(random)));
            break;
        case 1:
            if (triCount > 1) tris.RemoveTriAt(anyTri());
            break;
        case 2:
            tris.AddNewTri(1, anyVertex(), anyVertex(), anyVertex());
            break;
        case 3:
            tris.GetTriAt(anyTri())->SetVerIndexes(&tris, anyVertex(), anyVertex(), anyVertex());
            break;
        case 4:
            // No notification at all: the index must still see it.
            tris.GetTriAt(anyTri())->SetVerIndex(static_cast<int>(random() % 3), anyVertex());
            break;
        case 5:
            tris.OrdSensOrarTri(anyTri());
            break;
        case 6:
            tris.AddTriVrt(PNT_3D(240.0 * unit(random), 240.0 * unit(random), 3.0));
            break;
        case 7:
            tris.CalcOcTree();
            break;
        default:
            tris.RemoveTri(240.0 * unit(random), 240.0 * unit(random), 0.0);
            break;
    }
}

TEST(SearchIndex, InsideAnOpenEventEveryChangeIsSeenBeforeTheListenerRuns) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(41, 12, 20.0);
    CTris& tris = project.FillIndexed(network);
    std::mt19937 random(77);
    kor::CEventGuard event(project.Prj()->GetContext());
    for (int step = 0; step < 120; ++step) {
        ApplyRandomChange(tris, random);
        ASSERT_TRUE(AgreesWithScan(tris, 1000 + step, 150)) << "step " << step;
    }
}

TEST(SearchIndex, AcrossClosedEventsTheRebuiltOctreeGuidesTheQuery) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(43, 12, 20.0);
    project.Fill(network.vertices, network.triangles);
    CTris& tris = project.Tris();
    std::mt19937 random(78);
    for (int step = 0; step < 40; ++step) {
        {
            kor::CEventGuard event(project.Prj()->GetContext());
            ApplyRandomChange(tris, random);
        }
        ASSERT_TRUE(AgreesWithScan(tris, 2000 + step, 200)) << "step " << step;
    }
    // An event that adds a triangle makes the listener, armed by the first event, rebuild the
    // tree and so reorder the triangles.
    {
        kor::CEventGuard event(project.Prj()->GetContext());
        tris.AddNewTri(1, 0, 1, 2);
    }
    EXPECT_TRUE(AgreesWithScan(tris, 2999, 2000));
}

TEST(SearchIndex, AppendedTrianglesAreFoundBeforeAndAfterTheIndexIsRebuilt) {
    TestProject project;
    const RandomNetwork grid = dtm_test::MakeJitteredGrid(51, 16, 5.0);
    CTris& tris = project.FillIndexed(grid);
    EXPECT_TRUE(AgreesWithScan(tris, 2998, 200));
    // Overlapping triangles appended one by one inside an event: the first ones are scanned as
    // the index's tail, later ones force a rebuild.
    const RandomNetwork extra = dtm_test::MakeSmallTriangles(52, 400, 0.0, 0.0, 80.0, 6.0, 5.0);
    kor::CEventGuard event(project.Prj()->GetContext());
    const int base = tris.GetNoTriVrts();
    for (const PNT_3D& v : extra.vertices) tris.AddTriVrt(v);
    for (std::size_t i = 0; i < extra.triangles.size(); ++i) {
        const TriIndices& t = extra.triangles[i];
        tris.AddNewTri(2, base + t[0], base + t[1], base + t[2]);
        if (i % 20 == 0) {
            ASSERT_TRUE(AgreesWithScan(tris, 3000 + static_cast<unsigned>(i), 60));
        }
    }
    EXPECT_TRUE(AgreesWithScan(tris, 3999, 2000));
}

TEST(SearchIndex, DeletedSelectionReplacedByAsManyTrianglesIsSeen) {
    // The count ends where it was, so only the positions tell the index that it is stale.
    TestProject project;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(57, 12, 20.0);
    CTris& tris = project.FillIndexed(network);
    ASSERT_TRUE(AgreesWithScan(tris, 3500, 200));
    kor::CEventGuard event(project.Prj()->GetContext());
    const int before = tris.GetNoTris();
    tris.InitSelTris();
    for (int i = 0; i < before; i += 3) tris.SelTri(i, false);
    tris.DelSelTris();
    std::mt19937 random(58);
    while (tris.GetNoTris() < before) {
        const auto anyVertex = [&] { return static_cast<int>(random() % network.vertices.size()); };
        tris.AddNewTri(1, anyVertex(), anyVertex(), anyVertex());
    }
    EXPECT_TRUE(AgreesWithScan(tris, 3501, 2000));
}

TEST(SearchIndex, RemoveAllInsideAndOutsideAnEventLeavesNothingToFind) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(61, 6, 3.0);
    CTris& tris = project.FillIndexed(network);
    EXPECT_TRUE(AgreesWithScan(tris, 4000, 500));
    {
        kor::CEventGuard event(project.Prj()->GetContext());
        tris.RemoveAll();
        EXPECT_EQ(tris.GetCoordZQ(5.0, 5.0), UNDEFINED_QUOTE);
        // Refilled in the same event with a different network.
        const RandomNetwork other = dtm_test::MakeJitteredGrid(62, 5, 4.0);
        for (const PNT_3D& v : other.vertices) tris.AddTriVrt(v);
        for (const TriIndices& t : other.triangles) tris.AddNewTri(1, t[0], t[1], t[2]);
        EXPECT_TRUE(AgreesWithScan(tris, 4001, 2000));
    }
    tris.RemoveAll();
    EXPECT_EQ(tris.GetCoordZQ(5.0, 5.0), UNDEFINED_QUOTE);
}

TEST(SearchIndex, TrianglesRemovedBehindTheNetworksBackAndReplacedAreSeen) {
    // DelSelTris rewrites the triangle array itself; with as many triangles added afterwards the
    // count is the same as before, but the index must still notice.
    TestProject project;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(71, 10, 2.0);
    CTris& tris = project.FillIndexed(network);
    tris.InitSelTris();
    EXPECT_TRUE(AgreesWithScan(tris, 5000, 300));
    kor::CEventGuard event(project.Prj()->GetContext());
    for (int i = 0; i < tris.GetNoTris(); i += 3) tris.SelTri(i, false);
    const int selected = (tris.GetNoTris() + 2) / 3;
    tris.DelSelTris();
    EXPECT_TRUE(AgreesWithScan(tris, 5001, 300));
    std::mt19937 random(5);
    for (int i = 0; i < selected; ++i) {
        tris.AddNewTri(1, static_cast<int>(random() % tris.GetNoTriVrts()),
                       static_cast<int>(random() % tris.GetNoTriVrts()),
                       static_cast<int>(random() % tris.GetNoTriVrts()));
    }
    EXPECT_TRUE(AgreesWithScan(tris, 5002, 2000));
}

std::string SectionOf(const CTris& tris) {
    std::stringbuf buffer;
    ofpstream out(&buffer, 1502);
    tris.SalvaInFile(out, nullptr);
    return buffer.str();
}

void Load(CTris& tris, const std::string& bytes) {
    std::stringbuf buffer(bytes, std::ios::in);
    ifpstream in(&buffer, 1502);
    tris.LeggeDaFile(in, kor::CRefObjIdRemapper(), true);
    ASSERT_TRUE(in.good());
}

TEST(SearchIndex, ALoadedNetworkAgreesWithTheScan) {
    TestProject saved;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(81, 14, 7.0);
    saved.FillIndexed(network);
    TestProject loaded;
    Load(loaded.Tris(), SectionOf(saved.Tris()));
    EXPECT_TRUE(AgreesWithScan(loaded.Tris(), 6000, 10000));
}

TEST(SearchIndex, ALoadedNetworkWithATreeWhoseRunsAreOutOfOrderAgreesWithTheScan) {
    // Three triangles and a tree whose root keeps none and whose two leaves name positions
    // 1-2, then 0: it covers every triangle once, so the reader takes it, though a walk of it
    // meets the triangles out of order. The index does not depend on the tree.
    dtm_test::ByteBuilder bytes;
    bytes.Int32(5).Int64(0);
    const PNT_3D points[] = {PNT_3D(0, 0, 1), PNT_3D(2, 0, 2), PNT_3D(0, 2, 3), PNT_3D(2, 2, 4),
                             PNT_3D(1, 1, 9)};
    for (const PNT_3D& p : points) bytes.Double(p.x).Double(p.y).Double(p.z);
    bytes.Int32(3);
    const int triangles[3][3] = {{0, 1, 2}, {1, 3, 2}, {0, 1, 4}};
    for (const auto& t : triangles) bytes.Int32(t[0]).Int32(t[1]).Int32(t[2]).Int32(1);
    bytes.Double(1.0).Double(9.0);
    for (const double v : {1.0, 1.0, 5.0, 8.0, 2.0, 2.0, 8.0}) bytes.Double(v);
    // Root: no own triangle, leaves in octants 0 and 1: (count 2, first 1), then (1, 0).
    bytes.Int32(0).Int32(0).Int8(0x03).Int8(0x03).Int32(2).Int32(1).Int32(1).Int32(0);
    const std::string section = bytes.Str();
    TestProject project;
    Load(project.Tris(), section);
    ASSERT_EQ(project.Tris().GetNoTris(), 3);
    // (1, 0.5) lies in triangles 0 and 2; the first in array order must win.
    EXPECT_TRUE(AgreesWithScan(
        project.Tris(), {PNT_2D(1.0, 0.5), PNT_2D(1.0, 1.0), PNT_2D(0.5, 0.1), PNT_2D(1.5, 1.9)}));
    EXPECT_TRUE(AgreesWithScan(project.Tris(), 6100, 2000));
}

class BrokenNetworkSearchTest : public dtm_test::CloudNetworkTest {};

TEST_F(BrokenNetworkSearchTest, BrokenNetworkWithTrianglesPastItsVerticesAgreesWithTheScan) {
    std::mt19937 random(91);
    std::uniform_real_distribution<double> unit(0.0, 100.0);
    for (int i = 0; i < 60; ++i) cloud->AddPnt(PNT_3D(unit(random), unit(random), 5.0));
    BindCloudAndAddEveryPoint();
    {
        kor::CEventGuard event(prj->GetContext());
        for (int i = 0; i < 150; ++i) {
            tris.AddNewTri(1, static_cast<int>(random() % 60), static_cast<int>(random() % 60),
                           static_cast<int>(random() % 60));
        }
    }
    tris.CalcOcTree();
    EXPECT_TRUE(AgreesWithScan(tris, 7000, 3000));
    // The cloud loses points: the network becomes broken, keeps its data and its old tree,
    // and from now on takes triangles without checking their indices.
    cloud->missing = 10;
    tris.CheckBroken();
    ASSERT_TRUE(tris.IsBroken());
    kor::CEventGuard event(prj->GetContext());
    for (int i = 0; i < 40; ++i) {
        tris.AddNewTri(1, static_cast<int>(random() % 80), static_cast<int>(random() % 80),
                       static_cast<int>(random() % 80) - 5);
    }
    tris.CalcOcTree();  // refused on a broken network
    EXPECT_TRUE(AgreesWithScan(tris, 7001, 3000));
    tris.RemoveTriVrt(3);
    EXPECT_TRUE(AgreesWithScan(tris, 7002, 3000));
}

}  // namespace
