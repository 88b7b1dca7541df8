// The card and the store that the script prepare-card created work in a client.
#include "capi_client_fixture.h"

namespace Kes::test {
namespace {

/// Gets its card from an environment variable, as any program does.
class PreparedTest : public ::testing::Test {
protected:
    void TearDown() override { scard.destroy(); }

    std::string use(OsslScardCfg::CryptoIf crypto_if, unsigned int key_type, const char* key_id) const {
        OsslScardCfg* cfg = scard.get_config_default();
        cfg->set_crypto_if(crypto_if);
        cfg->set_capi_store_cert_store_name("marvo-prepared");
        cfg->set_logfile("");
        std::size_t num_keys = 0;
        if (scard.init(cfg) != 0 || scard.read_scard() != 0 || scard.discover_keys(&num_keys) != 0 ||
            scard.set_key(key_type, key_id) != 0 || scard.notify_config_done() != 0 || scard.ossl_load() != 0)
            return scard.get_last_error_msg();
        return signing_problem(loaded_key(scard), loaded_certificate(scard), pkcs1_with_any_sha2);
    }

    OsslScardIf& scard = *get_ossl_scard_if();
};

TEST_F(PreparedTest, KeyOnTheCardSigns) { EXPECT_EQ(use(OsslScardCfg::capi, signature, "login"), ""); }

TEST_F(PreparedTest, StoreKeyOnTheCardSigns) {
    EXPECT_EQ(use(OsslScardCfg::capi_store, 0, "On the Card"), "");
}

TEST_F(PreparedTest, StoreKeyInSoftwareSigns) {
    EXPECT_EQ(use(OsslScardCfg::capi_store, 0, "Makers, In Software"), "");
}

} // namespace
} // namespace Kes::test
