#pragma once

// A uniform grid over plan boxes, stored compactly (one offset per cell, six bytes per item and
// cell), and the conservative plan geometry its users share. Private to the library.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace dtm {
namespace detail {

/// An axis-aligned plan box.
struct TPlanBox {
    double x0, y0, x1, y1;

    bool IsFinite() const noexcept {
        return std::isfinite(x0) && std::isfinite(y0) && std::isfinite(x1) && std::isfinite(y1);
    }
};

/// A uniform grid of nx × ny cells over a plan extent, each cell listing, in ascending order,
/// the items whose box overlaps it, each with the part of the cell its box covers. Items that
/// are not finite, or whose box would cover more than a set number of cells, are listed apart
/// as "wide" items, which every query returns.
///
/// Placing works on a fine grid of 16 × 16 sub-cells per cell: the sub-cell of a coordinate is
/// floor((v − origin) · scale), clamped to the grid, computed in double precision, and its cell
/// is that divided by 16. This one mapping never decreases as v grows, so an item registered
/// under the sub-cells from that of its box's low corner to that of its high corner is found
/// from every point of its box whatever the rounding, and the part of a cell it covers (kept
/// as four nibbles) lets a point query pass over most items of its cell without looking at
/// them, and a segment query over most items of the cells it crosses. Points outside the extent
/// fall into the border cells.
class CPlanGrid {
public:
    /// Builds the grid over items 0 .. count − 1; @p boxOf(i, box) gives item i's box and
    /// answers false for an item without a finite box. About @p itemsPerCell items per cell
    /// (counted once each), at most @p maxCells cells; an item whose box covers more than
    /// @p maxCellsPerItem cells is listed as wide. Item numbers must fit 32 bits.
    ///
    /// @p extentGuess, when it is finite, is taken for the extent of the items' boxes, which
    /// saves a pass over the items (the caller can often find it from far less data than the
    /// items themselves); otherwise a first pass finds the extent. Any extent gives a correct
    /// grid, since points and boxes beyond it fall into the border cells; a poor one only makes
    /// cells crowded. So the items are counted under the guess, which also yields the true
    /// extent, and the guess is kept unless the true extent is much smaller or many items have
    /// no box: then they are counted again under the true extent. Items are visited two to four
    /// times, in ascending order.
    template <class BoxOf>
    void Build(std::size_t count, BoxOf&& boxOf, const TPlanBox& extentGuess, double itemsPerCell,
               std::size_t maxCells, std::size_t maxCellsPerItem) {
        *this = CPlanGrid();
        TPlanBox guess = extentGuess;
        if (!IsUsableExtent(guess)) guess = ExtentOf(count, boxOf);
        if (!IsUsableExtent(guess)) {
            ListAllAsWide(count);
            return;
        }
        TPlanBox extent = Nothing();
        std::size_t finiteCount = 0;
        const auto boxAndExtentOf = [&boxOf, &extent, &finiteCount](std::size_t i, TPlanBox& box) {
            if (!boxOf(i, box) || !box.IsFinite()) return false;
            Include(extent, box);
            ++finiteCount;
            return true;
        };
        Shape(guess, count, itemsPerCell, maxCells);
        std::size_t wideCount = CountPerCell(count, boxAndExtentOf, maxCellsPerItem);
        if (finiteCount == 0) {
            ListAllAsWide(count);
            return;
        }
        if (!Fits(guess, extent, count, finiteCount)) {
            Shape(extent, finiteCount, itemsPerCell, maxCells);
            wideCount = CountPerCell(count, boxOf, maxCellsPerItem);
        }

        // Filling pass, in ascending item order: each cell's slot serves as its write cursor and
        // ends at the start of the next cell, so one shift restores the starts afterwards.
        m_entries.resize(m_cellStart.back());
        m_wide.reserve(wideCount);
        ForEachRegistration(
            count, boxOf, maxCellsPerItem,
            [this](std::size_t item, std::size_t cell, std::uint16_t cover) {
                m_entries[m_cellStart[cell]++] = TEntry::Of(item, cover);
            },
            [this](std::size_t item) { m_wide.push_back(static_cast<std::uint32_t>(item)); });
        for (std::size_t cell = m_cellStart.size() - 1; cell > 0; --cell)
            m_cellStart[cell] = m_cellStart[cell - 1];
        m_cellStart[0] = 0;
    }

