#include <array>
#include <gtest/gtest.h>
#include <iomanip>
#include <locale>
#include <regex>
#include <string>
#include <thread>

#include "hooks.h"
#include "logger_fixture.h"
#include "support/support.h"
#include "utils/logger.h"

/// Which lines are logged, and their content.
namespace Kes {
namespace {

using test::Lines;
using test::read_text;
using test::split_lines;
using test::system_thread_id;

class LoggerLineTest : public test::LoggerFixture {};

constexpr std::uint32_t mask_default = 60;
constexpr std::array severities{Severity::trace, Severity::debug, Severity::info,
                                Severity::warn,  Severity::error, Severity::fatal};

/// Logs one line of each severity, which names the severity.
void log_every_severity() {
    for (const Severity severity : severities)
        log_line(severity, "severity ", static_cast<std::uint32_t>(severity));
}

TEST(SeverityMaskNameTest, SpecialMasksHaveNames) {
    EXPECT_EQ(severity_mask_name(0), "none");
    EXPECT_EQ(severity_mask_name(0xffff), "all");
}

TEST(SeverityMaskNameTest, SingleSeveritiesHaveNames) {
    EXPECT_EQ(severity_mask_name(1), "trace");
    EXPECT_EQ(severity_mask_name(2), "debug");
    EXPECT_EQ(severity_mask_name(4), "info");
    EXPECT_EQ(severity_mask_name(8), "warn");
    EXPECT_EQ(severity_mask_name(16), "error");
    EXPECT_EQ(severity_mask_name(32), "fatal");
}

TEST(SeverityMaskNameTest, SeveralNamesAreJoinedInBitOrder) {
    EXPECT_EQ(severity_mask_name(mask_default), "info|warn|error|fatal");
    EXPECT_EQ(severity_mask_name(33), "trace|fatal");
    EXPECT_EQ(severity_mask_name(63), "trace|debug|info|warn|error|fatal");
}

TEST(SeverityMaskNameTest, BitsWithoutASeverityAreOmitted) {
    EXPECT_EQ(severity_mask_name(64), "");
    EXPECT_EQ(severity_mask_name(64 + 2), "debug");
    EXPECT_EQ(severity_mask_name(0xfffe), "debug|info|warn|error|fatal");
    EXPECT_EQ(severity_mask_name(0x1ffff), "trace|debug|info|warn|error|fatal");
    EXPECT_EQ(severity_mask_name(0xffff0000U), "");
}

TEST(NullOstreamTest, AcceptsAllOutputAndNeverFails) {
    NullOstream out;
    out << "text " << 4711 << ' ' << 1.5 << std::string(100000, 'x') << std::endl;
    out.put('c').write("raw", 3).flush();
    EXPECT_TRUE(out.good());
    EXPECT_EQ(out.rdbuf()->sputc('c'), 'c');
    EXPECT_EQ(out.rdbuf()->sputc('\xff'), 0xff);
    EXPECT_TRUE(out.good());
}

TEST_F(LoggerLineTest, MaskZeroWritesNothing) {
    logger().set_severity_mask(0);
    logger().buffer_output();
    log_every_severity();
    logger().register_sink(file(), false);
    log_every_severity();
    EXPECT_EQ(read_text(file()), "");
}

TEST_F(LoggerLineTest, MaskOf16BitsWritesEverySeverity) {
    logger().set_severity_mask(0xffff);
    logger().register_sink(file(), false);
    log_every_severity();
    EXPECT_EQ(lines(), (Lines{"<trace> severity 1", "<debug> severity 2", "<info> severity 4",
                              "<warn> severity 8", "<error> severity 16", "<fatal> severity 32"}));
}

TEST_F(LoggerLineTest, Mask60SuppressesTraceAndDebugInEveryOutputState) {
    logger().set_severity_mask(mask_default);
    log_every_severity();
    logger().buffer_output();
    log_every_severity();
    logger().register_sink(file(), false);
    log_every_severity();
    const Lines once{"<info> severity 4", "<warn> severity 8", "<error> severity 16", "<fatal> severity 32"};
    Lines twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(lines(), twice);
}

TEST_F(LoggerLineTest, EachBitEnablesItsOwnSeverity) {
    logger().register_sink(file(), false);
    for (const Severity bit : severities) {
        logger().set_severity_mask(static_cast<std::uint32_t>(bit));
        for (const Severity severity : severities)
            EXPECT_EQ(logger().is_enabled(severity), severity == bit);
        log_every_severity();
    }
    EXPECT_EQ(lines(), (Lines{"<trace> severity 1", "<debug> severity 2", "<info> severity 4",
                              "<warn> severity 8", "<error> severity 16", "<fatal> severity 32"}));
}

TEST_F(LoggerLineTest, SeverityOfSeveralBitsRequiresAllOfThem) {
    const auto info_and_warn = static_cast<Severity>(12);
    logger().set_severity_mask(4);
    EXPECT_FALSE(logger().is_enabled(info_and_warn));
    logger().set_severity_mask(12);
    EXPECT_TRUE(logger().is_enabled(info_and_warn));
}

TEST_F(LoggerLineTest, SuppressedSeverityReturnsTheNullStreamInEveryOutputState) {
    logger().set_severity_mask(mask_default);
    std::ostream* in_null_state = &logger().log(Severity::debug);
    EXPECT_NE(dynamic_cast<NullOstream*>(in_null_state), nullptr);
    logger().buffer_output();
    EXPECT_EQ(&logger().log(Severity::debug), in_null_state);
    EXPECT_NE(&logger().log(Severity::info), in_null_state);
    logger().register_sink(file("other"), false);
    EXPECT_EQ(&logger().log(Severity::debug), in_null_state);
    EXPECT_NE(&logger().log(Severity::info), in_null_state);
}

TEST_F(LoggerLineTest, HeaderContainsTimeSeverityAndThread) {
    const test::FixedClock clock(1709629622, 45999);
    logger().register_sink(file(), false);
    log_info("using OpenSSL smart card interface version ", 4);
    EXPECT_EQ(read_text(file()), "2024-03-05 09:07:02.045 <info> tid=" + std::to_string(system_thread_id()) +
                                     ": using OpenSSL smart card interface version 4\n");
}

TEST_F(LoggerLineTest, HeaderOfTheRunningClockHasTheSameFormat) {
    logger().register_sink(file(), false);
    log_every_severity();
    const std::regex form(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} <(trace|debug|info|warn|error|fatal)> )"
                          R"(tid=\d+: severity \d+)");
    const Lines logged = split_lines(read_text(file()));
    EXPECT_EQ(logged.size(), severities.size());
    for (const std::string& line : logged)
        EXPECT_TRUE(std::regex_match(line, form)) << line;
}

