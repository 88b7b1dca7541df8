#ifndef KES_TESTS_SERVERS_SERVER_H_
#define KES_TESTS_SERVERS_SERVER_H_

#include <memory>
#include <string>

#include "card.h"
#include "process.h"

namespace Kes::test {

/// A TLS server on a free port of 127.0.0.1 that wants a client certificate signed by the card's CA. It
/// offers TLS 1.2 and 1.3, and ends with the object.
class Server {
public:
    explicit Server(const Card& card) : card_(card) {}
    virtual ~Server() = default;
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Returns when it takes connections.
    void start();

    int port() const { return port_; }

    /// What the server knows of its one client: "protocol, cipher, signature, subject, verdict", where the
    /// server has no word for a field "-". Ends the server.
    /// @param answer  the body of its answer to the client
    virtual std::string report(const std::string& answer) = 0;

protected:
    virtual std::unique_ptr<Process> create_process(int port) = 0;
    void stop() { process_->stop(); }
    std::string log() const { return read_file(log_name()); }
    std::string log_name() const { return card_.file("server.log"); }
    const Card& card() const { return card_; }

private:
    const Card& card_;
    std::unique_ptr<Process> process_;
    int port_ = 0;
};

/// @param maker  "nginx" or "gnutls"
std::unique_ptr<Server> create_server(const std::string& maker, const Card& card);

} // namespace Kes::test

#endif // KES_TESTS_SERVERS_SERVER_H_
