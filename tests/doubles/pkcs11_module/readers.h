#ifndef KES_TESTS_DOUBLES_PKCS11_MODULE_READERS_H_
#define KES_TESTS_DOUBLES_PKCS11_MODULE_READERS_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "token_files.h"
#include "token_objects.h"

namespace Kes::test {

/// A reader with its token, if it has one. The token's objects are read when the first session is opened.
struct Reader {
    TokenFiles files;
    bool is_logged_in = false;
    std::vector<TokenObject> objects;

    /// The objects that may be used now: without a login, those that are not private.
    bool shows(const TokenObject& object) const {
        return !object.is_private || is_logged_in || !files.is_login_required();
    }

    /// @throws Failure with the code if there is no visible object of this handle
    const TokenObject& find(CK_OBJECT_HANDLE handle, CK_RV code) const;
};

struct SignOperation {
    CK_OBJECT_HANDLE key;
    CK_MECHANISM_TYPE mechanism;
    CK_RSA_PKCS_PSS_PARAMS pss;
};

struct Session {
    CK_SLOT_ID slot;
    CK_FLAGS flags;
    bool is_lost = false; ///< the card was removed
    std::optional<std::vector<CK_OBJECT_HANDLE>> found;
    std::optional<SignOperation> signing;
};

/// What exists from C_Initialize() to C_Finalize(): readers, their logins, and sessions.
class Readers {
public:
    /// The numbers of all readers whose folders exist.
    std::vector<CK_SLOT_ID> list(bool only_with_token);

    /// @throws Failure CKR_SLOT_ID_INVALID
    Reader& reader(CK_SLOT_ID slot);

    /// @throws Failure CKR_SLOT_ID_INVALID or CKR_TOKEN_NOT_PRESENT
    Reader& reader_with_token(CK_SLOT_ID slot);

    CK_SESSION_HANDLE open(CK_SLOT_ID slot, CK_FLAGS flags);
    void close(CK_SESSION_HANDLE handle);
    void close_all(CK_SLOT_ID slot);

    /// @throws Failure if there is no such session or its card was removed
    Session& session(CK_SESSION_HANDLE handle);
    Reader& reader_of(const Session& session) { return readers_.at(session.slot); }

    CK_ULONG count_sessions(CK_SLOT_ID slot, CK_FLAGS with_flags) const;

private:
    void forget_card(CK_SLOT_ID slot);
    void read_token(Reader& reader);

    std::vector<Reader> readers_; // the index is the number of the slot
    std::map<CK_SESSION_HANDLE, Session> sessions_;
    CK_SESSION_HANDLE last_session_ = 0;
    CK_OBJECT_HANDLE last_object_ = 0;
};

} // namespace Kes::test

#endif // KES_TESTS_DOUBLES_PKCS11_MODULE_READERS_H_