    /// Calls @p visit(item) for every item of the cell holding (x, y) whose box may hold the
    /// point, and for every wide item, all in ascending order, until @p visit returns true.
    /// True when it did. A point that is not finite meets only the wide items.
    template <class Visit>
    bool VisitPoint(double x, double y, Visit&& visit) const {
        const TEntry* cell = nullptr;
        const TEntry* cellEnd = nullptr;
        unsigned subX = 0;
        unsigned subY = 0;
        if (std::isfinite(x) && std::isfinite(y)) {
            const std::size_t fineX = Fine(x, m_originX, m_scaleX, m_nx);
            const std::size_t fineY = Fine(y, m_originY, m_scaleY, m_ny);
            const std::size_t index = (fineY >> 4) * m_nx + (fineX >> 4);
            cell = m_entries.data() + m_cellStart[index];
            cellEnd = m_entries.data() + m_cellStart[index + 1];
            subX = static_cast<unsigned>(fineX & 15);
            subY = static_cast<unsigned>(fineY & 15);
        }
        const std::uint32_t* wide = m_wide.data();
        const std::uint32_t* wideEnd = wide + m_wide.size();
        while (cell != cellEnd || wide != wideEnd) {
            if (wide == wideEnd || (cell != cellEnd && cell->Item() < *wide)) {
                const TEntry& entry = *cell++;
                if (entry.Covers(subX, subY) && visit(entry.Item())) return true;
            } else if (visit(*wide++)) {
                return true;
            }
        }
        return false;
    }

    /// Appends to @p out the items whose covered part of a cell the segment a → b may meet
    /// (within rounding of it), then the wide items. Items met in different cells repeat and
    /// are not in order.
    void CollectAlongSegment(double ax, double ay, double bx, double by,
                             std::vector<std::uint32_t>& out) const {
        // In sub-cell units the segment runs from (ua, wa) to (ub, wb). The slack exceeds the
        // rounding of those values many times over; an extra candidate costs only a test.
        const double ua = (ax - m_originX) * m_scaleX;
        const double wa = (ay - m_originY) * m_scaleY;
        const double ub = (bx - m_originX) * m_scaleX;
        const double wb = (by - m_originY) * m_scaleY;
        const double slack =
            1e-5 + 1e-12 * (std::fabs(ua) + std::fabs(ub) + std::fabs(wa) + std::fabs(wb) +
                            (std::fabs(ax) + std::fabs(bx) + std::fabs(m_originX)) * m_scaleX +
                            (std::fabs(ay) + std::fabs(by) + std::fabs(m_originY)) * m_scaleY);
        if (!std::isfinite(ua + wa + ub + wb + slack)) {
            // An end whose distance from the extent overflows a double maps to infinity, or to
            // NaN on an axis of zero scale: no cell can be told, so every item is a candidate.
            for (const TEntry& entry : m_entries) out.push_back(entry.Item());
            out.insert(out.end(), m_wide.begin(), m_wide.end());
            return;
        }
        const double infinity = std::numeric_limits<double>::infinity();
        const std::size_t rowFirst = CellOf(std::min(wa, wb) - slack, m_ny);
        const std::size_t rowLast = CellOf(std::max(wa, wb) + slack, m_ny);
        for (std::size_t row = rowFirst; row <= rowLast; ++row) {
            // The part of the segment inside this row's band, widened by the slack; the border
            // rows reach to infinity, as the clamped mapping does.
            const double bandLow = row == 0 ? -infinity : 16.0 * static_cast<double>(row) - slack;
            const double bandHigh =
                row + 1 == m_ny ? infinity : 16.0 * static_cast<double>(row + 1) + slack;
            double t0 = 0.0;
            double t1 = 1.0;
            if (!ClipToSlab(wa, wb, bandLow, bandHigh, t0, t1)) continue;
            const double u0 = ua + (ub - ua) * t0;
            const double u1 = ua + (ub - ua) * t1;
            const std::size_t columnFirst = CellOf(std::min(u0, u1) - slack, m_nx);
            const std::size_t columnLast = CellOf(std::max(u0, u1) + slack, m_nx);
            for (std::size_t column = columnFirst; column <= columnLast; ++column) {
                const std::size_t cell = row * m_nx + column;
                for (std::uint32_t e = m_cellStart[cell]; e < m_cellStart[cell + 1]; ++e) {
                    const TEntry& entry = m_entries[e];
                    if (SegmentMayMeetCover(entry.cover, column, row, ua, wa, ub, wb, slack))
                        out.push_back(entry.Item());
                }
            }
        }
        out.insert(out.end(), m_wide.begin(), m_wide.end());
    }

