#include "pkcs11/libp11_helper.h"

#include "support/core_fixture.h"
#include "support/timeline.h"
#include "utils/error.h"

#include <openssl/err.h>

namespace Kes::test {
namespace {

class Libp11InitTest : public CoreTest {
protected:
    LogCapture log;
};

TEST_F(Libp11InitTest, LoadsTheModuleAndReleasesItsContextInOrder) {
    {
        const Libp11Init context("module.so");
        EXPECT_EQ(script().take_calls(), (Lines{"ERR_load_PKCS11_strings()", "PKCS11_CTX_new()",
                                                "PKCS11_CTX_load(ctx1, module.so)"}));
    }
    EXPECT_EQ(script().calls(), (Lines{"PKCS11_CTX_unload(ctx1)", "PKCS11_CTX_free(ctx1)"}));
    EXPECT_EQ(log.lines(), (Lines{"<info> ctx: manufacturer=Module maker, description=Module",
                                  "<info> libp11 initialized", "<info> libp11 destroyed"}));
}

TEST_F(Libp11InitTest, NothingIsLoadedOrFreedWhenNoContextCanBeCreated) {
    script().fail_function("PKCS11_CTX_new");
    EXPECT_EQ(
        error_text([] { Libp11Init("module.so"); }),
        "libp11_helper:78 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_new() failed: val=2 (null_pointer)");
    EXPECT_EQ(script().calls(), (Lines{"ERR_load_PKCS11_strings()", "PKCS11_CTX_new()"}));
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(Libp11InitTest, ErrorNamesAModuleThatCannotBeLoadedAndItsContextIsFreedWithoutUnload) {
    script().fail_function("PKCS11_CTX_load", {.rc = -1});
    EXPECT_EQ(
        error_text([] { Libp11Init("./no such.so"); }),
        "libp11_helper:86 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_load() failed to load PKCS#11 library "
        "'./no such.so': rc=-1" +
            raised_by("PKCS11_CTX_load") + missing_module_detail("./no such.so"));
    EXPECT_EQ(script().calls(), (Lines{"ERR_load_PKCS11_strings()", "PKCS11_CTX_new()",
                                       "PKCS11_CTX_load(ctx1, ./no such.so)", "PKCS11_CTX_free(ctx1)"}));
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(Libp11InitTest, ErrorOfAModuleContainsNothingThatFreeingItsContextReports) {
    script().fail_function("PKCS11_CTX_load", {.rc = -1, .queue_text = "first cause"});
    libp11().queued_by_free = "later noise";
    EXPECT_EQ(
        without_thread(error_text([] { Libp11Init("./no such.so"); })),
        without_thread("libp11_helper:86 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_load() failed to load "
                       "PKCS#11 library './no such.so': rc=-1\n"
                       "THREAD:error:400000A0:lib(128):scripted:reason(160):double.c:1:first cause") +
            without_thread(missing_module_detail("./no such.so")));
    EXPECT_EQ(script().calls().back(), "PKCS11_CTX_free(ctx1)");
    ::ERR_clear_error();
}

TEST_F(Libp11InitTest, TextsMissingFromTheModuleAreLoggedAsEmpty) {
    libp11().manufacturer.reset();
    libp11().description.reset();
    libp11().slots[0].manufacturer.reset();
    libp11().slots[0].description.reset();
    token().label.reset();
    token().manufacturer.reset();
    token().model.reset();
    token().serialnr.reset();
    Libp11Init context("module.so");
    context.read_scard();
    EXPECT_EQ(
        log.lines(),
        (Lines{"<info> ctx: manufacturer=, description=", "<info> libp11 initialized",
               "<info> slot: manufacturer=, description=", "<info> token:", "<info>   label:         ",
               "<info>   manufacturer:  ", "<info>   model:         ", "<info>   serialnr:      ",
               "<info>   loginRequired: 1", "<info>   secureLogin:   0", "<info> libp11 read smart card"}));
}

TEST_F(Libp11InitTest, ReadsTheTokenAndReleasesTheSlotsBeforeTheModule) {
    {
        Libp11Init context("module.so");
        script().take_calls();
        context.read_scard();
        EXPECT_TRUE(context.is_login_required());
        EXPECT_STREQ(context.get_token()->label, "Token 1");
    }
    EXPECT_EQ(script().calls(), (Lines{"PKCS11_enumerate_slots(ctx1)", "PKCS11_find_token(ctx1, slots1, 1)",
                                       "PKCS11_release_all_slots(ctx1, slots1, 1)", "PKCS11_CTX_unload(ctx1)",
                                       "PKCS11_CTX_free(ctx1)"}));
    EXPECT_EQ(
        log.lines(),
        (Lines{"<info> ctx: manufacturer=Module maker, description=Module", "<info> libp11 initialized",
               "<info> slot: manufacturer=Slot maker, description=Slot 1",
               "<info> token:", "<info>   label:         Token 1", "<info>   manufacturer:  Maker",
               "<info>   model:         Model 7", "<info>   serialnr:      0042", "<info>   loginRequired: 1",
               "<info>   secureLogin:   0", "<info> libp11 read smart card", "<info> libp11 destroyed"}));
}

TEST_F(Libp11InitTest, SlotThatLibp11FindsIsUsedForTheLogin) {
    ScriptedSlot empty;
    ScriptedSlot blank;
    blank.token.emplace();
    blank.token->is_initialized = false;
    libp11().slots.insert(libp11().slots.begin(), {empty, blank});
    Libp11Init context("module.so");
    context.read_scard();
    context.authenticate(Pin("1234"));
    EXPECT_THAT(script().calls(), testing::Contains("PKCS11_login(slot1.3, user, right pin)"));
}

TEST_F(Libp11InitTest, LoginIsRequiredOnlyWithoutAProtectedAuthenticationPath) {
    const struct {
        unsigned char login_required, secure_login;
        bool expected;
    } rows[] = {{0, 0, false}, {1, 0, true}, {0, 1, false}, {1, 1, false}};
    for (const auto& row : rows) {
        token().loginRequired = row.login_required;
        token().secureLogin = row.secure_login;
        Libp11Init context("module.so");
        context.read_scard();
        EXPECT_EQ(context.is_login_required(), row.expected)
            << int{row.login_required} << int{row.secure_login};
    }
    EXPECT_THAT(log.lines(), testing::Contains("<info>   secureLogin:   1"));
}

TEST_F(Libp11InitTest, FailedSlotEnumerationLeavesNoSlotsAndNoLoginRequirement) {
    Libp11Init context("module.so");
    script().fail_function("PKCS11_enumerate_slots", {.rc = 5});
    EXPECT_EQ(error_text([&] { context.read_scard(); }),
              "libp11_helper:133 Kes::Libp11Init::read_scard(): PKCS11_enumerate_slots() failed: rc=5" +
                  raised_by("PKCS11_enumerate_slots"));
    EXPECT_FALSE(context.is_login_required());
}

TEST_F(Libp11InitTest, SlotArrayIsNotReleasedWhenNoTokenIsFound) {
    libp11().slots = {ScriptedSlot()};
    expected_slot_arrays = 1;
    {
        Libp11Init context("module.so");
        EXPECT_EQ(
            error_text([&] { context.read_scard(); }),
            "libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() failed: val=11 (empty)");
        EXPECT_FALSE(context.is_login_required());
        script().take_calls();
    }
    EXPECT_EQ(script().calls(), (Lines{"PKCS11_CTX_unload(ctx1)", "PKCS11_CTX_free(ctx1)"}));
}

TEST_F(Libp11InitTest, ModuleWithoutSlotsHasNoToken) {
    libp11().slots.clear();
    expected_slot_arrays = 1;
    Libp11Init context("module.so");
    EXPECT_EQ(error_text([&] { context.read_scard(); }),
              "libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() failed: val=11 (empty)");
}

TEST_F(Libp11InitTest, SlotsOfAnEarlierReadingAreKeptUntilDestruction) {
    {
        Libp11Init context("module.so");
        context.read_scard();
        script().take_calls();
        token().loginRequired = 0;
        context.read_scard();
        EXPECT_EQ(script().take_calls(),
                  (Lines{"PKCS11_enumerate_slots(ctx1)", "PKCS11_find_token(ctx1, slots2, 1)"}));
        EXPECT_FALSE(context.is_login_required());
    }
    EXPECT_EQ(script().calls(),
              (Lines{"PKCS11_release_all_slots(ctx1, slots2, 1)", "PKCS11_release_all_slots(ctx1, slots1, 1)",
                     "PKCS11_CTX_unload(ctx1)", "PKCS11_CTX_free(ctx1)"}));
}

TEST_F(Libp11InitTest, ReleasingTheSlotsRemovesTheTokenUntilTheNextReading) {
    Libp11Init context("module.so");
    context.read_scard();
    script().take_calls();
    context.release_slots();
    context.release_slots();
    EXPECT_EQ(script().take_calls(), Lines{"PKCS11_release_all_slots(ctx1, slots1, 1)"});
    EXPECT_THROW(context.get_token(), Error);
    context.read_scard();
    EXPECT_STREQ(context.get_token()->label, "Token 1");
}

TEST_F(Libp11InitTest, ErrorsQueuedByASuccessfulModuleLoadAreCleared) {
    script().fail_function("PKCS11_CTX_load", {.rc = 0, .queue_text = "harmless"});
    // The scripted failure returns success but loads nothing. This test checks only the error queue.
    EXPECT_NE(error_text([] {
                  Libp11Init context("module.so");
                  EXPECT_EQ(OsslErrorCode(0).text, "");
                  throw ErrorString("done");
              }),
              "no exception");
    EXPECT_EQ(script().violations(), Lines{"PKCS11_CTX_unload: nothing loaded"});
    script().reset();
}

TEST_F(Libp11InitTest, FailedSecondReadingLeavesNoTokenAndNoLoginRequirement) {
    Libp11Init context("module.so");
    context.read_scard();
    script().fail_function("PKCS11_enumerate_slots");
    EXPECT_THROW(context.read_scard(), OsslError);
    EXPECT_FALSE(context.is_login_required());
    EXPECT_EQ(error_text([&] { context.get_token(); }),
              "libp11_helper:203 Kes::Libp11Init::get_token(): no token has been read: val=11 (empty)");
}

TEST_F(Libp11InitTest, NoTokenIsAvailableBeforeReading) {
    const Libp11Init context("module.so");
    EXPECT_EQ(error_text([&] { context.get_token(); }),
              "libp11_helper:203 Kes::Libp11Init::get_token(): no token has been read: val=11 (empty)");
}

TEST_F(Libp11InitTest, UninitialisedTokenIsRejectedBeforeAnyCall) {
    token().is_initialized = false;
    for (const auto login_required : std::initializer_list<unsigned char>{1, 0}) {
        token().loginRequired = login_required;
        Libp11Init context("module.so");
        context.read_scard();
        script().take_calls();
        EXPECT_EQ(error_text([&] { context.get_token(); }),
                  "libp11_helper:209 Kes::Libp11Init::get_token(): token is not initialized: val=10 "
                  "(not_initialized)");
        EXPECT_EQ(script().calls(), Lines());
    }
}

TEST_F(Libp11InitTest, DestructionIsLoggedAfterItsLastStep) {
    auto context = std::make_unique<Libp11Init>("module.so");
    context->read_scard();
    Timeline timeline(log);
    context.reset();
    EXPECT_EQ(timeline.take(), (Lines{"PKCS11_release_all_slots(ctx1, slots1, 1)", "PKCS11_CTX_unload(ctx1)",
                                      "PKCS11_CTX_free(ctx1)", "<info> libp11 destroyed"}));
}

class Libp11LoginTest : public Libp11InitTest {
protected:
    Libp11LoginTest() {
        context_.read_scard();
        script().take_calls();
        lines_before_ = log.lines().size();
    }

    Lines new_lines() const {
        Lines lines = log.lines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(lines_before_));
        return lines;
    }

    void TearDown() override {
        own_context_.reset();
        CoreTest::TearDown();
    }

    std::unique_ptr<Libp11Init> own_context_ = std::make_unique<Libp11Init>("module.so");
    Libp11Init& context_ = *own_context_;
    std::size_t lines_before_ = 0;
};

TEST_F(Libp11LoginTest, LogsInOnceAndDetectsTheExistingLoginAfterwards) {
    EXPECT_FALSE(context_.is_logged_in());
    context_.authenticate(Pin("1234"));
    EXPECT_TRUE(context_.is_logged_in());
    context_.authenticate(Pin("wrong"));
    EXPECT_EQ(script().calls(),
              (Lines{"PKCS11_is_logged_in(slot1.1, user)", "PKCS11_is_logged_in(slot1.1, user)",
                     "PKCS11_login(slot1.1, user, right pin)", "PKCS11_is_logged_in(slot1.1, user)",
                     "PKCS11_is_logged_in(slot1.1, user)"}));
    EXPECT_EQ(new_lines(), (Lines{"<info> pin required - need login", "<info> logged-in successfully",
                                  "<info> pin required but already logged-in"}));
}

TEST_F(Libp11LoginTest, SuccessfulLoginIsRemembered) {
    EXPECT_FALSE(context_.has_logged_in());
    context_.authenticate(Pin("1234"));
    EXPECT_TRUE(context_.has_logged_in());
    context_.read_scard();
    EXPECT_TRUE(context_.has_logged_in());
}

TEST_F(Libp11LoginTest, ExistingLoginIsRemembered) {
    libp11().is_logged_in = true;
    context_.authenticate(Pin());
    EXPECT_TRUE(context_.has_logged_in());
}

TEST_F(Libp11LoginTest, NoLoginIsRememberedAfterAFailureOrWhenNoneIsRequired) {
    EXPECT_THROW(context_.authenticate(Pin("0000")), OsslError);
    EXPECT_THROW(context_.authenticate(Pin()), Error);
    EXPECT_FALSE(context_.has_logged_in());
    token().loginRequired = 0;
    context_.read_scard();
    context_.authenticate(Pin("1234"));
    EXPECT_FALSE(context_.has_logged_in());
}

TEST_F(Libp11LoginTest, LoginIsAnnouncedBeforeItAndConfirmedAfterIt) {
    Timeline timeline(log);
    context_.authenticate(Pin("1234"));
    EXPECT_EQ(timeline.take(),
              (Lines{"PKCS11_is_logged_in(slot1.1, user)", "<info> pin required - need login",
                     "PKCS11_login(slot1.1, user, right pin)", "<info> logged-in successfully"}));
}

TEST_F(Libp11LoginTest, EmptyPinLogsTheRequiredLoginAndThrows) {
    EXPECT_EQ(error_text([&] { context_.authenticate(Pin()); }),
              "libp11_helper:185 Kes::Libp11Init::authenticate(): no PIN specified: val=11 (empty)");
    EXPECT_EQ(script().calls(), Lines{"PKCS11_is_logged_in(slot1.1, user)"});
    EXPECT_EQ(new_lines(), Lines{"<info> pin required - need login"});
}

TEST_F(Libp11LoginTest, WrongPinUsesOneLoginAttemptAndReportsTheReasonOfTheToken) {
    EXPECT_EQ(without_thread(error_text([&] { context_.authenticate(Pin("0000")); })),
              "libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
              "THREAD:error:400000A0:lib(128):scripted:reason(160):double.c:1:PIN incorrect");
    EXPECT_EQ(script().calls(),
              (Lines{"PKCS11_is_logged_in(slot1.1, user)", "PKCS11_login(slot1.1, user, wrong pin)"}));
    EXPECT_EQ(new_lines(), Lines{"<info> pin required - need login"});
}

TEST_F(Libp11LoginTest, FailedLoginQueryIsReportedBeforeAnyLogin) {
    script().fail_function("PKCS11_is_logged_in", {.rc = -2});
    EXPECT_EQ(error_text([&] { context_.authenticate(Pin("1234")); }),
              "libp11_helper:163 Kes::Libp11Init::is_logged_in(): PKCS11_is_logged_in() failed: rc=-2" +
                  raised_by("PKCS11_is_logged_in"));
    EXPECT_EQ(script().calls(), Lines{"PKCS11_is_logged_in(slot1.1, user)"});
    EXPECT_EQ(new_lines(), Lines());
}

TEST_F(Libp11LoginTest, NothingIsCalledOrLoggedWhenNoLoginIsRequired) {
    const struct { unsigned char login_required, secure_login; } rows[] = {{0, 0}, {1, 1}};
    for (const auto& row : rows) {
        token().loginRequired = row.login_required;
        token().secureLogin = row.secure_login;
        Libp11Init context("module.so");
        context.read_scard();
        script().take_calls();
        const std::size_t before = log.lines().size();
        context.authenticate(Pin());
        context.authenticate(Pin("1234"));
        EXPECT_EQ(script().calls(), Lines());
        EXPECT_EQ(log.lines().size(), before);
    }
}

} // namespace
} // namespace Kes::test
