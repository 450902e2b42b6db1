// The network's section of the host's document: its vertices (or cloud point indices), its
// triangles, its elevation range and its octree, laid out by the version the stream carries.
//
// Layout, in order: n (int32; nothing else when 0); from version 1502 the cloud identifier
// (int64, 0 without a cloud); n cloud point indices (int32) for a cloud-bound section, else n
// points (x, y, z doubles); m (int32); m triangles (three vertex indices, then from version
// 800 the colour, int32 each); from version 800 the minimum and maximum elevation (doubles);
// from version 1502 the octree block: centre x, y, z, side, extent x, y, z (doubles), then the
// root node. A node is count, first (int32), child mask, leaf mask (uint8), then for each
// octant whose child bit is set, in octant order, a leaf (count, first) when its leaf bit is
// set, otherwise a node.
//
// The reader is written for damaged and hostile files as much as for good ones: it stops at the
// first failed read, it grows its arrays only as items arrive (a count never reserves memory
// that the stream has not shown it holds), and it hands the network only whole, valid vertices
// and triangles and only a tree that covers the triangle array exactly.
//
// Sections of millions of triangles are common, so neither side goes through the stream value
// by value: the writer fills a buffer and hands the stream large blocks, the reader takes the
// points and triangles in large blocks. The bytes are the same as value by value. When the
// stream can seek, the reader first checks that the section holds every byte up to its octree
// block and then appends straight to the network as it reads; otherwise it keeps the section's
// items until it has them all, so that a short section still changes nothing.

#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/Events.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/Streams.h>
#include <dtm/support/Tolerances.h>

#include "network/COcTree.h"
#include "network/CTrisEventListener.h"
#include "support/ScopeExit.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ios>
#include <limits>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <type_traits>
#include <vector>

using kor::geom::PNT_3D;

namespace {

namespace io = dtm::io;

// Triangle colours and the stored elevation range are part of the section from this version.
constexpr short kVersionTriColors = 800;
// The cloud identifier and the octree block are part of the section from this version.
constexpr short kVersionCloudAndOcTree = 1502;
// The colour of triangles read from sections that store none: by layer.
constexpr std::int32_t kByLayerColor = 256;
// What the host reserves in its document for the section of an empty network.
constexpr int kEmptySectionFileSize = 24;
// A built tree has sub-nodes down to this depth below the root and only leaves under them. A
// block that goes deeper was not written from a tree, and stopping there bounds the recursion
// whatever a file holds.
constexpr int kMaxNodeDepth = 20;

bool HasTriColors(short version) {
    return version >= kVersionTriColors;
}

bool HasCloudAndOcTree(short version) {
    return version >= kVersionCloudAndOcTree;
}

// Marks @p stream failed and answers false, for a section whose content is inconsistent: the
// stream's state is how the host learns that a section could not be read.
bool Fail(std::istream& stream) {
    stream.setstate(std::ios::failbit);
    return false;
}

// ---- Blocks of raw values --------------------------------------------------------------------

// Bytes taken from the stream at a time, and the first buffer of a writer: large enough that the
// stream's per-call cost vanishes, small enough to stay in the cache.
constexpr std::size_t kBlockBytes = std::size_t{1} << 16;
// The most a writer gathers before handing it over (see CBlockWriter).
constexpr std::size_t kWriteBlockBytes = std::size_t{1} << 20;

// Takes one raw little-endian value from @p bytes and moves past it.
template <class T>
T Take(const unsigned char*& bytes) {
    unsigned char value[sizeof(T)];
    std::memcpy(value, bytes, sizeof(T));
    io::detail::ToDocumentOrder(value, sizeof(T));
    T result;
    std::memcpy(&result, value, sizeof(T));
    bytes += sizeof(T);
    return result;
}

// Stores one raw little-endian value at @p out and returns the position after it.
template <class T>
unsigned char* Store(unsigned char* out, T value) {
    static_assert(std::is_arithmetic<T>::value, "plain values only");
    unsigned char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    io::detail::ToDocumentOrder(bytes, sizeof(T));
    std::memcpy(out, bytes, sizeof(T));
    return out + sizeof(T);
}

// Collects raw little-endian values and hands them to the stream in blocks. Flush must be
// called once the last value is in.
class CBlockWriter {
public:
    explicit CBlockWriter(std::ostream& stream) : m_stream(stream), m_buffer(kBlockBytes) {}

    template <class T>
    void Put(T value) {
        if (m_used + sizeof(T) > m_buffer.size()) MakeRoom();
        Store(Free(), value);
        m_used += sizeof(T);
    }
    // @p count records of @p recordBytes each: @p fill(out, first, n) stores the records
    // first .. first + n - 1 from out on, as many at a time as the buffer has room for. The
    // records are stored through a local position rather than the writer's own count, which a
    // byte store could alias: kept in memory, the count went back and forth for every value.
    template <class Fill>
    void PutRecords(std::size_t count, std::size_t recordBytes, Fill&& fill) {
        for (std::size_t first = 0; first < count;) {
            if (m_used + recordBytes > m_buffer.size()) MakeRoom();
            const std::size_t n = std::min(count - first, (m_buffer.size() - m_used) / recordBytes);
            fill(Free(), first, n);
            m_used += n * recordBytes;
            first += n;
        }
    }
    // Raw bytes already in document order: the buffer's content goes first, then the bytes in
    // one call.
    void PutBytes(const void* bytes, std::size_t size) {
        Flush();
        if (size > 0)
            m_stream.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    }
    void Flush() {
        if (m_used > 0) m_stream.write(m_buffer.data(), static_cast<std::streamsize>(m_used));
        m_used = 0;
    }

private:
    // Every handing over costs a call into the stream and, for a file, into the system: with
    // blocks of 64 KiB those calls took a fifth of writing 10^6 triangles to a file in the
    // system's cache. So the buffer doubles each time it fills, up to kWriteBlockBytes: a small
    // section keeps a small buffer, a large one makes few calls. What it held has gone out, so
    // the larger buffer is a fresh one rather than a copy.
    void MakeRoom() {
        Flush();
        if (m_buffer.size() < kWriteBlockBytes)
            std::vector<char>(2 * m_buffer.size()).swap(m_buffer);
    }

