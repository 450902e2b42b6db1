// Exception safety under allocation failure: each operation below is run once for every
// allocation it makes, with exactly that allocation failing (std::bad_alloc), and after each
// run the library must have closed every change event, must be consistent and usable (an edit
// still files an undo step that undoes and redoes exactly, and every recorded step can still
// be undone and redone), its history must be true (undoing every step leads back to where the
// history began or, when a change could not be recorded and the history was dropped, to what
// the run left), and, once the objects are gone, it must have freed everything it allocated in
// the meantime.
//
// The operations: adding entities of every kind (and a project) in one event, adding a project
// to a library, reading each file section, undoing and redoing a step, and an edge search that
// must first find the octree's boxes again.

#include <dtm/dtm.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "ProjectState.h"
#include "support/ScopeExit.h"

namespace {

using kor::geom::LINE_3D;
using kor::geom::PNT_3D;

// No operation here allocates nearly this often; reaching it means the loop never ends.
constexpr std::int64_t kMaxAllocations = 100000;

/// A library with its undo store and one active project that holds a little of everything,
/// filed as one undo step.
class Fixture {
public:
    Fixture() : m_library(std::make_unique<CLibDtm>(&m_undo)) {
        m_project = m_library->AddPrj("Rilievo", true, false);
        m_library->SetActive(m_project, true);
        Fill(*m_project, 0.0);
    }
    ~Fixture() {
        // The undo steps refer to the library's projects: they go first.
        m_undo.Clear();
        m_library.reset();
    }
    Fixture(const Fixture&) = delete;
    Fixture& operator=(const Fixture&) = delete;

    CLibDtm& Library() { return *m_library; }
    CDtmPrj& Project() { return *m_project; }
    kor::CChangeTransactionManager& Undo() { return m_undo; }

