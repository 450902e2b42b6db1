#pragma once

/// @file
/// A terrain-model project: a named container of a network and its companions.

#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/String.h>

class CCnts;
class CCvLvs;
class CDtmChangeContext;
class CDtmPrjOpz;
class CLibDtm;
class CTris;
class CVncs;
class ifpstream;
class ofpstream;

/// One terrain-model project. It owns its network, boundaries, contour lines, breaklines, its
/// display options block and its change context, belongs to at most one library, and reports
/// every change of its own properties and display options to its change context.
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
    /// The project's display options block (owned by the project). Change it through
    /// SetVisOptions, SetVncActive and SetCntActive, which notify; changes made here directly
    /// are plain stores that no listener sees.
    CDtmPrjOpz& GetPrjOpz() noexcept { return *m_opz; }
    /// The project's display options block (owned by the project).
    const CDtmPrjOpz& GetPrjOpz() const noexcept { return *m_opz; }

    const kor::String& GetName() const noexcept { return m_name; }
    bool IsVisible() const noexcept { return m_visible; }
    bool IsLocked() const noexcept { return m_locked; }
    /// The user coordinate system's name: always empty, because a project always lies in the
    /// world reference system.
    const kor::String& GetUcsName() const noexcept { return m_ucsName; }
    /// The user coordinate system: a copy of the world system, which no operation changes.
    const kor::geom::CRightRefSys& GetUcsRefSys() const noexcept { return m_ucsRefSys; }
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

    // Options --------------------------------------------------------------------------------

    /// Sets the display options block. The breakline part changed when its flag or colour
    /// differs, the boundary part when either boundary flag or colour differs. When neither
    /// changed nothing happens; otherwise all six values are stored, then
    /// Notify_Vnc_LayersModified is sent if the breakline part changed and
    /// Notify_Cnt_LayersModified if the boundary part changed (two events, unless the caller
    /// brackets the call in one).
    void SetVisOptions(bool vncActive, bool cnt0Active, bool cnt1Active, short vncColour,
                       short cnt0Colour, short cnt1Colour);
    /// Shows or hides the breakline layer: when the flag differs it is stored, then
    /// Notify_Vnc_LayersModified is sent; otherwise nothing.
    void SetVncActive(bool active);
    /// Shows or hides a boundary group: @p group 0 selects group 0, any other value group 1.
    /// When the flag differs it is stored, then Notify_Cnt_LayersModified is sent; otherwise
    /// nothing.
    void SetCntActive(int group, bool active);
    /// Writes every option of the project to the host's INI file, in this order: the display
    /// options block, the network's options, the contour options' text group and display
    /// group. Writing failures are not reported.
    void SetOpzDtmInIni() const;
    /// Reads every option of the project from the host's INI file in the order of
    /// SetOpzDtmInIni; absent values give the defaults. A plain store: no notification is
    /// sent, and the network's point collections and the contour lines are left as they are.
    void GetOpzDtmDaIni();

    /// Writes the project's option section at the version @p stream carries: the network's
    /// automatic-triangulation group, the contour categories, below version 800 the contour
    /// text height twice and the contour decimals (double, double, int32), the display
    /// options block, the network's display group, and the rest of the contour options.
    /// Throws std::length_error when a contour label prefix or suffix is too long for the
    /// document; the stream then holds part of the section.
    void SalvaOpzInFile(ofpstream& stream) const;
    /// Reads the option section written by SalvaOpzInFile, inside one event: first the
    /// breakline, boundary, network and contour layers are marked modified
    /// (Notify_Vnc_LayersModified, Notify_Cnt_LayersModified, Notify_Tri_LayersModified,
    /// Notify_CvLv_LayersModified, in that order, whatever @p apply says); then every field is
    /// read. With @p apply true the values are stored: the groups as plain stores, and below
    /// version 800 the contour text values through CCvLvs::SetTextOptions(h, h, decimals, "",
    /// "", centred, orientation 0), which re-labels the lines, and the network's text height
    /// through CTris::SetTextOptions. A flag is true when its int32 is greater than zero.
    ///
    /// Nothing is stored unless the whole section was read: with @p apply false, or when the
    /// stream fails anywhere inside the section, every option stays as it was (the stream is
    /// left failed for the host to see). The event is closed also when an exception passes.
    void LeggeOpzDaFile(ifpstream& stream, bool apply);

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
    CDtmPrjOpz* m_opz = nullptr;
    CDtmChangeContext* m_context = nullptr;
    CLibDtm* m_owner;
    bool m_visible;
    bool m_locked;
    kor::String m_name;
    kor::String m_ucsName;
    kor::geom::CRightRefSys m_ucsRefSys = kor::geom::CRightRefSys::s_WorldRefSys;
    void* m_reserved = nullptr;
};
