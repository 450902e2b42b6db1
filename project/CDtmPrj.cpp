#include <dtm/project/CDtmPrj.h>

#include <dtm/boundaries/CCnts.h>
#include <dtm/breaklines/CVncs.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrjOpz.h>
#include <dtm/project/CLibDtm.h>

CDtmPrj::CDtmPrj(CLibDtm* lib, const kor::String& name, bool visible, bool locked)
    : m_owner(lib), m_visible(visible), m_locked(locked), m_name(name) {
    m_context = new CDtmChangeContext(lib ? lib->GetChangeTransactionManager() : nullptr, this);
    // Components are built in this order and destroyed in the same order: the breaklines and
    // boundaries report their removal when they go, and that needs the network still in place.
    try {
        m_vncs = new CVncs(this);
        m_internalCnts = new CCnts(this, true);
        m_externalCnts = new CCnts(this, false);
        m_tris = new CTris(this);
        m_cvlvs = new CCvLvs(this);
        m_opz = new CDtmPrjOpz();  // reads the last saved settings from the INI file
        m_context->OnPrjBuilt();
    } catch (...) {
        DestroyComponents();
        throw;
    }
}

CDtmPrj::~CDtmPrj() {
    DestroyComponents();
}

void CDtmPrj::DestroyComponents() noexcept {
    // The collections report their removals as they go; a project that is going away must not
    // file them as an undo step, so its context leaves the transaction manager first.
    if (m_context) m_context->Detach();
    delete m_vncs;
    m_vncs = nullptr;
    delete m_internalCnts;
    m_internalCnts = nullptr;
    delete m_externalCnts;
    m_externalCnts = nullptr;
    delete m_tris;
    m_tris = nullptr;
    delete m_cvlvs;
    m_cvlvs = nullptr;
    delete m_opz;
    m_opz = nullptr;
    if (m_context) m_context->SubReference();
    m_context = nullptr;
}

void CDtmPrj::AdoptedBy(CLibDtm* lib) {
    m_owner = lib;
    if (m_context->GetChangeTransactionManager() == nullptr && lib != nullptr)
        m_context->Attach(lib->GetChangeTransactionManager());
}

void CDtmPrj::Orphan() {
    m_context->Detach();
    m_owner = nullptr;
}

bool CDtmPrj::IsActive() const {
    return m_owner != nullptr && m_owner->GetActive() == this;
}

void CDtmPrj::SetName(const kor::String& name) {
    if (m_name.Compare(name) == 0) return;
    m_context->Notify_Prj_Modified();
    m_name = name;
}

void CDtmPrj::SetVisible(bool visible) {
    if (m_visible == visible) return;
    m_context->Notify_Prj_Modified();
    m_visible = visible;
}

void CDtmPrj::SetLocked(bool locked) {
    if (m_locked == locked) return;
    m_context->Notify_Prj_Modified();
    m_locked = locked;
}

void CDtmPrj::SetProps(const kor::String& name, bool visible, bool locked) {
    if (m_name.Compare(name) == 0 && m_visible == visible && m_locked == locked) return;
    m_context->Notify_Prj_Modified();
    m_name = name;
    m_visible = visible;
    m_locked = locked;
}

void CDtmPrj::SetModifiedFlag() {
    if (m_owner) m_owner->SetModifiedFlag(true);
}
