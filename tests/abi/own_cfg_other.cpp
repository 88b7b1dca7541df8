// The client's own class for the Itanium ABI, whose tables have two entries for a destructor. The class
// defines the single entry of the binary interface itself.
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

    static void* operator new(size_t size) { return OwnMemory::allocate(size); }
    static void operator delete(void* memory) { OwnMemory::deallocate(memory); }
};

} // namespace

Kes::OsslScardCfg* make_own_cfg() { return new OwnCfg; }
