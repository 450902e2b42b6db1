// The commands that move surfaces in and out of documents and describe them: import, export,
// info.

#include <iostream>
#include <ostream>
#include <utility>

#include "AtomicFile.h"
#include "Commands.h"
#include "Document.h"
#include "LandXml.h"
#include "SurfaceMeasures.h"
#include "SurfaceProject.h"
#include "TextFormat.h"
#include "ToolError.h"
#include "Workspace.h"

namespace dtmtool {

namespace {

// " (3 hidden faces kept for export)": the faces the survey marks hidden, which the model
// leaves out and only an export gives back; nothing when there are none.
std::string KeptHiddenFaces(const SurveyRecord* record) {
    const std::size_t count = record ? record->hiddenFaces.size() : 0;
    if (count == 0) return {};
    return " (" + Counted(count, "hidden face", "hidden faces") + " kept for export)";
}

void DescribeNetwork(const CTris& tris, const SurveyRecord* record, std::ostream& out) {
    out << "  network      " << Counted(tris.GetNoTriVrts(), "vertex", "vertices") << ", "
        << Counted(tris.GetNoTris(), "triangle", "triangles") << KeptHiddenFaces(record) << "\n";
    kor::geom::RECT_3D box;
    if (tris.GetNoTriVrts() > 0 && tris.GetBdry(box)) {
        out << "  elevations   " << Fixed(tris.GetMinQuota(), 3) << " .. "
            << Fixed(tris.GetMaxQuota(), 3) << "\n";
        out << "  extent       E " << Fixed(box.min.x, 3) << " .. " << Fixed(box.max.x, 3) << ", N "
            << Fixed(box.min.y, 3) << " .. " << Fixed(box.max.y, 3) << "\n";
    }
}

// The areas of the triangles in plan and on the ground, as an export states them; nothing for
// a network without triangles.
void DescribeArea(const CDtmPrj& prj, const SurveyRecord* record, std::ostream& out) {
    const SurfaceMeasures measures = MeasureSurface(SurfaceOfProject(prj, record));
    if (!measures.measured) return;
    out << "  area         " << Fixed(measures.planArea, 3) << " in plan, "
        << Fixed(measures.surfaceArea, 3) << " on the ground\n";
}

void DescribeContours(const CCvLvs& lines, std::ostream& out) {
    if (lines.GetNoCvLvs() == 0) {
        out << "  contours     none\n";
        return;
    }
    std::size_t labels = 0;
    for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i)
        for (unsigned k = 0; k < lines.GetCvLvAt(i)->GetNoIntervals(); ++k)
            if (lines.GetCvLvAt(i)->GetIntervalAt(k)->IsText()) ++labels;
    double low = 0.0, high = 0.0;
    lines.GetMinMaxQuota(low, high);
    out << "  contours     " << Counted(lines.GetNoCvLvs(), "line", "lines") << " from "
        << Fixed(low, 3) << " to " << Fixed(high, 3) << ", " << Counted(labels, "label", "labels")
        << "\n";
}

// @p lead and "3 of other kinds kept for export": the boundaries that do not limit the terrain
// model, which only an export gives back; nothing when there are none.
std::string KeptBoundaries(std::size_t count, const char* lead) {
    if (count == 0) return {};
    return lead + Counted(count, "of another kind", "of other kinds") + " kept for export";
}

void DescribeProject(const CDtmPrj& prj, const SurveyRecord* record, std::ostream& out) {
    out << "project '" << prj.GetName().str() << "'" << (prj.IsActive() ? " (active)" : "")
        << (prj.IsVisible() ? "" : " (hidden)") << (prj.IsLocked() ? " (locked)" : "") << "\n";
    const std::string description = record ? record->SurfaceAttribute("desc") : "";
    if (!description.empty()) out << "  description  " << description << "\n";
    out << "  units        " << (record ? record->units : SurveyUnits{}).Describe() << "\n";
    if (record && !record->coordinateSystem.empty())
        out << "  coordinates  " << DescribeCoordinateSystem(record->coordinateSystem) << "\n";
    DescribeNetwork(*prj.GetTris(), record, out);
    DescribeArea(prj, record, out);
    out << "  boundaries   " << prj.GetCnts(false)->GetNoCnts() << " external, "
        << prj.GetCnts(true)->GetNoCnts() << " internal"
        << KeptBoundaries(record ? record->CountBoundaries(BoundaryRole::Kept) : 0, ", ") << "\n";
    out << "  breaklines   " << Counted(prj.GetVncs()->GetNoVncs(), "segment", "segments") << "\n";
    DescribeContours(*prj.GetCvLvs(), out);
    const std::string kept = record ? DescribeKeptElements(*record) : std::string();
    if (!kept.empty()) out << "  elements     " << kept << " kept for export\n";
}

void ReportImport(const TinSurface& surface, const CDtmPrj& prj, std::ostream& out) {
    out << "surface '" << surface.name << "' -> project '" << prj.GetName().str()
        << "': " << Counted(surface.points.size(), "point", "points") << ", "
        << Counted(surface.faces.size(), "triangle", "triangles")
        << KeptHiddenFaces(&surface.survey) << ", "
        << Counted(surface.breaklines.size(), "breakline", "breaklines") << " ("
        << Counted(prj.GetVncs()->GetNoVncs(), "segment", "segments") << "), "
        << Counted(surface.survey.boundaries.size(), "boundary", "boundaries");
    const std::size_t kept = surface.survey.CountBoundaries(BoundaryRole::Kept);
    if (kept > 0) out << " (" << KeptBoundaries(kept, "") << ")";
    const CTris& tris = *prj.GetTris();
    if (tris.GetNoTriVrts() > 0)
        out << ", elevations " << Fixed(tris.GetMinQuota(), 3) << " .. "
            << Fixed(tris.GetMaxQuota(), 3);
    out << "\n";
}

// What the LandXML file of @p surfaces states once for all of them. Projects in different units
// or coordinate systems cannot share a file, but each can have one of its own.
std::pair<SurveyUnits, SurveyAttributes> SharedFileFacts(const std::vector<TinSurface>& surfaces,
                                                         const std::string& document) {
    try {
        return {UnitsOfSurfaces(surfaces, document),
                CoordinateSystemOfSurfaces(surfaces, document)};
    } catch (const ToolError& error) {
        throw ToolError(std::string(error.what()) + ": export them one at a time with --project");
    }
}

}  // namespace

