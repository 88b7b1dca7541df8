#ifndef KES_TESTS_SUPPORT_CHILD_H_
#define KES_TESTS_SUPPORT_CHILD_H_

#include <filesystem>
#include <string>

namespace Kes::test {

/// Runs a program to its end, with the folder as its current one and the environment and streams of this
/// process.
/// @return its exit code; one that Windows gives for a crash is above 0xC0000000. -1 when it did not start,
/// or had to be ended because it took longer than a minute
long long run_program(const std::filesystem::path& program, const std::string& arguments,
                      const std::filesystem::path& folder);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CHILD_H_
