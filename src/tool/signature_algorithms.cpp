#include "tool/signature_algorithms.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include <openssl/objects.h>
#include <openssl/ssl.h>

namespace Kes::tool {
namespace {

using Kind = SignatureAlgorithm::Kind;

struct AlgorithmName {
    std::uint16_t number;
    const char* name;
};

/// Algorithms that servers often accept and this program does not use.
constexpr std::array<AlgorithmName, 11> other_names{{{0x0807, "ed25519"},
                                                     {0x0808, "ed448"},
                                                     {0x0809, "rsa_pss_pss_sha256"},
                                                     {0x080a, "rsa_pss_pss_sha384"},
                                                     {0x080b, "rsa_pss_pss_sha512"},
                                                     {0x0301, "rsa_pkcs1_sha224"},
                                                     {0x0302, "dsa_sha224"},
                                                     {0x0303, "ecdsa_sha224"},
                                                     {0x0402, "dsa_sha256"},
                                                     {0x0502, "dsa_sha384"},
                                                     {0x0602, "dsa_sha512"}}};

std::string curve_of(const EVP_PKEY* key) {
    std::array<char, 80> name{};
    if (::EVP_PKEY_get_group_name(key, name.data(), name.size(), nullptr) != 1) return "";
    return name.data();
}

} // namespace

const std::vector<SignatureAlgorithm>& signature_algorithms() {
    static const std::vector<SignatureAlgorithm> all{
        {0x0403, "ecdsa_secp256r1_sha256", Kind::ecdsa, "SHA256", NID_X9_62_prime256v1},
        {0x0503, "ecdsa_secp384r1_sha384", Kind::ecdsa, "SHA384", NID_secp384r1},
        {0x0603, "ecdsa_secp521r1_sha512", Kind::ecdsa, "SHA512", NID_secp521r1},
        {0x0804, "rsa_pss_rsae_sha256", Kind::rsa_pss, "SHA256", NID_undef},
        {0x0805, "rsa_pss_rsae_sha384", Kind::rsa_pss, "SHA384", NID_undef},
        {0x0806, "rsa_pss_rsae_sha512", Kind::rsa_pss, "SHA512", NID_undef},
        {0x0401, "rsa_pkcs1_sha256", Kind::rsa_pkcs1, "SHA256", NID_undef},
        {0x0501, "rsa_pkcs1_sha384", Kind::rsa_pkcs1, "SHA384", NID_undef},
        {0x0601, "rsa_pkcs1_sha512", Kind::rsa_pkcs1, "SHA512", NID_undef},
        {0x0201, "rsa_pkcs1_sha1", Kind::rsa_pkcs1, "SHA1", NID_undef},
        {0x0203, "ecdsa_sha1", Kind::ecdsa, "SHA1", NID_undef},
    };
    return all;
}

std::string name_of_algorithm(std::uint16_t number) {
    for (const SignatureAlgorithm& algorithm : signature_algorithms())
        if (algorithm.number == number) return algorithm.name;
    for (const AlgorithmName& other : other_names)
        if (other.number == number) return other.name;
    std::array<char, 7> digits{};
    std::snprintf(digits.data(), digits.size(), "0x%04x", static_cast<unsigned>(number));
    return digits.data();
}

KeyAbilities abilities_of(const EVP_PKEY* key, bool uses_cryptoapi) {
    const bool is_ec = ::EVP_PKEY_get_base_id(key) == EVP_PKEY_EC;
    return abilities_of(is_ec, is_ec ? curve_of(key) : "", uses_cryptoapi);
}

KeyAbilities abilities_of(bool is_ec, const std::string& curve, bool uses_cryptoapi) {
    const bool has_curve = is_ec && !curve.empty();
    return {is_ec, has_curve ? ::OBJ_txt2nid(curve.c_str()) : NID_undef, !is_ec && !uses_cryptoapi};
}

bool can_sign(const KeyAbilities& abilities, const SignatureAlgorithm& algorithm, int protocol) {
    const bool is_tls_13 = protocol >= TLS1_3_VERSION;
    switch (algorithm.kind) {
    case Kind::rsa_pkcs1:
        return !abilities.is_ec && !is_tls_13;
    case Kind::rsa_pss:
        return abilities.has_pss;
    case Kind::ecdsa:
        return abilities.is_ec && (!is_tls_13 || algorithm.curve == abilities.curve);
    }
    return false;
}

} // namespace Kes::tool
