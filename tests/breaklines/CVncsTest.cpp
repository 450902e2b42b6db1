#include <dtm/breaklines/CVnc.h>
#include <dtm/breaklines/CVncs.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/Streams.h>
#include <dtm/support/Tolerances.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Bits.h"
#include "ByteBuilder.h"
#include "Probes.h"

namespace {

using dtm_test::Bits;
// The largest single allocation since the last reset, to see that a reader never reserves in
// proportion to a count the stream cannot back. Untouched pages of a huge reservation would go
// unnoticed otherwise.
std::atomic<std::size_t> largestAllocation{0};
}  // namespace

// Replaced for the whole test program; the library is linked in, so its allocations come here.
void* operator new(std::size_t size) {
    std::size_t largest = largestAllocation.load();
    while (size > largest && !largestAllocation.compare_exchange_weak(largest, size)) {
    }
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace {

using dtm_test::ByteBuilder;
using dtm_test::LoggingEventListener;
using dtm_test::ProjectEventRecorder;
using kor::geom::LINE_3D;
using kor::geom::PNT_3D;
using Log = std::vector<std::string>;

constexpr short kVersion = 1502;
constexpr std::size_t kCountBytes = 4;
constexpr std::size_t kBreaklineBytes = 48;

LINE_3D Segment(double seed) {
    return LINE_3D(PNT_3D(seed, seed + 0.5, seed * 3.0), PNT_3D(-seed, seed * 0.25, 100.0 + seed));
}

// The six coordinates of a segment as bit patterns, so that NaN, infinities and the sign of
// zero compare exactly.
std::vector<std::uint64_t> SegmentBits(const LINE_3D& line) {
    return {Bits(line.start.x), Bits(line.start.y), Bits(line.start.z),
            Bits(line.end.x),   Bits(line.end.y),   Bits(line.end.z)};
}

std::vector<std::vector<std::uint64_t>> StoredBits(const CVncs& vncs) {
    std::vector<std::vector<std::uint64_t>> all;
    for (int i = 0; i < vncs.GetNoVncs(); ++i)
        all.push_back(SegmentBits(vncs.GetVncAt(i)->GetCoords()));
    return all;
}

// The bytes of one breakline as the section stores them, assembled independently of the
// library's writers.
ByteBuilder& AppendSegment(ByteBuilder& bytes, const LINE_3D& line) {
    return bytes.Double(line.start.x)
        .Double(line.start.y)
        .Double(line.start.z)
        .Double(line.end.x)
        .Double(line.end.y)
        .Double(line.end.z);
}

std::string Write(const CVncs& vncs) {
    std::stringbuf buffer;
    ofpstream out(&buffer, kVersion);
    vncs.SalvaInFile(out);
    EXPECT_TRUE(out.good());
    return buffer.str();
}

// An input document stream over fixed bytes.
struct Input {
    explicit Input(const std::string& bytes) : buffer(bytes), stream(&buffer, kVersion) {}
    // Bytes consumed so far, also after a failure.
    std::size_t Consumed() {
        return static_cast<std::size_t>(buffer.pubseekoff(0, std::ios::cur, std::ios::in));
    }
    std::stringbuf buffer;
    ifpstream stream;
};

// A real breakline that also counts its lives, so that a test sees when it is destroyed.
class CountedVnc final : public CVnc {
public:
    CountedVnc(int& alive, CVncs* vncs, const LINE_3D& coords)
        : CVnc(vncs, coords), m_alive(alive) {
        ++m_alive;
    }

private:
    ~CountedVnc() override { --m_alive; }
    int& m_alive;
};

// An undo listener that also notes how many breaklines the collection listed at each call.
class CollectionWatcher : public LoggingEventListener {
public:
    const CVncs* vncs = nullptr;
    std::vector<int> sizesSeen;
    std::vector<CVnc*> removedOrder;
    void OnVncAdded(CVnc* vnc) override {
        LoggingEventListener::OnVncAdded(vnc);
        sizesSeen.push_back(vncs->GetNoVncs());
    }
    void OnVncRemoved(CVnc* vnc) override {
        LoggingEventListener::OnVncRemoved(vnc);
        sizesSeen.push_back(vncs->GetNoVncs());
        removedOrder.push_back(vnc);
    }
};

// Fails at the removal numbered failAt (from 1), as an allocation failure would.
class ThrowOnRemoval : public IEventListener {
public:
    explicit ThrowOnRemoval(int failAt) : m_failAt(failAt) {}
    void OnVncRemoved(CVnc*) override {
        if (++m_calls == m_failAt) throw std::runtime_error("listener failed");
    }

private:
    int m_failAt;
    int m_calls = 0;
};

// A host listener that notes the reference count of every removed breakline at closing.
class RemovedCountRecorder : public kor::CSourceEvent::IEvent {
public:
    std::vector<int> counts;
    void OnEventOpened(kor::CSourceEvent&) override {}
    void OnEventClosed(kor::CSourceEvent& source) override {
        for (CVnc* vnc : static_cast<CDtmChangeContext&>(source).GetVncRemoved())
            counts.push_back(vnc->GetReferenceCount());
    }
};

class BreaklinesTest : public ::testing::Test {
protected:
    void SetUp() override {
        prj = new CDtmPrj(nullptr, "P", true, false);
        context = prj->GetContext();
        vncs = std::make_unique<CVncs>(prj);
        auto watcher = std::make_unique<CollectionWatcher>();
        listener = watcher.get();
        listener->vncs = vncs.get();
        context->SetUndoListener(std::move(watcher));
        context->Register(&recorder);
    }
    void TearDown() override {
        context->Unregister(&recorder);
        vncs.reset();
        prj->SubReference();
        EXPECT_EQ(alive, 0);
    }
    // A counted breakline added to the collection; the collection holds the only reference.
    CVnc* AddCounted(const LINE_3D& coords) {
        const auto vnc = kor::CRefPtr<CVnc>::Adopt(new CountedVnc(alive, vncs.get(), coords));
        vncs->AddVnc(vnc.Get());
        return vnc.Get();
    }
    // Forgets what the listeners saw so far.
    void ForgetEvents() {
        recorder.events.clear();
        listener->log.clear();
        listener->sizesSeen.clear();
        listener->removedOrder.clear();
    }

    CDtmPrj* prj = nullptr;
    CDtmChangeContext* context = nullptr;
    std::unique_ptr<CVncs> vncs;
    CollectionWatcher* listener = nullptr;
    ProjectEventRecorder recorder;
    int alive = 0;
};

// Collection basics ------------------------------------------------------------------------

TEST_F(BreaklinesTest, NewCollectionIsEmptyAndUsesTheProjectsContext) {
    EXPECT_EQ(vncs->GetDtmPrj(), prj);
    EXPECT_EQ(vncs->GetContext(), context);
    EXPECT_EQ(vncs->GetNoVncs(), 0);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(BreaklinesTest, AddNewVncReturnsABreaklineOfTheCollectionHeldOnlyByIt) {
    CVnc* vnc = vncs->AddNewVnc(Segment(1.0));
    ASSERT_NE(vnc, nullptr);
    EXPECT_EQ(vnc->GetVncs(), vncs.get());
    EXPECT_EQ(vnc->GetReferenceCount(), 1);
    EXPECT_EQ(vncs->GetNoVncs(), 1);
    EXPECT_EQ(vncs->GetVncAt(0), vnc);
    EXPECT_EQ(SegmentBits(vnc->GetCoords()), SegmentBits(Segment(1.0)));
    // Outside any event the notification is an event of its own.
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].vncAdded, std::vector<CVnc*>{vnc});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "VncAdded", "EndEvent"}));
}

