#pragma once

// What a network's derived spatial data was computed from. Private to the library.

#include <cstdint>

class CTris;

/// The state of a network's triangles as far as data derived from their shapes cares: the
/// search index and the octree's node boxes keep the stamp they were computed at and are found
/// again once the network's stamp differs.
///
/// Two equal stamps mean that since the first one was taken, triangles and vertices were at
/// most appended through the network's own operations: no triangle changed shape or place in
/// the array.
struct TShapeStamp {
    std::uint64_t version = 0;  ///< CTris::m_geometryVersion
    std::uint64_t epoch = 0;    ///< TriangleShapeEpoch()
    /// Counts less the appends the network made itself: they move only when an array changed
    /// size behind the network's back (a friend that erased or inserted).
    std::int64_t vertexBase = 0;
    std::int64_t triBase = 0;

    /// The stamp of @p tris now.
    static TShapeStamp Of(const CTris& tris) noexcept;

    bool operator==(const TShapeStamp& other) const noexcept {
        return version == other.version && epoch == other.epoch && vertexBase == other.vertexBase &&
               triBase == other.triBase;
    }
};
