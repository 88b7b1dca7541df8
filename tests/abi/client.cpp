// A client as others write it: built by several compilers, at several levels of optimisation and language,
// without a C++ library. What it makes it ends; where there is a memory checker, that watches. Usage: client
// slots|sequence <log file>
#include "client.h"

int main(int argc, char** argv) {
    CHECK(argc == 3);
    if (kit_same(argv[1], "sequence")) {
        load_a_key(argv[2]);
    } else {
        CHECK(kit_same(argv[1], "slots"));
        for (int round = 0; round < 3; ++round)
            end_clones_in_every_way();
        set_every_setting();
        bring_an_own_configuration(argv[2]);
        call_every_operation(argv[2]); // last: what is typed is for it
    }
    return 0;
}
