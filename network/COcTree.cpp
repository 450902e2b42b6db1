#include "network/COcTree.h"

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/support/Tolerances.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

using kor::geom::PLANE_3D;
using kor::geom::PNT_2D;
using kor::geom::PNT_3D;
using kor::geom::RECT_3D;

namespace {

constexpr int kOctantCount = 8;
// Sort keys of a build: 0 for the triangles a node keeps, 1 + octant for the others.
constexpr std::size_t kKeyCount = 1 + kOctantCount;

// Below a sub-node at this depth only leaves are made: at most 20 levels under the root.
constexpr int kMaxSplitDepth = 20;
// A run of fewer triangles than this stays a leaf: leaves hold up to 10 triangles.
constexpr std::size_t kMinSplitCount = 11;
// A run at least this long is split whatever the size of its cube...
constexpr std::size_t kAlwaysSplitCount = 1000;
// ...while a shorter one is split only while the child cube's side exceeds this (project
// units): below it, further levels would cost more than scanning the run.
constexpr double kMinSplitSide = 0.1;

// Extra reach of the plan-point traversal, relative to the size of a node's box and the
// tolerance. The edge test computes a projection parameter and a line distance in double
// precision, so an edge whose exact distance from p is a few units in the last place above
// tol can still pass it; this margin (many orders of magnitude above that rounding) keeps such
// edges among the candidates. Extra candidates cost only an exact test each.
constexpr double kPlanReachSlack = 1e-9;

std::uint8_t OctantBit(int octant) {
    return static_cast<std::uint8_t>(1u << static_cast<unsigned>(octant));
}

bool IsOctant(int octant) {
    return octant >= 0 && octant < kOctantCount;
}

// Set bits among the low eight of @p bits.
std::size_t BitCount(unsigned bits) {
    bits &= 0xFFu;
    bits = (bits & 0x55u) + ((bits >> 1) & 0x55u);
    bits = (bits & 0x33u) + ((bits >> 2) & 0x33u);
    return (bits & 0x0Fu) + (bits >> 4);
}

// The octant of p against centre c: on each axis the low side when c is greater than p's
// coordinate, the high side otherwise, so that a coordinate exactly on a plane goes high.
int OctantOf(const PNT_3D& p, const PNT_3D& c) {
    return (c.x > p.x ? 0 : 4) | (c.y > p.y ? 0 : 2) | (c.z > p.z ? 0 : 1);
}

// True when the triangle with coordinates a0, a1, a2 on one axis crosses the plane at c of that
// axis. A vertex exactly on the plane gives a zero product and does not make it straddle.
// The tests are combined with | rather than ||: all six are cheap, and for the triangles near a
// plane, the many whose keys a build computes at every level, the short-circuit branches went
// either way at random.
bool StraddlesPlane(double a0, double a1, double a2, double c) {
    const double offset0 = a0 - c;
    return ((a1 - c) * offset0 < 0.0) | ((a2 - c) * offset0 < 0.0);
}

bool Straddles(const PNT_3D& v0, const PNT_3D& v1, const PNT_3D& v2, const PNT_3D& c) {
    const int onX = StraddlesPlane(v0.x, v1.x, v2.x, c.x);
    const int onY = StraddlesPlane(v0.y, v1.y, v2.y, c.y);
    const int onZ = StraddlesPlane(v0.z, v1.z, v2.z, c.z);
    return (onX | onY | onZ) != 0;
}

// A triangle's sort key at a node with centre c: 0 when it straddles one of the node's planes
// (it stays in the node), else 1 + the octant of its first vertex.
int KeyOf(const PNT_3D& v0, const PNT_3D& v1, const PNT_3D& v2, const PNT_3D& c) {
    return Straddles(v0, v1, v2, c) ? 0 : 1 + OctantOf(v0, c);
}

// Whether a run of n triangles in a child cube of side childSide, below a node at depth,
// becomes a sub-node rather than a leaf.
bool SplitsFurther(std::size_t n, int depth, double childSide) {
    return depth != kMaxSplitDepth && n >= kMinSplitCount &&
           (n >= kAlwaysSplitCount || childSide > kMinSplitSide);
}

bool SameBits(const RECT_3D& a, const RECT_3D& b) noexcept {
    static_assert(sizeof(RECT_3D) == 6 * sizeof(double), "a box is six doubles");
    return std::memcmp(&a, &b, sizeof(RECT_3D)) == 0;
}

PNT_3D CentreOf(const RECT_3D& box) {
    return PNT_3D((box.min.x + box.max.x) / 2.0, (box.min.y + box.max.y) / 2.0,
                  (box.min.z + box.max.z) / 2.0);
}

PNT_3D ChildCentre(const PNT_3D& c, double side, int octant) {
    const double quarter = side / 4.0;
    return PNT_3D((octant & 4) ? c.x + quarter : c.x - quarter,
                  (octant & 2) ? c.y + quarter : c.y - quarter,
                  (octant & 1) ? c.z + quarter : c.z - quarter);
}

bool IsFinitePoint(const PNT_3D& p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

bool IsFiniteBox(const RECT_3D& box) {
    return IsFinitePoint(box.min) && IsFinitePoint(box.max);
}

// A box that no test can exclude: the bound of a subtree holding a triangle with a coordinate
// that is infinite, NaN, or of a vertex that does not exist.
RECT_3D WholeSpace() {
    const double inf = std::numeric_limits<double>::infinity();
    return RECT_3D(PNT_3D(-inf, -inf, -inf), PNT_3D(inf, inf, inf));
}

// The box of the vertices of runs of triangles, as a subtree's bound: a vertex that does not
// exist, or a coordinate that is not finite, makes it unbounded, since no finite box can then
// stand for the subtree. The box and the two findings stay in locals while the passes over
// millions of triangles run, instead of going back to memory after every vertex, and whether
// any coordinate was not finite is found without a branch: x − x is 0 for a finite x and NaN
// for an infinite or NaN one, so a sum of them stays 0 exactly while every one was finite.
class CRunBox {
public:
    CRunBox(const std::vector<PNT_3D>& vertices, const RECT_3D& start) noexcept
        : m_vertices(vertices.data()), m_vertexCount(vertices.size()), m_box(start) {}

    void IncludeTriangle(const std::int32_t (&indices)[3]) noexcept {
        for (const std::int32_t index : indices) IncludeVertex(index);
    }
    void IncludeTriangle(const CTri& tri) noexcept {
        for (int k = 0; k < 3; ++k) IncludeVertex(tri.GetVerIndex(k));
    }
    RECT_3D Box() const noexcept {
        return m_everyVertexExists && m_nonFinite == 0.0 ? m_box : WholeSpace();
    }

private:
    void IncludeVertex(std::int32_t index) noexcept {
        // A negative index turns into one past any array.
        const auto position = static_cast<std::size_t>(static_cast<std::uint32_t>(index));
        if (position >= m_vertexCount) {
            m_everyVertexExists = false;
            return;
        }
        const PNT_3D& vertex = m_vertices[position];
        m_nonFinite += (vertex.x - vertex.x) + (vertex.y - vertex.y) + (vertex.z - vertex.z);
        m_box.updateRegion(vertex);
    }

    const PNT_3D* m_vertices;
    std::size_t m_vertexCount;
    RECT_3D m_box;
    bool m_everyVertexExists = true;
    double m_nonFinite = 0.0;
};

void Merge(RECT_3D& box, const RECT_3D& other) {
    if (other.IsEmpty()) return;
    box.updateRegion(other.min);
    box.updateRegion(other.max);
}

// The part [begin, end) of the run (first, count) that lies inside an array of n triangles. A
// tree read from a file, or one left stale within a change event, may name runs that reach
// past the end; nothing outside the array is ever handed over.
std::pair<std::int64_t, std::int64_t> ClampRun(std::int32_t first, std::int32_t count,
                                               std::int64_t n) {
    const std::int64_t begin = std::clamp<std::int64_t>(first, 0, n);
    const std::int64_t end = std::clamp<std::int64_t>(std::int64_t{first} + count, begin, n);
    return {begin, end};
}

// ---- Traversal filters -------------------------------------------------------------------
// A filter decides which subtrees a traversal enters (Enter, from the subtree's box; Leave
// undoes what Enter set up) and which triangles of an entered node it hands over (Accepts).

// Plan point: enters a subtree unless its box lies provably farther than tol from p. This
// generalises picking the quadrant of p at each node (the pair of octants, low and high z, on
// p's side of both vertical centre planes): with a tolerance, an edge in a neighbouring
// quadrant can pass within tol of p, and a triangle can reach out of its cube.
class PlanPointFilter {
public:
    PlanPointFilter(const PNT_2D& p, double tol) : m_p(p), m_tol(tol) {}

    bool Enter(const RECT_3D& box) const { return MayReach(box); }
    void Leave() const {}
    // The same test on the triangle's own box: a node keeps every triangle that straddles its
    // centre planes, which at the root can be a whole contour's worth, and most of them lie far
    // from p. The listener's exact edge test costs more than this.
    bool Accepts(int tri, ITriOcTreeListener& listener) const {
        PNT_3D a, b, c;
        listener.GetTriVertices(tri, a, b, c);
        const RECT_3D box(PNT_3D(std::min({a.x, b.x, c.x}), std::min({a.y, b.y, c.y}), 0.0),
                          PNT_3D(std::max({a.x, b.x, c.x}), std::max({a.y, b.y, c.y}), 0.0));
        return MayReach(box);
    }

private:
    // False only when everything in the plan box lies farther than tol from p. The test uses
    // the larger axis gap, which never exceeds the plan distance from p to anything inside the
    // box. Every comparison fails on NaN, and the box is then kept.
    bool MayReach(const RECT_3D& box) const {
        const double reach =
            m_tol + kPlanReachSlack * (m_tol + (box.max.x - box.min.x) + (box.max.y - box.min.y));
        const double gapX = std::max(box.min.x - m_p.x, m_p.x - box.max.x);
        const double gapY = std::max(box.min.y - m_p.y, m_p.y - box.max.y);
        return !(gapX > reach) && !(gapY > reach);
    }

    PNT_2D m_p;
    double m_tol;
};

// Elevation slice. A triangle crosses the plane at z when (P1.z − z)(P0.z − z) <= 0 or
// (P2.z − z)(P0.z − z) <= 0.
bool CrossesElevation(const PNT_3D& p0, const PNT_3D& p1, const PNT_3D& p2, double z) {
    const double offset0 = p0.z - z;
    return (p1.z - z) * offset0 <= 0.0 || (p2.z - z) * offset0 <= 0.0;
}

class SliceFilter {
public:
    explicit SliceFilter(double z) : m_z(z) {}

    // A subtree whose elevations all lie above z (or all below) is skipped, but only when the
    // product of two such offsets cannot round to zero: every vertex offset is at least as
    // large as the box's (rounding is monotone), so the slice test's products are then all
    // positive. Tiny offsets whose square underflows keep the subtree, as the test accepts them.
    bool Enter(const RECT_3D& box) const {
        const double below = box.min.z - m_z;
        if (below > 0.0 && below * below > 0.0) return false;
        const double above = m_z - box.max.z;
        return !(above > 0.0 && above * above > 0.0);
    }
    void Leave() const {}
    bool Accepts(int tri, ITriOcTreeListener& listener) const {
        PNT_3D a, b, c;
        listener.GetTriVertices(tri, a, b, c);
        return CrossesElevation(a, b, c, m_z);
    }

private:
    double m_z;
};

enum class BoxSide { NonePositive = 0, AllPositive = 1, Mixed = 2 };

// Classifies a box against a plane by its eight corners. The plane's value computed in double
// precision is monotone in each coordinate (every rounding step is), so its extremes over the
// box are taken at corners: all corners positive means every point inside is, none positive
// means none is. Infinite or NaN bounds break that argument and count as mixed.
BoxSide ClassifyBox(const RECT_3D& box, const PLANE_3D& plane) {
    if (!IsFiniteBox(box)) return BoxSide::Mixed;
    int positiveCorners = 0;
    for (int corner = 0; corner < kOctantCount; ++corner) {
        const PNT_3D point((corner & 4) ? box.max.x : box.min.x,
                           (corner & 2) ? box.max.y : box.min.y,
                           (corner & 1) ? box.max.z : box.min.z);
        if (plane.IsOnPositiveSide(point)) ++positiveCorners;
    }
    if (positiveCorners == kOctantCount) return BoxSide::AllPositive;
    return positiveCorners == 0 ? BoxSide::NonePositive : BoxSide::Mixed;
}

// Plane culling. A subtree wholly on the positive side of a plane is skipped; a plane that has
// no part of the subtree on its positive side cannot cull anything in it and is not tested
// there. The planes still to test are kept as a stack of frames, one per entered node.
class PlaneFilter {
public:
    explicit PlaneFilter(const std::vector<PLANE_3D>& planes) {
        m_active.reserve(planes.size());
        for (const PLANE_3D& plane : planes) m_active.push_back(&plane);
        m_frameStarts.push_back(0);
    }

    bool Enter(const RECT_3D& box) {
        const std::size_t frameStart = m_frameStarts.back();
        const std::size_t frameEnd = m_active.size();
        for (std::size_t i = frameStart; i < frameEnd; ++i) {
            const PLANE_3D* plane = m_active[i];
            const BoxSide side = ClassifyBox(box, *plane);
            if (side == BoxSide::AllPositive) {
                m_active.resize(frameEnd);
                return false;
            }
            if (side == BoxSide::Mixed) m_active.push_back(plane);
        }
        m_frameStarts.push_back(frameEnd);
        return true;
    }
    void Leave() {
        m_active.resize(m_frameStarts.back());
        m_frameStarts.pop_back();
    }
    bool Accepts(int tri, ITriOcTreeListener& listener) const {
        if (m_active.size() == m_frameStarts.back()) return true;
        PNT_3D a, b, c;
        listener.GetTriVertices(tri, a, b, c);
        for (std::size_t i = m_frameStarts.back(); i < m_active.size(); ++i) {
            const PLANE_3D& plane = *m_active[i];
            if (plane.IsOnPositiveSide(a) && plane.IsOnPositiveSide(b) &&
                plane.IsOnPositiveSide(c)) {
                return false;
            }
        }
        return true;
    }

private:
    std::vector<const PLANE_3D*> m_active;
    std::vector<std::size_t> m_frameStarts;
};

}  // namespace

PNT_3D NetworkVertex(const CTris& tris, int vertexIndex) noexcept {
    return VertexAt(tris.GetPnts(), vertexIndex);
}

PNT_3D NetworkVertex(const CTris& tris, const CTri& tri, int k) noexcept {
    return NetworkVertex(tris, tri.GetVerIndex(k));
}

// ---- COcTreeNode ---------------------------------------------------------------------------

// Sub-nodes are placed in the block right after leaf entries; both sizes must keep the next
// entry aligned for a node.
static_assert(sizeof(COcTreeLeaf) % alignof(COcTreeNode) == 0, "leaf entries keep alignment");
static_assert(sizeof(COcTreeNode) % alignof(COcTreeNode) == 0, "node entries keep alignment");
static_assert(sizeof(void*) != 8 || sizeof(COcTreeNode) == 24, "a node is 24 bytes");
static_assert(sizeof(COcTreeLeaf) == 8, "a leaf entry is 8 bytes");

COcTreeNode::~COcTreeNode() {
    DestroyChildren();
}

bool COcTreeNode::HasChild(int octant) const noexcept {
    return IsOctant(octant) && (m_childMask & OctantBit(octant)) != 0;
}

bool COcTreeNode::HasLeafChild(int octant) const noexcept {
    return HasChild(octant) && (m_leafMask & OctantBit(octant)) != 0;
}

bool COcTreeNode::HasNodeChild(int octant) const noexcept {
    return HasChild(octant) && (m_leafMask & OctantBit(octant)) == 0;
}

std::size_t COcTreeNode::OffsetOf(int octant) const noexcept {
    // The entries of the octants before this one lie ahead of it, leaves and sub-nodes each at
    // their own size. Counted from the masks, so that walking a node's children costs the same
    // for the last octant as for the first.
    const unsigned before = m_childMask & (OctantBit(octant) - 1u);
    return BitCount(before & m_leafMask) * sizeof(COcTreeLeaf) +
           BitCount(before & ~unsigned{m_leafMask}) * sizeof(COcTreeNode);
}

COcTreeNode* COcTreeNode::NodeAt(int octant) const noexcept {
    return std::launder(reinterpret_cast<COcTreeNode*>(m_children.get() + OffsetOf(octant)));
}

COcTreeLeaf* COcTreeNode::LeafAt(int octant) const noexcept {
    return std::launder(reinterpret_cast<COcTreeLeaf*>(m_children.get() + OffsetOf(octant)));
}

const COcTreeLeaf& COcTreeNode::GetLeaf(int octant) const {
    if (!HasLeafChild(octant)) throw std::out_of_range("COcTreeNode: the octant holds no leaf");
    return *LeafAt(octant);
}

COcTreeLeaf& COcTreeNode::GetLeaf(int octant) {
    return const_cast<COcTreeLeaf&>(std::as_const(*this).GetLeaf(octant));
}

const COcTreeNode& COcTreeNode::GetNode(int octant) const {
    if (!HasNodeChild(octant)) throw std::out_of_range("COcTreeNode: the octant holds no node");
    return *NodeAt(octant);
}

COcTreeNode& COcTreeNode::GetNode(int octant) {
    return const_cast<COcTreeNode&>(std::as_const(*this).GetNode(octant));
}

void COcTreeNode::SetChildren(std::uint8_t childMask, std::uint8_t leafMask) {
    DestroyChildren();
    const std::size_t blockSize = BitCount(childMask & leafMask) * sizeof(COcTreeLeaf) +
                                  BitCount(childMask & ~unsigned{leafMask}) * sizeof(COcTreeNode);
    // Allocate before touching the masks, so that a failed allocation leaves a node with no
    // children rather than masks that promise a missing block. The entries are constructed
    // below; the block itself needs no zeroing first.
    if (blockSize > 0) m_children.reset(new std::byte[blockSize]);
    m_childMask = childMask;
    m_leafMask = leafMask;
    std::byte* slot = m_children.get();
    for (int octant = 0; octant < kOctantCount; ++octant) {
        if (HasLeafChild(octant)) {
            new (slot) COcTreeLeaf();
            slot += sizeof(COcTreeLeaf);
        } else if (HasNodeChild(octant)) {
            new (slot) COcTreeNode();
            slot += sizeof(COcTreeNode);
        }
    }
}

void COcTreeNode::DestroyChildren() noexcept {
    ForEachChild([](int, COcTreeLeaf&) {}, [](int, COcTreeNode& child) { child.~COcTreeNode(); });
    m_children.reset();
    m_childMask = 0;
    m_leafMask = 0;
}

// ---- COcTree -------------------------------------------------------------------------------

/// A triangle of the run being sorted: its position in the network's array (which stays as it
/// is until the build has succeeded) and its vertex indices, 16 bytes, so that moving it from
/// level to level costs little; its vertices are read from the network's array when needed (an
/// index outside the array stands for a point with no position).
struct COcTree::WorkEntry {
    std::uint32_t position;
    std::int32_t vertex[3];
};

/// What a build works with: the triangles in two arrays, each level sorting from one into the
/// other, the sort keys, the final order, and the nodes' boxes in pre-order.
struct COcTree::BuildState {
    std::vector<WorkEntry> entries[2];
    std::vector<std::uint8_t> keys;
    /// Set when the root's keys are already in keys, with their counts in rootKeyCounts.
    bool rootKeysKnown = false;
    std::array<std::size_t, kKeyCount> rootKeyCounts{};
    std::vector<CTri*> order;
    std::vector<TBound> bounds;
};

COcTree::COcTree(CTris* owner) noexcept
    : m_owner(owner),
      m_geometry{UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE,
                 UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE},
      m_leafRecordSize(static_cast<std::int32_t>(sizeof(COcTreeLeaf))),
      m_nodeRecordSize(static_cast<std::int32_t>(sizeof(COcTreeNode))) {}

COcTree::~COcTree() = default;

const COcTree& COcTree::Of(const CTris& tris) noexcept {
    return *tris.m_octree;
}

void COcTree::Clear() noexcept {
    m_root.reset();
    m_bounds.clear();
    m_boundsStamp.reset();
    m_geometry = {UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE,
                  UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE};
}

void COcTree::Assign(const TOcTreeGeometry& geometry, std::unique_ptr<COcTreeNode> root) {
    Clear();
    if (!root) return;
    m_geometry = geometry;
    m_root = std::move(root);
}

void COcTree::Build() {
    static_assert(sizeof(WorkEntry) == 16, "a work entry is 16 bytes");
    Clear();
    std::vector<CTri*>& tris = m_owner->m_tris;
    if (tris.empty()) return;

    BuildState state;
    const std::size_t count = tris.size();
    state.entries[0].reserve(count);
    state.keys.resize(count);
    // The root's centre is that of the box of the triangles' vertices. The box of the whole
    // vertex array, read in order, is almost always the same box (every vertex belongs to a
    // triangle), so the pass that collects the triangles finds their root keys under its centre
    // at the same time; when the two boxes turn out to differ in any bit, the root finds them
    // again. This saves the root a second read of every triangle's vertices, which in a network
    // listed in no spatial order is a read all over memory. A vertex array much longer than the
    // triangles need is not read for a guess (an empty guess matches no box).
    RECT_3D guess;
    guess.initRegion();
    if (m_owner->m_vertices.size() <= count) {
        for (const PNT_3D& vertex : m_owner->m_vertices) guess.updateRegion(vertex);
    }
    const PNT_3D guessCentre = CentreOf(guess);
    RECT_3D box;
    box.initRegion();
    for (std::size_t i = 0; i < count; ++i) {
        PrefetchTriangle(m_owner->m_tris, m_owner->m_vertices, i);
        WorkEntry entry{static_cast<std::uint32_t>(i), {}};
        for (int k = 0; k < 3; ++k) entry.vertex[k] = tris[i]->GetVerIndex(k);
        const PNT_3D& v0 = VertexAt(m_owner->m_vertices, entry.vertex[0]);
        const PNT_3D& v1 = VertexAt(m_owner->m_vertices, entry.vertex[1]);
        const PNT_3D& v2 = VertexAt(m_owner->m_vertices, entry.vertex[2]);
        box.updateRegion(v0);
        box.updateRegion(v1);
        box.updateRegion(v2);
        const int key = KeyOf(v0, v1, v2, guessCentre);
        state.keys[i] = static_cast<std::uint8_t>(key);
        ++state.rootKeyCounts[static_cast<std::size_t>(key)];
        state.entries[0].push_back(entry);
    }
    if (box.IsEmpty()) return;
    state.rootKeysKnown = SameBits(box, guess);

    const PNT_3D centre = CentreOf(box);
    const PNT_3D extent(box.max.x - box.min.x, box.max.y - box.min.y, box.max.z - box.min.z);
    const double side = std::max({extent.x, extent.y, extent.z});

    auto root = std::make_unique<COcTreeNode>();
    state.entries[1].resize(count);
    state.order.resize(count);
    BuildNode(*root, 0, 0, count, centre, side, 0, state);
    // Sized once to the nodes: growing it step by step would leave earlier copies behind.
    std::vector<TBound> bounds(state.bounds.begin(), state.bounds.end());

    // Only now, with nothing left that can fail, is the network's array rewritten. The order
    // changes no triangle, so no change is reported.
    bool reordered = false;
    for (std::size_t i = 0; i < count; ++i) {
        reordered = reordered || tris[i] != state.order[i];
        tris[i] = state.order[i];
    }
    // Positions in the array moved: whatever the network derived from them is stale.
    if (reordered) m_owner->NoteGeometryChanged();
    m_geometry = {centre.x, centre.y, centre.z, side, extent.x, extent.y, extent.z};
    m_root = std::move(root);
    m_bounds.swap(bounds);
    // Taken after the reorder was noted: the boxes answer for the array as it is now.
    m_boundsStamp = TShapeStamp::Of(*m_owner);
}

namespace {

// How far ahead of the entry being sorted its vertices are asked for: a run in array order can
// name vertices anywhere in the array, and the top levels of a large network miss the cache on
// nearly every one.
constexpr std::size_t kEntryVerticesAhead = 16;

template <class Entry>
void PrefetchVertices(const PNT_3D* points, std::size_t pointCount, const Entry& entry) noexcept {
    for (const std::int32_t index : entry.vertex) {
        if (static_cast<std::size_t>(index) < pointCount) Prefetch(&points[index]);
    }
}

// Writes the key of each entry of [begin, end) to keys[i] and returns how many have each key.
// Plain pointers: the byte-sized key stores could otherwise alias the arrays' own fields, and
// the compiler would reload them for every vertex.
template <class Entry>
std::array<std::size_t, kKeyCount> FindKeys(const PNT_3D* points, std::size_t pointCount,
                                            const Entry* entries, std::size_t begin,
                                            std::size_t end, const PNT_3D& centre,
                                            std::uint8_t* keys) noexcept {
    // A vertex with no position straddles no plane and falls in the high octant on every axis,
    // as its comparisons all come out false.
    const auto vertex = [points, pointCount](std::int32_t index) -> const PNT_3D& {
        return VertexAt(points, pointCount, index);
    };
    std::array<std::size_t, kKeyCount> counts{};
    for (std::size_t i = begin; i < end; ++i) {
        if (i + kEntryVerticesAhead < end)
            PrefetchVertices(points, pointCount, entries[i + kEntryVerticesAhead]);
        const Entry& entry = entries[i];
        const int key = KeyOf(vertex(entry.vertex[0]), vertex(entry.vertex[1]),
                              vertex(entry.vertex[2]), centre);
        keys[i] = static_cast<std::uint8_t>(key);
        ++counts[static_cast<std::size_t>(key)];
    }
    return counts;
}

}  // namespace

// Builds @p node over the run [begin, begin + count) of state.entries[from] and returns the box
// of its triangles. The run is sorted into the other entry array, and the children are built
// from there, so that no level copies its run back; every triangle's final position is written
// to state.order as soon as it is known. The node's box (ComputeBounds' box, found here from
// the vertices already at hand) takes its place in pre-order.
RECT_3D COcTree::BuildNode(COcTreeNode& node, int from, std::size_t begin, std::size_t count,
                           const PNT_3D& centre, double side, int depth, BuildState& state) {
    const std::size_t boundIndex = state.bounds.size();
    node.m_boundIndex = static_cast<std::int32_t>(boundIndex);
    state.bounds.emplace_back();
    const std::vector<WorkEntry>& source = state.entries[from];
    std::vector<WorkEntry>& sorted = state.entries[1 - from];

    // One stable counting sort puts the straddling triangles first (key 0), then every octant
    // run in octant order (key 1 + octant). Keeping the relative order makes a rebuild of an
    // unchanged network leave its array as it is.
    const std::size_t end = begin + count;
    const std::array<std::size_t, kKeyCount> runSizes =
        depth == 0 && state.rootKeysKnown
            ? state.rootKeyCounts
            : FindKeys(m_owner->m_vertices.data(), m_owner->m_vertices.size(), source.data(), begin,
                       end, centre, state.keys.data());
    std::array<std::size_t, kKeyCount> runStarts{};
    runStarts[0] = begin;
    for (std::size_t key = 1; key < kKeyCount; ++key) {
        runStarts[key] = runStarts[key - 1] + runSizes[key - 1];
    }
    std::array<std::size_t, kKeyCount> nextSlot = runStarts;
    for (std::size_t i = begin; i < end; ++i) sorted[nextSlot[state.keys[i]]++] = source[i];

    node.SetRun(static_cast<std::int32_t>(runSizes[0]), static_cast<std::int32_t>(begin));
    RECT_3D box;
    box.initRegion();
    // A run whose triangles stay where they are now: the node's own, or a leaf's.
    const auto settle = [&](std::size_t first, std::size_t n) {
        CRunBox runBox(m_owner->m_vertices, box);
        for (std::size_t i = first; i < first + n; ++i) {
            state.order[i] = m_owner->m_tris[sorted[i].position];
            runBox.IncludeTriangle(sorted[i].vertex);
        }
        box = runBox.Box();
    };
    settle(begin, runSizes[0]);

    const double childSide = side / 2.0;
    std::uint8_t childMask = 0;
    std::uint8_t leafMask = 0;
    for (int octant = 0; octant < kOctantCount; ++octant) {
        const std::size_t n = runSizes[static_cast<std::size_t>(1 + octant)];
        if (n == 0) continue;
        childMask |= OctantBit(octant);
        if (!SplitsFurther(n, depth, childSide)) leafMask |= OctantBit(octant);
    }
    node.SetChildren(childMask, leafMask);

    node.ForEachChild(
        [&](int octant, COcTreeLeaf& leaf) {
            const std::size_t key = static_cast<std::size_t>(1 + octant);
            leaf.count = static_cast<std::int32_t>(runSizes[key]);
            leaf.first = static_cast<std::int32_t>(runStarts[key]);
            settle(runStarts[key], runSizes[key]);
        },
        [&](int octant, COcTreeNode& child) {
            const std::size_t key = static_cast<std::size_t>(1 + octant);
            Merge(box, BuildNode(child, 1 - from, runStarts[key], runSizes[key],
                                 ChildCentre(centre, side, octant), childSide, depth + 1, state));
        });
    state.bounds[boundIndex] = TBound::Of(box);
    return box;
}

namespace {

std::size_t CountNodes(const COcTreeNode& node) {
    std::size_t count = 1;
    node.ForEachChild([](int, const COcTreeLeaf&) {},
                      [&count](int, const COcTreeNode& child) { count += CountNodes(child); });
    return count;
}

// The largest float not above @p v, and the smallest not below it; infinities stay.
float FloatBelow(double v) {
    if (std::isnan(v)) return std::numeric_limits<float>::quiet_NaN();
    if (v >= static_cast<double>(std::numeric_limits<float>::max()))
        return std::numeric_limits<float>::max();
    if (v < -static_cast<double>(std::numeric_limits<float>::max()))
        return -std::numeric_limits<float>::infinity();
    const float f = static_cast<float>(v);
    return static_cast<double>(f) > v ? std::nextafter(f, -std::numeric_limits<float>::infinity())
                                      : f;
}

float FloatAbove(double v) {
    if (std::isnan(v)) return std::numeric_limits<float>::quiet_NaN();
    if (v <= -static_cast<double>(std::numeric_limits<float>::max()))
        return -std::numeric_limits<float>::max();
    if (v > static_cast<double>(std::numeric_limits<float>::max()))
        return std::numeric_limits<float>::infinity();
    const float f = static_cast<float>(v);
    return static_cast<double>(f) < v ? std::nextafter(f, std::numeric_limits<float>::infinity())
                                      : f;
}

}  // namespace

COcTree::TBound COcTree::TBound::Of(const RECT_3D& box) noexcept {
    if (box.IsEmpty()) {
        // Kept empty: a low end above the high end.
        const float infinity = std::numeric_limits<float>::infinity();
        return {infinity, infinity, infinity, -infinity, -infinity, -infinity};
    }
    return {FloatBelow(box.min.x), FloatBelow(box.min.y), FloatBelow(box.min.z),
            FloatAbove(box.max.x), FloatAbove(box.max.y), FloatAbove(box.max.z)};
}

RECT_3D COcTree::TBound::ToRect() const noexcept {
    return RECT_3D(PNT_3D(minX, minY, minZ), PNT_3D(maxX, maxY, maxZ));
}

RECT_3D COcTree::GetNodeBound(const COcTreeNode& node) const {
    EnsureBounds();
    return m_bounds.at(static_cast<std::size_t>(node.m_boundIndex)).ToRect();
}

void COcTree::EnsureBounds() const {
    if (!m_root) return;
    const TShapeStamp now = TShapeStamp::Of(*m_owner);
    if (m_boundsStamp && *m_boundsStamp == now) return;
    ComputeBounds();
    m_boundsStamp = now;
}

void COcTree::ComputeBounds() const {
    // Forgotten first, so that boxes left half found by a failed allocation are found again.
    m_boundsStamp.reset();
    m_bounds.clear();
    if (!m_root) return;
    // Sized once: a tree of millions of triangles has tens of thousands of nodes, and growing
    // the array step by step would leave its earlier copies behind in the heap.
    m_bounds.reserve(CountNodes(*m_root));
    BoundNode(*m_root);
}

// Numbers the nodes in pre-order, as Build does, so that finding the boxes again gives every
// node the index it had.
RECT_3D COcTree::BoundNode(COcTreeNode& node) const {
    const std::size_t index = m_bounds.size();
    node.m_boundIndex = static_cast<std::int32_t>(index);
    m_bounds.emplace_back();

    RECT_3D box;
    box.initRegion();
    IncludeRun(box, node.m_first, node.m_count);
    node.ForEachChild(
        [&](int, const COcTreeLeaf& leaf) { IncludeRun(box, leaf.first, leaf.count); },
        [&](int, COcTreeNode& child) { Merge(box, BoundNode(child)); });
    m_bounds[index] = TBound::Of(box);
    return box;
}

void COcTree::IncludeRun(RECT_3D& box, std::int32_t first, std::int32_t count) const {
    const std::vector<CTri*>& tris = m_owner->m_tris;
    const std::vector<PNT_3D>& points = m_owner->m_vertices;
    const auto [begin, end] = ClampRun(first, count, static_cast<std::int64_t>(tris.size()));
    CRunBox runBox(points, box);
    for (std::int64_t i = begin; i < end; ++i) {
        PrefetchTriangle(tris, points, static_cast<std::size_t>(i));
        runBox.IncludeTriangle(*tris[static_cast<std::size_t>(i)]);
    }
    box = runBox.Box();
}

template <class Filter>
void COcTree::HandOverRun(std::int32_t first, std::int32_t count, Filter& filter,
                          ITriOcTreeListener& listener) const {
    const auto [begin, end] =
        ClampRun(first, count, static_cast<std::int64_t>(m_owner->m_tris.size()));
    for (std::int64_t i = begin; i < end; ++i) {
        const int tri = static_cast<int>(i);
        if (filter.Accepts(tri, listener)) listener.OnTri(tri);
    }
}

template <class Filter>
void COcTree::Walk(const COcTreeNode& node, int depth, Filter& filter,
                   ITriOcTreeListener& listener) const {
    const RECT_3D box = m_bounds[static_cast<std::size_t>(node.m_boundIndex)].ToRect();
    if (box.IsEmpty() || !filter.Enter(box)) return;
    listener.OnNodeEntered(depth);
    HandOverRun(node.m_first, node.m_count, filter, listener);
    node.ForEachChild(
        [&](int, const COcTreeLeaf& leaf) {
            HandOverRun(leaf.first, leaf.count, filter, listener);
        },
        [&](int, const COcTreeNode& child) { Walk(child, depth + 1, filter, listener); });
    filter.Leave();
}

template <class Filter>
void COcTree::Traverse(Filter& filter, ITriOcTreeListener& listener) const {
    EnsureBounds();
    if (m_root) Walk(*m_root, 0, filter, listener);
    listener.Flush();
}

void COcTree::TraversePlanPoint(const PNT_2D& p, double tol, ITriOcTreeListener& listener) const {
    if (!(tol > 0.0)) {
        listener.Flush();
        return;
    }
    PlanPointFilter filter(p, tol);
    Traverse(filter, listener);
}

void COcTree::TraversePlanes(const std::vector<PLANE_3D>& planes,
                             ITriOcTreeListener& listener) const {
    PlaneFilter filter(planes);
    Traverse(filter, listener);
}

void COcTree::TraverseSlice(double z, ITriOcTreeListener& listener) const {
    SliceFilter filter(z);
    Traverse(filter, listener);
}
