#include "tool/printable.h"

#include <array>
#include <cstdio>

namespace Kes::tool {
namespace {

/// The length of the UTF-8 character at this place, with one to four bytes; 0 if there is none that may be
/// printed.
std::size_t length_of_character(const std::string& text, std::size_t place) {
    const auto first = static_cast<unsigned char>(text[place]);
    if (first < 0x80) return first >= 0x20 && first != 0x7f ? 1 : 0;
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    // C2 80 to C2 9F are control characters. 80 to C1 and F5 to FF begin no character.
    if (first < 0xc2 || first > 0xf4 || place + length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((static_cast<unsigned char>(text[place + i]) & 0xc0) != 0x80) return 0;
    const bool is_control = first == 0xc2 && static_cast<unsigned char>(text[place + 1]) < 0xa0;
    return is_control ? 0 : length;
}

std::string escaped(char byte) {
    switch (byte) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    case '\\':
        return "\\\\";
    default:
        std::array<char, 5> digits{};
        std::snprintf(digits.data(), digits.size(), "\\x%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(byte)));
        return digits.data();
    }
}

} // namespace

std::string printable(const std::string& text, std::size_t most) {
    std::string shown;
    for (std::size_t i = 0; i < text.size();) {
        if (i >= most) return shown + "...";
        const std::size_t length = text[i] == '\\' ? 0 : length_of_character(text, i);
        shown += length == 0 ? escaped(text[i]) : text.substr(i, length);
        i += length == 0 ? 1 : length;
    }
    return shown;
}

} // namespace Kes::tool
