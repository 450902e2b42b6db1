#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtm.h>
#include <dtm/project/CLibDtmChangeContext.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Probes.h"

namespace {

std::vector<std::string> Names(const CLibDtm& lib) {
    std::vector<std::string> names;
    for (unsigned i = 0; i < lib.GetNoPrj(); ++i) names.push_back(lib.GetPrj(i)->GetName().str());
    return names;
}

TEST(LibraryUndo, UndoOfAddingRemovesTheProjectAndRestoresTheActiveOne) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* first = lib.AddPrj("Alfa", true, false);
    lib.SetActive(first, true);
    ASSERT_EQ(tm.GetUndoCount(), 1u);
    {
        kor::CEventGuard event(lib.GetContext());
        CDtmPrj* second = lib.AddPrj("Beta", true, false);
        lib.SetActive(second, true);
    }
    ASSERT_EQ(tm.GetUndoCount(), 2u);
    EXPECT_TRUE(tm.Undo());
    EXPECT_EQ(Names(lib), std::vector<std::string>{"Alfa"});
    EXPECT_EQ(lib.GetActive(), first);
    EXPECT_EQ(tm.GetUndoCount(), 1u);  // undoing recorded nothing new
    EXPECT_TRUE(tm.Redo());
    EXPECT_EQ(Names(lib), (std::vector<std::string>{"Alfa", "Beta"}));
    EXPECT_EQ(lib.GetActive()->GetName(), kor::String("Beta"));
}

TEST(LibraryUndo, RedoAddsAgainUnderANameMadeUniqueAtThatMoment) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    lib.AddPrj("Rilievo", true, false);
    tm.Undo();
    EXPECT_EQ(lib.GetNoPrj(), 0u);
    // Another project takes the name meanwhile (outside recording, so the redo stays).
    tm.SetRecordingSuspended(true);
    lib.AddPrj("RILIEVO", true, false);
    tm.SetRecordingSuspended(false);
    ASSERT_TRUE(tm.CanRedo());
    tm.Redo();
    EXPECT_EQ(Names(lib), (std::vector<std::string>{"RILIEVO", "Rilievo (2)"}));
}

TEST(LibraryUndo, AlternatingUndoAndRedoLeavesTheSameStatesAlternately) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* a = lib.AddPrj("A", true, false);
    CDtmPrj* b = lib.AddPrj("B", true, false);
    lib.SetActive(b, true);
    lib.RemovePrj(b, false);  // active b removed: one event, one command
    const auto after = Names(lib);
    ASSERT_EQ(after, std::vector<std::string>{"A"});
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(tm.Undo());
        EXPECT_EQ(Names(lib), (std::vector<std::string>{"A", "B"}));
        EXPECT_EQ(lib.GetActive(), b);
        ASSERT_TRUE(tm.Redo());
        EXPECT_EQ(Names(lib), after);
        EXPECT_EQ(lib.GetActive(), nullptr);
    }
    EXPECT_EQ(a->GetLibDtm(), &lib);
}

TEST(LibraryUndo, ApplyingMakesTheRememberedProjectActiveBeforeAnyRemoval) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* first = lib.AddPrj("Alfa", true, false);
    lib.SetActive(first, true);
    CDtmPrj* second = nullptr;
    {
        kor::CEventGuard event(lib.GetContext());
        second = lib.AddPrj("Beta", true, false);
        lib.SetActive(second, true);
    }
    dtm_test::LibraryEventRecorder recorder;
    lib.GetContext()->Register(&recorder);
    ASSERT_TRUE(tm.Undo());
    lib.GetContext()->Unregister(&recorder);
    // First the active project goes back, then Beta leaves as a project that is not active.
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_TRUE(recorder.events[0].activeChanged);
    EXPECT_TRUE(recorder.events[0].removed.empty());
    EXPECT_EQ(recorder.events[1].removed, std::vector<CDtmPrj*>{second});
    EXPECT_FALSE(recorder.events[1].activeChanged);
    EXPECT_EQ(lib.GetActive(), first);
}

TEST(LibraryUndo, ProjectGivenBackWhileItsNameIsTakenIsRenamedThoughTheHolderLeaves) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* original = lib.AddPrj("Rilievo", true, false);
    {
        kor::CEventGuard event(lib.GetContext());
        lib.RemovePrj(original, false);
        lib.AddPrj("Rilievo", true, false);
    }
    ASSERT_TRUE(tm.Undo());
    // The original comes back while the newer project still holds the name.
    EXPECT_EQ(Names(lib), std::vector<std::string>{"Rilievo (2)"});
    EXPECT_EQ(lib.GetPrj(0), original);
    ASSERT_TRUE(tm.Redo());
    EXPECT_EQ(Names(lib), std::vector<std::string>{"Rilievo"});
    EXPECT_NE(lib.GetPrj(0), original);
}

TEST(LibraryUndo, EventThatChangedNothingFilesNoCommand) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* a = lib.AddPrj("A", true, false);
    const auto before = tm.GetUndoCount();
    { kor::CEventGuard event(lib.GetContext()); }
    {
        kor::CEventGuard event(lib.GetContext());
        lib.SetActive(a, true);
        lib.SetActive(nullptr, true);  // net effect nothing
    }
    EXPECT_EQ(tm.GetUndoCount(), before);
}

TEST(LibraryUndo, ActiveChangeIsUndoneOnlyWhenTheHostMadeItInsideAnEvent) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* a = lib.AddPrj("A", true, false);
    CDtmPrj* b = lib.AddPrj("B", true, false);
    const auto before = tm.GetUndoCount();
    // On its own the change opens its event already made: the step would see no change.
    lib.SetActive(a, true);
    EXPECT_EQ(tm.GetUndoCount(), before);
    {
        kor::CEventGuard event(lib.GetContext());
        lib.SetActive(b, true);
    }
    ASSERT_EQ(tm.GetUndoCount(), before + 1);
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(lib.GetActive(), a);
    ASSERT_TRUE(tm.Redo());
    EXPECT_EQ(lib.GetActive(), b);
}

TEST(LibraryUndo, SuspendedRecordingFilesNothingAndRemovedProjectDies) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    int alive = 0;
    auto* prj = new dtm_test::ProbePrj(alive, &lib, "P");
    tm.SetRecordingSuspended(true);
    lib.AddPrj(prj);
    lib.RemovePrj(prj, false);
    EXPECT_EQ(tm.GetUndoCount(), 0u);
    EXPECT_EQ(alive, 0);
}

TEST(LibraryUndo, CommandKeepsARemovedProjectAliveUntilItIsDropped) {
    int alive = 0;
    kor::CChangeTransactionManager tm;
    {
        CLibDtm lib(&tm);
        auto* prj = new dtm_test::ProbePrj(alive, &lib, "P");
        lib.AddPrj(prj);
        lib.RemovePrj(prj, false);
        EXPECT_EQ(alive, 1);
        tm.Clear();
        EXPECT_EQ(alive, 0);
    }
}

TEST(LibraryUndo, LibraryWithoutManagerRecordsNothing) {
    CLibDtm lib(nullptr);
    lib.AddPrj("A", true, false);
    EXPECT_EQ(lib.GetNoPrj(), 1u);
}

}  // namespace
