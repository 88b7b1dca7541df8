#include <filesystem>
#include <string>

#include "tool/doctor/checks.h"
#include "utils/error.h"
#include "utils/helper.h"

namespace Kes::tool {
namespace {

std::string remedy_for_engine(OsslScardCfg::CryptoIf crypto_if) {
    if (crypto_if == OsslScardCfg::pkcs11)
        return "Set the engine's path to the file of OpenSSL's engine for this back-end";
    return "If the check 'card' finds an error too, follow its remedy first, because this engine opens the "
           "card; otherwise, set the engine's path to the file of OpenSSL's engine for this back-end";
}

} // namespace

Findings check_engine(Context& context) {
    const std::string path = context.engine_path();
    try {
        // The engine receives no PIN here, and reads no key.
        context.backend().create_engine(context.settings(), Pin());
    } catch (const ErrorBase& error) {
        return {{State::error, Link::engine, "engine", one_line(error.what()),
                 remedy_for_engine(context.crypto_if())}};
    }
    return {{State::ok, Link::engine, "engine", path + " can be loaded", ""}};
}

Findings check_soft_token(Context& context) {
    const std::string file = Helper::get_env("SOFTHSM2_CONF");
    const std::string module = context.settings().get_pkcs11_module_dll();
    if (context.crypto_if() != OsslScardCfg::pkcs11 || file.empty() ||
        module.find("softhsm2") == std::string::npos)
        return {};
    if (!std::filesystem::is_regular_file(file))
        return {{State::error, Link::module, "SoftHSM2", "the variable SOFTHSM2_CONF names no file: " + file,
                 "Set it to the path of softhsm2.conf"}};
    return {{State::ok, Link::module, "SoftHSM2", "the variable SOFTHSM2_CONF names the file " + file, ""}};
}

Findings check_module(Context& context) {
    if (context.crypto_if() != OsslScardCfg::pkcs11) return {};
    const std::string path = context.settings().get_pkcs11_module_dll();
    try {
        context.backend().open(context.settings());
    } catch (const ErrorBase& error) {
        return {{State::error, Link::module, "module", one_line(error.what()),
                 "Set pkcs11_module_dll to the file of the card's PKCS#11 module"}};
    }
    return {{State::ok, Link::module, "module", path + " can be loaded", ""}};
}

} // namespace Kes::tool
