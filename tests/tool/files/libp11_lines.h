#ifndef KES_TESTS_TOOL_FILES_LIBP11_LINES_H_
#define KES_TESTS_TOOL_FILES_LIBP11_LINES_H_

#include <string>

#include "tool/libp11_version.h"

namespace Kes::test {

/// What doctor says about the version of libp11 in a file: "STATE: FINDING", with the remedy in parentheses,
/// and "FILE" in place of the path.
inline std::string libp11_line(const std::string& path, tool::Link link = tool::Link::library) {
    const tool::Finding line = tool::judge_libp11(tool::inspect_file(path), link);
    std::string finding = line.finding.str(tool::Names::shown);
    if (finding.ends_with(path)) finding.replace(finding.size() - path.size(), path.size(), "FILE");
    const std::string remedy = line.remedy.str(tool::Names::shown);
    return std::string(to_string(line.state)) + ": " + finding + (remedy.empty() ? "" : " (" + remedy + ")");
}

} // namespace Kes::test

#endif // KES_TESTS_TOOL_FILES_LIBP11_LINES_H_
