#ifndef KES_MANAGER_OSSL_SCARD_MGR_H_
#define KES_MANAGER_OSSL_SCARD_MGR_H_

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "base/cfg_reader.h"
#include "base/ossl_engine.h"
#include "base/ossl_scard_cfg_imp.h"
#include "base/pko_id_list.h"
#include "manager/key_backends.h"
#include "utils/ossl_ptr.h"
#include "utils/pin.h"
#include "utils/singleton.h"

namespace Kes {

/// The states of the manager. Their names are part of messages and of the settings dump.
enum class CfgState : std::uint32_t { uninitialized = 0, initialized = 1, configuring = 2, configured = 3 };

/// Returns the name of a state, and "uninitialized" for any other value.
std::string cfg_state_name(CfgState state);

/// Does the work behind the exported interface and enforces the order of its operations:
///
///     uninitialized --init--> initialized --read_scard--> configuring --notify_config_done--> configured
///
/// notify_config_done is also allowed in initialized, and read_scard in configuring and configured. Only
/// read_scard leads back to an earlier state. An operation that the state does not allow throws Error
/// invalid_state and changes nothing. An operation that fails does not change the state.
///
/// The manager is also the list of the keys that were found, and owns all objects that clients receive.
/// OsslScardIf documents the operations; here, they report failures as ErrorBase.
class OsslScardMgr final : public PkoIdList, public Singleton<OsslScardMgr> {
public:
    /// Creates a configuration with the default settings.
    /// @return borrowed; valid until the next call, which destroys it
    OsslScardCfg* get_config_default();

    OsslScardCfg* get_config_used() const noexcept { return cfg.get(); }

    /// The configuration in use, for reading. Valid until init() replaces it.
    CfgReader settings() const noexcept { return CfgReader(*cfg); }

    void init(const OsslScardCfg* cfg_in);
    void read_scard();
    bool is_pin_required() const noexcept { return is_pin_required_; }

    /// The tokens that the last read_scard() found; empty for a back-end that does not know tokens.
    std::vector<TokenInfo> tokens() const { return selected_backend().tokens(); }

    void set_pin(const char* characters);
    void discover_keys();
    void set_key_type(const PkoId* pko_id);
    void set_priv_key_name(const PkoId* pko_id);
    void set_cert_name_from_priv_key(const PkoId* pko_id);
    void notify_config_done();
    void ossl_load();
    void ossl_unload();

    /// The objects that ossl_load() has loaded, borrowed; null before it and after ossl_unload(). A failed
    /// load leaves no key, but possibly a certificate.
    EVP_PKEY* get_private_key() const noexcept { return private_key.get(); }
    X509* get_certificate() const noexcept { return certificate.get(); }

    const char* get_version() const noexcept { return version.c_str(); }

private:
    friend class Singleton<OsslScardMgr>;
    OsslScardMgr();
    ~OsslScardMgr() override;

    void require_state(std::initializer_list<CfgState> allowed) const;
    KeyBackend& selected_backend() const;
    void load_key_and_certificate();
    void free_loaded() noexcept;
    void log_settings() const;

    OsslScardCfgPtr default_cfg;
    OsslScardCfgPtr cfg;
    CfgState cfg_state = CfgState::uninitialized;
    bool is_pin_required_ = false;
    Pin pin;
    std::unique_ptr<KeyBackends> backends;
    std::unique_ptr<OsslEngine> engine;
    EvpPkeyPtr private_key;
    X509Ptr certificate;
    bool need_ossl_reload = false;
    const std::string name = "ossl_scard";
    const std::string version;
};

} // namespace Kes

#endif // KES_MANAGER_OSSL_SCARD_MGR_H_
