// The network's file section: the bytes it writes at each version, the bytes it reads back
// (assembled here by hand, value by value), round trips, the point-cloud link, and what damaged
// sections do to the network and the stream.

#include <dtm/network/CCld.h>
#include <dtm/network/COpzTri.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/project/IEventListener.h>
#include <dtm/support/Events.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/Streams.h>
#include <dtm/support/Tolerances.h>

#include "network/COcTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <ios>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ByteBuilder.h"
#include "CloudNetworkTestSupport.h"
#include "ContextAccess.h"
#include "OcTreeChecker.h"
#include "Probes.h"

namespace {

using dtm_test::ByteBuilder;
using dtm_test::CloudNetworkTest;
using dtm_test::OcTreeIsValid;
using dtm_test::RandomNetwork;
using kor::CRefPtr;
using kor::geom::PNT_3D;

constexpr double kInf = std::numeric_limits<double>::infinity();
const short kVersions[] = {799, 800, 1501, 1502};
// Bytes placed after a section, which no read of the section may take.
const std::string kTrailer = "NEXT";

CRefPtr<CDtmPrj> NewProject(const char* name = "P") {
    return CRefPtr<CDtmPrj>::Adopt(new CDtmPrj(nullptr, name, true, false));
}

const kor::CRefObjIdRemapper& NoObjects() {
    static const kor::CRefObjIdRemapper none;
    return none;
}

std::string WriteSection(const CTris& tris, short version, kor::CPtr64Mapper* mapper = nullptr) {
    std::stringbuf buffer;
    ofpstream out(&buffer, version);
    tris.SalvaInFile(out, mapper);
    EXPECT_TRUE(out.good());
    return buffer.str();
}

struct ReadOutcome {
    bool failed;
    std::size_t consumed;  // bytes taken from the stream
};

ReadOutcome ReadSection(CTris& tris, const std::string& bytes, short version, bool load = true,
                        const kor::CRefObjIdRemapper& remapper = NoObjects()) {
    std::stringbuf buffer(bytes, std::ios::in);
    ifpstream in(&buffer, version);
    tris.LeggeDaFile(in, remapper, load);
    // Asked of the buffer, which answers also when the stream has failed.
    const auto position = buffer.pubseekoff(0, std::ios::cur, std::ios::in);
    return {in.fail(), static_cast<std::size_t>(position)};
}

using Vertex = std::array<double, 3>;
using TriRecord = std::array<int, 4>;  // vertex 0, 1, 2, colour

std::vector<Vertex> VerticesOf(const CTris& tris) {
    std::vector<Vertex> vertices;
    for (const PNT_3D& p : tris.GetPnts()) vertices.push_back({p.x, p.y, p.z});
    return vertices;
}

std::vector<TriRecord> TrianglesOf(const CTris& tris) {
    std::vector<TriRecord> triangles;
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const CTri* t = tris.GetTriAt(i);
        triangles.push_back(
            {t->GetVerIndex(0), t->GetVerIndex(1), t->GetVerIndex(2), t->GetColor()});
    }
    return triangles;
}

bool HasTree(const CTris& tris) {
    return COcTree::Of(tris).HasRoot();
}

// A network exactly as a fresh project's: nothing in it, range reset, no cloud, no tree.
void ExpectUntouchedNetwork(const CTris& tris) {
    EXPECT_EQ(tris.GetNoTriVrts(), 0);
    EXPECT_EQ(tris.GetNoTris(), 0);
    EXPECT_TRUE(tris.GetCldIndexes().empty());
    EXPECT_EQ(tris.GetMinQuota(), kInf);
    EXPECT_EQ(tris.GetMaxQuota(), -kInf);
    EXPECT_FALSE(tris.IsCld());
    EXPECT_FALSE(tris.IsBroken());
    EXPECT_FALSE(HasTree(tris));
}

void AddVertices(CTris& tris, const std::vector<PNT_3D>& points) {
    kor::CEventGuard event(tris.GetContext());
    for (const PNT_3D& p : points) tris.AddTriVrt(p);
}

void AddTriangles(CTris& tris, const std::vector<TriRecord>& triangles) {
    kor::CEventGuard event(tris.GetContext());
    for (const TriRecord& t : triangles) ASSERT_NE(tris.AddNewTri(t[3], t[0], t[1], t[2]), nullptr);
}

// ---- The one-triangle network and its section, by hand -----------------------------------------
// Vertices (0,0,10), (4,0,12), (0,4,11); triangle 0-1-2 of colour 5. Its tree is a lone root
// that keeps the triangle, which straddles all three centre planes of the box centred at
// (2, 2, 11) with extents 4, 4, 2.

const std::vector<PNT_3D> kOneTrianglePoints = {PNT_3D(0, 0, 10), PNT_3D(4, 0, 12),
                                                PNT_3D(0, 4, 11)};

void FillOneTriangle(CTris& tris) {
    AddVertices(tris, kOneTrianglePoints);
    AddTriangles(tris, {{0, 1, 2, 5}});
    tris.CalcOcTree();
}

// The one-triangle section up to (not including) its octree block.
ByteBuilder OneTriangleData(short version, std::int64_t cloudId = 0) {
    ByteBuilder b;
    b.Int32(3);
    if (version >= 1502) b.Int64(cloudId);
    if (cloudId > 0) {
        b.Int32(0).Int32(1).Int32(2);
    } else {
        b.Double(0).Double(0).Double(10);
        b.Double(4).Double(0).Double(12);
        b.Double(0).Double(4).Double(11);
    }
    b.Int32(1);
    b.Int32(0).Int32(1).Int32(2);
    if (version >= 800) b.Int32(5);
    if (version >= 800) b.Double(10).Double(12);
    return b;
}

// The seven doubles of an octree block: centre, side, extents.
ByteBuilder& Geometry(ByteBuilder& b, double cx, double cy, double cz, double side, double ex,
                      double ey, double ez) {
    return b.Double(cx).Double(cy).Double(cz).Double(side).Double(ex).Double(ey).Double(ez);
}

ByteBuilder& NodeHeader(ByteBuilder& b, std::int32_t count, std::int32_t first,
                        std::uint8_t childMask, std::uint8_t leafMask) {
    return b.Int32(count)
        .Int32(first)
        .Int8(static_cast<std::int8_t>(childMask))
        .Int8(static_cast<std::int8_t>(leafMask));
}

ByteBuilder OneTriangleTreeBlock() {
    ByteBuilder b;
    Geometry(b, 2, 2, 11, 4, 4, 4, 2);
    NodeHeader(b, 1, 0, 0, 0);
    return b;
}

// The block that stands for an empty tree.
ByteBuilder EmptyTreeBlock() {
    ByteBuilder b;
    Geometry(b, UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE,
             UNDEFINED_QUOTE, UNDEFINED_QUOTE);
    NodeHeader(b, 0, 0, 0, 0);
    return b;
}

ByteBuilder OneTriangleSection(short version) {
    ByteBuilder b = OneTriangleData(version);
    if (version >= 1502) b.Append(OneTriangleTreeBlock());
    return b;
}

// What the writer gives at @p version for a section whose older layout is @p data: the cloud
// identifier after the count and the tree block at the end go out at every version, though a
// reader takes them only from 1502 on.
std::string AsWritten(const ByteBuilder& data, short version, const ByteBuilder& treeBlock,
                      std::int64_t cloudId = 0) {
    std::string bytes = data.Str();
    if (version < 1502) bytes.insert(4, ByteBuilder().Int64(cloudId).Str());
    return bytes + treeBlock.Str();
}

