// A configuration of the client's own class: the library clones it, uses the clone and deletes it, always
// through the table.
#include "client.h"
#include "own_cfg.h"

int OwnMemory::num_allocated = 0;
int OwnMemory::num_deallocated = 0;

void* OwnMemory::allocate(size_t size) {
    ++num_allocated;
    return ::operator new(size);
}

void OwnMemory::deallocate(void* memory) {
    ++num_deallocated;
    ::operator delete(memory);
}

void use_own_configuration(const char* log_file) {
    Kes::OsslScardIf* const library = get_ossl_scard_if();
    Kes::OsslScardCfg* const own = make_own_cfg();
    own->set_logfile(log_file);
    CHECK_SUCCEEDS(library->init(own));
    CHECK(OwnMemory::num_allocated == 2);
    own->set_logfile("changed");
    Kes::OsslScardCfg* const used = library->get_config_used();
    CHECK(used != own);
    CHECK_TEXT(log_file, used->get_logfile());
    own->release();
    CHECK(OwnMemory::num_deallocated == 1);
    CHECK_SUCCEEDS(library->read_scard());
    CHECK_SUCCEEDS(library->notify_config_done());
    library->destroy();
    CHECK(OwnMemory::num_allocated == 2);
    CHECK(OwnMemory::num_deallocated == 2);
    CHECK(kit_find(kit_read_file(log_file), "the client's own dump\n") != nullptr);
}
