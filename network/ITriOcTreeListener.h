#pragma once

/// @file
/// What an octree traversal talks to: it hands over the triangles it reaches and asks for the
/// vertices it needs to cull with.

#include <dtm/support/Geom.h>

/// Receives the triangles of one octree traversal (COcTree::TraversePlanPoint,
/// TraversePlanes, TraverseSlice).
///
/// The four slots keep this order: OnTri, Flush, OnNodeEntered, GetTriVertices. A traversal
/// borrows its listener for the duration of the call; the listener reads from the network it
/// holds (borrowed, the network outlives it). Listeners are created on the stack by their users
/// and never deleted through this interface, hence the protected destructor.
class ITriOcTreeListener {
public:
    /// The traversal hands over triangle @p tri (a position in the network's triangle array).
    /// Each triangle is handed over at most once per traversal of a tree built by the network
    /// (or read back as it was written), in increasing array order.
    virtual void OnTri(int tri) = 0;
    /// The traversal is over; a buffering listener delivers what it still holds. Called once
    /// at the end of every traversal, also when nothing was handed over.
    virtual void Flush() {}
    /// Diagnostic: the traversal enters a node of the tree at @p depth (0 for the root), before
    /// handing over any of the node's triangles. The library attaches no duty to it; tests use
    /// it to see how much of the tree a traversal had to visit.
    virtual void OnNodeEntered(int depth) { static_cast<void>(depth); }
    /// The traversal asks for the vertices of triangle @p tri, in the triangle's vertex order,
    /// to decide whether it is culled.
    virtual void GetTriVertices(int tri, kor::geom::PNT_3D& a, kor::geom::PNT_3D& b,
                                kor::geom::PNT_3D& c) = 0;

protected:
    ITriOcTreeListener() = default;
    ITriOcTreeListener(const ITriOcTreeListener&) = default;
    ITriOcTreeListener& operator=(const ITriOcTreeListener&) = default;
    ~ITriOcTreeListener() = default;
};
