#include <dtm/network/COpzTri.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <memory>
#include <stdexcept>
#include <vector>

#include "Probes.h"

namespace {

using dtm_test::ProjectEventRecorder;
using kor::geom::PNT_3D;

class TriangleStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        prj = new CDtmPrj(nullptr, "P", true, false);
        tris = prj->GetTris();
        prj->GetContext()->Register(&recorder);
    }
    void TearDown() override {
        prj->GetContext()->Unregister(&recorder);
        prj->SubReference();
    }
    // Three vertices forming the counter-clockwise triangle (0,0), (4,0), (0,4).
    void AddRightTriangleVertices() {
        AddVertices({PNT_3D(0, 0, 1), PNT_3D(4, 0, 2), PNT_3D(0, 4, 3)});
    }
    void AddVertices(std::initializer_list<PNT_3D> points) {
        for (const PNT_3D& p : points) tris->AddTriVrt(p);
    }
    CDtmPrj* prj = nullptr;
    CTris* tris = nullptr;
    ProjectEventRecorder recorder;
};

TEST_F(TriangleStoreTest, NewNetworkIsEmptyWithResetElevationRange) {
    EXPECT_EQ(tris->GetNoTris(), 0);
    EXPECT_EQ(tris->GetNoTriVrts(), 0);
    EXPECT_EQ(tris->GetMinQuota(), std::numeric_limits<double>::infinity());
    EXPECT_EQ(tris->GetMaxQuota(), -std::numeric_limits<double>::infinity());
    EXPECT_FALSE(tris->IsCld());
    EXPECT_FALSE(tris->IsBroken());
    EXPECT_EQ(tris->GetContext(), prj->GetContext());
}

TEST_F(TriangleStoreTest, AddingVerticesWidensTheRangeAndReportsEachOne) {
    AddRightTriangleVertices();
    EXPECT_EQ(tris->GetNoTriVrts(), 3);
    EXPECT_EQ(tris->GetMinQuota(), 1.0);
    EXPECT_EQ(tris->GetMaxQuota(), 3.0);
    EXPECT_EQ(recorder.events.size(), 3u);
    EXPECT_FALSE(tris->AddTriVrt(7));  // no cloud bound
    EXPECT_EQ(tris->GetNoTriVrts(), 3);
}

TEST_F(TriangleStoreTest, ReservingRoomForVerticesAddsNoneAndReportsNothing) {
    AddRightTriangleVertices();
    const std::vector<PNT_3D> before = tris->GetPnts();
    recorder.events.clear();
    recorder.opened = 0;
    tris->SetNoTriVrts(1000);
    EXPECT_GE(tris->GetPnts().capacity(), 1000u);
    ASSERT_EQ(tris->GetNoTriVrts(), 3);
    for (int i = 0; i < 3; ++i) {
        const PNT_3D& p = tris->GetTriVrtAt(i);
        const PNT_3D& q = before[static_cast<std::size_t>(i)];
        EXPECT_EQ(p.x, q.x) << "vertex " << i;
        EXPECT_EQ(p.y, q.y) << "vertex " << i;
        EXPECT_EQ(p.z, q.z) << "vertex " << i;
    }
    EXPECT_EQ(recorder.opened, 0);
    EXPECT_TRUE(recorder.events.empty());
}

// A new network assumes a black background, on which the foreground colour 7 is drawn as it
// is (white): only a white background turns it black.
TEST_F(TriangleStoreTest, NewNetworkDrawsTheForegroundColourWhiteOnItsBlackBackground) {
    EXPECT_EQ(tris->GetBackgroundColor(), 0);
    AddRightTriangleVertices();
    CTri* t = tris->AddNewTri(7, 0, 1, 2);
    ASSERT_NE(t, nullptr);
    tris->GetOptions().SetColorType(COpzTri::TRI_COLOR_FIXED);
    EXPECT_EQ(tris->CalcColorTri(t), 0xFFFFFF);
}

