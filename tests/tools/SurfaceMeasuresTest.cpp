// A surface's areas, elevation range, face neighbours and breakline sides, as an export states
// them, against figures worked out here by other means.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "SurfaceMeasures.h"
#include "ToolTestSupport.h"

namespace {

using dtmtool::FaceCornersView;
using dtmtool::TinSurface;
using tool_test::PNT_3D;

// Three points of a right triangle with legs 3 and 4 in plan, raised 5 over the long leg, and a
// point that no face uses, far above and below the rest.
TinSurface Wedge() {
    TinSurface surface;
    surface.points = {{0, 0, 10}, {4, 0, 10}, {0, 3, 15}, {100, 100, 900}};
    return surface;
}

TEST(SurfaceMeasuresTest, AreasAndElevationsAreThoseOfTheVisibleFaces) {
    TinSurface surface = Wedge();
    surface.faces = {{0, 1, 2}};
    // A hidden face over the unused point: neither its area nor its corners count.
    surface.survey.hiddenFaces = {{0, 1, 3}};
    const dtmtool::SurfaceMeasures measures = dtmtool::MeasureSurface(surface);
    ASSERT_TRUE(measures.measured);
    EXPECT_DOUBLE_EQ(measures.planArea, 6.0);
    // In space the legs are 4 and 5·5 + 3·3 under the root, still at a right angle.
    EXPECT_DOUBLE_EQ(measures.surfaceArea, 4.0 * std::sqrt(34.0) / 2.0);
    EXPECT_EQ(measures.lowest, 10.0);
    EXPECT_EQ(measures.highest, 15.0);
}

TEST(SurfaceMeasuresTest, AClockwiseFaceHasTheSameArea) {
    TinSurface surface = Wedge();
    surface.faces = {{0, 2, 1}};
    EXPECT_DOUBLE_EQ(dtmtool::MeasureSurface(surface).planArea, 6.0);
}

TEST(SurfaceMeasuresTest, ASurfaceWithoutVisibleFacesIsNotMeasured) {
    TinSurface surface = Wedge();
    surface.survey.hiddenFaces = {{0, 1, 2}};
    const dtmtool::SurfaceMeasures measures = dtmtool::MeasureSurface(surface);
    EXPECT_FALSE(measures.measured);
    EXPECT_EQ(measures.planArea, 0.0);
}

// One face of 2^53 square units followed by many of one square unit: a plain running sum stays
// at 2^53, since 2^53 + 1 rounds back to it, while every unit belongs in the total.
TEST(SurfaceMeasuresTest, SmallFacesAfterAHugeOneAreNotLost) {
    const double leg = std::ldexp(1.0, 27);  // half of leg · leg is 2^53
    TinSurface surface;
    surface.points = {{0, 0, 0}, {leg, 0, 0}, {0, leg, 0}, {0, 0, 0}, {2, 0, 0}, {0, 1, 0}};
    surface.faces = {{0, 1, 2}};
    const int small = 1000;
    for (int i = 0; i < small; ++i) surface.faces.push_back({3, 4, 5});
    double plain = 0.0;
    for (std::size_t i = 0; i < surface.faces.size(); ++i) plain += i == 0 ? leg * leg / 2 : 1.0;
    ASSERT_EQ(plain, std::ldexp(1.0, 53));  // the loss the measure must not make
    EXPECT_EQ(dtmtool::MeasureSurface(surface).planArea, std::ldexp(1.0, 53) + small);
}

// The neighbours of every side found by comparing every face with every other, the slow and
// plain way, in the layout FaceNeighbours answers in.
std::vector<std::size_t> NeighboursByComparison(const std::vector<FaceCornersView>& faces) {
    const auto hasSide = [](const FaceCornersView& face, int a, int b) {
        for (int k = 0; k < face.count; ++k) {
            const int p = face.corners[k], q = face.corners[(k + 1) % face.count];
            if ((p == a && q == b) || (p == b && q == a)) return true;
        }
        return false;
    };
    std::vector<std::size_t> neighbours(4 * faces.size(), 0);
    for (std::size_t f = 0; f < faces.size(); ++f) {
        for (int k = 0; k < faces[f].count; ++k) {
            const int a = faces[f].corners[k], b = faces[f].corners[(k + 1) % faces[f].count];
            std::size_t found = 0, count = 0;
            for (std::size_t g = 0; g < faces.size(); ++g) {
                if (g != f && hasSide(faces[g], a, b)) {
                    found = g + 1;
                    ++count;
                }
            }
            neighbours[4 * f + static_cast<std::size_t>(k)] = count == 1 ? found : 0;
        }
    }
    return neighbours;
}

TEST(SurfaceMeasuresTest, NeighboursOfAGridAreThoseFoundByComparingEveryPair) {
    TinSurface surface = tool_test::GridSurface(
        9, 7, 1.0, 0.0, 0.0, [](double x, double) { return x; }, 0.3, 4);
    // Two hidden faces that continue the grid beyond its first row, one of them four-sided:
    // they are numbered after the visible faces and are neighbours like any other.
    surface.points.push_back({0.0, -1.0, 0.0});
    surface.points.push_back({1.0, -1.0, 0.0});
    surface.points.push_back({2.0, -1.0, 0.0});
    const int below = static_cast<int>(surface.points.size()) - 3;
    surface.survey.hiddenFaces = {{below, below + 1, 1, 0}, {below + 1, below + 2, 2}};
    const std::vector<FaceCornersView> faces = dtmtool::FacesInFileOrder(surface);
    ASSERT_EQ(faces.size(), surface.faces.size() + 2);
    const std::vector<std::size_t> neighbours = dtmtool::FaceNeighbours(faces);
    EXPECT_EQ(neighbours, NeighboursByComparison(faces));
    // The four-sided face lies across the first side of some visible face of the first row.
    const std::size_t quad = surface.faces.size() + 1;
    EXPECT_NE(std::count(neighbours.begin(), neighbours.end(), quad), 0);
}

// The schema's own example: 10 20 30 with faces 2 and 3 across its first and third sides.
TEST(SurfaceMeasuresTest, ASideRunsFromACornerToTheNext) {
    const int first[] = {10, 20, 30}, second[] = {20, 10, 40}, third[] = {30, 10, 50};
    const std::vector<FaceCornersView> faces = {{first, 3}, {second, 3}, {third, 3}};
    const std::vector<std::size_t> neighbours = dtmtool::FaceNeighbours(faces);
    EXPECT_EQ(std::vector<std::size_t>(neighbours.begin(), neighbours.begin() + 3),
              (std::vector<std::size_t>{2, 0, 3}));
    EXPECT_EQ(neighbours[4 * 1 + 0], 1u);
    EXPECT_EQ(neighbours[4 * 2 + 0], 1u);  // its side 30 to 10
}

TEST(SurfaceMeasuresTest, ASideOfThreeFacesOrOfOneFaceTwiceHasNoNeighbour) {
    const int a[] = {1, 2, 3}, b[] = {2, 1, 4}, c[] = {1, 2, 5}, twice[] = {6, 7, 6};
    const std::vector<FaceCornersView> faces = {{a, 3}, {b, 3}, {c, 3}, {twice, 3}};
    const std::vector<std::size_t> neighbours = dtmtool::FaceNeighbours(faces);
    EXPECT_EQ(neighbours, NeighboursByComparison(faces));
    EXPECT_EQ(neighbours[0], 0u);   // 1-2 is a side of three faces
    EXPECT_EQ(neighbours[12], 0u);  // 6-7 and 7-6 are the same side of one face
    EXPECT_EQ(neighbours[13], 0u);
}

TEST(SurfaceMeasuresTest, ASideOnABreaklineIsOneWhoseCornersAreTheEndsOfASegmentInPlan) {
    TinSurface surface;
    surface.points = {{0, 0, 1}, {4, 0, 1}, {0, 4, 1}, {4, 4, 1}, {8, 0, 1}};
    surface.faces = {{0, 1, 2}, {1, 3, 2}};
    const int hidden[] = {1, 4, 3};
    // The first breakline runs against the first face's first side, 2 above it: in plan they
    // are the same. The second one's first segment is the second face's second side, run the
    // other way; its next segment leaves the network. The segment of no length and the one
    // with a coordinate that is not a number match nothing; neither does the diagonal 4,0 to
    // 0,4 that the two faces share, which no breakline has as one segment.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    surface.breaklines = {{{4, 0, 3}, {0, 0, 3}},
                          {{0, 4, 1}, {4, 4, 1}, {8, 8, 1}},
                          {{4, 0, 1}, {4, 0, 1}},
                          {{nan, 0, 1}, {0, 4, 1}}};
    std::vector<FaceCornersView> faces = dtmtool::FacesInFileOrder(surface);
    faces.push_back({hidden, 3});
    const std::vector<std::uint8_t> sides = dtmtool::BreaklineSides(surface, faces);
    EXPECT_EQ(sides, (std::vector<std::uint8_t>{1, 2, 0}));
}

TEST(SurfaceMeasuresTest, TheFourthSideOfAFourSidedFaceIsTheEighthBit) {
    TinSurface surface;
    surface.points = {{0, 0, 1}, {4, 0, 1}, {4, 4, 1}, {0, 4, 1}};
    surface.breaklines = {{{0, 0, 1}, {0, 4, 1}}};
    const int quad[] = {0, 1, 2, 3};
    EXPECT_EQ(dtmtool::BreaklineSides(surface, {{quad, 4}}), (std::vector<std::uint8_t>{8}));
}

TEST(SurfaceMeasuresTest, WithoutBreaklinesNoSideIsOnOne) {
    TinSurface surface = Wedge();
    surface.faces = {{0, 1, 2}};
    EXPECT_EQ(dtmtool::BreaklineSides(surface, dtmtool::FacesInFileOrder(surface)),
              (std::vector<std::uint8_t>{0}));
}

}  // namespace
