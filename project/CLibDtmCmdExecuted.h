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
/// alternate any number of times.
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

    CLibDtm* m_lib;
    CDtmPrj* m_rememberedActive;
    Projects m_added;
    Projects m_removed;
};

/// Collects the projects of one library event and files one CLibDtmCmdExecuted when the event
/// changed anything.
class CCreateLibDtmCmdExecutedEventListener : public ILibDtmEventListener {
public:
    explicit CCreateLibDtmCmdExecutedEventListener(CLibDtm* lib) : m_lib(lib) {}
    void OnBeginEvent() override;
    void OnEndEvent() override;
    void OnPrjAdded(CDtmPrj* prj) override;
    void OnPrjRemoved(CDtmPrj* prj) override;

private:
    CLibDtm* m_lib;
    CDtmPrj* m_activeAtBegin = nullptr;
    std::vector<kor::CRefPtr<CDtmPrj>> m_added;
    std::vector<kor::CRefPtr<CDtmPrj>> m_removed;
};
