#include "pkcs11/ossl_engine_pkcs11.h"

#include "support/engine_steps.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

class Pkcs11OsslEngineTest : public CoreTest {
protected:
    static std::unique_ptr<Pkcs11OsslEngine> load(const Pin* pin, bool verbose = false) {
        return std::make_unique<Pkcs11OsslEngine>("./engine.so", "module.so", pin, verbose);
    }

    LogCapture log;
    const Pin pin{"1234"};
};

const Lines load_calls{"ENGINE_by_id(dynamic)",
                       "ENGINE_ctrl_cmd_string(engine1, SO_PATH, ./engine.so)",
                       "ENGINE_ctrl_cmd_string(engine1, LIST_ADD, 1)",
                       "ENGINE_ctrl_cmd_string(engine1, LOAD, null)",
                       "ENGINE_get_id(engine1)",
                       "ENGINE_ctrl_cmd_string(engine1, MODULE_PATH, module.so)",
                       "ENGINE_init(engine1)"};

TEST_F(Pkcs11OsslEngineTest, LoadsInOrderAndLogsTheId) {
    const auto loaded = load(&pin);
    EXPECT_EQ(script().calls(),
              (load_calls + Lines{"ENGINE_ctrl_cmd_string(engine1, PIN, right pin)",
                                  "ENGINE_set_default(engine1, 65535)", "ENGINE_get_id(engine1)"}));
    EXPECT_EQ(log.lines(), Lines{"<info> loaded engine: id=pkcs11"});
}

TEST_F(Pkcs11OsslEngineTest, NoPinCommandIsSentWithoutAPinButAnEmptyPinIsSent) {
    load(nullptr);
    EXPECT_THAT(script().take_calls(), testing::Not(testing::Contains(testing::HasSubstr("PIN"))));
    const Pin empty;
    load(&empty);
    EXPECT_THAT(script().calls(), testing::Contains("ENGINE_ctrl_cmd_string(engine2, PIN, empty pin)"));
}

TEST_F(Pkcs11OsslEngineTest, VerboseIsSetAfterInitAndBeforeThePin) {
    const auto loaded = load(&pin, true);
    EXPECT_EQ(script().calls(),
              (load_calls + Lines{"ENGINE_ctrl_cmd_string(engine1, VERBOSE, null)",
                                  "ENGINE_ctrl_cmd_string(engine1, PIN, right pin)",
                                  "ENGINE_set_default(engine1, 65535)", "ENGINE_get_id(engine1)"}));
}

