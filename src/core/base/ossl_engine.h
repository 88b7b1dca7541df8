#ifndef KES_BASE_OSSL_ENGINE_H_
#define KES_BASE_OSSL_ENGINE_H_

#include <cstdint>
#include <memory>
#include <openssl/types.h>

#include "utils/ossl_ptr.h"
#include "utils/pin.h"

namespace Kes {

/// An OpenSSL engine that was loaded from a library of its own, and what is read through it.
///
/// The base holds OpenSSL's "dynamic" engine; a subclass turns it into a concrete one in its constructor and
/// undoes that with unload() in its destructor. Keys and certificates that are read belong to the caller.
class OsslEngine {
public:
    virtual ~OsslEngine();
    OsslEngine(const OsslEngine&) = delete;
    OsslEngine& operator=(const OsslEngine&) = delete;

    /// @param name  the key in the engine's own syntax
    /// @return never null. @throws OsslError
    EvpPkeyPtr read_private_key(const char* name);

    /// @return never null. @throws Error unsupported, OsslError
    virtual EvpPkeyPtr read_public_key(const char* name);

    /// @return never null. @throws Error unsupported, and what the engine reports
    virtual X509Ptr read_certificate(const char* name);

    /// Chooses between the two keys of a CryptoAPI container; other engines have nothing to choose.
    virtual void set_key_type(std::uint32_t key_type);

    /// Gives the PIN to an engine that logs in by itself; the others do not need it.
    virtual void set_pin(const Pin& pin);

    /// The public key out of the certificate of that name. @throws Error not_found, and as read_certificate()
    EvpPkeyPtr read_public_key_by_certificate(const char* name);

    /// Frees what was read; null is nothing to free.
    static void free_certificate(X509Ptr cert);
    static void free_key(EvpPkeyPtr key);

protected:
    /// @throws Error null_pointer when OpenSSL has no dynamic engine
    OsslEngine(bool public_key_supported_in, bool second_flag_in);

    /// The steps that each subclass's constructor is made of. @throws OsslError when OpenSSL does not answer
    /// 1
    void control(const char* command, const char* value, const char* location);
    void load(const char* engine_path, const char* location); ///< "LOAD" of what "SO_PATH" names
    void init(const char* location);
    void set_default(const char* location);

    /// Undoes init() alone, in a constructor whose later step fails.
    void finish() noexcept;

    /// Undoes load(), init() and set_default(). Failures are logged. Run by each subclass's
    /// destructor.
    void unload() noexcept;

    /// The engine's own name.
    const char* id() const noexcept;

    ENGINE* get_engine() const noexcept { return engine.get(); }

    /// Puts another engine in the place of the dynamic one, which is freed. @param other  a reference to take
    /// over
    void replace_engine(ENGINE* other) noexcept { engine.reset(other); }

    /// Adds to OpenSSL's error queue what it does not tell of a failure by itself; called before the queue is
    /// read.
    virtual void explain_failure() {}

    /// What the caller of read_private_key() gets for the key that the engine made: that key, unless
    /// overridden.
    virtual EvpPkeyPtr lend_key(EvpPkeyPtr engine_key) { return engine_key; }

private:
    struct FreeEngine { // written out where OpenSSL's engine header is: it marks all of it as deprecated
        void operator()(ENGINE* handle) const noexcept;
    };

    std::unique_ptr<ENGINE, FreeEngine> engine;
    bool is_listed = false; // by load(), and not yet taken out by unload()
    const UI_METHOD* const ui_method;
    const bool public_key_supported;
    [[maybe_unused]] const bool second_flag; // kept for the engines that set it; nothing asks for it
};

} // namespace Kes

#endif // KES_BASE_OSSL_ENGINE_H_
