#include "OcTreeChecker.h"

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>

#include "network/COcTree.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <sstream>

using kor::geom::PNT_3D;
using kor::geom::RECT_3D;

namespace dtm_test {
namespace {

constexpr std::size_t kMaxReported = 40;

// Vertex k of @p tri in @p tris; a vertex that does not exist is a point with no position.
PNT_3D TriVertex(const CTris& tris, const CTri& tri, int k) {
    const int index = tri.GetVerIndex(k);
    const std::vector<PNT_3D>& vertices = tris.GetPnts();
    if (index < 0 || index >= static_cast<int>(vertices.size())) {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        return PNT_3D(nan, nan, nan);
    }
    return vertices[static_cast<std::size_t>(index)];
}

// Straddling, as the rule states it: on some axis P1 or P2 lies strictly on the other side of
// the centre plane than P0.
bool StraddlesCentre(const CTris& tris, const CTri& tri, const PNT_3D& c) {
    const PNT_3D p0 = TriVertex(tris, tri, 0);
    const PNT_3D p1 = TriVertex(tris, tri, 1);
    const PNT_3D p2 = TriVertex(tris, tri, 2);
    const double o0[3] = {p0.x - c.x, p0.y - c.y, p0.z - c.z};
    const double o1[3] = {p1.x - c.x, p1.y - c.y, p1.z - c.z};
    const double o2[3] = {p2.x - c.x, p2.y - c.y, p2.z - c.z};
    for (int axis = 0; axis < 3; ++axis) {
        if (o1[axis] * o0[axis] < 0 || o2[axis] * o0[axis] < 0) return true;
    }
    return false;
}

// Octant of vertex 0; the high side is taken when the coordinate is >= the centre's.
int OctantOfVertex0(const CTris& tris, const CTri& tri, const PNT_3D& c) {
    const PNT_3D p0 = TriVertex(tris, tri, 0);
    const bool highX = !(c.x > p0.x);
    const bool highY = !(c.y > p0.y);
    const bool highZ = !(c.z > p0.z);
    return (highX ? 4 : 0) + (highY ? 2 : 0) + (highZ ? 1 : 0);
}

// Whether an octant run of n triangles below a node at depth becomes a sub-node.
bool BecomesSubNode(int depth, std::size_t n, double childSide) {
    return depth != 20 && n >= 11 && (n >= 1000 || childSide > 0.1);
}

PNT_3D ChildCentreOf(const PNT_3D& c, double side, int octant) {
    const double quarter = side / 4;
    return PNT_3D((octant & 4) ? c.x + quarter : c.x - quarter,
                  (octant & 2) ? c.y + quarter : c.y - quarter,
                  (octant & 1) ? c.z + quarter : c.z - quarter);
}

// The box of every vertex of every triangle, as the build extends it.
RECT_3D TrianglesBox(const CTris& tris) {
    RECT_3D box;
    box.initRegion();
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        for (int k = 0; k < 3; ++k) box.updateRegion(TriVertex(tris, *tris.GetTriAt(i), k));
    }
    return box;
}

// Appends @p run to @p out in the order a node centred on @p c makes of it: the straddling
// triangles, then each octant's, in the order they came, either as a leaf or ordered in turn
// by the sub-node.
void AppendInTreeOrder(const CTris& tris, const std::vector<CTri*>& run, const PNT_3D& c,
                       double side, int depth, std::vector<CTri*>& out) {
    std::array<std::vector<CTri*>, 8> octants;
    for (CTri* tri : run) {
        if (StraddlesCentre(tris, *tri, c))
            out.push_back(tri);
        else
            octants[static_cast<std::size_t>(OctantOfVertex0(tris, *tri, c))].push_back(tri);
    }
    for (int octant = 0; octant < 8; ++octant) {
        const std::vector<CTri*>& part = octants[static_cast<std::size_t>(octant)];
        if (BecomesSubNode(depth, part.size(), side / 2)) {
            AppendInTreeOrder(tris, part, ChildCentreOf(c, side, octant), side / 2, depth + 1, out);
        } else {
            out.insert(out.end(), part.begin(), part.end());
        }
    }
}

class Checker {
public:
    explicit Checker(const CTris& tris) : m_tris(tris), m_tree(COcTree::Of(tris)) {}

