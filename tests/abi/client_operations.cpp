// Calls every operation of the exported object in states that reject the call or need no card.
#include "client.h"

namespace {

const char* const not_initialized =
    "operation not allowed in current state (cfg_state=uninitialized): val=6 (invalid_state)";

void check_versions(Kes::OsslScardIf& library) {
    CHECK_FAILS(library.version_check(3),
                "interface version incompatibility detected: specified=3, expected=4");
    CHECK_SUCCEEDS(library.version_check(4));
    CHECK_FAILS(library.version_check(5),
                "interface version incompatibility detected: specified=5, expected=4");
    CHECK_TEXT("4.3.0", library.get_version());
    CHECK_TEXT("", library.get_last_error_msg());
}

void call_before_init(Kes::OsslScardIf& library) {
    CHECK(library.get_config_used() != nullptr);
    CHECK(library.get_config_used() != library.get_config_default());
    CHECK_FAILS(library.read_scard(), not_initialized);
    CHECK(!library.is_pin_required());
    CHECK_FAILS(library.set_pin("1234"), not_initialized);
    size_t number = 77;
    CHECK_FAILS(library.discover_keys(&number), not_initialized);
    CHECK(number == 77);
    CHECK_FAILS(library.notify_config_done(), not_initialized);
    CHECK_FAILS(library.ossl_load(), not_initialized);
    CHECK_FAILS(library.ossl_unload(), not_initialized);
}

/// One of the numbers does not fit into 32 bits.
void request_missing_keys(Kes::OsslScardIf& library) {
    CHECK(library.get_key_name(0) == nullptr);
    CHECK_TEXT("ossl_scard_if_imp:221 Kes::OsslScardIfImp::get_key_name(): invalid key_num (0): val=3 "
               "(bad_argument)",
               library.get_last_error_msg());
    CHECK_FAILS(library.set_key(6), "ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key(): invalid key_num "
                                    "(6): val=3 (bad_argument)");
    CHECK_FAILS(
        library.set_key(size_t{1} << 40),
        "ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key(): invalid key_num (1099511627776): val=3 "
        "(bad_argument)");
    CHECK_FAILS(library.set_key(0, "%01"), "ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified "
                                           "key not found: val=8 (not_found)");
}

evp_pkey_st* private_key_of(Kes::OsslScardIf& library, void* initial) {
    evp_pkey_st* key = static_cast<evp_pkey_st*>(initial);
    CHECK_SUCCEEDS(library.ossl_get_private_key(&key));
    return key;
}

x509_st* certificate_of(Kes::OsslScardIf& library, void* initial) {
    x509_st* certificate = static_cast<x509_st*>(initial);
    CHECK_SUCCEEDS(library.ossl_get_certificate(&certificate));
    return certificate;
}

void pass_null(Kes::OsslScardIf& library) {
    CHECK_FAILS(library.set_pin(nullptr),
                "ossl_scard_if_imp:183 Kes::OsslScardIfImp::set_pin(): pin is a null "
                "pointer: val=3 (bad_argument)");
    CHECK_FAILS(
        library.discover_keys(nullptr),
        "ossl_scard_if_imp:197 Kes::OsslScardIfImp::discover_keys(): num_keys is a null pointer: val=3 "
        "(bad_argument)");
    CHECK_FAILS(library.set_key(0, nullptr),
                "ossl_scard_if_imp:258 Kes::OsslScardIfImp::set_key(): key_id is "
                "a null pointer: val=3 (bad_argument)");
    CHECK_FAILS(library.ossl_get_private_key(nullptr),
                "ossl_scard_if_imp:312 Kes::OsslScardIfImp::ossl_get_private_key(): pkey is a null pointer: "
                "val=3 (bad_argument)");
    CHECK_FAILS(library.ossl_get_certificate(nullptr),
                "ossl_scard_if_imp:326 Kes::OsslScardIfImp::ossl_get_certificate(): cert is a null pointer: "
                "val=3 (bad_argument)");
    CHECK_FAILS(library.select_key_from_console(nullptr),
                "ossl_scard_if_imp:362 Kes::OsslScardIfImp::select_key_from_console(): key_num is a null "
                "pointer: val=3 (bad_argument)");
}

/// Needs the keys "xs.", and "." for the second menu.
void show_the_menus(Kes::OsslScardIf& library) {
    Kes::OsslScardCfg* const cfg = library.get_config_default();
    Kes::OsslScardCfg::CryptoIf selected = Kes::OsslScardCfg::capi;
    CHECK(cfg->select_crypto_if_from_console(&selected) == 0);
    CHECK(selected == Kes::OsslScardCfg::capi_store);
    selected = Kes::OsslScardCfg::pkcs11;
    CHECK(cfg->select_crypto_if_from_console(&selected) == 1);
    CHECK(selected == Kes::OsslScardCfg::pkcs11);
    size_t number = 77;
    CHECK_FAILS(library.select_key_from_console(&number),
                "ossl_scard_if_imp:390 Kes::OsslScardIfImp::select_key_from_console(): user abort: val=16 "
                "(user_abort)");
    CHECK(number == 77);
}

/// With an unknown back-end, every state can be reached without a card.
void go_through_the_states(Kes::OsslScardIf& library, const char* log_file) {
    Kes::OsslScardCfg* const cfg = library.get_config_default();
    cfg->set_crypto_if(static_cast<Kes::OsslScardCfg::CryptoIf>(7));
    cfg->set_logfile(log_file);
    CHECK_SUCCEEDS(library.init(cfg));
    CHECK_TEXT(log_file, library.get_config_used()->get_logfile());
    CHECK_SUCCEEDS(library.read_scard());
    CHECK_SUCCEEDS(library.set_pin("1234"));
    size_t number = 77;
    CHECK_FAILS(library.discover_keys(&number),
                "pko_id_list:86 Kes::PkoIdList::scan(): no scanner registered: val=9 (not_registered)");
    CHECK(number == 77);
    CHECK_SUCCEEDS(library.notify_config_done());
    CHECK_FAILS(library.ossl_load(),
                "ossl_scard_mgr:372 Kes::OsslScardMgr::ossl_load(): openssl engine not created: val=6 "
                "(invalid_state)");
    CHECK_SUCCEEDS(library.ossl_unload());
}

} // namespace

void call_every_operation(const char* log_file) {
    Kes::OsslScardIf* library = get_ossl_scard_if();
    check_versions(*library);
    call_before_init(*library);
    request_missing_keys(*library);
    CHECK(private_key_of(*library, library) == nullptr);
    CHECK(certificate_of(*library, library) == nullptr);
    pass_null(*library);
    show_the_menus(*library);
    go_through_the_states(*library, log_file);
    library->destroy();

    library = get_ossl_scard_if();
    CHECK_TEXT("", library->get_last_error_msg());
    CHECK_TEXT("ossl_scard.log", library->get_config_used()->get_logfile());
    library->destroy();
}
