#ifndef KES_TESTS_E2E_SERVERS_SERVER_H_
#define KES_TESTS_E2E_SERVERS_SERVER_H_

#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "support/process.h"
#include "support/support.h"

namespace Kes::test {

/// The files and the protocol versions of a server.
struct ServerSetup {
    std::string folder; ///< for the server's files; ends with a slash
    std::string cert_file;
    std::string key_file;
    std::string client_ca_file;
    bool has_tls_13 = true; ///< false: TLS 1.2 only

    /// Uses the file names of tools/soft-token.
    explicit ServerSetup(const std::filesystem::path& made_folder)
        : folder((made_folder / "").string()),
          cert_file(folder + "server.crt"),
          key_file(folder + "server.key"),
          client_ca_file(folder + "ca.crt") {}
};

/// A TLS server on a free port of 127.0.0.1 that requires a client certificate of a known CA. The destructor
/// stops it.
class Server {
public:
    explicit Server(ServerSetup setup) : setup_(std::move(setup)) {}
    virtual ~Server() = default;
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Returns when the server accepts connections.
    void start();

    int port() const { return port_; }

    /// Stops the server.
    /// @param answer  the body of its answer to its only client
    /// @return its view of the client, "protocol, cipher, signature, subject, verdict", with "-" for a field
    ///     that the server does not report
    virtual std::string report(const std::string& answer) = 0;

    /// Stops the server.
    /// @return its complete output
    std::string stop_and_get_log() {
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

/// @param maker  "nginx", "gnutls" or "openssl"
std::unique_ptr<Server> create_server(const std::string& maker, const ServerSetup& setup);

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_SERVER_H_
