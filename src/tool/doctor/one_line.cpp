#include <sstream>
#include <vector>

#include "tool/doctor/checks.h"

namespace Kes::tool {
namespace {

/// The fields of a line of OpenSSL's error queue. The details may contain colons themselves.
enum Field { thread, word, number, library, function, reason, file, line, details, fields };

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; parts.size() < details && std::getline(stream, part, ':');)
        parts.push_back(part);
    std::string rest;
    std::getline(stream, rest, '\0');
    parts.push_back(rest);
    return parts;
}

std::string shorten(const std::string& queue_line) {
    const std::vector<std::string> parts = split(queue_line);
    if (parts.size() != fields || parts[word] != "error") return queue_line;
    const std::string text = parts[library] + ": " + parts[reason];
    return parts[details].empty() ? text : text + ": " + parts[details];
}

} // namespace

std::string one_line(const std::string& error_text) {
    std::string text;
    std::istringstream lines(error_text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        text += (text.empty() ? "" : "; ") + shorten(line);
    }
    return text;
}

} // namespace Kes::tool
