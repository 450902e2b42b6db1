#pragma once

/// @file
/// A breakline: a 3D segment that constrains the network, and the memento of its state.

#include <dtm/project/CDtmEnt.h>
#include <dtm/support/Events.h>
#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>

#include <cstddef>

class CDtmPrj;
class CVncs;

/// The snapshot of a breakline: a copy of its segment. Reference-counted: whoever holds one
/// releases it with SubReference.
class DTM_API CVncMemento : public kor::IMemento {
public:
    /// What GetSize answers for every breakline memento: the 48 bytes of the six coordinates
    /// plus the bookkeeping every memento carries (its dispatch pointer and reference count),
    /// rounded to the 16 bytes an allocation takes. The host only adds these figures up to cap
    /// its undo memory, so a constant is all it needs.
    static constexpr std::size_t MEMENTO_SIZE = 64;

    /// A memento holding a copy of @p coords, with one reference held by the creator.
    explicit CVncMemento(const kor::geom::LINE_3D& coords) noexcept;

    /// The segment held.
    const kor::geom::LINE_3D& GetCoords() const noexcept { return m_coords; }
    /// Always MEMENTO_SIZE (64).
    std::size_t GetSize() const override;

protected:
    ~CVncMemento() override;

private:
    kor::geom::LINE_3D m_coords;
};

/// A breakline of a project: one 3D segment that the triangulation must respect.
///
/// Reference-counted; the collection it is listed in holds one reference. Every change of the
/// segment is reported to the project's change context through the collection, inside an event
/// that the breakline opens itself, so that it can be undone.
class DTM_API CVnc : public CDtmEnt {
public:
    /// A breakline of @p vncs (borrowed: whoever keeps the breakline after the collection is
    /// destroyed must not use it any more) with segment @p coords. It is not listed in the
    /// collection yet: CVncs::AddVnc does that. One reference is held by the creator. Throws
    /// std::invalid_argument when @p vncs is null, since a breakline reaches its project only
    /// through its collection.
    CVnc(CVncs* vncs, const kor::geom::LINE_3D& coords);
    /// Copies the host handle, the collection pointer and the segment; the copy starts with its
    /// own single reference and is listed nowhere.
    CVnc(const CVnc& other);
    /// Copies the host handle, the collection pointer and the segment, without notification;
    /// the reference count is kept.
    CVnc& operator=(const CVnc& other);

    /// The collection the breakline belongs to (borrowed); never null.
    CVncs* GetVncs() const noexcept { return m_vncs; }
    /// The segment: first end point, then second end point.
    const kor::geom::LINE_3D& GetCoords() const noexcept { return m_coords; }

    /// Replaces the segment with @p coords.
    ///
    /// Opens an event on the collection's change context (when there is one), sends
    /// Notify_Vnc_Modifying while the old segment is still in place, replaces it and closes the
    /// event. A segment equal to the current one is still reported. When the notification
    /// throws, the segment is unchanged and the event is closed.
    void SetCoords(const kor::geom::LINE_3D& coords);

    /// The collection's project (borrowed), or null when the collection has none.
    CDtmPrj* GetDtmPrj() const override;
    /// A new CVncMemento with a copy of the segment; the caller holds its one reference.
    kor::IMemento* CreateMemento() const override;
    /// True when any of the six coordinates differs from @p memento's, compared exactly; a NaN
    /// on either side always counts as a difference. Throws std::invalid_argument when
    /// @p memento is not a CVncMemento.
    bool HasChanged(const kor::IMemento* memento) const override;

protected:
    ~CVnc() override;
    /// Puts the segment of @p memento back, reported exactly as SetCoords reports a change.
    /// Throws std::invalid_argument, changing nothing, when @p memento is not a CVncMemento.
    void OnSetMemento(kor::IMemento* memento) override;

private:
    CVncs* m_vncs;
    kor::geom::LINE_3D m_coords;
};
