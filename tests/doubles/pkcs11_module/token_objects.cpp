#include "token_objects.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sstream>

#include "failure.h"
#include "token_files.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

template <typename Value>
Bytes bytes_of(const Value& value) {
    const auto* first = reinterpret_cast<const unsigned char*>(&value);
    return {first, first + sizeof value};
}

Bytes number(CK_ULONG value) { return bytes_of(value); }

Bytes yes_or_no(bool value) { return bytes_of(static_cast<CK_BBOOL>(value ? CK_TRUE : CK_FALSE)); }

Bytes from_hex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

/// One line of the file "objects".
struct Line {
    Bytes id;
    std::string kinds;
    fs::path file;
    std::string label;
};

Line parse(const fs::path& folder, const std::string& id, const std::string& description) {
    std::istringstream words(description);
    Line line{from_hex(id), "", "", ""};
    std::string name;
    words >> line.kinds >> name >> std::ws;
    std::getline(words, line.label);
    line.file = folder / name;
    return line;
}

TokenObject create(CK_OBJECT_CLASS type, const Line& line, bool is_private) {
    TokenObject object;
    object.is_private = is_private;
    object.attributes = {{CKA_CLASS, number(type)},
                         {CKA_TOKEN, yes_or_no(true)},
                         {CKA_PRIVATE, yes_or_no(is_private)},
                         {CKA_MODIFIABLE, yes_or_no(false)},
                         {CKA_ID, line.id},
                         {CKA_LABEL, Bytes(line.label.begin(), line.label.end())}};
    return object;
}

TokenObject create_certificate(const Line& line, bool is_private) {
    TokenObject object = create(CKO_CERTIFICATE, line, is_private);
    const Bytes der = read_certificate(line.file);
    require(!der.empty(), CKR_DEVICE_ERROR);
    object.attributes[CKA_CERTIFICATE_TYPE] = number(CKC_X_509);
    object.attributes[CKA_VALUE] = der;
    if (const X509Ptr certificate = decode_certificate(der); certificate) {
        object.attributes[CKA_SUBJECT] = encoded_name(::X509_get_subject_name(certificate.get()));
        object.attributes[CKA_ISSUER] = encoded_name(::X509_get_issuer_name(certificate.get()));
        object.attributes[CKA_SERIAL_NUMBER] = encoded_serial_number(certificate.get());
    }
    return object;
}

/// Adds what public and private keys have in common.
void add_key_type(TokenObject& object, const EVP_PKEY* key) {
    const bool is_ec = ::EVP_PKEY_is_a(key, "EC") == 1;
    object.attributes[CKA_KEY_TYPE] = number(is_ec ? CKK_EC : CKK_RSA);
    object.attributes[CKA_LOCAL] = yes_or_no(false);
    if (is_ec) {
        object.attributes[CKA_EC_PARAMS] = ec_params(key);
    } else {
        object.attributes[CKA_MODULUS] = modulus(key);
        object.attributes[CKA_PUBLIC_EXPONENT] = public_exponent(key);
    }
}

TokenObject create_private_key(const Line& line, bool is_private) {
    TokenObject object = create(CKO_PRIVATE_KEY, line, is_private);
    object.key = read_key(line.file.string() + ".key");
    require(object.key != nullptr, CKR_DEVICE_ERROR);
    add_key_type(object, object.key.get());
    for (const CK_ATTRIBUTE_TYPE type :
         {CKA_SENSITIVE, CKA_ALWAYS_SENSITIVE, CKA_NEVER_EXTRACTABLE, CKA_SIGN})
        object.attributes[type] = yes_or_no(true);
    for (const CK_ATTRIBUTE_TYPE type :
         {CKA_EXTRACTABLE, CKA_DECRYPT, CKA_UNWRAP, CKA_DERIVE, CKA_ALWAYS_AUTHENTICATE})
        object.attributes[type] = yes_or_no(false);
    return object;
}

EvpPkeyPtr read_public_key(const Line& line) {
    EvpPkeyPtr key = read_key(line.file.string() + ".key");
    if (key) return key;
    const X509Ptr certificate = decode_certificate(read_certificate(line.file));
    return EvpPkeyPtr(certificate ? ::X509_get_pubkey(certificate.get()) : nullptr);
}

TokenObject create_public_key(const Line& line) {
    TokenObject object = create(CKO_PUBLIC_KEY, line, false);
    const EvpPkeyPtr key = read_public_key(line);
    require(key != nullptr, CKR_DEVICE_ERROR);
    add_key_type(object, key.get());
    object.attributes[CKA_VERIFY] = yes_or_no(true);
    for (const CK_ATTRIBUTE_TYPE type : {CKA_ENCRYPT, CKA_WRAP, CKA_DERIVE})
        object.attributes[type] = yes_or_no(false);
    if (::EVP_PKEY_is_a(key.get(), "EC") == 1)
        object.attributes[CKA_EC_POINT] = ec_point(key.get());
    else
        object.attributes[CKA_MODULUS_BITS] = number(static_cast<CK_ULONG>(::EVP_PKEY_get_bits(key.get())));
    return object;
}

/// @param kind  a letter of README.md
TokenObject create_object(char kind, const Line& line) {
    switch (kind) {
    case 'c':
        return create_certificate(line, false);
    case 'C':
        return create_certificate(line, true);
    case 'k':
        return create_private_key(line, true);
    case 'K':
        return create_private_key(line, false);
    case 'p':
        return create_public_key(line);
    default:
        throw Failure{CKR_DEVICE_ERROR};
    }
}

/// Parts of a private key, which never leave a card.
bool is_secret(CK_ATTRIBUTE_TYPE type) {
    return type == CKA_PRIVATE_EXPONENT || (type >= CKA_PRIME_1 && type <= CKA_COEFFICIENT) ||
           type == CKA_VALUE;
}

} // namespace

bool TokenObject::matches(const CK_ATTRIBUTE* wanted, CK_ULONG count) const {
    return std::all_of(wanted, wanted + count, [this](const CK_ATTRIBUTE& entry) {
        const auto found = attributes.find(entry.type);
        const auto* value = static_cast<const unsigned char*>(entry.pValue);
        return found != attributes.end() &&
               std::equal(found->second.begin(), found->second.end(), value, value + entry.ulValueLen);
    });
}

CK_RV TokenObject::read(CK_ATTRIBUTE& entry) const {
    const CK_ULONG room = entry.ulValueLen;
    entry.ulValueLen = CK_UNAVAILABLE_INFORMATION;
    const auto found = attributes.find(entry.type);
    if (found == attributes.end())
        return key && is_secret(entry.type) ? CKR_ATTRIBUTE_SENSITIVE : CKR_ATTRIBUTE_TYPE_INVALID;
    const Bytes& value = found->second;
    if (entry.pValue != nullptr && room < value.size()) return CKR_BUFFER_TOO_SMALL;
    if (entry.pValue != nullptr && !value.empty()) std::memcpy(entry.pValue, value.data(), value.size());
    entry.ulValueLen = value.size();
    return CKR_OK;
}

std::vector<TokenObject> read_objects(const fs::path& folder) {
    std::vector<TokenObject> objects;
    for (const auto& [id, description] : read_settings(folder / "objects")) {
        const Line line = parse(folder, id, description);
        for (const char kind : line.kinds)
            objects.push_back(create_object(kind, line));
    }
    return objects;
}

} // namespace Kes::test
