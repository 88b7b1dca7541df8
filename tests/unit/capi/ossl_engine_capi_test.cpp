#include "capi/ossl_engine_capi.h"

#include <algorithm>

#include "capi_engine_calls.h"
#include "support/capi_fixture.h"
#include "support/engine_steps.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

class CapiOsslEngineTest : public CapiTest {
protected:
    static std::unique_ptr<CapiOsslEngine> load(std::uint32_t key_type = AT_SIGNATURE,
                                                const std::string& debug_file = "") {
        return std::make_unique<CapiOsslEngine>("./capi.so", csp, key_type, debug_file);
    }

    /// The log lines without the trace lines of the parameter readers.
    Lines lines() const {
        Lines kept;
        for (const std::string& line : log.lines())
            if (line.find("<trace>") != 0) kept.push_back(line);
        return kept;
    }

    LogCapture log;
};

const Lines choice_calls{"ENGINE_ctrl_cmd_string(engine1, csp_name, Test CSP)",
                         "ENGINE_ctrl_cmd_string(engine1, lookup_method, 3)",
                         "ENGINE_ctrl_cmd_string(engine1, key_type, 2)", "ENGINE_set_default(engine1, 65535)",
                         "ENGINE_get_id(engine1)"};

// The test double of the engine always has the id "pkcs11".
const std::string loaded_line = "<info> loaded engine: id=pkcs11, csp='Test CSP'";

TEST_F(CapiOsslEngineTest, LoadsInOrderAndLogsTheIdAndTheProvider) {
    const auto loaded = load();
    EXPECT_EQ(script().calls(), load_calls + choice_calls);
    EXPECT_EQ(log.lines(), (Lines{"<debug> capi engine is using key_type=SIGNATURE", loaded_line}));
}

TEST_F(CapiOsslEngineTest, DebugFileIsSetAfterTheDebugLevel) {
    const auto loaded = load(AT_SIGNATURE, "debug.txt");
    EXPECT_EQ(script().calls(),
              load_calls + Lines{"ENGINE_ctrl_cmd_string(engine1, debug_file, debug.txt)"} + choice_calls);
}

TEST_F(CapiOsslEngineTest, FailedStepIsNamedAndEarlierStepsAreUndoneInOrder) {
    const std::string constructor = " Kes::CapiOsslEngine::CapiOsslEngine(): ";
    const std::vector<EngineStep> steps{
        {2, "ossl_engine_capi:109" + constructor + "ENGINE_ctrl_cmd_string(SO_PATH) failed", freed},
        {3, "ossl_engine_capi:116" + constructor + "ENGINE_ctrl_cmd_string(LIST_ADD) failed", freed},
        {4, "ossl_engine_capi:122" + constructor + "ENGINE_ctrl_cmd_string(LOAD) failed", freed},
        {5, "ossl_engine_capi:128" + constructor + "ENGINE_init() failed", removed},
        {6, "ossl_engine_capi:134" + constructor + "ENGINE_ctrl_cmd_string(debug_level) failed", finished},
        {7, "ossl_engine_capi:145" + constructor + "ENGINE_ctrl_cmd_string(debug_file) failed", finished},
        {8, "ossl_engine_capi:155" + constructor + "ENGINE_ctrl_cmd_string(csp_name) failed", finished},
        {9, "ossl_engine_capi:164" + constructor + "ENGINE_ctrl_cmd_string(lookup_method) failed", finished},
        {10,
         "ossl_engine_capi:297 Kes::CapiOsslEngine::set_key_type(): ENGINE_ctrl_cmd_string(key_type) failed",
         finished},
        {11, "ossl_engine_capi:183" + constructor + "ENGINE_set_default() failed", finished},
    };
    expect_each_failing_step_undone(steps, [] { load(AT_SIGNATURE, "debug.txt"); });
    // In the last step, the key type is already set.
    EXPECT_EQ(log.lines(), Lines(3, "<debug> capi engine is using key_type=SIGNATURE"));
}

TEST_F(CapiOsslEngineTest, NothingIsUndoneWithoutTheDynamicEngine) {
    script().fail_step(1, {});
    EXPECT_EQ(error_text([] { load(); }),
              "ossl_engine:58 Kes::OsslEngine::OsslEngine(): dynamic engine not available: val=2 "
              "(null_pointer)");
    EXPECT_EQ(script().calls(), Lines{"ENGINE_by_id(dynamic)"});
}

