#include "project/CDtmCmdExecuted.h"

#include <dtm/boundaries/CCnts.h>
#include <dtm/breaklines/CVncs.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>

#include "network/CTrisUndoAccess.h"

#include <cstring>
#include <stdexcept>

namespace dtm {
namespace detail {

namespace {

/// Removes the listed entities one by one, or, when they are as many as the collection holds,
/// all at once: the two sets are then taken to be the same, a deliberate shortcut that spares
/// a search per entity when an event emptied the collection.
template <class Collection, class Entity, class RemoveOne, class RemoveAll>
void RemoveEachOrAll(Collection& collection, int count, const std::vector<Entity*>& entities,
                     RemoveOne removeOne, RemoveAll removeAll) {
    if (count >= 0 && static_cast<std::size_t>(count) == entities.size()) {
        removeAll(collection);
        return;
    }
    for (Entity* entity : entities) removeOne(collection, entity);
}

/// Exactly the same value, bit for bit: what "the state did not change" means for a stored
/// double. Two NaNs of the same bits are the same; 0.0 and -0.0 are not.
bool SameBits(double a, double b) noexcept {
    return std::memcmp(&a, &b, sizeof(double)) == 0;
}

bool SamePoint(const kor::geom::PNT_3D& a, const kor::geom::PNT_3D& b) noexcept {
    return SameBits(a.x, b.x) && SameBits(a.y, b.y) && SameBits(a.z, b.z);
}

bool SameNodes(const std::vector<TVrtPol>& a, const std::vector<TVrtPol>& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](const TVrtPol& p, const TVrtPol& q) {
               return p.x == q.x && p.y == q.y && p.xp == q.xp && p.yp == q.yp && p.len == q.len;
           });
}

bool SameIntervals(const CCvLv& line, const std::vector<TCvLvInterv>& intervals) {
    if (line.GetNoIntervals() != intervals.size()) return false;
    for (unsigned i = 0; i < line.GetNoIntervals(); ++i) {
        const CCvLvInterv& present = *line.GetIntervalAt(i);
        const TCvLvInterv& kept = intervals[i];
        if (present.GetStart() != kept.start || present.GetEnd() != kept.end ||
            present.GetFlags() != kept.flags)
            return false;
    }
    return true;
}

}  // namespace

// Kinds ---------------------------------------------------------------------------------------

kor::IMemento* TVncKind::CreateMemento(const CVnc& entity, CVncs&) {
    return entity.CreateMemento();
}
bool TVncKind::IsUnchanged(const CVnc& entity, const kor::IMemento& memento) {
    return !entity.HasChanged(&memento);
}
void TVncKind::Add(CVncs& collection, CVnc* entity) {
    collection.AddVnc(entity);
}
void TVncKind::Remove(CVncs& collection, const std::vector<CVnc*>& entities) {
    RemoveEachOrAll(
        collection, collection.GetNoVncs(), entities, [](CVncs& c, CVnc* e) { c.RemoveVnc(e); },
        [](CVncs& c) { c.RemoveAllVncs(); });
}

kor::IMemento* TCntKind::CreateMemento(const CCnt& entity, CCnts&) {
    return entity.CreateMemento();
}
bool TCntKind::IsUnchanged(const CCnt& entity, const kor::IMemento& memento) {
    return !entity.HasChanged(&memento);
}
void TCntKind::Add(CCnts& collection, CCnt* entity) {
    collection.AddCnt(entity);
}
void TCntKind::Remove(CCnts& collection, const std::vector<CCnt*>& entities) {
    RemoveEachOrAll(
        collection, collection.GetNoCnts(), entities, [](CCnts& c, CCnt* e) { c.RemoveCnt(e); },
        [](CCnts& c) { c.RemoveAllCnts(); });
}

kor::IMemento* TTriKind::CreateMemento(const CTri& entity, CTris& collection) {
    return entity.CreateMemento(&collection);
}
bool TTriKind::IsUnchanged(const CTri& entity, const kor::IMemento& memento) {
    return !entity.HasChanged(&memento);
}
void TTriKind::Add(CTris& collection, CTri* entity) {
    collection.AddTri(entity);
}
// Never the network's RemoveAll, even when every triangle goes: it empties the vertex array
// too, and the vertices have their own journal. One pass removes any number of triangles.
void TTriKind::Remove(CTris& collection, const std::vector<CTri*>& entities) {
    CTrisUndoAccess::RemoveTris(collection, entities);
}

