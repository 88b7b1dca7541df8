#ifndef KES_TESTS_UNIT_UTILS_HOOKS_MESSAGES_WIN_H_
#define KES_TESTS_UNIT_UTILS_HOOKS_MESSAGES_WIN_H_

#include <vector>

namespace Kes::test {

/// Records the library's questions for Windows error texts, and what becomes of the answers, while it lives.
struct MessageCalls {
    struct Question {
        unsigned long flags;
        const void* source;
        unsigned long error;
        unsigned long language;
        unsigned long size;
        const void* arguments;

        bool operator==(const Question&) const = default;
    };

    MessageCalls();
    ~MessageCalls();
    MessageCalls(const MessageCalls&) = delete;
    MessageCalls& operator=(const MessageCalls&) = delete;

    std::vector<Question> questions;
    std::vector<const void*> given; ///< by the system, which expects them back
    std::vector<const void*> freed; ///< by LocalFree()
};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_HOOKS_MESSAGES_WIN_H_
