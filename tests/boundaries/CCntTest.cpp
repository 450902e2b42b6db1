// The boundary entity: its extended vertex list, its memento protocol and its scoped editor.

#include <dtm/boundaries/CCnt.h>
#include <dtm/boundaries/CCnts.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "BoundaryTestSupport.h"

namespace {

using boundary_test::BoundaryTest;
using boundary_test::Log;
using boundary_test::MakeCnt;
using boundary_test::PNT_3D;
using boundary_test::Pts;
using boundary_test::Same;
using boundary_test::SameBits;

const PNT_3D A(1.0, 2.0, 3.0);
const PNT_3D B(4.0, 5.0, 6.0);
const PNT_3D C(7.0, 8.0, 9.5);
const PNT_3D D(-1.5, 0.25, 100.0);
const double NaN = std::numeric_limits<double>::quiet_NaN();

/// Takes a memento of @p cnt and hands its reference to the caller's handle.
kor::CRefPtr<kor::IMemento> MementoOf(const CCnt& cnt) {
    return kor::CRefPtr<kor::IMemento>::Adopt(cnt.CreateMemento());
}

/// A memento of some other entity kind.
class ForeignMemento : public kor::IMemento {
public:
    std::size_t GetSize() const override { return 0; }

protected:
    ~ForeignMemento() override = default;
};

// --- the extended vertex list --------------------------------------------------------------

TEST(CCnt, NewBoundaryIsEmptyAndInNoCollection) {
    auto cnt = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    EXPECT_EQ(cnt->GetNoVrts(), 0);
    EXPECT_TRUE(cnt->GetExtendedVrts().empty());
    EXPECT_EQ(cnt->GetCnts(), nullptr);
    EXPECT_EQ(cnt->GetDtmPrj(), nullptr);
    EXPECT_FALSE(cnt->IsInternal());
    EXPECT_EQ(cnt->GetRep(), 0);
    EXPECT_EQ(cnt->GetReferenceCount(), 1);
}

TEST(CCnt, ThreeRealPointsAreStoredWithLastInFrontAndFirstBehind) {
    auto cnt = MakeCnt({A, B, C});
    EXPECT_EQ(cnt->GetNoVrts(), 5);
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{C, A, B, C, A}));
    EXPECT_TRUE(Same(cnt->GetVrt(0), C));
    EXPECT_TRUE(Same(cnt->GetVrt(4), A));
}

TEST(CCnt, OneRealPointIsStoredThreeTimes) {
    auto cnt = MakeCnt({A});
    EXPECT_EQ(cnt->GetNoVrts(), 3);
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{A, A, A}));
}

TEST(CCnt, SettingRealPointsAgainReplacesTheWholeList) {
    auto cnt = MakeCnt({A, B, C});
    cnt->SetRealVrts({D, A});
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{A, D, A, D}));
}

TEST(CCnt, AnEmptyRingIsRefusedAndChangesNothing) {
    auto cnt = MakeCnt({A, B});
    EXPECT_THROW(cnt->SetRealVrts({}), std::invalid_argument);
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{B, A, B, A}));
}

TEST(CCnt, VertexIndexOutsideTheStoredListThrows) {
    auto cnt = MakeCnt({A, B});
    EXPECT_THROW(cnt->GetVrt(-1), std::out_of_range);
    EXPECT_THROW(cnt->GetVrt(4), std::out_of_range);
    EXPECT_NO_THROW(cnt->GetVrt(3));
}

TEST(CCnt, AppendedVerticesAreStoredAsGivenWithoutWrapAroundCopies) {
    auto cnt = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    cnt->AppendVrt(A);
    cnt->AppendVrt(B);
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{A, B}));
    // Appending to a filled boundary leaves the existing wrap-around copies as they are.
    auto ring = MakeCnt({A, B});
    ring->AppendVrt(C);
    EXPECT_TRUE(SameBits(ring->GetExtendedVrts(), Pts{B, A, B, A, C}));
}

