// Wrong files in place of the engine and the card's module. The error names the file and the system's error,
// the process continues, and the right file loads afterwards.
#include "wrong_file_fixture.h"

namespace Kes::test {
namespace {

constexpr const char* engine_not_module = "an OpenSSL engine, not a PKCS#11 module";
constexpr const char* module_not_engine = "a PKCS#11 module, not an OpenSSL engine";

class WrongModuleTest : public WrongFileTest {
protected:
    /// Calls init() twice with the wrong file, then once with the right file.
    std::string run_with(const std::string& module) const {
        return masked_errors(run(
            {"backend=pkcs11", "module=" + module, "init", "init", "module=itp11.dll", "init", "destroy"}));
    }

    static std::string failures(const std::string& module, const std::string& last_line) {
        const std::string failure =
            "init: 1 libp11_helper:86 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_load() failed to load "
            "PKCS#11 "
            "library '" +
            module + "': rc=-1\nerror:libp11:Unable to load PKCS#11 module:PKCS11_CTX_load\n" + last_line;
        return failure + failure + "init: 0\ndestroy: 0\n";
    }
};

TEST_F(WrongModuleTest, EngineIsRejectedAsModule) {
    EXPECT_EQ(run_with(path("pkcs11.dll")),
              failures(path("pkcs11.dll"), wrong_kind(path("pkcs11.dll"), engine_not_module)));
}

TEST_F(WrongModuleTest, TextFileIsRejectedAsModule) {
    EXPECT_EQ(run_with(path("text.dll")),
              failures(path("text.dll"), not_loaded(path("text.dll"), 193, not_64_bits)));
}

TEST_F(WrongModuleTest, DllFor32BitsIsRejectedAsModule) {
    EXPECT_EQ(run_with(path("32bit.dll")),
              failures(path("32bit.dll"), not_loaded(path("32bit.dll"), 193, not_64_bits)));
}

TEST_F(WrongModuleTest, MissingDependencyIsDistinguishedFromMissingModule) {
    EXPECT_EQ(run_with(path("needing.dll")),
              failures(path("needing.dll"), not_loaded(path("needing.dll"), 126, needs_a_dll)));
    EXPECT_EQ(run_with(path("missing.dll")),
              failures(path("missing.dll"), not_loaded(path("missing.dll"), 126)));
}

TEST_F(WrongModuleTest, LibraryThatIsNeitherModuleNorEngineIsRejected) {
    EXPECT_EQ(run_with(path("libp11.dll")),
              failures(path("libp11.dll"), no_function(path("libp11.dll"), "C_GetFunctionList")));
}

TEST_F(WrongModuleTest, ErrorForBareNameContainsPathOfFileFound) {
    EXPECT_EQ(run_with("pkcs11.dll"),
              failures("pkcs11.dll", wrong_kind(path("pkcs11.dll"), engine_not_module)));
    EXPECT_EQ(run_with("text.dll"), failures("text.dll", not_loaded(path("text.dll"), 193, not_64_bits)));
    EXPECT_EQ(run_with("text"), failures("text", not_loaded(path("text.dll"), 193, not_64_bits)));
    EXPECT_EQ(run_with("missing.dll"),
              failures("missing.dll", not_loaded("missing.dll", 126, searched_folders)));
}

TEST_F(WrongModuleTest, ExtensionOfBareNameIsOptional) {
    EXPECT_EQ(run({"backend=pkcs11", "module=itp11", "init", "destroy"}), "init: 0\ndestroy: 0\n");
}

class WrongEngineTest : public WrongFileTest {
protected:
    /// Loads twice with the wrong file, then once with the right file.
    std::string run_with(const std::string& engine) const {
        return masked_errors(
            run({"backend=pkcs11", "engine=" + engine, "init", "read_scard", "pin=" + std::string(card_pin),
                 "discover_keys", "set_key", "notify_config_done", "ossl_load", "ossl_load",
                 "engine=" + path("pkcs11.dll"), "ossl_load", "destroy"}));
    }

