// A client that is not linked to the library. It repeatedly loads the library, loads a key, destroys the
// interface object and closes the library. Finally it asks OpenSSL for an error text, for which libcrypto
// searches the string tables that libraries have registered.
//
// Arguments: library, PKCS#11 module, engine, number of repetitions. The token's PIN is 123456.
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <string>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

namespace {

using GetInterface = Kes::OsslScardIf* (*)();

bool load_key(Kes::OsslScardIf* scard, const char* module, const char* engine) {
    Kes::OsslScardCfg* cfg = scard->get_config_default();
    cfg->set_crypto_if(Kes::OsslScardCfg::pkcs11);
    cfg->set_pkcs11_module_dll(module);
    cfg->set_pkcs11_openssl_engine_dll(engine);
    cfg->set_logfile("");
    size_t count = 0;
    EVP_PKEY* key = nullptr;
    return scard->init(cfg) == 0 && scard->read_scard() == 0 && scard->set_pin("123456") == 0 &&
           scard->discover_keys(&count) == 0 && scard->set_key(size_t{0}) == 0 &&
           scard->notify_config_done() == 0 && scard->ossl_load() == 0 &&
           scard->ossl_get_private_key(&key) == 0 && key != nullptr && EVP_PKEY_get_size(key) == 256;
}

bool use_library(const char* library, const char* module, const char* engine) {
    void* handle = ::dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return false;
    const auto get_interface = reinterpret_cast<GetInterface>(::dlsym(handle, "get_ossl_scard_if"));
    if (get_interface == nullptr) return false;
    Kes::OsslScardIf* scard = get_interface();
    const bool is_loaded = load_key(scard, module, engine);
    if (is_loaded)
        std::puts("loaded a key");
    else if (std::string(scard->get_last_error_msg()).find("LOAD) failed") != std::string::npos)
        std::printf("no engine: %s\n", engine);
    scard->destroy();
    return ::dlclose(handle) == 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    for (int repetitions = std::atoi(argv[4]); repetitions > 0; --repetitions)
        if (!use_library(argv[1], argv[2], argv[3])) return 1;
    if (!use_library(argv[1], argv[2], "/nowhere")) return 1;
    ERR_raise(ERR_LIB_CRYPTO, ERR_R_INTERNAL_ERROR);
    char text[256];
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    std::puts("done");
    return 0;
}
