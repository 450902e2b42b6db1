#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/Tolerances.h>

#include "network/COcTree.h"
#include "network/ITriOcTreeListener.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "OcTreeChecker.h"
#include "Probes.h"

namespace {

using dtm_test::MakeGridNetwork;
using dtm_test::MakeJitteredGrid;
using dtm_test::MakeSmallTriangles;
using dtm_test::MakeTriangleSoup;
using dtm_test::OcTreeIsValid;
using dtm_test::RandomNetwork;
using dtm_test::TestProject;
using dtm_test::TriIndices;
using kor::geom::PAR_LINE_2D;
using kor::geom::PLANE_3D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

using Vertices = std::array<PNT_3D, 3>;

// The triangle's vertices read straight from the store; a missing vertex has no position.
Vertices TriangleVertices(const CTris& tris, int tri) {
    Vertices v;
    for (int k = 0; k < 3; ++k) {
        const int index = tris.GetTriAt(tri)->GetVerIndex(k);
        if (index < 0 || index >= tris.GetNoTriVrts()) {
            const double nan = std::numeric_limits<double>::quiet_NaN();
            v[static_cast<std::size_t>(k)] = PNT_3D(nan, nan, nan);
        } else {
            v[static_cast<std::size_t>(k)] = tris.GetTriVrtAt(index);
        }
    }
    return v;
}

class RecordingListener : public ITriOcTreeListener {
public:
    explicit RecordingListener(const CTris& tris) : m_tris(tris) {}
    void OnTri(int tri) override { handed.push_back(tri); }
    void Flush() override { ++flushes; }
    void OnNodeEntered(int depth) override {
        ++nodesEntered;
        deepest = std::max(deepest, depth);
    }
    void GetTriVertices(int tri, PNT_3D& a, PNT_3D& b, PNT_3D& c) override {
        const Vertices v = TriangleVertices(m_tris, tri);
        a = v[0];
        b = v[1];
        c = v[2];
    }

    std::vector<int> handed;
    int flushes = 0;
    int nodesEntered = 0;
    int deepest = -1;

private:
    const CTris& m_tris;
};

std::vector<CTri*> TriangleArray(const CTris& tris) {
    std::vector<CTri*> array;
    for (int i = 0; i < tris.GetNoTris(); ++i) array.push_back(tris.GetTriAt(i));
    return array;
}

std::vector<CTri*> Sorted(std::vector<CTri*> array) {
    std::sort(array.begin(), array.end());
    return array;
}

int CountNodes(const COcTreeNode& node) {
    int count = 1;
    for (int octant = 0; octant < 8; ++octant) {
        if (node.HasNodeChild(octant)) count += CountNodes(node.GetNode(octant));
    }
    return count;
}

std::vector<int> AllTriangles(const CTris& tris) {
    std::vector<int> all(static_cast<std::size_t>(tris.GetNoTris()));
    for (int i = 0; i < tris.GetNoTris(); ++i) all[static_cast<std::size_t>(i)] = i;
    return all;
}

// ---- Independent statements of the traversal rules ---------------------------------------

bool OnPositiveSide(const PLANE_3D& plane, const PNT_3D& p) {
    return plane.a * p.x + plane.b * p.y + plane.c * p.z + plane.d > 0.0;
}

std::vector<int> ExpectedUnculled(const CTris& tris, const std::vector<PLANE_3D>& planes) {
    std::vector<int> expected;
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const Vertices v = TriangleVertices(tris, i);
        const bool culled = std::any_of(planes.begin(), planes.end(), [&](const PLANE_3D& pl) {
            return OnPositiveSide(pl, v[0]) && OnPositiveSide(pl, v[1]) && OnPositiveSide(pl, v[2]);
        });
        if (!culled) expected.push_back(i);
    }
    return expected;
}

std::vector<int> ExpectedSlice(const CTris& tris, double z) {
    std::vector<int> expected;
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const Vertices v = TriangleVertices(tris, i);
        if ((v[1].z - z) * (v[0].z - z) <= 0 || (v[2].z - z) * (v[0].z - z) <= 0) {
            expected.push_back(i);
        }
    }
    return expected;
}

// The edge test of the edge search: projection on the edge, line distance strictly below tol.
bool HasMatchingEdge(const CTris& tris, int tri, const PNT_2D& p, double tol) {
    const Vertices v = TriangleVertices(tris, tri);
    for (int k = 0; k < 3; ++k) {
        const PAR_LINE_2D line(v[static_cast<std::size_t>(k)],
                               v[static_cast<std::size_t>((k + 1) % 3)]);
        const double t = line.calcParam(p);
        if (t >= 0 && t <= 1 && std::fabs(line.dist(p)) < tol) return true;
    }
    return false;
}

// Plan distance from p to the closed segment a-b, computed without the geometry kit.
double SegmentDistance(const PNT_3D& a, const PNT_3D& b, const PNT_2D& p) {
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double length2 = dx * dx + dy * dy;
    double t = length2 > 0 ? ((p.x - a.x) * dx + (p.y - a.y) * dy) / length2 : 0.0;
    t = std::clamp(t, 0.0, 1.0);
    return std::hypot(p.x - (a.x + t * dx), p.y - (a.y + t * dy));
}

bool HasEdgeCloserThan(const CTris& tris, int tri, const PNT_2D& p, double distance) {
    const Vertices v = TriangleVertices(tris, tri);
    for (int k = 0; k < 3; ++k) {
        if (SegmentDistance(v[static_cast<std::size_t>(k)],
                            v[static_cast<std::size_t>((k + 1) % 3)], p) < distance)
            return true;
    }
    return false;
}

bool StrictlyAscending(const std::vector<int>& values) {
    return std::adjacent_find(values.begin(), values.end(), [](int a, int b) { return a >= b; }) ==
           values.end();
}

std::vector<PLANE_3D> RandomPlanes(std::mt19937& random, int count, double x0, double y0,
                                   double size, double zRange) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::normal_distribution<double> normal(0.0, 1.0);
    std::vector<PLANE_3D> planes;
    for (int i = 0; i < count; ++i) {
        const double a = normal(random), b = normal(random), c = normal(random);
        const PNT_3D q(x0 + size * unit(random), y0 + size * unit(random), zRange * unit(random));
        planes.emplace_back(a, b, c, -(a * q.x + b * q.y + c * q.z));
    }
    return planes;
}

