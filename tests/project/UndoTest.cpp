// Undo and redo of project events: each case checks the state before the event after undo and
// the state after it after redo, compared field by field (ProjectState), or that no step is
// filed at all.

#include <dtm/boundaries/CCnt.h>
#include <dtm/boundaries/CCnts.h>
#include <dtm/breaklines/CVnc.h>
#include <dtm/breaklines/CVncs.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CDtmPrjOpz.h>
#include <dtm/project/CLibDtm.h>
#include <dtm/project/TDtmOpz.h>

#include "project/CDtmCmdExecuted.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

#include "Probes.h"
#include "ProjectState.h"

namespace {

using kor::CRefPtr;
using kor::geom::LINE_3D;
using kor::geom::PNT_3D;

LINE_3D Segment(double x0, double y0, double x1, double y1) {
    return LINE_3D(PNT_3D(x0, y0, 1.0), PNT_3D(x1, y1, 2.0));
}

std::vector<PNT_3D> Ring(double x, double y) {
    return {PNT_3D(x, y, 0.0), PNT_3D(x + 4.0, y, 0.5), PNT_3D(x + 2.0, y + 3.0, 1.0)};
}

CCvLv* AddLine(CCvLvs& lines, double elevation, double x0) {
    const double x[] = {x0, x0 + 10.0, x0 + 20.0, x0 + 30.0};
    const double y[] = {0.0, 5.0, 0.0, 5.0};
    return lines.AddNewCvLv(elevation, 1.0, 3, 4, x, y);
}

/// A library with one active project, whose network holds four vertices and two triangles.
class UndoTest : public ::testing::Test {
protected:
    UndoTest() : lib(std::make_unique<CLibDtm>(&tm)) {
        prj = lib->AddPrj("Rilievo", true, false);
        lib->SetActive(prj, true);
        kor::CEventGuard event(prj->GetContext());
        Tris().AddTriVrt(PNT_3D(0.0, 0.0, 10.0));
        Tris().AddTriVrt(PNT_3D(10.0, 0.0, 12.0));
        Tris().AddTriVrt(PNT_3D(10.0, 10.0, 14.0));
        Tris().AddTriVrt(PNT_3D(0.0, 10.0, 16.0));
        Tris().AddNewTri(1, 0, 1, 2);
        Tris().AddNewTri(2, 0, 2, 3);
    }

    CTris& Tris() { return *prj->GetTris(); }
    CVncs& Vncs() { return *prj->GetVncs(); }
    CCnts& Cnts(bool internal) { return *prj->GetCnts(internal); }
    CCvLvs& Lines() { return *prj->GetCvLvs(); }
    dtm_test::ProjectState State() { return dtm_test::CaptureProject(*prj); }

    template <class Change>
    void InOneEvent(Change& change) {
        kor::CEventGuard event(prj->GetContext());
        change();
    }

    /// Runs @p change as one event and checks that it filed one step, that undo gives back the
    /// state from before it and redo the state after it, alternately, three times over.
    template <class Change>
    void ExpectExactUndo(Change change) {
        const auto before = State();
        const auto stepsBefore = tm.GetUndoCount();
        InOneEvent(change);
        const auto after = State();
        ASSERT_EQ(tm.GetUndoCount(), stepsBefore + 1) << "the event filed no single step";
        for (int round = 0; round < 3; ++round) {
            SCOPED_TRACE(round);
            ASSERT_TRUE(tm.Undo());
            EXPECT_EQ(dtm_test::FirstDifference(before, State()), "");
            ASSERT_TRUE(tm.Redo());
            EXPECT_EQ(dtm_test::FirstDifference(after, State()), "");
        }
        EXPECT_EQ(tm.GetUndoCount(), stepsBefore + 1) << "applying a step filed another";
    }

    /// Runs @p change outside any event, where each notification is an event of its own,
    /// and checks that undoing every step it filed gives back the state from before it, and
    /// redoing them the state after it.
    template <class Change>
    void ExpectUndoneStepByStep(Change change) {
        const auto before = State();
        const auto stepsBefore = tm.GetUndoCount();
        change();
        const auto after = State();
        const auto steps = tm.GetUndoCount() - stepsBefore;
        ASSERT_GE(steps, 1u);
        for (int round = 0; round < 2; ++round) {
            for (std::size_t i = 0; i < steps; ++i) ASSERT_TRUE(tm.Undo());
            EXPECT_EQ(dtm_test::FirstDifference(before, State()), "");
            for (std::size_t i = 0; i < steps; ++i) ASSERT_TRUE(tm.Redo());
            EXPECT_EQ(dtm_test::FirstDifference(after, State()), "");
        }
    }

    /// Runs @p change as one event that leaves the project as it was, and checks that the
    /// event still filed one step, which undo and redo apply without changing anything, and
    /// that filing it dropped the step that could be redone.
    template <class Change>
    void ExpectStepChangingNothing(Change change) {
        Vncs().AddNewVnc(Segment(7, 7, 8, 8));
        ASSERT_TRUE(tm.Undo());
        const auto before = State();
        ExpectExactUndo(change);
        EXPECT_EQ(dtm_test::FirstDifference(before, State()), "");
        EXPECT_FALSE(tm.CanRedo()) << "the undone breakline can still be redone";
    }

    /// Runs @p change as one event and checks that it filed nothing.
    template <class Change>
    void ExpectNoStep(Change change) {
        const auto stepsBefore = tm.GetUndoCount();
        InOneEvent(change);
        EXPECT_EQ(tm.GetUndoCount(), stepsBefore);
    }

    kor::CChangeTransactionManager tm;
    std::unique_ptr<CLibDtm> lib;
    CDtmPrj* prj = nullptr;
};

// Bad input ------------------------------------------------------------------------------------

TEST(UndoStacks, UndoAndRedoOnEmptyStacksReportFalseAndChangeNothing) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    tm.SetRecordingSuspended(true);
    lib.AddPrj("A", true, false);
    tm.SetRecordingSuspended(false);
    const auto before = dtm_test::CaptureLibrary(lib);
    EXPECT_FALSE(tm.Undo());
    EXPECT_FALSE(tm.Redo());
    EXPECT_EQ(dtm_test::FirstDifference(before, dtm_test::CaptureLibrary(lib)), "");
}

