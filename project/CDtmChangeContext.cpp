#include <dtm/project/CDtmChangeContext.h>

#include <dtm/boundaries/CCnt.h>
#include <dtm/breaklines/CVnc.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmPrj.h>

#include "project/CCreateCmdExecutedEventListener.h"
#include "support/ScopeExit.h"

#include <cassert>
#include <typeinfo>
#include <utility>

namespace {

// The marks a contour line carries within one event.
constexpr int MARK_UNTOUCHED = 0;
constexpr int MARK_ADDED = 1;
constexpr int MARK_MODIFYING = 2;
constexpr int MARK_REMOVED = 4;

/// A stored change kind becomes the notified one when none is stored yet, and "both kinds"
/// once two different kinds were notified in the same event.
template <class Kind>
void MergeChangeType(Kind& stored, Kind notified) {
    if (stored == 0)
        stored = notified;
    else if (stored != notified)
        stored = static_cast<Kind>(3);
}

/// @p listener as the project's undo builder, or null for any other listener (the quiet one, or
/// one a host or test installed). The builder hears two things that IEventListener has no
/// operation for: the project's name and flags about to change, and the events it did not
/// record.
CCreateCmdExecutedEventListener* UndoBuilder(IEventListener* listener) {
    return dynamic_cast<CCreateCmdExecutedEventListener*>(listener);
}

/// Whether @p listener does nothing when told of an added vertex or triangle: the quiet
/// listener (@p quiet), or the project's own undo builder while it does not record the event.
/// Any other listener, a subclass of the builder included, may act on each one.
bool HearsNoAdditions(const IEventListener& listener, const IEventListener& quiet) {
    if (&listener == &quiet) return true;
    if (typeid(listener) != typeid(CCreateCmdExecutedEventListener)) return false;
    return !static_cast<const CCreateCmdExecutedEventListener&>(listener).IsRecording();
}

/// Lists up to this many entries keep their storage from event to event; a longer one (a load,
/// a remove-all) gives it back, so that a network of millions of triangles does not carry a
/// pointer per triangle for as long as it lives.
constexpr std::size_t kKeptListCapacity = 4096;

/// Empties @p entities, giving a large list's storage back.
template <class Entity>
void Empty(std::vector<Entity*>& entities) noexcept {
    if (entities.capacity() > kKeptListCapacity)
        std::vector<Entity*>().swap(entities);
    else
        entities.clear();
}

/// Releases the reference that recording took on each entry.
template <class Entity>
void ReleaseAll(std::vector<Entity*>& entities) {
    std::vector<Entity*> released;
    released.swap(entities);
    for (Entity* entity : released) entity->SubReference();
}

}  // namespace

struct CDtmChangeContext::State {
    explicit State(CDtmPrj* owner)
        : undoListener(std::make_unique<CCreateCmdExecutedEventListener>(owner)),
          project(owner),
          current(&quiet) {}

    IEventListener quiet;
    std::unique_ptr<IEventListener> undoListener;
    CDtmPrj* project;
    IEventListener* current;
    /// The current listener acts on no addition of a vertex or a triangle (see
    /// HearsNoAdditions); decided when the outermost event opens, false outside events.
    bool additionsUnheard = false;

    bool prjModified = false;
    bool vncLayersModified = false;
    std::vector<CVnc*> vncAdded, vncModified, vncRemoved;
    bool cntLayersModified = false;
    std::vector<CCnt*> cntAdded, cntModified, cntRemoved;
    bool triLayersModified = false;
    bool triRemovedAll = false;
    bool triInnerDrawModified = false;
    bool triVrtsMoved = false;
    enumTriChangeType triChangeType = eTriChangeNone;
    std::vector<CTri*> triAdded, triModified, triRemoved;
    enumCvLvChangeType cvLvChangeType = eCvLvChangeNone;
    bool cvLvLayersModified = false;
    std::vector<CCvLv*> cvLvAdded, cvLvModified, cvLvRemoved;
    std::vector<CCvLvInterv*> intervalsRemoved;

    /// Empties every list and flag; the references held by the removed lists are released last,
    /// once the context is already clean, so a destructor that runs then sees an idle context.
    void Clear() {
        prjModified = vncLayersModified = cntLayersModified = false;
        triLayersModified = triRemovedAll = triInnerDrawModified = triVrtsMoved = false;
        cvLvLayersModified = false;
        triChangeType = eTriChangeNone;
        cvLvChangeType = eCvLvChangeNone;
        Empty(vncAdded);
        Empty(vncModified);
        Empty(cntAdded);
        Empty(cntModified);
        Empty(triAdded);
        Empty(triModified);
        Empty(cvLvAdded);
        Empty(cvLvModified);
        ReleaseAll(vncRemoved);
        ReleaseAll(cntRemoved);
        ReleaseAll(triRemoved);
        ReleaseAll(cvLvRemoved);
        ReleaseAll(intervalsRemoved);
    }
};

