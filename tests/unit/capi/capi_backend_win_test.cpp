// Loading a key of CryptoAPI after a card of another back-end was read.
#include "support/capi_fixture.h"

namespace Kes::test {
namespace {

class CapiBackendTest : public CapiScardTest {
protected:
    /// Reads a card that needs a PIN with pkcs11, then selects a key of another back-end by its name.
    static void change_back_end_after_reading(OsslScardCfg::CryptoIf crypto_if, const char* key_name) {
        ASSERT_EQ(scard().init(&make_capi_config(OsslScardCfg::pkcs11)), 0) << last_error();
        ASSERT_EQ(scard().read_scard(), 0) << last_error();
        ASSERT_TRUE(scard().is_pin_required());
        OsslScardCfg& cfg = *scard().get_config_used();
        cfg.set_crypto_if(crypto_if);
        cfg.set_capi_key_type(AT_SIGNATURE);
        cfg.set_priv_key_name(key_name);
        cfg.set_cert_name(key_name);
        ASSERT_EQ(scard().notify_config_done(), 0) << last_error();
    }

    static void expect_loaded_without_pin() {
        script().take_calls();
        EXPECT_EQ(scard().ossl_load(), 0) << last_error();
        evp_pkey_st* key = nullptr;
        x509_st* certificate = nullptr;
        EXPECT_EQ(scard().ossl_get_private_key(&key), 0);
        EXPECT_EQ(scard().ossl_get_certificate(&certificate), 0);
        EXPECT_NE(key, nullptr);
        EXPECT_NE(certificate, nullptr);
        EXPECT_THAT(script().calls(), testing::Not(testing::Contains(testing::HasSubstr("PIN"))));
        EXPECT_THAT(script().calls(), testing::Not(testing::Contains(testing::HasSubstr("PKCS11_"))));
    }
};

TEST_F(CapiBackendTest, KeyOfAStoreIsLoadedWithoutPinAfterACardThatNeedsOne) {
    change_back_end_after_reading(OsslScardCfg::capi_store, "AT, Test Makers, Signer");
    expect_loaded_without_pin();
}

TEST_F(CapiBackendTest, KeyOfAProviderIsLoadedWithoutPinAfterACardThatNeedsOne) {
    change_back_end_after_reading(OsslScardCfg::capi, "c1");
    expect_loaded_without_pin();
}

} // namespace
} // namespace Kes::test
