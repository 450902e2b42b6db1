// The boundary collections' document stream section: round trips, byte sequences assembled by
// hand, consuming without applying, and streams that end or lie inside the section.

#include <dtm/boundaries/CCnt.h>
#include <dtm/boundaries/CCnts.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/Streams.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>

#include "BoundaryTestSupport.h"
#include "ByteBuilder.h"

namespace {

using boundary_test::BoundaryTest;
using boundary_test::ListOf;
using boundary_test::Log;
using boundary_test::MakeCnt;
using boundary_test::PNT_3D;
using boundary_test::Pts;
using boundary_test::SameBits;
using dtm_test::ByteBuilder;
using Cnts = std::vector<CCnt*>;

// The format carries no version test; any version the host's stream carries will do.
constexpr short VERSION = 1502;
// Written after a section in the tests so that they can tell where the reader stopped.
constexpr std::int32_t MARKER = 0x5A5A1234;

const PNT_3D A(1.0, 2.0, 3.0);
const PNT_3D B(-4.5, 5.0, 6.0);
const PNT_3D C(7.0, 8.0, 9.5);
const PNT_3D D(1e300, -0.0, 1.7e200);

/// The bytes SalvaInFile writes for @p cnts.
std::string Written(const CCnts& cnts) {
    std::stringbuf buffer;
    ofpstream out(&buffer, VERSION);
    cnts.SalvaInFile(out);
    EXPECT_TRUE(out.good());
    return buffer.str();
}

/// An input document stream over @p bytes.
struct Input {
    explicit Input(const std::string& bytes)
        : buffer(bytes, std::ios::in), stream(&buffer, VERSION) {}

    /// True when the next four bytes are the marker.
    bool AtMarker() {
        std::int32_t value = 0;
        return dtm::io::ReadRaw(stream, value) && value == MARKER;
    }

    std::stringbuf buffer;
    ifpstream stream;
};

/// Extended lists of every boundary of @p cnts, in order.
std::vector<Pts> StoredLists(const CCnts& cnts) {
    std::vector<Pts> lists;
    for (int i = 0; i < cnts.GetNoCnts(); ++i) lists.push_back(cnts.GetCntAt(i)->GetExtendedVrts());
    return lists;
}

bool SameLists(const std::vector<Pts>& a, const std::vector<Pts>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (!SameBits(a[i], b[i])) return false;
    return true;
}

/// Appends @p p to @p bytes as three raw doubles.
ByteBuilder& Vertex(ByteBuilder& bytes, const PNT_3D& p) {
    return bytes.Double(p.x).Double(p.y).Double(p.z);
}

/// Fills @p cnts with boundaries of every shape the section must carry: rings of several sizes,
/// a boundary whose wrap-around copies no longer match (a moved vertex), one built vertex by
/// vertex without copies, an empty one, and values at the edges of double.
void FillVaried(CCnts& cnts) {
    cnts.AddCnt(MakeCnt({A, B, C}).Get());
    cnts.AddCnt(MakeCnt({D}).Get());
    auto moved = MakeCnt({A, B, C, D});
    {
        CCntModifier modifier(moved.Get());
        modifier.MovePoint(0, PNT_3D(std::numeric_limits<double>::denorm_min(), -1e-300, 0.0));
    }
    cnts.AddCnt(moved.Get());
    auto open = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    open->AppendVrt(C);
    open->AppendVrt(PNT_3D(std::numeric_limits<double>::quiet_NaN(), 0.5, -0.5));
    cnts.AddCnt(open.Get());
    cnts.AddCnt(kor::CRefPtr<CCnt>::Adopt(new CCnt()).Get());
}

// --- writing -----------------------------------------------------------------------------------

TEST(CCntsSection, EmptyCollectionWritesOnlyTheCount) {
    CCnts cnts(nullptr, false);
    EXPECT_EQ(Written(cnts), ByteBuilder().Int32(0).Str());
}

TEST(CCntsSection, WrittenBytesAreTheCountThenEachStoredListAsItIs) {
    CCnts cnts(nullptr, true);
    cnts.AddCnt(MakeCnt({A, B}).Get());
    cnts.AddCnt(MakeCnt({C}).Get());
    ByteBuilder expected;
    expected.Int32(2).Int32(4);
    for (const PNT_3D& p : {B, A, B, A}) Vertex(expected, p);
    expected.Int32(3);
    for (const PNT_3D& p : {C, C, C}) Vertex(expected, p);
    EXPECT_EQ(Written(cnts), expected.Str());
}

// --- round trips -------------------------------------------------------------------------------

TEST_F(BoundaryTest, BothCollectionsSurviveARoundTripExactly) {
    FillVaried(*external);
    internal->AddCnt(MakeCnt({C, A}).Get());
    internal->AddCnt(MakeCnt({B, D, A, C, B}).Get());
    // A document holds the sections one after the other.
    std::stringbuf buffer;
    {
        ofpstream out(&buffer, VERSION);
        external->SalvaInFile(out);
        internal->SalvaInFile(out);
        dtm::io::WriteRaw(out, MARKER);
    }
    CCnts readExternal(prj, false);
    CCnts readInternal(prj, true);
    Input input(buffer.str());
    readExternal.LeggeDaFile(input.stream, true);
    readInternal.LeggeDaFile(input.stream, true);
    EXPECT_TRUE(input.AtMarker());
    EXPECT_TRUE(SameLists(StoredLists(readExternal), StoredLists(*external)));
    EXPECT_TRUE(SameLists(StoredLists(readInternal), StoredLists(*internal)));
    EXPECT_TRUE(readInternal.GetCntAt(0)->IsInternal());
    EXPECT_FALSE(readExternal.GetCntAt(0)->IsInternal());
    // Writing what was read gives the same bytes again.
    EXPECT_EQ(Written(readExternal), Written(*external));
    EXPECT_EQ(Written(readInternal), Written(*internal));
}

TEST_F(BoundaryTest, ReadBoundariesAreAddedInOneEventAndHeldOnlyByTheCollection) {
    CCnts source(nullptr, false);
    FillVaried(source);
    Input input(Written(source));
    ClearLogs();
    internal->LeggeDaFile(input.stream, true);
    ASSERT_EQ(internal->GetNoCnts(), 5);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].cntAdded.size(), 5u);
    // The reader's own references are gone before the listeners are told.
    EXPECT_EQ(recorder.events[0].cntAddedReferenceCounts, std::vector<int>(5, 1));
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "CntAdded", "CntAdded", "CntAdded", "CntAdded",
                                  "CntAdded", "EndEvent"}));
    // Building a boundary from the stream is not a modification of it.
    EXPECT_TRUE(recorder.events[0].cntModified.empty());
    for (int i = 0; i < internal->GetNoCnts(); ++i) {
        EXPECT_EQ(internal->GetCntAt(i)->GetReferenceCount(), 1);
        EXPECT_EQ(internal->GetCntAt(i)->GetCnts(), internal.get());
    }
}

