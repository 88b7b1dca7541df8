#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "card.h"
#include "login.h"
#include "server.h"

namespace Kes::test {
namespace {

/// A client certificate that a server rejects, and the reason that OpenSSL reports for the server's alert.
struct Rejection {
    std::string name;
    std::vector<std::string> options; ///< of soft-token, for the certificate
    bool is_ca_known;
    std::string reason;
};

void PrintTo(const Rejection& rejection, std::ostream* out) { *out << rejection.name; }

// The table of alerts in docs/client-guide.md lists the same reasons.
const std::vector<Rejection> rejections = {
    {"Expired", {"--expired"}, true, "sslv3 alert certificate expired"},
    {"NotValidYet", {"--future"}, true, "sslv3 alert bad certificate"},
    {"UnknownCa", {}, false, "tlsv1 alert unknown ca"},
    {"WrongPurpose", {"--eku", "serverAuth"}, true, "sslv3 alert unsupported certificate"},
    {"WrongKeyUsage", {"--ku", "keyEncipherment"}, true, "sslv3 alert unsupported certificate"},
};

class AlertTest : public testing::TestWithParam<Rejection> {};

TEST_P(AlertTest, OpensslServerSendsTheAlertForTheReason) {
    const Card other_card("ec:P-256", "/CN=Somebody else");
    const Card card("ec:P-256", "/CN=Ada Lovelace", GetParam().options);
    ServerSetup setup = card.server_setup();
    if (!GetParam().is_ca_known) setup.client_ca_file = other_card.ca_file();
    const auto server = create_server("openssl", setup);
    const LoadedKey loaded(card);
    for (const int protocol : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        LoginOptions options;
        options.port = server->port();
        options.protocol = protocol;
        options.ca_file = card.ca_file();
        options.signatures = "ECDSA+SHA256";
        options.key = loaded.key();
        options.cert = loaded.cert();
        const Login login = log_in(options);
        EXPECT_EQ(login.error, GetParam().reason);
        // With TLS 1.3, the handshake succeeds, and the first read fails.
        EXPECT_EQ(login.session.empty(), protocol == TLS1_2_VERSION) << login.session;
    }
}

INSTANTIATE_TEST_SUITE_P(Certificates, AlertTest, testing::ValuesIn(rejections),
                         [](const auto& rejection) { return rejection.param.name; });

TEST(AlertWithoutCertificateTest, OpensslServerReportsTheMissingCertificate) {
    const Card card("ec:P-256", "/CN=Ada Lovelace");
    const auto server = create_server("openssl", card.server_setup());
    LoginOptions options;
    options.port = server->port();
    options.ca_file = card.ca_file();
    options.signatures = "ECDSA+SHA256";
    options.protocol = TLS1_2_VERSION;
    EXPECT_EQ(log_in(options).error, "sslv3 alert handshake failure");
    options.protocol = TLS1_3_VERSION;
    EXPECT_EQ(log_in(options).error, "tlsv13 alert certificate required");
}

} // namespace
} // namespace Kes::test
