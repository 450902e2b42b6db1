#include "AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "ToolError.h"

namespace dtmtool {

namespace {

// As many links as the kernel follows in one path before it gives up with ELOOP.
constexpr int kMaxLinks = 40;

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

// A name of fixed length in @p folder: appending to the target's name instead would fail for
// a target whose name is already near the file system's limit.
std::string TemporaryPattern(const std::string& folder) {
    return (folder == "/" ? "" : folder) + "/.dtm-XXXXXX";
}

std::string ErrnoText() {
    return std::strerror(errno);
}

// The name a write to @p path should replace: @p path itself, or, when it is a symbolic link,
// the file the chain of links leads to (which need not exist yet). Replacing the link itself
// would cut it from its target and leave the target stale. A relative link is joined to the
// link's folder without tidying "..", so that the kernel resolves it as it resolves the link.
std::string FollowLinks(const std::string& path) {
    namespace fs = std::filesystem;
    fs::path at = path;
    for (int hop = 0; hop < kMaxLinks; ++hop) {
        std::error_code error;
        if (!fs::is_symlink(fs::symlink_status(at, error))) return at.string();
        const fs::path link = fs::read_symlink(at, error);
        if (error) return at.string();
        at = link.is_absolute() ? link : at.parent_path() / link;
    }
    throw FileError(path, std::string("cannot be written: ") + std::strerror(ELOOP));
}

const char* KindOf(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
    if (S_ISFIFO(mode)) return "a pipe";
    if (S_ISSOCK(mode)) return "a socket";
    return "a special file";
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

void CheckOutputKind(const std::string& output) {
    if (output == "-")
        throw FileError(output,
                        "the output cannot be standard output; name a file (./- for a file "
                        "called -)");
    struct stat info;
    // A path that cannot be examined is left to the write, whose message says why.
    if (::stat(output.c_str(), &info) != 0) return;
    if (!S_ISREG(info.st_mode))
        throw FileError(output, std::string("is ") + KindOf(info.st_mode) +
                                    ", not a regular file; choose another output");
}

void CheckOutput(const std::string& input, const std::string& output) {
    std::error_code error;
    if (std::filesystem::equivalent(input, output, error))
        throw FileError(output, "is the input file; choose another output");
    CheckOutputKind(output);
}

AtomicFile::AtomicFile(std::string path) : m_path(std::move(path)) {
    CheckOutputKind(m_path);
    m_target = FollowLinks(m_path);
    const std::string pattern = TemporaryPattern(FolderOf(m_target));
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = ::mkstemp(name.data());
    if (fd < 0) throw FileError(m_path, "cannot be written: " + ErrnoText());
    GiveUsualPermissions(fd, m_target);
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
    if (std::rename(m_temporary.c_str(), m_target.c_str()) != 0)
        throw FileError(m_path, "cannot be replaced: " + ErrnoText());
    m_committed = true;
    // The rename itself lives in the folder; without this a crash could bring the old file
    // back. Failing here is harmless for the content, so it is not reported.
    SyncPath(FolderOf(m_target), O_RDONLY | O_DIRECTORY);
}

void WriteFileAtomically(const std::string& path, const char* data, std::size_t size) {
    AtomicFile file(path);
    file.Stream().write(data, static_cast<std::streamsize>(size));
    file.Commit();
}

}  // namespace dtmtool
