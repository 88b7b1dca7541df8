#include "tool/login/tls_alert.h"

#include <array>

#include <openssl/ssl.h>

namespace Kes::tool {
namespace {

struct KnownAlert {
    int number;
    const char* name;
    const char* meaning;
    const char* remedy;
};

constexpr const char* see_the_server = "look at the server's log, which names the reason";

constexpr std::array<KnownAlert, 17> known_alerts{{
    {SSL3_AD_HANDSHAKE_FAILURE, "handshake_failure",
     "the server and this client have no protocol version, cipher or signature algorithm in common, or the "
     "server "
     "requires a certificate and received none",
     "compare the algorithms of the server with those of the key, and check that a certificate was sent"},
    {SSL3_AD_BAD_CERTIFICATE, "bad_certificate",
     "the server rejects the certificate, for example because it is not valid yet or its signature is wrong",
     "check the dates of the certificate with \"marvo list\", and the server's clock"},
    {SSL3_AD_UNSUPPORTED_CERTIFICATE, "unsupported_certificate",
     "the certificate is not meant for logins: its key usage or extended key usage does not allow them",
     "choose a certificate with digitalSignature and clientAuth"},
    {SSL3_AD_CERTIFICATE_REVOKED, "certificate_revoked", "the issuer has revoked the certificate",
     "use another card, or ask the issuer for a new certificate"},
    {SSL3_AD_CERTIFICATE_EXPIRED, "certificate_expired", "the certificate has expired",
     "renew the certificate, and check the clocks of server and client"},
    {SSL3_AD_CERTIFICATE_UNKNOWN, "certificate_unknown",
     "the server rejects the certificate for another reason", see_the_server},
    {SSL3_AD_ILLEGAL_PARAMETER, "illegal_parameter", "the server found a wrong value in the handshake",
     see_the_server},
    {TLS1_AD_UNKNOWN_CA, "unknown_ca",
     "the server does not know the authority that issued the certificate, or misses an intermediate "
     "certificate",
     "add the issuer's certificate to the server's list of authorities for clients"},
    {TLS1_AD_ACCESS_DENIED, "access_denied", "the certificate is valid, but its owner may not log in",
     "ask the server's administrator for the permission"},
    {TLS1_AD_DECODE_ERROR, "decode_error", "the server cannot read a message of the handshake",
     see_the_server},
    {TLS1_AD_DECRYPT_ERROR, "decrypt_error",
     "the signature is wrong: the private key and the certificate may not belong together",
     "run \"marvo sign\", which verifies signatures with the certificate"},
    {TLS1_AD_PROTOCOL_VERSION, "protocol_version", "the server does not support this version of TLS",
     "try the other version with --tls; keys of CryptoAPI need TLS 1.2"},
    {TLS1_AD_INSUFFICIENT_SECURITY, "insufficient_security",
     "the server requires stronger ciphers or a longer key", "use a longer key, or another one"},
    {TLS1_AD_INTERNAL_ERROR, "internal_error", "the server failed, not necessarily because of this client",
     see_the_server},
    {TLS1_AD_UNRECOGNIZED_NAME, "unrecognized_name", "the server does not know the name of the host",
     "check the name, or send another one with --sni"},
    {TLS13_AD_CERTIFICATE_REQUIRED, "certificate_required",
     "the server requires a certificate and received none",
     "check that the key can sign with one of the server's algorithms"},
    {SSL3_AD_UNEXPECTED_MESSAGE, "unexpected_message", "the server did not expect a message of the handshake",
     see_the_server},
}};

std::string remedy_for_server_certificate(int server_check) {
    switch (server_check) {
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
    case X509_V_ERR_CERT_UNTRUSTED:
        return "if the server is the right one, name its authorities with --ca";
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
        return "use a name from the server's certificate in the address, or give it with --sni";
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return "check the clock of this computer; if it is right, the server needs a new certificate";
    default:
        return "ask the server's administrator for another certificate";
    }
}

} // namespace

AlertExplanation explain_sent_alert(int number, int server_check) {
    const std::string name = explain_alert(number).name;
    if (server_check == X509_V_OK)
        return {name, "this program cannot use what the server sent",
                "check that the address and the port are those of a TLS server"};
    return {name, "this program rejects the server's certificate",
            remedy_for_server_certificate(server_check)};
}

AlertExplanation explain_alert(int number) {
    for (const KnownAlert& alert : known_alerts)
        if (alert.number == number) return {alert.name, alert.meaning, alert.remedy};
    return {"alert " + std::to_string(number), "the server ended the connection", see_the_server};
}

} // namespace Kes::tool
