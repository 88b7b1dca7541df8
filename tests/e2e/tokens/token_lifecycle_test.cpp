// Several lifetimes of the interface object in one process, and processes that exit during one.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <malloc.h>

#include "direct_libp11_client.h"
#include "support/process.h"
#include "token_client.h"

namespace Kes::test {
namespace {

std::size_t open_files() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

/// The number of bytes that the process has allocated; 0 with an allocator that does not report it.
std::size_t allocated() { return ::mallinfo2().uordblks; }

/// The number of repetitions in a test. The environment can set a lower limit where each one is slow.
int repetitions(int usual) {
    const char* at_most = std::getenv("MARVO_TEST_ROUNDS");
    return at_most == nullptr ? usual : std::min(usual, std::atoi(at_most));
}

TEST(LifetimeTest, ThousandLifetimesWithoutLoginLeakNeitherFilesNorMemory) {
    const SoftToken token("one");
    std::size_t files = 0;
    std::size_t memory = 0;
    for (int i = 0; i < 1000; ++i) {
        if (i == 100) { // everything that is allocated only once exists by now
            files = open_files();
            memory = allocated();
        }
        Client client;
        ASSERT_TRUE(client.read()) << i << ": " << client.error();
    }
    EXPECT_EQ(open_files(), files);
    // The allocator's smallest block. Tables that still grow may add less than that in each lifetime.
    constexpr std::size_t smallest_block = 32;
    EXPECT_LT(allocated(), memory + 900 * smallest_block);
}

TEST(LifetimeTest, LoadedKeySignsInEachOfManyLifetimes) {
    const SoftToken token("two");
    for (int i = 0; i < repetitions(20); ++i) {
        Client client;
        ASSERT_TRUE(client.discover()) << i << ": " << client.error();
        ASSERT_TRUE(client.load(i % 2 == 0 ? "%01" : "%02")) << i << ": " << client.error();
        ASSERT_EQ(signing_problem(client.key(), client.certificate()), "") << i;
        ASSERT_EQ(client.certificate_der(), token.certificate(i % 2 == 0 ? "first" : "second")) << i;
    }
}

TEST(LifetimeTest, EnginesFromDifferentPathsSignInAnyOrder) {
    const SoftToken token("one");
    const TempDir dir;
    const std::string copy = dir.file("copy.so");
    const std::string link = dir.file("link.so");
    std::filesystem::copy_file(pkcs11_engine(), copy);
    std::filesystem::create_symlink(pkcs11_engine(), link);
    for (const std::string& path : {pkcs11_engine(), copy, pkcs11_engine(), link, copy, link}) {
        const EnvVar engine("ossl_scard_cfg_pkcs11_openssl_engine_dll", path);
        Client client;
        ASSERT_TRUE(client.discover()) << path << ": " << client.error();
        ASSERT_TRUE(client.load()) << path << ": " << client.error();
        ASSERT_EQ(signing_problem(client.key(), client.certificate()), "") << path;
    }
}

TEST(LifetimeTest, WrongPinIsRejectedInALifetimeAfterOneWithTheRightPin) {
    const SoftToken token("one");
    for (int i = 0; i < 3; ++i) {
        {
            Client client;
            ASSERT_TRUE(client.discover()) << i << ": " << client.error();
            ASSERT_TRUE(client.load()) << i << ": " << client.error();
        }
        Client client;
        EXPECT_FALSE(client.discover("654321")) << i;
    }
}

TEST(LifetimeTest, NextLifetimeCanUseAnotherToken) {
    for (const char* name : {"first", "second"}) {
        const SoftToken token("two");
        Client client;
        ASSERT_TRUE(client.discover()) << client.error();
        const std::string id = name == std::string("first") ? "%01" : "%02";
        ASSERT_TRUE(client.load(id)) << client.error();
        EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
        EXPECT_EQ(client.certificate_der(), token.certificate(name));
    }
}

TEST(LifetimeTest, LoadFailsWithTheReasonWhileTheClientHoldsAnEarlierKey) {
    const SoftToken token("one");
    EVP_PKEY* held = nullptr;
    {
        Client client;
        ASSERT_TRUE(client.discover()) << client.error();
        ASSERT_TRUE(client.load()) << client.error();
        held = client.key();
        ASSERT_EQ(::EVP_PKEY_up_ref(held), 1);
    }
    {
        Client client;
        ASSERT_TRUE(client.discover()) << client.error();
        EXPECT_FALSE(client.load());
        EXPECT_EQ(client.masked_error(), "ossl_engine_pkcs11:104 Kes::Pkcs11OsslEngine::Pkcs11OsslEngine(): "
                                         "ENGINE_ctrl_cmd_string(LOAD) failed: rc=0\n"
                                         "error:engine routines:init failed:\n"
                                         "error:engine routines:operation fail:the engine cannot be loaded "
                                         "again: the client still uses a private key of an earlier load");
    }
    ::EVP_PKEY_free(held);
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load()) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST(LifetimeTest, ClientCanCloseTheLibraryAfterEachLifetime) {
    const SoftToken token("one");
    const std::string command = MARVO_DLOPEN_CLIENT " " MARVO_LIBRARY " " + softhsm_module() + " " +
                                pkcs11_engine() + " 3 2>&1 </dev/null";
    EXPECT_EQ(shell_output(command), "loaded a key\nloaded a key\nloaded a key\nno engine: /nowhere\ndone\n");
}

TEST(RepeatedLoadTest, AnotherKeyIsLoadedAfterReadingTheCardAgain) {
    const SoftToken token("two");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load("%01")) << client.error();
    ASSERT_EQ(client.certificate_der(), token.certificate("first"));
    for (int i = 0; i < 5; ++i)
        for (const auto& [id, name] : {std::pair("%02", "second"), std::pair("%01", "first")}) {
            ASSERT_EQ(client->read_scard(), 0) << client.error();
            ASSERT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
            ASSERT_TRUE(client.load(id)) << client.error();
            EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
            EXPECT_EQ(client.certificate_der(), token.certificate(name));
        }
}

TEST(RepeatedLoadTest, LoadedKeySignsWhileTheCardIsReadAgain) {
    const SoftToken token("two");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load("%01")) << client.error();
    ASSERT_EQ(client->read_scard(), 0) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
    ASSERT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST(RepeatedLoadTest, LoadAfterUnloadNeedsReadingTheCardAgain) {
    const SoftToken token("one");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load()) << client.error();
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(client->ossl_unload(), 0);
        EXPECT_EQ(client.key(), nullptr);
        EXPECT_EQ(client.certificate(), nullptr);
        ASSERT_EQ(client->ossl_load(), 0);
        EXPECT_EQ(client.key(), nullptr);
        ASSERT_EQ(client->read_scard(), 0) << client.error();
        ASSERT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
        ASSERT_TRUE(client.load()) << i << ": " << client.error();
        EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
    }
}

