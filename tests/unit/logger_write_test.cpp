#include "logger.h"

#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <map>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "hooks.h"
#include "logger_fixture.h"
#include "support.h"

/// What a line costs and how it reaches the file.
namespace Kes {
namespace {

using test::allocation_count;
using test::Lines;
using test::read_file;
using test::split_lines;
using test::without_header;
using test::WriteRecord;

/// A part of a line that tells how often it was rendered.
struct CountedPart {
    mutable int rendered = 0;
};

std::ostream& operator<<(std::ostream& out, const CountedPart& part) {
    ++part.rendered;
    return out << std::string(100, 'p');
}

/// A part that logs while it is rendered.
struct LoggingPart {};

std::ostream& operator<<(std::ostream& out, LoggingPart) {
    log_warn("from within");
    return out << "done";
}

class LoggerWriteTest : public test::LoggerFixture {
protected:
    /// What stands in the file, by the writes that brought it there.
    static std::string joined(const Lines& writes) {
        std::string text;
        for (const std::string& write : writes)
            text += write;
        return text;
    }
};

TEST_F(LoggerWriteTest, LineIsOneWrite) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    log_info("a=", 1, ", b=", std::string(50, 'b'), ", c=", 'c', ", d=", 2.5);
    ASSERT_EQ(record.writes().size(), 1U);
    EXPECT_EQ(record.writes()[0], read_file(file()));
}

TEST_F(LoggerWriteTest, LineWithAFunctionIsOneWrite) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    logger().log(Severity::info, "Kes::f") << "text " << 1 << std::endl;
    ASSERT_EQ(record.writes().size(), 1U);
    EXPECT_EQ(record.writes()[0], read_file(file()));
}

TEST_F(LoggerWriteTest, EveryLineIsOneWriteOfItsOwn) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    for (int i = 0; i < 100; ++i)
        log_info("line ", i);
    const Lines writes = record.writes();
    ASSERT_EQ(writes.size(), 100U);
    for (std::size_t i = 0; i < writes.size(); ++i)
        EXPECT_EQ(without_header(writes[i]), "<info> line " + std::to_string(i) + "\n");
}

TEST_F(LoggerWriteTest, LineLongerThanAnyBufferIsOneWrite) {
    logger().register_sink(file(), false);
    for (const std::size_t length : {8000U, 8191U, 8192U, 8193U, 100000U, 3000000U}) {
        const WriteRecord record;
        log_info(std::string(length, 'x'), " and ", std::string(length, 'y'));
        ASSERT_EQ(record.writes().size(), 1U) << length;
        EXPECT_GT(record.writes()[0].size(), 2 * length);
    }
    EXPECT_EQ(split_lines(read_file(file())).size(), 6U);
}

TEST_F(LoggerWriteTest, EntryOfSeveralLinesIsOneWrite) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    log_lines(Severity::info, "settings:\n", "  a=", 1, "\n", std::string(9000, 'b'), "\n");
    ASSERT_EQ(record.writes().size(), 1U);
    EXPECT_EQ(record.writes()[0], read_file(file()));
}

TEST_F(LoggerWriteTest, LineBreakInsideALineDoesNotDivideIt) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    log_error("first\n", "second");
    ASSERT_EQ(record.writes().size(), 1U);
    EXPECT_EQ(without_header(record.writes()[0]), "<error> first\nsecond\n");
}

TEST_F(LoggerWriteTest, BufferedLinesReachTheFileTogether) {
    logger().buffer_output();
    for (int i = 0; i < 1000; ++i)
        log_info("line ", i);
    const WriteRecord record;
    logger().register_sink(file(), true);
    ASSERT_EQ(record.writes().size(), 2U); // the banner, then all lines
    EXPECT_EQ(record.writes()[0].substr(0, 14), "[[[ ------ res");
    EXPECT_EQ(joined(record.writes()), read_file(file()));
    EXPECT_EQ(split_lines(record.writes()[1]).size(), 1000U);
}

TEST_F(LoggerWriteTest, SuppressedAndDiscardedLinesWriteNothing) {
    logger().register_sink(file(), false);
    logger().set_severity_mask(60);
    const WriteRecord record;
    log_debug("suppressed");
    logger().discard_output();
    log_info("discarded");
    EXPECT_EQ(record.writes(), Lines());
}

TEST_F(LoggerWriteTest, LineWithoutAnEndIsWrittenWhenItsFileIsClosed) {
    logger().register_sink(file(), false);
    logger().log(Severity::info) << "unfinished";
    EXPECT_EQ(read_file(file()), "");
    Logger::destroy_instance();
    EXPECT_EQ(without_header(read_file(file())), "<info> unfinished");
}

TEST_F(LoggerWriteTest, FailingFileIsNotNoticedAndStaysSilent) {
    logger().register_sink("/dev/full", false);
    log_info("the first fails");
    const WriteRecord record;
    EXPECT_NO_THROW(log_info("the second is not tried"));
    EXPECT_EQ(record.writes(), Lines());
    EXPECT_FALSE(logger().log(Severity::info).good());
}