TEST_F(BreaklinesTest, AddVncListsTakesAReferenceThenReports) {
    const auto vnc = kor::CRefPtr<CVnc>::Adopt(new CVnc(vncs.get(), Segment(2.0)));
    vncs->AddVnc(vnc.Get());
    EXPECT_EQ(vnc->GetReferenceCount(), 2);
    // The listener already found it listed.
    EXPECT_EQ(listener->sizesSeen, std::vector<int>{1});
    EXPECT_EQ(recorder.events.at(0).vncAdded, std::vector<CVnc*>{vnc.Get()});
}

TEST_F(BreaklinesTest, AdditionsInsideOneEventFormOneEventInOrder) {
    CVnc* first = nullptr;
    CVnc* second = nullptr;
    {
        kor::CEventGuard event(context);
        first = vncs->AddNewVnc(Segment(1.0));
        second = vncs->AddNewVnc(Segment(2.0));
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].vncAdded, (std::vector<CVnc*>{first, second}));
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "VncAdded", "VncAdded", "EndEvent"}));
}

TEST_F(BreaklinesTest, AddVncRejectsNull) {
    EXPECT_THROW(vncs->AddVnc(nullptr), std::invalid_argument);
    EXPECT_EQ(vncs->GetNoVncs(), 0);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(BreaklinesTest, IndexOutsideTheListThrowsOutOfRange) {
    vncs->AddNewVnc(Segment(1.0));
    ForgetEvents();
    EXPECT_THROW(vncs->GetVncAt(-1), std::out_of_range);
    EXPECT_THROW(vncs->GetVncAt(1), std::out_of_range);
    EXPECT_THROW(vncs->RemoveVncAt(-1), std::out_of_range);
    EXPECT_THROW(vncs->RemoveVncAt(1), std::out_of_range);
    EXPECT_EQ(vncs->GetNoVncs(), 1);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(BreaklinesTest, CollectionWithoutProjectWorksAndReportsNothing) {
    CVncs loose(nullptr);
    EXPECT_EQ(loose.GetContext(), nullptr);
    CVnc* a = loose.AddNewVnc(Segment(1.0));
    loose.AddNewVnc(Segment(2.0));
    a->SetCoords(Segment(3.0));
    loose.RemoveVnc(a);
    EXPECT_EQ(loose.GetNoVncs(), 1);
    loose.RemoveAllVncs();
    EXPECT_EQ(loose.GetNoVncs(), 0);
    EXPECT_TRUE(recorder.events.empty());
}

// Removal ------------------------------------------------------------------------------------

TEST_F(BreaklinesTest, RemoveVncErasesThenReportsThenReleases) {
    CVnc* a = AddCounted(Segment(1.0));
    CVnc* b = AddCounted(Segment(2.0));
    ForgetEvents();
    vncs->RemoveVnc(a);
    EXPECT_EQ(vncs->GetNoVncs(), 1);
    EXPECT_EQ(vncs->GetVncAt(0), b);
    // Already erased when the listener was told.
    EXPECT_EQ(listener->sizesSeen, std::vector<int>{1});
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].vncRemoved, std::vector<CVnc*>{a});
    // Its own event closed, and the context and the collection both let it go.
    EXPECT_EQ(alive, 1);
}