    unsigned char* Free() { return reinterpret_cast<unsigned char*>(m_buffer.data()) + m_used; }

    std::ostream& m_stream;
    std::vector<char> m_buffer;
    std::size_t m_used = 0;
};

// Reads @p count items of @p itemBytes bytes each in blocks and hands each block to
// @p takeBlock(bytes, items). False, with the stream failed, when the stream ends first: the
// stream is then left where reading the items one by one would have left it, at its end, and
// the items of the short block are not handed out.
template <class TakeBlock>
bool ReadBlocks(std::istream& stream, std::int64_t count, std::size_t itemBytes,
                TakeBlock&& takeBlock) {
    const std::int64_t perBlock = static_cast<std::int64_t>(kBlockBytes / itemBytes);
    // Small reads (an octree node, a few leaves) use the stack; large ones one block, allocated
    // for the items the stream is about to deliver.
    unsigned char small[256];
    std::vector<unsigned char> large;
    const std::size_t blockBytes = static_cast<std::size_t>(std::min(count, perBlock)) * itemBytes;
    unsigned char* block = small;
    if (blockBytes > sizeof(small)) {
        large.resize(blockBytes);
        block = large.data();
    }
    while (count > 0) {
        const std::int64_t items = std::min(count, perBlock);
        const auto bytes =
            static_cast<std::streamsize>(static_cast<std::size_t>(items) * itemBytes);
        stream.read(reinterpret_cast<char*>(block), bytes);
        if (!stream || stream.gcount() != bytes) {
            stream.setstate(std::ios::failbit);
            return false;
        }
        takeBlock(static_cast<const unsigned char*>(block), items);
        count -= items;
    }
    return true;
}

// As ReadBlocks, handing out each item to @p take(bytes), which must take exactly itemBytes.
template <class Take>
bool ReadItems(std::istream& stream, std::int64_t count, std::size_t itemBytes, Take&& take) {
    return ReadBlocks(stream, count, itemBytes,
                      [&take](const unsigned char* next, std::int64_t items) {
                          for (std::int64_t i = 0; i < items; ++i) take(next);
                      });
}

// The bytes the stream still holds, or -1 when it cannot tell (a stream that cannot seek).
// The stream's position is left as it was.
std::int64_t RemainingBytes(std::istream& stream) {
    std::streambuf* buffer = stream.rdbuf();
    if (!buffer || !stream) return -1;
    const std::streampos here = buffer->pubseekoff(0, std::ios::cur, std::ios::in);
    if (here == std::streampos(std::streamoff(-1))) return -1;
    const std::streampos end = buffer->pubseekoff(0, std::ios::end, std::ios::in);
    if (buffer->pubseekpos(here, std::ios::in) != here) return -1;
    if (end == std::streampos(std::streamoff(-1))) return -1;
    return static_cast<std::int64_t>(end - here);
}

// The int32 that lies @p offset bytes ahead in the stream, read without moving the stream;
// false when it cannot be had.
bool PeekInt32(std::istream& stream, std::int64_t offset, std::int32_t& value) {
    std::streambuf* buffer = stream.rdbuf();
    const std::streampos here = buffer->pubseekoff(0, std::ios::cur, std::ios::in);
    if (here == std::streampos(std::streamoff(-1))) return false;
    const std::streampos target = here + std::streamoff(offset);
    unsigned char bytes[sizeof(std::int32_t)];
    const bool read = buffer->pubseekpos(target, std::ios::in) == target &&
                      buffer->sgetn(reinterpret_cast<char*>(bytes), sizeof(bytes)) ==
                          static_cast<std::streamsize>(sizeof(bytes));
    const bool back = buffer->pubseekpos(here, std::ios::in) == here;
    if (!read || !back) return false;
    const unsigned char* next = bytes;
    value = Take<std::int32_t>(next);
    return true;
}

// A triangle as the section stores it.
struct TSectionTri {
    std::int32_t vertex[3];
    std::int32_t colour;
};

// Everything of a section up to its octree block, read in full before any of it reaches the
// network: a section that ends early then leaves the network exactly as it was, at the price of
// holding the section's items once more while they are appended.
struct TSectionData {
    std::int64_t cloudId = 0;
    std::vector<std::int32_t> cloudIndexes;  // of a cloud-bound section
    std::vector<PNT_3D> points;              // of any other section
    std::vector<TSectionTri> tris;
    std::int32_t triCount = 0;  // as stored, also when the triangles are not kept
    double minQuota = 0.0;
    double maxQuota = 0.0;

