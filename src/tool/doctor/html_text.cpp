#include "tool/doctor/html_text.h"

#include <nlohmann/json.hpp>

#include "tool/command.h"

namespace Kes::tool {
namespace {

/// The text with U+FFFD in place of bytes that are not UTF-8, by the rules of the JSON report.
std::string valid_utf8(const std::string& text) {
    return Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace)).get<std::string>();
}

} // namespace

std::string html_escaped(const std::string& text) {
    std::string escaped;
    for (const char c : valid_utf8(text)) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            const auto code = static_cast<unsigned char>(c);
            escaped += (code < 0x20 || code == 0x7f) ? ' ' : c;
        }
    }
    return escaped;
}

} // namespace Kes::tool
