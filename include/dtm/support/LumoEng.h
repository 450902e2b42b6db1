#pragma once

/// @file
/// The CAD colour engine: the 256-entry colour index palette and its conversions.

#include <dtm/support/Export.h>

/// Converts CAD colour indexes to RGB and back. Index 7 is white (drawn on a dark background);
/// index 256 means "by layer" and is resolved by the callers before they get here.
///
/// The palette is compiled into the library. It holds a few repeated colours: 10, 50, 90, 130,
/// 170, 210 and 255 repeat 1, 2, 3, 4, 5, 6 and 7, so those indexes do not survive a round trip
/// through RGB (they come back as the lower index). Index 0 is black.
class DTM_API CLumoEng {
public:
    /// Components 0..1 of palette entry @p index (each 0..255 component divided by 255).
    ///
    /// An index outside 0..255 (256 "by layer", negatives) gives white (1, 1, 1): the caller
    /// was meant to resolve it, and white is the CAD's default foreground.
    static void Index_to_RGB(short index, float& r, float& g, float& b);
    /// Components 0..255 of palette entry @p index; an index outside 0..255 gives white
    /// (255, 255, 255), as the float overload.
    static void Index_to_RGB(short index, long& r, long& g, long& b);
    /// The palette index nearest to the colour packed as (r << 16) | (g << 8) | b, by squared
    /// RGB distance, the lowest index on ties; bits above 23 are ignored.
    ///
    /// Every index 0..255 is searched, so every palette colour gives its own index, or the lower
    /// index of a repeated colour (see the class comment). Never fails.
    static short RGB_to_Index(unsigned long packedRgb);
};
