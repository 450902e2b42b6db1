#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtm.h>
#include <dtm/project/CLibDtmChangeContext.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

#include "ContextAccess.h"
#include "Probes.h"

namespace {

using dtm_test::LibraryEventRecorder;
using dtm_test::LoggingLibListener;
using dtm_test::ProbePrj;
using Log = std::vector<std::string>;

class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override {
        lib = std::make_unique<CLibDtm>(&tm);
        lib->GetContext()->Register(&recorder);
        auto logging = std::make_unique<LoggingLibListener>();
        listener = logging.get();
        lib->GetContext()->SetUndoListener(std::move(logging));
    }
    void TearDown() override {
        if (lib) lib->GetContext()->Unregister(&recorder);
    }
    CDtmPrj* AddProbe(const char* name) {
        auto* prj = new ProbePrj(alive, lib.get(), name);
        lib->AddPrj(prj);
        return prj;
    }

    kor::CChangeTransactionManager tm;
    std::unique_ptr<CLibDtm> lib;
    LibraryEventRecorder recorder;
    LoggingLibListener* listener = nullptr;
    int alive = 0;
};

TEST_F(LibraryTest, AddingATakenNameIgnoringCaseAppendsTheNextFreeNumber) {
    lib->AddPrj("RILIEVO", true, false);
    CDtmPrj* second = lib->AddPrj("Rilievo", true, false);
    EXPECT_EQ(second->GetName(), kor::String("Rilievo (2)"));
    CDtmPrj* third = lib->AddPrj("Rilievo", true, false);
    EXPECT_EQ(third->GetName(), kor::String("Rilievo (3)"));
    EXPECT_EQ(lib->GetNoPrj(), 3u);
}

TEST_F(LibraryTest, NumberedCandidatesAreComparedIgnoringCaseToo) {
    lib->AddPrj("Rilievo", true, false);
    lib->AddPrj("RILIEVO (2)", true, false);
    CDtmPrj* third = lib->AddPrj("rilievo", true, false);
    EXPECT_EQ(third->GetName(), kor::String("rilievo (3)"));
}

TEST_F(LibraryTest, AddingToAnEmptyLibraryKeepsTheNameEvenAnEmptyOne) {
    CDtmPrj* prj = lib->AddPrj("", true, false);
    EXPECT_EQ(prj->GetName(), kor::String(""));
    CDtmPrj* again = lib->AddPrj("", true, false);
    EXPECT_EQ(again->GetName(), kor::String(" (2)"));
}

TEST_F(LibraryTest, ASuffixIsNeverParsedAndFreedNumbersAreReused) {
    lib->AddPrj("Rilievo", true, false);
    CDtmPrj* two = lib->AddPrj("Rilievo", true, false);
    lib->AddPrj("Rilievo", true, false);
    EXPECT_EQ(lib->FindNewSuitableName("Rilievo (2)"), kor::String("Rilievo (2) (2)"));
    lib->RemovePrj(two, false);
    EXPECT_EQ(lib->FindNewSuitableName("rilievo"), kor::String("rilievo (2)"));
}

TEST_F(LibraryTest, AddingReportsTheProjectAndSetsTheModifiedFlagButNotTheActive) {
    lib->SetModifiedFlag(false);
    CDtmPrj* prj = lib->AddPrj("P", true, false);
    EXPECT_TRUE(lib->IsModified());
    EXPECT_EQ(lib->GetActive(), nullptr);
    EXPECT_EQ(prj->GetLibDtm(), lib.get());
    EXPECT_EQ(prj->GetContext()->GetChangeTransactionManager(), &tm);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].added, std::vector<CDtmPrj*>{prj});
    EXPECT_FALSE(recorder.events[0].activeChanged);
    // The first event of a new library removed nothing, so no drawing was taken down either.
    EXPECT_FALSE(recorder.events[0].drawingAlreadyRemoved);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "PrjAdded P", "EndEvent"}));
    // The library holds the caller's reference, no more.
    EXPECT_EQ(prj->GetReferenceCount(), 1);
}