TEST_F(BreaklinesTest, RemovedBreaklineStaysAliveUntilItsEventCloses) {
    RemovedCountRecorder counts;
    context->Register(&counts);
    CVnc* a = AddCounted(Segment(1.0));
    ForgetEvents();
    context->BeginEvent();
    vncs->RemoveVnc(a);
    // The collection has released it: only the context's reference keeps it.
    EXPECT_EQ(vncs->GetNoVncs(), 0);
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(a->GetReferenceCount(), 1);
    EXPECT_EQ(context->GetVncRemoved(), std::vector<CVnc*>{a});
    context->EndEvent();
    EXPECT_EQ(counts.counts, std::vector<int>{1});
    EXPECT_EQ(alive, 0);
    context->Unregister(&counts);
}

TEST_F(BreaklinesTest, RemoveVncAtRemovesThatEntry) {
    CVnc* a = AddCounted(Segment(1.0));
    CVnc* b = AddCounted(Segment(2.0));
    CVnc* c = AddCounted(Segment(3.0));
    ForgetEvents();
    vncs->RemoveVncAt(1);
    EXPECT_EQ(vncs->GetNoVncs(), 2);
    EXPECT_EQ(vncs->GetVncAt(0), a);
    EXPECT_EQ(vncs->GetVncAt(1), c);
    EXPECT_EQ(recorder.events.at(0).vncRemoved, std::vector<CVnc*>{b});
    EXPECT_EQ(alive, 2);
}

