#include "scripted_scard.h"

namespace Kes::test {
namespace {

class SessionTlsTest : public SessionTest {
protected:
    std::string prepare() {
        marvo::Session session = open();
        session.load();
        ERR_clear_error();
        return error_of([&] { session.prepare(tls.get()); });
    }

    bool has_key() const { return SSL_CTX_get0_privatekey(tls.get()) == card.key.get(); }
    bool has_certificate() const { return SSL_CTX_get0_certificate(tls.get()) == card.cert.get(); }

    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> tls{SSL_CTX_new(TLS_client_method()), &SSL_CTX_free};
};

TEST_F(SessionTlsTest, KeyAndCertificateArePutIntoTheContext) {
    EXPECT_EQ(prepare(), "no error");
    EXPECT_TRUE(has_key());
    EXPECT_TRUE(has_certificate());
    EXPECT_EQ(SSL_CTX_get_max_proto_version(tls.get()), 0);
}

TEST_F(SessionTlsTest, KeyOfAProviderLimitsTheContextToTls12) {
    for (const OsslScardCfg::CryptoIf crypto_if : {OsslScardCfg::capi, OsslScardCfg::capi_store}) {
        tls.reset(SSL_CTX_new(TLS_client_method()));
        card.cfg.crypto_if = crypto_if;
        EXPECT_EQ(prepare(), "no error");
        EXPECT_TRUE(has_key());
        EXPECT_EQ(SSL_CTX_get_max_proto_version(tls.get()), TLS1_2_VERSION);
    }
}

TEST_F(SessionTlsTest, KeyOfAProviderIsRefusedForTls13) {
    card.cfg.crypto_if = OsslScardCfg::capi;
    SSL_CTX_set_min_proto_version(tls.get(), TLS1_3_VERSION);
    EXPECT_EQ(prepare(), "a key of CryptoAPI logs in over TLS 1.2 only");
}

TEST_F(SessionTlsTest, ContextIsRefusedWithoutALoadedKey) {
    const marvo::Session session = open();
    EXPECT_EQ(error_of([&] { session.prepare(tls.get()); }), "no key is loaded");
}

TEST_F(SessionTlsTest, CertificateOfAnotherKeyIsReported) {
    card.cert = create_certificate(create_key().get());
    EXPECT_EQ(prepare(), "SSL_CTX_use_PrivateKey failed: key values mismatch");
}

TEST_F(SessionTlsTest, CertificateThatIsTooWeakIsReported) {
    card.key = PkeyPtr(EVP_RSA_gen(512), &EVP_PKEY_free);
    card.cert = create_certificate(card.key.get());
    EXPECT_EQ(prepare(), "SSL_CTX_use_certificate failed: ee key too small");
}

} // namespace
} // namespace Kes::test
