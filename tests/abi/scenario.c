#include "scenario.h"

int run_scenario(int argc, char** argv, const scenario* scenarios, size_t count) {
    CHECK(argc == 3);
    kit_remove_file(argv[2]);
    for (size_t i = 0; i < count; ++i) {
        if (!kit_same(scenarios[i].name, argv[1])) continue;
        scenarios[i].run(argv[2]);
        return 0;
    }
    kit_fail(argv[1], 0, "unknown scenario");
    return 2;
}
