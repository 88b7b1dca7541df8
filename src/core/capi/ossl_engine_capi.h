#ifndef KES_CAPI_OSSL_ENGINE_CAPI_H_
#define KES_CAPI_OSSL_ENGINE_CAPI_H_

#include <cstdint>
#include <string>

#include "base/ossl_engine.h"

namespace Kes {

/// OpenSSL's CryptoAPI engine, for the key containers of one provider. Names are those of containers, and the
/// key type selects one of a container's two keys. The engine reads private keys; this class reads public
/// keys and certificates from the provider.
class CapiOsslEngine final : public OsslEngine {
public:
    /// Loads the engine and makes it the default for all methods.
    /// @param engine_path  as for Pkcs11OsslEngine
    /// @param key_type_in  AT_KEYEXCHANGE (1) or AT_SIGNATURE (2)
    /// @param debug_file   the file for the engine's debug output; "" for none, which the back-end passes
    /// @throws OsslError
    CapiOsslEngine(const char* engine_path, const char* csp_name_in, std::uint32_t key_type_in,
                   const std::string& debug_file);
    ~CapiOsslEngine() override;

    /// @throws WinError, OsslError
    EvpPkeyPtr read_public_key(const char* name) override;

    /// @throws Error unsupported, WinError, OsslError
    X509Ptr read_certificate(const char* name) override;

    /// Sets the key type for the engine and for reads from the provider. After a failure, the earlier type
    /// stays. @throws OsslError
    void set_key_type(std::uint32_t key_type_in) override;

private:
    // A copy, because the client may change the configuration while the engine exists.
    const std::string csp_name;
    std::uint32_t key_type = 0;
};

} // namespace Kes

#endif // KES_CAPI_OSSL_ENGINE_CAPI_H_
