// The profile through the network's search index against the full scan of every triangle,
// which the calculator keeps as its reference: on every kind of network and segment, in both
// triangle orders, inside open change events, after removals, loads and on broken networks,
// the two lists must be identical bit for bit.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/profile/CCalcIntersect.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/Streams.h>
#include <dtm/support/Tolerances.h>

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

#include "../network/CloudNetworkTestSupport.h"
#include "Bits.h"
#include "CCalcIntersectTestAccess.h"
#include "OcTreeChecker.h"

namespace {

using dtm_test::Bits;

using dtm_test::RandomNetwork;
using dtm_test::TestProject;
using dtm_test::TriIndices;
using kor::geom::LINE_2D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

using Profile = std::vector<TLineProgPnt>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

bool BitIdentical(const Profile& a, const Profile& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (Bits(a[i].prog) != Bits(b[i].prog) || Bits(a[i].pnt.x) != Bits(b[i].pnt.x) ||
            Bits(a[i].pnt.y) != Bits(b[i].pnt.y) || Bits(a[i].pnt.z) != Bits(b[i].pnt.z))
            return false;
    }
    return true;
}

// The vertices the segments are drawn between: every vertex the triangles refer to that exists.
std::vector<PNT_2D> VerticesOf(const CTris& tris) {
    std::vector<PNT_2D> vertices;
    for (const PNT_3D& v : tris.GetPnts()) vertices.emplace_back(v.x, v.y);
    if (vertices.empty()) vertices.emplace_back(0.0, 0.0);
    return vertices;
}

// Segments of every kind: random over and around the network's box, from vertex to vertex
// (which runs along edges and through vertices), along an edge and beyond it, from a vertex
// outwards, of zero length at a vertex or anywhere, parallel to the axes through vertices
// (where the octree's centre planes often lie), far outside, and with ends that are not finite.
std::vector<LINE_2D> Segments(const CTris& tris, unsigned seed, int count) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const std::vector<PNT_2D> vertices = VerticesOf(tris);
    double x0 = kInfinity, y0 = kInfinity, x1 = -kInfinity, y1 = -kInfinity;
    for (const PNT_2D& v : vertices) {
        if (!std::isfinite(v.x) || !std::isfinite(v.y) || std::fabs(v.x) > 1e100 ||
            std::fabs(v.y) > 1e100)
            continue;
        x0 = std::min(x0, v.x);
        y0 = std::min(y0, v.y);
        x1 = std::max(x1, v.x);
        y1 = std::max(y1, v.y);
    }
    if (!(x0 < x1)) x0 = 0.0, x1 = 1.0;
    if (!(y0 < y1)) y0 = 0.0, y1 = 1.0;
    const auto anyPoint = [&] {
        return PNT_2D(x0 - 0.1 * (x1 - x0) + 1.2 * (x1 - x0) * unit(random),
                      y0 - 0.1 * (y1 - y0) + 1.2 * (y1 - y0) * unit(random));
    };
    const auto anyVertex = [&] { return vertices[random() % vertices.size()]; };
    const auto edgeOf = [&](PNT_2D& a, PNT_2D& b) {
        const int tri = static_cast<int>(random() % static_cast<unsigned>(tris.GetNoTris()));
        const int k = static_cast<int>(random() % 3);
        const CTri* triangle = tris.GetTriAt(tri);
        const int ia = triangle->GetVerIndex(k);
        const int ib = triangle->GetVerIndex((k + 1) % 3);
        const auto at = [&](int index) {
            return index >= 0 && index < tris.GetNoTriVrts()
                       ? PNT_2D(tris.GetTriVrtAt(index).x, tris.GetTriVrtAt(index).y)
                       : anyPoint();
        };
        a = at(ia);
        b = at(ib);
    };
    std::vector<LINE_2D> segments;
    for (int i = 0; i < count; ++i) {
        PNT_2D a, b;
        switch (random() % 10) {
            case 0:
            case 1:
                segments.emplace_back(anyPoint(), anyPoint());
                break;
            case 2:
                segments.emplace_back(anyVertex(), anyVertex());
                break;
            case 3:
                if (tris.GetNoTris() == 0) break;
                edgeOf(a, b);
                segments.emplace_back(a, b);
                break;
            case 4: {
                if (tris.GetNoTris() == 0) break;
                edgeOf(a, b);
                const double t = 1.0 + 3.0 * unit(random);
                segments.emplace_back(PNT_2D(a.x - (b.x - a.x), a.y - (b.y - a.y)),
                                      PNT_2D(a.x + t * (b.x - a.x), a.y + t * (b.y - a.y)));
                break;
            }
            case 5:
                segments.emplace_back(anyVertex(), anyPoint());
                break;
            case 6: {
                const PNT_2D p = random() % 2 == 0 ? anyVertex() : anyPoint();
                segments.emplace_back(p, p);
                break;
            }
            case 7: {
                const PNT_2D v = anyVertex();
                if (random() % 2 == 0)
                    segments.emplace_back(PNT_2D(x0 - 1.0, v.y), PNT_2D(x1 + 1.0, v.y));
                else
                    segments.emplace_back(PNT_2D(v.x, y1 + 1.0), PNT_2D(v.x, y0 - 1.0));
                break;
            }
            case 8:
                segments.emplace_back(PNT_2D(x1 + 10.0, y0), PNT_2D(x1 + 20.0 + unit(random), y1));
                break;
            default: {
                static const LINE_2D specials[] = {
                    LINE_2D(PNT_2D(kNaN, 0.0), PNT_2D(1.0, 1.0)),
                    LINE_2D(PNT_2D(0.0, 0.0), PNT_2D(kInfinity, 1.0)),
                    LINE_2D(PNT_2D(-1e300, -1e300), PNT_2D(1e300, 1e300)),
                    LINE_2D(PNT_2D(-0.0, -0.0), PNT_2D(0.0, 0.0))};
                segments.push_back(random() % 3 == 0 ? specials[random() % 4]
                                                     : LINE_2D(PNT_2D(x0, y0), PNT_2D(x1, y1)));
                break;
            }
        }
    }
    return segments;
}

