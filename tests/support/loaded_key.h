#ifndef KES_TESTS_SUPPORT_LOADED_KEY_H_
#define KES_TESTS_SUPPORT_LOADED_KEY_H_

#include "marvo/ossl_scard_if.h"
#include "types.h"

namespace Kes::test {

/// The key that the library has loaded; null before the load.
inline evp_pkey_st* loaded_key(OsslScardIf& scard) {
    evp_pkey_st* key = nullptr;
    scard.ossl_get_private_key(&key);
    return key;
}

inline x509_st* loaded_certificate(OsslScardIf& scard) {
    x509_st* certificate = nullptr;
    scard.ossl_get_certificate(&certificate);
    return certificate;
}

/// The names of the keys that discover_keys() found.
inline Lines found_key_names(OsslScardIf& scard, std::size_t num_keys) {
    Lines names;
    for (std::size_t i = 0; i < num_keys; ++i)
        names.emplace_back(scard.get_key_name(i));
    return names;
}

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_LOADED_KEY_H_
