#include "capi/capi_helper.h"
#include "support/capi_fixture.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

class CapiInitTest : public CapiTest {
protected:
    LogCapture log;
};

const std::string location = "capi_helper:79 Kes::CapiInit::CapiInit(): ";

TEST_F(CapiInitTest, OpensAContainerWithTheGivenFlagsAndReleasesItOnDestruction) {
    { const CapiInit capi(csp, "c1", 0); }
    EXPECT_EQ(script().calls(),
              (Lines{"CryptAcquireContextA(c1, Test CSP, 1, 0x0)", "CryptReleaseContext(prov:c1)"}));
    EXPECT_EQ(log.lines(), (Lines{"<info> capi initialized (provider=Test CSP, key_container=c1, flags=0x0)",
                                  "<info> capi destroyed"}));
}

TEST_F(CapiInitTest, ContextWithoutContainerAndFlagsIsOpenedForTheProviderAlone) {
    { const CapiInit capi(csp, nullptr, 0); }
    EXPECT_EQ(script().calls(), (Lines{"CryptAcquireContextA(null, Test CSP, 1, 0xf0000000)",
                                       "CryptGetProvParam(prov, 6, 0, size)",
                                       "CryptGetProvParam(prov, 6, 0, read)", "CryptReleaseContext(prov)"}));
    EXPECT_EQ(log.lines(), (Lines{"<trace> created CapiProvParamReader object",
                                  "<trace> destroyed CapiProvParamReader object",
                                  "<info> capi initialized (provider=Test CSP, key_container=default "
                                  "(default), flags=0xf0000000)",
                                  "<info> capi destroyed"}));
}

TEST_F(CapiInitTest, GivenFlagsAreNotChanged) {
    { const CapiInit capi(csp, nullptr, 0x20); }
    { const CapiInit capi(csp, "c1", 0xabc); }
    EXPECT_EQ(script().calls().front(), "CryptAcquireContextA(null, Test CSP, 1, 0x20)");
    EXPECT_THAT(
        log.lines(),
        testing::IsSupersetOf(
            {"<info> capi initialized (provider=Test CSP, key_container=default (default), flags=0x20)",
             "<info> capi initialized (provider=Test CSP, key_container=c1, flags=0xabc)"}));
}

TEST_F(CapiInitTest, NameOfTheDefaultProviderIsReadWhenNoProviderIsGiven) {
    { const CapiInit capi(nullptr, "c1", 0); }
    EXPECT_EQ(script().calls(),
              (Lines{"CryptAcquireContextA(c1, null, 1, 0x0)", "CryptGetProvParam(prov:c1, 4, 0, size)",
                     "CryptGetProvParam(prov:c1, 4, 0, read)", "CryptReleaseContext(prov:c1)"}));
    EXPECT_EQ(log.lines().at(2),
              "<info> capi initialized (provider=Test CSP (default), key_container=c1, flags=0x0)");
}

TEST_F(CapiInitTest, NamesWithoutATerminatingNulAreReadCompletely) {
    provider().ends_names = false;
    { const CapiInit capi(nullptr, nullptr, 0); }
    EXPECT_EQ(log.lines().at(4), "<info> capi initialized (provider=Test CSP (default), "
                                 "key_container=default (default), flags=0xf0000000)");
}

TEST_F(CapiInitTest, EmptyNamesAreAccepted) {
    capi().odd_answers["CryptGetProvParam 4"] = {.size = 0};
    capi().odd_answers["CryptGetProvParam 6"] = {.size = 0};
    { const CapiInit capi(nullptr, nullptr, 0); }
    EXPECT_EQ(log.lines().at(4), "<info> capi initialized (provider= (default), key_container= (default), "
                                 "flags=0xf0000000)");
}

