#ifndef KES_TESTS_SUPPORT_MEMORY_SEARCH_H_
#define KES_TESTS_SUPPORT_MEMORY_SEARCH_H_

#include <cstddef>
#include <span>
#include <string_view>

namespace Kes::test {

/// A text to search for. Each byte is XORed with the mask, so that the search does not find its parameter.
struct MaskedText {
    std::span<const unsigned char> bytes; ///< at least one
    unsigned char mask;
};

/// How often the text contains the unmasked needle.
std::size_t count_in(std::string_view text, const MaskedText& needle);

/// How often this process's writable memory contains the unmasked needle. The allocator overwrites the first
/// 16 bytes of freed memory (32 of large blocks), so search for the end of a text to find copies that were
/// not wiped. Implemented in memory_search_posix.cpp and memory_search_win.cpp.
std::size_t count_in_memory(const MaskedText& needle);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_MEMORY_SEARCH_H_
