#include "tool/printable.h"

#include <array>
#include <string_view>

namespace Kes::tool {
namespace {

constexpr char32_t invalid = 0xffffffff;

bool is_continuation(char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80; }

/// The length of the UTF-8 sequence that starts with the byte; 0 if none does.
std::size_t sequence_length(unsigned char first) {
    if (first < 0x80) return 1;
    if (first >= 0xc2 && first < 0xe0) return 2;
    if (first >= 0xe0 && first < 0xf0) return 3;
    return first >= 0xf0 && first < 0xf5 ? 4 : 0;
}

/// Decodes the character at the start of the text; "invalid" if it is not UTF-8.
char32_t decode(std::string_view text, std::size_t length) {
    constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000}; // that needs so many bytes
    if (length == 0 || length > text.size()) return invalid;
    const auto first = static_cast<unsigned char>(text[0]);
    char32_t character = length == 1 ? first : first & (0xffU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if (!is_continuation(text[i])) return invalid;
        character = (character << 6U) | (static_cast<unsigned char>(text[i]) & 0x3fU);
    }
    const bool is_surrogate = character >= 0xd800 && character < 0xe000;
    return character < smallest.at(length) || character > 0x10ffff || is_surrogate ? invalid : character;
}

bool may_be_printed(char32_t character) {
    if (character == invalid || character < 0x20 || (character >= 0x7f && character < 0xa0)) return false;
    const bool is_direction = (character >= 0x200e && character <= 0x200f) ||
                              (character >= 0x2028 && character <= 0x202e) ||
                              (character >= 0x2066 && character <= 0x2069);
    return !is_direction;
}

std::string escaped(char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    return {'\\', 'x', digits[value >> 4U], digits[value & 0xfU]};
}

} // namespace

std::string printable(const std::string& text) {
    std::string result;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t length = sequence_length(static_cast<unsigned char>(rest[0]));
        const char32_t character = decode(rest, length);
        const std::size_t taken = character == invalid ? 1 : length;
        if (may_be_printed(character))
            result += rest.substr(0, taken);
        else
            for (const char byte : rest.substr(0, taken))
                result += escaped(byte);
        rest.remove_prefix(taken);
    }
    return result;
}

std::string printable(const std::string& text, std::size_t most) {
    if (text.size() <= most) return printable(text);
    std::size_t end = most;
    while (end > 0 && is_continuation(text[end]))
        --end;
    return printable(text.substr(0, end)) + "...";
}

std::string printable_lines(const std::string& text) {
    std::string result;
    std::size_t begin = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
        result += printable(text.substr(begin, end - begin)) + '\n';
        begin = end + 1;
    }
    return result + printable(text.substr(begin));
}

} // namespace Kes::tool
