#include "utils/platform.h"

#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>

#include "hooks_messages_win.h"
#include "support/support.h"
#include "utils/error.h"
#include "utils/windows_api.h"

namespace Kes::platform {
namespace {

using test::MessageCalls;

constexpr unsigned long english = 1033;
constexpr unsigned long system_default = 0;

constexpr DWORD number_without_text = 0x2fffffff; // in the range that is reserved for applications

/// The error text of the system, or "".
std::string text_of_system(unsigned long error, unsigned long language) {
    std::array<char, 2048> text{};
    const DWORD length = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, language, text.data(),
                                          text.size(), nullptr);
    return {text.data(), length};
}

std::string without_line_ends(std::string text) {
    std::erase(text, '\r');
    std::erase(text, '\n');
    return text;
}

std::uint64_t ticks(const SYSTEMTIME& time) {
    FILETIME file_time{};
    ::SystemTimeToFileTime(&time, &file_time);
    return (std::uint64_t{file_time.dwHighDateTime} << 32U) | file_time.dwLowDateTime;
}

WORD word(int number) { return static_cast<WORD>(number); }

TEST(LocalTimeWinTest, IsTheCurrentTime) {
    SYSTEMTIME before{};
    SYSTEMTIME after{};
    ::GetLocalTime(&before);
    const LocalTime now = local_time();
    ::GetLocalTime(&after);
    const SYSTEMTIME time{word(now.year), word(now.month),  word(0),          word(now.day),
                          word(now.hour), word(now.minute), word(now.second), word(now.millisecond)};
    EXPECT_NE(ticks(before), 0U);
    EXPECT_LE(ticks(before), ticks(time));
    EXPECT_LE(ticks(time), ticks(after));
}

TEST(ThreadIdWinTest, IsTheNumberOfTheSystemInEveryThread) {
    EXPECT_EQ(thread_id(), ::GetCurrentThreadId());
    std::thread([] { EXPECT_EQ(thread_id(), ::GetCurrentThreadId()); }).join();
}

/// Removes the environment variable after each test.
class EnvValueWinTest : public testing::Test {
protected:
    ~EnvValueWinTest() override {
        ::_putenv("KES_PLATFORM_TEST=");
        ::SetEnvironmentVariableA(name, nullptr);
    }

    static constexpr const char* name = "KES_PLATFORM_TEST";
};

TEST_F(EnvValueWinTest, VariableSetByTheRuntimeIsVisibleToBoth) {
    ASSERT_EQ(::_putenv("KES_PLATFORM_TEST=value"), 0);
    EXPECT_EQ(env_value(name), "value");
    char value[16] = "";
    EXPECT_EQ(::GetEnvironmentVariableA(name, value, sizeof value), 5U);
    EXPECT_STREQ(value, "value");
}

TEST_F(EnvValueWinTest, VariableUnsetByTheRuntimeIsRemoved) {
    ASSERT_EQ(::_putenv("KES_PLATFORM_TEST=value"), 0);
    ASSERT_EQ(::_putenv("KES_PLATFORM_TEST="), 0);
    EXPECT_EQ(env_value(name), "");
}

TEST_F(EnvValueWinTest, VariableSetOnlyInTheSystemEnvironmentIsIgnored) {
    ASSERT_TRUE(::SetEnvironmentVariableA(name, "value"));
    EXPECT_EQ(env_value(name), "");
    ASSERT_EQ(::_putenv("KES_PLATFORM_TEST=first"), 0);
    ASSERT_TRUE(::SetEnvironmentVariableA(name, "second"));
    EXPECT_EQ(env_value(name), "first");
}

TEST_F(EnvValueWinTest, NamesAreNotCaseSensitive) {
    ASSERT_EQ(::_putenv("KES_PLATFORM_TEST=value"), 0);
    EXPECT_EQ(env_value("kes_platform_Test"), "value");
}

TEST(SystemMessageWinTest, IsTheTextOfTheSystemInBothLanguages) {
    for (const unsigned long error : {2UL, 5UL, 126UL, 259UL})
        for (const unsigned long language : {english, system_default}) {
            const std::string text = text_of_system(error, language);
            ASSERT_NE(text, "") << error;
            EXPECT_EQ(system_message(error, language), text) << error;
        }
}

TEST(SystemMessageWinTest, NumberWithoutATextHasNoMessage) {
    for (const unsigned long language : {english, system_default}) {
        ASSERT_EQ(text_of_system(number_without_text, language), "");
        EXPECT_EQ(system_message(number_without_text, language), std::nullopt);
    }
}

TEST(SystemMessageWinTest, IsRequestedWithoutInserts) {
    const MessageCalls calls;
    system_message(2, english);
    system_message(5, system_default);
    EXPECT_EQ(calls.queries, (std::vector<MessageCalls::Query>{{0x1100, nullptr, 2, english, 0, nullptr},
                                                               {0x1100, nullptr, 5, 0, 0, nullptr}}));
}

TEST(SystemMessageWinTest, FreesTheMemoryOfTheSystem) {
    const MessageCalls calls;
    system_message(2, english);
    system_message(5, system_default);
    system_message(number_without_text, english);
    EXPECT_EQ(calls.allocated.size(), 2U);
    EXPECT_EQ(calls.freed, calls.allocated);
}

TEST(WinErrorCodeWinTest, TextIsTheSystemTextOnOneLine) {
    const std::string text = text_of_system(2, english);
    ASSERT_TRUE(text.ends_with("\r\n"));
    EXPECT_EQ(WinErrorCode(2).to_string(), "val=2 [0x2] (" + without_line_ends(text) + ")");
    EXPECT_EQ(WinErrorCode(2).text, without_line_ends(text));
}

TEST(WinErrorCodeWinTest, NumbersOfCryptoApiAreUnsigned) {
    std::string text = text_of_system(0x80090016, english);
    if (text.empty()) text = text_of_system(0x80090016, system_default);
    if (text.empty()) text = "unknown winerror"; // not every system has this text
    EXPECT_EQ(WinErrorCode(0x80090016).to_string(),
              "val=2148073494 [0x80090016] (" + without_line_ends(text) + ")");
}

TEST(WinErrorCodeWinTest, NumberWithoutATextIsUnknownAfterTwoQueries) {
    const MessageCalls calls;
    EXPECT_EQ(WinErrorCode(number_without_text).to_string(), "val=805306367 [0x2fffffff] (unknown winerror)");
    ASSERT_EQ(calls.queries.size(), 2U);
    EXPECT_EQ(calls.queries[0].language, english);
    EXPECT_EQ(calls.queries[1].language, system_default);
    EXPECT_EQ(calls.freed.size(), 0U);
}

TEST(WinErrorCodeWinTest, ErrorOfAFailedCallEndsWithTheSystemText) {
    ASSERT_EQ(::GetFileAttributesA("no such file here"), INVALID_FILE_ATTRIBUTES);
    const WinErrorCode code(::GetLastError());
    EXPECT_STREQ(WinError(code, "GetFileAttributesA() failed", "file:1 f()").what(),
                 ("file:1 f(): GetFileAttributesA() failed: val=2 [0x2] (" +
                  without_line_ends(text_of_system(2, english)) + ")")
                     .c_str());
}

} // namespace
} // namespace Kes::platform
