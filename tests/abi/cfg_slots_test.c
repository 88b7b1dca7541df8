/* Calls every operation of the configuration by its slot number. */
#include "table.h"

enum {
    slot_destructor = 1,
    slot_clone = 2,
    slot_set_crypto_if = 3,
    slot_get_crypto_if = 4,
    slot_set_capi_csp_name = 7,
    slot_set_pkcs11_module_dll = 13,
    slot_set_logfile = 31,
    slot_get_logfile = 32,
    slot_enable_logfile_append = 35,
    slot_disable_logfile_append = 36,
    slot_get_logfile_append = 37,
    slot_get_crypto_if_description = 38,
    slot_dump_settings = 39,
    slot_select_crypto_if_from_console = 40
};

/* Settings whose getter is in the slot after the setter. dump_name is the name in the settings' dump. */
typedef struct {
    int setter;
    const char* dump_name;
    const char* initial;
} text_setting;

static const text_setting text_settings[] = {
    {5, "capi_openssl_engine_dll", ".\\capi.dll"},
    {7, "capi_csp_name", "Microsoft Base Smart Card Crypto Provider"},
    {11, "pkcs11_openssl_engine_dll", ".\\pkcs11.dll"},
    {13, "pkcs11_module_dll", "itp11.dll"},
    {15, "capi_store_openssl_engine_dll", ".\\capi.dll"},
    {17, "capi_store_cert_store_name", "MY"},
    {19, "priv_key_name", ""},
    {21, "cert_name", ""},
    {29, "xkuse_nid_filter", ""},
    {31, "logfile", "ossl_scard.log"}};

typedef struct {
    int setter;
    unsigned int initial;
    unsigned int value;
    const char* dump_line;
} number_setting;

static const number_setting number_settings[] = {{9, 2, 1, "\n  capi_key_type=KEYEXCHANGE\n"},
                                                 {23, 0, 1, "\n  kuse_filter_type=exact\n"},
                                                 {25, 0, 0x80, "\n  kuse_filter=digital_signature\n"},
                                                 {27, 0, 2, "\n  xkuse_filter_type=exact_none\n"},
                                                 {33, 60, 33, "\n  logfile_severity=trace|fatal\n"}};

static kes_object* new_cfg(void) {
    kes_object* library = get_ossl_scard_if();
    CHECK(library != NULL);
    kes_object* cfg = SLOT(library, 2, fn_object)(library);
    CHECK(cfg != NULL);
    return cfg;
}

static void destroy_library(void) {
    kes_object* library = get_ossl_scard_if();
    SLOT(library, 19, fn_void)(library);
}

static const char* dump(const kes_object* cfg) {
    static char text[4096];
    CHECK(SLOT(cfg, slot_dump_settings, fn_buffer)(cfg, text, sizeof text) == text);
    return text;
}

static void check_dump_has(const kes_object* cfg, const char* line) {
    if (kit_find(dump(cfg), line) == NULL) kit_check_text(__FILE__, __LINE__, line, dump(cfg));
}

static void text_settings_return_the_values_set(const char* log_file) {
    (void)log_file;
    kes_object* cfg = new_cfg();
    const size_t count = sizeof text_settings / sizeof text_settings[0];
    char line[256];
    for (size_t i = 0; i < count; ++i)
        CHECK_TEXT(text_settings[i].initial, SLOT(cfg, text_settings[i].setter + 1, fn_text)(cfg));
    for (size_t i = 0; i < count; ++i) {
        /* The value is the setting's own name, so a setter in a wrong slot is detected. */
        SLOT(cfg, text_settings[i].setter, fn_void_text)(cfg, text_settings[i].dump_name);
    }
    for (size_t i = 0; i < count; ++i) {
        CHECK_TEXT(text_settings[i].dump_name, SLOT(cfg, text_settings[i].setter + 1, fn_text)(cfg));
        line[0] = '\0';
        kit_append(line, sizeof line, "\n  ");
        kit_append(line, sizeof line, text_settings[i].dump_name);
        kit_append(line, sizeof line, "=");
        kit_append(line, sizeof line, text_settings[i].dump_name);
        kit_append(line, sizeof line, "\n");
        check_dump_has(cfg, line);
    }
    for (size_t i = 0; i < count; ++i) {
        SLOT(cfg, text_settings[i].setter, fn_void_text)(cfg, NULL);
        CHECK_TEXT("", SLOT(cfg, text_settings[i].setter + 1, fn_text)(cfg));
    }
    destroy_library();
}

