#ifndef KES_TOOL_DOCTOR_LOADED_FILES_H_
#define KES_TOOL_DOCTOR_LOADED_FILES_H_

#include <string>
#include <vector>

/// The libraries that this process has loaded. loaded_files_posix.cpp and loaded_files_win.cpp implement the
/// functions.
namespace Kes::tool {

/// The paths of all loaded libraries.
std::vector<std::string> loaded_files();

/// The path of the libcrypto whose functions this program calls.
std::string libcrypto_in_use();

/// The path of the libp11 whose functions the library calls. Call it only after require_libp11().
std::string libp11_in_use();

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_LOADED_FILES_H_
