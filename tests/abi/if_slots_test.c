/* Calls every function in the table of the exported object. */
#include "if_checks.h"

/* Checks that the log has exactly these lines "called: Kes::OsslScardIfImp::<operation>", in this order. */
static void check_traced(const char* log_file, const char* const* operations, size_t count) {
    static const char prefix[] = "called: Kes::OsslScardIfImp::";
    const char* position = kit_read_file(log_file);
    for (size_t i = 0; i <= count; ++i) {
        position = kit_find(position, prefix);
        if (i == count) break;
        CHECK(position != NULL);
        position += kit_length(prefix);
        const size_t length = (size_t)(kit_find(position, "\n") - position);
        char operation[64] = "";
        kit_append(operation, length + 1 < sizeof operation ? length + 1 : sizeof operation, position);
        CHECK_TEXT(operations[i], operation);
    }
    CHECK(position == NULL);
}

/* Calls every slot except init on a new object. Needs the keys "x.". */
static void call_all_before_init(OsslScardIf* library) {
    size_t size = 77;
    CHECK_FAILS(library->table->version_check(library, 3),
                "interface version incompatibility detected: specified=3, expected=4", library);
    CHECK_SUCCEEDS(library->table->version_check(library, ossl_scard_if_version), library);
    OsslScardCfg* const default_cfg = library->table->get_config_default(library);
    CHECK_TEXT("ossl_scard.log", logfile_of(default_cfg));
    OsslScardCfg* const used_cfg = library->table->get_config_used(library);
    CHECK(used_cfg != default_cfg);
    CHECK_TEXT("ossl_scard.log", logfile_of(used_cfg));
    CHECK_FAILS(library->table->read_scard(library), NOT_ALLOWED("uninitialized"), library);
    CHECK(!library->table->is_pin_required(library));
    CHECK_FAILS(library->table->set_pin(library, "1234"), NOT_ALLOWED("uninitialized"), library);
    CHECK_FAILS(library->table->discover_keys(library, &size), NOT_ALLOWED("uninitialized"), library);
    CHECK(size == 77);
    CHECK(library->table->get_key_name(library, 5) == NULL);
    CHECK_TEXT("ossl_scard_if_imp:221 Kes::OsslScardIfImp::get_key_name(): invalid key_num (5): val=3 "
               "(bad_argument)",
               last_error(library));
    CHECK_FAILS(library->table->set_key_by_id(library, 0, "%01"),
                "ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified key not found: val=8 "
                "(not_found)",
                library);
    CHECK_FAILS(library->table->set_key_by_number(library, 6),
                "ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key(): invalid key_num (6): val=3 "
                "(bad_argument)",
                library);
    CHECK_FAILS(library->table->notify_config_done(library), NOT_ALLOWED("uninitialized"), library);
    CHECK_FAILS(library->table->ossl_load(library), NOT_ALLOWED("uninitialized"), library);
    CHECK_FAILS(library->table->ossl_unload(library), NOT_ALLOWED("uninitialized"), library);
    struct evp_pkey_st* key = (struct evp_pkey_st*)&size;
    CHECK_SUCCEEDS(library->table->ossl_get_private_key(library, &key), library);
    CHECK(key == NULL);
    struct x509_st* certificate = (struct x509_st*)&size;
    CHECK_SUCCEEDS(library->table->ossl_get_certificate(library, &certificate), library);
    CHECK(certificate == NULL);
    CHECK_TEXT("4.3.0", library->table->get_version(library));
    CHECK_FAILS(library->table->select_key_from_console(library, &size),
                "ossl_scard_if_imp:390 Kes::OsslScardIfImp::select_key_from_console(): user abort: val=16 "
                "(user_abort)",
                library);
    CHECK(size == 77);
}

static void every_slot_holds_its_operation(const char* log_file) {
    static const char* const operations[] = {"version_check()",
                                             "get_last_error_msg()",
                                             "version_check()",
                                             "get_last_error_msg()",
                                             "get_config_default()",
                                             "get_config_used()",
                                             "read_scard()",
                                             "get_last_error_msg()",
                                             "is_pin_required()",
                                             "set_pin()",
                                             "get_last_error_msg()",
                                             "discover_keys()",
                                             "get_last_error_msg()",
                                             "get_key_name()",
                                             "get_last_error_msg()",
                                             "set_key(key_type, key_id)",
                                             "get_last_error_msg()",
                                             "set_key(key_num)",
                                             "get_last_error_msg()",
                                             "notify_config_done()",
                                             "get_last_error_msg()",
                                             "ossl_load()",
                                             "get_last_error_msg()",
                                             "ossl_unload()",
                                             "get_last_error_msg()",
                                             "ossl_get_private_key()",
                                             "get_last_error_msg()",
                                             "ossl_get_certificate()",
                                             "get_last_error_msg()",
                                             "get_version()",
                                             "select_key_from_console()",
                                             "get_last_error_msg()",
                                             "get_config_default()",
                                             "init()",
                                             "get_last_error_msg()",
                                             "destroy()"};
    OsslScardIf* library = get_ossl_scard_if();
    CHECK(library != NULL);
    CHECK(get_ossl_scard_if() == library);
    call_all_before_init(library);
    init_with(library, ossl_scard_capi, log_file);
    library->table->destroy(library);
    check_traced(log_file, operations, sizeof operations / sizeof operations[0]);
}

