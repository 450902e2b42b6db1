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
    ASSERT_EQ(tm.GetUndoCount(), 2u);
    {
        kor::CEventGuard event(lib.GetContext());
        CDtmPrj* second = lib.AddPrj("Beta", true, false);
        lib.SetActive(second, true);
    }
    ASSERT_EQ(tm.GetUndoCount(), 3u);
    EXPECT_TRUE(tm.Undo());
    EXPECT_EQ(Names(lib), std::vector<std::string>{"Alfa"});
    EXPECT_EQ(lib.GetActive(), first);
    EXPECT_EQ(tm.GetUndoCount(), 2u);  // undoing recorded nothing new
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

TEST(LibraryUndo, EventThatChangedNothingFilesNoCommand) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* a = lib.AddPrj("A", true, false);
    const auto before = tm.GetUndoCount();
    { kor::CEventGuard event(lib.GetContext()); }
    lib.SetActive(a, true);
    lib.SetActive(nullptr, true);  // back to where it was, in a second event
    EXPECT_EQ(tm.GetUndoCount(), before + 2);
    {
        kor::CEventGuard event(lib.GetContext());
        lib.SetActive(a, true);
        lib.SetActive(nullptr, true);  // net effect nothing
    }
    EXPECT_EQ(tm.GetUndoCount(), before + 2);
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
