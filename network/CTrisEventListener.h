#pragma once

// The network's own listener on its project's change context: it keeps the network's derived
// data (broken check, vertex colours, normals, octree, selection) in step with the triangles and
// vertices once a change event is over. Private to the library.

#include <dtm/support/Events.h>

class CDtmChangeContext;
class CTris;

/// Recomputes a network's derived data after every change event that touched its triangles or
/// moved its vertices, once armed.
///
/// It starts disarmed, and the first event that closes only arms it. Reading a network from a
/// file disarms it again (Disarm), so that the event of the load itself does not throw away the
/// octree that was just read.
class CTrisEventListener : public kor::CSourceEvent::IEvent {
public:
    /// Registers itself on @p tris's change context. @p tris (borrowed) owns the listener; its
    /// context must outlive it, which the project guarantees by releasing its context last.
    explicit CTrisEventListener(CTris* tris);
    /// Unregisters from the change context.
    ~CTrisEventListener() override;
    CTrisEventListener(const CTrisEventListener&) = delete;
    CTrisEventListener& operator=(const CTrisEventListener&) = delete;

    /// Makes the next closing event only re-arm the listener instead of recomputing.
    void Disarm() noexcept { m_armed = false; }
    /// True when the next closing event that touches the network recomputes its derived data.
    bool IsArmed() const noexcept { return m_armed; }

    /// Nothing: all the work waits for the end of the event.
    void OnEventOpened(kor::CSourceEvent& source) override;
    /// Arms the listener, or, when armed and the event touched the network, recomputes, in this
    /// order, the broken check, the colours, the normals, the octree and the selection.
    void OnEventClosed(kor::CSourceEvent& source) override;

private:
    /// True when the event being closed removed every triangle, moved vertices, or added,
    /// modified or removed a triangle.
    bool EventTouchedNetwork() const;

    CTris* m_tris;
    CDtmChangeContext* m_context;
    bool m_armed = false;
};
