#pragma once

// A triangulated surface as a survey file describes it, before it becomes a project (and after
// a project is turned back into one for export).

#include <dtm/support/Geom.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "SurveyRecord.h"

namespace dtmtool {

/// A polyline or ring of 3D points; x is the easting, y the northing, z the elevation.
using Polyline3D = std::vector<kor::geom::PNT_3D>;

/// One TIN surface.
struct TinSurface {
    /// The surface's name, which becomes the project's name.
    std::string name;
    /// The vertices in file order, x = easting, y = northing.
    std::vector<kor::geom::PNT_3D> points;
    /// The visible triangles, as indices into points, in file order and winding (the hidden
    /// faces are in the survey record).
    std::vector<std::array<int, 3>> faces;
    /// Breaklines as polylines of at least two points.
    std::vector<Polyline3D> breaklines;
    /// Outer boundaries as rings without the closing repeat of the first point.
    std::vector<Polyline3D> externalBoundaries;
    /// Holes (voids) as rings without the closing repeat.
    std::vector<Polyline3D> internalBoundaries;
    /// The units of the file, the survey's id of each point, what its breaklines and boundaries
    /// were called, its boundaries of kinds that do not limit the terrain model and its hidden
    /// faces.
    SurveyRecord survey;
};

}  // namespace dtmtool
