#include "DemoTerrain.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "Workspace.h"

namespace dtmtool {

namespace {

using kor::geom::PNT_2D;
using kor::geom::PNT_3D;

// The terrain is a grid of kColumns × kRows cells in grid coordinates (u, v), bent onto an
// irregular, roughly elliptical patch of plan. Features that need a crease (ridge, valley,
// bank) run along grid rows or columns, so that edges of the network lie on them.
constexpr int kColumns = 150;
constexpr int kRows = 110;
// Centre of the patch, in the magnitudes of a projected coordinate system.
constexpr double kEastingCentre = 512000.0;
constexpr double kNorthingCentre = 5031000.0;
constexpr double kHalfWidth = 1100.0;
constexpr double kHalfHeight = 800.0;

constexpr int kRidgeRow = 80;
constexpr int kRidgeFrom = 20;
constexpr int kRidgeTo = 95;
constexpr int kValleyRow = 30;
constexpr int kBankColumn = 118;
constexpr int kBankFrom = 45;
constexpr int kBankTo = 75;
// The pond: these grid cells hold no triangles, and the ring of their outer edges is the
// internal boundary.
constexpr int kPondFirstColumn = 98;
constexpr int kPondLastColumn = 110;
constexpr int kPondFirstRow = 4;
constexpr int kPondLastRow = 13;

// Largest displacement of a vertex, in cells: under half a cell keeps every triangle turning
// the same way.
constexpr double kJitter = 0.22;

// A value in [0, 1) fixed by (u, v, salt): the splitmix64 finaliser, the same on every machine.
double Hash01(int u, int v, int salt) {
    std::uint64_t x = static_cast<std::uint64_t>(u) * 0x9E3779B97F4A7C15ull ^
                      static_cast<std::uint64_t>(v) * 0xC2B2AE3D27D4EB4Full ^
                      static_cast<std::uint64_t>(salt) * 0x165667B19E3779F9ull;
    x ^= x >> 30;
    x *= 0xBF58476D1CE4E5B9ull;
    x ^= x >> 27;
    x *= 0x94D049BB133111EBull;
    x ^= x >> 31;
    return static_cast<double>(x >> 11) * (1.0 / 9007199254740992.0);
}

double SmoothStep(double t) {
    t = std::max(0.0, std::min(1.0, t));
    return t * t * (3.0 - 2.0 * t);
}

// 1 inside [from, to], easing to 0 over @p ramp cells at both ends.
double Taper(double s, double from, double to, double ramp) {
    return SmoothStep((s - from) / ramp) * SmoothStep((to - s) / ramp);
}

// Grid coordinates to plan: the square of the grid onto the unit disc (the elliptical
// square-to-disc mapping, smooth and without a singular point), then stretched into an
// irregular outline by a radius that varies with the direction.
PNT_2D GridToPlan(double u, double v) {
    const double sx = 2.0 * u / kColumns - 1.0;
    const double sy = 2.0 * v / kRows - 1.0;
    const double dx = sx * std::sqrt(1.0 - sy * sy / 2.0);
    const double dy = sy * std::sqrt(1.0 - sx * sx / 2.0);
    const double angle = std::atan2(dy, dx);
    const double radius = 1.0 + 0.10 * std::sin(3.0 * angle + 0.5) +
                          0.06 * std::cos(5.0 * angle - 1.0) + 0.03 * std::sin(7.0 * angle + 2.0);
    return PNT_2D(kEastingCentre + kHalfWidth * dx * radius,
                  kNorthingCentre + kHalfHeight * dy * radius);
}

const PNT_2D kHillCentre(kEastingCentre + 480.0, kNorthingCentre + 230.0);

double Elevation(double u, double v, const PNT_2D& plan) {
    const double x = plan.x - kEastingCentre;
    const double y = plan.y - kNorthingCentre;
    double z = 210.0 + 0.025 * x + 0.015 * y;
    // The hill.
    const double hx = plan.x - kHillCentre.x;
    const double hy = plan.y - kHillCentre.y;
    z += 70.0 * std::exp(-(hx * hx + hy * hy) / (2.0 * 230.0 * 230.0));
    // The ridge: a sharp crest along its grid row, fading at both ends.
    const double ridge = 1.0 - std::fabs(v - kRidgeRow) / 14.0;
    if (ridge > 0.0) z += 38.0 * Taper(u, kRidgeFrom, kRidgeTo, 12.0) * std::pow(ridge, 1.6);
    // The valley: a V-shaped floor along its grid row, across the whole patch.
    const double valley = 1.0 - std::fabs(v - kValleyRow) / 16.0;
    if (valley > 0.0) z -= 28.0 * std::pow(valley, 1.3);
    // The bank: the ground drops west of its grid column.
    if (u < kBankColumn)
        z -= std::min(8.0, 0.6 * (kBankColumn - u)) * Taper(v, kBankFrom, kBankTo, 5.0);
    // Small undulations, so that no two contour lines look alike.
    z += 2.2 * std::sin(x / 53.0 + 1.3) * std::cos(y / 67.0 - 0.4) +
         1.3 * std::sin((x - 0.6 * y) / 31.0) + 0.8 * std::cos((0.7 * x + y) / 19.0);
    return z;
}

bool InsidePond(int u, int v) {
    return u > kPondFirstColumn && u < kPondLastColumn && v > kPondFirstRow && v < kPondLastRow;
}

bool PondCell(int u, int v) {
    return u >= kPondFirstColumn && u < kPondLastColumn && v >= kPondFirstRow && v < kPondLastRow;
}

// The grid's vertices with their displaced positions and elevations; vertices inside the pond
// have no triangle and are left out.
class DemoGrid {
public:
    DemoGrid() : m_index((kColumns + 1) * (kRows + 1), -1) {
        for (int v = 0; v <= kRows; ++v)
            for (int u = 0; u <= kColumns; ++u)
                if (!InsidePond(u, v)) {
                    m_index[Slot(u, v)] = static_cast<int>(m_points.size());
                    m_points.push_back(Vertex(u, v));
                }
    }

