#include "tool/shell_assignment.h"

#include <stdexcept>

namespace Kes::tool {
namespace {

std::string replace_all(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t place = text.find(from); place != std::string::npos;
         place = text.find(from, place + to.size()))
        text.replace(place, from.size(), to);
    return text;
}

/// Between these quotation marks, cmd treats only a percent sign as special.
std::string for_cmd(const std::string& name, const std::string& value) {
    if (value.find_first_of("\"\r\n") != std::string::npos)
        throw std::runtime_error("cmd cannot set " + name +
                                 ", because its value contains a quotation mark or a line end");
    return "set \"" + name + "=" + replace_all(value, "%", "%%") + "\"";
}

/// PowerShell regards four typographic characters as the same quotation mark.
std::string for_powershell(const std::string& name, std::string value) {
    for (const char* mark : {"'", "\xe2\x80\x98", "\xe2\x80\x99", "\xe2\x80\x9a", "\xe2\x80\x9b"})
        value = replace_all(value, mark, std::string(mark) + mark);
    return "$env:" + name + " = '" + value + "'";
}

} // namespace

std::string shell_assignment(const std::string& shell, const std::string& name, const std::string& value) {
    if (shell == "cmd") return for_cmd(name, value);
    if (shell == "powershell") return for_powershell(name, value);
    return "export " + name + "='" + replace_all(value, "'", R"('\'')") + "'";
}

} // namespace Kes::tool
