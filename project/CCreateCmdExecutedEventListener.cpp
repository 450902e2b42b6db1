#include "project/CCreateCmdExecutedEventListener.h"

#include <dtm/boundaries/CCnts.h>
#include <dtm/breaklines/CVncs.h>
#include <dtm/contours/CCvLvs.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>

#include "network/CTrisUndoAccess.h"
#include "support/ScopeExit.h"

#include <memory>

using dtm::detail::TDtmChange;

CCreateCmdExecutedEventListener::CCreateCmdExecutedEventListener(CDtmPrj* project)
    : m_project(project) {}

CCreateCmdExecutedEventListener::~CCreateCmdExecutedEventListener() = default;

bool CCreateCmdExecutedEventListener::IsProjectComplete() const noexcept {
    // A project builds its context before its components; no event is recorded before the
    // last of them exists.
    return m_project != nullptr && m_project->GetVncs() != nullptr &&
           m_project->GetCnts(true) != nullptr && m_project->GetCnts(false) != nullptr &&
           m_project->GetTris() != nullptr && m_project->GetCvLvs() != nullptr;
}

std::unique_ptr<CCreateCmdExecutedEventListener::TBaseline>
CCreateCmdExecutedEventListener::NewBaseline() const {
    CDtmPrj& project = *m_project;
    auto baseline = std::make_unique<TBaseline>();
    baseline->triMin = project.GetTris()->GetMinQuota();
    baseline->triMax = project.GetTris()->GetMaxQuota();
    project.GetCvLvs()->GetMinMaxQuota(baseline->cvLvMin, baseline->cvLvMax);
    return baseline;
}

void CCreateCmdExecutedEventListener::OnBeginEvent() {
    Clear();
    try {
        BeginRecording();
    } catch (...) {
        // The event may have been opened by the notification of a change already made.
        m_recordingFailed = true;
        throw;
    }
}

void CCreateCmdExecutedEventListener::BeginRecording() {
    if (!IsProjectComplete()) return;
    // Only lost when taking it at the end of the last event failed: the ranges now are the best
    // left to start from.
    if (!m_baseline) m_baseline = NewBaseline();
    m_optionsAtBegin.GetFromPrj(m_project);
    m_propsAtBegin = {m_project->GetName(), m_project->IsVisible(), m_project->IsLocked()};
    // Taken now, so that a project removed from its library inside its own event still files
    // what it changed before.
    m_manager = m_project->GetContext()->GetChangeTransactionManager();
}

void CCreateCmdExecutedEventListener::OnEndEvent() {
    const auto empty = dtm::detail::OnScopeExit([this] { Clear(); });
    // Lost until it is taken again at the end: should anything below fail (an allocation), the
    // next event takes a fresh one when it opens rather than compare with a stale one.
    const std::unique_ptr<TBaseline> previous = std::move(m_baseline);
    if (!IsProjectComplete()) return;
    if (m_recordingFailed) {
        DropHistory();
        m_baseline = NewBaseline();
        return;
    }
    // A network bound to a point cloud during the event is not undone, as no event of a
    // point-cloud network is.
    if (IsRecording() && previous && !m_project->GetTris()->IsCld()) {
        try {
            FileStep(*previous);
        } catch (...) {
            // The step could not be built or filed (an allocation failed): the event's changes
            // stay made with nothing to undo them, as when one of them could not be recorded.
            DropHistory();
            throw;
        }
    }
    m_baseline = NewBaseline();
}

void CCreateCmdExecutedEventListener::FileStep(const TBaseline& baseline) {
    TDtmChange change = Settle(baseline);
    auto command = std::make_unique<CDtmCmdExecuted>(m_project, std::move(change));
    kor::CChangeTransactionManager* manager = m_manager;
    // The manager may drop redo steps and with them projects: nothing of ours is left held
    // meanwhile.
    Clear();
    manager->Add(command.release());
}

// An event whose changes no step can undo leaves a project that the steps before it no longer
// lead back from: they are dropped, with whatever could be redone.
void CCreateCmdExecutedEventListener::DropHistory() noexcept {
    kor::CChangeTransactionManager* manager =
        m_manager ? m_manager : m_project->GetContext()->GetChangeTransactionManager();
    Clear();
    if (manager) manager->Clear();
}

// A modifying notification sent outside any event is an event of its own, which closes, and
// files its step, before the sender makes the change (a triangle's colour, a boundary's
// vertices, a contour node moved without an enclosing event): only then is the event one
// level deep while the notification is delivered.
bool CCreateCmdExecutedEventListener::ChangeFollows() const noexcept {
    return m_project->GetContext()->GetEventDepth() == 1;
}

void CCreateCmdExecutedEventListener::OnRecordingFailed() noexcept {
    m_recordingFailed = true;
}

void CCreateCmdExecutedEventListener::OnUnrecordedEventEnd() {
    m_baseline.reset();
    if (!IsProjectComplete()) return;
    m_baseline = NewBaseline();
}

TDtmChange CCreateCmdExecutedEventListener::Settle(const TBaseline& baseline) {
    CDtmPrj& project = *m_project;
    CTris& tris = *project.GetTris();
    TDtmChange change;
    // After a remove-all the context dropped every triangle notification of the event: the
    // triangles the network holds now all came in after it, unannounced.
    if (m_triRemoveAlls > 0) {
        for (int i = 0; i < tris.GetNoTris(); ++i) m_tris.OnAdded(tris.GetTriAt(i));
    }
    change.vncs = m_vncs.Finish(project.GetVncs());
    change.internalCnts = m_internalCnts.Finish(project.GetCnts(true));
    change.externalCnts = m_externalCnts.Finish(project.GetCnts(false));
    change.tris = m_tris.Finish(&tris);
    change.cvlvs = m_cvlvs.Finish(project.GetCvLvs());
    change.vertices = std::move(m_vertices);
    m_vertices.Clear();
    change.triRange = {baseline.triMin, baseline.triMax, tris.GetMinQuota(), tris.GetMaxQuota()};
    change.cvLvRange.minBefore = baseline.cvLvMin;
    change.cvLvRange.maxBefore = baseline.cvLvMax;
    project.GetCvLvs()->GetMinMaxQuota(change.cvLvRange.minAfter, change.cvLvRange.maxAfter);
    change.options = m_optionsAtBegin;
    change.props = m_propsAtBegin;
    return change;
}

