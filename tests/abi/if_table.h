#ifndef KES_TESTS_ABI_IF_TABLE_H_
#define KES_TESTS_ABI_IF_TABLE_H_

#include "table.h"

/* The table of the exported object, and checks of its operations. */

enum {
    slot_version_check = 1,
    slot_get_config_default,
    slot_get_config_used,
    slot_init,
    slot_read_scard,
    slot_is_pin_required,
    slot_set_pin,
    slot_discover_keys,
    slot_get_key_name,
    slot_set_key_by_id,
    slot_set_key_by_number,
    slot_notify_config_done,
    slot_ossl_load,
    slot_ossl_unload,
    slot_ossl_get_private_key,
    slot_ossl_get_certificate,
    slot_destructor,
    slot_get_version,
    slot_destroy,
    slot_get_last_error_msg,
    slot_select_key_from_console,
    number_of_slots = slot_select_key_from_console
};

enum { crypto_if_capi = 1, crypto_if_pkcs11 = 2, no_crypto_if = 7 };

#define NOT_ALLOWED(state)                                                                                   \
    "operation not allowed in current state (cfg_state=" state "): val=6 (invalid_state)"

static inline const char* last_error(kes_object* library) {
    return SLOT(library, slot_get_last_error_msg, fn_text)(library);
}

#define CHECK_FAILS(status, error, library)                                                                  \
    do {                                                                                                     \
        CHECK((status) == 1);                                                                                \
        CHECK_TEXT(error, last_error(library));                                                              \
    } while (0)

/* Checks the text first, because it has more details. */
#define CHECK_SUCCEEDS(status, library)                                                                      \
    do {                                                                                                     \
        const int status_ = (status);                                                                        \
        CHECK_TEXT("", last_error(library));                                                                 \
        CHECK(status_ == 0);                                                                                 \
    } while (0)

static inline void init_with(kes_object* library, unsigned int crypto_if, const char* log_file) {
    kes_object* cfg = SLOT(library, slot_get_config_default, fn_object)(library);
    SLOT(cfg, 3, fn_void_uint_ref)(cfg, &crypto_if);
    SLOT(cfg, 31, fn_void_text)(cfg, log_file);
    CHECK_SUCCEEDS(SLOT(library, slot_init, fn_int_object)(library, cfg), library);
}

static inline const char* logfile_of(const kes_object* cfg) { return SLOT(cfg, 32, fn_text)(cfg); }

#endif
