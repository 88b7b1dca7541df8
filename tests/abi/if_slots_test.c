/* Calls every operation of the exported object by its slot number. */
#include "if_table.h"

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
static void call_all_before_init(kes_object* library) {
    size_t size = 77;
    CHECK_FAILS(SLOT(library, slot_version_check, fn_int_uint)(library, 3),
                "interface version incompatibility detected: specified=3, expected=4", library);
    CHECK_SUCCEEDS(SLOT(library, slot_version_check, fn_int_uint)(library, 4), library);
    kes_object* const default_cfg = SLOT(library, slot_get_config_default, fn_object)(library);
    CHECK_TEXT("ossl_scard.log", logfile_of(default_cfg));
    kes_object* const used_cfg = SLOT(library, slot_get_config_used, fn_object)(library);
    CHECK(used_cfg != default_cfg);
    CHECK_TEXT("ossl_scard.log", logfile_of(used_cfg));
    CHECK_FAILS(SLOT(library, slot_read_scard, fn_int)(library), NOT_ALLOWED("uninitialized"), library);
    CHECK(!SLOT(library, slot_is_pin_required, fn_bool)(library));
    CHECK_FAILS(SLOT(library, slot_set_pin, fn_int_text)(library, "1234"), NOT_ALLOWED("uninitialized"),
                library);
    CHECK_FAILS(SLOT(library, slot_discover_keys, fn_int_size_out)(library, &size),
                NOT_ALLOWED("uninitialized"), library);
    CHECK(size == 77);
    CHECK(SLOT(library, slot_get_key_name, fn_text_size)(library, 5) == NULL);
    CHECK_TEXT("ossl_scard_if_imp:221 Kes::OsslScardIfImp::get_key_name(): invalid key_num (5): val=3 "
               "(bad_argument)",
               last_error(library));
    CHECK_FAILS(SLOT(library, slot_set_key_by_id, fn_int_uint_text)(library, 0, "%01"),
                "ossl_scard_if_imp:263 Kes::OsslScardIfImp::set_key(): specified key not found: val=8 "
                "(not_found)",
                library);
    CHECK_FAILS(SLOT(library, slot_set_key_by_number, fn_int_size)(library, 6),
                "ossl_scard_if_imp:241 Kes::OsslScardIfImp::set_key(): invalid key_num (6): val=3 "
                "(bad_argument)",
                library);
    CHECK_FAILS(SLOT(library, slot_notify_config_done, fn_int)(library), NOT_ALLOWED("uninitialized"),
                library);
    CHECK_FAILS(SLOT(library, slot_ossl_load, fn_int)(library), NOT_ALLOWED("uninitialized"), library);
    CHECK_FAILS(SLOT(library, slot_ossl_unload, fn_int)(library), NOT_ALLOWED("uninitialized"), library);
    void* pointer = &size;
    CHECK_SUCCEEDS(SLOT(library, slot_ossl_get_private_key, fn_int_pointer_out)(library, &pointer), library);
    CHECK(pointer == NULL);
    pointer = &size;
    CHECK_SUCCEEDS(SLOT(library, slot_ossl_get_certificate, fn_int_pointer_out)(library, &pointer), library);
    CHECK(pointer == NULL);
    CHECK_TEXT("4.3.0", SLOT(library, slot_get_version, fn_text)(library));
    CHECK_FAILS(SLOT(library, slot_select_key_from_console, fn_int_size_out)(library, &size),
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
    kes_object* library = get_ossl_scard_if();
    CHECK(library != NULL);
    CHECK(get_ossl_scard_if() == library);
    call_all_before_init(library);
    init_with(library, crypto_if_capi, log_file);
    SLOT(library, slot_destroy, fn_void)(library);
    check_traced(log_file, operations, sizeof operations / sizeof operations[0]);
}

static void each_operation_changes_the_state_correctly(const char* log_file) {
    kes_object* library = get_ossl_scard_if();
    size_t size = 77;
    init_with(library, no_crypto_if, log_file);
    CHECK_TEXT(log_file, logfile_of(SLOT(library, slot_get_config_used, fn_object)(library)));
    CHECK_FAILS(SLOT(library, slot_init, fn_int_object)(library, NULL), NOT_ALLOWED("initialized"), library);
    CHECK_FAILS(SLOT(library, slot_set_pin, fn_int_text)(library, "1234"), NOT_ALLOWED("initialized"),
                library);
    CHECK_SUCCEEDS(SLOT(library, slot_read_scard, fn_int)(library), library);
    CHECK(!SLOT(library, slot_is_pin_required, fn_bool)(library));
    CHECK_SUCCEEDS(SLOT(library, slot_set_pin, fn_int_text)(library, "1234"), library);
    CHECK_FAILS(SLOT(library, slot_discover_keys, fn_int_size_out)(library, &size),
                "pko_id_list:86 Kes::PkoIdList::scan(): no scanner registered: val=9 (not_registered)",
                library);
    CHECK(size == 77);
    CHECK_FAILS(SLOT(library, slot_ossl_load, fn_int)(library), NOT_ALLOWED("configuring"), library);
    CHECK_SUCCEEDS(SLOT(library, slot_notify_config_done, fn_int)(library), library);
    CHECK_FAILS(SLOT(library, slot_ossl_load, fn_int)(library),
                "ossl_scard_mgr:372 Kes::OsslScardMgr::ossl_load(): openssl engine not created: val=6 "
                "(invalid_state)",
                library);
    CHECK_SUCCEEDS(SLOT(library, slot_ossl_unload, fn_int)(library), library);
    CHECK_FAILS(SLOT(library, slot_notify_config_done, fn_int)(library), NOT_ALLOWED("configured"), library);
    SLOT(library, slot_destroy, fn_void)(library);
}

/* Null pointers are rejected with an error that names the argument. */
static void null_arguments_are_rejected(const char* log_file) {
    (void)log_file;
    kes_object* library = get_ossl_scard_if();
    CHECK_FAILS(SLOT(library, slot_init, fn_int_object)(library, NULL),
                "ossl_scard_mgr:112 Kes::OsslScardMgr::init(): cfg is a null pointer: val=3 (bad_argument)",
                library);
    CHECK_FAILS(SLOT(library, slot_set_pin, fn_int_text)(library, NULL),
                "ossl_scard_if_imp:183 Kes::OsslScardIfImp::set_pin(): pin is a null pointer: val=3 "
                "(bad_argument)",
                library);
    CHECK_FAILS(SLOT(library, slot_discover_keys, fn_int_size_out)(library, NULL),
                "ossl_scard_if_imp:197 Kes::OsslScardIfImp::discover_keys(): num_keys is a null pointer: "
                "val=3 (bad_argument)",
                library);
    CHECK_FAILS(SLOT(library, slot_set_key_by_id, fn_int_uint_text)(library, 0, NULL),
                "ossl_scard_if_imp:258 Kes::OsslScardIfImp::set_key(): key_id is a null pointer: val=3 "
                "(bad_argument)",
                library);
    CHECK_FAILS(SLOT(library, slot_ossl_get_private_key, fn_int_pointer_out)(library, NULL),
                "ossl_scard_if_imp:312 Kes::OsslScardIfImp::ossl_get_private_key(): pkey is a null pointer: "
                "val=3 (bad_argument)",
                library);
    CHECK_FAILS(SLOT(library, slot_ossl_get_certificate, fn_int_pointer_out)(library, NULL),
                "ossl_scard_if_imp:326 Kes::OsslScardIfImp::ossl_get_certificate(): cert is a null pointer: "
                "val=3 (bad_argument)",
                library);
    CHECK_FAILS(SLOT(library, slot_select_key_from_console, fn_int_size_out)(library, NULL),
                "ossl_scard_if_imp:362 Kes::OsslScardIfImp::select_key_from_console(): key_num is a null "
                "pointer: val=3 (bad_argument)",
                library);
    SLOT(library, slot_destroy, fn_void)(library);
    /* The rejected init() opened the log file of the default configuration. */
    kit_remove_file("ossl_scard.log");
}

/* The destructor's entry destroys the object like destroy(), whatever its flags. */
static void destroy_through_the_destructor(const char* log_file, unsigned int flags) {
    kes_object* library = get_ossl_scard_if();
    init_with(library, crypto_if_capi, log_file);
    CHECK(SLOT(library, slot_destructor, fn_destructor)(library, flags) == library);

    CHECK(kit_find(kit_read_file(log_file), "OpenSSL smart card manager stopped.\n") != NULL);

    library = get_ossl_scard_if();
    CHECK(library != NULL);
    CHECK_TEXT("", last_error(library));
    CHECK_TEXT("ossl_scard.log", logfile_of(SLOT(library, slot_get_config_used, fn_object)(library)));
    CHECK_FAILS(SLOT(library, slot_read_scard, fn_int)(library), NOT_ALLOWED("uninitialized"), library);
    SLOT(library, slot_destroy, fn_void)(library);
}

static void new_object_is_available_after_the_destructor(const char* log_file) {
    destroy_through_the_destructor(log_file, 1);
}

static void destructor_without_bit_0_destroys_the_object_too(const char* log_file) {
    destroy_through_the_destructor(log_file, 0);
}

static void new_object_is_available_after_destroy(const char* log_file) {
    kes_object* library = get_ossl_scard_if();
    init_with(library, crypto_if_capi, log_file);
    SLOT(library, slot_destroy, fn_void)(library);
    library = get_ossl_scard_if();
    CHECK_TEXT("ossl_scard.log", logfile_of(SLOT(library, slot_get_config_used, fn_object)(library)));
    SLOT(library, slot_destroy, fn_void)(library);
}

int main(int argc, char** argv) {
    static const scenario scenarios[] = {
        {"EverySlotHoldsItsOperation", every_slot_holds_its_operation},
        {"EachOperationChangesTheStateCorrectly", each_operation_changes_the_state_correctly},
        {"NullArgumentsAreRejected", null_arguments_are_rejected},
        {"NewObjectIsAvailableAfterTheDestructor", new_object_is_available_after_the_destructor},
        {"DestructorWithoutBit0DestroysTheObjectToo", destructor_without_bit_0_destroys_the_object_too},
        {"NewObjectIsAvailableAfterDestroy", new_object_is_available_after_destroy}};
    CHECK(number_of_slots == 21);
    return run_scenario(argc, argv, scenarios, sizeof scenarios / sizeof scenarios[0]);
}
