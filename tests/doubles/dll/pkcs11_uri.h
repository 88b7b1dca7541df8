#ifndef KES_TESTS_DOUBLES_DLL_PKCS11_URI_H_
#define KES_TESTS_DOUBLES_DLL_PKCS11_URI_H_

#include <optional>
#include <string>
#include <vector>

namespace Kes::test {

/// The attributes of a "pkcs11:" URI. An absent attribute matches every object.
struct Pkcs11Uri {
    std::optional<std::string> token;
    std::optional<std::string> object;
    std::optional<std::string> type;
    std::optional<std::vector<unsigned char>> id;

    bool names_object(const char* label, const unsigned char* id_bytes, std::size_t id_size) const;
};

/// Without a value if the text is not a pkcs11: URI.
std::optional<Pkcs11Uri> parse_pkcs11_uri(const std::string& text);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_DLL_PKCS11_URI_H_
