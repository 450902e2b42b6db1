#pragma once

/// @file
/// Change events, undo commands, mementos and the host's transaction manager.

#include <dtm/support/Export.h>
#include <dtm/support/RefCounter.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

namespace kor {

/// Snapshot of an entity's state, taken before a change so that it can be put back.
/// Reference-counted: whoever holds one releases it with SubReference.
class DTM_API IMemento : public IRefCounter {
public:
    /// The memento's size in bytes, for the host's bookkeeping of undo memory.
    virtual std::size_t GetSize() const = 0;

protected:
    ~IMemento() override;
};

/// One undoable step. Owned by the transaction manager, which deletes it.
class DTM_API ICmdExecuted {
public:
    virtual ~ICmdExecuted();
    /// Puts back the state from before the recorded step.
    virtual void Undo() = 0;
    /// Applies the recorded step again.
    virtual void Redo() = 0;
    /// Approximate memory the command holds, in bytes, so that a host can cap its undo history.
    virtual std::size_t GetSize() const;
};

/// The host's undo store: a stack of commands to undo and a stack of commands to redo.
class DTM_API CChangeTransactionManager {
public:
    CChangeTransactionManager();
    ~CChangeTransactionManager();
    CChangeTransactionManager(const CChangeTransactionManager&) = delete;
    CChangeTransactionManager& operator=(const CChangeTransactionManager&) = delete;

    /// Takes ownership of @p command (null is ignored) and drops every command that could be
    /// redone: a new change makes them meaningless.
    void Add(ICmdExecuted* command);
    /// Undoes the newest command and moves it to the redo stack; false when there is none.
    /// Recording is suspended while the command runs, so undoing records nothing new. When the
    /// command throws, it stays where it was and the exception propagates.
    bool Undo();
    /// Redoes the newest undone command and moves it back; false when there is none.
    bool Redo();
    bool CanUndo() const noexcept { return !m_undo.empty(); }
    bool CanRedo() const noexcept { return !m_redo.empty(); }
    std::size_t GetUndoCount() const noexcept { return m_undo.size(); }
    std::size_t GetRedoCount() const noexcept { return m_redo.size(); }
    /// Deletes every command of both stacks.
    void Clear();

    /// While set, change events build no undo command.
    bool IsRecordingSuspended() const noexcept { return m_recordingSuspended; }
    void SetRecordingSuspended(bool suspended) noexcept { m_recordingSuspended = suspended; }

private:
    using Stack = std::vector<std::unique_ptr<ICmdExecuted>>;
    bool Apply(Stack& from, Stack& to, void (ICmdExecuted::*operation)());

    Stack m_undo;
    Stack m_redo;
    bool m_recordingSuspended = false;
};

/// A source of nested change events. Only the outermost event is seen from outside: its
/// opening calls OnBeforeBeginEvent and tells the host listeners; its closing calls
/// OnBeforeEndEvent, tells the host listeners, then calls OnAfterEndEvent.
class DTM_API CSourceEvent : public IRefCounter {
public:
    /// A host listener. Borrowed: it must be unregistered before it is destroyed.
    class DTM_API IEvent {
    public:
        virtual ~IEvent();
        /// The outermost event of @p source has opened.
        virtual void OnEventOpened(CSourceEvent& source) = 0;
        /// The outermost event of @p source has closed; its change lists are still readable.
        ///
        /// A listener must not change what @p source reports on from here (add a breakline in
        /// reply to another, say): the change would open an event of its own while this one is
        /// still being told, which clears the change lists the later listeners read and the
        /// undo step being built for this event. Make such a change after EndEvent returns.
        virtual void OnEventClosed(CSourceEvent& source) = 0;
    };

    explicit CSourceEvent(CChangeTransactionManager* manager);
    CSourceEvent(const CSourceEvent& other);
    CSourceEvent& operator=(const CSourceEvent& other);

    /// Attaches to @p manager (borrowed). Null detaches.
    void Attach(CChangeTransactionManager* manager) noexcept { m_manager = manager; }
    void Detach() noexcept { m_manager = nullptr; }
    CChangeTransactionManager* GetChangeTransactionManager() const noexcept { return m_manager; }
    /// True when attached and the manager's recording is suspended.
    bool IsRecordingSuspended() const noexcept;

    /// Registers @p listener (borrowed); registering it twice has no further effect.
    void Register(IEvent* listener);
    void Unregister(IEvent* listener);

    /// Opens an event; events nest.
    void BeginEvent();
    /// Closes the innermost event. The outermost one always completes its closing, even when a
    /// listener throws: the depth returns to 0 and OnAfterEndEvent runs before the exception
    /// goes on.
    void EndEvent();
    /// How many events are open now.
    int GetEventDepth() const noexcept { return m_depth; }

protected:
    ~CSourceEvent() override;
    virtual void OnBeforeBeginEvent() {}
    /// The opening of the outermost event failed (OnBeforeBeginEvent or a listener's
    /// OnEventOpened threw, or the listeners could not be told): OnAfterEndEvent follows at once,
    /// and whatever the event was opened to announce is announced to nobody.
    virtual void OnOpeningFailed() noexcept {}
    virtual void OnBeforeEndEvent() {}
    virtual void OnAfterEndEvent() {}

private:
    friend class CEventGuard;  // counts nested events itself, see there

    CChangeTransactionManager* m_manager;
    int m_depth = 0;
    std::vector<IEvent*> m_listeners;
};

/// Keeps one event of @p source open for the guard's lifetime, also while an exception passes.
/// A null source opens nothing.
class DTM_API CEventGuard {
public:
    explicit CEventGuard(CSourceEvent* source) : m_source(source) {
        if (!m_source) return;
        // Inside an open event, one more nested event only counts up and down: nothing runs and
        // nothing can fail. Most notifications arrive so, a million of them in a large load, so
        // this path stays inline and does not ask whether an exception is passing.
        if (m_source->m_depth > 0) {
            ++m_source->m_depth;
            m_nested = true;
            return;
        }
        Open();
    }
    /// Closes the event. When an exception is already passing, a second one raised by the
    /// closing is dropped, because two cannot travel at once.
    ~CEventGuard() noexcept(false) {
        if (!m_source) return;
        if (m_nested && m_source->m_depth > 1) {
            --m_source->m_depth;
            return;
        }
        Close();
    }
    CEventGuard(const CEventGuard&) = delete;
    CEventGuard& operator=(const CEventGuard&) = delete;

    /// Exchanges the events the two guards keep open: each then closes the other's.
    void Swap(CEventGuard& other) noexcept {
        std::swap(m_source, other.m_source);
        std::swap(m_uncaughtAtStart, other.m_uncaughtAtStart);
        std::swap(m_nested, other.m_nested);
    }

private:
    void Open();
    void Close();

    CSourceEvent* m_source;
    int m_uncaughtAtStart = 0;
    bool m_nested = false;
};

}  // namespace kor
