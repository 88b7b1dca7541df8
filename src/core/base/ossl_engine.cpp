#include "base/ossl_engine.h"

#include <openssl/engine.h>
#include <openssl/ui.h>
#include <string>
#include <utility>

#include "utils/error.h"
#include "utils/error_queue_mark.h"
#include "utils/load_diagnostics.h"
#include "utils/logger.h"

namespace Kes {
namespace {

ENGINE* get_dynamic_engine() {
    ::OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr); // a program may have started without it
    return ::ENGINE_by_id("dynamic");
}

UI_METHOD* changeable(const UI_METHOD* method) {
    return const_cast<UI_METHOD*>(method); // OpenSSL asks for it although it only reads
}

} // namespace

void OsslEngine::FreeEngine::operator()(ENGINE* handle) const noexcept { ::ENGINE_free(handle); }

OsslEngine::OsslEngine(bool public_key_supported_in, bool second_flag_in)
    : engine(get_dynamic_engine()),
      ui_method(::UI_OpenSSL()),
      public_key_supported(public_key_supported_in),
      second_flag(second_flag_in) {
    if (!engine)
        throw Error(ErrorCodeType::null_pointer, "dynamic engine not available",
                    "ossl_engine:58 Kes::OsslEngine::OsslEngine()");
}

OsslEngine::~OsslEngine() {
    if (!is_listed) return;
    // A constructor has failed after its load(), such as for a card that is out. In OpenSSL's list the engine
    // would stay alive, and bar every later load of its library.
    const ErrorQueueMark mark;
    if (::ENGINE_remove(engine.get()) != 1) log_warn("ENGINE_remove() returned error");
}

EvpPkeyPtr OsslEngine::read_private_key(const char* name) {
    // No callback data: an engine that needs a PIN was given it before, and asks nobody.
    const ScopedNoLoaderDialogs no_dialogs;
    EvpPkeyPtr key(::ENGINE_load_private_key(engine.get(), name, changeable(ui_method), nullptr));
    if (!key) {
        explain_failure();
        throw OsslError(OsslErrorCode(0), "ENGINE_load_private_key() failed",
                        "ossl_engine:79 Kes::OsslEngine::read_private_key()");
    }
    log_info("read private key: ", name);
    return lend_key(std::move(key));
}

EvpPkeyPtr OsslEngine::read_public_key(const char* name) {
    if (!public_key_supported)
        throw Error(ErrorCodeType::unsupported, "engine function not supported",
                    "ossl_engine:96 Kes::OsslEngine::read_public_key()");
    EvpPkeyPtr key(::ENGINE_load_public_key(engine.get(), name, changeable(ui_method), nullptr));
    if (!key)
        throw OsslError(OsslErrorCode(0), "ENGINE_load_public_key() failed",
                        "ossl_engine:100 Kes::OsslEngine::read_public_key()");
    log_info("read public key: ", name);
    return key;
}

EvpPkeyPtr OsslEngine::read_public_key_by_certificate(const char* name) {
    X509Ptr cert = read_certificate(name);
    EvpPkeyPtr key(::X509_get_pubkey(cert.get()));
    cert.reset(); // whether or not a key came of it
    if (!key)
        throw Error(ErrorCodeType::not_found, "error getting public key from certificate",
                    "ossl_engine:114 Kes::OsslEngine::read_public_key_by_certificate()");
    log_info("read public key from certificate: ", name);
    return key;
}

X509Ptr OsslEngine::read_certificate(const char*) {
    throw Error(ErrorCodeType::unsupported, "engine function not supported",
                "ossl_engine:130 Kes::OsslEngine::read_certificate()");
}

void OsslEngine::set_key_type(std::uint32_t) {}

void OsslEngine::set_pin(const Pin&) {}

void OsslEngine::free_certificate(X509Ptr cert) {
    if (!cert) return;
    cert.reset();
    log_info("freed certificate");
}

void OsslEngine::free_key(EvpPkeyPtr key) {
    if (!key) return;
    key.reset();
    log_info("freed key");
}

void OsslEngine::control(const char* command, const char* value, const char* location) {
    const int result = ::ENGINE_ctrl_cmd_string(engine.get(), command, value, 0);
    if (result != 1)
        throw OsslError(OsslErrorCode(result), std::string("ENGINE_ctrl_cmd_string(") + command + ") failed",
                        location);
}

void OsslEngine::load(const char* engine_path, const char* location) {
    const ScopedNoLoaderDialogs no_dialogs;
    const int result = ::ENGINE_ctrl_cmd_string(engine.get(), "LOAD", nullptr, 0);
    is_listed = result == 1;
    if (is_listed) return;
    explain_engine_failure(engine_path);
    throw OsslError(OsslErrorCode(result), "ENGINE_ctrl_cmd_string(LOAD) failed", location);
}

void OsslEngine::init(const char* location) {
    const ScopedNoLoaderDialogs no_dialogs;
    const int result = ::ENGINE_init(engine.get());
    if (result == 1) return;
    explain_failure();
    throw OsslError(OsslErrorCode(result), "ENGINE_init() failed", location);
}

void OsslEngine::set_default(const char* location) {
    const int result = ::ENGINE_set_default(engine.get(), ENGINE_METHOD_ALL);
    if (result != 1) throw OsslError(OsslErrorCode(result), "ENGINE_set_default() failed", location);
}

void OsslEngine::finish() noexcept { ::ENGINE_finish(engine.get()); }

const char* OsslEngine::id() const noexcept { return ::ENGINE_get_id(engine.get()); }

void OsslEngine::unload() noexcept {
    // First out of every table that would give it to others, then out of the list, and only then an end to
    // its use: nobody can come upon it while it goes. A step that fails must not keep the next from being
    // made.
    log_info("unloading engine: id=", id());
    ::ENGINE_unregister_RSA(engine.get());
    ::ENGINE_unregister_DSA(engine.get());
    ::ENGINE_unregister_EC(engine.get());
    ::ENGINE_unregister_DH(engine.get());
    ::ENGINE_unregister_RAND(engine.get());
    ::ENGINE_unregister_ciphers(engine.get());
    ::ENGINE_unregister_digests(engine.get());
    ::ENGINE_unregister_pkey_meths(engine.get());
    ::ENGINE_unregister_pkey_asn1_meths(engine.get());
    is_listed = false;
    if (::ENGINE_remove(engine.get()) != 1) log_warn("ENGINE_remove() returned error");
    if (::ENGINE_finish(engine.get()) != 1) log_warn("ENGINE_finish() returned error");
}

} // namespace Kes
