#include "base/ossl_scard_cfg_imp.h"

#include <array>
#include <sstream>

#include "base/capi_key_type.h"
#include "utils/cert_key_usage.h"
#include "utils/error.h"
#include "utils/exception_guard.h"
#include "utils/helper.h"
#include "utils/logger.h"

namespace Kes {
namespace {

std::string text_of(const char* value) { return value == nullptr ? "" : value; }

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
    // The convention of the compilers that have one entry for a destructor: bit 0 asks for the memory to be
    // freed.
    if ((flags & 1U) != 0)
        delete this;
    else
        this->~OsslScardCfgImp();
    return this;
}

OsslScardCfg* OsslScardCfgImp::clone() const { return new OsslScardCfgImp(*this); }

void OsslScardCfgImp::set_capi_openssl_engine_dll(const char* value) {
    capi_openssl_engine_dll = text_of(value);
}

void OsslScardCfgImp::set_capi_csp_name(const char* value) { capi_csp_name = text_of(value); }

void OsslScardCfgImp::set_pkcs11_openssl_engine_dll(const char* value) {
    pkcs11_openssl_engine_dll = text_of(value);
}

void OsslScardCfgImp::set_pkcs11_module_dll(const char* value) { pkcs11_module_dll = text_of(value); }

void OsslScardCfgImp::set_capi_store_openssl_engine_dll(const char* value) {
    capi_store_openssl_engine_dll = text_of(value);
}

void OsslScardCfgImp::set_capi_store_cert_store_name(const char* value) {
    capi_store_cert_store_name = text_of(value);
}

void OsslScardCfgImp::set_priv_key_name(const char* value) { priv_key_name = text_of(value); }

void OsslScardCfgImp::set_cert_name(const char* value) { cert_name = text_of(value); }

void OsslScardCfgImp::set_xkuse_nid_filter(const char* value) { xkuse_nid_filter = text_of(value); }

void OsslScardCfgImp::set_logfile(const char* value) { logfile = text_of(value); }

char* OsslScardCfgImp::get_crypto_if_description(CryptoIf value, char* buffer, size_t size) const {
    return Helper::copy_to_buffer(description(value), buffer, size);
}

char* OsslScardCfgImp::dump_settings(char* buffer, size_t size) const {
    return Helper::copy_to_buffer(settings_text(), buffer, size);
}

void OsslScardCfgImp::load_from_env(const char* prefix) { load_settings_from_env(*this, prefix); }

std::string OsslScardCfgImp::description(CryptoIf value) const {
    switch (value) {
    case capi:
        return "capi (MS CryptoAPI with csp '" + capi_csp_name + "')";
    case pkcs11:
        return "pkcs11 (PKCS#11 with module '" + pkcs11_module_dll + "')";
    case capi_store:
        return "capi_store (MS CryptoAPI using Windows Cert Store)";
    }
    return "";
}

std::string OsslScardCfgImp::settings_text() const {
    std::ostringstream text;
    text << "configuration settings:\n"
         << "  crypto_if=" << crypto_if_name(crypto_if) << '\n'
         << "  capi_openssl_engine_dll=" << capi_openssl_engine_dll << '\n'
         << "  capi_csp_name=" << capi_csp_name << '\n'
         << "  capi_key_type=" << capi_key_type_name(capi_key_type) << '\n'
         << "  pkcs11_openssl_engine_dll=" << pkcs11_openssl_engine_dll << '\n'
         << "  pkcs11_module_dll=" << pkcs11_module_dll << '\n'
         << "  capi_store_openssl_engine_dll=" << capi_store_openssl_engine_dll << '\n'
         << "  capi_store_cert_store_name=" << capi_store_cert_store_name << '\n'
         << "  priv_key_name=" << priv_key_name << '\n'
         << "  cert_name=" << cert_name << '\n'
         << "  kuse_filter_type=" << filter_type_name(static_cast<FilterType>(kuse_filter_type)) << '\n'
         << "  kuse_filter=" << key_usage_mask_name(kuse_filter) << '\n'
         << "  xkuse_filter_type=" << filter_type_name(static_cast<FilterType>(xkuse_filter_type)) << '\n'
         << "  xkuse_nid_filter=" << xkuse_nid_filter << '\n'
         << "  logfile=" << logfile << '\n'
         << "  logfile_severity=" << severity_mask_name(logfile_severity) << '\n'
         << "  logfile_append=" << (logfile_append ? "true" : "false") << '\n';
    return text.str();
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