TEST_F(UndoTest, UndoingEverythingThenOnceMoreReportsFalse) {
    while (tm.Undo()) {
    }
    EXPECT_EQ(lib->GetNoPrj(), 0u);
    EXPECT_FALSE(tm.Undo());
    while (tm.Redo()) {
    }
    EXPECT_FALSE(tm.Redo());
    ASSERT_EQ(lib->GetNoPrj(), 1u);
    EXPECT_EQ(Tris().GetNoTris(), 2);
}

TEST_F(UndoTest, CommandOfAProjectThatLeftTheLibraryStillApplies) {
    CVnc* vnc = Vncs().AddNewVnc(Segment(0, 0, 1, 1));
    vnc->SetCoords(Segment(5, 5, 6, 6));
    const auto before = State();
    Tris().SetTriVrtAt(1, PNT_3D(11.0, 1.0, 13.0));
    Tris().RemoveTriAt(0);
    // The project leaves the library behind the manager's back: its steps stay in the stack.
    auto keep = CRefPtr<CDtmPrj>::Share(prj);
    tm.SetRecordingSuspended(true);
    lib->RemovePrj(prj, false);
    tm.SetRecordingSuspended(false);
    ASSERT_TRUE(tm.Undo());
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(dtm_test::FirstDifference(before, State()), "");
    // Changed behind the steps' back as well: replaying stays within the arrays.
    prj->GetTris()->RemoveAll();
    EXPECT_TRUE(tm.Redo());
    EXPECT_TRUE(tm.Redo());
    EXPECT_TRUE(tm.Undo());
    EXPECT_EQ(Tris().GetNoTriVrts(), 0);
}

// Reconciliation within one event -----------------------------------------------------------

TEST_F(UndoTest, EntitiesAddedAndRemovedInOneEventFileAStepThatChangesNothing) {
    AddLine(Lines(), 11.0, 40.0);
    // Within the ranges the network and the contour lines already have, which the additions
    // would otherwise widen for good.
    ExpectStepChangingNothing([this] {
        Vncs().RemoveVnc(Vncs().AddNewVnc(Segment(0, 0, 1, 1)));
        for (bool internal : {true, false}) {
            auto cnt = CRefPtr<CCnt>::Adopt(new CCnt);
            cnt->SetRealVrts(Ring(0, 0));
            Cnts(internal).AddCnt(cnt.Get());
            cnt->SetRealVrts(Ring(1, 1));
            Cnts(internal).RemoveCnt(cnt.Get());
        }
        Tris().AddTriVrt(PNT_3D(20.0, 20.0, 12.0));
        CTri* tri = Tris().AddNewTri(4, 1, 2, 4);
        tri->SetColor(&Tris(), 5);
        Tris().RemoveTri(tri);
        Tris().RemoveTriVrt(4);
        CCvLv* line = AddLine(Lines(), 11.0, 0.0);
        line->SetColor(9);
        Lines().RemoveCvLv(line);
    });
}

TEST_F(UndoTest, ContourLineAddedAndRemovedInOneEventLeavesOnlyItsRange) {
    // The collection keeps the range a removed line widened; undo puts that back exactly too.
    ExpectExactUndo([this] { Lines().RemoveCvLv(AddLine(Lines(), 50.0, 0.0)); });
}

TEST_F(UndoTest, BreaklineRemovedChangedAndAddedBackIsRestoredBothWays) {
    CVnc* vnc = Vncs().AddNewVnc(Segment(0, 0, 1, 1));
    Vncs().AddNewVnc(Segment(2, 2, 3, 3));
    ExpectExactUndo([this, vnc] {
        auto held = CRefPtr<CVnc>::Share(vnc);
        Vncs().RemoveVnc(vnc);
        vnc->SetCoords(Segment(7, 7, 8, 8));
        Vncs().AddVnc(vnc);
    });
}

// Redo adds back what the event added in the order of its last addition, not in the order
// the entities were first met: the breakline added first and then removed and added back
// again ends up after the other.
TEST_F(UndoTest, AdditionsComeBackInTheOrderTheyWereLastMade) {
    ExpectExactUndo([this] {
        CVnc* first = Vncs().AddNewVnc(Segment(0, 0, 1, 1));
        Vncs().AddNewVnc(Segment(2, 2, 3, 3));
        auto held = CRefPtr<CVnc>::Share(first);
        Vncs().RemoveVnc(first);
        Vncs().AddVnc(first);
    });
    ASSERT_EQ(Vncs().GetNoVncs(), 2);
    EXPECT_EQ(Vncs().GetVncAt(1)->GetCoords().start.x, 0.0);
}

// Removing every breakline outside an event files one step per breakline, as removing them one
// by one would; undone one by one they come back in their first order. Inside the host's event
// the whole removal is one step.
TEST_F(UndoTest, RemovingEveryBreaklineIsAStepEachOutsideAnEventAndOneStepInside) {
    for (double x : {0.0, 2.0, 4.0}) Vncs().AddNewVnc(Segment(x, x, x + 1, x + 1));
    const auto stepsBefore = tm.GetUndoCount();
    ExpectUndoneStepByStep([this] { Vncs().RemoveAllVncs(); });
    EXPECT_EQ(tm.GetUndoCount(), stepsBefore + 3);
    ASSERT_TRUE(tm.Undo());
    ASSERT_TRUE(tm.Undo());
    ASSERT_TRUE(tm.Undo());
    ASSERT_EQ(Vncs().GetNoVncs(), 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Vncs().GetVncAt(i)->GetCoords().start.x, 2.0 * i);
    ExpectExactUndo([this] { Vncs().RemoveAllVncs(); });
}

