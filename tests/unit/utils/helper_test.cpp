#include "utils/helper.h"

#include <array>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <unistd.h>

#include "hooks.h"
#include "support/support.h"

namespace Kes {
namespace {

using test::Bytes;
using test::EnvVar;
using test::error_text;
using test::FixedClock;
using test::Lines;
using test::LogCapture;
using test::read_file;
using test::TempDir;

std::string hex(const Bytes& bytes, const std::string& separator) {
    return Helper::bytes_to_hex(bytes.data(), bytes.size(), separator);
}

TEST(HelperHexTest, EachByteIsTwoLowerCaseDigits) { EXPECT_EQ(hex({0x0a, 0xff}, ":"), "0a:ff"); }

TEST(HelperHexTest, SeparatorIsWrittenOnlyBetweenBytes) {
    EXPECT_EQ(hex({0x00}, ":"), "00");
    EXPECT_EQ(hex({0x01, 0x20, 0xab}, ""), "0120ab");
    EXPECT_EQ(hex({0x01, 0x20, 0xab}, ", "), "01, 20, ab");
}

TEST(HelperHexTest, NoBytesYieldAnEmptyText) {
    EXPECT_EQ(hex({}, ":"), "");
    EXPECT_EQ(Helper::bytes_to_hex(nullptr, 0, ":"), "");
}

TEST(HelperHexTest, NumberHasNoLeadingZeros) {
    EXPECT_STREQ(Helper::to_hex(0).data(), "0");
    EXPECT_STREQ(Helper::to_hex(0x10).data(), "10");
    EXPECT_STREQ(Helper::to_hex(0x80090016U).data(), "80090016");
}

TEST(HelperHexTest, NumberIsPaddedToTheMinimumNumberOfDigits) {
    EXPECT_STREQ(Helper::to_hex(0, 0).data(), "");
    EXPECT_STREQ(Helper::to_hex(0xa, 2).data(), "0a");
    EXPECT_STREQ(Helper::to_hex(0xabc, 2).data(), "abc");
    EXPECT_STREQ(Helper::to_hex(0xabc, 16, HexCase::upper).data(), "0000000000000ABC");
}

TEST(HelperHexTest, LargestNumberFits) {
    EXPECT_STREQ(Helper::to_hex(UINT64_MAX).data(), "ffffffffffffffff");
    EXPECT_STREQ(Helper::to_hex(UINT64_MAX, 16, HexCase::upper).data(), "FFFFFFFFFFFFFFFF");
}

TEST(HelperHexTest, EveryByteValueIsConvertedCorrectly) {
    for (unsigned value = 0; value < 256; ++value) {
        const std::string text = hex({static_cast<unsigned char>(value)}, ":");
        EXPECT_EQ(text.size(), 2U);
        EXPECT_EQ(std::stoul(text, nullptr, 16), value);
        EXPECT_EQ(text.find_first_of("ABCDEF"), std::string::npos) << text;
    }
}

TEST(HelperEnvTest, SetVariableReturnsItsValue) {
    const EnvVar variable("KES_HELPER_TEST", "a value = with\tall: sorts \xff");
    EXPECT_EQ(Helper::get_env("KES_HELPER_TEST"), "a value = with\tall: sorts \xff");
}

TEST(HelperEnvTest, UnsetVariableReturnsAnEmptyText) {
    const EnvVar variable("KES_HELPER_TEST", std::nullopt);
    EXPECT_EQ(Helper::get_env("KES_HELPER_TEST"), "");
}

TEST(HelperEnvTest, EmptyVariableReturnsAnEmptyText) {
    const EnvVar variable("KES_HELPER_TEST", "");
    EXPECT_EQ(Helper::get_env("KES_HELPER_TEST"), "");
}

TEST(HelperEnvTest, LongValueIsReturnedCompletely) {
    const std::string value(32000, 'v'); // Windows limits name and value together to 32767 characters
    const EnvVar variable("KES_HELPER_TEST", value);
    EXPECT_EQ(Helper::get_env("KES_HELPER_TEST"), value);
}

TEST(HelperEnvTest, InvalidVariableNameReturnsAnEmptyText) {
    EXPECT_EQ(Helper::get_env(""), "");
    EXPECT_EQ(Helper::get_env("KES=HELPER"), "");
}

std::string trimmed(std::string text) {
    Helper::trim_trailing_newlines(text);
    return text;
}

TEST(HelperTrimTest, TrailingLineEndsAreRemoved) {
    EXPECT_EQ(trimmed("text\n"), "text");
    EXPECT_EQ(trimmed("text\r\n"), "text");
    EXPECT_EQ(trimmed("text\n\r\r\n\n"), "text");
}

TEST(HelperTrimTest, LeadingAndInnerLineEndsAreKept) { EXPECT_EQ(trimmed("\r\none\ntwo\r"), "\r\none\ntwo"); }

TEST(HelperTrimTest, OtherWhiteSpaceIsKeptWithTheLineEndsBeforeIt) {
    EXPECT_EQ(trimmed("text \n"), "text ");
    EXPECT_EQ(trimmed("text\n \n"), "text\n ");
    EXPECT_EQ(trimmed("text\t"), "text\t");
}

TEST(HelperTrimTest, TextOfOnlyLineEndsBecomesEmpty) {
    EXPECT_EQ(trimmed("\r\n\r\n"), "");
    EXPECT_EQ(trimmed(""), "");
}

TEST(HelperWriteFileTest, FileContainsTheBytesAndTheWriteIsLogged) {
    const TempDir dir;
    const LogCapture log;
    const std::string name = dir.file("out.bin");
    Helper::write_file(name, {0x00, 0x0a, 0x0d, 0x1a, 0xff});
    EXPECT_EQ(read_file(name), std::string("\x00\x0a\x0d\x1a\xff", 5));
    EXPECT_EQ(log.lines(), (Lines{"<debug> wrote data to: '" + name + "'"}));
}

TEST(HelperWriteFileTest, OldContentIsReplaced) {
    const TempDir dir;
    const std::string name = dir.file("out.bin");
    Helper::write_file(name, Bytes(1000, 'a'));
    Helper::write_file(name, {'b'});
    EXPECT_EQ(read_file(name), "b");
}

TEST(HelperWriteFileTest, NoBytesCreateAnEmptyFile) {
    const TempDir dir;
    const LogCapture log;
    const std::string name = dir.file("out.bin");
    Helper::write_file(name, {});
    EXPECT_TRUE(std::filesystem::exists(name));
    EXPECT_EQ(read_file(name), "");
    EXPECT_EQ(log.lines(), (Lines{"<debug> wrote data to: '" + name + "'"}));
}

TEST(HelperWriteFileTest, LargeDataIsWrittenCompletely) {
    const TempDir dir;
    const std::string name = dir.file("out.bin");
    Bytes bytes(3 * 1024 * 1024 + 1);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i * 31U >> 3U);
    Helper::write_file(name, bytes);
    EXPECT_TRUE(read_file(name) == std::string(bytes.begin(), bytes.end()));
}

TEST(HelperWriteFileTest, MissingFolderThrowsAndLogsNothing) {
    const TempDir dir;
    const LogCapture log;
    const std::string name = dir.file("missing/out.bin");
    EXPECT_EQ(error_text([&] { Helper::write_file(name, {1}); }),
              "helper:329 Kes::Helper::write_file(): error opening file: '" + name +
                  "': val=12 (open_failed)");
    EXPECT_EQ(log.lines(), Lines());
}

TEST(HelperWriteFileTest, EmptyNameThrows) {
    EXPECT_EQ(error_text([] { Helper::write_file("", {1}); }),
              "helper:329 Kes::Helper::write_file(): error opening file: '': val=12 (open_failed)");
}

TEST(HelperWriteFileTest, FailedWriteIsNotReported) {
    const TempDir dir;
    const LogCapture log;
    const std::string name = dir.file("out.bin");
    {
        const test::FullDisk full(5000); // a line of the log still fits
        EXPECT_EQ(error_text([&] { Helper::write_file(name, Bytes(100000, 'a')); }), "no exception");
    }
    EXPECT_EQ(read_file(name), "");
    EXPECT_EQ(log.lines(), (Lines{"<debug> wrote data to: '" + name + "'"}));
}

TEST(HelperWriteFileTest, FileIsClosedAfterwards) {
    const TempDir dir;
    const int before = ::dup(STDERR_FILENO); // the lowest free descriptor
    ::close(before);
    Helper::write_file(dir.file("out.bin"), {1});
    const int after = ::dup(STDERR_FILENO);
    ::close(after);
    EXPECT_EQ(before, after);
    EXPECT_FALSE(test::is_open(dir.file("out.bin")));
}

/// A buffer filled with '#', so that unwritten bytes are visible.
struct Buffer {
    std::array<char, 8> bytes;

