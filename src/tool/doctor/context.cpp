#include "tool/doctor/context.h"

#include <filesystem>
#include <utility>

#include "base/env_settings.h"
#include "utils/helper.h"

namespace Kes::tool {
namespace {

/// The names of the user that paths may contain. The name "root" identifies nobody.
std::vector<std::string> user_names() {
    std::vector<std::string> names;
    for (const char* variable : {"USER", "LOGNAME", "USERNAME"})
        names.push_back(Helper::get_env(variable));
    for (const char* variable : {"HOME", "USERPROFILE"})
        names.push_back(std::filesystem::path(Helper::get_env(variable)).filename().string());
    std::erase_if(names, [](const std::string& name) { return name.empty() || name == "root"; });
    return names;
}

} // namespace

Context::Context(DoctorRequest request_in)
    : request(std::move(request_in)), names(user_names()), cfg(OsslScardCfg::capi) {
    cfg.load_from_env(env_prefix);
}

std::string Context::engine_path() const {
    switch (crypto_if()) {
    case OsslScardCfg::capi:
        return settings().get_capi_openssl_engine_dll();
    case OsslScardCfg::pkcs11:
        return settings().get_pkcs11_openssl_engine_dll();
    case OsslScardCfg::capi_store:
        return settings().get_capi_store_openssl_engine_dll();
    }
    return "";
}

} // namespace Kes::tool
