#include <dtm/network/CTris.h>

#include <dtm/network/CCld.h>
#include <dtm/network/CTri.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>

#include "network/COcTree.h"
#include "network/CTrisEventListener.h"
#include "network/CTrisSearchIndex.h"
#include "support/ScopeExit.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace {

constexpr double RESET_MIN_QUOTA = std::numeric_limits<double>::infinity();
constexpr double RESET_MAX_QUOTA = -std::numeric_limits<double>::infinity();

}  // namespace

CTris::CTris(CDtmPrj* project)
    : m_context(project ? project->GetContext() : nullptr),
      m_minQuota(RESET_MIN_QUOTA),
      m_maxQuota(RESET_MAX_QUOTA),
      m_project(project),
      m_octree(std::make_unique<COcTree>(this)),
      m_listener(std::make_unique<CTrisEventListener>(this)) {}

CTris::~CTris() {
    DoRemoveAll();
    m_octree.reset();
    m_listener.reset();
}

// Vertices -----------------------------------------------------------------------------------

void CTris::AppendVertex(const kor::geom::PNT_3D& p) {
    m_vertices.push_back(p);
    ++m_appendedVertices;  // search index: an append, not a change
    UpdateMinMaxQuota(p.z);
    m_context->Notify_Tri_Vrt_Added();
}

void CTris::AppendVertices(const kor::geom::PNT_3D* points, std::size_t count) {
    if (!AdditionsUnheard()) {
        for (std::size_t i = 0; i < count; ++i) AppendVertex(points[i]);
        return;
    }
    // Nothing to announce, so the points go in as a block; the array gains all or none of them
    // should it fail to grow, where one by one it would keep those before the failure.
    m_vertices.insert(m_vertices.end(), points, points + count);
    NoteVerticesAppended(count);
}

bool CTris::AdditionsUnheard() const {
    return m_context->AdditionsUnheard();
}

void CTris::NoteVerticesAppended(std::size_t count) {
    m_appendedVertices += count;
    FoldQuotas(m_vertices.data() + (m_vertices.size() - count), count);
}

void CTris::UpdateMinMaxQuota(double z) {
    m_minQuota = std::min(m_minQuota, z);
    m_maxQuota = std::max(m_maxQuota, z);
}

void CTris::FoldQuotas(const kor::geom::PNT_3D* points, std::size_t count) {
    // Folded in locals: the points are doubles as the range is, and kept in the members every
    // step became a store and a reload of each.
    double low = m_minQuota;
    double high = m_maxQuota;
    for (std::size_t i = 0; i < count; ++i) {
        low = std::min(low, points[i].z);
        high = std::max(high, points[i].z);
    }
    m_minQuota = low;
    m_maxQuota = high;
}

void CTris::ReserveTriAppends(std::size_t count) {
    m_tris.reserve(m_tris.size() + count);
    m_context->ReserveTriAdded(count);
}

bool CTris::AddTriVrt(const kor::geom::PNT_3D& p) {
    AppendVertex(p);
    return true;
}

void CTris::KeepReportedVrtEdit(int i, const kor::geom::PNT_3D& after) {
    const bool inside = i >= 0 && i < GetNoTriVrts();
    m_reportedVrtIndex = inside ? i : -1;
    if (!inside) return;
    m_reportedVrtBefore = m_vertices[static_cast<std::size_t>(i)];
    m_reportedVrtAfter = after;
}

void CTris::SetTriVrtAt(int i, const kor::geom::PNT_3D& p) {
    KeepReportedVrtEdit(i, p);
    m_context->Notify_Tri_Vrt_Moved();
    m_vertices.at(static_cast<std::size_t>(i)) = p;
    NoteGeometryChanged();
}

void CTris::RemoveTriVrt(int i) {
    KeepReportedVrtEdit(i, kor::geom::PNT_3D());
    m_vertices.erase(m_vertices.begin() + i);
    NoteGeometryChanged();
    m_context->Notify_Tri_Vrt_Removed();
}

void CTris::SetNoTriVrts(int n) {
    if (n > 0) m_vertices.reserve(static_cast<std::size_t>(n));
}

void CTris::UpdateMinMaxQuota() {
    m_minQuota = RESET_MIN_QUOTA;
    m_maxQuota = RESET_MAX_QUOTA;
    FoldQuotas(m_vertices.data(), m_vertices.size());
}

// Triangles ----------------------------------------------------------------------------------

void CTris::AddTri(CTri* t) {
    m_tris.push_back(t);
    ++m_appendedTris;  // search index: an append, not a change
    // The store's reference follows the report, but is taken also when the report fails (an
    // allocation of the context): the array lists the triangle by then and must own it, or
    // the creator's release would leave the array pointing at a destroyed triangle.
    const auto takeReference = dtm::detail::OnScopeExit([t] { t->AddReference(); });
    m_context->Notify_Tri_Added(t);
}

