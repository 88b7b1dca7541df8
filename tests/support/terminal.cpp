#include "terminal.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <utmp.h>

namespace Kes::test {
namespace {

constexpr std::chrono::seconds patience{30};

void require(bool good, const char* what) {
    if (!good) throw std::system_error(errno, std::generic_category(), what);
}

void close_file(int& file) {
    if (file >= 0) ::close(file);
    file = -1;
}

} // namespace

Terminal::Terminal() {
    require(::openpty(&keyboard_, &program_, nullptr, nullptr, nullptr) == 0, "openpty");
    require(::fcntl(keyboard_, F_SETFD, FD_CLOEXEC) == 0, "fcntl");
    // Other programs that the test starts must not inherit it. login_tty() makes copies without this flag.
    require(::fcntl(program_, F_SETFD, FD_CLOEXEC) == 0, "fcntl");
}

Terminal::~Terminal() {
    close_file(program_);
    close_file(keyboard_);
    close_file(pipe_);
    if (child_ > 0) {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
    }
}

void Terminal::start(const std::vector<std::string>& command) { start(command, -1); }

void Terminal::start_with_pipe(const std::vector<std::string>& command) {
    int ends[2] = {-1, -1};
    require(::pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    pipe_ = ends[0];
    start(command, ends[1]);
    close_file(ends[1]);
}

void Terminal::start(const std::vector<std::string>& command, int output) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    child_ = ::fork();
    require(child_ >= 0, "fork");
    if (child_ == 0) {
        // The program shall see a hang-up as the end of its input, not as a signal.
        ::signal(SIGHUP, SIG_IGN);
        const int errors = ::dup(STDERR_FILENO);
        bool is_ready = ::login_tty(program_) == 0;
        if (output >= 0)
            is_ready = is_ready && ::dup2(output, STDOUT_FILENO) >= 0 && ::dup2(errors, STDERR_FILENO) >= 0;
        ::close(errors);
        if (is_ready) ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
    close_file(program_);
}

void Terminal::type(std::string_view keys) const {
    require(::write(keyboard_, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size()), "write");
}

bool Terminal::read_more(std::string& output, std::chrono::steady_clock::time_point deadline) const {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    const int source = pipe_ >= 0 ? pipe_ : keyboard_;
    pollfd input{source, POLLIN, 0};
    const int ready = ::poll(&input, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    require(ready >= 0, "poll");
    if (ready == 0) throw std::runtime_error("timeout; the program's last output: " + output);
    char part[4096];
    const ssize_t count = ::read(source, part, sizeof part);
    if (count < 0 && errno == EIO) return false; // the program's side of the terminal is closed
    require(count >= 0, "read");
    output.append(part, static_cast<std::size_t>(count));
    return count > 0;
}

std::string Terminal::read_until(std::string_view text) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::string output;
    while (!output.ends_with(text))
        if (!read_more(output, deadline)) throw std::runtime_error("the program ended after: " + output);
    return output;
}

std::string Terminal::read_to_end() {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::string output;
    while (read_more(output, deadline)) {
    }
    return output;
}

int Terminal::wait() {
    int status = 0;
    require(::waitpid(std::exchange(child_, -1), &status, 0) >= 0, "waitpid");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
}

void Terminal::hang_up() { close_file(keyboard_); }

void Terminal::stop_output() const { require(::tcflow(program_, TCOOFF) == 0, "tcflow"); }

void Terminal::resume_output() const {
    int program = ::open(::ptsname(keyboard_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    require(program >= 0, "open");
    const int result = ::tcflow(program, TCOON);
    close_file(program);
    require(result == 0, "tcflow");
}

void Terminal::wait_until_echo_is_off() const {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while ((settings().c_lflag & static_cast<tcflag_t>(ECHO)) != 0) {
        if (std::chrono::steady_clock::now() > deadline)
            throw std::runtime_error("the terminal still echoes");
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // no event reports the change
    }
}

void Terminal::pass_all_keys() const {
    termios keys = settings();
    ::cfmakeraw(&keys);
    change_settings(keys);
}

termios Terminal::settings() const {
    termios settings{};
    require(::tcgetattr(keyboard_, &settings) == 0, "tcgetattr");
    return settings;
}

void Terminal::change_settings(const termios& settings) const {
    require(::tcsetattr(keyboard_, TCSANOW, &settings) == 0, "tcsetattr");
}

bool is_same(const termios& left, const termios& right) {
    return left.c_iflag == right.c_iflag && left.c_oflag == right.c_oflag && left.c_cflag == right.c_cflag &&
           left.c_lflag == right.c_lflag && std::equal(left.c_cc, left.c_cc + NCCS, right.c_cc);
}

} // namespace Kes::test