// ---- The three-triangle section, by hand -------------------------------------------------------
// Four vertices, three triangles with their own colours, a stored range (1, 99) that differs
// from the vertices' own, and a hand-made tree: the root keeps triangle 0; octant 0 is a leaf
// with triangle 1; octant 2 a sub-node whose octant 7 is a leaf with triangle 2. Bit 4 of the
// root's leaf mask is set without a child there, as a tree read from a file may have it.

const std::vector<Vertex> kThreeTriangleVertices = {{0, 0, 10}, {4, 0, 12}, {0, 4, 11}, {4, 4, 13}};
const std::vector<TriRecord> kThreeTriangles = {{0, 1, 2, 5}, {1, 3, 2, 6}, {0, 1, 3, 7}};

ByteBuilder ThreeTriangleData(short version) {
    ByteBuilder b;
    b.Int32(4);
    if (version >= 1502) b.Int64(0);
    for (const Vertex& v : kThreeTriangleVertices) b.Double(v[0]).Double(v[1]).Double(v[2]);
    b.Int32(3);
    for (const TriRecord& t : kThreeTriangles) {
        b.Int32(t[0]).Int32(t[1]).Int32(t[2]);
        if (version >= 800) b.Int32(t[3]);
    }
    if (version >= 800) b.Double(1).Double(99);
    return b;
}

ByteBuilder ThreeTriangleTreeBlock() {
    ByteBuilder b;
    Geometry(b, 2, 2, 11.5, 4, 4, 4, 3);
    NodeHeader(b, 1, 0, 0x05, 0x11);
    b.Int32(1).Int32(1);              // octant 0: leaf
    NodeHeader(b, 0, 2, 0x80, 0x80);  // octant 2: sub-node
    b.Int32(1).Int32(2);              //   its octant 7: leaf
    return b;
}

ByteBuilder ThreeTriangleSection(short version) {
    ByteBuilder b = ThreeTriangleData(version);
    if (version >= 1502) b.Append(ThreeTriangleTreeBlock());
    return b;
}

// A grid network whose triangles carry varied colours, by layer among them, with its tree.
void FillGrid(CTris& tris, int cells) {
    const RandomNetwork grid = dtm_test::MakeGridNetwork(cells, 100.0, 200.0, 2.5);
    AddVertices(tris, grid.vertices);
    std::vector<TriRecord> triangles;
    for (std::size_t i = 0; i < grid.triangles.size(); ++i) {
        const int colour = i % 5 == 0 ? 256 : static_cast<int>(i % 7);
        triangles.push_back(
            {grid.triangles[i][0], grid.triangles[i][1], grid.triangles[i][2], colour});
    }
    AddTriangles(tris, triangles);
    tris.CalcOcTree();
}

// ---- Empty networks ----------------------------------------------------------------------------

TEST(NetworkFileSection, EmptySectionFileSizeIs24) {
    std::stringbuf buffer;
    ifpstream in(&buffer, 1502);
    EXPECT_EQ(CTris::GetEmptySectionFileSize(in), 24);
}

TEST(NetworkFileSection, NetworkWithoutVerticesWritesNothingAtAnyVersion) {
    const auto prj = NewProject();
    for (const short version : kVersions) EXPECT_EQ(WriteSection(*prj->GetTris(), version), "");
}

TEST(NetworkFileSection, ZeroCountConsumesOnlyItsFourBytes) {
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        const auto prj = NewProject();
        const ByteBuilder bytes = ByteBuilder().Int32(0).Bytes(kTrailer);
        const ReadOutcome outcome = ReadSection(*prj->GetTris(), bytes.Str(), version);
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, 4u);
        ExpectUntouchedNetwork(*prj->GetTris());
    }
}

// ---- Writing, against bytes assembled by hand ---------------------------------------------------

TEST(NetworkFileSection, WritesTheOneTriangleNetworkByteForByteAtEachVersion) {
    const auto prj = NewProject();
    FillOneTriangle(*prj->GetTris());
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        EXPECT_EQ(WriteSection(*prj->GetTris(), version),
                  AsWritten(OneTriangleData(version), version, OneTriangleTreeBlock()));
    }
    // From 1502 on that is the layout a reader takes.
    EXPECT_EQ(WriteSection(*prj->GetTris(), 1502), OneTriangleSection(1502).Str());
}

// Below 1502 the writer's identifier is read as the first point's x, and everything after it is
// out of step: such a section does not read back at its version.
TEST(NetworkFileSection, SectionWrittenBelow1502IsNotTheLayoutItsVersionReads) {
    const auto prj = NewProject();
    FillOneTriangle(*prj->GetTris());
    for (const short version : {short{799}, short{800}, short{1501}}) {
        SCOPED_TRACE(version);
        const std::string written = WriteSection(*prj->GetTris(), version);
        EXPECT_NE(written, OneTriangleSection(version).Str());
        const auto target = NewProject();
        const ReadOutcome outcome = ReadSection(*target->GetTris(), written, version);
        EXPECT_TRUE(outcome.failed || outcome.consumed != written.size() ||
                    VerticesOf(*target->GetTris()) != VerticesOf(*prj->GetTris()));
    }
}

TEST(NetworkFileSection, TreeLeftStaleInsideAnEventIsWrittenAsTheEmptyTreeBlock) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    AddVertices(tris, kOneTrianglePoints);
    AddTriangles(tris, {{0, 1, 2, 5}, {2, 1, 0, 6}});
    tris.CalcOcTree();
    kor::CEventGuard event(prj->GetContext());
    tris.RemoveTriAt(1);  // the tree still covers two triangles until the event closes
    const std::string bytes = WriteSection(tris, 1502);
    ASSERT_GE(bytes.size(), EmptyTreeBlock().Size());
    EXPECT_EQ(bytes.substr(bytes.size() - EmptyTreeBlock().Size()), EmptyTreeBlock().Str());
}

// ---- Reading bytes assembled by hand, field by field --------------------------------------------

TEST(NetworkFileSection, ReadsEveryFieldAtEachVersion) {
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        const auto prj = NewProject();
        CTris& tris = *prj->GetTris();
        ByteBuilder bytes = ThreeTriangleSection(version);
        const std::size_t sectionSize = bytes.Size();
        bytes.Bytes(kTrailer);

        const ReadOutcome outcome = ReadSection(tris, bytes.Str(), version);
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, sectionSize);
        EXPECT_EQ(VerticesOf(tris), kThreeTriangleVertices);
        std::vector<TriRecord> expected = kThreeTriangles;
        if (version < 800) {
            // No colours stored: by layer. No range stored: the vertices' own.
            for (TriRecord& t : expected) t[3] = 256;
            EXPECT_EQ(tris.GetMinQuota(), 10.0);
            EXPECT_EQ(tris.GetMaxQuota(), 13.0);
        } else {
            EXPECT_EQ(tris.GetMinQuota(), 1.0);
            EXPECT_EQ(tris.GetMaxQuota(), 99.0);
        }
        EXPECT_EQ(TrianglesOf(tris), expected);
        EXPECT_FALSE(tris.IsCld());
        EXPECT_FALSE(tris.IsBroken());
        EXPECT_EQ(HasTree(tris), version >= 1502);
    }
}

// The version is signed: a negative one is older than every layout change.
TEST(NetworkFileSection, NegativeVersionReadsTheOldestLayout) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    const std::string bytes = ThreeTriangleSection(799).Str();
    const ReadOutcome outcome = ReadSection(tris, bytes + kTrailer, -1);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, bytes.size());
    std::vector<TriRecord> expected = kThreeTriangles;
    for (TriRecord& t : expected) t[3] = 256;
    EXPECT_EQ(TrianglesOf(tris), expected);
    EXPECT_EQ(tris.GetMaxQuota(), 13.0);
    const auto prjWritten = NewProject();
    FillOneTriangle(*prjWritten->GetTris());
    EXPECT_EQ(WriteSection(*prjWritten->GetTris(), -1),
              AsWritten(OneTriangleData(799), -1, OneTriangleTreeBlock()));
}

