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

}  // namespace dtmtool
