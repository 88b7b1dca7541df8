#ifndef KES_CAPI_PKO_ID_SCANNER_CAPI_STORE_H_
#define KES_CAPI_PKO_ID_SCANNER_CAPI_STORE_H_

#include <memory>
#include <string>

#include "base/pko_id_list.h"
#include "utils/cert_win.h"

namespace Kes {

/// Finds the certificates in a system store of the current user. One that passes the filter gives three
/// records: private key, public key, certificate. All three are named by the subject's simple name, also when
/// that is empty or not the only one of its kind.
class CapiStorePkoIdScanner final : public PkoIdScanner {
public:
    /// @param store_name_in  null counts as ""
    CapiStorePkoIdScanner(const char* store_name_in, std::unique_ptr<CertKeyUsageFilter> filter);
    ~CapiStorePkoIdScanner() override;

    /// Needs no PIN. @throws ErrorBase when there is no such store, OsslError for what is no certificate
    void scan(const Pin& pin) override;

private:
    void add_certificate(const WinCert& cert);

    const std::string store_name;
};

} // namespace Kes

#endif // KES_CAPI_PKO_ID_SCANNER_CAPI_STORE_H_