TEST(NetworkFileSection, ReadsTheOctreeBlockAsStored) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    ASSERT_FALSE(ReadSection(tris, ThreeTriangleSection(1502).Str(), 1502).failed);

    const COcTree& tree = COcTree::Of(tris);
    const TOcTreeGeometry& g = tree.GetGeometry();
    EXPECT_EQ(g.centreX, 2.0);
    EXPECT_EQ(g.centreY, 2.0);
    EXPECT_EQ(g.centreZ, 11.5);
    EXPECT_EQ(g.side, 4.0);
    EXPECT_EQ(g.extentX, 4.0);
    EXPECT_EQ(g.extentY, 4.0);
    EXPECT_EQ(g.extentZ, 3.0);
    ASSERT_NE(tree.GetRoot(), nullptr);
    const COcTreeNode& root = *tree.GetRoot();
    EXPECT_EQ(root.GetCount(), 1);
    EXPECT_EQ(root.GetFirst(), 0);
    EXPECT_EQ(root.GetChildMask(), 0x05);
    EXPECT_EQ(root.GetLeafMask(), 0x11);
    ASSERT_TRUE(root.HasLeafChild(0));
    EXPECT_EQ(root.GetLeaf(0).count, 1);
    EXPECT_EQ(root.GetLeaf(0).first, 1);
    ASSERT_TRUE(root.HasNodeChild(2));
    const COcTreeNode& sub = root.GetNode(2);
    EXPECT_EQ(sub.GetCount(), 0);
    EXPECT_EQ(sub.GetFirst(), 2);
    ASSERT_TRUE(sub.HasLeafChild(7));
    EXPECT_EQ(sub.GetLeaf(7).count, 1);
    EXPECT_EQ(sub.GetLeaf(7).first, 2);
    EXPECT_FALSE(root.HasChild(4));
}

TEST(NetworkFileSection, HandAssembledSectionIsWrittenBackUnchanged) {
    const auto prj = NewProject();
    const std::string bytes = ThreeTriangleSection(1502).Str();
    ASSERT_FALSE(ReadSection(*prj->GetTris(), bytes, 1502).failed);
    EXPECT_EQ(WriteSection(*prj->GetTris(), 1502), bytes);
}

// An older file's section, read at its version and written at 1502, reads back whole there.
TEST(NetworkFileSection, OlderSectionWrittenAt1502ReadsBackThere) {
    for (const short version : {short{799}, short{800}, short{1501}}) {
        SCOPED_TRACE(version);
        const auto older = NewProject();
        ASSERT_FALSE(
            ReadSection(*older->GetTris(), ThreeTriangleSection(version).Str(), version).failed);
        const std::string written = WriteSection(*older->GetTris(), 1502);
        const auto target = NewProject();
        const ReadOutcome outcome = ReadSection(*target->GetTris(), written + kTrailer, 1502);
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, written.size());
        EXPECT_EQ(VerticesOf(*target->GetTris()), kThreeTriangleVertices);
        EXPECT_EQ(TrianglesOf(*target->GetTris()), TrianglesOf(*older->GetTris()));
        EXPECT_EQ(target->GetTris()->GetMinQuota(), older->GetTris()->GetMinQuota());
        EXPECT_EQ(target->GetTris()->GetMaxQuota(), older->GetTris()->GetMaxQuota());
        // The older section had no tree to keep, and the load was the network's first event, so
        // the section went out with the empty tree's block; the read builds the tree.
        EXPECT_TRUE(OcTreeIsValid(*target->GetTris()));
    }
}

TEST(NetworkFileSection, LoadIsOneEventAnnouncingEveryVertexAndTriangle) {
    const auto prj = NewProject();
    auto logger = std::make_unique<dtm_test::LoggingEventListener>();
    const dtm_test::LoggingEventListener& log = *logger;
    prj->GetContext()->SetUndoListener(std::move(logger));
    ASSERT_FALSE(ReadSection(*prj->GetTris(), ThreeTriangleSection(1502).Str(), 1502).failed);
    const auto count = [&log](const char* entry) {
        return std::count(log.log.begin(), log.log.end(), entry);
    };
    EXPECT_EQ(count("BeginEvent"), 1);
    EXPECT_EQ(count("EndEvent"), 1);
    EXPECT_EQ(count("TriVrtAdded"), 4);
    EXPECT_EQ(count("TriAdded"), 3);
}

// ---- Reads that nobody hears triangle by triangle
// ------------------------------------------------ When the event's listener acts on no addition,
// the reader hands the network its triangles a block at a time; when it does, one by one. Both must
// leave the same network and tell the host the same event.

// The section of a grid of 5000 triangles (more than one block of the reader), with records
// that point outside the vertices at the ends of the first two blocks and in between.
std::string GridSectionWithStrayTriangles() {
    const auto source = NewProject();
    FillGrid(*source->GetTris(), 50);
    std::string bytes = WriteSection(*source->GetTris(), 1502);
    const std::size_t points = static_cast<std::size_t>(source->GetTris()->GetNoTriVrts());
    const std::size_t firstRecord = 4 + 8 + points * 24 + 4;
    for (const std::size_t stray : {0, 1234, 4095, 4096, 4999}) {
        const std::int32_t outside = 1 << 30;
        std::memcpy(&bytes[firstRecord + stray * 16 + 4], &outside, sizeof(outside));
    }
    return bytes;
}

struct HeardRead {
    std::vector<TriRecord> network;    // the network's triangles after the read
    std::vector<TriRecord> toldAdded;  // the triangles the host was told of, in their order
    bool toldRemovedAll = false;
    std::size_t events = 0;
};

std::vector<TriRecord> RecordsOf(const std::vector<CTri*>& triangles) {
    std::vector<TriRecord> records;
    for (const CTri* t : triangles)
        records.push_back({t->GetVerIndex(0), t->GetVerIndex(1), t->GetVerIndex(2), t->GetColor()});
    return records;
}

// Reads @p bytes into a network holding one triangle, after a remove-all in the same event when
// @p afterRemoveAll; with a listener that hears each addition when @p heard.
HeardRead ReadGridSection(const std::string& bytes, bool heard, bool afterRemoveAll) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    FillOneTriangle(tris);
    if (heard)
        prj->GetContext()->SetUndoListener(std::make_unique<dtm_test::LoggingEventListener>());
    dtm_test::ProjectEventRecorder recorder;
    prj->GetContext()->Register(&recorder);
    {
        kor::CEventGuard event(prj->GetContext());
        EXPECT_EQ(DtmChangeContextTestAccess{*prj->GetContext()}.AdditionsUnheard(), !heard);
        if (afterRemoveAll) tris.RemoveAll();
        EXPECT_FALSE(ReadSection(tris, bytes, 1502).failed);
    }
    prj->GetContext()->Unregister(&recorder);
    HeardRead read;
    read.network = TrianglesOf(tris);
    read.events = recorder.events.size();
    if (!recorder.events.empty()) {
        read.toldAdded = RecordsOf(recorder.events.front().triAdded);
        read.toldRemovedAll = recorder.events.front().triRemovedAll;
    }
    return read;
}

