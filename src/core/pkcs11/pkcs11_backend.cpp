#include "pkcs11/pkcs11_backend.h"

#include <utility>

#include "pkcs11/ossl_engine_pkcs11.h"
#include "pkcs11/pkcs11_engine_registry.h"
#include "pkcs11/pko_id_scanner_pkcs11_libp11.h"
#include "utils/error.h"
#include "utils/text_helper.h"

namespace Kes {
namespace {

TokenInfo describe(const PKCS11_SLOT& slot, bool is_used) {
    const PKCS11_TOKEN& token = *slot.token;
    return {.reader = TextHelper::text_or_empty(slot.description),
            .label = TextHelper::text_or_empty(token.label),
            .manufacturer = TextHelper::text_or_empty(token.manufacturer),
            .model = TextHelper::text_or_empty(token.model),
            .serial = TextHelper::text_or_empty(token.serialnr),
            .is_used = is_used,
            .is_initialized = token.initialized != 0,
            .is_login_required = token.loginRequired != 0,
            .has_pin_pad = token.secureLogin != 0,
            .is_pin_set = token.userPinSet != 0,
            .is_pin_count_low = token.userPinCountLow != 0,
            .is_final_try = token.userPinFinalTry != 0,
            .is_locked = token.userPinLocked != 0,
            .must_pin_be_changed = token.userPinToBeChanged != 0};
}

} // namespace

void Pkcs11Backend::open(const CfgReader& settings) {
    // A pending clean-up finalizes the module, so it must run before the module is loaded.
    Pkcs11EngineRegistry::instance().clean_up_pending();
    libp11 = std::make_unique<Libp11Init>(settings.get_pkcs11_module_dll());
}

bool Pkcs11Backend::read_card(const CfgReader&, bool is_engine_loaded) {
    Libp11Init& context = require_libp11();
    // Releasing slots closes all sessions of the module: the login would end, and an engine's keys would
    // become unusable. See docs/decisions/0002-slots-of-earlier-reads.md.
    if (!is_engine_loaded && !context.has_logged_in()) context.release_slots();
    context.read_scard();
    return context.is_login_required();
}

std::vector<TokenInfo> Pkcs11Backend::tokens() const {
    std::vector<TokenInfo> tokens;
    if (!libp11) return tokens;
    for (const PKCS11_SLOT& slot : libp11->listed_slots())
        if (slot.token != nullptr) tokens.push_back(describe(slot, &slot == libp11->slot_in_use()));
    return tokens;
}

std::unique_ptr<PkoIdScanner> Pkcs11Backend::create_scanner(const CfgReader&,
                                                            std::unique_ptr<CertKeyUsageFilter> filter) {
    return std::make_unique<Pkcs11Libp11PkoIdScanner>(&require_libp11(), std::move(filter));
}

std::unique_ptr<OsslEngine> Pkcs11Backend::create_engine(const CfgReader& settings, const Pin& pin) {
    return std::make_unique<Pkcs11OsslEngine>(settings.get_pkcs11_openssl_engine_dll(),
                                              settings.get_pkcs11_module_dll(), &pin, false);
}

Libp11Init& Pkcs11Backend::require_libp11() const {
    // Users search for this message. Its location names the place of the check in version 4.3.0.
    if (!libp11)
        throw Error(ErrorCodeType::not_initialized, "crypto interface pkcs11 was chosen after init()",
                    "ossl_scard_mgr:418 Kes::OsslScardMgr::require_libp11()");
    return *libp11;
}

} // namespace Kes