TEST_F(UndoTest, ContourLineRemovedAddedBackAndChangedIsRestoredBothWays) {
    // Once added back, the line's change mark hides its later changes from the listener.
    CCvLv* line = AddLine(Lines(), 12.0, 0.0);
    ExpectExactUndo([this, line] {
        auto held = CRefPtr<CCvLv>::Share(line);
        Lines().RemoveCvLv(line);
        Lines().AddCvLv(line);
        line->SetColor(40);
        line->ChangeSigmaTension(3.0);
        line->AddInterval(1.0, 2.0, 0);
    });
}

TEST_F(UndoTest, BoundaryMovedToTheOtherGroupIsRestoredBothWays) {
    auto cnt = CRefPtr<CCnt>::Adopt(new CCnt);
    cnt->SetRealVrts(Ring(0, 0));
    Cnts(true).AddCnt(cnt.Get());
    ExpectExactUndo([this, &cnt] {
        Cnts(true).RemoveCnt(cnt.Get());
        Cnts(false).AddCnt(cnt.Get());
        cnt->SetRealVrts(Ring(3, 3));
    });
    EXPECT_FALSE(cnt->IsInternal());
    ASSERT_TRUE(tm.Undo());
    EXPECT_TRUE(cnt->IsInternal());
}

TEST_F(UndoTest, EntitiesTouchedWithoutChangeFileAStepThatChangesNothing) {
    CVnc* vnc = Vncs().AddNewVnc(Segment(0, 0, 1, 1));
    auto cnt = CRefPtr<CCnt>::Adopt(new CCnt);
    cnt->SetRealVrts(Ring(0, 0));
    Cnts(false).AddCnt(cnt.Get());
    CCvLv* line = AddLine(Lines(), 12.0, 0.0);
    line->AddInterval(1.0, 3.0, 0);
    ExpectStepChangingNothing([&] {
        vnc->SetCoords(vnc->GetCoords());
        cnt->SetRealVrts(Ring(0, 0));
        Tris().GetTriAt(0)->SetColor(&Tris(), Tris().GetTriAt(0)->GetColor());
        line->ChangeIntervalDimension(0, 1.0, 3.0);
        // Visibility is not part of a line's memento: no step could restore it.
        line->SetVisible(false);
    });
    ExpectStepChangingNothing([&] {
        vnc->SetCoords(Segment(9, 9, 9, 9));
        vnc->SetCoords(Segment(0, 0, 1, 1));
    });
}

TEST_F(UndoTest, EventsThatChangeNothingStillFileAStep) {
    ExpectStepChangingNothing([] {});
    TDtmOpz options;
    options.GetFromPrj(prj);
    ExpectStepChangingNothing([&] { options.SetToPrj(prj); });
    ExpectStepChangingNothing([this] { prj->SetName("Rilievo"); });
    // Clearing contour lines when there are none: an event of its own, empty.
    ASSERT_EQ(Lines().GetNoCvLvs(), 0u);
    ExpectStepChangingNothing([this] { Lines().RemoveAllCvLvs(); });
    // A vertex appended and taken back, a vertex moved and moved back.
    ExpectStepChangingNothing([this] {
        Tris().SetTriVrtAt(2, PNT_3D(3.0, 3.0, 3.0));
        Tris().SetTriVrtAt(2, PNT_3D(10.0, 10.0, 14.0));
    });
}

// Alternation ---------------------------------------------------------------------------------

TEST_F(UndoTest, UndoAndRedoAlternateAnyNumberOfTimesOnEveryKind) {
    CVnc* vnc = Vncs().AddNewVnc(Segment(0, 0, 1, 1));
    auto cnt = CRefPtr<CCnt>::Adopt(new CCnt);
    cnt->SetRealVrts(Ring(0, 0));
    Cnts(true).AddCnt(cnt.Get());
    CCvLv* line = AddLine(Lines(), 12.0, 0.0);
    ExpectExactUndo([&] {
        vnc->SetCoords(Segment(4, 4, 5, 5));
        {
            CCntModifier modifier(cnt.Get());
            modifier.MovePoint(2, PNT_3D(9.0, 9.0, 9.0));
        }
        Tris().GetTriAt(0)->SetColor(&Tris(), 77);
        Tris().GetTriAt(1)->SetVerIndexes(&Tris(), 1, 2, 3);
        {
            CCvLvModifier modifier(line);
            modifier.MoveNode(1, 11.0, 7.0);
        }
        line->SetColor(5);
    });
}

// Changes outside any event -----------------------------------------------------------------
//
// Outside an event every notification is an event of its own. Modifying notifications close
// their event, and so file their step, before the change is made; several setters store their
// value before they notify, so their event opens on the new value.

TEST_F(UndoTest, ModificationsAnnouncedBeforeTheyHappenAreUndoneOneByOne) {
    auto cnt = CRefPtr<CCnt>::Adopt(new CCnt);
    cnt->SetRealVrts(Ring(0, 0));
    Cnts(false).AddCnt(cnt.Get());
    CCvLv* line = AddLine(Lines(), 12.0, 0.0);
    ExpectUndoneStepByStep([this] { Tris().GetTriAt(0)->SetColor(&Tris(), 99); });
    ExpectUndoneStepByStep([this] { Tris().GetTriAt(1)->SetVerIndexes(&Tris(), 3, 1, 0); });
    ExpectUndoneStepByStep([&cnt] { cnt->SetRealVrts(Ring(6, 6)); });
    ExpectUndoneStepByStep([&cnt] { cnt->AppendVrt(PNT_3D(1.0, 2.0, 3.0)); });
    ExpectUndoneStepByStep([line] {
        CCvLvModifier modifier(line);
        modifier.MoveNode(2, 25.0, 9.0);
    });
}

TEST_F(UndoTest, AdditionsThatWidenTheRangeBeforeTheyNotifyAreUndone) {
    ExpectUndoneStepByStep([this] { Tris().AddTriVrt(PNT_3D(5.0, 5.0, 99.0)); });
    ExpectUndoneStepByStep([this] { AddLine(Lines(), -20.0, 0.0); });
}

