// The network's file section on networks large enough to span many of the blocks the writer
// and the reader move at once, and through a stream that cannot seek, which the reader must
// read in full before it changes the network: the bytes are those assembled here value by
// value, and both ways of reading give the same network, the same notifications and the same
// failures.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/IEventListener.h>
#include <dtm/support/Events.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/Streams.h>

#include "network/COcTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "ByteBuilder.h"
#include "OcTreeChecker.h"
#include "Probes.h"

namespace {

using dtm_test::ByteBuilder;
using kor::CRefPtr;
using kor::geom::PNT_3D;

constexpr short kVersion = 1502;

CRefPtr<CDtmPrj> NewProject() {
    return CRefPtr<CDtmPrj>::Adopt(new CDtmPrj(nullptr, "Blocks", true, false));
}

// A grid of cells × cells squares (two triangles each) with varied colours and its tree: about
// 115 KB of section for 60 cells, many of the writer's and reader's blocks.
CRefPtr<CDtmPrj> GridProject(int cells) {
    CRefPtr<CDtmPrj> prj = NewProject();
    CTris& tris = *prj->GetTris();
    const dtm_test::RandomNetwork grid = dtm_test::MakeGridNetwork(cells, -300.25, 1e6, 0.75);
    {
        kor::CEventGuard event(prj->GetContext());
        for (const PNT_3D& p : grid.vertices) tris.AddTriVrt(p);
        for (std::size_t i = 0; i < grid.triangles.size(); ++i) {
            const auto& t = grid.triangles[i];
            tris.AddNewTri(i % 3 == 0 ? 256 : static_cast<int>(i % 11), t[0], t[1], t[2]);
        }
    }
    tris.CalcOcTree();
    return prj;
}

void AppendNode(ByteBuilder& bytes, const COcTreeNode& node) {
    bytes.Int32(node.GetCount()).Int32(node.GetFirst());
    bytes.Int8(static_cast<std::int8_t>(node.GetChildMask()))
        .Int8(static_cast<std::int8_t>(node.GetLeafMask()));
    for (int octant = 0; octant < 8; ++octant) {
        if (node.HasLeafChild(octant)) {
            bytes.Int32(node.GetLeaf(octant).count).Int32(node.GetLeaf(octant).first);
        } else if (node.HasNodeChild(octant)) {
            AppendNode(bytes, node.GetNode(octant));
        }
    }
}

// The section of @p tris at @p version, assembled value by value from the network and its tree;
// before version 800 a triangle has no colour and the section no elevation range.
std::string SectionByHand(const CTris& tris, short version = kVersion) {
    const bool withColours = version >= 800;
    ByteBuilder bytes;
    bytes.Int32(tris.GetNoTriVrts()).Int64(0);
    for (const PNT_3D& p : tris.GetPnts()) bytes.Double(p.x).Double(p.y).Double(p.z);
    bytes.Int32(tris.GetNoTris());
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const CTri& t = *tris.GetTriAt(i);
        bytes.Int32(t.GetVerIndex(0)).Int32(t.GetVerIndex(1)).Int32(t.GetVerIndex(2));
        if (withColours) bytes.Int32(t.GetColor());
    }
    if (withColours) bytes.Double(tris.GetMinQuota()).Double(tris.GetMaxQuota());
    const COcTree& tree = COcTree::Of(tris);
    const TOcTreeGeometry& g = tree.GetGeometry();
    for (const double v :
         {g.centreX, g.centreY, g.centreZ, g.side, g.extentX, g.extentY, g.extentZ})
        bytes.Double(v);
    AppendNode(bytes, *tree.GetRoot());
    return bytes.Str();
}

std::string Write(const CTris& tris, short version = kVersion) {
    std::stringbuf buffer;
    ofpstream out(&buffer, version);
    tris.SalvaInFile(out, nullptr);
    return buffer.str();
}

// A stream buffer over bytes that, like a pipe, cannot seek: its position cannot even be asked.
class CForwardOnlyBuffer : public std::streambuf {
public:
    explicit CForwardOnlyBuffer(std::string bytes) : m_bytes(std::move(bytes)) {
        char* begin = m_bytes.empty() ? nullptr : &m_bytes[0];
        setg(begin, begin, begin + m_bytes.size());
    }
    std::size_t Consumed() const { return static_cast<std::size_t>(gptr() - eback()); }

private:
    std::string m_bytes;
};

