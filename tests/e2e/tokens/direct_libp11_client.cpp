#include "direct_libp11_client.h"

#include <openssl/engine.h>
#include <openssl/ui.h>
#include <stdexcept>

#include "soft_token.h"

namespace Kes::test {
namespace {

struct LoadCertParameters {
    const char* id;
    X509* certificate;
};

} // namespace

DirectLibp11Client::DirectLibp11Client(const std::string& module)
    : module_(module), context_(::PKCS11_CTX_new()) {
    if (::PKCS11_CTX_load(context_, module.c_str()) != 0) throw std::runtime_error("cannot load the module");
    find_token();
}

void DirectLibp11Client::find_token() {
    if (::PKCS11_enumerate_slots(context_, &slots_, &count_) != 0)
        throw std::runtime_error("cannot enumerate the slots");
    slot_ = ::PKCS11_find_token(context_, slots_, count_);
}

void DirectLibp11Client::read() {
    ::PKCS11_release_all_slots(context_, slots_, count_);
    find_token();
}

bool DirectLibp11Client::log_in(const char* pin) { return ::PKCS11_login(slot_, 0, pin) == 0; }

unsigned int DirectLibp11Client::scan() {
    PKCS11_CERT* certificates = nullptr;
    PKCS11_KEY* keys = nullptr;
    PKCS11_KEY* public_keys = nullptr;
    unsigned int certificate_count = 0, key_count = 0, public_key_count = 0;
    ::PKCS11_enumerate_certs(slot_->token, &certificates, &certificate_count);
    ::PKCS11_enumerate_keys(slot_->token, &keys, &key_count);
    ::PKCS11_enumerate_public_keys(slot_->token, &public_keys, &public_key_count);
    return key_count;
}

bool DirectLibp11Client::command(const char* name, const char* value) {
    return ::ENGINE_ctrl_cmd_string(engine_, name, value, 0) == 1;
}

bool DirectLibp11Client::set_up_engine(const char* pin) {
    ::OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
    engine_ = ::ENGINE_by_id("dynamic");
    return command("SO_PATH", pkcs11_engine().c_str()) && command("LIST_ADD", "1") &&
           command("LOAD", nullptr) && command("MODULE_PATH", module_.c_str()) &&
           ::ENGINE_init(engine_) == 1 && command("PIN", pin) &&
           ::ENGINE_set_default(engine_, ENGINE_METHOD_ALL) == 1;
}

bool DirectLibp11Client::load(const char* pin, const std::string& token_label) {
    if (!set_up_engine(pin)) return false;
    const std::string name = "pkcs11:token=" + token_label + ";id=%01;type=";
    key_ = ::ENGINE_load_private_key(engine_, (name + "private").c_str(),
                                     const_cast<UI_METHOD*>(::UI_OpenSSL()), nullptr);
    if (key_ == nullptr) return false;
    const std::string certificate_name = name + "cert";
    LoadCertParameters parameters{certificate_name.c_str(), nullptr};
    ::ENGINE_ctrl_cmd(engine_, "LOAD_CERT_CTRL", 0, &parameters, nullptr, 0);
    certificate_ = parameters.certificate;
    return certificate_ != nullptr;
}

void DirectLibp11Client::end() {
    ::X509_free(certificate_);
    ::EVP_PKEY_free(key_);
    if (engine_ != nullptr) {
        ::ENGINE_unregister_RSA(engine_);
        ::ENGINE_unregister_EC(engine_);
        ::ENGINE_unregister_pkey_meths(engine_);
        ::ENGINE_remove(engine_);
        ::ENGINE_finish(engine_);
        ::ENGINE_free(engine_);
    }
    ::PKCS11_release_all_slots(context_, slots_, count_);
    ::PKCS11_CTX_unload(context_);
    ::PKCS11_CTX_free(context_);
}

} // namespace Kes::test