// The network's own reference on each triangle goes with the network: triangles come from a
// pool, where a reference left behind would go unnoticed by the leak checker.
TEST_F(TriangleStoreTest, DestroyedNetworkDropsItsReferenceOnEveryTriangle) {
    auto other = std::make_unique<CTris>(prj);
    other->AddTriVrt(PNT_3D(0, 0, 1));
    other->AddTriVrt(PNT_3D(4, 0, 2));
    other->AddTriVrt(PNT_3D(0, 4, 3));
    const auto first = kor::CRefPtr<CTri>::Share(other->AddNewTri(1, 0, 1, 2));
    const auto second = kor::CRefPtr<CTri>::Share(other->AddNewTri(2, 2, 1, 0));
    ASSERT_NE(first.Get(), nullptr);
    ASSERT_NE(second.Get(), nullptr);
    ASSERT_EQ(first->GetReferenceCount(), 2);
    ASSERT_EQ(second->GetReferenceCount(), 2);
    other.reset();
    EXPECT_EQ(first->GetReferenceCount(), 1);
    EXPECT_EQ(second->GetReferenceCount(), 1);
}

TEST_F(TriangleStoreTest, UpdateMinMaxQuotaOnAnEmptyNetworkKeepsTheResetValues) {
    tris->UpdateMinMaxQuota();
    EXPECT_EQ(tris->GetMinQuota(), std::numeric_limits<double>::infinity());
    EXPECT_EQ(tris->GetMaxQuota(), -std::numeric_limits<double>::infinity());
}

TEST_F(TriangleStoreTest, MovingAVertexReportsFirstAndDoesNotTouchTheRange) {
    AddRightTriangleVertices();
    recorder.events.clear();
    tris->SetTriVrtAt(1, PNT_3D(5, 5, 100));
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].triVrtsMoved);
    EXPECT_EQ(tris->GetTriVrtAt(1).z, 100.0);
    EXPECT_EQ(tris->GetMaxQuota(), 3.0);
    tris->UpdateMinMaxQuota();
    EXPECT_EQ(tris->GetMaxQuota(), 100.0);
}

TEST_F(TriangleStoreTest, RemovingAVertexLeavesTriangleIndicesUnchanged) {
    AddRightTriangleVertices();
    CTri* t = tris->AddNewTri(1, 0, 1, 2);
    ASSERT_NE(t, nullptr);
    tris->RemoveTriVrt(0);
    EXPECT_EQ(tris->GetNoTriVrts(), 2);
    EXPECT_EQ(t->GetVerIndex(0), 0);
    EXPECT_EQ(t->GetVerIndex(1), 1);
    // The triangle now refers past the end of the vertex array: the caller's to fix.
    EXPECT_EQ(t->GetVerIndex(2), 2);
    EXPECT_GE(t->GetVerIndex(2), tris->GetNoTriVrts());
    EXPECT_EQ(tris->GetMinQuota(), 1.0);
}

TEST_F(TriangleStoreTest, AddNewTriRefusesAnIndexAtTheVertexCount) {
    AddRightTriangleVertices();
    recorder.events.clear();
    EXPECT_EQ(tris->AddNewTri(1, 0, 1, 3), nullptr);
    EXPECT_EQ(tris->AddNewTri(1, 3, 1, 2), nullptr);
    EXPECT_EQ(tris->GetNoTris(), 0);
    EXPECT_TRUE(recorder.events.empty());
    // Negative indices are deliberately not rejected.
    EXPECT_NE(tris->AddNewTri(1, -1, 1, 2), nullptr);
}

TEST_F(TriangleStoreTest, AddNewTriKeepsTheColourFirstOrderAndOneReference) {
    AddRightTriangleVertices();
    recorder.events.clear();
    CTri* t = tris->AddNewTri(5, 0, 1, 2);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->GetColor(), 5);
    EXPECT_EQ(t->GetVerIndex(0), 0);
    EXPECT_EQ(t->GetVerIndex(2), 2);
    EXPECT_EQ(t->GetReferenceCount(), 1);
    EXPECT_EQ(tris->GetTriAt(0), t);
    EXPECT_EQ(tris->FindTriIndex(t), 0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triAdded, std::vector<CTri*>{t});
    EXPECT_THROW(tris->GetTriAt(1), std::out_of_range);
}