    std::vector<std::string> Run() {
        const int n = m_tris.GetNoTris();
        if (m_tree.GetLeafRecordSize() != 8) Report("tree", "leaf record size is not 8");
        if (sizeof(void*) == 8 && m_tree.GetNodeRecordSize() != 24) {
            Report("tree", "node record size is not 24");
        }
        const RECT_3D box = TrianglesBox(m_tris);
        const bool expectRoot = n > 0 && !(box.max.x < box.min.x);
        const COcTreeNode* root = m_tree.GetRoot();
        if (!expectRoot) {
            if (root) Report("tree", "has a root although there is nothing to index");
            return m_violations;
        }
        if (!root) {
            Report("tree", "has no root although there are triangles");
            return m_violations;
        }
        CheckGeometry(box);
        const TOcTreeGeometry& g = m_tree.GetGeometry();
        m_coverage.assign(static_cast<std::size_t>(n), 0);
        CheckNode(*root, "root", PNT_3D(g.centreX, g.centreY, g.centreZ), g.side, 0, 0, n);
        for (int i = 0; i < n; ++i) {
            const int covered = m_coverage[static_cast<std::size_t>(i)];
            if (covered != 1) {
                Report("tree", "triangle " + std::to_string(i) + " is covered " +
                                   std::to_string(covered) + " times");
            }
        }
        return m_violations;
    }

private:
    void Report(const std::string& where, const std::string& what) {
        if (m_violations.size() < kMaxReported) m_violations.push_back(where + ": " + what);
    }

    static bool Near(double actual, double expected) {
        return std::fabs(actual - expected) <= std::fabs(expected) * 1e-12 + 1e-12;
    }

    void CheckGeometry(const RECT_3D& box) {
        const TOcTreeGeometry& g = m_tree.GetGeometry();
        const double ex = box.max.x - box.min.x;
        const double ey = box.max.y - box.min.y;
        const double ez = box.max.z - box.min.z;
        if (!Near(g.extentX, ex) || !Near(g.extentY, ey) || !Near(g.extentZ, ez)) {
            Report("geometry", "extents differ from the triangles' box");
        }
        if (!Near(g.side, std::max(std::max(ex, ey), ez))) {
            Report("geometry", "side is not the largest extent");
        }
        if (!Near(g.centreX, box.min.x + ex / 2) || !Near(g.centreY, box.min.y + ey / 2) ||
            !Near(g.centreZ, box.min.z + ez / 2)) {
            Report("geometry", "centre is not the box centre");
        }
    }

    bool Straddles(int tri, const PNT_3D& c) const {
        return StraddlesCentre(m_tris, *m_tris.GetTriAt(tri), c);
    }

    int Octant(int tri, const PNT_3D& c) const {
        return OctantOfVertex0(m_tris, *m_tris.GetTriAt(tri), c);
    }

    void Cover(const std::string& where, int first, int count) {
        if (count < 0 || first < 0 || first + count > static_cast<int>(m_coverage.size())) {
            Report(where, "run outside the triangle array");
            return;
        }
        for (int i = first; i < first + count; ++i) ++m_coverage[static_cast<std::size_t>(i)];
    }

    void CheckNode(const COcTreeNode& node, const std::string& where, const PNT_3D& c, double side,
                   int depth, int begin, int end) {
        if (depth > 20) Report(where, "deeper than 20 levels below the root");
        if (node.GetFirst() != begin) Report(where, "own run does not start its run");
        const int ownEnd = node.GetFirst() + node.GetCount();
        if (node.GetCount() < 0 || ownEnd > end) {
            Report(where, "own run leaves its run");
            return;
        }
        Cover(where, node.GetFirst(), node.GetCount());
        for (int i = begin; i < ownEnd; ++i) {
            if (!Straddles(i, c)) Report(where, "keeps non-straddling " + std::to_string(i));
        }
        std::array<int, 8> runBegin{};
        std::array<int, 8> runSize{};
        int previousOctant = -1;
        for (int i = ownEnd; i < end; ++i) {
            if (Straddles(i, c)) Report(where, "passes down straddling " + std::to_string(i));
            const int octant = Octant(i, c);
            if (octant < previousOctant) {
                Report(where, "octant runs out of order at " + std::to_string(i));
            }
            if (octant != previousOctant) runBegin[static_cast<std::size_t>(octant)] = i;
            ++runSize[static_cast<std::size_t>(octant)];
            previousOctant = octant;
        }
        if ((node.GetLeafMask() & ~node.GetChildMask()) != 0) {
            Report(where, "leaf mask names an absent child");
        }
        const double childSide = side / 2;
        for (int octant = 0; octant < 8; ++octant) {
            const std::string childWhere = where + "/" + std::to_string(octant);
            const int n = runSize[static_cast<std::size_t>(octant)];
            const int first = runBegin[static_cast<std::size_t>(octant)];
            const bool present = ((node.GetChildMask() >> octant) & 1) != 0;
            if (present != (n > 0)) {
                Report(childWhere, "child mask disagrees with the octant's run");
                continue;
            }
            if (n == 0) continue;
            const bool expectNode = BecomesSubNode(depth, static_cast<std::size_t>(n), childSide);
            const bool isLeaf = ((node.GetLeafMask() >> octant) & 1) != 0;
            if (isLeaf == expectNode) {
                Report(childWhere, expectNode ? "is a leaf but must be split"
                                              : "is a sub-node but must be a leaf");
                continue;
            }
            if (isLeaf) {
                const COcTreeLeaf& leaf = node.GetLeaf(octant);
                if (leaf.first != first || leaf.count != n) {
                    Report(childWhere, "leaf does not hold the octant's run");
                }
                Cover(childWhere, leaf.first, leaf.count);
            } else {
                CheckNode(node.GetNode(octant), childWhere, ChildCentreOf(c, side, octant),
                          childSide, depth + 1, first, first + n);
            }
        }
    }

