#ifndef KES_TESTS_ABI_CLIENT_H_
#define KES_TESTS_ABI_CLIENT_H_

#include "kit.h"
#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

// The uses of the library by the client in C++. Each destroys all objects that it creates.
void set_every_setting();
void delete_clones_in_every_way();
void call_every_operation(const char* log_file);
void use_own_configuration(const char* log_file);
void load_a_key(const char* log_file); ///< needs a card

// Check the status of an operation of the library and the error text.
#define CHECK_FAILS(status, error)                                                                           \
    do {                                                                                                     \
        CHECK((status) == 1);                                                                                \
        CHECK_TEXT(error, get_ossl_scard_if()->get_last_error_msg());                                        \
    } while (0)
#define CHECK_SUCCEEDS(status)                                                                               \
    do {                                                                                                     \
        const int status_ = (status);                                                                        \
        CHECK_TEXT("", get_ossl_scard_if()->get_last_error_msg());                                           \
        CHECK(status_ == 0);                                                                                 \
    } while (0)

#endif // KES_TESTS_ABI_CLIENT_H_
