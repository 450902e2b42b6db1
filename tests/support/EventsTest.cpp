#include <dtm/support/Events.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

// An event source that logs its hooks, so that the order of hooks and host listeners is visible.
class LoggingSource : public kor::CSourceEvent {
public:
    explicit LoggingSource(std::vector<std::string>& log,
                           kor::CChangeTransactionManager* tm = nullptr)
        : kor::CSourceEvent(tm), m_log(log) {}
    bool throwOnBeforeBegin = false;

protected:
    ~LoggingSource() override = default;
    void OnBeforeBeginEvent() override {
        m_log.push_back("before-begin");
        if (throwOnBeforeBegin) throw std::runtime_error("begin failed");
    }
    void OnOpeningFailed() noexcept override {
        m_log.push_back("opening-failed@" + std::to_string(GetEventDepth()));
    }
    void OnBeforeEndEvent() override { m_log.push_back("before-end"); }
    void OnAfterEndEvent() override { m_log.push_back("after-end"); }

private:
    std::vector<std::string>& m_log;
};

class LoggingListener : public kor::CSourceEvent::IEvent {
public:
    explicit LoggingListener(std::vector<std::string>& log, std::string name = "listener")
        : m_log(log), m_name(std::move(name)) {}
    bool throwOnClose = false;
    bool throwOnOpen = false;
    void OnEventOpened(kor::CSourceEvent& source) override {
        m_log.push_back(m_name + "-opened@" + std::to_string(source.GetEventDepth()));
        if (throwOnOpen) throw std::runtime_error("listener failed");
    }
    void OnEventClosed(kor::CSourceEvent& source) override {
        m_log.push_back(m_name + "-closed@" + std::to_string(source.GetEventDepth()));
        if (throwOnClose) throw std::runtime_error("listener failed");
    }

private:
    std::vector<std::string>& m_log;
    std::string m_name;
};

using Log = std::vector<std::string>;

TEST(SourceEvent, NestedEventsDeliverOnePassOfHooksAndListeners) {
    Log log;
    auto* source = new LoggingSource(log);
    LoggingListener listener(log);
    source->Register(&listener);
    source->BeginEvent();
    source->BeginEvent();
    source->BeginEvent();
    EXPECT_EQ(source->GetEventDepth(), 3);
    source->EndEvent();
    source->EndEvent();
    EXPECT_EQ(log, (Log{"before-begin", "listener-opened@1"}));
    source->EndEvent();
    EXPECT_EQ(log, (Log{"before-begin", "listener-opened@1", "before-end", "listener-closed@0",
                        "after-end"}));
    EXPECT_EQ(source->GetEventDepth(), 0);
    source->SubReference();
}

TEST(SourceEvent, RegisteringTwiceTellsOnceAndUnregisteredListenerHearsNothing) {
    Log log;
    auto* source = new LoggingSource(log);
    LoggingListener first(log, "first");
    LoggingListener second(log, "second");
    source->Register(&first);
    source->Register(&first);
    source->Register(&second);
    source->Unregister(&second);
    source->BeginEvent();
    source->EndEvent();
    EXPECT_EQ(log,
              (Log{"before-begin", "first-opened@1", "before-end", "first-closed@0", "after-end"}));
    source->SubReference();
}

TEST(SourceEvent, ListenerThrowingAtCloseStillCompletesTheClosing) {
    Log log;
    auto* source = new LoggingSource(log);
    LoggingListener listener(log);
    listener.throwOnClose = true;
    source->Register(&listener);
    source->BeginEvent();
    EXPECT_THROW(source->EndEvent(), std::runtime_error);
    EXPECT_EQ(source->GetEventDepth(), 0);
    EXPECT_EQ(log.back(), "after-end");
    source->SubReference();
}

TEST(SourceEvent, FailedOpeningLeavesNoEventOpen) {
    Log log;
    auto* source = new LoggingSource(log);
    source->throwOnBeforeBegin = true;
    EXPECT_THROW(source->BeginEvent(), std::runtime_error);
    EXPECT_EQ(source->GetEventDepth(), 0);
    EXPECT_EQ(log, (Log{"before-begin", "opening-failed@1", "after-end"}));
    source->SubReference();
}

// A listener that fails to hear the opening fails it too: the source learns that whatever the
// event was opened to announce reaches nobody, then the event ends without its closing hooks.
TEST(SourceEvent, AListenerFailingAtTheOpeningFailsTheOpening) {
    Log log;
    auto* source = new LoggingSource(log);
    LoggingListener listener(log);
    listener.throwOnOpen = true;
    source->Register(&listener);
    EXPECT_THROW(source->BeginEvent(), std::runtime_error);
    EXPECT_EQ(source->GetEventDepth(), 0);
    EXPECT_EQ(log, (Log{"before-begin", "listener-opened@1", "opening-failed@1", "after-end"}));
    source->Unregister(&listener);
    source->SubReference();
}

TEST(SourceEvent, UnbalancedEndEventIsHarmless) {
    Log log;
    auto* source = new LoggingSource(log);
    source->EndEvent();
    EXPECT_EQ(source->GetEventDepth(), 0);
    EXPECT_TRUE(log.empty());
    source->SubReference();
}

