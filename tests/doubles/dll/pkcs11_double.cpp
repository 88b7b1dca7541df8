// The test double of libp11's engine. It handles the commands that the library sends, finds keys and
// certificates by URI, and stays initialised after a key was loaded, as version 0.4.12 does.
#include <map>
#include <optional>

#include "call_log.h"
#include "doubles/text_or_null.h"
#include "engine_keys.h"
#include "error_texts.h"
#include "pkcs11_uri.h"

namespace Kes::test {
namespace {

constexpr int cmd_module_path = ENGINE_CMD_BASE + 1;
constexpr int cmd_pin = ENGINE_CMD_BASE + 2;
constexpr int cmd_verbose = ENGINE_CMD_BASE + 3;
constexpr int cmd_load_cert = ENGINE_CMD_BASE + 5;

constexpr ENGINE_CMD_DEFN commands[] = {
    {cmd_module_path, "MODULE_PATH", "the PKCS#11 module", ENGINE_CMD_FLAG_STRING},
    {cmd_pin, "PIN", "the PIN", ENGINE_CMD_FLAG_STRING},
    {cmd_verbose, "VERBOSE", "say more", ENGINE_CMD_FLAG_NO_INPUT},
    {cmd_load_cert, "LOAD_CERT_CTRL", "get a certificate", ENGINE_CMD_FLAG_INTERNAL},
    {0, nullptr, nullptr, 0}};

/// The layout of LOAD_CERT_CTRL's parameters.
struct LoadCertParameters {
    const char* cert_id;
    X509* cert;
};

/// The engine's state. There is only one, because OpenSSL binds one engine of a library at a time.
struct State {
    std::string module_path;
    std::optional<std::string> pin;
    bool is_initialised = false;
    bool was_initialised = false;
    CardModule module; // loaded with the first key or certificate

