#pragma once

// Making a project's contour lines: trace them through the network, hand them to the library
// to smooth, and place their labels.

#include <dtm/dtm.h>

#include <cstddef>

namespace dtmtool {

/// How the contour lines are made.
struct ContourSettings {
    /// Elevation between two neighbouring lines; 0 lets the tool choose a round one from the
    /// network's elevations (see ChosenInterval).
    double interval = 0.0;
    /// Every labelEvery-th line (counted on whole multiples of the interval) is an index line:
    /// it carries labels and is drawn heavier.
    int labelEvery = 5;
    /// Height of the label text in plan units; 0 lets the tool choose one from the network's
    /// extent. Any other value must be positive and finite, and at least a hundred-thousandth of
    /// the network's extent (see MakeContourLines).
    double textHeight = 0.0;
};

/// What making the lines produced.
struct ContourSummary {
    std::size_t levels = 0;
    std::size_t lines = 0;
    std::size_t closedLines = 0;
    std::size_t labels = 0;
    double interval = 0.0;
    double textHeight = 0.0;
};

/// The interval chosen for elevations from @p minZ to @p maxZ when the caller names none: the
/// smallest round one (1, 2, 2.5 or 5 times a power of ten) that gives at most about 20 levels
/// over the range, and never one so small against the elevations that their multiples stop
/// stepping by one. 1 when there is no range (no elevations, or a flat network).
double ChosenInterval(double minZ, double maxZ);

/// @p settings as they apply to @p prj: the interval asked for, or the chosen one.
ContourSettings SettingsFor(const CDtmPrj& prj, const ContourSettings& settings);

/// True when @p elevation is an index line of @p settings (a multiple of labelEvery times the
/// interval, to a tolerance that absorbs the rounding of the elevation's own product).
bool IsIndexLevel(double elevation, const ContourSettings& settings);

/// Replaces the contour lines of @p prj by lines traced at every multiple of the interval
/// within the network's elevation range: each traced polyline becomes a line of the
/// collection through CCvLvs::AddNewCvLv (the library computes its tension spline with the
/// options' tension), index lines get label intervals spaced along them, the lines are
/// coloured as the options say, and the collection is marked oriented (higher ground on the
/// left). The label text options are set first (height, decimals enough for the interval, the
/// label centred on the line so that it interrupts it). Labels stand about 50 text heights
/// apart, at most 300 on one line. Everything is one change event.
/// Throws, before changing anything, what CheckContourSettings throws.
ContourSummary MakeContourLines(CDtmPrj& prj, const ContourSettings& settings);

/// Checks that @p settings can make the contour lines of @p prj, as MakeContourLines does
/// before it changes anything, so that a command can check every project before it works on
/// the first. Throws std::invalid_argument for an interval that is not positive or a text
/// height that is negative or not finite; UsageError, naming --interval and an interval that
/// would do, for an interval too small for the network's elevations (more than 100,000
/// levels, or levels too close for their elevations to tell apart); and UsageError, naming
/// --text-height and the least height accepted, for a text height below a hundred-thousandth
/// of the network's larger extent.
void CheckContourSettings(const CDtmPrj& prj, const ContourSettings& settings);

}  // namespace dtmtool
