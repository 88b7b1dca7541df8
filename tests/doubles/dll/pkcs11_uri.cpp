#include "pkcs11_uri.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace Kes::test {
namespace {

constexpr std::string_view scheme = "pkcs11:";

std::optional<std::string> decode(const std::string& text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        const std::string digits = text.substr(i + 1, 2);
        const auto is_digit = [](unsigned char c) { return std::isxdigit(c) != 0; };
        if (digits.size() != 2 || !std::all_of(digits.begin(), digits.end(), is_digit)) return std::nullopt;
        decoded += static_cast<char>(std::stoi(digits, nullptr, 16));
        i += 2;
    }
    return decoded;
}

bool take(Pkcs11Uri& uri, const std::string& name, const std::string& value) {
    if (name == "token")
        uri.token = value;
    else if (name == "object")
        uri.object = value;
    else if (name == "type")
        uri.type = value;
    else if (name == "id")
        uri.id.emplace(value.begin(), value.end());
    else
        return false;
    return true;
}

} // namespace

bool Pkcs11Uri::names_object(const char* label, const unsigned char* id_bytes, std::size_t id_size) const {
    return (!object || *object == label) &&
           (!id || std::equal(id->begin(), id->end(), id_bytes, id_bytes + id_size));
}

std::optional<Pkcs11Uri> parse_pkcs11_uri(const std::string& text) {
    if (!text.starts_with(scheme)) return std::nullopt;
    Pkcs11Uri uri;
    std::istringstream attributes(text.substr(scheme.size()));
    for (std::string attribute; std::getline(attributes, attribute, ';');) {
        const auto equals = attribute.find('=');
        if (equals == std::string::npos) return std::nullopt;
        const auto value = decode(attribute.substr(equals + 1));
        if (!value || !take(uri, attribute.substr(0, equals), *value)) return std::nullopt;
    }
    return uri;
}

} // namespace Kes::test
