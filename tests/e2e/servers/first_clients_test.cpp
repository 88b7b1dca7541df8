// The clients from which others start: the README's, and the examples in C, C++ and with libcurl.
#include "examples_fixture.h"

namespace Kes::test {
namespace {

class FirstClientsTest : public ExamplesTest {
protected:
    /// Runs a client with the PIN of the card.
    /// @return its exit code
    int run(const std::vector<std::string>& command, const std::string& pin) {
        Terminal terminal;
        terminal.start(command);
        transcript_ = terminal.read_until("PIN: ");
        terminal.wait_until_echo_is_off();
        terminal.type(pin + "\n");
        transcript_ += terminal.read_to_end();
        return terminal.wait();
    }

    /// Runs each of the clients that take a host and a port.
    /// @param expected  what each of them must show, with its name in place of NAME
    void expect_of_all(int port, const std::string& pin, int status, const std::string& expected) {
        const std::string url = "https://127.0.0.1:" + std::to_string(port) + "/";
        for (const auto& [name, command] : std::vector<std::pair<std::string, std::vector<std::string>>>{
                 {"login_c", {LOGIN_C_PROGRAM, "127.0.0.1", std::to_string(port)}},
                 {"login_cxx", {LOGIN_CXX_PROGRAM, "127.0.0.1", std::to_string(port)}},
                 {"login_curl", {LOGIN_CURL_PROGRAM, url}}}) {
            SCOPED_TRACE(name);
            EXPECT_EQ(run(command, pin), status);
            std::string text = expected;
            if (const auto place = text.find("NAME"); place != std::string::npos)
                text.replace(place, 4, name);
            EXPECT_TRUE(has_shown(text));
            EXPECT_FALSE(has_shown(pin));
        }
    }

    /// Logs in at a name and at an address, and compares what the server has received as its name.
    void expect_server_names(const std::string& program) {
        const auto server = create_server("nginx", card_.server_setup());
        const std::string port = std::to_string(server->port());
        EXPECT_EQ(run({program, "localhost", port}, card_.pin()), 0);
        EXPECT_TRUE(has_shown("Server-Name: [localhost]\r"));
        EXPECT_EQ(run({program, "127.0.0.1", port}, card_.pin()), 0);
        EXPECT_TRUE(has_shown("Server-Name: []\r"));
    }

    /// Runs the README's client with another card than the fixture's.
    int run_readme_client(const Card& card) { return run({README_CLIENT_PROGRAM}, card.pin()); }

