#ifndef KES_TESTS_SUPPORT_CLIENT_CFG_H_
#define KES_TESTS_SUPPORT_CLIENT_CFG_H_

#include <cstring>
#include <functional>
#include <string>

#include "marvo/ossl_scard_cfg.h"

namespace Kes::test {

/// A client's own implementation of the configuration, which shares no code with the library's. Clones copy
/// the on_... callbacks.
class ClientCfg final : public OsslScardCfg {
public:
    void* destructor_entry(unsigned int flags) override {
        if ((flags & 1U) != 0)
            ::delete this;
        else
            this->~ClientCfg();
        return this;
    }
    OsslScardCfg* clone() const override {
        on_clone();
        if (!is_clonable) return nullptr;
        return ::new ClientCfg(*this);
    }
    void set_crypto_if(const CryptoIf& value) override { crypto_if = value; }
    const CryptoIf& get_crypto_if() const override {
        ++num_reads;
        return crypto_if;
    }
    void set_capi_openssl_engine_dll(const char* value) override { texts[0] = value; }
    const char* get_capi_openssl_engine_dll() const override { return text(0); }
    void set_capi_csp_name(const char* value) override { texts[1] = value; }
    const char* get_capi_csp_name() const override { return text(1); }
    void set_capi_key_type(unsigned int value) override { numbers[0] = value; }
    unsigned int get_capi_key_type() const override { return number(0); }
    void set_pkcs11_openssl_engine_dll(const char* value) override { texts[2] = value; }
    const char* get_pkcs11_openssl_engine_dll() const override { return text(2); }
    void set_pkcs11_module_dll(const char* value) override { texts[3] = value; }
    const char* get_pkcs11_module_dll() const override { return text(3); }
    void set_capi_store_openssl_engine_dll(const char* value) override { texts[4] = value; }
    const char* get_capi_store_openssl_engine_dll() const override { return text(4); }
    void set_capi_store_cert_store_name(const char* value) override { texts[5] = value; }
    const char* get_capi_store_cert_store_name() const override { return text(5); }
    void set_priv_key_name(const char* value) override { texts[6] = value; }
    const char* get_priv_key_name() const override { return text(6); }
    void set_cert_name(const char* value) override { texts[7] = value; }
    const char* get_cert_name() const override { return text(7); }
    void set_kuse_filter_type(unsigned int value) override { numbers[1] = value; }
    unsigned int get_kuse_filter_type() const override { return number(1); }
    void set_kuse_filter(unsigned int value) override { numbers[2] = value; }
    unsigned int get_kuse_filter() const override { return number(2); }
    void set_xkuse_filter_type(unsigned int value) override { numbers[3] = value; }
    unsigned int get_xkuse_filter_type() const override { return number(3); }
    void set_xkuse_nid_filter(const char* value) override { texts[8] = value; }
    const char* get_xkuse_nid_filter() const override { return text(8); }
    void set_logfile(const char* value) override { texts[9] = value; }
    const char* get_logfile() const override {
        on_get_logfile();
        return has_logfile ? text(9) : nullptr;
    }
    void set_logfile_severity(unsigned int value) override { numbers[4] = value; }
    unsigned int get_logfile_severity() const override {
        on_get_severity();
        return number(4);
    }
    void enable_logfile_append() override { append = true; }
    void disable_logfile_append() override { append = false; }
    bool get_logfile_append() const override {
        ++num_reads;
        return append;
    }
    char* get_crypto_if_description(CryptoIf, char* buffer, size_t) const override { return buffer; }
    char* dump_settings(char* buffer, size_t size) const override {
        if (!has_texts) return nullptr;
        return std::strncpy(buffer, "the client's own dump\n", size - 1);
    }
    int select_crypto_if_from_console(CryptoIf*) override { return 1; }

    bool is_clonable = true;
    bool has_logfile = true;
    bool has_texts = true;             ///< otherwise each text getter and dump_settings() return null
    mutable std::size_t num_reads = 0; ///< how often a setting was read
    std::function<void()> on_clone = [] {};
    std::function<void()> on_get_logfile = [] {};
    std::function<void()> on_get_severity = [] {};

private:
    const char* text(std::size_t i) const {
        ++num_reads;
        return has_texts ? texts[i].c_str() : nullptr;
    }
    unsigned int number(std::size_t i) const {
        ++num_reads;
        return numbers[i];
    }

    CryptoIf crypto_if = pkcs11;
    std::string texts[10];
    unsigned int numbers[5] = {};
    bool append = false;
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_CLIENT_CFG_H_
