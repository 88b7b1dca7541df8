#include <fstream>

#include "examples_fixture.h"

namespace Kes::test {
namespace {

TEST_F(ExamplesTest, TlsClientListsTheKeysAndDoesNotShowThePin) {
    terminal_.start({TLS_CLIENT_PROGRAM});
    type_pin(card_.pin());
    EXPECT_EQ(finish(), 0);
    EXPECT_TRUE(has_shown("key 0: card: login\r\n"));
    EXPECT_FALSE(has_shown(card_.pin()));
}

TEST_F(ExamplesTest, TlsClientReadsThePinFromStandardInputOnRequest) {
    std::ofstream(card_.file("pin")) << card_.pin() << "\n";
    EXPECT_EQ(run_program({"/bin/sh", "-c", R"(exec "$0" - <"$1")", TLS_CLIENT_PROGRAM, card_.file("pin")}),
              "key 0: card: login\n");
}

TEST_F(ExamplesTest, TlsClientLogsInAndShowsTheServersAnswer) {
    const auto server = create_server("nginx", card_.server_setup());
    terminal_.start({TLS_CLIENT_PROGRAM, "0", "127.0.0.1", std::to_string(server->port()), "1.3"});
    type_pin(card_.pin());
    EXPECT_EQ(finish(), 0);
    EXPECT_TRUE(has_shown("key: EC 256\r\nprotocol: TLSv1.3\r\ncipher: TLS_AES_256_GCM_SHA384\r\n"
                          "signature: ECDSA with SHA256\r\nanswer: HTTP/1.1 200 OK"));
    EXPECT_TRUE(has_shown("TLSv1.3, TLS_AES_256_GCM_SHA384, -, CN=Mary Ross, SUCCESS"));
}

TEST_F(ExamplesTest, TlsClientSelectsTheKeyByItsId) {
    const auto server = create_server("nginx", card_.server_setup());
    terminal_.start({TLS_CLIENT_PROGRAM, "0:%01", "127.0.0.1", std::to_string(server->port()), "1.2"});
    type_pin(card_.pin());
    EXPECT_EQ(finish(), 0);
    EXPECT_TRUE(has_shown("CN=Mary Ross, SUCCESS"));
}

TEST_F(ExamplesTest, TlsClientSendsTheServersName) {
    const auto server = create_server("nginx", card_.server_setup());
    terminal_.start({TLS_CLIENT_PROGRAM, "0", "localhost", std::to_string(server->port()), "1.2"});
    type_pin(card_.pin());
    EXPECT_EQ(finish(), 0);
    EXPECT_TRUE(has_shown("Server-Name: [localhost]\r\n"));
}

TEST_F(ExamplesTest, TlsClientSendsNoServerNameForAnAddress) {
    const auto server = create_server("nginx", card_.server_setup());
    terminal_.start({TLS_CLIENT_PROGRAM, "0", "127.0.0.1", std::to_string(server->port()), "1.2"});
    type_pin(card_.pin());
    EXPECT_EQ(finish(), 0);
    EXPECT_TRUE(has_shown("Server-Name: []\r\n"));
}

TEST_F(ExamplesTest, TlsClientReportsAnIdThatNoKeyHas) {
    EXPECT_EQ(check_key("0:%02"), 1);
    EXPECT_TRUE(has_shown("specified key not found: val=8 (not_found)\r\n"));
}

TEST_F(ExamplesTest, ClientsShowTheirUsageOnRequestAndAskForNoPin) {
    EXPECT_EQ(run_to_end({TLS_CLIENT_PROGRAM, "--help"}), 0);
    EXPECT_EQ(transcript_.find("usage: tls_client [KEY HOST PORT 1.2|1.3] [-]\r\n"), 0U) << transcript_;
    EXPECT_EQ(run_to_end({INTERACTIVE_CLIENT_PROGRAM, "--help"}), 0);
    EXPECT_EQ(transcript_, "usage: interactive_client\r\n");
}

TEST_F(ExamplesTest, ClientsShowTheirUsageForWrongArguments) {
    const std::vector<std::vector<std::string>> wrong = {{"first", "127.0.0.1", "1", "1.3"},
                                                         {"-1", "127.0.0.1", "1", "1.3"},
                                                         {"1x", "127.0.0.1", "1", "1.3"},
                                                         {"99999999999", "127.0.0.1", "1", "1.3"},
                                                         {"", "127.0.0.1", "1", "1.3"},
                                                         {"0", "127.0.0.1", "1", "1.1"},
                                                         {"0", "", "1", "1.3"},
                                                         {"0", "127.0.0.1", "1"},
                                                         {"0"}};
    for (std::vector<std::string> arguments : wrong) {
        arguments.insert(arguments.begin(), TLS_CLIENT_PROGRAM);
        EXPECT_EQ(run_to_end(arguments), 2);
        EXPECT_EQ(transcript_.find("usage: tls_client [KEY HOST PORT 1.2|1.3] [-]\r\n"), 0U) << transcript_;
    }
    EXPECT_EQ(run_to_end({INTERACTIVE_CLIENT_PROGRAM, "pkcs11"}), 2);
    EXPECT_EQ(transcript_, "usage: interactive_client\r\n");
}

TEST_F(ExamplesTest, TlsClientContinuesWhenTheLogCannotBeOpened) {
    const EnvVar log("ossl_scard_cfg_logfile", card_.file("absent/client.log"));
    terminal_.start({TLS_CLIENT_PROGRAM});
    type_pin(card_.pin());
    EXPECT_EQ(finish(), 0);
    EXPECT_TRUE(has_shown("error opening logfile '" + card_.file("absent/client.log") + "'"));
    EXPECT_TRUE(has_shown("key 0: card: login\r\n"));
}

TEST_F(ExamplesTest, TlsClientShowsBothMessagesWhenTheModuleCannotBeLoaded) {
    const EnvVar module("ossl_scard_cfg_pkcs11_module_dll", card_.file("absent.so"));
    EXPECT_EQ(run_to_end({TLS_CLIENT_PROGRAM}), 1);
    EXPECT_TRUE(has_shown("PKCS11_CTX_load() failed to load PKCS#11 library"));
    EXPECT_TRUE(has_shown("tls_client: operation not allowed in current state (cfg_state=uninitialized)"));
}

TEST_F(ExamplesTest, TlsClientRejectsAnExpiredCertificate) {
    const Card card("ec:P-256", "/CN=Mary Ross", {"--expired"});
    EXPECT_EQ(check_key("0"), 1);
    EXPECT_TRUE(has_shown("tls_client: the certificate has expired\r\n"));
}

TEST_F(ExamplesTest, TlsClientRejectsACertificateThatIsNotValidYet) {
    const Card card("ec:P-256", "/CN=Mary Ross", {"--future"});
    EXPECT_EQ(check_key("0"), 1);
    EXPECT_TRUE(has_shown("tls_client: the certificate is not valid yet\r\n"));
}

TEST_F(ExamplesTest, TlsClientRejectsACertificateForServers) {
    const Card card("ec:P-256", "/CN=Mary Ross", {"--eku", "serverAuth"});
    EXPECT_EQ(check_key("0"), 1);
    EXPECT_TRUE(has_shown("tls_client: the certificate is not meant for TLS clients\r\n"));
}

TEST_F(ExamplesTest, TlsClientRejectsAServerOfAnotherCa) {
    const Card other_card("ec:P-256", "/CN=Somebody else");
    const auto server = create_server("nginx", other_card.server_setup());
    const EnvVar own_token("SOFTHSM2_CONF", card_.file("softhsm2.conf"));
    terminal_.start({TLS_CLIENT_PROGRAM, "0", "127.0.0.1", std::to_string(server->port()), "1.3"});
    type_pin(card_.pin());
    EXPECT_EQ(finish(), 1);
    EXPECT_TRUE(has_shown("tls_client: no TLS connection\r\n"));
    EXPECT_TRUE(has_shown("certificate verify failed"));
}

TEST_F(ExamplesTest, TlsClientReportsAWrongPin) {
    terminal_.start({TLS_CLIENT_PROGRAM});
    type_pin("000000");
    EXPECT_EQ(finish(), 1);
    EXPECT_TRUE(has_shown("tls_client: libp11_helper:"));
    EXPECT_TRUE(has_shown("PIN incorrect"));
}

TEST_F(ExamplesTest, TlsClientExitsWhenThePinPromptIsInterrupted) {
    terminal_.start({TLS_CLIENT_PROGRAM});
    interrupt_at_pin();
    EXPECT_EQ(finish(), 1);
    EXPECT_TRUE(has_shown("tls_client: no PIN was given\r\n"));
}

TEST_F(ExamplesTest, InteractiveClientExitsWhenThePinPromptIsInterrupted) {
    terminal_.start({INTERACTIVE_CLIENT_PROGRAM});
    transcript_ += terminal_.read_until("  => ");
    terminal_.type("p");
    interrupt_at_pin();
    EXPECT_EQ(finish(), 1);
    EXPECT_TRUE(has_shown("interactive_client: no PIN was given\r\n"));
}

TEST_F(ExamplesTest, InteractiveClientShowsTheCertificateOfTheSelectedKey) {
    terminal_.start({INTERACTIVE_CLIENT_PROGRAM});
    transcript_ += terminal_.read_until("  => ");
    terminal_.type("p");
    type_pin(card_.pin());
    transcript_ += terminal_.read_until("  => ");
    terminal_.type("0");
    EXPECT_EQ(finish(), 0);
    EXPECT_TRUE(has_shown("subject: CN=Mary Ross\r\nissuer:  CN=Soft token CA,O=Throw-away\r\n"
                          "-----BEGIN CERTIFICATE-----\r\n"));
    EXPECT_FALSE(has_shown(card_.pin()));
}

TEST_F(ExamplesTest, InteractiveClientRejectsAnExpiredCertificate) {
    const Card card("ec:P-256", "/CN=Mary Ross", {"--expired"});
    terminal_.start({INTERACTIVE_CLIENT_PROGRAM});
    transcript_ += terminal_.read_until("  => ");
    terminal_.type("p");
    type_pin(card_.pin());
    transcript_ += terminal_.read_until("  => ");
    terminal_.type("0");
    EXPECT_EQ(finish(), 1);
    EXPECT_TRUE(has_shown("interactive_client: the certificate has expired\r\n"));
}

TEST_F(ExamplesTest, InteractiveClientReportsThatTheUserSelectedNoKey) {
    terminal_.start({INTERACTIVE_CLIENT_PROGRAM});
    transcript_ += terminal_.read_until("  => ");
    terminal_.type("p");
    type_pin(card_.pin());
    transcript_ += terminal_.read_until("  => ");
    terminal_.type(".");
    EXPECT_EQ(finish(), 1);
    EXPECT_TRUE(has_shown("user abort"));
}

} // namespace
} // namespace Kes::test
