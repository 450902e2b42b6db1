#pragma once

/// @file
/// Base of every editable entity of a project: boundaries, contour lines, breaklines.

#include <dtm/support/Events.h>
#include <dtm/support/Export.h>
#include <dtm/support/RefCounter.h>

#include <cstdint>

class CDtmPrj;

/// An editable, reference-counted entity that can take, compare and restore snapshots of its
/// state (mementos), which is what the undo machinery is built on.
class DTM_API CDtmEnt : public kor::IRefCounter {
public:
    /// The project that owns the entity, or null while it is in none.
    virtual CDtmPrj* GetDtmPrj() const = 0;
    /// A new memento of the current state; the caller holds its one reference.
    virtual kor::IMemento* CreateMemento() const = 0;
    /// Whether the current state differs from @p memento, compared exactly; a NaN on either side
    /// always counts as a difference.
    virtual bool HasChanged(const kor::IMemento* memento) const = 0;

    /// Puts @p memento's state back. This is itself a recorded change: the entity sends its
    /// modifying notification first, so the undo of an undo works.
    void SetMemento(kor::IMemento* memento) { OnSetMemento(memento); }

    /// The host's handle of the entity's drawing; never interpreted here.
    void SetRep(std::int64_t rep) noexcept { m_rep = rep; }
    std::int64_t GetRep() const noexcept { return m_rep; }

protected:
    CDtmEnt() noexcept = default;
    /// The copy starts with its own reference count and the same host handle.
    CDtmEnt(const CDtmEnt& other) noexcept = default;
    /// Assignment copies the host handle only.
    CDtmEnt& operator=(const CDtmEnt& other) noexcept = default;
    ~CDtmEnt() override;
    virtual void OnSetMemento(kor::IMemento* memento) = 0;

private:
    std::int64_t m_rep = 0;
};
