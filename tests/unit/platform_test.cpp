#include "platform.h"

#include <ctime>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "hooks.h"
#include "support.h"

namespace Kes::platform {
namespace {

using test::EnvVar;
using test::FixedClock;

TEST(LocalTimeTest, IsNow) {
    const std::time_t before = std::time(nullptr);
    const LocalTime now = local_time();
    const std::time_t after = std::time(nullptr);
    tm parts{};
    parts.tm_year = now.year - 1900;
    parts.tm_mon = now.month - 1;
    parts.tm_mday = now.day;
    parts.tm_hour = now.hour;
    parts.tm_min = now.minute;
    parts.tm_sec = now.second;
    parts.tm_isdst = -1;
    const std::time_t seconds = std::mktime(&parts);
    EXPECT_GE(seconds, before - 1); // time() may lag behind the clock by a tick
    EXPECT_LE(seconds, after + 1);
    EXPECT_GE(now.millisecond, 0);
    EXPECT_LE(now.millisecond, 999);
}

TEST(LocalTimeTest, MonthAndDayCountFromOne) {
    const FixedClock clock(1704067200, 0); // 2024-01-01 00:00:00
    const LocalTime now = local_time();
    EXPECT_EQ(now.year, 2024);
    EXPECT_EQ(now.month, 1);
    EXPECT_EQ(now.day, 1);
    EXPECT_EQ(now.hour, 0);
}

TEST(LocalTimeTest, IsThatOfTheTimeZone) {
    const FixedClock clock(1709629622, 999999); // 2024-03-05 09:07:02 UTC
    const EnvVar zone("TZ", "KES-05:30");
    ::tzset();
    const LocalTime now = local_time();
    EXPECT_EQ(now.hour, 14);
    EXPECT_EQ(now.minute, 37);
    EXPECT_EQ(now.second, 2);
    EXPECT_EQ(now.millisecond, 999);
}

TEST(ThreadIdTest, IsTheSystemsNumber) {
    EXPECT_EQ(thread_id(), static_cast<unsigned long>(::syscall(SYS_gettid)));
}

TEST(ThreadIdTest, DiffersFromThreadToThread) {
    const unsigned long mine = thread_id();
    unsigned long other = 0;
    unsigned long others_own = 0;
    std::thread([&] {
        other = thread_id();
        others_own = static_cast<unsigned long>(::syscall(SYS_gettid));
    }).join();
    EXPECT_NE(other, mine);
    EXPECT_EQ(other, others_own);
    EXPECT_EQ(thread_id(), mine);
}

TEST(EnvValueTest, GivesTheValueOrNothing) {
    {
        const EnvVar variable("KES_PLATFORM_TEST", "value");
        EXPECT_EQ(env_value("KES_PLATFORM_TEST"), "value");
    }
    EXPECT_EQ(env_value("KES_PLATFORM_TEST"), "");
}

TEST(EnvValueTest, NamesDifferByCase) {
    const EnvVar variable("KES_PLATFORM_TEST", "value");
    EXPECT_EQ(env_value("kes_platform_test"), "");
}

TEST(SystemMessageTest, ThereIsNoneOutsideWindows) {
    EXPECT_EQ(system_message(2, 1033), std::nullopt);
    EXPECT_EQ(system_message(2, 0), std::nullopt);
}

} // namespace
} // namespace Kes::platform
