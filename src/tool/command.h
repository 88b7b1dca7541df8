#ifndef KES_TOOL_COMMAND_H_
#define KES_TOOL_COMMAND_H_

#include <functional>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "tool/exit_status.h"
#include "tool/pin_options.h"
#include "tool/setting_options.h"

namespace Kes::tool {

/// JSON that keeps the order in which its members were added. Files that use it include <nlohmann/json.hpp>.
using Json = nlohmann::ordered_json;

/// What every command has: its name, the options that all commands share, and the place of its action.
/// main() keeps one object for each command until the program ends.
struct Command {
    std::string name;
    SettingOptions settings;
    PinOptions pin;
    bool as_json = false;

    /// Does the command's work after the command line was read and the settings were applied. Writes the
    /// result to standard output. Any exception means that the command failed.
    std::function<ExitStatus()> action;

    /// Creates the subcommand, with the options for settings and --json. Commands that may log in add the
    /// options for the PIN themselves.
    CLI::App* add_to(CLI::App& program, const std::string& description);
};

/// Prints why a command failed to standard error. The text may have several lines.
void print_error(const Command& command, const std::string& text);

/// The version of the JSON objects that this program prints. It changes when a member changes its meaning or
/// disappears.
constexpr int json_schema_version = 1;

/// Prints one JSON object to standard output, with the members "schema" and "command" first.
void print_json(const Command& command, const Json& members);

} // namespace Kes::tool

#endif // KES_TOOL_COMMAND_H_
