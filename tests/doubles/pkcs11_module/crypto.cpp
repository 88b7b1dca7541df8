#include "crypto.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

struct FreeBytes {
    void operator()(unsigned char* bytes) const { ::OPENSSL_free(bytes); }
};
using OwnedBytes = std::unique_ptr<unsigned char, FreeBytes>;
using BignumPtr = std::unique_ptr<BIGNUM, FreeWith<&::BN_free>>;
using ObjectPtr = std::unique_ptr<ASN1_OBJECT, FreeWith<&::ASN1_OBJECT_free>>;
using OctetsPtr = std::unique_ptr<ASN1_OCTET_STRING, FreeWith<&::ASN1_OCTET_STRING_free>>;

// A context of its own, because the default one reads the system's configuration. It exists until the process
// ends.
OSSL_LIB_CTX* context() {
    static OSSL_LIB_CTX* const created = ::OSSL_LIB_CTX_new();
    return created;
}

/// @param encode  one of OpenSSL's i2d functions
template <typename Object, typename Encode>
Bytes encoded(Object* object, Encode encode) {
    unsigned char* bytes = nullptr;
    const int length = encode(object, &bytes);
    const OwnedBytes owner(bytes);
    return length < 0 ? Bytes() : Bytes(bytes, bytes + length);
}

Bytes number_parameter(const EVP_PKEY* key, const char* name) {
    BIGNUM* number = nullptr;
    ::EVP_PKEY_get_bn_param(key, name, &number);
    const BignumPtr owner(number);
    Bytes bytes(number == nullptr ? 0 : static_cast<std::size_t>(BN_num_bytes(number)));
    if (!bytes.empty()) ::BN_bn2bin(number, bytes.data());
    return bytes;
}

BioPtr open_file(const fs::path& file) { return BioPtr(::BIO_new_file(file.c_str(), "rb")); }

} // namespace

void start_crypto() { ::OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_ATEXIT, nullptr); }

std::string hash_as_text(const unsigned char* data, std::size_t length) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    std::size_t size = 0;
    ::EVP_Q_digest(context(), "SHA256", nullptr, data, length, hash.data(), &size);
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned>(hash[i]));
        text += digits.data();
    }
    return text;
}

EvpPkeyPtr read_key(const fs::path& file) {
    const BioPtr pem = open_file(file);
    if (!pem) return nullptr;
    return EvpPkeyPtr(::PEM_read_bio_PrivateKey_ex(pem.get(), nullptr, nullptr, nullptr, context(), nullptr));
}

Bytes read_certificate(const fs::path& file) {
    if (const BioPtr pem = open_file(file.string() + ".crt"); pem) {
        const X509Ptr certificate(::PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr));
        return certificate ? encoded(certificate.get(), ::i2d_X509) : Bytes();
    }
    std::ifstream der(file.string() + ".der", std::ios::binary);
    return {std::istreambuf_iterator<char>(der), {}};
}

X509Ptr decode_certificate(const Bytes& der) {
    const unsigned char* next = der.data();
    X509* certificate = ::X509_new_ex(context(), nullptr);
    // A failure frees the object and sets the pointer to null.
    ::d2i_X509(&certificate, &next, static_cast<long>(der.size()));
    return X509Ptr(certificate);
}

Bytes encoded_name(const X509_NAME* name) { return encoded(name, ::i2d_X509_NAME); }

Bytes encoded_serial_number(const X509* certificate) {
    return encoded(::X509_get0_serialNumber(certificate), ::i2d_ASN1_INTEGER);
}

Bytes modulus(const EVP_PKEY* key) { return number_parameter(key, OSSL_PKEY_PARAM_RSA_N); }

Bytes public_exponent(const EVP_PKEY* key) { return number_parameter(key, OSSL_PKEY_PARAM_RSA_E); }

Bytes ec_params(const EVP_PKEY* key) {
    std::array<char, 80> name{};
    ::EVP_PKEY_get_group_name(key, name.data(), name.size(), nullptr);
    const ObjectPtr curve(::OBJ_txt2obj(name.data(), 0));
    return curve ? encoded(curve.get(), ::i2d_ASN1_OBJECT) : Bytes();
}

Bytes ec_point(const EVP_PKEY* key) {
    std::array<unsigned char, 256> point{};
    std::size_t length = 0;
    if (::EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size(),
                                          &length) != 1)
        return {};
    const OctetsPtr octets(::ASN1_OCTET_STRING_new());
    ::ASN1_OCTET_STRING_set(octets.get(), point.data(), static_cast<int>(length));
    return encoded(octets.get(), ::i2d_ASN1_OCTET_STRING);
}

EvpPkeyContextPtr create_operation(EVP_PKEY* key) {
    return EvpPkeyContextPtr(::EVP_PKEY_CTX_new_from_pkey(context(), key, nullptr));
}

} // namespace Kes::test
