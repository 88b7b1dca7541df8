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

/// Releases a structural reference to an engine. Defined in the source file, because OpenSSL deprecates every
/// function of its engine header.
struct FreeEngine {
    void operator()(ENGINE* engine) const noexcept;
};

/// Owns a structural reference to an engine.
using EnginePtr = std::unique_ptr<ENGINE, FreeEngine>;

/// A control command of an engine.
struct EngineCommand {
    const char* name;
    const char* value;    ///< null for a command without an argument
    const char* location; ///< location of the error that is thrown unless OpenSSL returns 1
};

/// The calls that turn OpenSSL's "dynamic" engine into an engine of a library, in their order.
struct EngineSetup {
    const char* id;         ///< the id that the engine should have; for the text of an error
    EngineCommand so_path;  ///< sets the path of the engine library
    EngineCommand list_add; ///< makes the load add the engine to OpenSSL's list of engines
    EngineCommand load;     ///< loads the library
    std::vector<EngineCommand> before_init;
    const char* init_location;
    std::vector<EngineCommand> after_init;
    std::function<void()> configure; ///< for settings that need more than a command; must not be empty
    const char* set_default_location;
};

/// An OpenSSL engine that is loaded from a library, and that reads keys and certificates.
///
/// The base class owns the engine. A subclass calls set_up() in its constructor and unload() in its
/// destructor. The caller owns the keys and certificates that are read.
class OsslEngine {
public:
    virtual ~OsslEngine();
    OsslEngine(const OsslEngine&) = delete;
    OsslEngine& operator=(const OsslEngine&) = delete;

    /// Reads a private key through the engine.
    /// @param name  identifies the key, in the engine's own syntax
    /// @return never null. @throws OsslError if the engine cannot read the key
    EvpPkeyPtr read_private_key(const char* name);

    /// Reads a public key. For completeness: the library itself reads only private keys and certificates.
    /// @return never null. @throws Error unsupported, OsslError
    virtual EvpPkeyPtr read_public_key(const char* name);

    /// Reads a certificate. The base class throws Error unsupported.
    /// @return never null. @throws ErrorBase, of the class that the subclass documents
    virtual X509Ptr read_certificate(const char* name);

    /// Selects one of the two keys of a CryptoAPI container. Other engines ignore the call.
    virtual void set_key_type(std::uint32_t key_type);

    /// Passes the PIN to an engine that logs in by itself. Other engines ignore the call.
    virtual void set_pin(const Pin& pin);

    /// Reads the certificate with that name and returns its public key.
    /// @return never null. @throws Error not_found without a usable key, and the errors of read_certificate()
    EvpPkeyPtr read_public_key_by_certificate(const char* name);

    /// Frees what was read and logs this. Does nothing for null.
    static void free_certificate(X509Ptr cert);
    static void free_key(EvpPkeyPtr key);

protected:
    /// Gets OpenSSL's dynamic engine; loads nothing yet. @throws Error null_pointer if it does not exist
    OsslEngine(bool public_key_supported_in, bool second_flag_in);

    /// Loads and initialises the engine, and makes it the default for all methods. If a step after the
    /// initialisation throws OsslError, the functional reference is released before the error propagates.
    /// After any other exception, the destructor of the base class releases it.
    /// @throws OsslError if a call of OpenSSL does not return 1
    void set_up(const EngineSetup& setup);

    /// Undoes set_up() and logs failures. The destructor of each subclass calls it.
    void unload() noexcept;

    /// Sends a command to the engine. @throws OsslError if the engine does not return 1
    void control(const EngineCommand& command);

    /// The id that the engine has in OpenSSL, such as "pkcs11". Empty if the engine's library sets none.
    const char* id() const noexcept;

    /// The engine, borrowed.
    ENGINE* get_engine() const noexcept { return engine.get(); }

    /// Called before the library is loaded. A subclass allocates here what keep_engine() needs: if that failed
    /// for lack of memory, the loaded engine would be lost, and OpenSSL would refuse to load its library again.
    virtual void prepare_load(const char*) {}

    /// Called after the library was loaded. A subclass may keep the engine beyond the unload, to use it again.
    virtual void keep_engine() noexcept;

    /// Called after OpenSSL has refused to load the library because an engine of that library exists.
    /// @return an engine of that library that was loaded earlier, to be used instead; null if none is usable
    virtual EnginePtr reuse_engine(const char* engine_path);

    /// Called after reuse_engine() has returned null.
    /// @return why the engine cannot be loaded again, for the error text; null if the reason is not known
    virtual const char* refusal(const char* engine_path);

    /// Called after a failure, before OpenSSL's error queue is read. A subclass may add entries that explain
    /// the failure.
    virtual void explain_failure() {}

    /// Returns the key that read_private_key() returns in place of the engine's own key.
    virtual EvpPkeyPtr lend_key(EvpPkeyPtr engine_key);

private:
    /// An entry in OpenSSL's list of engines.
    struct ListEntryTraits {
        using Raw = ENGINE*;
        static void close(Raw listed) noexcept;
    };
    /// The registration as OpenSSL's default engine.
    struct DefaultEngineTraits {
        using Raw = ENGINE*;
        static void close(Raw registered) noexcept;
    };
    /// A functional reference, which keeps the engine initialised.
    struct FunctionalReferenceTraits {
        using Raw = ENGINE*;
        static void close(Raw initialized) noexcept;
    };

    void load(const EngineCommand& command, const char* engine_path);
    /// As control(). If the engine does not know the command, the error text says which engine it is.
    void control_new_engine(const EngineCommand& command, const EngineSetup& setup);
    void init(const char* location);
    void make_usable(const EngineSetup& setup);
    void release() noexcept;

    EnginePtr engine; // structural reference
    UniqueHandle<FunctionalReferenceTraits> functional_reference;
    UniqueHandle<ListEntryTraits> list_entry;
    UniqueHandle<DefaultEngineTraits> default_engine;
    const UI_METHOD* const ui_method;
    const bool public_key_supported;
    [[maybe_unused]] const bool second_flag; // part of the constructor's contract; nothing reads it
};

} // namespace Kes

#endif // KES_BASE_OSSL_ENGINE_H_