TEST_F(UndoTest, OptionSettersInsideAnEventOfTheHostAreUndone) {
    const auto inEvent = [this](auto&& change) {
        return [this, change] {
            kor::CEventGuard event(prj->GetContext());
            change();
        };
    };
    ExpectUndoneStepByStep(inEvent([this] { prj->SetVncActive(false); }));
    ExpectUndoneStepByStep(inEvent([this] { prj->SetCntActive(7, false); }));
    ExpectUndoneStepByStep(inEvent([this] { prj->SetVisOptions(false, false, true, 3, 4, 5); }));
    ExpectUndoneStepByStep(inEvent([this] { Tris().SetVisOptions(false); }));
    ExpectUndoneStepByStep(inEvent([this] { Tris().SetTextOptions(2.5); }));
}

TEST_F(UndoTest, OptionSetterFilesAStepAndTheStepBeforeItPutsTheOptionBack) {
    // The setter stores before its report opens the event: the setter's own step keeps the new
    // value, and the step before it the value it began with.
    const bool before = prj->GetPrjOpz().IsVncActive();
    const double textHeight = Tris().GetOptions().GetTextHeight();
    const auto breaklines = Vncs().GetNoVncs();
    Vncs().AddNewVnc(Segment(0, 0, 5, 5));
    const auto steps = tm.GetUndoCount();
    prj->SetVncActive(!before);
    Tris().SetTextOptions(textHeight + 2.5);
    EXPECT_EQ(tm.GetUndoCount(), steps + 2);
    const auto expect = [&](std::size_t breaklinesNow, bool active, double height) {
        EXPECT_EQ(Vncs().GetNoVncs(), breaklinesNow);
        EXPECT_EQ(prj->GetPrjOpz().IsVncActive(), active);
        EXPECT_EQ(Tris().GetOptions().GetTextHeight(), height);
    };
    ASSERT_TRUE(tm.Undo());  // the text's own step began with the new height
    expect(breaklines + 1, !before, textHeight + 2.5);
    ASSERT_TRUE(tm.Undo());  // the flag's own step began before the text changed
    expect(breaklines + 1, !before, textHeight);
    ASSERT_TRUE(tm.Undo());  // the breakline's step began before both
    expect(breaklines, before, textHeight);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(tm.Redo());
    expect(breaklines + 1, !before, textHeight + 2.5);
}

TEST_F(UndoTest, OptionsStoredWithoutAnEventStayWhenALaterStepIsUndone) {
    const short colour = prj->GetPrjOpz().GetVncColor();
    prj->GetPrjOpz().SetVncColor(static_cast<short>(colour + 1));  // a plain store
    const auto breaklines = Vncs().GetNoVncs();
    Vncs().AddNewVnc(Segment(0, 0, 5, 5));
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(Vncs().GetNoVncs(), breaklines);
    EXPECT_EQ(prj->GetPrjOpz().GetVncColor(), colour + 1);
    ASSERT_TRUE(tm.Redo());
    EXPECT_EQ(prj->GetPrjOpz().GetVncColor(), colour + 1);
}

TEST_F(UndoTest, OptionsStoredWithoutAnEventAfterAStepGoBackWhenItIsUndone) {
    // A step puts back the options its event began with, whatever changed them since.
    const short colour = prj->GetPrjOpz().GetVncColor();
    Vncs().AddNewVnc(Segment(0, 0, 5, 5));
    prj->GetPrjOpz().SetVncColor(static_cast<short>(colour + 1));  // a plain store
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(prj->GetPrjOpz().GetVncColor(), colour);
    ASSERT_TRUE(tm.Redo());
    EXPECT_EQ(prj->GetPrjOpz().GetVncColor(), colour + 1);
}

// Undoing an addition removes the added entities, or, when they are as many as the collection
// now holds, empties the collection without looking them up: the two sets are taken to be the
// same. A change the steps never saw can thus take another entity with them.
TEST_F(UndoTest, UndoingAnAdditionEmptiesACollectionOfAsManyEntities) {
    CVnc* vnc = Vncs().AddNewVnc(Segment(0, 0, 1, 1));
    auto held = CRefPtr<CVnc>::Share(vnc);
    tm.SetRecordingSuspended(true);
    Vncs().RemoveVnc(vnc);
    Vncs().AddNewVnc(Segment(5, 5, 6, 6));
    tm.SetRecordingSuspended(false);
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(Vncs().GetNoVncs(), 0);
    ASSERT_TRUE(tm.Redo());
    ASSERT_EQ(Vncs().GetNoVncs(), 1);
    EXPECT_EQ(Vncs().GetVncAt(0), vnc);
}

TEST_F(UndoTest, UndoingAnAdditionEmptiesABoundaryGroupOfAsManyBoundaries) {
    auto cnt = CRefPtr<CCnt>::Adopt(new CCnt);
    cnt->SetRealVrts(Ring(0, 0));
    Cnts(false).AddCnt(cnt.Get());
    tm.SetRecordingSuspended(true);
    Cnts(false).RemoveCnt(cnt.Get());
    auto other = CRefPtr<CCnt>::Adopt(new CCnt);
    other->SetRealVrts(Ring(5, 5));
    Cnts(false).AddCnt(other.Get());
    tm.SetRecordingSuspended(false);
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(Cnts(false).GetNoCnts(), 0);
    ASSERT_TRUE(tm.Redo());
    ASSERT_EQ(Cnts(false).GetNoCnts(), 1);
    EXPECT_EQ(Cnts(false).GetCntAt(0), cnt.Get());
}

TEST_F(UndoTest, UndoingAnAdditionEmptiesAContourCollectionOfAsManyLines) {
    CCvLv* line = AddLine(Lines(), 10.0, 0.0);
    auto held = CRefPtr<CCvLv>::Share(line);
    tm.SetRecordingSuspended(true);
    Lines().RemoveCvLv(line);
    AddLine(Lines(), 20.0, 40.0);
    tm.SetRecordingSuspended(false);
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(Lines().GetNoCvLvs(), 0u);
    ASSERT_TRUE(tm.Redo());
    ASSERT_EQ(Lines().GetNoCvLvs(), 1u);
    EXPECT_EQ(Lines().GetCvLvAt(0), line);
}

