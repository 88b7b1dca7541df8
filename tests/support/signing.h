#ifndef KES_TESTS_SUPPORT_SIGNING_H_
#define KES_TESTS_SUPPORT_SIGNING_H_

#include <openssl/rsa.h>
#include <string>
#include <vector>

namespace Kes::test {

struct SigningMethod {
    const char* digest;
    int padding; ///< 0 where the key type has none
};
using SigningMethods = std::vector<SigningMethod>;

inline const SigningMethods pkcs1{{"SHA256", RSA_PKCS1_PADDING}};
inline const SigningMethods pss{{"SHA256", RSA_PKCS1_PSS_PADDING}};
inline const SigningMethods pkcs1_with_any_sha2{
    {"SHA256", RSA_PKCS1_PADDING}, {"SHA384", RSA_PKCS1_PADDING}, {"SHA512", RSA_PKCS1_PADDING}};

/// Signs with the key by each method, and lets OpenSSL's own code judge the signatures, with nothing but the
/// certificate's public key and in a library context that no engine reaches.
/// @return "" when all is well, or what failed. The reason for "cannot sign: SHA256, padding 1" is on the
/// error queue
std::string signing_problem(EVP_PKEY* key, X509* certificate, const SigningMethods& methods);

/// The same by every method that the key's type has.
std::string signing_problem(EVP_PKEY* key, X509* certificate);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SIGNING_H_
