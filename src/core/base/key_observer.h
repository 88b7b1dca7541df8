#ifndef KES_BASE_KEY_OBSERVER_H_
#define KES_BASE_KEY_OBSERVER_H_

#include <cstdint>
#include <openssl/types.h>
#include <string>

#include "base/pko_id_list.h"

namespace Kes {

/// Whether a scanner offers a private key to the client, and otherwise why not.
enum class KeyVerdict {
    offered,
    no_certificate,     ///< no certificate has the object id of the key
    no_key_usage,       ///< the record of the certificate has no key usage
    wrong_key_usage,    ///< the filter rejects the key usage of the certificate
    wrong_ext_key_usage ///< the filter rejects the extended key usage of the certificate
};

/// A key that a scanner found. Everything is borrowed and valid only during the call that receives it.
struct KeyFinding {
    const PkoId& record;           ///< of the private key; of the certificate if the key is not visible
    X509* certificate;             ///< null if there is none, or if it cannot be decoded
    const CertKeyUsage* key_usage; ///< null without a certificate
    KeyVerdict verdict;
};

/// Learns of every key that a scanner finds, in the order of the scan, also of those that are not offered.
class KeyObserver {
public:
    KeyObserver() = default;
    virtual ~KeyObserver() = default;
    KeyObserver(const KeyObserver&) = delete;
    KeyObserver& operator=(const KeyObserver&) = delete;

    virtual void found_key(const KeyFinding& finding) = 0;

    /// A certificate whose private key does not exist, or is not visible without a login. The verdict is the
    /// one that its key would get.
    virtual void found_lone_certificate(const KeyFinding& finding) = 0;

    /// A container of CryptoAPI that could not be read. Keys reported before remain offered.
    /// @param key_type  the key that failed; 0 if the container could not be opened
    virtual void failed_container(const std::string& container, std::uint32_t key_type,
                                  const char* reason) = 0;
};

/// The verdict on a key whose certificate the filter has judged.
constexpr KeyVerdict key_verdict(UsageVerdict verdict) noexcept {
    switch (verdict) {
    case UsageVerdict::wrong_key_usage:
        return KeyVerdict::wrong_key_usage;
    case UsageVerdict::wrong_ext_key_usage:
        return KeyVerdict::wrong_ext_key_usage;
    case UsageVerdict::fits:
        break;
    }
    return KeyVerdict::offered;
}

} // namespace Kes

#endif // KES_BASE_KEY_OBSERVER_H_
