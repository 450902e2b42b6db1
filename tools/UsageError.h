#pragma once

// A command line that parses but asks for something the command cannot do with the document it
// is given (a label height far too small for the surface): main prints the message on one line
// and exits with the status of a command line that does not parse.

#include "ToolError.h"

namespace dtmtool {

/// A value given on the command line that does not suit the input. The message names the
/// option or argument and says what it must be, without a trailing full stop.
class UsageError : public ToolError {
public:
    explicit UsageError(const std::string& message) : ToolError(message) {}
};

}  // namespace dtmtool
