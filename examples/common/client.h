// The parts that every example client needs: error handling, opening the card, the PIN, checking the certificate,
// naming the server.
#ifndef KES_EXAMPLES_COMMON_CLIENT_H_
#define KES_EXAMPLES_COMMON_CLIENT_H_

#include <functional>
#include <string>

#include <openssl/ssl.h>

#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

namespace examples {

/// Throws std::runtime_error with the text if the condition is false.
void require(bool good, const std::string& text);

/// Throws the library's message if the status of an operation is not 0.
void check(Kes::OsslScardIf& card, int status);

/// Calls init() and read_scard(). Only shows the message if the log file cannot be opened.
void open_card(Kes::OsslScardIf& card, Kes::OsslScardCfg* cfg);

/// Asks for the PIN on the terminal, without echo, or reads it from standard input.
void read_and_set_pin(Kes::OsslScardIf& card, bool from_terminal = true);

/// Throws if the certificate has expired, is not valid yet, or is not meant for TLS clients. A server would
/// reject it, usually without saying why.
void check_certificate(X509* cert);

/// Names the server in the handshake (SNI), unless the host is an IP address, which RFC 6066 does not allow.
/// Servers with several names choose their certificate by this name.
/// @return whether OpenSSL has accepted the name
bool send_server_name(SSL* ssl, std::string host);

/// Runs a client, prints its error and destroys the library's object.
/// @return the exit code of the program
int run_client(const std::string& program, const std::function<void(Kes::OsslScardIf&)>& client);

} // namespace examples

#endif // KES_EXAMPLES_COMMON_CLIENT_H_
