#include "capi/capi_key_report.h"

#include <openssl/x509.h>

#include "utils/ossl_ptr.h"

namespace Kes {

void report_key(KeyObserver& observer, const PkoId& record, const std::vector<unsigned char>& der,
                const CertKeyUsage& key_usage, KeyVerdict verdict) {
    const unsigned char* next = der.data();
    const X509Ptr certificate(::d2i_X509(nullptr, &next, static_cast<long>(der.size())));
    observer.found_key({record, certificate.get(), &key_usage, verdict});
}

} // namespace Kes
