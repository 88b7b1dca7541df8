#ifndef KES_TOOL_OUTPUT_FILE_H_
#define KES_TOOL_OUTPUT_FILE_H_

#include <string>

namespace Kes::tool {

/// Fails like write_file() if that cannot create or overwrite the file. Leaves the file as it was. Call it
/// before a login, which would be wasted.
/// @throws std::runtime_error
void check_file(const std::string& name, bool may_overwrite);

/// Writes a new file. If that fails, no incomplete file remains.
/// @param may_overwrite  whether an existing file may be replaced
/// @throws std::runtime_error if the file exists or cannot be written
void write_file(const std::string& name, const std::string& bytes, bool may_overwrite);

} // namespace Kes::tool

#endif // KES_TOOL_OUTPUT_FILE_H_
