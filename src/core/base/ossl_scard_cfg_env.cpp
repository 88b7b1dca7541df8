#include <array>
#include <cstdlib>
#include <limits>
#include <string>

#include "base/capi_key_type.h"
#include "base/cfg_reader.h"
#include "base/env_settings.h"
#include "base/ossl_scard_cfg_imp.h"
#include "utils/cert_key_usage.h"
#include "utils/helper.h"
#include "utils/logger.h"

namespace Kes {
namespace {

using Cfg = OsslScardCfg;

/// One environment variable: its key, the name of the setting, the kind of its value, the label of its log
/// line, the function that stores its text, and the function that returns the stored value for the log.
struct EnvSetting {
    const char* key;
    const char* setting;
    EnvValue value;
    const char* label;
    void (*store)(Cfg& cfg, const std::string& text);
    std::string (*show)(const CfgReader& cfg);
};

constexpr std::array<Cfg::CryptoIf, 3> crypto_ifs{Cfg::capi, Cfg::pkcs11, Cfg::capi_store};

Cfg::CryptoIf parse_crypto_if(const std::string& text) {
    for (const auto value : crypto_ifs)
        if (text == crypto_if_name(value)) return value;
    return static_cast<Cfg::CryptoIf>(0);
}

unsigned int parse_number(const std::string& text) { return parse_env_number(text).value; }

template <auto Set>
void store_text(Cfg& cfg, const std::string& text) {
    (cfg.*Set)(text.c_str());
}

template <auto Set>
void store_number(Cfg& cfg, const std::string& text) {
    (cfg.*Set)(parse_number(text));
}

template <auto Get>
std::string show_text(const CfgReader& cfg) {
    return (cfg.*Get)();
}

template <auto Get>
std::string show_filter_type(const CfgReader& cfg) {
    return filter_type_name(static_cast<FilterType>((cfg.*Get)()));
}

void store_crypto_if(Cfg& cfg, const std::string& text) { cfg.set_crypto_if(parse_crypto_if(text)); }

std::string show_crypto_if(const CfgReader& cfg) { return crypto_if_name(cfg.get_crypto_if()); }

std::string show_capi_key_type(const CfgReader& cfg) { return capi_key_type_name(cfg.get_capi_key_type()); }

std::string show_kuse_filter(const CfgReader& cfg) { return key_usage_mask_name(cfg.get_kuse_filter()); }

std::string show_logfile_severity(const CfgReader& cfg) {
    return severity_mask_name(cfg.get_logfile_severity());
}

void store_logfile_append(Cfg& cfg, const std::string& text) {
    if (parse_number(text) != 0)
        cfg.enable_logfile_append();
    else
        cfg.disable_logfile_append();
}

std::string show_logfile_append(const CfgReader& cfg) { return cfg.get_logfile_append() ? "true" : "false"; }

// Some keys and labels differ from the names of the settings. They are kept, because existing environments
// and log readers depend on them.
constexpr std::array<EnvSetting, 17> env_settings{{
    {"crypto_if", "crypto_if", EnvValue::back_end, "env: crypto_if=", store_crypto_if, show_crypto_if},
    {"capi_openssl_engine_dll", "capi_openssl_engine_dll", EnvValue::text, "env: capi_openssl_engine_dll=",
     store_text<&Cfg::set_capi_openssl_engine_dll>, show_text<&CfgReader::get_capi_openssl_engine_dll>},
    {"capi_csp_name", "capi_csp_name", EnvValue::text,
     "env: capi_csp_name=", store_text<&Cfg::set_capi_csp_name>, show_text<&CfgReader::get_capi_csp_name>},
    {"capi_key_type", "capi_key_type", EnvValue::number,
     "env: capi_key_type=", store_number<&Cfg::set_capi_key_type>, show_capi_key_type},
    {"pkcs11_openssl_engine_dll", "pkcs11_openssl_engine_dll", EnvValue::text,
     "env: pkcs11_openssl_engine_dll=", store_text<&Cfg::set_pkcs11_openssl_engine_dll>,
     show_text<&CfgReader::get_pkcs11_openssl_engine_dll>},
    {"pkcs11_module_dll", "pkcs11_module_dll", EnvValue::text, "env: pkcs11_module_dll=",
     store_text<&Cfg::set_pkcs11_module_dll>, show_text<&CfgReader::get_pkcs11_module_dll>},
    {"capi_store_openssl_engine_dll", "capi_store_openssl_engine_dll", EnvValue::text,
     "env: capi_store_openssl_engine_dll=", store_text<&Cfg::set_capi_store_openssl_engine_dll>,
     show_text<&CfgReader::get_capi_store_openssl_engine_dll>},
    {"capi_store_cert_store_name", "capi_store_cert_store_name", EnvValue::text,
     "env: capi_store_cert_store_name=", store_text<&Cfg::set_capi_store_cert_store_name>,
     show_text<&CfgReader::get_capi_store_cert_store_name>},
    {"priv_key_name", "priv_key_name", EnvValue::text,
     "env: priv_key_name=", store_text<&Cfg::set_priv_key_name>, show_text<&CfgReader::get_priv_key_name>},
    {"cert_name", "cert_name", EnvValue::text, "env: cert_name=", store_text<&Cfg::set_cert_name>,
     show_text<&CfgReader::get_cert_name>},
    {"key_usage_filter_type", "kuse_filter_type", EnvValue::number, "env: key_usage_filter_type=",
     store_number<&Cfg::set_kuse_filter_type>, show_filter_type<&CfgReader::get_kuse_filter_type>},
    {"key_usage_filter", "kuse_filter", EnvValue::number,
     "env: key_usage_filter=", store_number<&Cfg::set_kuse_filter>, show_kuse_filter},
    {"ext_key_usage_filter_type", "xkuse_filter_type", EnvValue::number, "env: ext_key_usage_filter_type=",
     store_number<&Cfg::set_xkuse_filter_type>, show_filter_type<&CfgReader::get_xkuse_filter_type>},
    {"ext_key_usage_filter", "xkuse_nid_filter", EnvValue::text, "env: ext_key_usage_filter=",
     store_text<&Cfg::set_xkuse_nid_filter>, show_text<&CfgReader::get_xkuse_nid_filter>},
    {"logfile", "logfile", EnvValue::text, "env: logfile=", store_text<&Cfg::set_logfile>,
     show_text<&CfgReader::get_logfile>},
    {"logfile_severity", "logfile_severity", EnvValue::number,
     "env: log_severity=", store_number<&Cfg::set_logfile_severity>, show_logfile_severity},
    {"logfile_append", "logfile_append", EnvValue::number, "env: log_append=", store_logfile_append,
     show_logfile_append},
}};

} // namespace

std::vector<EnvKey> list_env_keys() {
    std::vector<EnvKey> keys;
    keys.reserve(env_settings.size());
    for (const EnvSetting& setting : env_settings)
        keys.push_back({setting.key, setting.setting, setting.value});
    return keys;
}

std::vector<std::string> list_back_ends() {
    std::vector<std::string> names;
    names.reserve(crypto_ifs.size());
    for (const auto value : crypto_ifs)
        names.push_back(crypto_if_name(value));
    return names;
}

/// Converts a text like strtoul() on a system where unsigned long has 32 bits: a positive number that is too
/// large becomes the largest value, and a negative number wraps around. C runtimes disagree about a negative
/// number that is too large; here it becomes the largest value, too.
EnvNumber parse_env_number(const std::string& text) {
    constexpr int any_base = 0; // decimal, hexadecimal after 0x, octal after 0
    constexpr unsigned long long largest = std::numeric_limits<unsigned int>::max();
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, any_base);
    const std::size_t sign = text.find_first_not_of(" \t\n\v\f\r");
    const bool is_negative = sign != std::string::npos && text[sign] == '-';
    const unsigned long long magnitude = is_negative ? 0 - value : value;
    const bool is_whole = end != text.c_str() && *end == '\0' && !is_negative && magnitude <= largest;
    return {static_cast<unsigned int>(magnitude > largest ? largest : value), is_whole};
}

void load_settings_from_env(OsslScardCfg& cfg, const char* prefix) {
    const ThrowingSetters throwing_setters;
    for (const EnvSetting& setting : env_settings) {
        const std::string text = Helper::get_env(std::string(prefix) + setting.key);
        if (text.empty()) continue;
        setting.store(cfg, text);
        if (Logger::instance().is_enabled(Severity::debug))
            log_debug(setting.label, setting.show(CfgReader(cfg)));
    }
}

} // namespace Kes
