#ifndef KES_TOOL_OPENSSL_REASON_H_
#define KES_TOOL_OPENSSL_REASON_H_

#include <string>

namespace Kes::tool {

/// The reason of the last error on OpenSSL's error queue, which it empties; the other text without one.
std::string take_openssl_reason(const std::string& otherwise);

} // namespace Kes::tool

#endif // KES_TOOL_OPENSSL_REASON_H_