TEST(NetworkFileSection, ReadNobodyHearsGivesTheNetworkAndTheEventOfAHeardRead) {
    const std::string bytes = GridSectionWithStrayTriangles();
    for (const bool afterRemoveAll : {false, true}) {
        SCOPED_TRACE(afterRemoveAll ? "after a remove-all" : "into a filled network");
        const HeardRead unheard = ReadGridSection(bytes, false, afterRemoveAll);
        const HeardRead heard = ReadGridSection(bytes, true, afterRemoveAll);
        EXPECT_EQ(unheard.events, 1u);
        EXPECT_EQ(heard.events, 1u);
        EXPECT_EQ(unheard.network.size(), afterRemoveAll ? 4995u : 4996u);
        EXPECT_EQ(unheard.network, heard.network);
        EXPECT_EQ(unheard.toldAdded, heard.toldAdded);
        EXPECT_EQ(unheard.toldRemovedAll, afterRemoveAll);
        EXPECT_EQ(heard.toldRemovedAll, afterRemoveAll);
        // After a remove-all no addition is listed; otherwise each kept triangle, in the order
        // of the section.
        EXPECT_EQ(unheard.toldAdded.size(), afterRemoveAll ? 0u : 4995u);
    }
}

// ---- Listener and existing tree -----------------------------------------------------------------

TEST(NetworkFileSection, TreeFromTheBlockSurvivesTheLoadsOwnEvent) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    { kor::CEventGuard armingEvent(prj->GetContext()); }
    ASSERT_TRUE(CTrisTestAccess::Listener(tris).IsArmed());

    ASSERT_FALSE(ReadSection(tris, ThreeTriangleSection(1502).Str(), 1502).failed);
    // A rebuilt tree would keep no leaf at octant 0 of the root with this layout.
    ASSERT_TRUE(HasTree(tris));
    EXPECT_EQ(COcTree::Of(tris).GetRoot()->GetChildMask(), 0x05);
    EXPECT_EQ(COcTree::Of(tris).GetRoot()->GetLeafMask(), 0x11);
    EXPECT_TRUE(CTrisTestAccess::Listener(tris).IsArmed());
}

TEST(NetworkFileSection, BeforeVersion1502TheArmedListenerBuildsTheTree) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    { kor::CEventGuard armingEvent(prj->GetContext()); }
    ASSERT_FALSE(ReadSection(tris, ThreeTriangleSection(1501).Str(), 1501).failed);
    EXPECT_TRUE(HasTree(tris));
    EXPECT_TRUE(OcTreeIsValid(tris));
}

TEST(NetworkFileSection, ExistingTreeLeavesTheBlockUnreadAndTheStreamAtItsStart) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    FillOneTriangle(tris);
    const COcTreeNode* rootBefore = COcTree::Of(tris).GetRoot();
    ASSERT_NE(rootBefore, nullptr);

    const ReadOutcome outcome = ReadSection(tris, ThreeTriangleSection(1502).Str(), 1502);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, ThreeTriangleData(1502).Size());
    EXPECT_EQ(COcTree::Of(tris).GetRoot(), rootBefore);
    EXPECT_EQ(tris.GetNoTris(), 4);
}

// ---- Load false ---------------------------------------------------------------------------------

// The listener is armed, and the load at version 1502 disarms it: only the read itself can
// replace the two stale bytes of selection with one clear byte for the three triangles.
TEST(NetworkFileSection, LoadStartsAClearSelectionSizedForTheTrianglesRead) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    { kor::CEventGuard arming(prj->GetContext()); }
    tris.SelTri(3, false);
    tris.SelTri(9, false);
    ASSERT_EQ(CTrisTestAccess::Selection(tris), (std::vector<std::uint8_t>{0x08, 0x02}));
    ASSERT_FALSE(ReadSection(tris, ThreeTriangleSection(1502).Str(), 1502).failed);
    ASSERT_EQ(tris.GetNoTris(), 3);
    EXPECT_EQ(CTrisTestAccess::Selection(tris), (std::vector<std::uint8_t>{0x00}));
    EXPECT_FALSE(tris.IsSelTri(3));
}

TEST(NetworkFileSection, LoadFalseKeepsVerticesAndTrianglesButTakesTheStoredRange) {
    for (const short version : {short{800}, short{1501}, short{1502}}) {
        SCOPED_TRACE(version);
        const auto prj = NewProject();
        CTris& tris = *prj->GetTris();
        {
            // One first event: it only arms the listener, so the network has no tree and the
            // block is read (and skipped) too.
            kor::CEventGuard event(prj->GetContext());
            AddVertices(tris, kOneTrianglePoints);
            AddTriangles(tris, {{0, 1, 2, 5}});
        }
        ASSERT_FALSE(HasTree(tris));
        const std::vector<Vertex> vertices = VerticesOf(tris);
        const std::vector<TriRecord> triangles = TrianglesOf(tris);

        const ReadOutcome outcome =
            ReadSection(tris, ThreeTriangleSection(version).Str(), version, false);
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, ThreeTriangleSection(version).Size());
        EXPECT_EQ(VerticesOf(tris), vertices);
        EXPECT_EQ(TrianglesOf(tris), triangles);
        EXPECT_EQ(tris.GetMinQuota(), 1.0);
        EXPECT_EQ(tris.GetMaxQuota(), 99.0);
        EXPECT_FALSE(HasTree(tris));
    }
}

TEST(NetworkFileSection, LoadFalseAtVersion799RecomputesTheRangeFromTheNetworksVertices) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    AddVertices(tris, {PNT_3D(0, 0, 5), PNT_3D(1, 0, 7), PNT_3D(0, 1, 500)});
    tris.RemoveTriVrt(2);  // the range keeps 500 until it is recomputed
    ASSERT_EQ(tris.GetMaxQuota(), 500.0);
    ASSERT_FALSE(ReadSection(tris, ThreeTriangleSection(799).Str(), 799, false).failed);
    EXPECT_EQ(tris.GetNoTriVrts(), 2);
    EXPECT_EQ(tris.GetMinQuota(), 5.0);
    EXPECT_EQ(tris.GetMaxQuota(), 7.0);
}

TEST(NetworkFileSection, LoadFalseConsumesExactlyWhatLoadTrueConsumes) {
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        const std::string bytes = ThreeTriangleSection(version).Bytes(kTrailer).Str();
        const auto loaded = NewProject();
        const auto skipped = NewProject();
        const ReadOutcome load = ReadSection(*loaded->GetTris(), bytes, version, true);
        const ReadOutcome skip = ReadSection(*skipped->GetTris(), bytes, version, false);
        EXPECT_FALSE(skip.failed);
        EXPECT_EQ(skip.consumed, load.consumed);
        EXPECT_EQ(skipped->GetTris()->GetNoTriVrts(), 0);
        EXPECT_EQ(skipped->GetTris()->GetNoTris(), 0);
    }
}

// ---- Round trips --------------------------------------------------------------------------------

TEST(NetworkFileSection, RoundTripGivesIdenticalBytesFromVersion1502) {
    const auto source = NewProject();
    FillGrid(*source->GetTris(), 12);
    ASSERT_TRUE(HasTree(*source->GetTris()));
    for (const short version : {short{1502}, short{2000}}) {
        SCOPED_TRACE(version);
        const std::string written = WriteSection(*source->GetTris(), version);
        const auto target = NewProject();
        const ReadOutcome outcome = ReadSection(*target->GetTris(), written, version);
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, written.size());
        EXPECT_EQ(VerticesOf(*target->GetTris()), VerticesOf(*source->GetTris()));
        EXPECT_EQ(TrianglesOf(*target->GetTris()), TrianglesOf(*source->GetTris()));
        EXPECT_EQ(WriteSection(*target->GetTris(), version), written);
    }
}