TEST(EventGuard, ClosesTheEventWhenAnExceptionPasses) {
    Log log;
    auto* source = new LoggingSource(log);
    try {
        kor::CEventGuard outer(source);
        kor::CEventGuard inner(source);
        EXPECT_EQ(source->GetEventDepth(), 2);
        throw std::runtime_error("work failed");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(source->GetEventDepth(), 0);
    EXPECT_EQ(log, (Log{"before-begin", "before-end", "after-end"}));
    source->SubReference();
}

TEST(EventGuard, DropsASecondExceptionRaisedByTheClosingWhileUnwinding) {
    Log log;
    auto* source = new LoggingSource(log);
    LoggingListener listener(log);
    listener.throwOnClose = true;
    source->Register(&listener);
    try {
        kor::CEventGuard event(source);
        throw std::logic_error("first");
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "first");
    }
    EXPECT_EQ(source->GetEventDepth(), 0);
    source->SubReference();
}

TEST(EventGuard, PropagatesAClosingFailureWhenNothingElseIsPassing) {
    Log log;
    auto* source = new LoggingSource(log);
    LoggingListener listener(log);
    listener.throwOnClose = true;
    source->Register(&listener);
    EXPECT_THROW({ kor::CEventGuard event(source); }, std::runtime_error);
    EXPECT_EQ(source->GetEventDepth(), 0);
    source->SubReference();
}

// A source with a logging listener whose event is already open when a test begins.
class EventGuardInOpenEvent : public ::testing::Test {
protected:
    EventGuardInOpenEvent() : source(new LoggingSource(log)), listener(log) {
        source->Register(&listener);
        source->BeginEvent();
    }
    ~EventGuardInOpenEvent() override { source->SubReference(); }

    const Log kOpened{"before-begin", "listener-opened@1"};
    const Log kOpenedAndClosed{"before-begin", "listener-opened@1", "before-end",
                               "listener-closed@0", "after-end"};
    Log log;
    LoggingSource* source;
    LoggingListener listener;
};

TEST_F(EventGuardInOpenEvent, NestedGuardOnlyCountsAndTheOuterEventDoesTheClosing) {
    {
        kor::CEventGuard inner(source);
        EXPECT_EQ(source->GetEventDepth(), 2);
    }
    EXPECT_EQ(source->GetEventDepth(), 1);
    EXPECT_EQ(log, kOpened);
    source->EndEvent();
    EXPECT_EQ(log, kOpenedAndClosed);
}

TEST_F(EventGuardInOpenEvent, NestedGuardLeftOutermostClosesTheEventInFull) {
    // The event the guard nested in was closed under it: the guard's closing is then the
    // outermost one and must run the hooks and tell the listeners.
    {
        kor::CEventGuard inner(source);
        source->EndEvent();
        EXPECT_EQ(source->GetEventDepth(), 1);
        EXPECT_EQ(log, kOpened);
    }
    EXPECT_EQ(source->GetEventDepth(), 0);
    EXPECT_EQ(log, kOpenedAndClosed);
}

TEST_F(EventGuardInOpenEvent, NestedGuardLeftOutermostDropsAClosingFailureWhileUnwinding) {
    listener.throwOnClose = true;
    try {
        kor::CEventGuard inner(source);
        source->EndEvent();
        throw std::logic_error("first");
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "first");
    }
    EXPECT_EQ(source->GetEventDepth(), 0);
    EXPECT_EQ(log, kOpenedAndClosed);
}

TEST(EventGuard, NullSourceOpensNothing) {
    EXPECT_NO_THROW({ kor::CEventGuard event(nullptr); });
}

// A command that counts its applications and its destruction, and can check the recording flag
// of its manager while it runs.
struct CommandProbe {
    int undone = 0;
    int redone = 0;
    int destroyed = 0;
    bool sawSuspended = true;
};

class ProbeCommand : public kor::ICmdExecuted {
public:
    ProbeCommand(CommandProbe& probe, kor::CChangeTransactionManager& tm, bool throws = false)
        : m_probe(probe), m_tm(tm), m_throws(throws) {}
    ~ProbeCommand() override { ++m_probe.destroyed; }
    void Undo() override { Apply(m_probe.undone); }
    void Redo() override { Apply(m_probe.redone); }

private:
    void Apply(int& counter) {
        m_probe.sawSuspended = m_probe.sawSuspended && m_tm.IsRecordingSuspended();
        if (m_throws) throw std::runtime_error("cannot apply");
        ++counter;
    }
    CommandProbe& m_probe;
    kor::CChangeTransactionManager& m_tm;
    bool m_throws;
};

