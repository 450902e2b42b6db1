#include <dtm/project/CLibDtm.h>

#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtmChangeContext.h>
#include <dtm/support/RefCounter.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace {

// Opens an event of @p context into @p event, after the change it announces was made. Should
// the opening fail (a listener's allocation), @p takeBack undoes that change before the failure
// passes on, so that nothing changed unannounced.
template <class TakeBack>
void OpenEventOrTakeBack(kor::CEventGuard& event, kor::CSourceEvent* context, TakeBack&& takeBack) {
    try {
        kor::CEventGuard opened(context);
        event.Swap(opened);
    } catch (...) {
        takeBack();
        throw;
    }
}

}  // namespace

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
    // Room in the context's list of removed projects is made before anything changes.
    m_context->ReserveRemoval();
    const auto found = std::find(m_projects.begin(), m_projects.end(), prj);
    if (found == m_projects.end()) return false;  // the manager took it out meanwhile
    const auto position = found - m_projects.begin();
    m_projects.erase(found);
    SetModifiedFlag(true);
    // Listeners see the event open on the library without the project. Should the opening
    // fail, the project goes back to its place, so that the library's reference is not lost;
    // the erase left the room for it, so putting it back cannot fail.
    kor::CEventGuard event(nullptr);
    OpenEventOrTakeBack(event, m_context,
                        [&] { m_projects.insert(m_projects.begin() + position, prj); });
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
    // The change is made before its notification opens an event. An undo step, which remembers
    // the active project when its event opens, therefore records an active change only when the
    // host made it inside an event of its own (with the projects it adds, say); a change on its
    // own is a choice of where to work, not an edit.
    CDtmPrj* const previous = m_active;
    m_active = prj;
    if (notify) {
        kor::CEventGuard event(nullptr);
        OpenEventOrTakeBack(event, m_context, [&] { m_active = previous; });
        m_context->Notify_Prj_ChangeActive(prj);
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
