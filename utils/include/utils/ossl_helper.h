#ifndef KES_UTILS_OSSL_HELPER_H_
#define KES_UTILS_OSSL_HELPER_H_

#include <openssl/x509.h>
#include <string>

namespace Kes {

/// Functions for OpenSSL objects.
class OsslHelper {
public:
    OsslHelper() = delete;

    /// The names of a certificate, for cert_name_to_str().
    static constexpr int subject = 1;
    static constexpr int issuer = 2;

    /// Formats a name of a certificate as one line, without indentation. OpenSSL's XN_FLAG_COMPAT defines the
    /// format.
    /// @param which  subject or issuer; other values count as issuer
    /// @throws Error bad_argument for a null certificate, OsslError if OpenSSL cannot print the name
    static std::string cert_name_to_str(X509* cert, int which);
};

} // namespace Kes

#endif // KES_UTILS_OSSL_HELPER_H_
