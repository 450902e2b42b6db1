#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Message.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>

#include "CloudNetworkTestSupport.h"
#include "Probes.h"

namespace {

using dtm_test::CloudNetworkTest;
using kor::CRefPtr;
using kor::geom::PNT_3D;
using kor::geom::RECT_3D;

// The warning as the user reads it, spelled out here rather than taken from the string table.
std::string BrokenWarningFor(const std::string& projectName) {
    return "La triangolazione " + projectName +
           " fa riferimento a una nuvola di punti non esistente o non aggiornata. Pertanto la "
           "triangolazione non pu\xC3\xB2 essere n\xC3\xA8 visualizzata n\xC3\xA8 "
           "utilizzata.\n\nSostituire il file *.zlx con uno corretto, o ricalcolare la "
           "triangolazione.";
}

const char* const BROKEN_CAPTION = "Triangolazione su nuvola di punti";

// A memory cloud that counts its live instances.
class CountedCld : public CMemCld {
public:
    explicit CountedCld(int& alive) : m_alive(alive) { ++m_alive; }

protected:
    ~CountedCld() override { --m_alive; }

private:
    int& m_alive;
};

// Memory cloud -----------------------------------------------------------------------------

TEST(MemoryCloud, NewCloudIsEmptyValidAndHasNoBoundary) {
    const auto cloud = CRefPtr<CMemCld>::Adopt(new CMemCld);
    EXPECT_EQ(cloud->GetNumPnts(), 0);
    EXPECT_TRUE(cloud->IsVersionValid());
    RECT_3D box;
    EXPECT_FALSE(cloud->GetBdry(box));
}

TEST(MemoryCloud, PointsComeBackInTheOrderAdded) {
    const auto cloud = CRefPtr<CMemCld>::Adopt(new CMemCld);
    cloud->AddPnt(PNT_3D(1, 2, 3));
    cloud->AddPnt(PNT_3D(4, 5, 6), 10, 20, 30);
    ASSERT_EQ(cloud->GetNumPnts(), 2);
    PNT_3D p;
    cloud->GetPnt(1, p);
    EXPECT_EQ(p.x, 4.0);
    EXPECT_EQ(p.y, 5.0);
    EXPECT_EQ(p.z, 6.0);
    cloud->GetPnt(0, p);
    EXPECT_EQ(p.x, 1.0);
    EXPECT_EQ(p.y, 2.0);
    EXPECT_EQ(p.z, 3.0);
}

TEST(MemoryCloud, BoundaryIsTheSmallestBoxHoldingEveryPoint) {
    const unsigned seed = 20240611u;
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> coordinate(-1000.0, 1000.0);
    const auto cloud = CRefPtr<CMemCld>::Adopt(new CMemCld);
    PNT_3D low(1e300, 1e300, 1e300);
    PNT_3D high(-1e300, -1e300, -1e300);
    for (int i = 0; i < 200; ++i) {
        const PNT_3D p(coordinate(random), coordinate(random), coordinate(random));
        cloud->AddPnt(p);
        low = PNT_3D(std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z));
        high = PNT_3D(std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z));
    }
    RECT_3D box;
    ASSERT_TRUE(cloud->GetBdry(box)) << "seed " << seed;
    EXPECT_EQ(box.min.x, low.x);
    EXPECT_EQ(box.min.y, low.y);
    EXPECT_EQ(box.min.z, low.z);
    EXPECT_EQ(box.max.x, high.x);
    EXPECT_EQ(box.max.y, high.y);
    EXPECT_EQ(box.max.z, high.z);
}

TEST(MemoryCloud, PointOutsideTheCloudThrowsOutOfRange) {
    const auto cloud = CRefPtr<CMemCld>::Adopt(new CMemCld);
    cloud->AddPnt(PNT_3D(1, 2, 3));
    PNT_3D p;
    EXPECT_THROW(cloud->GetPnt(1, p), std::out_of_range);
    EXPECT_THROW(cloud->GetPnt(-1, p), std::out_of_range);
}

