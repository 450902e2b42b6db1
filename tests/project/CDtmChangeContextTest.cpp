#include <dtm/boundaries/CCnt.h>
#include <dtm/breaklines/CVnc.h>
#include <dtm/breaklines/CVncs.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "ContextAccess.h"
#include "Probes.h"
#include "project/CCreateCmdExecutedEventListener.h"

namespace {

using dtm_test::LoggingEventListener;
using dtm_test::ProbeRecord;
using dtm_test::ProjectEventRecorder;
using Log = std::vector<std::string>;

// A real breakline that also counts its lives, so that the test sees when it is destroyed.
class CountedVnc final : public CVnc {
public:
    CountedVnc(int& alive, CVncs* vncs) : CVnc(vncs, kor::geom::LINE_3D()), m_alive(alive) {
        ++m_alive;
    }

private:
    ~CountedVnc() override { --m_alive; }
    int& m_alive;
};

// A real boundary that also counts its lives, so that the test sees when it is destroyed.
class CountedCnt final : public CCnt {
public:
    explicit CountedCnt(int& alive) : m_alive(alive) { ++m_alive; }

private:
    ~CountedCnt() override { --m_alive; }
    int& m_alive;
};

// A real contour line that also counts its lives, so that the test sees when it is destroyed.
class CountedCvLv final : public CCvLv {
public:
    CountedCvLv(int& alive, CCvLvs* cvlvs) : CCvLv(cvlvs, 0.0, -1.0, 7), m_alive(alive) {
        ++m_alive;
    }

private:
    ~CountedCvLv() override { --m_alive; }
    int& m_alive;
};

// A real contour-line interval that also counts its lives.
class CountedInterv final : public CCvLvInterv {
public:
    explicit CountedInterv(int& alive)
        : CCvLvInterv(0.0, 1.0, CCvLvInterv::FLAG_TEXT), m_alive(alive) {
        ++m_alive;
    }

private:
    ~CountedInterv() override { --m_alive; }
    int& m_alive;
};

// A project on its own, with a transaction manager, a logging undo listener and a host recorder.
class ChangeContextTest : public ::testing::Test {
protected:
    void SetUp() override {
        prj = new CDtmPrj(nullptr, "Rilievo", true, false);
        context = prj->GetContext();
        vncs = std::make_unique<CVncs>(prj);
        cvlvs = std::make_unique<CCvLvs>(prj);
        context->Attach(&tm);
        auto logging = std::make_unique<LoggingEventListener>();
        listener = logging.get();
        context->SetUndoListener(std::move(logging));
        context->Register(&recorder);
    }
    void TearDown() override {
        context->Unregister(&recorder);
        cvlvs.reset();
        vncs.reset();
        prj->SubReference();
    }
    DtmChangeContextTestAccess Notify() { return DtmChangeContextTestAccess{*context}; }

    kor::CChangeTransactionManager tm;
    CDtmPrj* prj = nullptr;
    CDtmChangeContext* context = nullptr;
    std::unique_ptr<CVncs> vncs;
    std::unique_ptr<CCvLvs> cvlvs;
    LoggingEventListener* listener = nullptr;
    ProjectEventRecorder recorder;
    int alive = 0;
};

TEST_F(ChangeContextTest, NotificationOutsideAnEventIsAnEventOfItsOwn) {
    auto* t = new ProbeRecord<CTri>(alive);
    Notify().TriModifying(t, eTriChangeColor);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triChangeType, eTriChangeColor);
    EXPECT_EQ(recorder.events[0].triModified, std::vector<CTri*>{t});
    // The project's first event raised no flag but the one it changed.
    const auto& event = recorder.events[0];
    EXPECT_FALSE(event.prjModified || event.vncLayers || event.cntLayers || event.triLayers ||
                 event.cvLvLayers || event.triRemovedAll || event.triInnerDraw ||
                 event.triVrtsMoved);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "TriModifying", "EndEvent"}));
    EXPECT_TRUE(context->GetTriModified().empty());
    EXPECT_EQ(context->GetTriChangeType(), eTriChangeNone);
    t->SubReference();
}

