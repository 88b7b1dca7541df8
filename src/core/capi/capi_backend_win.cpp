#include "capi/capi_backend.h"

#include <utility>

#include "capi/capi_helper.h"
#include "capi/ossl_engine_capi.h"
#include "capi/ossl_engine_capi_store.h"
#include "capi/pko_id_scanner_capi.h"
#include "capi/pko_id_scanner_capi_store.h"

namespace Kes::capi_backend {

void probe(const char* csp_name) { const CapiInit capi(csp_name, nullptr, 0); }

std::unique_ptr<PkoIdScanner> create_scanner(const char* csp_name,
                                             std::unique_ptr<CertKeyUsageFilter> filter) {
    return std::make_unique<CapiPkoIdScanner>(csp_name, std::move(filter));
}

std::unique_ptr<PkoIdScanner> create_store_scanner(const char* store_name,
                                                   std::unique_ptr<CertKeyUsageFilter> filter) {
    return std::make_unique<CapiStorePkoIdScanner>(store_name, std::move(filter));
}

std::unique_ptr<OsslEngine> create_engine(const char* engine_path, const char* csp_name,
                                          std::uint32_t key_type) {
    return std::make_unique<CapiOsslEngine>(engine_path, csp_name, key_type, "");
}

std::unique_ptr<OsslEngine> create_store_engine(const char* engine_path, const char* store_name) {
    return std::make_unique<CapiStoreOsslEngine>(engine_path, store_name, "");
}

} // namespace Kes::capi_backend
