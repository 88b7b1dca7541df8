#ifndef KES_UTILS_OSSL_PTR_H_
#define KES_UTILS_OSSL_PTR_H_

#include <memory>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

namespace Kes {

/// A deleter for std::unique_ptr that calls the free function of a C library. A unique_ptr with this deleter
/// is no larger than a plain pointer.
template <auto FreeFn>
struct FreeWith {
    template <typename T>
    void operator()(T* object) const noexcept {
        FreeFn(object);
    }
};

using BioPtr = std::unique_ptr<BIO, FreeWith<&::BIO_free>>;
using X509Ptr = std::unique_ptr<X509, FreeWith<&::X509_free>>;
using EvpPkeyPtr = std::unique_ptr<EVP_PKEY, FreeWith<&::EVP_PKEY_free>>;

} // namespace Kes

#endif // KES_UTILS_OSSL_PTR_H_
