#pragma once

/// @file
/// A boundary polyline of a project, external or internal, with its memento and its scoped
/// vertex editor.

#include <dtm/project/CDtmEnt.h>
#include <dtm/support/Events.h>
#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>

#include <cstddef>
#include <vector>

class CCnts;
class CDtmChangeContext;

/// A boundary of a project: a closed ring of 3D vertices that limits the terrain model.
///
/// The boundary stores its ring extended by one vertex at each end: for the real ring
/// p0 … p(n-1) it keeps p(n-1), p0, …, p(n-1), p0, so that every real vertex has a predecessor
/// and a successor in the list without wrapping an index. Every reading member and the stream
/// section see that extended list as stored.
///
/// Whether a boundary is internal (a hole) is a property of the collection that holds it.
/// While the boundary is in a collection of a project, each change is reported to the
/// project's change context before it is made, so that the previous state can be kept for
/// undo. A boundary in no collection changes silently.
///
/// Reference-counted: created with one reference held by the creator; its collection holds one
/// more; never deleted directly.
class DTM_API CCnt : public CDtmEnt {
public:
    /// An empty boundary in no collection.
    CCnt();
    /// Boundaries are shared by reference; Clone makes an independent copy.
    CCnt(const CCnt&) = delete;
    CCnt& operator=(const CCnt&) = delete;

    /// The collection that holds (or last held) the boundary, borrowed; null until it is added.
    /// Removal leaves the pointer as it is.
    CCnts* GetCnts() const noexcept { return m_cnts; }
    /// The project of the holding collection, or null when there is none.
    CDtmPrj* GetDtmPrj() const override;
    /// True when the holding collection is the internal one; false in no collection.
    bool IsInternal() const;

    /// Number of stored (extended) vertices: the real count plus two, or 0 when empty.
    int GetNoVrts() const noexcept { return static_cast<int>(m_vrts.size()); }
    /// Stored vertex @p i; throws std::out_of_range outside 0 … GetNoVrts() - 1.
    const kor::geom::PNT_3D& GetVrt(int i) const;
    /// The stored, extended vertex list.
    const std::vector<kor::geom::PNT_3D>& GetExtendedVrts() const noexcept { return m_vrts; }

    /// Replaces the vertices by the ring @p real (n distinct vertices, the closing edge
    /// implied), stored as real[n-1], real[0 … n-1], real[0].
    ///
    /// Sends Notify_Cnt_Modifying first when the boundary has a project (an event of its own
    /// unless the caller has one open). Throws std::invalid_argument for an empty ring, before
    /// anything is sent or changed.
    void SetRealVrts(const std::vector<kor::geom::PNT_3D>& real);
    /// Appends @p p to the stored list as it is, without adding wrap-around copies: a caller
    /// that builds a boundary vertex by vertex appends the extended list itself. Sends
    /// Notify_Cnt_Modifying first when the boundary has a project.
    void AppendVrt(const kor::geom::PNT_3D& p);

    /// A new boundary with a copy of the stored list, in no collection and with host handle 0
    /// (the host has not drawn it yet). The caller holds its one reference.
    CCnt* Clone() const;

    /// A new CCntMemento holding a copy of the stored list; the caller holds its one reference.
    kor::IMemento* CreateMemento() const override;
    /// True when @p memento (a CCntMemento) holds a different vertex count or, at any vertex,
    /// a different x, y or z, compared exactly; a NaN on either side is a difference.
    /// Throws std::invalid_argument when @p memento is not a boundary memento.
    bool HasChanged(const kor::IMemento* memento) const override;

protected:
    ~CCnt() override;
    /// Puts the memento's vertex list back, inside one event of the project's change context
    /// that first carries Notify_Cnt_Modifying (also when the lists are already equal).
    /// Throws std::invalid_argument, changing nothing, when @p memento is not a boundary
    /// memento.
    void OnSetMemento(kor::IMemento* memento) override;

private:
    friend class CCnts;
    friend class CCntModifier;

    void SetCnts(CCnts* cnts) noexcept { m_cnts = cnts; }
    /// Overwrites stored vertex @p i only (checked); the copy of the same real vertex at the
    /// other end of the list is left to the caller.
    void DoMoveVrt(int i, const kor::geom::PNT_3D& p);
    /// The change context of the boundary's project, or null when there is none (borrowed).
    CDtmChangeContext* GetContext() const;
    /// Sends Notify_Cnt_Modifying when the boundary has a project.
    void NotifyModifying();

    CCnts* m_cnts = nullptr;
    std::vector<kor::geom::PNT_3D> m_vrts;
};

/// The state of a boundary kept for undo: a copy of its extended vertex list.
/// Reference-counted; released by whoever holds it.
class DTM_API CCntMemento : public kor::IMemento {
public:
    /// A memento holding @p vrts, the extended list as a boundary stores it.
    explicit CCntMemento(std::vector<kor::geom::PNT_3D> vrts);

    /// 48 bytes plus 24 per vertex held: the figure the host budgets its undo memory with.
    std::size_t GetSize() const override;
    /// The vertex list held.
    const std::vector<kor::geom::PNT_3D>& GetVrts() const noexcept { return m_vrts; }

protected:
    ~CCntMemento() override;

private:
    std::vector<kor::geom::PNT_3D> m_vrts;
};

/// Scoped editor of one boundary's stored vertices: all the moves made through one modifier
/// form one change of the project, announced once before the first move.
///
/// When the boundary has a project, the constructor opens an event on the project's change
/// context and sends Notify_Cnt_Modifying; the destructor closes that event. The boundary
/// (borrowed) must outlive the modifier.
///
/// A modifier owns exactly one open event, so it can be neither copied nor assigned: a copy
/// would close that event twice.
class DTM_API CCntModifier {
public:
    /// Starts editing @p cnt (borrowed). Throws std::invalid_argument for a null boundary.
    explicit CCntModifier(CCnt* cnt);
    /// Closes the event opened by the constructor, if any. Exceptions raised by the event's
    /// listeners while it closes propagate, unless another exception is already passing.
    ~CCntModifier() noexcept(false);
    CCntModifier(const CCntModifier&) = delete;
    /// Takes over @p other's change context and boundary: later moves edit @p other's boundary.
    /// Each modifier keeps exactly one event open on the context it holds, so that every
    /// modifier's destructor closes an event it opened: when the contexts differ, the event on
    /// the old one is closed here and one is opened on the new one.
    CCntModifier& operator=(const CCntModifier& other);

    /// Overwrites stored vertex @p i with @p p, without a further notification. Only that
    /// stored vertex changes: a real vertex that also appears as a wrap-around copy at the
    /// other end of the list must be moved at both indices when both matter. Throws
    /// std::out_of_range outside 0 … GetNoVrts() - 1.
    void MovePoint(int i, const kor::geom::PNT_3D& p);

private:
    static CDtmChangeContext* ContextOf(CCnt* cnt);

    CDtmChangeContext* m_context;
    CCnt* m_cnt;
    kor::CEventGuard m_event;
};
