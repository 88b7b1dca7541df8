#include "capi/capi_backend.h"
#include "utils/error.h"

namespace Kes::capi_backend {
namespace {

// Told at the first operation that needs Windows; settings, names and menus work everywhere.
constexpr const char* capi_message = "crypto interface capi is available on Windows only";
constexpr const char* capi_store_message = "crypto interface capi_store is available on Windows only";

} // namespace

void probe(const char*) {
    throw Error(ErrorCodeType::unsupported, capi_message, "capi_backend:15 Kes::capi_backend::probe()");
}

std::unique_ptr<PkoIdScanner> create_scanner(const char*, std::unique_ptr<CertKeyUsageFilter>) {
    throw Error(ErrorCodeType::unsupported, capi_message,
                "capi_backend:19 Kes::capi_backend::create_scanner()");
}

std::unique_ptr<PkoIdScanner> create_store_scanner(const char*, std::unique_ptr<CertKeyUsageFilter>) {
    throw Error(ErrorCodeType::unsupported, capi_store_message,
                "capi_backend:23 Kes::capi_backend::create_store_scanner()");
}

std::unique_ptr<OsslEngine> create_engine(const char*, const char*, std::uint32_t) {
    throw Error(ErrorCodeType::unsupported, capi_message,
                "capi_backend:28 Kes::capi_backend::create_engine()");
}

std::unique_ptr<OsslEngine> create_store_engine(const char*, const char*) {
    throw Error(ErrorCodeType::unsupported, capi_store_message,
                "capi_backend:32 Kes::capi_backend::create_store_engine()");
}

} // namespace Kes::capi_backend
