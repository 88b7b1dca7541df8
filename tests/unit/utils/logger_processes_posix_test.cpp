#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "logger_fixture.h"
#include "numbered_lines.h"
#include "support/support.h"
#include "utils/logger.h"

namespace Kes {
namespace {

class LoggerProcessesTest : public test::LoggerFixture {};

TEST_F(LoggerProcessesTest, LinesAppendedBySeveralProcessesAreComplete) {
    logger().register_sink(file(), true);
    std::vector<pid_t> children;
    for (int child = 0; child < test::writer_count; ++child) {
        children.push_back(::fork());
        if (children.back() != 0) continue;
        test::log_numbered(child);
        ::_exit(0);
    }
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    test::expect_all_lines(test::read_text(file()));
}

} // namespace
} // namespace Kes
