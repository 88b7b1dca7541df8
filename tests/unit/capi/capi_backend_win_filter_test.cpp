#include "support/capi_fixture.h"
#include "support/loaded_key.h"

/// The key usage filter of the configuration, from the exported object to the scanners of both back-ends.
namespace Kes::test {
namespace {

constexpr unsigned int exact = 1;
constexpr unsigned int exact_none = 2;
constexpr unsigned int digital_signature = 0x80;
constexpr unsigned int key_encipherment = 0x20;
constexpr const char* client_authentication = "1.3.6.1.5.5.7.3.2";

struct FilteredBackEnd {
    const char* name;
    OsslScardCfg::CryptoIf crypto_if;
    Lines with_signature;
    Lines with_encipherment;
    Lines without_usage; // keys whose certificate has no key usage
};

class CapiBackendFilterTest : public CapiScardTest, public ::testing::WithParamInterface<FilteredBackEnd> {
protected:
    /// Initialises the library and reads the card.
    void SetUp() override {
        ASSERT_EQ(scard().init(&make_capi_config(GetParam().crypto_if)), 0) << last_error();
        ASSERT_EQ(scard().read_scard(), 0) << last_error();
    }

    static OsslScardCfg& cfg() { return *scard().get_config_used(); }

    /// The names of the keys that are found, in order.
    static Lines discovered() {
        std::size_t count = 0;
        EXPECT_EQ(scard().discover_keys(&count), 0) << last_error();
        return found_key_names(scard(), count);
    }

    static void set_key_usage_filter(unsigned int type, unsigned int bits) {
        cfg().set_kuse_filter_type(type);
        cfg().set_kuse_filter(bits);
    }
};

TEST_P(CapiBackendFilterTest, OnlyKeysWithTheRequiredKeyUsageAreOffered) {
    set_key_usage_filter(exact, digital_signature);
    EXPECT_EQ(discovered(), GetParam().with_signature);
    set_key_usage_filter(exact, key_encipherment);
    EXPECT_EQ(discovered(), GetParam().with_encipherment);
    set_key_usage_filter(exact, digital_signature | key_encipherment);
    EXPECT_EQ(discovered(), Lines());
}

TEST_P(CapiBackendFilterTest, KeysWithoutAKeyUsageAreOfferedOnRequest) {
    set_key_usage_filter(exact_none, digital_signature);
    EXPECT_EQ(discovered(), GetParam().with_signature + GetParam().without_usage);
}

TEST_P(CapiBackendFilterTest, OnlyKeysWithTheRequiredExtendedKeyUsageAreOffered) {
    cfg().set_xkuse_filter_type(exact);
    cfg().set_xkuse_nid_filter(client_authentication);
    EXPECT_EQ(discovered(), GetParam().with_signature);
    cfg().set_xkuse_nid_filter("1.2.3");
    EXPECT_EQ(discovered(), Lines());
}

TEST_P(CapiBackendFilterTest, KeyThatPassesTheFilterIsLoaded) {
    set_key_usage_filter(exact, digital_signature);
    ASSERT_EQ(discovered(), GetParam().with_signature);
    ASSERT_EQ(scard().set_key(std::size_t{0}), 0) << last_error();
    ASSERT_EQ(scard().notify_config_done(), 0) << last_error();
    ASSERT_EQ(scard().ossl_load(), 0) << last_error();
    EXPECT_NE(loaded_key(scard()), nullptr);
    const Bytes der = cert_der("sign");
    const unsigned char* next = der.data();
    const X509Ptr expected(::d2i_X509(nullptr, &next, static_cast<long>(der.size())));
    EXPECT_EQ(::X509_cmp(loaded_certificate(scard()), expected.get()), 0);
}

INSTANTIATE_TEST_SUITE_P(BothBackEnds, CapiBackendFilterTest,
                         ::testing::Values(FilteredBackEnd{"capi",
                                                           OsslScardCfg::capi,
                                                           {"c1 (SIGNATURE)", "c2 (SIGNATURE)"},
                                                           {"c1 (KEYEXCHANGE)"},
                                                           {}},
                                           FilteredBackEnd{"capi_store",
                                                           OsslScardCfg::capi_store,
                                                           {"AT, Test Makers, Signer"},
                                                           {"AT, Test Makers, Exchanger"},
                                                           {"No Usage"}}),
                         [](const auto& back_end) { return std::string(back_end.param.name); });

} // namespace
} // namespace Kes::test