int RunImport(const std::string& landXml, const std::string& output, std::ostream& out) {
    CheckOutput(landXml, output);
    std::vector<std::string> warnings;
    const std::vector<TinSurface> surfaces = ReadLandXml(landXml, &warnings);
    // Doubtful triangulations are imported as they are (the library takes such triangles); the
    // warnings tell the surveyor where to look.
    for (const std::string& warning : warnings) std::cerr << "dtm: warning: " << warning << "\n";
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    for (const TinSurface& surface : surfaces)
        ReportImport(surface, *AddSurfaceProject(workspace, surface), out);
    workspace.Library().SetActive(workspace.Library().GetPrj(0), false);
    SaveDocument(workspace, output);
    out << "saved " << output << "\n";
    return 0;
}

int RunExport(const std::string& document, const std::string& project, const std::string& output,
              std::ostream& out) {
    CheckOutput(document, output);
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    LoadDocument(workspace, document);
    std::vector<TinSurface> surfaces;
    for (const CDtmPrj* prj : workspace.Projects(project, document))
        surfaces.push_back(SurfaceOfProject(*prj, FindSurveyRecord(workspace.Surveys(), *prj)));
    const auto [units, coordinateSystem] = SharedFileFacts(surfaces, document);
    // Writing units the document does not know would be a guess that moves every coordinate
    // if it is wrong; the file goes out without them and the surveyor is told.
    if (!units.IsKnown())
        std::cerr << "dtm: warning: " << document << ": the document does not record its units, "
                  << "so " << output << " states none\n";
    WriteLandXml(output, surfaces, units, coordinateSystem);
    for (const TinSurface& surface : surfaces) {
        const std::size_t hidden = surface.survey.hiddenFaces.size();
        out << "project '" << surface.name
            << "': " << Counted(surface.points.size(), "point", "points") << ", "
            << Counted(surface.faces.size(), "triangle", "triangles");
        if (hidden > 0) out << " and " << Counted(hidden, "hidden face", "hidden faces");
        out << "\n";
    }
    out << "saved " << output << "\n";
    return 0;
}

int RunInfo(const std::string& document, std::ostream& out) {
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    const DocumentInfo info = LoadDocument(workspace, document);
    out << document << ": document version " << info.version << ", " << Count(info.bytes)
        << " bytes, " << workspace.Library().GetNoPrj() << " project"
        << (workspace.Library().GetNoPrj() == 1 ? "" : "s") << "\n";
    for (unsigned int i = 0; i < workspace.Library().GetNoPrj(); ++i)
        DescribeProject(*workspace.Library().GetPrj(i),
                        FindSurveyRecord(workspace.Surveys(), *workspace.Library().GetPrj(i)), out);
    return 0;
}

}  // namespace dtmtool
