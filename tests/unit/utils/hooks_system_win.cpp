#include <cerrno>

#include "hooks.h"
#include "hooks_system.h"
#include "utils/windows_api.h"

namespace {

std::optional<SYSTEMTIME> fixed_time;

void WINAPI read_clock(SYSTEMTIME* now);

WORD word(int number) { return static_cast<WORD>(number); }

} // namespace

// By --wrap, see CMakeLists.txt. A function of a DLL is called through a pointer, whose name begins with
// "__imp_".
extern "C" {

// By this function the C++ library, which is in the program, writes files.
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

// What the library asks for is local time already: the time zone makes no difference.
FixedClock::FixedClock(std::time_t seconds, long microseconds) {
    const tm& parts = *::gmtime(&seconds);
    fixed_time = SYSTEMTIME{word(parts.tm_year + 1900), word(parts.tm_mon + 1),
                            word(parts.tm_wday),        word(parts.tm_mday),
                            word(parts.tm_hour),        word(parts.tm_min),
                            word(parts.tm_sec),         static_cast<WORD>(microseconds / 1000)};
}

FixedClock::~FixedClock() { fixed_time.reset(); }

// There is one way only, but for the thread's own block.
unsigned long system_thread_id() noexcept { return ::GetThreadId(::GetCurrentThread()); }

// Nobody gets a file alone that is open.
bool is_open(const std::string& file) {
    HANDLE alone = ::CreateFileA(file.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (alone != INVALID_HANDLE_VALUE) {
        ::CloseHandle(alone);
        return false;
    }
    return ::GetLastError() == ERROR_SHARING_VIOLATION;
}

} // namespace Kes::test