TEST(CCnt, CloneCopiesTheStoredListIntoAnIndependentBoundaryOfNoCollection) {
    CCnts cnts(nullptr, true);
    auto original = MakeCnt({A, B, C});
    original->AppendVrt(D);
    original->SetRep(77);
    cnts.AddCnt(original.Get());
    auto clone = kor::CRefPtr<CCnt>::Adopt(original->Clone());
    ASSERT_NE(clone.Get(), original.Get());
    EXPECT_TRUE(SameBits(clone->GetExtendedVrts(), original->GetExtendedVrts()));
    EXPECT_EQ(clone->GetCnts(), nullptr);
    EXPECT_FALSE(clone->IsInternal());
    // The host has not drawn the clone yet: it gets no handle of its own.
    EXPECT_EQ(clone->GetRep(), 0);
    EXPECT_EQ(clone->GetReferenceCount(), 1);
    clone->SetRealVrts({D});
    EXPECT_TRUE(SameBits(original->GetExtendedVrts(), Pts{C, A, B, C, A, D}));
}

TEST_F(BoundaryTest, IsInternalFollowsTheHoldingCollection) {
    auto hole = MakeCnt({A, B, C});
    auto outline = MakeCnt({A, B, C});
    EXPECT_FALSE(hole->IsInternal());
    internal->AddCnt(hole.Get());
    external->AddCnt(outline.Get());
    EXPECT_TRUE(hole->IsInternal());
    EXPECT_FALSE(outline->IsInternal());
    EXPECT_EQ(hole->GetCnts(), internal.get());
    EXPECT_EQ(hole->GetDtmPrj(), prj);
    EXPECT_EQ(outline->GetDtmPrj(), prj);
}

// --- notifications of the boundary's own changes ---------------------------------------------

TEST_F(BoundaryTest, BoundaryInNoCollectionChangesSilently) {
    auto cnt = MakeCnt({A, B});
    cnt->AppendVrt(C);
    auto memento = MementoOf(*cnt);
    cnt->SetMemento(memento.Get());
    {
        CCntModifier modifier(cnt.Get());
        modifier.MovePoint(0, D);
    }
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_TRUE(listener->log.empty());
    EXPECT_TRUE(Same(cnt->GetVrt(0), D));
}

TEST_F(BoundaryTest, SettingRealPointsIsAnnouncedBeforeTheChange) {
    auto cnt = MakeCnt({A, B});
    external->AddCnt(cnt.Get());
    ClearLogs();
    cnt->SetRealVrts({C});
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntModified, std::vector<CCnt*>{cnt.Get()});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CntModifying", "EndEvent"}));
    ASSERT_EQ(listener->modifyingStates.size(), 1u);
    EXPECT_TRUE(SameBits(listener->modifyingStates[0], Pts{B, A, B, A}));
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{C, C, C}));
}

TEST_F(BoundaryTest, RefusedEmptyRingSendsNothing) {
    auto cnt = MakeCnt({A, B});
    external->AddCnt(cnt.Get());
    ClearLogs();
    EXPECT_THROW(cnt->SetRealVrts({}), std::invalid_argument);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_TRUE(listener->log.empty());
}

TEST_F(BoundaryTest, EveryAppendedVertexIsAnnouncedBeforeItArrives) {
    auto cnt = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    internal->AddCnt(cnt.Get());
    ClearLogs();
    context->BeginEvent();
    cnt->AppendVrt(A);
    cnt->AppendVrt(B);
    context->EndEvent();
    ASSERT_EQ(recorder.events.size(), 1u);
    // Boundaries carry no change marks: each notification is listed.
    EXPECT_EQ(recorder.events[0].cntModified, (std::vector<CCnt*>{cnt.Get(), cnt.Get()}));
    ASSERT_EQ(listener->modifyingStates.size(), 2u);
    EXPECT_TRUE(listener->modifyingStates[0].empty());
    EXPECT_TRUE(SameBits(listener->modifyingStates[1], Pts{A}));
}

