#ifndef KES_TESTS_SUPPORT_SIGNING_H_
#define KES_TESTS_SUPPORT_SIGNING_H_

#include <openssl/types.h>
#include <string>

namespace Kes::test {

constexpr int pkcs1 = 1; ///< RSA_PKCS1_PADDING, PKCS#1 v1.5
constexpr int pss = 6;   ///< RSA_PKCS1_PSS_PADDING

/// What OpenSSL has to say when the key signs with SHA-256 and that padding; "" when it signs and the
/// signature is right, as the certificate's public key judges it in a library context that no engine reaches.
std::string signing_problem(EVP_PKEY* key, X509* certificate, int padding);

/// The same for RSA PKCS#1 v1.5 with each SHA-2.
std::string signing_problem(EVP_PKEY* key, X509* certificate);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SIGNING_H_