TEST_F(ChangeContextTest, DifferentChangeKindsInOneEventMergeToBoth) {
    auto* t = new ProbeRecord<CTri>(alive);
    auto* u = new ProbeRecord<CTri>(alive);
    context->BeginEvent();
    Notify().TriModifying(t, eTriChangeColor);
    Notify().TriModifying(u, eTriChangeVertices);
    Notify().TriModifying(t, eTriChangeColor);
    context->EndEvent();
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triChangeType, eTriChangeAll);
    // The triangle lists keep duplicates: t is listed twice.
    EXPECT_EQ(recorder.events[0].triModified, (std::vector<CTri*>{t, u, t}));
    t->SubReference();
    u->SubReference();
}

TEST_F(ChangeContextTest, SameChangeKindTwiceStaysThatKind) {
    auto* line = new CountedCvLv(alive, cvlvs.get());
    auto* other = new CountedCvLv(alive, cvlvs.get());
    context->BeginEvent();
    Notify().CvLvModifying(line, eCvLvChangeGeometry);
    Notify().CvLvModifying(other, eCvLvChangeGeometry);
    context->EndEvent();
    EXPECT_EQ(recorder.events.at(0).cvLvChangeType, eCvLvChangeGeometry);
    line->SubReference();
    other->SubReference();
}

TEST_F(ChangeContextTest, TriangleNotificationsAfterRemoveAllAreDroppedUnseen) {
    auto* t = new ProbeRecord<CTri>(alive);
    context->BeginEvent();
    Notify().TriRemoveAll();
    const int closesBefore = static_cast<int>(recorder.events.size());
    Notify().TriAdded(t);
    Notify().TriModifying(t, eTriChangeColor);
    Notify().TriRemoved(t);
    context->EndEvent();
    ASSERT_EQ(recorder.events.size(), static_cast<size_t>(closesBefore + 1));
    const auto& event = recorder.events.back();
    EXPECT_TRUE(event.triRemovedAll);
    EXPECT_TRUE(event.triAdded.empty());
    EXPECT_TRUE(event.triModified.empty());
    EXPECT_TRUE(event.triRemoved.empty());
    EXPECT_EQ(event.triChangeType, eTriChangeNone);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "TriRemoveAll", "EndEvent"}));
    EXPECT_EQ(t->GetReferenceCount(), 1);
    // The next event records triangles again.
    Notify().TriAdded(t);
    EXPECT_EQ(recorder.events.back().triAdded, std::vector<CTri*>{t});
    t->SubReference();
}

TEST_F(ChangeContextTest, ContourLineAddedThenModifiedIsListedOnlyAsAdded) {
    auto* line = new CountedCvLv(alive, cvlvs.get());
    context->BeginEvent();
    Notify().CvLvAdded(line);
    EXPECT_EQ(line->GetChangeMark(), 1);
    Notify().CvLvModifying(line, eCvLvChangeGeometry);
    context->EndEvent();
    const auto& event = recorder.events.at(0);
    EXPECT_EQ(event.cvLvAdded, std::vector<CCvLv*>{line});
    EXPECT_TRUE(event.cvLvModified.empty());
    EXPECT_EQ(event.cvLvChangeType, eCvLvChangeNone);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvAdded", "EndEvent"}));
    EXPECT_EQ(line->GetChangeMark(), 0);
    line->SubReference();
}

TEST_F(ChangeContextTest, ContourLineModifiedTwiceIsRecordedOnceWithTheFirstKind) {
    auto* line = new CountedCvLv(alive, cvlvs.get());
    context->BeginEvent();
    Notify().CvLvModifying(line, eCvLvChangeColor);
    EXPECT_EQ(line->GetChangeMark(), 2);
    Notify().CvLvModifying(line, eCvLvChangeGeometry);
    context->EndEvent();
    const auto& event = recorder.events.at(0);
    EXPECT_EQ(event.cvLvModified, std::vector<CCvLv*>{line});
    // The second notification was ignored entirely, type merge included.
    EXPECT_EQ(event.cvLvChangeType, eCvLvChangeColor);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CvLvModifying", "EndEvent"}));
    EXPECT_EQ(line->GetChangeMark(), 0);
    // In a new event the line is recorded again.
    Notify().CvLvModifying(line, eCvLvChangeGeometry);
    EXPECT_EQ(recorder.events.at(1).cvLvModified, std::vector<CCvLv*>{line});
    line->SubReference();
}

