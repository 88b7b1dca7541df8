#ifndef KES_CAPI_CAPI_KEY_REPORT_H_
#define KES_CAPI_CAPI_KEY_REPORT_H_

#include <vector>

#include "base/key_observer.h"

namespace Kes {

/// Tells an observer of a key that a scan of CryptoAPI found.
/// @param der  the certificate of the key
void report_key(KeyObserver& observer, const PkoId& record, const std::vector<unsigned char>& der,
                const CertKeyUsage& key_usage, KeyVerdict verdict);

} // namespace Kes

#endif // KES_CAPI_CAPI_KEY_REPORT_H_
