// A client in C++, built by several compilers, at several optimisation levels and for several standards,
// without a C++ library. It frees everything, which a memory checker verifies where one is available. Usage:
// client slots|sequence <log file>
#include "client.h"

int main(int argc, char** argv) {
    CHECK(argc == 3);
    if (kit_same(argv[1], "sequence")) {
        load_a_key(argv[2]);
    } else {
        CHECK(kit_same(argv[1], "slots"));
        for (int round = 0; round < 3; ++round)
            delete_clones_in_every_way();
        set_every_setting();
        use_own_configuration(argv[2]);
        call_every_operation(argv[2]); // last: it reads the typed keys
    }
    return 0;
}
