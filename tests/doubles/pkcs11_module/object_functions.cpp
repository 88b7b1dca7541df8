// The functions of the module that find objects, read their attributes and sign.
#include <algorithm>

#include "call.h"

namespace Kes::test {
namespace {

/// Stores the signature, or its length if there is no place or too little room. The operation then goes on.
void sign_now(Session& session, const Reader& reader, Bytes data, unsigned char* place,
              unsigned long* length) {
    const SignOperation operation = *session.signing;
    const TokenObject& object = reader.find(operation.key, CKR_USER_NOT_LOGGED_IN);
    const CK_ULONG room = *length;
    *length = signature_size(object.key.get());
    if (place == nullptr) return;
    require(room >= *length, CKR_BUFFER_TOO_SMALL);
    session.signing.reset();
    const Bytes signature = sign(object.key.get(), operation.mechanism, operation.pss, std::move(data));
    *length = signature.size();
    std::copy(signature.begin(), signature.end(), place);
}

} // namespace
} // namespace Kes::test

using Kes::test::Bytes;
using Kes::test::Calls;
using Kes::test::check_mechanism;
using Kes::test::Reader;
using Kes::test::Readers;
using Kes::test::require;
using Kes::test::Session;
using Kes::test::sign_now;
using Kes::test::SignOperation;
using Kes::test::TokenObject;

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE* wanted, unsigned long count) {
    return Calls::instance().run("C_FindObjectsInit", [&](Readers& readers) {
        Session& session = readers.session(handle);
        require(!session.found, CKR_OPERATION_ACTIVE);
        require(wanted != nullptr || count == 0, CKR_ARGUMENTS_BAD);
        session.found.emplace();
        const Reader& reader = readers.reader_of(session);
        for (const TokenObject& object : reader.objects)
            if (reader.shows(object) && object.matches(wanted, count))
                session.found->push_back(object.handle);
    });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE* objects, unsigned long room,
                    unsigned long* count) {
    return Calls::instance().run("C_FindObjects", [&](Readers& readers) {
        Session& session = readers.session(handle);
        require(session.found.has_value(), CKR_OPERATION_NOT_INITIALIZED);
        require(objects != nullptr && count != nullptr, CKR_ARGUMENTS_BAD);
        auto& found = *session.found;
        *count = std::min<CK_ULONG>(room, found.size());
        const auto end = found.begin() + static_cast<std::ptrdiff_t>(*count);
        std::copy(found.begin(), end, objects);
        found.erase(found.begin(), end);
    });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE handle) {
    return Calls::instance().run("C_FindObjectsFinal", [&](Readers& readers) {
        Session& session = readers.session(handle);
        require(session.found.has_value(), CKR_OPERATION_NOT_INITIALIZED);
        session.found.reset();
    });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ATTRIBUTE* entries,
                          unsigned long count) {
    return Calls::instance().run("C_GetAttributeValue", [&](Readers& readers) {
        const Reader& reader = readers.reader_of(readers.session(handle));
        require(entries != nullptr, CKR_ARGUMENTS_BAD);
        const TokenObject& found = reader.find(object, CKR_OBJECT_HANDLE_INVALID);
        CK_RV result = CKR_OK;
        for (CK_ATTRIBUTE* entry = entries; entry != entries + count; ++entry)
            if (const CK_RV problem = found.read(*entry); problem != CKR_OK) result = problem;
        require(result == CKR_OK, result);
    });
}

CK_RV C_SignInit(CK_SESSION_HANDLE handle, CK_MECHANISM* mechanism, CK_OBJECT_HANDLE key) {
    return Calls::instance().run("C_SignInit", [&](Readers& readers) {
        Session& session = readers.session(handle);
        require(mechanism != nullptr, CKR_ARGUMENTS_BAD);
        require(!session.signing, CKR_OPERATION_ACTIVE);
        const Reader& reader = readers.reader_of(session);
        const TokenObject& object = reader.find(key, CKR_KEY_HANDLE_INVALID);
        require(object.key != nullptr, CKR_KEY_FUNCTION_NOT_PERMITTED);
        require(reader.files.supports(mechanism->mechanism), CKR_MECHANISM_INVALID);
        check_mechanism(*mechanism, object.key.get());
        SignOperation operation{key, mechanism->mechanism, {}};
        if (mechanism->mechanism == CKM_RSA_PKCS_PSS)
            operation.pss = *static_cast<const CK_RSA_PKCS_PSS_PARAMS*>(mechanism->pParameter);
        session.signing = operation;
    });
}

CK_RV C_Sign(CK_SESSION_HANDLE handle, unsigned char* data, unsigned long data_length,
             unsigned char* signature, unsigned long* length) {
    return Calls::instance().run("C_Sign", [&](Readers& readers) {
        Session& session = readers.session(handle);
        require(session.signing.has_value(), CKR_OPERATION_NOT_INITIALIZED);
        require(data != nullptr && length != nullptr, CKR_ARGUMENTS_BAD);
        sign_now(session, readers.reader_of(session), Bytes(data, data + data_length), signature, length);
    });
}
