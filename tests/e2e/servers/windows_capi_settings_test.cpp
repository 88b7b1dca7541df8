#include "support/error_lines.h"
#include "windows_capi.h"

// What a user sees when a client does not tell OpenSSL what keys of CryptoAPI cannot do. The client guide
// tells it too.
namespace Kes::test {
namespace {

/// With a client that leaves OpenSSL's settings as they are but for "tls12", no later version, and "pkcs1",
/// the signatures that the engine can make.
class WindowsCapiSettingsTest : public WindowsCapiTest {
protected:
    WindowsCapiSettingsTest() { add_key_to_card("signature", "Rita"); }

    /// @return the exit status
    int log_in_plainly(const Server& server, const std::vector<std::string>& settings) {
        std::vector<std::string> arguments{std::to_string(server.port())};
        arguments.insert(arguments.end(), settings.begin(), settings.end());
        return run_client("plain_client", arguments);
    }

    std::unique_ptr<Server> start_server(const std::string& maker, bool has_tls_13) const {
        ServerSetup setup(dir_.path());
        setup.has_tls_13 = has_tls_13;
        return create_server(maker, setup);
    }

    const std::string engine_cannot_ = "SSL_connect: -1\n"
                                       "plain_client: no TLS connection\n"
                                       "error:lib:function not supported:\n"
                                       "error:SSL routines:EVP lib:\n";
    const std::string is_in_over_tls_12_ = "SSL_connect: 1\nprotocol: TLSv1.2\nsigned: yes\n";
    const std::string nothing_sent_over_tls_13_ = "SSL_connect: 1\nprotocol: TLSv1.3\nsigned: no\n";
};

TEST_F(WindowsCapiSettingsTest, WithoutThemTheEngineCannotSignOverTls13ForNginx) {
    const auto server = start_server("nginx", true);
    EXPECT_EQ(log_in_plainly(*server, {}), 1);
    EXPECT_EQ(masked_errors(output_), engine_cannot_);
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, WithoutThemTheEngineCannotSignOverTls13ForGnutls) {
    const auto server = start_server("gnutls", true);
    EXPECT_EQ(log_in_plainly(*server, {}), 1);
    EXPECT_EQ(masked_errors(output_), engine_cannot_);
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, WithoutThemTheEngineCannotSignForAServerOfTls12ThatPrefersPss) {
    const auto server = start_server("nginx", false);
    EXPECT_EQ(log_in_plainly(*server, {}), 1);
    EXPECT_EQ(masked_errors(output_), engine_cannot_);
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, WithTheVersionAloneTheEngineCannotSignForAServerThatPrefersPss) {
    const auto server = start_server("nginx", true);
    EXPECT_EQ(log_in_plainly(*server, {"tls12"}), 1);
    EXPECT_EQ(masked_errors(output_), engine_cannot_);
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, AServerOfTls12ThatPrefersPkcs1LetsItInWithoutThem) {
    const auto server = start_server("gnutls", false);
    EXPECT_EQ(log_in_plainly(*server, {}), 0);
    EXPECT_EQ(before_answer(output_), is_in_over_tls_12_);
    EXPECT_EQ(count_signatures(), 1);
}

TEST_F(WindowsCapiSettingsTest, AServerOfTls12LetsItInWithTheSignaturesAlone) {
    const auto server = start_server("nginx", false);
    EXPECT_EQ(log_in_plainly(*server, {"pkcs1"}), 0);
    EXPECT_EQ(before_answer(output_), is_in_over_tls_12_);
    EXPECT_EQ(count_signatures(), 1);
}

TEST_F(WindowsCapiSettingsTest, WithTheSignaturesAloneNginxAnswersOverTls13ThatNoCertificateWasSent) {
    const auto server = start_server("nginx", true);
    EXPECT_EQ(log_in_plainly(*server, {"pkcs1"}), 0);
    EXPECT_EQ(before_answer(output_), nothing_sent_over_tls_13_);
    EXPECT_NE(body_of(output_).find("<center>No required SSL certificate was sent</center>"),
              std::string::npos)
        << output_;
    EXPECT_EQ(count_signatures(), 0);
}

/// What OpenSSL adds is a matter of luck, as with every server that breaks off: see WindowsLoginRefusedTest.
TEST_F(WindowsCapiSettingsTest, WithTheSignaturesAloneGnutlsBreaksOffOverTls13WhenNoCertificateWasSent) {
    const auto server = start_server("gnutls", true);
    EXPECT_EQ(log_in_plainly(*server, {"pkcs1"}), 1);
    const std::string expected = nothing_sent_over_tls_13_ + "plain_client: the server does not answer\n";
    EXPECT_EQ(output_.substr(0, expected.size()), expected);
    const std::string words = server->last_words();
    EXPECT_NE(words.find("Error in handshake: Certificate is required.\n"), std::string::npos) << words;
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, WithBothItIsInThoughTheServerKnowsTls13) {
    const auto server = start_server("nginx", true);
    EXPECT_EQ(log_in_plainly(*server, {"tls12", "pkcs1"}), 0);
    EXPECT_EQ(before_answer(output_), is_in_over_tls_12_);
    EXPECT_EQ(count_signatures(), 1);
}

TEST_F(WindowsCapiSettingsTest, TheExampleClientRefusesTls13BeforeItConnects) {
    const EnvVar backend("ossl_scard_cfg_crypto_if", "capi");
    EXPECT_EQ(run_client("tls_client", {"0", "127.0.0.1", "1", "1.3"}), 1);
    EXPECT_EQ(output_, "key 0: login (SIGNATURE)\n"
                       "key: RSA 2048\n"
                       "tls_client: a key of CryptoAPI logs in over TLS 1.2 only\n");
}

} // namespace
} // namespace Kes::test