TEST(MemoryCloud, ColourIsReportedOnlyForPointsAddedWithOne) {
    const auto cloud = CRefPtr<CMemCld>::Adopt(new CMemCld);
    cloud->AddPnt(PNT_3D(0, 0, 0));
    cloud->AddPnt(PNT_3D(1, 1, 1), 200, 100, 50);
    unsigned char r = 1;
    unsigned char g = 2;
    unsigned char b = 3;
    EXPECT_FALSE(cloud->GetPntColor(0, r, g, b));
    EXPECT_FALSE(cloud->GetPntColor(2, r, g, b));
    EXPECT_FALSE(cloud->GetPntColor(-1, r, g, b));
    EXPECT_EQ(r, 1);  // untouched when there is no colour
    ASSERT_TRUE(cloud->GetPntColor(1, r, g, b));
    EXPECT_EQ(r, 200);
    EXPECT_EQ(g, 100);
    EXPECT_EQ(b, 50);
}

TEST(MemoryCloud, VersionValidityFollowsTheSetter) {
    const auto cloud = CRefPtr<CMemCld>::Adopt(new CMemCld);
    cloud->SetVersionValid(false);
    EXPECT_FALSE(cloud->IsVersionValid());
    cloud->SetVersionValid(true);
    EXPECT_TRUE(cloud->IsVersionValid());
}

TEST(MemoryCloud, ReleasingTheLastReferenceDestroysTheCloudThroughItsBase) {
    int alive = 0;
    CCld* cloud = new CountedCld(alive);
    cloud->AddReference();
    cloud->SubReference();
    EXPECT_EQ(alive, 1);
    cloud->SubReference();
    EXPECT_EQ(alive, 0);
}

// Binding a network to a cloud -------------------------------------------------------------

class CloudLinkTest : public CloudNetworkTest {
protected:
    void AddThreeColouredPoints() {
        cloud->AddPnt(PNT_3D(0, 0, 5), 255, 0, 0);
        cloud->AddPnt(PNT_3D(10, 0, 7), 0, 255, 0);
        cloud->AddPnt(PNT_3D(0, 10, 3), 0, 0, 255);
    }
};

TEST_F(CloudLinkTest, NewNetworkHasNoCloud) {
    EXPECT_FALSE(tris.IsCld());
    EXPECT_EQ(tris.GetCld(), nullptr);
}

TEST_F(CloudLinkTest, BindingTakesOneReference) {
    ASSERT_EQ(cloud->GetReferenceCount(), 1);
    tris.SetCld(cloud.Get());
    EXPECT_TRUE(tris.IsCld());
    EXPECT_EQ(tris.GetCld(), cloud.Get());
    EXPECT_EQ(cloud->GetReferenceCount(), 2);
}

TEST_F(CloudLinkTest, BindingNullLeavesTheNetworkWithoutCloud) {
    tris.SetCld(nullptr);
    EXPECT_FALSE(tris.IsCld());
    EXPECT_FALSE(tris.AddTriVrt(0));
}

TEST_F(CloudLinkTest, BindingAnotherCloudKeepsTheReferenceOnTheFirst) {
    const auto second = CRefPtr<CMemCld>::Adopt(new CMemCld);
    tris.SetCld(cloud.Get());
    tris.SetCld(second.Get());
    EXPECT_EQ(tris.GetCld(), second.Get());
    EXPECT_EQ(cloud->GetReferenceCount(), 2);
    EXPECT_EQ(second->GetReferenceCount(), 2);
    // Only the cloud bound now is let go when the network is emptied.
    tris.DoRemoveAll();
    EXPECT_EQ(second->GetReferenceCount(), 1);
    EXPECT_EQ(cloud->GetReferenceCount(), 2);
    // The reference the network kept on the first cloud is the caller's to give back.
    cloud->SubReference();
}

TEST_F(CloudLinkTest, EmptyingTheNetworkReleasesTheCloudOnceAndKeepsItBound) {
    tris.SetCld(cloud.Get());
    tris.DoRemoveAll();
    EXPECT_EQ(cloud->GetReferenceCount(), 1);
    EXPECT_TRUE(tris.IsCld());
    tris.DoRemoveAll();
    EXPECT_EQ(cloud->GetReferenceCount(), 1);
}

