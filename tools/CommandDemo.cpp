// "dtm demo": the library's main road for a surveyor, from a terrain to a labelled contour map,
// shown on a terrain generated in code.

#include <cmath>
#include <filesystem>
#include <ostream>

#include "Commands.h"
#include "DemoTerrain.h"
#include "Document.h"
#include "ElevationColours.h"
#include "TextFormat.h"
#include "ToolError.h"
#include "Workspace.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_2D;

// The contour intervals of the demo: a line every 5 m, an index line every 25 m.
constexpr double kMinorInterval = 5.0;
constexpr double kIndexInterval = 25.0;
// Rows of the profile printed in the summary.
constexpr int kProfileRows = 9;

ContourSettings SettingsFromOptions(const COpzCvLv& options) {
    ContourSettings settings;
    settings.interval = options.GetInterval1();
    settings.labelEvery =
        std::max(1, static_cast<int>(std::lround(options.GetInterval2() / options.GetInterval1())));
    return settings;
}

// Reads the saved document into a fresh library and checks that writing that library again
// gives the very same bytes: every section read back exactly what was written.
void CheckRoundTrip(const std::string& path, const CDtmPrj& original, Workspace& reread,
                    std::ostream& out) {
    const std::vector<char> saved = ReadWholeFile(path);
    UndoSuspension quiet(reread.Undo());
    const DocumentInfo info =
        ParseDocument(reread.Library(), saved.data(), saved.size(), path, &reread.Surveys());
    const std::vector<char> again =
        SerializeDocument(reread.Library(), info.version, &reread.Surveys());
    if (again != saved) {
        const auto mismatch = std::mismatch(saved.begin(), saved.end(), again.begin(), again.end());
        throw FileError(path, "does not read back as it was written (first difference at byte " +
                                  std::to_string(mismatch.first - saved.begin()) + ")");
    }
    const CDtmPrj& loaded = *reread.Library().GetPrj(0);
    if (loaded.GetTris()->GetNoTris() != original.GetTris()->GetNoTris() ||
        loaded.GetCvLvs()->GetNoCvLvs() != original.GetCvLvs()->GetNoCvLvs() ||
        loaded.GetVncs()->GetNoVncs() != original.GetVncs()->GetNoVncs())
        throw FileError(path, "read back with other counts than were saved");
    out << "  document     " << path << ", " << Count(saved.size()) << " bytes, version "
        << info.version << ": read back and written again byte for byte\n";
}

void PrintElevation(const CTris& tris, const char* place, const PNT_2D& at, std::ostream& out) {
    const double z = tris.GetCoordZQ(at.x, at.y);
    out << "               " << place << " (" << Fixed(at.x, 1) << ", " << Fixed(at.y, 1)
        << "): " << (dtm::IsUndefinedQuote(z) ? "no surface" : Fixed(z, 2)) << "\n";
}

void PrintProfile(CDtmPrj& prj, const kor::geom::LINE_2D& line, std::ostream& out) {
    std::vector<TLineProgPnt> points;
    CCalcIntersect(prj).CalcQuotedPnts(line, points);
    if (points.empty()) return;
    const double length = points.back().prog;
    out << "  profile      " << Fixed(length, 1) << " m south to north across the valley and "
        << "the ridge, " << Count(points.size()) << " points:\n";
    // The point nearest to each of a few evenly spaced distances.
    std::size_t next = 0;
    for (int row = 0; row < kProfileRows; ++row) {
        const double wanted = length * row / (kProfileRows - 1);
        while (next + 1 < points.size() && points[next + 1].prog <= wanted) ++next;
        const TLineProgPnt& p = points[next];
        out << "               " << Fixed(p.prog, 1) << " m: "
            << (dtm::IsUndefinedQuote(p.pnt.z) ? std::string("no surface") : Fixed(p.pnt.z, 2))
            << "\n";
    }
}

void PrintTerrain(const CDtmPrj& prj, std::ostream& out) {
    const CTris& tris = *prj.GetTris();
    out << "  network      " << Count(tris.GetNoTriVrts()) << " vertices, "
        << Count(tris.GetNoTris()) << " triangles, elevations " << Fixed(tris.GetMinQuota(), 2)
        << " .. " << Fixed(tris.GetMaxQuota(), 2) << " m, coloured by elevation classes\n";
    out << "  boundaries   " << prj.GetCnts(false)->GetNoCnts() << " external, "
        << prj.GetCnts(true)->GetNoCnts() << " internal (a pond)\n";
    out << "  breaklines   " << Count(prj.GetVncs()->GetNoVncs())
        << " segments along the ridge's crest, the valley's floor and a bank\n";
}

}  // namespace

int RunDemo(const std::string& folder, std::ostream& out) {
    const std::string documentPath = (std::filesystem::path(folder) / "demo.dtm").string();
    const std::string picturePath = (std::filesystem::path(folder) / "demo.svg").string();

    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    DemoLandmarks landmarks;
    CDtmPrj& prj = *BuildDemoTerrain(workspace, landmarks);
    workspace.Library().SetActive(&prj, false);
    ColourByElevation(*prj.GetTris());
    out << "dtm demo: sample terrain '" << prj.GetName().str() << "'\n";
    PrintTerrain(prj, out);

    COpzCvLv& options = prj.GetCvLvs()->GetOpzCvLv();
    options.SetInterval1(kMinorInterval);
    options.SetInterval2(kIndexInterval);
    const ContourSummary contours = MakeContourLines(prj, SettingsFromOptions(options));
    out << "  contours     every " << Fixed(kMinorInterval, 0) << " m, index lines every "
        << Fixed(kIndexInterval, 0) << " m: " << Count(contours.lines) << " lines ("
        << Count(contours.closedLines) << " closed) at " << Count(contours.levels)
        << " elevations, smoothed by the library, " << Count(contours.labels) << " labels\n";

    SaveDocument(workspace, documentPath);
    Workspace reread;
    CheckRoundTrip(documentPath, prj, reread, out);

    out << "  elevations\n";
    const CTris& tris = *prj.GetTris();
    PrintElevation(tris, "hill top    ", landmarks.hillTop, out);
    PrintElevation(tris, "ridge crest ", landmarks.ridgeCrest, out);
    PrintElevation(tris, "valley floor", landmarks.valleyFloor, out);
    PrintElevation(tris, "pond        ", landmarks.pond, out);
    PrintProfile(prj, landmarks.section, out);

    // The picture is drawn from the document as read back, so it shows what the file holds.
    RenderOptions render;
    render.title =
        "dtm demo: " + prj.GetName().str() + ", contours every " + Fixed(kMinorInterval, 0) + " m";
    RenderSvg(reread.Library(), render, documentPath, picturePath);
    out << "picture: " << std::filesystem::absolute(picturePath).lexically_normal().string()
        << "\n";
    return 0;
}

}  // namespace dtmtool