static void each_operation_changes_the_state_correctly(const char* log_file) {
    OsslScardIf* library = get_ossl_scard_if();
    size_t size = 77;
    init_with(library, no_crypto_if, log_file);
    CHECK_TEXT(log_file, logfile_of(library->table->get_config_used(library)));
    CHECK_FAILS(library->table->init(library, NULL), NOT_ALLOWED("initialized"), library);
    CHECK_FAILS(library->table->set_pin(library, "1234"), NOT_ALLOWED("initialized"), library);
    CHECK_SUCCEEDS(library->table->read_scard(library), library);
    CHECK(!library->table->is_pin_required(library));
    CHECK_SUCCEEDS(library->table->set_pin(library, "1234"), library);
    CHECK_FAILS(library->table->discover_keys(library, &size),
                "pko_id_list:86 Kes::PkoIdList::scan(): no scanner registered: val=9 (not_registered)",
                library);
    CHECK(size == 77);
    CHECK_FAILS(library->table->ossl_load(library), NOT_ALLOWED("configuring"), library);
    CHECK_SUCCEEDS(library->table->notify_config_done(library), library);
    CHECK_FAILS(library->table->ossl_load(library),
                "ossl_scard_mgr:372 Kes::OsslScardMgr::ossl_load(): openssl engine not created: val=6 "
                "(invalid_state)",
                library);
    CHECK_SUCCEEDS(library->table->ossl_unload(library), library);
    CHECK_FAILS(library->table->notify_config_done(library), NOT_ALLOWED("configured"), library);
    library->table->destroy(library);
}

/* Null pointers are rejected with an error that names the argument. */
static void null_arguments_are_rejected(const char* log_file) {
    (void)log_file;
    OsslScardIf* library = get_ossl_scard_if();
    CHECK_FAILS(library->table->init(library, NULL),
                "ossl_scard_mgr:112 Kes::OsslScardMgr::init(): cfg is a null pointer: val=3 (bad_argument)",
                library);
    CHECK_FAILS(library->table->set_pin(library, NULL),
                "ossl_scard_if_imp:183 Kes::OsslScardIfImp::set_pin(): pin is a null pointer: val=3 "
                "(bad_argument)",
                library);
    CHECK_FAILS(library->table->discover_keys(library, NULL),
                "ossl_scard_if_imp:197 Kes::OsslScardIfImp::discover_keys(): num_keys is a null pointer: "
                "val=3 (bad_argument)",
                library);
    CHECK_FAILS(library->table->set_key_by_id(library, 0, NULL),
                "ossl_scard_if_imp:258 Kes::OsslScardIfImp::set_key(): key_id is a null pointer: val=3 "
                "(bad_argument)",
                library);
    CHECK_FAILS(library->table->ossl_get_private_key(library, NULL),
                "ossl_scard_if_imp:312 Kes::OsslScardIfImp::ossl_get_private_key(): pkey is a null pointer: "
                "val=3 (bad_argument)",
                library);
    CHECK_FAILS(library->table->ossl_get_certificate(library, NULL),
                "ossl_scard_if_imp:326 Kes::OsslScardIfImp::ossl_get_certificate(): cert is a null pointer: "
                "val=3 (bad_argument)",
                library);
    CHECK_FAILS(library->table->select_key_from_console(library, NULL),
                "ossl_scard_if_imp:362 Kes::OsslScardIfImp::select_key_from_console(): key_num is a null "
                "pointer: val=3 (bad_argument)",
                library);
    library->table->destroy(library);
    /* The rejected init() opened the log file of the default configuration. */
    kit_remove_file("ossl_scard.log");
}

/* The destructor's entry destroys the object like destroy(), whatever its flags. */
static void destroy_through_the_destructor(const char* log_file, unsigned int flags) {
    OsslScardIf* library = get_ossl_scard_if();
    init_with(library, ossl_scard_capi, log_file);
    CHECK(library->table->destructor(library, flags) == library);

    CHECK(kit_find(kit_read_file(log_file), "OpenSSL smart card manager stopped.\n") != NULL);

    library = get_ossl_scard_if();
    CHECK(library != NULL);
    CHECK_TEXT("", last_error(library));
    CHECK_TEXT("ossl_scard.log", logfile_of(library->table->get_config_used(library)));
    CHECK_FAILS(library->table->read_scard(library), NOT_ALLOWED("uninitialized"), library);
    library->table->destroy(library);
}

static void new_object_is_available_after_the_destructor(const char* log_file) {
    destroy_through_the_destructor(log_file, 1);
}

static void destructor_without_bit_0_destroys_the_object_too(const char* log_file) {
    destroy_through_the_destructor(log_file, 0);
}

static void new_object_is_available_after_destroy(const char* log_file) {
    OsslScardIf* library = get_ossl_scard_if();
    init_with(library, ossl_scard_capi, log_file);
    library->table->destroy(library);
    library = get_ossl_scard_if();
    CHECK_TEXT("ossl_scard.log", logfile_of(library->table->get_config_used(library)));
    library->table->destroy(library);
}

int main(int argc, char** argv) {
    static const scenario scenarios[] = {
        {"EverySlotHoldsItsOperation", every_slot_holds_its_operation},
        {"EachOperationChangesTheStateCorrectly", each_operation_changes_the_state_correctly},
        {"NullArgumentsAreRejected", null_arguments_are_rejected},
        {"NewObjectIsAvailableAfterTheDestructor", new_object_is_available_after_the_destructor},
        {"DestructorWithoutBit0DestroysTheObjectToo", destructor_without_bit_0_destroys_the_object_too},
        {"NewObjectIsAvailableAfterDestroy", new_object_is_available_after_destroy}};
    return run_scenario(argc, argv, scenarios, sizeof scenarios / sizeof scenarios[0]);
}
