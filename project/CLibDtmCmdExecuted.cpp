#include "project/CLibDtmCmdExecuted.h"

#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtm.h>

#include <memory>

namespace {

CLibDtmCmdExecuted::Projects Share(const std::vector<CDtmPrj*>& projects) {
    CLibDtmCmdExecuted::Projects shared;
    shared.reserve(projects.size());
    for (CDtmPrj* prj : projects) shared.push_back(kor::CRefPtr<CDtmPrj>::Share(prj));
    return shared;
}

std::vector<CDtmPrj*> Pointers(const std::vector<kor::CRefPtr<CDtmPrj>>& projects) {
    std::vector<CDtmPrj*> pointers;
    pointers.reserve(projects.size());
    for (const auto& prj : projects) pointers.push_back(prj.Get());
    return pointers;
}

}  // namespace

CLibDtmCmdExecuted::CLibDtmCmdExecuted(CLibDtm* lib, CDtmPrj* rememberedActive,
                                       const std::vector<CDtmPrj*>& added,
                                       const std::vector<CDtmPrj*>& removed)
    : m_lib(lib),
      m_rememberedActive(rememberedActive),
      m_added(Share(added)),
      m_removed(Share(removed)) {}

CLibDtmCmdExecuted::~CLibDtmCmdExecuted() = default;

void CLibDtmCmdExecuted::Undo() {
    Apply(m_removed, m_added);
}

void CLibDtmCmdExecuted::Redo() {
    Apply(m_added, m_removed);
}

std::size_t CLibDtmCmdExecuted::GetSize() const {
    return sizeof(*this) + (m_added.size() + m_removed.size()) * sizeof(kor::CRefPtr<CDtmPrj>);
}

void CLibDtmCmdExecuted::Apply(const Projects& toAdd, const Projects& toRemove) {
    CDtmPrj* activeNow = m_lib->GetActive();
    for (const auto& prj : toAdd) {
        // The library takes over a reference of its own; the command keeps its one.
        prj->AddReference();
        m_lib->AddPrj(prj.Get());
    }
    m_lib->SetActive(m_rememberedActive, true);
    for (const auto& prj : toRemove) m_lib->RemovePrj(prj.Get(), false);
    m_rememberedActive = activeNow;
}

void CCreateLibDtmCmdExecutedEventListener::OnBeginEvent() {
    m_activeAtBegin = m_lib->GetActive();
}

void CCreateLibDtmCmdExecutedEventListener::OnPrjAdded(CDtmPrj* prj) {
    m_added.push_back(kor::CRefPtr<CDtmPrj>::Share(prj));
}

void CCreateLibDtmCmdExecutedEventListener::OnPrjRemoved(CDtmPrj* prj) {
    m_removed.push_back(kor::CRefPtr<CDtmPrj>::Share(prj));
}

void CCreateLibDtmCmdExecutedEventListener::OnEndEvent() {
    // The lists are emptied however the filing ends.
    CLibDtmCmdExecuted::Projects added, removed;
    added.swap(m_added);
    removed.swap(m_removed);
    kor::CChangeTransactionManager* manager = m_lib->GetContext()->GetChangeTransactionManager();
    const bool changed =
        m_lib->GetActive() != m_activeAtBegin || !added.empty() || !removed.empty();
    if (!changed || manager == nullptr) return;
    manager->Add(
        new CLibDtmCmdExecuted(m_lib, m_activeAtBegin, Pointers(added), Pointers(removed)));
}