TEST_F(CapiInitTest, ErrorOfARefusedContextContainsAllArguments) {
    const struct {
        const char* provider;
        const char* container;
        std::uint32_t flags;
        const char* arguments;
    } rows[] = {
        {csp, "c1", 0, "prov_name=Test CSP, key_container_name=c1, flags=0x0"},
        {csp, nullptr, 0, "prov_name=Test CSP, key_container_name=nullptr, flags=0xf0000000"},
        {nullptr, "c1", 0xabc, "prov_name=nullptr, key_container_name=c1, flags=0xabc"},
        {nullptr, nullptr, 0, "prov_name=nullptr, key_container_name=nullptr, flags=0xf0000000"},
        {"", "", 0, "prov_name=, key_container_name=, flags=0x0"},
    };
    for (const auto& row : rows) {
        for (const DWORD code : all_codes) {
            SCOPED_TRACE(row.arguments + std::to_string(code));
            restart_script();
            script().fail_step(1, win_failure(code));
            EXPECT_EQ(error_text([&] { const CapiInit capi(row.provider, row.container, row.flags); }),
                      location + "CryptAcquireContext() with " + row.arguments +
                          " failed: " + win_code(code));
            EXPECT_EQ(script().calls().size(), 1U);
        }
    }
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(CapiInitTest, WindowsErrorsAreThrownAsWinErrorWithTheErrorNumber) {
    try {
        const CapiInit capi("Nobody's CSP", nullptr, 0);
        FAIL() << "no exception";
    } catch (const WinError& error) {
        EXPECT_EQ(error.code().value, 0x80090019U);
        EXPECT_STREQ(
            error.what(),
            "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Nobody's "
            "CSP, key_container_name=nullptr, flags=0xf0000000 failed: val=2148073497 [0x80090019] "
            "(unknown winerror)");
    }
}

TEST_F(CapiInitTest, ProviderWhoseNameCannotBeReadIsReportedAndReleased) {
    const struct {
        std::size_t step;
        DWORD code;
        std::string error;
    } rows[] = {
        {2, ordinary,
         "capi_helper:252 Kes::CapiProvParamReader::read_len(): CryptGetProvParam(param=4, flags=0) "
         "failed: " +
             win_code(ordinary)},
        {2, bad_type,
         "capi_helper:244 Kes::CapiProvParamReader::read_len(): CryptGetProvParam() with param=4, flags=0 is "
         "not supported: val=4 (unsupported)"},
        {3, ordinary,
         "capi_helper:289 Kes::CapiProvParamReader::read(): CryptGetProvParam(param=4, flags=0) failed: " +
             win_code(ordinary)},
        {3, bad_type,
         "capi_helper:289 Kes::CapiProvParamReader::read(): CryptGetProvParam(param=4, flags=0) failed: " +
             win_code(bad_type)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.error);
        restart_script();
        script().fail_step(row.step, win_failure(row.code));
        EXPECT_EQ(error_text([] { const CapiInit capi(nullptr, "c1", 0); }), row.error);
        EXPECT_EQ(script().calls_after_step(row.step), Lines{"CryptReleaseContext(prov:c1)"});
    }
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(CapiInitTest, UnreadableCurrentContainerIsOnlyAWarning) {
    for (const std::size_t step : {2U, 3U}) {
        for (const DWORD code : all_codes) {
            if (code == no_more_items || (step == 2 && code == bad_type)) continue; // tested separately below
            SCOPED_TRACE(std::to_string(step) + " " + std::to_string(code));
            const LogCapture own_log;
            restart_script();
            script().fail_step(step, win_failure(code));
            { const CapiInit capi(csp, nullptr, 0); }
            const std::string where = step == 2 ? "capi_helper:252 Kes::CapiProvParamReader::read_len(): "
                                                : "capi_helper:289 Kes::CapiProvParamReader::read(): ";
            EXPECT_EQ(
                own_log.lines(),
                (Lines{"<warn> " + where + "CryptGetProvParam(param=6, flags=0) failed: " + win_code(code),
                       "<info> capi initialized (provider=Test CSP, key_container= (default), "
                       "flags=0xf0000000)",
                       "<info> capi destroyed"}));
        }
    }
}

TEST_F(CapiInitTest, NoMoreItemsIsNotAnErrorWhenReadingAProviderParameter) {
    for (const std::size_t step : {2U, 3U}) {
        const LogCapture own_log;
        restart_script();
        script().fail_step(step, win_failure(no_more_items));
        { const CapiInit capi(csp, nullptr, 0); }
        EXPECT_EQ(own_log.lines().at(2), "<info> capi initialized (provider=Test CSP, key_container= "
                                         "(default), flags=0xf0000000)");
    }
}

TEST_F(CapiInitTest, ProviderWithoutTheCurrentContainerParameterCannotBeOpenedWithoutAContainer) {
    capi().errors["CryptGetProvParam 6"] = bad_type;
    EXPECT_EQ(error_text([] { const CapiInit capi(csp, nullptr, 0); }),
              "capi_helper:244 Kes::CapiProvParamReader::read_len(): CryptGetProvParam() with param=6, "
              "flags=0 is not supported: val=4 (unsupported)");
    EXPECT_EQ(script().calls().back(), "CryptReleaseContext(prov)");
}

TEST_F(CapiInitTest, DestroysAFetchedKeyBeforeItReleasesTheContext) {
    {
        CapiInit capi(csp, "c1", 0);
        EXPECT_EQ(capi.key(), 0U);
        capi.fetch_key(AT_KEYEXCHANGE);
        EXPECT_NE(capi.key(), 0U);
        EXPECT_NE(capi.provider(), 0U);
    }
    EXPECT_EQ(script().calls(),
              (Lines{"CryptAcquireContextA(c1, Test CSP, 1, 0x0)", "CryptGetUserKey(prov:c1, 1)",
                     "CryptDestroyKey(key:c1/1)", "CryptReleaseContext(prov:c1)"}));
    EXPECT_EQ(log.lines(),
              (Lines{"<info> capi initialized (provider=Test CSP, key_container=c1, flags=0x0)",
                     "<info> fetched user key with key_type=KEYEXCHANGE", "<info> capi destroyed"}));
}

TEST_F(CapiInitTest, SecondFetchDestroysTheFirstKeyBeforeItRequestsTheNext) {
    CapiInit capi(csp, "c1", 0);
    capi.fetch_key(AT_KEYEXCHANGE);
    script().take_calls();
    capi.fetch_key(AT_SIGNATURE);
    EXPECT_EQ(script().calls(), (Lines{"CryptDestroyKey(key:c1/1)", "CryptGetUserKey(prov:c1, 2)"}));
    EXPECT_EQ(log.lines().back(), "<info> fetched user key with key_type=SIGNATURE");
}

TEST_F(CapiInitTest, MissingKeyIsReportedWithItsKeyType) {
    const struct {
        std::uint32_t key_type;
        const char* name;
    } rows[] = {{1, "KEYEXCHANGE"}, {2, "SIGNATURE"}, {4, "unknown [val=4]"}, {0, "unknown [val=0]"}};
    for (const auto& row : rows) {
        for (const DWORD code : all_codes) {
            CapiInit capi(csp, "c1", 0);
            script().fail_function("CryptGetUserKey", win_failure(code));
            EXPECT_EQ(error_text([&] { capi.fetch_key(row.key_type); }),
                      std::string("capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with "
                                  "key_type=") +
                          row.name + " failed: " + win_code(code));
            EXPECT_EQ(capi.key(), 0U);
        }
    }
}

TEST_F(CapiInitTest, FailedFetchLeavesNoKeyEvenAfterASuccessfulFetch) {
    CapiInit capi(csp, "c2", 0);
    capi.fetch_key(AT_SIGNATURE);
    EXPECT_EQ(error_text([&] { capi.fetch_key(AT_KEYEXCHANGE); }),
              "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=KEYEXCHANGE "
              "failed: " +
                  win_code(static_cast<DWORD>(NTE_NO_KEY)));
    EXPECT_EQ(capi.key(), 0U);
}

TEST_F(CapiInitTest, TryFetchOfAMissingKeyLogsOnlyThatItIsMissing) {
    CapiInit capi(csp, "c2", 0);
    EXPECT_FALSE(capi.try_fetch_key(AT_KEYEXCHANGE));
    EXPECT_TRUE(capi.try_fetch_key(AT_SIGNATURE));
    EXPECT_EQ(log.lines(), (Lines{"<info> capi initialized (provider=Test CSP, key_container=c2, flags=0x0)",
                                  "<info> no user key with key_type=KEYEXCHANGE",
                                  "<info> fetched user key with key_type=SIGNATURE"}));
}

TEST_F(CapiInitTest, TryFetchThatFailsLogsAWarningWithTheReason) {
    CapiInit capi(csp, "c1", 0);
    for (const DWORD code : all_codes) {
        const LogCapture own_log;
        script().clear_failures();
        script().fail_step(script().steps() + 1, win_failure(code));
        EXPECT_FALSE(capi.try_fetch_key(AT_SIGNATURE));
        EXPECT_EQ(own_log.lines(), Lines{"<warn> capi_helper:113 Kes::CapiInit::fetch_key(): "
                                         "CryptGetUserKey() with key_type=SIGNATURE failed: " +
                                         win_code(code)});
        EXPECT_EQ(capi.key(), 0U);
    }
}

TEST_F(CapiInitTest, HandleWrittenByAFailedCallIsNotClosed) {
    ScriptedCapi::instance().junk_handle = 0xdead;
    EXPECT_NE(error_text([] { const CapiInit capi(csp, "gone", 0); }), "no exception");
    EXPECT_EQ(script().calls(), Lines{"CryptAcquireContextA(gone, Test CSP, 1, 0x0)"});
    script().take_calls();
    {
        CapiInit capi(csp, "c2", 0);
        EXPECT_NE(error_text([&] { capi.fetch_key(AT_KEYEXCHANGE); }), "no exception");
        EXPECT_EQ(capi.key(), 0U);
        EXPECT_FALSE(capi.try_fetch_key(AT_KEYEXCHANGE));
        capi.fetch_key(AT_SIGNATURE);
    }
    EXPECT_EQ(script().calls(),
              (Lines{"CryptAcquireContextA(c2, Test CSP, 1, 0x0)", "CryptGetUserKey(prov:c2, 1)",
                     "CryptGetUserKey(prov:c2, 1)", "CryptGetUserKey(prov:c2, 2)",
                     "CryptDestroyKey(key:c2/2)", "CryptReleaseContext(prov:c2)"}));
}

TEST_F(CapiInitTest, FailedReleasesAreOnlyLogged) {
    for (const DWORD code : all_codes) {
        const LogCapture own_log;
        restart_script();
        script().fail_function("CryptDestroyKey", win_failure(code));
        script().fail_function("CryptReleaseContext", win_failure(code + 1));
        {
            CapiInit capi(csp, "c1", 0);
            capi.fetch_key(AT_KEYEXCHANGE);
            capi.fetch_key(AT_SIGNATURE);
        }
        EXPECT_EQ(
            own_log.lines(),
            (Lines{"<info> capi initialized (provider=Test CSP, key_container=c1, flags=0x0)",
                   "<info> fetched user key with key_type=KEYEXCHANGE",
                   "<error> CryptDestroyKey() failed: " + win_code(code),
                   "<info> fetched user key with key_type=SIGNATURE",
                   "<error> CryptDestroyKey() failed: " + win_code(code),
                   "<error> CryptReleaseContext() failed: " + win_code(code + 1), "<info> capi destroyed"}));
        EXPECT_EQ(capi().unreleased_handles(), 0U);
    }
}

} // namespace
} // namespace Kes::test
