#ifndef KES_BASE_KEY_BACKEND_H_
#define KES_BASE_KEY_BACKEND_H_

#include <memory>

#include "base/cfg_reader.h"
#include "base/ossl_engine.h"
#include "base/pko_id_list.h"
#include "utils/cert_key_usage.h"
#include "utils/pin.h"

namespace Kes {

/// A place where keys live: one implementation for each value of OsslScardCfg::CryptoIf.
///
/// The manager selects the back-end anew for each operation, because a client may change the configuration
/// between two of them. So every operation takes the settings, and none relies on an earlier open().
class KeyBackend {
public:
    KeyBackend() = default;
    virtual ~KeyBackend() = default;
    KeyBackend(const KeyBackend&) = delete;
    KeyBackend& operator=(const KeyBackend&) = delete;

    /// Loads what the back-end keeps as long as it lives. Called by init() for the configured back-end alone.
    virtual void open(const CfgReader& settings) = 0;

    /// Finds the card, or proves that its provider exists.
    /// @param is_engine_loaded  whether keys of an engine may depend on what an earlier call found
    /// @return whether the card requires a PIN
    virtual bool read_card(const CfgReader& settings, bool is_engine_loaded) = 0;

    /// Fails when the card that read_card() found requires a login that has not been made, and the PIN is
    /// empty.
    virtual void require_pin(const Pin& pin) const = 0;

    /// Creates the scanner that fills the list of keys; null when the back-end has none.
    /// @param filter  which keys to offer
    virtual std::unique_ptr<PkoIdScanner> create_scanner(const CfgReader& settings,
                                                         std::unique_ptr<CertKeyUsageFilter> filter) = 0;

    /// Loads the engine that reads keys and certificates; null when the back-end has none.
    virtual std::unique_ptr<OsslEngine> create_engine(const CfgReader& settings, const Pin& pin) = 0;
};

} // namespace Kes

#endif // KES_BASE_KEY_BACKEND_H_