    // A stored identifier above 0 binds the section to a cloud; 0 (and, from a damaged file, a
    // negative value) means plain points.
    bool IsCloudBound() const { return cloudId > 0; }
};

constexpr std::size_t kPointBytes = 3 * sizeof(double);
// True when a stored point's bytes are the host's own representation of the point.
constexpr bool kPointsAsStored = io::detail::HostIsLittleEndian() &&
                                 sizeof(PNT_3D) == kPointBytes &&
                                 std::is_trivially_copyable<PNT_3D>::value;
constexpr std::size_t kCloudIndexBytes = sizeof(std::int32_t);

std::size_t TriBytes(short version) {
    return (HasTriColors(version) ? 4 : 3) * sizeof(std::int32_t);
}

PNT_3D TakePoint(const unsigned char*& bytes) {
    PNT_3D p;
    p.x = Take<double>(bytes);
    p.y = Take<double>(bytes);
    p.z = Take<double>(bytes);
    return p;
}

// Appends the @p count points at @p bytes to @p out. On a little-endian host the bytes are the
// points' own representation and go in with one copy: taken one by one, each point went through
// a temporary written as three doubles and read back as wider words, which the processor cannot
// forward from its store buffer (a stall of some ten cycles per point).
void AppendTakenPoints(const unsigned char* bytes, std::int64_t count, std::vector<PNT_3D>& out) {
    const std::size_t before = out.size();
    out.resize(before + static_cast<std::size_t>(count));
    PNT_3D* const taken = out.data() + before;
    if (kPointsAsStored) {
        std::memcpy(static_cast<void*>(taken), bytes,
                    static_cast<std::size_t>(count) * kPointBytes);
        return;
    }
    for (std::int64_t i = 0; i < count; ++i) taken[i] = TakePoint(bytes);
}

TSectionTri TakeTri(const unsigned char*& bytes, short version) {
    TSectionTri tri{{0, 0, 0}, kByLayerColor};
    for (std::int32_t& vertex : tri.vertex) vertex = Take<std::int32_t>(bytes);
    if (HasTriColors(version)) tri.colour = Take<std::int32_t>(bytes);
    return tri;
}

// Reads the points of a section of @p count items; they are kept only when @p keep is true, and
// then a block at a time as they arrive, so that memory follows the bytes actually read.
bool ReadPoints(std::istream& stream, std::int32_t count, bool keep, TSectionData& data) {
    if (data.IsCloudBound()) {
        return ReadItems(stream, count, kCloudIndexBytes, [&](const unsigned char*& bytes) {
            const std::int32_t index = Take<std::int32_t>(bytes);
            if (keep) data.cloudIndexes.push_back(index);
        });
    }
    return ReadBlocks(stream, count, kPointBytes,
                      [&](const unsigned char* bytes, std::int64_t items) {
                          if (keep) AppendTakenPoints(bytes, items, data.points);
                      });
}

bool ReadTris(std::istream& stream, short version, bool keep, TSectionData& data) {
    if (!io::ReadRaw(stream, data.triCount)) return false;
    if (data.triCount < 0) return Fail(stream);
    if (!keep) return ReadBlocks(stream, data.triCount, TriBytes(version), [](auto, auto) {});
    return ReadItems(stream, data.triCount, TriBytes(version), [&](const unsigned char*& bytes) {
        data.tris.push_back(TakeTri(bytes, version));
    });
}

// Reads the section after its point count @p count (> 0) and its cloud identifier up to the
// octree block. False, with the stream failed, when the stream ends first or a count is
// negative.
bool ReadSectionData(std::istream& stream, short version, std::int32_t count, bool keep,
                     TSectionData& data) {
    if (!ReadPoints(stream, count, keep, data)) return false;
    if (!ReadTris(stream, version, keep, data)) return false;
    return !HasTriColors(version) ||
           (io::ReadRaw(stream, data.minQuota) && io::ReadRaw(stream, data.maxQuota));
}

bool RefersToVertices(const TSectionTri& tri, int vertexCount) {
    for (const std::int32_t vertex : tri.vertex) {
        if (vertex < 0 || vertex >= vertexCount) return false;
    }
    return true;
}

bool AllIndexesBelow(const std::vector<std::int32_t>& indexes, int pointCount) {
    for (const std::int32_t index : indexes) {
        if (index < 0 || index >= pointCount) return false;
    }
    return true;
}

// The cloud a section names by @p id, or null when the document has no such cloud. The host
// hands out 32-bit identifiers, so a larger stored value names nothing.
CCld* FindCloud(const kor::CRefObjIdRemapper& remapper, std::int64_t id) {
    if (id > std::numeric_limits<std::int32_t>::max()) return nullptr;
    return dynamic_cast<CCld*>(remapper.FindId(static_cast<std::int32_t>(id)));
}

// ---- Octree block ------------------------------------------------------------------------------

// Calls @p visit(count, first) for the node's own run and every run below it, in pre-order.
template <class Visit>
void ForEachRun(const COcTreeNode& node, Visit& visit) {
    visit(node.GetCount(), node.GetFirst());
    node.ForEachChild([&visit](int, const COcTreeLeaf& leaf) { visit(leaf.count, leaf.first); },
                      [&visit](int, const COcTreeNode& child) { ForEachRun(child, visit); });
}

// True when a run of @p count triangles from position @p first lies within an array of
// @p triCount triangles. An empty run too must name a position of the array or the one past
// its end, as every run of a built tree does: a tree passes its runs' positions on to whoever
// walks it.
bool RunInside(std::int32_t count, std::int32_t first, std::int64_t triCount) {
    return count >= 0 && first >= 0 && std::int64_t{first} + count <= triCount;
}

// Follows the runs of a tree in pre-order and tells whether they name the positions 0, 1, 2, ...
// of an array of @p triCount triangles one after the other, every run (empty ones included)
// inside the array: the runs of a built tree do. Told in one pass, also while the tree is read.
class CRunsInOrder {
public:
    explicit CRunsInOrder(std::int64_t triCount) : m_triCount(triCount) {}