TEST(NetworkFileSection, TreeReadBackFromFileObeysTheOctreeRules) {
    const auto source = NewProject();
    const RandomNetwork network =
        dtm_test::MakeSmallTriangles(20240611u, 4000, 0.0, 0.0, 500.0, 2.0, 40.0);
    dtm_test::TestProject filled;
    filled.Fill(network.vertices, network.triangles);
    filled.Tris().CalcOcTree();
    ASSERT_TRUE(OcTreeIsValid(filled.Tris()));

    const std::string written = WriteSection(filled.Tris(), 1502);
    const auto target = NewProject();
    ASSERT_FALSE(ReadSection(*target->GetTris(), written, 1502).failed);
    ASSERT_TRUE(HasTree(*target->GetTris()));
    EXPECT_TRUE(OcTreeIsValid(*target->GetTris()));
    EXPECT_EQ(WriteSection(*target->GetTris(), 1502), written);
}

// A network with vertices but no triangles has no tree. From version 1502 its section still ends
// with a block, the one that stands for an empty tree, so that it reads back whole and leaves the
// stream at the next section; below 1502 nothing follows the range.
TEST(NetworkFileSection, VerticesWithoutTrianglesAreWrittenAtEachVersionAndReadBackFrom1502) {
    const std::vector<PNT_3D> points = {PNT_3D(1, 2, 3), PNT_3D(4, 5, 6)};
    const auto source = NewProject();
    AddVertices(*source->GetTris(), points);
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        const std::string written = WriteSection(*source->GetTris(), version);

        ByteBuilder expected;
        expected.Int32(2).Int64(0);
        expected.Double(1).Double(2).Double(3).Double(4).Double(5).Double(6);
        expected.Int32(0);
        if (version >= 800) expected.Double(3).Double(6);
        if (version >= 1502) expected.Append(EmptyTreeBlock());
        EXPECT_EQ(written, expected.Str());
        if (version < 1502) continue;

        const auto target = NewProject();
        const ReadOutcome outcome = ReadSection(*target->GetTris(), written + kTrailer, version);
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, written.size());
        EXPECT_EQ(VerticesOf(*target->GetTris()), VerticesOf(*source->GetTris()));
        EXPECT_EQ(target->GetTris()->GetNoTris(), 0);
        EXPECT_EQ(target->GetTris()->GetMinQuota(), 3.0);
        EXPECT_EQ(target->GetTris()->GetMaxQuota(), 6.0);
        EXPECT_FALSE(HasTree(*target->GetTris()));
        EXPECT_EQ(WriteSection(*target->GetTris(), version), written);
    }
}

TEST(NetworkFileSection, EmptyTreeBlockOverTrianglesGetsTheTreeRebuilt) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    const std::string bytes = OneTriangleData(1502).Append(EmptyTreeBlock()).Str();
    const ReadOutcome outcome = ReadSection(tris, bytes, 1502);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, bytes.size());
    EXPECT_TRUE(HasTree(tris));
    EXPECT_TRUE(OcTreeIsValid(tris));
}

// ---- Triangles outside the vertices -------------------------------------------------------------

TEST(NetworkFileSection, TrianglesOutsideTheVerticesAreDroppedSilently) {
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        ByteBuilder bytes;
        bytes.Int32(3);
        if (version >= 1502) bytes.Int64(0);
        for (const PNT_3D& p : kOneTrianglePoints) bytes.Double(p.x).Double(p.y).Double(p.z);
        const std::vector<TriRecord> stored = {
            {0, 1, 2, 1}, {0, 1, 3, 2}, {-1, 0, 1, 3}, {2, 1, 0, 4}, {0, 99999, 1, 5}};
        bytes.Int32(static_cast<std::int32_t>(stored.size()));
        for (const TriRecord& t : stored) {
            bytes.Int32(t[0]).Int32(t[1]).Int32(t[2]);
            if (version >= 800) bytes.Int32(t[3]);
        }
        if (version >= 800) bytes.Double(10).Double(12);
        if (version >= 1502) {
            // A tree over the five stored triangles: it cannot describe the two kept.
            Geometry(bytes, 2, 2, 11, 4, 4, 4, 2);
            NodeHeader(bytes, 5, 0, 0, 0);
        }

        const auto prj = NewProject();
        CTris& tris = *prj->GetTris();
        const ReadOutcome outcome = ReadSection(tris, bytes.Str(), version);
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, bytes.Size());
        ASSERT_EQ(tris.GetNoTris(), 2);
        std::vector<TriRecord> kept = TrianglesOf(tris);
        std::sort(kept.begin(), kept.end());  // a rebuilt tree may reorder them
        const int c0 = version >= 800 ? 1 : 256;
        const int c3 = version >= 800 ? 4 : 256;
        EXPECT_EQ(kept, (std::vector<TriRecord>{{0, 1, 2, c0}, {2, 1, 0, c3}}));
        if (version >= 1502) {
            EXPECT_TRUE(OcTreeIsValid(tris));
        }
    }
}

// ---- Point cloud --------------------------------------------------------------------------------

class CloudSectionTest : public CloudNetworkTest {
protected:
    static constexpr std::int32_t kCloudId = 7;

    CloudSectionTest() {
        for (const PNT_3D& p : kOneTrianglePoints) cloud->AddPnt(p);
    }

    // The one-triangle network on the cloud, with its tree.
    void FillCloudNetwork() {
        {
            kor::CEventGuard event(prj->GetContext());
            BindCloudAndAddEveryPoint();
        }
        AddTriangles(tris, {{0, 1, 2, 5}});
        tris.CalcOcTree();
    }

    std::string CloudSection() const {
        return OneTriangleData(1502, kCloudId).Append(OneTriangleTreeBlock()).Str();
    }

    kor::CRefObjIdRemapper RemapperWithCloud() const {
        kor::CRefObjIdRemapper remapper;
        remapper.AddId(kCloudId, cloud.Get());
        return remapper;
    }
};

TEST_F(CloudSectionTest, CloudBoundNetworkWritesItsIndicesUnderTheMappedIdentifier) {
    FillCloudNetwork();
    kor::CPtr64Mapper mapper;
    mapper.SetId(cloud.Get(), kCloudId);
    EXPECT_EQ(WriteSection(tris, 1502, &mapper), CloudSection());
}

TEST_F(CloudSectionTest, CloudBoundNetworkWithoutMapperThrowsAndWritesNothing) {
    FillCloudNetwork();
    std::stringbuf buffer;
    ofpstream out(&buffer, 1502);
    EXPECT_THROW(tris.SalvaInFile(out, nullptr), std::invalid_argument);
    EXPECT_EQ(buffer.str(), "");
}

TEST_F(CloudSectionTest, CloudBoundNetworkIsWrittenAsItsIndicesAtEachVersion) {
    FillCloudNetwork();
    kor::CPtr64Mapper mapper;
    mapper.SetId(cloud.Get(), kCloudId);
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        EXPECT_EQ(WriteSection(tris, version, &mapper),
                  AsWritten(OneTriangleData(version, kCloudId), version, OneTriangleTreeBlock(),
                            kCloudId));
    }
}

TEST_F(CloudSectionTest, FoundCloudIsBoundAndServesThePoints) {
    const auto target = NewProject("Rilievo");
    CTris& read = *target->GetTris();
    const int referencesBefore = cloud->GetReferenceCount();
    const ReadOutcome outcome = ReadSection(read, CloudSection(), 1502, true, RemapperWithCloud());
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, CloudSection().size());
    EXPECT_EQ(read.GetCld(), cloud.Get());
    EXPECT_EQ(cloud->GetReferenceCount(), referencesBefore + 1);
    EXPECT_FALSE(read.IsBroken());
    EXPECT_EQ(read.GetCldIndexes(), (std::vector<std::int32_t>{0, 1, 2}));
    EXPECT_EQ(VerticesOf(read), (std::vector<Vertex>{{0, 0, 10}, {4, 0, 12}, {0, 4, 11}}));
    EXPECT_EQ(TrianglesOf(read), (std::vector<TriRecord>{{0, 1, 2, 5}}));
    EXPECT_TRUE(HasTree(read));
    EXPECT_TRUE(messages.shown.empty());

    kor::CPtr64Mapper mapper;
    mapper.SetId(cloud.Get(), kCloudId);
    EXPECT_EQ(WriteSection(read, 1502, &mapper), CloudSection());
}

