#ifndef KES_UTILS_TEXT_HELPER_H_
#define KES_UTILS_TEXT_HELPER_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Kes {

/// The name of one bit of a mask.
struct BitName {
    std::uint32_t bit;
    const char* name;
};

enum class HexCase { lower, upper };

/// Functions that build and edit text. They throw nothing but std::bad_alloc and log nothing.
///
/// This class is separate from Helper because errors and the logger need these functions, while
/// Helper::write_file() needs errors and the logger. Other code reaches both through Helper.
class TextHelper {
public:
    /// The text, or "" for null. OpenSSL, libp11 and clients use null for a text that they do not have.
    static const char* text_or_empty(const char* text) noexcept { return text == nullptr ? "" : text; }

    TextHelper() = delete;

    /// The local time in the format of log lines: "2024-03-05 09:07:02.045".
    static std::string timestamp();

    /// Like timestamp(), but zero-terminated and without an allocation.
    static std::array<char, 96> timestamp_text();

    /// The number in hexadecimal digits without "0x", zero-terminated and without an allocation.
    /// @param min_digits  0 to 16; the number is filled up with zeros on the left
    static std::array<char, 17> to_hex(std::uint64_t number, std::size_t min_digits = 1,
                                       HexCase hex_case = HexCase::lower) noexcept;

    /// Two lower-case hexadecimal digits per byte, with the separator between bytes: "0a:ff".
    /// @param bytes  may be null when length is 0
    static std::string bytes_to_hex(const unsigned char* bytes, std::size_t length,
                                    const std::string& separator);

    /// The names of the bits that are set, in the order of the list and joined by "|"; "none" for 0. Bits
    /// that are not in the list are left out.
    static std::string mask_names(std::uint32_t mask, std::span<const BitName> names);

    /// Removes line feeds and carriage returns from the end of the text.
    static void trim_trailing_newlines(std::string& text);

    /// Copies as much of the text as fits into the buffer and terminates it with a NUL. Writes nothing if
    /// size is 0.
    /// @return buffer
    static char* copy_to_buffer(const std::string& text, char* buffer, std::size_t size) noexcept;
};

} // namespace Kes

#endif // KES_UTILS_TEXT_HELPER_H_
