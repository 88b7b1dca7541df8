#include "pkcs11/ossl_engine_pkcs11.h"

#include <cstring>
#include <openssl/engine.h>
#include <utility>

#include "utils/error.h"
#include "utils/load_diagnostics.h"
#include "utils/logger.h"

namespace Kes {
namespace {

/// The argument of the engine's LOAD_CERT_CTRL command. The engine defines the layout.
struct LoadCertParameters {
    const char* cert_id;
    X509* cert;
};

} // namespace

Pkcs11OsslEngine::Pkcs11OsslEngine(const char* engine_path, const char* module_path_in, const Pin* pin,
                                   bool verbose)
    : OsslEngine(true, true), module_path(module_path_in) {
    set_up({.id = "pkcs11",
            .so_path = {"SO_PATH", engine_path,
                        "ossl_engine_pkcs11:91 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()"},
            .list_add = {"LIST_ADD", "1", "ossl_engine_pkcs11:98 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()"},
            .load = {"LOAD", nullptr, "ossl_engine_pkcs11:104 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()"},
            .before_init = {{"MODULE_PATH", module_path.c_str(),
                             "ossl_engine_pkcs11:110 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()"}},
            .init_location = "ossl_engine_pkcs11:116 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()",
            .after_init = {},
            .configure = [&] { configure(pin, verbose); },
            .set_default_location = "ossl_engine_pkcs11:150 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()"});
    log_info("loaded engine: id=", id());
}

void Pkcs11OsslEngine::prepare_load(const char* engine_path) {
    Pkcs11EngineRegistry::instance().reserve(engine_path);
}

void Pkcs11OsslEngine::keep_engine() noexcept {
    // If the path is wrong, this engine must be unloaded, so that the other back-ends can load it.
    if (std::strcmp(id(), "capi") == 0)
        OsslEngine::keep_engine();
    else
        loaded = Pkcs11EngineRegistry::instance().add(get_engine());
}

EnginePtr Pkcs11OsslEngine::reuse_engine(const char* engine_path) {
    auto [use, reference] = Pkcs11EngineRegistry::instance().reuse(engine_path);
    if (!reference) return nullptr;
    loaded = std::move(use);
    return std::move(reference);
}

const char* Pkcs11OsslEngine::refusal(const char* engine_path) {
    return Pkcs11EngineRegistry::instance().refusal(engine_path);
}

void Pkcs11OsslEngine::explain_failure() { append_module_load_error(module_path.c_str()); }

EvpPkeyPtr Pkcs11OsslEngine::lend_key(EvpPkeyPtr engine_key) { return loaded.lend(std::move(engine_key)); }

void Pkcs11OsslEngine::configure(const Pin* pin, bool verbose) {
    loaded.note_initialized();
    if (verbose)
        control({"VERBOSE", nullptr, "ossl_engine_pkcs11:127 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine()"});
    if (pin != nullptr)
        Pkcs11OsslEngine::set_pin(*pin); // even if empty: without a PIN, the engine would ask the user
}

Pkcs11OsslEngine::~Pkcs11OsslEngine() {
    loaded.overwrite_pin(); // while the engine is still initialised
    unload();
}

X509Ptr Pkcs11OsslEngine::read_certificate(const char* name) {
    if (name == nullptr)
        throw Error(ErrorCodeType::bad_argument, "name is a null pointer",
                    "ossl_engine_pkcs11:193 Kes::Pkcs11OsslEngine::read_certificate()");
    const ScopedNoLoaderDialogs no_dialogs;
    LoadCertParameters parameters{name, nullptr};
    const int result = ::ENGINE_ctrl_cmd(get_engine(), "LOAD_CERT_CTRL", 0, &parameters, nullptr, 0);
    X509Ptr cert(parameters.cert); // owned at once: the engine may have set it before it failed
    if (result != 1) {
        explain_failure();
        throw OsslError(OsslErrorCode(result), "ENGINE_ctrl_cmd() failed",
                        "ossl_engine_pkcs11:213 Kes::Pkcs11OsslEngine::read_certificate()");
    }
    if (!cert)
        throw Error(ErrorCodeType::not_found, "error reading certificate",
                    "ossl_engine_pkcs11:216 Kes::Pkcs11OsslEngine::read_certificate()");
    log_info("read certificate: ", name);
    return cert;
}

void Pkcs11OsslEngine::set_pin(const Pin& pin) {
    control({"PIN", pin.c_str(), "ossl_engine_pkcs11:234 Kes::Pkcs11OsslEngine::set_pin()"});
    loaded.note_pin();
}

} // namespace Kes
