#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "CloudNetworkTestSupport.h"
#include "OcTreeChecker.h"
#include "Probes.h"

namespace {

using dtm_test::ProjectEventRecorder;
using dtm_test::TestProject;
using kor::geom::PNT_3D;

// A project whose network's listener has been armed by an empty first event, so that the event
// that fills the network already recomputes the derived data, the selection among them.
class ArmedProject : public TestProject {
public:
    ArmedProject() { kor::CEventGuard arming(Prj()->GetContext()); }
};

// A network of @p count separate small triangles in a row along x.
void FillRow(ArmedProject& project, int count) {
    std::vector<PNT_3D> vertices;
    std::vector<dtm_test::TriIndices> triangles;
    for (int i = 0; i < count; ++i) {
        const double x = 2.0 * i;
        vertices.emplace_back(x, 0.0, 1.0);
        vertices.emplace_back(x + 1.0, 0.0, 2.0);
        vertices.emplace_back(x, 1.0, 3.0);
        triangles.push_back({3 * i, 3 * i + 1, 3 * i + 2});
    }
    project.Fill(vertices, triangles);
}

// The triangle pointers in array order.
std::vector<CTri*> TriangleOrder(const CTris& tris) {
    std::vector<CTri*> order;
    for (int i = 0; i < tris.GetNoTris(); ++i) order.push_back(tris.GetTriAt(i));
    return order;
}

// Positions 0..count-1 whose bit is set, read through IsSelTri.
std::vector<int> SelectedPositions(const CTris& tris, int count) {
    std::vector<int> selected;
    for (int i = 0; i < count; ++i) {
        if (tris.IsSelTri(i)) selected.push_back(i);
    }
    return selected;
}

class SelectionTest : public testing::Test {
protected:
    void SetUp() override { FillRow(project, 10); }
    CTris& tris() { return project.Tris(); }
    std::vector<std::uint8_t>& bits() { return CTrisTestAccess::Selection(tris()); }

