#pragma once

/// @file
/// The network's spatial index: an octree over the triangles, whose nodes and leaves refer to
/// contiguous runs of the network's triangle array.

#include "network/ITriOcTreeListener.h"
#include "network/TShapeStamp.h"

#include <dtm/network/CTri.h>

#include <dtm/support/Geom.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <vector>

class CTris;

/// Vertex @p vertexIndex of @p tris, or a point whose coordinates are all NaN when the index
/// is out of range. A triangle may legitimately refer to a vertex that does not exist (negative
/// indices are accepted on creation, and removing a vertex does not renumber the triangles), so
/// the index and the elevation query treat such a vertex as a point with no position instead of
/// failing: it never straddles, never snaps and lies inside no triangle.
kor::geom::PNT_3D NetworkVertex(const CTris& tris, int vertexIndex) noexcept;

/// The point with no position that stands for a vertex index outside the array.
inline const kor::geom::PNT_3D kNoPosition(std::numeric_limits<double>::quiet_NaN(),
                                           std::numeric_limits<double>::quiet_NaN(),
                                           std::numeric_limits<double>::quiet_NaN());

/// NetworkVertex on the first @p count points at @p points, inline for the passes over every
/// triangle. The reference is chosen without a branch: a branch around an index that is almost
/// never out of range, or a copy of the point, costs more than the comparisons that follow.
inline const kor::geom::PNT_3D& VertexAt(const kor::geom::PNT_3D* points, std::size_t count,
                                         int vertexIndex) noexcept {
    // A negative index turns into one past any array.
    const auto position = static_cast<std::size_t>(static_cast<std::uint32_t>(vertexIndex));
    return position < count ? points[position] : kNoPosition;
}

/// NetworkVertex on the vertex array itself.
inline const kor::geom::PNT_3D& VertexAt(const std::vector<kor::geom::PNT_3D>& vertices,
                                         int vertexIndex) noexcept {
    return VertexAt(vertices.data(), vertices.size(), vertexIndex);
}

/// Vertex @p k (0..2) of triangle @p tri of @p tris, as NetworkVertex.
kor::geom::PNT_3D NetworkVertex(const CTris& tris, const CTri& tri, int k) noexcept;

/// Asks the processor for the line holding @p address, without waiting for it.
inline void Prefetch(const void* address) noexcept {
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(address);
    // GCC finds a function that only prefetches free of side effects and may drop every call
    // to it, and with them the hints; the empty volatile statement keeps them.
    __asm__ __volatile__("");
#else
    (void)address;
#endif
}

/// Asks the processor for the triangles of @p triangles some positions after @p position, and
/// their vertices, ahead of a pass that reads them in array order: the triangle objects lie where
/// they were created and their vertices where the host put them, so a pass that waited for each
/// in turn would spend its time waiting for memory. Only a hint; reads nothing it must not.
/// Inline, as it runs once per triangle of such a pass.
inline void PrefetchTriangle(const std::vector<CTri*>& triangles,
                             const std::vector<kor::geom::PNT_3D>& vertices,
                             std::size_t position) noexcept {
    // Two stages: the triangle object far ahead, and the vertices of one nearer, whose object
    // has arrived by then and tells where they are.
    constexpr std::size_t kObjectAhead = 32;
    constexpr std::size_t kVerticesAhead = 16;
    const std::size_t count = triangles.size();
    if (position + kObjectAhead < count) Prefetch(triangles[position + kObjectAhead]);
    if (position + kVerticesAhead < count) {
        const CTri& ahead = *triangles[position + kVerticesAhead];
        for (int k = 0; k < 3; ++k) {
            const auto index = static_cast<std::size_t>(ahead.GetVerIndex(k));
            if (index < vertices.size()) Prefetch(&vertices[index]);
        }
    }
}

/// A leaf entry of a node's child block: @p count triangles from position @p first of the
/// network's triangle array.
struct COcTreeLeaf {
    std::int32_t count = 0;
    std::int32_t first = 0;
};