void CCreateCmdExecutedEventListener::Clear() noexcept {
    m_manager = nullptr;
    m_vncs.Clear();
    m_internalCnts.Clear();
    m_externalCnts.Clear();
    m_tris.Clear();
    m_cvlvs.Clear();
    m_vertices.Clear();
    m_triRemoveAlls = 0;
    m_recordingFailed = false;
}

// Breaklines and boundaries -------------------------------------------------------------------

void CCreateCmdExecutedEventListener::OnVncAdded(CVnc* breakline) {
    if (IsRecording()) m_vncs.OnAdded(breakline);
}

void CCreateCmdExecutedEventListener::OnVncModifying(CVnc* breakline) {
    if (IsRecording()) m_vncs.OnModifying(breakline, *m_project->GetVncs(), ChangeFollows());
}

void CCreateCmdExecutedEventListener::OnVncRemoved(CVnc* breakline) {
    if (IsRecording())
        m_vncs.OnRemoved(breakline, *m_project->GetVncs(),
                         dtm::detail::TVncKind::kKeepStateOnRemoval);
}

// A boundary belongs to the group of the collection it names at the time of the notification,
// which it keeps after its removal.
dtm::detail::CEntityChanges<dtm::detail::TCntKind>& CCreateCmdExecutedEventListener::CntChanges(
    const CCnt& boundary) {
    return boundary.IsInternal() ? m_internalCnts : m_externalCnts;
}

void CCreateCmdExecutedEventListener::OnCntAdded(CCnt* boundary) {
    if (IsRecording()) CntChanges(*boundary).OnAdded(boundary);
}

void CCreateCmdExecutedEventListener::OnCntModifying(CCnt* boundary) {
    if (IsRecording())
        CntChanges(*boundary).OnModifying(boundary, *m_project->GetCnts(boundary->IsInternal()),
                                          ChangeFollows());
}

void CCreateCmdExecutedEventListener::OnCntRemoved(CCnt* boundary) {
    if (IsRecording())
        CntChanges(*boundary).OnRemoved(boundary, *m_project->GetCnts(boundary->IsInternal()),
                                        dtm::detail::TCntKind::kKeepStateOnRemoval);
}

// Network ------------------------------------------------------------------------------------

void CCreateCmdExecutedEventListener::OnTriRemoveAll() {
    if (!IsRecording()) return;
    ++m_triRemoveAlls;
    m_vertices.Cleared(m_project->GetTris()->GetPnts());
}

void CCreateCmdExecutedEventListener::OnTriVrtAdded() {
    if (!IsRecording()) return;
    // Reported right after the append: the new vertex is the last one.
    const auto& vertices = m_project->GetTris()->GetPnts();
    if (!vertices.empty())
        m_vertices.Appended(static_cast<int>(vertices.size()) - 1, vertices.back());
}

void CCreateCmdExecutedEventListener::OnTriVrtRemoved() {
    if (!IsRecording()) return;
    const CTrisUndoAccess::TVrtEdit edit =
        CTrisUndoAccess::TakeReportedVrtEdit(*m_project->GetTris());
    if (edit.index >= 0) m_vertices.Erased(edit.index, edit.before);
}

void CCreateCmdExecutedEventListener::OnTriVrtMoved() {
    if (!IsRecording()) return;
    const CTrisUndoAccess::TVrtEdit edit =
        CTrisUndoAccess::TakeReportedVrtEdit(*m_project->GetTris());
    if (edit.index >= 0) m_vertices.Overwritten(edit.index, edit.before, edit.after);
}

void CCreateCmdExecutedEventListener::OnTriAdded(CTri* triangle) {
    if (IsRecording()) m_tris.OnAdded(triangle);
}

void CCreateCmdExecutedEventListener::OnTriModifying(CTri* triangle) {
    if (IsRecording()) m_tris.OnModifying(triangle, *m_project->GetTris(), ChangeFollows());
}

void CCreateCmdExecutedEventListener::OnTriRemoved(CTri* triangle) {
    if (!IsRecording()) return;
    // A later remove-all of the same event also reports the triangles that came in,
    // unannounced, after the first one: never seen before, they were not there when the event
    // opened, and go without a trace.
    if (m_triRemoveAlls > 1 && !m_tris.Knows(triangle)) return;
    m_tris.OnRemoved(triangle, *m_project->GetTris(),
                     m_triRemoveAlls > 0 || dtm::detail::TTriKind::kKeepStateOnRemoval);
}

// Contour lines ------------------------------------------------------------------------------

void CCreateCmdExecutedEventListener::OnCvLvAdded(CCvLv* line) {
    if (IsRecording()) m_cvlvs.OnAdded(line);
}

void CCreateCmdExecutedEventListener::OnCvLvModifying(CCvLv* line) {
    if (IsRecording()) m_cvlvs.OnModifying(line, *m_project->GetCvLvs(), ChangeFollows());
}

void CCreateCmdExecutedEventListener::OnCvLvRemoved(CCvLv* line) {
    if (IsRecording())
        m_cvlvs.OnRemoved(line, *m_project->GetCvLvs(),
                          dtm::detail::TCvLvKind::kKeepStateOnRemoval);
}