CDtmChangeContext::CDtmChangeContext(kor::CChangeTransactionManager* manager, CDtmPrj* project)
    : kor::CSourceEvent(manager), m_state(std::make_unique<State>(project)) {}

CDtmChangeContext::~CDtmChangeContext() {
    // An event cannot be open here (the project holds the context while it works), but the
    // references must not leak whatever the host did.
    m_state->Clear();
}

CDtmPrj* CDtmChangeContext::GetDtmPrj() const noexcept {
    return m_state->project;
}

void CDtmChangeContext::SetUndoListener(std::unique_ptr<IEventListener> listener) {
    if (!listener) listener = std::make_unique<IEventListener>();
    if (m_state->current == m_state->undoListener.get()) {
        m_state->current = listener.get();
        m_state->additionsUnheard = false;  // whatever it is, it hears every one from now on
    }
    m_state->undoListener = std::move(listener);
}

IEventListener* CDtmChangeContext::GetCurrentListener() const noexcept {
    return m_state->current;
}

void CDtmChangeContext::OnBeforeBeginEvent() {
    // Networks on a point cloud and changes made while the host replays its history are never
    // recorded for undo; the host's listeners still see them.
    const CTris* tris = m_state->project ? m_state->project->GetTris() : nullptr;
    const bool onCloud = tris != nullptr && tris->IsCld();
    m_state->current =
        (!onCloud && !IsRecordingSuspended()) ? m_state->undoListener.get() : &m_state->quiet;
    m_state->additionsUnheard = false;
    m_state->current->OnBeginEvent();
    // The undo builder knows only now whether it records this event.
    m_state->additionsUnheard = HearsNoAdditions(*m_state->current, m_state->quiet);
}

void CDtmChangeContext::OnOpeningFailed() noexcept {
    // The notification that opened the event follows a change already made (a vertex is
    // appended, then announced), which is then recorded nowhere. An event the host opened
    // before changing anything cannot be told apart, and drops the history as well.
    if (CCreateCmdExecutedEventListener* undo = UndoBuilder(m_state->current))
        undo->OnRecordingFailed();
}

void CDtmChangeContext::OnAfterEndEvent() {
    const auto clear = dtm::detail::OnScopeExit([this] {
        m_state->Clear();
        m_state->current = &m_state->quiet;
        m_state->additionsUnheard = false;
    });
    // Every line the event added or modified goes back to untouched, even one it removed
    // afterwards; a line that was only removed keeps its mark until it is recorded again.
    for (CCvLv* line : m_state->cvLvAdded) line->m_changeMark = MARK_UNTOUCHED;
    for (CCvLv* line : m_state->cvLvModified) line->m_changeMark = MARK_UNTOUCHED;
    m_state->current->OnEndEvent();
    // The undo listener follows the events it did not record as well (an undo step applying,
    // recording suspended, a point-cloud network), so that its next step starts from the state
    // they left.
    if (m_state->current != m_state->undoListener.get()) {
        if (CCreateCmdExecutedEventListener* undo = UndoBuilder(m_state->undoListener.get()))
            undo->OnUnrecordedEventEnd();
    }
}

namespace {

/// Runs @p record, which records a notification in @p context's open event.
template <class Record>
void Recorded(CDtmChangeContext* context, Record record) {
    try {
        record();
    } catch (...) {
        // A change that could not be recorded cannot be undone: the undo builder must know.
        if (CCreateCmdExecutedEventListener* undo = UndoBuilder(context->GetCurrentListener()))
            undo->OnRecordingFailed();
        throw;
    }
}

/// Runs @p record inside an event of @p context: a notification outside any event is an event
/// of its own, one inside an event only adds to it.
template <class Record>
void InEvent(CDtmChangeContext* context, Record record) {
    kor::CEventGuard event(context);
    Recorded(context, record);
}

}  // namespace

void CDtmChangeContext::Notify_Prj_Modified() {
    InEvent(this, [this] { m_state->prjModified = true; });
}

void CDtmChangeContext::Notify_Vnc_LayersModified() {
    InEvent(this, [this] { m_state->vncLayersModified = true; });
}

void CDtmChangeContext::Notify_Cnt_LayersModified() {
    InEvent(this, [this] { m_state->cntLayersModified = true; });
}

void CDtmChangeContext::Notify_Tri_LayersModified() {
    InEvent(this, [this] { m_state->triLayersModified = true; });
}

void CDtmChangeContext::Notify_CvLv_LayersModified() {
    InEvent(this, [this] { m_state->cvLvLayersModified = true; });
}

void CDtmChangeContext::Notify_Tri_InnerDrawModified() {
    InEvent(this, [this] { m_state->triInnerDrawModified = true; });
}