TEST_F(LoggerLineTest, FunctionFollowsTheSeverity) {
    const test::FixedClock clock(1709629622, 45999);
    logger().register_sink(file(), false);
    logger().log(Severity::fatal, "Kes::Some::function") << "text" << std::endl;
    logger().log(Severity::warn, "") << "text" << std::endl;
    logger().log(Severity::warn, nullptr) << "text" << std::endl;
    const std::string tid = std::to_string(system_thread_id());
    EXPECT_EQ(read_text(file()), "2024-03-05 09:07:02.045 <fatal> Kes::Some::function() tid=" + tid +
                                     ": text\n" + "2024-03-05 09:07:02.045 <warn> () tid=" + tid +
                                     ": text\n" + "2024-03-05 09:07:02.045 <warn> tid=" + tid + ": text\n");
}

TEST_F(LoggerLineTest, HeaderShowsTheThreadThatLogs) {
    logger().register_sink(file(), false);
    unsigned long tid = 0;
    std::thread([&] {
        tid = system_thread_id();
        log_info("text");
    }).join();
    EXPECT_NE(tid, system_thread_id());
    EXPECT_NE(read_text(file()).find(" tid=" + std::to_string(tid) + ": text\n"), std::string::npos);
}

TEST_F(LoggerLineTest, HeaderIgnoresTheStreamState) {
    const test::FixedClock clock(1709629622, 45999);
    logger().register_sink(file(), false);
    logger().log(Severity::info) << std::hex << std::showbase << std::setfill('*') << 255 << std::endl;
    log_info("text");
    EXPECT_EQ(split_lines(read_text(file())).back(),
              "2024-03-05 09:07:02.045 <info> tid=" + std::to_string(system_thread_id()) + ": text");
}

/// Formats 4711.5 as "4.711,5".
struct GroupedNumbers final : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(LoggerLineTest, NumbersIgnoreTheLocaleOfTheClient) {
    const std::locale before = std::locale::global(std::locale(std::locale(), new GroupedNumbers));
    logger().buffer_output();
    log_info(65535, ' ', 4711.5);
    logger().register_sink(file(), false);
    log_info(65535, ' ', 4711.5);
    std::locale::global(before);
    EXPECT_EQ(lines(), (Lines{"<info> 65535 4711.5", "<info> 65535 4711.5"}));
}

TEST_F(LoggerLineTest, EntriesOfSeveralPartsOrLinesAreWrittenCompletely) {
    logger().register_sink(file(), false);
    log_line(Severity::info, "a=", 1, ", b=", 2.5, ", c=", std::string("text"), ", d=", true);
    log_lines(Severity::debug, "one\n", "two\n");
    log_error("");
    EXPECT_EQ(lines(), (Lines{"<info> a=1, b=2.5, c=text, d=1", "<debug> one", "two", "<error> "}));
}

TEST_F(LoggerLineTest, EachShortFormLogsAtItsSeverity) {
    logger().register_sink(file(), false);
    log_trace("a");
    log_debug("b");
    log_info("c");
    log_warn("d");
    log_error("e");
    EXPECT_EQ(lines(), (Lines{"<trace> a", "<debug> b", "<info> c", "<warn> d", "<error> e"}));
}

} // namespace
} // namespace Kes
