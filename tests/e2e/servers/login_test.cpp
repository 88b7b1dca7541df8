#include <gtest/gtest.h>

#include "card.h"
#include "login.h"
#include "server.h"

namespace Kes::test {
namespace {

const std::string cipher_12 = "ECDHE-ECDSA-AES256-GCM-SHA384";
const std::string cipher_13 = "TLS_AES_256_GCM_SHA384";
const std::string subject = "CN=Ada Lovelace";
const std::string trusted = "The certificate is trusted. ";

const std::vector<Scenario> scenarios = {
    {"RsaPkcs1OverTls12", "rsa:2048", TLS1_2_VERSION, "RSA+SHA256",
     "TLSv1.2, " + cipher_12 + ", rsaEncryption with SHA256", "TLSv1.2, " + cipher_12,
     "TLS1.2, AES-256-GCM, RSA-SHA256"},
    {"RsaPssOverTls12", "rsa:2048", TLS1_2_VERSION, "RSA-PSS+SHA256",
     "TLSv1.2, " + cipher_12 + ", RSASSA-PSS with SHA256", "TLSv1.2, " + cipher_12,
     "TLS1.2, AES-256-GCM, RSA-PSS-RSAE-SHA256"},
    {"RsaPssOverTls13", "rsa:2048", TLS1_3_VERSION, "RSA-PSS+SHA256",
     "TLSv1.3, " + cipher_13 + ", RSASSA-PSS with SHA256", "TLSv1.3, " + cipher_13,
     "TLS1.3, AES-256-GCM, RSA-PSS-RSAE-SHA256"},
    {"Rsa3072PssWithSha384OverTls13", "rsa:3072", TLS1_3_VERSION, "RSA-PSS+SHA384",
     "TLSv1.3, " + cipher_13 + ", RSASSA-PSS with SHA384", "TLSv1.3, " + cipher_13,
     "TLS1.3, AES-256-GCM, RSA-PSS-RSAE-SHA384"},
    {"EcdsaP256OverTls12", "ec:P-256", TLS1_2_VERSION, "ECDSA+SHA256",
     "TLSv1.2, " + cipher_12 + ", id-ecPublicKey with SHA256", "TLSv1.2, " + cipher_12,
     "TLS1.2, AES-256-GCM, ECDSA-SHA256"},
    {"EcdsaP256OverTls13", "ec:P-256", TLS1_3_VERSION, "ECDSA+SHA256",
     "TLSv1.3, " + cipher_13 + ", id-ecPublicKey with SHA256", "TLSv1.3, " + cipher_13,
     "TLS1.3, AES-256-GCM, ECDSA-SECP256R1-SHA256"},
    {"EcdsaP384OverTls12", "ec:P-384", TLS1_2_VERSION, "ECDSA+SHA384",
     "TLSv1.2, " + cipher_12 + ", id-ecPublicKey with SHA384", "TLSv1.2, " + cipher_12,
     "TLS1.2, AES-256-GCM, ECDSA-SHA384"},
    {"EcdsaP384OverTls13", "ec:P-384", TLS1_3_VERSION, "ECDSA+SHA384",
     "TLSv1.3, " + cipher_13 + ", id-ecPublicKey with SHA384", "TLSv1.3, " + cipher_13,
     "TLS1.3, AES-256-GCM, ECDSA-SECP384R1-SHA384"},
};

LoginOptions options_for(const Card& card, const Server& server, int protocol,
                         const std::string& signatures) {
    LoginOptions options;
    options.port = server.port();
    options.protocol = protocol;
    options.ca_file = card.ca_file();
    options.signatures = signatures;
    return options;
}

class LoginTest : public testing::TestWithParam<Scenario> {
protected:
    /// Logs in once and checks both participants' views.
    void check(const std::string& maker, const std::string& expected_report) {
        const Scenario& scenario = GetParam();
        const Card card(scenario.key_type, "/" + subject);
        const auto server = create_server(maker, card.server_setup());
        const LoadedKey loaded(card);
        LoginOptions options = options_for(card, *server, scenario.protocol, scenario.signatures);
        options.key = loaded.key();
        options.cert = loaded.cert();
        const Login login = log_in(options);
        EXPECT_EQ(login.error, "");
        EXPECT_EQ(login.session, scenario.session);
        EXPECT_EQ(server->report(login.body), expected_report);
    }
};

TEST_P(LoginTest, NginxAcceptsTheCardAndReportsItsSubject) {
    check("nginx", GetParam().nginx_report + ", -, " + subject + ", SUCCESS");
}

TEST_P(LoginTest, GnutlsAcceptsTheCardAndReportsItsSubject) {
    check("gnutls", GetParam().gnutls_report + ", " + subject + ", " + trusted);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, LoginTest, testing::ValuesIn(scenarios),
                         [](const auto& scenario) { return scenario.param.name; });

/// Logins that the servers reject. nginx completes the handshake and reports the reason in its answer.
/// gnutls-serv aborts the handshake, which a TLS 1.3 client notices only at its first read.
class RefusedLoginTest : public testing::TestWithParam<int> {
protected:
    Login log_in_without_certificate(const std::string& maker) {
        const Card card("ec:P-256", "/" + subject);
        const auto server = create_server(maker, card.server_setup());
        return log_in(options_for(card, *server, GetParam(), "ECDSA+SHA256"));
    }

    Login log_in_with_expired_certificate(const std::string& maker) {
        const Card card("ec:P-256", "/" + subject, {"--expired"});
        const auto server = create_server(maker, card.server_setup());
        const LoadedKey loaded(card);
        LoginOptions options = options_for(card, *server, GetParam(), "ECDSA+SHA256");
        options.key = loaded.key();
        options.cert = loaded.cert();
        return log_in(options);
    }

    static bool is_tls12() { return GetParam() == TLS1_2_VERSION; }
};

TEST_P(RefusedLoginTest, NginxReportsAMissingCertificate) {
    const Login login = log_in_without_certificate("nginx");
    EXPECT_NE(login.body.find("<center>No required SSL certificate was sent</center>"), std::string::npos)
        << login.body << login.error;
}

TEST_P(RefusedLoginTest, GnutlsAbortsTheHandshakeForAMissingCertificate) {
    const Login login = log_in_without_certificate("gnutls");
    EXPECT_EQ(login.body, "");
    EXPECT_EQ(login.error, is_tls12() ? "tlsv1 alert decode error" : "tlsv13 alert certificate required");
}

TEST_P(RefusedLoginTest, NginxRejectsAnExpiredCertificate) {
    const Login login = log_in_with_expired_certificate("nginx");
    EXPECT_NE(login.body.find("<center>The SSL certificate error</center>"), std::string::npos)
        << login.body << login.error;
}

TEST_P(RefusedLoginTest, GnutlsAbortsTheHandshakeForAnExpiredCertificate) {
    const Login login = log_in_with_expired_certificate("gnutls");
    EXPECT_EQ(login.body, "");
    EXPECT_EQ(login.error, "tlsv1 alert access denied");
}

INSTANTIATE_TEST_SUITE_P(Protocols, RefusedLoginTest, testing::Values(TLS1_2_VERSION, TLS1_3_VERSION),
                         [](const auto& version) {
                             return version.param == TLS1_2_VERSION ? "Tls12" : "Tls13";
                         });

} // namespace
} // namespace Kes::test