TEST_F(ChangeContextTest, RemovedContourLineKeepsItsMarkAndIgnoresModifying) {
    auto* line = new CountedCvLv(alive, cvlvs.get());
    context->BeginEvent();
    Notify().CvLvRemoved(line);
    Notify().CvLvModifying(line, eCvLvChangeColor);
    context->EndEvent();
    EXPECT_TRUE(recorder.events.at(0).cvLvModified.empty());
    EXPECT_EQ(recorder.events.at(0).cvLvRemoved, std::vector<CCvLv*>{line});
    EXPECT_EQ(line->GetChangeMark(), 4);
    EXPECT_EQ(line->GetReferenceCount(), 1);
    line->SubReference();
}

// The closing pass puts back every line the event added or modified, even one the event then
// removed: only a line that was removed and nothing else keeps its removed mark.
TEST_F(ChangeContextTest, ContourLineModifiedThenRemovedGoesBackToUntouched) {
    auto* line = new CountedCvLv(alive, cvlvs.get());
    context->BeginEvent();
    Notify().CvLvModifying(line, eCvLvChangeColor);
    Notify().CvLvRemoved(line);
    EXPECT_EQ(line->GetChangeMark(), 4);
    context->EndEvent();
    EXPECT_EQ(recorder.events.at(0).cvLvModified, std::vector<CCvLv*>{line});
    EXPECT_EQ(recorder.events.at(0).cvLvRemoved, std::vector<CCvLv*>{line});
    EXPECT_EQ(line->GetChangeMark(), 0);
    // Untouched again, the line is recorded by the next modifying notification.
    Notify().CvLvModifying(line, eCvLvChangeGeometry);
    EXPECT_EQ(recorder.events.at(1).cvLvModified, std::vector<CCvLv*>{line});
    line->SubReference();
}

TEST_F(ChangeContextTest, RemovedEntitiesStayAliveUntilTheOutermostEventCloses) {
    auto* breakline = new CountedVnc(alive, vncs.get());
    auto* boundary = new CountedCnt(alive);
    auto* triangle = new ProbeRecord<CTri>(alive);
    auto* line = new CountedCvLv(alive, cvlvs.get());
    auto* interval = new CountedInterv(alive);
    ASSERT_EQ(alive, 5);
    context->BeginEvent();
    context->BeginEvent();
    Notify().VncRemoved(breakline);
    Notify().CntRemoved(boundary);
    Notify().TriRemoved(triangle);
    Notify().CvLvRemoved(line);
    Notify().CvLvIntervalRemoved(interval);
    // Their collections let go of them: only the context keeps them now.
    breakline->SubReference();
    boundary->SubReference();
    triangle->SubReference();
    line->SubReference();
    interval->SubReference();
    context->EndEvent();
    EXPECT_EQ(alive, 5);
    context->EndEvent();
    EXPECT_EQ(alive, 0);
    const auto& event = recorder.events.at(0);
    EXPECT_EQ(event.vncRemoved.size(), 1u);
    EXPECT_EQ(event.cntRemoved.size(), 1u);
    EXPECT_EQ(event.triRemoved.size(), 1u);
    EXPECT_EQ(event.cvLvRemoved.size(), 1u);
    EXPECT_EQ(event.intervalsRemoved.size(), 1u);
}

TEST_F(ChangeContextTest, HostListenersReadTheListsBeforeTheyAreCleared) {
    auto* breakline = new CountedVnc(alive, vncs.get());
    auto* boundary = new CountedCnt(alive);
    context->BeginEvent();
    Notify().VncAdded(breakline);
    Notify().VncModifying(breakline);
    Notify().VncModifying(breakline);
    Notify().CntAdded(boundary);
    Notify().CntModifying(boundary);
    Notify().PrjModified();
    Notify().VncLayersModified();
    Notify().CntLayersModified();
    Notify().TriLayersModified();
    Notify().CvLvLayersModified();
    Notify().TriInnerDrawModified();
    Notify().TriVrtMoved();
    EXPECT_EQ(recorder.events.size(), 0u);
    context->EndEvent();
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.opened, 1);
    const auto& event = recorder.events[0];
    EXPECT_EQ(event.vncAdded, std::vector<CVnc*>{breakline});
    // Breaklines and boundaries have no marks: every notification is listed.
    EXPECT_EQ(event.vncModified, (std::vector<CVnc*>{breakline, breakline}));
    EXPECT_EQ(event.cntAdded, std::vector<CCnt*>{boundary});
    EXPECT_EQ(event.cntModified, std::vector<CCnt*>{boundary});
    EXPECT_TRUE(event.prjModified && event.vncLayers && event.cntLayers && event.triLayers &&
                event.cvLvLayers && event.triInnerDraw && event.triVrtsMoved);
    EXPECT_FALSE(event.triRemovedAll);
    // After the event everything is clear again.
    EXPECT_TRUE(context->GetVncAdded().empty());
    EXPECT_TRUE(context->GetVncModified().empty());
    EXPECT_TRUE(context->GetCntAdded().empty());
    EXPECT_FALSE(context->IsPrjModified());
    EXPECT_FALSE(context->AreTriVrtsMoved());
    EXPECT_FALSE(context->AreCvLvLayersModified());
    breakline->SubReference();
    boundary->SubReference();
}