TEST_F(BreaklinesTest, RemoveVncOfAnotherCollectionChangesAndSendsNothing) {
    CVncs other(prj);
    CVnc* foreign = other.AddNewVnc(Segment(9.0));
    CVnc* own = vncs->AddNewVnc(Segment(1.0));
    const auto unlisted = kor::CRefPtr<CVnc>::Adopt(new CVnc(vncs.get(), Segment(2.0)));
    ForgetEvents();
    vncs->RemoveVnc(foreign);
    vncs->RemoveVnc(unlisted.Get());
    vncs->RemoveVnc(nullptr);
    EXPECT_EQ(vncs->GetNoVncs(), 1);
    EXPECT_EQ(vncs->GetVncAt(0), own);
    EXPECT_EQ(foreign->GetReferenceCount(), 1);
    EXPECT_EQ(unlisted->GetReferenceCount(), 1);
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_TRUE(listener->log.empty());
    other.RemoveAllVncs();
}

TEST_F(BreaklinesTest, RemoveVncRemovesOnlyTheFirstOfRepeatedEntries) {
    CVnc* a = vncs->AddNewVnc(Segment(1.0));
    CVnc* b = vncs->AddNewVnc(Segment(2.0));
    vncs->AddVnc(a);
    EXPECT_EQ(a->GetReferenceCount(), 2);
    vncs->RemoveVnc(a);
    ASSERT_EQ(vncs->GetNoVncs(), 2);
    EXPECT_EQ(vncs->GetVncAt(0), b);
    EXPECT_EQ(vncs->GetVncAt(1), a);
    EXPECT_EQ(a->GetReferenceCount(), 1);
}

TEST_F(BreaklinesTest, RemoveAllNotifiesEveryBreaklineLastFirstBeforeEmptyingTheList) {
    CVnc* a = AddCounted(Segment(1.0));
    CVnc* b = AddCounted(Segment(2.0));
    CVnc* c = AddCounted(Segment(3.0));
    ForgetEvents();
    kor::CEventGuard event(context);
    vncs->RemoveAllVncs();
    EXPECT_EQ(vncs->GetNoVncs(), 0);
    // Every listener call still found the whole list.
    EXPECT_EQ(listener->sizesSeen, (std::vector<int>{3, 3, 3}));
    EXPECT_EQ(listener->removedOrder, (std::vector<CVnc*>{c, b, a}));
}

