#pragma once

// The one kind of failure the tool reports to a person: a sentence that names the file and says
// what is wrong with it, printed on one line by main before it exits with a non-zero status.

#include <stdexcept>
#include <string>

namespace dtmtool {

/// A failure the user can act on (a missing, damaged or foreign file, a point off the surface).
/// The message is complete: it names the file and what is wrong, without a trailing full stop.
class ToolError : public std::runtime_error {
public:
    explicit ToolError(const std::string& message) : std::runtime_error(message) {}
};

/// "@p file: @p what", the shape of every message about a file.
inline ToolError FileError(const std::string& file, const std::string& what) {
    return ToolError(file + ": " + what);
}

}  // namespace dtmtool
