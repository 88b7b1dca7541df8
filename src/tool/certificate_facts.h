#ifndef KES_TOOL_CERTIFICATE_FACTS_H_
#define KES_TOOL_CERTIFICATE_FACTS_H_

#include <ctime>
#include <openssl/types.h>
#include <string>
#include <vector>

#include "utils/cert_key_usage.h"

namespace Kes::tool {

/// What people want to know about a certificate. All texts are UTF-8.
struct CertificateFacts {
    std::string subject;    ///< RFC 4514, the common name usually first
    std::string issuer;     ///< RFC 4514
    std::string serial;     ///< hexadecimal
    std::string not_before; ///< "2026-11-21T22:27:04Z"; "" if it cannot be read
    std::string not_after;
    long days_left = 0; ///< from today to the last day, both in UTC; negative for an expired certificate
    bool is_expired = false;
    bool is_not_yet_valid = false;
    std::string key_type;                         ///< "RSA", "EC", ...; "" if the key cannot be read
    int key_bits = 0;                             ///< 0 if the key cannot be read
    std::string curve;                            ///< of an EC key; otherwise ""
    std::vector<std::string> key_usages;          ///< names of RFC 5280, such as "digitalSignature"
    std::vector<std::string> extended_key_usages; ///< names like "clientAuth"; an OID if it has no name
};

/// Reads the facts. A part that OpenSSL cannot read is empty.
/// @param certificate  must not be null
/// @param now          for the days that are left
CertificateFacts read_facts(X509* certificate, const CertKeyUsage& key_usage, std::time_t now);

/// The days that are left of a certificate that has not expired, such as "30 days left".
std::string days_left_text(const CertificateFacts& facts);

/// A name of X.509 by RFC 4514, in UTF-8; "" if OpenSSL cannot print it.
std::string name_text(const X509_NAME* name);

/// The names of RFC 5280 for KU_* bits, in the order of the RFC.
std::vector<std::string> key_usage_names(std::uint32_t mask);

/// OpenSSL's short name of an extended key usage, such as "clientAuth"; the number itself if it has none.
std::string extended_key_usage_name(const std::string& oid);

} // namespace Kes::tool

#endif // KES_TOOL_CERTIFICATE_FACTS_H_
