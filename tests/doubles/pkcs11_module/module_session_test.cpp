// Tests of sessions and logins.
#include "module_client.h"

namespace Kes::test {
namespace {

using FileTokensSessionTest = FileTokensTest;

CK_STATE state_of(CK_FUNCTION_LIST& p11, CK_SESSION_HANDLE session) {
    CK_SESSION_INFO info{};
    EXPECT_EQ(p11.C_GetSessionInfo(session, &info), CKR_OK);
    return info.state;
}

TEST_F(FileTokensSessionTest, SessionsAreOpenedAndClosed) {
    const CK_SESSION_HANDLE first = open();
    CK_SESSION_HANDLE second = 0;
    ASSERT_EQ(p11->C_OpenSession(0, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &second), CKR_OK);
    EXPECT_EQ(token_info().ulSessionCount, 2U);
    EXPECT_EQ(token_info().ulRwSessionCount, 1U);
    EXPECT_EQ(state_of(*p11, first), CKS_RO_PUBLIC_SESSION);
    EXPECT_EQ(state_of(*p11, second), CKS_RW_PUBLIC_SESSION);
    EXPECT_EQ(p11->C_CloseSession(first), CKR_OK);
    EXPECT_EQ(p11->C_CloseSession(first), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(p11->C_CloseAllSessions(0), CKR_OK);
    EXPECT_EQ(p11->C_CloseSession(second), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(FileTokensSessionTest, SessionsNeedTheSerialFlagAndAToken) {
    tokens.add_empty_reader("reader 2");
    open();
    CK_SESSION_HANDLE session = 0;
    EXPECT_EQ(p11->C_OpenSession(0, 0, nullptr, nullptr, &session), CKR_SESSION_PARALLEL_NOT_SUPPORTED);
    EXPECT_EQ(p11->C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_TOKEN_NOT_PRESENT);
    EXPECT_EQ(p11->C_OpenSession(2, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_SLOT_ID_INVALID);
}

TEST_F(FileTokensSessionTest, LimitOfSessionsIsKept) {
    token.set("max_sessions", "1");
    open();
    CK_SESSION_HANDLE session = 0;
    EXPECT_EQ(p11->C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_SESSION_COUNT);
}

TEST_F(FileTokensSessionTest, LoginLastsUntilLogoutOrTheLastSessionsEnd) {
    const CK_SESSION_HANDLE session = open();
    EXPECT_EQ(p11->C_Logout(session), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(log_in(session, file_token_pin), CKR_OK);
    EXPECT_EQ(state_of(*p11, session), CKS_RO_USER_FUNCTIONS);
    EXPECT_EQ(log_in(session, file_token_pin), CKR_USER_ALREADY_LOGGED_IN);
    EXPECT_EQ(p11->C_Logout(session), CKR_OK);
    EXPECT_EQ(state_of(*p11, session), CKS_RO_PUBLIC_SESSION);
    EXPECT_EQ(log_in(session, file_token_pin), CKR_OK);
    EXPECT_EQ(p11->C_CloseSession(session), CKR_OK);
    EXPECT_EQ(state_of(*p11, open()), CKS_RO_PUBLIC_SESSION);
}

TEST_F(FileTokensSessionTest, LoginIsPerToken) {
    tokens.add_token("reader 2");
    EXPECT_EQ(log_in(open(0), file_token_pin), CKR_OK);
    EXPECT_EQ(state_of(*p11, open(1)), CKS_RO_PUBLIC_SESSION);
}

TEST_F(FileTokensSessionTest, OnlyUsersLogIn) {
    const CK_SESSION_HANDLE session = open();
    EXPECT_EQ(p11->C_Login(session, CKU_SO, nullptr, 0), CKR_USER_TYPE_INVALID);
    EXPECT_EQ(p11->C_Login(session, CKU_CONTEXT_SPECIFIC, nullptr, 0), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(p11->C_Login(session, CKU_USER, nullptr, 0), CKR_ARGUMENTS_BAD);
    token.set("user_pin_initialized", "0");
    EXPECT_EQ(log_in(session, file_token_pin), CKR_USER_PIN_NOT_INITIALIZED);
}

TEST_F(FileTokensSessionTest, WrongPinsAreNotCountedByDefault) {
    const CK_SESSION_HANDLE session = open();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(log_in(session, "1"), CKR_PIN_INCORRECT);
    EXPECT_EQ(log_in(session, ""), CKR_PIN_INCORRECT);
    EXPECT_EQ(log_in(session, file_token_pin), CKR_OK);
}

TEST_F(FileTokensSessionTest, WrongPinsLockTheTokenAfterTheLastTry) {
    token.set("tries", "3");
    const CK_SESSION_HANDLE session = open();
    constexpr CK_FLAGS pin_flags = CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED;
    EXPECT_EQ(token_flags() & pin_flags, 0U);
    EXPECT_EQ(log_in(session, "1"), CKR_PIN_INCORRECT);
    EXPECT_EQ(token_flags() & pin_flags, CKF_USER_PIN_COUNT_LOW);
    EXPECT_EQ(log_in(session, "1"), CKR_PIN_INCORRECT);
    EXPECT_EQ(token_flags() & pin_flags, CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY);
    EXPECT_EQ(log_in(session, "1"), CKR_PIN_INCORRECT);
    EXPECT_EQ(token_flags() & pin_flags, CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_LOCKED);
    EXPECT_EQ(log_in(session, file_token_pin), CKR_PIN_LOCKED);
    EXPECT_EQ(log_in(session, "1"), CKR_PIN_LOCKED);
}

TEST_F(FileTokensSessionTest, RightPinGivesAllTriesBack) {
    token.set("tries", "2");
    const CK_SESSION_HANDLE session = open();
    EXPECT_EQ(log_in(session, "1"), CKR_PIN_INCORRECT);
    EXPECT_EQ(log_in(session, file_token_pin), CKR_OK);
    EXPECT_EQ(p11->C_Logout(session), CKR_OK);
    EXPECT_EQ(log_in(session, "1"), CKR_PIN_INCORRECT);
    EXPECT_EQ(log_in(session, file_token_pin), CKR_OK);
}

TEST_F(FileTokensSessionTest, LockedTokenRefusesTheRightPin) {
    token.set("pin_locked", "1");
    EXPECT_EQ(log_in(open(), file_token_pin), CKR_PIN_LOCKED);
}

TEST_F(FileTokensSessionTest, PinPadReplacesThePinByItsResult) {
    token.set("pin_pad", "1");
    token.set("pad_result", "0x50");
    const CK_SESSION_HANDLE session = open();
    EXPECT_EQ(p11->C_Login(session, CKU_USER, nullptr, 0), CKR_FUNCTION_CANCELED);
    token.set("pad_result", "0");
    EXPECT_EQ(p11->C_Login(session, CKU_USER, nullptr, 0), CKR_OK);
}

TEST_F(FileTokensSessionTest, RemovedCardEndsSessionsAndLogin) {
    const CK_SESSION_HANDLE session = open();
    EXPECT_EQ(log_in(session, file_token_pin), CKR_OK);
    token.remove();
    CK_SLOT_INFO slot{};
    EXPECT_EQ(p11->C_GetSlotInfo(0, &slot), CKR_OK);
    EXPECT_EQ(slot.flags & CKF_TOKEN_PRESENT, 0U);
    CK_SESSION_INFO info{};
    EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_DEVICE_REMOVED);
    EXPECT_EQ(slots(CK_TRUE), std::vector<CK_SLOT_ID>());
    EXPECT_EQ(p11->C_CloseAllSessions(0), CKR_TOKEN_NOT_PRESENT);
    token.insert();
    EXPECT_EQ(p11->C_GetSessionInfo(session, &info), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(token_info().ulSessionCount, 0U);
    EXPECT_EQ(state_of(*p11, open()), CKS_RO_PUBLIC_SESSION);
}

} // namespace
} // namespace Kes::test