TEST_F(CapiOsslEngineTest, LoadFailsWithTheReasonWhileAnEarlierEngineIsInUse) {
    const auto loaded = load();
    engine().refuses_loaded_library = true;
    EXPECT_EQ(masked_errors(error_text([] { load(); })),
              "ossl_engine_capi:122 Kes::CapiOsslEngine::CapiOsslEngine(): ENGINE_ctrl_cmd_string(LOAD) "
              "failed: rc=0\n" +
                  std::string(refused_lines));
}

TEST_F(CapiOsslEngineTest, EngineOfLibp11IsNamed) {
    engine().loaded_id = "pkcs11";
    engine().unknown_command = "debug_level";
    EXPECT_EQ(masked_errors(error_text([] { load(); })),
              "ossl_engine_capi:134 Kes::CapiOsslEngine::CapiOsslEngine(): "
              "ENGINE_ctrl_cmd_string(debug_level) failed: rc=0\n" +
                  std::string(wrong_engine_lines));
}

TEST_F(CapiOsslEngineTest, LoadSucceedsAfterOtherExceptionsInAnyStep) {
    expect_load_to_succeed_after_other_exceptions(10, [](std::size_t) { load(); });
}

TEST_F(CapiOsslEngineTest, ErrorQueueIsReadBeforeTheCleanUp) {
    expect_error_queue_taken_before_clean_up([] { load(); });
}

TEST_F(CapiOsslEngineTest, UnloadsInOrderAndFreesLast) {
    auto loaded = load();
    script().take_calls();
    loaded.reset();
    EXPECT_EQ(script().calls(), engine_unload_calls());
    EXPECT_EQ(log.lines().back(), "<info> unloading engine: id=pkcs11");
}

TEST_F(CapiOsslEngineTest, FailuresDuringUnloadAreLoggedAsWarningsAndDoNotStopIt) {
    auto loaded = load();
    script().fail_function("ENGINE_remove", {.rc = 0});
    script().fail_function("ENGINE_finish", {.rc = 0});
    loaded.reset();
    EXPECT_EQ(script().calls().back(), "ENGINE_free(engine1)");
    EXPECT_EQ(lines(), (Lines{"<debug> capi engine is using key_type=SIGNATURE", loaded_line,
                              "<info> unloading engine: id=pkcs11", "<warn> ENGINE_remove() returned error",
                              "<warn> ENGINE_finish() returned error"}));
}

TEST_F(CapiOsslEngineTest, KeyTypesAreSentInDecimalAndLoggedByName) {
    const auto loaded = load();
    const struct {
        std::uint32_t key_type;
        const char* sent;
        const char* name;
    } rows[] = {{1, "1", "KEYEXCHANGE"},
                {2, "2", "SIGNATURE"},
                {0, "0", "unknown [val=0]"},
                {4000000000U, "4000000000", "unknown [val=4000000000]"}};
    for (const auto& row : rows) {
        loaded->set_key_type(row.key_type);
        EXPECT_EQ(script().calls().back(),
                  std::string("ENGINE_ctrl_cmd_string(engine1, key_type, ") + row.sent + ")");
        EXPECT_EQ(log.lines().back(), std::string("<debug> capi engine is using key_type=") + row.name);
    }
}

TEST_F(CapiOsslEngineTest, RefusedKeyTypeKeepsTheEarlierOne) {
    const auto loaded = load(AT_KEYEXCHANGE);
    script().fail_function("ENGINE_ctrl_cmd_string", {.rc = -3});
    EXPECT_EQ(error_text([&] { loaded->set_key_type(AT_SIGNATURE); }),
              "ossl_engine_capi:297 Kes::CapiOsslEngine::set_key_type(): ENGINE_ctrl_cmd_string(key_type) "
              "failed: rc=-3" +
                  raised_by("ENGINE_ctrl_cmd_string"));
    EXPECT_NE(loaded->read_certificate("c1"), nullptr);
    EXPECT_THAT(script().calls(), testing::Contains("CryptGetUserKey(prov:c1, 1)"));
}

