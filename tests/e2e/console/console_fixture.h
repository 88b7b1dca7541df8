#ifndef KES_TESTS_E2E_CONSOLE_CONSOLE_FIXTURE_H_
#define KES_TESTS_E2E_CONSOLE_CONSOLE_FIXTURE_H_

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/support.h"
#include "support/terminal.h"

namespace Kes::test {

/// The program that runs Windows clients; empty for clients of this system. A Windows client reads its keys
/// from the terminal but writes to a pipe, because Wine paints a console if its output is a terminal.
constexpr std::string_view wine = MARVO_WINE;

/// A client that shows its menus in a terminal.
class ConsoleTest : public testing::Test {
protected:
    ConsoleTest() {
        if (wine.empty()) return;
        starter_.emplace_back(wine);
        terminal_.pass_all_keys();
    }

    static constexpr const char* prompt = "  => ";

    /// Starts a client program that shows these menus one after the other.
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

    /// Expects the client to exit with status 0 and with the terminal's settings restored.
    /// @return the output after the last prompt
    std::string finish() {
        const std::string output = terminal_.read_to_end();
        EXPECT_TRUE(is_same(terminal_.settings(), before_));
        EXPECT_EQ(terminal_.wait(), 0);
        return output;
    }

    /// Incomplete escape sequences, which a terminal may have sent when CTRL-C arrives.
    static constexpr const char* incomplete_sequences[] = {"\x1b",      "\x1b[",  "\x1bO",     "\x1b\x1b",
                                                           "\x1b\x1b[", "\x1b[[", "\x1b\x1bO", "\x1b[1;"};

    /// Aborts two menus for each incomplete sequence: CTRL-C arrives together with it, and separately.
    void press_ctrl_c_after_incomplete_sequences() {
        for (const std::string sequence : incomplete_sequences) {
            terminal_.read_until(prompt);
            terminal_.type(sequence + "\x03");
            terminal_.read_until(prompt);
            terminal_.type(sequence);
            terminal_.type("\x03");
        }
    }

    std::string results_file() const { return dir_.file("results"); }
    std::string log_file() const { return dir_.file("log"); }
    std::vector<std::string> results() const { return split_lines(read_file(results_file())); }

    /// The lines that a menu writes to the log: the selected item and errors.
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
    std::vector<std::string> starter_; // precedes the client on the command line

private:
    TempDir dir_;
    termios before_{};
};

/// The text as a terminal shows it, with a carriage return before each line feed.
inline std::string on_screen(const std::string& text) {
    std::string screen;
    for (const char character : text) {
        if (character == '\n') screen += '\r';
        screen += character;
    }
    return screen;
}

/// The text as it arrives through a pipe, with the line ends of the client's system.
inline std::string in_a_pipe(const std::string& text) { return wine.empty() ? text : on_screen(text); }

} // namespace Kes::test

#endif // KES_TESTS_E2E_CONSOLE_CONSOLE_FIXTURE_H_
