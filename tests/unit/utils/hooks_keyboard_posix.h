#ifndef KES_TESTS_UNIT_UTILS_HOOKS_KEYBOARD_POSIX_H_
#define KES_TESTS_UNIT_UTILS_HOOKS_KEYBOARD_POSIX_H_

#include <deque>
#include <string>

#include "support/types.h"

namespace Kes::test {

/// The result of one of the library's calls of read() or poll() for the standard input.
struct KeyboardEvent {
    enum Kind { byte, waiting, timeout, interrupted, failed };

    Kind kind;
    char value = 0; ///< of a byte
};

/// During its lifetime, the standard input is a terminal whose events are planned, so that tests need no
/// time. A call for which no event is planned fails.
class ScriptedKeyboard {
public:
    explicit ScriptedKeyboard(std::deque<KeyboardEvent> events);
    ~ScriptedKeyboard();
    ScriptedKeyboard(const ScriptedKeyboard&) = delete;
    ScriptedKeyboard& operator=(const ScriptedKeyboard&) = delete;

    /// The calls so far: "read", or "poll" with the timeout in milliseconds.
    const Lines& calls() const { return calls_; }

    /// The events that were not used.
    std::size_t unused() const { return events_.size(); }

    // The functions below are for the hooks.
    KeyboardEvent next(const std::string& call);

private:
    std::deque<KeyboardEvent> events_;
    Lines calls_;
};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_HOOKS_KEYBOARD_POSIX_H_