// A network filled through the store and indexed.
class IndexedNetwork {
public:
    explicit IndexedNetwork(const RandomNetwork& network) { m_project.FillIndexed(network); }
    CTris& Tris() const { return m_project.Tris(); }
    const COcTree& Tree() const { return COcTree::Of(Tris()); }

private:
    TestProject m_project;
};

struct NetworkCase {
    std::string name;
    RandomNetwork network;
    double x0, y0, size, zRange;
};

std::vector<NetworkCase> TraversalCases() {
    return {
        {"soup", MakeTriangleSoup(11, 400, 2000, 0, 0, 100, 50), 0, 0, 100, 50},
        {"grid", MakeGridNetwork(40, 1000, 2000, 2.5), 1000, 2000, 100, 105},
        {"small", MakeSmallTriangles(12, 3000, 5e5, 5e6, 200, 1.5, 10), 5e5, 5e6, 200, 10},
    };
}

// ---- Structure -----------------------------------------------------------------------------

TEST(OcTreeStructure, NetworkWithoutTrianglesHasNoTree) {
    TestProject project;
    project.Fill({PNT_3D(0, 0, 0), PNT_3D(1, 1, 1)}, {});
    project.Tris().CalcOcTree();
    const COcTree& tree = COcTree::Of(project.Tris());
    EXPECT_FALSE(tree.HasRoot());
    EXPECT_EQ(tree.GetGeometry().centreX, UNDEFINED_QUOTE);
    EXPECT_EQ(tree.GetGeometry().side, UNDEFINED_QUOTE);
    EXPECT_EQ(tree.GetGeometry().extentZ, UNDEFINED_QUOTE);
    EXPECT_TRUE(OcTreeIsValid(project.Tris()));
}

TEST(OcTreeStructure, RecordSizesAreThoseOfThePackedBlock) {
    TestProject project;
    const COcTree& tree = COcTree::Of(project.Tris());
    EXPECT_EQ(tree.GetLeafRecordSize(), 8);
    if (sizeof(void*) == 8) {
        EXPECT_EQ(tree.GetNodeRecordSize(), 24);
    }
}

TEST(OcTreeStructure, OneFlatTriangleStillGetsATree) {
    TestProject project;
    project.Fill({PNT_3D(0, 0, 7), PNT_3D(4, 0, 7), PNT_3D(0, 3, 7)}, {{0, 1, 2}});
    project.Tris().CalcOcTree();
    const COcTree& tree = COcTree::Of(project.Tris());
    ASSERT_TRUE(tree.HasRoot());
    const TOcTreeGeometry& g = tree.GetGeometry();
    EXPECT_EQ(g.extentZ, 0.0);
    EXPECT_EQ(g.extentX, 4.0);
    EXPECT_EQ(g.extentY, 3.0);
    EXPECT_EQ(g.side, 4.0);
    EXPECT_EQ(g.centreX, 2.0);
    EXPECT_EQ(g.centreY, 1.5);
    EXPECT_EQ(g.centreZ, 7.0);
    // It straddles the vertical centre planes, so the root keeps it.
    EXPECT_EQ(tree.GetRoot()->GetCount(), 1);
    EXPECT_EQ(tree.GetRoot()->GetFirst(), 0);
    EXPECT_EQ(tree.GetRoot()->GetChildMask(), 0);
    EXPECT_TRUE(OcTreeIsValid(project.Tris()));
}

TEST(OcTreeStructure, VertexZeroOnACentrePlaneFilesTheTriangleOnTheHighSide) {
    // The big triangle fixes the box [0, 10]² at z 0, so the root centre is (5, 5, 0). The small
    // one has vertex 0 on the plane x = 5 and the rest on the low-x side: it does not straddle
    // (a zero product does not count), and it is filed high in x, low in y, high in z (its z
    // lies on the plane too): octant 5, although most of it lies outside that cube.
    TestProject project;
    project.Fill({PNT_3D(0, 0, 0), PNT_3D(10, 0, 0), PNT_3D(0, 10, 0), PNT_3D(5, 2, 0),
                  PNT_3D(5, 4, 0), PNT_3D(3, 3, 0)},
                 {{3, 4, 5}, {0, 1, 2}});
    CTri* big = project.Tris().GetTriAt(1);
    CTri* small = project.Tris().GetTriAt(0);
    project.Tris().CalcOcTree();
    const COcTreeNode* root = COcTree::Of(project.Tris()).GetRoot();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->GetCount(), 1);
    EXPECT_EQ(project.Tris().GetTriAt(0), big);
    EXPECT_EQ(project.Tris().GetTriAt(1), small);
    EXPECT_EQ(root->GetChildMask(), 1 << 5);
    ASSERT_TRUE(root->HasLeafChild(5));
    EXPECT_EQ(root->GetLeaf(5).first, 1);
    EXPECT_EQ(root->GetLeaf(5).count, 1);
    EXPECT_TRUE(OcTreeIsValid(project.Tris()));
}

struct SoupSize {
    int vertices;
    int triangles;
};

class OcTreeOnRandomSoups : public ::testing::TestWithParam<SoupSize> {};

TEST_P(OcTreeOnRandomSoups, BuildObeysEveryRuleAndKeepsEveryTriangle) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TestProject project;
        const SoupSize size = GetParam();
        const RandomNetwork soup =
            MakeTriangleSoup(seed, size.vertices, size.triangles, -50, 20, 100, 30);
        project.Fill(soup.vertices, soup.triangles);
        const std::vector<CTri*> before = TriangleArray(project.Tris());
        project.Tris().CalcOcTree();
        EXPECT_TRUE(OcTreeIsValid(project.Tris()));
        EXPECT_EQ(Sorted(TriangleArray(project.Tris())), Sorted(before));
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, OcTreeOnRandomSoups,
                         ::testing::Values(SoupSize{3, 1}, SoupSize{5, 2}, SoupSize{10, 10},
                                           SoupSize{10, 11}, SoupSize{40, 60}, SoupSize{200, 1000},
                                           SoupSize{3000, 10000}));

TEST(OcTreeStructure, GridNetworkWithVerticesOnCentrePlanesObeysTheRules) {
    // 2·70² = 9800 triangles whose vertices sit on dyadic coordinates, exactly on many planes.
    IndexedNetwork indexed(MakeGridNetwork(70, 0, 0, 1.0));
    EXPECT_TRUE(OcTreeIsValid(indexed.Tris()));
    ASSERT_TRUE(indexed.Tree().HasRoot());
    EXPECT_GT(CountNodes(*indexed.Tree().GetRoot()), 100);
}

