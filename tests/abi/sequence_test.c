/* A complete login sequence by slot numbers, with a card that holds two keys. */
#include "if_table.h"

static const char pin[] = "24681357";

static kes_object* used_cfg(kes_object* library) {
    return SLOT(library, slot_get_config_used, fn_object)(library);
}

static void check_selected(kes_object* library, const char* key, const char* certificate) {
    kes_object* cfg = used_cfg(library);
    CHECK_TEXT(key, SLOT(cfg, 20, fn_text)(cfg));
    CHECK_TEXT(certificate, SLOT(cfg, 22, fn_text)(cfg));
}

static void check_loaded(kes_object* library, bool is_loaded) {
    void* key = library;
    void* certificate = library;
    CHECK_SUCCEEDS(SLOT(library, slot_ossl_get_private_key, fn_int_pointer_out)(library, &key), library);
    CHECK_SUCCEEDS(SLOT(library, slot_ossl_get_certificate, fn_int_pointer_out)(library, &certificate),
                   library);
    CHECK((key != NULL) == is_loaded && (certificate != NULL) == is_loaded);
    CHECK(!is_loaded || (key != library && certificate != library && key != certificate));
}

static void discover(kes_object* library) {
    size_t num_keys = 77;
    CHECK_SUCCEEDS(SLOT(library, slot_read_scard, fn_int)(library), library);
    CHECK(SLOT(library, slot_is_pin_required, fn_bool)(library));
    CHECK_SUCCEEDS(SLOT(library, slot_set_pin, fn_int_text)(library, pin), library);
    CHECK_SUCCEEDS(SLOT(library, slot_discover_keys, fn_int_size_out)(library, &num_keys), library);
    CHECK(num_keys == 2);
    CHECK_TEXT("Card 1: Login", SLOT(library, slot_get_key_name, fn_text_size)(library, 0));
    CHECK_TEXT("Card 1: Curve", SLOT(library, slot_get_key_name, fn_text_size)(library, 1));
    CHECK(SLOT(library, slot_get_key_name, fn_text_size)(library, 2) == NULL);
}

static void load_and_unload(kes_object* library) {
    CHECK_SUCCEEDS(SLOT(library, slot_notify_config_done, fn_int)(library), library);
    check_loaded(library, false);
    CHECK_SUCCEEDS(SLOT(library, slot_ossl_load, fn_int)(library), library);
    check_loaded(library, true);
    CHECK_SUCCEEDS(SLOT(library, slot_ossl_unload, fn_int)(library), library);
    check_loaded(library, false);
}

/* Needs the keys "x1". */
static void both_overloads_load_the_first_key(const char* log_file) {
    kes_object* library = get_ossl_scard_if();
    CHECK_SUCCEEDS(SLOT(library, slot_version_check, fn_int_uint)(library, 4), library);
    init_with(library, crypto_if_pkcs11, log_file);
    const fn_int_uint_text set_key_by_id = SLOT(library, slot_set_key_by_id, fn_int_uint_text);
    const fn_int_size set_key_by_number = SLOT(library, slot_set_key_by_number, fn_int_size);

    discover(library);
    size_t chosen = 77;
    CHECK_SUCCEEDS(SLOT(library, slot_select_key_from_console, fn_int_size_out)(library, &chosen), library);
    CHECK(chosen == 1);
    CHECK_SUCCEEDS(set_key_by_number(library, chosen), library);
    check_selected(library, "pkcs11:token=Card 1;id=%02;type=private",
                   "pkcs11:token=Card 1;id=%02;type=cert");
    CHECK_SUCCEEDS(set_key_by_number(library, 0), library);
    check_selected(library, "pkcs11:token=Card 1;id=%01;type=private",
                   "pkcs11:token=Card 1;id=%01;type=cert");
    load_and_unload(library);

    discover(library);
    CHECK_SUCCEEDS(set_key_by_id(library, 0, "%02"), library);
    check_selected(library, "pkcs11:token=Card 1;id=%02;type=private",
                   "pkcs11:token=Card 1;id=%02;type=cert");
    CHECK_SUCCEEDS(set_key_by_id(library, 0, "%01"), library);
    check_selected(library, "pkcs11:token=Card 1;id=%01;type=private",
                   "pkcs11:token=Card 1;id=%01;type=cert");
    load_and_unload(library);
    SLOT(library, slot_destroy, fn_void)(library);
}

int main(int argc, char** argv) {
    static const scenario scenarios[] = {{"BothOverloadsLoadTheFirstKey", both_overloads_load_the_first_key}};
    return run_scenario(argc, argv, scenarios, sizeof scenarios / sizeof scenarios[0]);
}
