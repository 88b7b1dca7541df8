// The command "marvo login" at servers that are slow, or that close the connection at once.
#include <chrono>
#include <gtest/gtest.h>

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

} // namespace
} // namespace Kes::test
