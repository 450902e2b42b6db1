// The boundary collection: adding, the removal order, both copy rules, and what the project's
// change context and its listeners see of each.

#include <dtm/boundaries/CCnt.h>
#include <dtm/boundaries/CCnts.h>

#include <gtest/gtest.h>

#include <stdexcept>

#include "BoundaryTestSupport.h"

namespace {

using boundary_test::BoundaryTest;
using boundary_test::CountedCnt;
using boundary_test::ListOf;
using boundary_test::Log;
using boundary_test::MakeCnt;
using boundary_test::PNT_3D;
using boundary_test::Pts;
using boundary_test::SameBits;
using Cnts = std::vector<CCnt*>;

const PNT_3D A(1.0, 2.0, 3.0);
const PNT_3D B(4.0, 5.0, 6.0);
const PNT_3D C(7.0, 8.0, 9.5);

/// A counted boundary holding the ring @p real; the caller holds its reference.
CCnt* NewCounted(int& alive, const Pts& real) {
    CCnt* cnt = new CountedCnt(alive);
    cnt->SetRealVrts(real);
    return cnt;
}

TEST(CCnts, NewCollectionIsEmptyAndKeepsItsProjectAndKind) {
    CCnts holes(nullptr, true);
    EXPECT_EQ(holes.GetNoCnts(), 0);
    EXPECT_EQ(holes.GetDtmPrj(), nullptr);
    EXPECT_TRUE(holes.AreInternalCnts());
    EXPECT_FALSE(CCnts(nullptr, false).AreInternalCnts());
}

TEST_F(BoundaryTest, CollectionsKnowTheirProject) {
    EXPECT_EQ(internal->GetDtmPrj(), prj);
    EXPECT_TRUE(internal->AreInternalCnts());
    EXPECT_FALSE(external->AreInternalCnts());
}

// --- adding ------------------------------------------------------------------------------------

TEST_F(BoundaryTest, AddingTakesAReferenceAndIsReportedAsAnEventOfItsOwn) {
    auto cnt = MakeCnt({A, B, C});
    external->AddCnt(cnt.Get());
    EXPECT_EQ(ListOf(*external), Cnts{cnt.Get()});
    EXPECT_EQ(cnt->GetReferenceCount(), 2);
    EXPECT_EQ(cnt->GetCnts(), external.get());
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntAdded, Cnts{cnt.Get()});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CntAdded", "EndEvent"}));
    EXPECT_TRUE(context->GetCntAdded().empty());
}

TEST_F(BoundaryTest, AdditionsBracketedByTheCallerFormOneEventInOrder) {
    auto first = MakeCnt({A});
    auto second = MakeCnt({B});
    {
        kor::CEventGuard event(context);
        internal->AddCnt(first.Get());
        internal->AddCnt(second.Get());
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntAdded, (Cnts{first.Get(), second.Get()}));
    EXPECT_EQ(ListOf(*internal), (Cnts{first.Get(), second.Get()}));
}

