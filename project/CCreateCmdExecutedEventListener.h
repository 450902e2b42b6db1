#pragma once

// The undo listener of a project's change context: it turns each recorded event into one
// CDtmCmdExecuted.

#include <dtm/project/IEventListener.h>
#include <dtm/project/TDtmOpz.h>

#include "project/CDtmCmdExecuted.h"

#include <memory>

class CDtmPrj;
namespace kor {
class CChangeTransactionManager;
}

/// Collects, notification by notification, what one event of a project changes, and files one
/// CDtmCmdExecuted with the transaction manager when the event closes, also when the event
/// changed nothing: every recorded event is one step, and filing it drops what could be redone.
///
/// The change context makes it the current listener only for events of a network that is not
/// on a point cloud and while recording is not suspended. On top of that it records nothing in
/// an event that opens without a transaction manager (a project in no library, or one being
/// destroyed, whose context is detached first), and files nothing when the network has been
/// bound to a point cloud by the time the event closes.
///
/// The two elevation ranges are compared with the state the previous event left (see
/// m_baseline). The options, name and flags are kept in every step as they were when its event
/// opened, and every application of the step swaps them with the project's: undoing a step
/// thus brings back the options it began with, whatever changed them since, a setter or a
/// plain store (an option setter stores before its report opens the event, so the step of that
/// report keeps the new values, and the step before it the old ones). The name and flags notify
/// before they store: a rename outside any event files its step, with the old name, before the
/// new one exists.
///
/// An event that removed all triangles needs no copy of the network: the remove-all reports
/// every triangle removed (each keeps its state, see OnTriRemoved), the journal keeps the vertex
/// array it emptied, and the triangles that came in after it, which the context no longer
/// reports, are taken from the network when the event closes.
///
/// Vertices are journalled edit by edit (CVrtJournal) with the index and values that the
/// network keeps for the notification being delivered, rather than counted: a count cannot
/// undo a move or a removal, nor an insertion anywhere but at the end.
class CCreateCmdExecutedEventListener : public IEventListener {
public:
    /// Listens for @p project (borrowed: the project owns the context that owns the listener).
    explicit CCreateCmdExecutedEventListener(CDtmPrj* project);
    ~CCreateCmdExecutedEventListener() override;
    CCreateCmdExecutedEventListener(const CCreateCmdExecutedEventListener&) = delete;
    CCreateCmdExecutedEventListener& operator=(const CCreateCmdExecutedEventListener&) = delete;

    void OnVncAdded(CVnc* breakline) override;
    void OnVncModifying(CVnc* breakline) override;
    void OnVncRemoved(CVnc* breakline) override;
    void OnCntAdded(CCnt* boundary) override;
    void OnCntModifying(CCnt* boundary) override;
    void OnCntRemoved(CCnt* boundary) override;
    /// Journals the whole vertex array, which the network empties right after, and makes every
    /// triangle removal of the event keep the triangle's state (see OnTriRemoved).
    void OnTriRemoveAll() override;
    void OnTriVrtAdded() override;
    void OnTriVrtRemoved() override;
    void OnTriVrtMoved() override;
    void OnTriAdded(CTri* triangle) override;
    void OnTriModifying(CTri* triangle) override;
    /// After a remove-all the context drops the event's later triangle notifications, so a
    /// triangle put back and changed would change unannounced: its state is kept now.
    void OnTriRemoved(CTri* triangle) override;
    void OnCvLvAdded(CCvLv* line) override;
    void OnCvLvModifying(CCvLv* line) override;
    void OnCvLvRemoved(CCvLv* line) override;
    /// Starts recording when the project's context has a transaction manager.
    void OnBeginEvent() override;
    /// Settles the event's changes and files the undo step; empties the listener in any case
    /// and takes the baseline for the next event.
    void OnEndEvent() override;
    /// An event of the project that this listener did not record (recording suspended, while
    /// a step applies, or a point-cloud network) has closed: the next event starts from what
    /// it left. The project's change context tells it.
    void OnUnrecordedEventEnd();
    /// A notification of the current event could not be recorded in full: its recording threw
    /// (an allocation failed, most likely), in the context or here. The event's changes are
    /// then not all known, so no step can undo it, and the steps filed before it no longer
    /// lead back from the state the project is left in: when the event closes it files
    /// nothing and the manager's history is dropped. The project's change context tells it.
    void OnRecordingFailed() noexcept;
    /// Whether the current event is being recorded (the project is complete and its context has
    /// a transaction manager). Decided when the event opens; until it closes, a listener that
    /// does not record acts on no notification of an addition.
    bool IsRecording() const noexcept { return m_manager != nullptr; }

private:
    /// What the next event starts from, of the elevation ranges.
    struct TBaseline {
        double triMin = 0.0, triMax = 0.0;
        double cvLvMin = 0.0, cvLvMax = 0.0;
    };

    bool IsProjectComplete() const noexcept;
    void BeginRecording();
    std::unique_ptr<TBaseline> NewBaseline() const;
    bool ChangeFollows() const noexcept;
    dtm::detail::CEntityChanges<dtm::detail::TCntKind>& CntChanges(const CCnt& boundary);
    /// Settles everything into one change; empties the groups and the journal.
    dtm::detail::TDtmChange Settle(const TBaseline& baseline);
    /// Files the event's step, when it changed anything, in the manager it is recorded for.
    void FileStep(const TBaseline& baseline);
    /// Forgets the event and empties the project's undo store.
    void DropHistory() noexcept;
    void Clear() noexcept;

    CDtmPrj* m_project;
    /// The manager the current event is recorded for, taken when it opened; null when the
    /// event is not recorded. Taken at the opening so that a project removed from its library
    /// inside its own event still files what it changed before.
    kor::CChangeTransactionManager* m_manager = nullptr;
    /// The elevation ranges as the last event of the project left them, whoever recorded it,
    /// taken when it closed. Not a snapshot taken when an event opens: vertex appends and
    /// contour additions store first and notify after, so that their event opens on the
    /// widened range. The first is taken when the project has built its components, before
    /// anything can have widened a range. Replaced whole, never assigned in place, so that a
    /// failure while taking it leaves none rather than half of one; the next event's opening
    /// then takes it.
    std::unique_ptr<TBaseline> m_baseline;
    /// The project's options when the event opened.
    TDtmOpz m_optionsAtBegin;
    /// The name and flags when the event opened: their setters notify before they store.
    dtm::detail::TPrjProps m_propsAtBegin;
    /// Set by OnRecordingFailed, or when the opening of the event failed.
    bool m_recordingFailed = false;
    dtm::detail::CEntityChanges<dtm::detail::TVncKind> m_vncs;
    dtm::detail::CEntityChanges<dtm::detail::TCntKind> m_internalCnts;
    dtm::detail::CEntityChanges<dtm::detail::TCntKind> m_externalCnts;
    dtm::detail::CEntityChanges<dtm::detail::TTriKind> m_tris;
    dtm::detail::CEntityChanges<dtm::detail::TCvLvKind> m_cvlvs;
    dtm::detail::CVrtJournal m_vertices;
    /// Remove-alls of the network in the event.
    int m_triRemoveAlls = 0;
};