/// One node of the octree: its own run of triangles (those that straddle its centre planes) and
/// up to eight children, each either a leaf entry or a sub-node.
///
/// The present children live in one packed block, in octant order, each taking the size of a
/// leaf entry or of a node; this keeps a node at three machine words and a whole level of
/// children in one allocation. Octant k lies on the high-x side when bit 2 of k is set, on the
/// high-y side with bit 1 and on the high-z side with bit 0.
class COcTreeNode {
public:
    /// A node with an empty run and no children.
    COcTreeNode() noexcept = default;
    /// Destroys the sub-nodes and frees the child block.
    ~COcTreeNode();
    COcTreeNode(const COcTreeNode&) = delete;
    COcTreeNode& operator=(const COcTreeNode&) = delete;

    /// Number of triangles kept at the node itself.
    std::int32_t GetCount() const noexcept { return m_count; }
    /// Position of the first of them in the network's triangle array.
    std::int32_t GetFirst() const noexcept { return m_first; }
    /// Bit k set: octant k has a child.
    std::uint8_t GetChildMask() const noexcept { return m_childMask; }
    /// Bit k set: the child of octant k, when present, is a leaf entry; clear: a sub-node.
    std::uint8_t GetLeafMask() const noexcept { return m_leafMask; }
    /// True when octant @p octant (0..7) has a child; false for any other value.
    bool HasChild(int octant) const noexcept;
    /// True when octant @p octant has a child and it is a leaf entry.
    bool HasLeafChild(int octant) const noexcept;
    /// True when octant @p octant has a child and it is a sub-node.
    bool HasNodeChild(int octant) const noexcept;

    /// The leaf entry of @p octant; std::out_of_range when the octant holds no leaf.
    const COcTreeLeaf& GetLeaf(int octant) const;
    COcTreeLeaf& GetLeaf(int octant);
    /// The sub-node of @p octant; std::out_of_range when the octant holds no sub-node.
    const COcTreeNode& GetNode(int octant) const;
    COcTreeNode& GetNode(int octant);

    /// Sets the node's own run.
    void SetRun(std::int32_t count, std::int32_t first) noexcept {
        m_count = count;
        m_first = first;
    }
    /// Replaces the children by a fresh block: for every set bit of @p childMask an empty leaf
    /// entry (bit also set in @p leafMask) or an empty sub-node. @p leafMask is kept as given,
    /// bits outside @p childMask included, so that a tree read from a file is written back
    /// unchanged. Fill the entries afterwards through GetLeaf and GetNode.
    void SetChildren(std::uint8_t childMask, std::uint8_t leafMask);

    /// Calls @p onLeaf(octant, leaf) or @p onNode(octant, node) for each child in octant order,
    /// walking the child block once: the passes over a whole tree (reading, writing, checking,
    /// destroying it) visit every child of every node.
    template <class OnLeaf, class OnNode>
    void ForEachChild(OnLeaf&& onLeaf, OnNode&& onNode) const {
        WalkChildren(*this, onLeaf, onNode);
    }
    template <class OnLeaf, class OnNode>
    void ForEachChild(OnLeaf&& onLeaf, OnNode&& onNode) {
        WalkChildren(*this, onLeaf, onNode);
    }

private:
    friend class COcTree;

    // ForEachChild for a const or a mutable node: the entries follow each other in the block,
    // each at the size of its kind.
    template <class Node, class OnLeaf, class OnNode>
    static void WalkChildren(Node& node, OnLeaf& onLeaf, OnNode& onNode) {
        constexpr bool kConst = std::is_const<Node>::value;
        using Leaf = std::conditional_t<kConst, const COcTreeLeaf, COcTreeLeaf>;
        using Byte = std::conditional_t<kConst, const std::byte, std::byte>;
        Byte* slot = node.m_children.get();
        for (unsigned octant = 0; octant < 8; ++octant) {
            const unsigned bit = 1u << octant;
            if ((node.m_childMask & bit) == 0) continue;
            if ((node.m_leafMask & bit) != 0) {
                onLeaf(static_cast<int>(octant), *std::launder(reinterpret_cast<Leaf*>(slot)));
                slot += sizeof(COcTreeLeaf);
            } else {
                onNode(static_cast<int>(octant), *std::launder(reinterpret_cast<Node*>(slot)));
                slot += sizeof(COcTreeNode);
            }
        }
    }

