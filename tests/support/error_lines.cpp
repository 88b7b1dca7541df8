#include "error_lines.h"

#include <array>
#include <openssl/err.h>
#include <regex>
#include <stdexcept>

namespace Kes::test {

std::string masked_errors(const std::string& text) {
    static const std::regex whole("[0-9A-F]+:error:[0-9A-F]+:([^:\n]*):[^:\n]*:([^:\n]*):[^:\n]*:[^:\n]*:");
    static const std::regex without_place("error:[0-9A-F]+:([^:\n]*):[^:\n]*:([^:\n]*)");
    static const std::regex number(R"(error:lib\([0-9]+\):)");
    const std::string shorter = std::regex_replace(text, whole, "error:$1:$2:");
    return std::regex_replace(std::regex_replace(shorter, without_place, "error:$1:$2"), number,
                              "error:lib:");
}

std::string without_thread(const std::string& text) {
    static const std::regex thread("(^|\n)[0-9A-F]+:error:");
    return std::regex_replace(text, thread, "$1THREAD:error:");
}

std::string queued_errors() {
    std::string text;
    std::array<char, 256> line{};
    while (const unsigned long error = ::ERR_get_error()) {
        ::ERR_error_string_n(error, line.data(), line.size());
        text += std::string(line.data()) + "\n";
    }
    return masked_errors(text);
}

std::string queue_line(const std::string& text) {
    if (::ERR_peek_error() != 0) throw std::logic_error("something is on the error queue");
    ::ERR_new();
    ::ERR_set_error(ERR_LIB_DSO, ERR_R_SYS_LIB, "%s", text.c_str());
    std::string line;
    ::ERR_print_errors_cb(
        [](const char* part, std::size_t length, void* out) {
            static_cast<std::string*>(out)->append(part, length);
            return 1;
        },
        &line);
    while (line.ends_with('\n'))
        line.pop_back();
    return line;
}

} // namespace Kes::test
