#include "tool/pin_options.h"

#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "support/support.h"

namespace Kes::test {
namespace {

/// Reads the PIN with the options of a command line.
std::string read_pin(const std::vector<std::string>& arguments) {
    CLI::App command;
    tool::PinOptions options;
    options.add_to(command);
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend()); // the order that CLI11 needs
    command.parse(std::move(reversed));
    EXPECT_TRUE(options.is_given());
    return options.read("token").c_str();
}

std::string failure(const std::vector<std::string>& arguments) {
    try {
        return "PIN: " + read_pin(arguments);
    } catch (const std::exception& error) {
        return error.what();
    }
}

class PinOptionsTest : public testing::Test {
protected:
    std::string pin_file(const std::string& content) {
        std::ofstream(dir_.file("pin"), std::ios::binary) << content;
        return dir_.file("pin");
    }

    const TempDir dir_;
};

TEST_F(PinOptionsTest, FileGivesItsFirstLine) {
    EXPECT_EQ(read_pin({"--pin-file", pin_file("12 34\nmore\n")}), "12 34");
    EXPECT_EQ(read_pin({"--pin-file", pin_file("1234\r\n")}), "1234");
    EXPECT_EQ(read_pin({"--pin-file", pin_file("1234")}), "1234");
}

TEST_F(PinOptionsTest, FileWithoutAPinIsRejected) {
    EXPECT_EQ(failure({"--pin-file", pin_file("\n1234\n")}),
              "no PIN was given: the file that --pin-file names is empty");
}

TEST_F(PinOptionsTest, FileWithAByteOrderMarkIsRejected) {
    using namespace std::string_literals;
    for (const std::string& content : {"\xEF\xBB\xBF"
                                       "1234\n"s,
                                       "\xFF\xFE"
                                       "1\0002\0"s,
                                       "\xFE\xFF"
                                       "\0001\0002"s})
        EXPECT_EQ(
            failure({"--pin-file", pin_file(content)}),
            "the PIN from the file that --pin-file names begins with a byte order mark; save it as plain "
            "text without one");
}

TEST_F(PinOptionsTest, FileWithAZeroByteIsRejected) {
    using namespace std::string_literals;
    for (const std::string& content : {"12\00034\n"s, "1\0002\0\n\0"s, "1234\0"s, "\0"s})
        EXPECT_EQ(
            failure({"--pin-file", pin_file(content)}),
            "the PIN from the file that --pin-file names contains a zero byte; save it as plain text, not "
            "as UTF-16");
}

TEST_F(PinOptionsTest, ZeroByteAfterTheFirstLineIsIgnored) {
    using namespace std::string_literals;
    EXPECT_EQ(read_pin({"--pin-file", pin_file("1234\n\0"s)}), "1234");
}

TEST_F(PinOptionsTest, EmptyNameIsRejected) {
    EXPECT_EQ(failure({"--pin-file", ""}), "--pin-file: the name is empty");
    EXPECT_EQ(failure({"--pin-env", ""}), "--pin-env: the name is empty");
}

TEST_F(PinOptionsTest, MissingFileIsRejected) {
    EXPECT_EQ(failure({"--pin-file", dir_.file("absent")}),
              "cannot open the file that --pin-file names: No such file or directory");
}

TEST_F(PinOptionsTest, LongestPinIsAcceptedAndALongerOneRejected) {
    const std::string longest(255, '7');
    EXPECT_EQ(read_pin({"--pin-file", pin_file(longest + "\n")}), longest);
    EXPECT_EQ(failure({"--pin-file", pin_file(longest + "8\n")}),
              "the PIN from the file that --pin-file names is longer than 255 bytes");
    EXPECT_EQ(failure({"--pin-file", pin_file(longest + longest)}),
              "the PIN from the file that --pin-file names is longer than 255 bytes");
}

TEST_F(PinOptionsTest, VariableGivesItsValue) {
    const EnvVar variable("MARVO_TEST_PIN", "1234");
    EXPECT_EQ(read_pin({"--pin-env", "MARVO_TEST_PIN"}), "1234");
}

TEST_F(PinOptionsTest, VariableThatIsNotSetIsRejected) {
    EXPECT_EQ(failure({"--pin-env", "MARVO_TEST_ABSENT"}),
              "the environment variable that --pin-env names is not set");
}

TEST_F(PinOptionsTest, VariableWithoutAPinIsRejected) {
    const EnvVar empty("MARVO_TEST_PIN", "");
    EXPECT_EQ(failure({"--pin-env", "MARVO_TEST_PIN"}),
              "no PIN was given: the environment variable that --pin-env names is empty");
}

TEST_F(PinOptionsTest, FlagWithAValueIsRejected) {
    EXPECT_EQ(failure({"--pin-stdin=1234"}), "pin-stdin was given a disallowed flag override");
}

TEST_F(PinOptionsTest, TwoSourcesAreRejected) {
    EXPECT_EQ(failure({"--pin-stdin", "--pin-env", "NAME"}), "--pin-stdin excludes --pin-env");
}

TEST(PinOptionsDefaultTest, NoSourceIsGivenByDefault) { EXPECT_FALSE(tool::PinOptions().is_given()); }

} // namespace
} // namespace Kes::test
