#include "base/ossl_scard_cfg_imp.h"

#include <array>

#include "base/capi_key_type.h"
#include "utils/cert_key_usage.h"
#include "utils/error.h"
#include "utils/exception_guard.h"
#include "utils/helper.h"
#include "utils/logger.h"

namespace Kes {
namespace {

/// Appends the parts one by one. If memory runs out, the text keeps the parts appended so far.
template <typename... Parts>
void append(std::string& text, const Parts&... parts) {
    (text.append(parts), ...);
}

/// Stores a text setting. If memory runs out, a client's call keeps the old value and logs an error. The
/// library's own calls throw; see ThrowingSetters.
void store(std::string& setting, const char* value, const char* name) {
    // Constructs the new value first, so that the old one stays if this throws.
    const auto assign = [&] { setting = std::string(Helper::text_or_empty(value)); };
    if (ThrowingSetters::is_active()) return assign();
    guarded(assign, [&](int, const char* message) {
        log_error("setting ", name, " keeps its old value: ", message);
    });
}

} // namespace

std::string crypto_if_name(OsslScardCfg::CryptoIf crypto_if) {
    switch (crypto_if) {
    case OsslScardCfg::capi:
        return "capi";
    case OsslScardCfg::pkcs11:
        return "pkcs11";
    case OsslScardCfg::capi_store:
        return "capi_store";
    }
    return "unknown";
}

void* OsslScardCfgImp::destructor_entry(unsigned int flags) {
    // Compilers whose table has a single entry for a destructor pass flags to it. Bit 0 requests that the
    // memory be freed, too.
    if ((flags & 1U) != 0)
        delete this;
    else
        this->~OsslScardCfgImp();
    return this;
}

OsslScardCfg* OsslScardCfgImp::clone() const {
    OsslScardCfg* copy = nullptr;
    guarded([&] { copy = new OsslScardCfgImp(*this); },
            [](int, const char* message) { log_error("configuration cannot be cloned: ", message); });
    return copy;
}

void OsslScardCfgImp::set_capi_openssl_engine_dll(const char* value) {
    store(capi_openssl_engine_dll, value, "capi_openssl_engine_dll");
}

void OsslScardCfgImp::set_capi_csp_name(const char* value) { store(capi_csp_name, value, "capi_csp_name"); }

void OsslScardCfgImp::set_pkcs11_openssl_engine_dll(const char* value) {
    store(pkcs11_openssl_engine_dll, value, "pkcs11_openssl_engine_dll");
}

void OsslScardCfgImp::set_pkcs11_module_dll(const char* value) {
    store(pkcs11_module_dll, value, "pkcs11_module_dll");
}

void OsslScardCfgImp::set_capi_store_openssl_engine_dll(const char* value) {
    store(capi_store_openssl_engine_dll, value, "capi_store_openssl_engine_dll");
}

void OsslScardCfgImp::set_capi_store_cert_store_name(const char* value) {
    store(capi_store_cert_store_name, value, "capi_store_cert_store_name");
}

void OsslScardCfgImp::set_priv_key_name(const char* value) { store(priv_key_name, value, "priv_key_name"); }

void OsslScardCfgImp::set_cert_name(const char* value) { store(cert_name, value, "cert_name"); }

void OsslScardCfgImp::set_xkuse_nid_filter(const char* value) {
    store(xkuse_nid_filter, value, "xkuse_nid_filter");
}

void OsslScardCfgImp::set_logfile(const char* value) { store(logfile, value, "logfile"); }

char* OsslScardCfgImp::get_crypto_if_description(CryptoIf value, char* buffer, size_t size) const {
    std::string text;
    guarded([&] { append_description(value, text); },
            [](int, const char* message) { log_error("description is cut: ", message); });
    return Helper::copy_to_buffer(text, buffer, size);
}

char* OsslScardCfgImp::dump_settings(char* buffer, size_t size) const {
    std::string text;
    guarded([&] { append_settings(text); },
            [](int, const char* message) { log_error("settings dump is cut: ", message); });
    return Helper::copy_to_buffer(text, buffer, size);
}

void OsslScardCfgImp::load_from_env(const char* prefix) { load_settings_from_env(*this, prefix); }

void OsslScardCfgImp::append_description(CryptoIf value, std::string& text) const {
    switch (value) {
    case capi:
        append(text, "capi (MS CryptoAPI with csp '", capi_csp_name, "')");
        break;
    case pkcs11:
        append(text, "pkcs11 (PKCS#11 with module '", pkcs11_module_dll, "')");
        break;
    case capi_store:
        append(text, "capi_store (MS CryptoAPI using Windows Cert Store)");
        break;
    }
}

void OsslScardCfgImp::append_settings(std::string& text) const {
    append(text, "configuration settings:\n");
    append(text, "  crypto_if=", crypto_if_name(crypto_if), "\n");
    append(text, "  capi_openssl_engine_dll=", capi_openssl_engine_dll, "\n");
    append(text, "  capi_csp_name=", capi_csp_name, "\n");
    append(text, "  capi_key_type=", capi_key_type_name(capi_key_type), "\n");
    append(text, "  pkcs11_openssl_engine_dll=", pkcs11_openssl_engine_dll, "\n");
    append(text, "  pkcs11_module_dll=", pkcs11_module_dll, "\n");
    append(text, "  capi_store_openssl_engine_dll=", capi_store_openssl_engine_dll, "\n");
    append(text, "  capi_store_cert_store_name=", capi_store_cert_store_name, "\n");
    append(text, "  priv_key_name=", priv_key_name, "\n");
    append(text, "  cert_name=", cert_name, "\n");
    append(text, "  kuse_filter_type=", filter_type_name(static_cast<FilterType>(kuse_filter_type)), "\n");
    append(text, "  kuse_filter=", key_usage_mask_name(kuse_filter), "\n");
    append(text, "  xkuse_filter_type=", filter_type_name(static_cast<FilterType>(xkuse_filter_type)), "\n");
    append(text, "  xkuse_nid_filter=", xkuse_nid_filter, "\n");
    append(text, "  logfile=", logfile, "\n");
    append(text, "  logfile_severity=", severity_mask_name(logfile_severity), "\n");
    append(text, "  logfile_append=", logfile_append ? "true" : "false", "\n");
}

OsslScardCfg::CryptoIf OsslScardCfgImp::ask_for_crypto_if() const {
    constexpr auto none = static_cast<CryptoIf>(0);
    std::array<char, 4096> buffer{};
    const auto text = [&](CryptoIf value) {
        return std::string(get_crypto_if_description(value, buffer.data(), buffer.size()));
    };
    const ConsSelectMenu<CryptoIf> menu("Please select cryptographic API interface:",
                                        {{'c', capi, text(capi)},
                                         {'p', pkcs11, text(pkcs11)},
                                         {'s', capi_store, text(capi_store)},
                                         {'.', none, "exit"}});
    const auto item = menu.select();
    if (item.key == '.')
        throw Error(ErrorCodeType::user_abort, "user abort",
                    "ossl_scard_cfg_imp:371 Kes::OsslScardCfgImp::select_crypto_if_from_console()");
    return item.object;
}

int OsslScardCfgImp::select_crypto_if_from_console(CryptoIf* selected) {
    return guarded(
        [&] {
            if (selected == nullptr)
                throw Error(ErrorCodeType::bad_argument, "selected is a null pointer",
                            "ossl_scard_cfg_imp:352 Kes::OsslScardCfgImp::select_crypto_if_from_console()");
            *selected = ask_for_crypto_if();
        },
        [](int, const char* message) { log_error(message); });
}

} // namespace Kes