TEST(OcTreeStructure, DegenerateAndDuplicateVertexTrianglesObeyTheRules) {
    RandomNetwork network = MakeTriangleSoup(7, 50, 300, 0, 0, 10, 10);
    // Repeated vertex indices, and distinct vertices at identical coordinates.
    for (int i = 0; i < 50; ++i)
        network.vertices.push_back(network.vertices[static_cast<std::size_t>(i)]);
    for (int i = 0; i < 100; ++i) {
        network.triangles.push_back({i % 50, i % 50, i % 50});
        network.triangles.push_back({i % 50, i % 50, (i * 7) % 50});
        network.triangles.push_back({i % 50, 50 + i % 50, (i * 3) % 100});
    }
    IndexedNetwork indexed(network);
    EXPECT_TRUE(OcTreeIsValid(indexed.Tris()));
    EXPECT_EQ(indexed.Tris().GetNoTris(), 600);
}

TEST(OcTreeStructure, CollinearNetworkObeysTheRules) {
    RandomNetwork network;
    std::mt19937 random(5);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int i = 0; i < 200; ++i) {
        const double t = 100 * unit(random);
        network.vertices.emplace_back(t, 2 * t, 0.5 * t);
    }
    std::uniform_int_distribution<int> pick(0, 199);
    for (int i = 0; i < 2000; ++i)
        network.triangles.push_back({pick(random), pick(random), pick(random)});
    IndexedNetwork indexed(network);
    EXPECT_TRUE(OcTreeIsValid(indexed.Tris()));
}

TEST(OcTreeStructure, TrianglesAtOnePointDescendToTheDepthLimit) {
    // The box has no extent: every vertex lies on every centre plane, so nothing straddles and
    // every triangle goes to octant 7. 1200 triangles are split whatever the side, down to
    // the limit of 20 levels, where they end in one leaf.
    RandomNetwork network;
    network.vertices = {PNT_3D(3, 4, 5), PNT_3D(3, 4, 5), PNT_3D(3, 4, 5)};
    for (int i = 0; i < 1200; ++i) network.triangles.push_back({i % 3, (i + 1) % 3, 2});
    IndexedNetwork indexed(network);
    EXPECT_TRUE(OcTreeIsValid(indexed.Tris()));
    const COcTreeNode* node = indexed.Tree().GetRoot();
    ASSERT_NE(node, nullptr);
    int depth = 0;
    while (node->HasNodeChild(7)) {
        EXPECT_EQ(node->GetChildMask(), 1 << 7);
        EXPECT_EQ(node->GetCount(), 0);
        node = &node->GetNode(7);
        ++depth;
    }
    EXPECT_EQ(depth, 20);
    ASSERT_TRUE(node->HasLeafChild(7));
    EXPECT_EQ(node->GetLeaf(7).count, 1200);
}

TEST(OcTreeStructure, ShortRunsInATinyAreaStayInLeaves) {
    // A box under 0.2 across: the children's side is under 0.1, so runs shorter than 1000
    // become leaves, also when they hold more than 10 triangles.
    IndexedNetwork indexed(MakeSmallTriangles(3, 900, 10, 10, 0.15, 0.01, 0.1));
    EXPECT_TRUE(OcTreeIsValid(indexed.Tris()));
    const COcTreeNode* root = indexed.Tree().GetRoot();
    ASSERT_NE(root, nullptr);
    int largestLeaf = 0;
    for (int octant = 0; octant < 8; ++octant) {
        EXPECT_FALSE(root->HasNodeChild(octant));
        if (root->HasLeafChild(octant))
            largestLeaf = std::max(largestLeaf, root->GetLeaf(octant).count);
    }
    EXPECT_GT(largestLeaf, 10);
}

TEST(OcTreeStructure, ThousandTrianglesInATinyAreaAreSplitFurther) {
    IndexedNetwork indexed(MakeSmallTriangles(4, 10000, 10, 10, 0.15, 0.01, 0.1));
    EXPECT_TRUE(OcTreeIsValid(indexed.Tris()));
    const COcTreeNode* root = indexed.Tree().GetRoot();
    ASSERT_NE(root, nullptr);
    int subNodes = 0;
    for (int octant = 0; octant < 8; ++octant) subNodes += root->HasNodeChild(octant) ? 1 : 0;
    EXPECT_GT(subNodes, 0);
}

TEST(OcTreeStructure, TriangleWithAMissingVertexIsStillIndexed) {
    // Negative indices are accepted by the store; such a vertex has no position.
    RandomNetwork network = MakeTriangleSoup(9, 30, 100, 0, 0, 10, 10);
    network.triangles.push_back({-1, 2, 3});
    network.triangles.push_back({4, -5, 6});
    IndexedNetwork indexed(network);
    EXPECT_TRUE(OcTreeIsValid(indexed.Tris()));
    RecordingListener listener(indexed.Tris());
    indexed.Tree().TraversePlanes({}, listener);
    EXPECT_EQ(listener.handed, AllTriangles(indexed.Tris()));
}

// ---- Build -------------------------------------------------------------------------------

TEST(OcTreeBuild, RebuildingAnUnchangedNetworkKeepsItsOrder) {
    IndexedNetwork indexed(MakeTriangleSoup(21, 500, 3000, 0, 0, 50, 50));
    const std::vector<CTri*> first = TriangleArray(indexed.Tris());
    indexed.Tris().CalcOcTree();
    EXPECT_EQ(TriangleArray(indexed.Tris()), first);
    EXPECT_TRUE(OcTreeIsValid(indexed.Tris()));
}

