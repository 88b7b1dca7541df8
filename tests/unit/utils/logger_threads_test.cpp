#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <thread>
#include <vector>

#include "hooks.h"
#include "logger_fixture.h"
#include "numbered_lines.h"
#include "support/support.h"
#include "utils/logger.h"

/// Concurrent logging by several threads.
namespace Kes {
namespace {

class LoggerThreadsTest : public test::LoggerFixture {};

/// Logs from several threads that start at the same time.
void log_from_threads() {
    std::latch start(test::writer_count);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < test::writer_count; ++thread)
        threads.emplace_back([&start, thread] {
            start.arrive_and_wait();
            test::log_numbered(thread);
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(LoggerThreadsTest, LinesOfSeveralThreadsAreCompleteInTheFile) {
    logger().register_sink(file(), false);
    const test::WriteRecord record;
    log_from_threads();
    test::expect_all_lines(test::read_text(file()));
    EXPECT_EQ(record.writes().size(), static_cast<std::size_t>(test::writer_count * test::lines_per_writer));
}

TEST_F(LoggerThreadsTest, LinesOfSeveralThreadsAreCompleteInTheBuffer) {
    logger().buffer_output();
    log_from_threads();
    logger().register_sink(file(), false);
    test::expect_all_lines(test::read_text(file()));
}

TEST_F(LoggerThreadsTest, ChangingTheFileWhileThreadsLogLosesNoLine) {
    logger().register_sink(file(), true);
    std::atomic<bool> is_done = false;
    std::thread logging([&is_done] {
        log_from_threads();
        is_done = true;
    });
    while (!is_done) {
        logger().register_sink(file(), true);
        std::this_thread::yield();
    }
    logging.join();
    test::expect_all_lines(test::read_text(file()));
}

} // namespace
} // namespace Kes
