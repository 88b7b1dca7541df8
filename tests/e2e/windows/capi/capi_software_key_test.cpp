// What OpenSSL's CryptoAPI engine, as the default, does to RSA keys that are not on the card.
#include <openssl/rsa.h>

#include "capi_client_fixture.h"
#include "support/software_keys.h"

namespace Kes::test {
namespace {

constexpr const char* cannot_sign = "cannot sign: SHA256, padding 1";
constexpr const char* no_card_key = "error:lib:can't get key\nerror:Provider routines:RSA lib\n";

class CapiSoftwareKeyTest : public CapiClientTest {
protected:
    CapiSoftwareKeyTest() { card.add("sign"); }

    void load_card() {
        ASSERT_TRUE(discover());
        ASSERT_TRUE(load(signature, "sign"));
    }

    std::string card_problem() const { return signing_problem(key(), certificate(), pkcs1); }
    static EvpPkeyPtr create_rsa_key() { return EvpPkeyPtr(EVP_RSA_gen(2048)); }
};

TEST_F(CapiSoftwareKeyTest, KeyMadeAfterTheLoadCannotSignAndPreventsTheNextLoadUntilItIsFreed) {
    ASSERT_NO_FATAL_FAILURE(load_card());
    EvpPkeyPtr made_after = create_rsa_key();
    EXPECT_EQ(software_pkcs1_problem(made_after.get()), cannot_sign);
    EXPECT_EQ(queued_errors(), no_card_key);
    scard().destroy();
    EXPECT_EQ(software_pkcs1_problem(made_after.get()), cannot_sign);
    EXPECT_EQ(queued_errors(), no_card_key);
    ASSERT_TRUE(discover());
    EXPECT_FALSE(load(signature, "sign"));
    EXPECT_EQ(
        masked_errors(error()),
        "ossl_engine_capi:122 Kes::CapiOsslEngine::CapiOsslEngine(): ENGINE_ctrl_cmd_string(LOAD) failed: "
        "rc=0\nerror:engine routines:init failed:\nerror:engine routines:operation fail:the engine cannot be "
        "loaded again: the client still uses a key that was created during an earlier load");
    made_after.reset();
    ASSERT_EQ(scard().ossl_load(), 0) << error();
    EXPECT_EQ(card_problem(), "");
}

TEST_F(CapiSoftwareKeyTest, KeyMadeByOlderFunctionsCannotSignIfItsFirstUseIsAfterTheLoad) {
    const EvpPkeyPtr used_before = create_legacy_rsa_key();
    const EvpPkeyPtr used_after = create_legacy_rsa_key();
    EXPECT_EQ(software_pkcs1_problem(used_before.get()), "");
    ASSERT_NO_FATAL_FAILURE(load_card());
    EXPECT_EQ(software_pkcs1_problem(used_before.get()), "");
    EXPECT_EQ(software_pkcs1_problem(used_after.get()), cannot_sign);
    EXPECT_EQ(queued_errors(), no_card_key);
}

TEST_F(CapiSoftwareKeyTest, KeyGeneratedBeforeTheLoadSigns) {
    const EvpPkeyPtr made_before = create_rsa_key();
    ASSERT_NO_FATAL_FAILURE(load_card());
    EXPECT_EQ(software_signing_problem(made_before.get()), "");
}

TEST_F(CapiSoftwareKeyTest, UnregisteredKeyMethodsDoNotHelp) {
    ASSERT_NO_FATAL_FAILURE(load_card());
    unregister_key_methods("capi");
    EXPECT_EQ(software_pkcs1_problem(create_rsa_key().get()), cannot_sign);
    EXPECT_EQ(queued_errors(), no_card_key);
}

TEST_F(CapiSoftwareKeyTest, UnregisteredRsaMethodCuresSoftwareKeysInEveryLifetimeAndTheCardSigns) {
    const EvpPkeyPtr made_before = create_legacy_rsa_key();
    EvpPkeyPtr made_after;
    for (int lifetime = 0; lifetime < 3; ++lifetime) {
        SCOPED_TRACE(lifetime);
        ASSERT_NO_FATAL_FAILURE(load_card());
        unregister_rsa("capi");
        made_after = create_rsa_key();
        EXPECT_EQ(software_signing_problem(made_after.get()), "");
        EXPECT_EQ(software_signing_problem(made_before.get()), "");
        EXPECT_EQ(card_problem(), "");
        scard().destroy();
        EXPECT_EQ(software_signing_problem(made_after.get()), "");
    }
}

} // namespace
} // namespace Kes::test
