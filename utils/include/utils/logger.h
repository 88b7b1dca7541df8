#ifndef KES_UTILS_LOGGER_H_
#define KES_UTILS_LOGGER_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>

#include "utils/singleton.h"

namespace Kes {

/// How important a log line is. Single bits: a mask is a sum of them.
enum class Severity : std::uint32_t { trace = 1, debug = 2, info = 4, warn = 8, error = 16, fatal = 32 };

/// A mask's text: "info|warn", "none" for 0, "all" for 0xffff. Bits without a severity have no text.
std::string severity_mask_name(std::uint32_t mask);

/// Takes every character and keeps none; never fails.
class NullOstream final : public std::ostream {
public:
    NullOstream() : std::ostream(nullptr) { rdbuf(&buffer_); }

private:
    class NullStreambuf final : public std::streambuf {
    protected:
        int_type overflow(int_type character) override { return traits_type::not_eof(character); }
        std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    };
    NullStreambuf buffer_;
};

class FileSink;

/// The process-wide log. Lines go nowhere, into memory, or into a file, the "sink".
///
/// Starts by writing nowhere, with every severity let through. Lines kept in memory reach the file that is
/// registered next, so that the time before the file's name is known stands in it too.
///
/// log_info() and its likes, below, are how everybody logs. A file line is handed to the C runtime in one
/// write when it ends, so lines of several processes that append to one file stay whole. On Windows they
/// nearly always do: there the runtime looks for the file's end and then writes, and two that do so at once
/// write to one place. A failed write is not noticed.
class Logger final : public Singleton<Logger> {
public:
    bool is_enabled(Severity severity) const noexcept {
        const auto bit = static_cast<std::uint32_t>(severity);
        return (mask_.load(std::memory_order_relaxed) & bit) == bit;
    }

    /// Begins a line: writes "2024-03-05 09:07:02.045 <info> tid=4711: " to where lines go now. The caller
    /// writes the message and ends the line with std::endl. A suppressed line costs the test of the mask and
    /// nothing else.
    /// @param function  if not null, " " + function + "()" stands after the severity
    /// @return valid until the next change of output; writes nowhere if the severity is off
    std::ostream& log(Severity severity, const char* function = nullptr);

    void set_severity_mask(std::uint32_t mask) noexcept { mask_.store(mask, std::memory_order_relaxed); }

    /// From now on lines go into memory, which starts empty.
    void buffer_output();

    /// From now on lines go nowhere. Lines kept in memory before stay there.
    void discard_output();

    /// From now on lines go into the file, the lines kept in memory first. A file registered before is
    /// closed.
    /// @param append  add to an existing file, below a line that tells of the restart, instead of emptying it
    /// @throws Error open_failed "error opening logfile '...'"; everything stays as it was then
    void register_sink(const std::string& file_name, bool append);

    /// Held while a whole line is written or the output changes. Recursive: writing a part of a line may log.
    std::recursive_mutex& mutex() noexcept { return mutex_; }

private:
    friend class Singleton<Logger>;
    Logger();
    ~Logger();

    NullOstream null_;
    std::ostream* current_ = &null_;
    std::unique_ptr<FileSink> sink_;
    std::ostringstream buffer_;
    std::atomic<std::uint32_t> mask_{0xffff};
    std::recursive_mutex mutex_;
};

/// Logs one line made of the parts. Pass objects, not texts made from them: nothing is rendered when the
/// severity is off.
template <typename... Parts>
void log_line(Severity severity, const Parts&... parts) {
    Logger& logger = Logger::instance();
    if (!logger.is_enabled(severity)) return;
    const std::lock_guard lock(logger.mutex());
    (logger.log(severity) << ... << parts) << std::endl;
}

/// As log_line(), for parts that already end with a line end.
template <typename... Parts>
void log_lines(Severity severity, const Parts&... parts) {
    Logger& logger = Logger::instance();
    if (!logger.is_enabled(severity)) return;
    const std::lock_guard lock(logger.mutex());
    (logger.log(severity) << ... << parts) << std::flush;
}

template <typename... Parts>
void log_trace(const Parts&... parts) {
    log_line(Severity::trace, parts...);
}

template <typename... Parts>
void log_debug(const Parts&... parts) {
    log_line(Severity::debug, parts...);
}

template <typename... Parts>
void log_info(const Parts&... parts) {
    log_line(Severity::info, parts...);
}

template <typename... Parts>
void log_warn(const Parts&... parts) {
    log_line(Severity::warn, parts...);
}

template <typename... Parts>
void log_error(const Parts&... parts) {
    log_line(Severity::error, parts...);
}

} // namespace Kes

#endif // KES_UTILS_LOGGER_H_
