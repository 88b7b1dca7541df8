#ifndef KES_TOOL_DOCTOR_FILE_ACCESS_H_
#define KES_TOOL_DOCTOR_FILE_ACCESS_H_

#include <string>

/// Rights to files and folders. The functions change nothing. file_access_posix.cpp and file_access_win.cpp
/// implement them.
namespace Kes::tool {

/// Whether this process may write to an existing file.
bool can_write_file(const std::string& file);

/// Whether this process may create files in an existing folder.
bool can_create_files(const std::string& folder);

/// The first of the file, its folder and all folders above it that other users can replace or change; "" if
/// there is none. Administrators do not count as other users.
/// @param path  absolute, of an existing file
std::string writable_by_others(const std::string& path);

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_FILE_ACCESS_H_
