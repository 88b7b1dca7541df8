// The command "marvo login" at servers that are slow, or that close the connection at once.
#include <chrono>
#include <gtest/gtest.h>

#include <openssl/pem.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "card.h"
#include "test_server.h"
#include "tool/tool_run.h"

namespace Kes::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

class ToolLoginBehaviourTest : public testing::Test {
protected:
    ToolRun log_in(const TestServer& server, const std::vector<std::string>& options) const {
        const EnvVar pin("MARVO_TEST_PIN", card.pin());
        std::vector<std::string> arguments{
            "login",     server.address(),       "--backend", "pkcs11",
            "--module",  soft_token({"module"}), "--engine",  soft_token({"engine"}),
            "--pin-env", "MARVO_TEST_PIN",       "--ca",      card.ca_file()};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return run_tool(arguments);
    }

    const Card card{"ec:P-256", "/CN=Ada Lovelace"};
    const TestSslCtx ctx = create_server_ctx(card.server_setup().cert_file, card.server_setup().key_file);
};

/// What a server sees of its client while it checks the client's certificate.
struct Refusal {
    int unread_at_first = -1;
    int unread_at_last = -1; ///< bytes
};

int count_unread(X509_STORE_CTX* check) {
    auto* ssl =
        static_cast<SSL*>(::X509_STORE_CTX_get_ex_data(check, ::SSL_get_ex_data_X509_STORE_CTX_idx()));
    int count = -1;
    ::ioctl(::SSL_get_fd(ssl), FIONREAD, &count);
    return count;
}

/// Takes half a second to refuse every certificate as expired.
int refuse(X509_STORE_CTX* check, void* argument) {
    auto* refusal = static_cast<Refusal*>(argument);
    refusal->unread_at_first = count_unread(check);
    std::this_thread::sleep_for(milliseconds(500));
    refusal->unread_at_last = count_unread(check);
    ::X509_STORE_CTX_set_error(check, X509_V_ERR_CERT_HAS_EXPIRED);
    return 0;
}

TEST_F(ToolLoginBehaviourTest, RequestWaitsUntilTheServerHasCheckedTheCertificate) {
    Refusal refusal;
    ::SSL_CTX_set_cert_verify_callback(ctx.get(), &refuse, &refusal);
    ToolRun run;
    {
        const TestServer server([this](int socket) { accept_tls(ctx.get(), socket); });
        run = log_in(server, {"--tls", "1.3"});
    }
    EXPECT_EQ(run.status, 1) << run.errors;
    EXPECT_GT(refusal.unread_at_first, 0) << "the signature of the client";
    EXPECT_EQ(refusal.unread_at_last, refusal.unread_at_first) << "the client has sent its request";
    EXPECT_TRUE(
        run.output.ends_with("\nalert: certificate_expired from the server: the certificate has expired\n"
                             "remedy: renew the certificate, and check the clocks of server and client\n"
                             "login: failed: sslv3 alert certificate expired\n"))
        << run.output;
}

TEST_F(ToolLoginBehaviourTest, ServerThatSendsNothingBeforeTheRequestGetsTheRequest) {
    ::SSL_CTX_set_num_tickets(ctx.get(), 0);
    const TestServer server([this](int socket) {
        const TestSsl ssl = accept_tls(ctx.get(), socket);
        char request[1024];
        if (ssl && ::SSL_read(ssl.get(), request, sizeof request) > 0)
            ::SSL_write(ssl.get(), "HTTP/1.0 200 OK\r\n\r\n", 19);
    });
    const ToolRun run = log_in(server, {"--tls", "1.3"});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_TRUE(run.output.ends_with("\nanswer:\n  HTTP/1.0 200 OK\n  \nlogin: succeeded\n")) << run.output;
}

/// Calls the function every 200 ms for 20 s, or until it returns false.
template <typename Send>
void drip(Send send) {
    const auto end = Clock::now() + seconds(20);
    while (Clock::now() < end && send())
        std::this_thread::sleep_for(milliseconds(200));
}

TEST_F(ToolLoginBehaviourTest, TimeoutIsForTheWholeAnswer) {
    const TestServer server([this](int socket) {
        const TestSsl ssl = accept_tls(ctx.get(), socket);
        if (ssl) drip([&ssl] { return ::SSL_write(ssl.get(), "x", 1) == 1; });
    });
    const auto start = Clock::now();
    const ToolRun run = log_in(server, {"--timeout", "2"});
    EXPECT_LT(Clock::now() - start, seconds(15));
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_NE(run.output.find("\nanswer:\n  xx"), std::string::npos) << run.output;
}

TEST_F(ToolLoginBehaviourTest, TimeoutIsForTheWholeHandshake) {
    const TestServer server([](int socket) {
        ::send(socket, "\x16\x03\x03\x10\x00", 5, 0); // begins a record of 4096 bytes
        drip([socket] { return ::send(socket, "\x02", 1, 0) == 1; });
    });
    const auto start = Clock::now();
    const ToolRun run = log_in(server, {"--timeout", "2"});
    EXPECT_LT(Clock::now() - start, seconds(15));
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.output.ends_with("\nlogin: failed: the handshake did not end within 2 s\n"))
        << run.output << run.errors;
}

using CertPtr = std::unique_ptr<X509, FreeWith<&::X509_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, FreeWith<&::EVP_PKEY_free>>;

/// Replaces the server's certificate by one that expired a minute ago.
void let_server_certificate_expire(SSL_CTX* ctx, const std::string& ca_key_file) {
    const CertPtr cert(::X509_dup(::SSL_CTX_get0_certificate(ctx)));
    const BioPtr file(::BIO_new_file(ca_key_file.c_str(), "r"));
    const KeyPtr ca_key(::PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr));
    ASSERT_NE(::X509_gmtime_adj(::X509_getm_notBefore(cert.get()), -3600), nullptr);
    ASSERT_NE(::X509_gmtime_adj(::X509_getm_notAfter(cert.get()), -60), nullptr);
    ASSERT_GT(::X509_sign(cert.get(), ca_key.get(), ::EVP_sha256()), 0);
    ASSERT_EQ(::SSL_CTX_use_certificate(ctx, cert.get()), 1);
}

TEST_F(ToolLoginBehaviourTest, ExpiredServerCertificateIsNotBlamedOnTheAuthorities) {
    let_server_certificate_expire(ctx.get(), card.file("ca.key"));
    const TestServer server([this](int socket) { accept_tls(ctx.get(), socket); });
    const ToolRun run = log_in(server, {});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.output.ends_with(
        "\nalert: certificate_expired sent to the server: this program rejects the server's certificate\n"
        "remedy: check the clock of this computer; if it is right, the server needs a new certificate\n"
        "login: failed: the server's certificate is not trusted: certificate has expired\n"))
        << run.output << run.errors;
}

TEST_F(ToolLoginBehaviourTest, AlertForAnUnknownMessageDoesNotBlameTheCertificate) {
    const TestServer server([](int socket) {
        char hello[4096];
        ::recv(socket, hello, sizeof hello, 0);
        ::send(socket, "\x16\x03\x03\x00\x04\xff\x00\x00\x00", 9, 0); // no message has the type 255
        ::recv(socket, hello, sizeof hello, 0);
    });
    const ToolRun run = log_in(server, {});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.output.ends_with(
        "\nalert: unexpected_message sent to the server: this program cannot use what the server sent\n"
        "remedy: check that the address and the port are those of a TLS server\n"
        "login: failed: unexpected message\n"))
        << run.output << run.errors;
}

} // namespace
} // namespace Kes::test
