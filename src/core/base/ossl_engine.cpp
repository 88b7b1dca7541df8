#include "base/ossl_engine.h"

#include <atomic>
#include <cstring>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/ui.h>
#include <string>
#include <utility>

#include "utils/error.h"
#include "utils/error_queue_mark.h"
#include "utils/load_diagnostics.h"
#include "utils/logger.h"
#include "utils/text_helper.h"

namespace Kes {
namespace {

ENGINE* get_dynamic_engine() {
    // Without this call the engine is missing if the program has initialised OpenSSL without engines.
    ::OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC, nullptr);
    const ErrorQueueMark mark; // the caller's error does not contain the queue
    return ::ENGINE_by_id("dynamic");
}

/// Whether this process has loaded an engine that no subclass keeps. Only objects of the client that use such
/// an engine can keep it alive after its unload.
std::atomic<bool> has_loaded_engine = false;

bool is_last_error(int reason) {
    const unsigned long error = ::ERR_peek_last_error();
    return ERR_GET_LIB(error) == ERR_LIB_ENGINE && ERR_GET_REASON(error) == reason;
}

/// Appends the text to the thread's OpenSSL error queue.
void append_error(const std::string& text) {
    ::ERR_new();
    ::ERR_set_error(ERR_LIB_ENGINE, ERR_R_OPERATION_FAIL, "%s", text.c_str());
}

[[noreturn]] void throw_command_error(int result, const EngineCommand& command) {
    throw OsslError(OsslErrorCode(result), std::string("ENGINE_ctrl_cmd_string(") + command.name + ") failed",
                    command.location);
}

std::string engine_name(const std::string& id) {
    if (id == "pkcs11") return "libp11's engine";
    if (id == "capi") return "OpenSSL's CryptoAPI engine";
    return id.empty() ? "an engine without an id" : "the engine '" + id + "'";
}

// OpenSSL's functions take the method as non-const, but only read it.
UI_METHOD* as_mutable(const UI_METHOD* method) { return const_cast<UI_METHOD*>(method); }

} // namespace

void FreeEngine::operator()(ENGINE* engine) const noexcept { ::ENGINE_free(engine); }

void OsslEngine::DefaultEngineTraits::close(Raw registered) noexcept {
    ::ENGINE_unregister_RSA(registered);
    ::ENGINE_unregister_DSA(registered);
    ::ENGINE_unregister_EC(registered);
    ::ENGINE_unregister_DH(registered);
    ::ENGINE_unregister_RAND(registered);
    ::ENGINE_unregister_ciphers(registered);
    ::ENGINE_unregister_digests(registered);
    ::ENGINE_unregister_pkey_meths(registered);
    ::ENGINE_unregister_pkey_asn1_meths(registered);
}

void OsslEngine::ListEntryTraits::close(Raw listed) noexcept {
    const ErrorQueueMark mark;
    if (::ENGINE_remove(listed) != 1) log_warn("ENGINE_remove() returned error");
}

void OsslEngine::FunctionalReferenceTraits::close(Raw initialized) noexcept {
    const ErrorQueueMark mark;
    if (::ENGINE_finish(initialized) != 1) log_warn("ENGINE_finish() returned error");
}

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
    // Releases what the failed constructor of a subclass has left. If OpenSSL kept a reference to the engine,
    // it would refuse to load its library again.
    release();
}

EvpPkeyPtr OsslEngine::read_private_key(const char* name) {
    // The callback data is null: an engine that needs a PIN has already received it and does not ask.
    const ScopedNoLoaderDialogs no_dialogs;
    EvpPkeyPtr key(::ENGINE_load_private_key(engine.get(), name, as_mutable(ui_method), nullptr));
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
    EvpPkeyPtr key(::ENGINE_load_public_key(engine.get(), name, as_mutable(ui_method), nullptr));
    if (!key)
        throw OsslError(OsslErrorCode(0), "ENGINE_load_public_key() failed",
                        "ossl_engine:100 Kes::OsslEngine::read_public_key()");
    log_info("read public key: ", name);
    return key;
}

