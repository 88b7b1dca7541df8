#ifndef KES_TESTS_TOOL_TOOL_RUN_H_
#define KES_TESTS_TOOL_TOOL_RUN_H_

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

/// Runs of the program marvo.
namespace Kes::test {

struct ToolRun {
    int status;         ///< the exit status; 128 + the signal's number if a signal ended the program
    std::string output; ///< standard output
    std::string errors; ///< standard error

    /// Standard output as JSON. Throws if it is not one JSON value.
    /// Files that call it include <nlohmann/json.hpp>.
    nlohmann::json json() const;
};

/// Runs the program with these arguments, in the environment and the current folder of the test.
/// @param input  its standard input
/// @param program  the file of the program, if it is not the one of the build
ToolRun run_tool(const std::vector<std::string>& arguments, const std::string& input = "",
                 const std::string& program = MARVO_TOOL_PROGRAM);

/// Runs the program with a standard output that accepts no data, as on a full disk.
ToolRun run_tool_without_space(const std::vector<std::string>& arguments, const std::string& input = "");

} // namespace Kes::test

#endif // KES_TESTS_TOOL_TOOL_RUN_H_
