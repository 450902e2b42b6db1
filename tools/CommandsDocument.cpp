// The commands that move surfaces in and out of documents and describe them: import, export,
// info.

#include <ostream>

#include "Commands.h"
#include "Document.h"
#include "LandXml.h"
#include "SurfaceProject.h"
#include "TextFormat.h"
#include "Workspace.h"

namespace dtmtool {

namespace {

void DescribeNetwork(const CTris& tris, std::ostream& out) {
    out << "  network      " << Count(tris.GetNoTriVrts()) << " vertices, "
        << Count(tris.GetNoTris()) << " triangles\n";
    kor::geom::RECT_3D box;
    if (tris.GetNoTriVrts() > 0 && tris.GetBdry(box)) {
        out << "  elevations   " << Fixed(tris.GetMinQuota(), 3) << " .. "
            << Fixed(tris.GetMaxQuota(), 3) << "\n";
        out << "  extent       E " << Fixed(box.min.x, 3) << " .. " << Fixed(box.max.x, 3) << ", N "
            << Fixed(box.min.y, 3) << " .. " << Fixed(box.max.y, 3) << "\n";
    }
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
    out << "  contours     " << Count(lines.GetNoCvLvs()) << " lines from " << Fixed(low, 3)
        << " to " << Fixed(high, 3) << ", " << Count(labels) << " labels\n";
}

void DescribeProject(const CDtmPrj& prj, std::ostream& out) {
    out << "project '" << prj.GetName().str() << "'" << (prj.IsActive() ? " (active)" : "")
        << (prj.IsVisible() ? "" : " (hidden)") << (prj.IsLocked() ? " (locked)" : "") << "\n";
    DescribeNetwork(*prj.GetTris(), out);
    out << "  boundaries   " << prj.GetCnts(false)->GetNoCnts() << " external, "
        << prj.GetCnts(true)->GetNoCnts() << " internal\n";
    out << "  breaklines   " << Count(prj.GetVncs()->GetNoVncs()) << " segments\n";
    DescribeContours(*prj.GetCvLvs(), out);
}

}  // namespace

int RunImport(const std::string& landXml, const std::string& output, std::ostream& out) {
    const std::vector<TinSurface> surfaces = ReadLandXml(landXml);
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    for (const TinSurface& surface : surfaces) {
        const CDtmPrj& prj = *AddSurfaceProject(workspace, surface);
        const CTris& tris = *prj.GetTris();
        out << "surface '" << surface.name << "' -> project '" << prj.GetName().str()
            << "': " << Count(surface.points.size()) << " points, " << Count(surface.faces.size())
            << " triangles";
        if (surface.hiddenFaces > 0)
            out << " (" << Count(surface.hiddenFaces) << " hidden faces left out)";
        out << ", " << Count(surface.breaklines.size()) << " breaklines ("
            << Count(prj.GetVncs()->GetNoVncs()) << " segments), "
            << surface.externalBoundaries.size() + surface.internalBoundaries.size()
            << " boundaries";
        if (surface.otherBoundaries > 0)
            out << " (" << surface.otherBoundaries << " of other kinds left out)";
        if (tris.GetNoTriVrts() > 0)
            out << ", elevations " << Fixed(tris.GetMinQuota(), 3) << " .. "
                << Fixed(tris.GetMaxQuota(), 3);
        out << "\n";
    }
    workspace.Library().SetActive(workspace.Library().GetPrj(0), false);
    SaveDocument(workspace.Library(), output);
    out << "saved " << output << "\n";
    return 0;
}

int RunExport(const std::string& document, const std::string& output, std::ostream& out) {
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    LoadDocument(workspace.Library(), document);
    std::vector<TinSurface> surfaces;
    for (unsigned int i = 0; i < workspace.Library().GetNoPrj(); ++i)
        surfaces.push_back(SurfaceOfProject(*workspace.Library().GetPrj(i)));
    WriteLandXml(output, surfaces);
    for (const TinSurface& surface : surfaces)
        out << "project '" << surface.name << "': " << Count(surface.points.size()) << " points, "
            << Count(surface.faces.size()) << " triangles\n";
    out << "saved " << output << "\n";
    return 0;
}

int RunInfo(const std::string& document, std::ostream& out) {
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    const DocumentInfo info = LoadDocument(workspace.Library(), document);
    out << document << ": document version " << info.version << ", " << Count(info.bytes)
        << " bytes, " << workspace.Library().GetNoPrj() << " project"
        << (workspace.Library().GetNoPrj() == 1 ? "" : "s") << "\n";
    for (unsigned int i = 0; i < workspace.Library().GetNoPrj(); ++i)
        DescribeProject(*workspace.Library().GetPrj(i), out);
    return 0;
}

}  // namespace dtmtool
