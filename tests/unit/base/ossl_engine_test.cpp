#include "base/ossl_engine.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <new>
#include <openssl/err.h>

#include "support/core_fixture.h"
#include "support/timeline.h"
#include "utils/error.h"

namespace Kes::test {
namespace {

EngineSetup plain_setup() {
    return {.id = "plain",
            .so_path = {"SO_PATH", "./engine.so", "here"},
            .list_add = {"LIST_ADD", "1", "here"},
            .load = {"LOAD", nullptr, "here"},
            .before_init = {},
            .init_location = "here",
            .after_init = {},
            .configure = [] {},
            .set_default_location = "here"};
}

/// An engine that is loaded and initialised in its constructor.
class PlainEngine : public OsslEngine {
public:
    explicit PlainEngine(bool has_public_keys = true, bool is_kept_in = false)
        : OsslEngine(has_public_keys, true), is_kept(is_kept_in) {
        set_up(plain_setup());
    }
    ~PlainEngine() override { unload(); }

private:
    void keep_engine() noexcept override {
        if (!is_kept) OsslEngine::keep_engine();
    }

    const bool is_kept;
};

/// An engine that reads a certificate with or without a public key.
class CertEngine final : public PlainEngine {
public:
    X509Ptr read_certificate(const char*) override {
        ScriptedEngine& scripted = ScriptedEngine::instance();
        return X509Ptr(has_key ? scripted.make_copy(TestData::instance().client.get())
                               : scripted.track(::X509_new()));
    }

