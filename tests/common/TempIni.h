#pragma once

// Points default-constructed CIniFile objects at a fresh INI file in a temporary folder for the
// life of one object, so that options read by constructors see a known file, and puts the
// previous default path back afterwards. Hold one as a member of a test fixture.

#include <dtm/support/IniFile.h>

#include <gtest/gtest.h>

#include <string>

#include "TempDir.h"

namespace dtm_test {

class TempIni {
public:
    TempIni() : m_previous(CIniFile::GetDefaultPath()), m_path(m_dir.File("dtm.ini")) {
        CIniFile::SetDefaultPath(m_path);
    }
    ~TempIni() { CIniFile::SetDefaultPath(m_previous); }
    TempIni(const TempIni&) = delete;
    TempIni& operator=(const TempIni&) = delete;

    /// The INI file that default-constructed CIniFile objects now use; it does not exist until
    /// something writes to it.
    const std::string& Path() const { return m_path; }

private:
    // The path in effect before (an explicit setting, DTM_INI or the user's file); restoring it
    // as an explicit setting reaches the same file.
    std::string m_previous;
    TempDir m_dir;
    std::string m_path;
};

/// A fixture whose every test reads and writes a fresh INI file through default-constructed
/// CIniFile objects, so that options read by constructors see a known file.
class TempIniTest : public ::testing::Test {
protected:
    TempIni m_ini;
};

}  // namespace dtm_test