    void Follow(std::int32_t count, std::int32_t first) {
        if (!m_inOrder) return;
        if (!RunInside(count, first, m_triCount) || (count > 0 && first != m_next)) {
            m_inOrder = false;
            return;
        }
        m_next += count;
    }
    // True when the runs followed so far were in order and cover the whole array.
    bool CoverTheArray() const { return m_inOrder && m_next == m_triCount; }

private:
    std::int64_t m_triCount;
    std::int64_t m_next = 0;
    bool m_inOrder = true;
};

// True when the runs of the tree under @p root cover the positions 0 .. triCount - 1 exactly
// once each, every run (empty ones included) inside the array, in any order: the check for the
// trees whose runs are not in pre-order.
bool CoversEachPositionOnce(const COcTreeNode& root, std::int64_t triCount) {
    std::vector<bool> covered(static_cast<std::size_t>(triCount), false);
    std::int64_t coveredCount = 0;
    bool valid = true;
    auto visit = [&](std::int32_t count, std::int32_t first) {
        if (!valid) return;
        if (!RunInside(count, first, triCount)) {
            valid = false;
            return;
        }
        for (std::int64_t i = first; i < std::int64_t{first} + count; ++i) {
            if (covered[static_cast<std::size_t>(i)]) {
                valid = false;
                return;
            }
            covered[static_cast<std::size_t>(i)] = true;
        }
        coveredCount += count;
    };
    ForEachRun(root, visit);
    return valid && coveredCount == triCount;
}

// True when the runs of the tree under @p root cover the positions 0 .. triCount - 1 of the
// triangle array exactly once each, every run (empty ones included) inside the array. That is
// what a tree built over those triangles does; any other tree would refer past the array, hand
// a triangle over twice, or hide one from drawing and search.
bool CoversEachTriangleOnce(const COcTreeNode& root, std::int64_t triCount) {
    // A built tree names its runs in pre-order, one after the other from position 0; that is
    // told in one pass over the runs. Only other trees need the check position by position.
    CRunsInOrder runs(triCount);
    auto follow = [&runs](std::int32_t count, std::int32_t first) { runs.Follow(count, first); };
    ForEachRun(root, follow);
    return runs.CoverTheArray() || CoversEachPositionOnce(root, triCount);
}

// The root that stands for an empty tree: no triangle of its own and no child. A block is
// written with such a root when the network has vertices but no tree, so that every section of
// version 1502 or later that has vertices ends with a block, as its readers expect.
bool IsEmptyTreeRoot(const COcTreeNode& root) {
    return root.GetCount() == 0 && root.GetChildMask() == 0;
}

void WriteNode(CBlockWriter& writer, const COcTreeNode& node) {
    writer.Put(node.GetCount());
    writer.Put(node.GetFirst());
    writer.Put(node.GetChildMask());
    writer.Put(node.GetLeafMask());
    node.ForEachChild(
        [&writer](int, const COcTreeLeaf& leaf) {
            writer.Put(leaf.count);
            writer.Put(leaf.first);
        },
        [&writer](int, const COcTreeNode& child) { WriteNode(writer, child); });
}

void WriteGeometry(CBlockWriter& writer, const TOcTreeGeometry& geometry) {
    for (const double value : {geometry.centreX, geometry.centreY, geometry.centreZ, geometry.side,
                               geometry.extentX, geometry.extentY, geometry.extentZ}) {
        writer.Put(value);
    }
}

// Writes @p tree, or the block of an empty tree when the tree has no root or does not describe
// the network's @p triCount triangles (a tree left stale inside a change event, or kept by a
// broken network whose triangles changed): such a tree would not survive the reader's check.
void WriteOcTreeBlock(CBlockWriter& writer, const COcTree& tree, int triCount) {
    const COcTreeNode* root = tree.GetRoot();
    if (root && CoversEachTriangleOnce(*root, triCount)) {
        WriteGeometry(writer, tree.GetGeometry());
        WriteNode(writer, *root);
        return;
    }
    WriteGeometry(writer, {UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE,
                           UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE});
    WriteNode(writer, COcTreeNode());
}

bool ReadGeometry(std::istream& stream, TOcTreeGeometry& geometry) {
    return ReadItems(stream, 1, 7 * sizeof(double), [&geometry](const unsigned char*& bytes) {
        for (double* value :
             {&geometry.centreX, &geometry.centreY, &geometry.centreZ, &geometry.side,
              &geometry.extentX, &geometry.extentY, &geometry.extentZ})
            *value = Take<double>(bytes);
    });
}

// A node's own fields take 10 bytes, a leaf entry 8.
constexpr std::size_t kNodeBytes = 2 * sizeof(std::int32_t) + 2 * sizeof(std::uint8_t);
constexpr std::size_t kLeafBytes = 2 * sizeof(std::int32_t);

// Hands the octree block's nodes and leaf entries to the parser, taking the bytes from the
// stream many entries at a time but never past the block's end, so that the stream is left
// exactly where the block ends (the host reads its next section from there).
//
// A block has no length field; what is known is a lower bound: every node header says how many
// leaf entries and sub-nodes follow it, and each of those takes at least its own fields. The
// source keeps the sum of those announced sizes not yet handed out (its debt) and reads ahead up
// to that sum: bytes the block holds in any case. A tree of thousands of nodes then costs a few
// hundred reads instead of one or two per node.
class COcTreeBlockSource {
public:
    // The root's header is owed from the start.
    explicit COcTreeBlockSource(std::istream& stream) : m_stream(stream), m_owed(kNodeBytes) {}

