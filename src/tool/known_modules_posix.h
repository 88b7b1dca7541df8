#ifndef KES_TOOL_KNOWN_MODULES_POSIX_H_
#define KES_TOOL_KNOWN_MODULES_POSIX_H_

#include <string>
#include <vector>

namespace Kes::tool {

/// The path of a PKCS#11 module that distributions have a package for. suggested_settings_posix.cpp implements
/// it.
/// @param folders  where packages install libraries
/// @return "" if there is none
std::string find_known_module(const std::vector<std::string>& folders);

} // namespace Kes::tool

#endif // KES_TOOL_KNOWN_MODULES_POSIX_H_
