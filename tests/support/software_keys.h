#ifndef KES_TESTS_SUPPORT_SOFTWARE_KEYS_H_
#define KES_TESTS_SUPPORT_SOFTWARE_KEYS_H_

#include <string>

#include "utils/ossl_ptr.h"

namespace Kes::test {

/// Creates an RSA key in the form in which OpenSSL 1.1 programs create it: an RSA in an EVP_PKEY.
EvpPkeyPtr create_legacy_rsa_key();

/// The same for an EC key on P-256.
EvpPkeyPtr create_legacy_ec_key();

/// signing_problem() with a new certificate of the key.
std::string software_signing_problem(EVP_PKEY* key);

/// The same for one method: SHA-256 and PKCS#1 v1.5.
std::string software_pkcs1_problem(EVP_PKEY* key);

/// Removes the engine from the defaults for key methods, or for RSA, as a client may do after
/// ossl_load().
void unregister_key_methods(const char* engine_id);
void unregister_rsa(const char* engine_id);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SOFTWARE_KEYS_H_
