// Evaluation and sampling of one segment of a tension spline. The formulas keep their order of
// operations as written: the host draws from the same node records, and points it computes must
// match the ones the library computes (label placement, nearest-point search) to the last bit.

#include <dtm/contours/Spline.h>

#include "contours/SplineInternal.h"

#include <dtm/support/Tolerances.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

double InversoDi(double x) noexcept {
    return x == 0.0 ? dtm::SPLINE_HUGE_RECIPROCAL : 1.0 / x;
}

double EsponenteDi(double x) noexcept {
    return std::exp(std::clamp(x, -dtm::SPLINE_EXPONENT_LIMIT, dtm::SPLINE_EXPONENT_LIMIT));
}

namespace {

// True when the hyperbolic terms at t would be useless (exp beyond 700) and the segment is
// treated as its straight chord instead.
bool BeyondTensionLimit(double h, double t, double sigmap) noexcept {
    return std::fabs(t * sigmap) > dtm::SPLINE_STRAIGHT_LIMIT ||
           std::fabs((h - t) * sigmap) > dtm::SPLINE_STRAIGHT_LIMIT;
}

// 1 / sinh(sigmap·h), formed from the two exponentials of t and h − t as the evaluation has
// always formed it, so that both end terms share one rounding.
double InverseSinhOfSegment(double expT, double expRest) noexcept {
    return InversoDi(((expRest * expT) - InversoDi(expRest * expT)) * 0.5);
}

}  // namespace

void TrovaSngValSpline(double h, double t, double sigmap, double x1, double y1, double xp1,
                       double yp1, double x2, double y2, double xp2, double yp2, double& x,
                       double& y) noexcept {
    if (t >= h) {
        x = x2;
        y = y2;
        return;
    }
    if (BeyondTensionLimit(h, t, sigmap)) {
        x = x1 + (x2 - x1) * t / h;
        y = y1 + (y2 - y1) * t / h;
        return;
    }
    const double expT = EsponenteDi(t * sigmap);
    const double expRest = EsponenteDi((h - t) * sigmap);
    const double inverseSinh = InverseSinhOfSegment(expT, expRest);
    const double sinhT = (expT - InversoDi(expT)) * 0.5;
    const double sinhRest = (expRest - InversoDi(expRest)) * 0.5;
    x = ((x1 - xp1) * (h - t) + (x2 - xp2) * t) / h + (xp1 * sinhRest + xp2 * sinhT) * inverseSinh;
    y = ((y1 - yp1) * (h - t) + (y2 - yp2) * t) / h + (yp1 * sinhRest + yp2 * sinhT) * inverseSinh;
}

void TrovaSngDerValSpline(double h, double t, double sigmap, double x1, double y1, double xp1,
                          double yp1, double x2, double y2, double xp2, double yp2, double& dx,
                          double& dy) noexcept {
    // Past the end the answer is the end point and at huge tension the unscaled chord: neither
    // is a derivative, and both are kept because callers were written against them.
    if (t > h) {
        dx = x2;
        dy = y2;
        return;
    }
    if (BeyondTensionLimit(h, t, sigmap)) {
        dx = x2 - x1;
        dy = y2 - y1;
        return;
    }
    const double expT = EsponenteDi(t * sigmap);
    const double expRest = EsponenteDi((h - t) * sigmap);
    const double inverseSinh = InverseSinhOfSegment(expT, expRest);
    const double coshT = sigmap * 0.5 * (expT + InversoDi(expT));
    const double coshRest = sigmap * 0.5 * (expRest + InversoDi(expRest));
    dx = ((x2 - x1) + (xp1 - xp2)) / h + (-coshRest * xp1 + coshT * xp2) * inverseSinh;
    dy = ((y2 - y1) + (yp1 - yp2)) / h + (-coshRest * yp1 + coshT * yp2) * inverseSinh;
}

void TrovaIncremCurvaOtt(double h, double sigmap, double x1, double y1, double xp1, double yp1,
                         double x2, double y2, double xp2, double yp2, double& step) noexcept {
    if (step > h) {
        step = h;
        return;
    }
    // The sagitta of a chord of length `step` is about step²·curvature/2, and a point at
    // distance d from the end point over a parameter step means the curve is about d/step
    // stretched there; step²/d shortens the step where the curve runs away from its ends.
    const double entryStep = step;
    const kor::geom::PNT_2D first(x1, y1);
    const kor::geom::PNT_2D second(x2, y2);
    kor::geom::PNT_2D probe;

    TrovaSngValSpline(h, entryStep, sigmap, x1, y1, xp1, yp1, x2, y2, xp2, yp2, probe.x, probe.y);
    const double candidateAtStart = entryStep * entryStep / first.dist(probe);
    if (step > candidateAtStart) step = candidateAtStart;

    TrovaSngValSpline(h, h - entryStep, sigmap, x1, y1, xp1, yp1, x2, y2, xp2, yp2, probe.x,
                      probe.y);
    const double candidateAtEnd = entryStep * entryStep / second.dist(probe);
    if (step > candidateAtEnd) step = candidateAtEnd;

    // More than 100 samples are never asked for; the replacement is a fixed 30, not 100: the
    // two limits are deliberately different.
    if (h / step > dtm::SPLINE_MAX_SAMPLES) step = h / dtm::SPLINE_FALLBACK_SAMPLES;
}

namespace {

bool TiesOnEnd(double t, double end) noexcept {
    return std::isfinite(end) ? std::fabs(t - end) <= dtm::ToleranceOf(end) : t == end;
}

void AppendDrawable(double x, double y, std::vector<kor::geom::PNT_2D>& points) {
    // A coordinate at the undefined threshold is not a point the host can draw.
    if (std::fabs(x) < dtm::UNDEFINED_QUOTE_THRESHOLD &&
        std::fabs(y) < dtm::UNDEFINED_QUOTE_THRESHOLD) {
        points.emplace_back(x, y);
    }
}

}  // namespace

void TrovaArValoriSpline(double t0, double t1, double step, double h, double sigmap, double x1,
                         double y1, double xp1, double yp1, double x2, double y2, double xp2,
                         double yp2, std::vector<kor::geom::PNT_2D>& points) {
    points.clear();
    double x = 0.0;
    double y = 0.0;
    double lastT = t0;
    // The parameter accumulates step by step (not t0 + k·step): callers count on the samples
    // this produces, including the occasional extra sample just below t1.
    for (double t = t0; t < t1;) {
        TrovaSngValSpline(h, t, sigmap, x1, y1, xp1, yp1, x2, y2, xp2, yp2, x, y);
        AppendDrawable(x, y, points);
        lastT = t;
        const double next = t + step;
        if (!(next > t)) {
            throw std::invalid_argument("TrovaArValoriSpline: the step does not advance");
        }
        t = next;
    }
    if (TiesOnEnd(lastT, t1)) return;
    TrovaSngValSpline(h, t1, sigmap, x1, y1, xp1, yp1, x2, y2, xp2, yp2, x, y);
    AppendDrawable(x, y, points);
}