    // The next @p size bytes of the block (at most kNodeBytes), or null, with the stream failed,
    // when the stream ends first.
    const unsigned char* Next(std::size_t size) {
        if (m_end - m_next < size && !Refill(size)) return nullptr;
        const unsigned char* bytes = m_buffer + m_next;
        m_next += size;
        m_owed -= size;
        return bytes;
    }
    // A node header just taken announced @p bytes of children.
    void Announce(std::size_t bytes) { m_owed += bytes; }
    // Fails the stream, for a block found inconsistent; answers false.
    bool Reject() { return Fail(m_stream); }

private:
    // Keeps what is buffered and reads up to the debt (or the buffer's size) behind it.
    bool Refill(std::size_t size) {
        const std::size_t kept = m_end - m_next;
        std::memmove(m_buffer, m_buffer + m_next, kept);
        m_next = 0;
        m_end = kept;
        // The debt covers every buffered byte and the one asked for: both are part of it.
        const std::size_t wanted = std::min(m_owed, sizeof(m_buffer)) - kept;
        m_stream.read(reinterpret_cast<char*>(m_buffer + kept),
                      static_cast<std::streamsize>(wanted));
        m_end += static_cast<std::size_t>(m_stream.gcount());
        if (m_end < size) return Reject();
        return true;
    }

    std::istream& m_stream;
    std::size_t m_owed;
    std::size_t m_next = 0;
    std::size_t m_end = 0;
    unsigned char m_buffer[4096];
};

// Reads @p node, at @p depth below the root, and everything under it, and hands every run to
// @p runs as it arrives. Children are allocated only as their node's masks arrive, so memory
// follows the bytes actually read. False, with the stream failed, when the stream ends or the
// block goes deeper than a built tree.
bool ReadNode(COcTreeBlockSource& source, CRunsInOrder& runs, COcTreeNode& node, int depth) {
    const unsigned char* bytes = source.Next(kNodeBytes);
    if (!bytes) return false;
    const std::int32_t count = Take<std::int32_t>(bytes);
    const std::int32_t first = Take<std::int32_t>(bytes);
    const std::uint8_t childMask = Take<std::uint8_t>(bytes);
    const std::uint8_t leafMask = Take<std::uint8_t>(bytes);
    node.SetRun(count, first);
    runs.Follow(count, first);
    node.SetChildren(childMask, leafMask);
    std::size_t childBytes = 0;
    node.ForEachChild([&childBytes](int, COcTreeLeaf&) { childBytes += kLeafBytes; },
                      [&childBytes](int, COcTreeNode&) { childBytes += kNodeBytes; });
    source.Announce(childBytes);
    bool read = true;
    node.ForEachChild(
        [&](int, COcTreeLeaf& leaf) {
            const unsigned char* entry = read ? source.Next(kLeafBytes) : nullptr;
            if (!entry) {
                read = false;
                return;
            }
            leaf.count = Take<std::int32_t>(entry);
            leaf.first = Take<std::int32_t>(entry);
            runs.Follow(leaf.count, leaf.first);
        },
        [&](int, COcTreeNode& child) {
            if (!read) return;
            if (depth + 1 > kMaxNodeDepth) {
                read = source.Reject();
                return;
            }
            read = ReadNode(source, runs, child, depth + 1);
        });
    return read;
}

}  // namespace

/// Reads and writes the network's file section on behalf of CTris, whose arrays, flags, tree
/// and listener it reaches as a friend.
class CTrisFileSection {
public:
    static void Write(const CTris& tris, ofpstream& stream, kor::CPtr64Mapper* mapper);
    static void Read(CTris& tris, ifpstream& stream, const kor::CRefObjIdRemapper& remapper,
                     bool load);

private:
    static void WritePoints(const CTris& tris, CBlockWriter& writer, bool cloudBound);
    static bool ReadDirect(CTris& tris, std::istream& stream, short version, std::int32_t count);
    static bool ReadPointsDirect(CTris& tris, std::istream& stream, std::int32_t count);
    static bool ReadTrisDirect(CTris& tris, std::istream& stream, short version,
                               std::int32_t storedTris, std::int32_t& accepted);
    static void ReadRest(CTris& tris, std::istream& stream, short version, bool load,
                         std::int32_t sectionTris, bool fitsNetwork);
    static bool ServeFromCloud(CTris& tris, const TSectionData& data,
                               const kor::CRefObjIdRemapper& remapper);
    static void BindCloud(CTris& tris, CCld* cloud);
    static void AppendPoints(CTris& tris, const TSectionData& data);
    static std::int32_t AppendTris(CTris& tris, const TSectionData& data);
    static void ReadOcTreeBlock(CTris& tris, std::istream& stream, std::int32_t sectionTris,
                                bool fitsNetwork, bool load);
};