    /// Adds, in one event of @p project, four vertices and two triangles, a breakline, an
    /// external and an internal boundary and a contour line with a label interval, all placed
    /// @p offset to the east.
    static void Fill(CDtmPrj& project, double offset) {
        kor::CEventGuard event(project.GetContext());
        CTris& tris = *project.GetTris();
        const int first = tris.GetNoTriVrts();
        tris.AddTriVrt(PNT_3D(offset, 0.0, 10.0));
        tris.AddTriVrt(PNT_3D(offset + 10.0, 0.0, 12.0));
        tris.AddTriVrt(PNT_3D(offset + 10.0, 10.0, 14.0));
        tris.AddTriVrt(PNT_3D(offset, 10.0, 16.0));
        tris.AddNewTri(1, first, first + 1, first + 2);
        tris.AddNewTri(2, first, first + 2, first + 3);
        project.GetVncs()->AddNewVnc(
            LINE_3D(PNT_3D(offset, 0.0, 10.0), PNT_3D(offset + 10.0, 10.0, 14.0)));
        for (const bool internal : {false, true}) {
            auto cnt = kor::CRefPtr<CCnt>::Adopt(new CCnt());
            cnt->SetRealVrts({PNT_3D(offset + 1.0, 1.0, 0.0), PNT_3D(offset + 8.0, 1.0, 0.0),
                              PNT_3D(offset + 5.0, 8.0, 0.0)});
            project.GetCnts(internal)->AddCnt(cnt.Get());
        }
        const double x[] = {offset, offset + 4.0, offset + 8.0, offset + 12.0};
        const double y[] = {2.0, 5.0, 3.0, 6.0};
        project.GetCvLvs()->AddNewCvLv(12.0, -1.0, 3, 4, x, y)->AddInterval(1.0, 3.0, 1);
    }

private:
    kor::CChangeTransactionManager m_undo;
    std::unique_ptr<CLibDtm> m_library;
    CDtmPrj* m_project = nullptr;
};

/// True when no change event of the library or of any of its projects is open.
bool EventsClosed(CLibDtm& library) {
    if (library.GetContext()->GetEventDepth() != 0) return false;
    for (unsigned i = 0; i < library.GetNoPrj(); ++i)
        if (library.GetPrj(i)->GetContext()->GetEventDepth() != 0) return false;
    return true;
}

/// The first structural fault of @p project, or "" when there is none: a triangle that refers
/// past the vertex array, an entity that names another collection, a boundary without vertices.
std::string StructuralFault(CDtmPrj& project) {
    const CTris& tris = *project.GetTris();
    for (int i = 0; i < tris.GetNoTris(); ++i)
        for (int k = 0; k < 3; ++k) {
            const int vertex = tris.GetTriAt(i)->GetVerIndex(k);
            if (vertex < 0 || vertex >= tris.GetNoTriVrts())
                return "triangle " + std::to_string(i) + " refers to vertex " +
                       std::to_string(vertex);
        }
    const CVncs& vncs = *project.GetVncs();
    for (int i = 0; i < vncs.GetNoVncs(); ++i)
        if (vncs.GetVncAt(i)->GetVncs() != &vncs) return "a breakline names another collection";
    for (const bool internal : {false, true}) {
        const CCnts& cnts = *project.GetCnts(internal);
        for (int i = 0; i < cnts.GetNoCnts(); ++i) {
            if (cnts.GetCntAt(i)->GetCnts() != &cnts) return "a boundary names another collection";
            if (cnts.GetCntAt(i)->GetNoVrts() == 0) return "a boundary has no vertices";
        }
    }
    const CCvLvs& cvlvs = *project.GetCvLvs();
    for (unsigned i = 0; i < cvlvs.GetNoCvLvs(); ++i)
        if (cvlvs.GetCvLvAt(i)->GetCvLvs() != &cvlvs)
            return "a contour line names another collection";
    return "";
}

/// A new project of the fixture's name, as a history that is undone to its start leaves the
/// fixture's project.
dtm_test::ProjectState EmptyProjectState() {
    const auto empty = kor::CRefPtr<CDtmPrj>::Adopt(new CDtmPrj(nullptr, "Rilievo", true, false));
    return dtm_test::CaptureProject(*empty);
}

/// Checks what must hold after every run, whether or not the allocation failed. With
/// @p historyLeadsBack, also that undoing every step leads back to where the history began or
/// to what the run left (false for operations that change what no step records by design).
void ExpectConsistentAndUsable(Fixture& fixture, bool historyLeadsBack) {
    CLibDtm& library = fixture.Library();
    ASSERT_TRUE(EventsClosed(library)) << "a change event was left open";
    const dtm_test::ProjectState left = dtm_test::CaptureProject(fixture.Project());
    for (unsigned i = 0; i < library.GetNoPrj(); ++i)
        ASSERT_EQ(StructuralFault(*library.GetPrj(i)), "");

    // A new edit files one step that undoes and redoes exactly.
    CDtmPrj& project = fixture.Project();
    const dtm_test::ProjectState before = dtm_test::CaptureProject(project);
    const std::size_t steps = fixture.Undo().GetUndoCount();
    Fixture::Fill(project, 100.0);
    const dtm_test::ProjectState after = dtm_test::CaptureProject(project);
    ASSERT_EQ(fixture.Undo().GetUndoCount(), steps + 1) << "an edit filed no undo step";
    ASSERT_TRUE(fixture.Undo().Undo());
    EXPECT_EQ(dtm_test::FirstDifference(before, dtm_test::CaptureProject(project)), "");
    ASSERT_TRUE(fixture.Undo().Redo());
    EXPECT_EQ(dtm_test::FirstDifference(after, dtm_test::CaptureProject(project)), "");

    // Every step recorded, those of the failed run included, can still be applied. Undone,
    // they take the fixture's project back either to the empty project the history began
    // with, or, when a change of the failed run could not be recorded and the history was
    // dropped, to what that run left of it: a step that silently missed a change would take it
    // elsewhere.
    while (fixture.Undo().Undo()) {
    }
    const dtm_test::ProjectState undone = dtm_test::CaptureProject(fixture.Project());
    if (historyLeadsBack && dtm_test::FirstDifference(EmptyProjectState(), undone) != "") {
        EXPECT_EQ(dtm_test::FirstDifference(left, undone), "") << "the history leads elsewhere";
    }
    while (fixture.Undo().Redo()) {
    }
    ASSERT_TRUE(EventsClosed(library));
    for (unsigned i = 0; i < library.GetNoPrj(); ++i)
        ASSERT_EQ(StructuralFault(*library.GetPrj(i)), "");
}

using Step = std::function<void(Fixture&)>;

/// The failures and successes GoogleTest has recorded for the running test so far.
int ReportedFailures() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

/// Calls @p attempt(failing) for failing = 1, 2, ... until an attempt makes fewer allocations
/// than that, and checks after each that everything the attempt allocated was freed. Each
/// attempt builds its own objects and runs the operation through RunFailingAt.
void ForEachFailingAllocation(const std::function<void(std::int64_t)>& attempt) {
    for (std::int64_t failing = 1; failing < kMaxAllocations; ++failing) {
        SCOPED_TRACE("allocation " + std::to_string(failing) + " fails");
        const int failuresBefore = ReportedFailures();
        const std::int64_t liveBefore = dtm_test::LiveAllocations();
        attempt(failing);
        // A failure reported above keeps its message, which the count would take for a leak.
        if (ReportedFailures() == failuresBefore) {
            ASSERT_EQ(dtm_test::LiveAllocations(), liveBefore) << "blocks were leaked";
        }
        // The operation needed fewer allocations: every one of them has been failed.
        if (!dtm_test::AllocationFailed()) {
            EXPECT_GT(failing, 1) << "the operation allocates nothing: no failure was tried";
            return;
        }
        if (::testing::Test::HasFatalFailure()) return;
    }
    FAIL() << "the operation never completed";
}

/// Runs @p operation with its @p failing th allocation failing. The failure must reach the
/// caller as std::bad_alloc: nothing may swallow it and carry on as if the operation had
/// succeeded.
void RunFailingAt(std::int64_t failing, const std::function<void()>& operation) {
    dtm_test::FailAllocationAt(failing);
    bool threw = false;
    try {
        operation();
    } catch (const std::bad_alloc&) {
        threw = true;
    }
    dtm_test::StopFailingAllocations();
    EXPECT_EQ(threw, dtm_test::AllocationFailed())
        << "a failed allocation did not reach the caller";
}

/// Runs @p operation on a fresh Fixture, readied by @p prepare, once for each allocation the
/// operation makes, failing exactly that allocation, and checks each run. The allocations of
/// building, readying and checking the fixture are not failed; the leak check covers them all.
/// @p historyLeadsBack as for ExpectConsistentAndUsable.
void FailEachAllocation(
    const Step& operation, const Step& prepare = [](Fixture&) {}, bool historyLeadsBack = true) {
    // Once without failures, so that what the library allocates once per process (tables built
    // on first use) is not taken for a leak of the first failing run.
    {
        Fixture warmUp;
        prepare(warmUp);
        operation(warmUp);
    }
    ForEachFailingAllocation([&](std::int64_t failing) {
        Fixture fixture;
        prepare(fixture);
        RunFailingAt(failing, [&] { operation(fixture); });
        ExpectConsistentAndUsable(fixture, historyLeadsBack);
    });
}

// ---- Sections ---------------------------------------------------------------------------------

using Writer = std::function<void(const CDtmPrj&, ofpstream&)>;
using Reader = std::function<void(CDtmPrj&, ifpstream&)>;

/// The bytes @p write puts out for the fixture's project at @p version.
std::string SectionOfFixture(short version, const Writer& write) {
    Fixture source;
    std::stringbuf buffer(std::ios::out);
    ofpstream stream(&buffer, version);
    write(source.Project(), stream);
    return buffer.str();
}

void FailEachAllocationWhileReading(short version, const Writer& write, const Reader& read,
                                    bool historyLeadsBack = true) {
    const std::string bytes = SectionOfFixture(version, write);
    ASSERT_FALSE(bytes.empty());
    FailEachAllocation(
        [&](Fixture& fixture) {
            std::stringbuf buffer(bytes, std::ios::in);
            ifpstream stream(&buffer, version);
            read(fixture.Project(), stream);
        },
        [](Fixture&) {}, historyLeadsBack);
}

const short kVersions[] = {799, 1502};

const kor::CRefObjIdRemapper& NoObjects() {
    static const kor::CRefObjIdRemapper none;
    return none;
}

}  // namespace

