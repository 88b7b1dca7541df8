#include "utils/logger.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "hooks.h"
#include "logger_fixture.h"
#include "support/support.h"

/// The cost of a log line and the writes to the file.
namespace Kes {
namespace {

using test::allocation_count;
using test::Lines;
using test::read_text;
using test::split_lines;
using test::without_header;
using test::WriteRecord;

/// A part of a line that counts how often it is rendered.
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
    /// The content of the file according to the recorded writes.
    static std::string joined(const Lines& writes) {
        std::string text;
        for (const std::string& write : writes)
            text += write;
        return text;
    }
};

TEST_F(LoggerWriteTest, LineIsWrittenWithOneWrite) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    log_info("a=", 1, ", b=", std::string(50, 'b'), ", c=", 'c', ", d=", 2.5);
    ASSERT_EQ(record.writes().size(), 1U);
    EXPECT_EQ(record.writes()[0], read_text(file()));
}

TEST_F(LoggerWriteTest, LineWithAFunctionIsWrittenWithOneWrite) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    logger().log(Severity::info, "Kes::f") << "text " << 1 << std::endl;
    ASSERT_EQ(record.writes().size(), 1U);
    EXPECT_EQ(record.writes()[0], read_text(file()));
}

TEST_F(LoggerWriteTest, EachLineIsWrittenSeparately) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    for (int i = 0; i < 100; ++i)
        log_info("line ", i);
    const Lines writes = record.writes();
    ASSERT_EQ(writes.size(), 100U);
    for (std::size_t i = 0; i < writes.size(); ++i)
        EXPECT_EQ(without_header(writes[i]), "<info> line " + std::to_string(i) + "\n");
}

TEST_F(LoggerWriteTest, LineLongerThanAnyBufferIsWrittenWithOneWrite) {
    logger().register_sink(file(), false);
    for (const std::size_t length : {8000U, 8191U, 8192U, 8193U, 100000U, 3000000U}) {
        const WriteRecord record;
        log_info(std::string(length, 'x'), " and ", std::string(length, 'y'));
        ASSERT_EQ(record.writes().size(), 1U) << length;
        EXPECT_GT(record.writes()[0].size(), 2 * length);
    }
    EXPECT_EQ(split_lines(read_text(file())).size(), 6U);
}

TEST_F(LoggerWriteTest, EntryOfSeveralLinesIsWrittenWithOneWrite) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    log_lines(Severity::info, "settings:\n", "  a=", 1, "\n", std::string(9000, 'b'), "\n");
    ASSERT_EQ(record.writes().size(), 1U);
    EXPECT_EQ(record.writes()[0], read_text(file()));
}

TEST_F(LoggerWriteTest, LineBreakInsideALineDoesNotSplitTheWrite) {
    logger().register_sink(file(), false);
    const WriteRecord record;
    log_error("first\n", "second");
    ASSERT_EQ(record.writes().size(), 1U);
    EXPECT_EQ(without_header(record.writes()[0]), "<error> first\nsecond\n");
}

TEST_F(LoggerWriteTest, BufferedLinesAreWrittenTogether) {
    logger().buffer_output();
    for (int i = 0; i < 1000; ++i)
        log_info("line ", i);
    const WriteRecord record;
    logger().register_sink(file(), true);
    ASSERT_EQ(record.writes().size(), 2U); // the banner, then all lines
    EXPECT_EQ(record.writes()[0].substr(0, 14), "[[[ ------ res");
    EXPECT_EQ(joined(record.writes()), read_text(file()));
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

TEST_F(LoggerWriteTest, UnterminatedLineIsWrittenWhenTheFileIsClosed) {
    logger().register_sink(file(), false);
    logger().log(Severity::info) << "unfinished";
    EXPECT_EQ(read_text(file()), "");
    Logger::destroy_instance();
    EXPECT_EQ(without_header(read_text(file())), "<info> unfinished");
}

TEST_F(LoggerWriteTest, FailedWriteIsNotReportedAndStopsFurtherWrites) {
    logger().register_sink(file(), false);
    const test::FullDisk full;
    log_info("the first fails");
    const WriteRecord record;
    EXPECT_NO_THROW(log_info("the second is not tried"));
    EXPECT_EQ(record.writes(), Lines());
    EXPECT_FALSE(logger().log(Severity::info).good());
}

TEST_F(LoggerWriteTest, NewFileIsWrittenAfterAFailedOne) {
    {
        const test::FullDisk full;
        EXPECT_NO_THROW(logger().register_sink(file("full"), true));
        log_info("lost");
    }
    logger().register_sink(file(), false);
    log_info("text");
    EXPECT_EQ(without_header(read_text(file())), "<info> text\n");
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

TEST_F(LoggerWriteTest, SuppressedLogCallCreatesNoHeader) {
    logger().register_sink(file(), false);
    logger().set_severity_mask(60);
    const std::size_t allocations = allocation_count();
    const std::size_t clock_reads = test::clock_read_count();
    logger().log(Severity::debug, "Kes::f") << "text";
    EXPECT_EQ(allocation_count(), allocations);
    EXPECT_EQ(test::clock_read_count(), clock_reads);
}

TEST_F(LoggerWriteTest, LineAllocatesNothingAfterALongerLine) {
    logger().register_sink(file(), false);
    log_info(std::string(200, 'x'));
    const std::size_t allocations = allocation_count();
    log_info("value ", 4711, " and ", 4712);
    EXPECT_EQ(allocation_count(), allocations);
}

TEST_F(LoggerWriteTest, PartThatLogsDoesNotDeadlock) {
    logger().register_sink(file(), false);
    log_info("outer ", LoggingPart());
    const std::string text = read_text(file());
    EXPECT_NE(text.find("from within\n"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 5), "done\n");
}

} // namespace
} // namespace Kes