// Outside an event each report is an event of its own, as for any other removal, and its close
// lets the context's reference go. The host, told at each close, still finds the whole list,
// every entry alive (read through, so that a freed one would be reported by the sanitizer).
TEST_F(BreaklinesTest, RemoveAllOutsideAnEventIsAnEventPerBreaklineWithTheListWholeAndAlive) {
    class ListReader : public kor::CSourceEvent::IEvent {
    public:
        explicit ListReader(const CVncs& vncs) : m_vncs(vncs) {}
        std::vector<std::vector<int>> counts;
        std::vector<double> heights;
        void OnEventOpened(kor::CSourceEvent&) override {}
        void OnEventClosed(kor::CSourceEvent&) override {
            counts.emplace_back();
            for (int i = 0; i < m_vncs.GetNoVncs(); ++i) {
                counts.back().push_back(m_vncs.GetVncAt(i)->GetReferenceCount());
                heights.push_back(m_vncs.GetVncAt(i)->GetCoords().start.z);
            }
        }

    private:
        const CVncs& m_vncs;
    };
    ListReader reader(*vncs);
    CVnc* a = AddCounted(Segment(1.0));
    CVnc* b = AddCounted(Segment(2.0));
    CVnc* c = AddCounted(Segment(3.0));
    ForgetEvents();
    context->Register(&reader);
    vncs->RemoveAllVncs();
    context->Unregister(&reader);
    EXPECT_EQ(vncs->GetNoVncs(), 0);
    ASSERT_EQ(recorder.events.size(), 3u);
    EXPECT_EQ(recorder.events[0].vncRemoved, std::vector<CVnc*>{c});
    EXPECT_EQ(recorder.events[1].vncRemoved, std::vector<CVnc*>{b});
    EXPECT_EQ(recorder.events[2].vncRemoved, std::vector<CVnc*>{a});
    EXPECT_EQ(listener->log,
              (Log{"BeginEvent", "VncRemoved", "EndEvent", "BeginEvent", "VncRemoved", "EndEvent",
                   "BeginEvent", "VncRemoved", "EndEvent"}));
    // At each close the list still held all three: the one just reported by the context's
    // reference too (let go after the host is told), those reported before by the list's alone.
    EXPECT_EQ(reader.counts, (std::vector<std::vector<int>>{{1, 1, 2}, {1, 2, 1}, {2, 1, 1}}));
    EXPECT_EQ(reader.heights, (std::vector<double>{3, 6, 9, 3, 6, 9, 3, 6, 9}));
    EXPECT_EQ(alive, 0);
}

TEST_F(BreaklinesTest, RemoveAllKeepsEveryBreaklineAliveUntilTheEventCloses) {
    RemovedCountRecorder counts;
    context->Register(&counts);
    AddCounted(Segment(1.0));
    AddCounted(Segment(2.0));
    ForgetEvents();
    context->BeginEvent();
    vncs->RemoveAllVncs();
    EXPECT_EQ(vncs->GetNoVncs(), 0);
    EXPECT_EQ(alive, 2);
    context->EndEvent();
    // The host met each one held by the context alone.
    EXPECT_EQ(counts.counts, (std::vector<int>{1, 1}));
    EXPECT_EQ(alive, 0);
    context->Unregister(&counts);
}

TEST_F(BreaklinesTest, RemoveAllOfAnEmptyCollectionOpensNoEvent) {
    vncs->RemoveAllVncs();
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_TRUE(listener->log.empty());
}

TEST_F(BreaklinesTest, FailedRemovalKeepsExactlyTheBreaklinesStillHeld) {
    CVnc* a = AddCounted(Segment(1.0));
    CVnc* b = AddCounted(Segment(2.0));
    AddCounted(Segment(3.0));
    context->SetUndoListener(std::make_unique<ThrowOnRemoval>(2));
    EXPECT_THROW(vncs->RemoveAllVncs(), std::runtime_error);
    EXPECT_EQ(context->GetEventDepth(), 0);
    // c was reported and released; b's report failed, so the collection still holds it.
    ASSERT_EQ(vncs->GetNoVncs(), 2);
    EXPECT_EQ(vncs->GetVncAt(0), a);
    EXPECT_EQ(vncs->GetVncAt(1), b);
    EXPECT_EQ(a->GetReferenceCount(), 1);
    EXPECT_EQ(b->GetReferenceCount(), 1);
    EXPECT_EQ(alive, 2);
}

TEST_F(BreaklinesTest, FailedRemoveVncStillReleasesTheErasedBreakline) {
    CVnc* a = AddCounted(Segment(1.0));
    context->SetUndoListener(std::make_unique<ThrowOnRemoval>(1));
    EXPECT_THROW(vncs->RemoveVnc(a), std::runtime_error);
    EXPECT_EQ(vncs->GetNoVncs(), 0);
    EXPECT_EQ(alive, 0);
}

