#pragma once

// The library object of one document and the undo store it records into, created and torn down
// in the order the library needs.

#include <dtm/dtm.h>

#include <memory>
#include <string>
#include <vector>

#include "SurveyRecord.h"

namespace dtmtool {

/// Owns a CLibDtm and its transaction manager. The library's undo commands refer to the library,
/// so the destructor empties the undo store before the library goes.
class Workspace {
public:
    Workspace();
    ~Workspace();
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;

    /// The library (owned).
    CLibDtm& Library() noexcept { return *m_library; }
    const CLibDtm& Library() const noexcept { return *m_library; }
    /// The undo store the library's projects record into.
    kor::CChangeTransactionManager& Undo() noexcept { return m_undo; }
    /// The survey facts of the projects that have any (their units and point ids), which the
    /// document keeps beside the library's sections.
    SurveyRecords& Surveys() noexcept { return m_surveys; }
    const SurveyRecords& Surveys() const noexcept { return m_surveys; }

    /// Creates an empty project named @p name (made unique by the library) and arms its
    /// network's listener: the network ignores the first change event of its project, so
    /// without this the event that fills it would leave it without colours and spatial index.
    /// The answer is borrowed: the library holds the project.
    CDtmPrj* AddProject(const std::string& name);

    /// The project called @p name (ignoring case); with an empty @p name the active project, or
    /// the first one. Throws ToolError naming @p file when there is no such project.
    CDtmPrj& FindProject(const std::string& name, const std::string& file) const;

    /// The project called @p name (as FindProject), or with an empty @p name every project in
    /// the library's order: what a command given `--project`, or not, works on.
    std::vector<CDtmPrj*> Projects(const std::string& name, const std::string& file) const;

private:
    kor::CChangeTransactionManager m_undo;
    std::unique_ptr<CLibDtm> m_library;
    SurveyRecords m_surveys;
};

/// Suspends undo recording while it lives: loading, importing and generating are not edits a
/// user would undo, and recording a million added triangles would only cost memory.
class UndoSuspension {
public:
    explicit UndoSuspension(kor::CChangeTransactionManager& undo)
        : m_undo(undo), m_was(undo.IsRecordingSuspended()) {
        undo.SetRecordingSuspended(true);
    }
    ~UndoSuspension() { m_undo.SetRecordingSuspended(m_was); }
    UndoSuspension(const UndoSuspension&) = delete;
    UndoSuspension& operator=(const UndoSuspension&) = delete;

private:
    kor::CChangeTransactionManager& m_undo;
    bool m_was;
};

}  // namespace dtmtool
