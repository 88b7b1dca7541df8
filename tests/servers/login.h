#ifndef KES_TESTS_SERVERS_LOGIN_H_
#define KES_TESTS_SERVERS_LOGIN_H_

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

#endif // KES_TESTS_SERVERS_LOGIN_H_
