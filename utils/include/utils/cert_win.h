#ifndef KES_UTILS_CERT_WIN_H_
#define KES_UTILS_CERT_WIN_H_

#include <memory>
#include <string>
#include <vector>

#include "utils/cert.h"
#include "utils/ossl_ptr.h"
#include "utils/windows_api.h"

namespace Kes {

/// A certificate held by Windows. Its full names are in X.500 form ("CN=a, O=b"), its simple names are the
/// values alone ("a, b").
class WinCert final : public Cert {
public:
    /// @param ctx_in  must not be null
    /// @param owns    whether the context is freed with this object
    /// @throws Error bad_argument for a null pointer
    WinCert(const CERT_CONTEXT* ctx_in, bool owns);
    ~WinCert() override;

    /// Lent; valid as long as this object.
    const CERT_CONTEXT* context() const noexcept { return ctx; }

    std::vector<unsigned char> get_der_data() const override;
    void write_der_file(const std::string& file_name) const override;
    std::string get_subject_name() const override;
    std::string get_issuer_name() const override;
    std::string get_subject_name_simple() const override;
    std::string get_issuer_name_simple() const override;

private:
    std::string name_text(CERT_NAME_BLOB& name, DWORD string_type) const;

    const CERT_CONTEXT* ctx;
    std::unique_ptr<const CERT_CONTEXT, FreeWith<&::CertFreeCertificateContext>> owned_; // ctx, or null
};

} // namespace Kes

#endif // KES_UTILS_CERT_WIN_H_
