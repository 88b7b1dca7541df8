#include "card.h"

#include <stdexcept>

#include "marvo/ossl_scard_cfg.h"
#include "support/process.h"

namespace Kes::test {

std::string soft_token(std::vector<std::string> args) {
    args.insert(args.begin(), SOFT_TOKEN_PROGRAM);
    std::string output = run_program(args);
    while (!output.empty() && output.back() == '\n')
        output.pop_back();
    return output;
}

Card::Card(const std::string& key_type, const std::string& subject, const std::vector<std::string>& options)
    : conf_("SOFTHSM2_CONF", file("softhsm2.conf")) {
    const std::string folder = dir_.path().string();
    soft_token({"server", folder});
    soft_token({"init", folder, "card", pin()});
    std::vector<std::string> add = {"add",    folder,  "card",  pin(),    "--id",      "01",
                                    "--name", "login", "--key", key_type, "--subject", subject};
    add.insert(add.end(), options.begin(), options.end());
    soft_token(add);
}

LoadedKey::LoadedKey(const CardAccess& card) : library_(get_ossl_scard_if()) {
    try {
        load(card);
    } catch (const std::exception&) {
        library_->destroy();
        throw;
    }
}

LoadedKey::~LoadedKey() {
    library_->ossl_unload();
    library_->destroy();
}

void LoadedKey::load(const CardAccess& card) {
    const auto check = [this](int status) {
        if (status != 0) throw std::runtime_error(library_->get_last_error_msg());
    };
    OsslScardCfg* cfg = library_->get_config_default();
    cfg->set_crypto_if(OsslScardCfg::pkcs11);
    cfg->set_pkcs11_module_dll(card.module.c_str());
    cfg->set_pkcs11_openssl_engine_dll(soft_token({"engine"}).c_str());
    cfg->set_logfile(card.log_file.c_str());
    check(library_->init(cfg));
    check(library_->read_scard());
    check(library_->set_pin(card.pin.c_str()));
    std::size_t num_keys = 0;
    check(library_->discover_keys(&num_keys));
    check(library_->set_key(std::size_t{0}));
    check(library_->notify_config_done());
    check(library_->ossl_load());
    check(library_->ossl_get_private_key(&key_));
    check(library_->ossl_get_certificate(&cert_));
}

} // namespace Kes::test