TEST(AllocationFailure, AddingEntitiesOfEveryKindInOneEvent) {
    FailEachAllocation([](Fixture& fixture) {
        kor::CEventGuard event(fixture.Library().GetContext());
        Fixture::Fill(fixture.Project(), 50.0);
        fixture.Library().AddPrj("Secondo rilievo del cantiere", true, false);
    });
}

TEST(AllocationFailure, AddingEntitiesEachInAnEventOfItsOwn) {
    FailEachAllocation([](Fixture& fixture) {
        CDtmPrj& project = fixture.Project();
        project.GetTris()->AddTriVrt(PNT_3D(-5.0, -5.0, 3.0));
        project.GetTris()->AddNewTri(4, 0, 1, project.GetTris()->GetNoTriVrts() - 1);
        project.GetVncs()->AddNewVnc(LINE_3D(PNT_3D(0.0, 0.0, 0.0), PNT_3D(1.0, 1.0, 1.0)));
        const double x[] = {0.0, 3.0, 6.0};
        const double y[] = {0.0, 1.0, 0.0};
        project.GetCvLvs()->AddNewCvLv(11.0, 2.0, 5, 3, x, y);
    });
}

TEST(AllocationFailure, ReadingTheNetworkSection) {
    for (const short version : kVersions) {
        SCOPED_TRACE("version " + std::to_string(version));
        FailEachAllocationWhileReading(
            version,
            [](const CDtmPrj& project, ofpstream& stream) {
                kor::CPtr64Mapper mapper;
                project.GetTris()->SalvaInFile(stream, &mapper);
            },
            [](CDtmPrj& project, ifpstream& stream) {
                project.GetTris()->LeggeDaFile(stream, NoObjects(), true);
            });
    }
}

