// Wrong files where the engine and the card's module belong: the error names the file and the system's cause,
// the process lives on, and takes the right file afterwards.
#include "dll_folder.h"
#include "test_card.h"

namespace Kes::test {
namespace {

/// A client with a card. All DLLs that it needs are in its folder, and some that it does not.
class WrongFileTest : public DllFolder {
protected:
    WrongFileTest() {
        for (const char* name : {"libp11.dll", "itp11.dll", "pkcs11.dll"})
            put(doubles / name, folder);
        for (const char* name : {"32bit.dll", "needing.dll"})
            put(wrong / name, folder);
        put_text_file(folder / "text.dll");
        card.add("01", "ckp", "rsa", "Login");
    }

    std::string path(const std::string& name) const { return (folder / name).string(); }

    /// The last line of OpenSSL's queue, ours.
    static std::string our_line(const std::string& text) {
        return "error:DSO support routines:system lib:" + text + "\n";
    }

    static std::string not_loaded(const std::string& file, unsigned long code, const std::string& hint = "") {
        return our_line("error loading '" + file + "'" + hint + ": " + system_cause(code));
    }

    static std::string no_function(const std::string& file, const std::string& function) {
        return our_line("'" + file + "' has no function " + function + ": " + system_cause(127));
    }

    TestCard card;
};

constexpr const char* not_64_bits = ": it is no DLL for 64 bits";
constexpr const char* needs_a_dll = ": a DLL that it needs is missing";

class WrongModuleTest : public WrongFileTest {
protected:
    /// Twice with the wrong file, then with the right one.
    std::string run_with(const std::string& module) const {
        return without_error_numbers(run(
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

TEST_F(WrongModuleTest, AnEngineIsNoModule) {
    EXPECT_EQ(run_with(path("pkcs11.dll")),
              failures(path("pkcs11.dll"), no_function(path("pkcs11.dll"), "C_GetFunctionList")));
}

TEST_F(WrongModuleTest, ATextFileIsNoModule) {
    EXPECT_EQ(run_with(path("text.dll")),
              failures(path("text.dll"), not_loaded(path("text.dll"), 193, not_64_bits)));
}

TEST_F(WrongModuleTest, A32BitDllIsNoModule) {
    EXPECT_EQ(run_with(path("32bit.dll")),
              failures(path("32bit.dll"), not_loaded(path("32bit.dll"), 193, not_64_bits)));
}

TEST_F(WrongModuleTest, AModuleThatLacksItsOwnDllIsToldFromOneThatIsNotThere) {
    EXPECT_EQ(run_with(path("needing.dll")),
              failures(path("needing.dll"), not_loaded(path("needing.dll"), 126, needs_a_dll)));
    EXPECT_EQ(run_with(path("missing.dll")),
              failures(path("missing.dll"), not_loaded(path("missing.dll"), 126)));
}

TEST_F(WrongModuleTest, ABareNameIsToldWithThePlaceWhereItWasFound) {
    EXPECT_EQ(run_with("pkcs11.dll"),
              failures("pkcs11.dll", no_function(path("pkcs11.dll"), "C_GetFunctionList")));
    EXPECT_EQ(run_with("text.dll"), failures("text.dll", not_loaded(path("text.dll"), 193, not_64_bits)));
    EXPECT_EQ(run_with("text"), failures("text", not_loaded(path("text.dll"), 193, not_64_bits)));
    EXPECT_EQ(run_with("missing.dll"), failures("missing.dll", not_loaded("missing.dll", 126)));
}

TEST_F(WrongModuleTest, TheEndingOfABareNameMayBeLeftOut) {
    EXPECT_EQ(run({"backend=pkcs11", "module=itp11", "init", "destroy"}), "init: 0\ndestroy: 0\n");
}

class WrongEngineTest : public WrongFileTest {
protected:
    /// Up to the load with the wrong file, twice, and then one with the right file.
    std::string run_with(const std::string& engine) const {
        return without_error_numbers(
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

    /// What OpenSSL says itself when it cannot load a file.
    static std::string openssl_lines(const std::string& file) {
        return "error:DSO support routines:could not load the shared library:filename(" + file +
               ")\nerror:DSO support routines:could not load the shared library:\n"
               "error:engine routines:dso not found:\n";
    }
};

TEST_F(WrongEngineTest, AModuleIsNoEngine) {
    EXPECT_EQ(
        run_with(path("itp11.dll")),
        failures(
            "error:DSO support routines:could not bind to the requested symbol name:symname(bind_engine)\n"
            "error:DSO support routines:could not bind to the requested symbol name:\n"
            "error:engine routines:DSO failure:\n",
            no_function(path("itp11.dll"), "bind_engine")));
}

TEST_F(WrongEngineTest, ATextFileIsNoEngine) {
    EXPECT_EQ(run_with(path("text.dll")),
              failures(openssl_lines(path("text.dll")), not_loaded(path("text.dll"), 193, not_64_bits)));
}

TEST_F(WrongEngineTest, A32BitDllIsNoEngine) {
    EXPECT_EQ(run_with(path("32bit.dll")),
              failures(openssl_lines(path("32bit.dll")), not_loaded(path("32bit.dll"), 193, not_64_bits)));
}

TEST_F(WrongEngineTest, AnEngineThatLacksItsOwnDllIsToldFromOneThatIsNotThere) {
    EXPECT_EQ(run_with(path("needing.dll")), failures(openssl_lines(path("needing.dll")),
                                                      not_loaded(path("needing.dll"), 126, needs_a_dll)));
    EXPECT_EQ(run_with(path("missing.dll")),
              failures(openssl_lines(path("missing.dll")), not_loaded(path("missing.dll"), 126)));
}

TEST_F(WrongEngineTest, ABareNameIsWithoutItsEnding) {
    EXPECT_EQ(run({"backend=pkcs11", "engine=pkcs11", "init", "read_scard", "pin=" + std::string(card_pin),
                   "discover_keys", "set_key", "notify_config_done", "ossl_load", "destroy"}),
              beginning + std::string("ossl_load: 0\ndestroy: 0\n"));
    EXPECT_EQ(run_with("pkcs11.dll"),
              failures(openssl_lines("pkcs11.dll.dll"), not_loaded("pkcs11.dll.dll", 126)));
    EXPECT_EQ(run_with("text"),
              failures(openssl_lines("text.dll"), not_loaded(path("text.dll"), 193, not_64_bits)));
}

TEST_F(WrongEngineTest, ARelativePathStartsInTheCurrentFolder) {
    put_text_file(current / "engine.dll");
    const std::string file = ".\\engine.dll";
    EXPECT_EQ(run_with(file),
              failures(openssl_lines(file), not_loaded((current / "engine.dll").string(), 193, not_64_bits)));
}

} // namespace
} // namespace Kes::test
