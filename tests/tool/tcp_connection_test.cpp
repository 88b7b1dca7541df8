#include "tool/login/tcp_connection.h"

#include <chrono>
#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kes::test {
namespace {

/// A socket that is bound to a free port of 127.0.0.1. Without listen(), the port refuses connections.
class BoundSocket {
public:
    BoundSocket() {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
        auto* address = reinterpret_cast<sockaddr*>(&address_);
        socklen_t size = sizeof address_;
        if (::bind(fd_, address, size) != 0 || ::getsockname(fd_, address, &size) != 0)
            throw std::runtime_error("no free port");
    }
    ~BoundSocket() { ::close(fd_); }
    BoundSocket(const BoundSocket&) = delete;
    BoundSocket& operator=(const BoundSocket&) = delete;

    void listen(int backlog) const { ASSERT_EQ(::listen(fd_, backlog), 0); }
    std::string port() const { return std::to_string(::ntohs(address_.sin_port)); }

private:
    const int fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address_{};
};

/// @return "" if the connection succeeds
std::string failure(const std::string& host, const std::string& port, int timeout) {
    try {
        return tool::connect_to(host, port, timeout) ? "" : "no BIO";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(TcpConnectionTest, ClosedPortIsReportedAtOnce) {
    const BoundSocket socket;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(failure("127.0.0.1", socket.port(), 30), "Connection refused");
    EXPECT_EQ(failure("localhost", socket.port(), 30), "Connection refused");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(TcpConnectionTest, UnknownHostIsReported) {
    // The resolver rejects this name without a question to a name server.
    EXPECT_EQ(failure("-", "443", 30), "cannot look up its address: Name or service not known");
}

TEST(TcpConnectionTest, EveryAddressOfAHostIsTried) {
    const BoundSocket socket; // not on the IPv6 address of localhost
    socket.listen(1);
    EXPECT_EQ(failure("localhost", socket.port(), 30), "");
}

TEST(TcpConnectionTest, WaitEndsAfterTheTimeout) {
    const BoundSocket socket;
    socket.listen(0);
    // Nobody accepts these connections, so that the system answers no more once the queue is full.
    std::vector<BioPtr> queue;
    std::string error;
    while (error.empty() && queue.size() < 10) {
        try {
            queue.push_back(tool::connect_to("127.0.0.1", socket.port(), 1));
        } catch (const std::runtime_error& thrown) {
            error = thrown.what();
        }
    }
    EXPECT_EQ(error, "no connection within 1 s");
}

} // namespace
} // namespace Kes::test
