#ifndef KES_TESTS_ABI_IF_CHECKS_H_
#define KES_TESTS_ABI_IF_CHECKS_H_

#include "marvo/ossl_scard_c.h"
#include "scenario.h"

/* A value that is no back-end. */
enum { no_crypto_if = 7 };

#define NOT_ALLOWED(state)                                                                                   \
    "operation not allowed in current state (cfg_state=" state "): val=6 (invalid_state)"

static inline const char* last_error(OsslScardIf* library) {
    return library->table->get_last_error_msg(library);
}

#define CHECK_FAILS(status, error, library)                                                                  \
    do {                                                                                                     \
        CHECK((status) == 1);                                                                                \
        CHECK_TEXT(error, last_error(library));                                                              \
    } while (0)

/* Checks the text first, because it has more details. */
#define CHECK_SUCCEEDS(status, library)                                                                      \
    do {                                                                                                     \
        const int status_ = (status);                                                                        \
        CHECK_TEXT("", last_error(library));                                                                 \
        CHECK(status_ == 0);                                                                                 \
    } while (0)

static inline void init_with(OsslScardIf* library, unsigned int crypto_if, const char* log_file) {
    OsslScardCfg* cfg = library->table->get_config_default(library);
    cfg->table->set_crypto_if(cfg, &crypto_if);
    cfg->table->set_logfile(cfg, log_file);
    CHECK_SUCCEEDS(library->table->init(library, cfg), library);
}

static inline const char* logfile_of(const OsslScardCfg* cfg) { return cfg->table->get_logfile(cfg); }

#endif
