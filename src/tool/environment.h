#ifndef KES_TOOL_ENVIRONMENT_H_
#define KES_TOOL_ENVIRONMENT_H_

#include <string>
#include <utility>
#include <vector>

/// The environment variables of this process. environment_posix.cpp and environment_win.cpp implement it.
namespace Kes::tool {

using Variables = std::vector<std::pair<std::string, std::string>>; // names and values

/// @throws std::runtime_error if the system refuses the name or the value
void set_variable(const std::string& name, const std::string& value);

Variables list_variables();

/// Whether the system regards both names as the same variable.
bool is_same_variable(const std::string& first, const std::string& second);

} // namespace Kes::tool

#endif // KES_TOOL_ENVIRONMENT_H_
