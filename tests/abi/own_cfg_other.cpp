// The class where compilers keep two entries for a destructor: the one of the contract is written out.
#include "own_cfg.h"

namespace {

class OwnCfg final : public OwnSettings {
public:
    void* destructor_entry(unsigned int flags) override {
        if ((flags & 1U) != 0)
            delete this;
        else
            this->~OwnCfg();
        return this;
    }
    Kes::OsslScardCfg* clone() const override { return new OwnCfg(*this); }

    static void* operator new(size_t size) { return OwnMemory::take(size); }
    static void operator delete(void* memory) { OwnMemory::give_back(memory); }
};

} // namespace

Kes::OsslScardCfg* make_own_cfg() { return new OwnCfg; }
