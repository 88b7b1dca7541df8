#ifndef KES_TESTS_SUPPORT_CHILD_H_
#define KES_TESTS_SUPPORT_CHILD_H_

#include <filesystem>
#include <string>

namespace Kes::test {

/// Runs a program and waits for its end. The folder is its current folder; it inherits the environment and
/// the standard streams.
/// @return its exit code, which is above 0xC0000000 after a crash; -1 if it did not start, or was terminated
/// after one minute
long long run_program(const std::filesystem::path& program, const std::string& arguments,
                      const std::filesystem::path& folder);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CHILD_H_
