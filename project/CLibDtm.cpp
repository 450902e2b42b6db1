#include <dtm/project/CLibDtm.h>

#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtmChangeContext.h>
#include <dtm/support/RefCounter.h>

#include "support/ScopeExit.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

CLibDtm::CLibDtm(kor::CChangeTransactionManager* manager) : m_manager(manager) {
    m_context = new CLibDtmChangeContext(manager, this);
}

CLibDtm::~CLibDtm() {
    DoRemoveAll();
    delete m_pointsProvider;
    delete m_prjManager;
    m_context->SubReference();
}

void CLibDtm::DoRemoveAll() noexcept {
    for (CDtmPrj* prj : m_projects) {
        prj->Orphan();
        prj->SubReference();
    }
    m_projects.clear();
    m_active = nullptr;
}

void CLibDtm::AddPrj(CDtmPrj* prj) {
    // The caller's reference is the library's from here on: until the project is listed, this
    // handle holds it, and lets it go should anything before fail (an allocation).
    auto reference = kor::CRefPtr<CDtmPrj>::Adopt(prj);
    // Room for the entry first, so that listing the renamed and adopted project cannot fail.
    m_projects.reserve(m_projects.size() + 1);
    // The project is not in the sequence yet, so its own name cannot collide with itself.
    prj->SetName(FindNewSuitableName(prj->GetName()));
    prj->AdoptedBy(this);
    m_projects.push_back(reference.Detach());
    m_context->Notify_Prj_Added(prj);
    SetModifiedFlag(true);
}

CDtmPrj* CLibDtm::AddPrj(const kor::String& name, bool visible, bool locked) {
    CDtmPrj* prj = new CDtmPrj(this, name, visible, locked);
    AddPrj(prj);
    return prj;
}

CDtmPrj* CLibDtm::FindPrj(const kor::String& name) const {
    const auto found = std::find_if(m_projects.begin(), m_projects.end(), [&name](CDtmPrj* prj) {
        return prj->GetName().CompareIgnoreCase(name) == 0;
    });
    return found == m_projects.end() ? nullptr : *found;
}

bool CLibDtm::IsNameTaken(const kor::String& name) const {
    return FindPrj(name) != nullptr;
}

kor::String CLibDtm::FindNewSuitableName(const kor::String& name) const {
    if (!IsNameTaken(name)) return name;
    // Numbers freed by earlier removals are offered again: the first free one wins.
    for (unsigned long number = 2;; ++number) {
        char suffix[32];
        kor_sprintf(suffix, sizeof(suffix), " (%lu)", number);
        const kor::String candidate = name + kor::String(suffix);
        if (!IsNameTaken(candidate)) return candidate;
    }
}

bool CLibDtm::RemovePrj(CDtmPrj* prj, bool drawingAlreadyRemoved) {
    if (std::find(m_projects.begin(), m_projects.end(), prj) == m_projects.end()) return false;
    if (m_prjManager) m_prjManager->OnRemovingPrj(prj);
    // Everything that can fail (an allocation) happens before the project leaves the sequence:
    // room in the context's list of removed projects, and the opening of the event. From then on
    // handing the library's reference to the context cannot fail, so it is never lost.
    m_context->ReserveRemoval();
    kor::CEventGuard event(m_context);
    const auto found = std::find(m_projects.begin(), m_projects.end(), prj);
    if (found == m_projects.end()) return false;  // a host listener took it out meanwhile
    m_projects.erase(found);
    SetModifiedFlag(true);
    // The library's reference travels with the notification: the context releases it when the
    // event is over, after an undo command has had the chance to take its own.
    m_context->Notify_Prj_Removed(prj, drawingAlreadyRemoved);
    prj->Orphan();
    if (prj == m_active) {
        m_active = nullptr;
        m_context->Notify_Prj_ChangeActive(prj);
        SetModifiedFlag(true);
    }
    return true;
}

bool CLibDtm::CanDelete(CDtmPrj* prj) {
    return m_prjManager ? m_prjManager->CanDeletePrj(prj) : true;
}

void CLibDtm::SetActive(CDtmPrj* prj, bool notify) {
    if (prj == m_active) return;
    if (notify) {
        // The event opens before the change so that the undo step sees the project that was
        // active before it; host listeners still see exactly one event with the flag set.
        kor::CEventGuard event(m_context);
        m_active = prj;
        m_context->Notify_Prj_ChangeActive(prj);
    } else {
        m_active = prj;
    }
    SetModifiedFlag(true);
}

CDtmPrj* CLibDtm::GetPrj(unsigned int i) const {
    if (i >= m_projects.size())
        throw std::out_of_range("CLibDtm::GetPrj: no project at this index");
    return m_projects[i];
}

void CLibDtm::SetPointsProvider(IDtmPointsProvider* provider) {
    if (provider == m_pointsProvider) return;
    delete m_pointsProvider;
    m_pointsProvider = provider;
}
