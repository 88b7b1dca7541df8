#ifndef KES_MANAGER_BUILD_INFO_H_
#define KES_MANAGER_BUILD_INFO_H_

#include <string>

namespace Kes {

/// The library's version, such as "4.3.0".
const char* library_version() noexcept;

/// Logs the name and version of the program, and when, for which word size and by which compiler it was
/// built: one log entry of three lines.
/// @param name     if empty, the first line is empty
/// @param version  if empty, the first line is the name alone
void log_build_banner(const std::string& name, const std::string& version);

} // namespace Kes

#endif // KES_MANAGER_BUILD_INFO_H_
