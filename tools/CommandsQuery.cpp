// The commands that ask the surface for elevations: elev and profile.

#include <algorithm>
#include <istream>
#include <ostream>
#include <string_view>
#include <vector>

#include "Commands.h"
#include "Document.h"
#include "TextFormat.h"
#include "ToolError.h"
#include "Workspace.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_2D;

// What separates the fields of a line of a point list; a run of them counts as one, so that
// "x, y" and columns aligned with spaces read as two fields.
constexpr std::string_view kFieldSeparators = ",; \t";
// What a spreadsheet may write before the first line of a UTF-8 file.
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// Profile rows closer than this along the line are one place. The same edge met from its two
// triangles gives two crossings whose distances differ only by the rounding of the coordinates
// (a double's step is about 4e-9 at 2e7, the size of projected northings); a micrometre is far
// above that and far below what any survey measures.
constexpr double kSamePlaceAlongProfile = 1e-6;

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

// @p line without what is not its content: the byte-order mark before the first line, the
// carriage return of a CRLF line end, and spaces and tabs around it.
std::string_view ContentOf(std::string_view line, std::size_t lineNumber) {
    if (lineNumber == 1 && line.substr(0, kByteOrderMark.size()) == kByteOrderMark)
        line.remove_prefix(kByteOrderMark.size());
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    const std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return line.substr(first, line.find_last_not_of(" \t") - first + 1);
}

// The fields of a line of a point list. A field in double quotes runs to the closing quote, as
// spreadsheets write them; the quotes are not part of it.
std::vector<std::string_view> Fields(std::string_view line) {
    std::vector<std::string_view> fields;
    std::size_t at = line.find_first_not_of(kFieldSeparators);
    while (at != std::string_view::npos) {
        std::size_t end;
        if (line[at] == '"') {
            const std::size_t close = line.find('"', at + 1);
            fields.push_back(line.substr(at + 1, close - (at + 1)));
            end = close == std::string_view::npos ? close : close + 1;
        } else {
            end = line.find_first_of(kFieldSeparators, at);
            fields.push_back(line.substr(at, end - at));
        }
        at = end == std::string_view::npos ? end : line.find_first_not_of(kFieldSeparators, end);
    }
    return fields;
}

// A header names the columns: none of its fields is written as a number ("x,y", "E;N"). A line
// such as "835560,l068540" or "1e999,5" is a broken point, not a header.
bool IsHeader(const std::vector<std::string_view>& fields) {
    double ignored = 0.0;
    for (const std::string_view field : fields)
        if (ReadNumber(field, ignored) != NumberText::NotANumber) return false;
    return true;
}

// The point of a line of exactly two coordinates. A third field is refused rather than
// ignored: a list written with decimal commas ("835560,5;1068540,5") would otherwise be read
// as a wrong point without a word.
bool PointOf(const std::vector<std::string_view>& fields, PNT_2D& point) {
    return fields.size() == 2 && ReadCoordinate(fields[0], point.x) &&
           ReadCoordinate(fields[1], point.y);
}

std::string PointText(const PNT_2D& point) {
    return "(" + Exact(point.x) + ", " + Exact(point.y) + ")";
}

std::string SurfaceWords(const std::string& project) {
    return project.empty() ? "every surface" : "surface '" + project + "'";
}

// "1 of 1 point lies", "2 of 5 points lie": the noun counts the list, the verb the points off.
std::string OutsideWords(std::size_t outside, std::size_t points, const std::string& project) {
    return Count(outside) + " of " + Counted(points, "point", "points") +
           (outside == 1 ? " lies" : " lie") + " outside " + SurfaceWords(project);
}