    const CTris& m_tris;
    const COcTree& m_tree;
    std::vector<int> m_coverage;
    std::vector<std::string> m_violations;
};

}  // namespace

std::vector<std::string> OcTreeViolations(const CTris& tris) {
    return Checker(tris).Run();
}

std::vector<CTri*> OcTreeOrder(const CTris& tris) {
    std::vector<CTri*> array;
    for (int i = 0; i < tris.GetNoTris(); ++i) array.push_back(tris.GetTriAt(i));
    const RECT_3D box = TrianglesBox(tris);
    if (array.empty() || box.max.x < box.min.x) return array;
    const PNT_3D centre((box.min.x + box.max.x) / 2, (box.min.y + box.max.y) / 2,
                        (box.min.z + box.max.z) / 2);
    const double side =
        std::max({box.max.x - box.min.x, box.max.y - box.min.y, box.max.z - box.min.z});
    std::vector<CTri*> order;
    order.reserve(array.size());
    AppendInTreeOrder(tris, array, centre, side, 0, order);
    return order;
}

::testing::AssertionResult OcTreeIsValid(const CTris& tris) {
    const std::vector<std::string> violations = OcTreeViolations(tris);
    if (violations.empty()) return ::testing::AssertionSuccess();
    std::ostringstream message;
    message << violations.size() << " octree rule violation(s):";
    for (const std::string& violation : violations) message << "\n  " << violation;
    return ::testing::AssertionFailure() << message.str();
}

TestProject::TestProject() : m_prj(new CDtmPrj(nullptr, "P", true, false)) {}

TestProject::~TestProject() {
    m_prj->SubReference();
}

CTris& TestProject::Tris() const {
    return *m_prj->GetTris();
}

void TestProject::Fill(const std::vector<PNT_3D>& vertices,
                       const std::vector<TriIndices>& triangles) {
    CTris& tris = Tris();
    kor::CEventGuard event(m_prj->GetContext());
    for (const PNT_3D& vertex : vertices) tris.AddTriVrt(vertex);
    for (const TriIndices& t : triangles) tris.AddNewTri(1, t[0], t[1], t[2]);
}

CTris& TestProject::FillIndexed(const RandomNetwork& network) {
    Fill(network.vertices, network.triangles);
    Tris().CalcOcTree();
    return Tris();
}

RandomNetwork MakeTriangleSoup(unsigned seed, int vertexCount, int triangleCount, double x0,
                               double y0, double size, double zRange) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::uniform_int_distribution<int> pick(0, vertexCount - 1);
    RandomNetwork network;
    for (int i = 0; i < vertexCount; ++i) {
        network.vertices.emplace_back(x0 + size * unit(random), y0 + size * unit(random),
                                      zRange * unit(random));
    }
    for (int i = 0; i < triangleCount; ++i) {
        network.triangles.push_back({pick(random), pick(random), pick(random)});
    }
    return network;
}

