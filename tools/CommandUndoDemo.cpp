// "dtm undo-demo": an edit, undone and redone through the host's undo store.

#include <ostream>

#include "Commands.h"
#include "TextFormat.h"
#include "ToolError.h"
#include "Workspace.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_3D;

void Expect(bool condition, const std::string& what) {
    if (!condition) throw ToolError("undo-demo: " + what);
}

// A small survey: a square of two triangles around a centre point, and one breakline.
CDtmPrj* AddSurvey(Workspace& workspace, const std::string& name) {
    CDtmPrj* prj = workspace.AddProject(name);
    CTris& tris = *prj->GetTris();
    kor::CEventGuard event(prj->GetContext());
    const PNT_3D corners[] = {{0, 0, 10}, {100, 0, 12}, {100, 100, 15}, {0, 100, 11}, {50, 50, 14}};
    for (const PNT_3D& p : corners) tris.AddTriVrt(p);
    for (int k = 0; k < 4; ++k) tris.AddNewTri(256, k, (k + 1) % 4, 4);
    prj->GetVncs()->AddNewVnc(kor::geom::LINE_3D(corners[0], corners[4]));
    return prj;
}

std::string PointText(const PNT_3D& p) {
    return "(" + Fixed(p.x, 1) + ", " + Fixed(p.y, 1) + ", " + Fixed(p.z, 1) + ")";
}

void LibraryEdit(Workspace& workspace, std::ostream& out) {
    CLibDtm& library = workspace.Library();
    kor::CChangeTransactionManager& undo = workspace.Undo();
    CDtmPrj* survey = library.FindPrj("Survey");
    const unsigned before = library.GetNoPrj();
    library.RemovePrj(survey, false);
    Expect(library.GetNoPrj() == before - 1 && undo.CanUndo(),
           "removing a project recorded nothing");
    out << "  library edit: removed project 'Survey' (" << before << " projects -> "
        << library.GetNoPrj() << ")\n";
    undo.Undo();
    CDtmPrj* back = library.FindPrj("Survey");
    Expect(back != nullptr && back->GetTris()->GetNoTris() == 4,
           "undo did not bring the project back whole");
    out << "    undo: project 'Survey' is back with its " << back->GetTris()->GetNoTris()
        << " triangles\n";
    undo.Redo();
    Expect(library.FindPrj("Survey") == nullptr, "redo did not remove the project again");
    out << "    redo: project 'Survey' is removed again\n";
    undo.Undo();
}

void ProjectEdit(Workspace& workspace, std::ostream& out) {
    kor::CChangeTransactionManager& undo = workspace.Undo();
    CVnc& breakline = *workspace.Library().FindPrj("Survey")->GetVncs()->GetVncAt(0);
    const kor::geom::LINE_3D before = breakline.GetCoords();
    kor::geom::LINE_3D moved = before;
    moved.end = PNT_3D(60, 40, 13.5);
    const std::size_t commands = undo.GetUndoCount();
    breakline.SetCoords(moved);
    out << "  project edit: moved the end of a breakline from " << PointText(before.end) << " to "
        << PointText(moved.end) << "\n";
    Expect(undo.GetUndoCount() == commands + 1, "moving the breakline recorded no undo step");
    undo.Undo();
    Expect(
        breakline.GetCoords().end.x == before.end.x && breakline.GetCoords().end.y == before.end.y,
        "undo did not put the breakline back");
    out << "    undo: the end is back at " << PointText(breakline.GetCoords().end) << "\n";
    undo.Redo();
    Expect(breakline.GetCoords().end.x == moved.end.x, "redo did not move the breakline again");
    out << "    redo: the end is at " << PointText(breakline.GetCoords().end) << " again\n";
}

}  // namespace

int RunUndoDemo(std::ostream& out) {
    Workspace workspace;
    {
        UndoSuspension quiet(workspace.Undo());
        AddSurvey(workspace, "Base");
        AddSurvey(workspace, "Survey");
    }
    workspace.Undo().Clear();
    out << "dtm undo-demo: two projects of 4 triangles and one breakline each\n";
    LibraryEdit(workspace, out);
    ProjectEdit(workspace, out);
    return 0;
}

}  // namespace dtmtool