    bool has_key = true;
};

/// An engine whose constructor fails after the engine has become the default.
class FailingEngine final : public OsslEngine {
public:
    FailingEngine() : OsslEngine(true, true) {
        set_up(plain_setup());
        CallScript::instance().take_calls();
        throw std::bad_alloc();
    }
};

class OsslEngineTest : public CoreTest {
protected:
    LogCapture log;
};

TEST_F(OsslEngineTest, NothingIsFreedWithoutTheDynamicEngine) {
    script().fail_function("ENGINE_by_id");
    EXPECT_EQ(
        error_text([] { PlainEngine(); }),
        "ossl_engine:58 Kes::OsslEngine::OsslEngine(): dynamic engine not available: val=2 (null_pointer)");
    EXPECT_EQ(script().calls(), Lines{"ENGINE_by_id(dynamic)"});
}

TEST_F(OsslEngineTest, RefusedLoadReportsThatAnEarlierEngineIsStillInUse) {
    const PlainEngine loaded;
    engine().refuses_loaded_library = true;
    EXPECT_EQ(
        masked_errors(error_text([] { PlainEngine(); })),
        "here: ENGINE_ctrl_cmd_string(LOAD) failed: rc=0\n"
        "error:engine routines:init failed:\n"
        "error:engine routines:operation fail:the engine cannot be loaded again: the client still uses a "
        "key that was created during an earlier load");
}

TEST_F(OsslEngineTest, RefusedLoadGivesNoReasonIfNoEngineOfThisKindWasLoadedBefore) {
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // a new process, in which nothing was loaded
    const auto load_twice = [] {
        const PlainEngine kept(true, true);
        engine().refuses_loaded_library = true;
        std::cerr << masked_errors(error_text([] { PlainEngine(); })) << "<end>";
        std::exit(0);
    };
    EXPECT_EXIT(load_twice(), testing::ExitedWithCode(0), "init failed:<end>");
}

TEST_F(OsslEngineTest, UnloadsInOrderAndFreesLast) {
    {
        const PlainEngine plain;
        script().take_calls();
    }
    EXPECT_EQ(script().calls(), engine_unload_calls());
    EXPECT_EQ(log.lines(), Lines{"<info> unloading engine: id=pkcs11"});
}

TEST_F(OsslEngineTest, ExceptionAfterTheSetUpUndoesAllOfIt) {
    EXPECT_THROW(FailingEngine(), std::bad_alloc);
    Lines expected = engine_unload_calls();
    expected.erase(expected.begin()); // the log line with the engine's id
    EXPECT_EQ(script().calls(), expected);
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(OsslEngineTest, FailuresDuringUnloadAreLoggedAsWarningsAndDoNotStopIt) {
    {
        const PlainEngine plain;
        script().take_calls();
        script().fail_function("ENGINE_remove", {.rc = 0});
        script().fail_function("ENGINE_finish", {.rc = 2});
    }
    EXPECT_EQ(script().calls(), engine_unload_calls());
    EXPECT_EQ(log.lines(),
              (Lines{"<info> unloading engine: id=pkcs11", "<warn> ENGINE_remove() returned error",
                     "<warn> ENGINE_finish() returned error"}));
}

TEST_F(OsslEngineTest, FailedSetUpLeavesNothingOnTheErrorQueueEvenIfItsRemovalFails) {
    script().fail_function("ENGINE_init", {.rc = 0});
    script().fail_function("ENGINE_remove", {.rc = 0});
    const std::string error = error_text([] { PlainEngine(); });
    EXPECT_EQ(queued_errors(), "");
    EXPECT_EQ(error, "here: ENGINE_init() failed: rc=0" + raised_by("ENGINE_init"));
    EXPECT_THAT(script().calls(), testing::Contains("ENGINE_remove(engine1)"));
}

TEST_F(OsslEngineTest, LoggedFailuresLeaveNothingOnTheErrorQueue) {
    {
        const PlainEngine plain;
        script().fail_function("ENGINE_remove", {.rc = 0});
        script().fail_function("ENGINE_finish", {.rc = 0});
    }
    EXPECT_EQ(queued_errors(), "");
    script().fail_function("ENGINE_set_default", {.rc = 0});
    EXPECT_EQ(error_text([] { PlainEngine(); }),
              "here: ENGINE_set_default() failed: rc=0" + raised_by("ENGINE_set_default"));
    EXPECT_EQ(queued_errors(), "");
}

TEST_F(OsslEngineTest, MissingDynamicEngineLeavesNothingOnTheErrorQueue) {
    script().fail_function("ENGINE_by_id");
    EXPECT_NE(error_text([] { PlainEngine(); }), "no exception");
    EXPECT_EQ(queued_errors(), "");
}

TEST_F(OsslEngineTest, UnloadIsLoggedBeforeItsFirstStepAndEachFailureAfterItsStep) {
    auto plain = std::make_unique<PlainEngine>();
    script().fail_function("ENGINE_remove", {.rc = 0});
    script().fail_function("ENGINE_finish", {.rc = 0});
    Timeline timeline(log);
    plain.reset();
    Lines expected = engine_unload_calls();
    const auto insert_after = [&](const char* call, const char* line) {
        expected.insert(std::next(std::find(expected.begin(), expected.end(), call)), line);
    };
    insert_after("ENGINE_get_id(engine1)", "<info> unloading engine: id=pkcs11");
    insert_after("ENGINE_remove(engine1)", "<warn> ENGINE_remove() returned error");
    insert_after("ENGINE_finish(engine1)", "<warn> ENGINE_finish() returned error");
    EXPECT_EQ(timeline.take(), expected);
}

TEST_F(OsslEngineTest, ReadsAPrivateKeyByName) {
    PlainEngine plain;
    const EvpPkeyPtr key = plain.read_private_key("my key");
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), data().key.get()), 1);
    EXPECT_EQ(script().calls().back(), "ENGINE_load_private_key(engine1, my key)");
    EXPECT_EQ(log.lines(), Lines{"<info> read private key: my key"});
}

TEST_F(OsslEngineTest, MissingPrivateKeyThrows) {
    PlainEngine plain;
    script().fail_function("ENGINE_load_private_key");
    EXPECT_EQ(error_text([&] { plain.read_private_key("my key"); }),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0" +
                  raised_by("ENGINE_load_private_key"));
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(OsslEngineTest, ErrorTextContainsTheErrorQueueAndEmptiesIt) {
    PlainEngine plain;
    script().fail_function("ENGINE_load_private_key", {.queue_text = "no such key"});
    EXPECT_EQ(without_thread(error_text([&] { plain.read_private_key("my key"); })),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "THREAD:error:400000A0:lib(128):scripted:reason(160):double.c:1:no such key");
    script().fail_function("ENGINE_load_private_key");
    EXPECT_EQ(error_text([&] { plain.read_private_key("my key"); }),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0" +
                  raised_by("ENGINE_load_private_key"));
}

TEST_F(OsslEngineTest, ReadsAPublicKeyByName) {
    PlainEngine plain;
    const EvpPkeyPtr key = plain.read_public_key("my key");
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), data().key.get()), 1);
    EXPECT_EQ(script().calls().back(), "ENGINE_load_public_key(engine1, my key)");
    EXPECT_EQ(log.lines(), Lines{"<info> read public key: my key"});
}

