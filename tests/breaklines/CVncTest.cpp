#include <dtm/breaklines/CVnc.h>
#include <dtm/breaklines/CVncs.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/RefCounter.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Probes.h"

namespace {

using dtm_test::LoggingEventListener;
using dtm_test::ProjectEventRecorder;
using kor::geom::LINE_3D;
using kor::geom::PNT_3D;
using Log = std::vector<std::string>;

const LINE_3D kSegment(PNT_3D(1.5, -2.25, 100.0), PNT_3D(10.0, 20.0, 101.125));
const LINE_3D kOther(PNT_3D(-7.0, 3.0, 50.5), PNT_3D(0.0, 0.0, -1.0));

// The six coordinates of a segment, in stream order, to reach each one by position.
double& Coordinate(LINE_3D& line, int position) {
    PNT_3D& p = position < 3 ? line.start : line.end;
    switch (position % 3) {
        case 0:
            return p.x;
        case 1:
            return p.y;
        default:
            return p.z;
    }
}

void ExpectSameSegment(const LINE_3D& actual, const LINE_3D& expected) {
    LINE_3D a = actual, e = expected;
    for (int i = 0; i < 6; ++i) EXPECT_EQ(Coordinate(a, i), Coordinate(e, i)) << "coordinate " << i;
}

// Records, at each modifying notification, the segment the breakline still holds, and takes a
// memento of it as the undo listener does.
class SnapshotListener : public LoggingEventListener {
public:
    std::vector<LINE_3D> seen;
    std::vector<kor::CRefPtr<kor::IMemento>> mementos;
    void OnVncModifying(CVnc* vnc) override {
        LoggingEventListener::OnVncModifying(vnc);
        seen.push_back(vnc->GetCoords());
        mementos.push_back(kor::CRefPtr<kor::IMemento>::Adopt(vnc->CreateMemento()));
    }
};

class ThrowOnModifying : public IEventListener {
public:
    void OnVncModifying(CVnc*) override { throw std::runtime_error("listener failed"); }
};

// A memento of another kind of entity.
class ForeignMemento : public kor::IMemento {
public:
    std::size_t GetSize() const override { return 1; }

protected:
    ~ForeignMemento() override = default;
};

// A project with a breakline collection, an undo listener that logs and a host recorder.
class BreaklineTest : public ::testing::Test {
protected:
    void SetUp() override {
        prj = new CDtmPrj(nullptr, "P", true, false);
        context = prj->GetContext();
        vncs = std::make_unique<CVncs>(prj);
        auto logging = std::make_unique<SnapshotListener>();
        listener = logging.get();
        context->SetUndoListener(std::move(logging));
        context->Register(&recorder);
    }
    void TearDown() override {
        context->Unregister(&recorder);
        vncs.reset();
        prj->SubReference();
    }
    // A breakline of the collection, not listed in it; the test holds the one reference.
    kor::CRefPtr<CVnc> NewVnc(const LINE_3D& coords) {
        return kor::CRefPtr<CVnc>::Adopt(new CVnc(vncs.get(), coords));
    }

