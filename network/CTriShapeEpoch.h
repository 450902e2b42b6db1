#pragma once

// A process-wide count of changes to triangles' vertex indices. Private to the library.

#include <cstdint>

namespace dtm {
namespace detail {

/// The number of times any triangle's vertex indices were changed since the program started.
///
/// A triangle does not know its network (CTri::SetVerIndex takes no owner), so a network cannot
/// be told that one of its triangles changed shape. Instead, everything a network derives from
/// its triangles' shapes (its octree's boxes, its search index) records this count when it is
/// built and is treated as stale once the count has moved on. A change in another network only
/// costs a needless rebuild.
std::uint64_t TriangleShapeEpoch() noexcept;

/// Moves TriangleShapeEpoch on; called by every operation that changes a triangle's indices.
void NoteTriangleShapeChanged() noexcept;

}  // namespace detail
}  // namespace dtm