TEST_F(ChangeContextTest, EveryListenerOperationIsCalledInNotificationOrder) {
    auto* v = new CountedVnc(alive, vncs.get());
    auto* c = new CountedCnt(alive);
    auto* t = new ProbeRecord<CTri>(alive);
    auto* l = new CountedCvLv(alive, cvlvs.get());
    auto* m = new CountedCvLv(alive, cvlvs.get());
    {
        kor::CEventGuard event(context);
        Notify().VncAdded(v);
        Notify().VncModifying(v);
        Notify().VncRemoved(v);
        Notify().CntAdded(c);
        Notify().CntModifying(c);
        Notify().CntRemoved(c);
        Notify().TriVrtAdded();
        Notify().TriVrtRemoved();
        Notify().TriVrtMoved();
        Notify().TriAdded(t);
        Notify().TriModifying(t, eTriChangeVertices);
        Notify().TriRemoved(t);
        Notify().CvLvAdded(l);
        Notify().CvLvModifying(m, eCvLvChangeAll);
        Notify().CvLvRemoved(m);
        Notify().TriRemoveAll();
    }
    EXPECT_EQ(listener->log,
              (Log{"BeginEvent", "VncAdded", "VncModifying", "VncRemoved", "CntAdded",
                   "CntModifying", "CntRemoved", "TriVrtAdded", "TriVrtRemoved", "TriVrtMoved",
                   "TriAdded", "TriModifying", "TriRemoved", "CvLvAdded", "CvLvModifying",
                   "CvLvRemoved", "TriRemoveAll", "EndEvent"}));
    EXPECT_EQ(recorder.events.at(0).cvLvChangeType, eCvLvChangeAll);
    for (kor::IRefCounter* e : std::vector<kor::IRefCounter*>{v, c, t, l, m}) e->SubReference();
    EXPECT_EQ(alive, 0);
}

TEST_F(ChangeContextTest, SuspendedRecordingUsesTheQuietListenerButHostStillSees) {
    auto* t = new ProbeRecord<CTri>(alive);
    tm.SetRecordingSuspended(true);
    Notify().TriAdded(t);
    EXPECT_TRUE(listener->log.empty());
    EXPECT_EQ(recorder.events.at(0).triAdded, std::vector<CTri*>{t});
    tm.SetRecordingSuspended(false);
    Notify().TriAdded(t);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "TriAdded", "EndEvent"}));
    t->SubReference();
}

// Whether an event is recorded is settled when it opens: the flag changing while the event is
// open neither stops nor starts the recording of that event.
TEST_F(ChangeContextTest, RecordingSuspendedInsideAnOpenEventStillRecordsThatEvent) {
    auto* t = new ProbeRecord<CTri>(alive);
    {
        kor::CEventGuard event(context);
        Notify().TriAdded(t);
        tm.SetRecordingSuspended(true);
        Notify().TriRemoved(t);
        tm.SetRecordingSuspended(false);
    }
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "TriAdded", "TriRemoved", "EndEvent"}));
    t->SubReference();
}

TEST_F(ChangeContextTest, RecordingResumedInsideAnOpenEventLeavesThatEventUnrecorded) {
    auto* t = new ProbeRecord<CTri>(alive);
    tm.SetRecordingSuspended(true);
    {
        kor::CEventGuard event(context);
        Notify().TriAdded(t);
        tm.SetRecordingSuspended(false);
        Notify().TriRemoved(t);
    }
    EXPECT_TRUE(listener->log.empty());
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triAdded, std::vector<CTri*>{t});
    EXPECT_EQ(recorder.events[0].triRemoved, std::vector<CTri*>{t});
    // The next event opens with recording on.
    Notify().TriVrtAdded();
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "TriVrtAdded", "EndEvent"}));
    t->SubReference();
}

