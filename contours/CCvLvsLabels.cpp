// Keeping the label intervals of contour lines consistent with the text options.

#include <dtm/contours/CCvLvs.h>

#include <dtm/contours/CCvLv.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/Events.h>

#include <algorithm>
#include <stdexcept>

namespace {

struct TSpan {
    double start;
    double end;
};

/// The extent of a label now centred at @p centre that needs @p extent along the line.
///
/// The label stays centred where the host put it; its half-length is extent/2, shortened by the
/// start of the line (spine 0) and by the start of the next interval (@p next, when there is
/// one). The end of the previous interval (@p previous) is applied as well, but that rule can
/// only move the lower end further from the centre, so it never shortens the label, which may
/// then overlap the previous interval; this is deliberate and kept.
TSpan FitLabel(double centre, double extent, const CCvLvInterv* previous, const CCvLvInterv* next) {
    // A label that is not centred on the line takes no length of it.
    if (extent == 0.0) return {centre, centre};
    double low = std::max(centre - extent / 2.0, 0.0);
    double high = centre + extent / 2.0;
    if (previous != nullptr && low > previous->GetEnd()) low = previous->GetEnd();
    if (next != nullptr && high > next->GetStart()) high = next->GetStart();
    const double half = std::max(std::min(centre - low, high - centre), 0.0);
    return {centre - half, centre + half};
}

}  // namespace

void CCvLvs::UpdateCvLvTextIntervals(CCvLv* line) {
    if (line == nullptr)
        throw std::invalid_argument("CCvLvs::UpdateCvLvTextIntervals: null contour line");
    const unsigned count = line->GetNoIntervals();
    if (count == 0 || line->GetNoNodes() == 0) return;

    // Each interval is stored as a change of its own: outside an event of the caller's, every
    // text interval is one event (and one undo step). SetTextOptions brackets all its lines in
    // one event.
    const double extent = m_opz.GetQuotaExtent(line->GetQuota());
    for (unsigned i = 0; i < count; ++i) {
        const CCvLvInterv& interval = *line->GetIntervalAt(i);
        if (!interval.IsText()) continue;
        const double centre = (interval.GetStart() + interval.GetEnd()) / 2.0;
        const TSpan fitted = FitLabel(centre, extent, i > 0 ? line->GetIntervalAt(i - 1) : nullptr,
                                      i + 1 < count ? line->GetIntervalAt(i + 1) : nullptr);
        line->ChangeIntervalDimension(static_cast<int>(i), fitted.start, fitted.end);
    }
}