// With recording suspended nobody hears the additions, and the reader hands the network its
// triangles a block at a time.
TEST(AllocationFailure, ReadingTheNetworkSectionWhileRecordingIsSuspended) {
    FailEachAllocationWhileReading(
        1502,
        [](const CDtmPrj& project, ofpstream& stream) {
            kor::CPtr64Mapper mapper;
            project.GetTris()->SalvaInFile(stream, &mapper);
        },
        [](CDtmPrj& project, ifpstream& stream) {
            kor::CChangeTransactionManager& undo =
                *project.GetContext()->GetChangeTransactionManager();
            undo.SetRecordingSuspended(true);
            const auto resume =
                dtm::detail::OnScopeExit([&undo] { undo.SetRecordingSuspended(false); });
            project.GetTris()->LeggeDaFile(stream, NoObjects(), true);
        },
        false);  // a read while recording is suspended is undone by no step
}

TEST(AllocationFailure, ReadingTheBoundarySections) {
    for (const bool internal : {false, true}) {
        SCOPED_TRACE(internal ? "internal" : "external");
        FailEachAllocationWhileReading(
            1502,
            [internal](const CDtmPrj& project, ofpstream& stream) {
                project.GetCnts(internal)->SalvaInFile(stream);
            },
            [internal](CDtmPrj& project, ifpstream& stream) {
                project.GetCnts(internal)->LeggeDaFile(stream, true);
            });
    }
}

TEST(AllocationFailure, ReadingTheBreaklineSection) {
    FailEachAllocationWhileReading(
        1502,
        [](const CDtmPrj& project, ofpstream& stream) { project.GetVncs()->SalvaInFile(stream); },
        [](CDtmPrj& project, ifpstream& stream) { project.GetVncs()->LeggeDaFile(stream, true); });
}

TEST(AllocationFailure, ReadingTheContourSection) {
    for (const short version : kVersions) {
        SCOPED_TRACE("version " + std::to_string(version));
        FailEachAllocationWhileReading(
            version,
            [](const CDtmPrj& project, ofpstream& stream) {
                project.GetCvLvs()->SalvaInFile(stream);
            },
            [](CDtmPrj& project, ifpstream& stream) {
                project.GetCvLvs()->LeggeDaFile(stream, true);
            },
            // An old section sets the contour direction, which no undo step puts back.
            version >= 800);
    }
}

