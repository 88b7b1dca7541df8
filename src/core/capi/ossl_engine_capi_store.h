#ifndef KES_CAPI_OSSL_ENGINE_CAPI_STORE_H_
#define KES_CAPI_OSSL_ENGINE_CAPI_STORE_H_

#include <string>

#include "base/ossl_engine.h"

namespace Kes {

/// OpenSSL's CryptoAPI engine on a system certificate store of the current user. A name is a text that the
/// certificate's subject contains; of several such certificates the first in the store's order is meant.
class CapiStoreOsslEngine final : public OsslEngine {
public:
    /// Loads the engine and makes it the default for all methods.
    /// @param engine_path  as for Pkcs11OsslEngine
    /// @param debug_file   where the engine writes what it does; "" for nowhere
    CapiStoreOsslEngine(const char* engine_path, const char* store_name_in, const std::string& debug_file);
    ~CapiStoreOsslEngine() override;

    EvpPkeyPtr read_public_key(const char* name) override;
    X509Ptr read_certificate(const char* name) override;

private:
    const std::string store_name;
};

} // namespace Kes

#endif // KES_CAPI_OSSL_ENGINE_CAPI_STORE_H_
