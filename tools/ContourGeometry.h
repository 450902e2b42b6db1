#pragma once

// Reading a smoothed contour line back as geometry: positions along its spine, and the drawn
// stretches between its label and gap intervals, all through the library's spline functions.

#include <dtm/dtm.h>

#include <vector>

namespace dtmtool {

/// The spine length of @p line: the sum of its nodes' chord lengths.
double SpineLength(const CCvLv& line);

/// The point of @p line at spine parameter @p spine (clamped to the line) and the unit tangent
/// there, pointing along the line. False for a line without a segment of positive length.
bool PointAtSpine(const CCvLv& line, double spine, kor::geom::PNT_2D& point,
                  kor::geom::PNT_2D& tangent);

/// The parts of @p line outside all of its intervals (label and gap alike: the line is not
/// drawn in either), each sampled into a polyline. @p step is the longest sampling step the
/// caller wants, in plan units; the library shortens it where the curve bends.
std::vector<std::vector<kor::geom::PNT_2D>> SampleDrawnRuns(const CCvLv& line, double step);

}  // namespace dtmtool
