#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/CLibDtm.h>

#include <gtest/gtest.h>

#include "RecordedProjectTest.h"

namespace {

/// A project named "Rilievo" without library, whose events are recorded.
class ProjectTest : public dtm_test::RecordedProjectTest {};

TEST_F(ProjectTest, NewProjectWithoutLibraryHasNoOwnerAndIsNotActive) {
    EXPECT_EQ(prj->GetLibDtm(), nullptr);
    EXPECT_FALSE(prj->IsActive());
    prj->SetModifiedFlag();  // nothing to forward to; must not crash
    EXPECT_EQ(prj->GetName(), kor::String("Rilievo"));
    EXPECT_TRUE(prj->IsVisible());
    EXPECT_FALSE(prj->IsLocked());
    EXPECT_TRUE(prj->GetUcsName().empty());
    EXPECT_TRUE(prj->IsWorldRefSys());
    EXPECT_TRUE(prj->GetUcsRefSys() == kor::geom::CRightRefSys::s_WorldRefSys);
    EXPECT_EQ(prj->GetUcsRefSys().GetAxisZ().z, 1.0);
    EXPECT_EQ(prj->GetContext()->GetChangeTransactionManager(), nullptr);
    EXPECT_EQ(static_cast<CDtmChangeContext*>(*prj), prj->GetContext());
    EXPECT_EQ(prj->GetContext()->GetDtmPrj(), prj);
    ASSERT_NE(prj->GetTris(), nullptr);
    EXPECT_EQ(prj->GetTris()->GetDtmPrj(), prj);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(ProjectTest, RenamingToAnotherLetterCaseNotifiesAndRenames) {
    prj->SetName("RILIEVO");
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].prjModified);
    EXPECT_EQ(prj->GetName(), kor::String("RILIEVO"));
}

TEST_F(ProjectTest, RenamingToTheIdenticalNameDoesNothing) {
    prj->SetName("Rilievo");
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(ProjectTest, VisibleAndLockedNotifyOnlyWhenTheyChange) {
    prj->SetVisible(true);
    prj->SetLocked(false);
    EXPECT_TRUE(recorder.events.empty());
    prj->SetVisible(false);
    prj->SetLocked(true);
    EXPECT_EQ(recorder.events.size(), 2u);
    EXPECT_FALSE(prj->IsVisible());
    EXPECT_TRUE(prj->IsLocked());
}

TEST_F(ProjectTest, SetPropsWithNothingChangedSendsNoNotification) {
    prj->SetProps("Rilievo", true, false);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(ProjectTest, SetPropsChangesAllThreeWithOneNotification) {
    prj->SetProps("Nuovo", false, true);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].prjModified);
    EXPECT_EQ(prj->GetName(), kor::String("Nuovo"));
    EXPECT_FALSE(prj->IsVisible());
    EXPECT_TRUE(prj->IsLocked());
}

TEST_F(ProjectTest, SetPropsTellsANameInAnotherLetterCaseApart) {
    prj->SetProps("RILIEVO", true, false);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].prjModified);
    EXPECT_EQ(prj->GetName(), kor::String("RILIEVO"));
    prj->SetProps("RILIEVO", true, false);
    EXPECT_EQ(recorder.events.size(), 1u);
}

TEST_F(ProjectTest, ChangesInsideOneHostEventAreOneEvent) {
    {
        kor::CEventGuard event(prj->GetContext());
        prj->SetName("A");
        prj->SetVisible(false);
        prj->SetLocked(true);
    }
    EXPECT_EQ(recorder.events.size(), 1u);
}

TEST_F(ProjectTest, ReservedPointerIsStoredAndReturned) {
    int datum = 0;
    prj->SetReserved(&datum);
    EXPECT_EQ(prj->GetReserved(), &datum);
}

TEST(ProjectAdoption, AdoptionAttachesToTheLibraryManagerAndOrphanDetaches) {
    kor::CChangeTransactionManager tm;
    kor::CChangeTransactionManager other;
    CLibDtm lib(&tm);
    auto* prj = new CDtmPrj(nullptr, "P", true, false);
    prj->AdoptedBy(&lib);
    EXPECT_EQ(prj->GetLibDtm(), &lib);
    EXPECT_EQ(prj->GetContext()->GetChangeTransactionManager(), &tm);
    prj->Orphan();
    EXPECT_EQ(prj->GetLibDtm(), nullptr);
    EXPECT_EQ(prj->GetContext()->GetChangeTransactionManager(), nullptr);
    // A context already attached keeps its manager.
    prj->GetContext()->Attach(&other);
    prj->AdoptedBy(&lib);
    EXPECT_EQ(prj->GetContext()->GetChangeTransactionManager(), &other);
    prj->Orphan();
    prj->SubReference();
}

TEST(ProjectAdoption, ProjectCreatedWithALibraryStartsAttachedButOutsideIt) {
    kor::CChangeTransactionManager tm;
    CLibDtm lib(&tm);
    auto* prj = new CDtmPrj(&lib, "P", true, false);
    EXPECT_EQ(prj->GetLibDtm(), &lib);
    EXPECT_EQ(prj->GetContext()->GetChangeTransactionManager(), &tm);
    EXPECT_EQ(lib.GetNoPrj(), 0u);
    EXPECT_FALSE(prj->IsActive());
    prj->SubReference();
}

}  // namespace
