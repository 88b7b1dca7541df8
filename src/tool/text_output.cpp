#include "tool/text_output.h"

#include <algorithm>
#include <string_view>

namespace Kes::tool {
namespace {

bool is_continuation(char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80; }

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
