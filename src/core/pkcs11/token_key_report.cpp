#include "pkcs11/token_key_report.h"

#include <algorithm>

namespace Kes {

void TokenKeyReport::add_certificate(const PkoId* record, X509* x509) {
    if (observer != nullptr) certificates.push_back({record, x509});
}

void TokenKeyReport::report_key(const PkoId& private_key, KeyVerdict verdict) {
    if (observer == nullptr) return;
    reported.insert(private_key.cluster_name);
    const PkoId* cert = list.find_matching(PkoType::certificate, &private_key);
    observer->found_key(
        {private_key, find_x509(cert), cert == nullptr ? nullptr : cert->key_usage.get(), verdict});
}

void TokenKeyReport::report_lone_certificates() const {
    for (const Certificate& certificate : certificates) {
        const PkoId& record = *certificate.record;
        if (reported.contains(record.cluster_name)) continue;
        const KeyVerdict verdict =
            record.key_usage ? key_verdict(filter.judge(*record.key_usage)) : KeyVerdict::no_key_usage;
        observer->found_lone_certificate({record, certificate.x509, record.key_usage.get(), verdict});
    }
}

X509* TokenKeyReport::find_x509(const PkoId* record) const {
    const auto found = std::find_if(certificates.begin(), certificates.end(),
                                    [&](const Certificate& cert) { return cert.record == record; });
    return found == certificates.end() ? nullptr : found->x509;
}

} // namespace Kes