TEST(AllocationFailure, ReadingTheProjectOptionSection) {
    for (const short version : kVersions) {
        SCOPED_TRACE("version " + std::to_string(version));
        FailEachAllocationWhileReading(
            version,
            [](const CDtmPrj& project, ofpstream& stream) { project.SalvaOpzInFile(stream); },
            [](CDtmPrj& project, ifpstream& stream) { project.LeggeOpzDaFile(stream, true); });
    }
}

TEST(AllocationFailure, ReadingTheColourClassSectionLeavesTheTableUnchangedOrWhole) {
    CColorClassComputer stored;
    stored.AddEntry(0, 10.0, 1);
    stored.AddEntry(1, 20.0, 3);
    std::stringbuf written(std::ios::out);
    ofpstream out(&written, 1502);
    stored.SalvaInFile(out);
    const std::string bytes = written.str();
    // The table read into is a graded one, so that unchanged and read are told apart.
    CColorClassComputer before;
    before.AddEntry(0, 7);
    ForEachFailingAllocation([&](std::int64_t failing) {
        CColorClassComputer table = before;
        std::stringbuf buffer(bytes, std::ios::in);
        ifpstream stream(&buffer, 1502);
        RunFailingAt(failing, [&] { table.LeggeDaFile(stream, true); });
        EXPECT_TRUE((table == before && !table.IsCustom()) || (table == stored && table.IsCustom()))
            << "the table was left half read";
    });
}

/// Undoes the newest step and redoes it.
void UndoAndRedo(Fixture& fixture) {
    kor::CChangeTransactionManager& undo = fixture.Undo();
    ASSERT_TRUE(undo.Undo());
    ASSERT_TRUE(undo.Redo());
}

namespace {

// The edge search on the diagonal that the fixture's two triangles share: true when it finds
// the edge between them.
bool FindsTheSharedEdge(const CTris& tris) {
    int tri1 = -1, tri2 = -1, edgeStart = 0, edgeEnd = 0, opposite1 = 0, opposite2 = 0;
    const bool found = tris.FindTri(kor::geom::PNT_2D(5.0, 5.0), 0.5, tri1, tri2, edgeStart,
                                    edgeEnd, opposite1, opposite2);
    return found && tri1 != tri2 && tri1 >= 0 && tri2 >= 0;
}

// A second project whose network is read from the section of the fixture's, octree block
// included: the tree it takes over has no node boxes yet, the first traversal finds them.
CTris& CopyWithStoredTree(Fixture& fixture) {
    CTris& source = *fixture.Project().GetTris();
    source.CalcOcTree();
    std::stringbuf buffer;
    ofpstream out(&buffer, 1502);
    kor::CPtr64Mapper mapper;
    source.SalvaInFile(out, &mapper);
    CDtmPrj* copy = fixture.Library().AddPrj("Copia", true, false);
    std::stringbuf bytes(buffer.str(), std::ios::in);
    ifpstream in(&bytes, 1502);
    copy->GetTris()->LeggeDaFile(in, kor::CRefObjIdRemapper(), true);
    return *copy->GetTris();
}

}  // namespace

TEST(AllocationFailure, AnEdgeSearchThatCannotFindTheOctreeBoxesLeavesTheNextOneWhole) {
    {
        Fixture warmUp;
        ASSERT_TRUE(FindsTheSharedEdge(CopyWithStoredTree(warmUp)));
    }
    ForEachFailingAllocation([](std::int64_t failing) {
        Fixture fixture;
        const CTris& copy = CopyWithStoredTree(fixture);
        RunFailingAt(failing, [&] { FindsTheSharedEdge(copy); });
        EXPECT_TRUE(FindsTheSharedEdge(copy));
        ExpectConsistentAndUsable(fixture, true);
    });
}

// The modifier recomputes the spline when it goes out of scope: a failure there reaches the
// caller like any other.
TEST(AllocationFailure, MovingAContourNodeThroughTheModifier) {
    FailEachAllocation([](Fixture& fixture) {
        CCvLvModifier modifier(fixture.Project().GetCvLvs()->GetCvLvAt(0));
        modifier.MoveNode(1, 4.5, 5.5);
    });
}