TEST_F(BoundaryTest, NullBoundaryIsRefused) {
    EXPECT_THROW(external->AddCnt(nullptr), std::invalid_argument);
    EXPECT_EQ(external->GetNoCnts(), 0);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(BoundaryTest, IndexOutsideTheListThrows) {
    auto cnt = MakeCnt({A});
    external->AddCnt(cnt.Get());
    ClearLogs();
    EXPECT_THROW(external->GetCntAt(-1), std::out_of_range);
    EXPECT_THROW(external->GetCntAt(1), std::out_of_range);
    EXPECT_THROW(external->RemoveCntAt(1), std::out_of_range);
    EXPECT_THROW(external->RemoveCntAt(-1), std::out_of_range);
    EXPECT_EQ(external->GetNoCnts(), 1);
    EXPECT_TRUE(recorder.events.empty());
}

TEST(CCnts, CollectionWithoutProjectReportsNothing) {
    CCnts cnts(nullptr, false);
    auto cnt = MakeCnt({A, B});
    cnts.AddCnt(cnt.Get());
    EXPECT_EQ(cnt->GetCnts(), &cnts);
    EXPECT_EQ(cnt->GetDtmPrj(), nullptr);
    cnt->SetRealVrts({C});
    cnts.RemoveCnt(cnt.Get());
    EXPECT_EQ(cnts.GetNoCnts(), 0);
    EXPECT_EQ(cnt->GetReferenceCount(), 1);
}

// --- removing ----------------------------------------------------------------------------------

TEST_F(BoundaryTest, RemovedBoundaryStaysAliveUntilTheOutermostEventCloses) {
    CCnt* cnt = NewCounted(alive, {A, B, C});
    external->AddCnt(cnt);
    cnt->SubReference();  // only the collection holds it now
    ClearLogs();
    context->BeginEvent();
    context->BeginEvent();
    external->RemoveCnt(cnt);
    EXPECT_EQ(external->GetNoCnts(), 0);
    EXPECT_EQ(cnt->GetReferenceCount(), 1);  // the context's
    context->EndEvent();
    EXPECT_EQ(alive, 1);
    // The boundary still names its collection while the event is open.
    EXPECT_EQ(cnt->GetCnts(), external.get());
    context->EndEvent();
    EXPECT_EQ(alive, 0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntRemoved, Cnts{cnt});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CntRemoved", "EndEvent"}));
}

TEST_F(BoundaryTest, RemovingAnUnlistedBoundaryChangesAndSendsNothing) {
    auto listed = MakeCnt({A});
    auto stranger = MakeCnt({B});
    external->AddCnt(listed.Get());
    internal->AddCnt(stranger.Get());
    ClearLogs();
    external->RemoveCnt(stranger.Get());
    external->RemoveCnt(nullptr);
    EXPECT_EQ(ListOf(*external), Cnts{listed.Get()});
    EXPECT_EQ(stranger->GetReferenceCount(), 2);
    EXPECT_EQ(listed->GetReferenceCount(), 2);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_TRUE(listener->log.empty());
}

TEST_F(BoundaryTest, RemovingByPointerTakesTheFirstEqualEntry) {
    auto twice = MakeCnt({A});
    auto other = MakeCnt({B});
    external->AddCnt(twice.Get());
    external->AddCnt(other.Get());
    external->AddCnt(twice.Get());
    EXPECT_EQ(twice->GetReferenceCount(), 3);
    external->RemoveCnt(twice.Get());
    EXPECT_EQ(ListOf(*external), (Cnts{other.Get(), twice.Get()}));
    EXPECT_EQ(twice->GetReferenceCount(), 2);
}

TEST_F(BoundaryTest, RemovingByIndexRemovesThatEntry) {
    auto first = MakeCnt({A});
    auto second = MakeCnt({B});
    internal->AddCnt(first.Get());
    internal->AddCnt(second.Get());
    ClearLogs();
    internal->RemoveCntAt(1);
    EXPECT_EQ(ListOf(*internal), Cnts{first.Get()});
    EXPECT_EQ(second->GetReferenceCount(), 1);
    EXPECT_EQ(recorder.events.at(0).cntRemoved, Cnts{second.Get()});
}

// Reads the collection from inside the removed notification, as an undo builder might.
class ListWatcher : public IEventListener {
public:
    explicit ListWatcher(const CCnts& cnts) : m_cnts(cnts) {}
    std::vector<Cnts> listsSeen;
    void OnCntRemoved(CCnt*) override { listsSeen.push_back(ListOf(m_cnts)); }

private:
    const CCnts& m_cnts;
};

TEST_F(BoundaryTest, RemovingAllGoesFromLastToFirstEachErasedBeforeItIsReported) {
    auto a = MakeCnt({A});
    auto b = MakeCnt({B});
    auto c = MakeCnt({C});
    for (CCnt* cnt : {a.Get(), b.Get(), c.Get()}) external->AddCnt(cnt);
    auto watcher = std::make_unique<ListWatcher>(*external);
    ListWatcher* watching = watcher.get();
    UseListener(std::move(watcher));
    ClearLogs();
    external->RemoveAllCnts();
    EXPECT_EQ(external->GetNoCnts(), 0);
    // Each removal is an event of its own, since RemoveAllCnts opens none.
    ASSERT_EQ(recorder.events.size(), 3u);
    EXPECT_EQ(recorder.events[0].cntRemoved, Cnts{c.Get()});
    EXPECT_EQ(recorder.events[1].cntRemoved, Cnts{b.Get()});
    EXPECT_EQ(recorder.events[2].cntRemoved, Cnts{a.Get()});
    EXPECT_EQ(watching->listsSeen, (std::vector<Cnts>{{a.Get(), b.Get()}, {a.Get()}, Cnts{}}));
    for (CCnt* cnt : {a.Get(), b.Get(), c.Get()}) {
        EXPECT_EQ(cnt->GetReferenceCount(), 1);
        EXPECT_EQ(cnt->GetCnts(), external.get());
    }
}

TEST_F(BoundaryTest, OneEventListsAddedModifyingAndRemovedBoundariesInOrder) {
    auto kept = MakeCnt({A, B});
    external->AddCnt(kept.Get());
    CCnt* dropped = NewCounted(alive, {C});
    auto added = MakeCnt({B});
    internal->AddCnt(dropped);
    dropped->SubReference();
    ClearLogs();
    {
        kor::CEventGuard event(context);
        internal->AddCnt(added.Get());
        kept->SetRealVrts({C});
        {
            CCntModifier modifier(added.Get());
            modifier.MovePoint(0, A);
        }
        internal->RemoveCnt(dropped);
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(context->GetCntRemoved(), Cnts{dropped});
    }
    EXPECT_EQ(alive, 0);
    ASSERT_EQ(recorder.events.size(), 1u);
    const auto& event = recorder.events[0];
    EXPECT_EQ(event.cntAdded, Cnts{added.Get()});
    EXPECT_EQ(event.cntModified, (Cnts{kept.Get(), added.Get()}));
    EXPECT_EQ(event.cntRemoved.size(), 1u);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CntAdded", "CntModifying", "CntModifying",
                                  "CntRemoved", "EndEvent"}));
    EXPECT_TRUE(context->GetCntAdded().empty());
    EXPECT_TRUE(context->GetCntModified().empty());
    EXPECT_TRUE(context->GetCntRemoved().empty());
}

