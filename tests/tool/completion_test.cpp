#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <regex>

#include "support/process.h"
#include "support/support.h"
#include "tool_run.h"

namespace Kes::test {
namespace {

/// What bash completes for a command line. The last word is the one to complete.
Lines completions(const std::vector<std::string>& words) {
    const std::string script =
        R"(source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
_marvo "$1" "${@: -1}" "${@: -2:1}"; for word in "${COMPREPLY[@]}"; do printf '%s\n' "$word"; done)";
    std::vector<std::string> command{"/bin/bash", "-c", script, MARVO_COMPLETION, MARVO_TOOL_PROGRAM};
    command.insert(command.end(), words.begin(), words.end());
    Lines lines = split_lines(run_program(command));
    std::sort(lines.begin(), lines.end());
    return lines;
}

/// The options of each command, from the program's help.
std::map<std::string, Lines> options_of_commands() {
    static const std::regex command_line("([a-z][a-z-]*)");
    static const std::regex option_line(" +(-h,)?(--[a-z][a-z-]*).*");
    std::map<std::string, Lines> options;
    std::string command;
    for (const std::string& line : split_lines(run_tool({"--help-all"}).output)) {
        std::smatch match;
        if (std::regex_match(line, match, command_line))
            command = match[1];
        else if (std::regex_match(line, match, option_line))
            options[command].push_back(match[2]);
    }
    return options;
}

TEST(CompletionTest, CommandsAndOptionsOfTheProgramAreCompleted) {
    EXPECT_THAT(completions({""}), testing::IsSupersetOf({"list", "version", "--help", "--version"}));
    EXPECT_EQ(completions({"li"}), Lines{"list"});
    EXPECT_EQ(completions({"--vers"}), Lines{"--version"});
}

TEST(CompletionTest, OptionsOfACommandAreCompleted) {
    EXPECT_EQ(completions({"list", "--pin"}), (Lines{"--pin-env", "--pin-file", "--pin-stdin"}));
    EXPECT_EQ(completions({"list", "--json", "--lo"}), Lines{"--login"});
    EXPECT_EQ(completions({"version", "--pin"}), Lines());
}

TEST(CompletionTest, NamesOfBackEndsAreCompleted) {
    EXPECT_EQ(completions({"list", "--backend", ""}), (Lines{"capi", "capi_store", "pkcs11"}));
    EXPECT_EQ(completions({"list", "--backend", "capi_"}), Lines{"capi_store"});
    EXPECT_EQ(run_tool({"list", "--backend", "x"}).errors,
              "--backend: no back-end has this name; use capi, pkcs11 or capi_store\n"
              "Run with --help or --help-all for more information.\n")
        << "the completion contains the same names";
}

TEST(CompletionTest, ValuesOfOptionsAreCompleted) {
    EXPECT_EQ(completions({"env", "--shell", ""}), (Lines{"cmd", "powershell", "sh"}));
    EXPECT_EQ(completions({"env", "--shell", "p"}), Lines{"powershell"});
    EXPECT_EQ(completions({"cert", "--format", ""}), (Lines{"der", "pem"}));
    EXPECT_EQ(completions({"login", "localhost:443", "--tls", ""}), (Lines{"1.2", "1.3"}));
    EXPECT_EQ(completions({"login", "--timeout", ""}), Lines());
    EXPECT_EQ(completions({"version", "--tls", ""}), completions({"version", ""})) << "not its option";
}

TEST(CompletionTest, FilesAndVariablesAreCompleted) {
    const TempDir dir;
    const std::string start = dir.file("mod");
    run_program({"/usr/bin/touch", start + "ule.so", dir.file("other")});
    EXPECT_EQ(completions({"list", "--module", start}), Lines{start + "ule.so"});
    EXPECT_EQ(completions({"list", "--pin-file", start}), Lines{start + "ule.so"});
    EXPECT_EQ(completions({"login", "--ca", start}), Lines{start + "ule.so"});
    const EnvVar variable("MARVO_TEST_COMPLETED", "1");
    EXPECT_EQ(completions({"list", "--pin-env", "MARVO_TEST_COMPL"}), Lines{"MARVO_TEST_COMPLETED"});
    EXPECT_EQ(completions({"list", "--store", ""}), Lines());
}

TEST(CompletionTest, EveryOptionOfEveryCommandIsCompleted) {
    const auto commands = options_of_commands();
    EXPECT_GE(commands.size(), 3U); // the program itself, list and version
    for (const auto& [command, options] : commands) {
        const Lines completed = command.empty() ? completions({"--"}) : completions({command, "--"});
        EXPECT_THAT(completed, testing::IsSupersetOf(options)) << command;
    }
}

TEST(ManualPageTest, EveryCommandAndOptionIsDescribed) {
    const std::string page = read_text(MARVO_MANUAL_PAGE);
    for (const auto& [command, options] : options_of_commands()) {
        EXPECT_TRUE(command.empty() || page.find(".It Cm " + command + "\n") != std::string::npos) << command;
        for (const std::string& option : options)
            EXPECT_TRUE(
                std::regex_search(page, std::regex("\\.It (Fl h , )?Fl " + option.substr(1) + "[ \\n]")))
                << option;
    }
}

TEST(ManualPageTest, PageHasNoMistakes) {
    EXPECT_EQ(run_program({"/usr/bin/mandoc", "-T", "lint", MARVO_MANUAL_PAGE}), "");
}

} // namespace
} // namespace Kes::test