// AddTri takes the triangle as it is: no index check, so indices past the vertices stay.
TEST_F(TriangleStoreTest, AddTriAppendsTheTriangleAsItIsReportsItAndTakesAReference) {
    AddRightTriangleVertices();
    const auto t = kor::CRefPtr<CTri>::Adopt(new CTri(4, 7, 8, 9));
    recorder.events.clear();
    tris->AddTri(t.Get());
    ASSERT_EQ(tris->GetNoTris(), 1);
    EXPECT_EQ(tris->GetTriAt(0), t.Get());
    EXPECT_EQ(t->GetColor(), 4);
    EXPECT_EQ(t->GetVerIndex(0), 7);
    EXPECT_EQ(t->GetVerIndex(1), 8);
    EXPECT_EQ(t->GetVerIndex(2), 9);
    EXPECT_EQ(t->GetReferenceCount(), 2);  // ours and the network's
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triAdded, std::vector<CTri*>{t.Get()});

    // The same triangle again is a second entry with a reference of its own; removing the
    // triangle takes away one entry only.
    tris->AddTri(t.Get());
    EXPECT_EQ(tris->GetNoTris(), 2);
    EXPECT_EQ(t->GetReferenceCount(), 3);
    tris->RemoveTri(t.Get());
    ASSERT_EQ(tris->GetNoTris(), 1);
    EXPECT_EQ(tris->GetTriAt(0), t.Get());
    EXPECT_EQ(t->GetReferenceCount(), 2);
}

TEST_F(TriangleStoreTest, CentreWeightsTheThirdVertexTwice) {
    AddRightTriangleVertices();
    tris->AddNewTri(1, 0, 1, 2);
    double x = -1, y = -1;
    tris->CalcCentroTri(0, x, y);
    EXPECT_EQ(x, 1.0);
    EXPECT_EQ(y, 2.0);
}

TEST_F(TriangleStoreTest, ClockwiseTriangleGetsItsLastTwoVerticesSwapped) {
    AddVertices({PNT_3D(0, 0, 0), PNT_3D(0, 1, 0), PNT_3D(1, 0, 0)});
    CTri* clockwise = tris->AddNewTri(1, 0, 1, 2);
    CTri* counter = tris->AddNewTri(1, 0, 2, 1);
    recorder.events.clear();
    tris->OrdSensOrarTri(0);
    tris->OrdSensOrarTri(1);
    tris->OrdSensOrarTri(2);   // out of range: nothing
    tris->OrdSensOrarTri(-1);  // out of range: nothing
    EXPECT_EQ(clockwise->GetVerIndex(1), 2);
    EXPECT_EQ(clockwise->GetVerIndex(2), 1);
    EXPECT_EQ(counter->GetVerIndex(1), 2);
    EXPECT_EQ(counter->GetVerIndex(2), 1);
    EXPECT_TRUE(recorder.events.empty());
    for (int i = 0; i < 2; ++i) {
        const TVrtTri v = tris->GetVrtTriAt(i);
        EXPECT_GE(SIDE(v.p[0].x, v.p[0].y, v.p[1].x, v.p[1].y, v.p[2].x, v.p[2].y), 0.0);
    }
}

// Only a clockwise triangle is reordered: one whose vertices lie on a line, or repeat, has a
// SIDE of exactly 0 and keeps its order.
TEST_F(TriangleStoreTest, FlatTriangleKeepsItsVertexOrder) {
    AddVertices({PNT_3D(0, 0, 0), PNT_3D(1, 1, 0), PNT_3D(2, 2, 0)});
    CTri* collinear = tris->AddNewTri(1, 0, 2, 1);
    CTri* repeated = tris->AddNewTri(1, 0, 0, 1);
    for (int i = 0; i < 2; ++i) tris->OrdSensOrarTri(i);
    EXPECT_EQ(collinear->GetVerIndex(1), 2);
    EXPECT_EQ(collinear->GetVerIndex(2), 1);
    EXPECT_EQ(repeated->GetVerIndex(1), 0);
    EXPECT_EQ(repeated->GetVerIndex(2), 1);
}

