#include "pkcs11/pkcs11_engine_keeper.h"

#include <atomic>
#include <filesystem>
#include <list>
#include <mutex>
#include <openssl/ec.h>
#include <openssl/engine.h>
#include <openssl/rsa.h>
#include <utility>

#include "utils/error_queue_mark.h"

namespace Kes {
namespace {

/// What is known of an engine. A client may free its last key from any thread, hence the atomics.
struct Record {
    ENGINE* engine = nullptr;
    std::string file;                           // as library_name() gives it
    ENGINE_GEN_INT_FUNC_PTR clean_up = nullptr; // the engine's own
    std::atomic<bool> is_clean = true;          // nothing was set up since the last clean-up
    std::atomic<int> lent_keys = 0;
    bool has_pin = false;
};

struct Records {
    std::mutex mutex; // for the list; a record itself never moves or ends
    std::list<Record> list;
};

/// Never ends: clients free keys after the library's life, at process exit even.
Records& records() {
    static Records* const kept = new Records;
    return *kept;
}

template <typename Predicate>
Record* find_record(Predicate predicate) {
    const std::lock_guard lock(records().mutex);
    for (Record& record : records().list)
        if (predicate(record)) return &record;
    return nullptr;
}

Record* record_of(const ENGINE* engine) {
    return find_record([&](const Record& record) { return record.engine == engine; });
}

/// OpenSSL knows an engine library by its code, not by its name: all paths to one file are one library,
/// whatever the current directory is at the time. A bare name is no path; the loader looks for it in places
/// of its own.
std::string library_name(const std::string& path) {
    try {
        if (!std::filesystem::path(path).has_parent_path()) return path;
        return std::filesystem::weakly_canonical(std::filesystem::absolute(path)).string();
    } catch (const std::filesystem::filesystem_error&) {
        return path; // also for characters that the runtime cannot convert: it knows no code page on Windows
    }
}

/// Also under a name that a path cannot be made to: of another link, or on Windows in letters of other case.
bool is_same_file(const std::string& left, const std::string& right) {
    try {
        return std::filesystem::path(left).has_parent_path() &&
               std::filesystem::path(right).has_parent_path() && std::filesystem::equivalent(left, right);
    } catch (const std::filesystem::filesystem_error&) {
        return false;
    }
}

Record* record_of_library(const std::string& engine_path) {
    const std::string name = library_name(engine_path);
    return find_record(
        [&](const Record& record) { return record.file == name || is_same_file(record.file, name); });
}

int note_clean_up(ENGINE* engine) {
    Record* record = record_of(engine);
    if (record == nullptr) return 1; // a copy that somebody made of the engine
    record->is_clean = true;
    return record->clean_up(engine);
}

// OpenSSL calls these two when a key is duplicated and freed; the value is the record for lent keys, else
// null.
int note_duplicate(CRYPTO_EX_DATA*, const CRYPTO_EX_DATA*, void** value, int, long, void*) {
    if (*value != nullptr) ++static_cast<Record*>(*value)->lent_keys;
    return 1;
}

void note_free(void*, void* value, CRYPTO_EX_DATA*, int, long, void*) {
    if (value != nullptr) --static_cast<Record*>(value)->lent_keys;
}

int lent_key_index() {
    static const int index =
        ::CRYPTO_get_ex_new_index(CRYPTO_EX_INDEX_EVP_PKEY, 0, nullptr, nullptr, note_duplicate, note_free);
    return index;
}

bool share_material(EVP_PKEY* lent, EVP_PKEY* engine_key) {
    switch (::EVP_PKEY_get_base_id(engine_key)) {
    case EVP_PKEY_RSA: {
        const std::unique_ptr<RSA, FreeWith<&::RSA_free>> rsa(::EVP_PKEY_get1_RSA(engine_key));
        return rsa && ::EVP_PKEY_set1_RSA(lent, rsa.get()) == 1;
    }
    case EVP_PKEY_EC: {
        const std::unique_ptr<EC_KEY, FreeWith<&::EC_KEY_free>> ec(::EVP_PKEY_get1_EC_KEY(engine_key));
        return ec && ::EVP_PKEY_set1_EC_KEY(lent, ec.get()) == 1;
    }
    default:
        return false;
    }
}

/// Has to have a user of our own meanwhile: without it the clean-up would end the last user and so run inside
/// itself.
void clean_up(Record& record) {
    if (record.is_clean || record.lent_keys != 0 || ::ENGINE_init(record.engine) != 1) return;
    note_clean_up(record.engine);
    ::ENGINE_finish(record.engine);
}

} // namespace

void Pkcs11EngineKeeper::keep(ENGINE* engine, const std::string& engine_path) {
    if (::ENGINE_up_ref(engine) != 1) return;
    const ENGINE_GEN_INT_FUNC_PTR own_clean_up = ::ENGINE_get_finish_function(engine);
    {
        std::string file = library_name(engine_path);
        const std::lock_guard lock(records().mutex);
        Record& record = records().list.emplace_back();
        record.engine = engine;
        record.file = std::move(file);
        record.clean_up = own_clean_up;
    }
    if (own_clean_up != nullptr) ::ENGINE_set_finish_function(engine, note_clean_up);
}

ENGINE* Pkcs11EngineKeeper::reuse(const std::string& engine_path) {
    const Record* record = record_of_library(engine_path);
    if (record == nullptr || !record->is_clean || ::ENGINE_up_ref(record->engine) != 1) return nullptr;
    const ErrorQueueMark mark;
    ::ENGINE_add(record->engine); // fails when it is in the list still, which is as good
    return record->engine;
}

const char* Pkcs11EngineKeeper::refusal(const std::string& engine_path) {
    const Record* record = record_of_library(engine_path);
    if (record == nullptr) return nullptr;
    return record->lent_keys != 0
               ? "the engine cannot be loaded again: the client still uses a private key of an earlier load"
               : "the engine cannot be loaded again before the next init: a private key of an earlier load "
                 "was "
                 "freed after this one";
}

void Pkcs11EngineKeeper::note_set_up(ENGINE* engine) noexcept {
    Record* record = record_of(engine);
    if (record != nullptr && record->clean_up != nullptr) record->is_clean = false;
}

void Pkcs11EngineKeeper::note_pin(ENGINE* engine) noexcept {
    if (Record* record = record_of(engine)) record->has_pin = true;
}

void Pkcs11EngineKeeper::forget_pin(ENGINE* engine) noexcept {
    Record* record = record_of(engine);
    if (record == nullptr || !record->has_pin) return;
    const ErrorQueueMark mark;
    ::ENGINE_ctrl_cmd_string(engine, "PIN", "", 0);
    record->has_pin = false;
}

EvpPkeyPtr Pkcs11EngineKeeper::lend(EvpPkeyPtr engine_key, ENGINE* engine) {
    Record* record = record_of(engine);
    if (record == nullptr) return engine_key;
    const ErrorQueueMark mark;
    EvpPkeyPtr lent(::EVP_PKEY_new());
    ++record->lent_keys;
    if (lent && share_material(lent.get(), engine_key.get()) &&
        ::EVP_PKEY_set1_engine(lent.get(), engine) == 1 &&
        ::EVP_PKEY_set_ex_data(lent.get(), lent_key_index(), record) == 1)
        return lent;
    return engine_key; // counted for ever: nobody will tell when it is freed
}

void Pkcs11EngineKeeper::finish_leftover() noexcept {
    // Without the mutex, which the clean-up needs: only the thread that we are in adds to the list.
    for (Record& record : records().list)
        clean_up(record);
}

} // namespace Kes
