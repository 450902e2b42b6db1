#pragma once

// Running the built dtm program from a test, as a person would from a shell.

#include <string>
#include <vector>

namespace tool_test {

/// What a run of the program left behind.
struct CliResult {
    int status = -1;
    std::string out;
    std::string err;
};

/// Runs the dtm program with @p arguments in folder @p folder, @p input on its standard input.
/// Standard output and error go to files beside the folder, so that the folder holds only what
/// the program wrote.
CliResult RunDtm(const std::vector<std::string>& arguments, const std::string& folder,
                 const std::string& input = "");

/// True when @p text is exactly one line (ending with a line break).
bool IsOneLine(const std::string& text);

}  // namespace tool_test