    std::size_t OffsetOf(int octant) const noexcept;
    COcTreeNode* NodeAt(int octant) const noexcept;
    COcTreeLeaf* LeafAt(int octant) const noexcept;
    void DestroyChildren() noexcept;

    std::unique_ptr<std::byte[]> m_children;
    std::int32_t m_count = 0;
    std::int32_t m_first = 0;
    // Index of the node's bounding box in COcTree's side table; it fills what would otherwise
    // be padding, so it costs no room.
    std::int32_t m_boundIndex = -1;
    std::uint8_t m_childMask = 0;
    std::uint8_t m_leafMask = 0;
};

/// Placement and size of the root cube and of the triangles' bounding box, in the order in
/// which the network's file section stores them.
struct TOcTreeGeometry {
    double centreX;
    double centreY;
    double centreZ;
    double side;     ///< Side of the root cube: the largest of the three extents.
    double extentX;  ///< Size of the triangles' bounding box along x.
    double extentY;
    double extentZ;
};

/// The octree over a network's triangles (owned by the network, created empty with it).
///
/// Every node and leaf refers to a contiguous run of the network's triangle array, so building
/// the tree reorders that array; the order is a pre-order walk of the tree (a node's own
/// triangles, then its children in octant order). Indices kept across a rebuild are stale.
///
/// Besides the persistent structure, the tree keeps for each node the box of the vertices of
/// all triangles below it. The traversals prune with these boxes rather than with the cubes:
/// a triangle whose vertex 0 lies exactly on a centre plane is filed on the high side but may
/// reach across the plane, out of its cube, so a cube does not bound what lies below it. The
/// boxes are derived data: a traversal finds them again first when the network's triangles
/// changed shape since they were found (a vertex moved inside an open change event, before
/// the listener rebuilds the tree; a triangle given other vertices without notification), so
/// that what it hands over always answers for the vertices as they are. A tree read from a
/// file gets its boxes at its first traversal.
class COcTree {
public:
    /// An empty tree over @p owner's triangles (borrowed: the network owns the tree).
    explicit COcTree(CTris* owner) noexcept;
    ~COcTree();
    COcTree(const COcTree&) = delete;
    COcTree& operator=(const COcTree&) = delete;

    /// The tree of @p tris (owned by it).
    static const COcTree& Of(const CTris& tris) noexcept;

    /// Discards the tree and builds it anew over the owner's triangles, rewriting the owner's
    /// triangle array in the tree's order without notification. The tree stays empty when the
    /// network has no triangles or their vertices have no extent box (all coordinates NaN).
    /// The broken check is the caller's (CTris::CalcOcTree).
    void Build();
    /// Discards the tree; the geometry goes back to UNDEFINED_QUOTE.
    void Clear() noexcept;
    /// Replaces the tree by @p root (may be null: an empty tree) placed by @p geometry, as the
    /// network's file section reads it. The runs are taken as they are; a run reaching past the
    /// end of the triangle array is cut there by the traversals. The node boxes are left to the
    /// first traversal.
    void Assign(const TOcTreeGeometry& geometry, std::unique_ptr<COcTreeNode> root);

    /// True when the tree has a root.
    bool HasRoot() const noexcept { return m_root != nullptr; }
    /// The root (owned by the tree), or null while the tree is empty.
    const COcTreeNode* GetRoot() const noexcept { return m_root.get(); }
    /// Centre and side of the root cube and extents of the triangles' box; every value is
    /// UNDEFINED_QUOTE while nothing was built or assigned.
    const TOcTreeGeometry& GetGeometry() const noexcept { return m_geometry; }
    /// Bytes of a leaf entry in a child block (8).
    std::int32_t GetLeafRecordSize() const noexcept { return m_leafRecordSize; }
    /// Bytes of a sub-node entry in a child block (24 with 64-bit pointers).
    std::int32_t GetNodeRecordSize() const noexcept { return m_nodeRecordSize; }

