#ifndef KES_TESTS_SUPPORT_SIGNING_H_
#define KES_TESTS_SUPPORT_SIGNING_H_

#include <openssl/rsa.h>
#include <string>
#include <vector>

namespace Kes::test {

struct SigningMethod {
    const char* digest;
    int padding; ///< 0 for key types without padding
};
using SigningMethods = std::vector<SigningMethod>;

inline const SigningMethods pkcs1{{"SHA256", RSA_PKCS1_PADDING}};
inline const SigningMethods pss{{"SHA256", RSA_PKCS1_PSS_PADDING}};
inline const SigningMethods pkcs1_with_any_sha2{
    {"SHA256", RSA_PKCS1_PADDING}, {"SHA384", RSA_PKCS1_PADDING}, {"SHA512", RSA_PKCS1_PADDING}};

/// Signs with the key by each method. OpenSSL verifies the signatures with the certificate's public key, in a
/// library context of its own, without engines.
/// @return the first problem; "" if there is none. After "cannot sign: SHA256, padding 1", the error queue
/// contains the reason
std::string signing_problem(EVP_PKEY* key, X509* certificate, const SigningMethods& methods);

/// The same by every method of the key's type.
std::string signing_problem(EVP_PKEY* key, X509* certificate);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SIGNING_H_
