// The class where compilers keep one entry for a destructor: it is written as usual.
#include "own_cfg.h"

namespace {

class OwnCfg final : public OwnSettings {
public:
    Kes::OsslScardCfg* clone() const override { return new OwnCfg(*this); }

    static void* operator new(size_t size) { return OwnMemory::take(size); }
    static void operator delete(void* memory) { OwnMemory::give_back(memory); }
};

} // namespace

Kes::OsslScardCfg* make_own_cfg() { return new OwnCfg; }
