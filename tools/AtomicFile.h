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
/// system. Its name is short and fixed in length (".dtm-" and six letters), so that any name
/// the file system accepts for the target can be written. When the path is a symbolic link,
/// the file it leads to is replaced and the link stays: the temporary then lives beside that
/// file.
class AtomicFile {
public:
    /// Creates the temporary file beside the file @p path leads to. Throws ToolError naming
    /// @p path when CheckOutputKind refuses it or the folder cannot take a new file.
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

    /// The target path as given.
    const std::string& Path() const noexcept { return m_path; }

private:
    std::string m_path;
    // m_path with its symbolic links followed: the name the rename replaces.
    std::string m_target;
    std::string m_temporary;
    std::ofstream m_stream;
    bool m_committed = false;
};

/// Writes @p size bytes from @p data to @p path atomically, as AtomicFile does.
void WriteFileAtomically(const std::string& path, const char* data, std::size_t size);

/// Throws ToolError naming @p output when it cannot take a file: "-" (the outputs are whole
/// files, not streams), and anything that exists, after its links are followed, and is not a
/// regular file (a folder, a device, a pipe, a socket), which a rename would replace or could
/// not replace. A missing file is fine. AtomicFile checks this itself.
void CheckOutputKind(const std::string& output);

/// Throws ToolError naming @p output when a command reading @p input must not write there:
/// when both name the same file, however they are spelt ("./x" and "x", links, hard links),
/// since writing the output would destroy the input; and whatever CheckOutputKind refuses.
/// Commands that take an input and an output call it before they read, so that a refusal
/// costs no work and touches nothing.
void CheckOutput(const std::string& input, const std::string& output);

}  // namespace dtmtool
