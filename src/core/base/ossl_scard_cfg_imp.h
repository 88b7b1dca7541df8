#ifndef KES_BASE_OSSL_SCARD_CFG_IMP_H_
#define KES_BASE_OSSL_SCARD_CFG_IMP_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "marvo/ossl_scard_cfg.h"
#include "utils/cons_select_menu.h"

namespace Kes {

/// Returns "capi", "pkcs11" or "capi_store", and "unknown" for any other value.
std::string crypto_if_name(OsslScardCfg::CryptoIf crypto_if);

template <>
struct ConsSelectMenuTraits<OsslScardCfg::CryptoIf> {
    static std::string to_text(OsslScardCfg::CryptoIf object) { return crypto_if_name(object); }
    static constexpr const char* location =
        "cons_select_menu:143 Kes::ConsSelectMenu<enum Kes::OsslScardCfg::CryptoIf>::select()";
};

/// While an object of this class exists, the text setters of OsslScardCfgImp throw if they cannot store a
/// value. The library's own calls must fail in that case; a client's calls must not throw.
class ThrowingSetters {
public:
    ThrowingSetters() noexcept : before(is_active_) { is_active_ = true; }
    ~ThrowingSetters() { is_active_ = before; }
    ThrowingSetters(const ThrowingSetters&) = delete;
    ThrowingSetters& operator=(const ThrowingSetters&) = delete;

    static bool is_active() noexcept { return is_active_; }

private:
    static inline bool is_active_ = false; // clients use the library from one thread at a time
    const bool before;
};

/// A plain record of the seventeen settings. OsslScardCfg describes them.
class OsslScardCfgImp final : public OsslScardCfg {
public:
    static constexpr const char* csp_base_smart_card = "Microsoft Base Smart Card Crypto Provider";
    // Two more providers that clients use by name; nothing in the library needs them.
    static constexpr const char* csp_strong = "Microsoft Strong Cryptographic Provider";
    static constexpr const char* csp_it_solution = "IT Solution GmbH CSP";

    explicit OsslScardCfgImp(CryptoIf crypto_if_in) : crypto_if(crypto_if_in) {}

    void* destructor_entry(unsigned int flags) override;
    OsslScardCfg* clone() const override;
    void set_crypto_if(const CryptoIf& value) override { crypto_if = value; }
    const CryptoIf& get_crypto_if() const override { return crypto_if; }
    void set_capi_openssl_engine_dll(const char* value) override;
    const char* get_capi_openssl_engine_dll() const override { return capi_openssl_engine_dll.c_str(); }
    void set_capi_csp_name(const char* value) override;
    const char* get_capi_csp_name() const override { return capi_csp_name.c_str(); }
    void set_capi_key_type(unsigned int value) override { capi_key_type = value; }
    unsigned int get_capi_key_type() const override { return capi_key_type; }
    void set_pkcs11_openssl_engine_dll(const char* value) override;
    const char* get_pkcs11_openssl_engine_dll() const override { return pkcs11_openssl_engine_dll.c_str(); }
    void set_pkcs11_module_dll(const char* value) override;
    const char* get_pkcs11_module_dll() const override { return pkcs11_module_dll.c_str(); }
    void set_capi_store_openssl_engine_dll(const char* value) override;
    const char* get_capi_store_openssl_engine_dll() const override {
        return capi_store_openssl_engine_dll.c_str();
    }
    void set_capi_store_cert_store_name(const char* value) override;
    const char* get_capi_store_cert_store_name() const override { return capi_store_cert_store_name.c_str(); }
    void set_priv_key_name(const char* value) override;
    const char* get_priv_key_name() const override { return priv_key_name.c_str(); }
    void set_cert_name(const char* value) override;
    const char* get_cert_name() const override { return cert_name.c_str(); }
    void set_kuse_filter_type(unsigned int value) override { kuse_filter_type = value; }
    unsigned int get_kuse_filter_type() const override { return kuse_filter_type; }
    void set_kuse_filter(unsigned int value) override { kuse_filter = value; }
    unsigned int get_kuse_filter() const override { return kuse_filter; }
    void set_xkuse_filter_type(unsigned int value) override { xkuse_filter_type = value; }
    unsigned int get_xkuse_filter_type() const override { return xkuse_filter_type; }
    void set_xkuse_nid_filter(const char* value) override;
    const char* get_xkuse_nid_filter() const override { return xkuse_nid_filter.c_str(); }
    void set_logfile(const char* value) override;
    const char* get_logfile() const override { return logfile.c_str(); }
    void set_logfile_severity(unsigned int value) override { logfile_severity = value; }
    unsigned int get_logfile_severity() const override { return logfile_severity; }
    void enable_logfile_append() override { logfile_append = true; }
    void disable_logfile_append() override { logfile_append = false; }
    bool get_logfile_append() const override { return logfile_append; }
    char* get_crypto_if_description(CryptoIf value, char* buffer, size_t size) const override;
    char* dump_settings(char* buffer, size_t size) const override;
    int select_crypto_if_from_console(CryptoIf* selected) override;

    /// Same as load_settings_from_env() with this object. The library calls that function instead, because a
    /// client's configuration may be of another class.
    void load_from_env(const char* prefix);

    /// The library creates and destroys objects of this class in the ordinary way. Without these operators,
    /// the class would inherit the clients' operator delete, which calls destructor_entry().
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(void* object) { ::operator delete(object); }

private:
    void append_description(CryptoIf value, std::string& text) const;
    void append_settings(std::string& text) const;
    CryptoIf ask_for_crypto_if() const;

    CryptoIf crypto_if;
    std::string capi_openssl_engine_dll = ".\\capi.dll";
    std::string capi_csp_name = csp_base_smart_card;
    std::uint32_t capi_key_type = 2; // SIGNATURE
    std::string pkcs11_openssl_engine_dll = ".\\pkcs11.dll";
    std::string pkcs11_module_dll = "itp11.dll";
    std::string capi_store_openssl_engine_dll = ".\\capi.dll";
    std::string capi_store_cert_store_name = "MY";
    std::string priv_key_name;
    std::string cert_name;
    std::uint32_t kuse_filter_type = 0;
    std::uint32_t kuse_filter = 0;
    std::uint32_t xkuse_filter_type = 0;
    std::string xkuse_nid_filter;
    std::string logfile = "ossl_scard.log";
    std::uint32_t logfile_severity = 60; // info, warn, error and fatal
    bool logfile_append = false;
};

/// Owns a configuration that clone() returned, even if the code of another compiler created it.
struct ReleaseCfg {
    void operator()(OsslScardCfg* cfg) const noexcept { cfg->release(); }
};
using OsslScardCfgPtr = std::unique_ptr<OsslScardCfg, ReleaseCfg>;

/// Applies every environment variable prefix + key that is set and not empty, in a fixed order, and logs each
/// with severity debug. No value is an error: the name of an unknown back-end becomes 0, and so does a text
/// that is not a number. @throws std::bad_alloc if a value cannot be stored
void load_settings_from_env(OsslScardCfg& cfg, const char* prefix);

} // namespace Kes

#endif // KES_BASE_OSSL_SCARD_CFG_IMP_H_
