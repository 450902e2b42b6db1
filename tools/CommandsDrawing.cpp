// The commands that make and draw contour lines: contours and render.

#include <algorithm>
#include <ostream>
#include <vector>

#include "AtomicFile.h"
#include "Commands.h"
#include "Document.h"
#include "TextFormat.h"
#include "ToolError.h"
#include "Workspace.h"

namespace dtmtool {

namespace {

void ReportContours(const CDtmPrj& prj, const ContourSummary& summary, std::ostream& out) {
    out << "project '" << prj.GetName().str()
        << "': " << Counted(summary.lines, "contour line", "contour lines") << " ("
        << Count(summary.closedLines) << " closed) at "
        << Counted(summary.levels, "elevation", "elevations") << " (interval "
        << Exact(summary.interval) << "), " << Counted(summary.labels, "label", "labels")
        << " of height " << Fixed(summary.textHeight, 2) << "\n";
}

}  // namespace

int RunContours(const std::string& document, const ContourSettings& settings,
                const std::string& project, const std::string& output, std::ostream& out) {
    if (!(settings.interval >= 0.0))
        throw ToolError(
            "the contour interval must be a positive number, or 0 for one chosen "
            "from the elevations");
    // Writing back over the document is what contours does without -o, so an output that is
    // the document is fine; one that cannot take a file is refused before the work.
    if (!output.empty()) CheckOutputKind(output);
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    LoadDocument(workspace, document);
    const std::vector<CDtmPrj*> projects = workspace.Projects(project, document);
    // Every project is checked before the first is worked on, so that a refused request costs
    // no tracing and changes nothing.
    for (const CDtmPrj* prj : projects) CheckContourSettings(*prj, settings);
    for (CDtmPrj* prj : projects) {
        const ContourSettings applied = SettingsFor(*prj, settings);
        // The options offer the intervals to the next user of the project (the host's INI keeps
        // them; the document does not).
        COpzCvLv& options = prj->GetCvLvs()->GetOpzCvLv();
        options.SetInterval1(applied.interval);
        options.SetInterval2(applied.interval * std::max(1, applied.labelEvery));
        ReportContours(*prj, MakeContourLines(*prj, applied), out);
    }
    const std::string target = output.empty() ? document : output;
    SaveDocument(workspace, target);
    out << "saved " << target << "\n";
    return 0;
}

int RunRender(const std::string& document, const std::string& output, const RenderOptions& options,
              std::ostream& out) {
    CheckOutput(document, output);
    Workspace workspace;
    UndoSuspension quiet(workspace.Undo());
    LoadDocument(workspace, document);
    RenderSvg(workspace.Library(), options, document, output);
    out << "picture: " << output << "\n";
    return 0;
}

}  // namespace dtmtool
