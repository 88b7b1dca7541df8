#ifndef KES_TESTS_DOUBLES_CALL_SCRIPT_H_
#define KES_TESTS_DOUBLES_CALL_SCRIPT_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kes::test {

/// How a call to a test double is to fail.
struct Failure {
    int rc = 7;                  ///< what a function answers that returns a number; the others answer null
    std::string queue_text = {}; ///< put on OpenSSL's error queue unless empty
    bool throws_int = false;     ///< leave by an exception of no known class instead
};

/// The one record of all calls to test doubles in the process, in order, and the plan of what is to fail.
///
/// A call is recorded as "function(argument, ...)", with the names that the test doubles gave to handles
/// ("ctx1", "slot1.2", "engine1"), and with a verdict in place of a PIN. No copy of a PIN is kept.
class CallScript {
public:
    static CallScript& instance();

    /// Forgets record and plan.
    void reset();

    /// Notes a call that has no way to fail.
    void note(const std::string& call) { calls_.push_back(call); }

    /// Notes a call that can fail, and makes it fail if that is planned: puts the text on the error queue, or
    /// throws. @return the failure, null when the call is to succeed
    const Failure* step(const std::string& function, const std::string& arguments);

    /// Notes a wrong use of a test double, such as a dead handle.
    void violation(const std::string& text) { violations_.push_back(text); }

    /// Plans the n-th call (from 1) that can fail, whatever its function, to fail.
    void fail_step(std::size_t n, Failure failure) { by_step_[n] = std::move(failure); }

    /// Plans every call of a function from now on to fail.
    void fail_function(const std::string& function, Failure failure = {}) {
        by_function_[function] = std::move(failure);
    }

    /// Takes back what was planned.
    void clear_failures();

    const std::vector<std::string>& calls() const noexcept { return calls_; }
    const std::vector<std::string>& violations() const noexcept { return violations_; }
    std::size_t steps() const noexcept { return step_positions_.size(); }

    /// The record after the n-th call that can fail, provided that nothing was taken from the record.
    std::vector<std::string> calls_after_step(std::size_t n) const;

    /// The record since the last take.
    std::vector<std::string> take_calls() { return std::exchange(calls_, {}); }

    void set_right_pin(const char* pin);
    bool is_right_pin(const char* pin) const;

    /// "right pin", "wrong pin", "empty pin" or "no pin" (null).
    std::string describe_pin(const char* pin) const;

private:
    std::vector<std::string> calls_;
    std::vector<std::string> violations_;
    std::vector<std::size_t> step_positions_;
    std::map<std::size_t, Failure> by_step_;
    std::map<std::string, Failure> by_function_;
    std::optional<std::uint64_t> right_pin_hash_; // the hash, so that this object holds no copy
};

/// Puts an entry on the thread's OpenSSL error queue that reads the same in every run.
void put_on_error_queue(const std::string& text);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_CALL_SCRIPT_H_