// Counts what the change context hands its current listener, in order.
class CRecordingListener : public IEventListener {
public:
    explicit CRecordingListener(std::string& log) : m_log(log) {}
    void OnTriVrtAdded() override { m_log += 'v'; }
    void OnTriAdded(CTri*) override { m_log += 't'; }

private:
    std::string& m_log;
};

// What CRecordingListener logs for a network whose every vertex and triangle was announced once,
// vertices first.
std::string EachAnnouncedOnce(const CTris& tris) {
    return std::string(static_cast<std::size_t>(tris.GetNoTriVrts()), 'v') +
           std::string(static_cast<std::size_t>(tris.GetNoTris()), 't');
}

struct TRead {
    bool failed = false;
    std::size_t consumed = 0;
    std::string notifications;
};

// Reads @p bytes into @p prj's network through a seekable or a forward-only stream, with the
// additions heard by a recording listener or, with @p heard false, by none (the quiet listener
// of a project without undo recording).
TRead Read(CDtmPrj& prj, const std::string& bytes, bool seekable, bool heard = true) {
    TRead result;
    if (heard)
        prj.GetContext()->SetUndoListener(
            std::make_unique<CRecordingListener>(result.notifications));
    const kor::CRefObjIdRemapper remapper;
    if (seekable) {
        std::stringbuf buffer(bytes, std::ios::in);
        ifpstream in(&buffer, kVersion);
        prj.GetTris()->LeggeDaFile(in, remapper, true);
        result.failed = in.fail();
        result.consumed =
            static_cast<std::size_t>(buffer.pubseekoff(0, std::ios::cur, std::ios::in));
    } else {
        CForwardOnlyBuffer buffer(bytes);
        ifpstream in(&buffer, kVersion);
        prj.GetTris()->LeggeDaFile(in, remapper, true);
        result.failed = in.fail();
        result.consumed = buffer.Consumed();
    }
    prj.GetContext()->SetUndoListener(nullptr);
    return result;
}

using Record = std::array<double, 7>;

std::vector<Record> Content(const CTris& tris) {
    std::vector<Record> content;
    for (const PNT_3D& p : tris.GetPnts()) content.push_back({p.x, p.y, p.z, 0, 0, 0, 0});
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const CTri& t = *tris.GetTriAt(i);
        content.push_back(
            {1, static_cast<double>(t.GetVerIndex(0)), static_cast<double>(t.GetVerIndex(1)),
             static_cast<double>(t.GetVerIndex(2)), static_cast<double>(t.GetColor()), 0, 0});
    }
    content.push_back({2, tris.GetMinQuota(), tris.GetMaxQuota(), 0, 0, 0, 0});
    return content;
}

TEST(NetworkFileBlocks, SectionSpanningManyBlocksHasTheBytesAssembledValueByValue) {
    const CRefPtr<CDtmPrj> prj = GridProject(60);
    const std::string written = Write(*prj->GetTris());
    ASSERT_GT(written.size(), 100000u);
    EXPECT_EQ(written, SectionByHand(*prj->GetTris()));
}

// The writer's buffer starts at 64 KiB and doubles each time it fills, up to 1 MiB: 260 cells
// give 2.2 MB of triangle records, which fill every size in turn, the largest too.
TEST(NetworkFileBlocks, SectionOutgrowingEveryWriterBufferHasTheBytesAssembledValueByValue) {
    const CRefPtr<CDtmPrj> prj = GridProject(260);
    const std::string written = Write(*prj->GetTris());
    ASSERT_GT(written.size(), 16u * 2 * 260 * 260);
    EXPECT_EQ(written, SectionByHand(*prj->GetTris()));
}

// Before triangle colours a record is 12 bytes, which no buffer size divides: every buffer ends
// with a few bytes no record fits in, and the next record must start the next buffer.
TEST(NetworkFileBlocks, RecordsThatNoBufferSizeDividesHaveTheBytesAssembledValueByValue) {
    const CRefPtr<CDtmPrj> prj = GridProject(260);
    const std::string written = Write(*prj->GetTris(), 799);
    ASSERT_GT(written.size(), 12u * 2 * 260 * 260);
    EXPECT_EQ(written, SectionByHand(*prj->GetTris(), 799));
}