    ArmedProject project;
};

TEST_F(SelectionTest, FreshNetworkHasNoTriangleSelected) {
    EXPECT_TRUE(SelectedPositions(tris(), 10).empty());
}

TEST_F(SelectionTest, TogglingTwiceLeavesTheTriangleUnselected) {
    tris().SelTri(3, true);
    EXPECT_TRUE(tris().IsSelTri(3));
    tris().SelTri(3, true);
    EXPECT_FALSE(tris().IsSelTri(3));
}

TEST_F(SelectionTest, SelectingTwiceWithoutToggleLeavesTheTriangleSelected) {
    tris().SelTri(3, false);
    tris().SelTri(3, false);
    EXPECT_TRUE(tris().IsSelTri(3));
    EXPECT_EQ(SelectedPositions(tris(), 10), (std::vector<int>{3}));
}

TEST_F(SelectionTest, SelectingWithoutToggleSelectsAnUnselectedTriangleToo) {
    tris().SelTri(5, false);
    EXPECT_TRUE(tris().IsSelTri(5));
}

TEST_F(SelectionTest, BitsArePackedLowBitFirstEightPerByte) {
    tris().SelTri(0, false);
    tris().SelTri(7, false);
    tris().SelTri(9, false);
    // Triangle i is bit i mod 8 of byte i / 8, bit 0 the least significant.
    EXPECT_EQ(bits(), (std::vector<std::uint8_t>{0x81, 0x02}));
}

TEST_F(SelectionTest, UnselectingOneTriangleClearsOnlyItsBit) {
    tris().SelTri(1, false);
    tris().SelTri(2, false);
    tris().SelTri(9, false);
    tris().UnSelTri(2);
    EXPECT_EQ(SelectedPositions(tris(), 10), (std::vector<int>{1, 9}));
    tris().UnSelTri(2);  // already clear
    EXPECT_EQ(SelectedPositions(tris(), 10), (std::vector<int>{1, 9}));
}

TEST_F(SelectionTest, UnselectingAllClearsEveryBit) {
    for (int i = 0; i < 10; ++i) tris().SelTri(i, false);
    tris().UnSelTris();
    EXPECT_TRUE(SelectedPositions(tris(), 10).empty());
    EXPECT_EQ(bits(), (std::vector<std::uint8_t>{0, 0}));
}

TEST_F(SelectionTest, SelectionSendsNoNotification) {
    ProjectEventRecorder recorder;
    tris().GetContext()->Register(&recorder);
    tris().SelTri(1, true);
    tris().SelTri(1, true);
    tris().SelTri(2, false);
    tris().UnSelTri(2);
    tris().UnSelTris();
    tris().GetContext()->Unregister(&recorder);
    EXPECT_EQ(recorder.opened, 0);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(SelectionTest, NegativeIndexIsACallerFault) {
    EXPECT_THROW(tris().SelTri(-1, false), std::out_of_range);
    EXPECT_THROW(tris().UnSelTri(-1), std::out_of_range);
    EXPECT_THROW(static_cast<void>(tris().IsSelTri(-1)), std::out_of_range);
}

TEST_F(SelectionTest, IndexPastTheBitsReadsUnselectedAndSelectingItGrowsThem) {
    EXPECT_FALSE(tris().IsSelTri(40));
    tris().UnSelTri(40);
    EXPECT_EQ(bits().size(), 2u);
    tris().SelTri(40, true);
    EXPECT_TRUE(tris().IsSelTri(40));
    EXPECT_EQ(bits().size(), 6u);
}

// The selection is sized floor(T / 8) + 1 bytes when it is started.
TEST(SelectionSize, EightTrianglesTakeTwoBytes) {
    for (const auto& [count, bytes] :
         std::vector<std::pair<int, std::size_t>>{{1, 1}, {7, 1}, {8, 2}, {15, 2}, {16, 3}}) {
        SCOPED_TRACE("triangles " + std::to_string(count));
        ArmedProject project;
        FillRow(project, count);
        EXPECT_EQ(CTrisTestAccess::Selection(project.Tris()).size(), bytes);
        EXPECT_EQ(CTrisTestAccess::Selection(project.Tris()), std::vector<std::uint8_t>(bytes, 0));
    }
}

TEST(SelectionSize, EmptyNetworkStillTakesOneByte) {
    ArmedProject project;
    project.Tris().InitSelTris();
    EXPECT_EQ(CTrisTestAccess::Selection(project.Tris()), (std::vector<std::uint8_t>{0}));
}

// Deletion -----------------------------------------------------------------------------------

TEST_F(SelectionTest, DeletingWithNothingSelectedStillMakesOneEvent) {
    const std::vector<CTri*> before = TriangleOrder(tris());
    ProjectEventRecorder recorder;
    tris().GetContext()->Register(&recorder);
    tris().DelSelTris();
    tris().GetContext()->Unregister(&recorder);
    EXPECT_EQ(recorder.opened, 1);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].triRemoved.empty());
    EXPECT_EQ(TriangleOrder(tris()), before);
}

TEST_F(SelectionTest, DeletingRemovesTheSelectedInOneEventAndLeavesNoneSelected) {
    const std::vector<CTri*> before = TriangleOrder(tris());
    tris().SelTri(0, false);
    tris().SelTri(4, false);
    tris().SelTri(9, false);
    ProjectEventRecorder recorder;
    tris().GetContext()->Register(&recorder);
    tris().DelSelTris();
    tris().GetContext()->Unregister(&recorder);

    EXPECT_EQ(recorder.opened, 1);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triRemoved, (std::vector<CTri*>{before[0], before[4], before[9]}));
    EXPECT_EQ(tris().GetNoTris(), 7);
    // The network's listener started a fresh selection for the 7 survivors when the event
    // closed.
    EXPECT_TRUE(SelectedPositions(tris(), 16).empty());
    EXPECT_EQ(bits(), (std::vector<std::uint8_t>{0}));
}

TEST_F(SelectionTest, DeletingEverySelectedTriangleEmptiesTheNetwork) {
    for (int i = 0; i < 10; ++i) tris().SelTri(i, false);
    tris().DelSelTris();
    EXPECT_EQ(tris().GetNoTris(), 0);
    EXPECT_EQ(tris().GetNoTriVrts(), 30);  // vertices are not touched
}

