#include "project/CLibDtmCmdExecuted.h"

#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtm.h>

#include <algorithm>
#include <memory>

namespace {

CLibDtmCmdExecuted::Projects Share(const std::vector<CDtmPrj*>& projects) {
    CLibDtmCmdExecuted::Projects shared;
    shared.reserve(projects.size());
    for (CDtmPrj* prj : projects) shared.push_back(kor::CRefPtr<CDtmPrj>::Share(prj));
    return shared;
}

/// Takes out of both lists every project listed in both: added and removed again, or removed
/// and added back, within one event (see CCreateLibDtmCmdExecutedEventListener).
void DropListedInBoth(CLibDtmCmdExecuted::Projects& added, CLibDtmCmdExecuted::Projects& removed) {
    const auto listedIn = [](const CLibDtmCmdExecuted::Projects& list, const CDtmPrj* prj) {
        return std::any_of(list.begin(), list.end(),
                           [prj](const kor::CRefPtr<CDtmPrj>& item) { return item.Get() == prj; });
    };
    CLibDtmCmdExecuted::Projects keptAdded, keptRemoved;
    for (const auto& prj : added)
        if (!listedIn(removed, prj.Get())) keptAdded.push_back(prj);
    for (const auto& prj : removed)
        if (!listedIn(added, prj.Get())) keptRemoved.push_back(prj);
    added.swap(keptAdded);
    removed.swap(keptRemoved);
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
      m_rememberedActive(kor::CRefPtr<CDtmPrj>::Share(rememberedActive)),
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

bool CLibDtmCmdExecuted::Holds(const CDtmPrj* prj) const {
    for (unsigned i = 0; i < m_lib->GetNoPrj(); ++i) {
        if (m_lib->GetPrj(i) == prj) return true;
    }
    return false;
}

// Additions first, then the remembered project made active, then removals. The active project
// thus changes before the project that was active leaves, so that leaving does not clear it on
// the way. A project given back while another holds its name is renamed by AddPrj, as a redone
// addition is, even when the holder leaves in the same application.
void CLibDtmCmdExecuted::Apply(const Projects& toAdd, const Projects& toRemove) {
    auto activeNow = kor::CRefPtr<CDtmPrj>::Share(m_lib->GetActive());
    for (const auto& prj : toAdd) {
        if (Holds(prj.Get())) continue;
        // The library takes over a reference of its own; the command keeps its one.
        prj->AddReference();
        m_lib->AddPrj(prj.Get());
    }
    if (!m_rememberedActive || Holds(m_rememberedActive.Get()))
        m_lib->SetActive(m_rememberedActive.Get(), true);
    for (const auto& prj : toRemove) m_lib->RemovePrj(prj.Get(), false);
    m_rememberedActive = std::move(activeNow);
}

void CCreateLibDtmCmdExecutedEventListener::OnBeginEvent() {
    m_activeAtBegin = m_lib->GetActive();
    m_recordingFailed = false;
}

void CCreateLibDtmCmdExecutedEventListener::OnPrjAdded(CDtmPrj* prj) {
    Record(m_added, prj);
}

void CCreateLibDtmCmdExecutedEventListener::OnPrjRemoved(CDtmPrj* prj) {
    Record(m_removed, prj);
}

void CCreateLibDtmCmdExecutedEventListener::Record(CLibDtmCmdExecuted::Projects& list,
                                                   CDtmPrj* prj) {
    try {
        list.push_back(kor::CRefPtr<CDtmPrj>::Share(prj));
    } catch (...) {
        m_recordingFailed = true;
        throw;
    }
}

void CCreateLibDtmCmdExecutedEventListener::OnEndEvent() {
    // The lists are emptied however the filing ends.
    CLibDtmCmdExecuted::Projects added, removed;
    added.swap(m_added);
    removed.swap(m_removed);
    kor::CChangeTransactionManager* manager = m_lib->GetContext()->GetChangeTransactionManager();
    if (m_recordingFailed) {
        // A project went in or out unrecorded: no step can undo the event, and the steps
        // before it no longer lead back from the library as it is left.
        m_recordingFailed = false;
        if (manager) manager->Clear();
        return;
    }
    if (manager == nullptr) return;
    try {
        DropListedInBoth(added, removed);
        const bool changed =
            m_lib->GetActive() != m_activeAtBegin || !added.empty() || !removed.empty();
        if (!changed) return;
        manager->Add(
            new CLibDtmCmdExecuted(m_lib, m_activeAtBegin, Pointers(added), Pointers(removed)));
    } catch (...) {
        // The step could not be built or filed (an allocation failed): as when a project went
        // in or out unrecorded, the steps before it no longer lead back.
        manager->Clear();
        throw;
    }
}
