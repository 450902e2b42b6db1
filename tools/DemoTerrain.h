#pragma once

// The sample terrain of "dtm demo", generated in code so that the demo needs no input file.

#include <dtm/dtm.h>

#include <string>

namespace dtmtool {

class Workspace;

/// Named places of the demo terrain, for the printed summary.
struct DemoLandmarks {
    kor::geom::PNT_2D hillTop;
    kor::geom::PNT_2D valleyFloor;
    kor::geom::PNT_2D ridgeCrest;
    kor::geom::PNT_2D pond;
    /// A plan line across the valley and over the ridge, for the profile.
    kor::geom::LINE_2D section;
};

/// Adds the demo project to @p workspace and fills it in one change event: some 33,000
/// triangles over a 2.2 by 1.6 km patch of rolling ground with a hill, a valley and a ridge;
/// one external boundary (the patch's irregular outline), one internal boundary (a pond, whose
/// triangles are left out) and three breaklines along the creases of the relief (the ridge's
/// crest, the valley's floor and the foot of a bank), which follow edges of the network as a
/// triangulation respecting them would. Its units (metres) go to the workspace's survey
/// records. The same terrain comes out on every machine: nothing
/// random is drawn from the standard library, whose distributions differ between
/// implementations.
///
/// The answer is borrowed: the library holds the project. @p landmarks receives places worth
/// querying.
CDtmPrj* BuildDemoTerrain(Workspace& workspace, DemoLandmarks& landmarks);

}  // namespace dtmtool
