#include "utils/text_helper.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

#include "utils/platform.h"

namespace Kes {

std::string TextHelper::timestamp() { return timestamp_text().data(); }

std::array<char, 96> TextHelper::timestamp_text() {
    const platform::LocalTime now = platform::local_time();
    // Room for seven integers of any value; GCC warns about a smaller buffer.
    std::array<char, 96> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03d", now.year, now.month,
                  now.day, now.hour, now.minute, now.second, now.millisecond);
    return text;
}

std::array<char, 17> TextHelper::to_hex(std::uint64_t number, std::size_t min_digits,
                                        HexCase hex_case) noexcept {
    const char* digits = hex_case == HexCase::lower ? "0123456789abcdef" : "0123456789ABCDEF";
    const std::size_t needed_digits = (static_cast<std::size_t>(std::bit_width(number)) + 3) / 4;
    std::array<char, 17> text{}; // 16 digits and the terminating NUL
    for (std::size_t i = std::max(min_digits, needed_digits); i > 0; --i) {
        text[i - 1] = digits[number & 0x0fU];
        number >>= 4U;
    }
    return text;
}

std::string TextHelper::bytes_to_hex(const unsigned char* bytes, std::size_t length,
                                     const std::string& separator) {
    std::string text;
    // One allocation; the estimate includes one separator more than needed.
    text.reserve(length * (2 + separator.size()));
    for (std::size_t i = 0; i < length; ++i) {
        if (i != 0) text += separator;
        text += to_hex(bytes[i], 2).data();
    }
    return text;
}

std::string TextHelper::mask_names(std::uint32_t mask, std::span<const BitName> names) {
    if (mask == 0) return "none";
    std::string text;
    for (const auto& [bit, name] : names) {
        if ((mask & bit) == 0) continue;
        if (!text.empty()) text += '|';
        text += name;
    }
    return text;
}

void TextHelper::trim_trailing_newlines(std::string& text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
}

// Not strncpy(): it fills the rest of the buffer with NULs, and does not terminate a text that it cuts.
char* TextHelper::copy_to_buffer(const std::string& text, char* buffer, std::size_t size) noexcept {
    if (size == 0) return buffer;
    const std::size_t count = std::min(text.size(), size - 1);
    std::memcpy(buffer, text.data(), count);
    buffer[count] = '\0';
    return buffer;
}

} // namespace Kes
