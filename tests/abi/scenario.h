#ifndef KES_TESTS_ABI_SCENARIO_H_
#define KES_TESTS_ABI_SCENARIO_H_

#include "kit.h"

/* The programs in C run one scenario each time they start. */

typedef struct {
    const char* name;
    void (*run)(const char* log_file);
} scenario;

/* Runs the scenario with the name argv[1]; argv[2] is its log file. The caller of the program types the keys
   that the scenario needs. */
int run_scenario(int argc, char** argv, const scenario* scenarios, size_t count);

#endif
