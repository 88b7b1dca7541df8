#include "utils/helper.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "utils/error.h"
#include "utils/logger.h"
#include "utils/platform.h"

namespace Kes {

void Helper::write_file(const std::string& file_name, const std::vector<unsigned char>& bytes) {
    std::ofstream file(file_name, std::ios::out | std::ios::trunc | std::ios::binary);
    if (!file.is_open())
        throw Error(ErrorCodeType::open_failed, "error opening file: '" + file_name + "'",
                    "helper:329 Kes::Helper::write_file()");
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    log_debug("wrote data to: '", file_name, "'");
}

std::string Helper::timestamp() { return timestamp_text().data(); }

std::array<char, 96> Helper::timestamp_text() {
    const platform::LocalTime now = platform::local_time();
    std::array<char, 96> text{}; // for seven numbers of any size: it is what the compiler asks for
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03d", now.year, now.month,
                  now.day, now.hour, now.minute, now.second, now.millisecond);
    return text;
}

std::string Helper::bytes_to_hex(const unsigned char* bytes, std::size_t length,
                                 const std::string& separator) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(length * (2 + separator.size()));
    for (std::size_t i = 0; i < length; ++i) {
        if (i != 0) text += separator;
        text += digits[bytes[i] >> 4U];
        text += digits[bytes[i] & 0x0fU];
    }
    return text;
}

std::string Helper::get_env(const std::string& name) { return platform::env_value(name.c_str()); }

void Helper::trim_trailing_newlines(std::string& text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
}

// Not strncpy(): that fills the whole rest of the buffer, and ends a text that is cut with no NUL.
char* Helper::copy_to_buffer(const std::string& text, char* buffer, std::size_t size) noexcept {
    if (size == 0) return buffer;
    const std::size_t count = std::min(text.size(), size - 1);
    std::memcpy(buffer, text.data(), count);
    buffer[count] = '\0';
    return buffer;
}

} // namespace Kes
