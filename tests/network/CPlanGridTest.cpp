// The plan grid behind the network's search index, on its own, against a plain test of every
// box: a point query must hand over every item whose box holds the point, in ascending order and
// once each; a segment query every item whose box the segment meets. The cases include the
// shapes a network's index never builds (an extent flat on one axis, one wider than a double,
// segments whose ends overflow the grid's mapping), so that the grid is right for any caller.

#include "network/CPlanGrid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using dtm::detail::CPlanGrid;
using dtm::detail::TPlanBox;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kHuge = 1.7e308;

// Items by box; an item without a box (boxOf answers false) is marked absent.
struct Items {
    std::vector<TPlanBox> boxes;
    std::vector<bool> present;

    void Add(const TPlanBox& box, bool isPresent = true) {
        boxes.push_back(box);
        present.push_back(isPresent);
    }
    std::size_t Count() const { return boxes.size(); }
    bool Filed(std::size_t i) const { return present[i] && boxes[i].IsFinite(); }
};

CPlanGrid Build(const Items& items, const TPlanBox& guess, std::size_t maxCellsPerItem = 64) {
    CPlanGrid grid;
    grid.Build(
        items.Count(),
        [&items](std::size_t i, TPlanBox& box) {
            box = items.boxes[i];
            return static_cast<bool>(items.present[i]);
        },
        guess, 4.0, std::size_t{1} << 16, maxCellsPerItem);
    return grid;
}

const TPlanBox kNoGuess{kNaN, kNaN, kNaN, kNaN};

bool Holds(const TPlanBox& box, double x, double y) {
    return box.x0 <= x && x <= box.x1 && box.y0 <= y && y <= box.y1;
}

// Whether the segment a → b meets the closed box, by clipping its parameter to each slab.
bool Meets(const TPlanBox& box, double ax, double ay, double bx, double by) {
    double t0 = 0.0, t1 = 1.0;
    const auto clip = [&t0, &t1](double from, double to, double low, double high) {
        const double d = to - from;
        if (d == 0.0) return low <= from && from <= high;
        double u0 = (low - from) / d, u1 = (high - from) / d;
        if (u0 > u1) std::swap(u0, u1);
        t0 = std::max(t0, u0);
        t1 = std::min(t1, u1);
        return t0 <= t1;
    };
    return clip(ax, bx, box.x0, box.x1) && clip(ay, by, box.y0, box.y1);
}

std::vector<std::uint32_t> PointQuery(const CPlanGrid& grid, double x, double y) {
    std::vector<std::uint32_t> visited;
    grid.VisitPoint(x, y, [&visited](std::uint32_t item) {
        visited.push_back(item);
        return false;
    });
    return visited;
}

// Every filed item whose box holds a point, and every item that is not filed, are handed over;
// in ascending order, once each. Returns the number handed over, to show that the grid prunes.
std::size_t ExpectPointQueriesComplete(const CPlanGrid& grid, const Items& items,
                                       const std::vector<std::pair<double, double>>& points) {
    std::size_t handed = 0;
    for (const auto& [x, y] : points) {
        const std::vector<std::uint32_t> visited = PointQuery(grid, x, y);
        handed += visited.size();
        EXPECT_TRUE(std::adjacent_find(visited.begin(), visited.end(),
                                       [](std::uint32_t a, std::uint32_t b) { return a >= b; }) ==
                    visited.end())
            << "at " << x << ", " << y;
        for (std::size_t i = 0; i < items.Count(); ++i) {
            const bool needed = !items.Filed(i) || Holds(items.boxes[i], x, y);
            if (needed) {
                EXPECT_TRUE(std::binary_search(visited.begin(), visited.end(), i))
                    << "item " << i << " at " << x << ", " << y;
            }
        }
    }
    return handed;
}

using Segment = std::array<double, 4>;

std::size_t ExpectSegmentQueriesComplete(const CPlanGrid& grid, const Items& items,
                                         const std::vector<Segment>& segments) {
    std::size_t handed = 0;
    for (const Segment& s : segments) {
        std::vector<std::uint32_t> found;
        grid.CollectAlongSegment(s[0], s[1], s[2], s[3], found);
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        handed += found.size();
        for (std::size_t i = 0; i < items.Count(); ++i) {
            const bool needed = !items.Filed(i) || Meets(items.boxes[i], s[0], s[1], s[2], s[3]);
            if (needed) {
                EXPECT_TRUE(std::binary_search(found.begin(), found.end(), i))
                    << "item " << i << " on " << s[0] << ", " << s[1] << " -> " << s[2] << ", "
                    << s[3];
            }
        }
    }
    return handed;
}