TEST_F(CloudSectionTest, MissingCloudBreaksTheNetworkSilentlyAndTheSectionIsStillConsumed) {
    const auto target = NewProject("Rilievo");
    CTris& read = *target->GetTris();
    const std::string bytes = CloudSection() + kTrailer;
    const ReadOutcome outcome = ReadSection(read, bytes, 1502, true, NoObjects());
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, CloudSection().size());
    EXPECT_TRUE(read.IsBroken());
    EXPECT_FALSE(read.IsCld());
    EXPECT_EQ(read.GetNoTriVrts(), 0);
    EXPECT_EQ(read.GetNoTris(), 0);
    EXPECT_TRUE(read.GetCldIndexes().empty());
    EXPECT_EQ(read.GetMinQuota(), 10.0);
    EXPECT_EQ(read.GetMaxQuota(), 12.0);
    EXPECT_FALSE(HasTree(read));
    EXPECT_TRUE(messages.shown.empty());
}

TEST_F(CloudSectionTest, TooSmallCloudBreaksTheNetworkAndWarnsOnce) {
    cloud->missing = 1;
    const auto target = NewProject("Rilievo");
    CTris& read = *target->GetTris();
    const ReadOutcome outcome = ReadSection(read, CloudSection(), 1502, true, RemapperWithCloud());
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, CloudSection().size());
    EXPECT_TRUE(read.IsBroken());
    EXPECT_EQ(read.GetCld(), cloud.Get());
    EXPECT_EQ(read.GetNoTriVrts(), 0);
    EXPECT_EQ(read.GetNoTris(), 0);
    EXPECT_TRUE(read.GetCldIndexes().empty());
    EXPECT_FALSE(HasTree(read));
    ASSERT_EQ(messages.shown.size(), 1u);
    EXPECT_NE(messages.shown[0].text.find("Rilievo"), std::string::npos);
    EXPECT_EQ(messages.shown[0].caption, "Triangolazione su nuvola di punti");
    read.CheckBroken();
    EXPECT_EQ(messages.shown.size(), 1u);
}

TEST_F(CloudSectionTest, CloudWithExactlyEnoughPointsIsNotBroken) {
    cloud->AddPnt(PNT_3D(9, 9, 9));
    cloud->missing = 1;  // three points, as many as the section names
    const auto target = NewProject("Rilievo");
    ASSERT_FALSE(
        ReadSection(*target->GetTris(), CloudSection(), 1502, true, RemapperWithCloud()).failed);
    EXPECT_FALSE(target->GetTris()->IsBroken());
    EXPECT_EQ(target->GetTris()->GetNoTriVrts(), 3);
    EXPECT_TRUE(messages.shown.empty());
}

TEST_F(CloudSectionTest, UnusableCloudVersionBreaksTheNetworkAndWarns) {
    cloud->SetVersionValid(false);
    const auto target = NewProject("Rilievo");
    ASSERT_FALSE(
        ReadSection(*target->GetTris(), CloudSection(), 1502, true, RemapperWithCloud()).failed);
    EXPECT_TRUE(target->GetTris()->IsBroken());
    EXPECT_EQ(messages.shown.size(), 1u);
}

TEST_F(CloudSectionTest, IndexTheCloudDoesNotHoldBreaksTheNetworkWithoutFetchingIt) {
    // The cloud holds three points (0 .. 2): one past its last point is as far out as 40.
    for (const std::int32_t outside : {40, 3, -1}) {
        SCOPED_TRACE(outside);
        ByteBuilder bytes;
        bytes.Int32(3).Int64(kCloudId).Int32(0).Int32(1).Int32(outside);
        bytes.Int32(1).Int32(0).Int32(1).Int32(2).Int32(5).Double(10).Double(12);
        bytes.Append(OneTriangleTreeBlock());
        const auto target = NewProject("Rilievo");
        CTris& read = *target->GetTris();
        const ReadOutcome outcome = ReadSection(read, bytes.Str(), 1502, true, RemapperWithCloud());
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, bytes.Size());
        EXPECT_TRUE(read.IsBroken());
        EXPECT_EQ(read.GetNoTriVrts(), 0);
        EXPECT_TRUE(read.GetCldIndexes().empty());
    }
}

TEST_F(CloudSectionTest, ReadingIntoANetworkAlreadyHoldingTheCloudTakesNoSecondReference) {
    const auto target = NewProject("Rilievo");
    CTris& read = *target->GetTris();
    read.SetCld(cloud.Get());
    const int referencesBefore = cloud->GetReferenceCount();
    ASSERT_FALSE(ReadSection(read, CloudSection(), 1502, true, RemapperWithCloud()).failed);
    EXPECT_EQ(cloud->GetReferenceCount(), referencesBefore);
    EXPECT_EQ(read.GetNoTriVrts(), 3);
}

TEST_F(CloudSectionTest, CloudNamedBySectionReplacesAnotherHeldCloudAndItsReference) {
    const auto other = CRefPtr<CMemCld>::Adopt(new CMemCld);
    const auto target = NewProject("Rilievo");
    CTris& read = *target->GetTris();
    read.SetCld(other.Get());
    ASSERT_EQ(other->GetReferenceCount(), 2);
    ASSERT_FALSE(ReadSection(read, CloudSection(), 1502, true, RemapperWithCloud()).failed);
    EXPECT_EQ(read.GetCld(), cloud.Get());
    EXPECT_EQ(other->GetReferenceCount(), 1);
    EXPECT_EQ(read.GetNoTriVrts(), 3);
}

TEST_F(CloudSectionTest, LoadFalseNeitherBindsACloudNorBreaksTheNetwork) {
    const auto target = NewProject("Rilievo");
    CTris& read = *target->GetTris();
    const kor::CRefObjIdRemapper withCloud = RemapperWithCloud();
    for (const kor::CRefObjIdRemapper* remapper : {&NoObjects(), &withCloud}) {
        const ReadOutcome outcome = ReadSection(read, CloudSection(), 1502, false, *remapper);
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.consumed, CloudSection().size());
        EXPECT_FALSE(read.IsBroken());
        EXPECT_FALSE(read.IsCld());
        EXPECT_EQ(read.GetNoTriVrts(), 0);
    }
    EXPECT_TRUE(messages.shown.empty());
}

