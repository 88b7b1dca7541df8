#ifndef KES_PKCS11_KEY_LENDER_H_
#define KES_PKCS11_KEY_LENDER_H_

#include <atomic>
#include <openssl/types.h>

#include "utils/ossl_ptr.h"

namespace Kes {

/// Creates the keys that clients receive in place of the keys of one engine, and counts those that still
/// exist.
///
/// A key consists of an EVP_PKEY and an RSA or EC_KEY. A client can extract the RSA or EC_KEY, or duplicate an
/// EC_KEY, and keep it longer than the EVP_PKEY. Therefore the client gets an RSA or EC_KEY of its own, which
/// is counted until OpenSSL frees it. It signs with the functions of the engine's key and holds a reference
/// to that key.
///
/// Never destroyed, because OpenSSL keeps pointers to it.
class KeyLender {
public:
    KeyLender() = default;
    KeyLender(const KeyLender&) = delete;
    KeyLender& operator=(const KeyLender&) = delete;

    /// Creates a key that signs like the engine's key. A key that is neither RSA nor EC is returned as it is,
    /// and cannot be counted, because nothing reports when it is freed.
    /// @param engine  is set as the engine of the returned key
    /// @return never null. @throws OsslError if memory has run out or the engine has no method for the key
    EvpPkeyPtr lend(EvpPkeyPtr engine_key, ENGINE* engine);

    /// Whether a client may still hold a key. May be called while another thread frees a key.
    bool has_lent_keys() const noexcept { return count != 0 || has_lent_other_key; }

    /// Whether a key was lent that is neither RSA nor EC.
    bool has_lent_uncounted_key() const noexcept { return has_lent_other_key; }

private:
    void set_rsa(EVP_PKEY& lent, EvpPkeyPtr engine_key);
    void set_ec_key(EVP_PKEY& lent, EvpPkeyPtr engine_key);
    int register_count(int key_class);

    std::atomic<int> count = 0;
    bool has_lent_other_key = false;
    RSA_METHOD* rsa_method = nullptr; // the engine's methods, without their function for freed keys
    EC_KEY_METHOD* ec_method = nullptr;
    int rsa_index = -1; // of the ex-data through which an RSA is counted
    int ec_index = -1;
};

} // namespace Kes

#endif // KES_PKCS11_KEY_LENDER_H_