TEST(OcTreeBuild, OrderIsEveryNodesStablePartitionOfTheArray) {
    // From a few thousand triangles to a few hundred thousand. The dyadic grid's vertices lie
    // on many centre planes, the soup's triangles overlap and degenerate, and the far cluster
    // of eight triangles becomes a leaf of the root next to runs of a hundred thousand; they
    // alternate between the sides of their octant's centre planes, so that sorting them any
    // further would change their order.
    RandomNetwork withCluster = MakeJitteredGrid(25, 200, 1.0);
    for (int i = 0; i < 8; ++i) {
        // The root's centre lies near (500, 500), its high child's near (750, 750).
        const double x = i % 2 ? 1000.0 : 600.0;
        const double y = i % 4 < 2 ? 600.0 : 1000.0;
        dtm_test::AppendTriangle(withCluster, PNT_3D(x, y, 500.0), PNT_3D(x + 1, y, 500.0),
                                 PNT_3D(x, y + 1, 500.5));
    }
    // The root's centre is that of the triangles' vertices: vertices that no triangle uses, out
    // beyond them or not finite, must not move it, nor must a vertex array far longer than the
    // triangles need.
    RandomNetwork withUnusedVertices = MakeJitteredGrid(26, 150, 2.0);
    withUnusedVertices.vertices.emplace_back(-5000.0, 40.0, 0.0);
    withUnusedVertices.vertices.emplace_back(40.0, 40.0, 1e6);
    withUnusedVertices.vertices.emplace_back(std::numeric_limits<double>::infinity(), 0.0, 0.0);
    RandomNetwork withUnusedInfinity = MakeJitteredGrid(27, 150, 2.0);
    withUnusedInfinity.vertices.emplace_back(0.0, -std::numeric_limits<double>::infinity(), 0.0);
    const std::vector<std::pair<std::string, RandomNetwork>> cases = {
        {"soup", MakeTriangleSoup(23, 2000, 20000, 0, 0, 100, 40)},
        {"soup with more vertices than triangles", MakeTriangleSoup(29, 9000, 3000, 0, 0, 100, 40)},
        {"dyadic grid", MakeGridNetwork(256, 0, 0, 1.0)},
        {"jittered grid", MakeJitteredGrid(24, 400, 3.0)},
        {"grid and far cluster", withCluster},
        {"grid and unused far vertices", withUnusedVertices},
        {"grid and an unused infinite vertex", withUnusedInfinity},
    };
    for (const auto& [name, network] : cases) {
        SCOPED_TRACE(name);
        TestProject project;
        project.Fill(network.vertices, network.triangles);
        const std::vector<CTri*> expected = dtm_test::OcTreeOrder(project.Tris());
        ASSERT_NE(expected, TriangleArray(project.Tris()));
        project.Tris().CalcOcTree();
        EXPECT_EQ(TriangleArray(project.Tris()), expected);
        EXPECT_TRUE(OcTreeIsValid(project.Tris()));
    }
}

TEST(OcTreeBuild, ReorderingSendsNoNotification) {
    TestProject project;
    const RandomNetwork network = MakeTriangleSoup(22, 100, 400, 0, 0, 50, 50);
    project.Fill(network.vertices, network.triangles);
    dtm_test::ProjectEventRecorder recorder;
    project.Prj()->GetContext()->Register(&recorder);
    const std::vector<CTri*> before = TriangleArray(project.Tris());
    project.Tris().CalcOcTree();
    project.Prj()->GetContext()->Unregister(&recorder);
    EXPECT_NE(TriangleArray(project.Tris()), before);
    EXPECT_EQ(recorder.opened, 0);
    EXPECT_TRUE(recorder.events.empty());
}

TEST(OcTreeBuild, RebuildOnAnEmptiedNetworkEmptiesTheTree) {
    TestProject project;
    const RandomNetwork network = MakeTriangleSoup(23, 10, 20, 0, 0, 5, 5);
    project.FillIndexed(network);
    ASSERT_TRUE(COcTree::Of(project.Tris()).HasRoot());
    project.Tris().DoRemoveAll();
    project.Tris().CalcOcTree();
    EXPECT_FALSE(COcTree::Of(project.Tris()).HasRoot());
    EXPECT_EQ(COcTree::Of(project.Tris()).GetGeometry().centreY, UNDEFINED_QUOTE);
}

// ---- Traversals --------------------------------------------------------------------------

TEST(OcTreeTraversal, EmptyTreeHandsOverNothingAndFlushesOnce) {
    TestProject project;
    RecordingListener listener(project.Tris());
    const COcTree& tree = COcTree::Of(project.Tris());
    tree.TraversePlanes({}, listener);
    tree.TraverseSlice(0.0, listener);
    tree.TraversePlanPoint(PNT_2D(0, 0), 1.0, listener);
    EXPECT_TRUE(listener.handed.empty());
    EXPECT_EQ(listener.flushes, 3);
    EXPECT_EQ(listener.nodesEntered, 0);
}

TEST(OcTreeTraversal, EmptyPlaneListHandsOverEveryTriangleInArrayOrder) {
    for (const NetworkCase& c : TraversalCases()) {
        SCOPED_TRACE(c.name);
        IndexedNetwork indexed(c.network);
        RecordingListener listener(indexed.Tris());
        indexed.Tree().TraversePlanes({}, listener);
        EXPECT_EQ(listener.handed, AllTriangles(indexed.Tris()));
        EXPECT_EQ(listener.flushes, 1);
    }
}

TEST(OcTreeTraversal, PlaneCullingHandsOverExactlyTheUnculledTriangles) {
    for (const NetworkCase& c : TraversalCases()) {
        IndexedNetwork indexed(c.network);
        std::mt19937 random(31);
        for (int step = 0; step < 60; ++step) {
            SCOPED_TRACE(c.name + ", seed 31, step " + std::to_string(step));
            const std::vector<PLANE_3D> planes =
                RandomPlanes(random, 1 + step % 6, c.x0, c.y0, c.size, c.zRange);
            RecordingListener listener(indexed.Tris());
            indexed.Tree().TraversePlanes(planes, listener);
            ASSERT_EQ(listener.handed, ExpectedUnculled(indexed.Tris(), planes));
            EXPECT_EQ(listener.flushes, 1);
        }
    }
}

TEST(OcTreeTraversal, PlaneCullingSkipsWholeSubtrees) {
    IndexedNetwork indexed(MakeGridNetwork(100, 0, 0, 1.0));
    const int nodes = CountNodes(*indexed.Tree().GetRoot());
    // Keep only x < 10: a tenth of the network.
    const std::vector<PLANE_3D> planes = {PLANE_3D(1, 0, 0, -10)};
    RecordingListener listener(indexed.Tris());
    indexed.Tree().TraversePlanes(planes, listener);
    EXPECT_EQ(listener.handed, ExpectedUnculled(indexed.Tris(), planes));
    EXPECT_LT(listener.nodesEntered, nodes / 3);
}

TEST(OcTreeTraversal, TriangleLyingOnAPlaneIsNotCulledByIt) {
    IndexedNetwork indexed(
        RandomNetwork{{PNT_3D(0, 0, 5), PNT_3D(4, 0, 5), PNT_3D(0, 4, 5)}, {{0, 1, 2}}});
    RecordingListener onPlane(indexed.Tris());
    indexed.Tree().TraversePlanes({PLANE_3D(0, 0, 1, -5)}, onPlane);
    EXPECT_EQ(onPlane.handed, std::vector<int>{0});
    RecordingListener below(indexed.Tris());
    indexed.Tree().TraversePlanes({PLANE_3D(0, 0, 1, -4.5)}, below);
    EXPECT_TRUE(below.handed.empty());
}