// The host sees an undo or a redo as one ordinary event of the project.
TEST_F(UndoTest, ApplyingAStepIsOneEventForTheHost) {
    CVnc* a = nullptr;
    CVnc* b = nullptr;
    CTri* first = Tris().GetTriAt(0);
    {
        kor::CEventGuard event(prj->GetContext());
        a = Vncs().AddNewVnc(Segment(0, 0, 1, 1));
        b = Vncs().AddNewVnc(Segment(2, 2, 3, 3));
        first->SetColor(&Tris(), 77);
    }
    dtm_test::ProjectEventRecorder recorder;
    prj->GetContext()->Register(&recorder);
    const auto sameSet = [](std::vector<CVnc*> listed, std::vector<CVnc*> expected) {
        std::sort(listed.begin(), listed.end());
        std::sort(expected.begin(), expected.end());
        return listed == expected;
    };
    ASSERT_TRUE(tm.Undo());
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(sameSet(recorder.events[0].vncRemoved, {a, b}));
    const auto& modified = recorder.events[0].triModified;
    EXPECT_NE(std::find(modified.begin(), modified.end(), first), modified.end());
    EXPECT_EQ(first->GetColor(), 1);
    ASSERT_TRUE(tm.Redo());
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_TRUE(sameSet(recorder.events[1].vncAdded, {a, b}));
    EXPECT_EQ(first->GetColor(), 77);
    prj->GetContext()->Unregister(&recorder);
}

// Whether an event is recorded is settled when it opens, on the library as on a project.
TEST_F(UndoTest, RecordingSuspendedInsideAnOpenEventStillFilesThatEvent) {
    const auto steps = tm.GetUndoCount();
    const int breaklines = Vncs().GetNoVncs();
    {
        kor::CEventGuard event(prj->GetContext());
        Vncs().AddNewVnc(Segment(0, 0, 1, 1));
        tm.SetRecordingSuspended(true);
        Vncs().AddNewVnc(Segment(2, 2, 3, 3));
        tm.SetRecordingSuspended(false);
    }
    ASSERT_EQ(tm.GetUndoCount(), steps + 1);
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(Vncs().GetNoVncs(), breaklines);
}

TEST_F(UndoTest, RecordingResumedInsideAnOpenEventFilesNothingForThatEvent) {
    const auto steps = tm.GetUndoCount();
    tm.SetRecordingSuspended(true);
    {
        kor::CEventGuard event(prj->GetContext());
        Vncs().AddNewVnc(Segment(0, 0, 1, 1));
        tm.SetRecordingSuspended(false);
        Vncs().AddNewVnc(Segment(2, 2, 3, 3));
    }
    EXPECT_EQ(tm.GetUndoCount(), steps);
    EXPECT_EQ(Vncs().GetNoVncs(), 2);
}

TEST_F(UndoTest, LibraryEventKeepsTheRecordingChosenWhenItOpened) {
    const auto steps = tm.GetUndoCount();
    {
        kor::CEventGuard event(lib->GetContext());
        lib->AddPrj("A", true, false);
        tm.SetRecordingSuspended(true);
        lib->AddPrj("B", true, false);
        tm.SetRecordingSuspended(false);
    }
    ASSERT_EQ(tm.GetUndoCount(), steps + 1);
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(lib->GetNoPrj(), 1u);
    tm.SetRecordingSuspended(true);
    {
        kor::CEventGuard event(lib->GetContext());
        lib->AddPrj("C", true, false);
        tm.SetRecordingSuspended(false);
    }
    EXPECT_EQ(tm.GetUndoCount(), steps);
    EXPECT_EQ(lib->GetNoPrj(), 2u);
}

// Network -------------------------------------------------------------------------------------

TEST_F(UndoTest, VerticesAndTrianglesAddedInTheEventAreTakenOutAndPutBack) {
    ExpectExactUndo([this] {
        Tris().AddTriVrt(PNT_3D(20.0, 0.0, 40.0));
        Tris().AddTriVrt(PNT_3D(20.0, 10.0, -5.0));
        Tris().AddNewTri(3, 1, 4, 5);
        Tris().SetTriVrtAt(5, PNT_3D(21.0, 11.0, -6.0));
    });
}

TEST_F(UndoTest, VerticesAddedOneEventEachComeOffOneByOne) {
    const auto before = State();
    Tris().AddTriVrt(PNT_3D(20.0, 0.0, 40.0));
    const auto middle = State();
    Tris().AddTriVrt(PNT_3D(30.0, 0.0, 50.0));
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(dtm_test::FirstDifference(middle, State()), "");
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(dtm_test::FirstDifference(before, State()), "");
}

TEST_F(UndoTest, MovedVerticesReturnExactly) {
    ExpectExactUndo([this] {
        Tris().SetTriVrtAt(0, PNT_3D(-1.0, -1.0, 9.0));
        Tris().SetTriVrtAt(3, PNT_3D(0.5, 10.5, 99.0));
        Tris().SetTriVrtAt(0, PNT_3D(-2.0, -2.0, 8.0));
    });
    // Outside any event, a move is an event of its own that closes before the vertex changes.
    const auto before = State();
    Tris().SetTriVrtAt(2, PNT_3D(12.0, 12.0, 1.0));
    const auto after = State();
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(dtm_test::FirstDifference(before, State()), "");
    ASSERT_TRUE(tm.Redo());
    EXPECT_EQ(dtm_test::FirstDifference(after, State()), "");
}

