#include "ElevationColours.h"

namespace dtmtool {

namespace {

// CAD colour indices of the classes, low to high: pale green, yellow-green, yellow, amber,
// orange, salmon and a light grey for the tops. The odd indices of the palette's hue rows are
// the half-saturated ones, light enough for contour lines and labels to stay readable.
constexpr int kClassColours[] = {91, 71, 51, 41, 31, 21, 9};
// One blended colour between two neighbouring classes. A blend is drawn as the nearest palette
// colour, and the palette holds few light colours: more steps land on dark, unrelated entries
// (olive between orange and brown), one step lands on the pale neighbours in the same hue row.
constexpr unsigned kStepsBetweenClasses = 1;

}  // namespace

CColorClassComputer HypsometricClasses() {
    CColorClassComputer classes;
    int position = 0;
    for (const int colour : kClassColours) classes.AddEntry(position++, colour);
    classes.SetNoSteps(kStepsBetweenClasses);
    return classes;
}

void ColourByElevation(CTris& tris) {
    const COpzTri& current = tris.GetOptions();
    tris.SetVisOptions(current.IsFirstDisplayFlag(), current.IsSecondDisplayFlag(),
                       COpzTri::TRI_COLOR_BY_CLASSES, current.GetFixedColor(),
                       current.GetLayerColor(), HypsometricClasses(), current.GetSymbol(),
                       current.GetTextHeight(), current.GetScaleFactor());
}

void PresetElevationColours(COpzTri& options) {
    options.SetColorType(COpzTri::TRI_COLOR_BY_CLASSES);
    options.SetColorClasses(HypsometricClasses());
}

}  // namespace dtmtool
