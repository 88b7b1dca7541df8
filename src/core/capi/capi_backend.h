#ifndef KES_CAPI_CAPI_BACKEND_H_
#define KES_CAPI_CAPI_BACKEND_H_

#include <memory>

#include "base/key_backend.h"

namespace Kes {

/// Create the two back-ends of CryptoAPI: key containers of a provider, and a certificate store of the
/// current user. On systems other than Windows both fail with Error unsupported as soon as they are needed.
std::unique_ptr<KeyBackend> create_capi_backend();
std::unique_ptr<KeyBackend> create_capi_store_backend();

} // namespace Kes

#endif // KES_CAPI_CAPI_BACKEND_H_
