#include "scripted_scard.h"

namespace Kes::test {
namespace {

TEST_F(SessionTest, SessionStartsTheLibraryAndDestroysItAtItsEnd) {
    { const marvo::Session session; }
    EXPECT_EQ(card.calls, (Lines{"version_check 4", "init", "destroy"}));
}

TEST_F(SessionTest, FunctionChangesTheSettingsBeforeTheStart) {
    const marvo::Session session([this](OsslScardCfg& cfg) {
        cfg.set_logfile("here.log");
        EXPECT_EQ(card.calls, Lines{"version_check 4"});
    });
    EXPECT_EQ(card.cfg.logfile, "here.log");
}

TEST_F(SessionTest, SecondSessionIsRefusedAndTheFirstGoesOn) {
    marvo::Session session;
    EXPECT_EQ(error_of([] { const marvo::Session second; }), "the process already has a session");
    EXPECT_EQ(card.calls, (Lines{"version_check 4", "init"}));
    session.read_card();
}

TEST_F(SessionTest, SessionCanFollowAnother) {
    { const marvo::Session session; }
    EXPECT_EQ(error_of([] { const marvo::Session second; }), "no error");
}

TEST_F(SessionTest, MovedSessionDestroysTheLibraryOnce) {
    {
        marvo::Session session;
        marvo::Session moved(std::move(session));
        card.calls.clear();
        moved.read_card();
    }
    EXPECT_EQ(card.calls, (Lines{"read_scard", "destroy"}));
}

TEST_F(SessionTest, UnsupportedInterfaceVersionDestroysTheLibraryAndThrowsItsMessage) {
    card.fail("version_check", "interface version incompatibility detected: specified=4, expected=5");
    EXPECT_EQ(error_of([] { const marvo::Session session; }),
              "interface version incompatibility detected: specified=4, expected=5");
    EXPECT_EQ(card.calls, (Lines{"version_check 4", "destroy"}));
    EXPECT_EQ(error_of([] { const marvo::Session next; }),
              "interface version incompatibility detected: specified=4, expected=5");
}

TEST_F(SessionTest, ExceptionOfTheFunctionThatChangesTheSettingsDestroysTheLibrary) {
    EXPECT_THROW(marvo::Session([](OsslScardCfg&) { throw std::out_of_range("no such setting"); }),
                 std::out_of_range);
    EXPECT_EQ(card.calls, (Lines{"version_check 4", "destroy"}));
}

TEST_F(SessionTest, LogThatCannotBeOpenedIsAWarning) {
    card.fail("init", "error opening logfile 'x'");
    marvo::Session session;
    session.read_card();
    EXPECT_EQ(session.warning(), "error opening logfile 'x'");
}

TEST_F(SessionTest, SuccessfulStartHasNoWarning) {
    const marvo::Session session;
    EXPECT_EQ(session.warning(), "");
}

TEST_F(SessionTest, FailedStartIsReportedWithTheFirstReadOfTheCard) {
    card.fail("init", "PKCS11_CTX_load() failed");
    card.fail("read_scard", "operation not allowed in current state");
    marvo::Session session;
    EXPECT_EQ(error_of([&] { session.read_card(); }),
              "PKCS11_CTX_load() failed\noperation not allowed in current state");
}

TEST_F(SessionTest, FailedReadIsReported) {
    card.fail("read_scard", "PKCS11_find_token() failed");
    marvo::Session session;
    EXPECT_EQ(error_of([&] { session.read_card(); }), "PKCS11_find_token() failed");
}

TEST_F(SessionTest, LaterFailedReadDoesNotRepeatTheWarning) {
    card.fail("init", "error opening logfile 'x'");
    marvo::Session session;
    session.read_card();
    card.fail("read_scard", "PKCS11_find_token() failed");
    EXPECT_EQ(error_of([&] { session.read_card(); }), "PKCS11_find_token() failed");
}

} // namespace
} // namespace Kes::test
