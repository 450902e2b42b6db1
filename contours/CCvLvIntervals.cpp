// The intervals of a contour line: adding with its merging and refusal rules, removing,
// resizing and turning labels round.

#include <dtm/contours/CCvLv.h>

#include <dtm/project/CDtmChangeContext.h>
#include <dtm/support/Tolerances.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

using IntervalList = std::vector<kor::CRefPtr<CCvLvInterv>>;

/// Whether an existing interval @p other meets the new empty interval [start, end] on their
/// overlap [max of starts, min of ends]. A label must really overlap to be swallowed, while two
/// gaps that merely touch (within the tolerance) are one gap.
bool MeetsEmpty(const CCvLvInterv& other, double start, double end) {
    const double overlapStart = std::max(other.GetStart(), start);
    const double overlapEnd = std::min(other.GetEnd(), end);
    const double tolerance = dtm::ToleranceOf(overlapEnd);
    if (other.IsText()) return overlapEnd - tolerance > overlapStart;
    return overlapEnd + tolerance >= overlapStart;
}

/// Whether the found neighbour @p other forbids a new label [start, end]: any overlap,
/// touching included, since two labels must never run into each other.
bool BlocksText(const CCvLvInterv& other, double start, double end) {
    return end + dtm::ToleranceOf(end) >= other.GetStart() &&
           other.GetEnd() + dtm::ToleranceOf(other.GetEnd()) >= start;
}

/// Inserts @p interval after every entry that starts at or before it, keeping the list sorted.
void InsertSorted(IntervalList& list, kor::CRefPtr<CCvLvInterv> interval) {
    const double start = interval->GetStart();
    const auto place = std::upper_bound(list.begin(), list.end(), start,
                                        [](double value, const kor::CRefPtr<CCvLvInterv>& entry) {
                                            return value < entry->GetStart();
                                        });
    list.insert(place, std::move(interval));
}

/// Splits @p list into the entries @p remove selects (into @p removed) and the others (the
/// result), both in list order.
template <class Selector>
IntervalList Split(const IntervalList& list, Selector remove, IntervalList& removed) {
    IntervalList kept;
    for (std::size_t index = 0; index < list.size(); ++index)
        (remove(index) ? removed : kept).push_back(list[index]);
    return kept;
}

}  // namespace

int CCvLv::FindInterval(const CCvLvInterv* interval) const noexcept {
    const std::size_t index = IndexOf(interval);
    return index < m_intervals.size() ? static_cast<int>(index) : -1;
}

std::size_t CCvLv::IndexOf(const CCvLvInterv* interval) const noexcept {
    std::size_t index = 0;
    while (index < m_intervals.size() && m_intervals[index].Get() != interval) ++index;
    return index;
}

void CCvLv::ChangeIntervalDimension(int index, double start, double end) {
    if (index < 0 || static_cast<std::size_t>(index) >= m_intervals.size())
        throw std::out_of_range("CCvLv::ChangeIntervalDimension: interval index out of range");
    CCvLvInterv& interval = *m_intervals[static_cast<std::size_t>(index)];
    kor::CEventGuard event(GetContext());
    NotifyModifying(eCvLvChangeGeometry);
    interval.m_start = start;
    interval.m_end = end;
}

// The new list is assembled before anything is reported, so that a failed allocation leaves
// the line as it was; the report, the swap and the removals then form one change.
CCvLvInterv* CCvLv::AddInterval(double start, double end, std::int32_t flags) {
    std::size_t first = 0;
    while (first < m_intervals.size() && m_intervals[first]->GetEnd() < start) ++first;

    IntervalList removed;
    IntervalList kept;
    if ((flags & CCvLvInterv::FLAG_TEXT) != 0) {
        if (first < m_intervals.size() && BlocksText(*m_intervals[first], start, end))
            return nullptr;
        kept = m_intervals;
    } else {
        // Compared against the interval as widened so far (Split visits the entries in
        // order), so that a chain of touching gaps becomes one.
        kept = Split(
            m_intervals,
            [&](std::size_t index) {
                const CCvLvInterv& other = *m_intervals[index];
                if (index < first || !MeetsEmpty(other, start, end)) return false;
                if (!other.IsText()) {
                    start = std::min(start, other.GetStart());
                    end = std::max(end, other.GetEnd());
                }
                return true;
            },
            removed);
    }
    auto created = kor::CRefPtr<CCvLvInterv>::Adopt(new CCvLvInterv(start, end, flags));
    CCvLvInterv* result = created.Get();
    InsertSorted(kept, std::move(created));

    kor::CEventGuard event(GetContext());
    NotifyModifying(eCvLvChangeGeometry);
    SwapIntervals(kept, removed);
    return result;
}

bool CCvLv::RemoveInterval(CCvLvInterv* interval) {
    const std::size_t target = IndexOf(interval);
    if (target == m_intervals.size()) return false;
    IntervalList removed;
    IntervalList kept = Split(
        m_intervals, [target](std::size_t index) { return index == target; }, removed);
    kor::CEventGuard event(GetContext());
    NotifyModifying(eCvLvChangeGeometry);
    SwapIntervals(kept, removed);
    return true;
}

void CCvLv::RemoveEmptyIntervals() {
    RemoveIntervalsOfKind(false);
}

void CCvLv::RemoveTextIntervals() {
    RemoveIntervalsOfKind(true);
}

void CCvLv::RemoveIntervalsOfKind(bool text) {
    IntervalList removed;
    IntervalList kept = Split(
        m_intervals, [&](std::size_t index) { return m_intervals[index]->IsText() == text; },
        removed);
    if (removed.empty()) return;
    kor::CEventGuard event(GetContext());
    NotifyModifying(eCvLvChangeGeometry);
    SwapIntervals(kept, removed);
}

void CCvLv::InvertTextDirection(CCvLvInterv* interval) {
    const std::size_t index = IndexOf(interval);
    if (index == m_intervals.size()) return;
    kor::CEventGuard event(GetContext());
    NotifyModifying(eCvLvChangeGeometry);
    m_intervals[index]->m_flags ^= CCvLvInterv::FLAG_INVERTED;
}

// Each removed interval is handed to the context, which keeps it alive until the event closes;
// the line's own references go when @p removed and the old list are destroyed by the caller.
void CCvLv::SwapIntervals(IntervalList& intervals, const IntervalList& removed) {
    m_intervals.swap(intervals);
    CDtmChangeContext* context = GetContext();
    if (context == nullptr) return;
    for (const auto& interval : removed) context->Notify_CvLv_IntervalRemoved(interval.Get());
}

void CCvLv::DoReplaceIntervals(const std::vector<TCvLvInterv>& intervals) {
    IntervalList made = MakeIntervals(intervals);
    m_intervals.swap(made);
}

std::vector<kor::CRefPtr<CCvLvInterv>> CCvLv::MakeIntervals(
    const std::vector<TCvLvInterv>& values) {
    IntervalList made;
    made.reserve(values.size());
    for (const TCvLvInterv& value : values)
        made.push_back(
            kor::CRefPtr<CCvLvInterv>::Adopt(new CCvLvInterv(value.start, value.end, value.flags)));
    return made;
}
