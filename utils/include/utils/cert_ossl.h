#ifndef KES_UTILS_CERT_OSSL_H_
#define KES_UTILS_CERT_OSSL_H_

#include <string>
#include <vector>

#include "utils/cert.h"
#include "utils/ossl_ptr.h"

namespace Kes {

/// A certificate that OpenSSL stores. OpenSSL has no short name format, so the simple names equal the full
/// ones. OsslHelper::cert_name_to_str() defines the format.
class OsslCert final : public Cert {
public:
    /// Decodes a certificate.
    /// @throws OsslError "error converting certificate from DER to X509 format"
    explicit OsslCert(const std::vector<unsigned char>& der);
    ~OsslCert() override;

    /// The OpenSSL object, owned by this object and valid as long as it exists. Never null.
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
