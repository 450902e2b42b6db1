#pragma once

// A fresh temporary folder for one test, removed with everything in it when the test ends.

#include <string>

namespace dtm_test {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& Path() const { return m_path; }
    /// @p name inside the folder.
    std::string File(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

}  // namespace dtm_test
