#ifndef KES_PKCS11_PKCS11_ENGINE_REGISTRY_H_
#define KES_PKCS11_PKCS11_ENGINE_REGISTRY_H_

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "base/ossl_engine.h"
#include "utils/ossl_ptr.h"

namespace Kes {

struct LoadedEngineRecord;

/// The use of one engine of libp11, from its load to its unload. Move-only. At its end it makes the engine
/// overwrite its copy of the PIN, and then runs all pending clean-ups of the registry. Destroy it after
/// ENGINE_finish().
class LoadedEngine {
public:
    LoadedEngine() = default; ///< no engine: every operation does nothing
    explicit LoadedEngine(LoadedEngineRecord* record_in) noexcept : record(record_in) {}
    ~LoadedEngine();
    LoadedEngine(LoadedEngine&& other) noexcept { swap(other); }
    LoadedEngine& operator=(LoadedEngine&& other) noexcept {
        swap(other); // the other object ends the earlier use
        return *this;
    }

    explicit operator bool() const noexcept { return record != nullptr; }

    /// Records that the engine was initialized: from now on it has something to clean up.
    void note_initialized() noexcept;

    /// Records that the engine received a PIN.
    void note_pin() noexcept;

    /// Makes the engine overwrite its copy of the PIN, if it received one: the engine object stays in memory.
    void overwrite_pin() noexcept;

    /// Returns a key that signs as the engine's own key does. The clean-up waits until its last reference is
    /// released.
    EvpPkeyPtr lend(EvpPkeyPtr engine_key);

    /// Ends the use without any call to the engine. A clean-up that is due stays pending.
    void abandon() noexcept { record = nullptr; }

private:
    void swap(LoadedEngine& other) noexcept {
        std::swap(record, other.record);
        std::swap(is_initialized, other.is_initialized);
    }

    LoadedEngineRecord* record = nullptr; // in the registry, which never deletes one
    bool is_initialized = false;
};

/// Makes it possible to load libp11's engine again after it was unloaded, in one process.
///
/// OpenSSL refuses to load an engine library while an engine of that library is alive. libp11 0.4.12 never
/// releases its engine once a key was read: the engine holds the key, and the key holds the engine. The
/// registry breaks this circle: it runs the engine's finish function before the last functional reference is
/// released. It keeps every engine as long as the process lives, and provides it again where OpenSSL refuses
/// to load its library. It does so for all versions of libp11, because OpenSSL's error texts point into the
/// library, so the library must stay loaded.
///
/// The finish function destroys what the keys consist of. So it runs only when the client has released every
/// key that it was lent, which includes the keys in its TLS objects. What a client extracts from a key, such
/// as an RSA, is not counted.
class Pkcs11EngineRegistry {
public:
    /// The only registry; never destroyed, because clients may free keys at process exit.
    static Pkcs11EngineRegistry& instance();

    Pkcs11EngineRegistry(const Pkcs11EngineRegistry&) = delete;
    Pkcs11EngineRegistry& operator=(const Pkcs11EngineRegistry&) = delete;

    /// Registers an engine that OpenSSL has loaded from the path. The registry takes a structural reference.
    LoadedEngine add(ENGINE* engine, const std::string& engine_path);

    /// Provides the engine that was loaded from that library before: back in OpenSSL's list, and ready for
    /// set-up.
    /// @return the use, and a structural reference; both empty when no such engine exists, or when its
    ///         clean-up is pending
    std::pair<LoadedEngine, EnginePtr> reuse(const std::string& engine_path);

    /// Why reuse() provided no engine, for the log; null when no engine of that library is registered.
    const char* refusal(const std::string& engine_path);

    /// Cleans up every engine that ENGINE_finish() was called for without effect, unless a client still holds
    /// one of its keys. Call it before a PKCS#11 module is loaded: the clean-up finalizes the module for the
    /// whole process.
    void clean_up_pending() noexcept;

private:
    Pkcs11EngineRegistry() = default;
    ~Pkcs11EngineRegistry() = default;

    template <typename Predicate>
    LoadedEngineRecord* find(Predicate predicate);
    LoadedEngineRecord* find_library(const std::string& engine_path);
    static int finish_engine(ENGINE* engine);

    std::mutex mutex; // guards the list; a record neither moves nor ends
    std::list<LoadedEngineRecord> records;
};

} // namespace Kes

#endif // KES_PKCS11_PKCS11_ENGINE_REGISTRY_H_
