// The test double of libp11.dll: the functions of libp11 0.4.12 that the library calls, with the same
// signatures, failures and entries on the error queue.
#include "call_log.h"
#include "doubles/text_or_null.h"
#include "error_texts.h"
#include "libp11_state.h"

namespace Kes::test {
namespace {

Libp11State& state() { return Libp11State::instance(); }

const char* role_name(int so) { return so == 0 ? "user" : "so"; }

template <typename T>
std::string name_of(const T* object) {
    return object == nullptr ? "?" : object->name;
}

/// Records a call and raises a planned failure. @return whether the call continues
bool begin(const char* function, const std::string& arguments) {
    const unsigned long code = step(function, arguments);
    if (code != card_ok) raise_module_error(code, function);
    return code == card_ok;
}

/// Converts the module's result to that of libp11.
int result(unsigned long code, const char* function) {
    if (code == card_ok) return 0;
    raise_module_error(code, function);
    return -1;
}

void describe(Libp11Slots& slots, std::size_t index, const CardToken& card, const char* label) {
    PKCS11_TOKEN& token = slots.tokens[index];
    token.label = slots.keep(label);
    token.manufacturer = slots.keep(card.manufacturer);
    token.model = slots.keep(card.model);
    token.serialnr = slots.keep(card.serial);
    token.initialized = card.is_initialized ? 1 : 0;
    token.userPinSet = 1;
    token.loginRequired = card.is_login_required ? 1 : 0;
    token.secureLogin = card.has_pin_pad ? 1 : 0;
    token.userPinFinalTry = card.is_final_try ? 1 : 0;
    token.userPinLocked = card.is_locked ? 1 : 0;
    token.slot = &slots.slots[index];
    slots.slots[index].token = &token;
}

void describe_readers(Libp11Slots& slots, const CardToken* card) {
    for (std::size_t i = 0; i < slots.slots.size(); ++i) {
        slots.slots[i].manufacturer = slots.keep("Slot maker");
        slots.slots[i].description = slots.keep(i == 0 ? "Slot 1" : "Slot 2");
    }
    if (card == nullptr) return;
    describe(slots, 0, *card, card->label);
    if (*card->second_label == '\0') return;
    describe(slots, 1, *card, card->second_label);
    slots.count = 2;
}

/// Lists the card's objects as libp11's structures, which are valid as long as the slots.
template <typename Object, typename Finish>
int list_objects(const char* function, PKCS11_TOKEN* token, CardKind kind,
                 std::deque<std::vector<Object>> Libp11Slots::*lists, Object** out, unsigned int* count,
                 Finish finish) {
    Libp11Slots* slots = state().find(token, function);
    if (!begin(function, name_of(slots)) || slots == nullptr) return -1;
    const CardObject* objects = nullptr;
    std::size_t size = 0;
    if (const unsigned long code = slots->owner->module->list(kind, &objects, &size))
        return result(code, function);
    std::vector<Object>& list = (slots->*lists).emplace_back(size);
    for (std::size_t i = 0; i < size; ++i) {
        list[i].label = slots->keep(objects[i].label);
        list[i].id = slots->ids.emplace_back(objects[i].id, objects[i].id + objects[i].id_size).data();
        list[i].id_len = objects[i].id_size;
        finish(list[i], objects[i]);
    }
    *out = list.empty() ? nullptr : list.data();
    *count = static_cast<unsigned int>(size);
    return 0;
}

int list_keys(const char* function, PKCS11_TOKEN* token, CardKind kind, PKCS11_KEY** keys,
              unsigned int* count) {
    return list_objects(
        function, token, kind, &Libp11Slots::keys, keys, count,
        [&](PKCS11_KEY& key, const CardObject&) { key.isPrivate = kind == CardKind::private_key ? 1 : 0; });
}

} // namespace
} // namespace Kes::test

using namespace Kes::test;

