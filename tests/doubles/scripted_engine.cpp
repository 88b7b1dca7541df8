#include "scripted_engine.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/ui.h>
#include <utility>

#include "inside_double.h"
#include "real_function.h"
#include "text_or_null.h"

/// OpenSSL's headers only declare this type; the definition belongs to the functions below.
struct engine_st {
    std::string name;
    const char* id = "dynamic"; // null if the engine has none
    bool is_loaded = false;
    bool is_in_list = false;
    bool is_list_asked = false;
    int references = 1;
    int extra_references = 0; // taken by ENGINE_up_ref()
    int functional_references = 0;
    int cycle = 0; // functional references that the engine's own key cache holds
    bool has_right_pin = false;
    ENGINE_GEN_INT_FUNC_PTR finish = nullptr;
};

namespace Kes::test {
namespace {

/// The engine's own finish function, which clears its key cache.
int clean_up(ENGINE* engine) {
    const InsideDouble inside;
    if (engine->cycle == 0) return 1;
    CallScript::instance().note("clean_up(" + engine->name + ")");
    engine->functional_references -= std::exchange(engine->cycle, 0);
    return 1;
}

} // namespace

ScriptedEngine::ScriptedEngine() = default;

ScriptedEngine::~ScriptedEngine() = default;

ScriptedEngine& ScriptedEngine::instance() {
    static ScriptedEngine engine;
    return engine;
}

void ScriptedEngine::reset() {
    private_key = nullptr;
    public_key = nullptr;
    certificate = nullptr;
    returns_certificate_on_failure = false;
    needs_right_pin = false;
    loaded_id = "pkcs11";
    unknown_command.clear();
    keys_hold_engine = false;
    refuses_loaded_library = false;
    refuses_key_engine = false;
    has_finish_function = true;
    std::move(engines_.begin(), engines_.end(), std::back_inserter(forgotten_));
    engines_.clear();
    objects_.clear();
    engines_made_ = keys_made_ = certs_made_ = keys_tracked_ = 0;
}

std::size_t ScriptedEngine::unreleased_engines() const {
    const auto count = std::count_if(engines_.begin(), engines_.end(),
                                     [](const auto& e) { return e->references > e->extra_references; });
    return static_cast<std::size_t>(count);
}

std::size_t ScriptedEngine::initialised_engines() const {
    const auto count = std::count_if(engines_.begin(), engines_.end(),
                                     [](const auto& e) { return e->functional_references > 0; });
    return static_cast<std::size_t>(count);
}

std::size_t ScriptedEngine::loaded_engines() const {
    const auto count =
        std::count_if(engines_.begin(), engines_.end(), [](const auto& e) { return e->is_loaded; });
    return static_cast<std::size_t>(count);
}

void ScriptedEngine::break_cycles() {
    for (const auto& engine : engines_)
        engine->functional_references -= std::exchange(engine->cycle, 0);
}

int ScriptedEngine::finish_copy() const {
    ENGINE copy;
    copy.name = "copy";
    return engines_.back()->finish(&copy);
}

ENGINE* ScriptedEngine::add_engine() {
    engines_.push_back(std::make_unique<ENGINE>());
    engines_.back()->finish = clean_up;
    engines_.back()->name = "engine" + std::to_string(++engines_made_);
    return engines_.back().get();
}

bool ScriptedEngine::is_known(const ENGINE* engine) const {
    return std::any_of(engines_.begin(), engines_.end(), [&](const auto& e) { return e.get() == engine; });
}

bool ScriptedEngine::is_alive(const ENGINE* engine) const {
    return is_known(engine) && engine->references > engine->extra_references;
}

bool ScriptedEngine::is_forgotten(const ENGINE* engine) const {
    return std::any_of(forgotten_.begin(), forgotten_.end(),
                       [&](const auto& e) { return e.get() == engine; });
}

void ScriptedEngine::free_engine(ENGINE* engine) {
    if (--engine->references != 0) return;
    const auto owner = std::find_if(engines_.begin(), engines_.end(),
                                    [&](const auto& owned) { return owned.get() == engine; });
    freed_.push_back(std::move(*owner));
    engines_.erase(owner);
}

void ScriptedEngine::track(const EVP_PKEY* key) { objects_[key] = "lent" + std::to_string(++keys_tracked_); }

EVP_PKEY* ScriptedEngine::make_copy(EVP_PKEY* key) {
    EVP_PKEY* copy = ::EVP_PKEY_dup(key);
    objects_[copy] = "key" + std::to_string(++keys_made_);
    return copy;
}

X509* ScriptedEngine::make_copy(X509* cert) { return track(::X509_dup(cert)); }

X509* ScriptedEngine::track(X509* cert) {
    objects_[cert] = "cert" + std::to_string(++certs_made_);
    return cert;
}

void ScriptedEngine::end_object(const char* function, const void* object) {
    const auto known = objects_.find(object);
    if (known == objects_.end()) return;
    CallScript::instance().note(std::string(function) + "(" + known->second + ")");
    objects_.erase(known);
}

namespace {

ScriptedEngine& the_double() { return ScriptedEngine::instance(); }

CallScript& script() { return CallScript::instance(); }

std::string name_of(const ENGINE* engine, const std::string& caller) {
    if (the_double().is_alive(engine)) return engine->name;
    script().violation(caller + ": no such engine");
    return "?";
}

/// As above, but a reference taken by ENGINE_up_ref() is sufficient.
std::string name_of_known(const ENGINE* engine, const std::string& caller) {
    return the_double().is_known(engine) ? engine->name : name_of(engine, caller);
}

void require_initialised(const ENGINE* engine, const char* function) {
    if (engine->functional_references == 0) script().violation(std::string(function) + ": not initialised");
}

EVP_PKEY* load_key(const char* function, ENGINE* engine, const char* name, const UI_METHOD* ui,
                   const void* callback_data, EVP_PKEY* source) {
    const std::string arguments = name_of(engine, function) + ", " + text_or_null(name);
    const Failure* failure = script().step(function, arguments);
    if (!the_double().is_alive(engine)) return nullptr;
    require_initialised(engine, function);
    if (ui != ::UI_OpenSSL() || callback_data != nullptr)
        script().violation(std::string(function) + ": wrong user interface");
    if (failure != nullptr || source == nullptr) return nullptr;
    return the_double().make_copy(source);
}

int run_command(ENGINE* engine, const std::string& command, const char* value) {
    if (command == "LIST_ADD") engine->is_list_asked = value != nullptr && std::strcmp(value, "1") == 0;
    if (command == "LOAD" && the_double().refuses_loaded_library && the_double().loaded_engines() > 0) {
        ERR_raise(ERR_LIB_ENGINE, ENGINE_R_INIT_FAILED);
        return 0;
    }
    if (command == "LOAD") {
        engine->is_loaded = true;
        engine->is_in_list = engine->is_list_asked;
        engine->id = the_double().loaded_id;
    }
    if (command == the_double().unknown_command) {
        ERR_raise(ERR_LIB_ENGINE, ENGINE_R_INVALID_CMD_NAME);
        return 0;
    }
    if (command == "PIN") engine->has_right_pin = script().is_right_pin(value);
    return 1;
}

void unregister(const char* function, const ENGINE* engine) {
    const InsideDouble inside;
    script().note(std::string(function) + "(" + name_of(engine, function) + ")");
}

} // namespace
} // namespace Kes::test

