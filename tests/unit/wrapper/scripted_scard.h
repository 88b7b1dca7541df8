#ifndef KES_TESTS_UNIT_WRAPPER_SCRIPTED_SCARD_H_
#define KES_TESTS_UNIT_WRAPPER_SCRIPTED_SCARD_H_

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "marvo/marvo.hpp"

namespace Kes::test {

using Lines = std::vector<std::string>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using CertPtr = std::unique_ptr<X509, decltype(&X509_free)>;

/// Settings that only store values.
class ScriptedCfg : public OsslScardCfg {
public:
    OsslScardCfg* clone() const override { return nullptr; }
    void set_crypto_if(const CryptoIf& value) override { crypto_if = value; }
    const CryptoIf& get_crypto_if() const override { return crypto_if; }
    void set_capi_openssl_engine_dll(const char*) override {}
    const char* get_capi_openssl_engine_dll() const override { return ""; }
    void set_capi_csp_name(const char*) override {}
    const char* get_capi_csp_name() const override { return ""; }
    void set_capi_key_type(unsigned int value) override { key_type = value; }
    unsigned int get_capi_key_type() const override { return key_type; }
    void set_pkcs11_openssl_engine_dll(const char*) override {}
    const char* get_pkcs11_openssl_engine_dll() const override { return ""; }
    void set_pkcs11_module_dll(const char*) override {}
    const char* get_pkcs11_module_dll() const override { return ""; }
    void set_capi_store_openssl_engine_dll(const char*) override {}
    const char* get_capi_store_openssl_engine_dll() const override { return ""; }
    void set_capi_store_cert_store_name(const char*) override {}
    const char* get_capi_store_cert_store_name() const override { return ""; }
    void set_priv_key_name(const char* value) override { key_name = value; }
    const char* get_priv_key_name() const override { return key_name.c_str(); }
    void set_cert_name(const char* value) override { cert_name = value; }
    const char* get_cert_name() const override { return cert_name.c_str(); }
    void set_kuse_filter_type(unsigned int) override {}
    unsigned int get_kuse_filter_type() const override { return 0; }
    void set_kuse_filter(unsigned int) override {}
    unsigned int get_kuse_filter() const override { return 0; }
    void set_xkuse_filter_type(unsigned int) override {}
    unsigned int get_xkuse_filter_type() const override { return 0; }
    void set_xkuse_nid_filter(const char*) override {}
    const char* get_xkuse_nid_filter() const override { return ""; }
    void set_logfile(const char* value) override { logfile = value; }
    const char* get_logfile() const override { return logfile.c_str(); }
    void set_logfile_severity(unsigned int) override {}
    unsigned int get_logfile_severity() const override { return 0; }
    void enable_logfile_append() override {}
    void disable_logfile_append() override {}
    bool get_logfile_append() const override { return false; }
    char* get_crypto_if_description(CryptoIf, char* buffer, std::size_t) const override { return buffer; }
    char* dump_settings(char* buffer, std::size_t) const override { return buffer; }
    int select_crypto_if_from_console(CryptoIf*) override { return 1; }

    CryptoIf crypto_if = pkcs11;
    unsigned int key_type = 2;
    std::string key_name = "key before";
    std::string cert_name = "certificate before";
    std::string logfile;

private:
    void* destructor_entry(unsigned int) override { return this; }
};

/// A key of the scripted card, with the names that the library writes into the settings.
struct ScriptedKey {
    const char* name;
    const char* key_name;
    unsigned int type;
};

/// A test double of the library. get_ossl_scard_if() returns this object.
class ScriptedScard : public OsslScardIf {
public:
    ScriptedScard();
    ~ScriptedScard();

    /// Makes an operation fail from now on.
    void fail(const std::string& operation, const std::string& message) { failures[operation] = message; }
    void succeed(const std::string& operation) { failures.erase(operation); }

    int version_check(unsigned int version) override;
    OsslScardCfg* get_config_default() override { return &cfg; }
    OsslScardCfg* get_config_used() override { return &cfg; }
    int init(OsslScardCfg*) override { return call("init"); }
    int read_scard() override { return call("read_scard"); }
    bool is_pin_required() override { return needs_pin; }
    int set_pin(const char* pin) override;
    int discover_keys(std::size_t* num_keys) override;
    const char* get_key_name(std::size_t key_num) override;
    int set_key(unsigned int key_type, const char* key_id) override;
    int set_key(std::size_t key_num) override;
    int notify_config_done() override { return call("notify_config_done"); }
    int ossl_load() override { return call("ossl_load"); }
    int ossl_unload() override { return call("ossl_unload"); }
    int ossl_get_private_key(EVP_PKEY** result) override;
    int ossl_get_certificate(X509** result) override;
    const char* get_version() override { return "4.3.0"; }
    void destroy() override { call("destroy"); }
    const char* get_last_error_msg() override { return last_error.c_str(); }
    int select_key_from_console(std::size_t*) override { return 1; }

    ScriptedCfg cfg;
    bool needs_pin = false;
    std::vector<ScriptedKey> keys{{"card: login", "pkcs11:token=card;id=%01;type=private", 0}};
    Lines calls;                                ///< with a PIN's value, in the order in which they came
    std::function<void(const char*)> watch_pin; ///< receives the memory that set_pin() receives
    PkeyPtr key{nullptr, &EVP_PKEY_free};
    CertPtr cert{nullptr, &X509_free};

private:
    void* destructor_entry(unsigned int) override { return this; }
    int call(const std::string& operation, const std::string& details = "");

    std::map<std::string, std::string> failures;
    std::string last_error;
};

/// A certificate of the key, self-signed, with the subject CN=Grace Hopper,O=Makers.
/// @param usages  pairs of an extension's name and value, in OpenSSL's notation
CertPtr create_certificate(EVP_PKEY* key,
                           const std::vector<std::pair<const char*, const char*>>& usages = {});

PkeyPtr create_key();

/// A card with one key, which the session has loaded unless the test says otherwise.
class SessionTest : public testing::Test {
protected:
    /// @return the message of the error that the function throws
    template <typename Function>
    static std::string error_of(Function function) {
        try {
            function();
        } catch (const marvo::Error& error) {
            return error.what();
        }
        return "no error";
    }

    /// Reads the card; the calls of the test begin afterwards.
    marvo::Session open() {
        marvo::Session session;
        session.read_card();
        card.calls.clear();
        return session;
    }

    ScriptedScard card;
};

} // namespace Kes::test

#endif // KES_TESTS_UNIT_WRAPPER_SCRIPTED_SCARD_H_
