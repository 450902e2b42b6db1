#include <dtm/network/CTri.h>

#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/Geom.h>

#include "network/COcTree.h"
#include "network/CTriPool.h"
#include "network/CTriShapeEpoch.h"

#include <atomic>
#include <new>
#include <stdexcept>

namespace {

// Colour index that means "draw with the layer's colour".
constexpr int BY_LAYER_COLOUR = 256;

const CTriMemento& AsTriMemento(const kor::IMemento* memento) {
    const auto* triMemento = dynamic_cast<const CTriMemento*>(memento);
    if (!triMemento) throw std::invalid_argument("CTri: the memento is not a triangle's");
    return *triMemento;
}

// Counts every change of a triangle's vertex indices in the process; see CTriShapeEpoch.h. Atomic
// only so that two hosts' threads each working on a network of their own cannot tear it.
std::atomic<std::uint64_t> g_triangleShapeEpoch{0};

}  // namespace

namespace dtm {
namespace detail {

std::uint64_t TriangleShapeEpoch() noexcept {
    return g_triangleShapeEpoch.load(std::memory_order_relaxed);
}

void NoteTriangleShapeChanged() noexcept {
    g_triangleShapeEpoch.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace detail
}  // namespace dtm

void* CTri::operator new(std::size_t size) {
    if (size != sizeof(CTri) || !dtm::detail::CTriPool::UsesPoolForTriangles())
        return ::operator new(size);
    return dtm::detail::CTriPool::ForTriangles().Allocate();
}

void CTri::operator delete(void* memory, std::size_t size) noexcept {
    if (size != sizeof(CTri) || !dtm::detail::CTriPool::UsesPoolForTriangles()) {
        ::operator delete(memory);
        return;
    }
    dtm::detail::CTriPool::ForTriangles().Release(memory);
}

CTri::CTri() : m_vertices{0, 0, 0}, m_colour(BY_LAYER_COLOUR) {}

CTri::CTri(int colour, int i0, int i1, int i2) : m_vertices{i0, i1, i2}, m_colour(colour) {}

CTri::~CTri() = default;

CTriMemento::~CTriMemento() = default;

kor::IMemento* CTri::CreateMemento(CTris* owner) const {
    return new CTriMemento(owner, m_colour, m_vertices[0], m_vertices[1], m_vertices[2]);
}

bool CTri::HasChanged(const kor::IMemento* memento) const {
    const CTriMemento& state = AsTriMemento(memento);
    return m_colour != state.GetColor() || m_vertices[0] != state.GetVerIndex(0) ||
           m_vertices[1] != state.GetVerIndex(1) || m_vertices[2] != state.GetVerIndex(2);
}

void CTri::OnSetMemento(kor::IMemento* memento) {
    const CTriMemento& state = AsTriMemento(memento);
    CDtmChangeContext* context = state.GetOwner() ? state.GetOwner()->GetContext() : nullptr;
    const bool colourDiffers = m_colour != state.GetColor();
    const bool verticesDiffer = m_vertices[0] != state.GetVerIndex(0) ||
                                m_vertices[1] != state.GetVerIndex(1) ||
                                m_vertices[2] != state.GetVerIndex(2);
    // Only what differs is reported, so an equal memento sends nothing; both kinds together are
    // one change of the triangle, one event and one undo step, as with every other entity.
    if (!colourDiffers && !verticesDiffer) return;
    kor::CEventGuard event(context);
    if (colourDiffers) {
        if (context) context->Notify_Tri_Modifying(this, eTriChangeColor);
        m_colour = state.GetColor();
    }
    if (verticesDiffer) {
        if (context) context->Notify_Tri_Modifying(this, eTriChangeVertices);
        for (int k = 0; k < 3; ++k) m_vertices[k] = state.GetVerIndex(k);
        dtm::detail::NoteTriangleShapeChanged();
    }
}

void CTri::SetVerIndex(int k, int v) {
    m_vertices[k] = v;
    dtm::detail::NoteTriangleShapeChanged();
}

void CTri::SetVerIndexes(CTris* owner, int i0, int i1, int i2) {
    owner->GetContext()->Notify_Tri_Modifying(this, eTriChangeVertices);
    m_vertices[0] = i0;
    m_vertices[1] = i1;
    m_vertices[2] = i2;
    dtm::detail::NoteTriangleShapeChanged();
}

void CTri::SetColor(CTris* owner, int colour) {
    owner->GetContext()->Notify_Tri_Modifying(this, eTriChangeColor);
    m_colour = colour;
}

void CTri::ClockwiseOrder(CTris* owner) {
    // A vertex that does not exist has no position: SIDE is then NaN and nothing is swapped.
    const kor::geom::PNT_3D& p0 = VertexAt(owner->GetPnts(), m_vertices[0]);
    const kor::geom::PNT_3D& p1 = VertexAt(owner->GetPnts(), m_vertices[1]);
    const kor::geom::PNT_3D& p2 = VertexAt(owner->GetPnts(), m_vertices[2]);
    if (SIDE(p0.x, p0.y, p1.x, p1.y, p2.x, p2.y) < 0) std::swap(m_vertices[1], m_vertices[2]);
}
