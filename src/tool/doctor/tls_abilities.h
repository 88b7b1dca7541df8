#ifndef KES_TOOL_DOCTOR_TLS_ABILITIES_H_
#define KES_TOOL_DOCTOR_TLS_ABILITIES_H_

#include <string>
#include <vector>

#include "tool/doctor/checks.h"

/// What TLS can do with the keys of a back-end.
namespace Kes::tool {

/// The versions that OpenSSL uses unless the client sets others; 0 for no limit.
struct TlsDefaults {
    int min_version;
    int max_version;
};

/// Reads them from a new SSL_CTX, to which OpenSSL has applied its configuration file.
TlsDefaults read_tls_defaults();

/// The lines of the report about the offered keys.
Findings judge_tls(OsslScardCfg::CryptoIf crypto_if, const std::vector<SurveyedKey>& keys);

/// The line about a version that the keys of the back-end cannot serve; none if all of them can be served.
Findings judge_tls_defaults(OsslScardCfg::CryptoIf crypto_if, const TlsDefaults& defaults);

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_TLS_ABILITIES_H_