TEST_F(UndoTest, VertexRemovedFromTheMiddleComesBackAtItsIndex) {
    ExpectExactUndo([this] {
        // As a careful caller does: the triangles that use vertex 1 go, the others follow the
        // renumbering, then the vertex goes.
        const auto uses = [](const CTri* t, int v) {
            return t->GetVerIndex(0) == v || t->GetVerIndex(1) == v || t->GetVerIndex(2) == v;
        };
        for (int i = Tris().GetNoTris() - 1; i >= 0; --i)
            if (uses(Tris().GetTriAt(i), 1)) Tris().RemoveTriAt(i);
        for (int i = 0; i < Tris().GetNoTris(); ++i) {
            CTri* t = Tris().GetTriAt(i);
            const auto down = [t](int k) { return t->GetVerIndex(k) - (t->GetVerIndex(k) > 1); };
            t->SetVerIndexes(&Tris(), down(0), down(1), down(2));
        }
        Tris().RemoveTriVrt(1);
    });
    EXPECT_EQ(Tris().GetNoTriVrts(), 3);
}

TEST_F(UndoTest, RemoveAllIsUndoneWithEveryTriangleVertexAndTheRange) {
    CTri* kept = Tris().GetTriAt(0);
    ExpectExactUndo([this, kept] {
        kept->SetColor(&Tris(), 55);  // changed before the remove-all: its memento comes first
        Tris().AddTriVrt(PNT_3D(50.0, 50.0, 500.0));
        Tris().RemoveAll();
        // Everything after the remove-all is dropped by the context: vertices and triangles
        // added now must still come back on redo.
        Tris().AddTriVrt(PNT_3D(1.0, 1.0, 1.0));
        Tris().AddTriVrt(PNT_3D(2.0, 1.0, 2.0));
        Tris().AddTriVrt(PNT_3D(1.0, 2.0, 3.0));
        CTri* fresh = Tris().AddNewTri(8, 0, 1, 2);
        fresh->SetColor(&Tris(), 9);
    });
}

TEST_F(UndoTest, TrianglePutBackAfterRemoveAllAndChangedIsRestored) {
    auto tri = CRefPtr<CTri>::Share(Tris().GetTriAt(1));
    ExpectExactUndo([this, &tri] {
        Tris().RemoveAll();
        for (int i = 0; i < 4; ++i) Tris().AddTriVrt(PNT_3D(i, i * i, i));
        Tris().AddTri(tri.Get());
        tri->SetVerIndexes(&Tris(), 3, 2, 1);  // unannounced after the remove-all
        tri->SetColor(&Tris(), 123);
    });
}

TEST_F(UndoTest, RemoveAllOfANetworkWithoutVerticesRestoresItsRange) {
    // Removing vertices keeps the range; removing all resets it: a change undo puts back.
    Tris().RemoveTriAt(0);
    Tris().RemoveTriAt(0);
    for (int i = 3; i >= 0; --i) Tris().RemoveTriVrt(i);
    ASSERT_EQ(Tris().GetNoTriVrts(), 0);
    ExpectExactUndo([this] { Tris().RemoveAll(); });
}

TEST_F(UndoTest, DeletingSelectedTrianglesIsUndone) {
    Tris().AddNewTri(5, 1, 2, 3);
    // The network's listener sizes the selection when an event closes.
    Tris().SelTri(0, false);
    Tris().SelTri(2, false);
    ExpectExactUndo([this] { Tris().DelSelTris(); });
}

TEST_F(UndoTest, PointCloudNetworkFilesNoStep) {
    auto cloud = CRefPtr<CMemCld>::Adopt(new CMemCld);
    cloud->AddPnt(PNT_3D(0.0, 0.0, 0.0));
    cloud->AddPnt(PNT_3D(1.0, 0.0, 0.0));
    cloud->AddPnt(PNT_3D(0.0, 1.0, 0.0));
    // Binding a cloud is itself not recorded: a network on a cloud is not undone.
    ExpectNoStep([&] { Tris().SetCld(cloud.Get()); });
    ExpectNoStep([this] {
        Tris().AddTriVrt(0);
        Tris().AddNewTri(1, 0, 1, 2);
        Vncs().AddNewVnc(Segment(0, 0, 1, 1));
    });
}

TEST_F(UndoTest, SuspendedRecordingFilesNoStep) {
    tm.SetRecordingSuspended(true);
    ExpectNoStep([this] {
        Vncs().AddNewVnc(Segment(0, 0, 1, 1));
        Tris().RemoveAll();
    });
    tm.SetRecordingSuspended(false);
    // A move recorded later does not pick up anything of the suspended events.
    ExpectExactUndo([this] { Vncs().GetVncAt(0)->SetCoords(Segment(3, 3, 4, 4)); });
}

TEST(UndoWithoutManager, ProjectOutsideAnyLibraryRecordsNothing) {
    int alive = 0;
    auto* prj = new dtm_test::ProbePrj(alive, nullptr, "Solo");
    prj->GetVncs()->AddNewVnc(Segment(0, 0, 1, 1));
    prj->GetTris()->AddTriVrt(PNT_3D(0.0, 0.0, 0.0));
    EXPECT_EQ(prj->GetReferenceCount(), 1);
    prj->SubReference();
    EXPECT_EQ(alive, 0);
}

// Options and properties ----------------------------------------------------------------------

TEST_F(UndoTest, OptionsComeBackAndRecolouringLeavesNoTrace) {
    // The second triangle already has the colour that classes will give it, so the options
    // change leaves it alone; putting the old options back must leave it alone too.
    TDtmOpz options;
    options.GetFromPrj(prj);
    options.triColorType = COpzTri::TRI_COLOR_BY_CLASSES;
    options.triColorClasses.Reset();
    options.triColorClasses.AddEntry(0, 100.0, 30);
    options.triColorClasses.AddEntry(1, 200.0, 40);
    Tris().GetTriAt(1)->SetColor(&Tris(), 30);
    ExpectExactUndo([&] {
        options.SetToPrj(prj);
        prj->SetVncActive(false);
        prj->SetCntActive(1, false);
    });
    // Both lie below the first class's upper elevation.
    EXPECT_EQ(Tris().GetTriAt(0)->GetColor(), 30);
    EXPECT_EQ(Tris().GetTriAt(1)->GetColor(), 30);
    ASSERT_TRUE(tm.Undo());
    EXPECT_TRUE(Tris().GetTriAt(0)->GetColor() == 1 || Tris().GetTriAt(1)->GetColor() == 1);
}