TEST_F(BreaklinesTest, DestroyingTheCollectionRemovesEverythingAsRemoveAllDoes) {
    CVnc* a = AddCounted(Segment(1.0));
    CVnc* b = AddCounted(Segment(2.0));
    ForgetEvents();
    vncs.reset();
    // Notify all, then empty, each report an event of its own.
    EXPECT_EQ(listener->sizesSeen, (std::vector<int>{2, 2}));
    ASSERT_EQ(recorder.events.size(), 2u);
    EXPECT_EQ(recorder.events[0].vncRemoved, std::vector<CVnc*>{b});
    EXPECT_EQ(recorder.events[1].vncRemoved, std::vector<CVnc*>{a});
    EXPECT_EQ(alive, 0);
}

TEST_F(BreaklinesTest, DestroyingTheCollectionReleasesEverythingEvenWhenAReportFails) {
    AddCounted(Segment(1.0));
    AddCounted(Segment(2.0));
    AddCounted(Segment(3.0));
    context->SetUndoListener(std::make_unique<ThrowOnRemoval>(1));
    vncs.reset();
    EXPECT_EQ(context->GetEventDepth(), 0);
    EXPECT_EQ(alive, 0);
}

// The change context's breakline lists, driven through the collection --------------------------

TEST_F(BreaklinesTest, ContextListsAddedModifiedAndRemovedBreaklinesOfOneEvent) {
    RemovedCountRecorder counts;
    context->Register(&counts);
    CVnc* kept = AddCounted(Segment(1.0));
    ForgetEvents();
    CVnc* added = nullptr;
    {
        kor::CEventGuard event(context);
        added = vncs->AddNewVnc(Segment(2.0));
        kept->SetCoords(Segment(3.0));
        added->SetCoords(Segment(4.0));
        vncs->RemoveVnc(kept);
    }
    ASSERT_EQ(recorder.events.size(), 1u);
    const auto& seen = recorder.events[0];
    // No reconciliation in the context: every notification is listed as it came.
    EXPECT_EQ(seen.vncAdded, std::vector<CVnc*>{added});
    EXPECT_EQ(seen.vncModified, (std::vector<CVnc*>{kept, added}));
    EXPECT_EQ(seen.vncRemoved, std::vector<CVnc*>{kept});
    EXPECT_EQ(counts.counts, std::vector<int>{1});
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "VncAdded", "VncModifying", "VncModifying",
                                  "VncRemoved", "EndEvent"}));
    // All cleared for the next event, and the removed breakline is gone with it.
    EXPECT_TRUE(context->GetVncAdded().empty());
    EXPECT_TRUE(context->GetVncModified().empty());
    EXPECT_TRUE(context->GetVncRemoved().empty());
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(added->GetReferenceCount(), 1);
    context->Unregister(&counts);
}

// Stream section ---------------------------------------------------------------------------

TEST_F(BreaklinesTest, SectionBytesAreTheCountThenSixDoublesPerBreaklineInListOrder) {
    const LINE_3D first = Segment(1.0);
    const LINE_3D second(PNT_3D(-0.0, 1e300, -2.5), PNT_3D(3.0, 4.0, UNDEFINED_QUOTE));
    vncs->AddNewVnc(first);
    vncs->AddNewVnc(second);
    ByteBuilder expected;
    expected.Int32(2);
    AppendSegment(expected, first);
    AppendSegment(expected, second);
    EXPECT_EQ(Write(*vncs), expected.Str());
}

TEST_F(BreaklinesTest, EmptyCollectionWritesOnlyTheCount) {
    EXPECT_EQ(Write(*vncs), ByteBuilder().Int32(0).Str());
}

