#pragma once

// One function per command of the tool. Each reads its inputs, does its work through the
// library, writes its files atomically and its report to @p out, and returns the exit status;
// a failure a person can act on is thrown as ToolError, which main prints.

#include <iosfwd>
#include <optional>
#include <string>

#include "ContourLines.h"
#include "SvgRenderer.h"

namespace dtmtool {

/// "dtm demo": builds the sample terrain, colours it, traces, smooths and labels its contour
/// lines, saves it as @p folder/demo.dtm, reads that back and checks that it is the same, and
/// draws @p folder/demo.svg from what was read; prints a summary and where the picture is.
int RunDemo(const std::string& folder, std::ostream& out);

/// "dtm import": one project per TIN surface of @p landXml, saved as the document @p output.
int RunImport(const std::string& landXml, const std::string& output, std::ostream& out);

/// "dtm export": every project of @p document, or the one called @p project, as a surface of
/// the LandXML file @p output.
int RunExport(const std::string& document, const std::string& project, const std::string& output,
              std::ostream& out);

/// "dtm info": what the document holds.
int RunInfo(const std::string& document, std::ostream& out);

/// "dtm elev": the elevation at (@p x, @p y), or, without a point, at every "x,y" line of
/// @p in, written as "x,y,z" lines (z empty off the surface) after a header line: the list's
/// own header with ",z" added, or "x,y,z". The list may start with a UTF-8 byte-order mark and
/// have CRLF line ends; blank lines and '#' comments are skipped; fields are separated by
/// commas, semicolons, tabs or spaces and may stand in double quotes. Its first line is a
/// header when none of its fields is a number; any other line that is not two finite numbers
/// is an error naming its line number. @p project limits the search to one project; by default
/// the first project holding a point answers. A single point off every surface is an error;
/// for a list, the answer is 1 when any point was off.
int RunElev(const std::string& document, const std::optional<kor::geom::PNT_2D>& point,
            const std::string& project, std::istream& in, std::ostream& out);

/// "dtm profile": CSV of distance, x, y, elevation along the plan segment @p line through the
/// network of @p project (by default the active or first one); elevation empty off the network.
/// Rows less than a micrometre apart along the line are written once (the first), and where
/// the line leaves the network between two rows with elevations, a row without elevation is
/// written halfway between them, so that a plot of the rows does not bridge the gap.
int RunProfile(const std::string& document, const kor::geom::LINE_2D& line,
               const std::string& project, std::ostream& out);

/// "dtm contours": replaces the contour lines of every project (or of @p project) by lines
/// traced with @p settings and saves the document to @p output (empty: back to @p document).
int RunContours(const std::string& document, const ContourSettings& settings,
                const std::string& project, const std::string& output, std::ostream& out);

/// "dtm render": the picture of the document, written to @p output.
int RunRender(const std::string& document, const std::string& output, const RenderOptions& options,
              std::ostream& out);

/// "dtm undo-demo": edits a sample library, undoes and redoes the edit through the undo store,
/// and checks each state.
int RunUndoDemo(std::ostream& out);

}  // namespace dtmtool