RandomNetwork MakeGridNetwork(int n, double x0, double y0, double step) {
    RandomNetwork network;
    for (int row = 0; row <= n; ++row) {
        for (int column = 0; column <= n; ++column) {
            const double x = x0 + step * column;
            const double y = y0 + step * row;
            network.vertices.emplace_back(
                x, y, 100.0 + 3.0 * std::sin(0.3 * column) + 2.0 * std::cos(0.2 * row));
        }
    }
    const auto index = [n](int row, int column) { return row * (n + 1) + column; };
    for (int row = 0; row < n; ++row) {
        for (int column = 0; column < n; ++column) {
            network.triangles.push_back(
                {index(row, column), index(row, column + 1), index(row + 1, column + 1)});
            network.triangles.push_back(
                {index(row, column), index(row + 1, column + 1), index(row + 1, column)});
        }
    }
    return network;
}

RandomNetwork MakeSmallTriangles(unsigned seed, int triangleCount, double x0, double y0,
                                 double size, double triangleSize, double zRange) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    RandomNetwork network;
    for (int i = 0; i < triangleCount; ++i) {
        const double x = x0 + size * unit(random);
        const double y = y0 + size * unit(random);
        const double z = zRange * unit(random);
        const double dz = zRange / 10;
        // One draw per statement: the order of a call's arguments is not fixed, and the
        // network must be the same whatever the compiler.
        const double bx = x + triangleSize * unit(random);
        const double by = y + triangleSize * (unit(random) - 0.5);
        const double bz = z + dz * unit(random);
        const double cx = x + triangleSize * (unit(random) - 0.5);
        const double cy = y + triangleSize * unit(random);
        const double cz = z - dz * unit(random);
        AppendTriangle(network, PNT_3D(x, y, z), PNT_3D(bx, by, bz), PNT_3D(cx, cy, cz));
    }
    return network;
}

void AppendTriangle(RandomNetwork& network, const PNT_3D& a, const PNT_3D& b, const PNT_3D& c) {
    const int first = static_cast<int>(network.vertices.size());
    network.vertices.push_back(a);
    network.vertices.push_back(b);
    network.vertices.push_back(c);
    network.triangles.push_back({first, first + 1, first + 2});
}

std::vector<RandomNetwork> MakeGridsWithASpanWiderThanADouble(unsigned seed, int cells) {
    constexpr double kHuge = 1.7e308;
    RandomNetwork tall = MakeJitteredGrid(seed, cells, 1.0);
    AppendTriangle(tall, PNT_3D(0, -kHuge, 1), PNT_3D(kHuge, 0, 2), PNT_3D(0, kHuge, 3));
    RandomNetwork wide = MakeJitteredGrid(seed, cells, 1.0);
    AppendTriangle(wide, PNT_3D(-kHuge, 0, 1), PNT_3D(0, -kHuge, 2), PNT_3D(kHuge, 0, 3));
    return {tall, wide};
}

RandomNetwork MakeJitteredGrid(unsigned seed, int cells, double step) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> jitter(-0.3, 0.3);
    RandomNetwork network;
    for (int row = 0; row <= cells; ++row) {
        for (int column = 0; column <= cells; ++column) {
            const double x = (column + jitter(random)) * step;
            const double y = (row + jitter(random)) * step;
            network.vertices.emplace_back(x, y, 50.0 + std::sin(x / 7.0) * std::cos(y / 5.0));
        }
    }
    const auto index = [cells](int row, int column) { return row * (cells + 1) + column; };
    for (int row = 0; row < cells; ++row) {
        for (int column = 0; column < cells; ++column) {
            const int a = index(row, column);
            const int b = index(row, column + 1);
            const int c = index(row + 1, column + 1);
            const int d = index(row + 1, column);
            if (random() % 2 == 0) {
                network.triangles.push_back({a, b, c});
                network.triangles.push_back({a, c, d});
            } else {
                network.triangles.push_back({a, b, d});
                network.triangles.push_back({b, c, d});
            }
        }
    }
    // Shuffled, so that the array order owes nothing to the plan position.
    std::shuffle(network.triangles.begin(), network.triangles.end(), random);
    return network;
}

void AppendSlivers(RandomNetwork& network, unsigned seed, int count) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int i = 0; i < count; ++i) {
        const double y = 100.0 * unit(random);
        const double ax = 10.0 + 30.0 * unit(random);
        const double bx = 60.0 + 30.0 * unit(random);
        const double by = y + 2.0 * unit(random);
        const double cx = 55.0 + unit(random);
        const double cy = y + 1.0 + unit(random);
        AppendTriangle(network, PNT_3D(ax, y, 5.0), PNT_3D(bx, by, 6.0), PNT_3D(cx, cy, 7.0));
    }
}

}  // namespace dtm_test
