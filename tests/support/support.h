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

/// What tests of all parts share.
namespace Kes::test {

/// A folder of its own for a test, gone with the object.
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

/// Makes a folder the current one while the object lives.
class CurrentFolder {
public:
    explicit CurrentFolder(const std::filesystem::path& folder);
    ~CurrentFolder();
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    std::filesystem::path before_;
};

/// Sets (or, without a value, unsets) an environment variable and puts it back.
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

/// The whole file; "" when there is none.
std::string read_file(const std::string& name);

/// The whole text file, with "\n" for what ends a line in files of this system; "" when there is none.
std::string read_text(const std::string& name);

/// The text's lines without their ends.
Lines split_lines(const std::string& text);

/// A log line without what differs from run to run: "2024-03-05 09:07:02.045 <info> tid=4711: text" becomes
/// "<info> text". Other lines come back as they are.
std::string without_header(const std::string& line);

/// The lines of a log file, as without_header() gives them.
Lines log_lines(const std::string& file);

/// A log line without what differs from build to build and from run to run in the manager's first lines and
/// in the banner of a log that is appended to: "BUILD" and "TIME".
std::string without_build(const std::string& line);

/// The lines as one text, of which GoogleTest shows the differing lines alone.
std::string as_text(const Lines& lines);

/// Collects what the log writes while the object lives, every severity unless told otherwise.
class LogCapture {
public:
    explicit LogCapture(std::uint32_t severity_mask = 0xffff);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All lines so far, as without_header() gives them.
    Lines lines() const;

    /// The text so far, as read_text() gives it.
    std::string text() const;

private:
    TempDir dir_;
};

/// What an object prints.
template <typename Printable>
std::string text_of(const Printable& printable) {
    std::ostringstream text;
    text << printable;
    return text.str();
}

/// The text of the std::exception that the function throws; "no exception" when it throws none.
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