TEST(RepeatedLoadTest, SecondLoadKeepsKeyAndCertificate) {
    const SoftToken token("one");
    Client client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load()) << client.error();
    EVP_PKEY* key = client.key();
    X509* certificate = client.certificate();
    ASSERT_EQ(client->ossl_load(), 0);
    EXPECT_EQ(client.key(), key);
    EXPECT_EQ(client.certificate(), certificate);
}

class RepeatedScanTest : public testing::Test {
protected:
    static constexpr long slack = 1024; // bytes for each repetition; the slots of one reader need more

    /// The number of bytes that each of many repetitions leaks, on average.
    template <typename Action>
    static long growth(Action action) {
        for (int i = 0; i < repetitions(10); ++i) // makes all allocations that happen only once
            action();
        const auto before = static_cast<long>(allocated());
        for (int i = 0; i < repetitions(200); ++i)
            action();
        return (static_cast<long>(allocated()) - before) / repetitions(200);
    }

    /// The growth with direct libp11 calls: libp11 itself leaks a little in each repetition.
    template <typename Action>
    static long growth_with_direct_calls(Action action) {
        DirectLibp11Client direct(WrappedModule::path());
        const long bytes = growth([&] { action(direct); });
        direct.end();
        return bytes;
    }

    static void read_and_scan(Client& client) {
        EXPECT_EQ(client->read_scard(), 0) << client.error();
        EXPECT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
    }

    static void set_module(const Client& client) {
        client.cfg->set_pkcs11_module_dll(WrappedModule::path().c_str());
    }

    const SoftToken token{"one"};
    const WrappedModule module;
};

TEST_F(RepeatedScanTest, ReadingBeforeALoginLeaksNeitherFilesNorSessionsNorMemory) {
    const long direct_growth = growth_with_direct_calls([](DirectLibp11Client& direct) { direct.read(); });
    Client client;
    set_module(client);
    ASSERT_TRUE(client.read()) << client.error();
    const std::size_t files = open_files();
    EXPECT_LE(growth([&] { EXPECT_EQ(client->read_scard(), 0) << client.error(); }), direct_growth + slack);
    EXPECT_EQ(open_files(), files);
    EXPECT_EQ(module->open_sessions, 0U);
}

