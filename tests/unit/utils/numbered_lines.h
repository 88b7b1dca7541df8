#ifndef KES_TESTS_UNIT_UTILS_NUMBERED_LINES_H_
#define KES_TESTS_UNIT_UTILS_NUMBERED_LINES_H_

#include <string>

/// Log lines that several threads or processes write concurrently.
namespace Kes::test {

constexpr int writer_count = 4;
constexpr int lines_per_writer = 200;

/// Logs all lines of one writer. Each line has several parts.
void log_numbered(int writer);

/// Expects each line of each writer exactly once and complete, and the lines of each writer in order.
void expect_all_lines(const std::string& text);

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_NUMBERED_LINES_H_