    CDtmPrj* prj = nullptr;
    CDtmChangeContext* context = nullptr;
    std::unique_ptr<CVncs> vncs;
    SnapshotListener* listener = nullptr;
    ProjectEventRecorder recorder;
};

TEST_F(BreaklineTest, NewBreaklineKnowsItsCollectionProjectAndSegment) {
    const auto vnc = NewVnc(kSegment);
    EXPECT_EQ(vnc->GetVncs(), vncs.get());
    EXPECT_EQ(vnc->GetDtmPrj(), prj);
    ExpectSameSegment(vnc->GetCoords(), kSegment);
    EXPECT_EQ(vnc->GetRep(), 0);
    EXPECT_EQ(vnc->GetReferenceCount(), 1);
    // Construction lists it nowhere and reports nothing.
    EXPECT_EQ(vncs->GetNoVncs(), 0);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(BreaklineTest, BreaklineWithoutCollectionIsRejected) {
    // Through new, since the destructor is not public; nothing is left when it throws.
    EXPECT_THROW(static_cast<void>(new CVnc(nullptr, kSegment)), std::invalid_argument);
}

TEST_F(BreaklineTest, BreaklineOfCollectionWithoutProjectHasNoProject) {
    CVncs loose(nullptr);
    const auto vnc = kor::CRefPtr<CVnc>::Adopt(new CVnc(&loose, kSegment));
    EXPECT_EQ(vnc->GetDtmPrj(), nullptr);
    EXPECT_EQ(loose.GetContext(), nullptr);
}

TEST_F(BreaklineTest, CopyTakesHandleCollectionAndSegmentWithAFreshReferenceCount) {
    const auto original = NewVnc(kSegment);
    original->SetRep(42);
    original->AddReference();
    const auto copy = kor::CRefPtr<CVnc>::Adopt(new CVnc(*original));
    EXPECT_EQ(copy->GetRep(), 42);
    EXPECT_EQ(copy->GetVncs(), vncs.get());
    ExpectSameSegment(copy->GetCoords(), kSegment);
    EXPECT_EQ(copy->GetReferenceCount(), 1);
    EXPECT_EQ(original->GetReferenceCount(), 2);
    original->SubReference();
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(BreaklineTest, AssignmentCopiesEverythingButTheReferenceCountAndReportsNothing) {
    CVncs otherCollection(nullptr);
    const auto source = kor::CRefPtr<CVnc>::Adopt(new CVnc(&otherCollection, kOther));
    source->SetRep(-7);
    const auto target = NewVnc(kSegment);
    target->AddReference();
    *target = *source;
    EXPECT_EQ(target->GetRep(), -7);
    EXPECT_EQ(target->GetVncs(), &otherCollection);
    ExpectSameSegment(target->GetCoords(), kOther);
    EXPECT_EQ(target->GetReferenceCount(), 2);
    EXPECT_EQ(source->GetReferenceCount(), 1);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_TRUE(listener->log.empty());
    target->SubReference();
}

TEST_F(BreaklineTest, SetCoordsReportsModifyingInAnEventOfItsOwnBeforeTheChange) {
    const auto vnc = NewVnc(kSegment);
    vnc->SetCoords(kOther);
    ExpectSameSegment(vnc->GetCoords(), kOther);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].vncModified, std::vector<CVnc*>{vnc.Get()});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "VncModifying", "EndEvent"}));
    // The listener saw the segment from before the change.
    ASSERT_EQ(listener->seen.size(), 1u);
    ExpectSameSegment(listener->seen[0], kSegment);
    EXPECT_EQ(context->GetEventDepth(), 0);
}

TEST_F(BreaklineTest, SetCoordsInsideAnOpenEventOnlyAddsToIt) {
    const auto vnc = NewVnc(kSegment);
    {
        kor::CEventGuard event(context);
        vnc->SetCoords(kOther);
        vnc->SetCoords(kSegment);
        EXPECT_TRUE(recorder.events.empty());
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    // Breaklines carry no marks: each change is listed.
    EXPECT_EQ(recorder.events[0].vncModified, (std::vector<CVnc*>{vnc.Get(), vnc.Get()}));
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "VncModifying", "VncModifying", "EndEvent"}));
}

TEST_F(BreaklineTest, SetCoordsWithTheSameSegmentStillReportsAndLeavesNoChange) {
    const auto vnc = NewVnc(kSegment);
    const auto before = kor::CRefPtr<kor::IMemento>::Adopt(vnc->CreateMemento());
    vnc->SetCoords(kSegment);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].vncModified, std::vector<CVnc*>{vnc.Get()});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "VncModifying", "EndEvent"}));
    EXPECT_FALSE(vnc->HasChanged(before.Get()));
}

TEST_F(BreaklineTest, SetCoordsWithoutProjectChangesTheSegmentSilently) {
    CVncs loose(nullptr);
    const auto vnc = kor::CRefPtr<CVnc>::Adopt(new CVnc(&loose, kSegment));
    vnc->SetCoords(kOther);
    ExpectSameSegment(vnc->GetCoords(), kOther);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(BreaklineTest, FailedNotificationLeavesTheSegmentAndClosesTheEvent) {
    context->SetUndoListener(std::make_unique<ThrowOnModifying>());
    const auto vnc = NewVnc(kSegment);
    EXPECT_THROW(vnc->SetCoords(kOther), std::runtime_error);
    ExpectSameSegment(vnc->GetCoords(), kSegment);
    EXPECT_EQ(context->GetEventDepth(), 0);
    EXPECT_TRUE(context->GetVncModified().empty());
}

TEST_F(BreaklineTest, MementoCopiesTheSegmentAndCounts64Bytes) {
    const auto vnc = NewVnc(kSegment);
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(vnc->CreateMemento());
    ASSERT_NE(dynamic_cast<CVncMemento*>(memento.Get()), nullptr);
    EXPECT_EQ(memento->GetReferenceCount(), 1);
    EXPECT_EQ(memento->GetSize(), 64u);
    ExpectSameSegment(static_cast<CVncMemento*>(memento.Get())->GetCoords(), kSegment);
    // A copy, not a view: later changes of the breakline do not reach it.
    vnc->SetCoords(kOther);
    ExpectSameSegment(static_cast<CVncMemento*>(memento.Get())->GetCoords(), kSegment);
    EXPECT_EQ(recorder.events.size(), 1u);
}

TEST_F(BreaklineTest, HasChangedSeesTheSmallestChangeOfEachCoordinate) {
    const auto vnc = NewVnc(kSegment);
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(vnc->CreateMemento());
    EXPECT_FALSE(vnc->HasChanged(memento.Get()));
    for (int position = 0; position < 6; ++position) {
        LINE_3D moved = kSegment;
        double& c = Coordinate(moved, position);
        c = std::nextafter(c, std::numeric_limits<double>::infinity());
        vnc->SetCoords(moved);
        EXPECT_TRUE(vnc->HasChanged(memento.Get())) << "coordinate " << position;
    }
    vnc->SetCoords(kSegment);
    EXPECT_FALSE(vnc->HasChanged(memento.Get()));
}

TEST_F(BreaklineTest, NaNCoordinateAlwaysCountsAsChanged) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (int position = 0; position < 6; ++position) {
        LINE_3D withNaN = kSegment;
        Coordinate(withNaN, position) = nan;
        const auto vnc = NewVnc(withNaN);
        // Even against a memento taken from it just before.
        const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(vnc->CreateMemento());
        EXPECT_TRUE(vnc->HasChanged(memento.Get())) << "coordinate " << position;
        // And a NaN held only by the memento is a difference as well.
        vnc->SetCoords(kSegment);
        EXPECT_TRUE(vnc->HasChanged(memento.Get())) << "coordinate " << position;
    }
}

