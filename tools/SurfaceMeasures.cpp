#include "SurfaceMeasures.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace dtmtool {

namespace {

using kor::geom::PNT_3D;

// A running sum that carries the low-order bits each addition loses (Neumaier's variant of
// Kahan's summation): the area of a million small triangles then comes out as the exact sum
// rounded once, or within a unit of the last place of it, whatever the order of the faces.
class CompensatedSum {
public:
    void Add(double value) {
        const double sum = m_sum + value;
        m_carry +=
            std::fabs(m_sum) >= std::fabs(value) ? (m_sum - sum) + value : (value - sum) + m_sum;
        m_sum = sum;
    }
    double Total() const { return m_sum + m_carry; }

private:
    double m_sum = 0.0;
    double m_carry = 0.0;
};

}  // namespace

SurfaceMeasures MeasureSurface(const TinSurface& surface) {
    SurfaceMeasures measures;
    CompensatedSum plan, space;
    for (const auto& face : surface.faces) {
        const PNT_3D& a = surface.points[static_cast<std::size_t>(face[0])];
        const PNT_3D& b = surface.points[static_cast<std::size_t>(face[1])];
        const PNT_3D& c = surface.points[static_cast<std::size_t>(face[2])];
        const double ux = b.x - a.x, uy = b.y - a.y, uz = b.z - a.z;
        const double vx = c.x - a.x, vy = c.y - a.y, vz = c.z - a.z;
        const double nx = uy * vz - uz * vy, ny = uz * vx - ux * vz, nz = ux * vy - uy * vx;
        plan.Add(std::fabs(nz) / 2.0);
        space.Add(std::sqrt(nx * nx + ny * ny + nz * nz) / 2.0);
        const auto [low, high] = std::minmax({a.z, b.z, c.z});
        measures.lowest = measures.measured ? std::min(measures.lowest, low) : low;
        measures.highest = measures.measured ? std::max(measures.highest, high) : high;
        measures.measured = true;
    }
    measures.planArea = plan.Total();
    measures.surfaceArea = space.Total();
    return measures;
}

std::vector<FaceCornersView> FacesInFileOrder(const TinSurface& surface) {
    std::vector<FaceCornersView> faces;
    faces.reserve(surface.faces.size() + surface.survey.hiddenFaces.size());
    for (const auto& face : surface.faces) faces.push_back({face.data(), 3});
    for (const std::vector<int>& face : surface.survey.hiddenFaces)
        faces.push_back({face.data(), static_cast<int>(face.size())});
    return faces;
}

std::vector<std::size_t> FaceNeighbours(const std::vector<FaceCornersView>& faces) {
    // Every side is filed under the lower of its two corners, with the higher one and the slot
    // of its answer; the sides that faces share then stand in one small bucket. Filing by a
    // count of each corner's sides takes linear time, where sorting every side took as long as
    // writing the rest of a large file.
    const auto ends = [](const FaceCornersView& face, int k) {
        return std::minmax(face.corners[k], face.corners[(k + 1) % face.count]);
    };
    std::size_t corners = 0;
    for (const FaceCornersView& face : faces)
        for (int k = 0; k < face.count; ++k)
            corners = std::max(corners, static_cast<std::size_t>(face.corners[k]) + 1);
    // bucket[v + 2] counts the sides filed under corner v; summed, bucket[v + 1] is where they
    // start, and once they are filed, where they end.
    std::vector<std::size_t> bucket(corners + 2, 0);
    for (const FaceCornersView& face : faces)
        for (int k = 0; k < face.count; ++k)
            ++bucket[static_cast<std::size_t>(ends(face, k).first) + 2];
    std::partial_sum(bucket.begin(), bucket.end(), bucket.begin());
    struct Filed {
        int high;
        std::size_t slot;  // 4 · face + side
        bool operator<(const Filed& o) const {
            return high < o.high || (high == o.high && slot < o.slot);
        }
    };
    std::vector<Filed> filed(bucket.back());
    for (std::size_t f = 0; f < faces.size(); ++f) {
        for (int k = 0; k < faces[f].count; ++k) {
            const auto [low, high] = ends(faces[f], k);
            filed[bucket[static_cast<std::size_t>(low) + 1]++] = {
                high, 4 * f + static_cast<std::size_t>(k)};
        }
    }
    std::vector<std::size_t> neighbours(4 * faces.size(), 0);
    for (std::size_t v = 0; v < corners; ++v) {
        const auto first = filed.begin() + static_cast<std::ptrdiff_t>(bucket[v]);
        const auto last = filed.begin() + static_cast<std::ptrdiff_t>(bucket[v + 1]);
        std::sort(first, last);
        for (auto run = first; run != last;) {
            auto end = run + 1;
            while (end != last && end->high == run->high) ++end;
            if (end - run == 2) {
                const std::size_t one = run->slot, other = (run + 1)->slot;
                // A face that has one side twice (a repeated corner) is no neighbour of itself.
                if (one / 4 != other / 4) {
                    neighbours[one] = other / 4 + 1;
                    neighbours[other] = one / 4 + 1;
                }
            }
            run = end;
        }
    }
    return neighbours;
}

namespace {

// A breakline segment or a face's side in plan, its ends in ascending order, so that a side
// matches a segment whichever way either runs.
struct PlanSide {
    double x0, y0, x1, y1;

    PlanSide(const PNT_3D& a, const PNT_3D& b) {
        const bool ascending = a.x < b.x || (a.x == b.x && a.y <= b.y);
        const PNT_3D& p = ascending ? a : b;
        const PNT_3D& q = ascending ? b : a;
        x0 = p.x, y0 = p.y, x1 = q.x, y1 = q.y;
    }
    // A segment that has length in plan and ends that can be ordered; any other matches no
    // side worth naming, and a coordinate that is not a number cannot be sorted.
    bool IsProper() const {
        return std::isfinite(x0) && std::isfinite(y0) && std::isfinite(x1) && std::isfinite(y1) &&
               (x0 != x1 || y0 != y1);
    }
    bool operator<(const PlanSide& o) const {
        if (x0 != o.x0) return x0 < o.x0;
        if (y0 != o.y0) return y0 < o.y0;
        if (x1 != o.x1) return x1 < o.x1;
        return y1 < o.y1;
    }
};

}  // namespace

std::vector<std::uint8_t> BreaklineSides(const TinSurface& surface,
                                         const std::vector<FaceCornersView>& faces) {
    std::vector<std::uint8_t> flags(faces.size(), 0);
    std::vector<PlanSide> segments;
    for (const Polyline3D& line : surface.breaklines)
        for (std::size_t i = 1; i < line.size(); ++i) {
            const PlanSide segment(line[i - 1], line[i]);
            if (segment.IsProper()) segments.push_back(segment);
        }
    if (segments.empty()) return flags;
    std::sort(segments.begin(), segments.end());
    for (std::size_t f = 0; f < faces.size(); ++f) {
        const FaceCornersView& face = faces[f];
        for (int k = 0; k < face.count; ++k) {
            const PlanSide side(
                surface.points[static_cast<std::size_t>(face.corners[k])],
                surface.points[static_cast<std::size_t>(face.corners[(k + 1) % face.count])]);
            if (side.IsProper() && std::binary_search(segments.begin(), segments.end(), side))
                flags[f] = static_cast<std::uint8_t>(flags[f] | (1u << k));
        }
    }
    return flags;
}

}  // namespace dtmtool