// Emptying the network directly, outside RemoveAll: no listener runs afterwards to recompute
// the derived data, so the call itself must let go of all of it, and it reports nothing.
TEST_F(CloudLinkTest, DoRemoveAllFreesEverythingItselfAndReportsNothing) {
    AddThreeColouredPoints();
    BindCloudAndAddEveryPoint();
    const auto triangle = CRefPtr<CTri>::Share(tris.AddNewTri(1, 0, 1, 2));
    ASSERT_NE(triangle.Get(), nullptr);
    ASSERT_EQ(triangle->GetReferenceCount(), 2);
    tris.CalcColors();
    tris.CalcNormals();
    tris.InitSelTris();
    tris.SelTri(0, false);
    ASSERT_NE(tris.GetColors(), nullptr);
    ASSERT_NE(tris.GetNormals(), nullptr);
    ASSERT_EQ(CTrisTestAccess::Selection(tris), (std::vector<std::uint8_t>{0x01}));
    ASSERT_EQ(cloud->GetReferenceCount(), 2);

    dtm_test::ProjectEventRecorder recorder;
    prj->GetContext()->Register(&recorder);
    tris.DoRemoveAll();
    prj->GetContext()->Unregister(&recorder);

    EXPECT_EQ(recorder.opened, 0);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_EQ(tris.GetColors(), nullptr);
    EXPECT_EQ(tris.GetNormals(), nullptr);
    EXPECT_TRUE(CTrisTestAccess::Selection(tris).empty());
    EXPECT_TRUE(tris.GetCldIndexes().empty());
    EXPECT_EQ(tris.GetNoTriVrts(), 0);
    EXPECT_EQ(tris.GetNoTris(), 0);
    EXPECT_EQ(tris.GetMinQuota(), std::numeric_limits<double>::infinity());
    EXPECT_EQ(tris.GetMaxQuota(), -std::numeric_limits<double>::infinity());
    // The network's reference on the triangle is gone at once (no event holds one), and so is
    // the one on the cloud.
    EXPECT_EQ(triangle->GetReferenceCount(), 1);
    EXPECT_EQ(cloud->GetReferenceCount(), 1);
}

TEST_F(CloudLinkTest, CloudVertexWithoutCloudIsRefusedAndNothingIsReported) {
    AddThreeColouredPoints();
    dtm_test::ProjectEventRecorder recorder;
    prj->GetContext()->Register(&recorder);
    EXPECT_FALSE(tris.AddTriVrt(0));
    prj->GetContext()->Unregister(&recorder);
    EXPECT_EQ(tris.GetNoTriVrts(), 0);
    EXPECT_TRUE(tris.GetCldIndexes().empty());
    EXPECT_EQ(recorder.opened, 0);
}

TEST_F(CloudLinkTest, CloudVertexCopiesThePointAndRemembersItsIndex) {
    AddThreeColouredPoints();
    tris.SetCld(cloud.Get());
    dtm_test::ProjectEventRecorder recorder;
    prj->GetContext()->Register(&recorder);
    EXPECT_TRUE(tris.AddTriVrt(2));
    EXPECT_TRUE(tris.AddTriVrt(0));
    prj->GetContext()->Unregister(&recorder);

    ASSERT_EQ(tris.GetNoTriVrts(), 2);
    EXPECT_EQ(tris.GetTriVrtAt(0).x, 0.0);
    EXPECT_EQ(tris.GetTriVrtAt(0).y, 10.0);
    EXPECT_EQ(tris.GetTriVrtAt(0).z, 3.0);
    EXPECT_EQ(tris.GetTriVrtAt(1).z, 5.0);
    EXPECT_EQ(tris.GetCldIndexes(), (std::vector<std::int32_t>{2, 0}));
    EXPECT_EQ(tris.GetMinQuota(), 3.0);
    EXPECT_EQ(tris.GetMaxQuota(), 5.0);
    EXPECT_EQ(recorder.opened, 2);  // one vertex-added event each
}

TEST_F(CloudLinkTest, CloudVertexOutsideTheCloudThrowsAndAddsNothing) {
    AddThreeColouredPoints();
    tris.SetCld(cloud.Get());
    EXPECT_THROW(tris.AddTriVrt(3), std::out_of_range);
    EXPECT_EQ(tris.GetNoTriVrts(), 0);
    EXPECT_TRUE(tris.GetCldIndexes().empty());
}

TEST_F(CloudLinkTest, EmptiedNetworkNoLongerReadsTheCloudItLetGo) {
    AddThreeColouredPoints();
    BindCloudAndAddEveryPoint();
    tris.DoRemoveAll();
    cloud->SetVersionValid(false);
    // The network holds no reference on the cloud any more, so it must not read it.
    EXPECT_FALSE(tris.AddTriVrt(0));
    tris.CheckBroken();
    EXPECT_FALSE(tris.IsBroken());
    EXPECT_TRUE(messages.shown.empty());
    // Binding it again makes it usable.
    tris.SetCld(cloud.Get());
    tris.CheckBroken();
    EXPECT_TRUE(tris.IsBroken());
}