void CTrisFileSection::Write(const CTris& tris, ofpstream& stream, kor::CPtr64Mapper* mapper) {
    const short version = stream.GetVersion();
    // The cloud identifier, the cloud indices and a tree with a root go out at every version,
    // though a reader takes the identifier and the tree only from 1502 on: a section written
    // below 1502 is not one that a reader of that version takes back. Sections of older versions
    // come from older files; new ones are written at 1502 or later.
    const bool cloudBound = tris.HoldsCld();
    if (cloudBound && !mapper)
        throw std::invalid_argument("CTris::SalvaInFile: a cloud-bound network needs a mapper");
    const std::size_t count = cloudBound ? tris.m_cloudIndexes.size() : tris.m_vertices.size();
    if (count == 0) return;

    // Mapped before the first byte goes out, so that a mapper that throws leaves no half section.
    const std::int64_t cloudId = cloudBound ? mapper->GetPointer32(static_cast<std::int64_t>(
                                                  reinterpret_cast<std::intptr_t>(tris.m_cloud)))
                                            : 0;
    CBlockWriter writer(stream);
    writer.Put(static_cast<std::int32_t>(count));
    writer.Put(cloudId);
    WritePoints(tris, writer, cloudBound);

    // The loop does little for each triangle, so it asks for the objects far ahead: with the 32
    // positions of the passes that also read vertices, it waited on nearly every object of a
    // network in the octree's order (the section of the benchmarks' 10^6 grid, written to a
    // stream that keeps nothing, took 5.5 to 5.8 ms; now 3.2 to 3.7).
    constexpr std::size_t kObjectsAhead = 128;
    const std::size_t triCount = tris.m_tris.size();
    const CTri* const* const triangles = tris.m_tris.data();
    const bool withColors = HasTriColors(version);
    writer.Put(static_cast<std::int32_t>(triCount));
    writer.PutRecords(triCount, (withColors ? 4 : 3) * sizeof(std::int32_t),
                      [=](unsigned char* out, std::size_t first, std::size_t n) {
                          for (std::size_t i = first; i < first + n; ++i) {
                              if (i + kObjectsAhead < triCount)
                                  Prefetch(triangles[i + kObjectsAhead]);
                              const CTri& tri = *triangles[i];
                              for (int k = 0; k < 3; ++k) out = Store(out, tri.GetVerIndex(k));
                              if (withColors) out = Store(out, tri.GetColor());
                          }
                      });
    if (withColors) {
        writer.Put(tris.m_minQuota);
        writer.Put(tris.m_maxQuota);
    }
    // From 1502 on a reader expects a block after any section with points, so a network without
    // a tree (vertices and no triangles) writes the block that stands for an empty tree there.
    if (tris.m_octree->HasRoot() || HasCloudAndOcTree(version))
        WriteOcTreeBlock(writer, *tris.m_octree, tris.GetNoTris());
    writer.Flush();
}

void CTrisFileSection::WritePoints(const CTris& tris, CBlockWriter& writer, bool cloudBound) {
    // On a little-endian host the arrays already hold the section's bytes (a point is three
    // packed doubles), so they go out as they are.
    if (cloudBound) {
        if (io::detail::HostIsLittleEndian()) {
            writer.PutBytes(tris.m_cloudIndexes.data(),
                            tris.m_cloudIndexes.size() * sizeof(std::int32_t));
            return;
        }
        for (const std::int32_t index : tris.m_cloudIndexes) writer.Put(index);
        return;
    }
    if (io::detail::HostIsLittleEndian()) {
        writer.PutBytes(tris.m_vertices.data(), tris.m_vertices.size() * sizeof(PNT_3D));
        return;
    }
    for (const PNT_3D& p : tris.m_vertices) {
        writer.Put(p.x);
        writer.Put(p.y);
        writer.Put(p.z);
    }
}

void CTrisFileSection::Read(CTris& tris, ifpstream& stream, const kor::CRefObjIdRemapper& remapper,
                            bool load) {
    const short version = stream.GetVersion();
    std::int32_t count = 0;
    if (!io::ReadRaw(stream, count) || count == 0) return;
    if (count < 0) {
        Fail(stream);
        return;
    }
    TSectionData data;
    if (HasCloudAndOcTree(version) && !io::ReadRaw(stream, data.cloudId)) return;
    if (load && !data.IsCloudBound() && ReadDirect(tris, stream, version, count)) return;
    if (!ReadSectionData(stream, version, count, load, data)) return;

    // One event for the whole load: one undo step, and the network's listener runs once, after
    // the last triangle, instead of after each one.
    kor::CEventGuard event(tris.m_context);
    const int trisBefore = tris.GetNoTris();
    std::int32_t accepted = 0;
    // With load false the host only steps over the section: no cloud is bound and the network
    // is not marked broken, so the network it already has stays usable.
    if (load && (!data.IsCloudBound() || ServeFromCloud(tris, data, remapper))) {
        AppendPoints(tris, data);
        accepted = AppendTris(tris, data);
    }
    if (HasTriColors(version)) {
        // Taken as stored, also when nothing else of the section is kept.
        tris.m_minQuota = data.minQuota;
        tris.m_maxQuota = data.maxQuota;
    } else {
        tris.UpdateMinMaxQuota();
    }
    ReadRest(tris, stream, version, load, data.triCount,
             trisBefore == 0 && accepted == data.triCount);
}

