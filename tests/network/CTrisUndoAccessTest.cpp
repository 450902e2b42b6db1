#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>

#include <gtest/gtest.h>

#include <vector>

#include "Probes.h"
#include "network/CTrisUndoAccess.h"

namespace {

using dtm_test::ProjectEventRecorder;
using kor::geom::PNT_3D;

// An undo step may be applied to a network that changed outside recording: its vertex edits
// then name positions that no longer exist, and must leave the network exactly as it is.
class UndoAccessTest : public ::testing::Test {
protected:
    void SetUp() override {
        prj = new CDtmPrj(nullptr, "P", true, false);
        tris = prj->GetTris();
        for (int i = 0; i < 3; ++i) tris->AddTriVrt(PNT_3D(i, 2.0 * i, 3.0 * i));
        prj->GetContext()->Register(&recorder);
    }
    void TearDown() override {
        prj->GetContext()->Unregister(&recorder);
        prj->SubReference();
    }
    void ExpectVerticesUntouched(const char* what) const {
        ASSERT_EQ(tris->GetNoTriVrts(), 3) << what;
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(tris->GetTriVrtAt(i).x, i) << what;
            EXPECT_EQ(tris->GetTriVrtAt(i).z, 3.0 * i) << what;
        }
        EXPECT_TRUE(recorder.events.empty()) << what;
    }
    CDtmPrj* prj = nullptr;
    CTris* tris = nullptr;
    ProjectEventRecorder recorder;
};

TEST_F(UndoAccessTest, ErasuresOutsideTheVertexArrayAreIgnored) {
    struct Range {
        int index, count;
    };
    for (const Range range : {Range{-1, 1}, Range{0, 0}, Range{1, -1}, Range{2, 2}, Range{3, 1},
                              Range{0, 4}, Range{5, 10}}) {
        CTrisUndoAccess::EraseVrts(*tris, range.index, range.count);
        ExpectVerticesUntouched("erase");
    }
    CTrisUndoAccess::EraseVrts(*tris, 1, 2);
    EXPECT_EQ(tris->GetNoTriVrts(), 1);
}

TEST_F(UndoAccessTest, InsertionsOutsideTheVertexArrayAreIgnored) {
    const std::vector<PNT_3D> points{PNT_3D(9, 9, 9)};
    CTrisUndoAccess::InsertVrts(*tris, -1, points);
    ExpectVerticesUntouched("insert before the start");
    CTrisUndoAccess::InsertVrts(*tris, 4, points);
    ExpectVerticesUntouched("insert past the end");
    CTrisUndoAccess::InsertVrts(*tris, 1, {});
    ExpectVerticesUntouched("insert nothing");
    CTrisUndoAccess::InsertVrts(*tris, 3, points);
    ASSERT_EQ(tris->GetNoTriVrts(), 4);
    EXPECT_EQ(tris->GetTriVrtAt(3).x, 9.0);
}

TEST_F(UndoAccessTest, OverwritesOutsideTheVertexArrayAreIgnored) {
    CTrisUndoAccess::SetVrt(*tris, -1, PNT_3D(9, 9, 9));
    CTrisUndoAccess::SetVrt(*tris, 3, PNT_3D(9, 9, 9));
    ExpectVerticesUntouched("overwrite");
}

}  // namespace