TEST_F(UndoTest, ContourOptionsRecolourLinesAndUndoRestoresEachColour) {
    AddLine(Lines(), 10.0, 0.0)->SetColor(1);
    AddLine(Lines(), 20.0, 40.0)->SetColor(256);
    CColorClassComputer classes;
    classes.AddEntry(0, 1);
    classes.AddEntry(1, 2);
    ExpectExactUndo(
        [&] { Lines().SetVisOptions(true, false, true, false, false, 1, 2, 3, 4, classes); });
    ExpectExactUndo(
        [&] { Lines().SetVisOptions(true, false, true, false, true, 1, 2, 3, 4, classes); });
}

TEST_F(UndoTest, NameAndFlagsComeBack) {
    ExpectExactUndo([this] {
        prj->SetName("Altro");
        prj->SetLocked(true);
    });
    ExpectExactUndo([this] { prj->SetProps("Terzo", false, true); });
    EXPECT_EQ(prj->GetName().str(), "Terzo");
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(prj->GetName().str(), "Altro");
}

TEST_F(UndoTest, ContourRangeComesBackExactlyAfterUndoingAnAddition) {
    AddLine(Lines(), 10.0, 0.0);
    double minBefore = 0.0, maxBefore = 0.0;
    Lines().GetMinMaxQuota(minBefore, maxBefore);
    AddLine(Lines(), 90.0, 0.0);
    ASSERT_TRUE(tm.Undo());
    double minQuota = 0.0, maxQuota = 0.0;
    Lines().GetMinMaxQuota(minQuota, maxQuota);
    EXPECT_EQ(minQuota, minBefore);
    EXPECT_EQ(maxQuota, maxBefore);
    ExpectExactUndo([this] { Lines().RemoveAllCvLvs(); });
}

// Library and project together ----------------------------------------------------------------

TEST_F(UndoTest, ProjectRemovedInsideItsOwnEventStillFilesWhatItChanged) {
    const auto before = dtm_test::CaptureLibrary(*lib);
    auto keep = CRefPtr<CDtmPrj>::Share(prj);
    {
        kor::CEventGuard event(prj->GetContext());
        Vncs().AddNewVnc(Segment(0, 0, 1, 1));
        lib->RemovePrj(prj, false);
        Vncs().AddNewVnc(Segment(2, 2, 3, 3));
    }
    const auto after = dtm_test::CaptureLibrary(*lib);
    const auto projectAfter = State();
    ASSERT_TRUE(tm.Undo());
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(dtm_test::FirstDifference(before, dtm_test::CaptureLibrary(*lib)), "");
    ASSERT_TRUE(tm.Redo());
    ASSERT_TRUE(tm.Redo());
    EXPECT_EQ(dtm_test::FirstDifference(after, dtm_test::CaptureLibrary(*lib)), "");
    EXPECT_EQ(dtm_test::FirstDifference(projectAfter, State()), "");
}

TEST(LibraryReconciliation, ProjectAddedAndRemovedInOneEventFilesNoStep) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    {
        kor::CEventGuard event(lib.GetContext());
        lib.RemovePrj(lib.AddPrj("A", true, false), false);
    }
    EXPECT_EQ(tm.GetUndoCount(), 0u);
    EXPECT_EQ(lib.GetNoPrj(), 0u);
}

TEST(LibraryReconciliation, ProjectRemovedAndAddedBackInOneEventIsNeverDoubled) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* a = lib.AddPrj("A", true, false);
    CDtmPrj* b = lib.AddPrj("B", true, false);
    lib.SetActive(a, true);
    {
        kor::CEventGuard event(lib.GetContext());
        auto held = CRefPtr<CDtmPrj>::Share(a);
        lib.RemovePrj(a, false);
        lib.AddPrj(held.Detach());
        lib.SetActive(b, true);
    }
    const auto after = dtm_test::CaptureLibrary(lib);
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(lib.GetNoPrj(), 2u);
    EXPECT_EQ(lib.GetActive(), a);
    ASSERT_TRUE(tm.Redo());
    EXPECT_EQ(dtm_test::FirstDifference(after, dtm_test::CaptureLibrary(lib)), "");
}

TEST(LibraryReconciliation, RememberedActiveProjectThatLeftIsNotMadeActive) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* a = lib.AddPrj("A", true, false);
    CDtmPrj* b = lib.AddPrj("B", true, false);
    lib.SetActive(a, true);
    {
        kor::CEventGuard event(lib.GetContext());
        lib.SetActive(b, true);  // the step remembers a
    }
    tm.SetRecordingSuspended(true);
    lib.RemovePrj(a, false);  // a lives on in the step that remembers it
    tm.SetRecordingSuspended(false);
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(lib.GetActive(), b);
    EXPECT_EQ(lib.GetNoPrj(), 1u);
}

// Lifetimes and size ------------------------------------------------------------------------

TEST(UndoLifetimes, EveryProjectIsReleasedOnceNoStepHoldsIt) {
    int alive = 0;
    kor::CChangeTransactionManager tm;
    {
        CLibDtm lib(&tm);
        auto* prj = new dtm_test::ProbePrj(alive, &lib, "P");
        lib.AddPrj(prj);
        prj->GetVncs()->AddNewVnc(Segment(0, 0, 1, 1));
        prj->GetTris()->AddTriVrt(PNT_3D(0.0, 0.0, 0.0));
        lib.RemovePrj(prj, false);
        tm.Undo();
        tm.Undo();
    }
    EXPECT_EQ(alive, 1);  // the library is gone, the steps still hold the project
    tm.Clear();
    EXPECT_EQ(alive, 0);
}

