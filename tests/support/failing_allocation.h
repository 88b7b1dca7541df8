#ifndef KES_TESTS_SUPPORT_FAILING_ALLOCATION_H_
#define KES_TESTS_SUPPORT_FAILING_ALLOCATION_H_

#include <cstddef>

namespace Kes::test {

/// Makes one call of operator new in this thread throw std::bad_alloc during the object's lifetime. The
/// program must contain failing_allocation.cpp, which replaces operator new. Calls by the scripted engine do
/// not count.
class FailingAllocation {
public:
    /// @param call  the call that fails, counted from 1
    explicit FailingAllocation(std::size_t call) noexcept;
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether the most recent object of this class made a call fail.
    static bool has_failed() noexcept;
};

/// Calls the operation repeatedly, each time with the next of its allocations failing, until none fails.
/// After each call, runs check(has_failed) without failing allocations.
/// @tparam Failing  makes the allocations fail, such as FailingAllocation
/// @return the number of calls in which an allocation failed
template <typename Failing = FailingAllocation, typename Operation, typename Check>
std::size_t for_each_failing_allocation(Operation operation, Check check) {
    for (std::size_t call = 1;; ++call) {
        {
            const Failing failing(call);
            operation();
        }
        const bool has_failed = Failing::has_failed();
        check(has_failed);
        if (!has_failed) return call - 1;
    }
}

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_FAILING_ALLOCATION_H_