// An added vertex is recorded nowhere but by the listener.
void CDtmChangeContext::Notify_Tri_Vrt_Added() {
    if (AdditionsUnheard()) return;
    InEvent(this, [this] { m_state->current->OnTriVrtAdded(); });
}

void CDtmChangeContext::Notify_Tri_Vrt_Removed() {
    InEvent(this, [this] { m_state->current->OnTriVrtRemoved(); });
}

void CDtmChangeContext::Notify_Tri_Vrt_Moved() {
    InEvent(this, [this] {
        m_state->triVrtsMoved = true;
        m_state->current->OnTriVrtMoved();
    });
}

void CDtmChangeContext::Notify_Vnc_Added(CVnc* breakline) {
    InEvent(this, [this, breakline] {
        m_state->vncAdded.push_back(breakline);
        m_state->current->OnVncAdded(breakline);
    });
}

void CDtmChangeContext::Notify_Vnc_Modifying(CVnc* breakline) {
    InEvent(this, [this, breakline] {
        m_state->vncModified.push_back(breakline);
        m_state->current->OnVncModifying(breakline);
    });
}

void CDtmChangeContext::Notify_Vnc_Removed(CVnc* breakline) {
    InEvent(this, [this, breakline] {
        m_state->vncRemoved.push_back(breakline);
        breakline->AddReference();
        m_state->current->OnVncRemoved(breakline);
    });
}

void CDtmChangeContext::Notify_Cnt_Added(CCnt* boundary) {
    InEvent(this, [this, boundary] {
        m_state->cntAdded.push_back(boundary);
        m_state->current->OnCntAdded(boundary);
    });
}

void CDtmChangeContext::Notify_Cnt_Modifying(CCnt* boundary) {
    InEvent(this, [this, boundary] {
        m_state->cntModified.push_back(boundary);
        m_state->current->OnCntModifying(boundary);
    });
}

void CDtmChangeContext::Notify_Cnt_Removed(CCnt* boundary) {
    InEvent(this, [this, boundary] {
        m_state->cntRemoved.push_back(boundary);
        boundary->AddReference();
        m_state->current->OnCntRemoved(boundary);
    });
}

// Once every triangle of the event was removed, the single removal already describes the
// network's fate; later triangle notifications of the same event are dropped unseen.
void CDtmChangeContext::Notify_Tri_Added(CTri* triangle) {
    if (m_state->triRemovedAll) return;
    if (AdditionsUnheard()) {
        Recorded(this, [this, triangle] { m_state->triAdded.push_back(triangle); });
        return;
    }
    InEvent(this, [this, triangle] {
        m_state->triAdded.push_back(triangle);
        m_state->current->OnTriAdded(triangle);
    });
}

// Inside an open event whose listener ignores additions, an added vertex or triangle has no one
// to tell: the nested event that would bracket its notification only counts up and down, and no
// listener runs while it is open to see that depth. A file section or a fill announces millions
// of them, so that bracket and the listener call are left out; what the event records is the
// same.
bool CDtmChangeContext::AdditionsUnheard() const noexcept {
    return m_state->additionsUnheard && GetEventDepth() > 0;
}

void CDtmChangeContext::NoteTrisAddedUnheard(CTri* const* triangles, std::size_t count) {
    assert(AdditionsUnheard());
    if (m_state->triRemovedAll) return;
    Recorded(this, [this, triangles, count] {
        m_state->triAdded.insert(m_state->triAdded.end(), triangles, triangles + count);
    });
}

void CDtmChangeContext::ReserveTriAdded(std::size_t count) {
    if (GetEventDepth() == 0 || m_state->triRemovedAll) return;
    m_state->triAdded.reserve(m_state->triAdded.size() + count);
}

void CDtmChangeContext::Notify_Tri_Modifying(CTri* triangle, enumTriChangeType type) {
    if (m_state->triRemovedAll) return;
    InEvent(this, [this, triangle, type] {
        m_state->triModified.push_back(triangle);
        MergeChangeType(m_state->triChangeType, type);
        m_state->current->OnTriModifying(triangle);
    });
}

void CDtmChangeContext::Notify_Tri_Removed(CTri* triangle) {
    if (m_state->triRemovedAll) return;
    InEvent(this, [this, triangle] {
        m_state->triRemoved.push_back(triangle);
        triangle->AddReference();
        m_state->current->OnTriRemoved(triangle);
    });
}

void CDtmChangeContext::Notify_Tri_RemoveAll() {
    InEvent(this, [this] {
        m_state->triRemovedAll = true;
        m_state->current->OnTriRemoveAll();
        const CTris* tris = m_state->project ? m_state->project->GetTris() : nullptr;
        const int count = tris ? tris->GetNoTris() : 0;
        for (int i = 0; i < count; ++i) {
            CTri* triangle = tris->GetTriAt(i);
            m_state->triRemoved.push_back(triangle);
            triangle->AddReference();
            m_state->current->OnTriRemoved(triangle);
        }
    });
}