    /// Bytes held.
    std::size_t GetMemoryBytes() const noexcept {
        return m_cellStart.capacity() * sizeof(std::uint32_t) +
               m_entries.capacity() * sizeof(TEntry) + m_wide.capacity() * sizeof(std::uint32_t);
    }

private:
    // An item listed in a cell: its number, and the sub-cells of the cell its box covers as four
    // nibbles (x from, x to, y from, y to). Six bytes, two-byte aligned, so that the entries of
    // a cell lie close together.
    struct TEntry {
        std::uint16_t low;
        std::uint16_t high;
        std::uint16_t cover;

        static TEntry Of(std::size_t item, std::uint16_t cover) noexcept {
            return {static_cast<std::uint16_t>(item & 0xFFFF),
                    static_cast<std::uint16_t>((item >> 16) & 0xFFFF), cover};
        }
        std::uint32_t Item() const noexcept {
            return static_cast<std::uint32_t>(low) | (static_cast<std::uint32_t>(high) << 16);
        }
        bool Covers(unsigned subX, unsigned subY) const noexcept {
            return subX >= (cover & 15u) && subX <= ((cover >> 4) & 15u) &&
                   subY >= ((cover >> 8) & 15u) && subY <= (cover >> 12);
        }
    };

    // The box that includes nothing, and growing a box to include another.
    static TPlanBox Nothing() noexcept {
        const double infinity = std::numeric_limits<double>::infinity();
        return {infinity, infinity, -infinity, -infinity};
    }
    static void Include(TPlanBox& extent, const TPlanBox& box) noexcept {
        extent.x0 = std::min(extent.x0, box.x0);
        extent.y0 = std::min(extent.y0, box.y0);
        extent.x1 = std::max(extent.x1, box.x1);
        extent.y1 = std::max(extent.y1, box.y1);
    }
    template <class BoxOf>
    static TPlanBox ExtentOf(std::size_t count, BoxOf& boxOf) {
        TPlanBox extent = Nothing();
        TPlanBox box{};
        for (std::size_t i = 0; i < count; ++i) {
            if (boxOf(i, box) && box.IsFinite()) Include(extent, box);
        }
        return extent;
    }
    static bool IsUsableExtent(const TPlanBox& extent) noexcept {
        return extent.IsFinite() && extent.x0 <= extent.x1 && extent.y0 <= extent.y1;
    }

    // Whether a grid shaped for @p guess and @p count items serves items whose boxes span
    // @p actual, @p finiteCount of them with a box, about as well as one shaped for those: the
    // true extent covers at least half the guess on each axis and at least half the items have
    // a box, so that cells hold at most about four times the items wanted.
    static bool Fits(const TPlanBox& guess, const TPlanBox& actual, std::size_t count,
                     std::size_t finiteCount) noexcept {
        const auto covers = [](double guessLow, double guessHigh, double low, double high) {
            const double span = std::min(high, guessHigh) - std::max(low, guessLow);
            return !(guessHigh - guessLow > 2.0 * span);
        };
        return 2 * finiteCount >= count && covers(guess.x0, guess.x1, actual.x0, actual.x1) &&
               covers(guess.y0, guess.y1, actual.y0, actual.y1);
    }

    // No item has a finite box: every item is wide, and one empty cell keeps the lookups simple.
    void ListAllAsWide(std::size_t count) {
        *this = CPlanGrid();
        m_cellStart.assign(2, 0);
        m_wide.reserve(count);
        for (std::size_t i = 0; i < count; ++i) m_wide.push_back(static_cast<std::uint32_t>(i));
    }

