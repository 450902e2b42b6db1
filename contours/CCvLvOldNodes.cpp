// Contour lines from files older than version 800: their node records and the label intervals
// those records encode.

#include <dtm/contours/CCvLv.h>
#include <dtm/contours/COpzCvLv.h>

#include <dtm/support/String.h>
#include <dtm/support/Tolerances.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

/// The kind of an old node record that carries a label on the segment starting at it.
constexpr std::int16_t OLD_LABEL_NODE = 2;

/// An old label position is in hundredths of its segment's length.
constexpr double OLD_POSITION_STEPS = 100.0;

/// The length of the vector (@p dx, @p dy), with the larger component factored out so that
/// squaring cannot overflow or underflow.
double Hypotenuse(double dx, double dy) {
    double larger = std::fabs(dx);
    double smaller = std::fabs(dy);
    if (larger < smaller) std::swap(larger, smaller);
    if (larger == 0.0) return 0.0;
    const double ratio = smaller / larger;
    return larger * std::sqrt(1.0 + ratio * ratio);
}

}  // namespace

// The evaluation gets base as its segment length, exactly as old files were written and read;
// the labels of old documents only come back where they were with that same arithmetic.
void CCvLv::ConvertOldVrtPolTipo2(double sigmap, double elevation, double charHeight, int decimals,
                                  double base, const TOldVrtPol& node1, const TOldVrtPol& node2,
                                  int position, double& start, double& end, std::int32_t& flags) {
    flags = position < 0 ? (CCvLvInterv::FLAG_TEXT | CCvLvInterv::FLAG_INVERTED)
                         : CCvLvInterv::FLAG_TEXT;
    const double step = node1.len / OLD_POSITION_STEPS;
    double t = position * step;
    start = t + base;

    const kor::String text = StringDaDouble(elevation, decimals);
    // Old files always measured their labels as centred ones, whatever the alignment.
    const double span = COpzCvLv::LabelExtent(text.length(), charHeight);
    const double last = node1.len - dtm::ToleranceOf(node1.len);
    const auto pointAt = [&](double at, double& x, double& y) {
        TrovaSngValSpline(base, at, sigmap, node1.x, node1.y, node1.xp, node1.yp, node2.x, node2.y,
                          node2.xp, node2.yp, x, y);
    };

    double startX = 0.0;
    double startY = 0.0;
    pointAt(t, startX, startY);
    double distance = 0.0;
    // The walk must end whatever a damaged file holds: a step that is not a positive number, a
    // start that is not finite, or a step too small to move t at its magnitude would never
    // reach the end of the segment.
    while (step > 0.0 && std::isfinite(t) && distance <= span && t < last) {
        const double next = t + step;
        if (next == t) break;
        t = next;
        double x = 0.0;
        double y = 0.0;
        pointAt(t, x, y);
        distance = Hypotenuse(x - startX, y - startY);
    }
    end = t > node1.len ? node1.len + base : t + base;
}

void CCvLv::DoLoadOldNodes(const std::vector<TOldVrtPol>& nodes, double charHeight, int decimals) {
    std::vector<TVrtPol> converted;
    converted.reserve(nodes.size());
    for (const TOldVrtPol& node : nodes)
        converted.push_back({node.x, node.y, node.xp, node.yp, node.len});

    std::vector<TCvLvInterv> labels;
    double offset = 0.0;
    for (std::size_t index = 0; index + 1 < nodes.size(); ++index) {
        const TOldVrtPol& node = nodes[index];
        if (node.kind == OLD_LABEL_NODE) {
            TCvLvInterv label{};
            ConvertOldVrtPolTipo2(m_sigmap, m_quota, charHeight, decimals, offset, node,
                                  nodes[index + 1], node.position, label.start, label.end,
                                  label.flags);
            labels.push_back(label);
        }
        offset += node.len;
    }
    std::vector<kor::CRefPtr<CCvLvInterv>> intervals = MakeIntervals(labels);
    m_nodes.swap(converted);
    m_intervals.swap(intervals);
}
