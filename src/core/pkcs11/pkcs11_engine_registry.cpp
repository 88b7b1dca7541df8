#include "pkcs11/pkcs11_engine_registry.h"

#include <atomic>
#include <filesystem>
#include <openssl/engine.h>

#include "pkcs11/key_lender.h"
#include "utils/error_queue_mark.h"
#include "utils/platform.h"

namespace Kes {

struct LoadedEngineRecord {
    EnginePtr engine;                             // null while the record is only reserved
    std::string file;                             // as library_name() returns it
    ENGINE_GEN_INT_FUNC_PTR own_finish = nullptr; // the engine's finish function; may be null
    std::atomic<bool> is_clean = true; // nothing was set up since the last clean-up. Atomic, because a client
                                       // may free its last key in any thread
    KeyLender key_lender;
    bool has_pin = false;
};

namespace {

/// OpenSSL identifies an engine library by its code, not by its name: all paths to one file are one library,
/// whatever the current directory is. A name without a folder is returned unchanged, because the loader
/// searches for it.
std::string library_name(const std::string& path) {
    try {
        if (!std::filesystem::path(path).has_parent_path()) return path;
        return std::filesystem::weakly_canonical(std::filesystem::absolute(path)).string();
    } catch (const std::filesystem::filesystem_error&) {
        return path; // on Windows also for characters that the C++ library cannot convert
    }
}

/// True when both paths name one file although the strings differ: another hard link, or letter case on
/// Windows.
bool is_same_file(const std::string& left, const std::string& right) {
    try {
        return std::filesystem::path(left).has_parent_path() &&
               std::filesystem::path(right).has_parent_path() && std::filesystem::equivalent(left, right);
    } catch (const std::filesystem::filesystem_error&) {
        return false;
    }
}

int run_finish(LoadedEngineRecord& record) {
    record.is_clean = true;
    return record.own_finish(record.engine.get());
}

void clean_up(LoadedEngineRecord& record) {
    if (record.is_clean || record.key_lender.has_lent_keys()) return;
    // Hold a functional reference during the call; otherwise the finish function drops the last one itself
    // and is re-entered.
    if (::ENGINE_init(record.engine.get()) != 1) return;
    run_finish(record);
    ::ENGINE_finish(record.engine.get());
}

} // namespace

LoadedEngine::~LoadedEngine() {
    if (!is_initialized) return;
    overwrite_pin();
    Pkcs11EngineRegistry::instance().clean_up_pending();
}

void LoadedEngine::note_initialized() noexcept {
    is_initialized = true;
    if (record != nullptr && record->own_finish != nullptr) record->is_clean = false;
}

void LoadedEngine::note_pin() noexcept {
    if (record != nullptr) record->has_pin = true;
}

void LoadedEngine::overwrite_pin() noexcept {
    if (record == nullptr || !record->has_pin) return;
    const ErrorQueueMark mark;
    ::ENGINE_ctrl_cmd_string(record->engine.get(), "PIN", "", 0);
    record->has_pin = false;
}

EvpPkeyPtr LoadedEngine::lend(EvpPkeyPtr engine_key) {
    if (record == nullptr) return engine_key;
    return record->key_lender.lend(std::move(engine_key), record->engine.get());
}

Pkcs11EngineRegistry& Pkcs11EngineRegistry::instance() {
    static auto* const registry = new Pkcs11EngineRegistry;
    return *registry;
}

template <typename Predicate>
LoadedEngineRecord* Pkcs11EngineRegistry::find(Predicate predicate) {
    const std::lock_guard lock(mutex);
    for (LoadedEngineRecord& record : records)
        if (record.engine && predicate(record)) return &record;
    return nullptr;
}

LoadedEngineRecord* Pkcs11EngineRegistry::find_library(const std::string& engine_path) {
    const std::string name = library_name(engine_path);
    return find([&](const LoadedEngineRecord& record) {
        return record.file == name || is_same_file(record.file, name);
    });
}

/// Installed as the finish function of registered engines, to observe whether it is called.
int Pkcs11EngineRegistry::finish_engine(ENGINE* engine) {
    LoadedEngineRecord* record =
        instance().find([&](const LoadedEngineRecord& other) { return other.engine.get() == engine; });
    return record == nullptr ? 1 : run_finish(*record); // null: a copy of a registered engine
}

void Pkcs11EngineRegistry::reserve(const std::string& engine_path) {
    std::string file = library_name(engine_path);
    const std::lock_guard lock(mutex);
    if (records.empty() || records.back().engine) records.emplace_back();
    records.back().file = std::move(file);
}

LoadedEngine Pkcs11EngineRegistry::add(ENGINE* engine) noexcept {
    if (::ENGINE_up_ref(engine) != 1) return {};
    const ENGINE_GEN_INT_FUNC_PTR own_finish = ::ENGINE_get_finish_function(engine);
    const std::lock_guard lock(mutex);
    LoadedEngineRecord& record = records.back();
    record.engine.reset(engine);
    record.own_finish = own_finish;
    platform::keep_library_loaded(); // the engine keeps the finish function
    if (own_finish != nullptr) ::ENGINE_set_finish_function(engine, finish_engine);
    return LoadedEngine(&record);
}

std::pair<LoadedEngine, EnginePtr> Pkcs11EngineRegistry::reuse(const std::string& engine_path) {
    LoadedEngineRecord* record = find_library(engine_path);
    if (record == nullptr || !record->is_clean || ::ENGINE_up_ref(record->engine.get()) != 1) return {};
    EnginePtr reference(record->engine.get());
    const ErrorQueueMark mark;
    ::ENGINE_add(record->engine.get()); // fails, without harm, if the engine is still in the list
    return {LoadedEngine(record), std::move(reference)};
}

const char* Pkcs11EngineRegistry::refusal(const std::string& engine_path) {
    const LoadedEngineRecord* record = find_library(engine_path);
    if (record == nullptr) return nullptr;
    if (record->key_lender.has_lent_uncounted_key())
        return "the engine cannot be loaded again: a private key of an earlier load is neither RSA nor EC, "
               "so it is "
               "not known whether it was freed";
    return record->key_lender.has_lent_keys()
               ? "the engine cannot be loaded again: the client still uses a private key of an earlier load"
               : "the engine cannot be loaded again before the next init: a private key of an earlier "
                 "load was freed after this one";
}

void Pkcs11EngineRegistry::clean_up_pending() noexcept {
    // Does not lock the mutex, because finish_engine() locks it during the clean-up. Only this thread adds
    // to the list.
    for (LoadedEngineRecord& record : records)
        clean_up(record);
}

} // namespace Kes
