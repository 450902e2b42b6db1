#include <dtm/network/CCld.h>
#include <dtm/network/COpzTri.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "CloudNetworkTestSupport.h"
#include "ContextAccess.h"

namespace {

using dtm_test::CloudNetworkTest;
using kor::geom::PNT_3D;

// Bytes no fresh selection can hold, so that a test can tell whether the selection was started
// again.
const std::vector<std::uint8_t> STALE_SELECTION = {0xAB, 0xCD, 0xEF};

// A cloud-bound network of two triangles: `corner` near the origin, and `spanning`, which
// crosses the middle of the network's box and so is moved to the front of the triangle array
// when the octree is built. Both are added corner first, inside the project's first event.
class ListenerTest : public CloudNetworkTest {
protected:
    void SetUp() override {
        cloud->AddPnt(PNT_3D(0, 0, 0), 10, 20, 30);
        cloud->AddPnt(PNT_3D(1, 0, 0), 10, 20, 30);
        cloud->AddPnt(PNT_3D(0, 1, 0), 10, 20, 30);
        cloud->AddPnt(PNT_3D(10, 10, 5), 10, 20, 30);
        cloud->AddPnt(PNT_3D(0, 10, 5), 10, 20, 30);
        cloud->AddPnt(PNT_3D(10, 0, 5), 10, 20, 30);
        tris.GetOptions().SetColorType(COpzTri::TRI_COLOR_FIXED);
        tris.GetOptions().SetFixedColor(1);
        kor::CEventGuard firstEvent(prj->GetContext());
        BindCloudAndAddEveryPoint();
        corner = tris.AddNewTri(1, 0, 1, 2);
        spanning = tris.AddNewTri(1, 3, 4, 5);
    }

    CTrisEventListener& listener() { return CTrisTestAccess::Listener(tris); }
    std::vector<std::uint8_t>& selection() { return CTrisTestAccess::Selection(tris); }

    // Changes the fixed colour without telling anyone and plants a stale selection, so that
    // what follows shows whether the derived data were computed again.
    void PrepareToObserve() {
        tris.GetOptions().SetFixedColor(3);
        selection() = STALE_SELECTION;
    }

    bool SelectionWasStartedAgain() {
        const std::vector<std::uint8_t> fresh(static_cast<std::size_t>(tris.GetNoTris() / 8 + 1),
                                              0);
        return selection() == fresh;
    }

    // True when the vertex colours show the fixed colour set by PrepareToObserve (green).
    bool ColoursWereComputedAgain() {
        const TTriColor* colours = tris.GetColors();
        return colours != nullptr && colours[0].r == 0.0f && colours[0].g == 1.0f &&
               colours[0].b == 0.0f;
    }

    void ExpectRecomputedAfter(const std::function<void()>& change) {
        PrepareToObserve();
        change();
        EXPECT_TRUE(SelectionWasStartedAgain());
        if (tris.GetNoTris() > 0) {
            EXPECT_TRUE(ColoursWereComputedAgain());
            EXPECT_NE(tris.GetNormals(), nullptr);
        }
    }

    void ExpectNotRecomputedAfter(const std::function<void()>& change) {
        PrepareToObserve();
        change();
        EXPECT_EQ(selection(), STALE_SELECTION);
        EXPECT_FALSE(ColoursWereComputedAgain());
    }

