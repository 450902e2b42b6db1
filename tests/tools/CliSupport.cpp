#include "CliSupport.h"

#include <sys/wait.h>

#include <cstdlib>

#include "ToolTestSupport.h"

namespace tool_test {

namespace {

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

}  // namespace

CliResult RunDtm(const std::vector<std::string>& arguments, const std::string& folder,
                 const std::string& input) {
    const std::string streams = folder + ".streams";
    const std::string in = streams + ".in", out = streams + ".out", err = streams + ".err";
    WriteText(in, input);
    std::string command = "cd " + Quoted(folder) + " && " + Quoted(DTM_TOOL_PROGRAM);
    for (const std::string& argument : arguments) command += " " + Quoted(argument);
    command += " < " + Quoted(in) + " > " + Quoted(out) + " 2> " + Quoted(err);
    const int raw = std::system(command.c_str());
    CliResult result;
    result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    result.out = ReadText(out);
    result.err = ReadText(err);
    std::remove(in.c_str());
    std::remove(out.c_str());
    std::remove(err.c_str());
    return result;
}

bool IsOneLine(const std::string& text) {
    return !text.empty() && text.back() == '\n' && text.find('\n') == text.size() - 1;
}

}  // namespace tool_test