kor::IMemento* TCvLvKind::CreateMemento(const CCvLv& entity, CCvLvs&) {
    return entity.CreateMemento();
}
// CCvLv::HasChanged answers true whatever it is given, by design; judging a line by what its
// memento holds instead lets an event that touched lines without changing them (a relabelling
// that gives every interval its old extent, a visibility switch, which no memento holds) file
// no undo step. Exact comparison, as the other kinds do: a NaN counts as a change.
bool TCvLvKind::IsUnchanged(const CCvLv& entity, const kor::IMemento& memento) {
    const auto* kept = dynamic_cast<const CCvLvMemento*>(&memento);
    if (kept == nullptr) return false;
    return entity.GetSigma() == kept->GetSigma() && entity.GetColor() == kept->GetColor() &&
           SameNodes(entity.GetNodes(), kept->GetNodes()) &&
           SameIntervals(entity, kept->GetIntervals());
}
void TCvLvKind::Add(CCvLvs& collection, CCvLv* entity) {
    collection.AddCvLv(entity);
}
void TCvLvKind::Remove(CCvLvs& collection, const std::vector<CCvLv*>& entities) {
    RemoveEachOrAll(
        collection, static_cast<int>(collection.GetNoCvLvs()), entities,
        [](CCvLvs& c, CCvLv* e) { c.RemoveCvLv(e); }, [](CCvLvs& c) { c.RemoveAllCvLvs(); });
}

// Vertices -------------------------------------------------------------------------------------

void CVrtJournal::Appended(int index, const kor::geom::PNT_3D& p) {
    TEntry* last = Last();
    if (last && last->edit == EEdit::Append &&
        index == last->index + static_cast<int>(last->points.size())) {
        last->points.push_back(p);
        return;
    }
    m_entries.push_back({EEdit::Append, index, {}, {}, {p}});
}

void CVrtJournal::Overwritten(int index, const kor::geom::PNT_3D& before,
                              const kor::geom::PNT_3D& after) {
    TEntry* last = Last();
    if (last && last->edit == EEdit::Append && index >= last->index &&
        index < last->index + static_cast<int>(last->points.size())) {
        // A vertex appended in this event: undo takes it out anyway, redo appends it moved.
        last->points[static_cast<std::size_t>(index - last->index)] = after;
        return;
    }
    if (last && last->edit == EEdit::Overwrite && last->index == index) {
        last->after = after;
        if (SamePoint(last->before, last->after)) m_entries.pop_back();
        return;
    }
    if (SamePoint(before, after)) return;
    m_entries.push_back({EEdit::Overwrite, index, before, after, {}});
}

void CVrtJournal::Erased(int index, const kor::geom::PNT_3D& before) {
    TEntry* last = Last();
    if (last && last->edit == EEdit::Append &&
        index == last->index + static_cast<int>(last->points.size()) - 1) {
        last->points.pop_back();
        if (last->points.empty()) m_entries.pop_back();
        return;
    }
    m_entries.push_back({EEdit::Erase, index, before, {}, {}});
}

void CVrtJournal::Cleared(const std::vector<kor::geom::PNT_3D>& vertices) {
    if (vertices.empty()) return;
    m_entries.push_back({EEdit::Clear, 0, {}, {}, vertices});
}

void CVrtJournal::Undo(CTris& tris) const {
    for (auto entry = m_entries.rbegin(); entry != m_entries.rend(); ++entry) {
        switch (entry->edit) {
            case EEdit::Append:
                CTrisUndoAccess::EraseVrts(tris, entry->index,
                                           static_cast<int>(entry->points.size()));
                break;
            case EEdit::Overwrite:
                CTrisUndoAccess::SetVrt(tris, entry->index, entry->before);
                break;
            case EEdit::Erase:
                CTrisUndoAccess::InsertVrts(tris, entry->index, {entry->before});
                break;
            case EEdit::Clear:
                CTrisUndoAccess::ReplaceVrts(tris, entry->points);
                break;
        }
    }
}

