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
// first failed read, it grows its arrays only as items arrive (a count never reserves memory),
// and it hands the network only whole, valid vertices and triangles and only a tree that covers
// the triangle array exactly.

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

#include <cstdint>
#include <ios>
#include <limits>
#include <memory>
#include <stdexcept>
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
constexpr int kOctantCount = 8;

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

// Reads the points of a section of @p count items; they are kept only when @p keep is true.
bool ReadPoints(std::istream& stream, std::int32_t count, bool keep, TSectionData& data) {
    for (std::int32_t i = 0; i < count; ++i) {
        if (data.IsCloudBound()) {
            std::int32_t index = 0;
            if (!io::ReadRaw(stream, index)) return false;
            if (keep) data.cloudIndexes.push_back(index);
        } else {
            PNT_3D p;
            if (!io::ReadRaw(stream, p.x) || !io::ReadRaw(stream, p.y) || !io::ReadRaw(stream, p.z))
                return false;
            if (keep) data.points.push_back(p);
        }
    }
    return true;
}

bool ReadTris(std::istream& stream, short version, bool keep, TSectionData& data) {
    if (!io::ReadRaw(stream, data.triCount)) return false;
    if (data.triCount < 0) return Fail(stream);
    for (std::int32_t i = 0; i < data.triCount; ++i) {
        TSectionTri tri{{0, 0, 0}, kByLayerColor};
        for (std::int32_t& vertex : tri.vertex) {
            if (!io::ReadRaw(stream, vertex)) return false;
        }
        if (HasTriColors(version) && !io::ReadRaw(stream, tri.colour)) return false;
        if (keep) data.tris.push_back(tri);
    }
    return true;
}