static void number_settings_return_the_values_set(const char* log_file) {
    (void)log_file;
    kes_object* cfg = new_cfg();
    const size_t count = sizeof number_settings / sizeof number_settings[0];
    for (size_t i = 0; i < count; ++i)
        CHECK(SLOT(cfg, number_settings[i].setter + 1, fn_uint)(cfg) == number_settings[i].initial);
    for (size_t i = 0; i < count; ++i)
        SLOT(cfg, number_settings[i].setter, fn_void_uint)(cfg, number_settings[i].value);
    for (size_t i = 0; i < count; ++i) {
        CHECK(SLOT(cfg, number_settings[i].setter + 1, fn_uint)(cfg) == number_settings[i].value);
        check_dump_has(cfg, number_settings[i].dump_line);
        SLOT(cfg, number_settings[i].setter, fn_void_uint)(cfg, 0xffffffffU);
        CHECK(SLOT(cfg, number_settings[i].setter + 1, fn_uint)(cfg) == 0xffffffffU);
    }
    destroy_library();
}

static void crypto_if_is_passed_by_reference(const char* log_file) {
    (void)log_file;
    kes_object* cfg = new_cfg();
    CHECK(*SLOT(cfg, slot_get_crypto_if, fn_uint_ref)(cfg) == 1);
    const unsigned int values[] = {2, 3, 7, 1};
    const char* lines[] = {"\n  crypto_if=pkcs11\n", "\n  crypto_if=capi_store\n", "\n  crypto_if=unknown\n",
                           "\n  crypto_if=capi\n"};
    for (size_t i = 0; i < sizeof values / sizeof values[0]; ++i) {
        SLOT(cfg, slot_set_crypto_if, fn_void_uint_ref)(cfg, &values[i]);
        CHECK(*SLOT(cfg, slot_get_crypto_if, fn_uint_ref)(cfg) == values[i]);
        check_dump_has(cfg, lines[i]);
    }
    destroy_library();
}

static void logfile_append_can_be_turned_on_and_off(const char* log_file) {
    (void)log_file;
    kes_object* cfg = new_cfg();
    CHECK(!SLOT(cfg, slot_get_logfile_append, fn_bool)(cfg));
    SLOT(cfg, slot_enable_logfile_append, fn_void)(cfg);
    CHECK(SLOT(cfg, slot_get_logfile_append, fn_bool)(cfg));
    check_dump_has(cfg, "\n  logfile_append=true\n");
    SLOT(cfg, slot_disable_logfile_append, fn_void)(cfg);
    CHECK(!SLOT(cfg, slot_get_logfile_append, fn_bool)(cfg));
    check_dump_has(cfg, "\n  logfile_append=false\n");
    destroy_library();
}

static void texts_are_truncated_to_the_buffer(const char* log_file) {
    (void)log_file;
    kes_object* cfg = new_cfg();
    char text[256];
    SLOT(cfg, slot_set_capi_csp_name, fn_void_text)(cfg, "CSP");
    SLOT(cfg, slot_set_pkcs11_module_dll, fn_void_text)(cfg, "module.so");
    const fn_uint_buffer describe = SLOT(cfg, slot_get_crypto_if_description, fn_uint_buffer);
    CHECK(describe(cfg, 1, text, sizeof text) == text);
    CHECK_TEXT("capi (MS CryptoAPI with csp 'CSP')", text);
    CHECK_TEXT("pkcs11 (PKCS#11 with module 'module.so')", describe(cfg, 2, text, sizeof text));
    CHECK_TEXT("capi_store (MS CryptoAPI using Windows Cert Store)", describe(cfg, 3, text, sizeof text));
    CHECK_TEXT("", describe(cfg, 0, text, sizeof text));
    kit_fill(text, 'x', sizeof text);
    CHECK_TEXT("capi", describe(cfg, 1, text, 5));
    CHECK(text[5] == 'x');
    kit_fill(text, 'x', sizeof text);
    CHECK_TEXT("configuration", SLOT(cfg, slot_dump_settings, fn_buffer)(cfg, text, 14));
    CHECK(text[14] == 'x');
    CHECK_TEXT("", SLOT(cfg, slot_dump_settings, fn_buffer)(cfg, text, 1));
    destroy_library();
}

