#include "Workspace.h"

#include "ToolError.h"

namespace dtmtool {

Workspace::Workspace() : m_library(std::make_unique<CLibDtm>(&m_undo)) {}

Workspace::~Workspace() {
    m_undo.Clear();
    m_library.reset();
}

CDtmPrj* Workspace::AddProject(const std::string& name) {
    CDtmPrj* prj = m_library->AddPrj(name.c_str(), true, false);
    { kor::CEventGuard arm(prj->GetContext()); }
    return prj;
}

CDtmPrj& Workspace::FindProject(const std::string& name, const std::string& file) const {
    if (m_library->GetNoPrj() == 0) throw FileError(file, "holds no project");
    if (name.empty()) {
        CDtmPrj* active = m_library->GetActive();
        return active ? *active : *m_library->GetPrj(0);
    }
    CDtmPrj* found = m_library->FindPrj(name.c_str());
    if (!found) throw FileError(file, "holds no project called '" + name + "'");
    return *found;
}

std::vector<CDtmPrj*> Workspace::Projects(const std::string& name, const std::string& file) const {
    if (!name.empty()) return {&FindProject(name, file)};
    std::vector<CDtmPrj*> projects;
    for (unsigned int i = 0; i < m_library->GetNoPrj(); ++i)
        projects.push_back(m_library->GetPrj(i));
    return projects;
}

}  // namespace dtmtool
