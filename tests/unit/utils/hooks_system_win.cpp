#include <cerrno>

#include "hooks.h"
#include "hooks_system.h"
#include "utils/windows_api.h"

namespace {

std::optional<SYSTEMTIME> fixed_time;

void WINAPI read_clock(SYSTEMTIME* now);

WORD word(int number) { return static_cast<WORD>(number); }

} // namespace

// The linker redirects the calls to these definitions (--wrap, see CMakeLists.txt). A function of a DLL is
// called through a pointer whose name begins with "__imp_".
extern "C" {

// The C++ library, which is linked statically, writes files with this function.
int __real_write(int file, const void* bytes, unsigned int count);
int __wrap_write(int file, const void* bytes, unsigned int count) {
    if (Kes::test::is_recording_writes())
        Kes::test::record_write(std::string(static_cast<const char*>(bytes), count));
    if (Kes::test::has_room_for(count)) return __real_write(file, bytes, count);
    errno = ENOSPC;
    return -1;
}

extern decltype(&::GetLocalTime) __real___imp_GetLocalTime;
decltype(&::GetLocalTime) __wrap___imp_GetLocalTime = &read_clock;
}

namespace {

void WINAPI read_clock(SYSTEMTIME* now) {
    Kes::test::note_clock_read();
    if (fixed_time)
        *now = *fixed_time;
    else
        __real___imp_GetLocalTime(now);
}

} // namespace

namespace Kes::test {

// The library reads the local time, so the time zone has no effect.
FixedClock::FixedClock(std::time_t seconds, long microseconds) {
    const tm& parts = *::gmtime(&seconds);
    fixed_time = SYSTEMTIME{word(parts.tm_year + 1900), word(parts.tm_mon + 1),
                            word(parts.tm_wday),        word(parts.tm_mday),
                            word(parts.tm_hour),        word(parts.tm_min),
                            word(parts.tm_sec),         static_cast<WORD>(microseconds / 1000)};
}

FixedClock::~FixedClock() { fixed_time.reset(); }

// Except for the thread environment block, Windows has no independent source for this number.
unsigned long system_thread_id() noexcept { return ::GetThreadId(::GetCurrentThread()); }

// An open file cannot be opened exclusively.
bool is_open(const std::string& file) {
    HANDLE exclusive = ::CreateFileA(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (exclusive != INVALID_HANDLE_VALUE) {
        ::CloseHandle(exclusive);
        return false;
    }
    return ::GetLastError() == ERROR_SHARING_VIOLATION;
}

} // namespace Kes::test
