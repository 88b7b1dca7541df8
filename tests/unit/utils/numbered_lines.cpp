#include "numbered_lines.h"

#include <gtest/gtest.h>
#include <map>
#include <ostream>
#include <thread>

#include "support/support.h"
#include "utils/logger.h"

namespace Kes::test {
namespace {

std::string letters(int writer) {
    return std::string(static_cast<std::size_t>(50 + writer), static_cast<char>('a' + writer));
}

std::string numbered(int writer, int line) {
    return "writer " + std::to_string(writer) + " line " + std::to_string(line) + " " + letters(writer);
}

/// Yields while a line is being written, so that other writers could interleave with it.
struct Yield {};

std::ostream& operator<<(std::ostream& out, Yield) {
    std::this_thread::yield();
    return out;
}

} // namespace

void log_numbered(int writer) {
    for (int line = 0; line < lines_per_writer; ++line)
        log_info("writer ", writer, Yield(), " line ", line, Yield(), ' ', letters(writer));
}

void expect_all_lines(const std::string& text) {
    std::map<char, int> next;
    for (const std::string& line : split_lines(text)) {
        if (line.starts_with("[[[ ------ restart logger at ")) continue;
        const std::string message = without_header(line);
        ASSERT_GT(message.size(), 15U) << line;
        const int writer = message[14] - '0';
        ASSERT_EQ(message, "<info> " + numbered(writer, next[message[14]]++)) << line;
    }
    ASSERT_EQ(next.size(), static_cast<std::size_t>(writer_count));
    for (const auto& [writer, lines] : next)
        EXPECT_EQ(lines, lines_per_writer) << writer;
}

} // namespace Kes::test
