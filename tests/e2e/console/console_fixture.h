#ifndef KES_TESTS_E2E_CONSOLE_CONSOLE_FIXTURE_H_
#define KES_TESTS_E2E_CONSOLE_CONSOLE_FIXTURE_H_

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/support.h"
#include "support/terminal.h"

namespace Kes::test {

/// A Windows client runs under Wine, which then stands here: its keys come from the terminal, but what it
/// writes comes through a pipe, because on a terminal Wine paints its console. Otherwise "".
constexpr std::string_view wine = MARVO_WINE;

/// A client with its menus in a terminal.
class ConsoleTest : public testing::Test {
protected:
    ConsoleTest() {
        if (wine.empty()) return;
        starter_.emplace_back(wine);
        terminal_.pass_all_keys();
    }

    static constexpr const char* prompt = "  => ";

    /// Starts a client program that shows these menus, one after the other.
    void start(const char* program, const std::vector<std::string>& menus) {
        before_ = terminal_.settings();
        if (wine.empty())
            terminal_.start(command(program, menus));
        else
            terminal_.start_with_pipe(command(program, menus));
    }

    std::vector<std::string> command(const char* program, const std::vector<std::string>& menus) const {
        std::vector<std::string> words = starter_;
        words.insert(words.end(), {program, results_file(), log_file()});
        words.insert(words.end(), menus.begin(), menus.end());
        return words;
    }

    /// What is on the screen after the last prompt. The client must have ended well, and left the terminal as
    /// it was.
    std::string finish() {
        const std::string output = terminal_.read_to_end();
        EXPECT_TRUE(is_same(terminal_.settings(), before_));
        EXPECT_EQ(terminal_.wait(), 0);
        return output;
    }

    /// What a terminal may have sent of a function key when CTRL-C comes.
    static constexpr const char* sequence_beginnings[] = {"\x1b",      "\x1b[",  "\x1bO",     "\x1b\x1b",
                                                          "\x1b\x1b[", "\x1b[[", "\x1b\x1bO", "\x1b[1;"};

    /// Breaks off two menus for each beginning: with CTRL-C in one go, and on its own.
    void press_ctrl_c_after_sequence_beginnings() {
        for (const std::string beginning : sequence_beginnings) {
            terminal_.read_until(prompt);
            terminal_.type(beginning + "\x03");
            terminal_.read_until(prompt);
            terminal_.type(beginning);
            terminal_.type("\x03");
        }
    }

    std::string results_file() const { return dir_.file("results"); }
    std::string log_file() const { return dir_.file("log"); }
    std::vector<std::string> results() const { return split_lines(read_file(results_file())); }

    /// The log's lines that a menu makes: what was selected, and errors.
    std::vector<std::string> log() const {
        std::vector<std::string> lines;
        for (std::string line : split_lines(read_file(log_file()))) {
            if (!wine.empty()) {
                EXPECT_TRUE(line.ends_with('\r')) << line;
                line.pop_back();
            }
            const std::string text = without_header(line);
            if (text.starts_with("<info> selected item") || text.starts_with("<error>"))
                lines.push_back(text);
        }
        return lines;
    }

    Terminal terminal_;
    std::vector<std::string> starter_; // what the command line of a client begins with

private:
    TempDir dir_;
    termios before_{};
};

/// As a terminal shows it: it adds a carriage return to each line end.
inline std::string on_screen(const std::string& text) {
    std::string screen;
    for (const char character : text) {
        if (character == '\n') screen += '\r';
        screen += character;
    }
    return screen;
}

/// As it comes through a pipe: with the line ends of the client's system.
inline std::string in_a_pipe(const std::string& text) { return wine.empty() ? text : on_screen(text); }

} // namespace Kes::test

#endif // KES_TESTS_E2E_CONSOLE_CONSOLE_FIXTURE_H_
