#include "tool/doctor/finding.h"

#include <array>
#include <cctype>
#include <utility>

namespace Kes::tool {
namespace {

bool is_word(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

/// Whether the characters from begin to end are not a part of a longer word.
bool is_whole(const std::string& text, std::size_t begin, std::size_t end) {
    const bool starts = begin == 0 || !is_word(text[begin - 1]) || !is_word(text[begin]);
    const bool ends = end == text.size() || !is_word(text[end]) || !is_word(text[end - 1]);
    return starts && ends;
}

std::size_t find_whole(const std::string& text, const std::string& name) {
    std::size_t begin = text.find(name);
    while (begin != std::string::npos && !is_whole(text, begin, begin + name.size()))
        begin = text.find(name, begin + 1);
    return begin;
}

} // namespace

Text::Text(std::string plain) {
    if (!plain.empty()) pieces.push_back({std::move(plain), false});
}

Text::Text(const char* plain) : Text(std::string(plain)) {}

Text& Text::add(const Text& other) {
    pieces.insert(pieces.end(), other.pieces.begin(), other.pieces.end());
    return *this;
}

Text& Text::add_personal(std::string name) {
    if (!name.empty()) pieces.push_back({std::move(name), true});
    return *this;
}

void Text::mark(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (name.empty()) continue;
        for (const Piece& piece : std::exchange(pieces, {})) {
            if (piece.personal)
                pieces.push_back(piece);
            else
                add_marked(piece.text, name);
        }
    }
}

void Text::add_marked(std::string text, const std::string& name) {
    for (std::size_t at = find_whole(text, name); at != std::string::npos; at = find_whole(text, name)) {
        add(text.substr(0, at)).add_personal(name);
        text.erase(0, at + name.size());
    }
    add(text);
}

std::string Text::str(Names names) const {
    std::string text;
    for (const Piece& piece : pieces)
        text += piece.personal && names == Names::left_out ? "[name]" : piece.text;
    return text;
}

const char* to_string(State state) {
    static constexpr std::array names{"ok", "note", "warning", "error", "skipped"};
    return names.at(static_cast<std::size_t>(state));
}

const char* to_string(Link link) {
    static constexpr std::array names{"client", "library", "engine", "module", "card"};
    return names.at(static_cast<std::size_t>(link));
}

} // namespace Kes::tool
