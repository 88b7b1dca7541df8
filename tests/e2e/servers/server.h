#ifndef KES_TESTS_E2E_SERVERS_SERVER_H_
#define KES_TESTS_E2E_SERVERS_SERVER_H_

#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "support/process.h"
#include "support/support.h"

namespace Kes::test {

/// What a server works with.
struct ServerSetup {
    std::string folder; ///< where it may write; with a slash at its end
    std::string cert_file;
    std::string key_file;
    std::string client_ca_file;
    bool has_tls_13 = true; ///< else it knows TLS 1.2 only

    /// As tools/soft-token names the files that it makes.
    explicit ServerSetup(const std::filesystem::path& made)
        : folder((made / "").string()),
          cert_file(folder + "server.crt"),
          key_file(folder + "server.key"),
          client_ca_file(folder + "ca.crt") {}
};

/// A TLS server on a free port of 127.0.0.1 that wants a client certificate signed by a CA that it knows. It
/// ends with the object.
class Server {
public:
    explicit Server(ServerSetup setup) : setup_(std::move(setup)) {}
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

    /// All that the server has said. Ends the server.
    std::string last_words() {
        stop();
        return log();
    }

protected:
    virtual std::unique_ptr<Process> create_process(int port) = 0;
    void stop() { process_->stop(); }
    std::string log() const { return read_file(log_name()); }
    std::string log_name() const { return setup_.folder + "server.log"; }
    const ServerSetup& setup() const { return setup_; }

private:
    ServerSetup setup_;
    std::unique_ptr<Process> process_;
    int port_ = 0;
};

/// @param maker  "nginx" or "gnutls"
std::unique_ptr<Server> create_server(const std::string& maker, const ServerSetup& setup);

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_SERVER_H_