TEST(OcTreeTraversal, TriangleReachingOutOfItsCubeIsNotCulledWithTheCube) {
    // The small triangle of VertexZeroOnACentrePlane... is filed in octant 5 (x >= 5) but
    // reaches x = 3. The plane x = 4.5 has the whole cube of octant 5 on its positive side,
    // yet the triangle is not culled.
    IndexedNetwork indexed(RandomNetwork{{PNT_3D(0, 0, 0), PNT_3D(10, 0, 0), PNT_3D(0, 10, 0),
                                          PNT_3D(5, 2, 0), PNT_3D(5, 4, 0), PNT_3D(3, 3, 0)},
                                         {{0, 1, 2}, {3, 4, 5}}});
    const std::vector<PLANE_3D> planes = {PLANE_3D(1, 0, 0, -4.5)};
    RecordingListener listener(indexed.Tris());
    indexed.Tree().TraversePlanes(planes, listener);
    EXPECT_EQ(listener.handed, (std::vector<int>{0, 1}));
    EXPECT_EQ(listener.handed, ExpectedUnculled(indexed.Tris(), planes));
}

TEST(OcTreeTraversal, TriangleWithANanVertexIsNeverCulled) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    RandomNetwork network = MakeGridNetwork(20, 0, 0, 1.0);
    network.vertices.emplace_back(3.5, 3.5, nan);
    network.triangles.push_back({0, 1, static_cast<int>(network.vertices.size()) - 1});
    IndexedNetwork indexed(network);
    EXPECT_TRUE(OcTreeIsValid(indexed.Tris()));
    for (const PLANE_3D& plane : {PLANE_3D(0, 0, 1, -1), PLANE_3D(0, 0, -1, 1000),
                                  PLANE_3D(1, 0, 0, 100), PLANE_3D(0, 1, 0, -2)}) {
        RecordingListener listener(indexed.Tris());
        indexed.Tree().TraversePlanes({plane}, listener);
        EXPECT_EQ(listener.handed, ExpectedUnculled(indexed.Tris(), {plane}));
    }
    for (double z : {50.0, 101.0, -3.0}) {
        RecordingListener listener(indexed.Tris());
        indexed.Tree().TraverseSlice(z, listener);
        EXPECT_EQ(listener.handed, ExpectedSlice(indexed.Tris(), z));
    }
}

TEST(OcTreeTraversal, ElevationSliceHandsOverExactlyTheCrossedTriangles) {
    for (const NetworkCase& c : TraversalCases()) {
        IndexedNetwork indexed(c.network);
        std::vector<double> levels = {-1e9, 1e9, 0.0};
        std::mt19937 random(41);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        for (int i = 0; i < 30; ++i) levels.push_back(c.zRange * unit(random));
        // Levels exactly at vertex elevations, where the products are zero.
        for (int i = 0; i < 20; ++i) levels.push_back(indexed.Tris().GetTriVrtAt(i * 7).z);
        for (double z : levels) {
            SCOPED_TRACE(c.name + ", z " + std::to_string(z));
            RecordingListener listener(indexed.Tris());
            indexed.Tree().TraverseSlice(z, listener);
            ASSERT_EQ(listener.handed, ExpectedSlice(indexed.Tris(), z));
            EXPECT_EQ(listener.flushes, 1);
        }
    }
}

TEST(OcTreeTraversal, ElevationSliceSkipsSubtreesOutsideTheLevel) {
    IndexedNetwork indexed(MakeSmallTriangles(42, 20000, 0, 0, 1000, 2, 10));
    RecordingListener listener(indexed.Tris());
    indexed.Tree().TraverseSlice(5.0, listener);
    EXPECT_EQ(listener.handed, ExpectedSlice(indexed.Tris(), 5.0));
    RecordingListener above(indexed.Tris());
    indexed.Tree().TraverseSlice(1000.0, above);
    EXPECT_TRUE(above.handed.empty());
    EXPECT_EQ(above.nodesEntered, 0);
}

// Points worth probing in a network: random ones, vertices, midpoints of edges and points on
// the root's centre planes.
std::vector<PNT_2D> ProbePoints(const CTris& tris, const COcTree& tree, const NetworkCase& c) {
    std::vector<PNT_2D> points;
    std::mt19937 random(51);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int i = 0; i < 40; ++i) {
        points.emplace_back(c.x0 + c.size * unit(random), c.y0 + c.size * unit(random));
    }
    for (int i = 0; i < 20; ++i) {
        const Vertices v = TriangleVertices(tris, (i * 37) % tris.GetNoTris());
        points.push_back(v[0]);
        points.emplace_back((v[1].x + v[2].x) / 2, (v[1].y + v[2].y) / 2);
    }
    const TOcTreeGeometry& g = tree.GetGeometry();
    points.emplace_back(g.centreX, g.centreY);
    points.emplace_back(g.centreX, c.y0 + c.size * unit(random));
    points.emplace_back(c.x0 + c.size * unit(random), g.centreY);
    return points;
}

TEST(OcTreeTraversal, PlanPointHandsOverEveryTriangleWithAnEdgeWithinTolerance) {
    for (const NetworkCase& c : TraversalCases()) {
        IndexedNetwork indexed(c.network);
        const CTris& tris = indexed.Tris();
        for (const PNT_2D& p : ProbePoints(tris, indexed.Tree(), c)) {
            for (double tol : {1e-9, 0.01, 0.5, 3.0}) {
                SCOPED_TRACE(c.name + " at (" + std::to_string(p.x) + ", " + std::to_string(p.y) +
                             "), tol " + std::to_string(tol));
                RecordingListener listener(tris);
                indexed.Tree().TraversePlanPoint(p, tol, listener);
                EXPECT_EQ(listener.flushes, 1);
                ASSERT_TRUE(StrictlyAscending(listener.handed));
                for (int tri = 0; tri < tris.GetNoTris(); ++tri) {
                    const bool needed =
                        HasMatchingEdge(tris, tri, p, tol) || HasEdgeCloserThan(tris, tri, p, tol);
                    if (needed) {
                        ASSERT_TRUE(
                            std::binary_search(listener.handed.begin(), listener.handed.end(), tri))
                            << "triangle " << tri << " was not handed over";
                    }
                }
            }
        }
    }
}

