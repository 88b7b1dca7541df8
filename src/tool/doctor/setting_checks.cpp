#include <array>
#include <map>
#include <sstream>
#include <string>

#include "base/env_settings.h"
#include "tool/doctor/checks.h"
#include "tool/environment.h"
#include "tool/environment_check.h"
#include "tool/setting_options.h"
#include "tool/suggested_settings.h"
#include "utils/helper.h"

namespace Kes::tool {
namespace {

/// The values in effect by the names of the settings, as the library writes them to its log.
std::map<std::string, std::string> values_in_effect(const Context& context) {
    std::string dump(1 << 16, '\0');
    std::istringstream lines(context.dump_settings(dump));
    std::map<std::string, std::string> values;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (line.starts_with("  ") && equals != std::string::npos)
            values[line.substr(2, equals - 2)] = line.substr(equals + 1);
    }
    return values;
}

std::string source_of(const EnvKey& key, const Context& context) {
    if (context.request.settings.is_given(key.key)) return "option";
    const std::string variable = env_prefix + key.key;
    return Helper::get_env(variable).empty() ? "default" : "variable " + variable;
}

std::string as_sentence(std::string text) {
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

} // namespace

std::string hint_of_command_env(const std::string& key) {
    for (const auto& [suggested, value] : suggest_settings())
        if (suggested == key) return "; the command marvo env prints the settings for this system";
    return "";
}

Findings check_settings(Context& context) {
    const std::map<std::string, std::string> values = values_in_effect(context);
    Findings findings;
    for (const EnvKey& key : list_env_keys()) {
        const auto value = values.find(key.setting);
        const std::string text = value == values.end() ? "" : value->second;
        const bool names_a_key = key.key == "priv_key_name" || key.key == "cert_name";
        Text finding(key.setting + "=");
        if (names_a_key)
            finding.add_personal(text);
        else
            finding.add(text);
        finding.add(" (" + source_of(key, context) + ")");
        findings.push_back({State::ok, Link::client, "settings", finding, ""});
    }
    return findings;
}

Findings check_variables(Context&) {
    Findings findings;
    for (const EnvironmentMistake& mistake : check_environment(list_variables())) {
        const bool is_name = mistake.kind == EnvironmentMistake::Kind::name;
        findings.push_back({is_name ? State::error : State::warning, Link::client, "environment",
                            mistake.finding, as_sentence(mistake.remedy)});
    }
    if (findings.empty())
        findings.push_back({State::ok, Link::client, "environment",
                            "no variable is misspelt, and all values have a meaning", ""});
    return findings;
}

} // namespace Kes::tool