TEST_F(LibraryTest, FindPrjIgnoresCaseAndAnswersTheFirstInOrder) {
    CDtmPrj* first = lib->AddPrj("Alfa", true, false);
    CDtmPrj* second = lib->AddPrj("Beta", true, false);
    second->SetName("ALFA");  // renaming does not keep names unique
    EXPECT_EQ(lib->FindPrj("alfa"), first);
    EXPECT_EQ(lib->FindPrj("gamma"), nullptr);
}

TEST_F(LibraryTest, RemovingTheActiveProjectClearsActiveInTheSameEvent) {
    CDtmPrj* prj = AddProbe("P");
    lib->SetActive(prj, true);
    recorder.events.clear();
    listener->log.clear();
    prj->AddReference();  // keep it to inspect after the event
    EXPECT_TRUE(lib->RemovePrj(prj, true));
    ASSERT_EQ(recorder.events.size(), 1u);
    const auto& event = recorder.events[0];
    EXPECT_EQ(event.removed, std::vector<CDtmPrj*>{prj});
    EXPECT_TRUE(event.activeChanged);
    EXPECT_TRUE(event.drawingAlreadyRemoved);
    EXPECT_EQ(lib->GetActive(), nullptr);
    EXPECT_FALSE(prj->IsActive());
    EXPECT_EQ(prj->GetLibDtm(), nullptr);
    EXPECT_EQ(prj->GetContext()->GetChangeTransactionManager(), nullptr);
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "PrjRemoved P", "EndEvent"}));
    EXPECT_FALSE(lib->GetContext()->IsDrawingAlreadyRemoved());
    EXPECT_EQ(alive, 1);
    prj->SubReference();
    EXPECT_EQ(alive, 0);
}

// Several removals in one event: the list keeps their order, the drawing flag is the one the
// last removal passed, and the projects left keep their order.
TEST_F(LibraryTest, RemovalsInOneEventAreListedInOrderWithTheLastDrawingFlag) {
    for (bool lastFlag : {false, true}) {
        SCOPED_TRACE(lastFlag);
        CDtmPrj* a = lib->AddPrj("A", true, false);
        CDtmPrj* b = lib->AddPrj("B", true, false);
        lib->AddPrj("C", true, false);
        recorder.events.clear();
        {
            kor::CEventGuard event(lib->GetContext());
            lib->RemovePrj(b, !lastFlag);
            lib->RemovePrj(a, lastFlag);
        }
        ASSERT_EQ(recorder.events.size(), 1u);
        EXPECT_EQ(recorder.events[0].removed, (std::vector<CDtmPrj*>{b, a}));
        EXPECT_EQ(recorder.events[0].drawingAlreadyRemoved, lastFlag);
        ASSERT_EQ(lib->GetNoPrj(), 1u);
        EXPECT_EQ(lib->GetPrj(0)->GetName(), kor::String("C"));
        lib->RemovePrj(lib->GetPrj(0), false);
    }
}

TEST_F(LibraryTest, ProjectSetsTheModifiedFlagOfTheLibraryThatHoldsIt) {
    CDtmPrj* prj = AddProbe("P");
    lib->SetModifiedFlag(false);
    prj->SetModifiedFlag();
    EXPECT_TRUE(lib->IsModified());
    prj->AddReference();
    lib->RemovePrj(prj, false);
    lib->SetModifiedFlag(false);
    prj->SetModifiedFlag();
    EXPECT_FALSE(lib->IsModified());
    prj->SubReference();
}

TEST_F(LibraryTest, RemovedProjectLivesExactlyUntilTheOutermostEventCloses) {
    CDtmPrj* prj = AddProbe("P");
    AddProbe("Q");
    lib->GetContext()->BeginEvent();
    EXPECT_TRUE(lib->RemovePrj(prj, false));
    EXPECT_EQ(alive, 2);
    EXPECT_EQ(lib->GetNoPrj(), 1u);
    lib->GetContext()->EndEvent();
    EXPECT_EQ(alive, 1);
    // The host listener saw it alive, with only the context's reference on it.
    ASSERT_EQ(recorder.events.size(), 3u);
    EXPECT_EQ(recorder.events[2].removedReferenceCounts, std::vector<int>{1});
}