// Random selections over triangle soups: inside a host's outer event (so that no octree rebuild
// reorders the array before it is looked at) the survivors keep their relative order, and the
// removed ones are announced in array order.
TEST(SelectionDeletion, SurvivorsKeepTheirOrderAndTheRemovedAreAnnouncedInOrder) {
    for (unsigned seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        ArmedProject project;
        const dtm_test::RandomNetwork network =
            dtm_test::MakeTriangleSoup(seed, 30, 20 + static_cast<int>(seed) * 7, 0, 0, 100, 10);
        project.Fill(network.vertices, network.triangles);
        CTris& tris = project.Tris();

        std::mt19937 random(seed);
        std::bernoulli_distribution pick(0.35);
        const std::vector<CTri*> before = TriangleOrder(tris);
        std::vector<CTri*> expectedSurvivors;
        std::vector<CTri*> expectedRemoved;
        for (int i = 0; i < tris.GetNoTris(); ++i) {
            if (pick(random)) {
                tris.SelTri(i, true);
                expectedRemoved.push_back(before[static_cast<std::size_t>(i)]);
            } else {
                expectedSurvivors.push_back(before[static_cast<std::size_t>(i)]);
            }
        }

        ProjectEventRecorder recorder;
        tris.GetContext()->Register(&recorder);
        {
            kor::CEventGuard outer(tris.GetContext());
            tris.DelSelTris();
            EXPECT_EQ(TriangleOrder(tris), expectedSurvivors);
        }
        tris.GetContext()->Unregister(&recorder);

        ASSERT_EQ(recorder.events.size(), 1u);
        EXPECT_EQ(recorder.events[0].triRemoved, expectedRemoved);
        EXPECT_TRUE(recorder.events[0].triAdded.empty());
        EXPECT_EQ(tris.GetNoTris(), static_cast<int>(expectedSurvivors.size()));
        EXPECT_TRUE(SelectedPositions(tris, tris.GetNoTris() + 8).empty());
        EXPECT_TRUE(dtm_test::OcTreeIsValid(tris));
    }
}

// Broken network ------------------------------------------------------------------------------

// A cloud-bound network of three triangles with triangles 0 and 2 selected, then broken by its
// cloud losing a point.
class BrokenSelectionTest : public dtm_test::CloudNetworkTest {
protected:
    void SetUp() override {
        for (int i = 0; i < 5; ++i) cloud->AddPnt(PNT_3D(i, i % 2, i));
        BindCloudAndAddEveryPoint();
        for (int i = 0; i < 3; ++i) ASSERT_NE(tris.AddNewTri(1, i, i + 1, i + 2), nullptr);
        tris.SelTri(0, false);
        tris.SelTri(2, false);
        cloud->missing = 1;
        tris.CheckBroken();
        ASSERT_TRUE(tris.IsBroken());
        plantedBits = CTrisTestAccess::Selection(tris);
        ASSERT_EQ(plantedBits, (std::vector<std::uint8_t>{0x05}));
    }

    std::vector<std::uint8_t> plantedBits;
};

TEST_F(BrokenSelectionTest, BrokenNetworkReportsNothingSelected) {
    EXPECT_FALSE(tris.IsSelTri(0));
    EXPECT_FALSE(tris.IsSelTri(2));
}

TEST_F(BrokenSelectionTest, BrokenNetworkRefusesToChangeTheSelection) {
    tris.SelTri(1, false);
    tris.SelTri(0, true);
    tris.UnSelTri(2);
    EXPECT_EQ(CTrisTestAccess::Selection(tris), plantedBits);
    tris.UnSelTris();
    EXPECT_EQ(CTrisTestAccess::Selection(tris), plantedBits);
}

TEST_F(BrokenSelectionTest, BrokenNetworkRefusesToDeleteAndOpensNoEvent) {
    ProjectEventRecorder recorder;
    prj->GetContext()->Register(&recorder);
    tris.DelSelTris();
    prj->GetContext()->Unregister(&recorder);
    EXPECT_EQ(recorder.opened, 0);
    EXPECT_EQ(tris.GetNoTris(), 3);
}

}  // namespace
