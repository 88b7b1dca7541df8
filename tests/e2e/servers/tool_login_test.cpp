// The command "marvo login" at real servers.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "card.h"
#include "server.h"
#include "tool/json_schema.h"
#include "tool/tool_run.h"

namespace Kes::test {
namespace {

class ToolLoginTest : public testing::Test {
protected:
    /// Runs the command with the card's only key and the CA of the card's server.
    ToolRun log_in(const Card& card, const std::string& server,
                   const std::vector<std::string>& options = {}) const {
        const EnvVar pin("MARVO_TEST_PIN", card.pin());
        std::vector<std::string> arguments{"login",     server,
                                           "--backend", "pkcs11",
                                           "--module",  soft_token({"module"}),
                                           "--engine",  soft_token({"engine"}),
                                           "--pin-env", "MARVO_TEST_PIN"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return run_tool(arguments);
    }

    static std::string address(const Server& server) { return "localhost:" + std::to_string(server.port()); }
};

TEST_F(ToolLoginTest, NginxAcceptsTheKeyWithBothVersions) {
    const Card card("rsa:2048", "/CN=Ada Lovelace");
    const auto server = create_server("nginx", card.server_setup());
    for (const char* version : {"1.2", "1.3"}) {
        const ToolRun run =
            log_in(card, address(*server), {"--json", "--tls", version, "--ca", card.ca_file()});
        EXPECT_EQ(run.status, 0) << run.output << run.errors;
        const auto json = run.json();
        EXPECT_TRUE(json["success"]);
        EXPECT_EQ(json["verdict"], "succeeded");
        EXPECT_EQ(json["protocol"], std::string("TLSv") + version);
        EXPECT_EQ(json["signature"], "RSA-PSS with SHA256");
        EXPECT_EQ(json["request"]["authorities"], nlohmann::json({"CN=Soft token CA,O=Throw-away"}));
        EXPECT_TRUE(json["request"]["names_issuer"]);
        EXPECT_EQ(json["misfits"], nlohmann::json::array());
        EXPECT_EQ(json["alert"], nullptr);
        EXPECT_EQ(json["answer"][0], "HTTP/1.1 200 OK");
        EXPECT_EQ(schema_violations("login", run.output), "");
    }
}

TEST_F(ToolLoginTest, TextShowsTheSameFacts) {
    const Card card("ec:P-256", "/CN=Ada Lovelace");
    const auto server = create_server("nginx", card.server_setup());
    const ToolRun run = log_in(card, address(*server), {"--tls", "1.3", "--ca", card.ca_file()});
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_TRUE(run.output.starts_with("server: " + address(*server) +
                                       "\nkey: card: login (EC 256)\nprotocol: TLSv1.3\n"))
        << run.output;
    EXPECT_NE(
        run.output.find("\nsignature: ECDSA with SHA256\ncertificate: requested by the server\nauthorities: "
                        "CN=Soft token CA,O=Throw-away\nalgorithms: ecdsa_secp256r1_sha256, "),
        std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("\nfit: this key and its certificate fit\nanswer:\n  HTTP/1.1 200 OK\n"),
              std::string::npos)
        << run.output;
    EXPECT_TRUE(run.output.ends_with("\nlogin: succeeded\n")) << run.output;
    EXPECT_EQ(run.errors, "");
}

TEST_F(ToolLoginTest, ErrorPageOfNginxIsARefusal) {
    const Card card("rsa:2048", "/CN=Ada Lovelace", {"--expired"});
    const auto server = create_server("nginx", card.server_setup());
    const ToolRun run = log_in(card, address(*server), {"--json", "--ca", card.ca_file()});
    EXPECT_EQ(run.status, 1) << run.output << run.errors;
    EXPECT_FALSE(run.json()["success"]);
    EXPECT_EQ(run.json()["verdict"],
              "refused: the handshake succeeded, but the server answered with HTTP/1.1 400 Bad Request");
    EXPECT_EQ(schema_violations("login", run.output), "");
}

TEST_F(ToolLoginTest, AlertOfAnExpiredCertificateIsExplained) {
    const Card card("ec:P-256", "/CN=Ada Lovelace", {"--expired"});
    const auto server = create_server("openssl", card.server_setup());
    for (const char* version : {"1.2", "1.3"}) {
        const auto run = log_in(card, address(*server), {"--tls", version, "--ca", card.ca_file()});
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.output.find("\nmisfit: the certificate: expired "), std::string::npos) << run.output;
        EXPECT_NE(
            run.output.find("\nalert: certificate_expired from the server: the certificate has expired\n"
                            "remedy: renew the certificate, and check the clocks of server and client\n"
                            "login: failed: sslv3 alert certificate expired\n"),
            std::string::npos)
            << run.output << run.errors;
    }
}

TEST_F(ToolLoginTest, UnknownIssuerIsNamed) {
    const Card other("ec:P-256", "/CN=Somebody else");
    const Card card("ec:P-256", "/CN=Ada Lovelace");
    ServerSetup setup = card.server_setup();
    setup.client_ca_file = other.ca_file();
    const auto server = create_server("openssl", setup);
    const auto json = log_in(card, address(*server), {"--json", "--ca", card.ca_file()}).json();
    EXPECT_FALSE(json["success"]);
    EXPECT_EQ(json["alert"]["name"], "unknown_ca");
    EXPECT_EQ(json["alert"]["number"], 48);
    EXPECT_TRUE(json["alert"]["from_server"]);
}

TEST_F(ToolLoginTest, WrongUsageIsAMisfit) {
    const Card card("ec:P-256", "/CN=Ada Lovelace", {"--ku", "keyEncipherment", "--eku", "serverAuth"});
    const auto server = create_server("openssl", card.server_setup());
    const ToolRun run = log_in(card, address(*server), {"--json", "--ca", card.ca_file()});
    const auto json = run.json();
    EXPECT_EQ(schema_violations("login", run.output), "");
    EXPECT_EQ(json["alert"]["name"], "unsupported_certificate");
    ASSERT_EQ(json["misfits"].size(), 2U) << json;
    EXPECT_EQ(json["misfits"][0]["code"], "no_digital_signature");
    EXPECT_EQ(json["misfits"][1]["code"], "no_client_authentication");
}

TEST_F(ToolLoginTest, ServersCertificateIsChecked) {
    const Card other("ec:P-256", "/CN=Somebody else");
    const Card card("ec:P-256", "/CN=Ada Lovelace");
    const auto server = create_server("nginx", card.server_setup());
    const ToolRun untrusted = log_in(card, address(*server), {"--ca", other.ca_file()});
    EXPECT_EQ(untrusted.status, 1);
    EXPECT_NE(untrusted.output.find(
                  "\nalert: unknown_ca sent to the server: this program rejects the server's certificate\n"
                  "remedy: if the server is the right one, name its authorities with --ca\n"
                  "login: failed: the server's certificate is not trusted: unable to get local issuer "
                  "certificate\n"),
              std::string::npos)
        << untrusted.output;
    const ToolRun wrong_name =
        log_in(card, address(*server), {"--sni", "another.example", "--ca", card.ca_file()});
    EXPECT_NE(
        wrong_name.output.find(
            "\nalert: bad_certificate sent to the server: this program rejects the server's certificate\n"
            "remedy: use a name from the server's certificate in the address, or give it with --sni\n"
            "login: failed: the server's certificate is not trusted: hostname mismatch\n"),
        std::string::npos)
        << wrong_name.output;
    const auto json =
        log_in(card, address(*server), {"--json", "--sni", "another.example", "--ca", card.ca_file()}).json();
    EXPECT_FALSE(json["alert"]["from_server"]);
    EXPECT_EQ(json["alert"]["meaning"], "this program rejects the server's certificate");
    EXPECT_EQ(json["alert"]["remedy"],
              "use a name from the server's certificate in the address, or give it with --sni");
    EXPECT_EQ(log_in(card, address(*server), {"--insecure"}).status, 0);
    EXPECT_EQ(log_in(card, "127.0.0.1:" + std::to_string(server->port()), {"--ca", card.ca_file()}).status,
              0);
}

TEST_F(ToolLoginTest, GnutlsServerAnswers) {
    const Card card("rsa:2048", "/CN=Ada Lovelace");
    const auto server = create_server("gnutls", card.server_setup());
    const auto json = log_in(card, address(*server), {"--json", "--ca", card.ca_file()}).json();
    EXPECT_TRUE(json["success"]) << json;
    EXPECT_FALSE(json["answer"].empty());
}

TEST_F(ToolLoginTest, ClosedPortIsReported) {
    const Card card("ec:P-256", "/CN=Ada Lovelace");
    const auto server = create_server("openssl", card.server_setup());
    const std::string closed = address(*server);
    server->stop_and_get_log();
    const ToolRun run = log_in(card, closed, {});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(
        run.output.ends_with("\nlogin: failed: cannot connect to " + closed + ": Connection refused\n"))
        << run.output;
    const ToolRun with_json = log_in(card, closed, {"--json"});
    EXPECT_EQ(with_json.json()["request"], nullptr);
    EXPECT_EQ(schema_violations("login", with_json.output), "");
}

TEST_F(ToolLoginTest, AddressOfIpv6HasBrackets) {
    const Card card("ec:P-256", "/CN=Ada Lovelace");
    const ToolRun run = log_in(card, "[::1]:1");
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.output.starts_with("server: [::1]:1\nkey: ")) << run.output << run.errors;
    EXPECT_NE(run.output.find("\nlogin: failed: cannot connect to [::1]:1: "), std::string::npos)
        << run.output;
}

TEST_F(ToolLoginTest, PortIsANumber) {
    for (const char* port : {"0", "65536", "99999", "4294967297", "-1", "+1", "0x1", "1 ", "https"}) {
        const ToolRun run = run_tool({"login", std::string("127.0.0.1:") + port});
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.errors, "server: the port is not a number from 1 to 65535\n"
                              "Run with --help or --help-all for more information.\n");
    }
}

TEST_F(ToolLoginTest, AddressNeedsHostAndPort) {
    for (const char* address : {"localhost", ":443", "localhost:", "::1:443"}) {
        const ToolRun run = run_tool({"login", address});
        EXPECT_EQ(run.status, 2);
        EXPECT_TRUE(run.errors.starts_with("server: the address is not of the form HOST:PORT\n"))
            << run.errors;
    }
}

} // namespace
} // namespace Kes::test
