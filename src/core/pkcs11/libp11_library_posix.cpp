#include "pkcs11/libp11_library.h"

#include <dlfcn.h>
#include <libp11.h>
#include <string>

#include "utils/error.h"

// Before 0.4.12, libp11 lacks this function, and its structures have a different layout. A weak reference is
// null then; with an ordinary one, the loader would reject this library without naming the cause.
#pragma weak PKCS11_update_slots

namespace Kes {

void require_libp11() {
    if (&::PKCS11_update_slots != nullptr) return;
    Dl_info libp11{};
    const bool has_path = ::dladdr(reinterpret_cast<const void*>(&::PKCS11_CTX_new), &libp11) != 0;
    throw Error(ErrorCodeType::unsupported,
                std::string("'") + (has_path ? libp11.dli_fname : "libp11") +
                    "' has no function PKCS11_update_slots: libp11 0.4.12 or later is needed",
                "libp11_library:20 Kes::require_libp11()");
}

} // namespace Kes