TEST_F(LibraryTest, ProjectRemovedWhileRecordingIsSuspendedIsDestroyedAtTheClose) {
    CDtmPrj* prj = AddProbe("P");
    tm.SetRecordingSuspended(true);
    listener->log.clear();
    lib->RemovePrj(prj, false);
    EXPECT_EQ(alive, 0);
    EXPECT_TRUE(listener->log.empty());
}

TEST_F(LibraryTest, RemovingAProjectNotInTheLibraryDoesNothing) {
    struct Manager : IDtmPrjManager {
        int& told;
        explicit Manager(int& t) : told(t) {}
        bool CanDeletePrj(CDtmPrj*) override { return true; }
        void OnRemovingPrj(CDtmPrj*) override { ++told; }
    };
    int told = 0;
    lib->SetDtmPrjManager(new Manager(told));
    auto* stranger = new CDtmPrj(nullptr, "X", true, false);
    lib->SetModifiedFlag(false);
    EXPECT_FALSE(lib->RemovePrj(stranger, false));
    EXPECT_EQ(told, 0);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_FALSE(lib->IsModified());
    stranger->SubReference();
    CDtmPrj* member = lib->AddPrj("M", true, false);
    EXPECT_TRUE(lib->RemovePrj(member, false));
    EXPECT_EQ(told, 1);
}

// A host listener that runs a check, or throws, when an event of the library opens.
struct OpeningProbe : kor::CSourceEvent::IEvent {
    std::function<void()> atOpen;
    void OnEventOpened(kor::CSourceEvent&) override { atOpen(); }
    void OnEventClosed(kor::CSourceEvent&) override {}
};

TEST_F(LibraryTest, RemovalTellsTheManagerFirstAndOpensItsEventOnceTheProjectLeft) {
    // A manager that would refuse the deletion: RemovePrj does not ask it.
    struct Manager : IDtmPrjManager {
        CLibDtm& lib;
        unsigned listedWhenTold = 0;
        explicit Manager(CLibDtm& l) : lib(l) {}
        bool CanDeletePrj(CDtmPrj*) override { return false; }
        void OnRemovingPrj(CDtmPrj*) override { listedWhenTold = lib.GetNoPrj(); }
    };
    auto* manager = new Manager(*lib);
    lib->SetDtmPrjManager(manager);
    CDtmPrj* prj = lib->AddPrj("P", true, false);
    lib->AddPrj("Q", true, false);
    lib->SetModifiedFlag(false);
    unsigned listedAtOpen = 0;
    bool modifiedAtOpen = false;
    OpeningProbe probe;
    probe.atOpen = [&] {
        listedAtOpen = lib->GetNoPrj();
        modifiedAtOpen = lib->IsModified();
    };
    lib->GetContext()->Register(&probe);
    EXPECT_TRUE(lib->RemovePrj(prj, false));
    lib->GetContext()->Unregister(&probe);
    EXPECT_EQ(manager->listedWhenTold, 2u);
    EXPECT_EQ(listedAtOpen, 1u);
    EXPECT_TRUE(modifiedAtOpen);
    lib->SetDtmPrjManager(nullptr);
    delete manager;
}

TEST_F(LibraryTest, RemovalWhoseEventCannotOpenLeavesTheProjectInItsPlace) {
    CDtmPrj* first = AddProbe("A");
    AddProbe("B");
    OpeningProbe probe;
    probe.atOpen = [] { throw std::runtime_error("listener failed"); };
    lib->GetContext()->Register(&probe);
    EXPECT_THROW(lib->RemovePrj(first, false), std::runtime_error);
    lib->GetContext()->Unregister(&probe);
    ASSERT_EQ(lib->GetNoPrj(), 2u);
    EXPECT_EQ(lib->GetPrj(0), first);
    EXPECT_EQ(first->GetLibDtm(), lib.get());
    EXPECT_EQ(alive, 2);
    EXPECT_TRUE(lib->RemovePrj(first, false));  // and it can still leave
    EXPECT_EQ(alive, 1);
}

