#ifndef KES_TESTS_SUPPORT_EXPECTED_LOG_H_
#define KES_TESTS_SUPPORT_EXPECTED_LOG_H_

#include <string>

/// Parts of a complete log, without the headers of the lines. Each part ends with a line end.
namespace Kes::test {

/// The first lines of a log, with "BUILD" in place of the build date.
inline const std::string manager_started = R"(<info> using OpenSSL smart card interface version 4
<info> ossl_scard 4.3.0
Compiled at BUILD
Copyright (c) 2026 the maintainers of libmarvo
<info> OpenSSL smart card manager started.
)";

/// Logged by version_check(4).
inline const std::string version_checked = R"(<info> called: Kes::OsslScardIfImp::version_check()
<info> interface version check successful: specified=4, expected=4
)";

/// The settings as a dump shows them. Initially the defaults, with a log of all severities in LOGFILE.
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
    std::string pin = "false"; ///< both whether a PIN is required and whether one is set
    std::string reload = "false";
};

/// The dump of a configuration.
std::string dumped_settings(const ShownSettings& shown);

/// The manager's dump in the log.
std::string logged_settings(const ShownSettings& shown);

struct ShownToken {
    std::string slot; ///< "manufacturer=..., description=..."
    std::string label;
    std::string manufacturer;
    std::string model;
    std::string serial;
};

/// Logged by read_scard() for a token that requires a login.
std::string logged_reading(const ShownToken& token);

/// Logged by set_pin() and discover_keys(), up to the login.
/// @param has_traces  whether the lines of severity trace are included
std::string logged_scan_start(bool has_traces);

/// The key usage of a certificate.
struct ShownUsage {
    std::string key_usage;
    std::string key_usage_mask; ///< in hexadecimal
    std::string ext_key_usage;
    std::string ext_key_usage_mask;
    std::string purposes;
};
std::string logged_usage(const ShownUsage& usage);

/// Logged for a key that passes both usage checks.
inline const std::string usage_passed = R"(<info> key usage check returned: 1
<info> extended key usage check returned: 1
)";

/// Logged by the scan after the login, for a token with one key and its certificate.
/// @param id  percent-encoded, as in URIs
std::string logged_scan(const std::string& token_label, const std::string& label, const std::string& id,
                        const ShownUsage& usage);

/// Logged when a key is selected, by any of the operations.
std::string logged_selection(const std::string& key_type, const std::string& priv_key_name,
                             const std::string& cert_name);

/// Logged for a loaded certificate.
std::string logged_certificate(const std::string& subject, const std::string& issuer);

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_EXPECTED_LOG_H_
