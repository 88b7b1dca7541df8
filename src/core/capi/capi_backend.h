#ifndef KES_CAPI_CAPI_BACKEND_H_
#define KES_CAPI_CAPI_BACKEND_H_

#include <memory>

#include "base/key_backend.h"

namespace Kes {

/// Create the two back-ends of CryptoAPI: for the key containers of a provider, and for a certificate store
/// of the current user. On systems other than Windows, the first operation that needs Windows throws Error
/// unsupported.
std::unique_ptr<KeyBackend> create_capi_backend();
std::unique_ptr<KeyBackend> create_capi_store_backend();

} // namespace Kes

#endif // KES_CAPI_CAPI_BACKEND_H_
