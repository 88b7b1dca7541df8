#ifndef KES_TESTS_SUPPORT_SIGNATURE_CHECK_H_
#define KES_TESTS_SUPPORT_SIGNATURE_CHECK_H_

#include <openssl/types.h>
#include <string>

namespace Kes::test {

/// What is wrong with signatures of the key, in every way that a key of its type has, as the certificate's
/// public key judges them in a library context that no engine reaches; "" when nothing is.
std::string signing_problem(EVP_PKEY* key, X509* certificate);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SIGNATURE_CHECK_H_