TEST(NetworkFileBlocks, SeekableAndForwardOnlyStreamsReadTheSameNetworkAndNotifications) {
    const CRefPtr<CDtmPrj> source = GridProject(60);
    const std::string bytes = Write(*source->GetTris()) + "NEXT";
    const CRefPtr<CDtmPrj> direct = NewProject();
    const CRefPtr<CDtmPrj> staged = NewProject();
    const TRead fromSeekable = Read(*direct, bytes, true);
    const TRead fromForwardOnly = Read(*staged, bytes, false);
    EXPECT_FALSE(fromSeekable.failed);
    EXPECT_FALSE(fromForwardOnly.failed);
    EXPECT_EQ(fromSeekable.consumed, bytes.size() - 4);
    EXPECT_EQ(fromForwardOnly.consumed, bytes.size() - 4);
    EXPECT_EQ(fromSeekable.notifications, fromForwardOnly.notifications);
    EXPECT_EQ(fromSeekable.notifications, EachAnnouncedOnce(*source->GetTris()));
    EXPECT_EQ(Content(*direct->GetTris()), Content(*source->GetTris()));
    EXPECT_EQ(Content(*staged->GetTris()), Content(*source->GetTris()));
    // Both kept the stored tree: written back, they give the source's bytes.
    EXPECT_EQ(Write(*direct->GetTris()), Write(*source->GetTris()));
    EXPECT_EQ(Write(*staged->GetTris()), Write(*source->GetTris()));
}

// A host reading the lists when the load's event closes finds every triangle the network took
// in, in the array's order, whichever way the section was read (the reader makes room in the
// list for the section's count up front).
TEST(NetworkFileBlocks, HostSeesEveryLoadedTriangleAddedInArrayOrderThroughEitherStream) {
    const CRefPtr<CDtmPrj> source = GridProject(60);
    const std::string bytes = Write(*source->GetTris());
    for (const bool seekable : {true, false}) {
        SCOPED_TRACE(seekable ? "seekable" : "forward-only");
        const CRefPtr<CDtmPrj> prj = NewProject();
        dtm_test::ProjectEventRecorder recorder;
        prj->GetContext()->Register(&recorder);
        EXPECT_FALSE(Read(*prj, bytes, seekable).failed);
        prj->GetContext()->Unregister(&recorder);
        ASSERT_EQ(recorder.events.size(), 1u);
        const CTris& tris = *prj->GetTris();
        ASSERT_EQ(tris.GetNoTris(), source->GetTris()->GetNoTris());
        std::vector<CTri*> inArray;
        for (int i = 0; i < tris.GetNoTris(); ++i) inArray.push_back(tris.GetTriAt(i));
        EXPECT_EQ(recorder.events[0].triAdded, inArray);
    }
}

// After a remove-all earlier in the same event, additions are not listed: a load then leaves the
// list empty, however many triangles it announces.
TEST(NetworkFileBlocks, LoadAfterARemoveAllInTheSameEventListsNoAddedTriangle) {
    const CRefPtr<CDtmPrj> source = GridProject(20);
    const std::string bytes = Write(*source->GetTris());
    for (const bool seekable : {true, false}) {
        SCOPED_TRACE(seekable ? "seekable" : "forward-only");
        const CRefPtr<CDtmPrj> prj = GridProject(3);
        dtm_test::ProjectEventRecorder recorder;
        prj->GetContext()->Register(&recorder);
        {
            kor::CEventGuard event(prj->GetContext());
            prj->GetTris()->RemoveAll();
            EXPECT_FALSE(Read(*prj, bytes, seekable).failed);
        }
        prj->GetContext()->Unregister(&recorder);
        ASSERT_EQ(recorder.events.size(), 1u);
        EXPECT_TRUE(recorder.events[0].triRemovedAll);
        EXPECT_TRUE(recorder.events[0].triAdded.empty());
        EXPECT_EQ(prj->GetTris()->GetNoTris(), source->GetTris()->GetNoTris());
    }
}

// Where the octree block of @p tris's section starts: after n, the cloud identifier, the points,
// m, the triangles with their colours and the elevation range.
std::size_t OcTreeBlockStart(const CTris& tris) {
    return 4 + 8 + static_cast<std::size_t>(tris.GetNoTriVrts()) * 24 + 4 +
           static_cast<std::size_t>(tris.GetNoTris()) * 16 + 16;
}

std::string PrefixRead(bool seekable, std::size_t length) {
    return std::string(seekable ? "seekable" : "forward-only") + ", prefix of " +
           std::to_string(length) + " bytes";
}

