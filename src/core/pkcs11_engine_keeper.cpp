#include "pkcs11_engine_keeper.h"

#include <atomic>
#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/rsa.h>

namespace Kes {
namespace {

struct State {
    ENGINE* engine = nullptr;
    std::string path;
    ENGINE_GEN_INT_FUNC_PTR clean_up = nullptr; // the engine's own
    bool is_clean = true;                       // nothing was set up since the last clean-up
    std::atomic<int> lent_keys = 0;             // a client may free its last key from any thread
};

/// Never ends: clients free keys after the library's life, at process exit even.
State& state() {
    static State* const kept = new State;
    return *kept;
}

int note_clean_up(ENGINE* engine) {
    state().is_clean = true;
    return state().clean_up(engine);
}

// OpenSSL calls these two when a lent key is duplicated and freed; the value is not null for lent keys alone.
int note_duplicate(CRYPTO_EX_DATA*, const CRYPTO_EX_DATA*, void** value, int, long, void*) {
    if (*value != nullptr) ++state().lent_keys;
    return 1;
}

void note_free(void*, void* value, CRYPTO_EX_DATA*, int, long, void*) {
    if (value != nullptr) --state().lent_keys;
}

int lent_key_index() {
    static const int index =
        ::CRYPTO_get_ex_new_index(CRYPTO_EX_INDEX_EVP_PKEY, 0, nullptr, nullptr, note_duplicate, note_free);
    return index;
}

bool share_material(EVP_PKEY* lent, EVP_PKEY* engine_key) {
    if (::EVP_PKEY_get_base_id(engine_key) == EVP_PKEY_RSA) {
        const std::unique_ptr<RSA, FreeWith<&::RSA_free>> rsa(::EVP_PKEY_get1_RSA(engine_key));
        return rsa && ::EVP_PKEY_set1_RSA(lent, rsa.get()) == 1;
    }
    const std::unique_ptr<EC_KEY, FreeWith<&::EC_KEY_free>> ec(::EVP_PKEY_get1_EC_KEY(engine_key));
    return ec && ::EVP_PKEY_set1_EC_KEY(lent, ec.get()) == 1;
}

} // namespace

void Pkcs11EngineKeeper::keep(ENGINE* engine, const std::string& engine_path) {
    State& kept = state();
    // An engine from another library may be remembered already. It stays loaded, and is not missed: OpenSSL
    // refuses only the library that is alive.
    if (::ENGINE_up_ref(engine) != 1) return;
    kept.engine = engine;
    kept.path = engine_path;
    kept.clean_up = ::ENGINE_get_finish_function(engine);
    if (kept.clean_up != nullptr) ::ENGINE_set_finish_function(engine, note_clean_up);
}

ENGINE* Pkcs11EngineKeeper::reuse(const std::string& engine_path) {
    State& kept = state();
    if (kept.engine == nullptr || !kept.is_clean || kept.path != engine_path) return nullptr;
    if (::ENGINE_up_ref(kept.engine) != 1) return nullptr;
    ::ERR_set_mark();
    ::ENGINE_add(kept.engine); // fails when it is in the list still, which is as good
    ::ERR_pop_to_mark();
    return kept.engine;
}

void Pkcs11EngineKeeper::note_set_up() noexcept { state().is_clean = false; }

EvpPkeyPtr Pkcs11EngineKeeper::lend(EvpPkeyPtr engine_key, ENGINE* engine) {
    State& kept = state();
    EvpPkeyPtr lent(::EVP_PKEY_new());
    ++kept.lent_keys;
    if (lent && share_material(lent.get(), engine_key.get()) &&
        ::EVP_PKEY_set1_engine(lent.get(), engine) == 1 &&
        ::EVP_PKEY_set_ex_data(lent.get(), lent_key_index(), &kept) == 1)
        return lent;
    return engine_key; // counted for ever: nobody will tell when it is freed
}

void Pkcs11EngineKeeper::forget_pin() noexcept {
    if (state().engine == nullptr || state().clean_up == nullptr) return;
    ::ERR_set_mark();
    ::ENGINE_ctrl_cmd_string(state().engine, "PIN", "", 0);
    ::ERR_pop_to_mark();
}

void Pkcs11EngineKeeper::finish_leftover() noexcept {
    State& kept = state();
    if (kept.engine == nullptr || kept.is_clean || kept.clean_up == nullptr || kept.lent_keys != 0) return;
    // A user of our own meanwhile: without it the clean-up would end the last user and so run inside itself.
    if (::ENGINE_init(kept.engine) != 1) return;
    note_clean_up(kept.engine);
    ::ENGINE_finish(kept.engine);
}

bool Pkcs11EngineKeeper::is_held_by_client() noexcept { return state().lent_keys != 0; }

} // namespace Kes
