#pragma once

// Where tests find their data. The survey files beside the repository are optional: a user's
// clone does not have them, so tests that need them skip.

#include <sys/stat.h>
#include <string>

namespace dtm_test {

inline std::string SharedDataDir() {
    return DTM_SHARED_DATA_DIR;
}
inline std::string TestDataDir() {
    return DTM_TEST_DATA_DIR;
}

inline bool FileExists(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}

}  // namespace dtm_test
