#ifndef KES_TESTS_SUPPORT_FAILING_ALLOCATION_H_
#define KES_TESTS_SUPPORT_FAILING_ALLOCATION_H_

#include <cstddef>

namespace Kes::test {

/// While it exists, one call of operator new in this thread throws std::bad_alloc. A program that uses it must
/// contain failing_allocation.cpp, which replaces operator new.
class FailingAllocation {
public:
    /// @param call  which call fails, counted from 1
    explicit FailingAllocation(std::size_t call) noexcept;
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether the last object of this class made a call fail.
    static bool has_failed() noexcept;
};

/// Calls the operation once for each allocation that it makes, which fails in that call, and once more without
/// a failure. After each call, check(has_failed) runs without failures.
/// @return in how many calls an allocation failed
template <typename Operation, typename Check>
std::size_t for_each_failing_allocation(Operation operation, Check check) {
    for (std::size_t call = 1;; ++call) {
        {
            const FailingAllocation failing(call);
            operation();
        }
        const bool has_failed = FailingAllocation::has_failed();
        check(has_failed);
        if (!has_failed) return call - 1;
    }
}

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_FAILING_ALLOCATION_H_
