#include "network/TShapeStamp.h"

#include <dtm/network/CTris.h>

#include "network/CTriShapeEpoch.h"

TShapeStamp TShapeStamp::Of(const CTris& tris) noexcept {
    TShapeStamp stamp;
    stamp.version = tris.m_geometryVersion;
    stamp.epoch = dtm::detail::TriangleShapeEpoch();
    stamp.vertexBase = static_cast<std::int64_t>(tris.m_vertices.size()) -
                       static_cast<std::int64_t>(tris.m_appendedVertices);
    stamp.triBase = static_cast<std::int64_t>(tris.m_tris.size()) -
                    static_cast<std::int64_t>(tris.m_appendedTris);
    return stamp;
}
