#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
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
    return RUN_ALL_TESTS();
}
