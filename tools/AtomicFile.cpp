#include "AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "ToolError.h"

namespace dtmtool {

namespace {

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string ErrnoText() {
    return std::strerror(errno);
}

// Pushes the file's bytes to the disk, so that a crash after the rename cannot leave a renamed
// but empty file.
bool SyncPath(const std::string& path, int flags) {
    const int fd = ::open(path.c_str(), flags);
    if (fd < 0) return false;
    const bool synced = ::fsync(fd) == 0;
    return ::close(fd) == 0 && synced;
}

// mkstemp makes a file only its owner can read. The new file takes the permissions the old one
// had, or, for a new file, those any new file of the user gets.
void GiveUsualPermissions(int fd, const std::string& target) {
    struct stat existing;
    if (::stat(target.c_str(), &existing) == 0) {
        ::fchmod(fd, existing.st_mode & 07777);
        return;
    }
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
}

}  // namespace

AtomicFile::AtomicFile(std::string path) : m_path(std::move(path)) {
    std::string pattern = m_path + ".tmp-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = ::mkstemp(name.data());
    if (fd < 0) throw FileError(m_path, "cannot be written: " + ErrnoText());
    GiveUsualPermissions(fd, m_path);
    ::close(fd);
    m_temporary = name.data();
    m_stream.open(m_temporary, std::ios::binary | std::ios::trunc);
    if (!m_stream) {
        std::remove(m_temporary.c_str());
        throw FileError(m_path, "cannot be written: " + ErrnoText());
    }
}

AtomicFile::~AtomicFile() {
    if (m_committed) return;
    m_stream.close();
    std::remove(m_temporary.c_str());
}

void AtomicFile::Commit() {
    m_stream.flush();
    const bool written = static_cast<bool>(m_stream);
    m_stream.close();
    if (!written || m_stream.fail()) throw FileError(m_path, "cannot be written: " + ErrnoText());
    if (!SyncPath(m_temporary, O_WRONLY))
        throw FileError(m_path, "cannot be written to disk: " + ErrnoText());
    if (std::rename(m_temporary.c_str(), m_path.c_str()) != 0)
        throw FileError(m_path, "cannot be replaced: " + ErrnoText());
    m_committed = true;
    // The rename itself lives in the folder; without this a crash could bring the old file
    // back. Failing here is harmless for the content, so it is not reported.
    SyncPath(FolderOf(m_path), O_RDONLY | O_DIRECTORY);
}

void WriteFileAtomically(const std::string& path, const char* data, std::size_t size) {
    AtomicFile file(path);
    file.Stream().write(data, static_cast<std::streamsize>(size));
    file.Commit();
}

}  // namespace dtmtool
