#include <ctime>
#include <gtest/gtest.h>

#include "hooks.h"
#include "hooks_keyboard_posix.h"
#include "support/support.h"
#include "utils/error.h"
#include "utils/platform.h"

namespace Kes::platform {
namespace {

using test::EnvVar;
using test::FixedClock;
using test::KeyboardEvent;
using test::Lines;
using test::ScriptedKeyboard;

TEST(LocalTimePosixTest, IsTheCurrentTime) {
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
    EXPECT_GE(seconds, before - 1); // time() can lag behind the clock by one tick
    EXPECT_LE(seconds, after + 1);
    EXPECT_GE(now.millisecond, 0);
    EXPECT_LE(now.millisecond, 999);
}

TEST(LocalTimePosixTest, IsInTheTimeZone) {
    const FixedClock clock(1709629622, 999999); // 2024-03-05 09:07:02 UTC
    const EnvVar zone("TZ", "KES-05:30");
    ::tzset();
    const LocalTime now = local_time();
    EXPECT_EQ(now.hour, 14);
    EXPECT_EQ(now.minute, 37);
    EXPECT_EQ(now.second, 2);
    EXPECT_EQ(now.millisecond, 999);
}

TEST(EnvValuePosixTest, NamesAreCaseSensitive) {
    const EnvVar variable("KES_PLATFORM_TEST", "value");
    EXPECT_EQ(env_value("kes_platform_test"), "");
}

TEST(SystemMessagePosixTest, NoMessageExistsOutsideWindows) {
    EXPECT_EQ(system_message(2, 1033), std::nullopt);
    EXPECT_EQ(system_message(2, 0), std::nullopt);
}

TEST(SystemMessagePosixTest, WindowsErrorsAreUnknownOutsideWindows) {
    EXPECT_EQ(WinErrorCode(2).to_string(), "val=2 [0x2] (unknown winerror)");
}

constexpr int escape = 27;

KeyboardEvent byte(char value) { return {KeyboardEvent::byte, value}; }
constexpr KeyboardEvent waiting{KeyboardEvent::waiting};
constexpr KeyboardEvent timeout{KeyboardEvent::timeout};
constexpr KeyboardEvent interrupted{KeyboardEvent::interrupted};
constexpr KeyboardEvent failed{KeyboardEvent::failed};

TEST(KeyboardPosixTest, EscapeWithoutASequenceIsAKeyAfterAShortWait) {
    const ScriptedKeyboard scripted({byte(escape), timeout});
    EXPECT_EQ(Keyboard().read_key(), escape);
    EXPECT_EQ(scripted.calls(), (Lines{"read", "poll 50"}));
}

TEST(KeyboardPosixTest, IncompleteEscapeSequenceEndsAfterALongWaitAndIsNoKey) {
    for (const char second : {'[', 'O'}) {
        const ScriptedKeyboard scripted({byte(escape), waiting, byte(second), timeout, byte('a')});
        Keyboard keyboard;
        EXPECT_EQ(keyboard.read_key(), 0);
        EXPECT_EQ(scripted.calls(), (Lines{"read", "poll 50", "read", "poll 500"}));
        EXPECT_EQ(keyboard.read_key(), 'a');
    }
}

TEST(KeyboardPosixTest, EveryByteOfAnEscapeSequenceIsWaitedFor) {
    const ScriptedKeyboard scripted({byte(escape), waiting, byte('['), waiting, byte('1'), waiting, byte(';'),
                                     waiting, byte('A'), byte('a')});
    Keyboard keyboard;
    EXPECT_EQ(keyboard.read_key(), 0);
    EXPECT_EQ(scripted.calls(),
              (Lines{"read", "poll 50", "read", "poll 500", "read", "poll 500", "read", "poll 500", "read"}));
    EXPECT_EQ(keyboard.read_key(), 'a');
}

TEST(KeyboardPosixTest, SignalDuringAReadDoesNotEndTheInput) {
    const ScriptedKeyboard scripted({interrupted, interrupted, byte('a')});
    EXPECT_EQ(Keyboard().read_key(), 'a');
    EXPECT_EQ(scripted.calls(), (Lines{"read", "read", "read"}));
}

TEST(KeyboardPosixTest, SignalDuringAWaitDoesNotEndTheEscapeSequence) {
    const ScriptedKeyboard scripted({byte(escape), interrupted, waiting, byte('['), interrupted, interrupted,
                                     waiting, byte('A'), byte('a')});
    Keyboard keyboard;
    EXPECT_EQ(keyboard.read_key(), 0);
    EXPECT_EQ(keyboard.read_key(), 'a');
    EXPECT_EQ(scripted.unused(), 0U);
}

TEST(KeyboardPosixTest, OtherErrorEndsTheInput) {
    for (const std::deque<KeyboardEvent>& events :
         {std::deque{failed}, std::deque{byte(escape), waiting, failed},
          std::deque{byte(escape), waiting, byte('['), waiting, failed}}) {
        const ScriptedKeyboard scripted(events);
        EXPECT_EQ(Keyboard().read_key(), Keyboard::end_of_input);
        EXPECT_EQ(scripted.unused(), 0U);
    }
}

} // namespace
} // namespace Kes::platform
