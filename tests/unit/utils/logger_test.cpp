#include "utils/logger.h"

#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <regex>
#include <string>

#include "hooks.h"
#include "logger_fixture.h"
#include "support/support.h"
#include "utils/error.h"
#include "utils/platform.h"

/// The destinations of log lines: discarded, buffered in memory, written to a file.
namespace Kes {
namespace {

using test::error_text;
using test::Lines;
using test::read_text;

class LoggerTest : public test::LoggerFixture {
protected:
    bool is_open(const std::string& name) const { return test::is_open(file(name)); }
};

TEST_F(LoggerTest, StartsWithoutOutputAndWithEverySeverityEnabled) {
    EXPECT_TRUE(logger().is_enabled(Severity::trace));
    EXPECT_TRUE(logger().is_enabled(Severity::fatal));
    log_info("lost");
    logger().register_sink(file(), false);
    EXPECT_EQ(read_text(file()), "");
}

TEST_F(LoggerTest, BufferedLinesStartATruncatedFile) {
    logger().buffer_output();
    log_info("one");
    log_warn("two");
    logger().register_sink(file(), false);
    log_info("three");
    EXPECT_EQ(lines(), (Lines{"<info> one", "<warn> two", "<info> three"}));
}

TEST_F(LoggerTest, BufferedLinesFollowTheBannerOfAnAppendedFile) {
    logger().buffer_output();
    log_info("one");
    log_warn("two");
    logger().register_sink(file(), true);
    log_info("three");
    EXPECT_EQ(lines(), (Lines{"[banner]", "<info> one", "<warn> two", "<info> three"}));
}

TEST_F(LoggerTest, BufferedLinesKeepTheirOriginalHeader) {
    const test::FixedClock clock(1709629622, 45000);
    logger().buffer_output();
    log_info("one");
    const std::string tid = std::to_string(test::system_thread_id());
    std::optional<test::FixedClock> later(std::in_place, 1709629999, 0L);
    logger().register_sink(file(), true);
    EXPECT_EQ(read_text(file()), "[[[ ------ restart logger at 2024-03-05 09:13:19.000 ------]]]\n"
                                 "2024-03-05 09:07:02.045 <info> tid=" +
                                     tid + ": one\n");
}

TEST_F(LoggerTest, TruncatedFileHasNoOldContentAndNoBanner) {
    logger().register_sink(file(), false);
    log_info("old");
    logger().register_sink(file(), false);
    log_info("new");
    EXPECT_EQ(lines(), (Lines{"<info> new"}));
}

TEST_F(LoggerTest, AppendedFileKeepsItsOldContentAboveTheBanner) {
    logger().register_sink(file(), false);
    log_info("old");
    logger().register_sink(file(), true);
    log_info("new");
    EXPECT_EQ(lines(), (Lines{"<info> old", "[banner]", "<info> new"}));
}

TEST_F(LoggerTest, AppendingCreatesAMissingFile) {
    logger().register_sink(file(), true);
    EXPECT_EQ(lines(), (Lines{"[banner]"}));
}

TEST_F(LoggerTest, LinesReachTheFileImmediately) {
    logger().register_sink(file(), false);
    log_info("one");
    EXPECT_EQ(lines(), (Lines{"<info> one"}));
    log_lines(Severity::info, "two\n");
    EXPECT_EQ(lines(), (Lines{"<info> one", "<info> two"}));
}

TEST_F(LoggerTest, SecondSinkClosesTheFirstAndReceivesOnlyNewLines) {
    logger().buffer_output();
    log_info("buffered");
    logger().register_sink(file("first"), false);
    log_info("for the first");
    EXPECT_TRUE(is_open("first"));
    logger().register_sink(file("second"), false);
    EXPECT_FALSE(is_open("first"));
    EXPECT_TRUE(is_open("second"));
    log_info("for the second");
    EXPECT_EQ(lines("first"), (Lines{"<info> buffered", "<info> for the first"}));
    EXPECT_EQ(lines("second"), (Lines{"<info> for the second"}));
}

TEST_F(LoggerTest, UnfinishedLineOfTheSameFileIsWrittenBeforeTheBannerAndTheBufferedLines) {
    logger().register_sink(file(), true);
    logger().log(Severity::info) << "unfinished";
    logger().buffer_output();
    log_info("buffered");
    logger().register_sink(file(), true);
    log_info("after");
    const std::regex time(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})");
    const std::string tid = " tid=" + std::to_string(platform::thread_id()) + ": ";
    EXPECT_EQ(std::regex_replace(read_text(file()), time, "TIME"),
              "[[[ ------ restart logger at TIME ------]]]\n"
              "TIME <info>" +
                  tid +
                  "unfinished"
                  "[[[ ------ restart logger at TIME ------]]]\n"
                  "TIME <info>" +
                  tid + "buffered\nTIME <info>" + tid + "after\n");
}

TEST_F(LoggerTest, FailedSinkLeavesAnUnfinishedLineInTheEarlierFile) {
    logger().register_sink(file(), true);
    logger().log(Severity::info) << "unfinished";
    EXPECT_THROW(logger().register_sink(file("missing/log"), true), Error);
    log_lines(Severity::info, "and continued\n");
    EXPECT_EQ(lines().size(), 2U);
    EXPECT_TRUE(lines().at(1).starts_with("<info> unfinished")) << lines().at(1);
    EXPECT_TRUE(lines().at(1).ends_with("and continued")) << lines().at(1);
}

TEST_F(LoggerTest, DiscardedLinesAreLostAndTheBufferIsKept) {
    logger().buffer_output();
    log_info("kept");
    logger().discard_output();
    log_info("lost");
    logger().register_sink(file(), false);
    log_info("new");
    EXPECT_EQ(lines(), (Lines{"<info> kept", "<info> new"}));
}

TEST_F(LoggerTest, RestartedBufferingDropsTheBufferedLines) {
    logger().buffer_output();
    log_info("forgotten");
    logger().buffer_output();
    log_info("kept");
    logger().register_sink(file(), false);
    EXPECT_EQ(lines(), (Lines{"<info> kept"}));
}

TEST_F(LoggerTest, BufferingAfterASinkKeepsTheFileOpenButUnwritten) {
    logger().register_sink(file("first"), false);
    log_info("one");
    logger().buffer_output();
    log_info("two");
    EXPECT_TRUE(is_open("first"));
    EXPECT_EQ(lines("first"), (Lines{"<info> one"}));
    logger().register_sink(file("second"), false);
    EXPECT_EQ(lines("first"), (Lines{"<info> one"}));
    EXPECT_EQ(lines("second"), (Lines{"<info> two"}));
}

TEST_F(LoggerTest, DiscardingAfterASinkKeepsTheFileOpenButUnwritten) {
    logger().register_sink(file(), false);
    log_info("one");
    logger().discard_output();
    log_info("two");
    EXPECT_TRUE(is_open("log"));
    EXPECT_EQ(lines(), (Lines{"<info> one"}));
}

TEST_F(LoggerTest, DestroyingClosesTheFileAndResetsTheState) {
    logger().set_severity_mask(0);
    logger().register_sink(file(), false);
    Logger::destroy_instance();
    EXPECT_FALSE(is_open("log"));
    EXPECT_FALSE(Logger::exists());
    EXPECT_TRUE(logger().is_enabled(Severity::trace));
    log_info("lost");
    EXPECT_EQ(read_text(file()), "");
}

TEST_F(LoggerTest, SinkThatCannotBeOpenedThrows) {
    const std::string name = file("missing/log");
    for (const bool append : {false, true})
        EXPECT_EQ(error_text([&] { logger().register_sink(name, append); }),
                  "logger:90 Kes::Logger::register_sink(): error opening logfile '" + name +
                      "': val=12 (open_failed)");
}

TEST_F(LoggerTest, SinkWithoutANameThrows) {
    EXPECT_EQ(error_text([] { logger().register_sink("", false); }),
              "logger:90 Kes::Logger::register_sink(): error opening logfile '': val=12 (open_failed)");
}

TEST_F(LoggerTest, FailedSinkKeepsNullOutput) {
    EXPECT_THROW(logger().register_sink(file("missing/log"), false), Error);
    EXPECT_NO_THROW(log_info("lost"));
    logger().register_sink(file(), false);
    EXPECT_EQ(read_text(file()), "");
}

TEST_F(LoggerTest, FailedSinkKeepsTheBufferActive) {
    logger().buffer_output();
    log_info("before");
    EXPECT_THROW(logger().register_sink(file("missing/log"), true), Error);
    log_info("after");
    logger().register_sink(file(), false);
    EXPECT_EQ(lines(), (Lines{"<info> before", "<info> after"}));
}

TEST_F(LoggerTest, FailedSinkKeepsTheEarlierFileActive) {
    logger().register_sink(file(), false);
    log_info("before");
    EXPECT_THROW(logger().register_sink(file("missing/log"), false), Error);
    log_info("after");
    EXPECT_TRUE(is_open("log"));
    EXPECT_EQ(lines(), (Lines{"<info> before", "<info> after"}));
}

TEST_F(LoggerTest, OtherWritersCanAppendToTheOpenFile) {
    logger().register_sink(file(), true);
    log_info("one");
    std::ofstream(file(), std::ios::app) << "from elsewhere\n";
    log_info("two");
    EXPECT_EQ(lines(), (Lines{"[banner]", "<info> one", "from elsewhere", "<info> two"}));
}

} // namespace
} // namespace Kes
