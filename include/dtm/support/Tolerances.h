#pragma once

/// @file
/// The one home of the library's sentinels and tolerances. Every comparison with a tolerance
/// uses a named value from here, so that a reader can see at once why a number has its value.

#include <cmath>

namespace dtm {

/// Elevation that means "no elevation": outside the network, a graded colour class, an open
/// profile end. Also fills unset bounds.
constexpr double UNDEFINED_QUOTE = 1.7e200;

/// Any value at or above half of UNDEFINED_QUOTE counts as undefined. Callers compare against
/// this threshold, never for equality, because an undefined value may have passed through
/// arithmetic (an average of three undefined elevations is still undefined).
constexpr double UNDEFINED_QUOTE_THRESHOLD = 8.5e199;

/// True when @p z means "no elevation".
constexpr bool IsUndefinedQuote(double z) {
    return z >= UNDEFINED_QUOTE_THRESHOLD;
}

/// Relative and absolute parts of the tolerant equality of doubles: x and y are equal when they
/// differ by at most |x| * 1e-12 + 1e-12. The absolute part keeps values near zero comparable.
constexpr double RELATIVE_TOLERANCE = 1e-12;
constexpr double ABSOLUTE_TOLERANCE = 1e-12;

/// Tolerance around a finite @p x; 0 for infinities and NaN, so that those compare exactly.
inline double ToleranceOf(double x) {
    return std::isfinite(x) ? std::fabs(x) * RELATIVE_TOLERANCE + ABSOLUTE_TOLERANCE : 0.0;
}

/// Tolerance of the inside-triangle test of the elevation query: a point this close to an edge
/// still counts as inside, so a point on a shared edge is never lost between two triangles.
constexpr double INSIDE_TRIANGLE_TOLERANCE = 1e-8;

/// Plan distance under which an elevation query snaps to a vertex's own elevation.
constexpr double VERTEX_SNAP_DISTANCE = 0.0001;

}  // namespace dtm

// The sentinel is spelled without a namespace throughout the library's interface.
using dtm::UNDEFINED_QUOTE;
