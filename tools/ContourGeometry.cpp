#include "ContourGeometry.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace dtmtool {

namespace {

using kor::geom::PNT_2D;

// The start of every segment on the spine: element i is the sum of the chords before node i.
std::vector<double> SegmentStarts(const CCvLv& line) {
    std::vector<double> starts;
    starts.reserve(line.GetNoNodes());
    double spine = 0.0;
    for (const TVrtPol& node : line.GetNodes()) {
        starts.push_back(spine);
        spine += node.len;
    }
    return starts;
}

void Evaluate(const CCvLv& line, unsigned segment, double t, PNT_2D& point, PNT_2D& derivative) {
    const TVrtPol& a = line.GetNodes()[segment];
    const TVrtPol& b = line.GetNodes()[segment + 1];
    const double sigmap = line.GetSigmap();
    TrovaSngValSpline(a.len, t, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp, point.x,
                      point.y);
    TrovaSngDerValSpline(a.len, t, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp, derivative.x,
                         derivative.y);
}

// The stretches of [0, length] that no interval covers, in order.
std::vector<std::pair<double, double>> DrawnStretches(const CCvLv& line, double length) {
    std::vector<std::pair<double, double>> hidden;
    for (unsigned i = 0; i < line.GetNoIntervals(); ++i) {
        const CCvLvInterv& interval = *line.GetIntervalAt(i);
        hidden.emplace_back(std::min(interval.GetStart(), interval.GetEnd()),
                            std::max(interval.GetStart(), interval.GetEnd()));
    }
    std::sort(hidden.begin(), hidden.end());
    std::vector<std::pair<double, double>> drawn;
    double from = 0.0;
    for (const auto& gap : hidden) {
        if (gap.first > from) drawn.emplace_back(from, std::min(gap.first, length));
        from = std::max(from, gap.second);
        if (from >= length) break;
    }
    if (from < length) drawn.emplace_back(from, length);
    return drawn;
}

void AppendSamples(const std::vector<PNT_2D>& samples, std::vector<PNT_2D>& run) {
    for (const PNT_2D& p : samples)
        if (run.empty() || p.x != run.back().x || p.y != run.back().y) run.push_back(p);
}

}  // namespace

double SpineLength(const CCvLv& line) {
    double length = 0.0;
    for (const TVrtPol& node : line.GetNodes()) length += node.len;
    return length;
}

bool PointAtSpine(const CCvLv& line, double spine, PNT_2D& point, PNT_2D& tangent) {
    const std::vector<double> starts = SegmentStarts(line);
    if (starts.size() < 2) return false;
    const double length = starts.back() + line.GetNodes().back().len;
    spine = std::max(0.0, std::min(spine, length));
    // The last segment starting at or before the parameter, skipping empty segments.
    unsigned segment = static_cast<unsigned>(
        std::upper_bound(starts.begin(), starts.end() - 1, spine) - starts.begin());
    segment = segment == 0 ? 0 : segment - 1;
    while (segment > 0 && line.GetNodes()[segment].len <= 0.0) --segment;
    const double h = line.GetNodes()[segment].len;
    if (!(h > 0.0)) return false;
    PNT_2D derivative;
    Evaluate(line, segment, std::min(spine - starts[segment], h), point, derivative);
    const double norm = std::hypot(derivative.x, derivative.y);
    if (!(norm > 0.0)) return false;
    tangent = PNT_2D(derivative.x / norm, derivative.y / norm);
    return true;
}

std::vector<std::vector<PNT_2D>> SampleDrawnRuns(const CCvLv& line, double step) {
    std::vector<std::vector<PNT_2D>> runs;
    const std::vector<double> starts = SegmentStarts(line);
    if (starts.size() < 2) return runs;
    const double length = starts.back() + line.GetNodes().back().len;
    const double sigmap = line.GetSigmap();
    std::vector<PNT_2D> samples;
    for (const auto& stretch : DrawnStretches(line, length)) {
        std::vector<PNT_2D> run;
        for (unsigned segment = 0; segment + 1 < starts.size(); ++segment) {
            const TVrtPol& a = line.GetNodes()[segment];
            const TVrtPol& b = line.GetNodes()[segment + 1];
            const double t0 = std::max(stretch.first - starts[segment], 0.0);
            const double t1 = std::min(stretch.second - starts[segment], a.len);
            if (!(a.len > 0.0) || t1 <= t0) continue;
            double segmentStep = step;
            TrovaIncremCurvaOtt(a.len, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y, b.xp, b.yp,
                                segmentStep);
            if (!(segmentStep > 0.0) || t0 + segmentStep == t0) segmentStep = t1 - t0;
            TrovaArValoriSpline(t0, t1, segmentStep, a.len, sigmap, a.x, a.y, a.xp, a.yp, b.x, b.y,
                                b.xp, b.yp, samples);
            AppendSamples(samples, run);
        }
        if (run.size() >= 2) runs.push_back(std::move(run));
    }
    return runs;
}

}  // namespace dtmtool
