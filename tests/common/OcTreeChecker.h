#pragma once

// A checker of the rules a network's octree must obey, restated independently of the code that
// builds it, and the networks the octree tests run it on.

#include <dtm/support/Geom.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

class CDtmPrj;
class CTri;
class CTris;

namespace dtm_test {

/// Every violation of the octree rules in @p tris's tree, checked against its current triangle
/// array; empty when the tree obeys them all. At most a few dozen are reported.
///
/// The rules: the tree is empty exactly when there is no triangle or no vertex box; the root
/// cube is centred on the triangles' box with the largest extent as side; a node keeps first
/// the triangles straddling one of its centre planes, then the others grouped by the octant of
/// their vertex 0 (a coordinate on a plane goes high) in octant order; each octant run is a
/// sub-node exactly when depth != 20, n >= 11 and (n >= 1000 or the child side > 0.1), its
/// cube centred at c ± s/4 with side s/2, and otherwise a leaf holding the run; the node's own
/// run and the leaf runs cover the triangle array exactly once; record sizes are 8 and 24.
std::vector<std::string> OcTreeViolations(const CTris& tris);

/// The triangle array that building the tree over @p tris's current array must leave: at
/// every node, the straddling triangles first, then each octant's, each group in the order the
/// triangles had, restated as a plain recursion over lists.
std::vector<CTri*> OcTreeOrder(const CTris& tris);

/// OcTreeViolations as a GoogleTest assertion: EXPECT_TRUE(OcTreeIsValid(tris)).
::testing::AssertionResult OcTreeIsValid(const CTris& tris);

/// A triangle given by three vertex indices.
using TriIndices = std::array<int, 3>;

/// A project with its network, released on destruction.
class TestProject {
public:
    TestProject();
    ~TestProject();
    TestProject(const TestProject&) = delete;
    TestProject& operator=(const TestProject&) = delete;

    CDtmPrj* Prj() const { return m_prj; }
    CTris& Tris() const;

    /// Adds @p vertices, then @p triangles (colour 1), through the store's public operations
    /// inside one change event.
    void Fill(const std::vector<kor::geom::PNT_3D>& vertices,
              const std::vector<TriIndices>& triangles);
    /// Fills the network with @p network as Fill does, then builds the octree over it, as the
    /// network's listener does after a host's later events; returns the network.
    CTris& FillIndexed(const struct RandomNetwork& network);

private:
    CDtmPrj* m_prj;
};

/// @p count random vertices uniform in the box [x0, x0 + size] × [y0, y0 + size] × [0, zRange],
/// and @p triangles triangles whose three vertices are random among them (a triangle soup:
/// triangles overlap, some are degenerate). Fixed by @p seed.
struct RandomNetwork {
    std::vector<kor::geom::PNT_3D> vertices;
    std::vector<TriIndices> triangles;
};
RandomNetwork MakeTriangleSoup(unsigned seed, int vertexCount, int triangleCount, double x0,
                               double y0, double size, double zRange);

/// A regular grid of (n + 1) × (n + 1) vertices spaced @p step from (x0, y0), with z from a
/// smooth surface, cut into 2·n² triangles: a proper network where neighbours share edges and
/// many vertices lie exactly on centre planes.
RandomNetwork MakeGridNetwork(int n, double x0, double y0, double step);

/// Small random triangles (side about @p triangleSize) whose first vertex lies uniform in the
/// box [x0, x0 + size]² × [0, zRange]; the other two lie within @p triangleSize in plan and
/// within zRange / 10 in elevation. Each triangle has its own three vertices.
RandomNetwork MakeSmallTriangles(unsigned seed, int triangleCount, double x0, double y0,
                                 double size, double triangleSize, double zRange);

/// Appends the triangle a, b, c to @p network with three vertices of its own.
void AppendTriangle(RandomNetwork& network, const kor::geom::PNT_3D& a, const kor::geom::PNT_3D& b,
                    const kor::geom::PNT_3D& c);

/// A grid of (cells + 1)² vertices spaced @p step and jittered by up to 0.3 of it, z from a
/// smooth surface, each cell cut along a random diagonal, the triangles then shuffled so that
/// the array order owes nothing to the plan position. Fixed by @p seed.
RandomNetwork MakeJitteredGrid(unsigned seed, int cells, double step);

/// Two networks: a jittered grid (MakeJitteredGrid with @p seed and @p cells, step 1) with one
/// triangle added whose finite coordinates span more than a double holds, along y in the first
/// network and along x in the second, while its other span stays finite.
std::vector<RandomNetwork> MakeGridsWithASpanWiderThanADouble(unsigned seed, int cells);

/// Appends @p count long slivers to @p network, each with vertices of its own: one near x = 10
/// and one near x = 90 (spread over 30 units each) at a random y in [0, 100), and a third near
/// x = 55 lifted 1 to 2 units off their line, so that every sliver crosses the middle of the
/// plan and covers many grid cells, some of them nearly flat. Fixed by @p seed.
void AppendSlivers(RandomNetwork& network, unsigned seed, int count);

}  // namespace dtm_test
