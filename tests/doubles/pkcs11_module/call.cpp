#include "call.h"

namespace Kes::test {

Calls& Calls::instance() {
    static Calls* const created = new Calls;
    return *created;
}

CallNumber Calls::next(const char* function) { return {++count_, ++counts_[function]}; }

} // namespace Kes::test
