#ifndef KES_TESTS_ABI_OWN_CFG_H_
#define KES_TESTS_ABI_OWN_CFG_H_

#include "kit.h"
#include "marvo/ossl_scard_cfg.h"

/// The client's own configuration without clone() and the destructor, which differ between compilers.
class OwnSettings : public Kes::OsslScardCfg {
public:
    void set_crypto_if(const CryptoIf& value) override { crypto_if = value; }
    const CryptoIf& get_crypto_if() const override { return crypto_if; }
    void set_capi_openssl_engine_dll(const char* value) override { set_text(0, value); }
    const char* get_capi_openssl_engine_dll() const override { return texts[0]; }
    void set_capi_csp_name(const char* value) override { set_text(1, value); }
    const char* get_capi_csp_name() const override { return texts[1]; }
    void set_capi_key_type(unsigned int value) override { numbers[0] = value; }
    unsigned int get_capi_key_type() const override { return numbers[0]; }
    void set_pkcs11_openssl_engine_dll(const char* value) override { set_text(2, value); }
    const char* get_pkcs11_openssl_engine_dll() const override { return texts[2]; }
    void set_pkcs11_module_dll(const char* value) override { set_text(3, value); }
    const char* get_pkcs11_module_dll() const override { return texts[3]; }
    void set_capi_store_openssl_engine_dll(const char* value) override { set_text(4, value); }
    const char* get_capi_store_openssl_engine_dll() const override { return texts[4]; }
    void set_capi_store_cert_store_name(const char* value) override { set_text(5, value); }
    const char* get_capi_store_cert_store_name() const override { return texts[5]; }
    void set_priv_key_name(const char* value) override { set_text(6, value); }
    const char* get_priv_key_name() const override { return texts[6]; }
    void set_cert_name(const char* value) override { set_text(7, value); }
    const char* get_cert_name() const override { return texts[7]; }
    void set_kuse_filter_type(unsigned int value) override { numbers[1] = value; }
    unsigned int get_kuse_filter_type() const override { return numbers[1]; }
    void set_kuse_filter(unsigned int value) override { numbers[2] = value; }
    unsigned int get_kuse_filter() const override { return numbers[2]; }
    void set_xkuse_filter_type(unsigned int value) override { numbers[3] = value; }
    unsigned int get_xkuse_filter_type() const override { return numbers[3]; }
    void set_xkuse_nid_filter(const char* value) override { set_text(8, value); }
    const char* get_xkuse_nid_filter() const override { return texts[8]; }
    void set_logfile(const char* value) override { set_text(9, value); }
    const char* get_logfile() const override { return texts[9]; }
    void set_logfile_severity(unsigned int value) override { numbers[4] = value; }
    unsigned int get_logfile_severity() const override { return numbers[4]; }
    void enable_logfile_append() override { append = true; }
    void disable_logfile_append() override { append = false; }
    bool get_logfile_append() const override { return append; }
    char* get_crypto_if_description(CryptoIf, char* buffer, size_t) const override { return buffer; }
    char* dump_settings(char* buffer, size_t size) const override {
        buffer[0] = '\0';
        kit_append(buffer, size, "the client's own dump\n");
        return buffer;
    }
    int select_crypto_if_from_console(CryptoIf*) override { return 1; }

private:
    static constexpr size_t text_size = 512;

    void set_text(size_t i, const char* value) {
        texts[i][0] = '\0';
        kit_append(texts[i], text_size, value);
    }

    CryptoIf crypto_if = static_cast<CryptoIf>(7);
    char texts[10][text_size] = {};
    unsigned int numbers[5] = {2, 0, 0, 0, 60};
    bool append = false;
};

/// Counts the memory blocks that objects of the client's own class allocate and free.
struct OwnMemory {
    static int num_allocated;
    static int num_deallocated;

    static void* allocate(size_t size);
    static void deallocate(void* memory);
};

/// Creates a configuration of the client's own class.
Kes::OsslScardCfg* make_own_cfg();

#endif // KES_TESTS_ABI_OWN_CFG_H_