// --- mementos ----------------------------------------------------------------------------------

TEST(CCntMemento, HoldsACopyOfTheStoredListAndSizesItself) {
    auto cnt = MakeCnt({A, B, C});
    auto memento = MementoOf(*cnt);
    const auto* held = dynamic_cast<const CCntMemento*>(memento.Get());
    ASSERT_NE(held, nullptr);
    EXPECT_TRUE(SameBits(held->GetVrts(), Pts{C, A, B, C, A}));
    EXPECT_EQ(held->GetSize(), 48u + 24u * 5u);
    cnt->SetRealVrts({D});
    EXPECT_TRUE(SameBits(held->GetVrts(), Pts{C, A, B, C, A}));
}

TEST(CCntMemento, EmptyMementoSizeIsTheFixedPartOnly) {
    auto cnt = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    EXPECT_EQ(MementoOf(*cnt)->GetSize(), 48u);
}

TEST(CCnt, UnchangedBoundaryDoesNotDifferFromItsMemento) {
    auto cnt = MakeCnt({A, B, C});
    EXPECT_FALSE(cnt->HasChanged(MementoOf(*cnt).Get()));
    auto empty = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    EXPECT_FALSE(empty->HasChanged(MementoOf(*empty).Get()));
}

TEST(CCnt, DifferentVertexCountIsAChange) {
    auto cnt = MakeCnt({A, B, C});
    auto memento = MementoOf(*cnt);
    cnt->AppendVrt(A);
    EXPECT_TRUE(cnt->HasChanged(memento.Get()));
}

TEST(CCnt, EachCoordinateIsComparedExactly) {
    auto cnt = MakeCnt({A, B, C});
    auto memento = MementoOf(*cnt);
    CCntModifier modifier(cnt.Get());
    const PNT_3D original = cnt->GetVrt(2);
    const double nudged = std::nextafter(original.z, 1e300);
    modifier.MovePoint(2, PNT_3D(original.x, original.y, nudged));
    EXPECT_TRUE(cnt->HasChanged(memento.Get()));
    modifier.MovePoint(2, PNT_3D(std::nextafter(original.x, -1e300), original.y, original.z));
    EXPECT_TRUE(cnt->HasChanged(memento.Get()));
    modifier.MovePoint(2, PNT_3D(original.x, std::nextafter(original.y, 1e300), original.z));
    EXPECT_TRUE(cnt->HasChanged(memento.Get()));
    modifier.MovePoint(2, original);
    EXPECT_FALSE(cnt->HasChanged(memento.Get()));
}

TEST(CCnt, NotANumberAlwaysReportsAChangeEvenAgainstItsOwnMemento) {
    for (int axis = 0; axis < 3; ++axis) {
        PNT_3D odd = B;
        (axis == 0 ? odd.x : axis == 1 ? odd.y : odd.z) = NaN;
        auto cnt = MakeCnt({A, odd, C});
        EXPECT_TRUE(cnt->HasChanged(MementoOf(*cnt).Get())) << "axis " << axis;
    }
}

TEST(CCnt, ForeignOrMissingMementoIsRefused) {
    auto cnt = MakeCnt({A, B});
    auto foreign = kor::CRefPtr<kor::IMemento>::Adopt(new ForeignMemento());
    EXPECT_THROW(cnt->HasChanged(foreign.Get()), std::invalid_argument);
    EXPECT_THROW(cnt->HasChanged(nullptr), std::invalid_argument);
    EXPECT_THROW(cnt->SetMemento(foreign.Get()), std::invalid_argument);
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{B, A, B, A}));
}