TEST_F(TriangleStoreTest, VertexPointsRepeatTheFirstAsTheFourth) {
    AddRightTriangleVertices();
    tris->AddNewTri(1, 2, 0, 1);
    const TVrtTri v = tris->GetVrtTriAt(0);
    EXPECT_EQ(v.p[0].z, 3.0);
    EXPECT_EQ(v.p[1].z, 1.0);
    EXPECT_EQ(v.p[2].z, 2.0);
    EXPECT_EQ(v.p[3].x, v.p[0].x);
    EXPECT_EQ(v.p[3].y, v.p[0].y);
    EXPECT_EQ(v.p[3].z, v.p[0].z);
}

// A negative index is accepted and removing a vertex renumbers nothing, so a triangle may name
// a vertex that does not exist. Such a vertex has no position (all NaN): the triangle contains
// no point, is never reordered and has no centre, and nothing reads outside the vertex array.
TEST_F(TriangleStoreTest, TrianglesNamingMissingVerticesLieNowhere) {
    AddRightTriangleVertices();
    tris->AddTriVrt(PNT_3D(1, 1, 9));
    CTri* negative = tris->AddNewTri(1, -1, 2, 1);  // clockwise if -1 were a point
    CTri* pastTheEnd = tris->AddNewTri(1, 3, 2, 1);
    CTri* whole = tris->AddNewTri(1, 0, 1, 2);
    ASSERT_NE(negative, nullptr);
    ASSERT_NE(pastTheEnd, nullptr);
    ASSERT_NE(whole, nullptr);
    tris->RemoveTriVrt(3);  // pastTheEnd now names vertex 3 of 3
    recorder.events.clear();

    // The network's own listener may have reordered the array when the events closed.
    for (const CTri* dangling : {negative, pastTheEnd}) {
        const int i = tris->FindTriIndex(dangling);
        ASSERT_GE(i, 0);
        const TVrtTri v = tris->GetVrtTriAt(i);
        EXPECT_TRUE(std::isnan(v.p[0].x) && std::isnan(v.p[0].y) && std::isnan(v.p[0].z)) << i;
        EXPECT_EQ(v.p[1].x, 0.0) << i;  // vertex 2, (0, 4, 3)
        EXPECT_EQ(v.p[1].y, 4.0) << i;
        EXPECT_EQ(v.p[2].z, 2.0) << i;  // vertex 1, (4, 0, 2)
        EXPECT_TRUE(std::isnan(v.p[3].x)) << i;
        double x = 0.0, y = 0.0;
        tris->CalcCentroTri(i, x, y);
        EXPECT_TRUE(std::isnan(x) && std::isnan(y)) << i;
        tris->OrdSensOrarTri(i);
    }
    EXPECT_EQ(negative->GetVerIndex(1), 2);
    EXPECT_EQ(pastTheEnd->GetVerIndex(1), 2);
    EXPECT_TRUE(recorder.events.empty());

    EXPECT_THROW(tris->GetTriVrtAt(-1), std::out_of_range);
    EXPECT_THROW(tris->GetTriVrtAt(3), std::out_of_range);
    EXPECT_EQ(tris->GetTriVrtAt(2).z, 3.0);
    // Moving a vertex that is not there changes no vertex.
    const std::vector<PNT_3D> before = tris->GetPnts();
    EXPECT_THROW(tris->SetTriVrtAt(-1, PNT_3D(9, 9, 9)), std::out_of_range);
    EXPECT_THROW(tris->SetTriVrtAt(3, PNT_3D(9, 9, 9)), std::out_of_range);
    ASSERT_EQ(tris->GetPnts().size(), before.size());
    for (std::size_t v = 0; v < before.size(); ++v) EXPECT_EQ(tris->GetPnts()[v].z, before[v].z);
    recorder.events.clear();

    whole->AddReference();
    EXPECT_TRUE(tris->RemoveTri(1.0, 1.0, 0.0));  // inside all three plans, were they whole
    EXPECT_EQ(tris->FindTriIndex(whole), -1);
    EXPECT_EQ(tris->GetNoTris(), 2);
    EXPECT_FALSE(tris->RemoveTri(1.0, 1.0, 0.0));
    whole->SubReference();
}