TEST(UndoLifetimes, DestroyedProjectFilesNothing) {
    int alive = 0;
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    // Attached to the manager from the start, though never added.
    auto* prj = new dtm_test::ProbePrj(alive, &lib, "P");
    tm.SetRecordingSuspended(true);
    prj->GetVncs()->AddNewVnc(Segment(0, 0, 1, 1));
    auto cnt = CRefPtr<CCnt>::Adopt(new CCnt);
    cnt->SetRealVrts(Ring(0, 0));
    prj->GetCnts(false)->AddCnt(cnt.Get());
    tm.SetRecordingSuspended(false);
    prj->SubReference();
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(tm.GetUndoCount(), 0u);
    EXPECT_EQ(cnt->GetReferenceCount(), 1);
}

TEST_F(UndoTest, RemovedEntityLivesExactlyAsLongAsAStepHoldsIt) {
    CVnc* vnc = Vncs().AddNewVnc(Segment(0, 0, 1, 1));
    auto held = CRefPtr<CVnc>::Share(vnc);
    Vncs().RemoveVnc(vnc);
    EXPECT_EQ(vnc->GetReferenceCount(), 3);  // ours, the adding step's and the removing step's
    tm.Clear();
    EXPECT_EQ(vnc->GetReferenceCount(), 1);
}

TEST(UndoStepSize, GrowsWithTheMementosAndVerticesItHolds) {
    auto prj = CRefPtr<CDtmPrj>::Adopt(new CDtmPrj(nullptr, "P", true, false));
    CVncs& vncs = *prj->GetVncs();
    std::vector<CVnc*> breaklines;
    for (int i = 0; i < 3; ++i) breaklines.push_back(vncs.AddNewVnc(Segment(i, 0, i, 1)));

    using dtm::detail::CEntityChanges;
    using dtm::detail::TVncKind;
    const auto sizeWith = [&](int modified, int vertices) {
        CEntityChanges<TVncKind> changes;
        for (int i = 0; i < modified; ++i) changes.OnModifying(breaklines[i], vncs, false);
        for (int i = 0; i < modified; ++i) breaklines[i]->SetCoords(Segment(9, 9, 9, i));
        dtm::detail::TDtmChange change;
        change.vncs = changes.Finish(&vncs);
        for (int i = 0; i < vertices; ++i) change.vertices.Appended(i, PNT_3D(i, i, i));
        const CDtmCmdExecuted command(prj.Get(), std::move(change));
        return command.GetSize();
    };
    const std::size_t empty = sizeWith(0, 0);
    EXPECT_GE(empty, sizeof(CDtmCmdExecuted));
    EXPECT_GE(sizeWith(2, 0), empty + 2 * CVncMemento::MEMENTO_SIZE);
    EXPECT_GE(sizeWith(0, 100), empty + 100 * sizeof(PNT_3D));
}

}  // namespace

namespace {

// An option changed inside an event as the very first change of a new project is undone: the
// event's opening takes the options as they were.
// A vertex widens the network's range before it is announced: when it is a new project's
// first change, undo still gives back the range of an empty network.
TEST(UndoFirstEvent, AVertexAsTheFirstChangeOfANewProjectLeavesNoRangeWhenUndone) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    CDtmPrj* prj = lib.AddPrj("P", true, false);
    CTris& tris = *prj->GetTris();
    tris.AddTriVrt(PNT_3D(1.0, 2.0, 30.0));
    ASSERT_EQ(tris.GetMinQuota(), 30.0);
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(tris.GetNoTriVrts(), 0);
    EXPECT_EQ(tris.GetMinQuota(), std::numeric_limits<double>::infinity());
    EXPECT_EQ(tris.GetMaxQuota(), -std::numeric_limits<double>::infinity());
    ASSERT_TRUE(tm.Redo());
    EXPECT_EQ(tris.GetMinQuota(), 30.0);
    EXPECT_EQ(tris.GetMaxQuota(), 30.0);
    tm.Clear();
}

// A project made on its own rather than added through the library stores its first vertex or
// contour line before any event of it has opened, and the event that the announcement opens
// finds the range already widened: undo must still give back the empty ranges, which the
// project took when it was built.
TEST(UndoFirstEvent, TheFirstChangesOfAProjectMadeOutsideTheLibraryLeaveNoRangeWhenUndone) {
    const double inf = std::numeric_limits<double>::infinity();
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    {
        auto* prj = new CDtmPrj(&lib, "P", true, false);
        CTris& tris = *prj->GetTris();
        tris.AddTriVrt(PNT_3D(1.0, 2.0, 30.0));
        ASSERT_TRUE(tm.Undo());
        EXPECT_EQ(tris.GetNoTriVrts(), 0);
        EXPECT_EQ(tris.GetMinQuota(), inf);
        EXPECT_EQ(tris.GetMaxQuota(), -inf);
        tm.Clear();
        prj->SubReference();
    }
    {
        auto* prj = new CDtmPrj(&lib, "Q", true, false);
        const double x[] = {0.0, 1.0}, y[] = {0.0, 1.0};
        prj->GetCvLvs()->AddNewCvLv(12.5, 1.0, 3, 2, x, y);
        ASSERT_TRUE(tm.Undo());
        double low = 0.0, high = 0.0;
        prj->GetCvLvs()->GetMinMaxQuota(low, high);
        EXPECT_EQ(prj->GetCvLvs()->GetNoCvLvs(), 0u);
        EXPECT_EQ(low, inf);
        EXPECT_EQ(high, -inf);
        tm.Clear();
        prj->SubReference();
    }
}

TEST(UndoFirstEvent, OptionSetterAsTheFirstChangeOfANewProjectIsUndone) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    auto* prj = new CDtmPrj(&lib, "P", true, false);
    const bool before = prj->GetPrjOpz().IsVncActive();
    {
        kor::CEventGuard event(prj->GetContext());
        prj->SetVncActive(!before);
    }
    ASSERT_TRUE(tm.CanUndo());
    ASSERT_TRUE(tm.Undo());
    EXPECT_EQ(prj->GetPrjOpz().IsVncActive(), before);
    ASSERT_TRUE(tm.Redo());
    EXPECT_EQ(prj->GetPrjOpz().IsVncActive(), !before);
    tm.Clear();
    prj->SubReference();
}

}  // namespace