TEST_F(Pkcs11OsslEngineTest, FailedStepIsNamedAndEarlierStepsAreUndoneInOrder) {
    const std::string constructor = " Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): ";
    const Lines freed{"ENGINE_free(engine1)"};
    const Lines removed{"ENGINE_remove(engine1)", "ENGINE_free(engine1)"};
    const Lines finished{"ENGINE_finish(engine1)", "ENGINE_remove(engine1)", "ENGINE_free(engine1)"};
    const std::vector<EngineStep> steps{
        {2, "ossl_engine_pkcs11:91" + constructor + "ENGINE_ctrl_cmd_string(SO_PATH) failed", freed},
        {3, "ossl_engine_pkcs11:98" + constructor + "ENGINE_ctrl_cmd_string(LIST_ADD) failed", freed},
        {4, "ossl_engine_pkcs11:104" + constructor + "ENGINE_ctrl_cmd_string(LOAD) failed", freed,
         missing_engine_detail("./engine.so")},
        {5, "ossl_engine_pkcs11:110" + constructor + "ENGINE_ctrl_cmd_string(MODULE_PATH) failed", removed},
        {6, "ossl_engine_pkcs11:116" + constructor + "ENGINE_init() failed", removed,
         missing_module_detail("module.so")},
        {7, "ossl_engine_pkcs11:127" + constructor + "ENGINE_ctrl_cmd_string(VERBOSE) failed", finished},
        {8, "ossl_engine_pkcs11:234 Kes::Pkcs11OsslEngine::set_pin(): ENGINE_ctrl_cmd_string(PIN) failed",
         finished},
        {9,
         "ossl_engine_pkcs11:150" + constructor + "ENGINE_set_default() failed",
         {"ENGINE_finish(engine1)", "ENGINE_ctrl_cmd_string(engine1, PIN, empty pin)",
          "ENGINE_remove(engine1)", "ENGINE_free(engine1)"}},
    };
    expect_each_failing_step_undone(steps, [this] { load(&pin, true); });
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(Pkcs11OsslEngineTest, EngineOfAnotherBackEndIsNamedAndNotKept) {
    engine().loaded_id = "capi";
    engine().unknown_command = "MODULE_PATH";
    EXPECT_EQ(
        masked_errors(error_text([this] { load(&pin); })),
        "ossl_engine_pkcs11:110 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
        "ENGINE_ctrl_cmd_string(MODULE_PATH) failed: rc=0\n"
        "error:engine routines:invalid cmd name:\n"
        "error:engine routines:operation fail:'./engine.so' is OpenSSL's CryptoAPI engine, not libp11's "
        "engine");
    const Lines& calls = script().calls();
    EXPECT_EQ(Lines(calls.end() - 2, calls.end()), (Lines{"ENGINE_remove(engine1)", "ENGINE_free(engine1)"}));
}

TEST_F(Pkcs11OsslEngineTest, OtherEngineIsNamedByItsId) {
    engine().loaded_id = "padlock";
    engine().unknown_command = "MODULE_PATH";
    EXPECT_THAT(masked_errors(error_text([this] { load(&pin); })),
                testing::EndsWith("\nerror:engine routines:operation fail:'./engine.so' is the engine "
                                  "'padlock', not libp11's engine"));
}

TEST_F(Pkcs11OsslEngineTest, EngineWithoutAnIdIsNamedSo) {
    engine().loaded_id = nullptr;
    engine().unknown_command = "MODULE_PATH";
    EXPECT_EQ(masked_errors(error_text([this] { load(&pin); })),
              "ossl_engine_pkcs11:110 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
              "ENGINE_ctrl_cmd_string(MODULE_PATH) failed: rc=0\n"
              "error:engine routines:invalid cmd name:\n"
              "error:engine routines:operation fail:'./engine.so' is an engine without an id, not libp11's "
              "engine");
}

TEST_F(Pkcs11OsslEngineTest, RightEngineThatLacksACommandIsNotNamed) {
    engine().unknown_command = "MODULE_PATH";
    EXPECT_EQ(masked_errors(error_text([this] { load(&pin); })),
              "ossl_engine_pkcs11:110 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
              "ENGINE_ctrl_cmd_string(MODULE_PATH) failed: rc=0\n"
              "error:engine routines:invalid cmd name:");
}

TEST_F(Pkcs11OsslEngineTest, LoadSucceedsAfterOtherExceptionsInAnyStep) {
    expect_load_to_succeed_after_other_exceptions(8, [this](std::size_t step) {
        // The engines of earlier steps belong to other libraries.
        const std::string library = "./engine" + std::to_string(step) + ".so";
        Pkcs11OsslEngine(library.c_str(), "module.so", &pin, false);
    });
}

TEST_F(Pkcs11OsslEngineTest, ErrorQueueIsReadBeforeTheCleanUp) {
    expect_error_queue_taken_before_clean_up([this] { load(&pin); });
}

TEST_F(Pkcs11OsslEngineTest, NewPinReplacesTheEarlierOneAndIsNotLogged) {
    const auto loaded = load(nullptr);
    script().take_calls();
    loaded->set_pin(Pin("4321"));
    loaded->set_pin(Pin("1234"));
    EXPECT_EQ(script().calls(), (Lines{"ENGINE_ctrl_cmd_string(engine1, PIN, wrong pin)",
                                       "ENGINE_ctrl_cmd_string(engine1, PIN, right pin)"}));
    EXPECT_EQ(log.lines(), Lines{"<info> loaded engine: id=pkcs11"});
    script().fail_function("ENGINE_ctrl_cmd_string", {.rc = 0});
    EXPECT_EQ(
        error_text([&] { loaded->set_pin(Pin("1234")); }),
        "ossl_engine_pkcs11:234 Kes::Pkcs11OsslEngine::set_pin(): ENGINE_ctrl_cmd_string(PIN) failed: rc=0" +
            raised_by("ENGINE_ctrl_cmd_string"));
}

TEST_F(Pkcs11OsslEngineTest, KeyTypeIsIgnored) {
    const auto loaded = load(nullptr);
    script().take_calls();
    loaded->set_key_type(1);
    EXPECT_EQ(script().calls(), Lines());
}

TEST_F(Pkcs11OsslEngineTest, ReadsACertificateByName) {
    const auto loaded = load(nullptr);
    const X509Ptr cert = loaded->read_certificate(cert_uri);
    EXPECT_EQ(::X509_cmp(cert.get(), data().client.get()), 0);
    EXPECT_EQ(script().calls().back(),
              std::string("ENGINE_ctrl_cmd(engine1, LOAD_CERT_CTRL, ") + cert_uri + ")");
    EXPECT_EQ(log.lines().back(), std::string("<info> read certificate: ") + cert_uri);
}

TEST_F(Pkcs11OsslEngineTest, NullNameIsRejectedBeforeAnyCall) {
    const auto loaded = load(nullptr);
    script().take_calls();
    EXPECT_EQ(error_text([&] { loaded->read_certificate(nullptr); }),
              "ossl_engine_pkcs11:193 Kes::Pkcs11OsslEngine::read_certificate(): name is a null pointer: "
              "val=3 (bad_argument)");
    EXPECT_EQ(script().calls(), Lines());
}

TEST_F(Pkcs11OsslEngineTest, FailedCertificateCommandThrowsAndLeaksNoCertificate) {
    const auto loaded = load(nullptr);
    for (const bool returns_certificate : {false, true}) {
        engine().returns_certificate_on_failure = returns_certificate;
        script().fail_function("ENGINE_ctrl_cmd", {.rc = 0});
        EXPECT_EQ(
            error_text([&] { loaded->read_certificate("c"); }),
            "ossl_engine_pkcs11:213 Kes::Pkcs11OsslEngine::read_certificate(): ENGINE_ctrl_cmd() failed: "
            "rc=0" +
                raised_by("ENGINE_ctrl_cmd") + missing_module_detail("module.so"));
        EXPECT_EQ(engine().unreleased_objects(), 0U);
    }
}

TEST_F(Pkcs11OsslEngineTest, CommandThatReturnsNoCertificateThrowsNotFound) {
    const auto loaded = load(nullptr);
    engine().certificate = nullptr;
    EXPECT_EQ(error_text([&] { loaded->read_certificate("c"); }),
              "ossl_engine_pkcs11:216 Kes::Pkcs11OsslEngine::read_certificate(): error reading certificate: "
              "val=8 (not_found)");
}

TEST_F(Pkcs11OsslEngineTest, ReadsPublicKeysFromTheEngine) {
    const auto loaded = load(nullptr);
    const EvpPkeyPtr key = loaded->read_public_key("p");
    EXPECT_EQ(script().calls().back(), "ENGINE_load_public_key(engine1, p)");
}

TEST_F(Pkcs11OsslEngineTest, ReadsPublicKeysFromCertificates) {
    const auto loaded = load(nullptr);
    const EvpPkeyPtr key = loaded->read_public_key_by_certificate("c");
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), data().key.get()), 1);
    EXPECT_EQ(engine().unreleased_objects(), 0U);
}

TEST_F(Pkcs11OsslEngineTest, ReturnedPrivateKeyIsTheKeyOfTheEngine) {
    const auto loaded = load(&pin);
    const EvpPkeyPtr key = loaded->read_private_key(private_uri);
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), data().key.get()), 1);
    EXPECT_EQ(log.lines().back(), std::string("<info> read private key: ") + private_uri);
}

TEST_F(Pkcs11OsslEngineTest, UnloadsInOrderAndFreesLast) {
    load(nullptr);
    const Lines unload = engine_unload_calls();
    const Lines& calls = script().calls();
    const auto start = calls.end() - static_cast<std::ptrdiff_t>(unload.size());
    EXPECT_EQ(Lines(start, calls.end()), unload);
    EXPECT_EQ(*(start - 1), "ENGINE_get_id(engine1)"); // for the log line of the load
    EXPECT_EQ(log.lines(), (Lines{"<info> loaded engine: id=pkcs11", "<info> unloading engine: id=pkcs11"}));
}

} // namespace
} // namespace Kes::test