// @p count small boxes in the square [0, size]², with a random aspect.
Items SmallBoxes(unsigned seed, int count, double size) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> at(0.0, size), extent(0.0, size / 40.0);
    Items items;
    for (int i = 0; i < count; ++i) {
        const double x = at(random), y = at(random);
        items.Add({x, y, x + extent(random), y + extent(random)});
    }
    return items;
}

std::vector<std::pair<double, double>> RandomPoints(unsigned seed, int count, double low,
                                                    double high) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> at(low, high);
    std::vector<std::pair<double, double>> points;
    for (int i = 0; i < count; ++i) points.emplace_back(at(random), at(random));
    return points;
}

std::vector<Segment> RandomSegments(unsigned seed, int count, double low, double high) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> at(low, high);
    std::vector<Segment> segments;
    for (int i = 0; i < count; ++i)
        segments.push_back({at(random), at(random), at(random), at(random)});
    return segments;
}

TEST(PlanGrid, PointsAndSegmentsFindEveryBoxTheyMeetAndPassOverMostOthers) {
    const Items items = SmallBoxes(1, 3000, 100.0);
    for (const TPlanBox& guess :
         {kNoGuess, TPlanBox{0.0, 0.0, 102.5, 102.5}, TPlanBox{0.0, 0.0, 1000.0, 1000.0}}) {
        SCOPED_TRACE(guess.x1);
        const CPlanGrid grid = Build(items, guess);
        // Points beyond the extent too, which fall into the border cells.
        const auto points = RandomPoints(2, 400, -10.0, 110.0);
        EXPECT_LT(ExpectPointQueriesComplete(grid, items, points), points.size() * 20);
        const auto segments = RandomSegments(3, 60, -10.0, 110.0);
        EXPECT_LT(ExpectSegmentQueriesComplete(grid, items, segments),
                  segments.size() * items.Count() / 4);
    }
}

TEST(PlanGrid, AnExtentFlatOnOneAxisPutsTheCellsAlongTheOther) {
    for (const bool flatInY : {true, false}) {
        SCOPED_TRACE(flatInY ? "flat in y" : "flat in x");
        std::mt19937 random(4);
        std::uniform_real_distribution<double> at(0.0, 100.0);
        Items items;
        for (int i = 0; i < 2000; ++i) {
            const double a = at(random);
            items.Add(flatInY ? TPlanBox{a, 5.0, a + 0.01, 5.0} : TPlanBox{5.0, a, 5.0, a + 0.01});
        }
        const CPlanGrid grid = Build(items, kNoGuess);
        std::vector<std::pair<double, double>> points;
        for (const auto& [a, b] : RandomPoints(5, 300, 0.0, 100.0))
            points.emplace_back(flatInY ? a : 5.0, flatInY ? 5.0 : a);
        points.emplace_back(flatInY ? 50.0 : 4.0, flatInY ? 4.0 : 50.0);  // off the line
        // The cells run along the line, so a point meets a few boxes, not all of them.
        EXPECT_LT(ExpectPointQueriesComplete(grid, items, points), points.size() * 100);
        std::vector<Segment> segments = RandomSegments(6, 40, -5.0, 105.0);
        segments.push_back(flatInY ? Segment{20, 5, 30, 5} : Segment{5, 20, 5, 30});
        ExpectSegmentQueriesComplete(grid, items, segments);
    }
}