// A project that has seen an event, as a host's always has: its network's listener is armed.
// From version 1502 the load disarms it, so whatever colours, normals and selection the loaded
// network shows come from the read itself.
TEST_F(CloudSectionTest, LoadComputesColoursNormalsAndAClearSelectionItself) {
    const auto target = NewProject("Rilievo");
    CTris& read = *target->GetTris();
    { kor::CEventGuard arming(target->GetContext()); }
    read.GetOptions().SetColorType(COpzTri::TRI_COLOR_FIXED);
    read.GetOptions().SetFixedColor(5);
    read.SelTri(3, false);  // a stale bit, which the load must not keep
    ASSERT_EQ(CTrisTestAccess::Selection(read), (std::vector<std::uint8_t>{0x08}));

    ASSERT_FALSE(ReadSection(read, CloudSection(), 1502, true, RemapperWithCloud()).failed);
    ASSERT_FALSE(read.IsBroken());
    ASSERT_EQ(read.GetNoTriVrts(), 3);

    // Fixed colour 5 of the CAD palette is pure blue, for every vertex.
    const TTriColor* colours = read.GetColors();
    ASSERT_NE(colours, nullptr);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(colours[i].r, 0.0f) << "vertex " << i;
        EXPECT_EQ(colours[i].g, 0.0f) << "vertex " << i;
        EXPECT_EQ(colours[i].b, 1.0f) << "vertex " << i;
    }

    // The one triangle (0,0,10), (4,0,12), (0,4,11): minus (4,0,2) x (0,4,1) is (8, 4, -16),
    // and each of its vertices has that direction scaled to length 1.
    const double length = std::sqrt(8.0 * 8.0 + 4.0 * 4.0 + 16.0 * 16.0);
    const TTriNormal* normals = read.GetNormals();
    ASSERT_NE(normals, nullptr);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(normals[i].x, 8.0 / length, 1e-6) << "vertex " << i;
        EXPECT_NEAR(normals[i].y, 4.0 / length, 1e-6) << "vertex " << i;
        EXPECT_NEAR(normals[i].z, -16.0 / length, 1e-6) << "vertex " << i;
    }

    // One triangle: floor(1 / 8) + 1 = 1 byte of selection, all clear.
    EXPECT_EQ(CTrisTestAccess::Selection(read), (std::vector<std::uint8_t>{0x00}));
    EXPECT_FALSE(read.IsSelTri(0));
    EXPECT_FALSE(read.IsSelTri(3));
}

TEST_F(CloudSectionTest, LoadOfAMissingCloudFreesTheSelectionAndKeepsNone) {
    const auto target = NewProject("Rilievo");
    CTris& read = *target->GetTris();
    { kor::CEventGuard arming(target->GetContext()); }
    read.SelTri(3, false);
    ASSERT_FALSE(CTrisTestAccess::Selection(read).empty());

    ASSERT_FALSE(ReadSection(read, CloudSection(), 1502, true, NoObjects()).failed);
    ASSERT_TRUE(read.IsBroken());
    EXPECT_TRUE(CTrisTestAccess::Selection(read).empty());
    EXPECT_EQ(read.GetColors(), nullptr);
    EXPECT_EQ(read.GetNormals(), nullptr);
}

// ---- Damaged sections ---------------------------------------------------------------------------

// Reads every proper prefix of @p bytes into a fresh network. A prefix that ends before the
// octree block, which starts at @p blockStart, must leave the network untouched; one that ends
// inside the block keeps the section's vertices and triangles with a rebuilt tree. The stream
// is failed either way.
void ExpectEveryTruncationIsHarmless(const std::string& bytes, std::size_t blockStart,
                                     short version,
                                     const kor::CRefObjIdRemapper& remapper = NoObjects()) {
    const auto whole = NewProject("Rilievo");
    ASSERT_FALSE(ReadSection(*whole->GetTris(), bytes, version, true, remapper).failed);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        SCOPED_TRACE("prefix of " + std::to_string(length) + " bytes");
        const auto prj = NewProject("Rilievo");
        CTris& tris = *prj->GetTris();
        const ReadOutcome outcome =
            ReadSection(tris, bytes.substr(0, length), version, true, remapper);
        EXPECT_TRUE(outcome.failed);
        if (length < blockStart) {
            ExpectUntouchedNetwork(tris);
        } else {
            EXPECT_EQ(VerticesOf(tris), VerticesOf(*whole->GetTris()));
            std::vector<TriRecord> read = TrianglesOf(tris);
            std::vector<TriRecord> expected = TrianglesOf(*whole->GetTris());
            std::sort(read.begin(), read.end());
            std::sort(expected.begin(), expected.end());
            EXPECT_EQ(read, expected);
            EXPECT_TRUE(OcTreeIsValid(tris));
        }
        if (::testing::Test::HasFailure()) return;
    }
}

TEST(NetworkFileSection, TruncationAtEveryByteIsHarmlessAtEachVersion) {
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        const ByteBuilder data = ThreeTriangleData(version);
        ExpectEveryTruncationIsHarmless(ThreeTriangleSection(version).Str(), data.Size(), version);
    }
}

TEST(NetworkFileSection, TruncationOfAGridSectionWithSubNodesIsHarmless) {
    const auto source = NewProject();
    FillGrid(*source->GetTris(), 6);
    const COcTreeNode* root = COcTree::Of(*source->GetTris()).GetRoot();
    ASSERT_NE(root, nullptr);
    ASSERT_NE(root->GetChildMask() & ~root->GetLeafMask(), 0) << "the tree should have sub-nodes";
    // n, cloud identifier, 49 points, m, 72 triangles with colours, range.
    const std::size_t blockStart = 4 + 8 + 49 * 24 + 4 + 72 * 16 + 16;
    ExpectEveryTruncationIsHarmless(WriteSection(*source->GetTris(), 1502), blockStart, 1502);
}

TEST_F(CloudSectionTest, TruncationOfACloudSectionAtEveryByteIsHarmless) {
    const std::size_t blockStart = OneTriangleData(1502, kCloudId).Size();
    ExpectEveryTruncationIsHarmless(CloudSection(), blockStart, 1502, RemapperWithCloud());
    EXPECT_TRUE(messages.shown.empty());
}

TEST(NetworkFileSection, NegativeCountsFailTheStreamAndLeaveTheNetworkUntouched) {
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        {
            const auto prj = NewProject();
            const ReadOutcome outcome = ReadSection(
                *prj->GetTris(), ByteBuilder().Int32(-1).Bytes(kTrailer).Str(), version);
            EXPECT_TRUE(outcome.failed);
            ExpectUntouchedNetwork(*prj->GetTris());
        }
        {
            ByteBuilder bytes;
            bytes.Int32(1);
            if (version >= 1502) bytes.Int64(0);
            bytes.Double(1).Double(2).Double(3).Int32(-5).Bytes(kTrailer);
            const auto prj = NewProject();
            EXPECT_TRUE(ReadSection(*prj->GetTris(), bytes.Str(), version).failed);
            ExpectUntouchedNetwork(*prj->GetTris());
        }
    }
}

TEST(NetworkFileSection, HugeCountsOverAShortStreamFailWithoutReservingForThem) {
    for (const short version : kVersions) {
        SCOPED_TRACE(version);
        const std::int32_t huge = std::numeric_limits<std::int32_t>::max();
        {
            const auto prj = NewProject();
            const std::string bytes = ByteBuilder().Int32(huge).Bytes(std::string(40, '\1')).Str();
            EXPECT_TRUE(ReadSection(*prj->GetTris(), bytes, version).failed);
            ExpectUntouchedNetwork(*prj->GetTris());
        }
        {
            ByteBuilder bytes;
            bytes.Int32(1);
            if (version >= 1502) bytes.Int64(0);
            bytes.Double(1).Double(2).Double(3).Int32(huge).Int32(0).Int32(0);
            const auto prj = NewProject();
            EXPECT_TRUE(ReadSection(*prj->GetTris(), bytes.Str(), version).failed);
            ExpectUntouchedNetwork(*prj->GetTris());
        }
    }
}

