// A client that uses everything in the two headers. Tests only compile it, as C++11, C++17 and C++20, with
// warnings as errors.
#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

int use(Kes::OsslScardIf* library);
int use(Kes::OsslScardCfg* cfg);
int main();

int use(Kes::OsslScardIf* library) {
    evp_pkey_st* pkey = nullptr;
    x509_st* cert = nullptr;
    size_t num_keys = 0;
    const bool is_pin_required = library->is_pin_required();
    const int status = library->version_check(4) | library->init(library->get_config_default()) |
                       library->read_scard() | library->set_pin("") | library->discover_keys(&num_keys) |
                       library->set_key(0) | library->set_key(0U, "") | library->set_key(num_keys) |
                       library->notify_config_done() | library->ossl_load() |
                       library->ossl_get_private_key(&pkey) | library->ossl_get_certificate(&cert) |
                       library->select_key_from_console(&num_keys) | library->ossl_unload();
    const bool has_texts = library->get_key_name(0) != library->get_version();
    const bool has_failed = *library->get_last_error_msg() != '\0';
    library->destroy();
    return is_pin_required && has_texts && has_failed ? status : 0;
}

int use(Kes::OsslScardCfg* cfg) {
    char text[64];
    Kes::OsslScardCfg::CryptoIf crypto_if = cfg->get_crypto_if();
    const int status = cfg->select_crypto_if_from_console(&crypto_if);
    cfg->set_crypto_if(Kes::OsslScardCfg::pkcs11);
    cfg->set_pkcs11_module_dll(cfg->dump_settings(text, sizeof text));
    cfg->set_logfile(cfg->get_crypto_if_description(crypto_if, text, sizeof text));
    Kes::OsslScardCfg* const clone = cfg->clone();
    clone->release();
    return status;
}

int main() {
    Kes::OsslScardIf* const library = get_ossl_scard_if();
    return use(library->get_config_used()) | use(library);
}
