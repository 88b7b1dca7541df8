// Wrong files in place of the CryptoAPI engine. No card is needed, because the engine loads without one.
#include "wrong_file_fixture.h"

namespace Kes::test {
namespace {

struct CapiBackend {
    const char* backend;
    const char* setting;        ///< the client's command that sets the engine
    const char* location;       ///< in the error text when the engine's LOAD command fails
    const char* debug_location; ///< the same for the debug_level command, the first one after LOAD
};

void PrintTo(const CapiBackend& backend, std::ostream* out) { *out << backend.backend; }

constexpr const char* provider = "Microsoft Enhanced Cryptographic Provider v1.0"; // part of every Windows

class WrongCapiEngineTest : public WrongFileTest, public testing::WithParamInterface<CapiBackend> {
protected:
    /// Loads twice with the wrong file, then once with the right file. The last load fails because there is no
    /// key, but the log shows that the engine was loaded.
    void expect_failures(const std::string& engine, const std::string& openssl_lines,
                         const std::string& last_line) const {
        expect_failures_of(std::string(GetParam().location) + ": ENGINE_ctrl_cmd_string(LOAD)", engine,
                           openssl_lines + last_line);
    }

    void expect_failures_of(const std::string& call, const std::string& engine,
                            const std::string& queue_lines) const {
        const std::string setting = std::string(GetParam().setting) + "=";
        const std::string failure = "ossl_load: 1 " + call + " failed: rc=0\n" + queue_lines;
        const std::string text = masked_errors(
            run({log_setting, std::string("backend=") + GetParam().backend, std::string("csp=") + provider,
                 setting + engine, "init", "notify_config_done", "ossl_load", "ossl_load",
                 setting + path("capi.dll"), "ossl_load", "destroy"}));
        EXPECT_THAT(text, testing::StartsWith("init: 0\nnotify_config_done: 0\n" + failure + failure +
                                              "ossl_load: 1 ossl_engine:79 "));
        EXPECT_THAT(read_text(dir.file("log")), testing::HasSubstr("loaded engine: id=capi"));
    }

    void SetUp() override { put(bin / "capi.dll", folder); }
};

TEST_P(WrongCapiEngineTest, TextFileIsRejectedAsEngine) {
    const std::string file = path("text.dll");
    expect_failures(file, openssl_lines(file), not_loaded(file, 193, not_64_bits));
}

TEST_P(WrongCapiEngineTest, DllFor32BitsIsRejectedAsEngine) {
    const std::string file = path("32bit.dll");
    expect_failures(file, openssl_lines(file), not_loaded(file, 193, not_64_bits));
}

TEST_P(WrongCapiEngineTest, ModuleIsRejectedAsEngine) {
    const std::string file = path("itp11.dll");
    expect_failures(file, no_symbol_lines, wrong_kind(file, "a PKCS#11 module, not an OpenSSL engine"));
}

TEST_P(WrongCapiEngineTest, EngineOfLibp11IsRecognised) {
    const std::string file = path("pkcs11.dll");
    expect_failures_of(std::string(GetParam().debug_location) + ": ENGINE_ctrl_cmd_string(debug_level)", file,
                       "error:engine routines:invalid cmd name:\n"
                       "error:engine routines:invalid cmd name:\n"
                       "error:engine routines:operation fail:'" +
                           file + "' is libp11's engine, not OpenSSL's CryptoAPI engine\n");
}

TEST_P(WrongCapiEngineTest, EngineWithMissingDependencyIsReported) {
    const std::string file = path("needing.dll");
    expect_failures(file, openssl_lines(file), not_loaded(file, 126, needs_a_dll));
}

TEST_P(WrongCapiEngineTest, MissingEngineIsReported) {
    const std::string file = path("missing.dll");
    expect_failures(file, openssl_lines(file), not_loaded(file, 126));
}

INSTANTIATE_TEST_SUITE_P(
    AllBackends, WrongCapiEngineTest,
    testing::Values(
        CapiBackend{"capi", "capi_engine", "ossl_engine_capi:122 Kes::CapiOsslEngine::CapiOsslEngine()",
                    "ossl_engine_capi:134 Kes::CapiOsslEngine::CapiOsslEngine()"},
        CapiBackend{"capi_store", "store_engine",
                    "ossl_engine_capi_store:127 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()",
                    "ossl_engine_capi_store:139 Kes::CapiStoreOsslEngine::CapiStoreOsslEngine()"}),
    [](const auto& tested) { return std::string(tested.param.backend); });

} // namespace
} // namespace Kes::test
