#ifndef KES_TESTS_DOUBLES_INSIDE_DOUBLE_H_
#define KES_TESTS_DOUBLES_INSIDE_DOUBLE_H_

namespace Kes::test {

/// Exists while a function of a test double runs in this thread, so that FailingAllocation can spare the
/// allocations of the test double.
class InsideDouble {
public:
    InsideDouble() noexcept { ++depth; }
    ~InsideDouble() { --depth; }
    InsideDouble(const InsideDouble&) = delete;
    InsideDouble& operator=(const InsideDouble&) = delete;

    static bool is_active() noexcept { return depth != 0; }

private:
    static inline thread_local int depth = 0;
};

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_INSIDE_DOUBLE_H_
