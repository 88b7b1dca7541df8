#ifndef KES_CAPI_OSSL_ENGINE_CAPI_H_
#define KES_CAPI_OSSL_ENGINE_CAPI_H_

#include <cstdint>
#include <string>

#include "base/ossl_engine.h"

namespace Kes {

/// OpenSSL's CryptoAPI engine on the key containers of one provider. A name is that of a container; which of
/// its two keys is meant, the key type says. Private keys are the engine's; public keys and certificates are
/// read from the provider.
class CapiOsslEngine final : public OsslEngine {
public:
    /// Loads the engine and makes it the default for all methods.
    /// @param engine_path  as for Pkcs11OsslEngine
    /// @param key_type_in  AT_KEYEXCHANGE (1) or AT_SIGNATURE (2)
    /// @param debug_file   where the engine writes what it does; "" for nowhere
    CapiOsslEngine(const char* engine_path, const char* csp_name_in, std::uint32_t key_type_in,
                   const std::string& debug_file);
    ~CapiOsslEngine() override;

    EvpPkeyPtr read_public_key(const char* name) override;
    X509Ptr read_certificate(const char* name) override;

    /// For the engine and for what is read from the provider. After a failure the type before stays.
    void set_key_type(std::uint32_t key_type_in) override;

private:
    // A copy: the configuration that it comes from may be changed while the engine lives.
    const std::string csp_name;
    std::uint32_t key_type = 0;
};

} // namespace Kes

#endif // KES_CAPI_OSSL_ENGINE_CAPI_H_