TEST(OcTreeTraversal, PlanPointVisitsOnlyTheNeighbourhoodOfALargeNetwork) {
    // The surface crosses the root's horizontal centre plane along a long contour, so the root
    // itself keeps a few thousand straddling triangles, which every search receives. Below the
    // root only the few nodes around the point are entered.
    IndexedNetwork indexed(MakeGridNetwork(100, 0, 0, 1.0));
    const COcTreeNode& root = *indexed.Tree().GetRoot();
    RecordingListener listener(indexed.Tris());
    indexed.Tree().TraversePlanPoint(PNT_2D(37.5, 61.25), 0.01, listener);
    EXPECT_LT(listener.nodesEntered, CountNodes(root) / 20);
    EXPECT_LT(static_cast<int>(listener.handed.size()), root.GetCount() + 8 * 10 * 8);
    EXPECT_LT(static_cast<int>(listener.handed.size()), indexed.Tris().GetNoTris() / 5);
}

TEST(OcTreeTraversal, PlanPointWithoutPositiveToleranceHandsOverNothing) {
    IndexedNetwork indexed(MakeGridNetwork(5, 0, 0, 1.0));
    for (double tol : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
        RecordingListener listener(indexed.Tris());
        indexed.Tree().TraversePlanPoint(PNT_2D(1, 1), tol, listener);
        EXPECT_TRUE(listener.handed.empty());
        EXPECT_EQ(listener.flushes, 1);
    }
}

// ---- Traversals after the vertices changed ---------------------------------------------------

namespace {

// Every traversal answers for the vertices the network holds now, whatever they were when the
// tree was built: the slice at each of @p levels, random clip planes, and plan points at
// @p points.
void ExpectTraversalsFollowTheCurrentVertices(const IndexedNetwork& indexed, const NetworkCase& c,
                                              const std::vector<double>& levels,
                                              const std::vector<PNT_2D>& points) {
    const CTris& tris = indexed.Tris();
    for (const double z : levels) {
        SCOPED_TRACE(c.name + ", slice at " + std::to_string(z));
        RecordingListener listener(tris);
        indexed.Tree().TraverseSlice(z, listener);
        EXPECT_EQ(listener.handed, ExpectedSlice(tris, z));
    }
    std::mt19937 random(61);
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(c.name + ", planes " + std::to_string(round));
        const std::vector<PLANE_3D> planes =
            RandomPlanes(random, 1 + round % 3, c.x0, c.y0, 4 * c.size, 20 * c.zRange);
        RecordingListener listener(tris);
        indexed.Tree().TraversePlanes(planes, listener);
        EXPECT_EQ(listener.handed, ExpectedUnculled(tris, planes));
    }
    for (const PNT_2D& p : points) {
        SCOPED_TRACE(c.name + " at (" + std::to_string(p.x) + ", " + std::to_string(p.y) + ")");
        RecordingListener listener(tris);
        indexed.Tree().TraversePlanPoint(p, 0.5, listener);
        for (int tri = 0; tri < tris.GetNoTris(); ++tri) {
            if (HasMatchingEdge(tris, tri, p, 0.5)) {
                EXPECT_TRUE(std::binary_search(listener.handed.begin(), listener.handed.end(), tri))
                    << "triangle " << tri << " was not handed over";
            }
        }
    }
}

}  // namespace

TEST(OcTreeTraversal, TraversalsInsideAnEventFollowVerticesMovedSinceTheBuild) {
    for (const NetworkCase& c : TraversalCases()) {
        IndexedNetwork indexed(c.network);
        CTris& tris = indexed.Tris();
        // Still inside the event: the listener has not rebuilt the tree.
        kor::CEventGuard event(tris.GetContext());
        std::vector<double> levels;
        std::vector<PNT_2D> points;
        for (int i = 0; i < 12; ++i) {
            const int vertex = (i * 53) % tris.GetNoTriVrts();
            const PNT_3D before = tris.GetTriVrtAt(vertex);
            const PNT_3D after(before.x + 3 * c.size, before.y - 2 * c.size,
                               before.z + (i % 2 ? 10 : -10) * c.zRange);
            tris.SetTriVrtAt(vertex, after);
            levels.push_back(after.z);
            levels.push_back((before.z + after.z) / 2);
            points.emplace_back((before.x + after.x) / 2, (before.y + after.y) / 2);
            points.emplace_back(after.x, after.y);
        }
        ExpectTraversalsFollowTheCurrentVertices(indexed, c, levels, points);
    }
}

TEST(OcTreeTraversal, TraversalsFollowTrianglesGivenOtherVerticesWithoutNotification) {
    for (const NetworkCase& c : TraversalCases()) {
        IndexedNetwork indexed(c.network);
        CTris& tris = indexed.Tris();
        // A far vertex, added before the tree was built, that the triangles are pointed at.
        std::vector<double> levels;
        std::vector<PNT_2D> points;
        for (int i = 0; i < 12; ++i) {
            CTri& tri = *tris.GetTriAt((i * 97) % tris.GetNoTris());
            const Vertices before = TriangleVertices(tris, (i * 97) % tris.GetNoTris());
            int farthest = 0;
            double distance = -1.0;
            for (int v = 0; v < tris.GetNoTriVrts(); ++v) {
                const PNT_3D& q = tris.GetTriVrtAt(v);
                const double d =
                    std::hypot(q.x - before[0].x, q.y - before[0].y) + std::fabs(q.z - before[0].z);
                if (d > distance) {
                    distance = d;
                    farthest = v;
                }
            }
            tri.SetVerIndex(i % 3, farthest);
            const PNT_3D& far = tris.GetTriVrtAt(farthest);
            levels.push_back((before[(i + 1) % 3].z + far.z) / 2);
            points.emplace_back((before[(i + 1) % 3].x + far.x) / 2,
                                (before[(i + 1) % 3].y + far.y) / 2);
        }
        ExpectTraversalsFollowTheCurrentVertices(indexed, c, levels, points);
    }
}

// ---- Node blocks and assignment ----------------------------------------------------------