TEST_F(LibraryTest, SetActiveChangesTheProjectBeforeItsEventOpens) {
    CDtmPrj* prj = lib->AddPrj("P", true, false);
    CDtmPrj* activeAtOpen = nullptr;
    OpeningProbe probe;
    probe.atOpen = [&] { activeAtOpen = lib->GetActive(); };
    lib->GetContext()->Register(&probe);
    lib->SetActive(prj, true);
    lib->GetContext()->Unregister(&probe);
    EXPECT_EQ(activeAtOpen, prj);
}

TEST_F(LibraryTest, SetActiveWhoseEventCannotOpenKeepsTheActiveProject) {
    CDtmPrj* prj = lib->AddPrj("P", true, false);
    lib->SetModifiedFlag(false);
    OpeningProbe probe;
    probe.atOpen = [] { throw std::runtime_error("listener failed"); };
    lib->GetContext()->Register(&probe);
    EXPECT_THROW(lib->SetActive(prj, true), std::runtime_error);
    lib->GetContext()->Unregister(&probe);
    EXPECT_EQ(lib->GetActive(), nullptr);
    EXPECT_FALSE(lib->IsModified());
}

TEST_F(LibraryTest, SetActiveWithTheActiveProjectSendsNothingAndKeepsTheFlag) {
    CDtmPrj* prj = lib->AddPrj("P", true, false);
    lib->SetActive(prj, true);
    recorder.events.clear();
    lib->SetModifiedFlag(false);
    lib->SetActive(prj, true);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_FALSE(lib->IsModified());
}

TEST_F(LibraryTest, SilentSetActiveChangesWithoutNotificationButSetsTheFlag) {
    CDtmPrj* prj = lib->AddPrj("P", true, false);
    recorder.events.clear();
    lib->SetModifiedFlag(false);
    lib->SetActive(prj, false);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_TRUE(lib->IsModified());
    EXPECT_EQ(lib->GetActive(), prj);
    EXPECT_TRUE(prj->IsActive());
}

TEST_F(LibraryTest, SetActiveOutsideAnEventIsAnEventWithOnlyTheActiveFlag) {
    CDtmPrj* prj = lib->AddPrj("P", true, false);
    recorder.events.clear();
    lib->SetActive(prj, true);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].activeChanged);
    EXPECT_TRUE(recorder.events[0].added.empty());
    EXPECT_TRUE(recorder.events[0].removed.empty());
    lib->SetActive(nullptr, true);
    EXPECT_EQ(lib->GetActive(), nullptr);
    EXPECT_EQ(recorder.events.size(), 2u);
}

TEST_F(LibraryTest, DestroyingTheLibrarySendsNothingAndReleasesEveryProjectOnce) {
    AddProbe("A");
    CDtmPrj* kept = AddProbe("B");
    kept->AddReference();
    recorder.events.clear();
    // The host's listener stays registered: the library's end must tell it nothing.
    lib.reset();
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(kept->GetLibDtm(), nullptr);
    EXPECT_EQ(kept->GetContext()->GetChangeTransactionManager(), nullptr);
    EXPECT_EQ(kept->GetReferenceCount(), 1);
    kept->SubReference();
    EXPECT_EQ(alive, 0);
}

TEST_F(LibraryTest, GetPrjOutOfRangeThrows) {
    lib->AddPrj("P", true, false);
    EXPECT_NO_THROW(lib->GetPrj(0));
    EXPECT_THROW(lib->GetPrj(1), std::out_of_range);
    EXPECT_THROW(lib->GetPrj(static_cast<unsigned>(-1)), std::out_of_range);
}