// A network on a point cloud is never recorded for undo, yet the host hears all of it.
TEST_F(ChangeContextTest, PointCloudNetworkUsesTheQuietListenerButHostStillSees) {
    CTris& tris = *prj->GetTris();
    auto cloud = kor::CRefPtr<CMemCld>::Adopt(new CMemCld);
    for (int i = 0; i < 3; ++i) cloud->AddPnt(kor::geom::PNT_3D(i, i * i, 1.0));
    tris.SetCld(cloud.Get());
    ASSERT_TRUE(tris.IsCld());
    listener->log.clear();
    recorder.events.clear();
    auto* breakline = new CountedVnc(alive, vncs.get());
    {
        kor::CEventGuard event(context);
        for (int i = 0; i < 3; ++i) tris.AddTriVrt(i);
        tris.AddNewTri(1, 0, 1, 2);
        Notify().VncAdded(breakline);
        Notify().PrjModified();
        Notify().TriLayersModified();
        Notify().TriInnerDrawModified();
        Notify().TriVrtMoved();
    }
    EXPECT_TRUE(listener->log.empty());
    ASSERT_EQ(recorder.events.size(), 1u);
    const auto& event = recorder.events[0];
    EXPECT_EQ(event.triAdded, std::vector<CTri*>{tris.GetTriAt(0)});
    EXPECT_EQ(event.vncAdded, std::vector<CVnc*>{breakline});
    // The flags as well as the lists.
    EXPECT_TRUE(event.prjModified && event.triLayers && event.triInnerDraw && event.triVrtsMoved);
    EXPECT_FALSE(event.vncLayers || event.cntLayers || event.cvLvLayers || event.triRemovedAll);
    EXPECT_EQ(tm.GetUndoCount(), 0u);
    breakline->SubReference();
}

TEST_F(ChangeContextTest, DetachedContextRecordsForUndoAsUsual) {
    // Without a manager there is nobody to suspend recording: the undo listener is chosen.
    context->Detach();
    Notify().TriVrtAdded();
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "TriVrtAdded", "EndEvent"}));
}

// Additions that no listener acts on are still listed for the host, in order and with
// repeats, and still dropped after a remove-all of the same event.
TEST_F(ChangeContextTest, AdditionsUnheardByTheQuietListenerAreListedInOrder) {
    auto* t = new ProbeRecord<CTri>(alive);
    auto* u = new ProbeRecord<CTri>(alive);
    tm.SetRecordingSuspended(true);
    {
        kor::CEventGuard event(context);
        Notify().TriVrtAdded();
        Notify().TriAdded(t);
        Notify().TriAdded(u);
        Notify().TriAdded(t);
        EXPECT_EQ(context->GetEventDepth(), 1);
        Notify().TriRemoveAll();
        Notify().TriAdded(u);
    }
    EXPECT_TRUE(listener->log.empty());
    const auto& event = recorder.events.at(0);
    EXPECT_EQ(event.triAdded, (std::vector<CTri*>{t, u, t}));
    EXPECT_TRUE(event.triRemovedAll);
    for (kor::IRefCounter* e : std::vector<kor::IRefCounter*>{t, u}) e->SubReference();
    EXPECT_EQ(alive, 0);
}

// The project's own undo builder that does not record (no manager) ignores additions; one put
// in its place while the event is open hears every addition that follows.
TEST_F(ChangeContextTest, ListenerInstalledInAnOpenEventHearsTheAdditionsThatFollow) {
    context->Detach();
    context->SetUndoListener(std::make_unique<CCreateCmdExecutedEventListener>(prj));
    auto* t = new ProbeRecord<CTri>(alive);
    auto logging = std::make_unique<LoggingEventListener>();
    const LoggingEventListener& late = *logging;
    {
        kor::CEventGuard event(context);
        Notify().TriVrtAdded();
        Notify().TriAdded(t);
        context->SetUndoListener(std::move(logging));
        Notify().TriVrtAdded();
        Notify().TriAdded(t);
    }
    EXPECT_EQ(late.log, (Log{"TriVrtAdded", "TriAdded", "EndEvent"}));
    EXPECT_EQ(recorder.events.at(0).triAdded, (std::vector<CTri*>{t, t}));
    t->SubReference();
}

