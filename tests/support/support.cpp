#include "support.h"

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

#include "support_system.h"
#include "utils/logger.h"

namespace Kes::test {

TempDir::TempDir() : path_(make_temp_dir()) {}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

CurrentFolder::CurrentFolder(const std::filesystem::path& folder) : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
}

CurrentFolder::~CurrentFolder() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
}

EnvVar::EnvVar(const std::string& name, const std::optional<std::string>& value) : name_(name) {
    if (const char* before = std::getenv(name.c_str())) before_ = before;
    set_env(name_, value);
}

EnvVar::~EnvVar() { set_env(name_, before_); }

namespace {

std::string read(const std::string& name, std::ios::openmode mode) {
    std::ifstream file(name, mode);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace

std::string read_file(const std::string& name) { return read(name, std::ios::in | std::ios::binary); }

std::string read_text(const std::string& name) { return read(name, std::ios::in); }

Lines split_lines(const std::string& text) {
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string without_header(const std::string& line) {
    static const std::regex header(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} (<[a-z]+>) tid=\d+: )");
    return std::regex_replace(line, header, "$1 ");
}

Lines log_lines(const std::string& file) {
    Lines lines = split_lines(read_text(file));
    for (std::string& line : lines)
        line = without_header(line);
    return lines;
}

std::string without_build(const std::string& line) {
    // Strict, so that a line of another form stays as it is and differs from the expected one.
    static const std::regex date(
        "^Compiled at (Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 1-3][0-9] 20[0-9]{2}, "
        R"([0-2][0-9]:[0-5][0-9]:[0-6][0-9] \(64-Bit, (GNU|Clang) [0-9]+(\.[0-9]+)*, C\+\+20\)$)");
    static const std::regex time(R"(restart logger at \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )");
    return std::regex_replace(std::regex_replace(line, date, "Compiled at BUILD"), time,
                              "restart logger at TIME ");
}

std::string as_text(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + '\n';
    return text;
}

LogCapture::LogCapture(std::uint32_t severity_mask) {
    Logger::instance().set_severity_mask(severity_mask);
    Logger::instance().register_sink(dir_.file("log"), false);
}

LogCapture::~LogCapture() { Logger::destroy_instance(); }

std::string LogCapture::text() const { return read_text(dir_.file("log")); }

Lines LogCapture::lines() const { return log_lines(dir_.file("log")); }

} // namespace Kes::test
