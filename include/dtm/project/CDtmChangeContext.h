#pragma once

/// @file
/// The change context of one project: what changed in the current event.

#include <dtm/project/IEventListener.h>
#include <dtm/support/Events.h>
#include <dtm/support/Export.h>

#include <cstddef>
#include <memory>
#include <vector>

class CDtmPrj;
class CVnc;
class CCnt;
class CTri;
class CCvLv;
class CCvLvInterv;

/// Collects the changes of one event of a project into lists and flags that the host's listeners
/// read when the outermost event closes, forwards each change to its current listener as it is
/// recorded, and clears everything when the event is over.
///
/// Every component reports a change through one of the private Notify_ operations, each of which
/// is an event of its own (or part of the event already open). Modifying notifications come
/// before the change, added and removed ones right after it. The removed lists hold one
/// reference on each entity until the event closes, so a removed entity stays alive for the
/// host's listeners and for the undo command. The added and modifying lists hold plain pointers.
class DTM_API CDtmChangeContext : public kor::CSourceEvent {
public:
    /// A context of @p project (borrowed: the project owns the context), attached to @p manager
    /// (borrowed, may be null).
    CDtmChangeContext(kor::CChangeTransactionManager* manager, CDtmPrj* project);

    /// The owning project.
    CDtmPrj* GetDtmPrj() const noexcept;

    bool IsPrjModified() const noexcept;
    bool AreVncLayersModified() const noexcept;
    bool AreCntLayersModified() const noexcept;
    bool AreTriLayersModified() const noexcept;
    bool AreCvLvLayersModified() const noexcept;
    /// True when every triangle was removed in this event.
    bool AreTriRemovedAll() const noexcept;
    bool AreTriInnerDrawModified() const noexcept;
    bool AreTriVrtsMoved() const noexcept;
    /// The merged kind of the triangle changes of this event.
    enumTriChangeType GetTriChangeType() const noexcept;
    /// The merged kind of the contour-line changes of this event.
    enumCvLvChangeType GetCvLvChangeType() const noexcept;

    const std::vector<CVnc*>& GetVncAdded() const noexcept;
    const std::vector<CVnc*>& GetVncModified() const noexcept;
    const std::vector<CVnc*>& GetVncRemoved() const noexcept;
    const std::vector<CCnt*>& GetCntAdded() const noexcept;
    const std::vector<CCnt*>& GetCntModified() const noexcept;
    const std::vector<CCnt*>& GetCntRemoved() const noexcept;
    const std::vector<CTri*>& GetTriAdded() const noexcept;
    const std::vector<CTri*>& GetTriModified() const noexcept;
    const std::vector<CTri*>& GetTriRemoved() const noexcept;
    const std::vector<CCvLv*>& GetCvLvAdded() const noexcept;
    const std::vector<CCvLv*>& GetCvLvModified() const noexcept;
    const std::vector<CCvLv*>& GetCvLvRemoved() const noexcept;
    /// Contour-line intervals removed in this event.
    const std::vector<CCvLvInterv*>& GetCvLvIntervalsRemoved() const noexcept;

    /// The listener chosen when the current event opened: the undo listener, or the quiet one
    /// when the network is on a point cloud or recording is suspended. Borrowed.
    IEventListener* GetCurrentListener() const noexcept;

    /// Replaces the listener that builds undo commands (owned from now on); null installs a
    /// quiet one. The context starts with the listener that files one undo step per event.
    void SetUndoListener(std::unique_ptr<IEventListener> listener);

protected:
    ~CDtmChangeContext() override;
    void OnBeforeBeginEvent() override;
    void OnOpeningFailed() noexcept override;
    void OnAfterEndEvent() override;

private:
    // The components of a project, and nothing else, report changes.
    friend class CDtmPrj;
    friend class CVnc;
    friend class CVncs;
    friend class CCnt;
    friend class CCnts;
    friend class CCntModifier;
    friend class CTri;
    friend class CTris;
    friend class CCvLv;
    friend class CCvLvs;
    friend class CCvLvModifier;
    friend class TDtmOpz;
    friend struct DtmChangeContextTestAccess;

    void Notify_Prj_Modified();
    void Notify_Vnc_LayersModified();
    void Notify_Cnt_LayersModified();
    void Notify_Tri_LayersModified();
    void Notify_CvLv_LayersModified();
    void Notify_Tri_InnerDrawModified();
    void Notify_Tri_Vrt_Added();
    void Notify_Tri_Vrt_Removed();
    void Notify_Tri_Vrt_Moved();
    void Notify_Vnc_Added(CVnc* breakline);
    void Notify_Vnc_Modifying(CVnc* breakline);
    void Notify_Vnc_Removed(CVnc* breakline);
    void Notify_Cnt_Added(CCnt* boundary);
    void Notify_Cnt_Modifying(CCnt* boundary);
    void Notify_Cnt_Removed(CCnt* boundary);
    void Notify_Tri_Added(CTri* triangle);
    /// Room in the open event's triangles-added list for @p count more, so that a network that
    /// is about to announce millions of triangles (a file section) does not grow the list step
    /// by step. Nothing outside an event, where the list is emptied at the close anyway.
    void ReserveTriAdded(std::size_t count);
    /// Lists the @p count triangles at @p triangles as added, as that many Notify_Tri_Added in
    /// turn would while AdditionsUnheard() holds: a file section hands over its triangles a
    /// block at a time.
    void NoteTrisAddedUnheard(CTri* const* triangles, std::size_t count);
    void Notify_Tri_Modifying(CTri* triangle, enumTriChangeType type);
    void Notify_Tri_Removed(CTri* triangle);
    void Notify_Tri_RemoveAll();
    void Notify_CvLv_Added(CCvLv* line);
    void Notify_CvLv_Modifying(CCvLv* line, enumCvLvChangeType type);
    void Notify_CvLv_Removed(CCvLv* line);
    void Notify_CvLv_IntervalRemoved(CCvLvInterv* interval);
    /// The project has built its components: the undo builder takes the state it starts from,
    /// so that even a change made before any event of the project can be undone.
    void OnPrjBuilt();
    /// True while an open event's listener ignores added vertices and triangles.
    bool AdditionsUnheard() const noexcept;

    struct State;
    std::unique_ptr<State> m_state;
};
