#include "ContourLines.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "ContourGeometry.h"
#include "ContourTracer.h"
#include "Progress.h"
#include "TextFormat.h"
#include "UsageError.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_2D;

// The colour index "by layer": the collection's colouring decides afterwards.
constexpr std::int32_t kByLayer = 256;
// Label height as a share of the network's larger extent when the caller names none: about
// ten pixels on a picture of the whole network 1600 pixels wide.
constexpr double kTextHeightShareOfExtent = 1.0 / 150.0;
// Labels of one line stand about this many text heights apart.
constexpr double kLabelSpacingInTextHeights = 50.0;
// The smallest label height a caller may ask for, as a share of the network's larger extent.
// The number of labels, and the time to place them, grows as one over the height: a millimetre
// on a survey two kilometres across asked for 174,288 labels and most of a minute, a
// nanometre ran for ten minutes without an end in sight. A hundred-thousandth of the extent (2 cm
// there) is far below any legible text on a drawing of the whole survey, yet leaves room for labels
// meant to be read zoomed in on a large one.
constexpr double kMinimumTextHeightShareOfExtent = 1e-5;
// At most this many labels on one line, whatever its length: together with the smallest height
// this bounds the work on lines that wind far longer than the network is wide. At the
// automatic height a line gets one label per third of the extent, so only a line a hundred
// times longer than the network is wide meets the cap.
constexpr int kMaximumLabelsPerLine = 300;
// A line gets no label unless it is this many label lengths long; shorter ones would be mostly
// label.
constexpr double kMinimumLineInLabelLengths = 4.0;
// Nodes closer than this share of a line's mean node spacing carry no shape, only a risk of
// tiny, twisted spline segments (a line passing next to a vertex crosses two edges almost at
// the same point).
constexpr double kMinimumNodeSpacingShare = 0.05;
// Candidate label positions tried on either side of the even spacing, to find a straight part.
constexpr int kLabelCandidatesEachSide = 4;
// A chosen interval gives at most about this many levels: enough to read the shape of the
// ground on a drawing of the whole network, few enough to leave room between the lines.
constexpr double kLevelsOfAChosenInterval = 20.0;
// The smallest interval chosen, for elevations that differ by less.
constexpr double kSmallestChosenStep = 1e-300;

// The smallest of 1, 2, 2.5 and 5 times a power of ten that is at least @p wanted (positive and
// finite). A power below 1 divides, so that 0.25 is the double nearest to a quarter.
double RoundStepAtLeast(double wanted) {
    const double exponent = std::floor(std::log10(wanted));
    const double power = std::pow(10.0, std::fabs(exponent));
    for (const double mantissa : {1.0, 2.0, 2.5, 5.0}) {
        const double step = exponent < 0.0 ? mantissa / power : mantissa * power;
        if (step >= wanted) return step;
    }
    return exponent < 0.0 ? 10.0 / power : 10.0 * power;
}

// The larger side of the network's plan box; 0 for a network without one.
double PlanExtent(const CTris& tris) {
    kor::geom::RECT_3D box;
    if (!tris.GetBdry(box)) return 0.0;
    return std::max(box.max.x - box.min.x, box.max.y - box.min.y);
}

// @p value rounded up to two significant digits, so that the number a message shows as the
// least accepted is itself accepted.
std::string RoundedUp(double value) {
    const int decimals = std::max(0, 1 - static_cast<int>(std::floor(std::log10(value))));
    const double scale = std::pow(10.0, decimals);
    return Fixed(std::ceil(value * scale) / scale, decimals);
}

// The label height for @p prj: the one @p settings ask for, or one from the network's extent.
double TextHeightFor(const CDtmPrj& prj, const ContourSettings& settings) {
    const double extent = PlanExtent(*prj.GetTris());
    if (settings.textHeight == 0.0) return extent > 0.0 ? extent * kTextHeightShareOfExtent : 1.0;
    if (!(settings.textHeight > 0.0) || !std::isfinite(settings.textHeight))
        throw std::invalid_argument(
            "a text height must be a positive number, or 0 for one from "
            "the extent");
    const double minimum = extent * kMinimumTextHeightShareOfExtent;
    if (settings.textHeight < minimum)
        throw UsageError("--text-height " + Exact(settings.textHeight) +
                         " is too small for project '" + prj.GetName().str() + "', " +
                         Count(static_cast<std::uint64_t>(std::ceil(extent))) +
                         " across: give at least " + RoundedUp(minimum) +
                         ", or leave the option out for a height from the extent");
    return settings.textHeight;
}

