/* Calls every function in the table of the configuration. */
#include "marvo/ossl_scard_c.h"
#include "scenario.h"

/* A setting of OsslScardCfgTable: where its functions are, and its name in the settings' dump. */
#define SETTING(name) offsetof(OsslScardCfgTable, set_##name), offsetof(OsslScardCfgTable, get_##name), #name

typedef struct {
    size_t setter;
    size_t getter;
    const char* name;
    const char* initial;
} text_setting;

static const text_setting text_settings[] = {
    {SETTING(capi_openssl_engine_dll), ".\\capi.dll"},
    {SETTING(capi_csp_name), "Microsoft Base Smart Card Crypto Provider"},
    {SETTING(pkcs11_openssl_engine_dll), ".\\pkcs11.dll"},
    {SETTING(pkcs11_module_dll), "itp11.dll"},
    {SETTING(capi_store_openssl_engine_dll), ".\\capi.dll"},
    {SETTING(capi_store_cert_store_name), "MY"},
    {SETTING(priv_key_name), ""},
    {SETTING(cert_name), ""},
    {SETTING(xkuse_nid_filter), ""},
    {SETTING(logfile), "ossl_scard.log"}};

typedef struct {
    size_t setter;
    size_t getter;
    const char* name;
    unsigned int initial;
    unsigned int value;
    const char* dump_line;
} number_setting;

static const number_setting number_settings[] = {
    {SETTING(capi_key_type), 2, 1, "\n  capi_key_type=KEYEXCHANGE\n"},
    {SETTING(kuse_filter_type), 0, 1, "\n  kuse_filter_type=exact\n"},
    {SETTING(kuse_filter), 0, 0x80, "\n  kuse_filter=digital_signature\n"},
    {SETTING(xkuse_filter_type), 0, 2, "\n  xkuse_filter_type=exact_none\n"},
    {SETTING(logfile_severity), 60, 33, "\n  logfile_severity=trace|fatal\n"}};

static const void* function_at(const OsslScardCfg* cfg, size_t offset) {
    return (const char*)cfg->table + offset;
}

static void set_text(OsslScardCfg* cfg, const text_setting* setting, const char* value) {
    typedef void (*function)(OsslScardCfg*, const char*);
    (*(const function*)function_at(cfg, setting->setter))(cfg, value);
}

static const char* get_text(const OsslScardCfg* cfg, const text_setting* setting) {
    typedef const char* (*function)(const OsslScardCfg*);
    return (*(const function*)function_at(cfg, setting->getter))(cfg);
}

static void set_number(OsslScardCfg* cfg, const number_setting* setting, unsigned int value) {
    typedef void (*function)(OsslScardCfg*, unsigned int);
    (*(const function*)function_at(cfg, setting->setter))(cfg, value);
}

static unsigned int get_number(const OsslScardCfg* cfg, const number_setting* setting) {
    typedef unsigned int (*function)(const OsslScardCfg*);
    return (*(const function*)function_at(cfg, setting->getter))(cfg);
}

static OsslScardCfg* new_cfg(void) {
    OsslScardIf* library = get_ossl_scard_if();
    CHECK(library != NULL);
    OsslScardCfg* cfg = library->table->get_config_default(library);
    CHECK(cfg != NULL);
    return cfg;
}

static void destroy_library(void) {
    OsslScardIf* library = get_ossl_scard_if();
    library->table->destroy(library);
}

static const char* dump(const OsslScardCfg* cfg) {
    static char text[4096];
    CHECK(cfg->table->dump_settings(cfg, text, sizeof text) == text);
    return text;
}

static void check_dump_has(const OsslScardCfg* cfg, const char* line) {
    if (kit_find(dump(cfg), line) == NULL) kit_check_text(__FILE__, __LINE__, line, dump(cfg));
}

static void text_settings_return_the_values_set(const char* log_file) {
    (void)log_file;
    OsslScardCfg* cfg = new_cfg();
    const size_t count = sizeof text_settings / sizeof text_settings[0];
    char line[256];
    for (size_t i = 0; i < count; ++i)
        CHECK_TEXT(text_settings[i].initial, get_text(cfg, &text_settings[i]));
    for (size_t i = 0; i < count; ++i) {
        /* The value is the setting's own name, so a setter in a wrong place of the table is detected. */
        set_text(cfg, &text_settings[i], text_settings[i].name);
    }
    for (size_t i = 0; i < count; ++i) {
        CHECK_TEXT(text_settings[i].name, get_text(cfg, &text_settings[i]));
        line[0] = '\0';
        kit_append(line, sizeof line, "\n  ");
        kit_append(line, sizeof line, text_settings[i].name);
        kit_append(line, sizeof line, "=");
        kit_append(line, sizeof line, text_settings[i].name);
        kit_append(line, sizeof line, "\n");
        check_dump_has(cfg, line);
    }
    for (size_t i = 0; i < count; ++i) {
        set_text(cfg, &text_settings[i], NULL);
        CHECK_TEXT("", get_text(cfg, &text_settings[i]));
    }
    destroy_library();
}

static void number_settings_return_the_values_set(const char* log_file) {
    (void)log_file;
    OsslScardCfg* cfg = new_cfg();
    const size_t count = sizeof number_settings / sizeof number_settings[0];
    for (size_t i = 0; i < count; ++i)
        CHECK(get_number(cfg, &number_settings[i]) == number_settings[i].initial);
    for (size_t i = 0; i < count; ++i)
        set_number(cfg, &number_settings[i], number_settings[i].value);
    for (size_t i = 0; i < count; ++i) {
        CHECK(get_number(cfg, &number_settings[i]) == number_settings[i].value);
        check_dump_has(cfg, number_settings[i].dump_line);
        set_number(cfg, &number_settings[i], 0xffffffffU);
        CHECK(get_number(cfg, &number_settings[i]) == 0xffffffffU);
    }
    destroy_library();
}

