#include "doctor_run.h"

#include <algorithm>

namespace Kes::test {

ToolRun DoctorTest::run(const std::vector<std::string>& arguments, const std::string& input) {
    std::vector<std::string> all{"doctor"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return run_tool(all, input);
}

Lines DoctorTest::mistakes(const ToolRun& run) {
    Lines found = split_lines(run.output);
    std::erase_if(found, [](const std::string& line) {
        return !line.starts_with("error  ") && !line.starts_with("warning ");
    });
    return found;
}

Lines DoctorTest::lines(const ToolRun& run, const std::string& check) {
    Lines found = split_lines(run.output);
    std::erase_if(found, [&check](const std::string& line) {
        return line.size() < 8 || !line.substr(8).starts_with(check + ": ");
    });
    return found;
}

} // namespace Kes::test
