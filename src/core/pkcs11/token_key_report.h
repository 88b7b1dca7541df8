#ifndef KES_PKCS11_TOKEN_KEY_REPORT_H_
#define KES_PKCS11_TOKEN_KEY_REPORT_H_

#include <string>
#include <unordered_set>
#include <vector>

#include "base/key_observer.h"

namespace Kes {

/// Tells an observer what one scan of a token finds. Does nothing if there is no observer.
class TokenKeyReport {
public:
    /// All arguments are borrowed. @param observer_in  may be null
    TokenKeyReport(KeyObserver* observer_in, const PkoIdList& list_in, const CertKeyUsageFilter& filter_in)
        : observer(observer_in), list(list_in), filter(filter_in) {}

    /// Keeps a certificate for the keys that follow.
    /// @param record  in the list
    void add_certificate(const PkoId* record, X509* x509);

    void report_key(const PkoId& private_key, KeyVerdict verdict);

    /// Reports the certificates for which report_key() was not called.
    void report_lone_certificates() const;

private:
    struct Certificate {
        const PkoId* record;
        X509* x509;
    };
    X509* find_x509(const PkoId* record) const;

    KeyObserver* observer;
    const PkoIdList& list;
    const CertKeyUsageFilter& filter;
    std::vector<Certificate> certificates;
    std::unordered_set<std::string> reported; // cluster names
};

} // namespace Kes

#endif // KES_PKCS11_TOKEN_KEY_REPORT_H_