    /// A box holding the vertices of every triangle below @p node (a node of this tree), as the
    /// traversals prune with it: empty for a subtree without triangles, unbounded when one of
    /// them has a coordinate that is not finite or a vertex that does not exist, and otherwise
    /// the vertices' box rounded outwards to single precision.
    kor::geom::RECT_3D GetNodeBound(const COcTreeNode& node) const;

    /// Hands over to @p listener every triangle that has an edge passing at plan distance less
    /// than @p tol from @p p, possibly with other triangles of the same neighbourhood (the
    /// listener tests exactly); the vertices asked for with GetTriVertices serve to skip
    /// triangles whose plan box lies farther than @p tol. Nothing is handed over when @p tol is
    /// not positive, as no edge can then pass closer than it. Triangles come in array order;
    /// Flush ends the traversal.
    void TraversePlanPoint(const kor::geom::PNT_2D& p, double tol,
                           ITriOcTreeListener& listener) const;
    /// Hands over, in array order, exactly the triangles not culled by @p planes: a triangle is
    /// culled when all three of its vertices (asked for with GetTriVertices) lie on the
    /// positive side of any one plane. Without planes every triangle comes. Flush ends it.
    void TraversePlanes(const std::vector<kor::geom::PLANE_3D>& planes,
                        ITriOcTreeListener& listener) const;
    /// Hands over, in array order, exactly the triangles crossed by the horizontal plane at
    /// elevation @p z: (P1.z − z)·(P0.z − z) <= 0 or (P2.z − z)·(P0.z − z) <= 0, with the
    /// vertices asked for with GetTriVertices. Flush ends it.
    void TraverseSlice(double z, ITriOcTreeListener& listener) const;

private:
    struct WorkEntry;
    struct BuildState;

    kor::geom::RECT_3D BuildNode(COcTreeNode& node, int from, std::size_t begin, std::size_t count,
                                 const kor::geom::PNT_3D& centre, double side, int depth,
                                 BuildState& state);
    void EnsureBounds() const;
    void ComputeBounds() const;
    kor::geom::RECT_3D BoundNode(COcTreeNode& node) const;
    void IncludeRun(kor::geom::RECT_3D& box, std::int32_t first, std::int32_t count) const;
    template <class Filter>
    void Walk(const COcTreeNode& node, int depth, Filter& filter,
              ITriOcTreeListener& listener) const;
    template <class Filter>
    void HandOverRun(std::int32_t first, std::int32_t count, Filter& filter,
                     ITriOcTreeListener& listener) const;
    template <class Filter>
    void Traverse(Filter& filter, ITriOcTreeListener& listener) const;

    CTris* m_owner;
    std::unique_ptr<COcTreeNode> m_root;
    TOcTreeGeometry m_geometry;
    std::int32_t m_leafRecordSize;
    std::int32_t m_nodeRecordSize;
    // Box of each node's subtree, indexed by COcTreeNode::m_boundIndex: found by Build with
    // the structure, else by the first traversal after Assign or after the network's triangles
    // changed shape (m_boundsStamp is then empty or differs from the network's stamp); hence
    // mutable, as the search index of the network's const queries is. Kept in single precision,
    // rounded outwards, which halves
    // what the boxes of a large tree take: a traversal prunes with them but tests every
    // triangle it hands over on its own, and a box that holds the true box never prunes a
    // subtree that the true box would keep (the plane test is monotone in each coordinate, so a
    // corner of the larger box is always at least as extreme as any vertex inside it).
    struct TBound {
        float minX, minY, minZ, maxX, maxY, maxZ;
        static TBound Of(const kor::geom::RECT_3D& box) noexcept;
        kor::geom::RECT_3D ToRect() const noexcept;
    };
    mutable std::vector<TBound> m_bounds;
    // The network's stamp when m_bounds was found; false has_value while there are none.
    mutable std::optional<TShapeStamp> m_boundsStamp;
};