// A host's listener derived from the undo builder may act on additions even when the builder
// itself would not: it hears each one, inside the notification's own nested event.
class CountingUndoBuilder : public CCreateCmdExecutedEventListener {
public:
    CountingUndoBuilder(CDtmPrj* project, CDtmChangeContext& context, std::vector<int>& depths)
        : CCreateCmdExecutedEventListener(project), m_context(context), m_depths(depths) {}
    void OnTriVrtAdded() override {
        m_depths.push_back(m_context.GetEventDepth());
        CCreateCmdExecutedEventListener::OnTriVrtAdded();
    }
    void OnTriAdded(CTri* triangle) override {
        m_depths.push_back(m_context.GetEventDepth());
        CCreateCmdExecutedEventListener::OnTriAdded(triangle);
    }

private:
    CDtmChangeContext& m_context;
    std::vector<int>& m_depths;
};

TEST_F(ChangeContextTest, ADerivedUndoBuilderHearsEveryAdditionInItsNestedEvent) {
    context->Detach();
    std::vector<int> depths;
    context->SetUndoListener(std::make_unique<CountingUndoBuilder>(prj, *context, depths));
    auto* t = new ProbeRecord<CTri>(alive);
    {
        kor::CEventGuard event(context);
        Notify().TriVrtAdded();
        Notify().TriAdded(t);
    }
    Notify().TriAdded(t);
    EXPECT_EQ(depths, (std::vector<int>{2, 2, 1}));
    t->SubReference();
}

// A listener that fails in the middle of an event, as an allocation failure would.
class ThrowingListener : public IEventListener {
public:
    void OnVncRemoved(CVnc*) override { throw std::runtime_error("listener failed"); }
};

TEST_F(ChangeContextTest, ExceptionInsideAnEventLeavesDepthZeroAndReleasesReferences) {
    context->SetUndoListener(std::make_unique<ThrowingListener>());
    auto* breakline = new CountedVnc(alive, vncs.get());
    try {
        kor::CEventGuard outer(context);
        Notify().VncRemoved(breakline);
        FAIL() << "the listener should have thrown";
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(context->GetEventDepth(), 0);
    EXPECT_TRUE(context->GetVncRemoved().empty());
    EXPECT_EQ(breakline->GetReferenceCount(), 1);
    breakline->SubReference();
    EXPECT_EQ(alive, 0);
}

TEST_F(ChangeContextTest, RemoveAllOfAnEmptyNetworkSetsTheFlagOnly) {
    Notify().TriRemoveAll();
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].triRemovedAll);
    EXPECT_TRUE(recorder.events[0].triRemoved.empty());
    EXPECT_FALSE(context->AreTriRemovedAll());
}

TEST_F(ChangeContextTest, RemoveAllOfAFilledNetworkTellsEachTriangleAfterTheFlag) {
    CTris& tris = *prj->GetTris();
    {
        kor::CEventGuard event(context);
        tris.AddTriVrt(kor::geom::PNT_3D(0, 0, 0));
        tris.AddTriVrt(kor::geom::PNT_3D(1, 0, 0));
        tris.AddTriVrt(kor::geom::PNT_3D(0, 1, 0));
        tris.AddTriVrt(kor::geom::PNT_3D(1, 1, 0));
        tris.AddNewTri(1, 0, 1, 2);
        tris.AddNewTri(1, 1, 3, 2);
    }
    CTri* first = tris.GetTriAt(0);
    CTri* second = tris.GetTriAt(1);
    const int held = first->GetReferenceCount();
    listener->log.clear();
    recorder.events.clear();
    {
        kor::CEventGuard event(context);
        Notify().TriRemoveAll();
        // The removed list holds a reference on each triangle until the event closes.
        EXPECT_EQ(first->GetReferenceCount(), held + 1);
        EXPECT_EQ(second->GetReferenceCount(), held + 1);
    }
    EXPECT_EQ(listener->log,
              (Log{"BeginEvent", "TriRemoveAll", "TriRemoved", "TriRemoved", "EndEvent"}));
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].triRemovedAll);
    EXPECT_EQ(recorder.events[0].triRemoved, (std::vector<CTri*>{first, second}));
    EXPECT_EQ(first->GetReferenceCount(), held);
}

}  // namespace
