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

/// The engine asks for a PIN on the controlling terminal when it has none that fits. Here that must never
/// wait for somebody.
void leave_terminal() {
    if (::setsid() < 0) { // a group leader cannot, but can let go of its terminal
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
/// What the engine itself allocates and forgets, when it cannot list the slots or gives up within a name.
/// Keys and certificates that it hands out are OpenSSL's allocations, and stay watched.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions() {
    return "leak:/pkcs11.so$\n";
}
#endif

int main(int argc, char** argv) {
    leave_terminal();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
