#include "tool/openssl_reason.h"

#include <openssl/err.h>

namespace Kes::tool {

std::string take_openssl_reason(const std::string& otherwise) {
    const unsigned long code = ::ERR_peek_last_error();
    ::ERR_clear_error();
    const char* reason = code == 0 ? nullptr : ::ERR_reason_error_string(code);
    return reason == nullptr ? otherwise : reason;
}

} // namespace Kes::tool
