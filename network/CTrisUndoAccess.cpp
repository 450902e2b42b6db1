#include "network/CTrisUndoAccess.h"

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/RefCounter.h>

#include <cstddef>
#include <unordered_set>

void CTris::ReportVrtsMoved() {
    m_context->Notify_Tri_Vrt_Moved();
}

void CTris::ReportTriRemoved(CTri* t) {
    m_context->Notify_Tri_Removed(t);
}

CTrisUndoAccess::TVrtEdit CTrisUndoAccess::TakeReportedVrtEdit(CTris& tris) noexcept {
    TVrtEdit edit;
    edit.index = tris.m_reportedVrtIndex;
    edit.before = tris.m_reportedVrtBefore;
    edit.after = tris.m_reportedVrtAfter;
    tris.m_reportedVrtIndex = -1;
    return edit;
}

void CTrisUndoAccess::InsertVrts(CTris& tris, int index,
                                 const std::vector<kor::geom::PNT_3D>& points) {
    if (points.empty() || index < 0 || index > tris.GetNoTriVrts()) return;
    const bool shiftsOthers = index < tris.GetNoTriVrts();
    tris.m_reportedVrtIndex = -1;
    tris.m_vertices.insert(tris.m_vertices.begin() + index, points.begin(), points.end());
    tris.NoteGeometryChanged();
    // Triangles that index the vertices that moved up now sit on other points: the derived
    // data (octree, normals) must be rebuilt, which the moved flag asks for.
    if (shiftsOthers) tris.ReportVrtsMoved();
}

void CTrisUndoAccess::EraseVrts(CTris& tris, int index, int count) {
    if (count <= 0 || index < 0 || count > tris.GetNoTriVrts() - index) return;
    const bool shiftsOthers = index + count < tris.GetNoTriVrts();
    tris.m_reportedVrtIndex = -1;
    tris.m_vertices.erase(tris.m_vertices.begin() + index, tris.m_vertices.begin() + index + count);
    tris.NoteGeometryChanged();
    if (shiftsOthers) tris.ReportVrtsMoved();
}

void CTrisUndoAccess::SetVrt(CTris& tris, int index, const kor::geom::PNT_3D& p) {
    if (index < 0 || index >= tris.GetNoTriVrts()) return;
    tris.m_reportedVrtIndex = -1;
    tris.ReportVrtsMoved();
    tris.m_vertices[static_cast<std::size_t>(index)] = p;
    tris.NoteGeometryChanged();
}

void CTrisUndoAccess::ReplaceVrts(CTris& tris, const std::vector<kor::geom::PNT_3D>& points) {
    tris.m_reportedVrtIndex = -1;
    tris.ReportVrtsMoved();
    tris.m_vertices = points;
    tris.NoteGeometryChanged();
}

void CTrisUndoAccess::SetQuotaRange(CTris& tris, double minQuota, double maxQuota) noexcept {
    tris.m_minQuota = minQuota;
    tris.m_maxQuota = maxQuota;
}

void CTrisUndoAccess::RemoveTris(CTris& tris, const std::vector<CTri*>& triangles) {
    if (triangles.empty()) return;
    const std::unordered_set<const CTri*> listed(triangles.begin(), triangles.end());
    std::vector<CTri*> kept;
    kept.reserve(tris.m_tris.size());
    // The network's references on the removed triangles, released once each is reported, or on
    // the way out when a report throws: the triangle is out of the array either way.
    std::vector<kor::CRefPtr<CTri>> removed;
    // Room for every entry in both, so that nothing below can fail before the swap: a
    // reference adopted and then dropped by a failure would leave the array without it.
    removed.reserve(tris.m_tris.size());
    for (CTri* triangle : tris.m_tris) {
        if (listed.count(triangle) != 0)
            removed.push_back(kor::CRefPtr<CTri>::Adopt(triangle));
        else
            kept.push_back(triangle);
    }
    tris.m_tris.swap(kept);
    tris.NoteGeometryChanged();
    // Reported after the array is whole again, as RemoveTriAt reports after its erase; the
    // context takes its own reference before ours goes.
    for (kor::CRefPtr<CTri>& triangle : removed) {
        tris.ReportTriRemoved(triangle.Get());
        triangle.Reset();
    }
}
