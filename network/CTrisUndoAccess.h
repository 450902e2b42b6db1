#pragma once

// The undo machinery's door into the network. Library-internal: the host never sees it, and
// nothing here changes what the network's own operations do or report.

#include <dtm/support/Geom.h>

#include <vector>

class CTri;
class CTris;

/// What undo needs from a network beyond its public operations: the index of the vertex edit
/// being reported (the notifications carry none), vertex edits at any position, the elevation
/// range set as it was, and many triangles removed in one pass.
///
/// Every edit marks the network's search data out of date (NoteGeometryChanged), even an insertion
/// at the end, which the network's own appends only count. The edits report what the host's
/// listeners and the network's derived data can see: triangles removed, and vertices moved whenever
/// vertices that triangles may index change place or value, so that the network rebuilds its
/// derived data when the undo event closes. Vertices added or removed at the end are reported to
/// nobody: those notifications reach only the undo listener, which is quiet while an undo step
/// applies. Each edit forgets the reported vertex edit first, so that its own notifications are
/// never taken for an edit of the host's. Indices outside the vertex array are ignored, so that a
/// command applied to a network that changed behind its back (outside recording) stays within its
/// arrays.
class CTrisUndoAccess {
public:
    /// A vertex overwrite or erasure that the network is reporting.
    struct TVrtEdit {
        int index = -1;  ///< The vertex; -1 when no edit is being reported.
        kor::geom::PNT_3D before;
        kor::geom::PNT_3D after;  ///< For an overwrite only.
    };

    /// The edit behind the vertex notification now being delivered, which is then forgotten so
    /// that a later notification without an edit of its own cannot pick it up again.
    static TVrtEdit TakeReportedVrtEdit(CTris& tris) noexcept;

    /// Inserts @p points before vertex @p index (the vertex count appends); reports vertices
    /// moved when vertices after them moved up.
    static void InsertVrts(CTris& tris, int index, const std::vector<kor::geom::PNT_3D>& points);
    /// Erases @p count vertices from @p index; reports vertices moved when vertices after them
    /// moved down.
    static void EraseVrts(CTris& tris, int index, int count);
    /// Reports vertices moved, then overwrites vertex @p index with @p p.
    static void SetVrt(CTris& tris, int index, const kor::geom::PNT_3D& p);
    /// Replaces the whole vertex array with @p points, reporting vertices moved.
    static void ReplaceVrts(CTris& tris, const std::vector<kor::geom::PNT_3D>& points);

    /// Sets the elevation range as given: undo restores the range an event left, whatever the
    /// vertices that remain would give.
    static void SetQuotaRange(CTris& tris, double minQuota, double maxQuota) noexcept;

    /// Removes every listed triangle that the network holds, in one pass that keeps the others
    /// in their order, and reports each one removed (the context keeps it alive until the event
    /// closes). Removing them one by one would cost a search and a shift each.
    static void RemoveTris(CTris& tris, const std::vector<CTri*>& triangles);
};