TEST_F(BoundaryTest, PuttingBackAMementoRestoresTheListInOneRecordedEvent) {
    auto cnt = MakeCnt({A, B, C});
    external->AddCnt(cnt.Get());
    auto before = MementoOf(*cnt);
    cnt->SetRealVrts({D});
    ClearLogs();
    cnt->SetMemento(before.Get());
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{C, A, B, C, A}));
    EXPECT_FALSE(cnt->HasChanged(before.Get()));
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntModified, std::vector<CCnt*>{cnt.Get()});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CntModifying", "EndEvent"}));
    // The notification carried the state being replaced, so this step can be undone in turn.
    ASSERT_EQ(listener->modifyingStates.size(), 1u);
    EXPECT_TRUE(SameBits(listener->modifyingStates[0], Pts{D, D, D}));
}

TEST_F(BoundaryTest, PuttingBackAnEqualMementoStillNotifiesOnce) {
    auto cnt = MakeCnt({A, B});
    internal->AddCnt(cnt.Get());
    auto same = MementoOf(*cnt);
    ClearLogs();
    cnt->SetMemento(same.Get());
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntModified, std::vector<CCnt*>{cnt.Get()});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CntModifying", "EndEvent"}));
}

// What a host listener reads of the boundary when the event of a restore closes.
class VertexReader : public kor::CSourceEvent::IEvent {
public:
    explicit VertexReader(const CCnt& cnt) : m_cnt(cnt) {}
    Pts seen;
    void OnEventOpened(kor::CSourceEvent&) override {}
    void OnEventClosed(kor::CSourceEvent&) override { seen = m_cnt.GetExtendedVrts(); }

private:
    const CCnt& m_cnt;
};

TEST_F(BoundaryTest, HostSeesTheRestoredStateWhenTheRestoreEventCloses) {
    auto cnt = MakeCnt({A, B});
    external->AddCnt(cnt.Get());
    auto before = MementoOf(*cnt);
    cnt->SetRealVrts({C});
    VertexReader reader(*cnt);
    context->Register(&reader);
    cnt->SetMemento(before.Get());
    context->Unregister(&reader);
    EXPECT_TRUE(SameBits(reader.seen, Pts{B, A, B, A}));
}

// --- the scoped editor -------------------------------------------------------------------------

TEST_F(BoundaryTest, ModifierAnnouncesOnceAndMovesInsideOneEvent) {
    auto cnt = MakeCnt({A, B, C});
    external->AddCnt(cnt.Get());
    ClearLogs();
    {
        CCntModifier modifier(cnt.Get());
        EXPECT_EQ(context->GetEventDepth(), 1);
        modifier.MovePoint(1, D);
        modifier.MovePoint(4, D);
        EXPECT_TRUE(recorder.events.empty());
    }
    EXPECT_EQ(context->GetEventDepth(), 0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntModified, std::vector<CCnt*>{cnt.Get()});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CntModifying", "EndEvent"}));
    ASSERT_EQ(listener->modifyingStates.size(), 1u);
    EXPECT_TRUE(SameBits(listener->modifyingStates[0], Pts{C, A, B, C, A}));
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{C, D, B, C, D}));
}

TEST(CCntModifier, MovingAVertexLeavesItsWrapAroundCopyAlone) {
    auto cnt = MakeCnt({A, B, C});
    {
        CCntModifier modifier(cnt.Get());
        modifier.MovePoint(0, D);
    }
    // Stored vertex 0 is the copy of the last real vertex; the real one at index 3 stays.
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{D, A, B, C, A}));
}

TEST_F(BoundaryTest, ModifierIndexOutsideTheListThrowsAndTheEventStillCloses) {
    auto cnt = MakeCnt({A, B});
    external->AddCnt(cnt.Get());
    ClearLogs();
    {
        CCntModifier modifier(cnt.Get());
        EXPECT_THROW(modifier.MovePoint(4, D), std::out_of_range);
        EXPECT_THROW(modifier.MovePoint(-1, D), std::out_of_range);
    }
    EXPECT_EQ(context->GetEventDepth(), 0);
    EXPECT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{B, A, B, A}));
}

