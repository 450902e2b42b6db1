#pragma once

// Turning a survey's surface into a project of the library, and a project back into a surface.

#include <dtm/dtm.h>

#include "TinSurface.h"

namespace dtmtool {

class Workspace;

/// Adds a project named after @p surface to @p workspace and fills it in one change event: the
/// vertices and triangles (coloured by elevation classes), the external and internal boundaries
/// and the breaklines, one breakline per polyline segment, since a breakline of the library is
/// one 3D segment. The network computes its colours and spatial index when the event closes.
/// The surface's survey record (units, point ids), when it has one, goes to the workspace's
/// records. The faces must refer to existing points. The answer is borrowed: the library
/// holds it.
CDtmPrj* AddSurfaceProject(Workspace& workspace, const TinSurface& surface);

/// The surface of @p prj: its vertices in network order, its triangles (those whose vertices
/// all exist) in network order, its boundaries as plain rings and its breaklines joined into
/// polylines where one segment starts exactly where the previous one ended; with @p record, the
/// project's survey record.
TinSurface SurfaceOfProject(const CDtmPrj& prj, const SurveyRecord* record = nullptr);

/// The ring of boundary @p cnt as the survey gave it: its stored points without the copies
/// that close the ring at both ends.
Polyline3D RealRing(const CCnt& cnt);

}  // namespace dtmtool
