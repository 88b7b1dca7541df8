#ifndef KES_TESTS_SUPPORT_FAILING_OPENSSL_ALLOCATION_H_
#define KES_TESTS_SUPPORT_FAILING_OPENSSL_ALLOCATION_H_

#include <cstddef>

namespace Kes::test {

/// Makes one allocation of libcrypto in this thread fail during the object's lifetime. The program must
/// contain failing_openssl_allocation.cpp, which replaces libcrypto's memory functions at its start.
class FailingOpensslAllocation {
public:
    /// @param call  the allocation that fails, counted from 1
    explicit FailingOpensslAllocation(std::size_t call);
    ~FailingOpensslAllocation();
    FailingOpensslAllocation(const FailingOpensslAllocation&) = delete;
    FailingOpensslAllocation& operator=(const FailingOpensslAllocation&) = delete;

    /// Whether the most recent object of this class made an allocation fail.
    static bool has_failed() noexcept;
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_FAILING_OPENSSL_ALLOCATION_H_
