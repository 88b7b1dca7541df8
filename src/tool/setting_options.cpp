#include "tool/setting_options.h"

#include <CLI/CLI.hpp>

#include "base/env_settings.h"
#include "tool/environment.h"

namespace Kes::tool {

void SettingOptions::add_to(CLI::App& command) {
    struct Option {
        const char* name;
        const char* type;
        std::vector<const char*> keys;
        const char* description;
    };
    const std::vector<Option> options = {
        {"--backend", "NAME", {"crypto_if"}, "The back-end: pkcs11, capi or capi_store"},
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
        command.add_option_function<std::string>(option.name, store, option.description)
            ->type_name(option.type)
            ->group("Settings");
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
            throw CLI::ValidationError("--set", "'" + assignment + "' is not of the form KEY=VALUE");
        values[assignment.substr(0, equals)] = assignment.substr(equals + 1);
    }
    for (const auto& [key, value] : values)
        set_variable(env_prefix + key, value);
}

} // namespace Kes::tool