TEST_F(BoundaryTest, ReadingAppendsToTheBoundariesAlreadyPresent) {
    auto present = MakeCnt({A});
    external->AddCnt(present.Get());
    CCnts source(nullptr, false);
    source.AddCnt(MakeCnt({B, C}).Get());
    Input input(Written(source));
    external->LeggeDaFile(input.stream, true);
    ASSERT_EQ(external->GetNoCnts(), 2);
    EXPECT_EQ(external->GetCntAt(0), present.Get());
    EXPECT_TRUE(SameBits(external->GetCntAt(1)->GetExtendedVrts(), Pts{C, B, C, B}));
}

// --- hand-assembled sections -------------------------------------------------------------------

TEST_F(BoundaryTest, HandAssembledSectionIsReadFieldByField) {
    // Two boundaries: the extended triangle C, A, B, C, A and a stored list of two vertices
    // that no ring would give, which the reader must keep as it is.
    ByteBuilder bytes;
    bytes.Int32(2).Int32(5);
    for (const PNT_3D& p : {C, A, B, C, A}) Vertex(bytes, p);
    bytes.Int32(2);
    Vertex(bytes, D);
    Vertex(bytes, B);
    bytes.Int32(MARKER);
    Input input(bytes.Str());
    external->LeggeDaFile(input.stream, true);
    EXPECT_TRUE(input.AtMarker());
    ASSERT_EQ(external->GetNoCnts(), 2);
    const CCnt* first = external->GetCntAt(0);
    ASSERT_EQ(first->GetNoVrts(), 5);
    EXPECT_EQ(first->GetVrt(0).x, 7.0);
    EXPECT_EQ(first->GetVrt(0).y, 8.0);
    EXPECT_EQ(first->GetVrt(0).z, 9.5);
    EXPECT_EQ(first->GetVrt(2).x, -4.5);
    EXPECT_EQ(first->GetVrt(4).z, 3.0);
    const CCnt* second = external->GetCntAt(1);
    ASSERT_EQ(second->GetNoVrts(), 2);
    EXPECT_EQ(second->GetVrt(0).x, 1e300);
    EXPECT_TRUE(std::signbit(second->GetVrt(0).y));
    EXPECT_EQ(second->GetVrt(0).z, 1.7e200);
    EXPECT_EQ(second->GetVrt(1).x, -4.5);
}