std::string Describe(const LINE_2D& line) {
    std::ostringstream text;
    text.precision(17);
    text << "(" << line.start.x << ", " << line.start.y << ") -> (" << line.end.x << ", "
         << line.end.y << ")";
    return text.str();
}

std::string Describe(const Profile& profile) {
    std::ostringstream text;
    text.precision(17);
    text << profile.size() << " points";
    for (const TLineProgPnt& point : profile)
        text << " [" << point.prog << ": " << point.pnt.x << ", " << point.pnt.y << ", "
             << point.pnt.z << "]";
    return text.str();
}

::testing::AssertionResult AgreesWithScan(CDtmPrj& project, const std::vector<LINE_2D>& lines) {
    const CCalcIntersect calc(project);
    int mismatches = 0;
    std::string first;
    Profile indexed, scanned;
    for (const LINE_2D& line : lines) {
        calc.CalcQuotedPnts(line, indexed);
        CCalcIntersectTestAccess::Scan(calc, line, scanned);
        if (BitIdentical(indexed, scanned)) continue;
        if (++mismatches == 1)
            first = Describe(line) + ": " + Describe(indexed) + ", scan " + Describe(scanned);
    }
    if (mismatches == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << mismatches << " of " << lines.size() << " profiles differ, first " << first;
}

::testing::AssertionResult AgreesWithScan(TestProject& project, unsigned seed, int count) {
    return AgreesWithScan(*project.Prj(), Segments(project.Tris(), seed, count));
}

// The network in two triangle orders: as filled (in the project's first event, which builds no
// octree), then in the octree's order.
void ExpectBothOrdersAgree(TestProject& project, unsigned seed, int segmentsPerOrder) {
    EXPECT_TRUE(AgreesWithScan(project, seed, segmentsPerOrder)) << "as filled";
    project.Tris().CalcOcTree();
    EXPECT_TRUE(AgreesWithScan(project, seed + 1, segmentsPerOrder)) << "octree order";
}

TEST(ProfileIndex, ShuffledJitteredGridGivesTheScansProfile) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(1, 30, 3.0);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 10, 400);
}

TEST(ProfileIndex, RegularGridWithSegmentsAlongItsLinesGivesTheScansProfile) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeGridNetwork(24, 0.0, 0.0, 1.0);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 20, 400);
}

TEST(ProfileIndex, OverlappingSoupGivesTheScansProfile) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeTriangleSoup(3, 80, 400, -50.0, 20.0, 30.0, 5.0);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 30, 300);
}

TEST(ProfileIndex, SmallTrianglesFarFromTheOriginGiveTheScansProfile) {
    TestProject project;
    const RandomNetwork network =
        dtm_test::MakeSmallTriangles(4, 900, 6.5e5, 5.1e6, 300.0, 4.0, 50.0);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 40, 400);
}