    Buffer(const std::string& text, std::size_t size) {
        bytes.fill('#');
        EXPECT_EQ(Helper::copy_to_buffer(text, bytes.data(), size), bytes.data());
    }
    std::string content() const { return {bytes.data(), bytes.size()}; }
};

TEST(HelperCopyTest, SizeZeroWritesNothing) { EXPECT_EQ(Buffer("abc", 0).content(), "########"); }

TEST(HelperCopyTest, NullBufferOfSizeZeroIsAllowed) {
    EXPECT_EQ(Helper::copy_to_buffer("abc", nullptr, 0), nullptr);
}

TEST(HelperCopyTest, SizeOneHoldsOnlyTheTerminator) {
    EXPECT_EQ(Buffer("abc", 1).content(), std::string("\0#######", 8));
}

TEST(HelperCopyTest, ExactSizeHoldsTheCompleteText) {
    EXPECT_EQ(Buffer("abc", 4).content(), std::string("abc\0####", 8));
}

TEST(HelperCopyTest, SizeOneTooSmallCutsTheLastCharacter) {
    EXPECT_EQ(Buffer("abc", 3).content(), std::string("ab\0#####", 8));
}

TEST(HelperCopyTest, RestOfALargerBufferIsNotChanged) {
    EXPECT_EQ(Buffer("abc", 8).content(), std::string("abc\0####", 8));
}

TEST(HelperCopyTest, EmptyTextIsOnlyTheTerminator) {
    EXPECT_EQ(Buffer("", 8).content(), std::string("\0#######", 8));
}

TEST(HelperTimestampTest, FieldsArePaddedWithZeros) {
    const FixedClock clock(1709629622, 45678); // 2024-03-05 09:07:02.045678
    EXPECT_EQ(Helper::timestamp(), "2024-03-05 09:07:02.045");
}

TEST(HelperTimestampTest, LastMillisecondOfAYearIsFormatted) {
    const FixedClock clock(1704067199, 999999);
    EXPECT_EQ(Helper::timestamp(), "2023-12-31 23:59:59.999");
}

TEST(HelperTimestampTest, FirstMillisecondOfAYearIsFormatted) {
    const FixedClock clock(1704067200, 0);
    EXPECT_EQ(Helper::timestamp(), "2024-01-01 00:00:00.000");
}

TEST(HelperTimestampTest, RunningClockYieldsTheSameFormat) {
    EXPECT_TRUE(
        std::regex_match(Helper::timestamp(), std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})")));
}

} // namespace
} // namespace Kes