    // By id. Each key has a functional reference to the engine, so the engine is not finished by itself.
    std::map<std::vector<unsigned char>, EvpPkeyPtr> keys;
};

// Never destroyed, because at the end of the process the other DLLs may already be unloaded. The same applies
// to the state of the other test doubles.
std::optional<State>& state = *new std::optional<State>;

/// Records a call and raises a planned failure. @return whether the call continues
bool begin(const char* function, const std::string& arguments) {
    const unsigned long code = step(function, arguments);
    if (code != card_ok) raise_module_error(code, function);
    return code == card_ok;
}

void forget_pin() {
    if (state->pin) ::OPENSSL_cleanse(state->pin->data(), state->pin->size());
    state->pin.reset();
}

bool log_in(const char* function) {
    bool is_logged_in = false;
    state->module->is_logged_in(&is_logged_in);
    if (is_logged_in) return true;
    if (!state->pin) {
        note_violation(std::string(function) + ": the engine would ask the user for the PIN");
        return false;
    }
    const unsigned long code = state->module->login(state->pin->c_str());
    if (code == card_ok) return true;
    raise_module_error(code, function);
    forget_pin(); // the next login asks the user
    return false;
}

bool require_initialised(const char* function) {
    if (!state->is_initialised) note_violation(std::string(function) + ": the engine is not initialised");
    return state->is_initialised;
}

bool load_module(const char* function) {
    if (state->module.is_loaded()) return true;
    if (state->module_path.empty()) {
        note_violation(std::string(function) + ": no MODULE_PATH was given");
        return false;
    }
    return state->module.load(state->module_path.c_str(), function);
}

const CardObject* find_object(const char* function, CardKind kind, const char* type, const char* id) {
    const auto uri = parse_pkcs11_uri(id);
    if (!uri || uri->type != type) {
        raise_engine_error(engine_invalid_parameter, function);
        return nullptr;
    }
    const CardToken* token = nullptr;
    if (!load_module(function)) return nullptr;
    state->module->read_token(&token);
    const bool is_right_token = token != nullptr && (!uri->token || *uri->token == token->label);
    const bool needs_login =
        is_right_token && kind == CardKind::private_key && token->is_login_required && !token->has_pin_pad;
    if (needs_login && !log_in(function)) return nullptr;
    const CardObject* objects = nullptr;
    std::size_t count = 0;
    if (is_right_token) state->module->list(kind, &objects, &count);
    for (std::size_t i = 0; i < count; ++i)
        if (uri->names_object(objects[i].label, objects[i].id, objects[i].id_size)) return &objects[i];
    raise_engine_error(engine_object_not_found, function);
    return nullptr;
}

int set_module_path(const char* path) {
    if (!begin("engine.MODULE_PATH", text_or_null(path))) return 0;
    if (state->is_initialised) {
        note_violation("engine.MODULE_PATH: after the engine was initialised");
        return 0;
    }
    state->module_path = path == nullptr ? "" : path;
    return 1;
}

int set_pin(const char* pin) {
    if (!begin("engine.PIN", describe_pin(pin))) return 0;
    forget_pin();
    if (pin != nullptr) state->pin = pin;
    return 1;
}

int load_certificate(LoadCertParameters* parameters) {
    constexpr const char* function = "engine.LOAD_CERT_CTRL";
    if (parameters == nullptr || parameters->cert_id == nullptr || parameters->cert != nullptr) {
        note_violation(std::string(function) + ": wrong parameters");
        return 0;
    }
    if (!begin(function, parameters->cert_id) || !require_initialised(function)) return 0;
    const CardObject* object = find_object(function, CardKind::certificate, "cert", parameters->cert_id);
    if (object == nullptr) return 0;
    parameters->cert = make_engine_certificate(*object).release();
    return 1;
}

int control(ENGINE*, int command, long, void* argument, void (*)()) {
    switch (command) {
    case cmd_module_path:
        return set_module_path(static_cast<const char*>(argument));
    case cmd_pin:
        return set_pin(static_cast<const char*>(argument));
    case cmd_verbose:
        return begin("engine.VERBOSE", "") ? 1 : 0;
    case cmd_load_cert:
        return load_certificate(static_cast<LoadCertParameters*>(argument));
    default:
        note_violation("engine: unknown command " + std::to_string(command));
        return 0;
    }
}

EVP_PKEY* load_private_key(ENGINE* engine, const char* id, UI_METHOD* ui_method, void*) {
    constexpr const char* function = "engine.load_privkey";
    if (!begin(function, text_or_null(id)) || !require_initialised(function)) return nullptr;
    if (ui_method == nullptr) {
        note_violation(std::string(function) + ": no UI method");
        return nullptr;
    }
    const CardObject* object = find_object(function, CardKind::private_key, "private", id);
    if (object == nullptr) return nullptr;
    EvpPkeyPtr& key = state->keys[{object->id, object->id + object->id_size}];
    if (!key) {
        key = make_engine_key(state->module, *object);
        if (!key || ::EVP_PKEY_set1_engine(key.get(), engine) != 1) {
            key.reset();
            raise_engine_error(engine_invalid_parameter, function);
            return nullptr;
        }
    }
    ::EVP_PKEY_up_ref(key.get());
    return key.get();
}

EVP_PKEY* load_public_key(ENGINE*, const char* id, UI_METHOD*, void*) {
    constexpr const char* function = "engine.load_pubkey";
    if (!begin(function, text_or_null(id)) || !require_initialised(function)) return nullptr;
    const CardObject* object = find_object(function, CardKind::public_key, "public", id);
    return object == nullptr ? nullptr : ::EVP_PKEY_dup(object->public_key);
}

int init(ENGINE*) {
    if (!begin("engine.init", "")) return 0;
    if (state->is_initialised) note_violation("engine.init: it is initialised");
    state->is_initialised = state->was_initialised = true;
    note_acquired("engine");
    return 1;
}

/// OpenSSL calls it when the last functional reference is dropped. It frees the keys, which drops their
/// references. A caller that breaks the cycle of engine and keys calls it directly, so that it runs twice.
int finish(ENGINE*) {
    note_call("engine.finish()");
    if (!state->was_initialised) note_violation("engine.finish: it was never initialised");
    if (!state->is_initialised) return 1;
    state->is_initialised = false;
    end_engine_keys();
    state->keys.clear();
    state->module.unload();
    note_released("engine");
    return 1;
}

int destroy(ENGINE*) {
    note_call("engine.destroy()");
    if (state->is_initialised) note_violation("engine.destroy: it is initialised");
    forget_pin();
    state.reset();
    tear_down_engine_objects();
    unload_error_texts();
    return 1;
}

int bind(ENGINE* engine, const char*) {
    if (step("engine.bind", "") != card_ok)
        return 0; // without an error: its text would be in this DLL, which is unloaded now
    set_up_engine_objects();
    state.emplace();
    return ::ENGINE_set_id(engine, "pkcs11") == 1 &&
                   ::ENGINE_set_name(engine, "double of libp11's engine") == 1 &&
                   ::ENGINE_set_init_function(engine, init) == 1 &&
                   ::ENGINE_set_finish_function(engine, finish) == 1 &&
                   ::ENGINE_set_destroy_function(engine, destroy) == 1 &&
                   ::ENGINE_set_ctrl_function(engine, control) == 1 &&
                   ::ENGINE_set_cmd_defns(engine, commands) == 1 &&
                   ::ENGINE_set_load_privkey_function(engine, load_private_key) == 1 &&
                   ::ENGINE_set_load_pubkey_function(engine, load_public_key) == 1 &&
                   ::ENGINE_set_RSA(engine, engine_rsa_method()) == 1 &&
                   ::ENGINE_set_EC(engine, engine_ec_method()) == 1 &&
                   ::ENGINE_set_pkey_meths(engine, engine_pkey_methods) == 1
               ? 1
               : 0;
}

} // namespace
} // namespace Kes::test

extern "C" {
IMPLEMENT_DYNAMIC_BIND_FN(Kes::test::bind)
IMPLEMENT_DYNAMIC_CHECK_FN()
}
