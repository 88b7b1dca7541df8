// What happens after one failed read of the card.
#include <gtest/gtest.h>

#include "token_client.h"

namespace Kes::test {
namespace {

/// A client that reaches its token through the wrapping module.
struct WrappedClient : Client {
    WrappedClient() { cfg->set_pkcs11_module_dll(WrappedModule::path().c_str()); }
};

struct FailedRead {
    const char* name;
    unsigned int number; ///< counted from the start of the load
    const char* error;
};

void PrintTo(const FailedRead& read, std::ostream* out) { *out << read.name; }

class FailedReadTest : public testing::TestWithParam<FailedRead> {
protected:
    /// discover_keys() and a load during which the read fails.
    void fail_first_load(WrappedClient& client) {
        ASSERT_TRUE(client.discover()) << client.error();
        module->failing_attribute_read = module.calls(P11::get_attribute_value) + GetParam().number;
        ASSERT_FALSE(client.load());
        ASSERT_EQ(client.masked_error(), GetParam().error);
    }

    const SoftToken token{"one"};
    const WrappedModule module;
};

TEST_P(FailedReadTest, EveryLaterLoadFailsWithTheSameError) {
    WrappedClient client;
    ASSERT_NO_FATAL_FAILURE(fail_first_load(client));
    EXPECT_EQ(client->ossl_load(), 1);
    EXPECT_EQ(client.masked_error(), GetParam().error);
    ASSERT_EQ(client->read_scard(), 0) << client.error();
    ASSERT_EQ(client->discover_keys(&client.num_keys), 0) << client.error();
    EXPECT_FALSE(client.load());
    EXPECT_EQ(client.masked_error(), GetParam().error);
    EXPECT_EQ(client.key(), nullptr);
    EXPECT_EQ(client.certificate(), nullptr);
}

TEST_P(FailedReadTest, LoadSucceedsInTheNextLifetime) {
    {
        WrappedClient client;
        ASSERT_NO_FATAL_FAILURE(fail_first_load(client));
    }
    WrappedClient client;
    ASSERT_TRUE(client.discover()) << client.error();
    ASSERT_TRUE(client.load()) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

// The numbers are those of a token with one key: libp11's engine reads the keys, then the certificates.
INSTANTIATE_TEST_SUITE_P(
    Reads, FailedReadTest,
    testing::Values(
        FailedRead{"IdOfTheKey", 3,
                   "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: "
                   "rc=0\nerror:pkcs11 engine:object not found:\nerror:engine routines:failed loading "
                   "private key:"},
        FailedRead{"IdOfTheCertificate", 13,
                   "ossl_engine_pkcs11:213 Kes::Pkcs11OsslEngine::read_certificate(): ENGINE_ctrl_cmd() "
                   "failed: rc=0\nerror:pkcs11 engine:object not found:"},
        FailedRead{"SizeOfTheCertificate", 16,
                   "ossl_engine_pkcs11:216 Kes::Pkcs11OsslEngine::read_certificate(): error reading "
                   "certificate: val=8 (not_found)"},
        FailedRead{"ContentOfTheCertificate", 17,
                   "ossl_engine_pkcs11:216 Kes::Pkcs11OsslEngine::read_certificate(): error reading "
                   "certificate: val=8 (not_found)"}),
    [](const auto& read) { return read.param.name; });

TEST(OtherFailedReadTest, FailedReadThatTheEngineReportsFailsOnlyOneLoad) {
    const SoftToken token("one");
    const WrappedModule module;
    WrappedClient client;
    ASSERT_TRUE(client.discover()) << client.error();
    module->failing_attribute_read = module.calls(P11::get_attribute_value) + 7;
    EXPECT_FALSE(client.load());
    EXPECT_EQ(client.masked_error(),
              "ossl_engine:79 Kes::OsslEngine::read_private_key(): ENGINE_load_private_key() failed: rc=0\n"
              "error:PKCS#11 module:Device error:\nerror:engine routines:failed loading private key:");
    ASSERT_EQ(client->ossl_load(), 0) << client.error();
    EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
}

} // namespace
} // namespace Kes::test
