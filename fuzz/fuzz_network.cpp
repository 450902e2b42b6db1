// The network's file section (CTris::LeggeDaFile) from arbitrary bytes.
//
// Input: the stream version (int16), then the section. The document of the run holds one
// cloud of a few points under identifier 1, so that cloud-bound sections reach the cloud link
// too; every other identifier names nothing.
//
// Checked after each read: no event left open; every triangle refers to existing vertices;
// a tree in place covers the triangle array exactly once; the indexed elevation query agrees
// with a plain scan; a read with load false consumes what a read with load true consumes and
// keeps no vertex or triangle; and a section that was read whole is written back (at 1502 at
// least) in a form that reads back whole and writes the same bytes again.

#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/RefCounter.h>

#include "network/COcTree.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "FuzzSupport.h"

/// Reaches the plain-scan elevation query, the reference of the indexed one (a friend of CTris).
struct CTrisSearchTestAccess {
    static double ScanElevation(const CTris& tris, double x, double y) {
        return tris.GetCoordZQByScan(x, y);
    }
};

namespace {

using dtm_fuzz::Check;
using kor::geom::PNT_3D;

constexpr std::int32_t kCloudId = 1;
constexpr int kCloudPoints = 6;
constexpr short kFirstVersionWithTree = 1502;
// The elevation query is compared at this many triangles' centroids at most: enough to walk
// the tree, few enough to keep every input fast.
constexpr int kProbedTriangles = 8;

struct Document {
    Document() : cloud(kor::CRefPtr<CMemCld>::Adopt(new CMemCld)) {
        for (int i = 0; i < kCloudPoints; ++i)
            cloud->AddPnt(PNT_3D(i * 10.0, (i % 3) * 7.0, 100.0 + i));
        remapper.AddId(kCloudId, cloud.Get());
    }
    kor::CRefPtr<CMemCld> cloud;
    kor::CRefObjIdRemapper remapper;
};

dtm_fuzz::ReadOutcome Read(CTris& tris, const std::string& bytes, short version, bool load,
                           const Document& document) {
    return dtm_fuzz::ReadFrom(bytes, version, [&](ifpstream& stream) {
        tris.LeggeDaFile(stream, document.remapper, load);
    });
}

bool TrianglesReferToVertices(const CTris& tris) {
    const int vertexCount = tris.GetNoTriVrts();
    for (int i = 0; i < tris.GetNoTris(); ++i) {
        const CTri* tri = tris.GetTriAt(i);
        for (int k = 0; k < 3; ++k) {
            const int vertex = tri->GetVerIndex(k);
            if (vertex < 0 || vertex >= vertexCount) return false;
        }
    }
    return true;
}

// Marks every run of the tree below @p node in @p covered; false when a run leaves the array
// or covers a triangle twice.
bool MarkRuns(const COcTreeNode& node, std::vector<bool>& covered) {
    auto mark = [&covered](std::int32_t count, std::int32_t first) {
        const std::int64_t end = std::int64_t{first} + count;
        if (count < 0 || first < 0 || end > static_cast<std::int64_t>(covered.size())) return false;
        for (std::int64_t i = first; i < end; ++i) {
            if (covered[static_cast<std::size_t>(i)]) return false;
            covered[static_cast<std::size_t>(i)] = true;
        }
        return true;
    };
    if (!mark(node.GetCount(), node.GetFirst())) return false;
    for (int octant = 0; octant < 8; ++octant) {
        if (node.HasLeafChild(octant)) {
            const COcTreeLeaf& leaf = node.GetLeaf(octant);
            if (!mark(leaf.count, leaf.first)) return false;
        } else if (node.HasNodeChild(octant) && !MarkRuns(node.GetNode(octant), covered)) {
            return false;
        }
    }
    return true;
}

bool TreeCoversTrianglesOnce(const CTris& tris) {
    const COcTreeNode* root = COcTree::Of(tris).GetRoot();
    if (!root) return true;
    std::vector<bool> covered(static_cast<std::size_t>(tris.GetNoTris()), false);
    if (!MarkRuns(*root, covered)) return false;
    for (const bool each : covered)
        if (!each) return false;
    return true;
}

bool SameElevation(double a, double b) {
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof(double)) == 0;
}

