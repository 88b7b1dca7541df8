#ifndef KES_UTILS_LOAD_DIAGNOSTICS_WIN_H_
#define KES_UTILS_LOAD_DIAGNOSTICS_WIN_H_

#include <string>

#include "utils/windows_api.h"

namespace Kes {

/// The file that a loaded library came from.
std::string library_path(HMODULE library);

/// The file that the system's search takes for the name, or the name of one that is there; "" when there is
/// none.
std::string find_library_path(const std::string& name);

/// What the system's number for a library that could not be loaded does not tell by itself, with ": " before;
/// "" when there is nothing to add.
/// @param file_exists  whether there is a file of that name
std::string loader_error_cause(unsigned long error, bool file_exists);

/// In the characters of the system's code page.
std::string to_ansi_code_page(const std::wstring& text);

} // namespace Kes

#endif // KES_UTILS_LOAD_DIAGNOSTICS_WIN_H_