TEST(PlanGrid, AnExtentWiderThanADoubleStillFindsEveryBox) {
    for (const bool wideInX : {true, false}) {
        SCOPED_TRACE(wideInX ? "wide in x" : "wide in y");
        Items items = SmallBoxes(7, 1000, 100.0);
        const auto far = [wideInX](double v) {
            return wideInX ? TPlanBox{v, 10.0, v + 1.0, 11.0} : TPlanBox{10.0, v, 11.0, v + 1.0};
        };
        items.Add(far(-kHuge));
        items.Add(far(kHuge - 1e300));
        const CPlanGrid grid = Build(items, kNoGuess);
        auto points = RandomPoints(8, 200, 0.0, 100.0);
        points.emplace_back(wideInX ? -kHuge : 10.5, wideInX ? 10.5 : -kHuge);
        points.emplace_back(wideInX ? kHuge : 10.5, wideInX ? 10.5 : kHuge);
        ExpectPointQueriesComplete(grid, items, points);
        ExpectSegmentQueriesComplete(grid, items, RandomSegments(9, 40, 0.0, 100.0));
    }
}

TEST(PlanGrid, BoxesOverTooManyCellsAreListedApartAndFoundEverywhere) {
    Items items = SmallBoxes(10, 3000, 100.0);
    items.Add({0.0, 0.0, 100.0, 100.0});
    items.Add({10.0, 40.0, 90.0, 41.0});
    const CPlanGrid grid = Build(items, kNoGuess, 4);
    ExpectPointQueriesComplete(grid, items, RandomPoints(11, 300, -5.0, 105.0));
    ExpectSegmentQueriesComplete(grid, items, RandomSegments(12, 40, -5.0, 105.0));
    // A point far from every small box still meets the two large ones.
    const std::vector<std::uint32_t> visited = PointQuery(grid, 50.0, 40.5);
    EXPECT_TRUE(std::binary_search(visited.begin(), visited.end(), 3000u));
    EXPECT_TRUE(std::binary_search(visited.begin(), visited.end(), 3001u));
}

TEST(PlanGrid, ItemsWithoutAFiniteBoxAreHandedToEveryQuery) {
    Items items = SmallBoxes(13, 500, 100.0);
    items.Add({0.0, 0.0, 1.0, 1.0}, false);
    items.Add({kNaN, 0.0, 1.0, 1.0});
    items.Add({0.0, 0.0, kInfinity, 1.0});
    const CPlanGrid grid = Build(items, kNoGuess);
    auto points = RandomPoints(14, 100, 0.0, 100.0);
    points.emplace_back(kNaN, 1.0);  // meets only the items without a box
    ExpectPointQueriesComplete(grid, items, points);
    EXPECT_EQ(PointQuery(grid, kNaN, 1.0), (std::vector<std::uint32_t>{500, 501, 502}));
    ExpectSegmentQueriesComplete(grid, items, RandomSegments(15, 20, 0.0, 100.0));

    // When no item has a box, every query meets every item, whether the extent was guessed
    // or not.
    Items none;
    for (int i = 0; i < 5; ++i) none.Add({kNaN, kNaN, kNaN, kNaN}, i % 2 == 0);
    for (const TPlanBox& guess : {kNoGuess, TPlanBox{0.0, 0.0, 1.0, 1.0}}) {
        const CPlanGrid empty = Build(none, guess);
        EXPECT_EQ(PointQuery(empty, 1.0, 1.0), (std::vector<std::uint32_t>{0, 1, 2, 3, 4}));
        std::vector<std::uint32_t> found;
        empty.CollectAlongSegment(0.0, 0.0, 1.0, 1.0, found);
        EXPECT_EQ(found, (std::vector<std::uint32_t>{0, 1, 2, 3, 4}));
    }
}

// Ends so far out that their place in the grid overflows a double: no cell can be told, and the
// query hands over every item.
TEST(PlanGrid, SegmentsWhoseEndsOverflowTheMappingMeetEveryItem) {
    const Items items = SmallBoxes(16, 400, 1e-3);
    const CPlanGrid grid = Build(items, kNoGuess);
    const std::vector<Segment> segments = {{-kHuge, 0.0, kHuge, 0.0},
                                           {0.0, -kHuge, 0.0, kHuge},
                                           {-kInfinity, 5e-4, kInfinity, 5e-4},
                                           {kHuge, kHuge, -kHuge, -kHuge}};
    ExpectSegmentQueriesComplete(grid, items, segments);
    std::vector<std::uint32_t> found;
    grid.CollectAlongSegment(-kHuge, 0.0, kHuge, 0.0, found);
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    EXPECT_EQ(found.size(), items.Count());
}

}  // namespace
