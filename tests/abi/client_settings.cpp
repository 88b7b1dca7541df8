// Calls every operation of the configuration. Values that are set can be read and are shown in the dump.
#include "client.h"

namespace {

using Cfg = Kes::OsslScardCfg;

struct TextSetting {
    void (Cfg::*set)(const char* value);
    const char* (Cfg::*get)() const;
    const char* dump_name;
    const char* initial;
};

const TextSetting text_settings[] = {
    {&Cfg::set_capi_openssl_engine_dll, &Cfg::get_capi_openssl_engine_dll, "capi_openssl_engine_dll",
     ".\\capi.dll"},
    {&Cfg::set_capi_csp_name, &Cfg::get_capi_csp_name, "capi_csp_name",
     "Microsoft Base Smart Card Crypto Provider"},
    {&Cfg::set_pkcs11_openssl_engine_dll, &Cfg::get_pkcs11_openssl_engine_dll, "pkcs11_openssl_engine_dll",
     ".\\pkcs11.dll"},
    {&Cfg::set_pkcs11_module_dll, &Cfg::get_pkcs11_module_dll, "pkcs11_module_dll", "itp11.dll"},
    {&Cfg::set_capi_store_openssl_engine_dll, &Cfg::get_capi_store_openssl_engine_dll,
     "capi_store_openssl_engine_dll", ".\\capi.dll"},
    {&Cfg::set_capi_store_cert_store_name, &Cfg::get_capi_store_cert_store_name, "capi_store_cert_store_name",
     "MY"},
    {&Cfg::set_priv_key_name, &Cfg::get_priv_key_name, "priv_key_name", ""},
    {&Cfg::set_cert_name, &Cfg::get_cert_name, "cert_name", ""},
    {&Cfg::set_xkuse_nid_filter, &Cfg::get_xkuse_nid_filter, "xkuse_nid_filter", ""},
    {&Cfg::set_logfile, &Cfg::get_logfile, "logfile", "ossl_scard.log"}};

struct NumberSetting {
    void (Cfg::*set)(unsigned int value);
    unsigned int (Cfg::*get)() const;
    unsigned int initial;
    unsigned int value;
    const char* dump_line;
};

const NumberSetting number_settings[] = {
    {&Cfg::set_capi_key_type, &Cfg::get_capi_key_type, 2, 1, "\n  capi_key_type=KEYEXCHANGE\n"},
    {&Cfg::set_kuse_filter_type, &Cfg::get_kuse_filter_type, 0, 1, "\n  kuse_filter_type=exact\n"},
    {&Cfg::set_kuse_filter, &Cfg::get_kuse_filter, 0, 0x80, "\n  kuse_filter=digital_signature\n"},
    {&Cfg::set_xkuse_filter_type, &Cfg::get_xkuse_filter_type, 0, 2, "\n  xkuse_filter_type=exact_none\n"},
    {&Cfg::set_logfile_severity, &Cfg::get_logfile_severity, 60, 33, "\n  logfile_severity=trace|fatal\n"}};

void check_dump_has(const Cfg& cfg, const char* line) {
    static char text[4096];
    CHECK(cfg.dump_settings(text, sizeof text) == text);
    if (kit_find(text, line) == nullptr) kit_check_text(__FILE__, __LINE__, line, text);
}

void set_texts(Cfg& cfg) {
    for (const TextSetting& setting : text_settings)
        CHECK_TEXT(setting.initial, (cfg.*setting.get)());
    for (const TextSetting& setting : text_settings)
        (cfg.*setting.set)(setting.dump_name);
    for (const TextSetting& setting : text_settings) {
        CHECK_TEXT(setting.dump_name, (cfg.*setting.get)());
        char line[128] = "\n  ";
        const char* const parts[] = {setting.dump_name, "=", setting.dump_name, "\n"};
        for (const char* part : parts)
            kit_append(line, sizeof line, part);
        check_dump_has(cfg, line);
    }
    for (const TextSetting& setting : text_settings) {
        (cfg.*setting.set)(nullptr);
        CHECK_TEXT("", (cfg.*setting.get)());
    }
}

void set_numbers(Cfg& cfg) {
    for (const NumberSetting& setting : number_settings)
        CHECK((cfg.*setting.get)() == setting.initial);
    for (const NumberSetting& setting : number_settings)
        (cfg.*setting.set)(setting.value);
    for (const NumberSetting& setting : number_settings) {
        CHECK((cfg.*setting.get)() == setting.value);
        check_dump_has(cfg, setting.dump_line);
    }
}

void set_back_end_and_appending(Cfg& cfg) {
    CHECK(cfg.get_crypto_if() == Cfg::capi);
    const Cfg::CryptoIf values[] = {Cfg::pkcs11, Cfg::capi_store, static_cast<Cfg::CryptoIf>(7), Cfg::capi};
    for (const Cfg::CryptoIf& value : values) {
        cfg.set_crypto_if(value);
        CHECK(cfg.get_crypto_if() == value);
    }
    CHECK(!cfg.get_logfile_append());
    cfg.enable_logfile_append();
    CHECK(cfg.get_logfile_append());
    check_dump_has(cfg, "\n  logfile_append=true\n");
    cfg.disable_logfile_append();
    CHECK(!cfg.get_logfile_append());
}

/// Checks for each buffer size that the text is truncated to it and that nothing is written after it.
template <typename Write>
void check_truncation(const char* whole, Write write) {
    char text[256];
    const size_t length = kit_length(whole);
    for (size_t size = 0; size <= length + 2; ++size) {
        kit_fill(text, 'x', sizeof text);
        CHECK(write(text, size) == text);
        char expected[256] = "";
        kit_append(expected, size, whole);
        if (size > 0) CHECK_TEXT(expected, text);
        CHECK(text[size] == 'x');
    }
}

void write_texts_into_buffers(Cfg& cfg) {
    cfg.set_capi_csp_name("CSP");
    cfg.set_pkcs11_module_dll("module");
    check_truncation("capi (MS CryptoAPI with csp 'CSP')", [&](char* buffer, size_t size) {
        return cfg.get_crypto_if_description(Cfg::capi, buffer, size);
    });
    check_truncation("pkcs11 (PKCS#11 with module 'module')", [&](char* buffer, size_t size) {
        return cfg.get_crypto_if_description(Cfg::pkcs11, buffer, size);
    });
    check_truncation("capi_store (MS CryptoAPI using Windows Cert Store)", [&](char* buffer, size_t size) {
        return cfg.get_crypto_if_description(Cfg::capi_store, buffer, size);
    });
    check_truncation("", [&](char* buffer, size_t size) {
        return cfg.get_crypto_if_description(static_cast<Cfg::CryptoIf>(0), buffer, size);
    });
    char text[15];
    kit_fill(text, 'x', sizeof text);
    CHECK_TEXT("configuration", cfg.dump_settings(text, sizeof text - 1));
    CHECK(text[14] == 'x');
}

} // namespace

void set_every_setting() {
    Kes::OsslScardIf* const library = get_ossl_scard_if();
    Cfg* const cfg = library->get_config_default();
    set_texts(*cfg);
    set_numbers(*cfg);
    set_back_end_and_appending(*cfg);
    write_texts_into_buffers(*cfg);
    CHECK(cfg->select_crypto_if_from_console(nullptr) == 1);
    library->destroy();
}
