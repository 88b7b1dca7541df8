#ifndef KES_TESTS_SUPPORT_TERMINAL_H_
#define KES_TESTS_SUPPORT_TERMINAL_H_

#include <chrono>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>
#include <vector>

namespace Kes::test {

/// A terminal with a program in it, and the user in front of it: the test. Waiting for the program gives up,
/// with an exception, after a time in which any program would be through.
class Terminal {
public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Starts a program with the terminal as its standard input and output. Once for an object.
    void start(const std::vector<std::string>& command);

    /// The same, but what the program writes on its standard output comes through a pipe, and its standard
    /// error is the test's.
    void start_with_pipe(const std::vector<std::string>& command);

    /// Presses keys.
    void type(std::string_view keys) const;

    /// Waits until the program has written so much since the last call that it ends with the text.
    /// @return what it has written
    std::string read_until(std::string_view text);

    /// Waits until the program ends.
    /// @return what it has written since the last read_until()
    std::string read_to_end();

    /// How the program ended; after read_to_end() or hang_up(). A signal counts as 256 + its number.
    int wait();

    /// Takes the terminal away, with the user.
    void hang_up();

    /// Holds back what the program writes, and the program with it; to be called before it is started.
    void stop_output() const;
    void resume_output() const;

    /// Waits until keys are no longer echoed.
    void wait_until_echo_is_off() const;

    /// Makes every key reach the program as it is, even CTRL-C, and without an echo.
    void pass_all_keys() const;

    termios settings() const;
    void change_settings(const termios& settings) const;

private:
    void start(const std::vector<std::string>& command, int output);

    /// @return false when the program has ended and everything it wrote was read
    bool read_more(std::string& output, std::chrono::steady_clock::time_point deadline) const;

    int keyboard_ = -1; // the user's side
    int program_ = -1;  // the program's side, ours only until it is started
    int pipe_ = -1;     // where the program's output comes out, unless it is the keyboard's side
    pid_t child_ = -1;
};

/// Whether both leave the terminal in the same state.
bool is_same(const termios& left, const termios& right);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_TERMINAL_H_
