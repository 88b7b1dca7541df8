#include <utility>

#include "capi/capi_backend.h"
#include "capi/capi_helper.h"
#include "capi/ossl_engine_capi.h"
#include "capi/ossl_engine_capi_store.h"
#include "capi/pko_id_scanner_capi.h"
#include "capi/pko_id_scanner_capi_store.h"

namespace Kes {
namespace {

/// A back-end without a PIN from the client: CryptoAPI asks the user for it when a key is used.
class NoPinBackend : public KeyBackend {
public:
    void open(const CfgReader&) override {}
};

class CapiBackend final : public NoPinBackend {
public:
    /// Opens and closes the provider, which fails if the provider or its card does not exist.
    bool read_card(const CfgReader& settings, bool) override {
        const CapiInit capi(settings.get_capi_csp_name(), nullptr, 0);
        return false;
    }

    std::unique_ptr<PkoIdScanner> create_scanner(const CfgReader& settings,
                                                 std::unique_ptr<CertKeyUsageFilter> filter) override {
        return std::make_unique<CapiPkoIdScanner>(settings.get_capi_csp_name(), std::move(filter));
    }

    std::unique_ptr<OsslEngine> create_engine(const CfgReader& settings, const Pin&) override {
        return std::make_unique<CapiOsslEngine>(settings.get_capi_openssl_engine_dll(),
                                                settings.get_capi_csp_name(), settings.get_capi_key_type(),
                                                "");
    }
};

class CapiStoreBackend final : public NoPinBackend {
public:
    /// Checks nothing: a store needs no card, and the scan reports a store that does not exist.
    bool read_card(const CfgReader&, bool) override { return false; }

    std::unique_ptr<PkoIdScanner> create_scanner(const CfgReader& settings,
                                                 std::unique_ptr<CertKeyUsageFilter> filter) override {
        return std::make_unique<CapiStorePkoIdScanner>(settings.get_capi_store_cert_store_name(),
                                                       std::move(filter));
    }

    std::unique_ptr<OsslEngine> create_engine(const CfgReader& settings, const Pin&) override {
        return std::make_unique<CapiStoreOsslEngine>(settings.get_capi_store_openssl_engine_dll(),
                                                     settings.get_capi_store_cert_store_name(), "");
    }
};

} // namespace

std::unique_ptr<KeyBackend> create_capi_backend() { return std::make_unique<CapiBackend>(); }

std::unique_ptr<KeyBackend> create_capi_store_backend() { return std::make_unique<CapiStoreBackend>(); }

} // namespace Kes
