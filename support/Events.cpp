#include <dtm/support/Events.h>

#include "support/ScopeExit.h"

#include <algorithm>

namespace kor {

IMemento::~IMemento() = default;

ICmdExecuted::~ICmdExecuted() = default;

std::size_t ICmdExecuted::GetSize() const {
    return sizeof(*this);
}

CChangeTransactionManager::CChangeTransactionManager() = default;

CChangeTransactionManager::~CChangeTransactionManager() {
    Clear();
}

void CChangeTransactionManager::Add(ICmdExecuted* command) {
    if (!command) return;
    std::unique_ptr<ICmdExecuted> owned(command);
    m_undo.push_back(std::move(owned));
    m_redo.clear();
}

bool CChangeTransactionManager::Apply(Stack& from, Stack& to, void (ICmdExecuted::*operation)()) {
    if (from.empty()) return false;
    // Applying a command is itself a sequence of change events; they must not be recorded as
    // new commands. The previous flag comes back however the command ends.
    const bool previous = m_recordingSuspended;
    m_recordingSuspended = true;
    const auto restore =
        dtm::detail::OnScopeExit([this, previous] { m_recordingSuspended = previous; });
    (from.back().get()->*operation)();
    to.push_back(std::move(from.back()));
    from.pop_back();
    return true;
}

bool CChangeTransactionManager::Undo() {
    return Apply(m_undo, m_redo, &ICmdExecuted::Undo);
}

bool CChangeTransactionManager::Redo() {
    return Apply(m_redo, m_undo, &ICmdExecuted::Redo);
}

void CChangeTransactionManager::Clear() {
    // Newest first: a newer command may refer to state an older one restores.
    while (!m_redo.empty()) m_redo.pop_back();
    while (!m_undo.empty()) m_undo.pop_back();
}

CSourceEvent::IEvent::~IEvent() = default;

CSourceEvent::CSourceEvent(CChangeTransactionManager* manager) : m_manager(manager) {}

// A copy starts idle and without listeners: open events and registrations belong to the original.
CSourceEvent::CSourceEvent(const CSourceEvent& other)
    : IRefCounter(other), m_manager(other.m_manager) {}

CSourceEvent& CSourceEvent::operator=(const CSourceEvent& other) {
    m_manager = other.m_manager;
    return *this;
}

CSourceEvent::~CSourceEvent() = default;

bool CSourceEvent::IsRecordingSuspended() const noexcept {
    return m_manager != nullptr && m_manager->IsRecordingSuspended();
}

void CSourceEvent::Register(IEvent* listener) {
    if (listener &&
        std::find(m_listeners.begin(), m_listeners.end(), listener) == m_listeners.end())
        m_listeners.push_back(listener);
}

void CSourceEvent::Unregister(IEvent* listener) {
    m_listeners.erase(std::remove(m_listeners.begin(), m_listeners.end(), listener),
                      m_listeners.end());
}

void CSourceEvent::BeginEvent() {
    if (++m_depth != 1) return;
    try {
        OnBeforeBeginEvent();
        // A copy, so that a listener may unregister itself while it is told.
        const std::vector<IEvent*> listeners = m_listeners;
        for (IEvent* listener : listeners) listener->OnEventOpened(*this);
    } catch (...) {
        // The event never opened from the caller's point of view, so no EndEvent will follow.
        OnOpeningFailed();
        --m_depth;
        OnAfterEndEvent();
        throw;
    }
}

void CSourceEvent::EndEvent() {
    if (m_depth <= 0) return;
    if (--m_depth != 0) return;
    try {
        OnBeforeEndEvent();
        const std::vector<IEvent*> listeners = m_listeners;
        for (IEvent* listener : listeners) listener->OnEventClosed(*this);
    } catch (...) {
        OnAfterEndEvent();
        throw;
    }
    OnAfterEndEvent();
}

void CEventGuard::Open() {
    m_uncaughtAtStart = std::uncaught_exceptions();
    m_source->BeginEvent();
}

void CEventGuard::Close() {
    if (std::uncaught_exceptions() > m_uncaughtAtStart) {
        try {
            m_source->EndEvent();
        } catch (...) {
        }
    } else {
        m_source->EndEvent();
    }
}

}  // namespace kor