    // Counting pass: the size of every cell goes into the slot of the cell after it, and the
    // slots then add up to the cells' starts. Returns the number of wide items.
    template <class BoxOf>
    std::size_t CountPerCell(std::size_t count, BoxOf& boxOf, std::size_t maxCellsPerItem) {
        m_cellStart.assign(CellCount() + 1, 0);
        std::size_t wideCount = 0;
        ForEachRegistration(
            count, boxOf, maxCellsPerItem,
            [this](std::size_t, std::size_t cell, std::uint16_t) { ++m_cellStart[cell + 1]; },
            [&wideCount](std::size_t) { ++wideCount; });
        for (std::size_t cell = 1; cell < m_cellStart.size(); ++cell)
            m_cellStart[cell] += m_cellStart[cell - 1];
        return wideCount;
    }

    std::size_t CellCount() const noexcept { return m_nx * m_ny; }

    // The sub-cell of v on an axis of @p cells cells: floor((v − origin) · scale) clamped to the
    // axis; NaN gives 0. The comparisons come first, so that the conversion never sees a value
    // it cannot represent.
    static std::size_t Fine(double v, double origin, double scale, std::size_t cells) noexcept {
        const double u = (v - origin) * scale;
        if (!(u >= 1.0)) return 0;
        const double last = static_cast<double>(16 * cells - 1);
        if (u >= last) return 16 * cells - 1;
        return static_cast<std::size_t>(u);
    }

    // The cell, clamped to [0, n − 1], of a position @p u in sub-cell units (16 to a cell).
    static std::size_t CellOf(double u, std::size_t n) noexcept {
        const double cell = u / 16.0;
        if (!(cell >= 1.0)) return 0;
        const double last = static_cast<double>(n - 1);
        if (cell >= last) return n - 1;
        return static_cast<std::size_t>(cell);
    }

    // Narrows [t0, t1], the parameters of the segment a → b (one coordinate), to those inside
    // [low, high], widened by a rounding margin of the parameters; false when none are.
    static bool ClipToSlab(double a, double b, double low, double high, double& t0,
                           double& t1) noexcept {
        const double d = b - a;
        if (d == 0.0) return a >= low && a <= high;
        double enter = (low - a) / d;
        double leave = (high - a) / d;
        if (enter > leave) std::swap(enter, leave);
        t0 = std::max(t0, enter - 1e-9);
        t1 = std::min(t1, leave + 1e-9);
        return t0 <= t1;
    }

    // Whether the segment (ua, wa) → (ub, wb), in sub-cell units, may meet the part @p cover of
    // the cell at @p column, @p row: the covered sub-cells widened by @p slack, and reaching to
    // infinity on the sides where the cell is a border cell and the cover reaches its edge (the
    // clamped mapping puts everything beyond the extent there).
    bool SegmentMayMeetCover(std::uint16_t cover, std::size_t column, std::size_t row, double ua,
                             double wa, double ub, double wb, double slack) const noexcept {
        const double infinity = std::numeric_limits<double>::infinity();
        const unsigned xFrom = cover & 15u, xTo = (cover >> 4) & 15u;
        const unsigned yFrom = (cover >> 8) & 15u, yTo = cover >> 12;
        const double x0 = column == 0 && xFrom == 0
                              ? -infinity
                              : 16.0 * static_cast<double>(column) + xFrom - slack;
        const double x1 = column + 1 == m_nx && xTo == 15
                              ? infinity
                              : 16.0 * static_cast<double>(column) + xTo + 1 + slack;
        const double y0 =
            row == 0 && yFrom == 0 ? -infinity : 16.0 * static_cast<double>(row) + yFrom - slack;
        const double y1 = row + 1 == m_ny && yTo == 15
                              ? infinity
                              : 16.0 * static_cast<double>(row) + yTo + 1 + slack;
        double t0 = 0.0;
        double t1 = 1.0;
        return ClipToSlab(ua, ub, x0, x1, t0, t1) && ClipToSlab(wa, wb, y0, y1, t0, t1);
    }

    // A count of cells along one axis: @p count rounded into 1..limit, and 1 for NaN, which no
    // comparison would clamp.
    static std::size_t CellCount(double count, double limit) noexcept {
        const double rounded = std::round(count);
        return static_cast<std::size_t>(rounded >= 1.0 ? std::min(rounded, limit) : 1.0);
    }

