#include "scripted_libp11.h"

#include <algorithm>
#include <deque>
#include <openssl/x509.h>

#include "inside_double.h"

namespace Kes::test {

struct ScriptedLibp11::Context {
    PKCS11_CTX ctx{};
    std::string name;
    bool is_loaded = false;
};

/// The result of one enumeration of slots, and all objects listed on their tokens.
struct ScriptedLibp11::SlotArray {
    ~SlotArray() {
        for (X509* x509 : copies)
            ::X509_free(x509);
    }

    char* keep(const ScriptedText& text) {
        if (!text) return nullptr;
        texts.push_back(*text);
        return texts.back().data();
    }

    unsigned char* keep(const std::vector<unsigned char>& id) {
        if (id.empty()) return nullptr;
        ids.push_back(id);
        return ids.back().data();
    }

    std::string name;
    const Context* owner = nullptr;
    std::vector<PKCS11_SLOT> slots;
    std::vector<PKCS11_TOKEN> tokens; // parallel to slots; entries of empty slots are unused
    std::vector<std::size_t> scripted_slots;
    std::deque<std::vector<PKCS11_CERT>> certs;
    std::deque<std::vector<PKCS11_KEY>> keys;
    std::deque<std::string> texts;
    std::deque<std::vector<unsigned char>> ids;
    std::vector<X509*> copies;
};

ScriptedLibp11::ScriptedLibp11() = default;

ScriptedLibp11::~ScriptedLibp11() = default;

ScriptedLibp11& ScriptedLibp11::instance() {
    static ScriptedLibp11 libp11;
    return libp11;
}

void ScriptedLibp11::reset() {
    manufacturer = "Module maker";
    description = "Module";
    slots.clear();
    is_logged_in = false;
    queued_by_free.reset();
    contexts_.clear();
    arrays_.clear();
    contexts_made_ = 0;
    arrays_made_ = 0;
}

std::size_t ScriptedLibp11::unreleased_contexts() const { return contexts_.size(); }

std::size_t ScriptedLibp11::unreleased_slot_arrays() const { return arrays_.size(); }

ScriptedLibp11::Context* ScriptedLibp11::find(const PKCS11_CTX* ctx, const std::string& caller) {
    for (const auto& context : contexts_)
        if (&context->ctx == ctx) return context.get();
    CallScript::instance().violation(caller + ": no such context");
    return nullptr;
}

ScriptedLibp11::SlotArray* ScriptedLibp11::find_array(const PKCS11_SLOT* slots_in,
                                                      const std::string& caller) {
    for (const auto& array : arrays_)
        if (array->slots.data() == slots_in) return array.get();
    CallScript::instance().violation(caller + ": no such slot array");
    return nullptr;
}

std::string ScriptedLibp11::name_of(const PKCS11_SLOT* slot, const std::string& caller) {
    for (const auto& array : arrays_)
        for (std::size_t i = 0; i < array->slots.size(); ++i)
            if (&array->slots[i] == slot) return "slot" + array->name.substr(5) + "." + std::to_string(i + 1);
    CallScript::instance().violation(caller + ": no such slot");
    return "?";
}

std::string ScriptedLibp11::name_of(const PKCS11_TOKEN* token, const std::string& caller) {
    if (SlotArray* array = array_of(token))
        return "token" + array->name.substr(5) + "." + std::to_string(token - array->tokens.data() + 1);
    CallScript::instance().violation(caller + ": no such token");
    return "?";
}

ScriptedLibp11::SlotArray* ScriptedLibp11::array_of(const PKCS11_TOKEN* token) {
    for (const auto& array : arrays_)
        for (const PKCS11_TOKEN& candidate : array->tokens)
            if (&candidate == token) return array.get();
    return nullptr;
}

ScriptedToken* ScriptedLibp11::script_of(const PKCS11_TOKEN* token) {
    SlotArray* array = array_of(token);
    if (array == nullptr) return nullptr;
    const auto index = static_cast<std::size_t>(token - array->tokens.data());
    return index < slots.size() && slots[index].token ? &*slots[index].token : nullptr;
}

ScriptedLibp11::Context* ScriptedLibp11::add_context() {
    contexts_.push_back(std::make_unique<Context>());
    contexts_.back()->name = "ctx" + std::to_string(++contexts_made_);
    return contexts_.back().get();
}

ScriptedLibp11::SlotArray* ScriptedLibp11::add_slot_array(Context* owner) {
    arrays_.push_back(std::make_unique<SlotArray>());
    SlotArray& array = *arrays_.back();
    array.name = "slots" + std::to_string(++arrays_made_);
    array.owner = owner;
    array.slots.resize(slots.size());
    array.tokens.resize(slots.size());
    for (std::size_t i = 0; i < slots.size(); ++i) {
        array.slots[i].manufacturer = array.keep(slots[i].manufacturer);
        array.slots[i].description = array.keep(slots[i].description);
        if (!slots[i].token) continue;
        const ScriptedToken& script = *slots[i].token;
        PKCS11_TOKEN& token = array.tokens[i];
        token.label = array.keep(script.label);
        token.manufacturer = array.keep(script.manufacturer);
        token.model = array.keep(script.model);
        token.serialnr = array.keep(script.serialnr);
        token.initialized = script.is_initialized ? 1 : 0;
        token.loginRequired = script.loginRequired;
        token.secureLogin = script.secureLogin;
        token.slot = &array.slots[i];
        array.slots[i].token = &token;
    }
    return &array;
}

void ScriptedLibp11::free_context(Context* context) {
    std::erase_if(contexts_, [&](const auto& owned) { return owned.get() == context; });
}

void ScriptedLibp11::free_slot_array(SlotArray* array) {
    std::erase_if(arrays_, [&](const auto& owned) { return owned.get() == array; });
}

namespace {

ScriptedLibp11& the_double() { return ScriptedLibp11::instance(); }

CallScript& script() { return CallScript::instance(); }

const char* role(int so) { return so == 0 ? "user" : "so"; }

/// Lists the objects as libp11 structures of type Object, which are valid as long as the slots.
template <typename Object, typename Finish>
void list_objects(ScriptedLibp11::SlotArray& array, std::deque<std::vector<Object>>& lists,
                  const std::vector<ScriptedObject>& objects, Object** out, unsigned int* count,
                  Finish finish) {
    std::vector<Object>& list = lists.emplace_back(objects.size());
    for (std::size_t i = 0; i < objects.size(); ++i) {
        list[i].label = array.keep(objects[i].label);
        list[i].id = array.keep(objects[i].id);
        list[i].id_len = objects[i].id.size();
        finish(list[i], objects[i]);
    }
    *out = list.empty() ? nullptr : list.data();
    *count = static_cast<unsigned int>(list.size());
}

int list_keys(const char* function, PKCS11_TOKEN* token, PKCS11_KEY** keys, unsigned int* count,
              std::vector<ScriptedObject> ScriptedToken::*kind) {
    if (const Failure* failure = script().step(function, the_double().name_of(token, function)))
        return failure->rc;
    const ScriptedToken* scripted = the_double().script_of(token);
    if (scripted == nullptr) return -1;
    const bool is_private = kind == &ScriptedToken::private_keys;
    const bool is_hidden = is_private && scripted->loginRequired != 0 && scripted->secureLogin == 0 &&
                           !the_double().is_logged_in;
    ScriptedLibp11::SlotArray& array = *the_double().array_of(token);
    list_objects(array, array.keys, is_hidden ? std::vector<ScriptedObject>() : scripted->*kind, keys, count,
                 [&](PKCS11_KEY& key, const ScriptedObject&) { key.isPrivate = is_private ? 1 : 0; });
    return 0;
}

} // namespace
} // namespace Kes::test

