#ifndef KES_PKCS11_LIBP11_HELPER_H_
#define KES_PKCS11_LIBP11_HELPER_H_

#include <libp11.h>
#include <memory>
#include <span>
#include <vector>

#include "utils/ossl_ptr.h"
#include "utils/pin.h"

namespace Kes {

/// The library's libp11 context: the loaded PKCS#11 module, its slots, and the token in use.
///
/// libp11's engine has a context of its own. Both contexts use the same loaded module and share its sessions
/// and its login.
class Libp11Init {
public:
    /// Loads libp11, if necessary, and the module.
    /// @param module_path  a file name or path for the system's loader
    /// @throws WinError if libp11 cannot be loaded, Error null_pointer, OsslError
    explicit Libp11Init(const char* module_path);
    ~Libp11Init();
    Libp11Init(const Libp11Init&) = delete;
    Libp11Init& operator=(const Libp11Init&) = delete;

    /// Lists the slots and selects the first one with a usable token. May be called again; the slots listed
    /// before are kept until release_slots() or the destructor.
    /// @throws Error empty if there is no token, OsslError
    void read_scard();

    /// The slots that the last read_scard() has listed, borrowed until the next one. Empty if it failed.
    std::span<const PKCS11_SLOT> listed_slots() const noexcept {
        return {slots.get(), slots ? slots.get_deleter().count : 0};
    }

    /// The slot whose token is in use, borrowed; null before read_scard() and if it failed.
    const PKCS11_SLOT* slot_in_use() const noexcept { return slot; }

    /// Releases all slots listed so far, and what libp11 has listed of their tokens. This closes all sessions
    /// of the module: the login ends, and keys that libp11's engine has read become permanently unusable.
    void release_slots() noexcept;

    /// Whether the token requires a login by this process. False for a reader with its own PIN pad.
    bool is_login_required() const noexcept { return login_required; }

    /// Whether the user is logged in to the token. Call only after a successful read_scard().
    /// @throws OsslError
    bool is_logged_in() const;

    /// Logs the user in if the token requires it and the user is not logged in. Makes a single attempt,
    /// because a wrong PIN costs one of the card's tries.
    /// @throws Error empty if a login is needed and the PIN is empty, OsslError
    void authenticate(const Pin& pin);

    /// Whether authenticate() has logged the user in, or has found that the user is logged in. Stays true
    /// until this object is destroyed: it never logs out.
    bool has_logged_in() const noexcept { return has_logged_in_; }

    /// The token that read_scard() has found, borrowed.
    /// @throws Error empty without a token, not_initialized for a token on which no session can be opened
    ///         because it was never initialised
    PKCS11_TOKEN* get_token() const;

private:
    /// Releases the array of one PKCS11_enumerate_slots() call.
    struct ReleaseSlots {
        PKCS11_CTX* ctx;
        unsigned int count;
        void operator()(PKCS11_SLOT* array) const noexcept { ::PKCS11_release_all_slots(ctx, array, count); }
    };
    using SlotArray = std::unique_ptr<PKCS11_SLOT, ReleaseSlots>;

    // Declared before the slots, so that it outlives them: libp11 releases slots through their context.
    std::unique_ptr<PKCS11_CTX, FreeWith<&::PKCS11_CTX_free>> ctx;
    SlotArray slots;
    std::vector<SlotArray> earlier_slots; // of earlier read_scard() calls
    PKCS11_SLOT* slot = nullptr;          // points into slots
    PKCS11_TOKEN* token = nullptr;        // belongs to slot
    bool login_required = false;
    bool has_logged_in_ = false;
};

} // namespace Kes

#endif // KES_PKCS11_LIBP11_HELPER_H_
