#include "utils/platform.h"

#include <gtest/gtest.h>
#include <thread>

#include "hooks.h"
#include "support/support.h"

namespace Kes::platform {
namespace {

using test::EnvVar;
using test::FixedClock;
using test::system_thread_id;

TEST(LocalTimeTest, MonthAndDayCountFromOne) {
    const FixedClock clock(1704067200, 0); // 2024-01-01 00:00:00
    const LocalTime now = local_time();
    EXPECT_EQ(now.year, 2024);
    EXPECT_EQ(now.month, 1);
    EXPECT_EQ(now.day, 1);
    EXPECT_EQ(now.hour, 0);
}

TEST(ThreadIdTest, IsTheNumberOfTheSystem) { EXPECT_EQ(thread_id(), system_thread_id()); }

TEST(ThreadIdTest, DiffersBetweenThreads) {
    const unsigned long mine = thread_id();
    unsigned long other = 0;
    unsigned long others_own = 0;
    std::thread([&] {
        other = thread_id();
        others_own = system_thread_id();
    }).join();
    EXPECT_NE(other, mine);
    EXPECT_EQ(other, others_own);
    EXPECT_EQ(thread_id(), mine);
}

TEST(EnvValueTest, ReturnsTheValueOrAnEmptyText) {
    {
        const EnvVar variable("KES_PLATFORM_TEST", "value");
        EXPECT_EQ(env_value("KES_PLATFORM_TEST"), "value");
    }
    EXPECT_EQ(env_value("KES_PLATFORM_TEST"), "");
}

TEST(EnvValueTest, EmptyVariableReturnsAnEmptyText) {
    const EnvVar variable("KES_PLATFORM_TEST", "");
    EXPECT_EQ(env_value("KES_PLATFORM_TEST"), "");
}

} // namespace
} // namespace Kes::platform
