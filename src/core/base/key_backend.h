#ifndef KES_BASE_KEY_BACKEND_H_
#define KES_BASE_KEY_BACKEND_H_

#include <memory>
#include <vector>

#include "base/cfg_reader.h"
#include "base/ossl_engine.h"
#include "base/pko_id_list.h"
#include "base/token_info.h"
#include "utils/cert_key_usage.h"
#include "utils/pin.h"

namespace Kes {

/// Access to the keys in one kind of storage. Each value of OsslScardCfg::CryptoIf has an implementation.
///
/// The manager selects the back-end for each operation, because a client may change the configuration between
/// two operations. Therefore an operation receives the settings, and must not assume that open() was called.
/// All operations report failures as ErrorBase.
class KeyBackend {
public:
    KeyBackend() = default;
    virtual ~KeyBackend() = default;
    KeyBackend(const KeyBackend&) = delete;
    KeyBackend& operator=(const KeyBackend&) = delete;

    /// Loads what the back-end keeps until it is destroyed. Called by init(), for the configured back-end.
    virtual void open(const CfgReader& settings) = 0;

    /// Finds the card, or checks that its provider exists.
    /// @param is_engine_loaded  whether an engine exists; its keys may depend on what an earlier call found
    /// @return whether the card requires the PIN from the client
    virtual bool read_card(const CfgReader& settings, bool is_engine_loaded) = 0;

    /// The tokens that the last read_card() found, in the order of the PKCS#11 module. Empty for a back-end
    /// that does not know tokens, and if the read failed.
    virtual std::vector<TokenInfo> tokens() const { return {}; }

    /// Creates the scanner that fills the list of keys.
    /// @param filter  selects the keys to offer
    /// @return null if the back-end has no scanner
    virtual std::unique_ptr<PkoIdScanner> create_scanner(const CfgReader& settings,
                                                         std::unique_ptr<CertKeyUsageFilter> filter) = 0;

    /// Loads the engine that reads keys and certificates.
    /// @return null if the back-end has no engine
    virtual std::unique_ptr<OsslEngine> create_engine(const CfgReader& settings, const Pin& pin) = 0;
};

} // namespace Kes

#endif // KES_BASE_KEY_BACKEND_H_
