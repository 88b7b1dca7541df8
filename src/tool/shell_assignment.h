#ifndef KES_TOOL_SHELL_ASSIGNMENT_H_
#define KES_TOOL_SHELL_ASSIGNMENT_H_

#include <string>

namespace Kes::tool {

/// A line that sets an environment variable.
/// @param shell  "sh"; "cmd", for a batch file; or "powershell"
/// @throws std::runtime_error if the shell cannot express the value
std::string shell_assignment(const std::string& shell, const std::string& name, const std::string& value);

} // namespace Kes::tool

#endif // KES_TOOL_SHELL_ASSIGNMENT_H_