TEST_F(CapiOsslEngineTest, PrivateKeyIsReadFromTheEngine) {
    const auto loaded = load();
    const EvpPkeyPtr key = loaded->read_private_key("c1");
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), data().key.get()), 1);
    EXPECT_EQ(script().calls().back(), "ENGINE_load_private_key(engine1, c1)");
    EXPECT_EQ(log.lines().back(), "<info> read private key: c1");
}

TEST_F(CapiOsslEngineTest, PinsAreIgnored) {
    const auto loaded = load();
    script().take_calls();
    loaded->set_pin(Pin("1234"));
    EXPECT_EQ(script().calls(), Lines());
}

TEST_F(CapiOsslEngineTest, CertificateIsReadFromTheProvider) {
    const auto loaded = load();
    script().take_calls();
    const X509Ptr cert = loaded->read_certificate("c1");
    EXPECT_EQ(der_of(cert.get()), cert_der("sign"));
    EXPECT_EQ(script().calls(),
              (Lines{"CryptAcquireContextA(c1, Test CSP, 1, 0x0)", "CryptGetUserKey(prov:c1, 2)",
                     "CryptGetKeyParam(key:c1/2, 26, 0, size)", "CryptGetKeyParam(key:c1/2, 26, 0, read)",
                     "CryptDestroyKey(key:c1/2)", "CryptReleaseContext(prov:c1)"}));
    EXPECT_EQ(lines(), (Lines{"<debug> capi engine is using key_type=SIGNATURE", loaded_line,
                              "<info> capi initialized (provider=Test CSP, key_container=c1, flags=0x0)",
                              "<info> fetched user key with key_type=SIGNATURE",
                              "<info> read certificate: c1", "<info> capi destroyed"}));
}

TEST_F(CapiOsslEngineTest, PublicKeyIsReadFromTheProvider) {
    const auto loaded = load();
    loaded->set_key_type(AT_KEYEXCHANGE);
    script().take_calls();
    const EvpPkeyPtr key = loaded->read_public_key("c1");
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), CapiKeys::instance().rsa.get()), 1);
    EXPECT_EQ(
        script().calls(),
        (Lines{"CryptAcquireContextA(c1, Test CSP, 1, 0x0)", "CryptGetUserKey(prov:c1, 1)",
               "CryptExportPublicKeyInfoEx(prov:c1, 1, size)", "CryptExportPublicKeyInfoEx(prov:c1, 1, read)",
               "CryptEncodeObjectEx(size)", "CryptEncodeObjectEx(read)", "CryptDestroyKey(key:c1/1)",
               "CryptReleaseContext(prov:c1)"}));
    EXPECT_EQ(lines(), (Lines{"<debug> capi engine is using key_type=SIGNATURE", loaded_line,
                              "<debug> capi engine is using key_type=KEYEXCHANGE",
                              "<info> capi initialized (provider=Test CSP, key_container=c1, flags=0x0)",
                              "<info> fetched user key with key_type=KEYEXCHANGE",
                              "<info> read public key: c1", "<info> capi destroyed"}));
}

TEST_F(CapiOsslEngineTest, PublicKeyCanBeReadFromTheCertificate) {
    const auto loaded = load();
    const EvpPkeyPtr key = loaded->read_public_key_by_certificate("c2");
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), CapiKeys::instance().rsa.get()), 1);
    EXPECT_EQ(log.lines().back(), "<info> read public key from certificate: c2");
}

/// The first line of the text. The lines of OpenSSL follow it.
std::string first_line(const std::string& text) { return text.substr(0, text.find('\n')); }

TEST_F(CapiOsslEngineTest, InvalidCertificateThrows) {
    const auto loaded = load();
    for (const Bytes& bytes : {Bytes(), Bytes{0x30}, Bytes(100, 0xff)}) {
        container(0).keys[AT_SIGNATURE].certificate = bytes;
        const std::string error = error_text([&] { loaded->read_certificate("c1"); });
        EXPECT_EQ(first_line(error), "ossl_engine_capi:285 Kes::CapiOsslEngine::read_certificate(): error "
                                     "converting certificate from DER to X509 format: rc=0");
        EXPECT_THAT(error, testing::HasSubstr("asn1 encoding routines"));
        EXPECT_EQ(capi().unreleased_handles(), 0U);
    }
}

