#include "hooks_keyboard_posix.h"

#include <cerrno>
#include <poll.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace Kes::test {
namespace {

ScriptedKeyboard* keyboard = nullptr;

int failed_with(int error) {
    errno = error;
    return -1;
}

} // namespace

ScriptedKeyboard::ScriptedKeyboard(std::deque<KeyboardEvent> events) : events_(std::move(events)) {
    keyboard = this;
}

ScriptedKeyboard::~ScriptedKeyboard() { keyboard = nullptr; }

KeyboardEvent ScriptedKeyboard::next(const std::string& call) {
    calls_.push_back(call);
    if (events_.empty()) return {KeyboardEvent::failed};
    const KeyboardEvent event = events_.front();
    events_.pop_front();
    return event;
}

} // namespace Kes::test

using Kes::test::failed_with;
using Kes::test::keyboard;
using Kes::test::KeyboardEvent;

// The linker redirects the library's calls to these functions (--wrap, see CMakeLists.txt).
extern "C" {

ssize_t __real_read(int file, void* bytes, size_t count);
ssize_t __wrap_read(int file, void* bytes, size_t count) {
    if (keyboard == nullptr || file != STDIN_FILENO) return __real_read(file, bytes, count);
    const KeyboardEvent event = keyboard->next("read");
    if (event.kind == KeyboardEvent::interrupted) return failed_with(EINTR);
    if (event.kind != KeyboardEvent::byte) return failed_with(EIO);
    *static_cast<char*>(bytes) = event.value;
    return 1;
}

int __real_poll(pollfd* files, nfds_t count, int timeout);
int __wrap_poll(pollfd* files, nfds_t count, int timeout) {
    if (keyboard == nullptr) return __real_poll(files, count, timeout);
    const KeyboardEvent event = keyboard->next("poll " + std::to_string(timeout));
    if (event.kind == KeyboardEvent::timeout) return 0;
    if (event.kind == KeyboardEvent::interrupted) return failed_with(EINTR);
    if (event.kind != KeyboardEvent::waiting) return failed_with(EIO);
    files[0].revents = POLLIN;
    return 1;
}

int __real_tcgetattr(int file, termios* settings);
int __wrap_tcgetattr(int file, termios* settings) {
    if (keyboard == nullptr) return __real_tcgetattr(file, settings);
    *settings = {};
    return 0;
}

int __real_tcsetattr(int file, int when, const termios* settings);
int __wrap_tcsetattr(int file, int when, const termios* settings) {
    return keyboard == nullptr ? __real_tcsetattr(file, when, settings) : 0;
}
}
