#ifndef KES_PKCS11_OSSL_ENGINE_PKCS11_H_
#define KES_PKCS11_OSSL_ENGINE_PKCS11_H_

#include <string>

#include "base/ossl_engine.h"
#include "pkcs11/pkcs11_engine_registry.h"

namespace Kes {

/// libp11's engine: keys and certificates of a PKCS#11 token, named by "pkcs11:" URIs.
class Pkcs11OsslEngine final : public OsslEngine {
public:
    /// Loads the engine and makes it the default for all methods.
    /// @param engine_path  a path with a separator is taken as it is; to a bare name OpenSSL adds the
    /// system's suffix
    /// @param module_path  the PKCS#11 module, for the system's loader
    /// @param pin          null sends no PIN; an empty one is sent as it is
    Pkcs11OsslEngine(const char* engine_path, const char* module_path, const Pin* pin, bool verbose);
    ~Pkcs11OsslEngine() override;

    X509Ptr read_certificate(const char* name) override;
    void set_pin(const Pin& pin) override;

private:
    bool keep_engine(const char* engine_path) override;
    EnginePtr reuse_engine(const char* engine_path) override;
    EvpPkeyPtr lend_key(EvpPkeyPtr engine_key) override;
    void explain_failure() override;
    void configure(const Pin* pin, bool verbose);

    const std::string module_path; // the engine may load the module as late as with the first key
    LoadedEngine loaded;
};

} // namespace Kes

#endif // KES_PKCS11_OSSL_ENGINE_PKCS11_H_