TEST(ProfileIndex, LongRunsOfSliversGiveTheScansProfile) {
    TestProject project;
    RandomNetwork network = dtm_test::MakeSmallTriangles(6, 300, 0.0, 0.0, 100.0, 2.0, 10.0);
    dtm_test::AppendSlivers(network, 8, 700);
    project.Fill(network.vertices, network.triangles);
    ExpectBothOrdersAgree(project, 50, 300);
}

TEST(ProfileIndex, DegenerateNonFiniteAndDanglingTrianglesGiveTheScansProfile) {
    TestProject project;
    RandomNetwork network = dtm_test::MakeJitteredGrid(9, 6, 1.0);
    const auto add = [&network](PNT_3D a, PNT_3D b, PNT_3D c) {
        dtm_test::AppendTriangle(network, a, b, c);
    };
    add(PNT_3D(1, 1, 1), PNT_3D(3, 3, 2), PNT_3D(5, 5, 3));
    add(PNT_3D(2, 2, 1), PNT_3D(2, 2, 2), PNT_3D(2, 2, 3));
    add(PNT_3D(kNaN, 2, 1), PNT_3D(4, 2, 2), PNT_3D(4, 4, 3));
    add(PNT_3D(2, 2, 1), PNT_3D(kInfinity, 2, 2), PNT_3D(2, 5, 3));
    add(PNT_3D(1e300, 1e300, 1), PNT_3D(-1e300, 1e300, 2), PNT_3D(0, -1e300, 3));
    add(PNT_3D(3, 3, kNaN), PNT_3D(4, 3, 1e201), PNT_3D(3, 4, 2));
    network.triangles.push_back({-1, 2, 3});
    project.Fill(network.vertices, network.triangles);
    EXPECT_TRUE(AgreesWithScan(project, 60, 300));
    project.Tris().CalcOcTree();
    EXPECT_TRUE(AgreesWithScan(project, 61, 300));
    project.Tris().RemoveTriVrt(0);
    EXPECT_TRUE(AgreesWithScan(project, 62, 300));
}

TEST(ProfileIndex, ExtentWiderThanADoubleOnOneAxisGivesTheScansProfile) {
    for (const RandomNetwork& network : dtm_test::MakeGridsWithASpanWiderThanADouble(10, 12)) {
        TestProject project;
        project.Fill(network.vertices, network.triangles);
        EXPECT_TRUE(AgreesWithScan(project, 63, 200));
        project.Tris().CalcOcTree();
        EXPECT_TRUE(AgreesWithScan(project, 64, 200));
    }
}

// Near the top of the double range the crossing test's products overflow, and it can report a
// crossing of a segment far from the triangle; the profile must still be the scan's.
TEST(ProfileIndex, SoupsAtEveryMagnitudeUpToTheTopOfTheRangeGiveTheScansProfile) {
    unsigned seed = 70;
    for (const double size : {1e150, 1e153, 1e154, 1e155, 1e156, 1e200, 1e300}) {
        SCOPED_TRACE(size);
        TestProject project;
        const RandomNetwork network =
            dtm_test::MakeTriangleSoup(seed++, 100, 300, -0.5 * size, -0.4 * size, size, 5.0);
        project.Fill(network.vertices, network.triangles);
        EXPECT_TRUE(AgreesWithScan(project, seed++, 150));
    }
}

// A small network with one huge triangle whose plan box the segment does not meet.
TEST(ProfileIndex, AHugeTriangleAwayFromTheSegmentGivesTheScansProfile) {
    TestProject project;
    RandomNetwork network = dtm_test::MakeJitteredGrid(11, 14, 1.0);
    dtm_test::AppendTriangle(network, PNT_3D(8.2001e206, 6.0331e206, 1),
                             PNT_3D(6.1612e206, 9.3885e206, 2), PNT_3D(8.5e206, 9.5e206, 3));
    project.Fill(network.vertices, network.triangles);
    const LINE_2D line(PNT_2D(5.9564e205, 8.7044e206), PNT_2D(4.4221e206, 4.7362e206));
    EXPECT_TRUE(AgreesWithScan(*project.Prj(), {line}));
    EXPECT_TRUE(AgreesWithScan(project, 80, 200));
}