TEST(NetworkFileBlocks, ShortSectionsChangeNothingThroughEitherStream) {
    const CRefPtr<CDtmPrj> source = GridProject(12);
    const std::string bytes = Write(*source->GetTris());
    const CTris& whole = *source->GetTris();
    const std::size_t blockStart = OcTreeBlockStart(whole);
    for (const bool seekable : {true, false}) {
        for (std::size_t length = 0; length < blockStart; length += 7) {
            SCOPED_TRACE(PrefixRead(seekable, length));
            const CRefPtr<CDtmPrj> prj = NewProject();
            const TRead read = Read(*prj, bytes.substr(0, length), seekable);
            EXPECT_TRUE(read.failed);
            EXPECT_TRUE(read.notifications.empty());
            EXPECT_EQ(prj->GetTris()->GetNoTriVrts(), 0);
            EXPECT_EQ(prj->GetTris()->GetNoTris(), 0);
            if (::testing::Test::HasFailure()) return;
        }
    }
}

// The octree block has no length of its own, and the reader takes it from the stream many entries
// at a time: a block cut anywhere must still fail the stream with every byte taken (as reading
// entry by entry would leave it), keep the section's points and triangles, and give them a tree
// built anew, which is what a complete section would have brought.
TEST(NetworkFileBlocks, OctreeBlockCutAnywhereFailsAtTheStreamsEndThroughEitherStream) {
    const CRefPtr<CDtmPrj> source = GridProject(16);
    const std::string bytes = Write(*source->GetTris());
    const CTris& whole = *source->GetTris();
    const std::size_t blockStart = OcTreeBlockStart(whole);
    const COcTreeNode* root = COcTree::Of(whole).GetRoot();
    ASSERT_NE(root, nullptr);
    ASSERT_NE(root->GetChildMask() & ~root->GetLeafMask(), 0) << "the tree should have sub-nodes";
    ASSERT_GT(bytes.size(), blockStart + 500) << "the block should hold many entries";
    for (const bool seekable : {true, false}) {
        for (std::size_t length = blockStart; length < bytes.size(); ++length) {
            SCOPED_TRACE(PrefixRead(seekable, length));
            const CRefPtr<CDtmPrj> prj = NewProject();
            const TRead read = Read(*prj, bytes.substr(0, length), seekable);
            EXPECT_TRUE(read.failed);
            EXPECT_EQ(read.consumed, length);
            const CTris& tris = *prj->GetTris();
            EXPECT_EQ(Content(tris), Content(whole));
            EXPECT_NE(COcTree::Of(tris).GetRoot(), nullptr);
            EXPECT_TRUE(dtm_test::OcTreeIsValid(tris));
            if (::testing::Test::HasFailure()) return;
        }
    }
}

TEST(NetworkFileBlocks, NegativeTriangleCountFailsThroughEitherStreamWithNothingRead) {
    ByteBuilder bytes;
    bytes.Int32(2).Int64(0);
    bytes.Double(1).Double(2).Double(3).Double(4).Double(5).Double(6);
    bytes.Int32(-1).Bytes(std::string(64, '\0'));
    for (const bool seekable : {true, false}) {
        const CRefPtr<CDtmPrj> prj = NewProject();
        const TRead read = Read(*prj, bytes.Str(), seekable);
        EXPECT_TRUE(read.failed);
        EXPECT_TRUE(read.notifications.empty());
        EXPECT_EQ(prj->GetTris()->GetNoTriVrts(), 0);
        // Stopped right after the count, as a reader value by value does.
        EXPECT_EQ(read.consumed, 4u + 8u + 48u + 4u);
    }
}

// Points in one of the reader's blocks of 64 KiB.
constexpr std::size_t kBlockPoints = 65536 / 24;

// A seekable stream buffer over @p bytes whose device gives out once it has delivered @p limit
// bytes: the reader has seen that the section is whole and still meets a read that fails part
// way.
class CFailingDeviceBuffer : public std::stringbuf {
public:
    CFailingDeviceBuffer(const std::string& bytes, std::streamsize limit)
        : std::stringbuf(bytes, std::ios::in), m_left(limit) {}

protected:
    std::streamsize xsgetn(char* target, std::streamsize count) override {
        const std::streamsize delivered = std::stringbuf::xsgetn(target, std::min(count, m_left));
        m_left -= delivered;
        return delivered;
    }

private:
    std::streamsize m_left;
};