TEST_F(LibraryTest, CanDeleteAsksTheManagerWhenThereIsOne) {
    CDtmPrj* prj = lib->AddPrj("P", true, false);
    EXPECT_TRUE(lib->CanDelete(prj));
    struct Refusing : IDtmPrjManager {
        bool CanDeletePrj(CDtmPrj*) override { return false; }
        void OnRemovingPrj(CDtmPrj*) override {}
    };
    lib->SetDtmPrjManager(new Refusing);
    EXPECT_FALSE(lib->CanDelete(prj));
}

// Host objects that count their deletions.
struct CountingProvider : IDtmPointsProvider {
    int& deleted;
    explicit CountingProvider(int& d) : deleted(d) {}
    ~CountingProvider() override { ++deleted; }
};
struct CountingManager : IDtmPrjManager {
    int& deleted;
    explicit CountingManager(int& d) : deleted(d) {}
    ~CountingManager() override { ++deleted; }
    bool CanDeletePrj(CDtmPrj*) override { return true; }
    void OnRemovingPrj(CDtmPrj*) override {}
};

TEST_F(LibraryTest, ReplacedProviderIsDeletedButAReplacedManagerIsKept) {
    int providers = 0, managers = 0;
    auto* first = new CountingProvider(providers);
    lib->SetPointsProvider(first);
    lib->SetPointsProvider(first);  // the same one again is not deleted
    EXPECT_EQ(providers, 0);
    lib->SetPointsProvider(new CountingProvider(providers));
    EXPECT_EQ(providers, 1);
    auto* replaced = new CountingManager(managers);
    lib->SetDtmPrjManager(replaced);
    lib->SetDtmPrjManager(new CountingManager(managers));
    EXPECT_EQ(managers, 0);
    lib.reset();
    EXPECT_EQ(providers, 2);
    EXPECT_EQ(managers, 1);
    delete replaced;  // the host's to delete
}

TEST_F(LibraryTest, ReservedPointerIsStoredAndReturned) {
    int datum = 0;
    lib->SetReserved(&datum);
    EXPECT_EQ(lib->GetReserved(), &datum);
    EXPECT_EQ(static_cast<CLibDtmChangeContext*>(*lib), lib->GetContext());
    EXPECT_EQ(lib->GetContext()->GetLibDtm(), lib.get());
    EXPECT_EQ(lib->GetChangeTransactionManager(), &tm);
}

TEST_F(LibraryTest, RenamingDuringAddIsReportedToTheProjectContext) {
    lib->AddPrj("P", true, false);
    auto* prj = new CDtmPrj(nullptr, "p", true, false);
    dtm_test::ProjectEventRecorder projectRecorder;
    prj->GetContext()->Register(&projectRecorder);
    lib->AddPrj(prj);
    ASSERT_EQ(projectRecorder.events.size(), 1u);
    EXPECT_TRUE(projectRecorder.events[0].prjModified);
    prj->GetContext()->Unregister(&projectRecorder);
}

TEST_F(LibraryTest, DirectNotificationsRecordListsAndFlags) {
    auto* prj = new CDtmPrj(nullptr, "X", true, false);
    LibDtmChangeContextTestAccess notify{*lib->GetContext()};
    {
        kor::CEventGuard event(lib->GetContext());
        notify.PrjAdded(prj);
        notify.PrjChangeActive(nullptr);
        EXPECT_EQ(lib->GetContext()->GetPrjAdded(), std::vector<CDtmPrj*>{prj});
        EXPECT_TRUE(lib->GetContext()->IsActivePrjChanged());
    }
    EXPECT_TRUE(lib->GetContext()->GetPrjAdded().empty());
    EXPECT_FALSE(lib->GetContext()->IsActivePrjChanged());
    // Removal hands the caller's reference to the context, which releases it at the close.
    notify.PrjRemoved(prj, true);
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_TRUE(recorder.events[1].drawingAlreadyRemoved);
}

}  // namespace