void CVrtJournal::Redo(CTris& tris) const {
    for (const TEntry& entry : m_entries) {
        switch (entry.edit) {
            case EEdit::Append:
                CTrisUndoAccess::InsertVrts(tris, entry.index, entry.points);
                break;
            case EEdit::Overwrite:
                CTrisUndoAccess::SetVrt(tris, entry.index, entry.after);
                break;
            case EEdit::Erase:
                CTrisUndoAccess::EraseVrts(tris, entry.index, 1);
                break;
            case EEdit::Clear:
                CTrisUndoAccess::ReplaceVrts(tris, {});
                break;
        }
    }
}

std::size_t CVrtJournal::GetSize() const noexcept {
    std::size_t size = m_entries.size() * sizeof(TEntry);
    for (const TEntry& entry : m_entries) size += entry.points.size() * sizeof(kor::geom::PNT_3D);
    return size;
}

// The whole step -----------------------------------------------------------------------------

bool TQuotaRangeChange::IsChanged() const noexcept {
    return !SameBits(minBefore, minAfter) || !SameBits(maxBefore, maxAfter);
}

bool SameOptions(const TDtmOpz& a, const TDtmOpz& b) {
    return a.vncActive == b.vncActive && a.cnt0Active == b.cnt0Active &&
           a.cnt1Active == b.cnt1Active && a.triFirstFlag == b.triFirstFlag &&
           a.triSecondFlag == b.triSecondFlag && a.cvLvCategoryOn == b.cvLvCategoryOn &&
           a.vncColor == b.vncColor && a.cnt0Color == b.cnt0Color && a.cnt1Color == b.cnt1Color &&
           a.triFixedColor == b.triFixedColor && a.triLayerColor == b.triLayerColor &&
           a.cvLvCategoryColor == b.cvLvCategoryColor && a.triTextHeight == b.triTextHeight &&
           a.triScaleFactor == b.triScaleFactor && a.triSymbol == b.triSymbol &&
           a.triColorType == b.triColorType && a.triColorClasses == b.triColorClasses &&
           a.cvLvColorByLayer == b.cvLvColorByLayer && a.cvLvColorClasses == b.cvLvColorClasses;
}

namespace {

/// The colours of every triangle and contour line. Putting options back recolours both (by
/// class, by layer) from the state the project is in at that moment, which is not the state the
/// recorded event saw: every colour the event itself changed comes back from its memento, and
/// every other one must stay as it is. So the colours are taken before the options are put
/// back and given back right after.
class CColourSnapshot {
public:
    explicit CColourSnapshot(const CDtmPrj& project) {
        const CTris& tris = *project.GetTris();
        m_triColours.reserve(static_cast<std::size_t>(tris.GetNoTris()));
        for (int i = 0; i < tris.GetNoTris(); ++i)
            m_triColours.push_back(tris.GetTriAt(i)->GetColor());
        const CCvLvs& lines = *project.GetCvLvs();
        m_lineColours.reserve(lines.GetNoCvLvs());
        for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i)
            m_lineColours.push_back(lines.GetCvLvAt(i)->GetColor());
    }

    /// Gives back every colour that changed since. Recolouring neither adds, removes nor
    /// reorders, so positions still match.
    void Restore(CDtmPrj& project) const {
        CTris& tris = *project.GetTris();
        for (std::size_t i = 0;
             i < m_triColours.size() && i < static_cast<std::size_t>(tris.GetNoTris()); ++i) {
            CTri* tri = tris.GetTriAt(static_cast<int>(i));
            if (tri->GetColor() != m_triColours[i]) tri->SetColor(&tris, m_triColours[i]);
        }
        CCvLvs& lines = *project.GetCvLvs();
        for (std::size_t i = 0; i < m_lineColours.size() && i < lines.GetNoCvLvs(); ++i)
            lines.GetCvLvAt(static_cast<unsigned>(i))->SetColor(m_lineColours[i]);
    }

private:
    std::vector<int> m_triColours;
    std::vector<std::int32_t> m_lineColours;
};

/// Puts @p lines' range back to [@p minQuota, @p maxQuota]. The collection has no setter, but a
/// range it held always covers its lines (adding widens, removing keeps, emptying resets), so
/// recomputing over the lines and widening by the two bounds gives the range exactly.
void RestoreCvLvRange(CCvLvs& lines, double minQuota, double maxQuota) {
    lines.UpdateMinMaxQuota();
    if (!(minQuota <= maxQuota)) return;  // a reset range, which only an empty collection holds
    lines.UpdateMinMaxQuota(minQuota);
    lines.UpdateMinMaxQuota(maxQuota);
}

}  // namespace

}  // namespace detail
}  // namespace dtm

