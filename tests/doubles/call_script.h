#ifndef KES_TESTS_DOUBLES_CALL_SCRIPT_H_
#define KES_TESTS_DOUBLES_CALL_SCRIPT_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kes::test {

/// How a call to a test double fails.
struct Failure {
    int rc = 7;                  ///< the result of functions that return a number; others return null
    std::string queue_text = {}; ///< put on OpenSSL's error queue; if empty, what raise_error_of() raises
    bool throws_int = false;     ///< throw an int instead
};

/// Records all calls to test doubles in this process, in order, and makes calls fail as planned.
///
/// A call is recorded as "function(argument, ...)". Handles are recorded by name ("ctx1", "slot1.2",
/// "engine1"), and a PIN only as right, wrong, empty or missing. No copy of a PIN is kept.
class CallScript {
public:
    static CallScript& instance();

    /// Clears the recorded calls and the planned failures. The observer stays.
    void reset();

    /// Sets a function to be called before each call is recorded; an empty function ends this.
    void observe(std::function<void(const std::string& call)> observer) { observer_ = std::move(observer); }

    /// Records a call that cannot fail.
    void note(const std::string& call) {
        if (observer_) observer_(call);
        calls_.push_back(call);
    }

    /// Records a step, a call that can fail. Raises what is planned. @return null if the call is to succeed
    const Failure* step(const std::string& function, const std::string& arguments);

    /// Records a wrong use of a test double, such as an invalid handle.
    void violation(const std::string& text) { violations_.push_back(text); }

    /// Makes the n-th step fail, counted from 1.
    void fail_step(std::size_t n, Failure failure) { by_step_[n] = std::move(failure); }

    /// Makes every call of a function fail from now on.
    void fail_function(const std::string& function, Failure failure = {}) {
        by_function_[function] = std::move(failure);
    }

    void clear_failures();

    const std::vector<std::string>& calls() const noexcept { return calls_; }
    const std::vector<std::string>& violations() const noexcept { return violations_; }
    std::size_t steps() const noexcept { return step_positions_.size(); }

    /// The calls after the n-th step. Not valid after take_calls().
    std::vector<std::string> calls_after_step(std::size_t n) const;

    /// The name of the function that was called as the n-th step. Not valid after take_calls().
    std::string function_of_step(std::size_t n) const;

    /// Returns and removes the recorded calls.
    std::vector<std::string> take_calls() { return std::exchange(calls_, {}); }

    void set_right_pin(const char* pin);
    bool is_right_pin(const char* pin) const;

    /// "right pin", "wrong pin", "empty pin" or "no pin" (null).
    std::string describe_pin(const char* pin) const;

private:
    std::function<void(const std::string&)> observer_;
    std::vector<std::string> calls_;
    std::vector<std::string> violations_;
    std::vector<std::size_t> step_positions_;
    std::map<std::size_t, Failure> by_step_;
    std::map<std::string, Failure> by_function_;
    std::optional<std::uint64_t> right_pin_hash_; // a hash, because tests search memory for copies of the PIN
};

/// Puts an entry on the thread's OpenSSL error queue that is identical in every run.
void put_on_error_queue(const std::string& text);

/// Raises an OpenSSL error as the real function of this name does when it fails. Does nothing for a function
/// whose failure leaves the error queue as it is.
void raise_error_of(const std::string& function);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_CALL_SCRIPT_H_
