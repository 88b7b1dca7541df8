#ifndef KES_TESTS_SUPPORT_SUPPORT_SYSTEM_H_
#define KES_TESTS_SUPPORT_SUPPORT_SYSTEM_H_

#include <filesystem>
#include <optional>
#include <string>

/// What support.cpp asks of the operating system: support_posix.cpp or support_win.cpp.
namespace Kes::test {

/// Makes a folder that nobody else has, where temporary files belong.
std::filesystem::path make_temp_dir();

/// Sets a variable of this process, or unsets it, for whatever reads it in the process.
void set_env(const std::string& name, const std::optional<std::string>& value);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SUPPORT_SYSTEM_H_