    CTri* corner = nullptr;
    CTri* spanning = nullptr;
};

TEST_F(ListenerTest, FirstEventOfTheProjectOnlyArmsTheListener) {
    EXPECT_TRUE(listener().IsArmed());
    EXPECT_EQ(tris.GetColors(), nullptr);
    EXPECT_EQ(tris.GetNormals(), nullptr);
    EXPECT_TRUE(selection().empty());
    EXPECT_EQ(tris.GetTriAt(0), corner);  // no octree was built
}

TEST_F(ListenerTest, NewNetworkStartsDisarmed) {
    CTris other(prj.Get());
    EXPECT_FALSE(CTrisTestAccess::Listener(other).IsArmed());
}

TEST_F(ListenerTest, SecondEventComputesColoursNormalsOctreeAndSelection) {
    PrepareToObserve();
    corner->SetColor(&tris, 2);
    EXPECT_TRUE(ColoursWereComputedAgain());
    ASSERT_NE(tris.GetNormals(), nullptr);
    EXPECT_EQ(tris.GetNormals()[0].z, -1.0f);  // the corner triangle turns counter-clockwise
    EXPECT_EQ(tris.GetTriAt(0), spanning);     // the octree moved the straddling one forward
    EXPECT_EQ(tris.GetTriAt(1), corner);
    EXPECT_TRUE(SelectionWasStartedAgain());
}

TEST_F(ListenerTest, AddedTriangleRecomputes) {
    ExpectRecomputedAfter([&] { ASSERT_NE(tris.AddNewTri(1, 0, 2, 4), nullptr); });
}

TEST_F(ListenerTest, ColourChangeRecomputes) {
    ExpectRecomputedAfter([&] { spanning->SetColor(&tris, 4); });
}

TEST_F(ListenerTest, VertexIndexChangeRecomputes) {
    ExpectRecomputedAfter([&] { corner->SetVerIndexes(&tris, 0, 1, 4); });
}

TEST_F(ListenerTest, RemovedTriangleRecomputes) {
    ExpectRecomputedAfter([&] { tris.RemoveTri(corner); });
}

TEST_F(ListenerTest, MovedVertexRecomputes) {
    ExpectRecomputedAfter([&] { tris.SetTriVrtAt(1, PNT_3D(2, 0, 0)); });
}

TEST_F(ListenerTest, RemovingEverythingStartsAnEmptySelection) {
    ExpectRecomputedAfter([&] { tris.RemoveAll(); });
    EXPECT_EQ(tris.GetColors(), nullptr);
    EXPECT_EQ(tris.GetNormals(), nullptr);
}

TEST_F(ListenerTest, RemovingEverythingAfterTheCloudWasReleasedReadsNoFreedCloud) {
    cloud.Reset();  // the network now holds the only reference
    tris.RemoveAll();
    EXPECT_FALSE(tris.IsBroken());
    EXPECT_TRUE(messages.shown.empty());
}

TEST_F(ListenerTest, AddedVertexAloneDoesNotRecompute) {
    ExpectNotRecomputedAfter([&] { tris.AddTriVrt(PNT_3D(20, 20, 20)); });
}

TEST_F(ListenerTest, RemovedVertexAloneDoesNotRecompute) {
    tris.AddTriVrt(PNT_3D(20, 20, 20));
    ExpectNotRecomputedAfter([&] { tris.RemoveTriVrt(tris.GetNoTriVrts() - 1); });
}

TEST_F(ListenerTest, ProjectAndDrawingChangesDoNotRecompute) {
    DtmChangeContextTestAccess context{*prj->GetContext()};
    ExpectNotRecomputedAfter([&] {
        prj->SetName("Altro");
        context.TriLayersModified();
        context.TriInnerDrawModified();
        context.CvLvLayersModified();
    });
}

TEST_F(ListenerTest, EmptyEventDoesNotRecompute) {
    ExpectNotRecomputedAfter([&] {
        prj->GetContext()->BeginEvent();
        prj->GetContext()->EndEvent();
    });
}

TEST_F(ListenerTest, ChangesInsideOneEventRecomputeOnceAtItsEnd) {
    PrepareToObserve();
    {
        kor::CEventGuard event(prj->GetContext());
        corner->SetColor(&tris, 2);
        EXPECT_EQ(selection(), STALE_SELECTION);  // nothing yet: the event is still open
        spanning->SetColor(&tris, 2);
    }
    EXPECT_TRUE(SelectionWasStartedAgain());
    EXPECT_TRUE(ColoursWereComputedAgain());
}

TEST_F(ListenerTest, BrokenCheckComesFirstSoABrokenNetworkGetsNothingElse) {
    cloud->SetVersionValid(false);
    PrepareToObserve();
    corner->SetColor(&tris, 2);
    EXPECT_TRUE(tris.IsBroken());
    EXPECT_EQ(messages.shown.size(), 1u);
    // Colours, normals, octree and selection all ran after the check and refused to work.
    EXPECT_EQ(tris.GetColors(), nullptr);
    EXPECT_EQ(tris.GetNormals(), nullptr);
    EXPECT_EQ(tris.GetTriAt(0), corner);
    EXPECT_TRUE(selection().empty());
    // A later event does not warn again.
    spanning->SetColor(&tris, 2);
    EXPECT_EQ(messages.shown.size(), 1u);
}

TEST_F(ListenerTest, DisarmedListenerOnlyRearmsAtTheNextEvent) {
    listener().Disarm();
    EXPECT_FALSE(listener().IsArmed());
    ExpectNotRecomputedAfter([&] { corner->SetColor(&tris, 2); });
    EXPECT_TRUE(listener().IsArmed());
    ExpectRecomputedAfter([&] { corner->SetColor(&tris, 4); });
}

TEST_F(ListenerTest, HostListenerRegisteredLaterSeesTheRecomputedData) {
    struct ColourReader : kor::CSourceEvent::IEvent {
        CTris* network = nullptr;
        const TTriColor* seen = nullptr;
        void OnEventOpened(kor::CSourceEvent&) override {}
        void OnEventClosed(kor::CSourceEvent&) override { seen = network->GetColors(); }
    } reader;
    reader.network = &tris;
    prj->GetContext()->Register(&reader);
    corner->SetColor(&tris, 2);
    prj->GetContext()->Unregister(&reader);
    EXPECT_NE(reader.seen, nullptr);
    EXPECT_EQ(reader.seen, tris.GetColors());
}

TEST_F(ListenerTest, DestroyedNetworkNoLongerHearsTheContext) {
    auto* other = new CTris(prj.Get());
    delete other;
    // Were the other network's listener still registered, closing this event would reach freed
    // memory.
    ExpectRecomputedAfter([&] { corner->SetColor(&tris, 2); });
}

}  // namespace
