#ifndef KES_TESTS_SUPPORT_CERTIFICATES_H_
#define KES_TESTS_SUPPORT_CERTIFICATES_H_

#include <algorithm>
#include <filesystem>
#include <openssl/crypto.h>
#include <openssl/x509.h>

#include "types.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {

/// The encoding of an object.
/// @param write  such as ::i2d_X509
template <typename Write, typename Object>
Bytes der_by(Write write, Object* object) {
    unsigned char* der = nullptr;
    const int length = write(object, &der);
    Bytes bytes(der, der + std::max(length, 0));
    ::OPENSSL_free(der);
    return bytes;
}

/// Empty when there is no certificate.
Bytes der_of(const X509* certificate);

/// The SubjectPublicKeyInfo of a key, and of a certificate.
Bytes public_key_der(const EVP_PKEY* key);
Bytes public_key_of(const Bytes& certificate);

/// What build and scripts made. Each throws when there is no such file, or something else in it.
Bytes read_bytes(const std::filesystem::path& file);
X509Ptr read_pem_certificate(const std::filesystem::path& file);
EvpPkeyPtr read_pem_key(const std::filesystem::path& file);

/// A certificate with another number in each of its names "CN=Number 0000".
Bytes with_number(Bytes certificate, int number);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CERTIFICATES_H_