// Reads @p bytes through a device that fails after @p limit bytes, with the network's additions
// heard by a listener (each one announced) or by none (the quiet listener of a project without
// undo recording).
std::vector<Record> ReadFromFailingDevice(const std::string& bytes, std::streamsize limit,
                                          bool heard, bool& failed) {
    const CRefPtr<CDtmPrj> prj = NewProject();
    std::string log;
    if (heard) prj->GetContext()->SetUndoListener(std::make_unique<CRecordingListener>(log));
    CFailingDeviceBuffer buffer(bytes, limit);
    ifpstream in(&buffer, kVersion);
    prj->GetTris()->LeggeDaFile(in, kor::CRefObjIdRemapper(), true);
    failed = in.fail();
    prj->GetContext()->SetUndoListener(nullptr);
    if (heard) {
        EXPECT_EQ(log, EachAnnouncedOnce(*prj->GetTris()));
    }
    return Content(*prj->GetTris());
}

// The points' coordinates come back bit for bit whichever way the reader takes them in: values
// that arithmetic or a conversion would alter (a NaN with a payload, a negative NaN, negative
// zero, the infinities, the smallest subnormal), over more points than one block holds.
TEST(NetworkFileBlocks, PointsComeBackBitForBitThroughEitherStreamHeardOrNot) {
    const double specials[] = {std::nan("0x5a5a5"),
                               -std::numeric_limits<double>::quiet_NaN(),
                               -0.0,
                               std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(),
                               std::numeric_limits<double>::denorm_min(),
                               -std::numeric_limits<double>::max()};
    const CRefPtr<CDtmPrj> source = NewProject();
    {
        kor::CEventGuard event(source->GetContext());
        for (std::size_t i = 0; i < 2 * kBlockPoints + 17; ++i)
            source->GetTris()->AddTriVrt(
                PNT_3D(1e6 + 0.1 * static_cast<double>(i), specials[i % 7], specials[(i / 7) % 7]));
    }
    const std::vector<PNT_3D>& expected = source->GetTris()->GetPnts();
    const std::string bytes = Write(*source->GetTris());
    for (const bool seekable : {true, false}) {
        for (const bool heard : {true, false}) {
            SCOPED_TRACE(std::string(seekable ? "seekable" : "forward-only") +
                         (heard ? ", heard" : ", unheard"));
            const CRefPtr<CDtmPrj> prj = NewProject();
            EXPECT_FALSE(Read(*prj, bytes, seekable, heard).failed);
            const std::vector<PNT_3D>& read = prj->GetTris()->GetPnts();
            ASSERT_EQ(read.size(), expected.size());
            EXPECT_EQ(std::memcmp(read.data(), expected.data(), read.size() * sizeof(PNT_3D)), 0);
        }
    }
}

// Points that nobody hears being added are appended a block at a time, the others one by one:
// the network must end up the same either way, also when the device fails part way (the points
// and triangles of the blocks read before stay, and the elevation range covers those points).
TEST(NetworkFileBlocks, HeardAndUnheardAdditionsLeaveTheSameNetworkWhereverTheDeviceFails) {
    const CRefPtr<CDtmPrj> source = GridProject(60);
    const std::string bytes = Write(*source->GetTris());
    const std::size_t points =
        12 + 24 * static_cast<std::size_t>(source->GetTris()->GetNoTriVrts());
    const std::size_t never = bytes.size() * 2;
    for (const std::size_t limit :
         {std::size_t{40}, std::size_t{70000}, points - 5, points + 30000,
          OcTreeBlockStart(*source->GetTris()) - 8, bytes.size() - 3, never}) {
        SCOPED_TRACE("device fails after " + std::to_string(limit) + " bytes");
        const auto cut = static_cast<std::streamsize>(limit);
        bool unheardFailed = false;
        bool heardFailed = false;
        const std::vector<Record> unheard = ReadFromFailingDevice(bytes, cut, false, unheardFailed);
        EXPECT_EQ(unheard, ReadFromFailingDevice(bytes, cut, true, heardFailed));
        EXPECT_EQ(unheardFailed, limit != never);
        EXPECT_EQ(heardFailed, limit != never);
        if (limit == never) {
            EXPECT_EQ(unheard, Content(*source->GetTris()));
        } else if (limit == 70000) {
            // Exactly the first block of points came in (their range is compared above).
            EXPECT_EQ(unheard.size(), kBlockPoints + 1);
        }
    }
}

}  // namespace