// Reads a plain section (no cloud) straight into the network, when the stream shows that it
// holds every byte up to the octree block: then no read of that part can fail, and the network
// gets exactly what it would get from the section read in full first, without a second copy of
// the section in memory. False, with nothing read, when the stream cannot show it (it cannot
// seek, or the section is short or has a negative triangle count): the caller then reads the
// section in full first, which also fails the stream as it always did. Should the device fail
// after all, the points and triangles appended so far stay, and the stream is failed.
bool CTrisFileSection::ReadDirect(CTris& tris, std::istream& stream, short version,
                                  std::int32_t count) {
    const std::int64_t pointBytes = std::int64_t{count} * static_cast<std::int64_t>(kPointBytes);
    const std::int64_t remaining = RemainingBytes(stream);
    const auto countBytes = static_cast<std::int64_t>(sizeof(std::int32_t));
    if (remaining < pointBytes + countBytes) return false;
    std::int32_t triCount = 0;
    if (!PeekInt32(stream, pointBytes, triCount) || triCount < 0) return false;
    const std::int64_t rangeBytes = HasTriColors(version) ? 2 * sizeof(double) : 0;
    const std::int64_t triBytes =
        std::int64_t{triCount} * static_cast<std::int64_t>(TriBytes(version));
    if (remaining < pointBytes + countBytes + triBytes + rangeBytes) return false;

    kor::CEventGuard event(tris.m_context);
    const int trisBefore = tris.GetNoTris();
    // The counts are backed by bytes the stream holds, so reserving for them is safe.
    tris.m_vertices.reserve(tris.m_vertices.size() + static_cast<std::size_t>(count));
    bool read = ReadPointsDirect(tris, stream, count);
    std::int32_t storedTris = 0;
    read = read && io::ReadRaw(stream, storedTris);
    if (!read) return true;
    tris.ReserveTriAppends(static_cast<std::size_t>(storedTris));
    std::int32_t accepted = 0;
    if (!ReadTrisDirect(tris, stream, version, storedTris, accepted)) return true;
    if (HasTriColors(version)) {
        double minQuota = 0.0;
        double maxQuota = 0.0;
        if (!io::ReadRaw(stream, minQuota) || !io::ReadRaw(stream, maxQuota)) return true;
        tris.m_minQuota = minQuota;
        tris.m_maxQuota = maxQuota;
    } else {
        tris.UpdateMinMaxQuota();
    }
    ReadRest(tris, stream, version, true, storedTris, trisBefore == 0 && accepted == storedTris);
    return true;
}

// Appends the @p storedTris triangles that the stream holds to the network, counting in
// @p accepted those that refer to its vertices; the others are dropped without a word. When
// nobody hears the additions, the triangles of a block go in together: the same array and
// the same list of the event as one AddNewTri after the other, without a call and a check
// of the listener for each of millions of triangles.
bool CTrisFileSection::ReadTrisDirect(CTris& tris, std::istream& stream, short version,
                                      std::int32_t storedTris, std::int32_t& accepted) {
    // Checked also on a broken network, where AddNewTri would not: a triangle taken in from a
    // file never refers outside the vertex array.
    const int vertexCount = tris.GetNoTriVrts();
    if (!tris.AdditionsUnheard()) {
        return ReadItems(stream, storedTris, TriBytes(version), [&](const unsigned char*& bytes) {
            const TSectionTri tri = TakeTri(bytes, version);
            if (!RefersToVertices(tri, vertexCount)) return;
            tris.AddNewTri(tri.colour, tri.vertex[0], tri.vertex[1], tri.vertex[2]);
            ++accepted;
        });
    }
    std::vector<CTri*> made;
    made.reserve(std::min(static_cast<std::size_t>(storedTris), kBlockBytes / TriBytes(version)));
    return ReadBlocks(
        stream, storedTris, TriBytes(version), [&](const unsigned char* bytes, std::int64_t items) {
            made.clear();
            const auto handOver = [&] {
                tris.AppendNewTrisUnheard(made.data(), made.size());
                accepted += static_cast<std::int32_t>(made.size());
            };
            try {
                for (std::int64_t i = 0; i < items; ++i) {
                    const TSectionTri tri = TakeTri(bytes, version);
                    if (!RefersToVertices(tri, vertexCount)) continue;
                    made.push_back(
                        new CTri(tri.colour, tri.vertex[0], tri.vertex[1], tri.vertex[2]));
                }
            } catch (...) {
                // Those made before the triangle that could not be had go in, as
                // one by one they would have.
                handOver();
                throw;
            }
            handOver();
        });
}

// Appends the @p count points that the stream holds to the network a block at a time. When
// nobody hears the additions and the stored bytes are the points' own, the stream reads
// straight into the vertex array: no block buffer and no scratch copy in between. Either way a
// block the stream cannot deliver in full is not appended.
bool CTrisFileSection::ReadPointsDirect(CTris& tris, std::istream& stream, std::int32_t count) {
    std::vector<PNT_3D>& vertices = tris.m_vertices;
    if (kPointsAsStored && tris.AdditionsUnheard()) {
        const std::int64_t perBlock = static_cast<std::int64_t>(kBlockBytes / kPointBytes);
        for (std::int64_t left = count; left > 0;) {
            const std::int64_t items = std::min(left, perBlock);
            const std::size_t before = vertices.size();
            vertices.resize(before + static_cast<std::size_t>(items));
            const auto bytes = static_cast<std::streamsize>(items * std::int64_t{kPointBytes});
            stream.read(reinterpret_cast<char*>(vertices.data() + before), bytes);
            if (!stream || stream.gcount() != bytes) {
                vertices.resize(before);
                stream.setstate(std::ios::failbit);
                return false;
            }
            tris.NoteVerticesAppended(static_cast<std::size_t>(items));
            left -= items;
        }
        return true;
    }
    std::vector<PNT_3D> points;
    points.reserve(
        static_cast<std::size_t>(std::min<std::int64_t>(count, kBlockBytes / kPointBytes)));
    return ReadBlocks(stream, count, kPointBytes,
                      [&tris, &points](const unsigned char* bytes, std::int64_t items) {
                          points.clear();
                          AppendTakenPoints(bytes, items, points);
                          tris.AppendVertices(points.data(), points.size());
                      });
}