void CheckElevationQuery(const CTris& tris) {
    const int probes = tris.GetNoTris() < kProbedTriangles ? tris.GetNoTris() : kProbedTriangles;
    for (int i = 0; i < probes; ++i) {
        const CTri* tri = tris.GetTriAt(i);
        double x = 0.0;
        double y = 0.0;
        for (int k = 0; k < 3; ++k) {
            const PNT_3D& p = tris.GetPnts()[static_cast<std::size_t>(tri->GetVerIndex(k))];
            x += p.x / 3.0;
            y += p.y / 3.0;
        }
        Check(
            SameElevation(tris.GetCoordZQ(x, y), CTrisSearchTestAccess::ScanElevation(tris, x, y)),
            "the indexed elevation query agrees with the plain scan");
    }
}

std::string Written(const CTris& tris, short version, const Document& document) {
    kor::CPtr64Mapper mapper;
    mapper.SetId(document.cloud.Get(), kCloudId);
    return dtm_fuzz::WrittenBy(version,
                               [&](ofpstream& stream) { tris.SalvaInFile(stream, &mapper); });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    dtm_fuzz::InitialiseLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const dtm_fuzz::AllocationBound bound(size);
    dtm_fuzz::VersionedInput input;
    if (!dtm_fuzz::SplitVersion(data, size, input)) return 0;
    const Document document;

    const auto project = dtm_fuzz::NewProject();
    CTris& tris = *project->GetTris();
    const dtm_fuzz::ReadOutcome loaded = Read(tris, input.section, input.version, true, document);
    Check(dtm_fuzz::EventsClosed(*project), "no change event is left open");
    Check(TrianglesReferToVertices(tris), "every triangle refers to existing vertices");
    Check(TreeCoversTrianglesOnce(tris), "the tree covers the triangle array exactly once");
    CheckElevationQuery(tris);

    const auto skipping = dtm_fuzz::NewProject();
    CTris& skipped = *skipping->GetTris();
    const dtm_fuzz::ReadOutcome stepped =
        Read(skipped, input.section, input.version, false, document);
    Check(dtm_fuzz::EventsClosed(*skipping), "no change event is left open (load false)");
    Check(skipped.GetNoTriVrts() == 0 && skipped.GetNoTris() == 0,
          "a read with load false keeps no vertex or triangle");
    Check(stepped.failed == loaded.failed, "load false fails exactly where load true fails");
    if (!loaded.failed)
        Check(stepped.consumed == loaded.consumed, "load false consumes what load true consumes");

    // A broken network keeps its section's indices without points, which only the same
    // document can serve again: its rewrite is not a section that stands on its own.
    if (loaded.failed || tris.IsBroken()) return 0;
    // Below 1502 the writer puts out the identifier and the tree block that only a reader of
    // 1502 or later takes, so an older section is rewritten at 1502.
    const short rewriteVersion =
        input.version < kFirstVersionWithTree ? kFirstVersionWithTree : input.version;
    // An older section brings no tree: the network builds one at its next change event, here at
    // once, so that the rewrite carries the tree that a read of it keeps.
    if (input.version < kFirstVersionWithTree) tris.CalcOcTree();
    const std::string firstWrite = Written(tris, rewriteVersion, document);
    if (firstWrite.empty()) return 0;  // an empty network writes no section at all
    dtm_fuzz::CheckRewriteIsStable(firstWrite, [&](const std::string& bytes, std::string& again) {
        const auto copyProject = dtm_fuzz::NewProject();
        CTris& copy = *copyProject->GetTris();
        const dtm_fuzz::ReadOutcome outcome = Read(copy, bytes, rewriteVersion, true, document);
        again = Written(copy, rewriteVersion, document);
        return outcome;
    });
    return 0;
}
