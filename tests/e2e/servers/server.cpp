#include "server.h"

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kes::test {
namespace {

class Socket {
public:
    Socket() : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ~Socket() { ::close(fd_); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

sockaddr_in local_address(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// The port is free now, but another process may take it before the server does. The caller must be prepared
/// to retry.
int find_free_port() {
    const Socket socket;
    sockaddr_in address = local_address(0);
    socklen_t size = sizeof address;
    if (::bind(socket.fd(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::getsockname(socket.fd(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("no free port on 127.0.0.1");
    return ntohs(address.sin_port);
}

bool is_listening(int port) {
    const Socket socket;
    const sockaddr_in address = local_address(port);
    return ::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

class NginxServer : public Server {
public:
    using Server::Server;

    std::string report(const std::string& answer) override {
        stop();
        return answer;
    }

private:
    /// A single process that writes only to its folder and answers with its view of the client.
    std::unique_ptr<Process> create_process(int port) override {
        const std::string& folder = setup().folder;
        std::ofstream(folder + "nginx.conf")
            << "daemon off; master_process off; events {}\n"
            << "pid " << folder << "pid; error_log stderr error;\n"
            << "http {\n  access_log off; default_type text/plain;\n"
            << "  client_body_temp_path " << folder << "body; proxy_temp_path " << folder << "proxy;\n"
            << "  fastcgi_temp_path " << folder << "fastcgi; uwsgi_temp_path " << folder << "uwsgi;\n"
            << "  scgi_temp_path " << folder << "scgi;\n"
            << "  server {\n    listen 127.0.0.1:" << port << " ssl;\n"
            << "    ssl_protocols TLSv1.2" << (setup().has_tls_13 ? " TLSv1.3" : "") << ";\n"
            << "    ssl_certificate " << setup().cert_file << ";\n"
            << "    ssl_certificate_key " << setup().key_file << ";\n"
            << "    ssl_client_certificate " << setup().client_ca_file << "; ssl_verify_client on;\n"
            << "    add_header Server-Name \"[$ssl_server_name]\";\n" // the name in the client's handshake
            << "    return 200 \"$ssl_protocol, $ssl_cipher, -, $ssl_client_s_dn, $ssl_client_verify\";\n"
            << "  }\n}\n";
        return std::make_unique<Process>(std::vector<std::string>{NGINX_PROGRAM, "-e", "stderr", "-p", folder,
                                                                  "-c", folder + "nginx.conf"},
                                         log_name());
    }
};

class GnutlsServer : public Server {
public:
    using Server::Server;

    /// The log has more details than the answer, and is complete only after the server has ended.
    std::string report(const std::string&) override {
        stop();
        return after("- Version: ") + ", " + after("- Cipher: ") + ", " + after("- Client Signature: ") +
               ", " + after("\tSubject: ") + ", " + after("- Status: ");
    }

private:
    std::unique_ptr<Process> create_process(int port) override {
        const std::string versions = setup().has_tls_13 ? "+VERS-TLS1.2:+VERS-TLS1.3" : "+VERS-TLS1.2";
        return std::make_unique<Process>(
            std::vector<std::string>{"/usr/bin/env", "LD_PRELOAD=" LOOPBACK_ONLY_LIBRARY, GNUTLS_SERV_PROGRAM,
                                     "--http", "--port", std::to_string(port), "--x509certfile",
                                     setup().cert_file, "--x509keyfile", setup().key_file, "--x509cafile",
                                     setup().client_ca_file, "--require-client-cert", "--verify-client-cert",
                                     "--priority", "NORMAL:-VERS-ALL:" + versions},
            log_name());
    }

    std::string after(const std::string& word) const {
        for (const std::string& line : split_lines(log()))
            if (line.compare(0, word.size(), word) == 0) return line.substr(word.size());
        return "nothing";
    }
};

/// Of the three servers, the only one that sends an alert for every certificate that it rejects.
class OpensslServer : public Server {
public:
    using Server::Server;

    std::string report(const std::string& answer) override {
        stop();
        return answer;
    }

private:
    std::unique_ptr<Process> create_process(int port) override {
        return std::make_unique<Process>(
            std::vector<std::string>{OPENSSL_PROGRAM, "s_server", "-accept",
                                     "127.0.0.1:" + std::to_string(port), "-cert", setup().cert_file, "-key",
                                     setup().key_file, "-CAfile", setup().client_ca_file, "-max_protocol",
                                     setup().has_tls_13 ? "TLSv1.3" : "TLSv1.2", "-Verify", "1",
                                     "-verify_return_error", "-www"},
            log_name());
    }
};

} // namespace

void Server::start() {
    for (int attempt = 0; attempt < 10; ++attempt) {
        port_ = find_free_port();
        process_ = create_process(port_);
        // Not all servers report that they are ready, but an accepted connection shows it.
        while (process_->is_running()) {
            if (is_listening(port_) && process_->is_running()) return;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    throw std::runtime_error("cannot start the server: " + log());
}

std::unique_ptr<Server> create_server(const std::string& maker, const ServerSetup& setup) {
    std::unique_ptr<Server> server;
    if (maker == "nginx")
        server = std::make_unique<NginxServer>(setup);
    else if (maker == "openssl")
        server = std::make_unique<OpensslServer>(setup);
    else
        server = std::make_unique<GnutlsServer>(setup);
    server->start();
    return server;
}

} // namespace Kes::test
