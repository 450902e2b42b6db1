#pragma once

/// @file
/// A terrain-model project: a named container of a network and its companions.

#include <dtm/support/Export.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/String.h>

class CCnts;
class CCvLvs;
class CDtmChangeContext;
class CLibDtm;
class CTris;
class CVncs;

/// One terrain-model project. It owns its network and its change context, belongs to at most
/// one library, and reports every change of its own properties to its change context.
///
/// Reference-counted: created with one reference held by the creator, which AddPrj hands to the
/// library; never deleted directly.
class DTM_API CDtmPrj : public kor::IRefCounter {
public:
    /// Builds the change context (attached to @p lib's transaction manager when @p lib is given)
    /// and then the components. @p lib (borrowed, may be null) becomes the owner, but the
    /// project is not put into it: that is CLibDtm::AddPrj's work. When building a component
    /// fails, what was built is destroyed and the exception propagates.
    CDtmPrj(CLibDtm* lib, const kor::String& name, bool visible, bool locked);

    /// Records @p lib as the owner and attaches the change context to its transaction manager,
    /// unless the context is already attached to one.
    void AdoptedBy(CLibDtm* lib);
    /// Detaches the change context from its transaction manager and clears the owner.
    void Orphan();
    /// The owning library, or null.
    CLibDtm* GetLibDtm() const noexcept { return m_owner; }

    /// The project's change context (borrowed).
    CDtmChangeContext* GetContext() const noexcept { return m_context; }
    operator CDtmChangeContext*() const noexcept { return m_context; }
    /// The network (owned by the project).
    CTris* GetTris() const noexcept { return m_tris; }
    /// The contour lines (owned by the project).
    CCvLvs* GetCvLvs() const noexcept { return m_cvlvs; }
    /// The breaklines (owned by the project).
    CVncs* GetVncs() const noexcept { return m_vncs; }
    /// The internal boundaries when @p internal is true, else the external ones (owned).
    CCnts* GetCnts(bool internal) const noexcept {
        return internal ? m_internalCnts : m_externalCnts;
    }

    const kor::String& GetName() const noexcept { return m_name; }
    bool IsVisible() const noexcept { return m_visible; }
    bool IsLocked() const noexcept { return m_locked; }
    /// The user coordinate system's name: always empty, because a project always lies in the
    /// world reference system.
    const kor::String& GetUcsName() const noexcept { return m_ucsName; }
    /// Always true; see GetUcsName.
    bool IsWorldRefSys() const noexcept { return true; }
    /// True when the project has an owner whose active project it is.
    bool IsActive() const;

    /// Renames the project. When @p name differs (case-sensitively) the change context is told
    /// that the project was modified, then the name is stored; an identical name does nothing.
    /// Names are not made unique here.
    void SetName(const kor::String& name);
    /// Shows or hides the project; notifies as SetName when the value changes.
    void SetVisible(bool visible);
    /// Locks or unlocks the project; notifies as SetName when the value changes.
    void SetLocked(bool locked);
    /// Sets the three properties with one notification; nothing when all three are unchanged.
    void SetProps(const kor::String& name, bool visible, bool locked);
    /// Sets the owning library's modified flag; nothing without an owner.
    void SetModifiedFlag();

    /// Stores an opaque host datum; never read or freed here.
    void SetReserved(void* reserved) noexcept { m_reserved = reserved; }
    void* GetReserved() const noexcept { return m_reserved; }

protected:
    /// Destroys the components in construction order, then releases the change context.
    ~CDtmPrj() override;

private:
    void DestroyComponents() noexcept;

    CVncs* m_vncs = nullptr;
    CCnts* m_internalCnts = nullptr;
    CCnts* m_externalCnts = nullptr;
    CTris* m_tris = nullptr;
    CCvLvs* m_cvlvs = nullptr;
    CDtmChangeContext* m_context = nullptr;
    CLibDtm* m_owner;
    bool m_visible;
    bool m_locked;
    kor::String m_name;
    kor::String m_ucsName;
    void* m_reserved = nullptr;
};
