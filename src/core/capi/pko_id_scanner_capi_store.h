#ifndef KES_CAPI_PKO_ID_SCANNER_CAPI_STORE_H_
#define KES_CAPI_PKO_ID_SCANNER_CAPI_STORE_H_

#include <memory>
#include <string>

#include "base/pko_id_list.h"
#include "utils/cert_win.h"

namespace Kes {

/// Finds the certificates in a system store of the current user. Adds three records for each certificate that
/// passes the filter: private key, public key, certificate. Their name is the simple name of the subject,
/// even if it is empty or not unique.
class CapiStorePkoIdScanner final : public PkoIdScanner {
public:
    /// @param store_name_in  null means ""
    CapiStorePkoIdScanner(const char* store_name_in, std::unique_ptr<CertKeyUsageFilter> filter);
    ~CapiStorePkoIdScanner() override;

    /// Ignores the PIN.
    /// @throws ErrorBase if the store does not exist, OsslError if a certificate cannot be decoded
    void scan(const Pin& pin) override;

private:
    void add_certificate(const WinCert& cert);

    const std::string store_name;
};

} // namespace Kes

#endif // KES_CAPI_PKO_ID_SCANNER_CAPI_STORE_H_
