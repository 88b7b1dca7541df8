#include "hooks_messages_win.h"

#include <cstring>

#include "utils/windows_api.h"

namespace {

Kes::test::MessageCalls* calls = nullptr;

DWORD WINAPI format(DWORD flags, const void* source, DWORD error, DWORD language, char* text, DWORD size,
                    va_list* arguments);
HLOCAL WINAPI release(HLOCAL memory);

} // namespace

// The linker replaces the import pointers with these (--wrap, see CMakeLists.txt).
extern "C" {
extern decltype(&::FormatMessageA) __real___imp_FormatMessageA;
extern decltype(&::FormatMessageA) __wrap___imp_FormatMessageA;
decltype(&::FormatMessageA) __wrap___imp_FormatMessageA = &format;

extern decltype(&::LocalFree) __real___imp_LocalFree;
extern decltype(&::LocalFree) __wrap___imp_LocalFree;
decltype(&::LocalFree) __wrap___imp_LocalFree = &release;
}

namespace {

DWORD WINAPI format(DWORD flags, const void* source, DWORD error, DWORD language, char* text, DWORD size,
                    va_list* arguments) {
    const DWORD length = __real___imp_FormatMessageA(flags, source, error, language, text, size, arguments);
    if (calls == nullptr) return length;
    calls->queries.push_back({flags, source, error, language, size, arguments});
    if (length == 0 || (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) == 0) return length;
    const void* allocated = nullptr;
    std::memcpy(&allocated, text, sizeof allocated); // with this flag, "text" is the address of a pointer
    calls->allocated.push_back(allocated);
    return length;
}

HLOCAL WINAPI release(HLOCAL memory) {
    if (calls != nullptr) calls->freed.push_back(memory);
    return __real___imp_LocalFree(memory);
}

} // namespace

namespace Kes::test {

MessageCalls::MessageCalls() { calls = this; }

MessageCalls::~MessageCalls() { calls = nullptr; }

} // namespace Kes::test