TEST_F(TriangleStoreTest, RemovingAPointOnASharedEdgeRemovesTheFirstTriangle) {
    AddRightTriangleVertices();
    tris->AddTriVrt(PNT_3D(4, 4, 0));
    CTri* first = tris->AddNewTri(1, 1, 3, 2);
    CTri* second = tris->AddNewTri(1, 0, 1, 2);
    first->AddReference();
    EXPECT_TRUE(tris->RemoveTri(2.0, 2.0, 12345.0));  // on the shared edge (4,0)-(0,4)
    EXPECT_EQ(tris->GetNoTris(), 1);
    EXPECT_EQ(tris->GetTriAt(0), second);
    EXPECT_FALSE(tris->RemoveTri(10.0, 10.0, 0.0));
    first->SubReference();
}

TEST_F(TriangleStoreTest, RemovedTriangleLivesUntilTheEventCloses) {
    AddRightTriangleVertices();
    CTri* t = tris->AddNewTri(1, 0, 1, 2);
    recorder.events.clear();
    {
        kor::CEventGuard event(prj->GetContext());
        tris->RemoveTri(t);
        EXPECT_EQ(tris->GetNoTris(), 0);
        EXPECT_EQ(t->GetReferenceCount(), 1);  // the context's
        tris->RemoveTri(t);                    // absent now: nothing
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triRemoved, std::vector<CTri*>{t});
}

TEST_F(TriangleStoreTest, RemoveAllIsOneEventListingEveryTriangle) {
    AddRightTriangleVertices();
    CTri* a = tris->AddNewTri(1, 0, 1, 2);
    CTri* b = tris->AddNewTri(2, 2, 1, 0);
    recorder.events.clear();
    tris->RemoveAll();
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].triRemovedAll);
    EXPECT_EQ(recorder.events[0].triRemoved, (std::vector<CTri*>{a, b}));
    EXPECT_EQ(tris->GetNoTris(), 0);
    EXPECT_EQ(tris->GetNoTriVrts(), 0);
    EXPECT_EQ(tris->GetMinQuota(), std::numeric_limits<double>::infinity());
}

TEST_F(TriangleStoreTest, TriangleChangesReportTheirKind) {
    AddRightTriangleVertices();
    CTri* t = tris->AddNewTri(1, 0, 1, 2);
    recorder.events.clear();
    t->SetColor(tris, 3);
    t->SetVerIndexes(tris, 2, 1, 0);
    {
        kor::CEventGuard event(prj->GetContext());
        t->SetColor(tris, 4);
        t->SetVerIndexes(tris, 0, 1, 2);
    }
    ASSERT_EQ(recorder.events.size(), 3u);
    EXPECT_EQ(recorder.events[0].triChangeType, eTriChangeColor);
    EXPECT_EQ(recorder.events[1].triChangeType, eTriChangeVertices);
    EXPECT_EQ(recorder.events[2].triChangeType, eTriChangeAll);
    EXPECT_EQ(t->GetColor(), 4);
    t->SetVerIndex(0, 1);  // plain access: no notification
    EXPECT_EQ(recorder.events.size(), 3u);
}

TEST_F(TriangleStoreTest, MementoRestoresOnlyWhatChangedWithTheMatchingKindsInOneEvent) {
    AddRightTriangleVertices();
    CTri* t = tris->AddNewTri(1, 0, 1, 2);
    kor::IMemento* before = t->CreateMemento(tris);
    EXPECT_FALSE(t->HasChanged(before));
    t->SetColor(tris, 9);
    EXPECT_TRUE(t->HasChanged(before));
    recorder.events.clear();
    t->SetMemento(before);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triChangeType, eTriChangeColor);
    EXPECT_EQ(t->GetColor(), 1);
    EXPECT_FALSE(t->HasChanged(before));

    t->SetVerIndexes(tris, 2, 0, 1);
    t->SetColor(tris, 6);
    recorder.events.clear();
    // Without an outer event, both kinds still arrive as one event.
    t->SetMemento(before);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triChangeType, eTriChangeAll);
    EXPECT_EQ(recorder.events[0].triModified.size(), 2u);
    EXPECT_EQ(t->GetVerIndex(0), 0);
    EXPECT_EQ(t->GetVerIndex(1), 1);
    EXPECT_EQ(t->GetVerIndex(2), 2);

    // An equal memento changes nothing and notifies nothing.
    recorder.events.clear();
    t->SetMemento(before);
    EXPECT_TRUE(recorder.events.empty());
    before->SubReference();
}

