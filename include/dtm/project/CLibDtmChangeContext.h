#pragma once

/// @file
/// The change context of a project library: projects added, removed and activated.

#include <dtm/support/Events.h>
#include <dtm/support/Export.h>

#include <memory>
#include <vector>

class CDtmPrj;
class CLibDtm;

/// Receives the library's changes as they are recorded. The base implementation of every
/// operation does nothing and serves as the quiet listener.
class DTM_API ILibDtmEventListener {
public:
    virtual ~ILibDtmEventListener();
    /// The outermost event has opened.
    virtual void OnBeginEvent();
    /// The outermost event has closed and the host's listeners have read it.
    virtual void OnEndEvent();
    virtual void OnPrjAdded(CDtmPrj* prj);
    virtual void OnPrjRemoved(CDtmPrj* prj);
};

/// Collects, per event, the projects added to and removed from a library and whether the
/// active project changed. A removed project is held (one reference) until the event closes.
class DTM_API CLibDtmChangeContext : public kor::CSourceEvent {
public:
    /// A context of @p lib (borrowed: the library owns the context), attached to @p manager.
    CLibDtmChangeContext(kor::CChangeTransactionManager* manager, CLibDtm* lib);

    /// The owning library.
    CLibDtm* GetLibDtm() const noexcept;
    /// Projects added in this event, in order (plain pointers: the library holds them).
    const std::vector<CDtmPrj*>& GetPrjAdded() const noexcept;
    /// Projects removed in this event, in order; each is held until the event closes.
    const std::vector<CDtmPrj*>& GetPrjRemoved() const noexcept;
    bool IsActivePrjChanged() const noexcept;
    /// The caller's statement, with the latest removal of the event, that the removed project's
    /// drawing is already gone; passed on to the host untouched.
    bool IsDrawingAlreadyRemoved() const noexcept;

    /// The listener chosen when the current event opened (borrowed).
    ILibDtmEventListener* GetCurrentListener() const noexcept;
    /// Replaces the listener that builds undo commands (owned from now on); null installs a
    /// quiet one. The context starts with the listener that files a CLibDtmCmdExecuted per event.
    void SetUndoListener(std::unique_ptr<ILibDtmEventListener> listener);

protected:
    ~CLibDtmChangeContext() override;
    void OnBeforeBeginEvent() override;
    void OnOpeningFailed() noexcept override;
    void OnAfterEndEvent() override;

private:
    friend class CLibDtm;
    friend struct LibDtmChangeContextTestAccess;

    void Notify_Prj_Added(CDtmPrj* prj);
    void Notify_Prj_Removed(CDtmPrj* prj, bool drawingAlreadyRemoved);
    void Notify_Prj_ChangeActive(CDtmPrj* prj);
    /// Makes room for one more removed project, so that recording the next removal cannot fail.
    void ReserveRemoval();

    struct State;
    std::unique_ptr<State> m_state;
};
