#ifndef KES_CAPI_CAPI_BACKEND_H_
#define KES_CAPI_CAPI_BACKEND_H_

#include <cstdint>
#include <memory>

#include "base/ossl_engine.h"
#include "base/pko_id_list.h"
#include "utils/cert_key_usage.h"

/// What the manager needs of CryptoAPI. capi_backend_win.cpp has it; elsewhere capi_backend_posix.cpp answers
/// every call with Error unsupported.
namespace Kes::capi_backend {

/// Proves that the provider, and the card behind it, are there.
void probe(const char* csp_name);

std::unique_ptr<PkoIdScanner> create_scanner(const char* csp_name,
                                             std::unique_ptr<CertKeyUsageFilter> filter);
std::unique_ptr<PkoIdScanner> create_store_scanner(const char* store_name,
                                                   std::unique_ptr<CertKeyUsageFilter> filter);

std::unique_ptr<OsslEngine> create_engine(const char* engine_path, const char* csp_name,
                                          std::uint32_t key_type);
std::unique_ptr<OsslEngine> create_store_engine(const char* engine_path, const char* store_name);

} // namespace Kes::capi_backend

#endif // KES_CAPI_CAPI_BACKEND_H_