TEST_F(TriangleStoreTest, MementoHoldsOwnerColourAndIndicesAndAnyIndexAloneIsAChange) {
    AddRightTriangleVertices();
    CTri* t = tris->AddNewTri(1, 0, 1, 2);
    ASSERT_NE(t, nullptr);
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(t->CreateMemento(tris));
    const auto* state = dynamic_cast<const CTriMemento*>(memento.Get());
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->GetOwner(), tris);
    EXPECT_EQ(state->GetColor(), 1);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(state->GetVerIndex(k), k);

    EXPECT_FALSE(t->HasChanged(memento.Get()));
    for (int k = 0; k < 3; ++k) {
        t->SetVerIndex(k, 5);
        EXPECT_TRUE(t->HasChanged(memento.Get())) << "vertex " << k;
        t->SetVerIndex(k, k);
        EXPECT_FALSE(t->HasChanged(memento.Get())) << "vertex " << k;
    }

    // Restoring puts back a single index that changed alone, as one change of the vertices.
    for (int k = 0; k < 3; ++k) {
        t->SetVerIndex(k, 5);
        recorder.events.clear();
        t->SetMemento(memento.Get());
        EXPECT_EQ(t->GetVerIndex(k), k) << "vertex " << k;
        ASSERT_EQ(recorder.events.size(), 1u) << "vertex " << k;
        EXPECT_EQ(recorder.events[0].triChangeType, eTriChangeVertices) << "vertex " << k;
    }
}

TEST_F(TriangleStoreTest, DefaultTriangleIsByLayer) {
    auto t = kor::CRefPtr<CTri>::Adopt(new CTri());
    EXPECT_EQ(t->GetColor(), 256);
    EXPECT_EQ(t->GetVerIndex(0), 0);
    EXPECT_EQ(t->GetVerIndex(1), 0);
    EXPECT_EQ(t->GetVerIndex(2), 0);
}

TEST_F(TriangleStoreTest, TriangleChangesAfterRemoveAllInTheSameEventAreNotRecorded) {
    AddRightTriangleVertices();
    tris->AddNewTri(1, 0, 1, 2);
    recorder.events.clear();
    {
        kor::CEventGuard event(prj->GetContext());
        tris->RemoveAll();
        AddRightTriangleVertices();
        CTri* rebuilt = tris->AddNewTri(2, 0, 1, 2);
        ASSERT_NE(rebuilt, nullptr);
        rebuilt->SetColor(tris, 3);
        tris->RemoveTriAt(0);
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].triRemovedAll);
    EXPECT_TRUE(recorder.events[0].triAdded.empty());
    EXPECT_TRUE(recorder.events[0].triModified.empty());
    // Only the triangle that the removal of everything took away is listed.
    EXPECT_EQ(recorder.events[0].triRemoved.size(), 1u);
    EXPECT_EQ(recorder.events[0].triChangeType, eTriChangeNone);
}

TEST_F(TriangleStoreTest, ATriangleModifiedTwiceInOneEventIsListedTwice) {
    AddRightTriangleVertices();
    CTri* t = tris->AddNewTri(1, 0, 1, 2);
    recorder.events.clear();
    {
        kor::CEventGuard event(prj->GetContext());
        t->SetColor(tris, 2);
        t->SetColor(tris, 3);
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].triModified, (std::vector<CTri*>{t, t}));
    EXPECT_EQ(recorder.events[0].triChangeType, eTriChangeColor);
}

}  // namespace