    static constexpr const char* beginning =
        "init: 0\nread_scard: 0\n1 key(s)\ndiscover_keys: 0\nset_key: 0\nnotify_config_done: 0\n";

    static std::string failures(const std::string& openssl_lines, const std::string& last_line) {
        const std::string failure = "ossl_load: 1 ossl_engine_pkcs11:104 "
                                    "Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
                                    "ENGINE_ctrl_cmd_string(LOAD) failed: rc=0\n" +
                                    openssl_lines + last_line;
        return beginning + failure + failure + "ossl_load: 0\ndestroy: 0\n";
    }
};

TEST_F(WrongEngineTest, ModuleIsRejectedAsEngine) {
    EXPECT_EQ(run_with(path("itp11.dll")),
              failures(no_symbol_lines, wrong_kind(path("itp11.dll"), module_not_engine)));
}

TEST_F(WrongEngineTest, CryptoApiEngineIsRecognised) {
    put(bin / "capi.dll", folder);
    const std::string failure = "ossl_load: 1 ossl_engine_pkcs11:110 "
                                "Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
                                "ENGINE_ctrl_cmd_string(MODULE_PATH) failed: rc=0\n"
                                "error:engine routines:invalid cmd name:\n"
                                "error:engine routines:invalid cmd name:\n"
                                "error:engine routines:operation fail:'" +
                                path("capi.dll") + "' is OpenSSL's CryptoAPI engine, not libp11's engine\n";
    EXPECT_EQ(run_with(path("capi.dll")), beginning + failure + failure + "ossl_load: 0\ndestroy: 0\n");
}

TEST_F(WrongEngineTest, TextFileIsRejectedAsEngine) {
    EXPECT_EQ(run_with(path("text.dll")),
              failures(openssl_lines(path("text.dll")), not_loaded(path("text.dll"), 193, not_64_bits)));
}

TEST_F(WrongEngineTest, DllFor32BitsIsRejectedAsEngine) {
    EXPECT_EQ(run_with(path("32bit.dll")),
              failures(openssl_lines(path("32bit.dll")), not_loaded(path("32bit.dll"), 193, not_64_bits)));
}

TEST_F(WrongEngineTest, MissingDependencyIsDistinguishedFromMissingEngine) {
    EXPECT_EQ(run_with(path("needing.dll")), failures(openssl_lines(path("needing.dll")),
                                                      not_loaded(path("needing.dll"), 126, needs_a_dll)));
    EXPECT_EQ(run_with(path("missing.dll")),
              failures(openssl_lines(path("missing.dll")), not_loaded(path("missing.dll"), 126)));
}

TEST_F(WrongEngineTest, BareNameMustNotHaveExtension) {
    EXPECT_EQ(run({"backend=pkcs11", "engine=pkcs11", "init", "read_scard", "pin=" + std::string(card_pin),
                   "discover_keys", "set_key", "notify_config_done", "ossl_load", "destroy"}),
              beginning + std::string("ossl_load: 0\ndestroy: 0\n"));
    EXPECT_EQ(run_with("pkcs11.dll"),
              failures(openssl_lines("pkcs11.dll.dll"), not_loaded("pkcs11.dll.dll", 126, searched_folders)));
    EXPECT_EQ(run_with("text"),
              failures(openssl_lines("text.dll"), not_loaded(path("text.dll"), 193, not_64_bits)));
}

TEST_F(WrongEngineTest, RelativePathStartsInCurrentFolder) {
    put_text_file(current / "engine.dll");
    const std::string file = ".\\engine.dll";
    EXPECT_EQ(run_with(file),
              failures(openssl_lines(file), not_loaded((current / "engine.dll").string(), 193, not_64_bits)));
}

/// Wrong files in place of the module that the engine loads itself with the first key. libp11 has loaded the
/// right module before.
class WrongEngineModuleTest : public WrongFileTest {
protected:
    /// Loads twice with the wrong module, then restarts and loads once with the right module.
    std::string run_with(const std::string& module) const {
        Lines commands = to_set_key;
        commands.insert(commands.end(),
                        {"module=" + module, "notify_config_done", "ossl_load", "ossl_load", "restart"});
        commands.insert(commands.end(), to_set_key.begin(), to_set_key.end());
        commands.insert(commands.end(), {"notify_config_done", "ossl_load", "destroy"});
        return masked_errors(run(commands));
    }

