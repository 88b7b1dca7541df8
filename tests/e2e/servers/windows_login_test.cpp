#include <gtest/gtest.h>

#include "server.h"
#include "support/error_lines.h"
#include "support/terminal.h"
#include "support/test_card.h"
#include "windows_program.h"

// Windows programs under Wine log in at native servers.
namespace Kes::test {
namespace {

struct Scenario {
    std::string name;
    std::string key; ///< its number on the card
    std::string protocol;
    std::string session; ///< the client's output about it, without the signature
    std::string nginx_signature;
    std::string nginx_report;
    std::string gnutls_signature; ///< the servers prefer different signatures
    std::string gnutls_report;
};

void PrintTo(const Scenario& scenario, std::ostream* stream) { *stream << scenario.name; }

std::string session(const std::string& key, const std::string& protocol, const std::string& cipher) {
    return "key: " + key + "\nprotocol: TLSv" + protocol + "\ncipher: " + cipher + "\n";
}

const std::string cipher_12 = "ECDHE-ECDSA-AES256-GCM-SHA384";
const std::string cipher_13 = "TLS_AES_256_GCM_SHA384";
const std::string rita = "CN=Rita RSA,O=Test Makers,C=AT";
const std::string erik = "CN=Erik EC,O=Test Makers,C=AT";
const std::string trusted = ", The certificate is trusted. ";

const std::vector<Scenario> scenarios = {
    {"RsaOverTls12", "0", "1.2", session("RSA 2048", "1.2", cipher_12), "RSASSA-PSS",
     "TLSv1.2, " + cipher_12 + ", -, " + rita + ", SUCCESS", "rsaEncryption",
     "TLS1.2, AES-256-GCM, RSA-SHA256, " + rita + trusted},
    {"RsaOverTls13", "0", "1.3", session("RSA 2048", "1.3", cipher_13), "RSASSA-PSS",
     "TLSv1.3, " + cipher_13 + ", -, " + rita + ", SUCCESS", "RSASSA-PSS",
     "TLS1.3, AES-256-GCM, RSA-PSS-RSAE-SHA256, " + rita + trusted},
    {"EcdsaOverTls12", "1", "1.2", session("EC 256", "1.2", cipher_12), "ECDSA",
     "TLSv1.2, " + cipher_12 + ", -, " + erik + ", SUCCESS", "ECDSA",
     "TLS1.2, AES-256-GCM, ECDSA-SHA256, " + erik + trusted},
    {"EcdsaOverTls13", "1", "1.3", session("EC 256", "1.3", cipher_13), "ECDSA",
     "TLSv1.3, " + cipher_13 + ", -, " + erik + ", SUCCESS", "ECDSA",
     "TLS1.3, AES-256-GCM, ECDSA-SECP256R1-SHA256, " + erik + trusted},
};

const std::string keys_on_card = "key 0: Card 1: Login\nkey 1: Card 1: Curve\n";

/// The Windows programs find the test doubles in their working directory. The fixture fails the test if they
/// leak something or violate the rules of a test double.
class WindowsLoginTest : public testing::TestWithParam<Scenario> {
protected:
    WindowsLoginTest() {
        card_.add("01", "ckp", "rsa", "Login");
        card_.add("02", "ckp", "ec", "Curve");
        run_program({SOFT_TOKEN_PROGRAM, "server", dir_.path().string()});
    }

    void TearDown() override {
        EXPECT_EQ(card_.violations(), Lines());
        EXPECT_EQ(card_.unbalanced(), Lines());
    }

    /// Starts a server that trusts the card's CA.
    std::unique_ptr<Server> start_server(const std::string& maker) const {
        ServerSetup setup(dir_.path());
        setup.client_ca_file = MARVO_CARD_FILES "/ca.crt";
        return create_server(maker, setup);
    }

    static Lines command(const std::string& program, const Lines& arguments) {
        return windows_command(MARVO_DOUBLES, program, arguments);
    }

    /// Runs the client with the PIN as its standard input.
    /// @return its exit status
    int run_client(const std::string& pin, const Lines& arguments) {
        const Outcome outcome = run_with_input(command("tls_client", arguments), pin + '\n');
        output_ = without_carriage_returns(outcome.output);
        return outcome.status;
    }

    int log_in(const Server& server, const std::string& key, const std::string& protocol) {
        return run_client(card_pin, {key, "127.0.0.1", std::to_string(server.port()), protocol, "-"});
    }

    static std::string expected_session(const std::string& signature) {
        return keys_on_card + GetParam().session + "signature: " + signature + " with SHA256\n";
    }