TEST(ChangeTransactionManager, UndoAndRedoMoveCommandsBetweenTheStacks) {
    CommandProbe a, b;  // before the manager, whose commands count into them when it goes
    kor::CChangeTransactionManager tm;
    EXPECT_FALSE(tm.CanUndo());
    EXPECT_FALSE(tm.Undo());
    EXPECT_FALSE(tm.Redo());
    tm.Add(new ProbeCommand(a, tm));
    tm.Add(new ProbeCommand(b, tm));
    EXPECT_TRUE(tm.CanUndo());
    EXPECT_FALSE(tm.CanRedo());
    EXPECT_TRUE(tm.Undo());
    EXPECT_EQ(b.undone, 1);
    EXPECT_EQ(a.undone, 0);
    EXPECT_TRUE(tm.CanRedo());
    EXPECT_TRUE(tm.Undo());
    EXPECT_EQ(a.undone, 1);
    EXPECT_FALSE(tm.CanUndo());
    EXPECT_TRUE(tm.Redo());
    EXPECT_EQ(a.redone, 1);
    EXPECT_EQ(tm.GetUndoCount(), 1u);
    EXPECT_EQ(tm.GetRedoCount(), 1u);
    EXPECT_TRUE(a.sawSuspended);
    EXPECT_TRUE(b.sawSuspended);
    EXPECT_FALSE(tm.IsRecordingSuspended());
}

TEST(ChangeTransactionManager, AddingDropsTheRedoStackAndDeletesItsCommands) {
    CommandProbe a, b;  // before the manager, whose commands count into them when it goes
    kor::CChangeTransactionManager tm;
    tm.Add(new ProbeCommand(a, tm));
    tm.Undo();
    tm.Add(new ProbeCommand(b, tm));
    EXPECT_EQ(a.destroyed, 1);
    EXPECT_FALSE(tm.CanRedo());
    EXPECT_EQ(b.destroyed, 0);
}

TEST(ChangeTransactionManager, DestroyingTheManagerDeletesEveryCommand) {
    CommandProbe a, b;
    {
        kor::CChangeTransactionManager tm;
        tm.Add(new ProbeCommand(a, tm));
        tm.Add(new ProbeCommand(b, tm));
        tm.Undo();
        tm.Add(nullptr);  // ignored: the redo stack stays
        EXPECT_TRUE(tm.CanRedo());
    }
    EXPECT_EQ(a.destroyed, 1);
    EXPECT_EQ(b.destroyed, 1);
}

TEST(ChangeTransactionManager, HostSetSuspensionSurvivesAnUndo) {
    CommandProbe a;  // before the manager, whose commands count into it when it goes
    kor::CChangeTransactionManager tm;
    tm.Add(new ProbeCommand(a, tm));
    tm.SetRecordingSuspended(true);
    tm.Undo();
    EXPECT_TRUE(tm.IsRecordingSuspended());
    tm.SetRecordingSuspended(false);
    EXPECT_FALSE(tm.IsRecordingSuspended());
}

TEST(ChangeTransactionManager, FailingCommandStaysInPlaceAndRecordingResumes) {
    CommandProbe a;  // before the manager, whose commands count into it when it goes
    kor::CChangeTransactionManager tm;
    tm.Add(new ProbeCommand(a, tm, true));
    EXPECT_THROW(tm.Undo(), std::runtime_error);
    EXPECT_TRUE(tm.CanUndo());
    EXPECT_FALSE(tm.CanRedo());
    EXPECT_FALSE(tm.IsRecordingSuspended());
}

// Counts live objects, so that the tests see exactly when the last reference goes.
class Counted : public kor::IRefCounter {
public:
    explicit Counted(int& alive) : m_alive(alive) { ++m_alive; }
    Counted(const Counted& other) : kor::IRefCounter(other), m_alive(other.m_alive) { ++m_alive; }

protected:
    ~Counted() override { --m_alive; }

private:
    int& m_alive;
};

TEST(RefCounter, LastReleaseDestroysAndCopiesStartWithTheirOwnCount) {
    int alive = 0;
    auto* object = new Counted(alive);
    object->AddReference();
    object->AddReference();
    EXPECT_EQ(object->GetReferenceCount(), 3);
    auto* copy = new Counted(*object);
    EXPECT_EQ(copy->GetReferenceCount(), 1);
    EXPECT_EQ(alive, 2);
    copy->SubReference();
    object->SubReference();
    object->SubReference();
    EXPECT_EQ(alive, 1);
    object->SubReference();
    EXPECT_EQ(alive, 0);
}

TEST(RefPtr, AdoptShareCopyMoveAndDetachKeepTheCountRight) {
    int alive = 0;
    {
        auto adopted = kor::CRefPtr<Counted>::Adopt(new Counted(alive));
        EXPECT_EQ(adopted->GetReferenceCount(), 1);
        auto shared = kor::CRefPtr<Counted>::Share(adopted.Get());
        EXPECT_EQ(adopted->GetReferenceCount(), 2);
        kor::CRefPtr<Counted> copy = shared;
        EXPECT_EQ(adopted->GetReferenceCount(), 3);
        kor::CRefPtr<Counted> moved = std::move(copy);
        EXPECT_FALSE(copy);
        EXPECT_EQ(adopted->GetReferenceCount(), 3);
        Counted* detached = moved.Detach();
        EXPECT_EQ(detached->GetReferenceCount(), 3);
        detached->SubReference();
        shared.Reset();
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

}  // namespace
