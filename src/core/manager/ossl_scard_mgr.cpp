#include "manager/ossl_scard_mgr.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/env_settings.h"
#include "base/key_filter.h"
#include "manager/build_info.h"
#include "utils/error.h"
#include "utils/logger.h"
#include "utils/ossl_helper.h"

namespace Kes {
namespace {

const char* bool_name(bool value) { return value ? "true" : "false"; }

void require_record(const PkoId* pko_id, const char* location) {
    if (pko_id == nullptr) throw Error(ErrorCodeType::bad_argument, "pko_id is a null pointer", location);
}

void require_private_key(const PkoId& pko_id, const char* location) {
    if (pko_id.type != PkoType::private_key)
        throw Error(ErrorCodeType::bad_argument, "pko_id is not a private key", location);
}

} // namespace

std::string cfg_state_name(CfgState state) {
    switch (state) {
    case CfgState::uninitialized:
        break;
    case CfgState::initialized:
        return "initialized";
    case CfgState::configuring:
        return "configuring";
    case CfgState::configured:
        return "configured";
    }
    return "uninitialized";
}

// The configuration exists from the start, so that get_config_used() returns the defaults before init().
OsslScardMgr::OsslScardMgr()
    : cfg(new OsslScardCfgImp(OsslScardCfg::capi)),
      backends(std::make_unique<KeyBackends>()),
      version(library_version()) {
    log_build_banner(name, version);
    log_info("OpenSSL smart card manager started.");
}

OsslScardMgr::~OsslScardMgr() {
    // The order matters. Key and certificate are freed before the engine that read them. The engine is
    // unloaded before the libp11 context, which unloads the PKCS#11 module that both use.
    free_loaded();
    engine.reset();
    backends.reset();
    pin.clear();
    cfg.reset();
    default_cfg.reset();
    log_info("OpenSSL smart card manager stopped.");
}

OsslScardCfg* OsslScardMgr::get_config_default() {
    default_cfg.reset(new OsslScardCfgImp(OsslScardCfg::capi));
    return default_cfg.get();
}

void OsslScardMgr::init(const OsslScardCfg* cfg_in) {
    require_state({CfgState::uninitialized});
    if (cfg_in == nullptr)
        throw Error(ErrorCodeType::bad_argument, "cfg is a null pointer",
                    "ossl_scard_mgr:112 Kes::OsslScardMgr::init()");
    OsslScardCfgPtr copy(cfg_in->clone());
    if (!copy)
        throw Error(ErrorCodeType::null_pointer, "cfg cannot be cloned",
                    "ossl_scard_mgr:116 Kes::OsslScardMgr::init()");
    cfg = std::move(copy); // after the copy: cfg_in may be the configuration that is destroyed here
    load_settings_from_env(*cfg, env_prefix);
    selected_backend().open(settings());
    cfg_state = CfgState::initialized;
    log_settings();
    log_info("init done.");
}

void OsslScardMgr::read_scard() {
    require_state({CfgState::initialized, CfgState::configuring, CfgState::configured});
    clear();
    is_pin_required_ = false;
    is_pin_required_ = selected_backend().read_card(settings(), engine != nullptr);
    if (!is_pin_required_) pin.clear(); // a stored PIN belongs to an earlier card
    cfg_state = CfgState::configuring;
}

void OsslScardMgr::set_pin(const char* characters) {
    // Check the state before copying the PIN: on Windows a throw saves the CPU registers, which may still
    // hold PIN characters, to the stack.
    require_state({CfgState::configuring});
    pin = Pin(characters);
    log_info("setting pin");
}

void OsslScardMgr::discover_keys() {
    require_state({CfgState::configuring});
    // A back-end without a scanner leaves the earlier scanner in use. scan() fails if none is registered.
    if (auto created = selected_backend().create_scanner(settings(), create_key_filter(settings())))
        register_scanner(std::move(created));
    clear();
    scan(pin);
    if (is_empty())
        log_info(""); // for an empty list, log_lines() would not end the line
    else
        log_lines(Severity::info, static_cast<const PkoIdList&>(*this));
}

void OsslScardMgr::set_key_type(const PkoId* pko_id) {
    require_state({CfgState::configuring});
    require_record(pko_id, "ossl_scard_mgr:223 Kes::OsslScardMgr::set_key_type()");
    cfg->set_capi_key_type(pko_id->key_type);
    log_info("setting key type: ", settings().get_capi_key_type());
}

void OsslScardMgr::set_priv_key_name(const PkoId* pko_id) {
    require_state({CfgState::configuring});
    require_record(pko_id, "ossl_scard_mgr:248 Kes::OsslScardMgr::set_priv_key_name()");
    require_private_key(*pko_id, "ossl_scard_mgr:250 Kes::OsslScardMgr::set_priv_key_name()");
    const ThrowingSetters throwing_setters;
    cfg->set_priv_key_name(pko_id->name.c_str());
    log_info("setting private key name: ", settings().get_priv_key_name());
}

void OsslScardMgr::set_cert_name_from_priv_key(const PkoId* pko_id) {
    require_state({CfgState::configuring});
    require_record(pko_id, "ossl_scard_mgr:301 Kes::OsslScardMgr::set_cert_name_from_priv_key()");
    require_private_key(*pko_id, "ossl_scard_mgr:303 Kes::OsslScardMgr::set_cert_name_from_priv_key()");
    const PkoId* cert = find_matching(PkoType::certificate, pko_id);
    if (cert == nullptr)
        throw Error(ErrorCodeType::not_found, "no certificate for private key found",
                    "ossl_scard_mgr:307 Kes::OsslScardMgr::set_cert_name_from_priv_key()");
    const ThrowingSetters throwing_setters;
    cfg->set_cert_name(cert->name.c_str());
    log_info("setting certificate name: ", settings().get_cert_name());
}

void OsslScardMgr::notify_config_done() {
    require_state({CfgState::initialized, CfgState::configuring});
    // The environment also overrides what the client has set since init().
    load_settings_from_env(*cfg, env_prefix);
    need_ossl_reload = true;
    cfg_state = CfgState::configured;
    log_settings();
    log_info("configuration done.");
}

void OsslScardMgr::ossl_load() {
    require_state({CfgState::configured});
    if (!need_ossl_reload) return;
    free_loaded();
    // An existing engine is kept, even if the configuration now names another one.
    if (!engine) engine = selected_backend().create_engine(settings(), pin);
    if (!engine)
        throw Error(ErrorCodeType::invalid_state, "openssl engine not created",
                    "ossl_scard_mgr:372 Kes::OsslScardMgr::ossl_load()");
    try {
        load_key_and_certificate();
    } catch (const ErrorBase& error) {
        // A certificate that was read stays until the next load or unload, because it does not depend on the
        // card. need_ossl_reload stays set, so that the client can try again.
        OsslEngine::free_key(std::move(private_key));
        throw ErrorBase(error);
    }
    need_ossl_reload = false;
}

void OsslScardMgr::load_key_and_certificate() {
    engine->set_key_type(settings().get_capi_key_type());
    engine->set_pin(pin);
    private_key = engine->read_private_key(settings().get_priv_key_name());
    certificate = engine->read_certificate(settings().get_cert_name());
    log_info("certificate info:");
    log_info("  subject: ", OsslHelper::cert_name_to_str(certificate.get(), OsslHelper::subject));
    log_info("  issuer:  ", OsslHelper::cert_name_to_str(certificate.get(), OsslHelper::issuer));
}

void OsslScardMgr::ossl_unload() {
    require_state({CfgState::configured});
    free_loaded();
}

void OsslScardMgr::free_loaded() noexcept {
    OsslEngine::free_certificate(std::move(certificate));
    OsslEngine::free_key(std::move(private_key));
}

void OsslScardMgr::require_state(std::initializer_list<CfgState> allowed) const {
    if (std::find(allowed.begin(), allowed.end(), cfg_state) != allowed.end()) return;
    throw Error(ErrorCodeType::invalid_state,
                "operation not allowed in current state (cfg_state=" + cfg_state_name(cfg_state) + ")", "");
}

KeyBackend& OsslScardMgr::selected_backend() const { return backends->select(settings().get_crypto_if()); }

void OsslScardMgr::log_settings() const {
    if (!Logger::instance().is_enabled(Severity::info)) return;
    std::array<char, 4096> dump{};
    cfg->dump_settings(dump.data(), dump.size());
    dump.back() = '\0'; // a client's own class may return null, or leave a full buffer unterminated
    log_info("OpenSSL smart card manager settings:\n", dump.data(),
             "additional settings:\n  cfg_state=", cfg_state_name(cfg_state),
             "\n  is_pin_required=", bool_name(is_pin_required_),
             "\n  pin specified=", bool_name(!pin.is_empty()),
             "\n  need_ossl_reload=", bool_name(need_ossl_reload));
}

} // namespace Kes