// A block that cannot describe the one triangle read before it: the stream fails, the vertices
// and the triangle stay, and the tree is rebuilt.
void ExpectCorruptBlockRebuildsTheTree(const ByteBuilder& block) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    const std::string bytes = OneTriangleData(1502).Append(block).Str();
    EXPECT_TRUE(ReadSection(tris, bytes, 1502).failed);
    EXPECT_EQ(tris.GetNoTriVrts(), 3);
    EXPECT_EQ(TrianglesOf(tris), (std::vector<TriRecord>{{0, 1, 2, 5}}));
    EXPECT_TRUE(HasTree(tris));
    EXPECT_TRUE(OcTreeIsValid(tris));

    // With load false the same block is consumed and judged alike, and the tree left alone.
    const auto skipped = NewProject();
    EXPECT_TRUE(ReadSection(*skipped->GetTris(), bytes, 1502, false).failed);
    EXPECT_FALSE(HasTree(*skipped->GetTris()));
}

ByteBuilder BlockWithRoot(std::int32_t count, std::int32_t first, std::uint8_t childMask,
                          std::uint8_t leafMask) {
    ByteBuilder b;
    Geometry(b, 2, 2, 11, 4, 4, 4, 2);
    NodeHeader(b, count, first, childMask, leafMask);
    return b;
}

TEST(NetworkFileSection, BlockRunningPastTheTrianglesIsRejected) {
    ExpectCorruptBlockRebuildsTheTree(BlockWithRoot(2, 0, 0, 0));
}

TEST(NetworkFileSection, BlockWithANegativeRunIsRejected) {
    ExpectCorruptBlockRebuildsTheTree(BlockWithRoot(1, -1, 0, 0));
    ExpectCorruptBlockRebuildsTheTree(BlockWithRoot(-1, 0, 0x01, 0x01).Int32(2).Int32(0));
}

TEST(NetworkFileSection, BlockWithARunOverflowingThirtyTwoBitsIsRejected) {
    const std::int32_t huge = std::numeric_limits<std::int32_t>::max();
    ExpectCorruptBlockRebuildsTheTree(BlockWithRoot(0, 0, 0x01, 0x01).Int32(huge).Int32(huge));
}

TEST(NetworkFileSection, BlockWithAnEmptyRunOutsideTheArrayIsRejected) {
    // Found by fuzzing: the leaf covers the one triangle, but the root's own empty run names a
    // position far past the array (or before it), which no built tree does.
    ExpectCorruptBlockRebuildsTheTree(BlockWithRoot(0, 6094848, 0x01, 0x01).Int32(1).Int32(0));
    ExpectCorruptBlockRebuildsTheTree(BlockWithRoot(0, -3, 0x01, 0x01).Int32(1).Int32(0));
    ExpectCorruptBlockRebuildsTheTree(BlockWithRoot(1, 0, 0x01, 0x01).Int32(0).Int32(2));
}

TEST(NetworkFileSection, BlockWithAnEmptyRunJustPastTheArrayIsAccepted) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    const std::string bytes =
        OneTriangleData(1502).Append(BlockWithRoot(0, 1, 0x01, 0x01).Int32(1).Int32(0)).Str();
    const ReadOutcome outcome = ReadSection(tris, bytes, 1502);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, bytes.size());
    ASSERT_TRUE(HasTree(tris));
    EXPECT_EQ(WriteSection(tris, 1502), bytes);
}

// A section of three triangles whose tree keeps none at its root and has two leaves, keeping
// the runs (count0, first0) and (count1, first1).
std::string ThreeTrianglesWithLeafRuns(std::int32_t count0, std::int32_t first0,
                                       std::int32_t count1, std::int32_t first1) {
    ByteBuilder b;
    b.Int32(4).Int64(0);
    for (const PNT_3D& p : {PNT_3D(0, 0, 1), PNT_3D(2, 0, 2), PNT_3D(0, 2, 3), PNT_3D(2, 2, 4)})
        b.Double(p.x).Double(p.y).Double(p.z);
    b.Int32(3);
    b.Int32(0).Int32(1).Int32(2).Int32(1);
    b.Int32(1).Int32(3).Int32(2).Int32(1);
    b.Int32(0).Int32(1).Int32(3).Int32(1);
    b.Double(1.0).Double(4.0);
    Geometry(b, 1, 1, 2.5, 3, 2, 2, 3);
    NodeHeader(b, 0, 0, 0x03, 0x03).Int32(count0).Int32(first0).Int32(count1).Int32(first1);
    return b.Str();
}

TEST(NetworkFileSection, BlockWhoseRunsCoverEveryTriangleOutOfOrderIsTakenAsStored) {
    // The leaves name positions 1-2, then 0. No build makes such a tree, but it covers every
    // triangle once, so it is taken and written back as it was stored.
    const std::string bytes = ThreeTrianglesWithLeafRuns(2, 1, 1, 0);

    const auto prj = NewProject();
    const ReadOutcome outcome = ReadSection(*prj->GetTris(), bytes, 1502);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, bytes.size());
    ASSERT_TRUE(HasTree(*prj->GetTris()));
    EXPECT_EQ(WriteSection(*prj->GetTris(), 1502), bytes);

    const auto skipped = NewProject();
    const ReadOutcome skippedOutcome = ReadSection(*skipped->GetTris(), bytes, 1502, false);
    EXPECT_FALSE(skippedOutcome.failed);
    EXPECT_EQ(skippedOutcome.consumed, bytes.size());
    EXPECT_FALSE(HasTree(*skipped->GetTris()));
}

TEST(NetworkFileSection, BlockHandingATriangleOverTwiceIsRejected) {
    ExpectCorruptBlockRebuildsTheTree(BlockWithRoot(1, 0, 0x01, 0x01).Int32(1).Int32(0));
}

TEST(NetworkFileSection, BlockOutOfOrderNamingATriangleTwiceAndHidingAnotherIsRejected) {
    // Positions 1-2, then 2 again: as many runs' triangles as the network has, but triangle 0 is
    // never handed over.
    const std::string bytes = ThreeTrianglesWithLeafRuns(2, 1, 1, 2);
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    EXPECT_TRUE(ReadSection(tris, bytes, 1502).failed);
    EXPECT_EQ(tris.GetNoTris(), 3);
    EXPECT_TRUE(HasTree(tris));
    EXPECT_TRUE(OcTreeIsValid(tris));
}

TEST(NetworkFileSection, BlockThatHidesATriangleIsRejected) {
    ExpectCorruptBlockRebuildsTheTree(BlockWithRoot(0, 0, 0x01, 0x01).Int32(0).Int32(1));
}

// Nodes nested @p levels deep below the root, each with one sub-node at octant 0, the deepest
// keeping the triangle.
ByteBuilder ChainBlock(int levels) {
    ByteBuilder b;
    Geometry(b, 2, 2, 11, 4, 4, 4, 2);
    for (int depth = 0; depth < levels; ++depth) NodeHeader(b, 0, 0, 0x01, 0x00);
    NodeHeader(b, 1, 0, 0, 0);
    return b;
}

TEST(NetworkFileSection, BlockTwentyLevelsDeepIsAccepted) {
    const auto prj = NewProject();
    CTris& tris = *prj->GetTris();
    const std::string bytes = OneTriangleData(1502).Append(ChainBlock(20)).Str();
    const ReadOutcome outcome = ReadSection(tris, bytes, 1502);
    EXPECT_FALSE(outcome.failed);
    EXPECT_EQ(outcome.consumed, bytes.size());
    ASSERT_TRUE(HasTree(tris));
    EXPECT_TRUE(COcTree::Of(tris).GetRoot()->HasNodeChild(0));
}

TEST(NetworkFileSection, BlockDeeperThanABuiltTreeIsRejected) {
    ExpectCorruptBlockRebuildsTheTree(ChainBlock(21));
    // Far deeper than any stack could follow: reading stops at the first level too many.
    ExpectCorruptBlockRebuildsTheTree(ChainBlock(200000));
}

}  // namespace