TEST_F(CapiOsslEngineTest, InvalidPublicKeyThrows) {
    const auto loaded = load();
    for (const OddAnswer& answer : {OddAnswer{.size = 0}, OddAnswer{.size = 9, .data = Bytes(9, 0xff)}}) {
        capi().odd_answers["CryptEncodeObjectEx"] = answer;
        const std::string error = error_text([&] { loaded->read_public_key("c1"); });
        EXPECT_EQ(first_line(error), "ossl_engine_capi:249 Kes::CapiOsslEngine::read_public_key(): error "
                                     "converting public key from DER to EVP_PKEY format: rc=0");
        EXPECT_EQ(capi().unreleased_handles(), 0U);
    }
}

TEST_F(CapiOsslEngineTest, WindowsErrorsAreReportedUnchangedAndAllHandlesAreReleased) {
    const auto loaded = load();
    const std::string acquire =
        "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Test CSP, "
        "key_container_name=c1, flags=0x0 failed: ";
    const std::string fetch = "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with "
                              "key_type=SIGNATURE failed: ";
    const std::string param = "CryptGetKeyParam(param=26, flags=0) failed: ";
    const std::string pub_key = " Kes::CapiPubKey::CapiPubKey(): ";
    const Lines release{"CryptReleaseContext(prov:c1)"};
    const Lines both{"CryptDestroyKey(key:c1/2)", "CryptReleaseContext(prov:c1)"};
    const struct {
        bool is_certificate;
        std::size_t step;
        std::string error;
        Lines rest;
    } rows[] = {
        {true, 1, acquire, {}},
        {true, 2, fetch, release},
        {true, 3, "capi_helper:426 Kes::CapiKeyParamReader::read_len(): " + param, both},
        {true, 4, "capi_helper:459 Kes::CapiKeyParamReader::read(): " + param, both},
        {false, 1, acquire, {}},
        {false, 2, fetch, release},
        {false, 3, "capi_helper:512" + pub_key + "CryptExportPublicKeyInfoEx() failed: ", both},
        {false, 4, "capi_helper:520" + pub_key + "CryptExportPublicKeyInfoEx() failed: ", both},
        {false, 5, "capi_helper:528" + pub_key + "CryptEncodeObjectEx() failed: ", both},
        {false, 6, "capi_helper:538" + pub_key + "CryptEncodeObjectEx() failed: ", both},
    };
    for (const auto& row : rows) {
        for (const DWORD code : all_codes) {
            SCOPED_TRACE(row.error + std::to_string(code));
            script().clear_failures();
            const std::size_t n = script().steps() + row.step;
            script().fail_step(n, win_failure(code));
            const bool is_unsupported = row.is_certificate && row.step == 3 && code == bad_type;
            EXPECT_EQ(error_text([&] {
                          if (row.is_certificate)
                              loaded->read_certificate("c1");
                          else
                              loaded->read_public_key("c1");
                      }),
                      is_unsupported ? "capi_helper:423 Kes::CapiKeyParamReader::read_len(): "
                                       "CryptGetKeyParam() with param=26, flags=0 is not supported: val=4 "
                                       "(unsupported)"
                                     : row.error + win_code(code));
            EXPECT_EQ(script().calls_after_step(n), row.rest);
        }
    }
}

TEST_F(CapiOsslEngineTest, FailedReleasesDoNotFailARead) {
    const auto loaded = load();
    script().fail_function("CryptDestroyKey", win_failure(ordinary));
    script().fail_function("CryptReleaseContext", win_failure(ordinary));
    EXPECT_NE(loaded->read_certificate("c1"), nullptr);
    EXPECT_NE(loaded->read_public_key("c1"), nullptr);
    EXPECT_THAT(log.lines(),
                testing::Contains("<error> CryptReleaseContext() failed: " + win_code(ordinary)));
}

TEST_F(CapiOsslEngineTest, MissingContainerThrows) {
    const auto loaded = load();
    EXPECT_EQ(error_text([&] { loaded->read_certificate("gone"); }),
              "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Test CSP, "
              "key_container_name=gone, flags=0x0 failed: val=2148073494 [0x80090016] (unknown winerror)");
}

TEST_F(CapiOsslEngineTest, CopiesTheProviderName) {
    std::string name = csp;
    CapiOsslEngine loaded("./capi.so", name.c_str(), AT_SIGNATURE, "");
    std::fill(name.begin(), name.end(), '?');
    EXPECT_NE(loaded.read_certificate("c1"), nullptr);
}

} // namespace
} // namespace Kes::test
