#include "test_server.h"

#include <csignal>
#include <stdexcept>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kes::test {

TestServer::TestServer(std::function<void(int)> serve_in)
    : serve(std::move(serve_in)), listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    std::signal(SIGPIPE, SIG_IGN); // the client may close the connection first
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    if (::bind(listener, generic, size) != 0 || ::listen(listener, 1) != 0 ||
        ::getsockname(listener, generic, &size) != 0)
        throw std::runtime_error("no free port");
    port = ::ntohs(address.sin_port);
    thread = std::thread([this] { serve_one(); });
}

TestServer::~TestServer() {
    ::shutdown(listener, SHUT_RDWR); // ends accept() if no client came
    thread.join();
    ::close(listener);
}

void TestServer::serve_one() {
    const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) return;
    serve(connection);
    ::close(connection);
}

TestSslCtx create_server_ctx(const std::string& cert_file, const std::string& key_file) {
    TestSslCtx ctx(::SSL_CTX_new(::TLS_server_method()));
    if (!ctx || ::SSL_CTX_use_certificate_file(ctx.get(), cert_file.c_str(), SSL_FILETYPE_PEM) != 1 ||
        ::SSL_CTX_use_PrivateKey_file(ctx.get(), key_file.c_str(), SSL_FILETYPE_PEM) != 1)
        throw std::runtime_error("cannot set up the server");
    ::SSL_CTX_set_verify(ctx.get(), SSL_VERIFY_PEER, [](int, X509_STORE_CTX*) { return 1; });
    return ctx;
}

TestSsl accept_tls(SSL_CTX* ctx, int socket) {
    TestSsl ssl(::SSL_new(ctx));
    if (!ssl || ::SSL_set_fd(ssl.get(), socket) != 1 || ::SSL_accept(ssl.get()) != 1) return nullptr;
    return ssl;
}

} // namespace Kes::test
