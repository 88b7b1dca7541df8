// A configuration of the client's own class: the library copies it, uses the copy and ends it, all by the
// table.
#include "client.h"
#include "own_cfg.h"

int OwnMemory::num_taken = 0;
int OwnMemory::num_returned = 0;

void* OwnMemory::take(size_t size) {
    ++num_taken;
    return ::operator new(size);
}

void OwnMemory::give_back(void* memory) {
    ++num_returned;
    ::operator delete(memory);
}

void bring_an_own_configuration(const char* log_file) {
    Kes::OsslScardIf* const library = get_ossl_scard_if();
    Kes::OsslScardCfg* const own = make_own_cfg();
    own->set_logfile(log_file);
    CHECK_SUCCEEDS(library->init(own));
    CHECK(OwnMemory::num_taken == 2);
    own->set_logfile("changed");
    Kes::OsslScardCfg* const used = library->get_config_used();
    CHECK(used != own);
    CHECK_TEXT(log_file, used->get_logfile());
    own->release();
    CHECK(OwnMemory::num_returned == 1);
    CHECK_SUCCEEDS(library->read_scard());
    CHECK_SUCCEEDS(library->notify_config_done());
    library->destroy();
    CHECK(OwnMemory::num_taken == 2);
    CHECK(OwnMemory::num_returned == 2);
    CHECK(kit_find(kit_read_file(log_file), "the client's own dump\n") != nullptr);
}