    static std::string failures(const std::string& last_line) {
        const std::string load =
            "ossl_load: 1 " +
            no_key("error:libp11:Unable to load PKCS#11 module:engine.load_privkey\n", last_line);
        return key_is_set + "notify_config_done: 0\n" + load + load + "restart: 0\n" + key_is_set +
               "notify_config_done: 0\nossl_load: 0\ndestroy: 0\n";
    }

    /// Loads after changing a setting.
    std::string load_with(const std::string& setting) const {
        Lines commands = to_set_key;
        commands.insert(commands.end(), {setting, "notify_config_done", "ossl_load", "destroy"});
        return masked_errors(run(commands));
    }

    static std::string failure(const std::string& text) {
        return key_is_set + "notify_config_done: 0\nossl_load: 1 " + text + "destroy: 0\n";
    }

    /// @param cause  the engine's own error line
    static std::string no_key(const std::string& cause, const std::string& last_line) {
        return "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: "
               "rc=0\n" +
               cause + "error:engine routines:failed loading private key:\n" + last_line;
    }

    const Lines to_set_key{"backend=pkcs11", "engine=" + path("pkcs11.dll"), "module=itp11.dll", "init",
                           "read_scard",     "pin=" + std::string(card_pin), "discover_keys",    "set_key"};
    inline static const std::string key_is_set =
        "init: 0\nread_scard: 0\n1 key(s)\ndiscover_keys: 0\nset_key: 0\n";
};

TEST_F(WrongEngineModuleTest, TextFileIsReportedWhenFirstKeyIsLoaded) {
    EXPECT_EQ(run_with(path("text.dll")), failures(not_loaded(path("text.dll"), 193, not_64_bits)));
}

TEST_F(WrongEngineModuleTest, MissingModuleIsReportedWhenFirstKeyIsLoaded) {
    EXPECT_EQ(run_with("missing.dll"), failures(not_loaded("missing.dll", 126, searched_folders)));
}

TEST_F(WrongEngineModuleTest, EngineInPlaceOfModuleIsReportedWhenFirstKeyIsLoaded) {
    EXPECT_EQ(run_with(path("pkcs11.dll")), failures(wrong_kind(path("pkcs11.dll"), engine_not_module)));
}

TEST_F(WrongEngineModuleTest, EngineInitFailureMentionsModuleOnlyIfModuleIsWrong) {
    const std::string no_start =
        "ossl_engine_pkcs11:116 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): ENGINE_init() failed: rc=0\n"
        "error:PKCS#11 module:General Error:engine.init\n";
    card.fail_function("engine.init", 5);
    EXPECT_EQ(load_with("module=" + path("text.dll")),
              failure(no_start + not_loaded(path("text.dll"), 193, not_64_bits)));
    EXPECT_EQ(load_with("module=itp11.dll"), failure(no_start));
}

TEST_F(WrongEngineModuleTest, MissingKeyIsNotBlamedOnModule) {
    EXPECT_EQ(load_with("key_name=pkcs11:id=%99;type=private"),
              failure(no_key("error:pkcs11 engine:object not found:engine.load_privkey\n", "")));
}

TEST_F(WrongEngineModuleTest, MissingCertificateIsNotBlamedOnModule) {
    EXPECT_EQ(
        load_with("cert_name=pkcs11:id=%99;type=cert"),
        failure("ossl_engine_pkcs11:213 Kes::Pkcs11OsslEngine::read_certificate(): ENGINE_ctrl_cmd() failed: "
                "rc=0\nerror:pkcs11 engine:object not found:engine.LOAD_CERT_CTRL\n"));
}

} // namespace
} // namespace Kes::test
