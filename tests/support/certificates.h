#ifndef KES_TESTS_SUPPORT_CERTIFICATES_H_
#define KES_TESTS_SUPPORT_CERTIFICATES_H_

#include <algorithm>
#include <filesystem>
#include <openssl/crypto.h>
#include <openssl/x509.h>

#include "types.h"
#include "utils/ossl_ptr.h"

namespace Kes::test {

/// The DER encoding of an object.
/// @param write  an i2d function, such as ::i2d_X509
template <typename Write, typename Object>
Bytes der_by(Write write, Object* object) {
    unsigned char* der = nullptr;
    const int length = write(object, &der);
    Bytes bytes(der, der + std::max(length, 0));
    ::OPENSSL_free(der);
    return bytes;
}

/// Empty for null.
Bytes der_of(const X509* certificate);

/// The SubjectPublicKeyInfo of a key or of a certificate.
Bytes public_key_der(const EVP_PKEY* key);
Bytes public_key_of(const Bytes& certificate);

/// Read files that the build or a script creates. They throw if the file is missing or has another content.
Bytes read_bytes(const std::filesystem::path& file);
X509Ptr read_pem_certificate(const std::filesystem::path& file);
EvpPkeyPtr read_pem_key(const std::filesystem::path& file);

/// Ends the validity of a certificate in PEM yesterday.
/// @param file  both files without their endings .crt and .key; the key signs the certificate
void expire_certificate(const std::filesystem::path& file);

/// The certificate with the number in place of 0000 in each of its names "CN=Number 0000".
Bytes with_number(Bytes certificate, int number);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CERTIFICATES_H_
