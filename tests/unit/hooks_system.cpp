#include "hooks.h"

#include <atomic>
#include <cerrno>
#include <mutex>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include "support.h"

namespace Kes::test {
namespace {

std::atomic<bool> is_recording = false;
std::mutex recorded_mutex;
std::vector<std::string>& recorded() {
    static std::vector<std::string> writes;
    return writes;
}

std::atomic<std::size_t> clock_reads = 0;
std::optional<timeval> fixed_time;
std::optional<EnvVar> time_zone;

void record(std::string bytes) {
    const std::lock_guard lock(recorded_mutex);
    recorded().push_back(std::move(bytes));
}

} // namespace

WriteRecord::WriteRecord() {
    recorded().clear();
    is_recording = true;
}

WriteRecord::~WriteRecord() { is_recording = false; }

std::vector<std::string> WriteRecord::writes() const {
    const std::lock_guard lock(recorded_mutex);
    return recorded();
}

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

std::size_t clock_read_count() noexcept { return clock_reads; }

} // namespace Kes::test

// The program's own definitions come before libc's for every library in the process, the C++ library
// included. Those two are the functions by which it writes files.
extern "C" {

__attribute__((visibility("default"))) ssize_t write(int file, const void* bytes, size_t count) {
    if (Kes::test::is_recording) Kes::test::record(std::string(static_cast<const char*>(bytes), count));
    return ::syscall(SYS_write, file, bytes, count);
}

__attribute__((visibility("default"))) ssize_t writev(int file, const iovec* parts, int count) {
    if (Kes::test::is_recording) {
        std::string bytes;
        for (int i = 0; i < count; ++i)
            bytes.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
        Kes::test::record(std::move(bytes));
    }
    return ::syscall(SYS_writev, file, parts, count);
}

// By --wrap, see CMakeLists.txt.
int __real_gettimeofday(timeval* now, void* zone);
int __wrap_gettimeofday(timeval* now, void* zone) {
    ++Kes::test::clock_reads;
    if (!Kes::test::fixed_time) return __real_gettimeofday(now, zone);
    *now = *Kes::test::fixed_time;
    return 0;
}
}
