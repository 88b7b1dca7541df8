#ifndef KES_TOOL_LOGIN_TCP_CONNECTION_H_
#define KES_TOOL_LOGIN_TCP_CONNECTION_H_

#include <string>

#include "utils/ossl_ptr.h"

namespace Kes::tool {

/// Connects to the first address of the host that accepts a connection. Does not wait for addresses that refuse.
/// @param timeout  seconds for all addresses together; the system limits the search for them
/// @return a socket that does not block
/// @throws std::runtime_error with the reason, without the name of the host
BioPtr connect_to(const std::string& host, const std::string& port, int timeout);

} // namespace Kes::tool

#endif // KES_TOOL_LOGIN_TCP_CONNECTION_H_
