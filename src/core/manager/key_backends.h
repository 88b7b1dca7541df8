#ifndef KES_MANAGER_KEY_BACKENDS_H_
#define KES_MANAGER_KEY_BACKENDS_H_

#include <memory>

#include "base/key_backend.h"

namespace Kes {

/// Owns one back-end for each value of OsslScardCfg::CryptoIf, and selects among them.
class KeyBackends {
public:
    KeyBackends();

    /// @return lent; for a value that CryptoIf does not name, a back-end that finds nothing and creates
    /// nothing
    KeyBackend& select(OsslScardCfg::CryptoIf crypto_if) const noexcept;

private:
    std::unique_ptr<KeyBackend> capi;
    std::unique_ptr<KeyBackend> pkcs11;
    std::unique_ptr<KeyBackend> capi_store;
    std::unique_ptr<KeyBackend> unknown;
};

} // namespace Kes

#endif // KES_MANAGER_KEY_BACKENDS_H_
