#include "tool/command.h"

#include <iostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "tool/printable.h"

namespace Kes::tool {

CLI::App* Command::add_to(CLI::App& program, const std::string& description) {
    CLI::App* app = program.add_subcommand(name, description);
    app->add_flag("--json", as_json, "Print the result as one JSON object");
    settings.add_to(*app);
    return app;
}

void print_error(const Command& command, const std::string& text) {
    std::cerr << "marvo " << command.name << ": " << printable_lines(text) << std::endl;
}

void print_json(const Command& command, const Json& members) {
    Json object{{"schema", json_schema_version}, {"command", command.name}};
    object.update(members);
    // Names on a card may contain any bytes. JSON is UTF-8, so others are replaced.
    std::cout << object.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
}

} // namespace Kes::tool
