#include <string>

#include "tool/doctor/checks.h"
#include "utils/error.h"

namespace Kes::tool {
namespace {

/// The reason why the back-end does not exist on this system; "" if it does.
std::string unsupported_reason(const Context& context) {
    if (context.crypto_if() == OsslScardCfg::pkcs11) return ""; // needs a loaded module to create a scanner
    try {
        context.backend().create_scanner(context.settings(), nullptr);
        return "";
    } catch (const Error& error) {
        return error.what();
    }
}

} // namespace

Findings check_backend(Context& context) {
    const std::string name = crypto_if_name(context.crypto_if());
    if (name == crypto_if_name({}))
        return {{State::error, Link::client, "back-end", "the setting crypto_if names no back-end",
                 "Set it to capi, pkcs11 or capi_store, in lower case"}};
    if (const std::string reason = unsupported_reason(context); !reason.empty())
        return {{State::error, Link::client, "back-end", reason,
                 "Set crypto_if to pkcs11, by the client or by the variable ossl_scard_cfg_crypto_if" +
                     hint_of_command_env("crypto_if")}};
    return {{State::ok, Link::client, "back-end", name + " is used", ""}};
}

} // namespace Kes::tool
