// What libp11's engine, as OpenSSL's default, does to keys that are not on the token.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "support/software_keys.h"
#include "token_client.h"

namespace Kes::test {
namespace {

using KeyContextPtr = std::unique_ptr<EVP_PKEY_CTX, FreeWith<&::EVP_PKEY_CTX_free>>;

constexpr const char* unknown_group = "error:elliptic curve routines:unknown group\n"
                                      "error:elliptic curve routines:invalid curve\n";

EvpPkeyPtr create_rsa_key() { return EvpPkeyPtr(EVP_RSA_gen(2048)); }
EvpPkeyPtr create_ec_key() { return EvpPkeyPtr(EVP_EC_gen("P-256")); }

/// @return the errors of EVP_PKEY_fromdata_init(); "" if it succeeds
std::string fromdata_problem(const char* key_type) {
    const KeyContextPtr context(::EVP_PKEY_CTX_new_from_name(nullptr, key_type, nullptr));
    return ::EVP_PKEY_fromdata_init(context.get()) == 1 ? "" : queued_errors();
}

class SoftwareKeyTest : public testing::TestWithParam<const char*> {
protected:
    void load(Client& client) const {
        ASSERT_TRUE(client.discover()) << client.error();
        ASSERT_TRUE(client.load(GetParam())) << client.error();
    }

    const SoftToken token{"two"};
};

TEST_P(SoftwareKeyTest, DefaultEngineMakesNoEcKeyByItsGroupAndImportsNoKeyData) {
    Client client;
    ASSERT_NO_FATAL_FAILURE(load(client));
    EXPECT_EQ(create_ec_key(), nullptr);
    EXPECT_EQ(queued_errors(), unknown_group);
    for (const char* key_type : {"RSA", "EC"})
        EXPECT_EQ(fromdata_problem(key_type),
                  "error:digital envelope routines:operation not supported for this keytype\n");
    client.end();
    EXPECT_NE(create_ec_key(), nullptr);
    EXPECT_EQ(fromdata_problem("RSA"), "");
}

TEST_P(SoftwareKeyTest, UnregisteredKeyMethodsCureBothInEveryLifetimeAndTheLoadedKeySigns) {
    for (int lifetime = 0; lifetime < 3; ++lifetime) {
        SCOPED_TRACE(lifetime);
        Client client;
        ASSERT_NO_FATAL_FAILURE(load(client));
        unregister_key_methods("pkcs11");
        EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
        EXPECT_EQ(software_signing_problem(create_ec_key().get()), "");
        EXPECT_EQ(software_signing_problem(create_rsa_key().get()), "");
        EXPECT_EQ(fromdata_problem("RSA"), "");
        EXPECT_EQ(fromdata_problem("EC"), "");
        EXPECT_EQ(signing_problem(client.key(), client.certificate()), "");
    }
}

TEST_P(SoftwareKeyTest, KeysMadeBeforeTheLoadSignAfterItAndAfterDestroy) {
    EvpPkeyPtr keys[] = {create_rsa_key(), create_ec_key(), create_legacy_rsa_key(), create_legacy_ec_key()};
    Client client;
    ASSERT_NO_FATAL_FAILURE(load(client));
    for (const EvpPkeyPtr& key : keys)
        EXPECT_EQ(software_signing_problem(key.get()), "");
    client.end();
    for (const EvpPkeyPtr& key : keys)
        EXPECT_EQ(software_signing_problem(key.get()), "");
}

TEST_P(SoftwareKeyTest, KeysMadeAfterTheLoadSignAndDoNotPreventTheNextLoad) {
    Client client;
    ASSERT_NO_FATAL_FAILURE(load(client));
    const EvpPkeyPtr keys[] = {create_rsa_key(), create_legacy_rsa_key(), create_legacy_ec_key()};
    for (const EvpPkeyPtr& key : keys)
        EXPECT_EQ(software_signing_problem(key.get()), "");
    client.end();
    Client next;
    ASSERT_NO_FATAL_FAILURE(load(next));
    EXPECT_EQ(signing_problem(next.key(), next.certificate()), "");
    for (const EvpPkeyPtr& key : keys)
        EXPECT_EQ(software_signing_problem(key.get()), "");
}

INSTANTIATE_TEST_SUITE_P(LoadedKeys, SoftwareKeyTest, testing::Values("%01", "%02"),
                         [](const auto& id) { return id.index == 0 ? "Rsa" : "Ec"; });

} // namespace
} // namespace Kes::test
