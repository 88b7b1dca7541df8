#include "tool_run.h"

#include <fstream>

#include <nlohmann/json.hpp>

#include "support/process.h"
#include "support/support.h"

namespace Kes::test {

namespace {

/// @param output  the file that receives standard output; "" for a temporary one
ToolRun run(const std::string& program, const std::vector<std::string>& arguments, const std::string& input,
            const std::string& output = "") {
    const TempDir dir;
    std::ofstream(dir.file("input")) << input;
    std::vector<std::string> command{"/bin/sh",
                                     "-c",
                                     R"(exec <"$0" >"$1"; shift; exec "$@")",
                                     dir.file("input"),
                                     output.empty() ? dir.file("output") : output,
                                     program};
    command.insert(command.end(), arguments.begin(), arguments.end());
    Process process(command, dir.file("errors"));
    const int status = process.wait();
    return {status, read_file(dir.file("output")), read_file(dir.file("errors"))};
}

} // namespace

ToolRun run_tool(const std::vector<std::string>& arguments, const std::string& input,
                 const std::string& program) {
    return run(program, arguments, input);
}

ToolRun run_tool_without_space(const std::vector<std::string>& arguments, const std::string& input) {
    return run(MARVO_TOOL_PROGRAM, arguments, input, "/dev/full");
}

nlohmann::json ToolRun::json() const { return nlohmann::json::parse(output); }

} // namespace Kes::test
