// The functions of the module that open sessions and log in.
#include "call.h"

using Kes::test::Calls;
using Kes::test::Reader;
using Kes::test::Readers;
using Kes::test::require;
using Kes::test::Session;

namespace {

CK_STATE state_of(const Session& session, const Reader& reader) {
    const bool is_writing = (session.flags & CKF_RW_SESSION) != 0;
    if (reader.is_logged_in) return is_writing ? CKS_RW_USER_FUNCTIONS : CKS_RO_USER_FUNCTIONS;
    return is_writing ? CKS_RW_PUBLIC_SESSION : CKS_RO_PUBLIC_SESSION;
}

} // namespace

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void*, CK_NOTIFY, CK_SESSION_HANDLE* session) {
    return Calls::instance().run("C_OpenSession", [&](Readers& readers) {
        require(session != nullptr, CKR_ARGUMENTS_BAD);
        require((flags & CKF_SERIAL_SESSION) != 0, CKR_SESSION_PARALLEL_NOT_SUPPORTED);
        *session = readers.open(slot, flags);
    });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
    return Calls::instance().run("C_CloseSession", [&](Readers& readers) { readers.close(session); });
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slot) {
    return Calls::instance().run("C_CloseAllSessions", [&](Readers& readers) { readers.close_all(slot); });
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE handle, CK_SESSION_INFO* info) {
    return Calls::instance().run("C_GetSessionInfo", [&](Readers& readers) {
        const Session& session = readers.session(handle);
        require(info != nullptr, CKR_ARGUMENTS_BAD);
        *info = {session.slot, state_of(session, readers.reader_of(session)), session.flags, 0};
    });
}

CK_RV C_Login(CK_SESSION_HANDLE handle, CK_USER_TYPE user, unsigned char* pin, unsigned long length) {
    return Calls::instance().run("C_Login", [&](Readers& readers) {
        Reader& reader = readers.reader_of(readers.session(handle));
        require(user != CKU_CONTEXT_SPECIFIC, CKR_OPERATION_NOT_INITIALIZED);
        require(user == CKU_USER, CKR_USER_TYPE_INVALID);
        require(!reader.is_logged_in, CKR_USER_ALREADY_LOGGED_IN);
        reader.files.check_pin(pin, length);
        reader.is_logged_in = true;
    });
}

CK_RV C_Logout(CK_SESSION_HANDLE handle) {
    return Calls::instance().run("C_Logout", [&](Readers& readers) {
        Reader& reader = readers.reader_of(readers.session(handle));
        require(reader.is_logged_in, CKR_USER_NOT_LOGGED_IN);
        reader.is_logged_in = false;
    });
}
