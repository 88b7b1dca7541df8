#ifndef KES_UTILS_ERROR_QUEUE_MARK_H_
#define KES_UTILS_ERROR_QUEUE_MARK_H_

#include <openssl/err.h>

namespace Kes {

/// Removes the entries that are added to the thread's OpenSSL error queue while the object exists. For calls
/// whose failure is not an error and must not appear in the text of a later error.
class ErrorQueueMark {
public:
    ErrorQueueMark() noexcept { ::ERR_set_mark(); }
    ~ErrorQueueMark() { ::ERR_pop_to_mark(); }
    ErrorQueueMark(const ErrorQueueMark&) = delete;
    ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
};

} // namespace Kes

#endif // KES_UTILS_ERROR_QUEUE_MARK_H_
