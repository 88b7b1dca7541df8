// The errors that a client gets for a wrong PIN and for an unusable token, module or engine.
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "token_client.h"

namespace Kes::test {
namespace {

constexpr const char* wrong_pin_text =
    "libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
    "error:PKCS#11 module:PIN incorrect:";
constexpr const char* no_pin_text =
    "libp11_helper:185 Kes::Libp11Init::authenticate(): no PIN specified: val=11 (empty)";
constexpr const char* not_initialized_text =
    "libp11_helper:209 Kes::Libp11Init::get_token(): token is not initialized: val=10 (not_initialized)";
constexpr const char* load_failed =
    "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n";
constexpr const char* load_failed_end = "error:engine routines:failed loading private key:";

/// A client that reaches its token through the wrapping module.
class WrappedModuleTest : public testing::Test {
protected:
    WrappedModuleTest() { client.cfg->set_pkcs11_module_dll(WrappedModule::path().c_str()); }

    const SoftToken token{"one"};
    const WrappedModule module;
    Client client;
};

/// Configures the names of the token's key and certificate, so that no discovery is needed.
void configure_key_names(const Client& client) {
    client.cfg->set_priv_key_name("pkcs11:token=Test Token;id=%01;type=private");
    client.cfg->set_cert_name("pkcs11:token=Test Token;id=%01;type=cert");
}

TEST(TokenPinTest, DiscoveryWithWrongPinFails) {
    const SoftToken token("one");
    Client client;
    EXPECT_FALSE(client.discover("654321"));
    EXPECT_EQ(client.masked_error(), wrong_pin_text);
    EXPECT_EQ(client->set_key(0, "%01"), 1);
}

TEST(TokenPinTest, DiscoveryWithoutPinFails) {
    const SoftToken token("one");
    Client client;
    EXPECT_FALSE(client.discover(nullptr));
    EXPECT_EQ(client.error(), no_pin_text);
}

TEST(TokenPinTest, DiscoveryWithEmptyPinFailsAsWithoutPin) {
    const SoftToken token("one");
    Client client;
    EXPECT_FALSE(client.discover(""));
    EXPECT_EQ(client.error(), no_pin_text);
}

TEST(TokenPinTest, RightPinAfterWrongPinWorks) {
    const SoftToken token("one");
    Client client;
    ASSERT_FALSE(client.discover("654321"));
    ASSERT_EQ(client->set_pin(token_pin), 0);
    ASSERT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
    ASSERT_TRUE(client.load()) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
    EXPECT_EQ(client.certificate_der(), token.certificate("login"));
}

TEST(TokenPinTest, LoadWithoutDiscoveryFailsWithWrongPin) {
    const SoftToken token("one");
    Client client;
    configure_key_names(client);
    ASSERT_TRUE(client.read()) << client.error();
    ASSERT_EQ(client->set_pin("654321"), 0);
    ASSERT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(client.masked_error(),
              std::string(load_failed) + "error:PKCS#11 module:PIN incorrect:\n" + load_failed_end);
    EXPECT_EQ(client.key(), nullptr);
}

TEST(TokenPinTest, LoadWithoutPinIsRejectedByTheTokenAndWorksWithTheRightPin) {
    const SoftToken token("one");
    Client client;
    configure_key_names(client);
    ASSERT_TRUE(client.read()) << client.error();
    ASSERT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(client.masked_error(),
              std::string(load_failed) + "error:PKCS#11 module:PIN incorrect:\n" + load_failed_end);
    EXPECT_EQ(client.key(), nullptr);
    ASSERT_EQ(client->read_scard(), 0) << client.error();
    ASSERT_EQ(client->set_pin(token_pin), 0);
    ASSERT_EQ(client->notify_config_done(), 0);
    ASSERT_EQ(client->ossl_load(), 0) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST(TokenPinTest, LoadWithoutDiscoveryWorksWithRightPin) {
    const SoftToken token("one");
    Client client;
    configure_key_names(client);
    ASSERT_TRUE(client.read()) << client.error();
    ASSERT_EQ(client->set_pin(token_pin), 0);
    ASSERT_EQ(client->notify_config_done(), 0);
    ASSERT_EQ(client->ossl_load(), 0) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

struct TerminalResult {
    int status;
    std::string output;
};

/// Runs the function in a child process with a terminal that receives no input.
TerminalResult run_on_terminal(const std::function<int()>& function) {
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::alarm(20); // ends a child that waits for input
        std::exit(function());
    }
    TerminalResult result{-1, ""};
    std::array<char, 256> buffer{};
    for (ssize_t got = 0; (got = ::read(terminal, buffer.data(), buffer.size())) > 0;)
        result.output.append(buffer.data(), static_cast<std::size_t>(got));
    ::waitpid(child, &result.status, 0);
    ::close(terminal);
    return result;
}

int load_once(const char* pin) {
    Client client;
    configure_key_names(client);
    if (!client.read() || (pin != nullptr && client->set_pin(pin) != 0)) return 1;
    return client->notify_config_done() == 0 && client->ossl_load() == 1 && client->ossl_load() == 1 ? 0 : 2;
}

TEST(PinPromptTest, LoadWithWrongPinDoesNotPromptForPin) {
    const SoftToken token("one");
    const auto [status, output] = run_on_terminal([] { return load_once("654321"); });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(output.find("Enter PKCS#11"), std::string::npos) << output;
    EXPECT_NE(output.find("Login failed"), std::string::npos) << output; // the engine's own message
}

TEST(PinPromptTest, LoadWithoutPinDoesNotPromptForPin) {
    const SoftToken token("one");
    const auto [status, output] = run_on_terminal([] { return load_once(nullptr); });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(output.find("Enter PKCS#11"), std::string::npos) << output;
    EXPECT_NE(output.find("Login failed"), std::string::npos) << output; // the engine's own message
}

TEST_F(WrappedModuleTest, ReaderWithPinPadNeedsNoPin) {
    module->set_token_flags = 0x100; // CKF_PROTECTED_AUTHENTICATION_PATH
    ASSERT_TRUE(client.discover()) << client.error();
    EXPECT_FALSE(client->is_pin_required());
    EXPECT_EQ(client.num_keys, 0U); // no PIN was entered on the pad
    EXPECT_EQ(module.calls(P11::login), 0U);
}

TEST_F(WrappedModuleTest, StoredPinIsClearedWhenTheTokenNeedsNoLogin) {
    ASSERT_TRUE(client.read()) << client.error();
    ASSERT_EQ(client->set_pin(token_pin), 0);
    module->clear_token_flags = 0x4; // CKF_LOGIN_REQUIRED
    ASSERT_EQ(client->read_scard(), 0) << client.error();
    EXPECT_FALSE(client->is_pin_required());
    module->clear_token_flags = 0;
    ASSERT_EQ(client->read_scard(), 0) << client.error();
    EXPECT_EQ(client->discover_keys(&client.num_keys), 1);
    EXPECT_EQ(client.error(), no_pin_text);
}

TEST(NoTokenTest, EmptySoftHsmSlotIsReportedAsUninitializedToken) {
    const SoftToken token("nothing");
    Client client;
    EXPECT_FALSE(client.discover());
    EXPECT_EQ(client.error(), not_initialized_text);
}

TEST_F(WrappedModuleTest, UninitializedTokenInTheFirstSlotIsSelectedAndRejected) {
    module->reverse_slots = 1;
    EXPECT_FALSE(client.discover());
    EXPECT_EQ(client.error(), not_initialized_text);
}

TEST_F(WrappedModuleTest, EmptyReadersAreReportedAndCardInsertedLaterIsFound) {
    module->no_token = 1;
    {
        const KnownLeak slots; // the library does not release the slots if it finds no token
        EXPECT_FALSE(client.read());
    }
    EXPECT_EQ(client.error(),
              "libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() failed: val=11 (empty)");
    module->no_token = 0;
    ASSERT_EQ(client->read_scard(), 0) << client.error();
    ASSERT_EQ(client->set_pin(token_pin), 0);
    ASSERT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
    ASSERT_TRUE(client.load()) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST_F(WrappedModuleTest, LoadFailsAfterCardRemoval) {
    ASSERT_TRUE(client.discover()) << client.error();
    module->removed = 1;
    EXPECT_FALSE(client.load());
    EXPECT_EQ(client.masked_error(),
              std::string(load_failed) + "error:pkcs11 engine:object not found:\n" + load_failed_end);
    EXPECT_EQ(client.key(), nullptr);
}

TEST_F(WrappedModuleTest, SigningFailsAfterCardRemoval) {
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load()) << client.error();
    module->removed = 1;
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "cannot sign: SHA256, padding 1");
    module->removed = 0;
    EXPECT_EQ(client->ossl_unload(), 0);
}

TEST(RemovedTokenTest, LoadFailsAfterTokenDeletion) {
    const SoftToken token("one");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    token.remove();
    EXPECT_FALSE(client.load());
    EXPECT_EQ(client.masked_error(), std::string(load_failed) +
                                         "error:PKCS#11 module:General Error:\n"
                                         "error:pkcs11 engine:invalid parameter:\n" +
                                         load_failed_end);
}

TEST(DuplicateLabelTest, KeyAndCertificateComeFromTheSameTokenAfterDiscovery) {
    const SoftToken token("twins");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    EXPECT_EQ(client.num_keys, 1U);
    ASSERT_TRUE(client.load()) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST(DuplicateLabelTest, LoadWithoutDiscoveryFails) {
    const SoftToken token("twins");
    Client client;
    client.cfg->set_priv_key_name("pkcs11:token=Twin;id=%01;type=private");
    client.cfg->set_cert_name("pkcs11:token=Twin;id=%01;type=cert");
    ASSERT_TRUE(client.read()) << client.error();
    ASSERT_EQ(client->set_pin(token_pin), 0);
    ASSERT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(client.masked_error(),
              std::string(load_failed) + "error:pkcs11 engine:object not found:\n" + load_failed_end);
}

std::string module_failure(const std::string& path, const std::string& last_line) {
    return "libp11_helper:86 Kes::Libp11Init::Libp11Init(): PKCS11_CTX_load() failed to load PKCS#11 library "
           "'" +
           path + "': rc=-1\nerror:libp11:Unable to load PKCS#11 module:\n" +
           "error:DSO support routines:system lib:" + last_line;
}

/// The loader's message in the last line, without the folder of its file.
std::string loader_message(const std::string& text) { return text.substr(text.rfind('/') + 1); }

TEST(ModuleTest, InvalidModuleFailsInitAndTheRightOneWorksAfterwards) {
    const SoftToken token("one");
    std::ofstream(token.file("text")) << "This is no library.\n";
    const struct {
        std::string path, reason;
    } rows[] = {
        {"/nowhere/module.so",
         "/nowhere/module.so: cannot open shared object file: No such file or directory"},
        {"module.so", "module.so: cannot open shared object file: No such file or directory"},
        {token.file("text"), token.file("text") + ": file too short"},
        {token.file(""), token.file("") + ": cannot read file data: Is a directory"},
        {pkcs11_engine(), "'" + pkcs11_engine() + "' is an OpenSSL engine, not a PKCS#11 module"},
    };
    Client client;
    for (const auto& [path, reason] : rows) {
        client.cfg->set_pkcs11_module_dll(path.c_str());
        EXPECT_FALSE(client.init());
        EXPECT_EQ(client.masked_error(), module_failure(path, reason));
        EXPECT_EQ(client->read_scard(), 1);
        EXPECT_EQ(client.error(),
                  "operation not allowed in current state (cfg_state=uninitialized): val=6 (invalid_state)");
    }
    client.cfg->set_pkcs11_module_dll(softhsm_module().c_str());
    EXPECT_TRUE(client.discover()) << client.error();
    EXPECT_TRUE(client.load()) << client.error();
}

TEST(ModuleTest, LibraryThatIsNoModuleFailsInitWithTheMissingFunction) {
    Client client;
    // The loader takes an empty path for the program itself.
    for (const char* path : {"libz.so.1", ""}) {
        client.cfg->set_pkcs11_module_dll(path);
        EXPECT_FALSE(client.init());
        const std::string text = client.masked_error();
        const std::string file = *path == '\0' ? "tokens_test" : path;
        EXPECT_EQ(text.rfind(module_failure(path, ""), 0), 0U) << text;
        EXPECT_EQ(loader_message(text), file + ": undefined symbol: C_GetFunctionList");
    }
}

constexpr const char* engine_failure = "ossl_engine_pkcs11:104 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
                                       "ENGINE_ctrl_cmd_string(LOAD) failed: rc=0\n";

/// An engine of OpenSSL that has nothing to do with PKCS#11.
std::string padlock_engine() {
    return (std::filesystem::path(pkcs11_engine()).parent_path() / "padlock.so").string();
}

std::string dso_failure(const std::string& path, const std::string& cause) {
    return engine_failure +
           ("error:DSO support routines:could not load the shared library:filename(" + path + "): ") + path +
           ": " + cause +
           "\nerror:DSO support routines:could not load the shared library:\nerror:engine routines:dso not "
           "found:";
}

TEST(EngineTest, InvalidEngineFailsTheLoadAndTheRightOneLoadsAfterwards) {
    const SoftToken token("one");
    std::ofstream(token.file("text"))
        << "This is no library, although it is longer than the header of one would be.\n";
    const struct {
        std::string path, error;
    } rows[] = {
        {"/nowhere/engine.so",
         dso_failure("/nowhere/engine.so", "cannot open shared object file: No such file or directory")},
        {token.file("text"), dso_failure(token.file("text"), "invalid ELF header")},
        {softhsm_module(), engine_failure +
                               ("error:DSO support routines:could not bind to the requested symbol "
                                "name:symname(bind_engine): " +
                                softhsm_module() + ": undefined symbol: bind_engine\n") +
                               "error:DSO support routines:could not bind to the requested symbol "
                               "name:\nerror:engine routines:DSO failure:\n"
                               "error:DSO support routines:system lib:'" +
                               softhsm_module() + "' is a PKCS#11 module, not an OpenSSL engine"},
        {padlock_engine(), "ossl_engine_pkcs11:110 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
                           "ENGINE_ctrl_cmd_string(MODULE_PATH) failed: rc=0\n"
                           "error:engine routines:invalid cmd name:\n"
                           "error:engine routines:operation fail:'" +
                               padlock_engine() + "' is the engine 'padlock', not libp11's engine"},
        {"", "ossl_engine_pkcs11:91 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
             "ENGINE_ctrl_cmd_string(SO_PATH) failed: rc=0"}};
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_EQ(client->set_key(0, "%01"), 0);
    ASSERT_EQ(client->notify_config_done(), 0);
    for (const auto& [path, error] : rows) {
        client->get_config_used()->set_pkcs11_openssl_engine_dll(path.c_str());
        EXPECT_EQ(client->ossl_load(), 1);
        EXPECT_EQ(client.masked_error(), error);
        EXPECT_EQ(client.key(), nullptr);
    }
    client->get_config_used()->set_pkcs11_openssl_engine_dll(pkcs11_engine().c_str());
    ASSERT_EQ(client->ossl_load(), 0) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

} // namespace
} // namespace Kes::test
