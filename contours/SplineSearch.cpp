// The search for the spine parameter of a contour line nearest to a point: a coarse pass of ten
// samples per segment, then tenfold refinement around the best sample down to a millionth of the
// segment. The host places labels and gaps with it, so the probing pattern is kept as it has
// always been: a different pattern could settle on a different local minimum, and label
// positions stored in documents would move.
//
// Below the first refinement level each level only looks forward from the best sample of the
// level before. When the nearest point lies just before that sample, the finer levels find
// nothing nearer and the answer keeps the precision of the level where that happened (at worst
// a hundredth of the segment). That is the pattern's known precision, kept with it.

#include "contours/SplineInternal.h"

#include <dtm/support/Tolerances.h>

#include <algorithm>
#include <cstddef>

namespace {

// Finest refinement level: parts of h/10^5, sampled at h/10^6.
constexpr int FINEST_LEVEL = 5;

// Samples examined per probe: the ten starts of the tenths of the probed part, never its end.
constexpr std::size_t SAMPLES_PER_PROBE = 10;

// The best sample so far and the search's reusable sample buffer.
class CNearestSearch {
public:
    CNearestSearch(const std::vector<TVrtPol>& nodes, double sigmap,
                   const kor::geom::PNT_2D& point) noexcept
        : m_nodes(nodes), m_sigmap(sigmap), m_point(point) {}

    // Probes part `sub` of segment `seg` at `level` (10^level equal parts), the segment starting
    // at spine `offset`. True when a sample came closer than the best so far; `found` is then the
    // index of the best sample at the next level (j + 10·sub). `sub` is clamped to the last part
    // and handed back as probed, so that a refinement without improvement descends from there.
    //
    // There is no clamp at the other end: around the very start of the line the refinement asks
    // for part −1, and the curve's continuation before the first node is sampled as it stands.
    // A point beyond the start thus gets a parameter up to a tenth of the first segment below
    // 0, and the indices found there are negative.
    bool Probe(int seg, int level, int& sub, double offset, int& found) {
        const TVrtPol& from = m_nodes[static_cast<std::size_t>(seg)];
        const TVrtPol& to = m_nodes[static_cast<std::size_t>(seg) + 1];
        int parts = 1;
        for (int l = 0; l < level; ++l) parts *= 10;
        sub = std::min(sub, parts - 1);
        const double h = from.len;
        const double part = h / parts;
        TrovaArValoriSpline(sub * part, (sub + 1) * part, part / 10, h, m_sigmap, from.x, from.y,
                            from.xp, from.yp, to.x, to.y, to.xp, to.yp, m_samples);
        const std::size_t examined =
            m_samples.empty() ? 0 : std::min(SAMPLES_PER_PROBE, m_samples.size() - 1);
        bool improved = false;
        for (std::size_t j = 0; j < examined; ++j) {
            const double distance = m_samples[j].dist_square(m_point);
            if (distance < m_best) {
                m_best = distance;
                m_segment = seg;
                m_t = static_cast<double>(j) * part / 10 + sub * part;
                m_spine = m_t + offset;
                found = static_cast<int>(j) + 10 * sub;
                improved = true;
            }
        }
        return improved;
    }

    // Probes part `sub` of segment `seg` at level 1, then descends through levels 2 … 5, each
    // probing the part found at the level before, or, when that level improved nothing, the
    // first tenth of the part it probed.
    void ProbeAndRefine(int seg, int sub, double offset) {
        int found = 0;
        bool improved = Probe(seg, 1, sub, offset, found);
        for (int level = 2; level <= FINEST_LEVEL; ++level) {
            sub = improved ? found : 10 * sub;
            improved = Probe(seg, level, sub, offset, found);
        }
    }

    bool Found() const noexcept { return m_segment >= 0; }
    int Segment() const noexcept { return m_segment; }
    double T() const noexcept { return m_t; }
    double Spine() const noexcept { return m_spine; }

private:
    const std::vector<TVrtPol>& m_nodes;
    double m_sigmap;
    kor::geom::PNT_2D m_point;
    std::vector<kor::geom::PNT_2D> m_samples;
    double m_best = UNDEFINED_QUOTE;
    int m_segment = -1;
    double m_t = 0.0;
    double m_spine = 0.0;
};

}  // namespace

bool FindSplineParam(const std::vector<TVrtPol>& nodes, double sigmap,
                     const kor::geom::PNT_2D& point, int& segment, double& t, double& spine) {
    segment = -1;
    if (nodes.size() < 2) return false;
    CNearestSearch search(nodes, sigmap, point);

    // Coarse pass: ten samples on every segment.
    int coarseFound = -1;
    double offset = 0.0;
    const int segments = static_cast<int>(nodes.size()) - 1;
    for (int seg = 0; seg < segments; ++seg) {
        int sub = 0;
        search.Probe(seg, 0, sub, offset, coarseFound);
        offset += nodes[static_cast<std::size_t>(seg)].len;
    }
    if (!search.Found()) return false;

    // Refine the tenth before the best sample (in the previous segment when the best is a
    // segment's first sample) and the tenth after it.
    const int best = search.Segment();
    const double bestOffset = search.Spine() - search.T();
    if (coarseFound < 1 && best >= 1) {
        const int previous = best - 1;
        search.ProbeAndRefine(previous, 9,
                              bestOffset - nodes[static_cast<std::size_t>(previous)].len);
    } else {
        search.ProbeAndRefine(best, coarseFound - 1, bestOffset);
    }
    search.ProbeAndRefine(best, coarseFound, bestOffset);

    segment = search.Segment();
    t = search.T();
    spine = search.Spine();
    return true;
}
