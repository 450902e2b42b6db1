#pragma once

// How the tool colours a network: graded elevation classes from low greens to grey tops.

#include <dtm/dtm.h>

namespace dtmtool {

/// The tool's graded colour-class table, from pale green for the lowest ground through yellow
/// and orange to light grey for the tops (CAD colour indices, one blended step between
/// neighbours), spread over the network's elevation range.
CColorClassComputer HypsometricClasses();

/// Switches @p tris to colouring by HypsometricClasses through CTris::SetVisOptions, keeping
/// its other display options: the network reports the change and re-colours its triangles.
void ColourByElevation(CTris& tris);

/// Stores the same colouring in @p options without any notification, for a network that is
/// about to be filled: its triangles then need no re-colouring pass.
void PresetElevationColours(COpzTri& options);

}  // namespace dtmtool
