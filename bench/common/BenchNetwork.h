#pragma once

// The networks the benchmarks run on, made the same way in every program so that their figures
// describe the same data.

#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/RefCounter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace dtm_bench {

using kor::geom::PNT_3D;

/// Vertices and triangles (three vertex indices each) before they go into a network.
struct TNetworkData {
    std::vector<PNT_3D> vertices;
    std::vector<std::array<int, 3>> triangles;
    std::vector<int> colours;  ///< One a triangle; empty when every triangle has colour 1.
    double size = 0.0;         ///< Side of the square the network covers, from (0, 0).
};

/// Cells per side of the grid of about 10^6 triangles (2 · 708² = 1 002 528) and of 10^5
/// (2 · 224² = 100 352).
constexpr int kMillionCells = 708;
constexpr int kHundredThousandCells = 224;
constexpr double kCellSize = 10.0;

/// A random terrain network: a grid of cells × cells squares of side @p step whose vertices are
/// moved at random by up to a quarter of a cell, each square cut along the diagonal that makes
/// its two triangles Delaunay (the empty-circle test), so that the whole network is the Delaunay
/// triangulation of its vertices; elevations from a smooth relief with a little noise. The
/// triangles are listed in random order, as a host that triangulated the points would hand
/// them over. Fixed by @p seed.
inline TNetworkData RandomNetwork(int cells, double step = kCellSize, unsigned seed = 2024) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> jitter(-0.25, 0.25);
    std::uniform_real_distribution<double> noise(-0.5, 0.5);
    TNetworkData data;
    data.size = cells * step;
    data.vertices.reserve(static_cast<std::size_t>(cells + 1) *
                          static_cast<std::size_t>(cells + 1));
    for (int row = 0; row <= cells; ++row) {
        for (int column = 0; column <= cells; ++column) {
            const double x = (column + jitter(random)) * step;
            const double y = (row + jitter(random)) * step;
            const double z =
                120.0 + 15.0 * std::sin(x / 300.0) * std::cos(y / 400.0) + noise(random);
            data.vertices.emplace_back(x, y, z);
        }
    }
    const auto index = [cells](int row, int column) { return row * (cells + 1) + column; };
    // True when d lies inside the circle through a, b, c (counter-clockwise).
    const auto inCircle = [&data](int a, int b, int c, int d) {
        const PNT_3D& pa = data.vertices[static_cast<std::size_t>(a)];
        const PNT_3D& pb = data.vertices[static_cast<std::size_t>(b)];
        const PNT_3D& pc = data.vertices[static_cast<std::size_t>(c)];
        const PNT_3D& pd = data.vertices[static_cast<std::size_t>(d)];
        const double ax = pa.x - pd.x, ay = pa.y - pd.y;
        const double bx = pb.x - pd.x, by = pb.y - pd.y;
        const double cx = pc.x - pd.x, cy = pc.y - pd.y;
        return (ax * ax + ay * ay) * (bx * cy - cx * by) -
                   (bx * bx + by * by) * (ax * cy - cx * ay) +
                   (cx * cx + cy * cy) * (ax * by - bx * ay) >
               0.0;
    };
    data.triangles.reserve(2 * static_cast<std::size_t>(cells) * static_cast<std::size_t>(cells));
    for (int row = 0; row < cells; ++row) {
        for (int column = 0; column < cells; ++column) {
            const int a = index(row, column);
            const int b = index(row, column + 1);
            const int c = index(row + 1, column + 1);
            const int d = index(row + 1, column);
            if (!inCircle(a, b, c, d)) {
                data.triangles.push_back({a, b, c});
                data.triangles.push_back({a, c, d});
            } else {
                data.triangles.push_back({a, b, d});
                data.triangles.push_back({b, c, d});
            }
        }
    }
    std::shuffle(data.triangles.begin(), data.triangles.end(), random);
    return data;
}

/// A surveyed grid as an import hands it over: cells × cells squares of side @p step whose
/// vertices are moved at random by up to 0.3 of a cell, every square cut along the same
/// diagonal into a triangle of colour 1 and one of colour 2, the vertices and the triangles
/// listed row by row; elevations from the smooth relief of RandomNetwork, without noise.
inline TNetworkData SurveyGrid(int cells, double step = kCellSize, unsigned seed = 2024) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> jitter(-0.3, 0.3);
    TNetworkData data;
    data.size = cells * step;
    for (int row = 0; row <= cells; ++row) {
        for (int column = 0; column <= cells; ++column) {
            const double x = (column + jitter(random)) * step;
            const double y = (row + jitter(random)) * step;
            data.vertices.emplace_back(x, y,
                                       120.0 + 15.0 * std::sin(x / 300.0) * std::cos(y / 400.0));
        }
    }
    const auto index = [cells](int row, int column) { return row * (cells + 1) + column; };
    for (int row = 0; row < cells; ++row) {
        for (int column = 0; column < cells; ++column) {
            data.triangles.push_back(
                {index(row, column), index(row, column + 1), index(row + 1, column + 1)});
            data.triangles.push_back(
                {index(row, column), index(row + 1, column + 1), index(row + 1, column)});
            data.colours.push_back(1);
            data.colours.push_back(2);
        }
    }
    return data;
}

using ProjectPtr = kor::CRefPtr<CDtmPrj>;

/// A new project whose network holds @p data, added in one change event. With @p armed, an
/// empty event first arms the network's listener, so that closing the filling event recomputes
/// the derived data and builds the octree, as it does for a host's network after its first
/// event; without, the network has no octree.
inline ProjectPtr FilledProject(const TNetworkData& data, bool armed = true) {
    ProjectPtr prj = ProjectPtr::Adopt(new CDtmPrj(nullptr, "Bench", true, false));
    if (armed) kor::CEventGuard arm(prj->GetContext());
    CTris& tris = *prj->GetTris();
    kor::CEventGuard event(prj->GetContext());
    tris.SetNoTriVrts(static_cast<int>(data.vertices.size()));
    for (const PNT_3D& p : data.vertices) tris.AddTriVrt(p);
    for (std::size_t i = 0; i < data.triangles.size(); ++i) {
        const auto& t = data.triangles[i];
        tris.AddNewTri(data.colours.empty() ? 1 : data.colours[i], t[0], t[1], t[2]);
    }
    return prj;
}

}  // namespace dtm_bench