static void crypto_if_is_passed_by_reference(const char* log_file) {
    (void)log_file;
    OsslScardCfg* cfg = new_cfg();
    CHECK(*cfg->table->get_crypto_if(cfg) == 1);
    const unsigned int values[] = {2, 3, 7, 1};
    const char* lines[] = {"\n  crypto_if=pkcs11\n", "\n  crypto_if=capi_store\n", "\n  crypto_if=unknown\n",
                           "\n  crypto_if=capi\n"};
    for (size_t i = 0; i < sizeof values / sizeof values[0]; ++i) {
        cfg->table->set_crypto_if(cfg, &values[i]);
        CHECK(*cfg->table->get_crypto_if(cfg) == values[i]);
        check_dump_has(cfg, lines[i]);
    }
    destroy_library();
}

static void logfile_append_can_be_turned_on_and_off(const char* log_file) {
    (void)log_file;
    OsslScardCfg* cfg = new_cfg();
    CHECK(!cfg->table->get_logfile_append(cfg));
    cfg->table->enable_logfile_append(cfg);
    CHECK(cfg->table->get_logfile_append(cfg));
    check_dump_has(cfg, "\n  logfile_append=true\n");
    cfg->table->disable_logfile_append(cfg);
    CHECK(!cfg->table->get_logfile_append(cfg));
    check_dump_has(cfg, "\n  logfile_append=false\n");
    destroy_library();
}

static void texts_are_truncated_to_the_buffer(const char* log_file) {
    (void)log_file;
    OsslScardCfg* cfg = new_cfg();
    char text[256];
    cfg->table->set_capi_csp_name(cfg, "CSP");
    cfg->table->set_pkcs11_module_dll(cfg, "module.so");
    CHECK(cfg->table->get_crypto_if_description(cfg, 1, text, sizeof text) == text);
    CHECK_TEXT("capi (MS CryptoAPI with csp 'CSP')", text);
    CHECK_TEXT("pkcs11 (PKCS#11 with module 'module.so')",
               cfg->table->get_crypto_if_description(cfg, 2, text, sizeof text));
    CHECK_TEXT("capi_store (MS CryptoAPI using Windows Cert Store)",
               cfg->table->get_crypto_if_description(cfg, 3, text, sizeof text));
    CHECK_TEXT("", cfg->table->get_crypto_if_description(cfg, 0, text, sizeof text));
    kit_fill(text, 'x', sizeof text);
    CHECK_TEXT("capi", cfg->table->get_crypto_if_description(cfg, 1, text, 5));
    CHECK(text[5] == 'x');
    kit_fill(text, 'x', sizeof text);
    CHECK_TEXT("configuration", cfg->table->dump_settings(cfg, text, 14));
    CHECK(text[14] == 'x');
    CHECK_TEXT("", cfg->table->dump_settings(cfg, text, 1));
    destroy_library();
}

/* Needs the keys "xs.". */
static void console_menu_returns_the_selected_crypto_if(const char* log_file) {
    (void)log_file;
    OsslScardCfg* cfg = new_cfg();
    unsigned int selected = 77;
    CHECK(cfg->table->select_crypto_if_from_console(cfg, &selected) == 0);
    CHECK(selected == 3);
    CHECK(*cfg->table->get_crypto_if(cfg) == 1);
    selected = 77;
    CHECK(cfg->table->select_crypto_if_from_console(cfg, &selected) == 1);
    CHECK(selected == 77);
    CHECK(cfg->table->select_crypto_if_from_console(cfg, NULL) == 1);
    destroy_library();
}

static void clone_is_independent_and_deleted_by_its_destructor(const char* log_file) {
    (void)log_file;
    OsslScardCfg* cfg = new_cfg();
    cfg->table->set_logfile(cfg, "a text too long to be kept inside of the object itself");
    OsslScardCfg* clone = cfg->table->clone(cfg);
    CHECK(clone != NULL && clone != cfg);
    CHECK_TEXT("a text too long to be kept inside of the object itself", clone->table->get_logfile(clone));
    clone->table->set_logfile(clone, "another text, and just as long, for the clone alone");
    CHECK_TEXT("a text too long to be kept inside of the object itself", cfg->table->get_logfile(cfg));
    cfg->table->set_logfile(cfg, "");
    CHECK_TEXT("another text, and just as long, for the clone alone", clone->table->get_logfile(clone));
    CHECK(clone->table->destructor(clone, 1) == clone);
    destroy_library();
}

static void clone_outlives_the_interface_object(const char* log_file) {
    (void)log_file;
    OsslScardCfg* cfg = new_cfg();
    OsslScardCfg* clone = cfg->table->clone(cfg);
    destroy_library();
    CHECK_TEXT("ossl_scard.log", clone->table->get_logfile(clone));
    clone->table->destructor(clone, 1);
}

static void destructor_without_bit_0_does_not_free_the_memory(const char* log_file) {
    (void)log_file;
    OsslScardCfg* cfg = new_cfg();
    OsslScardCfg* clone = cfg->table->clone(cfg);
    clone->table->set_logfile(clone, "a text too long to be kept inside of the object itself");
    CHECK(clone->table->destructor(clone, 0) == clone);
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
