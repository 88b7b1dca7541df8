#ifndef KES_UTILS_HELPER_H_
#define KES_UTILS_HELPER_H_

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace Kes {

/// Small functions that several parts need.
class Helper {
public:
    Helper() = delete;

    /// Replaces the file by the bytes.
    /// @throws Error open_failed "error opening file: '...'" when it cannot be opened for writing
    static void write_file(const std::string& file_name, const std::vector<unsigned char>& bytes);

    /// The local time as log lines show it: "2024-03-05 09:07:02.045".
    static std::string timestamp();

    /// As timestamp(), zero-terminated and without an allocation.
    static std::array<char, 96> timestamp_text();

    /// Two lower-case hexadecimal digits for each byte, the separator between two bytes: "0a:ff".
    /// @param bytes  may be null when length is 0
    static std::string bytes_to_hex(const unsigned char* bytes, std::size_t length,
                                    const std::string& separator);

    /// The environment variable's value; "" when it is unset.
    static std::string get_env(const std::string& name);

    /// Removes line feeds and carriage returns from the end of the text.
    static void trim_trailing_newlines(std::string& text);

    /// Copies what fits of the text into the buffer and ends it with a NUL. A size of 0 writes nothing.
    /// @return buffer
    static char* copy_to_buffer(const std::string& text, char* buffer, std::size_t size) noexcept;
};

} // namespace Kes

#endif // KES_UTILS_HELPER_H_