// Reads the section after its point count @p count (> 0) up to the octree block. False, with
// the stream failed, when the stream ends first or a count is negative.
bool ReadSectionData(std::istream& stream, short version, std::int32_t count, bool keep,
                     TSectionData& data) {
    if (HasCloudAndOcTree(version) && !io::ReadRaw(stream, data.cloudId)) return false;
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

// Calls @p visit(count, first) for the node's own run and every run below it.
template <class Visit>
void ForEachRun(const COcTreeNode& node, Visit& visit) {
    visit(node.GetCount(), node.GetFirst());
    for (int octant = 0; octant < kOctantCount; ++octant) {
        if (node.HasLeafChild(octant)) {
            const COcTreeLeaf& leaf = node.GetLeaf(octant);
            visit(leaf.count, leaf.first);
        } else if (node.HasNodeChild(octant)) {
            ForEachRun(node.GetNode(octant), visit);
        }
    }
}

// True when the runs of the tree under @p root cover the positions 0 .. triCount - 1 of the
// triangle array exactly once each. That is what a tree built over those triangles does; any
// other tree would refer past the array, hand a triangle over twice, or hide one from drawing
// and search.
bool CoversEachTriangleOnce(const COcTreeNode& root, std::int64_t triCount) {
    std::vector<bool> covered(static_cast<std::size_t>(triCount), false);
    std::int64_t coveredCount = 0;
    bool valid = true;
    auto visit = [&](std::int32_t count, std::int32_t first) {
        if (!valid) return;
        if (count < 0 || first < 0 || std::int64_t{first} + count > triCount) {
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

// The root that stands for an empty tree: no triangle of its own and no child. A block is
// written with such a root when the network has vertices but no tree, so that every section of
// version 1502 or later that has vertices ends with a block, as its readers expect.
bool IsEmptyTreeRoot(const COcTreeNode& root) {
    return root.GetCount() == 0 && root.GetChildMask() == 0;
}

void WriteNode(std::ostream& stream, const COcTreeNode& node) {
    io::WriteRaw(stream, node.GetCount());
    io::WriteRaw(stream, node.GetFirst());
    io::WriteRaw(stream, node.GetChildMask());
    io::WriteRaw(stream, node.GetLeafMask());
    for (int octant = 0; octant < kOctantCount; ++octant) {
        if (node.HasLeafChild(octant)) {
            const COcTreeLeaf& leaf = node.GetLeaf(octant);
            io::WriteRaw(stream, leaf.count);
            io::WriteRaw(stream, leaf.first);
        } else if (node.HasNodeChild(octant)) {
            WriteNode(stream, node.GetNode(octant));
        }
    }
}

void WriteGeometry(std::ostream& stream, const TOcTreeGeometry& geometry) {
    for (const double value : {geometry.centreX, geometry.centreY, geometry.centreZ, geometry.side,
                               geometry.extentX, geometry.extentY, geometry.extentZ}) {
        io::WriteRaw(stream, value);
    }
}

// Writes @p tree, or the block of an empty tree when the tree has no root or does not describe
// the network's @p triCount triangles (a tree left stale inside a change event, or kept by a
// broken network whose triangles changed): such a tree would not survive the reader's check.
void WriteOcTreeBlock(std::ostream& stream, const COcTree& tree, int triCount) {
    const COcTreeNode* root = tree.GetRoot();
    if (root && CoversEachTriangleOnce(*root, triCount)) {
        WriteGeometry(stream, tree.GetGeometry());
        WriteNode(stream, *root);
        return;
    }
    WriteGeometry(stream, {UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE,
                           UNDEFINED_QUOTE, UNDEFINED_QUOTE, UNDEFINED_QUOTE});
    WriteNode(stream, COcTreeNode());
}

bool ReadGeometry(std::istream& stream, TOcTreeGeometry& geometry) {
    for (double* value : {&geometry.centreX, &geometry.centreY, &geometry.centreZ, &geometry.side,
                          &geometry.extentX, &geometry.extentY, &geometry.extentZ}) {
        if (!io::ReadRaw(stream, *value)) return false;
    }
    return true;
}

// Reads @p node, at @p depth below the root, and everything under it. Children are allocated
// only as their node's masks arrive, so memory follows the bytes actually read. False, with the
// stream failed, when the stream ends or the block goes deeper than a built tree.
bool ReadNode(std::istream& stream, COcTreeNode& node, int depth) {
    std::int32_t count = 0;
    std::int32_t first = 0;
    std::uint8_t childMask = 0;
    std::uint8_t leafMask = 0;
    if (!io::ReadRaw(stream, count) || !io::ReadRaw(stream, first) ||
        !io::ReadRaw(stream, childMask) || !io::ReadRaw(stream, leafMask))
        return false;
    node.SetRun(count, first);
    node.SetChildren(childMask, leafMask);
    for (int octant = 0; octant < kOctantCount; ++octant) {
        if (node.HasLeafChild(octant)) {
            COcTreeLeaf& leaf = node.GetLeaf(octant);
            if (!io::ReadRaw(stream, leaf.count) || !io::ReadRaw(stream, leaf.first)) return false;
        } else if (node.HasNodeChild(octant)) {
            if (depth + 1 > kMaxNodeDepth) return Fail(stream);
            if (!ReadNode(stream, node.GetNode(octant), depth + 1)) return false;
        }
    }
    return true;
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
    static void WritePoints(const CTris& tris, std::ostream& stream, bool cloudBound);
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
    // Before version 1502 a section has no cloud identifier to say that its items are cloud
    // indices, so a cloud-bound network goes out as the copies of its points, which a reader of
    // that version can use.
    const bool cloudBound = HasCloudAndOcTree(version) && tris.HoldsCld();
    if (cloudBound && !mapper)
        throw std::invalid_argument("CTris::SalvaInFile: a cloud-bound network needs a mapper");
    const std::size_t count = cloudBound ? tris.m_cloudIndexes.size() : tris.m_vertices.size();
    if (count == 0) return;

    // Mapped before the first byte goes out, so that a mapper that throws leaves no half section.
    const std::int64_t cloudId = cloudBound ? mapper->GetPointer32(static_cast<std::int64_t>(
                                                  reinterpret_cast<std::intptr_t>(tris.m_cloud)))
                                            : 0;
    io::WriteRaw(stream, static_cast<std::int32_t>(count));
    if (HasCloudAndOcTree(version)) io::WriteRaw(stream, cloudId);
    WritePoints(tris, stream, cloudBound);

    io::WriteRaw(stream, static_cast<std::int32_t>(tris.m_tris.size()));
    for (const CTri* tri : tris.m_tris) {
        for (int k = 0; k < 3; ++k)
            io::WriteRaw(stream, static_cast<std::int32_t>(tri->GetVerIndex(k)));
        if (HasTriColors(version)) io::WriteRaw(stream, static_cast<std::int32_t>(tri->GetColor()));
    }
    if (HasTriColors(version)) {
        io::WriteRaw(stream, tris.m_minQuota);
        io::WriteRaw(stream, tris.m_maxQuota);
    }
    if (HasCloudAndOcTree(version)) WriteOcTreeBlock(stream, *tris.m_octree, tris.GetNoTris());
}

void CTrisFileSection::WritePoints(const CTris& tris, std::ostream& stream, bool cloudBound) {
    if (cloudBound) {
        for (const std::int32_t index : tris.m_cloudIndexes) io::WriteRaw(stream, index);
        return;
    }
    for (const PNT_3D& p : tris.m_vertices) {
        io::WriteRaw(stream, p.x);
        io::WriteRaw(stream, p.y);
        io::WriteRaw(stream, p.z);
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
    if (HasCloudAndOcTree(version)) {
        // The close of this event must not replace the tree that the block brings.
        tris.m_listener->Disarm();
        // A tree already in place is kept and the block is left unread: the stream then stays
        // at the block's start.
        if (!tris.m_octree->HasRoot()) {
            const bool fitsNetwork = trisBefore == 0 && accepted == data.triCount;
            ReadOcTreeBlock(tris, stream, data.triCount, fitsNetwork, load);
        }
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
    const bool complete = ReadGeometry(stream, geometry) && ReadNode(stream, *root, 0);
    const bool emptyTree = complete && IsEmptyTreeRoot(*root);
    const bool validTree = complete && !emptyTree && CoversEachTriangleOnce(*root, sectionTris);
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
