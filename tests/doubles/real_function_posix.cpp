#include "real_function.h"

#include <dlfcn.h>
#include <stdexcept>
#include <string>

namespace Kes::test {

AnyFunction find_in_libcrypto(const char* name) {
    void* found = ::dlsym(RTLD_NEXT, name); // skips the program's own definition
    if (found == nullptr) throw std::runtime_error(std::string("libcrypto has no ") + name);
    return reinterpret_cast<AnyFunction>(found);
}

} // namespace Kes::test