    EnvVar curl_ca_{"CURL_CA_BUNDLE", card_.ca_file()};
    EnvVar no_proxy_{"no_proxy", "127.0.0.1"};
};

TEST_F(FirstClientsTest, ClientsLogIn) {
    const auto server = create_server("nginx", card_.server_setup());
    expect_of_all(server->port(), card_.pin(), 0,
                  "TLSv1.3, TLS_AES_256_GCM_SHA384, -, CN=Mary Ross, SUCCESS");
}

TEST_F(FirstClientsTest, ClientsLogInOverTls12) {
    ServerSetup setup = card_.server_setup();
    setup.has_tls_13 = false;
    const auto server = create_server("nginx", setup);
    expect_of_all(server->port(), card_.pin(), 0, "CN=Mary Ross, SUCCESS");
}

TEST_F(FirstClientsTest, ClientInCSendsTheServersNameUnlessItIsAnAddress) {
    expect_server_names(LOGIN_C_PROGRAM);
}

TEST_F(FirstClientsTest, ClientInCxxSendsTheServersNameUnlessItIsAnAddress) {
    expect_server_names(LOGIN_CXX_PROGRAM);
}

TEST_F(FirstClientsTest, ClientsReportAWrongPin) {
    expect_of_all(1, "000000", 1, "NAME: libp11_helper:");
    EXPECT_TRUE(has_shown("PIN incorrect"));
}

TEST_F(FirstClientsTest, ClientInCSelectsAKeyByItsId) {
    const auto server = create_server("nginx", card_.server_setup());
    const std::string port = std::to_string(server->port());
    EXPECT_EQ(run({LOGIN_C_PROGRAM, "127.0.0.1", port, "0", "%01"}, card_.pin()), 0);
    EXPECT_TRUE(has_shown("CN=Mary Ross, SUCCESS"));
    EXPECT_EQ(run({LOGIN_C_PROGRAM, "127.0.0.1", port, "0", "%02"}, card_.pin()), 1);
    EXPECT_TRUE(has_shown("login_c: ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified key not "
                          "found: val=8 (not_found)\r\n"));
}

TEST_F(FirstClientsTest, ClientInCxxShowsNameTypeAndIdAndSelectsAKeyByItsName) {
    const auto server = create_server("nginx", card_.server_setup());
    const std::string port = std::to_string(server->port());
    EXPECT_EQ(run({LOGIN_CXX_PROGRAM, "127.0.0.1", port, "log"}, card_.pin()), 0);
    EXPECT_TRUE(has_shown("key: card: login, type 0, id %01\r\ncertificate: CN=Mary Ross\r\n"));
    EXPECT_EQ(run({LOGIN_CXX_PROGRAM, "127.0.0.1", port, "other"}, card_.pin()), 1);
    EXPECT_TRUE(has_shown("login_cxx: there is no such key\r\n"));
}

TEST_F(FirstClientsTest, ClientsRejectAServerOfAnotherCa) {
    const Card other_card("ec:P-256", "/CN=Somebody else");
    const auto server = create_server("nginx", other_card.server_setup());
    const EnvVar own_token("SOFTHSM2_CONF", card_.file("softhsm2.conf"));
    const std::string port = std::to_string(server->port());
    EXPECT_EQ(run({LOGIN_C_PROGRAM, "127.0.0.1", port}, card_.pin()), 1);
    EXPECT_TRUE(has_shown("login_c: no TLS connection\r\n"));
    EXPECT_TRUE(has_shown("certificate verify failed"));
    EXPECT_EQ(run({LOGIN_CXX_PROGRAM, "127.0.0.1", port}, card_.pin()), 1);
    EXPECT_TRUE(has_shown("login_cxx: no TLS connection\r\n"));
    EXPECT_EQ(run({LOGIN_CURL_PROGRAM, "https://127.0.0.1:" + port + "/"}, card_.pin()), 1);
    EXPECT_TRUE(has_shown("login_curl: SSL certificate problem: unable to get local issuer certificate"));
}

TEST_F(FirstClientsTest, ClientsReportALogThatCannotBeOpenedAndLogIn) {
    const EnvVar log("ossl_scard_cfg_logfile", card_.file("absent/client.log"));
    const auto server = create_server("nginx", card_.server_setup());
    expect_of_all(server->port(), card_.pin(), 0,
                  "error opening logfile '" + card_.file("absent/client.log"));
    EXPECT_TRUE(has_shown("CN=Mary Ross, SUCCESS"));
}

TEST_F(FirstClientsTest, ClientsRejectAnExpiredCertificate) {
    const Card card("ec:P-256", "/CN=Mary Ross", {"--expired"});
    EXPECT_EQ(run({LOGIN_C_PROGRAM, "127.0.0.1", "1"}, card.pin()), 1);
    EXPECT_TRUE(has_shown("login_c: the certificate has expired\r\n"));
    EXPECT_EQ(run({LOGIN_CXX_PROGRAM, "127.0.0.1", "1"}, card.pin()), 1);
    EXPECT_TRUE(has_shown("login_cxx: the certificate has expired or is not valid yet\r\n"));
    EXPECT_EQ(run({LOGIN_CURL_PROGRAM, "https://127.0.0.1:1/"}, card.pin()), 1);
    EXPECT_TRUE(has_shown("login_curl: the certificate has expired or is not valid yet\r\n"));
}

TEST_F(FirstClientsTest, ClientsRejectACertificateForServers) {
    const Card card("ec:P-256", "/CN=Mary Ross", {"--eku", "serverAuth"});
    expect_of_all(1, card.pin(), 1, "NAME: the certificate is not meant for TLS clients\r\n");
}

TEST_F(FirstClientsTest, ClientsShowTheirUsageAndAskForNoPin) {
    EXPECT_EQ(run_to_end({LOGIN_C_PROGRAM}), 2);
    EXPECT_EQ(transcript_.find("usage: login_c HOST PORT [TYPE ID]\r\n"), 0U) << transcript_;
    EXPECT_EQ(run_to_end({LOGIN_CXX_PROGRAM}), 2);
    EXPECT_EQ(transcript_.find("usage: login_cxx HOST PORT [KEY]\r\n"), 0U) << transcript_;
    EXPECT_EQ(run_to_end({LOGIN_CURL_PROGRAM}), 2);
    EXPECT_EQ(transcript_, "usage: login_curl URL\r\n");
}

TEST_F(FirstClientsTest, ClientsEndWhenThePinPromptIsInterrupted) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> clients = {
        {"login_c: no PIN was given\r\n", {LOGIN_C_PROGRAM, "127.0.0.1", "1"}},
        {"login_cxx: the PIN is empty\r\n", {LOGIN_CXX_PROGRAM, "127.0.0.1", "1"}},
        {"login_curl: the PIN is empty\r\n", {LOGIN_CURL_PROGRAM, "https://127.0.0.1:1/"}}};
    for (const auto& [expected, command] : clients) {
        Terminal terminal;
        terminal.start(command);
        transcript_ = terminal.read_until("PIN: ");
        terminal.wait_until_echo_is_off();
        terminal.type("\x03"); // CTRL-C
        transcript_ += terminal.read_to_end();
        EXPECT_EQ(terminal.wait(), 1);
        EXPECT_TRUE(has_shown(expected));
    }
}

TEST_F(FirstClientsTest, ReadmeClientLoadsTheKey) {
    EXPECT_EQ(run_readme_client(card_), 0);
    EXPECT_TRUE(has_shown("ready to log in as CN=Mary Ross\r\n"));
}

TEST_F(FirstClientsTest, ReadmeClientContinuesWhenTheLogCannotBeOpened) {
    const EnvVar log("ossl_scard_cfg_logfile", card_.file("absent/client.log"));
    EXPECT_EQ(run_readme_client(card_), 0);
    EXPECT_TRUE(has_shown("error opening logfile '" + card_.file("absent/client.log") + "'"));
    EXPECT_TRUE(has_shown("ready to log in as CN=Mary Ross\r\n"));
}

TEST_F(FirstClientsTest, ReadmeClientRejectsAnExpiredCertificate) {
    const Card card("ec:P-256", "/CN=Mary Ross", {"--expired"});
    EXPECT_EQ(run_readme_client(card), 1);
    EXPECT_TRUE(has_shown("the certificate has expired or is not valid yet\r\n"));
}

TEST_F(FirstClientsTest, ReadmeClientRejectsACertificateForServers) {
    const Card card("ec:P-256", "/CN=Mary Ross", {"--eku", "serverAuth"});
    EXPECT_EQ(run_readme_client(card), 1);
    EXPECT_TRUE(has_shown("the certificate is not for TLS clients\r\n"));
}

} // namespace
} // namespace Kes::test
