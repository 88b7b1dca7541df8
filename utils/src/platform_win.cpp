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

// Reads the environment of the C runtime. It does not contain changes that the program makes with
// SetEnvironmentVariable() after its start. Not _dupenv_s(): Debian's import library of the runtime lacks it.
std::string env_value(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

unsigned long thread_id() noexcept { return ::GetCurrentThreadId(); }

std::optional<std::string> system_message(unsigned long error, unsigned long language) {
    char* text = nullptr;
    // With FORMAT_MESSAGE_ALLOCATE_BUFFER, the argument for the text is the address of a pointer.
    const DWORD length =
        ::FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error,
                         language, reinterpret_cast<char*>(&text), 0, nullptr);
    if (length == 0 || text == nullptr) return std::nullopt;
    std::string message(text, length);
    ::LocalFree(text);
    return message;
}

void keep_library_loaded() noexcept {
    HMODULE self = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                         reinterpret_cast<const wchar_t*>(&keep_library_loaded), &self);
}

// _getch() disables echo and line input only during the call, so there is no mode to restore.
struct Keyboard::State {};

Keyboard::Keyboard() = default;
Keyboard::~Keyboard() = default;

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): the POSIX version uses the state
int Keyboard::read_key() {
    const int key = ::_getch();
    return key == EOF ? end_of_input : key & 0xff;
}

} // namespace Kes::platform
