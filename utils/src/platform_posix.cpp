#include "utils/platform.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

namespace Kes::platform {

LocalTime local_time() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    tm parts{};
    ::localtime_r(&now.tv_sec, &parts);
    // tm counts years from 1900 and months from 0.
    return {parts.tm_year + 1900,
            parts.tm_mon + 1,
            parts.tm_mday,
            parts.tm_hour,
            parts.tm_min,
            parts.tm_sec,
            static_cast<int>(now.tv_usec / 1000)};
}

std::string env_value(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

// Not pthread_self(): tools such as ps, top and gdb show the kernel's number.
unsigned long thread_id() noexcept { return static_cast<unsigned long>(::syscall(SYS_gettid)); }

std::optional<std::string> system_message(unsigned long, unsigned long) { return std::nullopt; }

void keep_library_loaded() noexcept {}

struct Keyboard::State {
    termios saved_mode{};
    bool is_terminal = false;
};

Keyboard::Keyboard() : state(std::make_unique<State>()) {
    if (::tcgetattr(STDIN_FILENO, &state->saved_mode) != 0) return; // a pipe or a file
    termios key_mode = state->saved_mode;
    key_mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
    // Do not convert Enter (13) to a line feed (10), and do not use CTRL-S and CTRL-Q for flow control.
    key_mode.c_iflag &= ~static_cast<tcflag_t>(ICRNL | IXON);
    key_mode.c_cc[VMIN] = 1;
    key_mode.c_cc[VTIME] = 0;
    state->is_terminal = ::tcsetattr(STDIN_FILENO, TCSADRAIN, &key_mode) == 0;
}

Keyboard::~Keyboard() {
    if (state->is_terminal) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &state->saved_mode);
}

namespace {

constexpr int ctrl_c = 3;
constexpr int escape = 27;

// A terminal sends a complete escape sequence at once. If nothing follows within this time, the user has
// pressed the escape key.
constexpr int escape_gap_ms = 50;

// A slow connection may interrupt a sequence. The wait is long, so that the rest is not mistaken for keys.
constexpr int sequence_gap_ms = 500;

int read_byte() {
    unsigned char byte = 0;
    ssize_t count = 0;
    do {
        count = ::read(STDIN_FILENO, &byte, 1);
    } while (count < 0 && errno == EINTR);
    return count == 1 ? byte : Keyboard::end_of_input;
}

bool is_byte_waiting(int milliseconds) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    int count = 0;
    do {
        count = ::poll(&input, 1, milliseconds);
    } while (count < 0 && errno == EINTR);
    return count == 1 && (input.revents & POLLIN) != 0;
}

/// The next byte of an escape sequence; 0 if the sequence is incomplete because nothing follows.
int read_byte_of_sequence() { return is_byte_waiting(sequence_gap_ms) ? read_byte() : 0; }

/// Reads what follows an escape byte. For a function key, terminals send escape, "[" or "O", and letters or
/// digits; with Alt they send the escape twice. The user has not pressed those letters as keys, so the
/// function discards the rest of the sequence and returns 0. A sequence never contains CTRL-C, so CTRL-C in
/// the middle of one is a key and is returned.
int read_after_escape() {
    int byte = escape;
    while (byte == escape) { // also if an escape interrupts a sequence and starts a new one
        if (!is_byte_waiting(escape_gap_ms)) return escape;
        byte = read_byte();
        if (byte != 'O' && byte != '[') continue;
        // Parameters are digits and punctuation; the first byte from "@" upwards ends the sequence. A "["
        // does not: the Linux console sends F1 to F5 as escape, "[[" and a letter.
        do {
            byte = read_byte_of_sequence();
        } while (byte >= ' ' && (byte < '@' || byte == '['));
    }
    return byte == ctrl_c || byte == Keyboard::end_of_input ? byte : 0;
}

} // namespace

int Keyboard::read_key() {
    const int key = read_byte();
    return key == escape && state->is_terminal ? read_after_escape() : key;
}

} // namespace Kes::platform
