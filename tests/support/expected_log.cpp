#include "expected_log.h"

#include <utility>
#include <vector>

namespace Kes::test {
namespace {

/// Replaces the names in the text with their values. No value may contain a name.
std::string filled(std::string text, const std::vector<std::pair<std::string, std::string>>& values) {
    for (const auto& [name, value] : values)
        for (auto at = text.find(name); at != std::string::npos; at = text.find(name, at + value.size()))
            text.replace(at, name.size(), value);
    return text;
}

} // namespace

std::string dumped_settings(const ShownSettings& shown) {
    return filled(R"(configuration settings:
  crypto_if=$crypto_if
  capi_openssl_engine_dll=$capi_engine
  capi_csp_name=$capi_csp
  capi_key_type=$capi_key_type
  pkcs11_openssl_engine_dll=$pkcs11_engine
  pkcs11_module_dll=$pkcs11_module
  capi_store_openssl_engine_dll=$capi_engine
  capi_store_cert_store_name=MY
  priv_key_name=$priv_key_name
  cert_name=$cert_name
  kuse_filter_type=all
  kuse_filter=$key_usages
  xkuse_filter_type=all
  xkuse_nid_filter=
  logfile=$logfile
  logfile_severity=$severity
  logfile_append=$append
)",
                  {{"$crypto_if", shown.crypto_if},
                   {"$capi_engine", shown.capi_engine},
                   {"$capi_csp", shown.capi_csp},
                   {"$capi_key_type", shown.capi_key_type},
                   {"$pkcs11_engine", shown.pkcs11_engine},
                   {"$pkcs11_module", shown.pkcs11_module},
                   {"$priv_key_name", shown.priv_key_name},
                   {"$cert_name", shown.cert_name},
                   {"$key_usages", shown.key_usages},
                   {"$logfile", shown.logfile},
                   {"$severity", shown.severity},
                   {"$append", shown.append}});
}

std::string logged_settings(const ShownSettings& shown) {
    return "<info> OpenSSL smart card manager settings:\n" + dumped_settings(shown) +
           filled(R"(additional settings:
  cfg_state=$state
  is_pin_required=$pin
  pin specified=$pin
  need_ossl_reload=$reload
)",
                  {{"$state", shown.state}, {"$pin", shown.pin}, {"$reload", shown.reload}});
}

std::string logged_reading(const ShownToken& token) {
    return filled(R"(<info> called: Kes::OsslScardIfImp::read_scard()
<info> slot: $slot
<info> token:
<info>   label:         $label
<info>   manufacturer:  $manufacturer
<info>   model:         $model
<info>   serialnr:      $serial
<info>   loginRequired: 1
<info>   secureLogin:   0
<info> libp11 read smart card
)",
                  {{"$slot", token.slot},
                   {"$label", token.label},
                   {"$manufacturer", token.manufacturer},
                   {"$model", token.model},
                   {"$serial", token.serial}});
}

std::string logged_scan_start(bool has_traces) {
    return std::string(R"(<info> called: Kes::OsslScardIfImp::is_pin_required()
<info> called: Kes::OsslScardIfImp::set_pin()
<info> setting pin
<info> called: Kes::OsslScardIfImp::discover_keys()
)") +
           (has_traces ? "<trace> created PkoIdScanner object\n"
                         "<trace> created Pkcs11Libp11PkoIdScanner object\n"
                       : "") +
           "<info> started scanning of PKCS#11 objects\n<info> pin required - need login\n";
}

std::string logged_usage(const ShownUsage& usage) {
    return "<info> key usage:\n  _kuse_mask=\"" + usage.key_usage + "\" (" + usage.key_usage_mask +
           ")\n  _xkuse_mask=\"" + usage.ext_key_usage + "\" (" + usage.ext_key_usage_mask +
           ")\n  _xkuse_nid_list=\"" + usage.purposes + "\"\n";
}

std::string logged_scan(const std::string& token_label, const std::string& label, const std::string& id,
                        const ShownUsage& usage) {
    const auto record = [&](const std::string& type, const std::string& uri_type) {
        return token_label + ": " + label + " [type=" + type +
               ", key_type=0, name=pkcs11:token=" + token_label + ";id=" + id + ";type=" + uri_type +
               ", cluster_name=" + id + "]\n";
    };
    const std::string certificate = record("certificate", "cert");
    const std::string private_key = record("private_key", "private");
    const std::string public_key = record("public_key", "public");
    return "<info> logged-in successfully\n<info> handling " + certificate + "<info> handling " +
           private_key + "<info>   corresponding cert:\n" + certificate + logged_usage(usage) + usage_passed +
           "<info> handling " + public_key + "<info> finished scanning of PKCS#11 objects\n<info> " +
           certificate + private_key + public_key;
}

std::string logged_selection(const std::string& key_type, const std::string& priv_key_name,
                             const std::string& cert_name) {
    return "<info> setting key type: " + key_type + "\n<info> setting private key name: " + priv_key_name +
           "\n<info> setting certificate name: " + cert_name + "\n";
}

std::string logged_certificate(const std::string& subject, const std::string& issuer) {
    return "<info> certificate info:\n<info>   subject: " + subject + "\n<info>   issuer:  " + issuer + "\n";
}

} // namespace Kes::test
