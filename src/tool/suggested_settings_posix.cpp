#include <array>
#include <filesystem>

#include <openssl/crypto.h>

#include "tool/doctor/loaded_files.h"
#include "tool/known_modules_posix.h"
#include "tool/suggested_settings.h"

namespace Kes::tool {
namespace {

/// The folder of the system's libraries, whose name differs between processors and distributions.
std::string library_folder() {
    std::error_code ignored; // then the path is empty, and so is the folder
    return std::filesystem::canonical(libcrypto_in_use(), ignored).parent_path().string();
}

} // namespace

std::string find_known_module(const std::vector<std::string>& folders) {
    // OpenSC supports many cards, SoftHSM is a token in software.
    constexpr std::array names{"opensc-pkcs11.so", "pkcs11/opensc-pkcs11.so", "softhsm/libsofthsm2.so",
                               "pkcs11/libsofthsm2.so"};
    for (const char* name : names)
        for (const std::string& folder : folders)
            if (std::string module = folder + "/" + name; std::filesystem::exists(module)) return module;
    return "";
}

const char* usual_shell() { return "sh"; }

// The defaults are names of Windows files.
Variables suggest_settings() {
    Variables settings{{"crypto_if", "pkcs11"}};
    // The folder that all distributions have comes second.
    const std::string module = find_known_module({library_folder(), "/usr/lib"});
    if (!module.empty()) settings.emplace_back("pkcs11_module_dll", module);
    const char* folder = ::OPENSSL_info(OPENSSL_INFO_ENGINES_DIR);
    const std::string engine = std::string(folder == nullptr ? "" : folder) + "/pkcs11.so";
    if (std::filesystem::exists(engine)) settings.emplace_back("pkcs11_openssl_engine_dll", engine);
    return settings;
}

} // namespace Kes::tool
