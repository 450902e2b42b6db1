// The demo's terrain: the same on every run, of the size promised, and a sound network whose
// breaklines lie on its edges.

#include <gtest/gtest.h>

#include <set>
#include <utility>

#include "DemoTerrain.h"
#include "Workspace.h"

namespace {

using dtmtool::DemoLandmarks;
using dtmtool::Workspace;

std::set<std::pair<int, int>> Edges(const CTris& tris) {
    std::set<std::pair<int, int>> edges;
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const CTri& tri = *tris.GetTriAt(i);
        for (int k = 0; k < 3; ++k) {
            const int a = tri.GetVerIndex(k), b = tri.GetVerIndex((k + 1) % 3);
            edges.insert({std::min(a, b), std::max(a, b)});
        }
    }
    return edges;
}

int VertexAt(const CTris& tris, const kor::geom::PNT_3D& p) {
    for (int v = 0; v < tris.GetNoTriVrts(); ++v) {
        const kor::geom::PNT_3D& q = tris.GetTriVrtAt(v);
        if (q.x == p.x && q.y == p.y && q.z == p.z) return v;
    }
    return -1;
}

TEST(DemoTerrainTest, TwoBuildsGiveTheSameTerrain) {
    Workspace first, second;
    DemoLandmarks a, b;
    const CTris& one = *dtmtool::BuildDemoTerrain(first, a)->GetTris();
    const CTris& two = *dtmtool::BuildDemoTerrain(second, b)->GetTris();
    ASSERT_EQ(one.GetNoTriVrts(), two.GetNoTriVrts());
    for (int v = 0; v < one.GetNoTriVrts(); ++v) {
        ASSERT_EQ(one.GetTriVrtAt(v).x, two.GetTriVrtAt(v).x);
        ASSERT_EQ(one.GetTriVrtAt(v).z, two.GetTriVrtAt(v).z);
    }
    EXPECT_EQ(Edges(one), Edges(two));
}

TEST(DemoTerrainTest, ItHasTensOfThousandsOfSoundTrianglesAndItsFeatures) {
    Workspace workspace;
    DemoLandmarks landmarks;
    const CDtmPrj& prj = *dtmtool::BuildDemoTerrain(workspace, landmarks);
    const CTris& tris = *prj.GetTris();
    EXPECT_GT(tris.GetNoTris(), 20000);
    EXPECT_LT(tris.GetNoTris(), 60000);
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const TVrtTri corners = tris.GetVrtTriAt(i);
        // Counter-clockwise with a real area: the jitter never folds a cell.
        ASSERT_GT(kor::geom::CrossProduct(corners.p[0], corners.p[1], corners.p[2]).z, 1.0) << i;
    }
    EXPECT_EQ(prj.GetCnts(false)->GetNoCnts(), 1);
    EXPECT_EQ(prj.GetCnts(true)->GetNoCnts(), 1);
    EXPECT_GT(prj.GetVncs()->GetNoVncs(), 100);
    // The relief spans the hill above the valley, and the pond holds no surface.
    EXPECT_GT(tris.GetMaxQuota() - tris.GetMinQuota(), 100.0);
    EXPECT_GT(tris.GetCoordZQ(landmarks.hillTop.x, landmarks.hillTop.y),
              tris.GetCoordZQ(landmarks.ridgeCrest.x, landmarks.ridgeCrest.y));
    EXPECT_GT(tris.GetCoordZQ(landmarks.ridgeCrest.x, landmarks.ridgeCrest.y),
              tris.GetCoordZQ(landmarks.valleyFloor.x, landmarks.valleyFloor.y));
    EXPECT_TRUE(dtm::IsUndefinedQuote(tris.GetCoordZQ(landmarks.pond.x, landmarks.pond.y)));
}

TEST(DemoTerrainTest, BreaklinesAndBoundariesRunAlongNetworkEdges) {
    Workspace workspace;
    DemoLandmarks landmarks;
    const CDtmPrj& prj = *dtmtool::BuildDemoTerrain(workspace, landmarks);
    const CTris& tris = *prj.GetTris();
    const std::set<std::pair<int, int>> edges = Edges(tris);
    const auto isEdge = [&](const kor::geom::PNT_3D& p, const kor::geom::PNT_3D& q) {
        const int a = VertexAt(tris, p), b = VertexAt(tris, q);
        return a >= 0 && b >= 0 && edges.count({std::min(a, b), std::max(a, b)}) == 1;
    };
    for (int i = 0; i < prj.GetVncs()->GetNoVncs(); ++i) {
        const kor::geom::LINE_3D& segment = prj.GetVncs()->GetVncAt(i)->GetCoords();
        ASSERT_TRUE(isEdge(segment.start, segment.end)) << "breakline " << i;
    }
    for (const bool internal : {false, true}) {
        const std::vector<kor::geom::PNT_3D>& ring =
            prj.GetCnts(internal)->GetCntAt(0)->GetExtendedVrts();
        for (std::size_t k = 1; k + 1 < ring.size(); ++k)
            ASSERT_TRUE(isEdge(ring[k], ring[k + 1]))
                << (internal ? "internal " : "external ") << k;
    }
}

}  // namespace
