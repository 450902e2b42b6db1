#pragma once

/// @file
/// The library of terrain-model projects of one host document.

#include <dtm/project/IDtmPrjManager.h>
#include <dtm/support/Events.h>
#include <dtm/support/Export.h>
#include <dtm/support/LibGen.h>
#include <dtm/support/String.h>

#include <vector>

class CDtmPrj;
class CLibDtmChangeContext;

/// Holds the projects of one host document in order, keeps their names unique when they are
/// added, marks one of them active, and reports additions, removals and changes of the active
/// project through its change context.
class DTM_API CLibDtm : public CLibGen {
public:
    /// An empty library whose projects record their changes with @p manager (borrowed, may be
    /// null).
    explicit CLibDtm(kor::CChangeTransactionManager* manager);
    /// Orphans and releases every project without any notification, deletes the points
    /// provider and the project manager, and releases the change context. Undo commands of
    /// this library refer to it: clear the transaction manager before the library goes, or
    /// never undo them afterwards.
    ~CLibDtm() override;
    CLibDtm(const CLibDtm&) = delete;
    CLibDtm& operator=(const CLibDtm&) = delete;

    /// Adds @p prj at the end, taking over the caller's reference. The project is renamed when
    /// its name is taken (see FindNewSuitableName), adopted, and reported as added; the active
    /// project does not change. The caller's reference is taken over on every path: when an
    /// exception (an allocation failure) leaves before the project is listed, the library is
    /// unchanged and that reference has been released; once the project is listed, the
    /// library holds it even when the report fails.
    void AddPrj(CDtmPrj* prj);
    /// Creates a project and adds it; the answer (borrowed: the library holds it) may carry a
    /// changed name.
    CDtmPrj* AddPrj(const kor::String& name, bool visible, bool locked);
    /// The first project whose name equals @p name ignoring case, or null.
    CDtmPrj* FindPrj(const kor::String& name) const;
    /// @p name when no project has it (ignoring case), else @p name followed by " (2)",
    /// " (3)", ... the first that is free. A name that already ends in such a suffix gets a
    /// second one: the suffix is never parsed.
    kor::String FindNewSuitableName(const kor::String& name) const;
    /// Takes @p prj out of the library in one event: the project manager is told first, the
    /// project leaves the sequence, and then the event opens, in which the project is reported
    /// removed (the change context holds it until the event closes), it is orphaned, and when
    /// it was active no project is active any more. False, with nothing done, when @p prj is
    /// not in the library. Should the event fail to open (a listener throws), the project is
    /// put back in its place and the failure passes on.
    bool RemovePrj(CDtmPrj* prj, bool drawingAlreadyRemoved);
    /// Whether the host allows deleting @p prj: its project manager decides, true without one.
    bool CanDelete(CDtmPrj* prj);
    /// Makes @p prj (null: none) the active project, reported when @p notify is true; the
    /// modified flag is set either way. Nothing happens when it is already active. The change
    /// is made before the event of its report opens, so a change on its own is no undo step;
    /// made inside an event the host opened (with the projects it adds, say), it is undone
    /// with that event. Should the event fail to open, the active project stays as it was.
    void SetActive(CDtmPrj* prj, bool notify);
    /// The active project or null (borrowed).
    CDtmPrj* GetActive() const noexcept { return m_active; }
    /// Number of projects.
    unsigned int GetNoPrj() const noexcept { return static_cast<unsigned int>(m_projects.size()); }
    /// Project @p i in order (borrowed); throws std::out_of_range when @p i >= GetNoPrj().
    CDtmPrj* GetPrj(unsigned int i) const;

    /// The change context (borrowed).
    CLibDtmChangeContext* GetContext() const noexcept { return m_context; }
    operator CLibDtmChangeContext*() const noexcept { return m_context; }
    kor::CChangeTransactionManager* GetChangeTransactionManager() const noexcept {
        return m_manager;
    }

    /// Replaces the points provider; the library owns @p provider and deletes the previous one.
    void SetPointsProvider(IDtmPointsProvider* provider);
    IDtmPointsProvider* GetPointsProvider() const noexcept { return m_pointsProvider; }
    /// Stores the project manager, owned from now on. A manager replaced later is not deleted
    /// here: the host keeps it and deletes it itself.
    void SetDtmPrjManager(IDtmPrjManager* manager) noexcept { m_prjManager = manager; }
    IDtmPrjManager* GetDtmPrjManager() const noexcept { return m_prjManager; }

    /// Stores an opaque host datum; never read or freed here.
    void SetReserved(void* reserved) noexcept { m_reserved = reserved; }
    void* GetReserved() const noexcept { return m_reserved; }

private:
    void DoRemoveAll() noexcept;
    bool IsNameTaken(const kor::String& name) const;

    std::vector<CDtmPrj*> m_projects;
    CDtmPrj* m_active = nullptr;
    CLibDtmChangeContext* m_context = nullptr;
    kor::CChangeTransactionManager* m_manager;
    IDtmPointsProvider* m_pointsProvider = nullptr;
    IDtmPrjManager* m_prjManager = nullptr;
    void* m_reserved = nullptr;
};