using dtm::detail::TDtmChange;

CDtmCmdExecuted::CDtmCmdExecuted(CDtmPrj* project, TDtmChange change)
    : m_project(kor::CRefPtr<CDtmPrj>::Share(project)), m_change(std::move(change)) {
    if (!project) throw std::invalid_argument("CDtmCmdExecuted: null project");
}

CDtmCmdExecuted::~CDtmCmdExecuted() = default;

void CDtmCmdExecuted::Undo() {
    Apply(true);
}

void CDtmCmdExecuted::Redo() {
    Apply(false);
}

void CDtmCmdExecuted::Apply(bool undo) {
    CDtmPrj& project = *m_project;
    // One event for the whole step: the host's listeners see an undo as one ordinary change,
    // and the network rebuilds its derived data once, after the last triangle.
    kor::CEventGuard event(project.GetContext());
    SwapOptions();
    SwapProps();
    m_change.vncs.Apply(undo);
    m_change.internalCnts.Apply(undo);
    m_change.externalCnts.Apply(undo);
    // The vertex journal was written in the event's order and is replayed backwards to undo
    // and forwards to redo; the triangles only index the vertices, so the two mirror each
    // other around the triangle group.
    CTris& tris = *project.GetTris();
    if (undo) {
        m_change.tris.Apply(true);
        m_change.vertices.Undo(tris);
    } else {
        m_change.vertices.Redo(tris);
        m_change.tris.Apply(false);
    }
    // A range is put back when the event changed it, and also whenever the step touched what
    // it covers: the collections' own operations move it (a contour collection emptied by the
    // remove-all shortcut resets it) in ways the recorded event did not.
    const dtm::detail::TQuotaRangeChange& triRange = m_change.triRange;
    if (triRange.IsChanged() || !m_change.vertices.IsEmpty()) {
        CTrisUndoAccess::SetQuotaRange(tris, undo ? triRange.minBefore : triRange.minAfter,
                                       undo ? triRange.maxBefore : triRange.maxAfter);
    }
    m_change.cvlvs.Apply(undo);
    const dtm::detail::TQuotaRangeChange& cvLvRange = m_change.cvLvRange;
    if (cvLvRange.IsChanged() || !m_change.cvlvs.IsEmpty()) {
        dtm::detail::RestoreCvLvRange(*project.GetCvLvs(),
                                      undo ? cvLvRange.minBefore : cvLvRange.minAfter,
                                      undo ? cvLvRange.maxBefore : cvLvRange.maxAfter);
    }
}

void CDtmCmdExecuted::SwapOptions() {
    CDtmPrj& project = *m_project;
    TDtmOpz present;
    present.GetFromPrj(&project);
    // Putting back equal options sends nothing and recolours nothing: most steps leave the
    // options alone, and they need no copy of every colour.
    if (!dtm::detail::SameOptions(present, m_change.options)) {
        const dtm::detail::CColourSnapshot colours(project);
        m_change.options.SetToPrj(&project);
        colours.Restore(project);
    }
    m_change.options = std::move(present);
}

void CDtmCmdExecuted::SwapProps() {
    dtm::detail::TPrjProps present{m_project->GetName(), m_project->IsVisible(),
                                   m_project->IsLocked()};
    m_project->SetProps(m_change.props.name, m_change.props.visible, m_change.props.locked);
    m_change.props = std::move(present);
}

std::size_t CDtmCmdExecuted::GetSize() const {
    const TDtmChange& change = m_change;
    std::size_t size = sizeof(*this) + change.vncs.GetSize() + change.internalCnts.GetSize() +
                       change.externalCnts.GetSize() + change.tris.GetSize() +
                       change.cvlvs.GetSize() + change.vertices.GetSize();
    const TDtmOpz& options = change.options;
    size += (options.triColorClasses.GetNoClasses() + options.cvLvColorClasses.GetNoClasses()) *
            sizeof(CColorClassComputer::TClassInfo);
    return size + change.props.name.length();
}
