/* A complete login sequence, with a card that holds two keys. */
#include "if_checks.h"

static const char pin[] = "24681357";

static OsslScardCfg* used_cfg(OsslScardIf* library) { return library->table->get_config_used(library); }

static void check_selected(OsslScardIf* library, const char* key, const char* certificate) {
    OsslScardCfg* cfg = used_cfg(library);
    CHECK_TEXT(key, cfg->table->get_priv_key_name(cfg));
    CHECK_TEXT(certificate, cfg->table->get_cert_name(cfg));
}

static void check_loaded(OsslScardIf* library, bool is_loaded) {
    struct evp_pkey_st* const no_key = (struct evp_pkey_st*)library;
    struct x509_st* const no_certificate = (struct x509_st*)library;
    struct evp_pkey_st* key = no_key;
    struct x509_st* certificate = no_certificate;
    CHECK_SUCCEEDS(library->table->ossl_get_private_key(library, &key), library);
    CHECK_SUCCEEDS(library->table->ossl_get_certificate(library, &certificate), library);
    CHECK((key != NULL) == is_loaded && (certificate != NULL) == is_loaded);
    CHECK(key != no_key && certificate != no_certificate);
    CHECK(!is_loaded || (void*)key != (void*)certificate);
}

static void discover(OsslScardIf* library) {
    size_t num_keys = 77;
    CHECK_SUCCEEDS(library->table->read_scard(library), library);
    CHECK(library->table->is_pin_required(library));
    CHECK_SUCCEEDS(library->table->set_pin(library, pin), library);
    CHECK_SUCCEEDS(library->table->discover_keys(library, &num_keys), library);
    CHECK(num_keys == 2);
    CHECK_TEXT("Card 1: Login", library->table->get_key_name(library, 0));
    CHECK_TEXT("Card 1: Curve", library->table->get_key_name(library, 1));
    CHECK(library->table->get_key_name(library, 2) == NULL);
}

static void load_and_unload(OsslScardIf* library) {
    CHECK_SUCCEEDS(library->table->notify_config_done(library), library);
    check_loaded(library, false);
    CHECK_SUCCEEDS(library->table->ossl_load(library), library);
    check_loaded(library, true);
    CHECK_SUCCEEDS(library->table->ossl_unload(library), library);
    check_loaded(library, false);
}

/* Needs the keys "x1". */
static void both_overloads_load_the_first_key(const char* log_file) {
    OsslScardIf* library = get_ossl_scard_if();
    CHECK_SUCCEEDS(library->table->version_check(library, ossl_scard_if_version), library);
    init_with(library, ossl_scard_pkcs11, log_file);

    discover(library);
    size_t chosen = 77;
    CHECK_SUCCEEDS(library->table->select_key_from_console(library, &chosen), library);
    CHECK(chosen == 1);
    CHECK_SUCCEEDS(library->table->set_key_by_number(library, chosen), library);
    check_selected(library, "pkcs11:token=Card 1;id=%02;type=private",
                   "pkcs11:token=Card 1;id=%02;type=cert");
    CHECK_SUCCEEDS(library->table->set_key_by_number(library, 0), library);
    check_selected(library, "pkcs11:token=Card 1;id=%01;type=private",
                   "pkcs11:token=Card 1;id=%01;type=cert");
    load_and_unload(library);

    discover(library);
    CHECK_SUCCEEDS(library->table->set_key_by_id(library, 0, "%02"), library);
    check_selected(library, "pkcs11:token=Card 1;id=%02;type=private",
                   "pkcs11:token=Card 1;id=%02;type=cert");
    CHECK_SUCCEEDS(library->table->set_key_by_id(library, 0, "%01"), library);
    check_selected(library, "pkcs11:token=Card 1;id=%01;type=private",
                   "pkcs11:token=Card 1;id=%01;type=cert");
    load_and_unload(library);
    library->table->destroy(library);
}

int main(int argc, char** argv) {
    static const scenario scenarios[] = {{"BothOverloadsLoadTheFirstKey", both_overloads_load_the_first_key}};
    return run_scenario(argc, argv, scenarios, sizeof scenarios / sizeof scenarios[0]);
}
