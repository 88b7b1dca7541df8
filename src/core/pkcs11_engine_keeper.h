#ifndef KES_CORE_PKCS11_ENGINE_KEEPER_H_
#define KES_CORE_PKCS11_ENGINE_KEEPER_H_

#include <openssl/types.h>
#include <string>

#include "ossl_ptr.h"

namespace Kes {

/// Lets libp11's engine be loaded again after it was unloaded, in one process.
///
/// OpenSSL refuses to load an engine library while an engine from it is alive, and libp11 0.4.12 never lets
/// its engine go once a key was read: the engine keeps the key, and the key keeps the engine. This object
/// breaks that circle, by having the engine clean up before its last user is gone, and remembers the engine,
/// so that it is used again where OpenSSL refuses to load it. Later versions of libp11 let go by themselves;
/// then nothing is done.
///
/// The clean-up takes away what the keys are made of. So it waits until the client has freed every key it was
/// lent, its TLS objects included; the keys that are lent are counted for that reason.
class Pkcs11EngineKeeper {
public:
    Pkcs11EngineKeeper() = delete;

    /// Remembers an engine that was loaded from the path. It is never freed again: OpenSSL's error texts
    /// point into its library.
    static void keep(ENGINE* engine, const std::string& engine_path);

    /// The remembered engine, if it came from that path, back in OpenSSL's list and ready to be set up again.
    /// @return a reference of the caller's own; null when there is none, or when a client still holds one of
    /// its keys
    static ENGINE* reuse(const std::string& engine_path);

    /// Tells that the remembered engine was initialised: from now on there is something to clean up.
    static void note_set_up() noexcept;

    /// Makes a key that signs as the engine's own does and is counted until its last user frees it.
    static EvpPkeyPtr lend(EvpPkeyPtr engine_key, ENGINE* engine);

    /// Makes the remembered engine overwrite its copy of the PIN: it lives longer than the use we make of it.
    /// Call before ENGINE_finish().
    static void forget_pin() noexcept;

    /// Has an engine clean up that should have when ENGINE_finish() was called and did not. Does nothing
    /// while a lent key is alive. Call after each ENGINE_finish(), and before a PKCS#11 module is loaded: the
    /// clean-up ends the module for everybody.
    static void finish_leftover() noexcept;

    /// Whether a client still holds a key of an engine that was unloaded.
    static bool is_held_by_client() noexcept;
};

} // namespace Kes

#endif // KES_CORE_PKCS11_ENGINE_KEEPER_H_
