// Tests of providers, keys and certificates with the functions of Windows itself and the test card.
#include "capi/capi_helper.h"

#include "support/csp_card_fixture.h"

namespace Kes::test {
namespace {

class CapiInitTest : public CardTest {};

TEST_F(CapiInitTest, FirstKeyIsDestroyedBeforeTheSecondIsFetched) {
    {
        CapiInit capi(card_provider, "both", 0);
        capi.fetch_key(signature);
        capi.fetch_key(key_exchange);
    }
    EXPECT_EQ(card.calls(), (Lines{"acquire@both", "user_key_2@both", "destroy_key@both", "user_key_1@both",
                                   "destroy_key@both", "release@both"}));
    EXPECT_EQ(log.lines(),
              (Lines{"<info> capi initialized (provider=Microsoft Base Smart Card Crypto Provider, "
                     "key_container=both, flags=0x0)",
                     "<info> fetched user key with key_type=SIGNATURE",
                     "<info> fetched user key with key_type=KEYEXCHANGE", "<info> capi destroyed"}));
}

TEST_F(CapiInitTest, NameOfTheDefaultProviderIsLoggedWhenNoNamesAreGiven) {
    HCRYPTPROV provider = 0;
    ASSERT_TRUE(::CryptAcquireContextA(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    char name[256] = "";
    DWORD size = sizeof name;
    EXPECT_TRUE(::CryptGetProvParam(provider, PP_NAME, reinterpret_cast<BYTE*>(name), &size, 0));
    char container[256] = ""; // stays empty if the provider has no current container
    size = sizeof container;
    ::CryptGetProvParam(provider, PP_CONTAINER, reinterpret_cast<BYTE*>(container), &size, 0);
    ::CryptReleaseContext(provider, 0);
    const CapiInit capi(nullptr, nullptr, 0);
    EXPECT_EQ(log.lines().back(), std::string("<info> capi initialized (provider=") + name +
                                      " (default), key_container=" + container +
                                      " (default), flags=0xf0000000)");
}

TEST_F(CapiInitTest, MissingContainerIsReported) {
    EXPECT_EQ(error_text([] { const CapiInit capi(card_provider, "gone", 0); }),
              "capi_helper:79 Kes::CapiInit::CapiInit(): CryptAcquireContext() with prov_name=Microsoft Base "
              "Smart Card "
              "Crypto Provider, key_container_name=gone, flags=0x0 failed: " +
                  windows_error(0x80090016));
}

TEST_F(CapiInitTest, KeyMissingFromTheContainerIsReported) {
    card.add("sign");
    CapiInit capi(card_provider, "sign", 0);
    EXPECT_EQ(
        error_text([&] { capi.fetch_key(key_exchange); }),
        "capi_helper:113 Kes::CapiInit::fetch_key(): CryptGetUserKey() with key_type=KEYEXCHANGE failed: " +
            windows_error(0x8009000d));
}

TEST_F(CapiInitTest, CertificateOfTheCardIsReadByteForByte) {
    CapiInit capi(card_provider, "both", 0);
    for (const unsigned int key_spec : {key_exchange, signature}) {
        capi.fetch_key(key_spec);
        EXPECT_EQ(read_capi_key_certificate(capi.key()), prepared_certificate("both", key_spec));
    }
}

TEST_F(CapiInitTest, PublicKeyEqualsThatOfTheCertificate) {
    const CapiInit capi(card_provider, "both", 0);
    for (const unsigned int key_spec : {key_exchange, signature})
        EXPECT_EQ(CapiPubKey(capi.provider(), key_spec).der(),
                  public_key_of(prepared_certificate("both", key_spec)));
}

TEST_F(CapiInitTest, ParameterUnknownToTheProviderIsUnsupported) {
    CapiInit capi(card_provider, "both", 0);
    capi.fetch_key(signature);
    card.fail("key_specs_size", bad_type);
    card.fail("certificate_size", bad_type);
    EXPECT_EQ(error_text([&] { const CapiProvParamReader reader(capi.provider(), PP_KEYSPEC, 0); }),
              "capi_helper:244 Kes::CapiProvParamReader::read_len(): CryptGetProvParam() with param=39, "
              "flags=0 is not "
              "supported: val=4 (unsupported)");
    EXPECT_EQ(error_text([&] { read_capi_key_certificate(capi.key()); }),
              "capi_helper:423 Kes::CapiKeyParamReader::read_len(): CryptGetKeyParam() with param=26, "
              "flags=0 is not "
              "supported: val=4 (unsupported)");
}

} // namespace
} // namespace Kes::test
