#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "base/ossl_scard_cfg_imp.h"
#include "manager/key_backends.h"
#include "tool/commands.h"
#include "tool/list_result.h"
#include "utils/error.h"

namespace Kes::tool {
namespace {

std::string source_of(const CfgReader& settings) {
    switch (settings.get_crypto_if()) {
    case OsslScardCfg::capi:
        return settings.get_capi_csp_name();
    case OsslScardCfg::pkcs11:
        return settings.get_pkcs11_module_dll();
    case OsslScardCfg::capi_store:
        return settings.get_capi_store_cert_store_name();
    }
    return "";
}

/// Reads the card and scans it. A failure after the tokens are known is in the result.
ListResult read_result(const PinOptions& pin, bool is_login_wanted) {
    OsslScardCfgImp cfg(OsslScardCfg::capi);
    cfg.load_from_env("ossl_scard_cfg_");
    const CfgReader settings(cfg);
    const KeyBackends backends;
    KeyBackend& backend = backends.select(settings.get_crypto_if());
    ListResult result;
    result.backend = crypto_if_name(settings.get_crypto_if());
    result.source = source_of(settings);
    backend.open(settings);
    result.is_login_required = backend.read_card(settings, false);
    result.tokens = backend.tokens();
    try {
        const bool logs_in = result.is_login_required && (is_login_wanted || pin.is_given());
        const Pin entered = logs_in ? pin.read_for(result.tokens) : Pin();
        result.survey = survey_keys(backend, settings, result.is_login_required, entered);
    } catch (const std::exception& error) {
        result.error = error.what();
    }
    return result;
}

constexpr const char* hint = "\nRun \"marvo doctor\", which says what is wrong and what to do.";

ExitStatus list_keys(const Command& command, bool is_login_wanted) {
    const ListResult result = read_result(command.pin, is_login_wanted);
    if (command.as_json)
        print_json(command, to_json(result));
    else
        print_text(std::cout, result);
    if (result.error.empty()) return ExitStatus::success;
    print_error(command, result.error + (result.tokens.empty() ? hint : ""));
    return ExitStatus::failure;
}

/// Lists the keys. If the card cannot be opened, the error says where to find help.
ExitStatus list_keys_or_help(const Command& command, bool is_login_wanted) {
    try {
        return list_keys(command, is_login_wanted);
    } catch (const ErrorBase& error) {
        print_error(command, std::string(error.what()) + hint);
        if (command.as_json) print_json(command, {{"error", error.what()}});
        return ExitStatus::failure;
    }
}

} // namespace

void create_list_command(CLI::App& program, Command& command) {
    command.name = "list";
    CLI::App* app = command.add_to(program, "List the tokens and keys, and why a key is not offered");
    const auto is_login_wanted = std::make_shared<bool>(false);
    app->add_flag("--login", *is_login_wanted, "Ask for the PIN if the token requires it")->group("PIN");
    command.pin.add_to(*app);
    command.pin.add_final_try_to(*app);
    command.action = [&command, is_login_wanted] { return list_keys_or_help(command, *is_login_wanted); };
}

} // namespace Kes::tool
