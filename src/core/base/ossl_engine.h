#ifndef KES_BASE_OSSL_ENGINE_H_
#define KES_BASE_OSSL_ENGINE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <openssl/types.h>
#include <vector>

#include "utils/ossl_ptr.h"
#include "utils/pin.h"
#include "utils/unique_handle.h"

namespace Kes {

/// Owns a structural reference to an engine. Defined in the source: OpenSSL's engine header marks every
/// function as deprecated.
struct FreeEngine {
    void operator()(ENGINE* engine) const noexcept;
};
using EnginePtr = std::unique_ptr<ENGINE, FreeEngine>;

/// A control command of an engine.
struct EngineCommand {
    const char* name;
    const char* value;    ///< null when the command takes none
    const char* location; ///< of the error when OpenSSL does not answer 1
};

/// What turns OpenSSL's "dynamic" engine into a concrete one, in the order of the calls.
struct EngineSetup {
    EngineCommand so_path;  ///< names the engine library
    EngineCommand list_add; ///< adds the engine to OpenSSL's list of engines when it is loaded
    EngineCommand load;     ///< loads the library
    std::vector<EngineCommand> before_init;
    const char* init_location;
    std::vector<EngineCommand> after_init;
    std::function<void()> configure; ///< what is more than a command; not null
    const char* set_default_location;
};

/// An OpenSSL engine that was loaded from a library of its own, and what is read through it.
///
/// The base class owns the engine. A subclass calls set_up() in its constructor and unload() in its
/// destructor. Keys and certificates that are read belong to the caller.
class OsslEngine {
public:
    virtual ~OsslEngine();
    OsslEngine(const OsslEngine&) = delete;
    OsslEngine& operator=(const OsslEngine&) = delete;

    /// @param name  the key, in the engine's own syntax
    /// @return never null. @throws OsslError
    EvpPkeyPtr read_private_key(const char* name);

    /// @return never null. @throws Error unsupported, OsslError
    virtual EvpPkeyPtr read_public_key(const char* name);

    /// @return never null. @throws Error unsupported, and what the engine reports
    virtual X509Ptr read_certificate(const char* name);

    /// Chooses between the two keys of a CryptoAPI container; other engines ignore it.
    virtual void set_key_type(std::uint32_t key_type);

    /// Gives the PIN to an engine that logs in by itself; other engines ignore it.
    virtual void set_pin(const Pin& pin);

    /// Reads the certificate of that name and returns its public key.
    /// @throws Error not_found, and as read_certificate()
    EvpPkeyPtr read_public_key_by_certificate(const char* name);

    /// Free what was read, and log it. Null is ignored.
    static void free_certificate(X509Ptr cert);
    static void free_key(EvpPkeyPtr key);

protected:
    /// @throws Error null_pointer when OpenSSL has no dynamic engine
    OsslEngine(bool public_key_supported_in, bool second_flag_in);

    /// Loads and initializes the engine, and makes it the default for all methods. After an OsslError behind
    /// the initialization, the functional reference is released before the error leaves.
    /// @throws OsslError when OpenSSL does not answer 1
    void set_up(const EngineSetup& setup);

    /// Undoes set_up(). Failures are logged. Each subclass's destructor calls it.
    void unload() noexcept;

    /// @throws OsslError when the engine does not answer 1
    void control(const EngineCommand& command);

    /// The engine's own name.
    const char* id() const noexcept;

    /// Lent.
    ENGINE* get_engine() const noexcept { return engine.get(); }

    /// Called when the library was loaded. A subclass that keeps a reference of its own returns true: the
    /// engine stays in OpenSSL's list then, even when a later step fails.
    virtual bool keep_engine(const char* engine_path);

    /// Called when OpenSSL refused to load the library, with the reason on its error queue.
    /// @return an engine of that library which is loaded already; null when there is none
    virtual EnginePtr reuse_engine(const char* engine_path);

    /// Adds to OpenSSL's error queue what the queue does not contain by itself; called after a failure,
    /// before the queue is read.
    virtual void explain_failure() {}

    /// Returns the key that the caller of read_private_key() receives for the engine's own key.
    virtual EvpPkeyPtr lend_key(EvpPkeyPtr engine_key);

private:
    /// Membership in OpenSSL's list of engines.
    struct ListEntryTraits {
        using Raw = ENGINE*;
        static void close(Raw listed) noexcept;
    };
    /// A functional reference: the engine is initialized.
    struct FunctionalReferenceTraits {
        using Raw = ENGINE*;
        static void close(Raw initialized) noexcept;
    };

    void load(const EngineCommand& command, const char* engine_path);
    void init(const char* location);
    void make_usable(const EngineSetup& setup);

    EnginePtr engine; // structural reference
    UniqueHandle<ListEntryTraits> list_entry;
    UniqueHandle<FunctionalReferenceTraits> functional_reference;
    const UI_METHOD* const ui_method;
    const bool public_key_supported;
    [[maybe_unused]] const bool second_flag; // part of the engines' construction; no operation reads it
};

} // namespace Kes

#endif // KES_BASE_OSSL_ENGINE_H_
