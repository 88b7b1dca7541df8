// If the card refuses to open a session, libp11 0.4.12 waits for a free one, whatever the reason is. These tests fail with
// a version that reports the reason.
#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

#include "direct_libp11_client.h"
#include "token_client.h"

namespace Kes::test {
namespace {

constexpr int ended_by_alarm = 1000 + SIGALRM; // as status_of_child() reports it
constexpr std::uint64_t session_count = 0xB1;  // CKR_SESSION_COUNT
constexpr std::uint64_t token_not_present = 0xE0;
constexpr std::uint64_t device_removed = 0x32;

/// A client that reaches its token through the wrapping module.
struct WrappedClient : Client {
    WrappedClient() { cfg->set_pkcs11_module_dll(WrappedModule::path().c_str()); }
};

/// From here on, an operation that waits ends the process.
void limit_time() { ::alarm(1); }

class SessionTest : public testing::Test {
protected:
    const SoftToken token{"one"};
    const WrappedModule module;
};

class RefusedSessionTest : public SessionTest, public testing::WithParamInterface<std::uint64_t> {};

TEST_P(RefusedSessionTest, DiscoveryDoesNotReturn) {
    EXPECT_EQ(status_of_child([this] {
                  WrappedClient client;
                  if (!client.read() || client->set_pin(token_pin) != 0) return 1;
                  module->no_session = GetParam();
                  limit_time();
                  client->discover_keys(&client.num_keys);
                  return 2;
              }),
              ended_by_alarm);
    EXPECT_GT(module.calls(P11::open_session), 0U);
}

TEST_P(RefusedSessionTest, LoadDoesNotReturn) {
    EXPECT_EQ(status_of_child([this] {
                  WrappedClient client;
                  if (!client.discover()) return 1;
                  module->no_session = GetParam();
                  module->calls[static_cast<std::size_t>(P11::open_session)] = 0;
                  limit_time();
                  client.load();
                  return 2;
              }),
              ended_by_alarm);
    EXPECT_GT(module.calls(P11::open_session), 0U);
}

INSTANTIATE_TEST_SUITE_P(Reasons, RefusedSessionTest,
                         testing::Values(session_count, token_not_present, device_removed),
                         [](const auto& reason) {
                             if (reason.param == session_count) return "SessionCount";
                             return reason.param == device_removed ? "DeviceRemoved" : "TokenNotPresent";
                         });

TEST_F(SessionTest, LoadDoesNotReturnIfTheDiscoveryUsesTheOnlySession) {
    module->session_limit = 1;
    EXPECT_EQ(status_of_child([] {
                  WrappedClient client;
                  if (!client.discover()) return 1;
                  limit_time();
                  client.load();
                  return 2;
              }),
              ended_by_alarm);
}

TEST_F(SessionTest, LoadByDirectCallsDoesNotReturnEither) {
    module->session_limit = 1;
    EXPECT_EQ(status_of_child([] {
                  DirectLibp11Client direct(WrappedModule::path());
                  if (!direct.log_in(token_pin) || direct.scan() != 1) return 1;
                  limit_time();
                  direct.load(token_pin, "Test Token");
                  return 2;
              }),
              ended_by_alarm);
}

TEST_F(SessionTest, LoadWithoutDiscoveryNeedsOnlyOneSession) {
    module->session_limit = 1;
    WrappedClient client;
    client.cfg->set_priv_key_name("pkcs11:token=Test Token;id=%01;type=private");
    client.cfg->set_cert_name("pkcs11:token=Test Token;id=%01;type=cert");
    ASSERT_TRUE(client.read()) << client.error();
    ASSERT_EQ(client->set_pin(token_pin), 0);
    ASSERT_EQ(client->notify_config_done(), 0);
    ASSERT_EQ(client->ossl_load(), 0) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

TEST_F(SessionTest, DiscoveryDoesNotReturnAfterTheRemovalOfTheCard) {
    EXPECT_EQ(status_of_child([this] {
                  WrappedClient client;
                  if (!client.read() || client->set_pin(token_pin) != 0) return 1;
                  module->removed = 1;
                  limit_time();
                  client->discover_keys(&client.num_keys);
                  return 2;
              }),
              ended_by_alarm);
}

TEST_F(SessionTest, ReadingTheCardAgainReportsItsRemovalAndKeepsThePin) {
    WrappedClient client;
    ASSERT_TRUE(client.read()) << client.error();
    ASSERT_EQ(client->set_pin(token_pin), 0);
    module->removed = 1;
    {
        const KnownLeak slots; // the library does not release the slots if it finds no token
        EXPECT_EQ(client->read_scard(), 1);
    }
    EXPECT_EQ(client.error(),
              "libp11_helper:140 Kes::Libp11Init::read_scard(): PKCS11_find_token() failed: val=11 (empty)");
    module->removed = 0;
    ASSERT_EQ(client->read_scard(), 0) << client.error();
    ASSERT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
    ASSERT_TRUE(client.load()) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

} // namespace
} // namespace Kes::test
