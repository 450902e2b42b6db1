#pragma once

// A test fixture around projects without library whose change events are recorded.

#include <gtest/gtest.h>

#include <vector>

#include "Probes.h"

class CDtmPrj;

namespace dtm_test {

/// Holds @ref prj, a project named "Rilievo" built without library in SetUp, and any further
/// projects from NewProject(); @ref recorder records the change events of all of them. TearDown
/// unregisters the recorder and releases every project, also when an assertion stops a test
/// early.
///
/// A project reads its options from the INI file when it is built: a derived fixture that needs
/// a known file holds a TempIni member, which exists before SetUp runs and outlives TearDown.
class RecordedProjectTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /// A new project whose events are recorded; owned by the fixture.
    CDtmPrj* NewProject();

    ProjectEventRecorder recorder;
    /// The project built in SetUp; owned by the fixture.
    CDtmPrj* prj = nullptr;

private:
    std::vector<CDtmPrj*> m_projects;
};

}  // namespace dtm_test