// Broken check -----------------------------------------------------------------------------

TEST_F(CloudLinkTest, CloudWithExactlyAsManyPointsAsIndicesIsNotBroken) {
    AddThreeColouredPoints();
    BindCloudAndAddEveryPoint();
    ASSERT_EQ(tris.GetCldIndexes().size(), 3u);
    tris.CheckBroken();
    EXPECT_FALSE(tris.IsBroken());
    EXPECT_TRUE(messages.shown.empty());
}

TEST_F(CloudLinkTest, CloudWithOnePointFewerIsBrokenAndWarnsOnce) {
    AddThreeColouredPoints();
    BindCloudAndAddEveryPoint();
    cloud->missing = 1;
    tris.CheckBroken();
    EXPECT_TRUE(tris.IsBroken());
    ASSERT_EQ(messages.shown.size(), 1u);
    EXPECT_EQ(messages.shown[0].text, BrokenWarningFor("Rilievo"));
    EXPECT_EQ(messages.shown[0].caption, BROKEN_CAPTION);
    EXPECT_EQ(messages.shown[0].style, 0x30u);
}

TEST_F(CloudLinkTest, SecondCheckOnABrokenNetworkShowsNothing) {
    AddThreeColouredPoints();
    BindCloudAndAddEveryPoint();
    cloud->missing = 1;
    tris.CheckBroken();
    tris.CheckBroken();
    cloud->SetVersionValid(false);
    tris.CheckBroken();
    EXPECT_TRUE(tris.IsBroken());
    EXPECT_EQ(messages.shown.size(), 1u);
}

TEST_F(CloudLinkTest, CloudOfUnusableVersionIsBrokenWhateverItsSize) {
    AddThreeColouredPoints();
    BindCloudAndAddEveryPoint();
    cloud->AddPnt(PNT_3D(5, 5, 5));
    cloud->SetVersionValid(false);
    tris.CheckBroken();
    EXPECT_TRUE(tris.IsBroken());
    EXPECT_EQ(messages.shown.size(), 1u);
}

TEST_F(CloudLinkTest, NetworkWithoutCloudIsNeverBroken) {
    tris.AddTriVrt(PNT_3D(0, 0, 0));
    tris.AddTriVrt(PNT_3D(1, 0, 0));
    tris.AddTriVrt(PNT_3D(0, 1, 0));
    ASSERT_NE(tris.AddNewTri(1, 0, 1, 2), nullptr);
    tris.CheckBroken();
    EXPECT_FALSE(tris.IsBroken());
    EXPECT_TRUE(messages.shown.empty());
}

TEST_F(CloudLinkTest, WarningCarriesTheProjectNameLiterally) {
    const std::string name = "Cava 100% %s %d";
    prj->SetName(name.c_str());
    AddThreeColouredPoints();
    BindCloudAndAddEveryPoint();
    cloud->missing = 3;
    tris.CheckBroken();
    ASSERT_EQ(messages.shown.size(), 1u);
    EXPECT_EQ(messages.shown[0].text, BrokenWarningFor(name));
}

TEST_F(CloudLinkTest, NetworkIsBrokenEvenWhenTheMessageHandlerThrows) {
    AddThreeColouredPoints();
    BindCloudAndAddEveryPoint();
    cloud->missing = 1;
    kor::SetMessageHandler(
        [](const char*, const char*, unsigned) { throw std::runtime_error("host failed"); });
    EXPECT_THROW(tris.CheckBroken(), std::runtime_error);
    EXPECT_TRUE(tris.IsBroken());
    EXPECT_NO_THROW(tris.CheckBroken());  // already broken: not shown again
}

TEST_F(CloudLinkTest, EmptyingTheNetworkClearsTheBrokenFlag) {
    AddThreeColouredPoints();
    BindCloudAndAddEveryPoint();
    cloud->missing = 1;
    tris.CheckBroken();
    ASSERT_TRUE(tris.IsBroken());
    tris.DoRemoveAll();
    EXPECT_FALSE(tris.IsBroken());
}

}  // namespace
