#include "capi_client_fixture.h"

namespace Kes::test {

void CapiClientTest::TearDown() {
    scard().destroy();
    EXPECT_EQ(card.unreleased(), Lines());
}

OsslScardCfg* CapiClientTest::make_config() const {
    OsslScardCfg* cfg = scard().get_config_default();
    if (crypto_if != OsslScardCfg::capi) cfg->set_crypto_if(crypto_if);
    cfg->set_logfile_severity(log_severity);
    return cfg;
}

::testing::AssertionResult CapiClientTest::discover() {
    if (scard().init(make_config()) == 0 && scard().read_scard() == 0 &&
        scard().discover_keys(&num_keys) == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << error();
}

::testing::AssertionResult CapiClientTest::load() {
    if (scard().notify_config_done() == 0 && scard().ossl_load() == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << error();
}

::testing::AssertionResult CapiClientTest::load(unsigned int key_type, const std::string& key_id) {
    if (scard().set_key(key_type, key_id.c_str()) == 0) return load();
    return ::testing::AssertionFailure() << error();
}

Lines CapiClientTest::log() const { return log_lines("ossl_scard.log"); }

} // namespace Kes::test
