#ifndef KES_TESTS_SUPPORT_SUPPORT_SYSTEM_H_
#define KES_TESTS_SUPPORT_SUPPORT_SYSTEM_H_

#include <filesystem>
#include <optional>
#include <string>

/// The system-dependent part of support.cpp, implemented in support_posix.cpp and support_win.cpp.
namespace Kes::test {

/// Creates a new folder in the system's folder for temporary files.
std::filesystem::path make_temp_dir();

/// Sets or unsets an environment variable for all code in this process.
void set_env(const std::string& name, const std::optional<std::string>& value);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SUPPORT_SYSTEM_H_
