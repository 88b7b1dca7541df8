#ifndef KES_UTILS_CERT_OSSL_H_
#define KES_UTILS_CERT_OSSL_H_

#include <string>
#include <vector>

#include "utils/cert.h"
#include "utils/ossl_ptr.h"

namespace Kes {

/// A certificate held by OpenSSL. Its simple names are its full names.
class OsslCert final : public Cert {
public:
    /// Decodes one certificate. @throws OsslError "error converting certificate from DER to X509 format"
    explicit OsslCert(const std::vector<unsigned char>& der);
    ~OsslCert() override;

    /// Lent; valid as long as this object.
    X509* x509() const noexcept { return x509_.get(); }

    std::vector<unsigned char> get_der_data() const override;
    void write_der_file(const std::string& file_name) const override;
    std::string get_subject_name() const override;
    std::string get_issuer_name() const override;
    std::string get_subject_name_simple() const override;
    std::string get_issuer_name_simple() const override;

private:
    X509Ptr x509_;
};

} // namespace Kes

#endif // KES_UTILS_CERT_OSSL_H_
