#include "tool/decimal_number.h"

#include <charconv>
#include <system_error>

namespace Kes::tool {

int decimal_number(const std::string& text) {
    int number = -1;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    const bool is_number = result.ec == std::errc() && result.ptr == end && number >= 0;
    return is_number && text.front() != '-' ? number : -1;
}

} // namespace Kes::tool
