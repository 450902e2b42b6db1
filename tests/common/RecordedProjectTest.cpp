#include "RecordedProjectTest.h"

#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>

namespace dtm_test {

void RecordedProjectTest::SetUp() {
    prj = NewProject();
}

void RecordedProjectTest::TearDown() {
    for (CDtmPrj* project : m_projects) {
        project->GetContext()->Unregister(&recorder);
        project->SubReference();
    }
    m_projects.clear();
    prj = nullptr;
}

CDtmPrj* RecordedProjectTest::NewProject() {
    CDtmPrj* project = new CDtmPrj(nullptr, "Rilievo", true, false);
    project->GetContext()->Register(&recorder);
    m_projects.push_back(project);
    return project;
}

}  // namespace dtm_test
