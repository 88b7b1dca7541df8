#ifndef KES_UTILS_CERT_WIN_H_
#define KES_UTILS_CERT_WIN_H_

#include <memory>
#include <string>
#include <vector>

#include "utils/cert.h"
#include "utils/ossl_ptr.h"
#include "utils/windows_api.h"

namespace Kes {

/// A certificate that Windows stores. The full names have the X.500 format ("CN=a, O=b"); the simple names
/// contain only the values ("a, b"). Windows converts the names to its ANSI code page.
class WinCert final : public Cert {
public:
    /// @param ctx_in  must not be null; must stay valid as long as this object if owns is false
    /// @param owns    whether the destructor frees the context
    /// @throws Error bad_argument for a null pointer
    WinCert(const CERT_CONTEXT* ctx_in, bool owns);
    ~WinCert() override;

    /// The Windows object, valid as long as this object exists. Never null.
    const CERT_CONTEXT* context() const noexcept { return ctx; }

    std::vector<unsigned char> get_der_data() const override;
    void write_der_file(const std::string& file_name) const override;
    std::string get_subject_name() const override;
    std::string get_issuer_name() const override;
    std::string get_subject_name_simple() const override;
    std::string get_issuer_name_simple() const override;

private:
    /// @param string_type  CERT_X500_NAME_STR or CERT_SIMPLE_NAME_STR
    std::string name_text(CERT_NAME_BLOB& name, DWORD string_type) const;

    const CERT_CONTEXT* ctx;
    // The same pointer as ctx, or null if this object does not own the context.
    std::unique_ptr<const CERT_CONTEXT, FreeWith<&::CertFreeCertificateContext>> owned_ctx;
};

} // namespace Kes

#endif // KES_UTILS_CERT_WIN_H_
