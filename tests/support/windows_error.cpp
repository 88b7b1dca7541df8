#include "windows_error.h"

#include <array>
#include <cstdio>

#include "utils/windows_api.h"

namespace Kes::test {

std::string windows_error(unsigned long code) {
    constexpr DWORD english = 1033;
    std::string text;
    for (const DWORD language : {english, DWORD{0}}) {
        std::array<char, 2048> buffer{};
        const DWORD length = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, language,
                                              buffer.data(), static_cast<DWORD>(buffer.size()), nullptr);
        text.assign(buffer.data(), length);
        if (length != 0) break;
    }
    std::erase(text, '\r');
    std::erase(text, '\n');
    std::array<char, 64> number{};
    std::snprintf(number.data(), number.size(), "val=%lu [0x%lx] (", code, code);
    return number.data() + (text.empty() ? "unknown winerror" : text) + ")";
}

} // namespace Kes::test
