#include "base/capi_key_type.h"

namespace Kes {

std::string capi_key_type_name(std::uint32_t key_type) {
    if (key_type == capi_key_type_key_exchange) return "KEYEXCHANGE";
    if (key_type == capi_key_type_signature) return "SIGNATURE";
    return "unknown [val=" + std::to_string(key_type) + "]";
}

} // namespace Kes
