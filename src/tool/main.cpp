#include <algorithm>
#include <array>
#include <iostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "manager/build_info.h"
#include "tool/commands.h"
#include "tool/environment_check.h"
#include "tool/printable.h"
#include "tool/standard_output.h"

namespace Kes::tool {
namespace {

using Create = void (*)(CLI::App&, Command&);
constexpr std::array<Create, 7> creators{create_list_command,   create_doctor_command, create_login_command,
                                         create_sign_command,   create_cert_command,   create_env_command,
                                         create_version_command};

/// The name of an option without its value; "" for another argument.
std::string option_name(const std::string& argument) {
    const std::size_t dashes = std::min(argument.find_first_not_of('-'), argument.size());
    const auto is_other = [](char c) { return c != '-' && (c < 'a' || c > 'z') && (c < 'A' || c > 'Z'); };
    const auto letters = argument.begin() + static_cast<std::ptrdiff_t>(dashes);
    const auto end = std::find_if(letters, argument.end(), is_other);
    if (dashes == 0 || end == letters) return "";
    return dashes == 1 ? argument.substr(0, 2) : std::string(argument.begin(), end);
}

/// Names the options that the program does not know. No other text of the command line is repeated, because it
/// may be a PIN.
std::string describe_unexpected(const std::vector<std::string>& arguments) {
    std::string options;
    bool has_others = false;
    for (const std::string& argument : arguments) {
        const std::string name = option_name(argument);
        if (!name.empty()) options += (options.empty() ? "" : " ") + name;
        has_others = has_others || (name.empty() && argument != "--");
    }
    std::string others = has_others ? "An argument was not expected" : "";
    if (options.empty()) return others;
    return "These options do not exist: " + options + (has_others ? "\n" + others : "");
}

/// Prints what CLI11 has to say: help and the version to standard output, errors to standard error.
ExitStatus report_command_line(const CLI::App& program, const CLI::ParseError& error) {
    return program.exit(error, std::cout, std::cerr) == 0 ? ExitStatus::success : ExitStatus::usage;
}

ExitStatus report_unexpected(const CLI::App& program) {
    const std::string text = describe_unexpected(program.remaining(true));
    return report_command_line(program, CLI::ParseError(text, CLI::ExitCodes::ExtrasError));
}

/// Names the command that the first word of the command line resembles, but does not repeat the word.
/// @param error  for a command line without a word
ExitStatus report_missing_command(const CLI::App& program, const CLI::ParseError& error) {
    const std::vector<std::string> arguments = program.remaining();
    const auto is_word = [](const std::string& text) { return !text.starts_with('-'); };
    const auto word = std::find_if(arguments.begin(), arguments.end(), is_word);
    if (word == arguments.end()) return report_command_line(program, error);
    std::vector<std::string> names;
    for (const CLI::App* command : program.get_subcommands({}))
        names.push_back(command->get_name());
    const std::string text = "This command does not exist; use " + suggest(*word, names, 2);
    return report_command_line(program, CLI::ParseError(text, CLI::ExitCodes::ExtrasError));
}

/// Names a flag that was given a value. CLI11 does not say "--" or that no value is allowed.
ExitStatus report_mismatch(const CLI::App& program, const CLI::ArgumentMismatch& error) {
    const std::string text = error.what();
    const std::string ending = CLI::ArgumentMismatch::FlagOverride("").what();
    if (!text.ends_with(ending)) return report_command_line(program, error);
    const std::string flag = text.substr(0, text.size() - ending.size());
    return report_command_line(
        program, CLI::ParseError("--" + flag + ": this option takes no value", error.get_exit_code()));
}

ExitStatus run(Command& command) {
    try {
        return command.action();
    } catch (const std::exception& error) {
        print_error(command, error.what());
        if (command.as_json) print_json(command, {{"error", error.what()}});
        return ExitStatus::failure;
    }
}

ExitStatus run_program(int argc, char** argv) {
    CLI::App program("Shows, checks and uses the keys of smart cards as libmarvo does.", "marvo");
    program.set_version_flag("--version", std::string("marvo ") + library_version());
    program.option_defaults()->disable_flag_override(); // also for the commands
    program.require_subcommand(1);
    program.set_help_all_flag("--help-all", "Print the help of all commands");
    std::array<Command, creators.size()> commands;
    for (std::size_t i = 0; i < creators.size(); ++i)
        creators[i](program, commands[i]);
    try {
        program.parse(argc, argv);
        for (Command& command : commands)
            if (program.got_subcommand(command.name)) {
                command.settings.apply();
                return run(command);
            }
    } catch (const CLI::ExtrasError&) {
        return report_unexpected(program);
    } catch (const CLI::ArgumentMismatch& error) {
        return report_mismatch(program, error);
    } catch (const CLI::RequiredError& error) {
        const bool has_command = !program.get_subcommands().empty();
        return has_command ? report_command_line(program, error) : report_missing_command(program, error);
    } catch (const CLI::ParseError& error) {
        return report_command_line(program, error);
    }
    return ExitStatus::usage; // not reached: the program requires a command
}

} // namespace
} // namespace Kes::tool

int main(int argc, char** argv) {
    try {
        const Kes::tool::StandardOutput output;
        const Kes::tool::ExitStatus status = Kes::tool::run_program(argc, argv);
        output.finish();
        return static_cast<int>(status);
    } catch (const std::exception& error) {
        std::cerr << "marvo: " << Kes::tool::printable_lines(error.what()) << std::endl;
        return static_cast<int>(Kes::tool::ExitStatus::failure);
    }
}
