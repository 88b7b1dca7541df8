#ifndef KES_TESTS_DOUBLES_PKCS11_MODULE_CRYPTO_H_
#define KES_TESTS_DOUBLES_PKCS11_MODULE_CRYPTO_H_

#include <filesystem>
#include <p11-kit/pkcs11.h>
#include <string>
#include <vector>

#include "utils/ossl_ptr.h"

namespace Kes::test {

using Bytes = std::vector<unsigned char>;
using EvpPkeyContextPtr = std::unique_ptr<EVP_PKEY_CTX, FreeWith<&::EVP_PKEY_CTX_free>>;

/// Prepares the module's own copy of libcrypto, which reads no configuration file and is not cleaned up when
/// the process ends, because OpenSSL calls the module until the very end.
void start_crypto();

/// SHA-256 in hexadecimal.
std::string hash_as_text(const unsigned char* data, std::size_t length);

/// The key in a PEM file; null if the file does not exist or has no key.
EvpPkeyPtr read_key(const std::filesystem::path& file);

/// A certificate in DER: a file .crt in PEM, or a file .der, whose bytes are not checked.
/// @param file  without its ending
/// @return empty if there is no such file, or the PEM file has no certificate
Bytes read_certificate(const std::filesystem::path& file);

/// Null if the bytes are no certificate.
X509Ptr decode_certificate(const Bytes& der);

Bytes encoded_name(const X509_NAME* name);
Bytes encoded_serial_number(const X509* certificate);
Bytes modulus(const EVP_PKEY* key);
Bytes public_exponent(const EVP_PKEY* key);
Bytes ec_params(const EVP_PKEY* key);
Bytes ec_point(const EVP_PKEY* key);

EvpPkeyContextPtr create_operation(EVP_PKEY* key);

/// The length of the key's signatures in the form that PKCS#11 uses.
std::size_t signature_size(const EVP_PKEY* key);

/// Checks that the key can use the mechanism. @throws Failure otherwise
void check_mechanism(const CK_MECHANISM& mechanism, const EVP_PKEY* key);

/// @throws Failure if the data does not fit
Bytes sign(EVP_PKEY* key, CK_MECHANISM_TYPE mechanism, const CK_RSA_PKCS_PSS_PARAMS& pss, Bytes data);

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_PKCS11_MODULE_CRYPTO_H_
