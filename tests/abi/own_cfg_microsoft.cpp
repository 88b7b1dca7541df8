// The client's own class for the Microsoft ABI, whose tables have one entry for a destructor. It needs no
// special code.
#include "own_cfg.h"

namespace {

class OwnCfg final : public OwnSettings {
public:
    Kes::OsslScardCfg* clone() const override { return new OwnCfg(*this); }

    static void* operator new(size_t size) { return OwnMemory::allocate(size); }
    static void operator delete(void* memory) { OwnMemory::deallocate(memory); }
};

} // namespace

Kes::OsslScardCfg* make_own_cfg() { return new OwnCfg; }
