#pragma once

/// @file
/// The CAD colour engine: the 256-entry colour index palette and its conversions.

#include <dtm/support/Export.h>

/// Converts CAD colour indexes to RGB and back. Index 7 is white (drawn on a dark background);
/// index 256 means "by layer" and is resolved by the callers before they get here.
class DTM_API CLumoEng {
public:
    /// Components 0..1 of palette entry @p index; an index outside 0..255 gives white.
    static void Index_to_RGB(short index, float& r, float& g, float& b);
    /// Components 0..255 of palette entry @p index; an index outside 0..255 gives white.
    static void Index_to_RGB(short index, long& r, long& g, long& b);
    /// The palette index nearest to the colour packed as (r << 16) | (g << 8) | b, by squared
    /// RGB distance, the lowest index on ties; bits above 23 are ignored.
    static short RGB_to_Index(unsigned long packedRgb);
};
