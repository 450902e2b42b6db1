#pragma once

/// @file
/// A project's collection of boundaries: the external ones, or the internal ones (holes).

#include <dtm/support/Export.h>
#include <dtm/support/Streams.h>

#include <vector>

class CCnt;
class CDtmChangeContext;
class CDtmPrj;

/// The boundaries of one kind (external or internal) of a project, in insertion order.
///
/// The collection holds one reference on each of its boundaries. Additions and removals are
/// reported to the project's change context (added and removed notifications, after the
/// change); a collection without a project reports nothing.
class DTM_API CCnts {
public:
    /// An empty collection of @p prj (borrowed, may be null: such a collection notifies
    /// nothing); @p internal tells whether it holds internal boundaries.
    CCnts(CDtmPrj* prj, bool internal);
    /// A shallow copy: the same boundary objects in the same order, the same project and flag.
    /// The boundaries' collection pointers are not changed. The copy takes a reference of its
    /// own on each boundary, so that each collection releases only what it holds; its
    /// destruction therefore reports the shared boundaries removed, like any collection's.
    /// Use assignment for an independent copy.
    CCnts(const CCnts& other);
    /// Deep copy: inside one event of this collection's project, removes every boundary (as
    /// RemoveAllCnts) and then adds a clone of each of @p other's boundaries in order (each
    /// reported added). Assigning a collection to itself changes and sends nothing.
    const CCnts& operator=(const CCnts& other);
    /// Removes every boundary as RemoveAllCnts does, so the context (which must still be
    /// alive) is told of each one, and detaches each one that still names this collection once
    /// its removal has been reported: a boundary outliving the collection (held by an undo
    /// command or the host) then reports no project instead of pointing at a destroyed
    /// collection. Boundaries removed earlier still name it, so whoever keeps one must keep the
    /// project alive too. Should a notification throw here, the remaining boundaries are
    /// detached and released without notice, since a destructor cannot let the exception go on.
    virtual ~CCnts();

    /// The owning project (borrowed), or null.
    CDtmPrj* GetDtmPrj() const noexcept { return m_dtmPrj; }
    /// True for the collection of internal boundaries (holes).
    bool AreInternalCnts() const noexcept { return m_internal; }
    /// Number of boundaries.
    int GetNoCnts() const noexcept { return static_cast<int>(m_cnts.size()); }
    /// Boundary @p i (borrowed); throws std::out_of_range outside 0 … GetNoCnts() - 1.
    CCnt* GetCntAt(int i) const;

    /// Appends @p cnt, takes one reference on it, makes this its collection, then sends
    /// Notify_Cnt_Added. Opens no event of its own: a caller adding several boundaries brackets
    /// them. Throws std::invalid_argument for a null boundary.
    void AddCnt(CCnt* cnt);
    /// Removes the first entry equal to @p cnt: erases it from the list, sends
    /// Notify_Cnt_Removed, then releases the collection's reference. A boundary not in the
    /// collection changes and sends nothing. The boundary keeps pointing at this collection.
    void RemoveCnt(CCnt* cnt);
    /// Removes entry @p i as RemoveCnt does; throws std::out_of_range outside the list.
    void RemoveCntAt(int i);
    /// Removes every entry, from the last to the first, each as RemoveCnt does.
    void RemoveAllCnts();

    /// Writes the section: the boundary count, then per boundary its stored vertex count and
    /// its stored (extended) vertices as x, y, z doubles, all raw little-endian.
    void SalvaInFile(ofpstream& stream) const;
    /// Reads a section written by SalvaInFile and appends its boundaries to those present (the
    /// collection is not emptied first). Each boundary is built with exactly the stored list
    /// the section holds, wrap-around copies included. No version test.
    ///
    /// The section is read whole before anything changes. When it is complete, one event is
    /// opened on the project's change context and, if @p apply is true, each boundary is added
    /// as AddCnt does (reported added); with @p apply false the event is empty and the values
    /// are discarded. Either way the stream is left just after the section.
    ///
    /// A negative boundary count reads nothing more and adds nothing; a negative vertex count
    /// reads no vertex (that boundary is empty). When the stream ends inside the section the
    /// stream is left failed and the collection unchanged, with nothing reported. Memory grows
    /// with the vertices actually read, never with a count the stream claims.
    void LeggeDaFile(ifpstream& stream, bool apply);

private:
    /// The change context of the project, or null (borrowed).
    CDtmChangeContext* GetContext() const;
    /// Appends clones of @p other's boundaries inside one event, each reported added.
    void AggiungiDa(const CCnts& other);
    /// Erases entry @p i, reports it removed, optionally detaches it, and releases it.
    void RemoveEntry(int i, bool detach);
    /// Detaches and releases every entry without notification; the destructor's failure path.
    void ReleaseAllQuietly() noexcept;

    std::vector<CCnt*> m_cnts;
    CDtmPrj* m_dtmPrj;
    bool m_internal;
};
