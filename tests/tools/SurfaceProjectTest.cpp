// Surfaces become projects and projects become surfaces again.

#include <gtest/gtest.h>

#include "SurfaceProject.h"
#include "ToolTestSupport.h"
#include "Workspace.h"

namespace {

using dtmtool::TinSurface;
using dtmtool::Workspace;
using tool_test::PNT_3D;

TinSurface Sample() {
    TinSurface surface = tool_test::GridSurface(
        5, 4, 2.0, 10.0, 20.0, [](double x, double y) { return 3.0 + 0.1 * x + 0.05 * y; }, 0.25,
        5);
    surface.name = "Sample";
    surface.breaklines = {{{10, 20, 4}, {12, 22, 5}, {14, 24, 6}}, {{20, 20, 4}, {20, 28, 5}}};
    surface.externalBoundaries = {{{10, 20, 4}, {20, 20, 4}, {20, 28, 5}, {10, 28, 5}}};
    surface.internalBoundaries = {{{14, 23, 5}, {16, 23, 5}, {15, 25, 5}}};
    return surface;
}

TEST(SurfaceProjectTest, AProjectHoldsTheSurfaceWithOneBreaklinePerSegment) {
    Workspace workspace;
    const TinSurface surface = Sample();
    const CDtmPrj& prj = *dtmtool::AddSurfaceProject(workspace, surface);
    EXPECT_EQ(prj.GetName().str(), "Sample");
    const CTris& tris = *prj.GetTris();
    ASSERT_EQ(tris.GetNoTriVrts(), static_cast<int>(surface.points.size()));
    EXPECT_EQ(tris.GetNoTris(), static_cast<int>(surface.faces.size()));
    EXPECT_EQ(prj.GetVncs()->GetNoVncs(), 3);
    EXPECT_EQ(prj.GetCnts(false)->GetNoCnts(), 1);
    EXPECT_EQ(prj.GetCnts(true)->GetNoCnts(), 1);
    EXPECT_EQ(tris.GetOptions().GetColorType(), COpzTri::TRI_COLOR_BY_CLASSES);
    // The network built its spatial index when the filling event closed: an elevation slice
    // finds triangles, which it cannot without the index.
    struct Counter final : ITrisListener {
        int count = 0;
        void OnTris(int n, TTriDraw*) override { count += n; }
        void OnTriIndexes(int, int, int, bool, int, int) override {}
    } counter;
    tris.GetTris_Quote(&counter, 5.0);
    EXPECT_GT(counter.count, 0);
}

TEST(SurfaceProjectTest, AProjectTurnsBackIntoTheSameSurface) {
    Workspace workspace;
    const TinSurface surface = Sample();
    const TinSurface back =
        dtmtool::SurfaceOfProject(*dtmtool::AddSurfaceProject(workspace, surface));
    EXPECT_EQ(back.name, surface.name);
    ASSERT_EQ(back.points.size(), surface.points.size());
    for (std::size_t i = 0; i < back.points.size(); ++i) {
        EXPECT_EQ(back.points[i].x, surface.points[i].x);
        EXPECT_EQ(back.points[i].y, surface.points[i].y);
        EXPECT_EQ(back.points[i].z, surface.points[i].z);
    }
    // The spatial index reorders the triangle array, so the same triangles come in another
    // order; each keeps its vertices and winding.
    EXPECT_EQ(tool_test::CanonicalFaces(back.faces), tool_test::CanonicalFaces(surface.faces));
    ASSERT_EQ(back.breaklines.size(), 2u);
    EXPECT_EQ(back.breaklines[0].size(), 3u);
    EXPECT_EQ(back.breaklines[1].size(), 2u);
    EXPECT_EQ(back.breaklines[0][2].x, 14.0);
    ASSERT_EQ(back.externalBoundaries.size(), 1u);
    ASSERT_EQ(back.externalBoundaries[0].size(), 4u);
    EXPECT_EQ(back.externalBoundaries[0][1].x, 20.0);
    ASSERT_EQ(back.internalBoundaries.size(), 1u);
    EXPECT_EQ(back.internalBoundaries[0].size(), 3u);
}

// Three survey breaklines of which the second starts where the first ends: joined by position
// they would make two lines.
TinSurface TouchingBreaklines() {
    TinSurface surface = Sample();
    surface.breaklines = {{{10, 20, 4}, {12, 22, 5}},
                          {{12, 22, 5}, {14, 24, 6}, {16, 24, 6}},
                          {{20, 20, 4}, {20, 28, 5}}};
    surface.survey.breaklines = {
        {{{"name", "A"}}, 1}, {{{"name", "B"}, {"desc", "kerb"}}, 2}, {{{"name", "C"}}, 1}};
    return surface;
}

TEST(SurfaceProjectTest, TheRecordCutsBreaklinesWhereTheSurveysLinesEnded) {
    Workspace workspace;
    const TinSurface surface = TouchingBreaklines();
    const CDtmPrj& prj = *dtmtool::AddSurfaceProject(workspace, surface);
    const dtmtool::SurveyRecord* record = dtmtool::FindSurveyRecord(workspace.Surveys(), prj);
    ASSERT_NE(record, nullptr);
    const TinSurface back = dtmtool::SurfaceOfProject(prj, record);
    ASSERT_EQ(back.breaklines.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_EQ(back.breaklines[i].size(), surface.breaklines[i].size()) << i;
        for (std::size_t k = 0; k < back.breaklines[i].size(); ++k) {
            EXPECT_EQ(back.breaklines[i][k].x, surface.breaklines[i][k].x);
            EXPECT_EQ(back.breaklines[i][k].y, surface.breaklines[i][k].y);
        }
    }
    EXPECT_EQ(back.survey.breaklines, surface.survey.breaklines);
}

TEST(SurfaceProjectTest, WithoutARecordThatAccountsForEverySegmentBreaklinesAreJoined) {
    Workspace workspace;
    const TinSurface surface = TouchingBreaklines();
    const CDtmPrj& prj = *dtmtool::AddSurfaceProject(workspace, surface);
    const TinSurface joined = dtmtool::SurfaceOfProject(prj);
    ASSERT_EQ(joined.breaklines.size(), 2u);
    EXPECT_EQ(joined.breaklines[0].size(), 4u);
    EXPECT_TRUE(joined.survey.breaklines.empty());
    // A record that counts one segment too many is not followed either, and its attributes,
    // which would no longer match the lines, are dropped.
    dtmtool::SurveyRecord record = *dtmtool::FindSurveyRecord(workspace.Surveys(), prj);
    record.breaklines[1].segments = 3;
    const TinSurface back = dtmtool::SurfaceOfProject(prj, &record);
    EXPECT_EQ(back.breaklines.size(), 2u);
    EXPECT_TRUE(back.survey.breaklines.empty());
}

// Without a record, a segment continues the previous line only where it starts at exactly the
// point, in all three coordinates, where that line ended.
TEST(SurfaceProjectTest, BreaklinesAreJoinedOnlyWhereTheirEndsMatchInEveryCoordinate) {
    Workspace workspace;
    TinSurface surface = Sample();
    surface.breaklines = {{{10, 20, 4}, {12, 22, 5}},
                          {{12, 25, 6}, {14, 24, 6}},   // the same x only
                          {{15, 20, 6}, {20, 28, 5}},   // the same z only
                          {{20, 28, 9}, {18, 26, 9}},   // the same x and y only
                          {{18, 26, 9}, {17, 21, 3}}};  // the same point: joined
    const TinSurface back =
        dtmtool::SurfaceOfProject(*dtmtool::AddSurfaceProject(workspace, surface));
    ASSERT_EQ(back.breaklines.size(), 4u);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(back.breaklines[i].size(), 2u) << i;
    ASSERT_EQ(back.breaklines[3].size(), 3u);
    EXPECT_EQ(back.breaklines[3][0].z, 9.0);
    EXPECT_EQ(back.breaklines[3][2].y, 21.0);
}

TEST(SurfaceProjectTest, HiddenFacesGoWithTheRecordWhileTheirVerticesLast) {
    Workspace workspace;
    TinSurface surface = Sample();
    const int last = static_cast<int>(surface.points.size()) - 1;
    surface.survey.hiddenFaces = {{0, 1, 2}, {last, 1, 2, 0}};
    CDtmPrj& prj = *dtmtool::AddSurfaceProject(workspace, surface);
    // The network does not hold them.
    EXPECT_EQ(prj.GetTris()->GetNoTris(), static_cast<int>(surface.faces.size()));
    const dtmtool::SurveyRecord& record = *dtmtool::FindSurveyRecord(workspace.Surveys(), prj);
    EXPECT_EQ(dtmtool::SurfaceOfProject(prj, &record).survey.hiddenFaces,
              surface.survey.hiddenFaces);
    // Once the last vertex is gone, the face that names it has nothing to stand on.
    prj.GetTris()->RemoveTriVrt(last);
    EXPECT_EQ(dtmtool::SurfaceOfProject(prj, &record).survey.hiddenFaces,
              (std::vector<std::vector<int>>{{0, 1, 2}}));
}

TEST(SurfaceProjectTest, ProjectNamesAreMadeUnique) {
    Workspace workspace;
    dtmtool::AddSurfaceProject(workspace, Sample());
    const CDtmPrj& second = *dtmtool::AddSurfaceProject(workspace, Sample());
    EXPECT_EQ(second.GetName().str(), "Sample (2)");
}

}  // namespace