// A listener that fails on every removal.
class ThrowingOnRemoved : public IEventListener {
public:
    void OnCntRemoved(CCnt*) override { throw std::runtime_error("listener failed"); }
};

TEST_F(BoundaryTest, FailedRemovalReportStillReleasesTheBoundary) {
    CCnt* cnt = NewCounted(alive, {A});
    external->AddCnt(cnt);
    cnt->SubReference();
    UseListener(std::make_unique<ThrowingOnRemoved>());
    EXPECT_THROW(external->RemoveCntAt(0), std::runtime_error);
    EXPECT_EQ(external->GetNoCnts(), 0);
    EXPECT_EQ(context->GetEventDepth(), 0);
    EXPECT_EQ(alive, 0);
}

// --- destruction -------------------------------------------------------------------------------

TEST_F(BoundaryTest, DestroyingTheCollectionReportsEachRemovalAndDetachesSurvivors) {
    auto survivor = MakeCnt({A, B});
    CCnt* counted = NewCounted(alive, {C});
    external->AddCnt(survivor.Get());
    external->AddCnt(counted);
    counted->SubReference();
    ClearLogs();
    external.reset();
    EXPECT_EQ(alive, 0);
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_EQ(recorder.events[0].cntRemoved, Cnts{counted});
    EXPECT_EQ(recorder.events[1].cntRemoved, Cnts{survivor.Get()});
    // The survivor does not point at the destroyed collection.
    EXPECT_EQ(survivor->GetCnts(), nullptr);
    EXPECT_EQ(survivor->GetDtmPrj(), nullptr);
    EXPECT_EQ(survivor->GetReferenceCount(), 1);
}

TEST_F(BoundaryTest, FailingListenerDuringDestructionStillReleasesEverything) {
    for (const PNT_3D& p : {A, B, C}) {
        CCnt* cnt = NewCounted(alive, {p});
        internal->AddCnt(cnt);
        cnt->SubReference();
    }
    auto survivor = MakeCnt({A});
    internal->AddCnt(survivor.Get());
    UseListener(std::make_unique<ThrowingOnRemoved>());
    internal.reset();
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(context->GetEventDepth(), 0);
    EXPECT_EQ(survivor->GetCnts(), nullptr);
    EXPECT_EQ(survivor->GetReferenceCount(), 1);
}

// --- copies ------------------------------------------------------------------------------------

