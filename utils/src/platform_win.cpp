#include "utils/platform.h"

#include <conio.h>
#include <cstdlib>

#include "utils/windows_api.h"

namespace Kes::platform {

LocalTime local_time() {
    SYSTEMTIME now{};
    ::GetLocalTime(&now);
    return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

// The C runtime's environment, not the system's: what a program changes in the system's alone after its start
// is not seen. Debian's import library of the runtime lacks _dupenv_s(), which would give a copy of the same.
std::string env_value(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

unsigned long thread_id() noexcept { return ::GetCurrentThreadId(); }

std::optional<std::string> system_message(unsigned long error, unsigned long language) {
    char* text = nullptr;
    // With this first flag the function takes the address of a pointer where its type says text.
    const DWORD length =
        ::FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error,
                         language, reinterpret_cast<char*>(&text), 0, nullptr);
    if (length == 0 || text == nullptr) return std::nullopt;
    std::string message(text, length);
    ::LocalFree(text);
    return message;
}

// _getch() switches echo and line input off for the time of its own call: there is nothing to put back.
struct Keyboard::State {};

Keyboard::Keyboard() = default;
Keyboard::~Keyboard() = default;

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): elsewhere it needs the state
int Keyboard::read_key() {
    const int key = ::_getch();
    return key == EOF ? end_of_input : key & 0xff;
}

} // namespace Kes::platform
