#ifndef KES_MANAGER_BUILD_INFO_H_
#define KES_MANAGER_BUILD_INFO_H_

#include <string>

namespace Kes {

/// The library's version, such as "4.3.0".
const char* library_version() noexcept;

/// Logs, as one entry of three lines, what was built when by which compiler.
/// @param name     empty leaves the first line empty
/// @param version  empty leaves it out
void log_build_banner(const std::string& name, const std::string& version);

} // namespace Kes

#endif // KES_MANAGER_BUILD_INFO_H_
