#ifndef KES_CAPI_PKO_ID_SCANNER_CAPI_H_
#define KES_CAPI_PKO_ID_SCANNER_CAPI_H_

#include <memory>
#include <string>

#include "base/pko_id_list.h"
#include "capi/capi_helper.h"

namespace Kes {

/// Finds the keys in the containers of a CryptoAPI provider. A key whose certificate passes the filter gives
/// three records: private key, public key, certificate. All three are named by the container.
class CapiPkoIdScanner final : public PkoIdScanner {
public:
    CapiPkoIdScanner(std::string csp_name_in, std::unique_ptr<CertKeyUsageFilter> filter);
    ~CapiPkoIdScanner() override;

    /// Needs no PIN: CryptoAPI asks for it by itself when a key is used. A container that Windows reports an
    /// error for is left out. @throws WinError when the provider cannot be opened or asked, OsslError for
    /// what is stored as a certificate and is none
    void scan(const Pin& pin) override;

private:
    void scan_container(const std::string& container, const CapiKeySpecs& key_specs);
    void add_key(const CapiInit& capi, const std::string& container, std::uint32_t key_spec);

    const std::string csp_name;
};

} // namespace Kes

#endif // KES_CAPI_PKO_ID_SCANNER_CAPI_H_