extern "C" {

void ERR_load_PKCS11_strings(void) {
    note_call("ERR_load_PKCS11_strings()");
    load_error_texts();
}

PKCS11_CTX* PKCS11_CTX_new(void) {
    return step("PKCS11_CTX_new", "") == card_ok ? &state().add_context().ctx : nullptr;
}

int PKCS11_CTX_load(PKCS11_CTX* ctx, const char* ident) {
    constexpr const char* function = "PKCS11_CTX_load";
    Libp11Context* context = state().find(ctx, function);
    if (!begin(function, name_of(context) + ", " + text_or_null(ident)) || context == nullptr) return -1;
    if (context->module.is_loaded()) {
        note_violation(std::string(function) + ": a module is loaded");
        return -1;
    }
    if (!context->module.load(ident, function)) return -1;
    note_acquired("module of " + context->name);
    ctx->manufacturer = context->manufacturer.data();
    ctx->description = context->description.data();
    return 0;
}

void PKCS11_CTX_unload(PKCS11_CTX* ctx) {
    Libp11Context* context = state().find(ctx, "PKCS11_CTX_unload");
    note_call("PKCS11_CTX_unload(" + name_of(context) + ")");
    if (context == nullptr) return;
    if (!context->module.is_loaded()) return note_violation("PKCS11_CTX_unload: no module is loaded");
    context->module.unload();
    note_released("module of " + context->name);
}

void PKCS11_CTX_free(PKCS11_CTX* ctx) {
    Libp11Context* context = state().find(ctx, "PKCS11_CTX_free");
    note_call("PKCS11_CTX_free(" + name_of(context) + ")");
    if (context == nullptr) return;
    if (context->module.is_loaded()) note_violation("PKCS11_CTX_free: the module is still loaded");
    state().remove(*context);
}

int PKCS11_enumerate_slots(PKCS11_CTX* ctx, PKCS11_SLOT** slotsp, unsigned int* nslotsp) {
    constexpr const char* function = "PKCS11_enumerate_slots";
    Libp11Context* context = state().find(ctx, function);
    if (!begin(function, name_of(context)) || context == nullptr) return -1;
    if (!context->module.is_loaded()) {
        note_violation(std::string(function) + ": no module is loaded");
        return -1;
    }
    const CardToken* card = nullptr;
    if (const unsigned long code = context->module->read_token(&card)) return result(code, function);
    Libp11Slots& slots = state().add_slots(*context);
    describe_readers(slots, card);
    *slotsp = slots.slots.data();
    *nslotsp = slots.count;
    return 0;
}

void PKCS11_release_all_slots(PKCS11_CTX* ctx, PKCS11_SLOT* slots_in, unsigned int nslots) {
    constexpr const char* function = "PKCS11_release_all_slots";
    const Libp11Context* context = state().find(ctx, function);
    Libp11Slots* slots = state().find(slots_in, function);
    note_call(std::string(function) + "(" + name_of(context) + ", " + name_of(slots) + ", " +
              std::to_string(nslots) + ")");
    if (slots == nullptr) return;
    if (slots->owner != context || nslots != slots->count)
        note_violation(std::string(function) + ": wrong context or count");
    slots->owner->module->close_sessions();
    state().remove(*slots);
}

PKCS11_SLOT* PKCS11_find_token(PKCS11_CTX* ctx, PKCS11_SLOT* slots_in, unsigned int nslots) {
    constexpr const char* function = "PKCS11_find_token";
    const Libp11Context* context = state().find(ctx, function);
    const Libp11Slots* slots = state().find(slots_in, function);
    const std::string arguments = name_of(context) + ", " + name_of(slots) + ", " + std::to_string(nslots);
    if (step(function, arguments) != card_ok || slots == nullptr) return nullptr;
    return slots->slots[0].token == nullptr ? nullptr : slots_in;
}

int PKCS11_is_logged_in(PKCS11_SLOT* slot, int so, int* res) {
    constexpr const char* function = "PKCS11_is_logged_in";
    Libp11Slots* slots = state().find(slot, function);
    if (!begin(function, name_of(slots) + ", " + role_name(so)) || slots == nullptr) return -1;
    bool is_logged_in = false;
    if (const unsigned long code = slots->owner->module->is_logged_in(&is_logged_in))
        return result(code, function);
    *res = is_logged_in ? 1 : 0;
    return 0;
}

int PKCS11_login(PKCS11_SLOT* slot, int so, const char* pin) {
    constexpr const char* function = "PKCS11_login";
    Libp11Slots* slots = state().find(slot, function);
    const std::string arguments = name_of(slots) + ", " + role_name(so) + ", " + describe_pin(pin);
    if (!begin(function, arguments) || slots == nullptr) return -1;
    if (slots->slots[0].token == nullptr) {
        note_violation(std::string(function) + ": no token is there");
        return -1;
    }
    const unsigned long code = slots->owner->module->login(pin);
    return code == user_already_logged_in ? 0 : result(code, function);
}

int PKCS11_enumerate_certs(PKCS11_TOKEN* token, PKCS11_CERT** certs, unsigned int* count) {
    return list_objects(
        "PKCS11_enumerate_certs", token, CardKind::certificate, &Libp11Slots::certs, certs, count,
        [](PKCS11_CERT& cert, const CardObject& object) { cert.x509 = ::X509_dup(object.certificate); });
}

int PKCS11_enumerate_keys(PKCS11_TOKEN* token, PKCS11_KEY** keys, unsigned int* count) {
    return list_keys("PKCS11_enumerate_keys", token, CardKind::private_key, keys, count);
}

int PKCS11_enumerate_public_keys(PKCS11_TOKEN* token, PKCS11_KEY** keys, unsigned int* count) {
    return list_keys("PKCS11_enumerate_public_keys", token, CardKind::public_key, keys, count);
}

/// The library only checks that this function exists.
int PKCS11_update_slots(PKCS11_CTX*, PKCS11_SLOT**, unsigned int*) {
    note_violation("PKCS11_update_slots: the library must not call it");
    return -1;
}

} // extern "C"
