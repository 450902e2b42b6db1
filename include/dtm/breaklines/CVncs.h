#pragma once

/// @file
/// The breaklines of a project and their document stream section.

#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>
#include <dtm/support/Streams.h>

#include <vector>

class CDtmChangeContext;
class CDtmPrj;
class CVnc;

/// The collection of a project's breaklines, in insertion order.
///
/// The collection holds one reference on each breakline it lists. Additions and removals are
/// reported to the project's change context; a breakline reports its own changes through
/// GetContext. Without a project (and so without a context) nothing is reported.
class DTM_API CVncs {
public:
    /// An empty collection of @p prj (borrowed, may be null); it takes the project's change
    /// context (borrowed) now, so the project must build its context first.
    explicit CVncs(CDtmPrj* prj);
    /// Removes every breakline as RemoveAllVncs does, so the context is told of each one. The
    /// owner destroys the collection while the change context is still alive. Should a
    /// notification throw here, the remaining breaklines are released without notice, since a
    /// destructor cannot let the exception go on.
    ~CVncs();
    /// A collection is tied to one project: it is neither copied nor assigned.
    CVncs(const CVncs&) = delete;
    CVncs& operator=(const CVncs&) = delete;

    /// The owning project (borrowed), or null.
    CDtmPrj* GetDtmPrj() const noexcept { return m_dtmPrj; }
    /// The project's change context (borrowed), or null without a project.
    CDtmChangeContext* GetContext() const noexcept { return m_context; }

    /// Number of breaklines.
    int GetNoVncs() const noexcept { return static_cast<int>(m_vncs.size()); }
    /// Breakline @p i (borrowed). Throws std::out_of_range when @p i is outside the list.
    CVnc* GetVncAt(int i) const;

    /// Appends @p vnc, takes one reference on it, then sends Notify_Vnc_Added. Opens no event:
    /// the caller brackets a group of additions. @p vnc should belong to this collection
    /// (CVnc::GetVncs), since it reports its changes through it. Throws std::invalid_argument
    /// for a null @p vnc.
    void AddVnc(CVnc* vnc);
    /// Creates a breakline of this collection with segment @p coords and adds it as AddVnc
    /// does. The returned breakline is borrowed: the collection holds its only reference.
    CVnc* AddNewVnc(const kor::geom::LINE_3D& coords);

    /// Removes the first entry equal to @p vnc: erases it, sends Notify_Vnc_Removed, then
    /// releases the collection's reference (the context keeps the breakline alive until its
    /// event closes). A breakline not in the list, null included, changes and sends nothing.
    void RemoveVnc(CVnc* vnc);
    /// Removes breakline @p i as RemoveVnc does. Throws std::out_of_range when @p i is outside
    /// the list.
    void RemoveVncAt(int i);
    /// Removes every breakline: from the last to the first, sends Notify_Vnc_Removed; only
    /// then is the list emptied, in one step, and the collection's references released, the
    /// last first. Listeners told of a removal therefore still see the whole list, every entry
    /// alive. No event is opened: the caller brackets the removal, and outside an event each
    /// report is an event of its own (an undo step each). When a report throws, the list keeps
    /// exactly the breaklines not yet reported.
    void RemoveAllVncs();

    /// Writes the section: the count as a 4-byte signed integer, then per breakline the six
    /// coordinates (first end point x, y, z, then second end point x, y, z) as 8-byte doubles,
    /// all little-endian, in list order. No version test.
    void SalvaInFile(ofpstream& stream) const;
    /// Reads a section written by SalvaInFile and, when @p apply is true, appends its
    /// breaklines to those present (the collection is not emptied first), each created and
    /// reported added as AddNewVnc does, all inside one event opened once the count is read.
    /// With @p apply false the values are read and discarded and nothing changes; either way
    /// exactly 4 + 48 * count bytes are consumed.
    ///
    /// A negative count reads nothing more and leaves the stream good. When the stream ends
    /// inside the section the stream is left failed and the collection keeps the breaklines
    /// read whole before the end; the one cut short is dropped. Memory grows with the
    /// breaklines actually read, never with the count the stream claims.
    void LeggeDaFile(ifpstream& stream, bool apply);

private:
    /// Erases entry @p index, reports it removed and releases the collection's reference.
    void RemoveEntry(std::size_t index);
    /// Releases every reference without notification; for the destructor's failure path only.
    void ReleaseAllQuietly() noexcept;

    CDtmPrj* m_dtmPrj;
    CDtmChangeContext* m_context;
    std::vector<CVnc*> m_vncs;
};
