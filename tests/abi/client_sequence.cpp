// A complete login sequence with a card that holds two keys.
#include "client.h"

namespace {

void check_selected(Kes::OsslScardIf& library, const char* key, const char* certificate) {
    CHECK_TEXT(key, library.get_config_used()->get_priv_key_name());
    CHECK_TEXT(certificate, library.get_config_used()->get_cert_name());
}

void check_first_key_is_selected(Kes::OsslScardIf& library) {
    check_selected(library, "pkcs11:token=Card 1;id=%01;type=private",
                   "pkcs11:token=Card 1;id=%01;type=cert");
}

void check_second_key_is_selected(Kes::OsslScardIf& library) {
    check_selected(library, "pkcs11:token=Card 1;id=%02;type=private",
                   "pkcs11:token=Card 1;id=%02;type=cert");
}

void check_loaded(Kes::OsslScardIf& library, bool is_loaded) {
    evp_pkey_st* key = nullptr;
    x509_st* certificate = nullptr;
    CHECK_SUCCEEDS(library.ossl_get_private_key(&key));
    CHECK_SUCCEEDS(library.ossl_get_certificate(&certificate));
    CHECK((key != nullptr) == is_loaded && (certificate != nullptr) == is_loaded);
}

void init(Kes::OsslScardIf& library, const char* log_file) {
    CHECK_SUCCEEDS(library.version_check(4));
    Kes::OsslScardCfg* const cfg = library.get_config_default();
    cfg->set_crypto_if(Kes::OsslScardCfg::pkcs11);
    cfg->set_logfile(log_file);
    Kes::OsslScardCfg* const clone = cfg->clone();
    CHECK_SUCCEEDS(library.init(clone));
    delete clone;
}

void discover(Kes::OsslScardIf& library) {
    CHECK_SUCCEEDS(library.read_scard());
    CHECK(library.is_pin_required());
    CHECK_SUCCEEDS(library.set_pin("24681357"));
    size_t num_keys = 77;
    CHECK_SUCCEEDS(library.discover_keys(&num_keys));
    CHECK(num_keys == 2);
    CHECK_TEXT("Card 1: Login", library.get_key_name(0));
    CHECK_TEXT("Card 1: Curve", library.get_key_name(1));
    CHECK(library.get_key_name(2) == nullptr);
}

void load_and_unload(Kes::OsslScardIf& library) {
    CHECK_SUCCEEDS(library.notify_config_done());
    check_loaded(library, false);
    CHECK_SUCCEEDS(library.ossl_load());
    check_loaded(library, true);
    CHECK_SUCCEEDS(library.ossl_unload());
    check_loaded(library, false);
}

void check_traced(const char* log_file) {
    const char* position = kit_read_file(log_file);
    const char* const operations[] = {"version_check()",
                                      "init()",
                                      "read_scard()",
                                      "is_pin_required()",
                                      "set_pin()",
                                      "discover_keys()",
                                      "get_key_name()",
                                      "select_key_from_console()",
                                      "set_key(key_num)",
                                      "get_config_used()",
                                      "notify_config_done()",
                                      "ossl_load()",
                                      "ossl_get_private_key()",
                                      "ossl_get_certificate()",
                                      "ossl_unload()",
                                      "read_scard()",
                                      "set_key(key_type, key_id)",
                                      "ossl_load()",
                                      "destroy()"};
    for (const char* operation : operations) {
        char line[128] = "called: Kes::OsslScardIfImp::";
        kit_append(line, sizeof line, operation);
        kit_append(line, sizeof line, "\n");
        position = kit_find(position, line);
        if (position == nullptr) kit_fail(__FILE__, __LINE__, line);
    }
}

} // namespace

/// Needs the keys "x1".
void load_a_key(const char* log_file) {
    Kes::OsslScardIf* const library = get_ossl_scard_if();
    init(*library, log_file);

    discover(*library);
    size_t chosen = 77;
    CHECK_SUCCEEDS(library->select_key_from_console(&chosen));
    CHECK(chosen == 1);
    CHECK_SUCCEEDS(library->set_key(chosen));
    check_second_key_is_selected(*library);
    CHECK_SUCCEEDS(library->set_key(0));
    check_first_key_is_selected(*library);
    load_and_unload(*library);

    discover(*library);
    CHECK_SUCCEEDS(library->set_key(0, "%02"));
    check_second_key_is_selected(*library);
    CHECK_SUCCEEDS(library->set_key(0, "%01"));
    check_first_key_is_selected(*library);
    load_and_unload(*library);

    library->destroy();
    check_traced(log_file);
}
