#include <algorithm>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "base/env_settings.h"
#include "tool/commands.h"
#include "tool/environment_check.h"
#include "tool/option_checks.h"
#include "tool/shell_assignment.h"
#include "tool/suggested_settings.h"

namespace Kes::tool {
namespace {

struct EnvLine {
    std::string name;
    std::string value;
    bool is_suggestion; ///< the variable is not set
};

const std::string* find_value(const Variables& variables, const std::string& name) {
    const auto found = std::find_if(variables.begin(), variables.end(), [&name](const auto& variable) {
        return is_same_variable(variable.first, name);
    });
    return found == variables.end() || found->second.empty() ? nullptr : &found->second;
}

/// The variables that are set, and suggestions for those that are not.
std::vector<EnvLine> list_lines(const Variables& variables) {
    const Variables suggestions = suggest_settings();
    std::vector<EnvLine> lines;
    for (const EnvKey& key : list_env_keys()) {
        const std::string name = env_prefix + key.key;
        const std::string* set = find_value(variables, name);
        const std::string* suggested = find_value(suggestions, key.key);
        if (set != nullptr)
            lines.push_back({name, *set, false});
        else if (suggested != nullptr)
            lines.push_back({name, *suggested, true});
    }
    return lines;
}

void print_text(const std::vector<EnvLine>& lines, const std::vector<EnvironmentMistake>& mistakes,
                const std::string& shell) {
    for (const EnvLine& line : lines)
        std::cout << shell_assignment(shell, line.name, line.value) << '\n';
    std::cout.flush();
    for (const EnvironmentMistake& mistake : mistakes)
        std::cerr << "marvo env: " << mistake.finding << "; " << mistake.remedy << std::endl;
}

void print_as_json(const Command& command, const std::vector<EnvLine>& lines,
                   const std::vector<EnvironmentMistake>& mistakes) {
    Json variables = Json::array();
    for (const EnvLine& line : lines)
        variables.push_back({{"name", line.name}, {"value", line.value}, {"suggested", line.is_suggestion}});
    Json found = Json::array();
    for (const EnvironmentMistake& mistake : mistakes)
        found.push_back({{"variable", mistake.variable},
                         {"kind", mistake.kind == EnvironmentMistake::Kind::name ? "name" : "value"},
                         {"finding", mistake.finding},
                         {"remedy", mistake.remedy}});
    print_json(command, {{"variables", variables}, {"mistakes", found}});
}

ExitStatus print_environment(const Command& command, const std::string& shell) {
    const Variables variables = list_variables();
    const std::vector<EnvLine> lines = list_lines(variables);
    const std::vector<EnvironmentMistake> mistakes = check_environment(variables);
    if (command.as_json)
        print_as_json(command, lines, mistakes);
    else
        print_text(lines, mistakes, shell);
    return mistakes.empty() ? ExitStatus::success : ExitStatus::failure;
}

} // namespace

void create_env_command(CLI::App& program, Command& command) {
    command.name = "env";
    CLI::App* app = command.add_to(
        program, "Print the settings as environment variables for a shell, and check those that are set");
    const auto shell = std::make_shared<std::string>(usual_shell());
    app->add_option("--shell", *shell, "sh, cmd (for a batch file) or powershell")
        ->type_name("NAME")
        ->check(is_one_of({"sh", "cmd", "powershell"}));
    command.action = [&command, shell] { return print_environment(command, *shell); };
}

} // namespace Kes::tool
