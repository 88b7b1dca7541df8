#include "library_words_win.h"

#include <array>
#include <openssl/err.h>
#include <sstream>
#include <stdexcept>

namespace Kes::test {

std::string windows_code_text(DWORD error) {
    std::array<char, 2048> buffer{};
    const DWORD length = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, 1033, buffer.data(),
                                          static_cast<DWORD>(buffer.size()), nullptr);
    std::string words(buffer.data(), length);
    std::erase(words, '\r');
    std::erase(words, '\n');
    std::ostringstream text;
    text << "val=" << error << " [0x" << std::hex << error << "] (";
    text << (length == 0 ? "unknown winerror" : words) << ")";
    return text.str();
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