EvpPkeyPtr OsslEngine::read_public_key_by_certificate(const char* name) {
    X509Ptr cert = read_certificate(name);
    EvpPkeyPtr key(::X509_get_pubkey(cert.get()));
    cert.reset();
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

void OsslEngine::keep_engine() noexcept { has_loaded_engine = true; }

EnginePtr OsslEngine::reuse_engine(const char*) { return nullptr; }

const char* OsslEngine::refusal(const char*) {
    return has_loaded_engine
               ? "the engine cannot be loaded again: the client still uses a key that was created during an "
                 "earlier load"
               : nullptr;
}

EvpPkeyPtr OsslEngine::lend_key(EvpPkeyPtr engine_key) { return engine_key; }

void OsslEngine::set_up(const EngineSetup& setup) {
    control(setup.so_path);
    control(setup.list_add);
    load(setup.load, setup.so_path.value);
    for (const EngineCommand& command : setup.before_init)
        control_new_engine(command, setup);
    init(setup.init_location);
    try {
        make_usable(setup);
    } catch (const OsslError&) {
        // Not reset(), which could log a second failure. The error already reports what failed.
        const ErrorQueueMark mark;
        ::ENGINE_finish(functional_reference.release());
        throw;
    }
}

void OsslEngine::load(const EngineCommand& command, const char* engine_path) {
    prepare_load(engine_path);
    const ScopedNoLoaderDialogs no_dialogs;
    const ErrorQueueMark mark; // an OsslError contains the errors when they are removed
    const int result = ::ENGINE_ctrl_cmd_string(engine.get(), command.name, command.value, 0);
    if (result == 1) {
        list_entry.reset(engine.get());
        keep_engine();
        return;
    }
    const bool is_refused = is_last_error(ENGINE_R_INIT_FAILED);
    if (EnginePtr loaded = is_refused ? reuse_engine(engine_path) : nullptr) {
        engine = std::move(loaded);
        list_entry.reset(engine.get());
        return;
    }
    if (!is_refused)
        append_engine_load_error(engine_path);
    else if (const char* reason = refusal(engine_path))
        append_error(reason);
    throw OsslError(OsslErrorCode(result), "ENGINE_ctrl_cmd_string(LOAD) failed", command.location);
}

void OsslEngine::init(const char* location) {
    const ScopedNoLoaderDialogs no_dialogs;
    const int result = ::ENGINE_init(engine.get());
    if (result == 1) {
        functional_reference.reset(engine.get());
        return;
    }
    explain_failure();
    throw OsslError(OsslErrorCode(result), "ENGINE_init() failed", location);
}

void OsslEngine::make_usable(const EngineSetup& setup) {
    for (const EngineCommand& command : setup.after_init)
        control_new_engine(command, setup);
    setup.configure();
    const int result = ::ENGINE_set_default(engine.get(), ENGINE_METHOD_ALL);
    if (result != 1)
        throw OsslError(OsslErrorCode(result), "ENGINE_set_default() failed", setup.set_default_location);
    default_engine.reset(engine.get());
}

void OsslEngine::control(const EngineCommand& command) {
    const int result = ::ENGINE_ctrl_cmd_string(engine.get(), command.name, command.value, 0);
    if (result != 1) throw_command_error(result, command);
}

void OsslEngine::control_new_engine(const EngineCommand& command, const EngineSetup& setup) {
    const int result = ::ENGINE_ctrl_cmd_string(engine.get(), command.name, command.value, 0);
    if (result == 1) return;
    if (is_last_error(ENGINE_R_INVALID_CMD_NAME) && std::strcmp(id(), setup.id) != 0)
        append_error(std::string("'") + setup.so_path.value + "' is " + engine_name(id()) + ", not " +
                     engine_name(setup.id));
    throw_command_error(result, command);
}

const char* OsslEngine::id() const noexcept {
    return TextHelper::text_or_empty(::ENGINE_get_id(engine.get()));
}

void OsslEngine::unload() noexcept {
    log_info("unloading engine: id=", id());
    release();
}

void OsslEngine::release() noexcept {
    // Unregister, remove from the list, then release, so that no other thread can pick up an engine that is
    // half torn down. Every step runs, even if an earlier one has failed.
    default_engine.reset();
    list_entry.reset();
    functional_reference.reset();
}

} // namespace Kes
