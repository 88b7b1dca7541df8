#include "tool/text_output.h"

#include <algorithm>
#include <array>
#include <cstdint>
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

/// The number of bytes at the start of the text that fit into the columns: up to the last blank if there is
/// one, and at least one character.
std::size_t fitting_length(std::string_view text, std::size_t columns) {
    std::size_t used = 0;
    std::size_t last_blank = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (is_continuation(text[i])) continue;
        if (used == columns) return text[i] == ' ' ? i : (last_blank > 0 ? last_blank : i);
        if (text[i] == ' ') last_blank = i;
        ++used;
    }
    return text.size();
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

std::size_t columns_of(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return !is_continuation(byte); }));
}

void print_field(std::ostream& out, std::size_t indent, std::size_t width, const std::string& label,
                 const std::string& text) {
    const std::size_t padding = width - std::min(width, columns_of(label)) + 1;
    out << std::string(indent, ' ') << label << std::string(padding, ' ');
    const std::size_t start = indent + std::max(width, columns_of(label)) + 1;
    std::string_view rest = text;
    for (bool is_first = true; is_first || !rest.empty(); is_first = false) {
        if (!is_first) out << std::string(start, ' ');
        const std::size_t length = fitting_length(rest, max_columns - start);
        out << rest.substr(0, length) << '\n';
        rest.remove_prefix(length);
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    }
}

} // namespace Kes::tool
