#ifndef KES_TESTS_UNIT_UTILS_NUMBERED_LINES_H_
#define KES_TESTS_UNIT_UTILS_NUMBERED_LINES_H_

#include <string>

/// What several threads or processes write at once.
namespace Kes::test {

constexpr int writer_count = 4;
constexpr int lines_per_writer = 200;

/// Logs all lines of one writer, each by several parts.
void log_numbered(int writer);

/// Every line of every writer must be there once, whole, and each writer's lines in their order.
void expect_all_lines(const std::string& text);

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_NUMBERED_LINES_H_
