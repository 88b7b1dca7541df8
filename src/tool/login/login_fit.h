#ifndef KES_TOOL_LOGIN_LOGIN_FIT_H_
#define KES_TOOL_LOGIN_LOGIN_FIT_H_

#include <vector>

#include "tool/key_verdict.h"
#include "tool/login/tls_login.h"
#include "tool/signature_algorithms.h"

namespace Kes::tool {

/// Why a key and its certificate do not fit what a server accepts. The codes are unknown_issuer,
/// no_algorithm, and those of certificate_warnings().
/// @param report  with the server's request
std::vector<CodedText> find_misfits(const LoginReport& report, const KeyAbilities& abilities,
                                    X509* certificate);

} // namespace Kes::tool

#endif // KES_TOOL_LOGIN_LOGIN_FIT_H_
