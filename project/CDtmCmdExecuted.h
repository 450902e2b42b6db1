#pragma once

// The undo step of a project event: what the event changed, kind by kind, and how to put it
// back and forth. CCreateCmdExecutedEventListener builds it when the event closes.

#include <dtm/boundaries/CCnt.h>
#include <dtm/breaklines/CVnc.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/network/CTri.h>
#include <dtm/project/TDtmOpz.h>
#include <dtm/support/Events.h>
#include <dtm/support/Geom.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/String.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

class CCnts;
class CCvLvs;
class CDtmPrj;
class CTris;
class CVncs;

namespace dtm {
namespace detail {

// Kinds ---------------------------------------------------------------------------------------
//
// The breakline, boundary, triangle and contour-line groups of an undo step differ only in the
// data below: which collection holds the entities, how one is added, how many are removed, how
// a memento is taken and how "unchanged" is judged. Everything else is one template.

/// Breaklines in CVncs.
struct TVncKind {
    using Entity = CVnc;
    using Collection = CVncs;
    /// Whether a removal must keep the entity's state: see CEntityChanges::OnRemoved.
    static constexpr bool kKeepStateOnRemoval = false;
    static kor::IMemento* CreateMemento(const CVnc& entity, CVncs& collection);
    static bool IsUnchanged(const CVnc& entity, const kor::IMemento& memento);
    static void Add(CVncs& collection, CVnc* entity);
    static void Remove(CVncs& collection, const std::vector<CVnc*>& entities);
};

/// Boundaries in one of the two CCnts of a project.
struct TCntKind {
    using Entity = CCnt;
    using Collection = CCnts;
    // A boundary moved from one collection to the other within an event is recorded by both
    // groups: removed from the one, added to the other. The group it entered saw it added and
    // keeps no state; the group it left must, so its state is kept at the removal.
    static constexpr bool kKeepStateOnRemoval = true;
    static kor::IMemento* CreateMemento(const CCnt& entity, CCnts& collection);
    static bool IsUnchanged(const CCnt& entity, const kor::IMemento& memento);
    static void Add(CCnts& collection, CCnt* entity);
    static void Remove(CCnts& collection, const std::vector<CCnt*>& entities);
};

/// Triangles in the network. The network's vertices are not entities: CVrtJournal keeps them.
struct TTriKind {
    using Entity = CTri;
    using Collection = CTris;
    // The context drops the triangle notifications that follow a remove-all in the same event,
    // so only then is the state kept at removal; the listener asks for it (see OnTriRemoved).
    static constexpr bool kKeepStateOnRemoval = false;
    static kor::IMemento* CreateMemento(const CTri& entity, CTris& collection);
    static bool IsUnchanged(const CTri& entity, const kor::IMemento& memento);
    static void Add(CTris& collection, CTri* entity);
    static void Remove(CTris& collection, const std::vector<CTri*>& entities);
};

/// Contour lines in CCvLvs.
struct TCvLvKind {
    using Entity = CCvLv;
    using Collection = CCvLvs;
    // The context drops a modifying notification of a line it has marked in the event, so a
    // line removed and added back, then changed, would reach the listener unannounced: its
    // state is kept when it is removed.
    static constexpr bool kKeepStateOnRemoval = true;
    static kor::IMemento* CreateMemento(const CCvLv& entity, CCvLvs& collection);
    static bool IsUnchanged(const CCvLv& entity, const kor::IMemento& memento);
    static void Add(CCvLvs& collection, CCvLv* entity);
    static void Remove(CCvLvs& collection, const std::vector<CCvLv*>& entities);
};

// One group of an undo step ------------------------------------------------------------------

/// The entities of one kind that one event changed, as the undo step keeps them: those it added,
/// those it removed, and (entity, memento) pairs of those it modified. The step holds a
/// reference on each entity and memento.
template <class Kind>
struct TEntityGroup {
    using Entity = typename Kind::Entity;
    using Collection = typename Kind::Collection;
    using Entities = std::vector<kor::CRefPtr<Entity>>;
    struct TPair {
        kor::CRefPtr<Entity> entity;
        /// The state to put back at the next application.
        kor::CRefPtr<kor::IMemento> memento;
    };

