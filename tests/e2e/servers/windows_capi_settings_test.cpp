#include "support/error_lines.h"
#include "windows_capi.h"

// The errors that a user sees if a client does not restrict OpenSSL to what CryptoAPI keys support. The
// client guide describes them.
namespace Kes::test {
namespace {

/// Runs plain_client, which uses OpenSSL's defaults except for the settings "tls12" and "pkcs1" among its
/// arguments.
class WindowsCapiSettingsTest : public WindowsCapiTest {
protected:
    WindowsCapiSettingsTest() { add_key_to_card("signature", "Rita"); }

    /// @return the exit status
    int run_plain_client(const Server& server, const std::vector<std::string>& settings) {
        std::vector<std::string> arguments{std::to_string(server.port())};
        arguments.insert(arguments.end(), settings.begin(), settings.end());
        return run_client("plain_client", arguments);
    }

    std::unique_ptr<Server> start_server(const std::string& maker, bool has_tls_13) const {
        ServerSetup setup(dir_.path());
        setup.has_tls_13 = has_tls_13;
        return create_server(maker, setup);
    }

    const std::string engine_error_ = "SSL_connect: -1\n"
                                      "plain_client: no TLS connection\n"
                                      "error:lib:function not supported:\n"
                                      "error:SSL routines:EVP lib:\n";
    const std::string logged_in_over_tls_12_ = "SSL_connect: 1\nprotocol: TLSv1.2\nsigned: yes\n";
    const std::string unsigned_over_tls_13_ = "SSL_connect: 1\nprotocol: TLSv1.3\nsigned: no\n";
};

TEST_F(WindowsCapiSettingsTest, EngineCannotSignOverTls13WithDefaultSettingsAtNginx) {
    const auto server = start_server("nginx", true);
    EXPECT_EQ(run_plain_client(*server, {}), 1);
    EXPECT_EQ(masked_errors(output_), engine_error_);
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, EngineCannotSignOverTls13WithDefaultSettingsAtGnutls) {
    const auto server = start_server("gnutls", true);
    EXPECT_EQ(run_plain_client(*server, {}), 1);
    EXPECT_EQ(masked_errors(output_), engine_error_);
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, EngineCannotSignAtATls12ServerThatPrefersPssWithDefaultSettings) {
    const auto server = start_server("nginx", false);
    EXPECT_EQ(run_plain_client(*server, {}), 1);
    EXPECT_EQ(masked_errors(output_), engine_error_);
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, EngineCannotSignAtAServerThatPrefersPssWithOnlyTheVersionSet) {
    const auto server = start_server("nginx", true);
    EXPECT_EQ(run_plain_client(*server, {"tls12"}), 1);
    EXPECT_EQ(masked_errors(output_), engine_error_);
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, LoginAtATls12ServerThatPrefersPkcs1WorksWithDefaultSettings) {
    const auto server = start_server("gnutls", false);
    EXPECT_EQ(run_plain_client(*server, {}), 0);
    EXPECT_EQ(before_answer(output_), logged_in_over_tls_12_);
    EXPECT_EQ(count_signatures(), 1);
}

TEST_F(WindowsCapiSettingsTest, LoginAtATls12ServerWorksWithOnlyTheSignaturesSet) {
    const auto server = start_server("nginx", false);
    EXPECT_EQ(run_plain_client(*server, {"pkcs1"}), 0);
    EXPECT_EQ(before_answer(output_), logged_in_over_tls_12_);
    EXPECT_EQ(count_signatures(), 1);
}

TEST_F(WindowsCapiSettingsTest, NginxReportsAMissingCertificateOverTls13WithOnlyTheSignaturesSet) {
    const auto server = start_server("nginx", true);
    EXPECT_EQ(run_plain_client(*server, {"pkcs1"}), 0);
    EXPECT_EQ(before_answer(output_), unsigned_over_tls_13_);
    EXPECT_NE(body_of(output_).find("<center>No required SSL certificate was sent</center>"),
              std::string::npos)
        << output_;
    EXPECT_EQ(count_signatures(), 0);
}

// OpenSSL's further error lines are not predictable if the server aborts the handshake: see
// WindowsLoginRefusedTest.
TEST_F(WindowsCapiSettingsTest, GnutlsAbortsTheHandshakeOverTls13WithOnlyTheSignaturesSet) {
    const auto server = start_server("gnutls", true);
    EXPECT_EQ(run_plain_client(*server, {"pkcs1"}), 1);
    const std::string expected = unsigned_over_tls_13_ + "plain_client: the server does not answer\n";
    EXPECT_EQ(output_.substr(0, expected.size()), expected);
    const std::string server_log = server->stop_and_get_log();
    EXPECT_NE(server_log.find("Error in handshake: Certificate is required.\n"), std::string::npos)
        << server_log;
    EXPECT_EQ(count_signatures(), 0);
}

TEST_F(WindowsCapiSettingsTest, LoginAtATls13ServerWorksWithBothSettings) {
    const auto server = start_server("nginx", true);
    EXPECT_EQ(run_plain_client(*server, {"tls12", "pkcs1"}), 0);
    EXPECT_EQ(before_answer(output_), logged_in_over_tls_12_);
    EXPECT_EQ(count_signatures(), 1);
}

TEST_F(WindowsCapiSettingsTest, ExampleClientRejectsTls13BeforeItConnects) {
    const EnvVar backend("ossl_scard_cfg_crypto_if", "capi");
    EXPECT_EQ(run_client("tls_client", {"0", "127.0.0.1", "1", "1.3"}), 1);
    EXPECT_EQ(output_, "key 0: login (SIGNATURE)\n"
                       "key: RSA 2048\n"
                       "tls_client: a key of CryptoAPI logs in over TLS 1.2 only\n");
}

} // namespace
} // namespace Kes::test
