#ifndef KES_TESTS_SUPPORT_TERMINAL_H_
#define KES_TESTS_SUPPORT_TERMINAL_H_

#include <chrono>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>
#include <vector>

namespace Kes::test {

/// A pseudo-terminal in which a program runs; the test is its user. Functions that wait for the program throw
/// after a timeout.
class Terminal {
public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Starts a program with the terminal as its standard input and output. Only once for each object.
    void start(const std::vector<std::string>& command);

    /// The same, but the standard output is a pipe, and the standard error is that of the test.
    void start_with_pipe(const std::vector<std::string>& command);

    /// Presses keys.
    void type(std::string_view keys) const;

    /// Waits until the output since the last call ends with the text.
    /// @return the output since the last call
    std::string read_until(std::string_view text);

    /// Waits until the program ends.
    /// @return the output since the last read_until()
    std::string read_to_end();

    /// Call it after read_to_end() or hang_up().
    /// @return the program's exit code; 256 + the signal's number if a signal ended it
    int wait();

    /// Disconnects the terminal.
    void hang_up();

    /// Suspends the output, so that the program blocks when it writes. Call it before the program is started.
    void stop_output() const;
    void resume_output() const;

    void wait_until_echo_is_off() const;

    /// Switches to raw mode: the program receives every key unchanged, even CTRL-C, and nothing is echoed.
    void pass_all_keys() const;

    termios settings() const;
    void change_settings(const termios& settings) const;

private:
    void start(const std::vector<std::string>& command, int output);

    /// @return false if the program has ended and all its output was read
    bool read_more(std::string& output, std::chrono::steady_clock::time_point deadline) const;

    int keyboard_ = -1; // the user's side
    int program_ = -1;  // the program's side, open here until the program is started
    int pipe_ = -1;     // the read end of the program's output; -1 if the output goes to the terminal
    pid_t child_ = -1;
};

/// Whether both describe the same state of the terminal.
bool is_same(const termios& left, const termios& right);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_TERMINAL_H_
