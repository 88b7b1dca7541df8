#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

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

int main(int argc, char** argv) {
    leave_terminal();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
