#ifndef KES_UTILS_OSSL_HELPER_H_
#define KES_UTILS_OSSL_HELPER_H_

#include <openssl/x509.h>
#include <string>

namespace Kes {

class OsslHelper {
public:
    OsslHelper() = delete;

    /// Which name of a certificate is meant.
    static constexpr int subject = 1;
    static constexpr int issuer = 2;

    /// A certificate's name in OpenSSL's compatible one-line form, indented by two blanks.
    /// @param which  subject; every other value is the issuer
    /// @throws Error bad_argument for a null certificate, OsslError when OpenSSL cannot print the name
    static std::string cert_name_to_str(X509* cert, int which);
};

} // namespace Kes

#endif // KES_UTILS_OSSL_HELPER_H_