    // Chooses the cell counts and the mapping for @p extent and about @p items items.
    void Shape(const TPlanBox& extent, std::size_t items, double itemsPerCell,
               std::size_t maxCells) {
        const double width = extent.x1 - extent.x0;
        const double height = extent.y1 - extent.y0;
        const double wanted = std::clamp(static_cast<double>(items) / itemsPerCell, 1.0,
                                         static_cast<double>(maxCells));
        double columns = 1.0;
        double rows = 1.0;
        // A side whose span overflowed a double gets one cell: its coordinates cannot be mapped.
        const bool spreadX = width > 0.0 && std::isfinite(width);
        const bool spreadY = height > 0.0 && std::isfinite(height);
        if (spreadX && spreadY) {
            // The aspect first, so that the product cannot overflow: it is then at worst
            // infinite or zero, and the counts are clamped below.
            columns = std::sqrt(wanted * (width / height));
            rows = wanted / std::max(columns, 1.0);
        } else if (spreadX) {
            columns = wanted;
        } else if (spreadY) {
            rows = wanted;
        }
        m_nx = CellCount(columns, wanted);
        m_ny = CellCount(rows, wanted);
        m_originX = extent.x0;
        m_originY = extent.y0;
        // An extent of zero, or one too large for a double, maps everything to one column or
        // row: still correct, merely slower.
        m_scaleX = spreadX ? 16.0 * static_cast<double>(m_nx) / width : 0.0;
        m_scaleY = spreadY ? 16.0 * static_cast<double>(m_ny) / height : 0.0;
    }

    // Calls onCell(item, cell, cover) for every cell of every item kept in cells, and
    // onWide(item) for every other item, in ascending item order.
    template <class BoxOf, class OnCell, class OnWide>
    void ForEachRegistration(std::size_t count, BoxOf& boxOf, std::size_t maxCellsPerItem,
                             OnCell&& onCell, OnWide&& onWide) const {
        TPlanBox box{};
        for (std::size_t i = 0; i < count; ++i) {
            if (!boxOf(i, box) || !box.IsFinite()) {
                onWide(i);
                continue;
            }
            const std::size_t x0 = Fine(box.x0, m_originX, m_scaleX, m_nx);
            const std::size_t x1 = Fine(box.x1, m_originX, m_scaleX, m_nx);
            const std::size_t y0 = Fine(box.y0, m_originY, m_scaleY, m_ny);
            const std::size_t y1 = Fine(box.y1, m_originY, m_scaleY, m_ny);
            const std::size_t c0 = x0 >> 4, c1 = x1 >> 4, r0 = y0 >> 4, r1 = y1 >> 4;
            const auto cover = [](std::size_t from, std::size_t to, std::size_t rowFrom,
                                  std::size_t rowTo) {
                return static_cast<std::uint16_t>(from | (to << 4) | (rowFrom << 8) |
                                                  (rowTo << 12));
            };
            if (c0 == c1 && r0 == r1) {
                // Most items lie in one cell; they skip the loops and their hard-to-predict exits.
                onCell(i, r0 * m_nx + c0, cover(x0 & 15, x1 & 15, y0 & 15, y1 & 15));
                continue;
            }
            if ((c1 - c0 + 1) * (r1 - r0 + 1) > maxCellsPerItem) {
                onWide(i);
                continue;
            }
            for (std::size_t row = r0; row <= r1; ++row) {
                const unsigned yFrom = row == r0 ? static_cast<unsigned>(y0 & 15) : 0u;
                const unsigned yTo = row == r1 ? static_cast<unsigned>(y1 & 15) : 15u;
                for (std::size_t column = c0; column <= c1; ++column) {
                    const unsigned xFrom = column == c0 ? static_cast<unsigned>(x0 & 15) : 0u;
                    const unsigned xTo = column == c1 ? static_cast<unsigned>(x1 & 15) : 15u;
                    onCell(i, row * m_nx + column, cover(xFrom, xTo, yFrom, yTo));
                }
            }
        }
    }

    double m_originX = 0.0;
    double m_originY = 0.0;
    double m_scaleX = 0.0;  // sub-cells per unit
    double m_scaleY = 0.0;
    std::size_t m_nx = 1;
    std::size_t m_ny = 1;
    std::vector<std::uint32_t> m_cellStart;
    std::vector<TEntry> m_entries;
    std::vector<std::uint32_t> m_wide;
};

}  // namespace detail
}  // namespace dtm
