#ifndef KES_UTILS_LOAD_DIAGNOSTICS_WIN_H_
#define KES_UTILS_LOAD_DIAGNOSTICS_WIN_H_

#include <string>

#include "utils/windows_api.h"

namespace Kes {

/// The full path of a loaded library.
std::string library_path(HMODULE library);

/// Finds a library in the system's search path and returns its full path; "" if no such file exists.
/// @param name  a file name or a path, with or without ".dll"
std::string find_library_path(const std::string& name);

/// The cause of a loader error whose text in Windows is unclear, with ": " in front; "" for all other errors.
/// @param file_exists  whether the library itself exists
std::string loader_error_cause(unsigned long error, bool file_exists);

/// Converts the text to the ANSI code page of Windows, which messages use.
std::string to_ansi_code_page(const std::wstring& text);

} // namespace Kes

#endif // KES_UTILS_LOAD_DIAGNOSTICS_WIN_H_
