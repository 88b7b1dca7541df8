#include "real_function.h"

#include <stdexcept>
#include <string>

#include "utils/windows_api.h"

namespace Kes::test {

AnyFunction find_in_libcrypto(const char* name) {
    FARPROC found = ::GetProcAddress(::GetModuleHandleA("libcrypto-3-x64.dll"), name);
    if (found == nullptr) throw std::runtime_error(std::string("libcrypto has no ") + name);
    return reinterpret_cast<AnyFunction>(found);
}

} // namespace Kes::test
