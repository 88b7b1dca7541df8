#include "tool/option_checks.h"

#include <algorithm>

#include <CLI/CLI.hpp>

#include "tool/decimal_number.h"
#include "tool/environment_check.h"

namespace Kes::tool {

CLI::Validator is_one_of(const std::vector<std::string>& names) {
    const auto check = [names](const std::string& value) {
        const bool is_known = std::find(names.begin(), names.end(), value) != names.end();
        return is_known ? std::string() : "use " + suggest(value, names, 0);
    };
    return {check, "{" + CLI::detail::join(names, ",") + "}"};
}

CLI::Validator is_number(int least, int most) {
    const auto check = [least, most](const std::string& value) {
        const int number = decimal_number(value);
        const bool is_in_range = number >= least && number <= most;
        return is_in_range
                   ? std::string()
                   : "use a whole number from " + std::to_string(least) + " to " + std::to_string(most);
    };
    return {check, ""};
}

CLI::Validator is_existing_file() {
    const auto check = [](std::string& value) {
        return CLI::ExistingFile(value).empty() ? "" : "no file has this name";
    };
    return {check, ""};
}

} // namespace Kes::tool