TEST_F(BoundaryTest, ConsumingWithoutApplyingSkipsExactlyTheSection) {
    auto present = MakeCnt({A});
    internal->AddCnt(present.Get());
    ByteBuilder bytes;
    bytes.Int32(3).Int32(3);
    for (const PNT_3D& p : {A, A, A}) Vertex(bytes, p);
    bytes.Int32(0).Int32(4);
    for (const PNT_3D& p : {B, C, B, C}) Vertex(bytes, p);
    const std::size_t sectionSize = bytes.Size();
    EXPECT_EQ(sectionSize, 4u + (4u + 3u * 24u) + 4u + (4u + 4u * 24u));
    bytes.Int32(MARKER);
    Input input(bytes.Str());
    ClearLogs();
    internal->LeggeDaFile(input.stream, false);
    EXPECT_EQ(static_cast<std::size_t>(input.stream.tellg()), sectionSize);
    EXPECT_TRUE(input.AtMarker());
    EXPECT_EQ(internal->GetNoCnts(), 1);
    EXPECT_EQ(internal->GetCntAt(0), present.Get());
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_TRUE(recorder.events[0].cntAdded.empty());
    EXPECT_EQ(listener->log, (Log{"BeginEvent", "EndEvent"}));
}

// --- bad input ---------------------------------------------------------------------------------

TEST_F(BoundaryTest, StreamEndingAnywhereInsideTheSectionChangesNothing) {
    CCnts source(nullptr, false);
    FillVaried(source);
    const std::string whole = Written(source);
    auto present = MakeCnt({A, B});
    external->AddCnt(present.Get());
    for (bool apply : {true, false}) {
        for (std::size_t length = 0; length < whole.size(); ++length) {
            ClearLogs();
            Input input(whole.substr(0, length));
            external->LeggeDaFile(input.stream, apply);
            ASSERT_TRUE(input.stream.fail()) << "length " << length << " apply " << apply;
            ASSERT_EQ(ListOf(*external), Cnts{present.Get()}) << "length " << length;
            ASSERT_TRUE(recorder.events.empty()) << "length " << length;
            ASSERT_TRUE(listener->log.empty()) << "length " << length;
        }
    }
    EXPECT_EQ(present->GetReferenceCount(), 2);
}

TEST_F(BoundaryTest, NegativeBoundaryCountReadsNothingMore) {
    Input input(ByteBuilder().Int32(-3).Int32(MARKER).Str());
    external->LeggeDaFile(input.stream, true);
    EXPECT_TRUE(input.stream.good());
    EXPECT_TRUE(input.AtMarker());
    EXPECT_EQ(external->GetNoCnts(), 0);
    EXPECT_TRUE(recorder.events.at(0).cntAdded.empty());
}

TEST_F(BoundaryTest, NegativeVertexCountReadsNoVertex) {
    for (bool apply : {true, false}) {
        ByteBuilder bytes;
        bytes.Int32(2).Int32(-7).Int32(1);
        Vertex(bytes, C);
        bytes.Int32(MARKER);
        CCnts cnts(prj, true);
        Input input(bytes.Str());
        cnts.LeggeDaFile(input.stream, apply);
        EXPECT_TRUE(input.AtMarker()) << "apply " << apply;
        if (!apply) {
            EXPECT_EQ(cnts.GetNoCnts(), 0);
            continue;
        }
        ASSERT_EQ(cnts.GetNoCnts(), 2);
        EXPECT_EQ(cnts.GetCntAt(0)->GetNoVrts(), 0);
        EXPECT_TRUE(SameBits(cnts.GetCntAt(1)->GetExtendedVrts(), Pts{C}));
    }
}

TEST_F(BoundaryTest, HugeCountsBackedByFewBytesFailWithoutReservingForThem) {
    const std::int32_t huge = std::numeric_limits<std::int32_t>::max();
    ByteBuilder manyBoundaries;
    manyBoundaries.Int32(huge).Int32(1);
    Vertex(manyBoundaries, A);
    ByteBuilder manyVertices;
    manyVertices.Int32(1).Int32(huge);
    Vertex(manyVertices, A);
    for (const ByteBuilder* bytes : {&manyBoundaries, &manyVertices}) {
        for (bool apply : {true, false}) {
            ClearLogs();
            Input input(bytes->Str());
            external->LeggeDaFile(input.stream, apply);
            EXPECT_TRUE(input.stream.fail());
            EXPECT_EQ(external->GetNoCnts(), 0);
            EXPECT_TRUE(recorder.events.empty());
        }
    }
}

}  // namespace
