#ifndef KES_TESTS_SUPPORT_EXPECTED_LOG_H_
#define KES_TESTS_SUPPORT_EXPECTED_LOG_H_

#include <string>

/// Parts of the log of a whole run, without the lines' headers. Each ends with a line end.
namespace Kes::test {

/// The first lines. The build's date is "BUILD".
inline const std::string manager_started = R"(<info> using OpenSSL smart card interface version 4
<info> ossl_scard 4.3.0
Compiled at BUILD
Copyright (c) 2026 the maintainers of libmarvo
<info> OpenSSL smart card manager started.
)";

/// Of version_check(4).
inline const std::string version_checked = R"(<info> called: Kes::OsslScardIfImp::version_check()
<info> interface version check successful: specified=4, expected=4
)";

/// What a dump shows of the settings: the defaults, and a log of all severities in LOGFILE.
struct ShownSettings {
    std::string crypto_if = "pkcs11";
    std::string capi_engine = ".\\capi.dll";
    std::string capi_csp = "Microsoft Base Smart Card Crypto Provider";
    std::string capi_key_type = "SIGNATURE";
    std::string pkcs11_engine = ".\\pkcs11.dll";
    std::string pkcs11_module = "itp11.dll";
    std::string priv_key_name = "";
    std::string cert_name = "";
    std::string key_usages = "none";
    std::string logfile = "LOGFILE";
    std::string severity = "trace|debug|info|warn|error|fatal";
    std::string append = "false";
    std::string state = "initialized";
    std::string pin = "false"; ///< is one required, and is there one
    std::string reload = "false";
};

/// The dump of a configuration, and that of the manager in the log.
std::string dumped_settings(const ShownSettings& shown);
std::string logged_settings(const ShownSettings& shown);

struct ShownToken {
    std::string slot; ///< "manufacturer=..., description=..."
    std::string label;
    std::string manufacturer;
    std::string model;
    std::string serial;
};

/// Of read_scard() with a token that needs a login.
std::string logged_reading(const ShownToken& token);

/// Of set_pin() and the beginning of discover_keys(), up to the login. The scanners show at trace only.
std::string logged_scan_start(bool has_traces);

/// Of a certificate's key usage.
struct ShownUsage {
    std::string key_usage;
    std::string key_usage_mask; ///< in hexadecimal
    std::string ext_key_usage;
    std::string ext_key_usage_mask;
    std::string purposes;
};
std::string logged_usage(const ShownUsage& usage);

/// Of the checks of a key that may be offered.
inline const std::string usage_passed = R"(<info> key usage check returned: 1
<info> extended key usage check returned: 1
)";

/// Of a scan after the login, of a token with one key and its certificate.
/// @param id  as in URIs
std::string logged_scan(const std::string& token_label, const std::string& label, const std::string& id,
                        const ShownUsage& usage);

/// Of the selection of a key, whichever operation it is made with.
std::string logged_selection(const std::string& key_type, const std::string& priv_key_name,
                             const std::string& cert_name);

/// Of a certificate that was loaded.
std::string logged_certificate(const std::string& subject, const std::string& issuer);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_EXPECTED_LOG_H_
