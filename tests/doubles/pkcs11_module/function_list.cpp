// The module's only exported function. The other functions are found through the list that it returns.
#include "call.h"

namespace {

template <typename... Arguments>
CK_RV unsupported(Arguments...) {
    return CKR_FUNCTION_NOT_SUPPORTED;
}

/// Sets all functions of the list, in the order in which it declares them, to unsupported.
template <typename... Functions>
void set_unsupported(Functions&... functions) {
    ((functions = unsupported), ...);
}

CK_FUNCTION_LIST create_list() {
    CK_FUNCTION_LIST list{};
    list.version = {CRYPTOKI_VERSION_MAJOR, CRYPTOKI_VERSION_MINOR};
    set_unsupported(
        list.C_InitToken, list.C_InitPIN, list.C_SetPIN, list.C_GetOperationState, list.C_SetOperationState,
        list.C_CreateObject, list.C_CopyObject, list.C_DestroyObject, list.C_GetObjectSize,
        list.C_SetAttributeValue, list.C_EncryptInit, list.C_Encrypt, list.C_EncryptUpdate,
        list.C_EncryptFinal, list.C_DecryptInit, list.C_Decrypt, list.C_DecryptUpdate, list.C_DecryptFinal,
        list.C_DigestInit, list.C_Digest, list.C_DigestUpdate, list.C_DigestKey, list.C_DigestFinal,
        list.C_SignUpdate, list.C_SignFinal, list.C_SignRecoverInit, list.C_SignRecover, list.C_VerifyInit,
        list.C_Verify, list.C_VerifyUpdate, list.C_VerifyFinal, list.C_VerifyRecoverInit,
        list.C_VerifyRecover, list.C_DigestEncryptUpdate, list.C_DecryptDigestUpdate,
        list.C_SignEncryptUpdate, list.C_DecryptVerifyUpdate, list.C_GenerateKey, list.C_GenerateKeyPair,
        list.C_WrapKey, list.C_UnwrapKey, list.C_DeriveKey, list.C_SeedRandom, list.C_GenerateRandom,
        list.C_GetFunctionStatus, list.C_CancelFunction, list.C_WaitForSlotEvent);
    list.C_Initialize = C_Initialize;
    list.C_Finalize = C_Finalize;
    list.C_GetInfo = C_GetInfo;
    list.C_GetFunctionList = C_GetFunctionList;
    list.C_GetSlotList = C_GetSlotList;
    list.C_GetSlotInfo = C_GetSlotInfo;
    list.C_GetTokenInfo = C_GetTokenInfo;
    list.C_GetMechanismList = C_GetMechanismList;
    list.C_GetMechanismInfo = C_GetMechanismInfo;
    list.C_OpenSession = C_OpenSession;
    list.C_CloseSession = C_CloseSession;
    list.C_CloseAllSessions = C_CloseAllSessions;
    list.C_GetSessionInfo = C_GetSessionInfo;
    list.C_Login = C_Login;
    list.C_Logout = C_Logout;
    list.C_GetAttributeValue = C_GetAttributeValue;
    list.C_FindObjectsInit = C_FindObjectsInit;
    list.C_FindObjects = C_FindObjects;
    list.C_FindObjectsFinal = C_FindObjectsFinal;
    list.C_SignInit = C_SignInit;
    list.C_Sign = C_Sign;
    return list;
}

CK_FUNCTION_LIST functions = create_list();

} // namespace

[[gnu::visibility("default")]] CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
    return Kes::test::Calls::instance().run_always("C_GetFunctionList", [&] {
        Kes::test::require(list != nullptr, CKR_ARGUMENTS_BAD);
        *list = &functions;
    });
}
