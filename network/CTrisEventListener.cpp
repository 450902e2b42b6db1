#include "network/CTrisEventListener.h"

#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>

CTrisEventListener::CTrisEventListener(CTris* tris) : m_tris(tris), m_context(tris->GetContext()) {
    // A network built without a project has no context and so never hears of an event.
    if (m_context) m_context->Register(this);
}

CTrisEventListener::~CTrisEventListener() {
    if (m_context) m_context->Unregister(this);
}

void CTrisEventListener::OnEventOpened(kor::CSourceEvent& /*source*/) {}

void CTrisEventListener::OnEventClosed(kor::CSourceEvent& /*source*/) {
    // Moving vertices is always reported, also by operations that write the vertex array
    // without going through the network's own (undo restores vertices in place), so whatever
    // was derived from their positions is stale now, armed or not.
    if (m_context->AreTriVrtsMoved()) m_tris->NoteGeometryChanged();
    if (!m_armed) {
        m_armed = true;
        return;
    }
    if (!EventTouchedNetwork()) return;
    // The order matters: a network found broken computes no colours, normals, octree or
    // selection, and the octree reorders the triangle array, which the selection bits index.
    m_tris->CheckBroken();
    m_tris->CalcColors();
    m_tris->CalcNormals();
    m_tris->CalcOcTree();
    m_tris->InitSelTris();
}

bool CTrisEventListener::EventTouchedNetwork() const {
    return m_context->AreTriRemovedAll() || m_context->AreTriVrtsMoved() ||
           !m_context->GetTriAdded().empty() || !m_context->GetTriModified().empty() ||
           !m_context->GetTriRemoved().empty();
}
