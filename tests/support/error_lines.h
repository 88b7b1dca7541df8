#ifndef KES_TESTS_SUPPORT_ERROR_LINES_H_
#define KES_TESTS_SUPPORT_ERROR_LINES_H_

#include <string>

/// The lines of OpenSSL's error queue in error texts. Thread, numbers, function and place differ from run to
/// run and from version to version.
namespace Kes::test {

/// Without what differs: "12AB:error:1300006A:lib:function:reason:file:line:data" becomes
/// "error:lib:reason:data". A library that has a number in place of a name becomes "lib".
std::string masked_errors(const std::string& text);

/// With "THREAD" for the number of the thread.
std::string without_thread(const std::string& text);

/// Takes what is on the error queue, a masked line for each entry.
std::string queued_errors();

/// The line that OpenSSL makes of a text that was put on its error queue as a loader's words. The queue must
/// be empty, and is so afterwards.
std::string queue_line(const std::string& text);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_ERROR_LINES_H_
