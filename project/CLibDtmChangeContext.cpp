#include <dtm/project/CLibDtmChangeContext.h>

#include <dtm/project/CDtmPrj.h>

#include "project/CLibDtmCmdExecuted.h"

#include "support/ScopeExit.h"

#include <utility>

ILibDtmEventListener::~ILibDtmEventListener() = default;
void ILibDtmEventListener::OnBeginEvent() {}
void ILibDtmEventListener::OnEndEvent() {}
void ILibDtmEventListener::OnPrjAdded(CDtmPrj*) {}
void ILibDtmEventListener::OnPrjRemoved(CDtmPrj*) {}

struct CLibDtmChangeContext::State {
    explicit State(CLibDtm* owner)
        : library(owner),
          undoListener(std::make_unique<CCreateLibDtmCmdExecutedEventListener>(owner)),
          current(&quiet) {}

    CLibDtm* library;
    ILibDtmEventListener quiet;
    std::unique_ptr<ILibDtmEventListener> undoListener;
    ILibDtmEventListener* current;
    std::vector<CDtmPrj*> added;
    std::vector<CDtmPrj*> removed;
    bool activeChanged = false;
    bool drawingAlreadyRemoved = false;

    /// Empties the lists and flags. The added projects belong to the library; the removed ones
    /// are released here, which destroys each one unless an undo command kept it.
    void Clear() {
        activeChanged = false;
        added.clear();
        std::vector<CDtmPrj*> released;
        released.swap(removed);
        for (CDtmPrj* prj : released) prj->SubReference();
        drawingAlreadyRemoved = false;
    }
};

CLibDtmChangeContext::CLibDtmChangeContext(kor::CChangeTransactionManager* manager, CLibDtm* lib)
    : kor::CSourceEvent(manager), m_state(std::make_unique<State>(lib)) {}

CLibDtmChangeContext::~CLibDtmChangeContext() {
    m_state->Clear();
}

CLibDtm* CLibDtmChangeContext::GetLibDtm() const noexcept {
    return m_state->library;
}

const std::vector<CDtmPrj*>& CLibDtmChangeContext::GetPrjAdded() const noexcept {
    return m_state->added;
}

const std::vector<CDtmPrj*>& CLibDtmChangeContext::GetPrjRemoved() const noexcept {
    return m_state->removed;
}

bool CLibDtmChangeContext::IsActivePrjChanged() const noexcept {
    return m_state->activeChanged;
}

bool CLibDtmChangeContext::IsDrawingAlreadyRemoved() const noexcept {
    return m_state->drawingAlreadyRemoved;
}

ILibDtmEventListener* CLibDtmChangeContext::GetCurrentListener() const noexcept {
    return m_state->current;
}

void CLibDtmChangeContext::SetUndoListener(std::unique_ptr<ILibDtmEventListener> listener) {
    if (!listener) listener = std::make_unique<ILibDtmEventListener>();
    if (m_state->current == m_state->undoListener.get()) m_state->current = listener.get();
    m_state->undoListener = std::move(listener);
}

void CLibDtmChangeContext::OnBeforeBeginEvent() {
    m_state->current = IsRecordingSuspended() ? &m_state->quiet : m_state->undoListener.get();
    m_state->current->OnBeginEvent();
}

namespace {

/// Tells the library's own undo builder, when it is the @p current listener, that a project
/// went in or out without reaching it.
void MarkUnrecorded(ILibDtmEventListener* current) noexcept {
    if (auto* undo = dynamic_cast<CCreateLibDtmCmdExecutedEventListener*>(current))
        undo->OnRecordingFailed();
}

}  // namespace

void CLibDtmChangeContext::OnOpeningFailed() noexcept {
    // The notification that opened the event follows a project already added or removed,
    // which no list will hold: no step can undo it.
    MarkUnrecorded(m_state->current);
}

void CLibDtmChangeContext::OnAfterEndEvent() {
    const auto clear = dtm::detail::OnScopeExit([this] {
        m_state->Clear();
        m_state->current = &m_state->quiet;
    });
    m_state->current->OnEndEvent();
}

void CLibDtmChangeContext::Notify_Prj_Added(CDtmPrj* prj) {
    kor::CEventGuard event(this);
    try {
        m_state->added.push_back(prj);
    } catch (...) {
        // The project is in the library already: unlisted, it cannot be undone.
        MarkUnrecorded(m_state->current);
        throw;
    }
    m_state->current->OnPrjAdded(prj);
}

void CLibDtmChangeContext::Notify_Prj_Removed(CDtmPrj* prj, bool drawingAlreadyRemoved) {
    // The flag is the caller's statement about this removal, so it is set before the event opens.
    m_state->drawingAlreadyRemoved = drawingAlreadyRemoved;
    kor::CEventGuard event(this);
    m_state->removed.push_back(prj);
    m_state->current->OnPrjRemoved(prj);
}

void CLibDtmChangeContext::Notify_Prj_ChangeActive(CDtmPrj*) {
    kor::CEventGuard event(this);
    m_state->activeChanged = true;
}

void CLibDtmChangeContext::ReserveRemoval() {
    m_state->removed.reserve(m_state->removed.size() + 1);
}
