#include "libp11_state.h"

#include "call_log.h"

namespace Kes::test {
namespace {

template <typename T, typename Matches>
T* find_alive(std::list<T>& all, Matches matches, const std::string& what, const char* caller) {
    for (T& candidate : all)
        if (matches(candidate)) return &candidate;
    note_violation(std::string(caller) + ": no such " + what);
    return nullptr;
}

} // namespace

Libp11Slots::~Libp11Slots() {
    for (const auto& list : certs)
        for (const PKCS11_CERT& cert : list)
            ::X509_free(cert.x509);
}

Libp11State& Libp11State::instance() {
    static auto* const state = new Libp11State;
    return *state;
}

Libp11Context& Libp11State::add_context() {
    Libp11Context& context = contexts_.emplace_back();
    context.name = "ctx" + std::to_string(++contexts_made_);
    note_acquired(context.name);
    return context;
}

Libp11Slots& Libp11State::add_slots(Libp11Context& owner) {
    Libp11Slots& slots = slots_.emplace_back();
    slots.name = "slots" + std::to_string(++slots_made_);
    slots.owner = &owner;
    note_acquired(slots.name);
    return slots;
}

void Libp11State::remove(Libp11Context& context) {
    note_released(context.name);
    for (Libp11Slots& slots : slots_)
        if (slots.owner == &context) slots.owner = nullptr;
    contexts_.remove_if([&](const Libp11Context& candidate) { return &candidate == &context; });
}

void Libp11State::remove(Libp11Slots& slots) {
    note_released(slots.name);
    slots_.remove_if([&](const Libp11Slots& candidate) { return &candidate == &slots; });
}

Libp11Context* Libp11State::find(const PKCS11_CTX* ctx, const char* caller) {
    return find_alive(
        contexts_, [&](const Libp11Context& context) { return &context.ctx == ctx; }, "context", caller);
}

Libp11Slots* Libp11State::find(const PKCS11_SLOT* slot, const char* caller) {
    return find_alive(
        slots_,
        [&](const Libp11Slots& slots) {
            return slots.slots.data() == slot && slots.owner != nullptr && slots.owner->module.is_loaded();
        },
        "slot", caller);
}

Libp11Slots* Libp11State::find(const PKCS11_TOKEN* token, const char* caller) {
    return find_alive(
        slots_,
        [&](const Libp11Slots& slots) {
            return slots.tokens.data() == token && slots.slots[0].token == token && slots.owner != nullptr &&
                   slots.owner->module.is_loaded();
        },
        "token", caller);
}

} // namespace Kes::test
