#ifndef KES_TESTS_SUPPORT_MEMORY_SEARCH_H_
#define KES_TESTS_SUPPORT_MEMORY_SEARCH_H_

#include <cstddef>
#include <span>
#include <string_view>

namespace Kes::test {

/// A text to look for, each byte turned by the veil (exclusive or), so that the search does not find the very
/// text that it is given.
struct MaskedText {
    std::span<const unsigned char> bytes; ///< at least one
    unsigned char veil;
};

/// How often it stands there in clear.
std::size_t count_in(std::string_view text, const MaskedText& needle);

/// How often it stands in clear in this process's writable memory. The allocator writes over the beginning of
/// what is freed (16 bytes, 32 of large blocks): to find copies that nobody wiped, look for the end of a
/// text. Answered by memory_search_posix.cpp or memory_search_win.cpp.
std::size_t count_in_memory(const MaskedText& needle);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_MEMORY_SEARCH_H_