TEST_F(BoundaryTest, CopyConstructionSharesTheBoundariesWithoutReporting) {
    auto a = MakeCnt({A});
    auto b = MakeCnt({B});
    internal->AddCnt(a.Get());
    internal->AddCnt(b.Get());
    ClearLogs();
    {
        CCnts copy(*internal);
        EXPECT_EQ(ListOf(copy), ListOf(*internal));
        EXPECT_EQ(copy.GetDtmPrj(), prj);
        EXPECT_TRUE(copy.AreInternalCnts());
        // The shared boundaries keep naming the original collection.
        EXPECT_EQ(a->GetCnts(), internal.get());
        EXPECT_TRUE(recorder.events.empty());
        // Each collection holds a reference of its own.
        EXPECT_EQ(a->GetReferenceCount(), 3);
        EXPECT_EQ(b->GetReferenceCount(), 3);
    }
    // The copy's destruction reported its removals, and the original still holds both.
    EXPECT_EQ(recorder.events.size(), 2u);
    EXPECT_EQ(ListOf(*internal), (Cnts{a.Get(), b.Get()}));
    EXPECT_EQ(a->GetReferenceCount(), 2);
    EXPECT_EQ(a->GetCnts(), internal.get());
}

TEST_F(BoundaryTest, AssignmentClonesEveryBoundaryInsideOneEvent) {
    auto old = MakeCnt({C});
    internal->AddCnt(old.Get());
    auto a = MakeCnt({A, B});
    auto b = MakeCnt({B});
    b->AppendVrt(C);
    external->AddCnt(a.Get());
    external->AddCnt(b.Get());
    ClearLogs();
    const CCnts& result = (*internal = *external);
    EXPECT_EQ(&result, internal.get());
    ASSERT_EQ(internal->GetNoCnts(), 2);
    CCnt* cloneA = internal->GetCntAt(0);
    CCnt* cloneB = internal->GetCntAt(1);
    EXPECT_NE(cloneA, a.Get());
    EXPECT_NE(cloneB, b.Get());
    EXPECT_TRUE(SameBits(cloneA->GetExtendedVrts(), a->GetExtendedVrts()));
    EXPECT_TRUE(SameBits(cloneB->GetExtendedVrts(), b->GetExtendedVrts()));
    // The clones belong to the assigned collection, which keeps its own kind.
    EXPECT_EQ(cloneA->GetCnts(), internal.get());
    EXPECT_TRUE(cloneA->IsInternal());
    EXPECT_TRUE(internal->AreInternalCnts());
    EXPECT_EQ(cloneA->GetReferenceCount(), 1);
    EXPECT_EQ(old->GetReferenceCount(), 1);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntRemoved, Cnts{old.Get()});
    EXPECT_EQ(recorder.events[0].cntAdded, (Cnts{cloneA, cloneB}));
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CntRemoved", "CntAdded", "CntAdded", "EndEvent"}));
    // The source is untouched and independent of the copy.
    EXPECT_EQ(ListOf(*external), (Cnts{a.Get(), b.Get()}));
    cloneA->SetRealVrts({C});
    EXPECT_TRUE(SameBits(a->GetExtendedVrts(), Pts{B, A, B, A}));
}

TEST_F(BoundaryTest, AssigningACollectionToItselfChangesAndSendsNothing) {
    auto a = MakeCnt({A});
    external->AddCnt(a.Get());
    ClearLogs();
    CCnts& same = *external;
    *external = same;
    EXPECT_EQ(ListOf(*external), Cnts{a.Get()});
    EXPECT_EQ(a->GetReferenceCount(), 2);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(BoundaryTest, AssigningFromAShallowCopyStillClones) {
    auto a = MakeCnt({A, B});
    external->AddCnt(a.Get());
    CCnts copy(*external);
    *external = copy;
    ASSERT_EQ(external->GetNoCnts(), 1);
    EXPECT_NE(external->GetCntAt(0), a.Get());
    EXPECT_TRUE(SameBits(external->GetCntAt(0)->GetExtendedVrts(), a->GetExtendedVrts()));
    EXPECT_EQ(a->GetReferenceCount(), 2);  // the test's and the copy's
}

TEST(CCnts, AssignmentBetweenCollectionsWithoutProjectClonesSilently) {
    CCnts source(nullptr, false);
    CCnts target(nullptr, true);
    auto a = MakeCnt({A, B, C});
    source.AddCnt(a.Get());
    target = source;
    ASSERT_EQ(target.GetNoCnts(), 1);
    EXPECT_TRUE(target.GetCntAt(0)->IsInternal());
    EXPECT_TRUE(SameBits(target.GetCntAt(0)->GetExtendedVrts(), a->GetExtendedVrts()));
}

}  // namespace
