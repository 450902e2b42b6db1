#pragma once

// Output files that appear whole or not at all.

#include <fstream>
#include <string>

namespace dtmtool {

/// Writes a file through a temporary file in the same folder, renamed over the target only by
/// Commit. Until then the previous file (if any) is untouched, and a writer that fails or
/// throws leaves nothing behind: the destructor removes the temporary file.
///
/// The temporary lives in the target's folder because a rename is atomic only within one file
/// system.
class AtomicFile {
public:
    /// Creates the temporary file beside @p path. Throws ToolError naming @p path when the
    /// folder cannot take a new file.
    explicit AtomicFile(std::string path);
    /// Removes the temporary file unless Commit succeeded.
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    /// The stream to write the content into.
    std::ostream& Stream() { return m_stream; }
    /// Flushes, forces the bytes to disk and renames the temporary file over the target. Throws
    /// ToolError naming the target when any step fails; the target is then unchanged.
    void Commit();

    /// The target path.
    const std::string& Path() const noexcept { return m_path; }

private:
    std::string m_path;
    std::string m_temporary;
    std::ofstream m_stream;
    bool m_committed = false;
};

/// Writes @p size bytes from @p data to @p path atomically, as AtomicFile does.
void WriteFileAtomically(const std::string& path, const char* data, std::size_t size);

}  // namespace dtmtool
