#include <array>
#include <filesystem>

#include <openssl/crypto.h>

#include "tool/suggested_settings.h"

namespace Kes::tool {
namespace {

// Modules of Debian's packages: OpenSC supports many cards, SoftHSM is a token in software.
constexpr std::array<const char*, 2> known_modules{"/usr/lib/x86_64-linux-gnu/opensc-pkcs11.so",
                                                   "/usr/lib/softhsm/libsofthsm2.so"};

} // namespace

const char* usual_shell() { return "sh"; }

// The defaults are names of Windows files.
Variables suggest_settings() {
    Variables settings{{"crypto_if", "pkcs11"}};
    for (const char* module : known_modules)
        if (std::filesystem::exists(module)) {
            settings.emplace_back("pkcs11_module_dll", module);
            break;
        }
    const char* folder = ::OPENSSL_info(OPENSSL_INFO_ENGINES_DIR);
    const std::string engine = std::string(folder == nullptr ? "" : folder) + "/pkcs11.so";
    if (std::filesystem::exists(engine)) settings.emplace_back("pkcs11_openssl_engine_dll", engine);
    return settings;
}

} // namespace Kes::tool