void CDtmChangeContext::Notify_CvLv_Added(CCvLv* line) {
    InEvent(this, [this, line] {
        m_state->cvLvAdded.push_back(line);
        line->m_changeMark = MARK_ADDED;
        m_state->current->OnCvLvAdded(line);
    });
}

// A line already added, recorded as modifying, or removed in this event is not recorded again:
// the listener has already seen its state from before the event's first change.
void CDtmChangeContext::Notify_CvLv_Modifying(CCvLv* line, enumCvLvChangeType type) {
    if (line->m_changeMark != MARK_UNTOUCHED) return;
    InEvent(this, [this, line, type] {
        m_state->cvLvModified.push_back(line);
        MergeChangeType(m_state->cvLvChangeType, type);
        line->m_changeMark = MARK_MODIFYING;
        m_state->current->OnCvLvModifying(line);
    });
}

void CDtmChangeContext::Notify_CvLv_Removed(CCvLv* line) {
    InEvent(this, [this, line] {
        m_state->cvLvRemoved.push_back(line);
        line->AddReference();
        line->m_changeMark = MARK_REMOVED;
        m_state->current->OnCvLvRemoved(line);
    });
}

void CDtmChangeContext::Notify_CvLv_IntervalRemoved(CCvLvInterv* interval) {
    InEvent(this, [this, interval] {
        m_state->intervalsRemoved.push_back(interval);
        interval->AddReference();
    });
}

bool CDtmChangeContext::IsPrjModified() const noexcept {
    return m_state->prjModified;
}
bool CDtmChangeContext::AreVncLayersModified() const noexcept {
    return m_state->vncLayersModified;
}
bool CDtmChangeContext::AreCntLayersModified() const noexcept {
    return m_state->cntLayersModified;
}
bool CDtmChangeContext::AreTriLayersModified() const noexcept {
    return m_state->triLayersModified;
}
bool CDtmChangeContext::AreCvLvLayersModified() const noexcept {
    return m_state->cvLvLayersModified;
}
bool CDtmChangeContext::AreTriRemovedAll() const noexcept {
    return m_state->triRemovedAll;
}
bool CDtmChangeContext::AreTriInnerDrawModified() const noexcept {
    return m_state->triInnerDrawModified;
}
bool CDtmChangeContext::AreTriVrtsMoved() const noexcept {
    return m_state->triVrtsMoved;
}
enumTriChangeType CDtmChangeContext::GetTriChangeType() const noexcept {
    return m_state->triChangeType;
}
enumCvLvChangeType CDtmChangeContext::GetCvLvChangeType() const noexcept {
    return m_state->cvLvChangeType;
}
const std::vector<CVnc*>& CDtmChangeContext::GetVncAdded() const noexcept {
    return m_state->vncAdded;
}
const std::vector<CVnc*>& CDtmChangeContext::GetVncModified() const noexcept {
    return m_state->vncModified;
}
const std::vector<CVnc*>& CDtmChangeContext::GetVncRemoved() const noexcept {
    return m_state->vncRemoved;
}
const std::vector<CCnt*>& CDtmChangeContext::GetCntAdded() const noexcept {
    return m_state->cntAdded;
}
const std::vector<CCnt*>& CDtmChangeContext::GetCntModified() const noexcept {
    return m_state->cntModified;
}
const std::vector<CCnt*>& CDtmChangeContext::GetCntRemoved() const noexcept {
    return m_state->cntRemoved;
}
const std::vector<CTri*>& CDtmChangeContext::GetTriAdded() const noexcept {
    return m_state->triAdded;
}
const std::vector<CTri*>& CDtmChangeContext::GetTriModified() const noexcept {
    return m_state->triModified;
}
const std::vector<CTri*>& CDtmChangeContext::GetTriRemoved() const noexcept {
    return m_state->triRemoved;
}
const std::vector<CCvLv*>& CDtmChangeContext::GetCvLvAdded() const noexcept {
    return m_state->cvLvAdded;
}
const std::vector<CCvLv*>& CDtmChangeContext::GetCvLvModified() const noexcept {
    return m_state->cvLvModified;
}
const std::vector<CCvLv*>& CDtmChangeContext::GetCvLvRemoved() const noexcept {
    return m_state->cvLvRemoved;
}
const std::vector<CCvLvInterv*>& CDtmChangeContext::GetCvLvIntervalsRemoved() const noexcept {
    return m_state->intervalsRemoved;
}

void CDtmChangeContext::OnPrjBuilt() {
    if (CCreateCmdExecutedEventListener* undo = UndoBuilder(m_state->undoListener.get()))
        undo->OnUnrecordedEventEnd();
}