    const std::vector<PNT_3D>& Points() const { return m_points; }
    int Index(int u, int v) const { return m_index[Slot(u, v)]; }
    const PNT_3D& Point(int u, int v) const {
        return m_points[static_cast<std::size_t>(Index(u, v))];
    }

private:
    static std::size_t Slot(int u, int v) {
        return static_cast<std::size_t>(v) * (kColumns + 1) + static_cast<std::size_t>(u);
    }

    // Vertices on the outline stay put; those on a crease row move only along the row, those on
    // the bank's column only along the column, so that the creases stay on network edges.
    static PNT_3D Vertex(int u, int v) {
        const bool outline = u == 0 || v == 0 || u == kColumns || v == kRows;
        double du = outline ? 0.0 : kJitter * (2.0 * Hash01(u, v, 1) - 1.0);
        double dv = outline ? 0.0 : kJitter * (2.0 * Hash01(u, v, 2) - 1.0);
        if (v == kRidgeRow || v == kValleyRow) dv = 0.0;
        if (u == kBankColumn) du = 0.0;
        const double gu = u + du;
        const double gv = v + dv;
        const PNT_2D plan = GridToPlan(gu, gv);
        return PNT_3D(plan, Elevation(gu, gv, plan));
    }

    std::vector<int> m_index;
    std::vector<PNT_3D> m_points;
};

// The ring of grid vertices around the cells [u0, u1) × [v0, v1), counter-clockwise in plan.
std::vector<PNT_3D> GridRing(const DemoGrid& grid, int u0, int u1, int v0, int v1) {
    std::vector<PNT_3D> ring;
    for (int u = u0; u < u1; ++u) ring.push_back(grid.Point(u, v0));
    for (int v = v0; v < v1; ++v) ring.push_back(grid.Point(u1, v));
    for (int u = u1; u > u0; --u) ring.push_back(grid.Point(u, v1));
    for (int v = v1; v > v0; --v) ring.push_back(grid.Point(u0, v));
    return ring;
}

void AddRing(CCnts& cnts, const std::vector<PNT_3D>& ring) {
    kor::CRefPtr<CCnt> cnt = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    cnt->SetRealVrts(ring);
    cnts.AddCnt(cnt.Get());
}

// One breakline per network edge along a grid row (@p alongRow) or column.
void AddCreaseBreaklines(CVncs& vncs, const DemoGrid& grid, bool alongRow, int line, int from,
                         int to) {
    for (int s = from; s < to; ++s) {
        const PNT_3D& a = alongRow ? grid.Point(s, line) : grid.Point(line, s);
        const PNT_3D& b = alongRow ? grid.Point(s + 1, line) : grid.Point(line, s + 1);
        vncs.AddNewVnc(kor::geom::LINE_3D(a, b));
    }
}

void AddTriangles(CTris& tris, const DemoGrid& grid) {
    // The two triangles of a cell; the diagonal alternates like a chequerboard so that the
    // network has no preferred direction.
    for (int v = 0; v < kRows; ++v)
        for (int u = 0; u < kColumns; ++u) {
            if (PondCell(u, v)) continue;
            const int a = grid.Index(u, v);
            const int b = grid.Index(u + 1, v);
            const int c = grid.Index(u + 1, v + 1);
            const int d = grid.Index(u, v + 1);
            constexpr int kByLayer = 256;
            if ((u + v) % 2 == 0) {
                tris.AddNewTri(kByLayer, a, b, c);
                tris.AddNewTri(kByLayer, a, c, d);
            } else {
                tris.AddNewTri(kByLayer, a, b, d);
                tris.AddNewTri(kByLayer, b, c, d);
            }
        }
}

}  // namespace

CDtmPrj* BuildDemoTerrain(Workspace& workspace, DemoLandmarks& landmarks) {
    const DemoGrid grid;
    CDtmPrj* prj = workspace.AddProject("Demo terrain");
    CTris& tris = *prj->GetTris();
    {
        kor::CEventGuard event(prj->GetContext());
        tris.SetNoTriVrts(static_cast<int>(grid.Points().size()));
        for (const PNT_3D& p : grid.Points()) tris.AddTriVrt(p);
        AddTriangles(tris, grid);
        AddRing(*prj->GetCnts(false), GridRing(grid, 0, kColumns, 0, kRows));
        AddRing(*prj->GetCnts(true),
                GridRing(grid, kPondFirstColumn, kPondLastColumn, kPondFirstRow, kPondLastRow));
        AddCreaseBreaklines(*prj->GetVncs(), grid, true, kRidgeRow, kRidgeFrom, kRidgeTo);
        AddCreaseBreaklines(*prj->GetVncs(), grid, true, kValleyRow, 0, kColumns);
        AddCreaseBreaklines(*prj->GetVncs(), grid, false, kBankColumn, kBankFrom, kBankTo);
    }
    // The patch is laid out in metres; saying so lets an export state it.
    workspace.Surveys()[prj].units = {
        "Metric",
        {{"linearUnit", "meter"}, {"areaUnit", "squareMeter"}, {"volumeUnit", "cubicMeter"}}};

    landmarks.hillTop = kHillCentre;
    landmarks.valleyFloor = grid.Point(60, kValleyRow);
    landmarks.ridgeCrest = grid.Point(60, kRidgeRow);
    landmarks.pond = GridToPlan((kPondFirstColumn + kPondLastColumn) / 2.0,
                                (kPondFirstRow + kPondLastRow) / 2.0);
    landmarks.section = kor::geom::LINE_2D(GridToPlan(60.0, 8.0), GridToPlan(60.0, 102.0));
    return prj;
}

}  // namespace dtmtool
