#ifndef KES_CAPI_OSSL_ENGINE_CAPI_STORE_H_
#define KES_CAPI_OSSL_ENGINE_CAPI_STORE_H_

#include <string>

#include "base/ossl_engine.h"

namespace Kes {

/// OpenSSL's CryptoAPI engine, for a system certificate store of the current user. A name is a substring of
/// the certificate's subject, and identifies the first such certificate in the store's order.
class CapiStoreOsslEngine final : public OsslEngine {
public:
    /// Loads the engine and makes it the default for all methods.
    /// @param engine_path  as for Pkcs11OsslEngine
    /// @param debug_file   the file for the engine's debug output; "" for none, which the back-end passes
    /// @throws OsslError
    CapiStoreOsslEngine(const char* engine_path, const char* store_name_in, const std::string& debug_file);
    ~CapiStoreOsslEngine() override;

    /// Returns the public key of the certificate. @throws as read_certificate(), and Error not_found
    EvpPkeyPtr read_public_key(const char* name) override;

    /// @throws OsslError if no such certificate exists or it cannot be decoded, and the store's errors
    X509Ptr read_certificate(const char* name) override;

private:
    const std::string store_name;
};

} // namespace Kes

#endif // KES_CAPI_OSSL_ENGINE_CAPI_STORE_H_
