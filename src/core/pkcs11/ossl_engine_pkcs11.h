#ifndef KES_PKCS11_OSSL_ENGINE_PKCS11_H_
#define KES_PKCS11_OSSL_ENGINE_PKCS11_H_

#include <string>

#include "base/ossl_engine.h"
#include "pkcs11/pkcs11_engine_registry.h"

namespace Kes {

/// libp11's engine. It reads keys and certificates of a PKCS#11 token, which "pkcs11:" URIs identify.
class Pkcs11OsslEngine final : public OsslEngine {
public:
    /// Loads the engine and makes it the default for all methods.
    /// @param engine_path  a path, or a name without a folder. OpenSSL uses a path as it is, and adds the
    ///                     system's suffix for libraries to a name
    /// @param module_path  the PKCS#11 module: a file name or path for the system's loader
    /// @param pin          passed to the engine even if it is empty; null passes no PIN
    /// @param verbose      whether the engine prints what it does; the back-end passes false
    /// @throws OsslError
    Pkcs11OsslEngine(const char* engine_path, const char* module_path, const Pin* pin, bool verbose);
    ~Pkcs11OsslEngine() override;

    /// @throws Error bad_argument for a null name, Error not_found, OsslError
    X509Ptr read_certificate(const char* name) override;

    /// @throws OsslError
    void set_pin(const Pin& pin) override;

private:
    void prepare_load(const char* engine_path) override;
    void keep_engine() noexcept override;
    EnginePtr reuse_engine(const char* engine_path) override;
    const char* refusal(const char* engine_path) override;
    EvpPkeyPtr lend_key(EvpPkeyPtr engine_key) override;
    void explain_failure() override;
    void configure(const Pin* pin, bool verbose);

    const std::string module_path; // kept: the engine may not load the module before the first key is read
    LoadedEngine loaded;
};

} // namespace Kes

#endif // KES_PKCS11_OSSL_ENGINE_PKCS11_H_
