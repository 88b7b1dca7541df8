#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

/// The engine prompts for a PIN on the controlling terminal when it has no valid one. A test must never wait
/// for such input.
void detach_from_terminal() {
    if (::setsid() < 0) { // fails for a process group leader, which can detach instead
        const int terminal = ::open("/dev/tty", O_RDWR | O_CLOEXEC);
        if (terminal >= 0) {
            ::ioctl(terminal, TIOCNOTTY);
            ::close(terminal);
        }
    }
    if (std::freopen("/dev/null", "r", stdin) == nullptr) std::abort();
}

/// Warns if several tests run in this process. Each test needs a process of its own, because OpenSSL, the
/// engine and the module keep state until the process ends.
class SharedProcessWarning final : public testing::EmptyTestEventListener {
public:
    void OnTestIterationStart(const testing::UnitTest& tests, int) override {
        count_ += tests.test_to_run_count();
        if (count_ < 2 || is_shown_) return;
        is_shown_ = true;
        std::cerr << "warning: several tests run in one process, so each of them may pass or fail because of "
                     "an earlier one. Run them with ctest, or select one test with --gtest_filter.\n";
    }

private:
    int count_ = 0; // over all repetitions
    bool is_shown_ = false;
};

} // namespace

#ifdef __SANITIZE_ADDRESS__
/// Ignores memory that the engine itself leaks when it cannot list the slots or cannot parse a key name.
/// OpenSSL allocates the keys and certificates that the engine returns, so their leaks are still found.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions() {
    return "leak:/pkcs11.so$\n";
}
#endif

int main(int argc, char** argv) {
    detach_from_terminal();
    ::testing::InitGoogleTest(&argc, argv);
    // GoogleTest takes ownership.
    ::testing::UnitTest::GetInstance()->listeners().Append(new SharedProcessWarning);
    return RUN_ALL_TESTS();
}
