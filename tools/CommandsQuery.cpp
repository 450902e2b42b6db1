// The commands that ask the surface for elevations: elev and profile.

#include <charconv>
#include <istream>
#include <ostream>

#include "Commands.h"
#include "Document.h"
#include "TextFormat.h"
#include "ToolError.h"
#include "Workspace.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_2D;

// The elevation at @p point in the first of @p projects whose network holds it, or
// UNDEFINED_QUOTE.
double ElevationAt(const std::vector<const CDtmPrj*>& projects, const PNT_2D& point) {
    for (const CDtmPrj* prj : projects) {
        const double z = prj->GetTris()->GetCoordZQ(point.x, point.y);
        if (!dtm::IsUndefinedQuote(z)) return z;
    }
    return UNDEFINED_QUOTE;
}

std::vector<const CDtmPrj*> ProjectsToAsk(const Workspace& workspace, const std::string& name,
                                          const std::string& document) {
    if (!name.empty()) return {&workspace.FindProject(name, document)};
    std::vector<const CDtmPrj*> projects;
    for (unsigned int i = 0; i < workspace.Library().GetNoPrj(); ++i)
        projects.push_back(workspace.Library().GetPrj(i));
    if (projects.empty()) throw FileError(document, "holds no project");
    return projects;
}

// The first two numbers of a line such as "12.5,40" or "12.5 40"; false when there are none.
bool ParsePoint(const std::string& line, PNT_2D& point) {
    double values[2];
    int found = 0;
    const char* at = line.data();
    const char* end = at + line.size();
    while (found < 2 && at < end) {
        while (at < end && (*at == ' ' || *at == '\t' || *at == ',' || *at == ';' || *at == '\r'))
            ++at;
        if (at == end) break;
        if (*at == '+') ++at;
        const std::from_chars_result result = std::from_chars(at, end, values[found]);
        if (result.ec != std::errc()) return false;
        at = result.ptr;
        ++found;
    }
    if (found < 2) return false;
    point = PNT_2D(values[0], values[1]);
    return true;
}

std::string PointText(const PNT_2D& point) {
    return "(" + Exact(point.x) + ", " + Exact(point.y) + ")";
}

std::string SurfaceWords(const std::string& project) {
    return project.empty() ? "every surface" : "surface '" + project + "'";
}

// Answers every "x,y" line of @p in with "x,y,z"; a first line that is not a point is taken as
// a header and copied with ",z" added.
int ElevationsFromList(const std::vector<const CDtmPrj*>& projects, const std::string& document,
                       const std::string& project, std::istream& in, std::ostream& out) {
    std::string line;
    std::size_t lineNumber = 0, points = 0, outside = 0;
    while (std::getline(in, line)) {
        ++lineNumber;
        if (line.empty() || line == "\r" || line[0] == '#') continue;
        PNT_2D point;
        if (!ParsePoint(line, point)) {
            if (points == 0 && lineNumber == 1) {
                out << "x,y,z\n";
                continue;
            }
            throw ToolError("standard input: line " + std::to_string(lineNumber) +
                            " does not start with two numbers x,y");
        }
        ++points;
        const double z = ElevationAt(projects, point);
        out << Exact(point.x) << ',' << Exact(point.y) << ',';
        if (dtm::IsUndefinedQuote(z))
            ++outside;
        else
            out << Exact(z);
        out << '\n';
    }
    out.flush();
    if (outside > 0)
        throw FileError(document, std::to_string(outside) + " of " + std::to_string(points) +
                                      " points lie outside " + SurfaceWords(project));
    return 0;
}

}  // namespace

int RunElev(const std::string& document, const std::optional<PNT_2D>& point,
            const std::string& project, std::istream& in, std::ostream& out) {
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    LoadDocument(workspace.Library(), document);
    const std::vector<const CDtmPrj*> projects = ProjectsToAsk(workspace, project, document);
    if (!point) return ElevationsFromList(projects, document, project, in, out);
    const double z = ElevationAt(projects, *point);
    if (dtm::IsUndefinedQuote(z))
        throw FileError(
            document, "the point " + PointText(*point) + " lies outside " + SurfaceWords(project));
    out << Exact(z) << "\n";
    return 0;
}

int RunProfile(const std::string& document, const kor::geom::LINE_2D& line,
               const std::string& project, std::ostream& out) {
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    LoadDocument(workspace.Library(), document);
    CDtmPrj& prj = workspace.FindProject(project, document);
    std::vector<TLineProgPnt> points;
    CCalcIntersect(prj).CalcQuotedPnts(line, points);
    out << "distance,x,y,elevation\n";
    for (const TLineProgPnt& p : points) {
        out << Exact(p.prog) << ',' << Exact(p.pnt.x) << ',' << Exact(p.pnt.y) << ',';
        if (!dtm::IsUndefinedQuote(p.pnt.z)) out << Exact(p.pnt.z);
        out << '\n';
    }
    return 0;
}

}  // namespace dtmtool