TEST_F(BreaklinesTest, HandAssembledSectionIsReadFieldByField) {
    ByteBuilder bytes;
    bytes.Int32(2)
        .Double(1.0)
        .Double(2.0)
        .Double(3.0)
        .Double(4.0)
        .Double(5.0)
        .Double(6.0)
        .Double(-0.0)
        .Double(std::numeric_limits<double>::infinity())
        .Double(1.7e200)
        .Double(-1e-300)
        .Double(123456.789)
        .Double(-42.0)
        .Int32(0x5A5A5A5A);  // what follows the section stays unread
    Input input(bytes.Str());
    vncs->LeggeDaFile(input.stream, true);
    EXPECT_TRUE(input.stream.good());
    EXPECT_EQ(input.Consumed(), kCountBytes + 2 * kBreaklineBytes);
    ASSERT_EQ(vncs->GetNoVncs(), 2);
    EXPECT_EQ(SegmentBits(vncs->GetVncAt(0)->GetCoords()),
              (std::vector<std::uint64_t>{Bits(1.0), Bits(2.0), Bits(3.0), Bits(4.0), Bits(5.0),
                                          Bits(6.0)}));
    EXPECT_EQ(
        SegmentBits(vncs->GetVncAt(1)->GetCoords()),
        (std::vector<std::uint64_t>{Bits(-0.0), Bits(std::numeric_limits<double>::infinity()),
                                    Bits(1.7e200), Bits(-1e-300), Bits(123456.789), Bits(-42.0)}));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(vncs->GetVncAt(i)->GetVncs(), vncs.get());
        EXPECT_EQ(vncs->GetVncAt(i)->GetReferenceCount(), 1);
    }
}

TEST_F(BreaklinesTest, RoundTripIntoAnEmptyCollectionKeepsEveryValueExactly) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    vncs->AddNewVnc(Segment(1.0));
    vncs->AddNewVnc(LINE_3D(PNT_3D(nan, -0.0, 1e-310), PNT_3D(0.1, 0.2, 0.30000000000000004)));
    vncs->AddNewVnc(LINE_3D(PNT_3D(-1e308, 1e308, UNDEFINED_QUOTE), PNT_3D(7.0, 7.0, 7.0)));
    const std::string written = Write(*vncs);
    ASSERT_EQ(written.size(), kCountBytes + 3 * kBreaklineBytes);

    CVncs copy(prj);
    Input input(written);
    copy.LeggeDaFile(input.stream, true);
    EXPECT_TRUE(input.stream.good());
    EXPECT_EQ(StoredBits(copy), StoredBits(*vncs));
    // Written again, the copy gives the same bytes.
    EXPECT_EQ(Write(copy), written);
}

TEST_F(BreaklinesTest, ReadingAppendsToThePresentBreaklinesInOneEvent) {
    CVncs source(nullptr);
    source.AddNewVnc(Segment(5.0));
    source.AddNewVnc(Segment(6.0));
    CVnc* present = vncs->AddNewVnc(Segment(1.0));
    ForgetEvents();
    Input input(Write(source));
    vncs->LeggeDaFile(input.stream, true);
    ASSERT_EQ(vncs->GetNoVncs(), 3);
    EXPECT_EQ(vncs->GetVncAt(0), present);
    EXPECT_EQ(SegmentBits(vncs->GetVncAt(1)->GetCoords()), SegmentBits(Segment(5.0)));
    EXPECT_EQ(SegmentBits(vncs->GetVncAt(2)->GetCoords()), SegmentBits(Segment(6.0)));
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].vncAdded,
              (std::vector<CVnc*>{vncs->GetVncAt(1), vncs->GetVncAt(2)}));
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "VncAdded", "VncAdded", "EndEvent"}));
}