CTri* CTris::AddNewTri(int colour, int i0, int i1, int i2) {
    if (!m_broken) {
        const int count = GetNoTriVrts();
        if (i0 >= count || i1 >= count || i2 >= count) return nullptr;
    }
    // As AddTri, with the creation reference handed to the network instead of a reference taken
    // and the creation one dropped: the same count at every step a listener can see, without
    // two atomic operations per triangle (a file section adds millions).
    auto created = kor::CRefPtr<CTri>::Adopt(new CTri(colour, i0, i1, i2));
    m_tris.push_back(created.Get());
    CTri* triangle = created.Detach();
    ++m_appendedTris;  // search index: an append, not a change
    m_context->Notify_Tri_Added(triangle);
    return triangle;
}

void CTris::AppendNewTrisUnheard(CTri* const* created, std::size_t count) {
    try {
        m_tris.insert(m_tris.end(), created, created + count);
    } catch (...) {
        // The array is as it was; the references handed over have no other owner.
        for (std::size_t i = 0; i < count; ++i) created[i]->SubReference();
        throw;
    }
    m_appendedTris += count;  // search index: appends, not changes
    m_context->NoteTrisAddedUnheard(created, count);
}

void CTris::RemoveTriAt(int i) {
    CTri* triangle = m_tris.at(static_cast<std::size_t>(i));
    m_tris.erase(m_tris.begin() + i);
    NoteGeometryChanged();
    // The context takes its own reference before ours goes, so the triangle outlives the event.
    const auto ours = kor::CRefPtr<CTri>::Adopt(triangle);
    m_context->Notify_Tri_Removed(triangle);
}

void CTris::RemoveTri(CTri* t) {
    const int index = FindTriIndex(t);
    if (index >= 0) RemoveTriAt(index);
}

bool CTris::RemoveTri(double x, double y, double /*z*/) {
    const kor::geom::PNT_2D p(x, y);
    for (int i = 0; i < GetNoTris(); ++i) {
        const TVrtTri v = GetVrtTriAt(i);
        if (kor::geom::IsPntInsideTriangle(v.p[0], v.p[1], v.p[2], p)) {
            RemoveTriAt(i);
            return true;
        }
    }
    return false;
}

void CTris::RemoveAll() {
    kor::CEventGuard event(m_context);
    m_context->Notify_Tri_RemoveAll();
    DoRemoveAll();
}

void CTris::DoRemoveAll() {
    m_vertices.clear();
    m_cloudIndexes.clear();
    std::vector<CTri*> released;
    released.swap(m_tris);
    for (auto it = released.rbegin(); it != released.rend(); ++it) (*it)->SubReference();
    m_selection.clear();
    m_colours.clear();
    m_normals.clear();
    m_minQuota = RESET_MIN_QUOTA;
    m_maxQuota = RESET_MAX_QUOTA;
    m_broken = false;
    NoteGeometryChanged();
    // The pointer stays, as the binding's record; only the reference goes.
    if (m_cloud && m_cloudReferenced) m_cloud->SubReference();
    m_cloudReferenced = false;
}

int CTris::FindTriIndex(const CTri* t) const {
    const auto found = std::find(m_tris.begin(), m_tris.end(), t);
    return found == m_tris.end() ? -1 : static_cast<int>(found - m_tris.begin());
}

CTri* CTris::GetTriAt(int i) const {
    return m_tris.at(static_cast<std::size_t>(i));
}

TVrtTri CTris::GetVrtTri(const CTri* t) const {
    TVrtTri points;
    points.Set(VertexAt(m_vertices, t->GetVerIndex(0)), VertexAt(m_vertices, t->GetVerIndex(1)),
               VertexAt(m_vertices, t->GetVerIndex(2)));
    return points;
}

TVrtTri CTris::GetVrtTriAt(int i) const {
    return GetVrtTri(GetTriAt(i));
}

void CTris::OrdSensOrarTri(int i) {
    if (i >= 0 && i < GetNoTris()) m_tris[static_cast<std::size_t>(i)]->ClockwiseOrder(this);
}

void CTris::CalcCentroTri(int i, double& x, double& y) const {
    const TVrtTri v = GetVrtTriAt(i);
    // Summed in vertex order, then the third vertex once more: the order of the additions is
    // kept so that the result is bit-identical wherever it is recomputed.
    x = 0.0;
    y = 0.0;
    for (int k = 0; k < 3; ++k) {
        x += v.p[k].x;
        y += v.p[k].y;
    }
    x += v.p[2].x;
    y += v.p[2].y;
    x *= 0.25;
    y *= 0.25;
}

// Selection ----------------------------------------------------------------------------------

void CTris::InitSelTris() {
    m_selection.clear();
    if (!m_broken) m_selection.assign(m_tris.size() / 8 + 1, 0);
}
