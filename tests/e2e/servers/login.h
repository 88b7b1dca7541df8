#ifndef KES_TESTS_E2E_SERVERS_LOGIN_H_
#define KES_TESTS_E2E_SERVERS_LOGIN_H_

#include <ostream>
#include <string>

#include <openssl/ssl.h>

namespace Kes::test {

/// The parameters of a login. Nothing else that affects the handshake is left to OpenSSL's defaults.
struct LoginOptions {
    int port = 0;
    int protocol = TLS1_3_VERSION;
    std::string ca_file;
    std::string signatures;  ///< in OpenSSL's notation, such as "RSA+SHA256"
    EVP_PKEY* key = nullptr; ///< null: the client sends no certificate
    X509* cert = nullptr;
};

/// A login and the expected view of all participants.
struct Scenario {
    std::string name;
    std::string key_type; ///< as an argument of Card
    int protocol;
    std::string signatures;   ///< what the client offers, in OpenSSL's notation
    std::string session;      ///< the client's view
    std::string nginx_report; ///< the servers' views
    std::string gnutls_report;
};

inline void PrintTo(const Scenario& scenario, std::ostream* stream) { *stream << scenario.name; }

/// The client's view of a login.
struct Login {
    std::string session; ///< "protocol, cipher, signature" if the TLS handshake succeeded
    std::string body;    ///< of the server's answer
    std::string error;   ///< OpenSSL's reason if the server did not answer
};

/// Connects to 127.0.0.1 and requests "/".
Login log_in(const LoginOptions& options);

/// "TLSv1.3, TLS_AES_256_GCM_SHA384, RSASSA-PSS with SHA256": the signature is the client's own.
std::string session_text(SSL* ssl);

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_LOGIN_H_
