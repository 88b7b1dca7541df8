#ifndef KES_PKCS11_PKCS11_ENGINE_KEEPER_H_
#define KES_PKCS11_PKCS11_ENGINE_KEEPER_H_

#include <openssl/types.h>
#include <string>

#include "utils/ossl_ptr.h"

namespace Kes {

/// Lets libp11's engine be loaded again after it was unloaded, in one process.
///
/// OpenSSL refuses to load an engine library while an engine from it is alive, and libp11 0.4.12 never lets
/// its engine go once a key was read: the engine keeps the key, and the key keeps the engine. This object
/// breaks that circle, by having the engine clean up before its last user is gone. It remembers every engine,
/// for as long as the process lives, and gives it out again where OpenSSL refuses to load its library. (It
/// does so for versions of libp11, too, that let go by themselves: OpenSSL's error texts point into the
/// library, so it must not go.)
///
/// The clean-up takes away what the keys are made of. So it waits until the client has freed every key it was
/// lent, its TLS objects included; the keys that are lent are counted for that reason. What a client takes
/// out of a key, an RSA for instance, is not.
class Pkcs11EngineKeeper {
public:
    Pkcs11EngineKeeper() = delete;

    /// Remembers an engine that was loaded from the path.
    static void keep(ENGINE* engine, const std::string& engine_path);

    /// The engine that was loaded from that library before, back in OpenSSL's list and ready to be set up
    /// again.
    /// @return a reference of the caller's own; null when there is none, or when it could not clean up
    static ENGINE* reuse(const std::string& engine_path);

    /// Why reuse() gave none, for the log; null when there is no engine from that library.
    static const char* refusal(const std::string& engine_path);

    /// Tells that the engine was initialised: from now on there is something to clean up.
    static void note_set_up(ENGINE* engine) noexcept;

    /// Tells that the engine was given a PIN.
    static void note_pin(ENGINE* engine) noexcept;

    /// Makes an engine that was given a PIN overwrite its copy: the engine lives longer than the use we make
    /// of it.
    static void forget_pin(ENGINE* engine) noexcept;

    /// Makes a key that signs as the engine's own does and is counted until its last user frees it.
    static EvpPkeyPtr lend(EvpPkeyPtr engine_key, ENGINE* engine);

    /// Has the engines clean up that should have when ENGINE_finish() was called and did not, but for those
    /// whose keys are still lent. Call after each ENGINE_finish(), and before a PKCS#11 module is loaded: the
    /// clean-up ends the module for everybody.
    static void finish_leftover() noexcept;
};

} // namespace Kes

#endif // KES_PKCS11_PKCS11_ENGINE_KEEPER_H_