TEST_F(BreaklinesTest, ReadingWithoutApplyConsumesExactlyTheSectionAndChangesNothing) {
    for (std::int32_t count : {0, 1, 3}) {
        ByteBuilder bytes;
        bytes.Int32(count);
        for (std::int32_t i = 0; i < count; ++i) AppendSegment(bytes, Segment(i));
        bytes.Int32(77);  // the next section
        CVnc* present = vncs->AddNewVnc(Segment(1.0));
        ForgetEvents();
        Input input(bytes.Str());
        vncs->LeggeDaFile(input.stream, false);
        EXPECT_TRUE(input.stream.good()) << count;
        EXPECT_EQ(input.Consumed(), kCountBytes + kBreaklineBytes * static_cast<std::size_t>(count))
            << count;
        ASSERT_EQ(vncs->GetNoVncs(), 1) << count;
        EXPECT_EQ(vncs->GetVncAt(0), present);
        for (const auto& event : recorder.events) EXPECT_TRUE(event.vncAdded.empty()) << count;
        EXPECT_EQ(listener->log, (Log{"BeginEvent", "EndEvent"})) << count;
        vncs->RemoveAllVncs();
    }
}

TEST_F(BreaklinesTest, NegativeCountReadsNothingMore) {
    ByteBuilder bytes;
    bytes.Int32(-3);
    AppendSegment(bytes, Segment(1.0));
    Input input(bytes.Str());
    vncs->LeggeDaFile(input.stream, true);
    EXPECT_TRUE(input.stream.good());
    EXPECT_EQ(input.Consumed(), kCountBytes);
    EXPECT_EQ(vncs->GetNoVncs(), 0);
}

TEST_F(BreaklinesTest, StreamEndingInsideTheCountChangesNothing) {
    Input input(ByteBuilder().Int16(2).Str());
    vncs->LeggeDaFile(input.stream, true);
    EXPECT_TRUE(input.stream.fail());
    EXPECT_EQ(vncs->GetNoVncs(), 0);
    EXPECT_TRUE(recorder.events.empty());
}

TEST_F(BreaklinesTest, StreamEndingInsideABreaklineKeepsOnlyTheWholeOnesReadBefore) {
    CVnc* present = vncs->AddNewVnc(Segment(9.0));
    ForgetEvents();
    ByteBuilder bytes;
    bytes.Int32(3);
    AppendSegment(bytes, Segment(1.0));
    AppendSegment(bytes, Segment(2.0));
    bytes.Double(3.0).Double(4.0);  // the third breakline is cut short
    Input input(bytes.Str());
    vncs->LeggeDaFile(input.stream, true);
    EXPECT_TRUE(input.stream.fail());
    ASSERT_EQ(vncs->GetNoVncs(), 3);
    EXPECT_EQ(vncs->GetVncAt(0), present);
    EXPECT_EQ(SegmentBits(vncs->GetVncAt(1)->GetCoords()), SegmentBits(Segment(1.0)));
    EXPECT_EQ(SegmentBits(vncs->GetVncAt(2)->GetCoords()), SegmentBits(Segment(2.0)));
    // The event was closed and reported the whole ones only.
    EXPECT_EQ(context->GetEventDepth(), 0);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].vncAdded.size(), 2u);
}

TEST_F(BreaklinesTest, HugeCountInAShortStreamCostsNoMoreThanTheStreamHolds) {
    // Reading grows with what arrives: the two whole breaklines are kept, the stream fails,
    // and no allocation comes anywhere near the two billion entries the count claims.
    constexpr std::size_t kModestAllocation = 1 << 16;
    ByteBuilder bytes;
    bytes.Int32(std::numeric_limits<std::int32_t>::max());
    AppendSegment(bytes, Segment(1.0));
    AppendSegment(bytes, Segment(2.0));
    for (bool apply : {false, true}) {
        Input input(bytes.Str());
        largestAllocation = 0;
        vncs->LeggeDaFile(input.stream, apply);
        EXPECT_LT(largestAllocation.load(), kModestAllocation) << "apply " << apply;
        EXPECT_TRUE(input.stream.fail());
        EXPECT_EQ(vncs->GetNoVncs(), apply ? 2 : 0);
    }
}

}  // namespace
