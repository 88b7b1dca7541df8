#ifndef KES_BASE_CFG_READER_H_
#define KES_BASE_CFG_READER_H_

#include "marvo/ossl_scard_cfg.h"
#include "utils/text_helper.h"

namespace Kes {

/// Reads the settings of a configuration. The text getters of a client's own configuration class may return
/// null; this class then returns "". The library reads every text setting through it.
class CfgReader {
public:
    /// @param cfg_in  borrowed; must outlive this object
    explicit CfgReader(const OsslScardCfg& cfg_in) noexcept : cfg(cfg_in) {}

    OsslScardCfg::CryptoIf get_crypto_if() const { return cfg.get_crypto_if(); }
    const char* get_capi_openssl_engine_dll() const { return text(cfg.get_capi_openssl_engine_dll()); }
    const char* get_capi_csp_name() const { return text(cfg.get_capi_csp_name()); }
    unsigned int get_capi_key_type() const { return cfg.get_capi_key_type(); }
    const char* get_pkcs11_openssl_engine_dll() const { return text(cfg.get_pkcs11_openssl_engine_dll()); }
    const char* get_pkcs11_module_dll() const { return text(cfg.get_pkcs11_module_dll()); }
    const char* get_capi_store_openssl_engine_dll() const {
        return text(cfg.get_capi_store_openssl_engine_dll());
    }
    const char* get_capi_store_cert_store_name() const { return text(cfg.get_capi_store_cert_store_name()); }
    const char* get_priv_key_name() const { return text(cfg.get_priv_key_name()); }
    const char* get_cert_name() const { return text(cfg.get_cert_name()); }
    unsigned int get_kuse_filter_type() const { return cfg.get_kuse_filter_type(); }
    unsigned int get_kuse_filter() const { return cfg.get_kuse_filter(); }
    unsigned int get_xkuse_filter_type() const { return cfg.get_xkuse_filter_type(); }
    const char* get_xkuse_nid_filter() const { return text(cfg.get_xkuse_nid_filter()); }
    const char* get_logfile() const { return text(cfg.get_logfile()); }
    unsigned int get_logfile_severity() const { return cfg.get_logfile_severity(); }
    bool get_logfile_append() const { return cfg.get_logfile_append(); }

private:
    static const char* text(const char* value) noexcept { return TextHelper::text_or_empty(value); }

    const OsslScardCfg& cfg;
};

} // namespace Kes

#endif // KES_BASE_CFG_READER_H_
