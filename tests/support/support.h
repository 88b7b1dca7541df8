#ifndef KES_TESTS_SUPPORT_SUPPORT_H_
#define KES_TESTS_SUPPORT_SUPPORT_H_

#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "types.h"

/// Helpers for all tests.
namespace Kes::test {

/// A new temporary folder, deleted by the destructor.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

/// Changes the current folder during the object's lifetime.
class CurrentFolder {
public:
    explicit CurrentFolder(const std::filesystem::path& folder);
    ~CurrentFolder();
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    std::filesystem::path before_;
};

/// Sets an environment variable, or unsets it if there is no value. The destructor restores it.
class EnvVar {
public:
    EnvVar(const std::string& name, const std::optional<std::string>& value);
    ~EnvVar();
    EnvVar(const EnvVar&) = delete;
    EnvVar& operator=(const EnvVar&) = delete;

private:
    std::string name_;
    std::optional<std::string> before_;
};

/// The whole file; "" if it does not exist.
std::string read_file(const std::string& name);

/// The whole text file, with the system's line ends converted to "\n"; "" if it does not exist.
std::string read_text(const std::string& name);

/// The lines of a text, without line ends.
Lines split_lines(const std::string& text);

/// A log line without its time and thread: "2024-03-05 09:07:02.045 <info> tid=4711: text" becomes
/// "<info> text". Other lines are returned unchanged.
std::string without_header(const std::string& line);

/// The lines of a log file, each changed by without_header().
Lines log_lines(const std::string& file);

/// A log line with "BUILD" in place of the build date and the compiler in the manager's first lines, and
/// "TIME" in place of the time in the banner of an appended log.
std::string without_build(const std::string& line);

/// The lines as one text. For texts, GoogleTest prints only the differing lines.
std::string as_text(const Lines& lines);

/// Captures the log during the object's lifetime, by default with all severities.
class LogCapture {
public:
    explicit LogCapture(std::uint32_t severity_mask = 0xffff);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All lines so far, each changed by without_header().
    Lines lines() const;

    /// The whole log so far, read by read_text().
    std::string text() const;

private:
    TempDir dir_;
};

/// The text that operator<< prints for an object.
template <typename Printable>
std::string text_of(const Printable& printable) {
    std::ostringstream text;
    text << printable;
    return text.str();
}

/// The text of the std::exception that the function throws; "no exception" if it throws none.
template <typename Function>
std::string error_text(Function function) {
    try {
        function();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no exception";
}

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_SUPPORT_H_
