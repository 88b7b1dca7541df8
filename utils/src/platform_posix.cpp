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

unsigned long thread_id() noexcept { return static_cast<unsigned long>(::syscall(SYS_gettid)); }

std::optional<std::string> system_message(unsigned long, unsigned long) { return std::nullopt; }

struct Keyboard::State {
    termios before{};
    bool is_terminal = false;
};

Keyboard::Keyboard() : state_(std::make_unique<State>()) {
    if (::tcgetattr(STDIN_FILENO, &state_->before) != 0) return; // a pipe or a file: its bytes are the keys
    termios keys = state_->before;
    keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
    keys.c_iflag &= ~static_cast<tcflag_t>(ICRNL | IXON); // Enter stays 13, CTRL-S and CTRL-Q are keys
    keys.c_cc[VMIN] = 1;
    keys.c_cc[VTIME] = 0;
    state_->is_terminal = ::tcsetattr(STDIN_FILENO, TCSADRAIN, &keys) == 0;
}

Keyboard::~Keyboard() {
    if (state_->is_terminal) ::tcsetattr(STDIN_FILENO, TCSADRAIN, &state_->before);
}

namespace {

constexpr int ctrl_c = 3;
constexpr int escape = 27;
constexpr int escape_gap_ms = 50;    // a terminal sends a whole sequence at once; a person is slower
constexpr int sequence_gap_ms = 500; // but a slow line may tear it: its rest must not become keys

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

/// The next byte of a sequence that has begun; 0 when it was none, because nothing follows.
int read_byte_of_sequence() { return is_byte_waiting(sequence_gap_ms) ? read_byte() : 0; }

/// What follows an escape. Terminals send a function key as escape, "[" or "O", and letters or digits; with
/// Alt the escape comes twice. Those must not be taken for keys that the user pressed, so the rest of the
/// sequence is read away and counts as 0. CTRL-C is in no sequence: it is a key even in the middle of one.
int read_after_escape() {
    int byte = escape;
    while (byte == escape) { // also one that breaks a sequence off and begins another
        if (!is_byte_waiting(escape_gap_ms)) return escape;
        byte = read_byte();
        if (byte != 'O' && byte != '[') continue;
        do {
            byte = read_byte_of_sequence();
        } while (byte >= ' ' && (byte < '@' || byte == '['));
    }
    return byte == ctrl_c || byte == Keyboard::end_of_input ? byte : 0;
}

} // namespace

int Keyboard::read_key() {
    const int key = read_byte();
    return key == escape && state_->is_terminal ? read_after_escape() : key;
}

} // namespace Kes::platform
