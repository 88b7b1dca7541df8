#ifndef KES_MANAGER_KEY_BACKENDS_H_
#define KES_MANAGER_KEY_BACKENDS_H_

#include <memory>

#include "base/key_backend.h"

namespace Kes {

/// Owns one back-end for each value of OsslScardCfg::CryptoIf.
class KeyBackends {
public:
    KeyBackends();

    /// @return borrowed. For a value that CryptoIf does not define, a back-end without scanner and engine
    KeyBackend& select(OsslScardCfg::CryptoIf crypto_if) const noexcept;

private:
    std::unique_ptr<KeyBackend> capi;
    std::unique_ptr<KeyBackend> pkcs11;
    std::unique_ptr<KeyBackend> capi_store;
    std::unique_ptr<KeyBackend> unknown;
};

} // namespace Kes

#endif // KES_MANAGER_KEY_BACKENDS_H_
