#include <cerrno>
#include <filesystem>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

#include "hooks.h"
#include "hooks_system.h"
#include "support/support.h"

namespace Kes::test {
namespace {

std::optional<timeval> fixed_time;
std::optional<EnvVar> time_zone;

} // namespace

FixedClock::FixedClock(std::time_t seconds, long microseconds) {
    time_zone.emplace("TZ", "UTC0");
    ::tzset();
    fixed_time = timeval{seconds, microseconds};
}

FixedClock::~FixedClock() {
    fixed_time.reset();
    time_zone.reset();
    ::tzset();
}

unsigned long system_thread_id() noexcept { return static_cast<unsigned long>(::gettid()); }

bool is_open(const std::string& file) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == file) return true;
    }
    return false;
}

} // namespace Kes::test

using Kes::test::has_room_for;
using Kes::test::is_recording_writes;
using Kes::test::record_write;

// The definitions in the program take precedence over those of libc for every library in the process,
// including the C++ library, which writes files with these two functions.
extern "C" {

__attribute__((visibility("default"))) ssize_t write(int file, const void* bytes, size_t count) {
    if (is_recording_writes()) record_write(std::string(static_cast<const char*>(bytes), count));
    if (has_room_for(count)) return ::syscall(SYS_write, file, bytes, count);
    errno = ENOSPC;
    return -1;
}

__attribute__((visibility("default"))) ssize_t writev(int file, const iovec* parts, int count) {
    std::size_t size = 0;
    for (int i = 0; i < count; ++i)
        size += parts[i].iov_len;
    if (is_recording_writes()) {
        std::string bytes;
        for (int i = 0; i < count; ++i)
            bytes.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
        record_write(std::move(bytes));
    }
    if (has_room_for(size)) return ::syscall(SYS_writev, file, parts, count);
    errno = ENOSPC;
    return -1;
}

// Called instead of gettimeofday() (--wrap, see CMakeLists.txt).
int __real_gettimeofday(timeval* now, void* zone);
int __wrap_gettimeofday(timeval* now, void* zone) {
    Kes::test::note_clock_read();
    if (!Kes::test::fixed_time) return __real_gettimeofday(now, zone);
    *now = *Kes::test::fixed_time;
    return 0;
}
}
