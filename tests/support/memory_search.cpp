#include "memory_search.h"

#include <cstring>

namespace Kes::test {
namespace {

bool is_at(const char* place, const MaskedText& needle) {
    for (std::size_t i = 0; i < needle.bytes.size(); ++i)
        if ((static_cast<unsigned char>(place[i]) ^ needle.mask) != needle.bytes[i]) return false;
    return true;
}

} // namespace

std::size_t count_in(std::string_view text, const MaskedText& needle) {
    const int first = needle.bytes[0] ^ needle.mask;
    const std::size_t length = needle.bytes.size();
    std::size_t found = 0;
    while (text.size() >= length) {
        const void* next = std::memchr(text.data(), first, text.size() - (length - 1));
        if (next == nullptr) break;
        const char* const place = static_cast<const char*>(next);
        if (is_at(place, needle)) ++found;
        text.remove_prefix(static_cast<std::size_t>(place - text.data()) + 1);
    }
    return found;
}

} // namespace Kes::test
