#ifndef KES_TOOL_SIGNATURE_ALGORITHMS_H_
#define KES_TOOL_SIGNATURE_ALGORITHMS_H_

#include <cstdint>
#include <string>
#include <vector>

#include <openssl/evp.h>

namespace Kes::tool {

/// A signature algorithm of TLS, by its number in the protocol.
struct SignatureAlgorithm {
    enum class Kind { rsa_pkcs1, rsa_pss, ecdsa };

    std::uint16_t number;
    const char* name; ///< in RFC 8446
    Kind kind;
    const char* digest; ///< in OpenSSL
    int curve;          ///< with TLS 1.3, the only curve of an ECDSA key; NID_undef for RSA
};

/// The algorithms that clients use, the preferred ones first.
const std::vector<SignatureAlgorithm>& signature_algorithms();

/// The name of a number that a server sent; "0x" and the number if it is not in the list.
std::string name_of_algorithm(std::uint16_t number);

/// What a key can sign with.
struct KeyAbilities {
    bool is_ec;
    int curve; ///< NID_undef for RSA
    bool has_pss;
};

/// @param uses_cryptoapi  the key signs with PKCS#1 v1.5 only
KeyAbilities abilities_of(const EVP_PKEY* key, bool uses_cryptoapi);

/// The same, without the key. @param curve  OpenSSL's name; not used for RSA
KeyAbilities abilities_of(bool is_ec, const std::string& curve, bool uses_cryptoapi);

/// Whether the key can sign with the algorithm in this protocol version of OpenSSL.
bool can_sign(const KeyAbilities& abilities, const SignatureAlgorithm& algorithm, int protocol);

} // namespace Kes::tool

#endif // KES_TOOL_SIGNATURE_ALGORITHMS_H_
