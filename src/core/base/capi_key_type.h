#ifndef KES_BASE_CAPI_KEY_TYPE_H_
#define KES_BASE_CAPI_KEY_TYPE_H_

#include <cstdint>
#include <string>

namespace Kes {

/// CryptoAPI's key specifications, which identify the two keys of a container.
constexpr std::uint32_t capi_key_type_key_exchange = 1; // AT_KEYEXCHANGE
constexpr std::uint32_t capi_key_type_signature = 2;    // AT_SIGNATURE

/// Returns "KEYEXCHANGE" or "SIGNATURE", and for any other value a text such as "unknown [val=7]".
std::string capi_key_type_name(std::uint32_t key_type);

} // namespace Kes

#endif // KES_BASE_CAPI_KEY_TYPE_H_
