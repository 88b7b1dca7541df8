// For programs that link a test double of libp11: no library has to be loaded or checked.
#include "pkcs11/libp11_library.h"

namespace Kes {

void require_libp11() {}

} // namespace Kes