// Answers every point of the list on @p in with a line "x,y,z" (z empty off the surface).
//
// Blank lines and lines starting with '#' are skipped. The first other line is a header when
// IsHeader says so; it is echoed with ",z" added, and without one the answer starts with
// "x,y,z", so that the answer is always a CSV file with named columns. Every other line must be
// a point, and one that is not ends the run with an error naming its line: the answers are
// written as the list is read, and one line left out would put every answer after it beside the
// wrong line of a list that a program pairs with them.
int ElevationsFromList(const std::vector<const CDtmPrj*>& projects, const std::string& document,
                       const std::string& project, std::istream& in, std::ostream& out) {
    std::string line;
    std::size_t lineNumber = 0, points = 0, outside = 0;
    bool headerWritten = false;
    while (std::getline(in, line)) {
        ++lineNumber;
        const std::string_view content = ContentOf(line, lineNumber);
        if (content.empty() || content[0] == '#') continue;
        const std::vector<std::string_view> fields = Fields(content);
        if (!headerWritten) {
            headerWritten = true;
            if (IsHeader(fields)) {
                out << content << ",z\n";
                continue;
            }
            out << "x,y,z\n";
        }
        PNT_2D point;
        if (!PointOf(fields, point))
            throw ToolError("standard input: line " + std::to_string(lineNumber) +
                            " is not a point x,y of two numbers within 1e15 of zero: " +
                            QuotedForMessage(content));
        ++points;
        const double z = ElevationAt(projects, point);
        out << Exact(point.x) << ',' << Exact(point.y) << ',';
        if (dtm::IsUndefinedQuote(z))
            ++outside;
        else
            out << Exact(z);
        out << '\n';
    }
    if (!headerWritten) out << "x,y,z\n";
    out.flush();
    if (outside > 0) throw FileError(document, OutsideWords(outside, points, project));
    return 0;
}

// @p points with every point that lies within kSamePlaceAlongProfile after the point kept
// before it left out.
std::vector<TLineProgPnt> WithoutRepeats(const std::vector<TLineProgPnt>& points) {
    std::vector<TLineProgPnt> kept;
    for (const TLineProgPnt& p : points)
        if (kept.empty() || p.prog - kept.back().prog >= kSamePlaceAlongProfile) kept.push_back(p);
    return kept;
}

// @p points with a point without elevation added halfway between two neighbours that both
// have one where the surface is absent (the network in separate pieces, a hole). Between two
// neighbours the line crosses no edge, so it runs inside one triangle or outside all of them,
// and the midpoint tells which; the added point makes a plot of the rows break there rather
// than bridge the gap.
std::vector<TLineProgPnt> WithGapsMarked(const std::vector<TLineProgPnt>& points,
                                         const CTris& tris) {
    std::vector<TLineProgPnt> marked;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (i > 0 && !dtm::IsUndefinedQuote(points[i - 1].pnt.z) &&
            !dtm::IsUndefinedQuote(points[i].pnt.z)) {
            TLineProgPnt middle;
            middle.pnt.x = (points[i - 1].pnt.x + points[i].pnt.x) / 2.0;
            middle.pnt.y = (points[i - 1].pnt.y + points[i].pnt.y) / 2.0;
            middle.pnt.z = UNDEFINED_QUOTE;
            middle.prog = (points[i - 1].prog + points[i].prog) / 2.0;
            if (dtm::IsUndefinedQuote(tris.GetCoordZQ(middle.pnt.x, middle.pnt.y)))
                marked.push_back(middle);
        }
        marked.push_back(points[i]);
    }
    return marked;
}

}  // namespace

int RunElev(const std::string& document, const std::optional<PNT_2D>& point,
            const std::string& project, std::istream& in, std::ostream& out) {
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    LoadDocument(workspace, document);
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
    LoadDocument(workspace, document);
    CDtmPrj& prj = workspace.FindProject(project, document);
    std::vector<TLineProgPnt> points;
    CCalcIntersect(prj).CalcQuotedPnts(line, points);
    // A line that never meets the surface has nothing to plot; most often its ends were given
    // as northing easting, or in another survey's coordinates. It is told as an elevation off
    // the surface is.
    if (std::all_of(points.begin(), points.end(),
                    [](const TLineProgPnt& p) { return dtm::IsUndefinedQuote(p.pnt.z); }))
        throw FileError(document, "the line from " + PointText(line.start) + " to " +
                                      PointText(line.end) + " lies outside surface '" +
                                      prj.GetName().str() + "'");
    out << "distance,x,y,elevation\n";
    for (const TLineProgPnt& p : WithGapsMarked(WithoutRepeats(points), *prj.GetTris())) {
        out << Exact(p.prog) << ',' << Exact(p.pnt.x) << ',' << Exact(p.pnt.y) << ',';
        if (!dtm::IsUndefinedQuote(p.pnt.z)) out << Exact(p.pnt.z);
        out << '\n';
    }
    return 0;
}

}  // namespace dtmtool
