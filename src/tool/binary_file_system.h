#ifndef KES_TOOL_BINARY_FILE_SYSTEM_H_
#define KES_TOOL_BINARY_FILE_SYSTEM_H_

#include <functional>
#include <string>

#include "tool/binary_file.h"

/// What binary_file_posix.cpp and binary_file_win.cpp implement for binary_file.cpp.
namespace Kes::tool {

/// Reads everything except the dependencies from the file alone.
/// @throws std::runtime_error if the file cannot be read
BinaryFile read_binary_file(const std::string& path);

/// Finds a library by the name that a dependent file gives it. Returns "" if the loader does not find it.
using FindDependency = std::function<std::string(const std::string& name)>;

/// How the loader would find the dependencies of this file. Returns no function if the loader rejects the
/// file itself.
FindDependency dependencies_of(const BinaryFile& file);

} // namespace Kes::tool

#endif // KES_TOOL_BINARY_FILE_SYSTEM_H_
