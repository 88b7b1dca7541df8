#ifndef KES_TESTS_UNIT_UTILS_HOOKS_MESSAGES_WIN_H_
#define KES_TESTS_UNIT_UTILS_HOOKS_MESSAGES_WIN_H_

#include <vector>

namespace Kes::test {

/// During its lifetime, records the library's queries for Windows error texts and the memory of the results.
struct MessageCalls {
    struct Query {
        unsigned long flags;
        const void* source;
        unsigned long error;
        unsigned long language;
        unsigned long size;
        const void* arguments;

        bool operator==(const Query&) const = default;
    };

    MessageCalls();
    ~MessageCalls();
    MessageCalls(const MessageCalls&) = delete;
    MessageCalls& operator=(const MessageCalls&) = delete;

    std::vector<Query> queries;
    std::vector<const void*> allocated; ///< by FormatMessageA(); the caller must free them
    std::vector<const void*> freed;     ///< by LocalFree()
};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_UTILS_HOOKS_MESSAGES_WIN_H_
