// Tests of the functions without a session, and of the files that control the module.
#include <algorithm>
#include <fstream>

#include "module_client.h"

namespace Kes::test {
namespace {

CK_RV no_lock(void**) { return CKR_OK; }
CK_RV no_unlock(void*) { return CKR_OK; }

using FileTokensModuleTest = FileTokensTest;

TEST_F(FileTokensModuleTest, FunctionsNeedInitialization) {
    CK_ULONG count = 0;
    EXPECT_EQ(p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
    EXPECT_EQ(p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
    EXPECT_EQ(p11->C_Finalize(&count), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(p11->C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(p11->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(FileTokensModuleTest, LocksOfTheCallerNeedTheSystemsLocksAsAlternative) {
    CK_C_INITIALIZE_ARGS args{no_lock, no_unlock, no_unlock, no_unlock, 0, nullptr};
    EXPECT_EQ(p11->C_Initialize(&args), CKR_CANT_LOCK);
    args.CreateMutex = nullptr;
    EXPECT_EQ(p11->C_Initialize(&args), CKR_ARGUMENTS_BAD);
    args = {no_lock, no_unlock, no_unlock, no_unlock, CKF_OS_LOCKING_OK, nullptr};
    EXPECT_EQ(p11->C_Initialize(&args), CKR_OK);
}

TEST_F(FileTokensModuleTest, OtherFunctionsAreUnsupported) {
    EXPECT_EQ(p11->C_InitToken(0, nullptr, 0, nullptr), CKR_FUNCTION_NOT_SUPPORTED);
    EXPECT_EQ(p11->C_WaitForSlotEvent(0, nullptr, nullptr), CKR_FUNCTION_NOT_SUPPORTED);
}

TEST_F(FileTokensModuleTest, InfoNamesTheStandardsVersion) {
    p11->C_Initialize(nullptr);
    CK_INFO info{};
    ASSERT_EQ(p11->C_GetInfo(&info), CKR_OK);
    EXPECT_EQ(info.cryptokiVersion.major, 2);
    EXPECT_EQ(info.cryptokiVersion.minor, 40);
    EXPECT_EQ(text_of_field(info.libraryDescription), "Tokens from files");
    EXPECT_EQ(p11->C_GetInfo(nullptr), CKR_ARGUMENTS_BAD);
}

TEST_F(FileTokensModuleTest, ReadersAreListedByNameWithAndWithoutToken) {
    tokens.add_empty_reader("reader 0");
    tokens.add_token("reader 2");
    p11->C_Initialize(nullptr);
    EXPECT_EQ(slots(CK_FALSE), (std::vector<CK_SLOT_ID>{0, 1, 2}));
    EXPECT_EQ(slots(CK_TRUE), (std::vector<CK_SLOT_ID>{1, 2}));
    CK_SLOT_INFO info{};
    ASSERT_EQ(p11->C_GetSlotInfo(0, &info), CKR_OK);
    EXPECT_EQ(text_of_field(info.slotDescription), "reader 0");
    EXPECT_EQ(info.flags, CKF_REMOVABLE_DEVICE | CKF_HW_SLOT);
    ASSERT_EQ(p11->C_GetSlotInfo(1, &info), CKR_OK);
    EXPECT_EQ(info.flags, CKF_REMOVABLE_DEVICE | CKF_HW_SLOT | CKF_TOKEN_PRESENT);
    EXPECT_EQ(p11->C_GetSlotInfo(3, &info), CKR_SLOT_ID_INVALID);
    CK_TOKEN_INFO none{};
    EXPECT_EQ(p11->C_GetTokenInfo(0, &none), CKR_TOKEN_NOT_PRESENT);
}

TEST_F(FileTokensModuleTest, ReadersThatAreAddedLaterGetTheNextNumbers) {
    p11->C_Initialize(nullptr);
    EXPECT_EQ(slots(CK_FALSE).size(), 1U);
    tokens.add_token("a reader before it");
    EXPECT_EQ(slots(CK_FALSE), (std::vector<CK_SLOT_ID>{0, 1}));
    EXPECT_EQ(text_of_field(token_info(0).label), "Card 1");
    std::filesystem::remove_all(token.folder());
    EXPECT_EQ(slots(CK_FALSE), std::vector<CK_SLOT_ID>{1});
    CK_SLOT_INFO info{};
    EXPECT_EQ(p11->C_GetSlotInfo(0, &info), CKR_SLOT_ID_INVALID);
}

TEST_F(FileTokensModuleTest, ListThatIsTooShortReceivesTheNumber) {
    tokens.add_token("reader 2");
    p11->C_Initialize(nullptr);
    CK_SLOT_ID slot = 0;
    CK_ULONG count = 1;
    EXPECT_EQ(p11->C_GetSlotList(CK_FALSE, &slot, &count), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(p11->C_GetSlotList(CK_FALSE, &slot, nullptr), CKR_ARGUMENTS_BAD);
}

TEST_F(FileTokensModuleTest, TokenInfoComesFromTheFile) {
    token.set("label", "Another card");
    token.set("max_sessions", "5");
    const CK_SESSION_HANDLE session = open();
    const CK_TOKEN_INFO info = token_info();
    EXPECT_EQ(text_of_field(info.label), "Another card");
    EXPECT_EQ(text_of_field(info.manufacturerID), "Card maker");
    EXPECT_EQ(text_of_field(info.model), "Model 7");
    EXPECT_EQ(text_of_field(info.serialNumber), "0042");
    EXPECT_EQ(info.ulMaxSessionCount, 5U);
    EXPECT_EQ(info.ulSessionCount, 1U);
    EXPECT_EQ(info.ulRwSessionCount, 0U);
    EXPECT_EQ(p11->C_CloseSession(session), CKR_OK);
    EXPECT_EQ(token_info().ulSessionCount, 0U);
}

TEST_F(FileTokensModuleTest, EachFlagOfTheTokenHasItsSetting) {
    p11->C_Initialize(nullptr);
    slots(CK_FALSE);
    constexpr CK_FLAGS usual = CKF_TOKEN_INITIALIZED | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED;
    EXPECT_EQ(token_flags(), usual);
    for (const auto& [name, value, flag] : std::vector<std::tuple<std::string, std::string, CK_FLAGS>>{
             {"initialized", "0", CKF_TOKEN_INITIALIZED},
             {"login_required", "0", CKF_LOGIN_REQUIRED},
             {"user_pin_initialized", "0", CKF_USER_PIN_INITIALIZED},
             {"pin_pad", "1", CKF_PROTECTED_AUTHENTICATION_PATH},
             {"pin_count_low", "1", CKF_USER_PIN_COUNT_LOW},
             {"pin_final_try", "1", CKF_USER_PIN_FINAL_TRY},
             {"pin_locked", "1", CKF_USER_PIN_LOCKED}}) {
        token.set(name, value);
        EXPECT_EQ(token_flags(), usual ^ flag) << name;
        token.set(name, "");
    }
}

TEST_F(FileTokensModuleTest, InvalidNumberInTheFileFailsTheCall) {
    p11->C_Initialize(nullptr);
    slots(CK_FALSE);
    token.set("pin_pad", "yes");
    CK_TOKEN_INFO info{};
    EXPECT_EQ(p11->C_GetTokenInfo(0, &info), CKR_GENERAL_ERROR);
}

TEST_F(FileTokensModuleTest, MechanismsAreThoseOfTheFile) {
    p11->C_Initialize(nullptr);
    slots(CK_FALSE);
    CK_ULONG count = 0;
    ASSERT_EQ(p11->C_GetMechanismList(0, nullptr, &count), CKR_OK);
    EXPECT_EQ(count, 4U);
    token.set("mechanisms", "rsa_pkcs ecdsa");
    std::vector<CK_MECHANISM_TYPE> types(4);
    ASSERT_EQ(p11->C_GetMechanismList(0, types.data(), &count), CKR_OK);
    types.resize(count);
    EXPECT_EQ(types, (std::vector<CK_MECHANISM_TYPE>{CKM_RSA_PKCS, CKM_ECDSA}));
    CK_MECHANISM_INFO info{};
    ASSERT_EQ(p11->C_GetMechanismInfo(0, CKM_ECDSA, &info), CKR_OK);
    EXPECT_EQ(info.ulMinKeySize, 256U);
    EXPECT_EQ(info.flags, CKF_HW | CKF_SIGN);
    EXPECT_EQ(p11->C_GetMechanismInfo(0, CKM_RSA_PKCS_PSS, &info), CKR_MECHANISM_INVALID);
}

TEST_F(FileTokensModuleTest, CallsAreRecordedWithTheirResults) {
    p11->C_Initialize(nullptr);
    p11->C_Initialize(nullptr);
    p11->C_GetInfo(nullptr);
    // C_GetFunctionList has been called before.
    EXPECT_EQ(tokens.calls(), (Lines{"1 C_GetFunctionList#1 0x0", "2 C_Initialize#1 0x0",
                                     "3 C_Initialize#2 0x191", "4 C_GetInfo#1 0x7"}));
}

TEST_F(FileTokensModuleTest, NothingIsRecordedWithoutTheFile) {
    std::filesystem::remove(tokens.folder() / "calls");
    p11->C_Initialize(nullptr);
    EXPECT_FALSE(std::filesystem::exists(tokens.folder() / "calls"));
}

TEST_F(FileTokensModuleTest, PlannedFailureOfAFunctionLastsUntilItIsTakenBack) {
    tokens.fail({"C_Initialize=0x30"});
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_DEVICE_ERROR);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_DEVICE_ERROR);
    tokens.clear_failures();
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
}

TEST_F(FileTokensModuleTest, PlannedFailureOfOneCallSparesTheOthers) {
    p11->C_Initialize(nullptr);
    tokens.fail({"C_GetInfo#2=0x31", "5=0x30"}); // C_GetFunctionList was the first call
    CK_INFO info{};
    EXPECT_EQ(p11->C_GetInfo(&info), CKR_OK);
    EXPECT_EQ(p11->C_GetInfo(&info), CKR_DEVICE_MEMORY);
    EXPECT_EQ(p11->C_GetInfo(&info), CKR_DEVICE_ERROR);
    EXPECT_EQ(p11->C_GetInfo(&info), CKR_OK);
}

TEST_F(FileTokensModuleTest, FunctionListCanFail) {
    tokens.fail({"C_GetFunctionList=5"});
    CK_FUNCTION_LIST* list = nullptr;
    EXPECT_EQ(p11->C_GetFunctionList(&list), CKR_GENERAL_ERROR);
    EXPECT_EQ(list, nullptr);
}

TEST_F(FileTokensModuleTest, WithoutFolderThereAreNoReaders) {
    const EnvVar none("MARVO_TEST_TOKENS", std::nullopt);
    EXPECT_EQ(p11->C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(slots(CK_FALSE), std::vector<CK_SLOT_ID>());
}

} // namespace
} // namespace Kes::test