TEST(OcTreeNode, ChildBlockHoldsLeavesAndNodesInOctantOrder) {
    COcTreeNode node;
    node.SetRun(4, 9);
    node.SetChildren(0b10100101, 0b00100001);
    EXPECT_EQ(node.GetCount(), 4);
    EXPECT_EQ(node.GetFirst(), 9);
    EXPECT_TRUE(node.HasLeafChild(0));
    EXPECT_TRUE(node.HasNodeChild(2));
    EXPECT_TRUE(node.HasLeafChild(5));
    EXPECT_TRUE(node.HasNodeChild(7));
    EXPECT_FALSE(node.HasChild(1));
    EXPECT_FALSE(node.HasChild(8));
    EXPECT_FALSE(node.HasChild(-1));
    node.GetLeaf(0) = {3, 13};
    node.GetLeaf(5) = {2, 16};
    node.GetNode(2).SetRun(1, 18);
    node.GetNode(7).SetRun(5, 19);
    node.GetNode(7).SetChildren(0b00000010, 0b00000010);
    node.GetNode(7).GetLeaf(1) = {6, 24};
    EXPECT_EQ(node.GetLeaf(0).count, 3);
    EXPECT_EQ(node.GetLeaf(0).first, 13);
    EXPECT_EQ(node.GetLeaf(5).count, 2);
    EXPECT_EQ(node.GetLeaf(5).first, 16);
    EXPECT_EQ(node.GetNode(2).GetFirst(), 18);
    EXPECT_EQ(node.GetNode(7).GetCount(), 5);
    EXPECT_EQ(node.GetNode(7).GetLeaf(1).first, 24);
    EXPECT_THROW(node.GetLeaf(2), std::out_of_range);
    EXPECT_THROW(node.GetNode(5), std::out_of_range);
    EXPECT_THROW(node.GetLeaf(3), std::out_of_range);
    EXPECT_THROW(node.GetNode(9), std::out_of_range);
}

TEST(OcTreeNode, ReplacingTheChildrenDropsTheOldOnes) {
    COcTreeNode node;
    node.SetChildren(0xFF, 0x00);
    for (int octant = 0; octant < 8; ++octant) node.GetNode(octant).SetChildren(0xFF, 0x0F);
    node.SetChildren(0x01, 0x01);
    EXPECT_EQ(node.GetChildMask(), 0x01);
    EXPECT_EQ(node.GetLeaf(0).count, 0);
    node.SetChildren(0, 0);
    EXPECT_EQ(node.GetChildMask(), 0);
}

TEST(OcTreeNode, LeafMaskBitsOfAbsentChildrenAreKept) {
    COcTreeNode node;
    node.SetChildren(0b00000011, 0b11000001);
    EXPECT_EQ(node.GetLeafMask(), 0b11000001);
    EXPECT_TRUE(node.HasLeafChild(0));
    EXPECT_TRUE(node.HasNodeChild(1));
    EXPECT_FALSE(node.HasChild(7));
}

// Rebuilds @p from's structure into @p to through the public node interface, as the reader
// of a file section does.
void FillNode(COcTreeNode& to, const COcTreeNode& from) {
    to.SetRun(from.GetCount(), from.GetFirst());
    to.SetChildren(from.GetChildMask(), from.GetLeafMask());
    for (int octant = 0; octant < 8; ++octant) {
        if (from.HasLeafChild(octant)) to.GetLeaf(octant) = from.GetLeaf(octant);
        if (from.HasNodeChild(octant)) FillNode(to.GetNode(octant), from.GetNode(octant));
    }
}

std::unique_ptr<COcTreeNode> CopyNode(const COcTreeNode& from) {
    auto copy = std::make_unique<COcTreeNode>();
    FillNode(*copy, from);
    return copy;
}

bool SameStructure(const COcTreeNode& a, const COcTreeNode& b) {
    if (a.GetCount() != b.GetCount() || a.GetFirst() != b.GetFirst() ||
        a.GetChildMask() != b.GetChildMask() || a.GetLeafMask() != b.GetLeafMask()) {
        return false;
    }
    for (int octant = 0; octant < 8; ++octant) {
        if (a.HasLeafChild(octant) && (a.GetLeaf(octant).count != b.GetLeaf(octant).count ||
                                       a.GetLeaf(octant).first != b.GetLeaf(octant).first)) {
            return false;
        }
        if (a.HasNodeChild(octant) && !SameStructure(a.GetNode(octant), b.GetNode(octant))) {
            return false;
        }
    }
    return true;
}

TEST(OcTreeAssign, CopiedStructureTraversesLikeTheBuiltTree) {
    IndexedNetwork indexed(MakeTriangleSoup(61, 800, 5000, 0, 0, 100, 40));
    const COcTree& built = indexed.Tree();
    COcTree copy(&indexed.Tris());
    copy.Assign(built.GetGeometry(), CopyNode(*built.GetRoot()));
    ASSERT_TRUE(copy.HasRoot());
    EXPECT_TRUE(SameStructure(*copy.GetRoot(), *built.GetRoot()));
    EXPECT_EQ(copy.GetGeometry().side, built.GetGeometry().side);
    EXPECT_EQ(copy.GetGeometry().centreZ, built.GetGeometry().centreZ);

    std::mt19937 random(62);
    for (int step = 0; step < 10; ++step) {
        const std::vector<PLANE_3D> planes = RandomPlanes(random, 3, 0, 0, 100, 40);
        RecordingListener fromBuilt(indexed.Tris());
        RecordingListener fromCopy(indexed.Tris());
        built.TraversePlanes(planes, fromBuilt);
        copy.TraversePlanes(planes, fromCopy);
        EXPECT_EQ(fromCopy.handed, fromBuilt.handed);
        EXPECT_EQ(fromCopy.nodesEntered, fromBuilt.nodesEntered);
    }
    RecordingListener sliceBuilt(indexed.Tris());
    RecordingListener sliceCopy(indexed.Tris());
    built.TraverseSlice(20.0, sliceBuilt);
    copy.TraverseSlice(20.0, sliceCopy);
    EXPECT_EQ(sliceCopy.handed, sliceBuilt.handed);
    RecordingListener pointBuilt(indexed.Tris());
    RecordingListener pointCopy(indexed.Tris());
    built.TraversePlanPoint(PNT_2D(30, 60), 0.5, pointBuilt);
    copy.TraversePlanPoint(PNT_2D(30, 60), 0.5, pointCopy);
    EXPECT_EQ(pointCopy.handed, pointBuilt.handed);
}

