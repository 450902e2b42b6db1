#include "ContourTracer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <unordered_map>

namespace dtmtool {

namespace {

using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

// One triangle's piece of a contour line: from the crossing of one edge to that of another.
struct Segment {
    std::uint64_t key[2];  // the crossed edges, as vertex index pairs
    PNT_2D point[2];
    // +1 when point[0] → point[1] has higher ground on the left, -1 when the reverse does, 0
    // when the segment has no length and so no direction.
    int preferred;
};

std::uint64_t EdgeKey(int a, int b) {
    const std::uint32_t low = static_cast<std::uint32_t>(std::min(a, b));
    const std::uint32_t high = static_cast<std::uint32_t>(std::max(a, b));
    return std::uint64_t{low} << 32 | high;
}

// Where the edge between vertices @p a and @p b (indices @p ia, @p ib) meets elevation @p z.
// Computed from the lower index to the higher, so that the two triangles sharing the edge agree
// to the last bit; an end at exactly @p z is that end itself.
PNT_2D EdgeCrossing(int ia, const PNT_3D& a, int ib, const PNT_3D& b, double z) {
    const PNT_3D& from = ia < ib ? a : b;
    const PNT_3D& to = ia < ib ? b : a;
    if (from.z == z) return from;
    if (to.z == z) return to;
    const double t = (z - from.z) / (to.z - from.z);
    return PNT_2D(from.x + t * (to.x - from.x), from.y + t * (to.y - from.y));
}

double Cross(const PNT_2D& from, const PNT_2D& to, const PNT_3D& p) {
    return (to.x - from.x) * (p.y - from.y) - (to.y - from.y) * (p.x - from.x);
}

bool IsFinite(const PNT_3D& p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

// Receives the crossed triangles from the network and cuts each into its segment.
class SliceCollector final : public ITrisListener {
public:
    SliceCollector(const CTris& tris, double z) : m_tris(tris), m_z(z) {}

    void OnTris(int count, TTriDraw* records) override {
        for (int i = 0; i < count; ++i) Cut(records[i]);
    }
    // GetTris_Quote always delivers records; the per-index form is never called.
    void OnTriIndexes(int, int, int, bool, int, int) override {}

    std::vector<Segment>& Segments() { return m_segments; }

private:
    void Cut(const TTriDraw& record) {
        const CTri& tri = *m_tris.GetTriAt(record.index);
        int index[3];
        bool above[3];
        int aboveCount = 0;
        for (int k = 0; k < 3; ++k) {
            if (!IsFinite(record.pnts[k])) return;
            index[k] = tri.GetVerIndex(k);
            above[k] = record.pnts[k].z >= m_z;
            aboveCount += above[k] ? 1 : 0;
        }
        if (aboveCount == 0 || aboveCount == 3) return;

        Segment segment{};
        int found = 0;
        int aboveVertex = 0;
        for (int k = 0; k < 3; ++k) {
            if (above[k]) aboveVertex = k;
            const int next = (k + 1) % 3;
            if (above[k] == above[next]) continue;
            segment.key[found] = EdgeKey(index[k], index[next]);
            segment.point[found] =
                EdgeCrossing(index[k], record.pnts[k], index[next], record.pnts[next], m_z);
            ++found;
        }
        // The side on which a vertex above the level lies tells the direction; a vertex exactly
        // on the segment's line (at the level) cannot, so a vertex below is asked then.
        double side = Cross(segment.point[0], segment.point[1], record.pnts[aboveVertex]);
        if (side == 0.0) {
            for (int k = 0; k < 3 && side == 0.0; ++k)
                if (!above[k]) side = -Cross(segment.point[0], segment.point[1], record.pnts[k]);
        }
        segment.preferred = side > 0.0 ? 1 : (side < 0.0 ? -1 : 0);
        m_segments.push_back(segment);
    }

    const CTris& m_tris;
    double m_z;
    std::vector<Segment> m_segments;
};

// Joins segments that share an edge into polylines.
class SegmentJoiner {
public:
    explicit SegmentJoiner(const std::vector<Segment>& segments)
        : m_segments(segments), m_used(segments.size(), false) {
        m_ends.reserve(segments.size() * 2);
        for (std::size_t s = 0; s < segments.size(); ++s)
            for (int end = 0; end < 2; ++end) m_ends[segments[s].key[end]].push_back({s, end});
    }

    std::vector<ContourPolyline> Join() {
        std::vector<ContourPolyline> lines;
        // Lines that end on a border first, walked from one of their ends; what is left then
        // are closed loops.
        for (std::size_t s = 0; s < m_segments.size(); ++s)
            for (int end = 0; end < 2; ++end)
                if (!m_used[s] && m_ends[m_segments[s].key[end]].size() == 1)
                    Keep(Walk(s, end), lines);
        for (std::size_t s = 0; s < m_segments.size(); ++s)
            if (!m_used[s]) Keep(Walk(s, 0), lines);
        return lines;
    }

private:
    struct End {
        std::size_t segment;
        int end;
    };

    // Follows the chain from end @p end of segment @p first.
    ContourPolyline Walk(std::size_t first, int end) {
        ContourPolyline line;
        const std::uint64_t startKey = m_segments[first].key[end];
        line.points.push_back(m_segments[first].point[end]);
        int agreement = 0;
        std::size_t segment = first;
        int from = end;
        for (;;) {
            m_used[segment] = true;
            const Segment& current = m_segments[segment];
            const int to = 1 - from;
            line.points.push_back(current.point[to]);
            agreement += current.preferred * (from == 0 ? 1 : -1);
            const std::uint64_t key = current.key[to];
            if (key == startKey) {
                line.closed = true;
                break;
            }
            if (!NextAt(key, segment, from)) break;
        }
        if (agreement < 0) {
            std::reverse(line.points.begin(), line.points.end());
        }
        return line;
    }

    // The unused segment that continues the line across edge @p key.
    bool NextAt(std::uint64_t key, std::size_t& segment, int& from) const {
        for (const End& candidate : m_ends.at(key))
            if (!m_used[candidate.segment]) {
                segment = candidate.segment;
                from = candidate.end;
                return true;
            }
        return false;
    }

    // Drops consecutive duplicates (a line through a vertex at the level meets it twice) and
    // keeps the line when it still has a length.
    static void Keep(ContourPolyline line, std::vector<ContourPolyline>& lines) {
        std::vector<PNT_2D> kept;
        kept.reserve(line.points.size());
        for (const PNT_2D& p : line.points)
            if (kept.empty() || p.x != kept.back().x || p.y != kept.back().y) kept.push_back(p);
        const std::size_t needed = line.closed ? 4 : 2;
        if (kept.size() < needed) return;
        line.points.swap(kept);
        lines.push_back(std::move(line));
    }

    const std::vector<Segment>& m_segments;
    std::vector<bool> m_used;
    std::unordered_map<std::uint64_t, std::vector<End>> m_ends;
};

}  // namespace

std::vector<double> ContourLevels(double minZ, double maxZ, double interval,
                                  std::size_t maxLevels) {
    if (!(interval > 0.0) || !std::isfinite(interval))
        throw std::invalid_argument("the contour interval must be a positive number");
    std::vector<double> levels;
    if (!(minZ <= maxZ) || !std::isfinite(minZ) || !std::isfinite(maxZ)) return levels;
    const double first = std::ceil(minZ / interval);
    const double last = std::floor(maxZ / interval);
    // From 2^53 on (or at infinity, for an interval far below the elevations) the multiples no
    // longer step by one: the count would mean nothing and the loop would not advance. Such an
    // interval is too small for these elevations, however few levels it seems to give.
    if (!(std::fabs(first) < kLevelNumberLimit && std::fabs(last) < kLevelNumberLimit) ||
        last - first + 1.0 > static_cast<double>(maxLevels))
        throw std::length_error("the contour interval is too small for the elevation range");
    for (double k = first; k <= last; k += 1.0) levels.push_back(k * interval);
    return levels;
}

std::vector<ContourPolyline> TraceContours(const CTris& tris, double z) {
    SliceCollector collector(tris, z);
    tris.GetTris_Quote(&collector, z);
    return SegmentJoiner(collector.Segments()).Join();
}

}  // namespace dtmtool
