#ifndef KES_UTILS_EXCEPTION_GUARD_H_
#define KES_UTILS_EXCEPTION_GUARD_H_

#include <exception>
#include <utility>

namespace Kes {

/// The statuses of operations that clients call.
constexpr int status_success = 0;
constexpr int status_failure = 1;     ///< an exception derived from std::exception
constexpr int status_unhandled = 255; ///< any other exception

/// Runs the body of an operation that a client calls, and turns an exception into a status. Nothing escapes.
/// @param report  called with the status and the exception's text, as const char*. When it throws, memory has
///                run out, and the status alone reports the failure
template <typename Body, typename Report>
int guarded(Body&& body, Report&& report) noexcept {
    const auto fail = [&](int status, const char* message) {
        try {
            std::forward<Report>(report)(status, message);
        } catch (...) { // NOLINT(bugprone-empty-catch): see above
        }
        return status;
    };
    try {
        std::forward<Body>(body)();
        return status_success;
    } catch (const std::exception& error) {
        return fail(status_failure, error.what());
    } catch (...) {
        return fail(status_unhandled, "unhandled exception");
    }
}

} // namespace Kes

#endif // KES_UTILS_EXCEPTION_GUARD_H_