TEST_F(LoggerWriteTest, NewFileWorksAfterAFailedOne) {
    EXPECT_NO_THROW(logger().register_sink("/dev/full", true));
    log_info("lost");
    logger().register_sink(file(), false);
    log_info("text");
    EXPECT_EQ(without_header(read_file(file())), "<info> text\n");
}

TEST_F(LoggerWriteTest, SuppressedLineRendersNothingAndAllocatesNothing) {
    logger().register_sink(file(), false);
    logger().set_severity_mask(60);
    const CountedPart part;
    const std::size_t allocations = allocation_count();
    const std::size_t clock_reads = test::clock_read_count();
    for (int i = 0; i < 100; ++i) {
        log_trace("value ", i, part);
        log_debug("value ", i, part);
        log_lines(Severity::debug, part, "\n");
    }
    EXPECT_EQ(allocation_count(), allocations);
    EXPECT_EQ(test::clock_read_count(), clock_reads);
    EXPECT_EQ(part.rendered, 0);
    log_info(part);
    EXPECT_EQ(part.rendered, 1);
    EXPECT_GT(allocation_count(), allocations);
    EXPECT_EQ(test::clock_read_count(), clock_reads + 1);
}

TEST_F(LoggerWriteTest, SuppressedLogCallBuildsNoHeader) {
    logger().register_sink(file(), false);
    logger().set_severity_mask(60);
    const std::size_t allocations = allocation_count();
    const std::size_t clock_reads = test::clock_read_count();
    logger().log(Severity::debug, "Kes::f") << "text";
    EXPECT_EQ(allocation_count(), allocations);
    EXPECT_EQ(test::clock_read_count(), clock_reads);
}

TEST_F(LoggerWriteTest, WrittenLineAllocatesNothingOnceThereWasALongerOne) {
    logger().register_sink(file(), false);
    log_info(std::string(200, 'x'));
    const std::size_t allocations = allocation_count();
    log_info("value ", 4711, " and ", 4712);
    EXPECT_EQ(allocation_count(), allocations);
}

TEST_F(LoggerWriteTest, PartThatLogsDoesNotLock) {
    logger().register_sink(file(), false);
    log_info("outer ", LoggingPart());
    const std::string text = read_file(file());
    EXPECT_NE(text.find("from within\n"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 5), "done\n");
}

constexpr int thread_count = 4;
constexpr int lines_per_thread = 200;

std::string numbered(int thread, int line) {
    return "thread " + std::to_string(thread) + " line " + std::to_string(line) + " " +
           std::string(static_cast<std::size_t>(50 + thread), static_cast<char>('a' + thread));
}

/// Gives the others a chance to spoil the line that is being written.
struct Yield {};

std::ostream& operator<<(std::ostream& out, Yield) {
    std::this_thread::yield();
    return out;
}

/// Logs all lines of one thread, each by several parts.
void log_numbered(int thread) {
    for (int line = 0; line < lines_per_thread; ++line)
        log_info("thread ", thread, Yield(), " line ", line, Yield(), ' ',
                 std::string(static_cast<std::size_t>(50 + thread), static_cast<char>('a' + thread)));
}

/// Logs from several threads that begin at once.
void log_from_threads() {
    std::latch start(thread_count);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < thread_count; ++thread)
        threads.emplace_back([&start, thread] {
            start.arrive_and_wait();
            log_numbered(thread);
        });
    for (std::thread& thread : threads)
        thread.join();
}

/// Every line of every thread once, whole, and each thread's lines in their order.
void expect_all_lines(const std::string& text) {
    std::map<char, int> next;
    for (const std::string& line : split_lines(text)) {
        if (line.starts_with("[[[ ------ restart logger at ")) continue;
        const std::string message = without_header(line);
        ASSERT_GT(message.size(), 15U) << line;
        const int thread = message[14] - '0';
        ASSERT_EQ(message, "<info> " + numbered(thread, next[message[14]]++)) << line;
    }
    ASSERT_EQ(next.size(), static_cast<std::size_t>(thread_count));
    for (const auto& [thread, lines] : next)
        EXPECT_EQ(lines, lines_per_thread) << thread;
}

TEST_F(LoggerWriteTest, LinesOfSeveralThreadsAreWholeInTheFile) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    log_from_threads();
    expect_all_lines(read_file(file()));
    EXPECT_EQ(record.writes().size(), static_cast<std::size_t>(thread_count * lines_per_thread));
}

TEST_F(LoggerWriteTest, LinesOfSeveralProcessesThatAppendAreWhole) {
    logger().register_sink(file(), true);
    std::vector<pid_t> children;
    for (int child = 0; child < thread_count; ++child) {
        children.push_back(::fork());
        if (children.back() != 0) continue;
        log_numbered(child);
        ::_exit(0);
    }
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    expect_all_lines(read_file(file()));
}

TEST_F(LoggerWriteTest, LinesOfSeveralThreadsAreWholeInTheBuffer) {
    logger().buffer_output();
    log_from_threads();
    logger().register_sink(file(), false);
    expect_all_lines(read_file(file()));
}

TEST_F(LoggerWriteTest, ChangingTheFileWhileThreadsLogLosesNoLine) {
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
    expect_all_lines(read_file(file()));
}

} // namespace
} // namespace Kes