TEST_F(BreaklineTest, HasChangedRejectsAForeignOrMissingMemento) {
    const auto vnc = NewVnc(kSegment);
    const auto foreign = kor::CRefPtr<kor::IMemento>::Adopt(new ForeignMemento());
    EXPECT_THROW(vnc->HasChanged(foreign.Get()), std::invalid_argument);
    EXPECT_THROW(vnc->HasChanged(nullptr), std::invalid_argument);
}

TEST_F(BreaklineTest, SetMementoPutsTheSegmentBackAsARecordedChange) {
    const auto vnc = NewVnc(kSegment);
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(vnc->CreateMemento());
    vnc->SetCoords(kOther);
    listener->log.clear();
    listener->seen.clear();
    vnc->SetMemento(memento.Get());
    ExpectSameSegment(vnc->GetCoords(), kSegment);
    EXPECT_FALSE(vnc->HasChanged(memento.Get()));
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_EQ(recorder.events[1].vncModified, std::vector<CVnc*>{vnc.Get()});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "VncModifying", "EndEvent"}));
    // The listener met the state being replaced, from which the redo direction is built.
    ASSERT_EQ(listener->seen.size(), 1u);
    ExpectSameSegment(listener->seen[0], kOther);
}

TEST_F(BreaklineTest, SetMementoEqualToTheCurrentStateStillSendsOneModifying) {
    const auto vnc = NewVnc(kSegment);
    const auto memento = kor::CRefPtr<kor::IMemento>::Adopt(vnc->CreateMemento());
    vnc->SetMemento(memento.Get());
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].vncModified, std::vector<CVnc*>{vnc.Get()});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "VncModifying", "EndEvent"}));
    ExpectSameSegment(vnc->GetCoords(), kSegment);
}

TEST_F(BreaklineTest, SetMementoOfAnotherKindChangesAndReportsNothing) {
    const auto vnc = NewVnc(kSegment);
    const auto foreign = kor::CRefPtr<kor::IMemento>::Adopt(new ForeignMemento());
    EXPECT_THROW(vnc->SetMemento(foreign.Get()), std::invalid_argument);
    EXPECT_THROW(vnc->SetMemento(nullptr), std::invalid_argument);
    ExpectSameSegment(vnc->GetCoords(), kSegment);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_TRUE(listener->log.empty());
}

TEST_F(BreaklineTest, MementosTakenAtModifyingUndoAndRedoAChain) {
    // What the undo machinery does: keep the memento taken at each modifying notification and
    // put them back in reverse order.
    const auto vnc = NewVnc(kSegment);
    vnc->SetCoords(kOther);
    LINE_3D third = kOther;
    third.end.z = 999.0;
    vnc->SetCoords(third);
    ASSERT_EQ(listener->mementos.size(), 2u);
    const auto afterFirst = listener->mementos[1];
    const auto original = listener->mementos[0];
    vnc->SetMemento(afterFirst.Get());
    ExpectSameSegment(vnc->GetCoords(), kOther);
    vnc->SetMemento(original.Get());
    ExpectSameSegment(vnc->GetCoords(), kSegment);
    // Each putting back took a memento of the state it replaced: the redo direction.
    ASSERT_EQ(listener->mementos.size(), 4u);
    vnc->SetMemento(listener->mementos[3].Get());
    ExpectSameSegment(vnc->GetCoords(), kOther);
    vnc->SetMemento(listener->mementos[2].Get());
    ExpectSameSegment(vnc->GetCoords(), third);
}

}  // namespace
