#include "library_words_win.h"

#include <array>
#include <sstream>

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

} // namespace Kes::test