TEST(AllocationFailure, UndoingAndRedoingAStepThatAddedEntities) {
    // The fixture's filling is the step.
    FailEachAllocation(UndoAndRedo);
}

TEST(AllocationFailure, UndoingAndRedoingAStepThatChangedAndRemovedEntities) {
    FailEachAllocation(
        UndoAndRedo,
        [](Fixture& fixture) {
            CDtmPrj& project = fixture.Project();
            kor::CEventGuard event(project.GetContext());
            project.GetVncs()->GetVncAt(0)->SetCoords(
                LINE_3D(PNT_3D(1.0, 1.0, 1.0), PNT_3D(2.0, 2.0, 2.0)));
            project.GetTris()->SetTriVrtAt(0, PNT_3D(-1.0, -1.0, 9.0));
            project.GetTris()->RemoveTriAt(0);
            project.GetCnts(true)->RemoveCntAt(0);
            project.GetCvLvs()->GetCvLvAt(0)->SetColor(9);
        },
        // A step that fails part way through its application stays where it was, partly applied.
        false);
}

TEST(AllocationFailure, BuildingALibraryAndAProjectInIt) {
    // A name too long to be kept inside the string object, so that naming allocates too.
    const char* const name = "Rilievo del cantiere nord";
    const auto build = [name](kor::CChangeTransactionManager& undo,
                              std::unique_ptr<CLibDtm>& library) {
        library = std::make_unique<CLibDtm>(&undo);
        library->AddPrj(name, true, false);
    };
    {
        kor::CChangeTransactionManager undo;
        std::unique_ptr<CLibDtm> library;
        build(undo, library);  // what is allocated once per process is not taken for a leak
    }
    ForEachFailingAllocation([&](std::int64_t failing) {
        kor::CChangeTransactionManager undo;
        std::unique_ptr<CLibDtm> library;
        RunFailingAt(failing, [&] { build(undo, library); });
        if (!library) return;  // the constructor failed and gave back what it had built
        ASSERT_TRUE(EventsClosed(*library));
        // The library built is usable: a project goes in and its edit is undone.
        CDtmPrj* project = library->AddPrj(name, true, false);
        ASSERT_EQ(project->GetLibDtm(), library.get());
        project->GetTris()->AddTriVrt(PNT_3D(1.0, 2.0, 3.0));
        ASSERT_TRUE(undo.Undo());
        EXPECT_EQ(project->GetTris()->GetNoTriVrts(), 0);
    });
}

TEST(AllocationFailure, UndoingAndRedoingTheAdditionOfAProject) {
    FailEachAllocation(UndoAndRedo,
                       // A name too long to be kept inside the string object, so that
                       // naming the project again allocates too.
                       [](Fixture& fixture) {
                           fixture.Library().AddPrj("Secondo rilievo del cantiere", true, false);
                       });
}

// A project that goes into a library whose history already holds a step: when its addition
// cannot be recorded, the history must not stay as if nothing had happened. Undone, it leads
// back either to the empty library it began with or, dropped, leaves the library as it is.
TEST(AllocationFailure, AddingAProjectLeavesAHistoryThatLeadsBack) {
    const auto addSecond = [](CLibDtm& library) {
        library.AddPrj("Secondo rilievo del cantiere", true, false);
    };
    const auto run = [&](std::int64_t failing) {
        kor::CChangeTransactionManager undo;
        auto library = std::make_unique<CLibDtm>(&undo);
        library->AddPrj("Primo", true, false);
        if (failing == 0) {
            addSecond(*library);
        } else {
            RunFailingAt(failing, [&] { addSecond(*library); });
        }
        ASSERT_TRUE(EventsClosed(*library));
        const unsigned left = library->GetNoPrj();
        while (undo.Undo()) {
        }
        const unsigned undone = library->GetNoPrj();
        EXPECT_TRUE(undone == 0 || undone == left)
            << undone << " projects after undoing every step, " << left << " before";
        // The undo steps refer to the library's projects: they go first.
        undo.Clear();
        library.reset();
    };
    run(0);  // what is allocated once per process is not taken for a leak
    ForEachFailingAllocation(run);
}