TEST_F(RepeatedScanTest, ReadingAndScanningWithoutALoginLeakNeitherFilesNorSessionsNorMemory) {
    module->clear_token_flags = 0x4; // CKF_LOGIN_REQUIRED
    const long direct_growth = growth_with_direct_calls([](DirectLibp11Client& direct) {
        direct.read();
        EXPECT_EQ(direct.scan(), 0U);
    });
    EXPECT_EQ(module->open_sessions, 0U);
    Client client;
    set_module(client);
    ASSERT_TRUE(client.read()) << client.error();
    read_and_scan(client);
    const std::size_t files = open_files();
    const std::uint64_t sessions = module->open_sessions;
    EXPECT_GT(sessions, 0U);
    EXPECT_LE(growth([&] { read_and_scan(client); }), direct_growth + slack);
    EXPECT_EQ(open_files(), files);
    EXPECT_EQ(module->open_sessions, sessions);
    client.end();
    EXPECT_EQ(module->open_sessions, 0U);
    EXPECT_EQ(module.calls(P11::initialize), 2U); // one of them by the direct client
    EXPECT_EQ(module.calls(P11::finalize), 2U);
}

class KeptSlotsTest : public RepeatedScanTest, public testing::WithParamInterface<bool> {};

TEST_P(KeptSlotsTest, SlotsOfRepeatedReadsAreReleasedByDestroy) {
    const bool is_key_loaded = GetParam();
    constexpr long kept = 16 * 1024; // bytes at most in each repetition
    long memory = 0;
    for (int i = 0; i < 3; ++i) { // the first two make all allocations that happen only once
        memory = static_cast<long>(allocated());
        Client client;
        set_module(client);
        ASSERT_TRUE(client.discover()) << client.error();
        if (is_key_loaded) {
            ASSERT_TRUE(client.load()) << client.error();
        }
        const std::size_t files = open_files();
        EXPECT_LE(growth([&] { read_and_scan(client); }), kept);
        EXPECT_EQ(client.num_keys, 1U);
        EXPECT_EQ(open_files(), files);
        if (is_key_loaded) {
            EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
        }
        client.end();
        EXPECT_EQ(module->open_sessions, 0U);
    }
    EXPECT_LE(static_cast<long>(allocated()) - memory, kept); // in all repetitions together
}

INSTANTIATE_TEST_SUITE_P(AfterALoginAndAfterALoad, KeptSlotsTest, testing::Bool());

/// Runs the first steps of a typical sequence.
/// @return the number of the step that failed; 0 if none did
int run_steps(Client& client, int count) {
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    const std::function<int()> steps[] = {[&] { return client->version_check(4); },
                                          [&] { return client->init(client.cfg); },
                                          [&] { return client->read_scard(); },
                                          [&] { return client->set_pin(token_pin); },
                                          [&] { return client->discover_keys(&client.num_keys); },
                                          [&] { return client->set_key(std::size_t{0}); },
                                          [&] { return client->notify_config_done(); },
                                          [&] { return client->ossl_load(); },
                                          [&] { return client->ossl_get_private_key(&key); },
                                          [&] { return client->ossl_get_certificate(&certificate); },
                                          [&] { return signing_problem(key, certificate).empty() ? 0 : 1; },
                                          [&] { return client->ossl_unload(); }};
    for (int i = 0; i < count; ++i)
        if (steps[i]() != 0) return i + 1;
    return 0;
}

class ExitTest : public testing::TestWithParam<int> {};

TEST_P(ExitTest, ProcessThatEndsAfterThisStepExitsCleanly) {
    const SoftToken token("one");
    EXPECT_EQ(status_of_child([] {
                  static auto* const client = new Client; // never destroyed: exit() comes first
                  return run_steps(*client, GetParam());
              }),
              0);
}

TEST_P(ExitTest, ProcessThatCallsDestroyAfterThisStepExitsCleanly) {
    const SoftToken token("one");
    EXPECT_EQ(status_of_child([] {
                  Client client;
                  const int failed_step = run_steps(client, GetParam());
                  client.end();
                  return failed_step;
              }),
              0);
}

INSTANTIATE_TEST_SUITE_P(Steps, ExitTest, testing::Range(0, 13));

} // namespace
} // namespace Kes::test