TEST_F(OsslEngineTest, MissingPublicKeyThrows) {
    PlainEngine plain;
    script().fail_function("ENGINE_load_public_key");
    EXPECT_EQ(error_text([&] { plain.read_public_key("my key"); }),
              "ossl_engine:100 Kes::OsslEngine::read_public_key(): ENGINE_load_public_key() failed: rc=0" +
                  raised_by("ENGINE_load_public_key"));
}

TEST_F(OsslEngineTest, EngineWithoutPublicKeysIsNotCalled) {
    PlainEngine plain(false);
    script().take_calls();
    EXPECT_EQ(error_text([&] { plain.read_public_key("my key"); }),
              "ossl_engine:96 Kes::OsslEngine::read_public_key(): engine function not supported: "
              "val=4 (unsupported)");
    EXPECT_EQ(script().calls(), Lines());
}

TEST_F(OsslEngineTest, BaseClassDoesNotReadCertificates) {
    PlainEngine plain;
    const std::string text = "ossl_engine:130 Kes::OsslEngine::read_certificate(): engine function not "
                             "supported: val=4 (unsupported)";
    EXPECT_EQ(error_text([&] { plain.read_certificate("my cert"); }), text);
    EXPECT_EQ(error_text([&] { plain.read_public_key_by_certificate("my cert"); }), text);
}

TEST_F(OsslEngineTest, BaseClassIgnoresKeyTypeAndPin) {
    PlainEngine plain;
    script().take_calls();
    plain.set_key_type(1);
    plain.set_pin(Pin("1234"));
    EXPECT_EQ(script().calls(), Lines());
    EXPECT_EQ(log.lines(), Lines());
}

TEST_F(OsslEngineTest, ReadingAPublicKeyFromACertificateFreesTheCertificate) {
    CertEngine certs;
    script().take_calls();
    const EvpPkeyPtr key = certs.read_public_key_by_certificate("my cert");
    EXPECT_EQ(::EVP_PKEY_eq(key.get(), data().key.get()), 1);
    EXPECT_EQ(script().calls(), Lines{"X509_free(cert1)"});
    EXPECT_EQ(log.lines(), Lines{"<info> read public key from certificate: my cert"});
}

TEST_F(OsslEngineTest, CertificateWithoutAKeyIsFreed) {
    CertEngine certs;
    certs.has_key = false;
    script().take_calls();
    EXPECT_EQ(
        error_text([&] { certs.read_public_key_by_certificate("my cert"); }),
        "ossl_engine:114 Kes::OsslEngine::read_public_key_by_certificate(): error getting public key from "
        "certificate: val=8 (not_found)");
    EXPECT_EQ(script().calls(), Lines{"X509_free(cert1)"});
    EXPECT_EQ(log.lines(), Lines());
    ::ERR_clear_error(); // the reason that OpenSSL queued, which this error does not contain
}

TEST_F(OsslEngineTest, FreeingLogsTheObjectAndNothingForNull) {
    OsslEngine::free_certificate(nullptr);
    OsslEngine::free_key(nullptr);
    EXPECT_EQ(log.lines(), Lines());
    Timeline timeline(log);
    OsslEngine::free_certificate(X509Ptr(engine().make_copy(data().client.get())));
    OsslEngine::free_key(EvpPkeyPtr(engine().make_copy(data().key.get())));
    EXPECT_EQ(timeline.take(), (Lines{"X509_free(cert1)", "<info> freed certificate", "EVP_PKEY_free(key1)",
                                      "<info> freed key"}));
}

} // namespace
} // namespace Kes::test