using Kes::test::Failure;
using Kes::test::InsideDouble;
using Kes::test::name_of;
using Kes::test::name_of_known;
using Kes::test::real_function;
using Kes::test::script;
using Kes::test::text_or_null;
using Kes::test::the_double;
using Kes::test::unregister;

extern "C" {

ENGINE* ENGINE_by_id(const char* id) {
    const InsideDouble inside;
    return script().step("ENGINE_by_id", id) != nullptr ? nullptr : the_double().add_engine();
}

int ENGINE_free(ENGINE* e) {
    const InsideDouble inside;
    script().note("ENGINE_free(" + name_of(e, "ENGINE_free") + ")");
    if (!the_double().is_alive(e)) return 0;
    if (e->functional_references != e->cycle) script().violation("ENGINE_free: still initialised");
    the_double().free_engine(e);
    return 1;
}

int ENGINE_ctrl_cmd_string(ENGINE* e, const char* cmd_name, const char* arg, int cmd_optional) {
    const InsideDouble inside;
    constexpr const char* function = "ENGINE_ctrl_cmd_string";
    const std::string command = text_or_null(cmd_name);
    const std::string value = command == "PIN" ? script().describe_pin(arg) : text_or_null(arg);
    const std::string named = std::string(function) + "(" + command + ")";
    if (cmd_optional != 0) script().violation(named + ": optional");
    const Failure* failure = script().step(function, name_of(e, function) + ", " + command + ", " + value);
    if (failure != nullptr) return failure->rc;
    return the_double().is_alive(e) ? Kes::test::run_command(e, command, arg) : 0;
}

int ENGINE_ctrl_cmd(ENGINE* e, const char* cmd_name, long i, void* p, void (*f)(void), int cmd_optional) {
    const InsideDouble inside;
    struct Record { // layout of the command's parameters in libp11's engine
        const char* cert_id;
        X509* cert;
    };
    constexpr const char* function = "ENGINE_ctrl_cmd";
    auto* record = static_cast<Record*>(p);
    if (std::strcmp(cmd_name, "LOAD_CERT_CTRL") != 0 || i != 0 || f != nullptr || cmd_optional != 0 ||
        record->cert != nullptr)
        script().violation("ENGINE_ctrl_cmd: wrong arguments");
    const Failure* failure = script().step(function, name_of(e, function) + ", " + cmd_name + ", " +
                                                         text_or_null(record->cert_id));
    if (!the_double().is_alive(e)) return 0;
    Kes::test::require_initialised(e, function);
    if (failure == nullptr || the_double().returns_certificate_on_failure)
        record->cert =
            the_double().certificate == nullptr ? nullptr : the_double().make_copy(the_double().certificate);
    return failure == nullptr ? 1 : failure->rc;
}

int ENGINE_init(ENGINE* e) {
    const InsideDouble inside;
    if (the_double().is_forgotten(e)) return 0;
    const Failure* failure = script().step("ENGINE_init", name_of_known(e, "ENGINE_init"));
    if (failure != nullptr) return failure->rc;
    if (!the_double().is_known(e)) return 0;
    if (!e->is_loaded) script().violation("ENGINE_init: nothing loaded");
    ++e->functional_references;
    return 1;
}

int ENGINE_finish(ENGINE* e) {
    const InsideDouble inside;
    const Failure* failure = script().step("ENGINE_finish", name_of_known(e, "ENGINE_finish"));
    if (!the_double().is_known(e)) return 0;
    if (e->functional_references == 0)
        script().violation("ENGINE_finish: not initialised");
    else if (--e->functional_references == 0) // also if the call is planned to fail
        e->finish(e);
    return failure == nullptr ? 1 : failure->rc;
}

int ENGINE_remove(ENGINE* e) {
    const InsideDouble inside;
    const Failure* failure = script().step("ENGINE_remove", name_of(e, "ENGINE_remove"));
    if (failure != nullptr) return failure->rc;
    if (!the_double().is_alive(e)) return 0;
    if (!e->is_in_list) script().violation("ENGINE_remove: not in the list");
    e->is_in_list = false;
    return 1;
}

int ENGINE_set_default(ENGINE* e, unsigned int flags) {
    const InsideDouble inside;
    const std::string arguments = name_of(e, "ENGINE_set_default") + ", " + std::to_string(flags);
    if (const Failure* failure = script().step("ENGINE_set_default", arguments)) return failure->rc;
    if (the_double().is_alive(e)) Kes::test::require_initialised(e, "ENGINE_set_default");
    return 1;
}

const char* ENGINE_get_id(const ENGINE* e) {
    const InsideDouble inside;
    script().note("ENGINE_get_id(" + name_of(e, "ENGINE_get_id") + ")");
    return the_double().is_alive(e) ? e->id : "?";
}

EVP_PKEY* ENGINE_load_private_key(ENGINE* e, const char* key_id, UI_METHOD* ui_method, void* callback_data) {
    const InsideDouble inside;
    EVP_PKEY* source = the_double().private_key;
    if (the_double().needs_right_pin && the_double().is_alive(e) && !e->has_right_pin) {
        Kes::test::put_on_error_queue("PIN incorrect");
        source = nullptr;
    }
    EVP_PKEY* key =
        Kes::test::load_key("ENGINE_load_private_key", e, key_id, ui_method, callback_data, source);
    if (key != nullptr && the_double().keys_hold_engine && e->cycle == 0)
        e->functional_references += ++e->cycle;
    return key;
}

EVP_PKEY* ENGINE_load_public_key(ENGINE* e, const char* key_id, UI_METHOD* ui_method, void* callback_data) {
    const InsideDouble inside;
    return Kes::test::load_key("ENGINE_load_public_key", e, key_id, ui_method, callback_data,
                               the_double().public_key);
}

void ENGINE_unregister_RSA(ENGINE* e) { unregister("ENGINE_unregister_RSA", e); }
void ENGINE_unregister_DSA(ENGINE* e) { unregister("ENGINE_unregister_DSA", e); }
void ENGINE_unregister_EC(ENGINE* e) { unregister("ENGINE_unregister_EC", e); }
void ENGINE_unregister_DH(ENGINE* e) { unregister("ENGINE_unregister_DH", e); }
void ENGINE_unregister_RAND(ENGINE* e) { unregister("ENGINE_unregister_RAND", e); }
void ENGINE_unregister_ciphers(ENGINE* e) { unregister("ENGINE_unregister_ciphers", e); }
void ENGINE_unregister_digests(ENGINE* e) { unregister("ENGINE_unregister_digests", e); }
void ENGINE_unregister_pkey_meths(ENGINE* e) { unregister("ENGINE_unregister_pkey_meths", e); }
void ENGINE_unregister_pkey_asn1_meths(ENGINE* e) { unregister("ENGINE_unregister_pkey_asn1_meths", e); }

int ENGINE_up_ref(ENGINE* e) {
    const InsideDouble inside;
    if (!the_double().is_known(e)) {
        script().violation("ENGINE_up_ref: no such engine");
        return 0;
    }
    ++e->references;
    ++e->extra_references;
    return 1;
}

/// The reference taken by ENGINE_up_ref() before now belongs to the list.
int ENGINE_add(ENGINE* e) {
    const InsideDouble inside;
    script().note("ENGINE_add(" + e->name + ")");
    e->is_in_list = true;
    --e->extra_references;
    return 1;
}

ENGINE_GEN_INT_FUNC_PTR ENGINE_get_finish_function(const ENGINE* e) {
    const InsideDouble inside;
    return the_double().has_finish_function ? e->finish : nullptr;
}

int ENGINE_set_finish_function(ENGINE* e, ENGINE_GEN_INT_FUNC_PTR finish_f) {
    const InsideDouble inside;
    e->finish = finish_f;
    return 1;
}

int EVP_PKEY_set1_engine(EVP_PKEY* pkey, ENGINE* e) {
    const InsideDouble inside;
    if (e == nullptr) return 1;
    name_of(e, "EVP_PKEY_set1_engine");
    if (the_double().refuses_key_engine) {
        Kes::test::put_on_error_queue("no such method");
        return 0;
    }
    the_double().track(pkey);
    return 1;
}

void X509_free(X509* a) {
    const InsideDouble inside;
    static const auto real = real_function<void (*)(X509*)>("X509_free");
    the_double().end_object("X509_free", a);
    real(a);
}

void EVP_PKEY_free(EVP_PKEY* pkey) {
    const InsideDouble inside;
    static const auto real = real_function<void (*)(EVP_PKEY*)>("EVP_PKEY_free");
    the_double().end_object("EVP_PKEY_free", pkey);
    real(pkey);
}

/// Makes a failure of this function testable. The real one fails only when memory is exhausted.
int X509_NAME_print_ex(BIO* out, const X509_NAME* nm, int indent, unsigned long flags) {
    const InsideDouble inside;
    using Print = int (*)(BIO*, const X509_NAME*, int, unsigned long);
    static const auto real = real_function<Print>("X509_NAME_print_ex");
    if (const Failure* failure = script().step("X509_NAME_print_ex", "")) return failure->rc;
    return real(out, nm, indent, flags);
}

} // extern "C"
