#ifndef KES_PKCS11_LIBP11_HELPER_H_
#define KES_PKCS11_LIBP11_HELPER_H_

#include <libp11.h>
#include <memory>
#include <vector>

#include "utils/ossl_ptr.h"
#include "utils/pin.h"

namespace Kes {

/// The library's one libp11 context: the loaded PKCS#11 module, the slots it has, and the token in use.
///
/// libp11's engine keeps a context of its own, but both share the one loaded module: its sessions and its
/// login.
class Libp11Init {
public:
    /// Loads the module. @throws Error null_pointer, OsslError
    /// @param module_path  as the system's loader takes it
    explicit Libp11Init(const char* module_path);
    ~Libp11Init();
    Libp11Init(const Libp11Init&) = delete;
    Libp11Init& operator=(const Libp11Init&) = delete;

    /// Finds the first slot that holds a usable token. May be called again; the slots found before are kept
    /// until the end then, unless release_slots() was called. @throws Error empty without a token, OsslError
    void read_scard();

    /// Ends all slots found so far, everything libp11 listed of their tokens, and all sessions of the module:
    /// the login is over, and so is the use of any key that libp11's engine has read.
    void release_slots() noexcept;

    /// Whether the token wants a login by this process; false for a reader with its own PIN pad.
    bool is_login_required() const noexcept { return login_required; }

    /// Whether the user is logged in to the token. @throws OsslError
    bool is_logged_in() const;

    /// Logs the user in, if that is needed. Makes one attempt: a wrong PIN costs one of the card's tries.
    /// @throws Error empty without a PIN, OsslError
    void authenticate(const Pin& pin);

    /// The token that read_scard() found, lent. @throws Error empty when there is none, not_initialized when
    /// it was never set up: no session can be opened on it
    PKCS11_TOKEN* get_token() const;

    /// Fails as authenticate() would without a PIN, when the token wants a login that has not been made.
    /// @throws Error empty, OsslError
    void require_pin(const Pin& pin) const;

private:
    /// Releases the array of one PKCS11_enumerate_slots() call.
    struct ReleaseSlots {
        PKCS11_CTX* ctx;
        unsigned int count;
        void operator()(PKCS11_SLOT* array) const noexcept { ::PKCS11_release_all_slots(ctx, array, count); }
    };
    using SlotArray = std::unique_ptr<PKCS11_SLOT, ReleaseSlots>;

    // libp11 releases slots through their context, so the destructor releases them first.
    std::unique_ptr<PKCS11_CTX, FreeWith<&::PKCS11_CTX_free>> ctx;
    SlotArray slots;
    std::vector<SlotArray> earlier_slots; // of read_scard() calls before the last
    PKCS11_SLOT* slot = nullptr;          // in slots
    PKCS11_TOKEN* token = nullptr;        // in slot
    bool login_required = false;
};

} // namespace Kes

#endif // KES_PKCS11_LIBP11_HELPER_H_