// What follows the section's elevation range: the octree block, then the derived data of a
// loaded network. @p fitsNetwork: the network held no triangle before and kept every one of the
// section's @p sectionTris.
void CTrisFileSection::ReadRest(CTris& tris, std::istream& stream, short version, bool load,
                                std::int32_t sectionTris, bool fitsNetwork) {
    if (HasCloudAndOcTree(version)) {
        // The close of this event must not replace the tree that the block brings.
        tris.m_listener->Disarm();
        // A tree already in place is kept and the block is left unread: the stream then stays
        // at the block's start.
        if (!tris.m_octree->HasRoot())
            ReadOcTreeBlock(tris, stream, sectionTris, fitsNetwork, load);
    }
    if (load) {
        tris.CalcColors();
        tris.CalcNormals();
        tris.InitSelTris();
    }
}

bool CTrisFileSection::ServeFromCloud(CTris& tris, const TSectionData& data,
                                      const kor::CRefObjIdRemapper& remapper) {
    CCld* cloud = FindCloud(remapper, data.cloudId);
    if (!cloud) {
        // No warning: the user is warned only about a cloud that is there but cannot serve the
        // network, which CheckBroken judges.
        tris.m_broken = true;
        return false;
    }
    BindCloud(tris, cloud);
    // CheckBroken compares the cloud with the indices the network holds, so the section's
    // indices join the network before it runs (a cloud too small for them would pass
    // otherwise), and leave it again when the cloud cannot serve them.
    const std::size_t indexesBefore = tris.m_cloudIndexes.size();
    tris.m_cloudIndexes.insert(tris.m_cloudIndexes.end(), data.cloudIndexes.begin(),
                               data.cloudIndexes.end());
    bool served = false;
    const auto dropUnserved = dtm::detail::OnScopeExit([&] {
        if (!served) tris.m_cloudIndexes.resize(indexesBefore);
    });
    tris.CheckBroken();
    if (tris.m_broken) return false;
    // Enough points but not the ones named: only a damaged section gets here. Its points cannot
    // be fetched, so the network is broken as for a missing cloud.
    if (!AllIndexesBelow(data.cloudIndexes, cloud->GetNumPnts())) {
        tris.m_broken = true;
        return false;
    }
    served = true;
    return true;
}

void CTrisFileSection::BindCloud(CTris& tris, CCld* cloud) {
    // The network keeps one pointer and one reference. Binding the cloud it already holds again
    // would take a reference nobody drops; a different cloud replaces the held one, whose
    // reference the network could otherwise never drop.
    if (tris.HoldsCld()) {
        if (tris.m_cloud == cloud) return;
        tris.m_cloud->SubReference();
        tris.m_cloudReferenced = false;
    }
    tris.SetCld(cloud);
}

void CTrisFileSection::AppendPoints(CTris& tris, const TSectionData& data) {
    if (data.IsCloudBound()) {
        for (const std::int32_t index : data.cloudIndexes) {
            PNT_3D p;
            tris.m_cloud->GetPnt(index, p);
            tris.AppendVertex(p);
        }
        return;
    }
    for (const PNT_3D& p : data.points) tris.AppendVertex(p);
}

std::int32_t CTrisFileSection::AppendTris(CTris& tris, const TSectionData& data) {
    // Checked also on a broken network, where AddNewTri would not: a triangle taken in from a
    // file never refers outside the vertex array.
    const int vertexCount = tris.GetNoTriVrts();
    tris.ReserveTriAppends(data.tris.size());
    std::int32_t accepted = 0;
    for (const TSectionTri& tri : data.tris) {
        if (!RefersToVertices(tri, vertexCount)) continue;  // dropped without a word
        tris.AddNewTri(tri.colour, tri.vertex[0], tri.vertex[1], tri.vertex[2]);
        ++accepted;
    }
    return accepted;
}

// The block's tree replaces the (empty) tree only when it was written over exactly the triangles
// the network now holds, in their order (@p fitsNetwork: the network had none and kept all
// @p sectionTris). In every other case, a block that stands for no tree included, the tree is
// rebuilt over what the network holds (nothing happens on a broken network). With @p load false
// the block is only checked and the tree is left alone.
void CTrisFileSection::ReadOcTreeBlock(CTris& tris, std::istream& stream, std::int32_t sectionTris,
                                       bool fitsNetwork, bool load) {
    TOcTreeGeometry geometry{};
    auto root = std::make_unique<COcTreeNode>();
    COcTreeBlockSource source(stream);
    CRunsInOrder runs(sectionTris);
    const bool complete = ReadGeometry(stream, geometry) && ReadNode(source, runs, *root, 0);
    const bool emptyTree = complete && IsEmptyTreeRoot(*root);
    // The runs were followed as they arrived; only a tree whose runs are not in pre-order needs
    // another pass.
    const bool validTree = complete && !emptyTree &&
                           (runs.CoverTheArray() || CoversEachPositionOnce(*root, sectionTris));
    if (!emptyTree && !validTree) Fail(stream);
    if (!load) return;
    if (validTree && fitsNetwork && sectionTris > 0) {
        tris.m_octree->Assign(geometry, std::move(root));
        return;
    }
    tris.CalcOcTree();
}

// ---- CTris --------------------------------------------------------------------------------------

void CTris::SalvaInFile(ofpstream& s, kor::CPtr64Mapper* mapper) const {
    CTrisFileSection::Write(*this, s, mapper);
}

void CTris::LeggeDaFile(ifpstream& s, const kor::CRefObjIdRemapper& remapper, bool load) {
    CTrisFileSection::Read(*this, s, remapper, load);
}

int CTris::GetEmptySectionFileSize(ifpstream& /*s*/) {
    return kEmptySectionFileSize;
}