    /// Borrowed: the project, which the undo step holds, owns it.
    Collection* collection = nullptr;
    Entities added;
    Entities removed;
    std::vector<TPair> modified;

    bool IsEmpty() const noexcept { return added.empty() && removed.empty() && modified.empty(); }

    /// Undo (@p undo true) takes out the added entities and puts back the removed ones; redo the
    /// opposite. Removals come first, then the memento swaps, then the additions, so that an
    /// entity removed and added back in the event leaves and returns, and a modified entity gets
    /// its state while it is out of the collection if it is to return. Each swap keeps the
    /// state it replaced, which is what the next application in the other direction puts back.
    void Apply(bool undo) {
        if (IsEmpty()) return;
        const Entities& toRemove = undo ? added : removed;
        const Entities& toAdd = undo ? removed : added;
        if (!toRemove.empty()) Kind::Remove(*collection, Pointers(toRemove));
        for (TPair& pair : modified) {
            auto present =
                kor::CRefPtr<kor::IMemento>::Adopt(Kind::CreateMemento(*pair.entity, *collection));
            pair.entity->SetMemento(pair.memento.Get());
            pair.memento = std::move(present);
        }
        for (const auto& entity : toAdd) Kind::Add(*collection, entity.Get());
    }

    /// The bytes held: one reference per listed entity plus every memento's own size.
    std::size_t GetSize() const {
        std::size_t size = (added.size() + removed.size()) * sizeof(kor::CRefPtr<Entity>);
        for (const TPair& pair : modified) size += sizeof(TPair) + pair.memento->GetSize();
        return size;
    }

private:
    static std::vector<Entity*> Pointers(const Entities& entities) {
        std::vector<Entity*> pointers;
        pointers.reserve(entities.size());
        for (const auto& entity : entities) pointers.push_back(entity.Get());
        return pointers;
    }
};

/// What the listener records of one kind during one event, notification by notification, and
/// settles into a TEntityGroup when the event closes.
///
/// Each entity is judged by its first and last appearance in the event. An entity first seen
/// added was not in the collection when the event opened; one first seen modifying or removed
/// was. Settling then gives exactly what undo needs to restore the state from before the event
/// and redo the state after it:
/// - added and removed again within the event: no trace (nor its memento);
/// - added (and perhaps changed): listed added, without memento, since it leaves and comes
///   back with whatever state it has;
/// - present before, removed: listed removed;
/// - present before, removed and added back: listed removed and added, so that undo and redo
///   take it out and put it back as the event did;
/// - present before and modified: paired with the memento taken at its first modifying
///   notification (or removal, see OnRemoved), the state from before the event; the pair is
///   dropped when the entity's state equals the memento (Kind::IsUnchanged), unless the change
///   is still to come (see OnModifying).
template <class Kind>
class CEntityChanges {
public:
    using Entity = typename Kind::Entity;
    using Collection = typename Kind::Collection;

    void OnAdded(Entity* entity) {
        TEntry& entry = EntryOf(entity, false);
        entry.presentNow = true;
        entry.addOrder = ++m_sequence;
    }

    /// @p keepState takes a memento now (when none is held yet) because later changes of the
    /// entity may never be notified; see the kinds.
    void OnRemoved(Entity* entity, Collection& collection, bool keepState) {
        TEntry& entry = EntryOf(entity, true);
        if (keepState) KeepState(entry, collection);
        if (!entry.leftOnce) entry.removeOrder = ++m_sequence;
        entry.leftOnce = true;
        entry.presentNow = false;
    }

    /// @p changeFollows: the notification is an event of its own, so the change it announces
    /// is made only after the event has closed; the entity's state at the close then says
    /// nothing, and its pair is kept whatever that state is.
    void OnModifying(Entity* entity, Collection& collection, bool changeFollows) {
        TEntry& entry = EntryOf(entity, true);
        KeepState(entry, collection);
        entry.changeFollows = entry.changeFollows || changeFollows;
    }

    bool IsEmpty() const noexcept { return m_entries.empty(); }
    /// Whether any notification of the event named @p entity.
    bool Knows(const Entity* entity) const { return m_index.count(entity) != 0; }

