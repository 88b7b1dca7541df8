#ifndef KES_TESTS_SUPPORT_ERROR_LINES_H_
#define KES_TESTS_SUPPORT_ERROR_LINES_H_

#include <string>

/// The lines of OpenSSL's error queue in error texts. Thread, numbers, function, file and line differ between
/// runs and versions.
namespace Kes::test {

/// Removes the variable parts: "12AB:error:1300006A:lib:function:reason:file:line:data" becomes
/// "error:lib:reason:data". A library without a name becomes "lib".
std::string masked_errors(const std::string& text);

/// Replaces the thread number with "THREAD".
std::string without_thread(const std::string& text);

/// Clears the error queue. @return one masked line for each entry
std::string queued_errors();

/// The line that OpenSSL prints for a text that a loader put on the error queue. The queue must be empty, and
/// is empty afterwards.
std::string queue_line(const std::string& text);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_ERROR_LINES_H_