using Kes::test::Failure;
using Kes::test::InsideDouble;
using Kes::test::list_keys;
using Kes::test::list_objects;
using Kes::test::role;
using Kes::test::script;
using Kes::test::ScriptedLibp11;
using Kes::test::ScriptedObject;
using Kes::test::ScriptedToken;
using Kes::test::the_double;

extern "C" {

void ERR_load_PKCS11_strings(void) {
    const InsideDouble inside;
    script().note("ERR_load_PKCS11_strings()");
}

PKCS11_CTX* PKCS11_CTX_new(void) {
    const InsideDouble inside;
    return script().step("PKCS11_CTX_new", "") != nullptr ? nullptr : &the_double().add_context()->ctx;
}

int PKCS11_CTX_load(PKCS11_CTX* ctx, const char* ident) {
    const InsideDouble inside;
    ScriptedLibp11::Context* context = the_double().find(ctx, "PKCS11_CTX_load");
    if (context == nullptr) return -1;
    const std::string arguments = context->name + ", " + (ident == nullptr ? "null" : ident);
    if (const Failure* failure = script().step("PKCS11_CTX_load", arguments)) return failure->rc;
    context->is_loaded = true;
    // The module's texts are valid as long as the test double exists.
    ctx->manufacturer = the_double().manufacturer ? the_double().manufacturer->data() : nullptr;
    ctx->description = the_double().description ? the_double().description->data() : nullptr;
    return 0;
}

void PKCS11_CTX_unload(PKCS11_CTX* ctx) {
    const InsideDouble inside;
    ScriptedLibp11::Context* context = the_double().find(ctx, "PKCS11_CTX_unload");
    script().note("PKCS11_CTX_unload(" + (context == nullptr ? "?" : context->name) + ")");
    if (context == nullptr) return;
    if (!context->is_loaded) script().violation("PKCS11_CTX_unload: nothing loaded");
    context->is_loaded = false;
    the_double().is_logged_in = false;
}

void PKCS11_CTX_free(PKCS11_CTX* ctx) {
    const InsideDouble inside;
    ScriptedLibp11::Context* context = the_double().find(ctx, "PKCS11_CTX_free");
    script().note("PKCS11_CTX_free(" + (context == nullptr ? "?" : context->name) + ")");
    if (context == nullptr) return;
    if (context->is_loaded) script().violation("PKCS11_CTX_free: still loaded");
    if (the_double().queued_by_free) Kes::test::put_on_error_queue(*the_double().queued_by_free);
    the_double().free_context(context);
}

int PKCS11_enumerate_slots(PKCS11_CTX* ctx, PKCS11_SLOT** slotsp, unsigned int* nslotsp) {
    const InsideDouble inside;
    ScriptedLibp11::Context* context = the_double().find(ctx, "PKCS11_enumerate_slots");
    if (context == nullptr) return -1;
    if (const Failure* failure = script().step("PKCS11_enumerate_slots", context->name)) return failure->rc;
    ScriptedLibp11::SlotArray* array = the_double().add_slot_array(context);
    *slotsp = array->slots.data();
    *nslotsp = static_cast<unsigned int>(array->slots.size());
    return 0;
}

void PKCS11_release_all_slots(PKCS11_CTX* ctx, PKCS11_SLOT* slots, unsigned int nslots) {
    const InsideDouble inside;
    const ScriptedLibp11::Context* context = the_double().find(ctx, "PKCS11_release_all_slots");
    ScriptedLibp11::SlotArray* array = the_double().find_array(slots, "PKCS11_release_all_slots");
    script().note("PKCS11_release_all_slots(" + (context == nullptr ? "?" : context->name) + ", " +
                  (array == nullptr ? "?" : array->name) + ", " + std::to_string(nslots) + ")");
    if (array == nullptr) return;
    if (array->owner != context || array->slots.size() != nslots)
        script().violation("PKCS11_release_all_slots: wrong context or count");
    the_double().free_slot_array(array);
}

PKCS11_SLOT* PKCS11_find_token(PKCS11_CTX* ctx, PKCS11_SLOT* slots, unsigned int nslots) {
    const InsideDouble inside;
    const ScriptedLibp11::Context* context = the_double().find(ctx, "PKCS11_find_token");
    ScriptedLibp11::SlotArray* array = the_double().find_array(slots, "PKCS11_find_token");
    if (context == nullptr || array == nullptr) return nullptr;
    const std::string arguments = context->name + ", " + array->name + ", " + std::to_string(nslots);
    if (script().step("PKCS11_find_token", arguments) != nullptr) return nullptr;
    PKCS11_SLOT* best = nullptr; // the first initialised token, or else the first token
    for (PKCS11_SLOT& slot : array->slots) {
        if (slot.token == nullptr) continue;
        if (best == nullptr || best->token->initialized < slot.token->initialized) best = &slot;
    }
    return best;
}

int PKCS11_is_logged_in(PKCS11_SLOT* slot, int so, int* res) {
    const InsideDouble inside;
    const std::string arguments = the_double().name_of(slot, "PKCS11_is_logged_in") + ", " + role(so);
    if (const Failure* failure = script().step("PKCS11_is_logged_in", arguments)) return failure->rc;
    *res = the_double().is_logged_in ? 1 : 0;
    return 0;
}

int PKCS11_login(PKCS11_SLOT* slot, int so, const char* pin) {
    const InsideDouble inside;
    const std::string arguments =
        the_double().name_of(slot, "PKCS11_login") + ", " + role(so) + ", " + script().describe_pin(pin);
    if (const Failure* failure = script().step("PKCS11_login", arguments)) return failure->rc;
    if (!script().is_right_pin(pin)) {
        Kes::test::put_on_error_queue("PIN incorrect");
        return -1;
    }
    the_double().is_logged_in = true;
    return 0;
}

int PKCS11_enumerate_certs(PKCS11_TOKEN* token, PKCS11_CERT** certs, unsigned int* count) {
    const InsideDouble inside;
    constexpr const char* function = "PKCS11_enumerate_certs";
    if (const Failure* failure = script().step(function, the_double().name_of(token, function)))
        return failure->rc;
    const ScriptedToken* scripted = the_double().script_of(token);
    if (scripted == nullptr) return -1;
    ScriptedLibp11::SlotArray& array = *the_double().array_of(token);
    list_objects(array, array.certs, scripted->certs, certs, count,
                 [&](PKCS11_CERT& cert, const ScriptedObject& object) {
                     if (object.x509 == nullptr) return;
                     cert.x509 = ::X509_dup(object.x509);
                     array.copies.push_back(cert.x509);
                 });
    return 0;
}

int PKCS11_enumerate_keys(PKCS11_TOKEN* token, PKCS11_KEY** keys, unsigned int* count) {
    const InsideDouble inside;
    return list_keys("PKCS11_enumerate_keys", token, keys, count, &ScriptedToken::private_keys);
}

int PKCS11_enumerate_public_keys(PKCS11_TOKEN* token, PKCS11_KEY** keys, unsigned int* count) {
    const InsideDouble inside;
    return list_keys("PKCS11_enumerate_public_keys", token, keys, count, &ScriptedToken::public_keys);
}

} // extern "C"
