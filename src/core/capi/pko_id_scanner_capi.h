#ifndef KES_CAPI_PKO_ID_SCANNER_CAPI_H_
#define KES_CAPI_PKO_ID_SCANNER_CAPI_H_

#include <cstdint>
#include <memory>
#include <string>

#include "base/key_observer.h"
#include "base/pko_id_list.h"
#include "capi/capi_helper.h"

namespace Kes {

/// Finds the keys in the containers of a CryptoAPI provider. Adds three records for each key whose
/// certificate passes the filter: private key, public key, certificate. Their name is that of the container.
class CapiPkoIdScanner final : public PkoIdScanner {
public:
    CapiPkoIdScanner(std::string csp_name_in, std::unique_ptr<CertKeyUsageFilter> filter);
    ~CapiPkoIdScanner() override;

    /// Ignores the PIN, because CryptoAPI asks the user for it when a key is used. If a container fails, the
    /// rest of the container is skipped and the failure is logged.
    /// @throws WinError if the provider cannot be opened or queried, Error unsupported if it does not list
    ///         its containers
    void scan(const Pin& pin) override;

private:
    /// @param key_spec  the key being read, for the report of a failure
    void scan_container(const std::string& container, const CapiKeySpecs& key_specs, std::uint32_t& key_spec);
    void add_key(const CapiInit& capi, const std::string& container, std::uint32_t key_spec);

    void report_failure(const std::string& container, std::uint32_t key_spec, const char* reason) const;

    const std::string csp_name;
};

} // namespace Kes

#endif // KES_CAPI_PKO_ID_SCANNER_CAPI_H_
