// A scan makes exactly the calls that the same sequence of direct libp11 calls makes.
#include <atomic>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/x509.h>

#include "direct_libp11_client.h"
#include "token_client.h"

namespace {

std::atomic<int> decoded_certificates;

} // namespace

/// Takes precedence over OpenSSL's function in the whole process, and counts the calls.
extern "C" [[gnu::visibility("default")]] X509* d2i_X509(X509** out, const unsigned char** in, long length) {
    using Function = X509* (*)(X509**, const unsigned char**, long);
    static const auto real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "d2i_X509"));
    ++decoded_certificates;
    return real(out, in, length);
}

namespace Kes::test {
namespace {

// The contents of the prepared token "keys".
constexpr int num_certificates = 11;
constexpr int num_private_keys = 10;

class ScanCostTest : public testing::Test {
protected:
    using Calls = std::vector<std::uint64_t>;

    /// The calls that a child process makes when it runs the function.
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

int scan_directly() {
    static auto* const direct = new DirectLibp11Client(WrappedModule::path());
    return direct->log_in(token_pin) && direct->scan() == num_private_keys ? 0 : 1;
}

int scan_through_library() {
    static auto* const client = new Client; // not destroyed, to match scan_directly()
    client->cfg->set_pkcs11_module_dll(WrappedModule::path().c_str());
    return client->discover() && client->num_keys == num_private_keys - 1 ? 0 : 1;
}

TEST_F(ScanCostTest, ScanMakesTheSameCallsAsDirectLibp11Calls) {
    const Calls direct = calls_of(scan_directly);
    EXPECT_GT(direct[static_cast<std::size_t>(P11::get_attribute_value)], 100U);
    EXPECT_EQ(direct[static_cast<std::size_t>(P11::find_objects_init)], 3U);
    EXPECT_EQ(calls_of(scan_through_library), direct);
}

TEST_F(ScanCostTest, ScanDecodesEachCertificateOnce) {
    EXPECT_EQ(status_of_child([] {
                  DirectLibp11Client direct(softhsm_module());
                  direct.log_in(token_pin);
                  direct.scan();
                  direct.end();
                  return decoded_certificates.load();
              }),
              num_certificates);
    EXPECT_EQ(status_of_child([] {
                  Client client;
                  client.discover();
                  return decoded_certificates.load();
              }),
              num_certificates);
}

TEST_F(ScanCostTest, SelectingAKeyAndGettingItsNameDoNotCallTheModule) {
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