    /// Settles the event's changes into a group of @p collection (borrowed) and empties itself.
    TEntityGroup<Kind> Finish(Collection* collection) {
        TEntityGroup<Kind> group;
        group.collection = collection;
        std::vector<std::pair<std::uint64_t, Entity*>> added, removed;
        for (TEntry& entry : m_entries) {
            Entity* entity = entry.entity.Get();
            if (!entry.presentAtBegin) {
                if (entry.presentNow) added.emplace_back(entry.addOrder, entity);
                continue;
            }
            if (entry.memento &&
                (entry.changeFollows || !Kind::IsUnchanged(*entity, *entry.memento)))
                group.modified.push_back({entry.entity, entry.memento});
            if (entry.leftOnce) {
                removed.emplace_back(entry.removeOrder, entity);
                if (entry.presentNow) added.emplace_back(entry.addOrder, entity);
            }
        }
        // Additions append: listing them in the order of their last addition gives the order
        // the event left; removals are listed in the order they happened.
        group.added = InOrder(added);
        group.removed = InOrder(removed);
        Clear();
        return group;
    }

    void Clear() noexcept {
        m_entries.clear();
        m_index.clear();
        m_sequence = 0;
    }

private:
    struct TEntry {
        kor::CRefPtr<Entity> entity;
        bool presentAtBegin = false;
        bool presentNow = false;
        /// Removed at least once in the event.
        bool leftOnce = false;
        /// Announced by a modifying notification that was an event of its own.
        bool changeFollows = false;
        std::uint64_t addOrder = 0;
        std::uint64_t removeOrder = 0;
        /// The state from before the event, for an entity that was present then.
        kor::CRefPtr<kor::IMemento> memento;
    };

    TEntry& EntryOf(Entity* entity, bool presentAtBegin) {
        const auto found = m_index.find(entity);
        if (found != m_index.end()) return m_entries[found->second];
        TEntry entry;
        entry.entity = kor::CRefPtr<Entity>::Share(entity);
        entry.presentAtBegin = presentAtBegin;
        entry.presentNow = presentAtBegin;
        // Both or neither, should an allocation fail.
        m_index.emplace(entity, m_entries.size());
        try {
            m_entries.push_back(std::move(entry));
        } catch (...) {
            m_index.erase(entity);
            throw;
        }
        return m_entries.back();
    }

    /// Only the first memento counts: it holds the state from before the event. An entity
    /// added in the event needs none.
    static void KeepState(TEntry& entry, Collection& collection) {
        if (!entry.presentAtBegin || entry.memento) return;
        entry.memento =
            kor::CRefPtr<kor::IMemento>::Adopt(Kind::CreateMemento(*entry.entity, collection));
    }

    static std::vector<kor::CRefPtr<Entity>> InOrder(
        std::vector<std::pair<std::uint64_t, Entity*>>& ordered) {
        // Usually already in order (entities met in the order they were added), which one pass
        // tells; sorting a million additions again would cost more than listing them.
        const auto earlier = [](const auto& a, const auto& b) { return a.first < b.first; };
        if (!std::is_sorted(ordered.begin(), ordered.end(), earlier))
            std::sort(ordered.begin(), ordered.end(), earlier);
        std::vector<kor::CRefPtr<Entity>> entities;
        entities.reserve(ordered.size());
        for (const auto& item : ordered)
            entities.push_back(kor::CRefPtr<Entity>::Share(item.second));
        return entities;
    }

    std::vector<TEntry> m_entries;
    std::unordered_map<const Entity*, std::size_t> m_index;
    std::uint64_t m_sequence = 0;
};

// Vertices -------------------------------------------------------------------------------------

/// The edits of the network's vertex array in one event, in order, so that undo replays them
/// backwards and redo forwards on the same array and every vertex comes back exactly, at its
/// index. A journal rather than a copy of the array: an event usually touches a few vertices
/// of a large network.
///
/// Consecutive appends share one entry; an edit that cancels the one just before it (moving a
/// vertex appended in the event, moving the same vertex again, erasing the vertex just
/// appended) is folded into it, so that dragging a vertex or adding and taking back a vertex
/// leaves one entry or none.
class CVrtJournal {
public:
    /// Vertex @p index was appended with @p p.
    void Appended(int index, const kor::geom::PNT_3D& p);
    /// Vertex @p index goes from @p before to @p after.
    void Overwritten(int index, const kor::geom::PNT_3D& before, const kor::geom::PNT_3D& after);
    /// Vertex @p index, holding @p before, is erased; the later ones move down.
    void Erased(int index, const kor::geom::PNT_3D& before);
    /// The array, holding @p vertices, is emptied (remove-all).
    void Cleared(const std::vector<kor::geom::PNT_3D>& vertices);

