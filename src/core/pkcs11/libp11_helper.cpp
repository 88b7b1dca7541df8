#include "pkcs11/libp11_helper.h"

#include <openssl/err.h>
#include <string>
#include <utility>

#include "pkcs11/libp11_library.h"
#include "utils/error.h"
#include "utils/load_diagnostics.h"
#include "utils/logger.h"
#include "utils/text_helper.h"

namespace Kes {
namespace {

constexpr int user_role = 0; // 1 would be the security officer

void log_token(const PKCS11_SLOT& slot, const PKCS11_TOKEN& token) {
    log_info("slot: manufacturer=", TextHelper::text_or_empty(slot.manufacturer),
             ", description=", TextHelper::text_or_empty(slot.description));
    log_info("token:");
    log_info("  label:         ", TextHelper::text_or_empty(token.label));
    log_info("  manufacturer:  ", TextHelper::text_or_empty(token.manufacturer));
    log_info("  model:         ", TextHelper::text_or_empty(token.model));
    log_info("  serialnr:      ", TextHelper::text_or_empty(token.serialnr));
    log_info("  loginRequired: ", static_cast<int>(token.loginRequired));
    log_info("  secureLogin:   ", static_cast<int>(token.secureLogin));
}

} // namespace

Libp11Init::Libp11Init(const char* module_path) {
    require_libp11();
    const ScopedNoLoaderDialogs no_dialogs;
    ::ERR_load_PKCS11_strings();
    ctx.reset(::PKCS11_CTX_new());
    if (!ctx)
        throw Error(ErrorCodeType::null_pointer, "PKCS11_CTX_new() failed",
                    "libp11_helper:78 Kes::Libp11Init::Libp11Init()");
    ::ERR_set_mark();
    const int rc = ::PKCS11_CTX_load(ctx.get(), module_path);
    if (rc != 0) {
        append_module_load_error(module_path);
        const OsslErrorCode code(rc); // before ctx is freed, which could add to the error queue
        throw OsslError(code,
                        std::string("PKCS11_CTX_load() failed to load PKCS#11 library '") + module_path + "'",
                        "libp11_helper:86 Kes::Libp11Init::Libp11Init()");
    }
    ::ERR_pop_to_mark(); // modules that load without error may still leave errors in the queue
    log_info("ctx: manufacturer=", TextHelper::text_or_empty(ctx->manufacturer),
             ", description=", TextHelper::text_or_empty(ctx->description));
    log_info("libp11 initialized");
}

Libp11Init::~Libp11Init() {
    release_slots();
    ::PKCS11_CTX_unload(ctx.get());
    ctx.reset();
    log_info("libp11 destroyed");
}

void Libp11Init::release_slots() noexcept {
    slots.reset();
    for (SlotArray& array : earlier_slots)
        array.reset();
    earlier_slots.clear();
    slot = nullptr;
    token = nullptr;
}

void Libp11Init::read_scard() {
    login_required = false;
    slot = nullptr;
    token = nullptr;
    // The earlier array is kept, because releasing it would close all sessions of the module, including those
    // that the engine's keys use.
    if (slots) earlier_slots.push_back(std::move(slots));
    PKCS11_SLOT* array = nullptr;
    unsigned int count = 0;
    const int rc = ::PKCS11_enumerate_slots(ctx.get(), &array, &count);
    slots = SlotArray(array, {ctx.get(), count});
    if (rc != 0)
        throw OsslError(OsslErrorCode(rc), "PKCS11_enumerate_slots() failed",
                        "libp11_helper:133 Kes::Libp11Init::read_scard()");
    slot = ::PKCS11_find_token(ctx.get(), array, count);
    if (slot == nullptr) {
        // The array is deliberately abandoned: releasing it would close all sessions of the module, and
        // without a token nothing refers to it. See docs/decisions/0002-slots-of-earlier-reads.md.
        [[maybe_unused]] const PKCS11_SLOT* abandoned = slots.release();
        throw Error(ErrorCodeType::empty, "PKCS11_find_token() failed",
                    "libp11_helper:140 Kes::Libp11Init::read_scard()");
    }
    token = slot->token;
    // With secureLogin, the reader has its own PIN pad, and the PIN must not pass through this process.
    login_required = token->secureLogin == 0 && token->loginRequired == 1;
    log_token(*slot, *token);
    log_info("libp11 read smart card");
}

bool Libp11Init::is_logged_in() const {
    int state = 0;
    const int rc = ::PKCS11_is_logged_in(slot, user_role, &state);
    if (rc != 0)
        throw OsslError(OsslErrorCode(rc), "PKCS11_is_logged_in() failed",
                        "libp11_helper:163 Kes::Libp11Init::is_logged_in()");
    return state != 0;
}

void Libp11Init::authenticate(const Pin& pin) {
    if (!login_required) return;
    if (is_logged_in()) {
        has_logged_in_ = true;
        log_info("pin required but already logged-in");
        return;
    }
    log_info("pin required - need login");
    if (pin.is_empty())
        throw Error(ErrorCodeType::empty, "no PIN specified",
                    "libp11_helper:185 Kes::Libp11Init::authenticate()");
    const int rc = ::PKCS11_login(slot, user_role, pin.c_str());
    if (rc != 0)
        throw OsslError(OsslErrorCode(rc), "PKCS11_login() failed",
                        "libp11_helper:190 Kes::Libp11Init::authenticate()");
    has_logged_in_ = true;
    log_info("logged-in successfully");
}

PKCS11_TOKEN* Libp11Init::get_token() const {
    if (token == nullptr)
        throw Error(ErrorCodeType::empty, "no token has been read",
                    "libp11_helper:203 Kes::Libp11Init::get_token()");
    // Such a token refuses every session, and libp11 0.4.12 then waits for a session indefinitely.
    if (token->initialized == 0)
        throw Error(ErrorCodeType::not_initialized, "token is not initialized",
                    "libp11_helper:209 Kes::Libp11Init::get_token()");
    return token;
}

} // namespace Kes
