#include "tool/setting_options.h"

#include <CLI/CLI.hpp>

#include "base/env_settings.h"
#include "tool/environment.h"
#include "tool/environment_check.h"

namespace Kes::tool {
namespace {

// The errors of this file do not repeat what the user gave, because it may be a PIN.
std::string check_back_end(const std::string& name) {
    const std::string meant = meant_back_ends(name);
    return meant.empty() ? "" : "no back-end has this name; use " + meant;
}

std::string check_key(const std::string& key) {
    const std::string meant = meant_settings(key);
    return meant.empty() ? "" : "no setting has this key; use " + meant;
}

void require_valid(const std::string& problem) {
    if (!problem.empty()) throw CLI::ValidationError("--set", problem);
}

} // namespace

void SettingOptions::add_to(CLI::App& command) {
    struct Option {
        const char* name;
        const char* type;
        std::vector<const char*> keys;
        const char* description;
        std::string (*check)(const std::string&) = nullptr;
    };
    const std::vector<Option> options = {
        {"--backend", "NAME", {"crypto_if"}, "The back-end: pkcs11, capi or capi_store", check_back_end},
        {"--module", "FILE", {"pkcs11_module_dll"}, "The PKCS#11 module (pkcs11)"},
        // One process uses one back-end, so that the option can set the engine of each.
        {"--engine",
         "FILE",
         {"pkcs11_openssl_engine_dll", "capi_openssl_engine_dll", "capi_store_openssl_engine_dll"},
         "OpenSSL's engine for the back-end"},
        {"--provider", "NAME", {"capi_csp_name"}, "The CryptoAPI provider (capi)"},
        {"--store", "NAME", {"capi_store_cert_store_name"}, "The certificate store (capi_store)"},
    };
    for (const Option& option : options) {
        const auto store = [this, keys = option.keys](const std::string& value) {
            for (const char* key : keys)
                values[key] = value;
        };
        CLI::Option* added = command.add_option_function<std::string>(option.name, store, option.description);
        added->type_name(option.type)->group("Settings");
        if (option.check != nullptr) added->check(CLI::Validator(option.check, ""));
    }
    command
        .add_option("--set", assignments, "Any setting, by its environment key, such as logfile_severity=63")
        ->type_name("KEY=VALUE")
        ->expected(1)
        ->take_all()
        ->group("Settings");
}

void SettingOptions::apply() {
    for (const std::string& assignment : assignments) {
        const std::size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0)
            throw CLI::ValidationError("--set", "the value is not of the form KEY=VALUE");
        const std::string key = assignment.substr(0, equals);
        const std::string value = assignment.substr(equals + 1);
        require_valid(check_key(key));
        if (key == "crypto_if" && !value.empty()) require_valid(check_back_end(value));
        values[key] = value;
    }
    for (const auto& [key, value] : values)
        set_variable(env_prefix + key, value);
}

} // namespace Kes::tool
