#ifndef KES_TESTS_E2E_SERVERS_TEST_SERVER_H_
#define KES_TESTS_E2E_SERVERS_TEST_SERVER_H_

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include <openssl/ssl.h>

#include "utils/ossl_ptr.h"

namespace Kes::test {

using TestSslCtx = std::unique_ptr<SSL_CTX, FreeWith<&::SSL_CTX_free>>;
using TestSsl = std::unique_ptr<SSL, FreeWith<&::SSL_free>>;

/// A server in the test's own process, on a free port of 127.0.0.1, that behaves as no good server does. It
/// serves one connection, and then closes it at once.
class TestServer {
public:
    /// @param serve_in  gets the socket of the connection
    explicit TestServer(std::function<void(int)> serve_in);

    /// Waits until the connection has been served.
    ~TestServer();
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    std::string address() const { return "127.0.0.1:" + std::to_string(port); }

private:
    void serve_one();

    const std::function<void(int)> serve;
    const int listener;
    int port = 0;
    std::thread thread;
};

/// The TLS settings of a server that asks for a certificate and accepts every one.
/// @param cert_file,key_file  PEM
TestSslCtx create_server_ctx(const std::string& cert_file, const std::string& key_file);

/// @return the connection after the server's side of the handshake; null if it failed
TestSsl accept_tls(SSL_CTX* ctx, int socket);

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_TEST_SERVER_H_
