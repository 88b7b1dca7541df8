#ifndef KES_TOOL_LOGIN_TLS_LOGIN_H_
#define KES_TOOL_LOGIN_TLS_LOGIN_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <openssl/x509.h>

namespace Kes::tool {

/// Borrowed; must exist until log_in() returns.
struct LoginKey {
    EVP_PKEY* key;
    X509* certificate;
    bool uses_cryptoapi; ///< signs with RSA and PKCS#1 v1.5 only
};

struct LoginTarget {
    std::string host; ///< a name or an address, IPv6 without brackets
    std::string port;
    std::string server_name; ///< for SNI and the check of the server's certificate
    std::string ca_file;     ///< empty: OpenSSL's default authorities
    bool is_insecure = false;
    int protocol = 0; ///< the only protocol version, as OpenSSL numbers it; 0: any
    int timeout = 10; ///< seconds for each of connection, handshake and answer

    /// HOST:PORT, with brackets for IPv6
    std::string address() const;
};

/// What the server said when it asked for a certificate.
struct CertificateRequest {
    std::vector<std::string> authorities; ///< none: the server does not say
    bool names_issuer = false;            ///< whether the issuer of the client's certificate is among them
    std::vector<std::uint16_t> algorithms;
};

struct TlsAlert {
    int number;
    bool is_received; ///< from the server; otherwise from this program
};

struct LoginReport {
    int protocol = 0; ///< as OpenSSL numbers it; the newest one offered if the handshake failed early
    std::string protocol_name; ///< empty if the handshake failed, like the next two
    std::string cipher;
    std::string signature; ///< of this key; empty if no certificate was sent
    std::optional<CertificateRequest> request;
    std::optional<TlsAlert> alert;
    int server_check = X509_V_OK; ///< of the server's certificate, as OpenSSL numbers the result
    std::string error;            ///< what failed; empty if nothing did
    std::string answer;           ///< the beginning of the server's answer
};

/// Fails if the file that --ca names has no certificates. Call it before a login to the card, which would be
/// wasted.
/// @throws std::runtime_error
void check_authorities(const std::string& ca_file);

/// Connects, logs in with the key, and requests the page "/".
/// @throws std::runtime_error if TLS cannot be set up
LoginReport log_in(const LoginKey& key, const LoginTarget& target);

} // namespace Kes::tool

#endif // KES_TOOL_LOGIN_TLS_LOGIN_H_
