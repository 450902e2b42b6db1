#pragma once

// The undo step of a library event, and the listener that builds it.

#include <dtm/project/CLibDtmChangeContext.h>
#include <dtm/support/Events.h>
#include <dtm/support/RefCounter.h>

#include <vector>

class CDtmPrj;
class CLibDtm;

/// Projects added and removed by one library event, with the project that was active before it.
/// Each application swaps the remembered active project with the library's, so undo and redo
/// alternate any number of times. It holds a reference on every listed project and on the
/// remembered one, so that none of them can be gone when it applies.
///
/// Applied to a library that changed behind its back (outside recording), it stays safe: a
/// project already in the library is not added a second time, one that is not there is not
/// removed, and a remembered project that is not in the library is not made active.
class CLibDtmCmdExecuted : public kor::ICmdExecuted {
public:
    using Projects = std::vector<kor::CRefPtr<CDtmPrj>>;
    /// Takes its own reference on every listed project.
    CLibDtmCmdExecuted(CLibDtm* lib, CDtmPrj* rememberedActive, const std::vector<CDtmPrj*>& added,
                       const std::vector<CDtmPrj*>& removed);
    ~CLibDtmCmdExecuted() override;
    /// Adds the removed projects back and removes the added ones.
    void Undo() override;
    /// Adds the added projects again and removes the removed ones.
    void Redo() override;
    std::size_t GetSize() const override;

private:
    void Apply(const Projects& toAdd, const Projects& toRemove);
    bool Holds(const CDtmPrj* prj) const;

    CLibDtm* m_lib;
    kor::CRefPtr<CDtmPrj> m_rememberedActive;
    Projects m_added;
    Projects m_removed;
};

/// Collects the projects of one library event and files one CLibDtmCmdExecuted when the event
/// changed anything.
///
/// A project added and removed again within the event leaves no trace. One removed and added
/// back within the event is in the library before and after it, so it is listed in neither
/// list: putting it back would find it there already. Its new place at the end of the order,
/// and a name its return made unique, are then not undone.
class CCreateLibDtmCmdExecutedEventListener : public ILibDtmEventListener {
public:
    explicit CCreateLibDtmCmdExecutedEventListener(CLibDtm* lib) : m_lib(lib) {}
    void OnBeginEvent() override;
    void OnEndEvent() override;
    void OnPrjAdded(CDtmPrj* prj) override;
    void OnPrjRemoved(CDtmPrj* prj) override;
    /// A project went in or out of the library without reaching this listener: the event files
    /// nothing and drops the manager's history when it closes.
    void OnRecordingFailed() noexcept { m_recordingFailed = true; }

private:
    void Record(std::vector<kor::CRefPtr<CDtmPrj>>& list, CDtmPrj* prj);

    CLibDtm* m_lib;
    CDtmPrj* m_activeAtBegin = nullptr;
    /// A project of the event could not be listed (an allocation failed): the event files
    /// nothing and the manager's history is dropped when it closes.
    bool m_recordingFailed = false;
    std::vector<kor::CRefPtr<CDtmPrj>> m_added;
    std::vector<kor::CRefPtr<CDtmPrj>> m_removed;
};
