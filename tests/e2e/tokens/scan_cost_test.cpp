// A scan costs what the hand-written sequence of libp11 calls costs, and nothing more.
#include <atomic>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/x509.h>

#include "direct_libp11_client.h"
#include "token_client.h"

namespace {

std::atomic<int> decoded_certificates;

} // namespace

/// Stands before OpenSSL's own for the whole process, and counts.
extern "C" [[gnu::visibility("default")]] X509* d2i_X509(X509** out, const unsigned char** in, long length) {
    using Function = X509* (*)(X509**, const unsigned char**, long);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "d2i_X509"));
    ++decoded_certificates;
    return real(out, in, length);
}

namespace Kes::test {
namespace {

constexpr int certificates_on_keys = 11; // of the prepared token "keys"
constexpr int keys_on_keys = 10;

class ScanCostTest : public testing::Test {
protected:
    using Calls = std::vector<std::uint64_t>;

    /// All calls that the child process makes.
    Calls calls_of(const std::function<int()>& function) const {
        const Calls before = module.all_calls();
        EXPECT_EQ(status_of_child(function), 0);
        Calls calls = module.all_calls();
        for (std::size_t i = 0; i < calls.size(); ++i)
            calls[i] -= before[i];
        return calls;
    }

    const SoftToken token{"keys"};
    const WrappedModule module;
};

int scan_by_hand() {
    static auto* const by_hand = new ByHand(WrappedModule::path());
    return by_hand->log_in(token_pin) && by_hand->scan() == keys_on_keys ? 0 : 1;
}

int scan_as_client() {
    static auto* const client = new Client; // not destroyed, as the other one is not
    client->cfg->set_pkcs11_module_dll(WrappedModule::path().c_str());
    return client->discover() && client->num_keys == keys_on_keys - 1 ? 0 : 1;
}

TEST_F(ScanCostTest, MakesExactlyTheCallsOfTheHandWrittenSequence) {
    const Calls by_hand = calls_of(scan_by_hand);
    EXPECT_GT(by_hand[static_cast<std::size_t>(P11::get_attribute_value)], 100U);
    EXPECT_EQ(by_hand[static_cast<std::size_t>(P11::find_objects_init)], 3U);
    EXPECT_EQ(calls_of(scan_as_client), by_hand);
}

TEST_F(ScanCostTest, DecodesEachCertificateOnce) {
    EXPECT_EQ(status_of_child([] {
                  ByHand by_hand(softhsm_module());
                  by_hand.log_in(token_pin);
                  by_hand.scan();
                  by_hand.end();
                  return decoded_certificates.load();
              }),
              certificates_on_keys);
    EXPECT_EQ(status_of_child([] {
                  Client client;
                  client.discover();
                  return decoded_certificates.load();
              }),
              certificates_on_keys);
}

TEST_F(ScanCostTest, NeitherChoosingAKeyNorNamingItCallsTheModule) {
    Client client;
    client.cfg->set_pkcs11_module_dll(WrappedModule::path().c_str());
    ASSERT_TRUE(client.discover()) << client.error();
    const Calls before = module.all_calls();
    EXPECT_NE(client->get_key_name(0), nullptr);
    EXPECT_EQ(client->set_key(std::size_t{0}), 0);
    EXPECT_EQ(client->set_key(0, "%01"), 0);
    EXPECT_EQ(client->notify_config_done(), 0);
    EXPECT_EQ(module.all_calls(), before);
}

} // namespace
} // namespace Kes::test