    bool IsEmpty() const noexcept { return m_entries.empty(); }
    /// Replays the edits backwards, each one inverted.
    void Undo(CTris& tris) const;
    /// Replays the edits forwards.
    void Redo(CTris& tris) const;
    std::size_t GetSize() const noexcept;
    void Clear() noexcept { m_entries.clear(); }

private:
    enum class EEdit { Append, Overwrite, Erase, Clear };
    struct TEntry {
        EEdit edit;
        /// The vertex edited; for appends the first of the run.
        int index;
        kor::geom::PNT_3D before;
        kor::geom::PNT_3D after;
        /// The appended run, or the array a clear emptied.
        std::vector<kor::geom::PNT_3D> points;
    };
    TEntry* Last() noexcept { return m_entries.empty() ? nullptr : &m_entries.back(); }

    std::vector<TEntry> m_entries;
};

// The whole step -----------------------------------------------------------------------------

/// An elevation range at the opening and at the close of an event.
struct TQuotaRangeChange {
    double minBefore = 0.0, maxBefore = 0.0;
    double minAfter = 0.0, maxAfter = 0.0;
    bool IsChanged() const noexcept;
};

/// A project's name, visible flag and locked flag.
struct TPrjProps {
    kor::String name;
    bool visible = false;
    bool locked = false;
};

/// Every display option of two records equal (colour classes by their own comparison).
bool SameOptions(const TDtmOpz& a, const TDtmOpz& b);

/// Everything one event changed in a project, in the form the undo step applies.
struct TDtmChange {
    TEntityGroup<TVncKind> vncs;
    TEntityGroup<TCntKind> internalCnts;
    TEntityGroup<TCntKind> externalCnts;
    TEntityGroup<TTriKind> tris;
    TEntityGroup<TCvLvKind> cvlvs;
    CVrtJournal vertices;
    /// Put back when the event changed it or the step touches what it covers; otherwise an
    /// event that left a range alone leaves it alone both ways.
    TQuotaRangeChange triRange;
    TQuotaRangeChange cvLvRange;
    /// The values to swap in at the next application: at first those from when the event
    /// opened, then each application keeps the ones it replaced.
    TDtmOpz options;
    TPrjProps props;
};

}  // namespace detail
}  // namespace dtm

/// The undo step of one project event. It holds a reference on its project and on every entity
/// and memento it lists, and applies itself inside one event of the project's change context,
/// so that the host's listeners see an undo as one ordinary event; the transaction manager
/// suspends recording meanwhile, so applying files nothing new. Each application swaps the
/// stored states with the present ones, so undo and redo alternate any number of times.
class CDtmCmdExecuted : public kor::ICmdExecuted {
public:
    /// Takes a reference of its own on @p project.
    CDtmCmdExecuted(CDtmPrj* project, dtm::detail::TDtmChange change);
    ~CDtmCmdExecuted() override;
    CDtmCmdExecuted(const CDtmCmdExecuted&) = delete;
    CDtmCmdExecuted& operator=(const CDtmCmdExecuted&) = delete;

    /// Puts back the project as it was before the recorded event.
    void Undo() override;
    /// Puts back the project as the recorded event left it.
    void Redo() override;
    /// The fourth operation of kor::ICmdExecuted: the bytes the step keeps alive, mementos
    /// (by their own GetSize), vertex journal and options included, so that a host can cap
    /// its undo history by memory.
    std::size_t GetSize() const override;

private:
    void Apply(bool undo);
    void SwapOptions();
    void SwapProps();

    // First, so that it goes last: the entities and mementos are released while their project
    // and collections still exist.
    kor::CRefPtr<CDtmPrj> m_project;
    dtm::detail::TDtmChange m_change;
};