    TestCard card_;
    TempDir dir_;
    EnvVar ca_{"SSL_CERT_FILE", "Z:" + dir_.file("ca.crt")};
    EnvVar log_{"ossl_scard_cfg_logfile", "Z:" + dir_.file("client.log")};
    std::string output_;
};

TEST_P(WindowsLoginTest, NginxAcceptsTheCardAndReportsItsSubject) {
    const auto server = start_server("nginx");
    EXPECT_EQ(log_in(*server, GetParam().key, GetParam().protocol), 0);
    EXPECT_EQ(before_answer(output_), expected_session(GetParam().nginx_signature));
    EXPECT_EQ(server->report(body_of(output_)), GetParam().nginx_report + "\n");
}

TEST_P(WindowsLoginTest, GnutlsAcceptsTheCardAndReportsItsSubject) {
    const auto server = start_server("gnutls");
    EXPECT_EQ(log_in(*server, GetParam().key, GetParam().protocol), 0);
    EXPECT_EQ(before_answer(output_), expected_session(GetParam().gnutls_signature));
    EXPECT_EQ(server->report(body_of(output_)), GetParam().gnutls_report);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, WindowsLoginTest, testing::ValuesIn(scenarios),
                         [](const auto& scenario) { return scenario.param.name; });

class WindowsLoginRefusedTest : public WindowsLoginTest {
protected:
    /// Starts a server that trusts only its own CA.
    std::unique_ptr<Server> start_server_with_other_ca(const std::string& maker) const {
        return create_server(maker, ServerSetup(dir_.path()));
    }

    /// Ignores what OpenSSL adds to the client's message. It is not predictable: the system discards the
    /// server's last alert if the client has written data that the server has not read.
    void expect_refusal(Server& server, const std::string& error) {
        const std::string expected = keys_on_card + "key: RSA 2048\n" + error;
        EXPECT_EQ(output_.substr(0, expected.size()), expected);
        const std::string server_log = server.stop_and_get_log();
        EXPECT_TRUE(server_log.ends_with("Error in handshake: Error in the certificate.\n" +
                                         std::string("Exiting via signal 15\n")))
            << server_log;
    }
};

TEST_F(WindowsLoginRefusedTest, NginxRejectsTheCertificateOfAnUnknownCa) {
    const auto server = start_server_with_other_ca("nginx");
    EXPECT_EQ(log_in(*server, "0", "1.3"), 0);
    EXPECT_NE(body_of(output_).find("<center>The SSL certificate error</center>"), std::string::npos)
        << output_;
}

TEST_F(WindowsLoginRefusedTest, GnutlsAbortsTheTls12HandshakeForACertificateOfAnUnknownCa) {
    const auto server = start_server_with_other_ca("gnutls");
    EXPECT_EQ(log_in(*server, "0", "1.2"), 1);
    expect_refusal(*server, "tls_client: no TLS connection\n");
}

TEST_F(WindowsLoginRefusedTest, GnutlsAbortsTheTls13HandshakeForACertificateOfAnUnknownCa) {
    const auto server = start_server_with_other_ca("gnutls");
    EXPECT_EQ(log_in(*server, "0", "1.3"), 1);
    expect_refusal(*server, "tls_client: the server does not answer\n");
}

TEST_F(WindowsLoginRefusedTest, ClientRejectsAServerOfAnUnknownCa) {
    const auto server = start_server("nginx");
    const EnvVar other_ca("SSL_CERT_FILE", "Z:" MARVO_CARD_FILES "/ca.crt");
    EXPECT_EQ(log_in(*server, "0", "1.3"), 1);
    EXPECT_EQ(masked_errors(output_), keys_on_card + "key: RSA 2048\ntls_client: no TLS connection\n" +
                                          "error:SSL routines:certificate verify failed:\n");
}

TEST_F(WindowsLoginRefusedTest, CardRejectsAWrongPin) {
    EXPECT_EQ(run_client("000000", {"-"}), 1);
    EXPECT_EQ(masked_errors(output_),
              "tls_client: libp11_helper:190 Kes::Libp11Init::authenticate(): PKCS11_login() failed: rc=-1\n"
              "error:PKCS#11 module:PIN incorrect:PKCS11_login\n");
}

/// Clients that ask their user; the user's keys come from a pseudo-terminal.
class WindowsConsoleLoginTest : public WindowsLoginTest {
protected:
    WindowsConsoleLoginTest() { terminal_.pass_all_keys(); }

    /// @return the exit status
    int finish() {
        output_ = without_carriage_returns(output_ + terminal_.read_to_end());
        return terminal_.wait();
    }

    Terminal terminal_;
};

TEST_F(WindowsConsoleLoginTest, PinCanBeTypedAtThePrompt) {
    terminal_.start_with_pipe(command("tls_client", {}));
    terminal_.type(card_pin + std::string("\r"));
    EXPECT_EQ(finish(), 0);
    EXPECT_EQ(output_, keys_on_card);
}

TEST_F(WindowsConsoleLoginTest, SelectedKeyHasItsCertificateShown) {
    terminal_.start_with_pipe(command("interactive_client", {}));
    output_ = terminal_.read_until("  => ");
    terminal_.type("p" + std::string(card_pin) + "\r");
    output_ += terminal_.read_until("  => ");
    terminal_.type("1");
    EXPECT_EQ(finish(), 0);
    EXPECT_EQ(output_, menu_of_backends +
                           "p\n"
                           "\n"
                           "Please select from available keys:\n"
                           "   ( 0 ) ... Card 1: Login\n"
                           "   ( 1 ) ... Card 1: Curve\n"
                           "   ( . ) ... exit\n"
                           "  => 1\n"
                           "subject: CN=Erik EC,O=Test Makers,C=AT\n"
                           "issuer:  CN=Test CA,O=Test Makers,C=AT\n" +
                           read_file(MARVO_CARD_FILES "/ec.crt"));
}

} // namespace
} // namespace Kes::test
