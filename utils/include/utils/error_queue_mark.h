#ifndef KES_UTILS_ERROR_QUEUE_MARK_H_
#define KES_UTILS_ERROR_QUEUE_MARK_H_

#include <openssl/err.h>

namespace Kes {

/// Takes off this thread's OpenSSL error queue what comes onto it during the object's life: for calls whose
/// complaints are of no interest, and must not show up in the text of a later error.
class ErrorQueueMark {
public:
    ErrorQueueMark() noexcept { ::ERR_set_mark(); }
    ~ErrorQueueMark() { ::ERR_pop_to_mark(); }
    ErrorQueueMark(const ErrorQueueMark&) = delete;
    ErrorQueueMark& operator=(const ErrorQueueMark&) = delete;
};

} // namespace Kes

#endif // KES_UTILS_ERROR_QUEUE_MARK_H_