TEST(ProfileIndex, InsideAnOpenEventAfterChangesGivesTheScansProfile) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(11, 12, 5.0);
    CTris& tris = project.FillIndexed(network);
    std::mt19937 random(12);
    std::uniform_real_distribution<double> unit(0.0, 60.0);
    kor::CEventGuard event(project.Prj()->GetContext());
    for (int step = 0; step < 60; ++step) {
        const int vertexCount = tris.GetNoTriVrts();
        const auto anyVertex = [&] { return static_cast<int>(random() % vertexCount); };
        switch (step % 6) {
            case 0:
                tris.SetTriVrtAt(anyVertex(), PNT_3D(unit(random), unit(random), 1.0));
                break;
            case 1:
                tris.RemoveTriAt(static_cast<int>(random() % tris.GetNoTris()));
                break;
            case 2:
                tris.AddNewTri(1, anyVertex(), anyVertex(), anyVertex());
                break;
            case 3:
                tris.GetTriAt(static_cast<int>(random() % tris.GetNoTris()))
                    ->SetVerIndex(static_cast<int>(random() % 3), anyVertex());
                break;
            case 4:
                tris.CalcOcTree();
                break;
            default:
                tris.GetTriAt(0)->SetVerIndexes(&tris, anyVertex(), anyVertex(), anyVertex());
                break;
        }
        ASSERT_TRUE(AgreesWithScan(project, 100 + step, 40)) << "step " << step;
    }
}

TEST(ProfileIndex, AfterRemoveAllAndRefillingGivesTheScansProfile) {
    TestProject project;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(13, 8, 2.0);
    CTris& tris = project.FillIndexed(network);
    ASSERT_TRUE(AgreesWithScan(project, 200, 100));
    kor::CEventGuard event(project.Prj()->GetContext());
    tris.RemoveAll();
    const LINE_2D line(PNT_2D(0.0, 0.0), PNT_2D(10.0, 10.0));
    Profile profile;
    CCalcIntersect(*project.Prj()).CalcQuotedPnts(line, profile);
    ASSERT_EQ(profile.size(), 2u);
    EXPECT_EQ(profile[0].pnt.z, UNDEFINED_QUOTE);
    const RandomNetwork other = dtm_test::MakeJitteredGrid(14, 7, 2.5);
    for (const PNT_3D& v : other.vertices) tris.AddTriVrt(v);
    for (const TriIndices& t : other.triangles) tris.AddNewTri(1, t[0], t[1], t[2]);
    EXPECT_TRUE(AgreesWithScan(project, 201, 300));
}

TEST(ProfileIndex, ALoadedNetworkGivesTheScansProfile) {
    TestProject saved;
    const RandomNetwork network = dtm_test::MakeJitteredGrid(15, 16, 4.0);
    saved.FillIndexed(network);
    std::stringbuf written;
    ofpstream out(&written, 1502);
    saved.Tris().SalvaInFile(out, nullptr);
    TestProject loaded;
    std::stringbuf buffer(written.str(), std::ios::in);
    ifpstream in(&buffer, 1502);
    loaded.Tris().LeggeDaFile(in, kor::CRefObjIdRemapper(), true);
    ASSERT_TRUE(in.good());
    EXPECT_TRUE(AgreesWithScan(loaded, 300, 500));
}

class BrokenNetworkProfileTest : public dtm_test::CloudNetworkTest {};

TEST_F(BrokenNetworkProfileTest, BrokenNetworkWithTrianglesPastItsVerticesGivesTheScansProfile) {
    std::mt19937 random(17);
    std::uniform_real_distribution<double> unit(0.0, 50.0);
    for (int i = 0; i < 50; ++i) cloud->AddPnt(PNT_3D(unit(random), unit(random), unit(random)));
    BindCloudAndAddEveryPoint();
    {
        kor::CEventGuard event(prj->GetContext());
        for (int i = 0; i < 120; ++i) {
            tris.AddNewTri(1, static_cast<int>(random() % 50), static_cast<int>(random() % 50),
                           static_cast<int>(random() % 50));
        }
    }
    tris.CalcOcTree();
    cloud->missing = 5;
    tris.CheckBroken();
    ASSERT_TRUE(tris.IsBroken());
    kor::CEventGuard event(prj->GetContext());
    for (int i = 0; i < 30; ++i) {
        tris.AddNewTri(1, static_cast<int>(random() % 60), static_cast<int>(random() % 60),
                       static_cast<int>(random() % 60));
    }
    EXPECT_TRUE(AgreesWithScan(*prj, Segments(tris, 400, 300)));
}

}  // namespace
