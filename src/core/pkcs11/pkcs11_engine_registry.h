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

/// The use of one engine of libp11, from its load to its unload. Move-only. The destructor makes the engine
/// overwrite its copy of the PIN, and then runs all pending clean-ups of the registry. Destroy the object
/// after ENGINE_finish(), so that only an engine that did not finish is cleaned up. (When memory runs out in a
/// constructor, it is destroyed before; libp11's engine then finishes twice, which does no harm.) An engine
/// that finishes needs overwrite_pin() before that, while it still accepts commands.
class LoadedEngine {
public:
    LoadedEngine() = default; ///< no engine: lend() returns its argument, the other operations do nothing
    ~LoadedEngine();
    LoadedEngine(LoadedEngine&& other) noexcept { swap(other); }
    LoadedEngine& operator=(LoadedEngine&& other) noexcept {
        swap(other); // the other object ends the earlier use
        return *this;
    }

    /// Records that the engine was initialised, and that it therefore needs a clean-up.
    void note_initialized() noexcept;

    /// Records that the engine received a PIN.
    void note_pin() noexcept;

    /// Makes the engine overwrite its copy of the PIN, if it has one. Needed because the engine object stays
    /// in memory.
    void overwrite_pin() noexcept;

    /// Returns a key that signs like the engine's own key. The clean-up waits until the client has released
    /// the key and everything that it has extracted from it.
    /// @throws OsslError as KeyLender::lend()
    EvpPkeyPtr lend(EvpPkeyPtr engine_key);

private:
    friend class Pkcs11EngineRegistry;
    explicit LoadedEngine(LoadedEngineRecord* record_in) noexcept : record(record_in) {}

    void swap(LoadedEngine& other) noexcept {
        std::swap(record, other.record);
        std::swap(is_initialized, other.is_initialized);
    }

    LoadedEngineRecord* record = nullptr; // in the registry, which never deletes one
    bool is_initialized = false;
};

/// Makes it possible to load libp11's engine again after it was unloaded, in one process.
///
/// OpenSSL refuses to load an engine library while an engine of that library exists. libp11 0.4.12 never
/// releases its engine once a key was read: the engine holds the key, and the key holds the engine. The
/// registry breaks this cycle: it runs the engine's finish function before the last functional reference is
/// released. It keeps every engine until the process ends, and provides it again when OpenSSL refuses to load
/// its library. It keeps the engines of all versions of libp11, because OpenSSL has pointers to error texts
/// in the library, which must therefore stay loaded.
///
/// The finish function destroys the material of the keys. Therefore it runs only after the client has
/// released every key that was lent to it, including the keys in its TLS objects and each RSA and EC_KEY that
/// it has extracted.
class Pkcs11EngineRegistry {
public:
    /// Returns the only registry. It is never destroyed, because clients may free keys at process exit.
    static Pkcs11EngineRegistry& instance();

    Pkcs11EngineRegistry(const Pkcs11EngineRegistry&) = delete;
    Pkcs11EngineRegistry& operator=(const Pkcs11EngineRegistry&) = delete;

    /// Allocates what add() needs to register an engine that is loaded from the path.
    void reserve(const std::string& engine_path);

    /// Registers an engine that OpenSSL has loaded from the reserved path. The registry adds a structural
    /// reference of its own.
    /// @return the use; without an engine if the reference cannot be added
    LoadedEngine add(ENGINE* engine) noexcept;

    /// Provides the engine that was loaded from that library earlier. The engine is then in OpenSSL's list
    /// again and can be set up again.
    /// @return the use and a structural reference. Both are empty if no such engine exists, or if its
    ///         clean-up is pending
    std::pair<LoadedEngine, EnginePtr> reuse(const std::string& engine_path);

    /// Returns, for the error text, why reuse() provided no engine; null if no engine of that library is
    /// registered.
    const char* refusal(const std::string& engine_path);

    /// Cleans up every engine whose finish function ENGINE_finish() did not reach, unless a client still
    /// holds one of its keys. Call this before a PKCS#11 module is loaded, because the clean-up finalizes the
    /// module for the whole process.
    void clean_up_pending() noexcept;

private:
    Pkcs11EngineRegistry() = default;
    ~Pkcs11EngineRegistry() = default;

    template <typename Predicate>
    LoadedEngineRecord* find(Predicate predicate);
    LoadedEngineRecord* find_library(const std::string& engine_path);
    static int finish_engine(ENGINE* engine);

    std::mutex mutex; // guards the list; records are never moved or deleted
    std::list<LoadedEngineRecord> records;
};

} // namespace Kes

#endif // KES_PKCS11_PKCS11_ENGINE_REGISTRY_H_
