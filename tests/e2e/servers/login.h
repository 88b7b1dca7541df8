#ifndef KES_TESTS_E2E_SERVERS_LOGIN_H_
#define KES_TESTS_E2E_SERVERS_LOGIN_H_

#include <ostream>
#include <string>

#include <openssl/ssl.h>

namespace Kes::test {

/// How to log in; nothing else is left to the libraries' defaults.
struct LoginOptions {
    int port = 0;
    int protocol = TLS1_3_VERSION;
    std::string ca_file;
    std::string signatures;  ///< in OpenSSL's words, such as "RSA+SHA256"
    EVP_PKEY* key = nullptr; ///< without one the client has no certificate
    X509* cert = nullptr;
};

/// A login and what all that take part in it are to see.
struct Scenario {
    std::string name;
    std::string key_type; ///< as the card takes it
    int protocol;
    std::string signatures;   ///< what the client offers, in OpenSSL's words
    std::string session;      ///< what the client saw
    std::string nginx_report; ///< what the servers saw
    std::string gnutls_report;
};

inline void PrintTo(const Scenario& scenario, std::ostream* stream) { *stream << scenario.name; }

/// What the client saw.
struct Login {
    std::string session; ///< "protocol, cipher, signature" of a TLS connection that came about
    std::string body;    ///< of the server's answer
    std::string error;   ///< OpenSSL's reason when there is no answer
};

/// Connects to 127.0.0.1 and asks for "/".
Login log_in(const LoginOptions& options);

/// "TLSv1.3, TLS_AES_256_GCM_SHA384, RSASSA-PSS with SHA256": the signature is the client's own.
std::string session_text(SSL* ssl);

} // namespace Kes::test

#endif // KES_TESTS_E2E_SERVERS_LOGIN_H_
