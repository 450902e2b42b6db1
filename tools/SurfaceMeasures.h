#pragma once

// What a survey file states about a surface besides its points and faces: its areas and
// elevation range, each face's neighbours and the sides of each face that lie on a breakline.
// They are worked out from the surface at the time of writing, so that they stay true after
// the model was edited, instead of being carried over from the file the surface came from.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "TinSurface.h"

namespace dtmtool {

/// The areas and the elevation range of a surface's visible faces; hidden faces are not part
/// of the surface and points that no visible face uses do not lie on it.
struct SurfaceMeasures {
    /// The sum of the faces' areas projected on the plan.
    double planArea = 0.0;
    /// The sum of the faces' areas in space, the ground's own area.
    double surfaceArea = 0.0;
    /// The elevation range of the faces' corners; meaningful only when some face exists.
    double lowest = 0.0;
    double highest = 0.0;
    /// Whether the surface has a visible face at all: without one there is nothing to measure.
    bool measured = false;
};

SurfaceMeasures MeasureSurface(const TinSurface& surface);

/// One face in the order a file lists it: its corners as indices into the surface's points.
struct FaceCornersView {
    const int* corners;
    int count;  // 3, or 4 for a four-sided face
};

/// Every face of @p surface as a file lists them: the visible faces, then the hidden ones.
std::vector<FaceCornersView> FacesInFileOrder(const TinSurface& surface);

/// The neighbour of each side of each face, as the number of the other face (counted from 1 in
/// the order of @p faces) that has the same two corners, or 0 when no other face has them, or
/// when more than one does (a side shared three ways has no single neighbour to name). Side k
/// of face f runs from corner k to the next corner, the last back to the first; its neighbour
/// is at 4 · f + k.
std::vector<std::size_t> FaceNeighbours(const std::vector<FaceCornersView>& faces);

/// For each face of @p faces, the sides that lie on a breakline of @p surface, as bits (1 for
/// the first side, 2 for the second, 4 for the third, 8 for the fourth): a side lies on a
/// breakline when its two corners are, in plan, the ends of one segment of that breakline.
std::vector<std::uint8_t> BreaklineSides(const TinSurface& surface,
                                         const std::vector<FaceCornersView>& faces);

}  // namespace dtmtool