TEST(OcTreeAssign, RunsReachingPastTheArrayAreCutThere) {
    IndexedNetwork indexed(MakeTriangleSoup(63, 10, 5, 0, 0, 10, 10));
    auto root = std::make_unique<COcTreeNode>();
    root->SetRun(100, 0);
    root->SetChildren(0b00000011, 0b00000001);
    root->GetLeaf(0) = {7, 3};
    root->GetNode(1).SetRun(5, -2);
    COcTree tree(&indexed.Tris());
    tree.Assign(indexed.Tree().GetGeometry(), std::move(root));
    RecordingListener listener(indexed.Tris());
    tree.TraversePlanes({}, listener);
    EXPECT_EQ(listener.handed, (std::vector<int>{0, 1, 2, 3, 4, 3, 4, 0, 1, 2}));
}

TEST(OcTreeAssign, NullRootEmptiesTheTree) {
    IndexedNetwork indexed(MakeTriangleSoup(64, 10, 5, 0, 0, 10, 10));
    COcTree tree(&indexed.Tris());
    tree.Assign(indexed.Tree().GetGeometry(), CopyNode(*indexed.Tree().GetRoot()));
    ASSERT_TRUE(tree.HasRoot());
    tree.Assign(indexed.Tree().GetGeometry(), nullptr);
    EXPECT_FALSE(tree.HasRoot());
    EXPECT_EQ(tree.GetGeometry().centreX, UNDEFINED_QUOTE);
}

}  // namespace

// ---- Node boxes ----------------------------------------------------------------------------

namespace {

// Every triangle position below @p node, in pre-order.
void CollectPositions(const COcTreeNode& node, std::vector<int>& out) {
    for (int i = 0; i < node.GetCount(); ++i) out.push_back(node.GetFirst() + i);
    for (int octant = 0; octant < 8; ++octant) {
        if (node.HasLeafChild(octant)) {
            const COcTreeLeaf& leaf = node.GetLeaf(octant);
            for (int i = 0; i < leaf.count; ++i) out.push_back(leaf.first + i);
        } else if (node.HasNodeChild(octant)) {
            CollectPositions(node.GetNode(octant), out);
        }
    }
}

// Checks every node's box against the vertices below it, computed here: it must hold them all,
// by at most one step of single precision more on each side, or be unbounded when one of them
// is missing or not finite; and it must equal the box that @p copy (the same structure,
// assigned, whose boxes come from another path) holds for the same node.
void ExpectBoxesHoldTheirVertices(const CTris& tris, const COcTree& tree, const COcTreeNode& node,
                                  const COcTree& copy, const COcTreeNode& copied) {
    std::vector<int> positions;
    CollectPositions(node, positions);
    double lo[3] = {std::numeric_limits<double>::infinity(),
                    std::numeric_limits<double>::infinity(),
                    std::numeric_limits<double>::infinity()};
    double hi[3] = {-lo[0], -lo[1], -lo[2]};
    bool unbounded = false;
    for (const int position : positions) {
        const CTri& tri = *tris.GetTriAt(position);
        for (int k = 0; k < 3; ++k) {
            const int index = tri.GetVerIndex(k);
            if (index < 0 || index >= tris.GetNoTriVrts()) {
                unbounded = true;
                continue;
            }
            const PNT_3D& v = tris.GetTriVrtAt(index);
            const double c[3] = {v.x, v.y, v.z};
            for (int axis = 0; axis < 3; ++axis) {
                if (!std::isfinite(c[axis])) unbounded = true;
                lo[axis] = std::min(lo[axis], c[axis]);
                hi[axis] = std::max(hi[axis], c[axis]);
            }
        }
    }
    const kor::geom::RECT_3D box = tree.GetNodeBound(node);
    const kor::geom::RECT_3D assigned = copy.GetNodeBound(copied);
    const double got[2][3] = {{box.min.x, box.min.y, box.min.z}, {box.max.x, box.max.y, box.max.z}};
    const double other[2][3] = {{assigned.min.x, assigned.min.y, assigned.min.z},
                                {assigned.max.x, assigned.max.y, assigned.max.z}};
    for (int axis = 0; axis < 3; ++axis) {
        EXPECT_EQ(got[0][axis], other[0][axis]);
        EXPECT_EQ(got[1][axis], other[1][axis]);
        if (unbounded) {
            EXPECT_EQ(got[0][axis], -std::numeric_limits<double>::infinity());
            EXPECT_EQ(got[1][axis], std::numeric_limits<double>::infinity());
            continue;
        }
        EXPECT_LE(got[0][axis], lo[axis]);
        EXPECT_GE(got[1][axis], hi[axis]);
        // No looser than one single-precision step.
        EXPECT_GT(std::nextafter(static_cast<float>(got[0][axis]),
                                 std::numeric_limits<float>::infinity()),
                  lo[axis]);
        EXPECT_LT(std::nextafter(static_cast<float>(got[1][axis]),
                                 -std::numeric_limits<float>::infinity()),
                  hi[axis]);
    }
    for (int octant = 0; octant < 8; ++octant) {
        if (node.HasNodeChild(octant))
            ExpectBoxesHoldTheirVertices(tris, tree, node.GetNode(octant), copy,
                                         copied.GetNode(octant));
    }
}

}  // namespace

TEST(OcTreeBounds, BoxesFoundWhileBuildingHoldTheVerticesBelowAndMatchAssignedOnes) {
    RandomNetwork withMissing = MakeTriangleSoup(71, 300, 1500, -40, 7, 60, 20);
    withMissing.triangles.push_back({0, 1, -3});
    withMissing.vertices.emplace_back(std::numeric_limits<double>::infinity(), 3.0, 1.0);
    withMissing.triangles.push_back({2, 3, static_cast<int>(withMissing.vertices.size()) - 1});
    withMissing.vertices.emplace_back(4.0, 5.0, std::numeric_limits<double>::quiet_NaN());
    withMissing.triangles.push_back({static_cast<int>(withMissing.vertices.size()) - 1, 5, 6});
    withMissing.vertices.emplace_back(4.0, -std::numeric_limits<double>::infinity(), 2.0);
    withMissing.triangles.push_back({7, static_cast<int>(withMissing.vertices.size()) - 1, 8});
    for (const RandomNetwork& network :
         {MakeGridNetwork(30, 100.3, -200.7, 1.3),
          MakeSmallTriangles(72, 2000, 5e5, 5e6, 300, 2, 9), withMissing}) {
        IndexedNetwork indexed(network);
        const COcTree& built = indexed.Tree();
        ASSERT_TRUE(built.HasRoot());
        COcTree copy(&indexed.Tris());
        copy.Assign(built.GetGeometry(), CopyNode(*built.GetRoot()));
        ExpectBoxesHoldTheirVertices(indexed.Tris(), built, *built.GetRoot(), copy,
                                     *copy.GetRoot());
    }
}