TEST_F(BoundaryTest, AssignedModifierEditsTheOtherBoundaryInsideTheSameEvent) {
    auto first = MakeCnt({A, B});
    auto second = MakeCnt({C, D});
    external->AddCnt(first.Get());
    external->AddCnt(second.Get());
    ClearLogs();
    {
        CCntModifier editor(first.Get());
        const CCntModifier other(second.Get());
        EXPECT_EQ(context->GetEventDepth(), 2);
        editor = other;
        EXPECT_EQ(context->GetEventDepth(), 2);
        editor.MovePoint(1, A);
    }
    EXPECT_EQ(context->GetEventDepth(), 0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntModified, (std::vector<CCnt*>{first.Get(), second.Get()}));
    EXPECT_TRUE(SameBits(first->GetExtendedVrts(), Pts{B, A, B, A}));
    EXPECT_TRUE(SameBits(second->GetExtendedVrts(), Pts{D, A, D, C}));
}

TEST_F(BoundaryTest, AssignmentAcrossContextsMovesTheOpenEventWithTheContext) {
    auto listed = MakeCnt({A, B});
    auto loose = MakeCnt({C, D});  // in no project: its modifier opens no event
    external->AddCnt(listed.Get());
    ClearLogs();
    {
        CCntModifier editor(listed.Get());
        EXPECT_EQ(context->GetEventDepth(), 1);
        editor = CCntModifier(loose.Get());
        // The event opened on the project's context is closed: nothing holds it any more.
        EXPECT_EQ(context->GetEventDepth(), 0);
        EXPECT_EQ(recorder.events.size(), 1u);
        editor.MovePoint(1, A);

        const CCntModifier again(listed.Get());
        editor = again;
        EXPECT_EQ(context->GetEventDepth(), 2);
    }
    EXPECT_EQ(context->GetEventDepth(), 0);
    EXPECT_EQ(recorder.events.size(), 2u);
    EXPECT_TRUE(SameBits(loose->GetExtendedVrts(), Pts{D, A, D, C}));
}

TEST(CCntModifier, NullBoundaryIsRefused) {
    EXPECT_THROW(CCntModifier modifier(nullptr), std::invalid_argument);
}

// A listener that fails on the modifying notification, as an allocation failure would.
class ThrowingOnModifying : public IEventListener {
public:
    void OnCntModifying(CCnt*) override { throw std::runtime_error("listener failed"); }
};

TEST_F(BoundaryTest, FailedAnnouncementLeavesNoEventOpen) {
    auto cnt = MakeCnt({A, B});
    external->AddCnt(cnt.Get());
    UseListener(std::make_unique<ThrowingOnModifying>());
    EXPECT_THROW(CCntModifier modifier(cnt.Get()), std::runtime_error);
    EXPECT_EQ(context->GetEventDepth(), 0);
    auto before = MementoOf(*cnt);
    EXPECT_THROW(cnt->SetMemento(before.Get()), std::runtime_error);
    EXPECT_EQ(context->GetEventDepth(), 0);
    EXPECT_THROW(cnt->SetRealVrts({C}), std::runtime_error);
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{B, A, B, A}));
}

TEST_F(BoundaryTest, UndoAndRedoThroughMementosGiveBackBothStates) {
    auto cnt = MakeCnt({A, B, C});
    internal->AddCnt(cnt.Get());
    auto before = MementoOf(*cnt);
    {
        CCntModifier modifier(cnt.Get());
        modifier.MovePoint(2, D);
    }
    EXPECT_TRUE(cnt->HasChanged(before.Get()));
    auto after = MementoOf(*cnt);
    cnt->SetMemento(before.Get());
    EXPECT_FALSE(cnt->HasChanged(before.Get()));
    EXPECT_TRUE(cnt->HasChanged(after.Get()));
    cnt->SetMemento(after.Get());
    EXPECT_TRUE(SameBits(cnt->GetExtendedVrts(), Pts{C, A, D, C, A}));
}

}  // namespace
