#ifndef KES_TOOL_ENVIRONMENT_H_
#define KES_TOOL_ENVIRONMENT_H_

#include <string>

namespace Kes::tool {

/// Sets an environment variable of this process. environment_posix.cpp and environment_win.cpp implement it.
/// @throws std::runtime_error if the system refuses the name or the value
void set_variable(const std::string& name, const std::string& value);

} // namespace Kes::tool

#endif // KES_TOOL_ENVIRONMENT_H_
