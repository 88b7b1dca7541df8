#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "manager/build_info.h"
#include "tool/commands.h"
#include "tool/doctor/checks.h"
#include "tool/doctor/html_page.h"
#include "tool/output_file.h"
#include "utils/platform.h"

namespace Kes::tool {
namespace {

struct DoctorOptions {
    bool login = false;
    bool with_names = false;
    bool force = false;
    std::string html_file;
    std::string key_id;

    Names names() const { return with_names ? Names::shown : Names::left_out; }
};

/// A sentence on one line. Values from elsewhere may contain control characters.
std::string sentence(const Text& text) {
    std::string shown = text.str(Names::shown) + '.';
    const auto is_control = [](char c) { return (c >= 0 && c < ' ') || c == 0x7f; };
    std::replace_if(shown.begin(), shown.end(), is_control, '?');
    return shown;
}

void print_line(const Finding& finding) {
    std::string state = to_string(finding.state);
    state.resize(8, ' ');
    std::string line = state + finding.check + ": " + sentence(finding.finding);
    if (!finding.remedy.empty()) line += " Remedy: " + sentence(finding.remedy);
    std::cout << line << std::endl;
}

std::ptrdiff_t count(const Findings& findings, State state) {
    return std::count_if(findings.begin(), findings.end(),
                         [state](const Finding& finding) { return finding.state == state; });
}

Json to_json(const Findings& findings, Names names) {
    Json array = Json::array();
    for (const Finding& finding : findings)
        array.push_back({{"state", to_string(finding.state)},
                         {"link", to_string(finding.link)},
                         {"check", finding.check},
                         {"finding", finding.finding.str(names)},
                         {"remedy", finding.remedy.str(names)}});
    return array;
}

/// The current local time, such as "2024-03-05 09:07".
std::string time_of_report() {
    const platform::LocalTime now = platform::local_time();
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d", now.year, now.month, now.day,
                  now.hour, now.minute);
    return text.data();
}

/// The report was printed before, so a failure must not replace its result.
/// @return whether the page is written
bool write_page(const Findings& findings, const DoctorOptions& options) {
    const HtmlPageFacts facts{
        .names = options.names(), .version = library_version(), .time = time_of_report()};
    try {
        write_file(options.html_file, html_page(findings, facts), options.force);
        std::cerr << "The report is in " << options.html_file << std::endl;
        return true;
    } catch (const std::exception& error) {
        std::cerr << "marvo doctor: " << error.what() << std::endl;
        return false;
    }
}

void print_counts(std::ptrdiff_t errors, std::ptrdiff_t warnings) {
    std::cout << errors << (errors == 1 ? " error, " : " errors, ") << warnings
              << (warnings == 1 ? " warning" : " warnings") << std::endl;
}

ExitStatus examine(const Command& command, const DoctorOptions& options) {
    if (!options.html_file.empty()) check_file(options.html_file, options.force);
    Context context({.settings = command.settings,
                     .pin = command.pin,
                     .is_login_wanted = options.login || command.pin.is_given(),
                     .key_id = options.key_id});
    const auto report = [&command](const Finding& finding) {
        if (!command.as_json) print_line(finding);
    };
    const Findings findings = run_checks(all_checks(), context, report);
    const std::ptrdiff_t errors = count(findings, State::error);
    const std::ptrdiff_t warnings = count(findings, State::warning);
    if (command.as_json)
        print_json(command, {{"errors", errors},
                             {"warnings", warnings},
                             {"with_names", options.with_names},
                             {"findings", to_json(findings, options.names())}});
    else
        print_counts(errors, warnings);
    const bool is_written = options.html_file.empty() || write_page(findings, options);
    if (errors != 0) return ExitStatus::errors_found;
    return is_written ? ExitStatus::success : ExitStatus::failure;
}

} // namespace

void create_doctor_command(CLI::App& program, Command& command) {
    command.name = "doctor";
    CLI::App* app =
        command.add_to(program, "Check the whole installation, and say what is wrong and what to do");
    const auto options = std::make_shared<DoctorOptions>();
    command.pin.add_to(*app);
    app->add_flag("--login", options->login, "Log in to the card once, and ask for the PIN on the terminal")
        ->group("PIN");
    app->add_option("--key", options->key_id, "Check the key that a client selects with this id")
        ->type_name("ID");
    CLI::Option* html = app->add_option("--html", options->html_file,
                                        "Also write the report to FILE, as a page to send to support");
    html->type_name("FILE");
    app->add_flag("--force", options->force, "With --html: overwrite FILE")->needs(html);
    app->add_flag("--with-names", options->with_names,
                  "With --json or --html: do not leave out personal data");
    command.action = [&command, options] { return examine(command, *options); };
}

} // namespace Kes::tool
