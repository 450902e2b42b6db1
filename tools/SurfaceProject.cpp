#include "SurfaceProject.h"

#include <algorithm>

#include "ElevationColours.h"
#include "Progress.h"
#include "Workspace.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_3D;

// The colour index that means "by layer": the triangles take their colour from the classes.
constexpr int kByLayer = 256;

void AddBoundaries(CCnts& cnts, const std::vector<Polyline3D>& rings) {
    for (const Polyline3D& ring : rings) {
        if (ring.empty()) continue;
        kor::CRefPtr<CCnt> cnt = kor::CRefPtr<CCnt>::Adopt(new CCnt());
        cnt->SetRealVrts(ring);
        cnts.AddCnt(cnt.Get());
    }
}

void AddBreaklines(CVncs& vncs, const std::vector<Polyline3D>& polylines) {
    for (const Polyline3D& line : polylines)
        for (std::size_t i = 1; i < line.size(); ++i)
            vncs.AddNewVnc(kor::geom::LINE_3D(line[i - 1], line[i]));
}

bool SamePoint(const PNT_3D& a, const PNT_3D& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

// The project's breakline segments as polylines: cut where the survey's lines ended when the
// record accounts for every segment, else joined wherever a segment starts exactly where the
// previous one ended.
std::vector<Polyline3D> BreaklinesOf(const CVncs& vncs, const SurveyRecord* record) {
    std::size_t recorded = 0;
    if (record)
        for (const SurveyBreakline& line : record->breaklines) recorded += line.segments;
    const bool cutByRecord = record && !record->breaklines.empty() &&
                             recorded == static_cast<std::size_t>(vncs.GetNoVncs());
    std::vector<Polyline3D> lines;
    // With the record: the next of its lines, and the segments left of the current one (every
    // record line has at least one).
    std::size_t next = 0, left = 0;
    for (int i = 0; i < vncs.GetNoVncs(); ++i) {
        const kor::geom::LINE_3D& segment = vncs.GetVncAt(i)->GetCoords();
        bool starts = lines.empty() || !SamePoint(lines.back().back(), segment.start);
        if (cutByRecord) {
            starts = left == 0;
            if (starts) left = record->breaklines[next++].segments;
            --left;
        }
        if (starts) lines.push_back({segment.start});
        lines.back().push_back(segment.end);
    }
    return lines;
}

}  // namespace

Polyline3D RealRing(const CCnt& cnt) {
    const std::vector<PNT_3D>& stored = cnt.GetExtendedVrts();
    if (stored.size() < 3) return stored;
    return Polyline3D(stored.begin() + 1, stored.end() - 1);
}

CDtmPrj* AddSurfaceProject(Workspace& workspace, const TinSurface& surface) {
    CDtmPrj* prj = workspace.AddProject(surface.name);
    CTris& tris = *prj->GetTris();
    PresetElevationColours(tris.GetOptions());

    Progress progress("importing " + surface.name, surface.points.size() + surface.faces.size());
    {
        // One event for everything: one pass of the network's recomputation at the end instead
        // of one per vertex.
        kor::CEventGuard event(prj->GetContext());
        tris.SetNoTriVrts(static_cast<int>(surface.points.size()));
        for (const PNT_3D& point : surface.points) {
            tris.AddTriVrt(point);
            progress.Advance();
        }
        for (const auto& face : surface.faces) {
            tris.AddNewTri(kByLayer, face[0], face[1], face[2]);
            progress.Advance();
        }
        AddBoundaries(*prj->GetCnts(false), surface.externalBoundaries);
        AddBoundaries(*prj->GetCnts(true), surface.internalBoundaries);
        AddBreaklines(*prj->GetVncs(), surface.breaklines);
    }
    if (!surface.survey.IsEmpty()) workspace.Surveys()[prj] = surface.survey;
    progress.Finish();
    return prj;
}

TinSurface SurfaceOfProject(const CDtmPrj& prj, const SurveyRecord* record) {
    TinSurface surface;
    surface.name = prj.GetName().str();
    if (record) surface.survey = *record;
    const CTris& tris = *prj.GetTris();
    surface.points = tris.GetPnts();
    const int vertexCount = tris.GetNoTriVrts();
    const auto valid = [vertexCount](const auto& corners) {
        return std::all_of(corners.begin(), corners.end(),
                           [vertexCount](int v) { return v >= 0 && v < vertexCount; });
    };
    surface.faces.reserve(static_cast<std::size_t>(tris.GetNoTris()));
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const CTri& tri = *tris.GetTriAt(i);
        const std::array<int, 3> face = {tri.GetVerIndex(0), tri.GetVerIndex(1),
                                         tri.GetVerIndex(2)};
        if (valid(face)) surface.faces.push_back(face);
    }
    // A hidden face keeps its corners only while the network keeps the vertices they name.
    auto& hidden = surface.survey.hiddenFaces;
    hidden.erase(std::remove_if(hidden.begin(), hidden.end(),
                                [&](const std::vector<int>& face) { return !valid(face); }),
                 hidden.end());
    for (int i = 0; i < prj.GetCnts(false)->GetNoCnts(); ++i)
        surface.externalBoundaries.push_back(RealRing(*prj.GetCnts(false)->GetCntAt(i)));
    for (int i = 0; i < prj.GetCnts(true)->GetNoCnts(); ++i)
        surface.internalBoundaries.push_back(RealRing(*prj.GetCnts(true)->GetCntAt(i)));

    surface.breaklines = BreaklinesOf(*prj.GetVncs(), record);
    // Attributes go with the lines only where the record cut them.
    if (surface.breaklines.size() != surface.survey.breaklines.size())
        surface.survey.breaklines.clear();
    return surface;
}

}  // namespace dtmtool