// The levels of @p prj at the interval @p settings ask for. An interval too small for the
// network's elevations is the caller's request, so it is refused as one, naming --interval and
// an interval that would do: one that keeps the levels within their limit and the level
// numbers below the point where they stop stepping by one.
std::vector<double> LevelsFor(const CDtmPrj& prj, const ContourSettings& settings) {
    const CTris& tris = *prj.GetTris();
    const double minZ = tris.GetMinQuota();
    const double maxZ = tris.GetMaxQuota();
    try {
        return ContourLevels(minZ, maxZ, settings.interval);
    } catch (const std::length_error&) {
        const double magnitude = std::max(std::fabs(minZ), std::fabs(maxZ));
        const double enough =
            std::max((maxZ - minZ) / static_cast<double>(kMaximumContourLevels - 2),
                     2.0 * magnitude / kLevelNumberLimit);
        throw UsageError("--interval " + Exact(settings.interval) + " is too small for project '" +
                         prj.GetName().str() + "', elevations " + Exact(minZ) + " to " +
                         Exact(maxZ) + ": give at least " + RoundedUp(enough));
    }
}

// Decimals enough to write every multiple of @p interval exactly (0.25 needs 2).
std::int32_t DecimalsFor(double interval) {
    for (std::int32_t decimals = 0; decimals < 6; ++decimals) {
        const double scaled = interval * std::pow(10.0, decimals);
        if (std::fabs(scaled - std::round(scaled)) < 1e-9 * std::max(1.0, scaled)) return decimals;
    }
    return 6;
}

// The traced points minus those too close to the one kept before them; a closed line keeps its
// exact closing point.
std::vector<PNT_2D> ThinnedNodes(const ContourPolyline& polyline) {
    const std::vector<PNT_2D>& points = polyline.points;
    double total = 0.0;
    for (std::size_t i = 1; i < points.size(); ++i) total += points[i].dist(points[i - 1]);
    const double minimum =
        kMinimumNodeSpacingShare * total / static_cast<double>(points.size() - 1);
    std::vector<PNT_2D> kept{points.front()};
    for (std::size_t i = 1; i + 1 < points.size(); ++i)
        if (points[i].dist(kept.back()) >= minimum) kept.push_back(points[i]);
    if (kept.size() > 1 && points.back().dist(kept.back()) < minimum) kept.pop_back();
    kept.push_back(points.back());
    return kept;
}

// How much the line turns over a label placed at @p centre: the angle between the tangents at
// the label's two ends (0 on a straight stretch).
double TurnOver(const CCvLv& line, double centre, double extent) {
    PNT_2D p, before, after;
    if (!PointAtSpine(line, centre - extent / 2.0, p, before) ||
        !PointAtSpine(line, centre + extent / 2.0, p, after))
        return 4.0;
    return std::acos(std::max(-1.0, std::min(1.0, before.x * after.x + before.y * after.y)));
}

// Adds evenly spaced label intervals to @p line, each moved to the straightest spot near its
// even position and flagged to read against the line where the line runs right to left, so
// that every label stands upright. Answers the number placed.
std::size_t PlaceLabels(CCvLv& line, const COpzCvLv& options, double spacing) {
    const double extent = options.GetQuotaExtent(line.GetQuota());
    const double length = SpineLength(line);
    if (length < kMinimumLineInLabelLengths * std::max(extent, options.GetTextHeight())) return 0;
    const int count = std::max(
        1, static_cast<int>(std::min<double>(std::round(length / spacing), kMaximumLabelsPerLine)));
    const double pitch = length / count;
    std::size_t placed = 0;
    for (int k = 0; k < count; ++k) {
        const double even = (k + 0.5) * pitch;
        double best = even;
        double bestTurn = TurnOver(line, even, extent);
        for (int offset = -kLabelCandidatesEachSide; offset <= kLabelCandidatesEachSide; ++offset) {
            const double candidate = even + offset * pitch / (4.0 * kLabelCandidatesEachSide);
            const double turn = TurnOver(line, candidate, extent);
            if (turn < bestTurn) {
                best = candidate;
                bestTurn = turn;
            }
        }
        const double start = best - extent / 2.0;
        const double end = best + extent / 2.0;
        if (start < 0.0 || end > length) continue;
        PNT_2D point, tangent;
        if (!PointAtSpine(line, best, point, tangent)) continue;
        std::int32_t flags = CCvLvInterv::FLAG_TEXT;
        if (tangent.x < 0.0) flags |= CCvLvInterv::FLAG_INVERTED;
        if (line.AddInterval(start, end, flags)) ++placed;
    }
    return placed;
}