/* Needs the keys "xs.". */
static void console_menu_returns_the_selected_crypto_if(const char* log_file) {
    (void)log_file;
    kes_object* cfg = new_cfg();
    const fn_int_uint_out ask = SLOT(cfg, slot_select_crypto_if_from_console, fn_int_uint_out);
    unsigned int selected = 77;
    CHECK(ask(cfg, &selected) == 0);
    CHECK(selected == 3);
    CHECK(*SLOT(cfg, slot_get_crypto_if, fn_uint_ref)(cfg) == 1);
    selected = 77;
    CHECK(ask(cfg, &selected) == 1);
    CHECK(selected == 77);
    CHECK(ask(cfg, NULL) == 1);
    destroy_library();
}

static void clone_is_independent_and_deleted_by_its_destructor(const char* log_file) {
    (void)log_file;
    kes_object* cfg = new_cfg();
    SLOT(cfg, slot_set_logfile, fn_void_text)(cfg, "a text too long to be kept inside of the object itself");
    kes_object* clone = SLOT(cfg, slot_clone, fn_object)(cfg);
    CHECK(clone != NULL && clone != cfg);
    CHECK_TEXT("a text too long to be kept inside of the object itself",
               SLOT(clone, slot_get_logfile, fn_text)(clone));
    SLOT(clone, slot_set_logfile, fn_void_text)(clone, "another text, and just as long, for the clone alone");
    CHECK_TEXT("a text too long to be kept inside of the object itself",
               SLOT(cfg, slot_get_logfile, fn_text)(cfg));
    SLOT(cfg, slot_set_logfile, fn_void_text)(cfg, "");
    CHECK_TEXT("another text, and just as long, for the clone alone",
               SLOT(clone, slot_get_logfile, fn_text)(clone));
    CHECK(SLOT(clone, slot_destructor, fn_destructor)(clone, 1) == clone);
    destroy_library();
}

static void clone_outlives_the_interface_object(const char* log_file) {
    (void)log_file;
    kes_object* cfg = new_cfg();
    kes_object* clone = SLOT(cfg, slot_clone, fn_object)(cfg);
    destroy_library();
    CHECK_TEXT("ossl_scard.log", SLOT(clone, slot_get_logfile, fn_text)(clone));
    SLOT(clone, slot_destructor, fn_destructor)(clone, 1);
}

static void destructor_without_bit_0_does_not_free_the_memory(const char* log_file) {
    (void)log_file;
    kes_object* cfg = new_cfg();
    kes_object* clone = SLOT(cfg, slot_clone, fn_object)(cfg);
    SLOT(clone, slot_set_logfile, fn_void_text)
    (clone, "a text too long to be kept inside of the object itself");
    CHECK(SLOT(clone, slot_destructor, fn_destructor)(clone, 0) == clone);
    kit_free_as_library(clone);
    destroy_library();
}

int main(int argc, char** argv) {
    static const scenario scenarios[] = {
        {"TextSettingsReturnTheValuesSet", text_settings_return_the_values_set},
        {"NumberSettingsReturnTheValuesSet", number_settings_return_the_values_set},
        {"CryptoIfIsPassedByReference", crypto_if_is_passed_by_reference},
        {"LogfileAppendCanBeTurnedOnAndOff", logfile_append_can_be_turned_on_and_off},
        {"TextsAreTruncatedToTheBuffer", texts_are_truncated_to_the_buffer},
        {"ConsoleMenuReturnsTheSelectedCryptoIf", console_menu_returns_the_selected_crypto_if},
        {"CloneIsIndependentAndDeletedByItsDestructor", clone_is_independent_and_deleted_by_its_destructor},
        {"CloneOutlivesTheInterfaceObject", clone_outlives_the_interface_object},
        {"DestructorWithoutBit0DoesNotFreeTheMemory", destructor_without_bit_0_does_not_free_the_memory}};
    return run_scenario(argc, argv, scenarios, sizeof scenarios / sizeof scenarios[0]);
}