void SetLabelText(CCvLvs& lines, double textHeight, double interval) {
    const COpzCvLv& options = lines.GetOpzCvLv();
    lines.SetTextOptions(textHeight, options.GetGap(), DecimalsFor(interval), options.GetPrefix(),
                         options.GetSuffix(), TEXT_VALIGN_CENTRED, options.GetOrientation());
}

}  // namespace

double ChosenInterval(double minZ, double maxZ) {
    // Half the range, which stays finite for any two finite elevations.
    const double halfRange = maxZ / 2.0 - minZ / 2.0;
    if (!(halfRange > 0.0) || !std::isfinite(halfRange)) return 1.0;
    const double magnitude = std::max(std::fabs(minZ), std::fabs(maxZ));
    // Below about 1e-300 the powers of ten the round steps are made from are out of reach.
    return RoundStepAtLeast(std::max({halfRange / (kLevelsOfAChosenInterval / 2.0),
                                      magnitude / (kLevelNumberLimit / 2.0), kSmallestChosenStep}));
}

ContourSettings SettingsFor(const CDtmPrj& prj, const ContourSettings& settings) {
    ContourSettings applied = settings;
    if (applied.interval == 0.0)
        applied.interval =
            ChosenInterval(prj.GetTris()->GetMinQuota(), prj.GetTris()->GetMaxQuota());
    return applied;
}

bool IsIndexLevel(double elevation, const ContourSettings& settings) {
    if (settings.labelEvery <= 0) return false;
    const double step = settings.interval * settings.labelEvery;
    const double ratio = elevation / step;
    return std::fabs(ratio - std::round(ratio)) < 1e-6;
}

void CheckContourSettings(const CDtmPrj& prj, const ContourSettings& settings) {
    LevelsFor(prj, SettingsFor(prj, settings));
    TextHeightFor(prj, settings);
}

ContourSummary MakeContourLines(CDtmPrj& prj, const ContourSettings& asked) {
    CTris& tris = *prj.GetTris();
    CCvLvs& lines = *prj.GetCvLvs();
    const ContourSettings settings = SettingsFor(prj, asked);
    ContourSummary summary;
    const std::vector<double> levels = LevelsFor(prj, settings);
    summary.levels = levels.size();
    summary.interval = settings.interval;
    summary.textHeight = TextHeightFor(prj, settings);
    // A tension of exactly 0 has no meaning for the spline; the INI default (-1) is used then.
    const double tension =
        lines.GetOpzCvLv().GetTension() != 0.0 ? lines.GetOpzCvLv().GetTension() : -1.0;

    kor::CEventGuard event(prj.GetContext());
    lines.RemoveAllCvLvs();
    SetLabelText(lines, summary.textHeight, settings.interval);
    Progress progress("tracing contours", static_cast<std::uint64_t>(tris.GetNoTris()) * 4u);
    for (std::size_t level = 0; level < levels.size(); ++level) {
        const double z = levels[level];
        const bool index = IsIndexLevel(z, settings);
        for (const ContourPolyline& polyline : TraceContours(tris, z)) {
            const std::vector<PNT_2D> nodes = ThinnedNodes(polyline);
            std::vector<double> x, y;
            for (const PNT_2D& node : nodes) {
                x.push_back(node.x);
                y.push_back(node.y);
            }
            CCvLv* line = lines.AddNewCvLv(z, tension, kByLayer, static_cast<int>(nodes.size()),
                                           x.data(), y.data());
            ++summary.lines;
            if (polyline.closed) ++summary.closedLines;
            if (index)
                summary.labels += PlaceLabels(*line, lines.GetOpzCvLv(),
                                              kLabelSpacingInTextHeights * summary.textHeight);
        }
        progress.Set((level + 1) * static_cast<std::uint64_t>(tris.GetNoTris()) * 4u /
                     levels.size());
    }
    lines.UpdateCvLvColors();
    lines.SetCvLvDir(eCvLvDirOriented);
    progress.Finish();
    return summary;
}

}  // namespace dtmtool
