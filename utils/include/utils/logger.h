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

/// The severity of a log line. Each value is one bit, so that a mask can contain several. The library logs
/// nothing as fatal, but clients may set the bit.
enum class Severity : std::uint32_t { trace = 1, debug = 2, info = 4, warn = 8, error = 16, fatal = 32 };

/// The names of the severities in a mask: "info|warn"; "none" for 0, "all" for 0xffff. Bits without a
/// severity are left out.
std::string severity_mask_name(std::uint32_t mask);

/// A stream that discards everything and never fails.
class NullOstream final : public std::ostream {
public:
    NullOstream() : std::ostream(nullptr) { rdbuf(&null_buffer); }

private:
    class NullStreambuf final : public std::streambuf {
    protected:
        int_type overflow(int_type character) override { return traits_type::not_eof(character); }
        std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    };
    NullStreambuf null_buffer;
};

class FileSink;

/// The log of the process. Lines are discarded, kept in memory, or written to a file (the "sink").
///
/// At first, all severities are enabled and lines are discarded. register_sink() writes the lines from memory
/// to the file first, so that the file also contains the lines from before its name was known.
///
/// Other code calls log_info() and the similar functions below. A complete line is passed to the C runtime in
/// one write, so that several processes can append to one file without mixing up their lines. On Windows, the
/// runtime seeks to the end and then writes: two processes that do so at the same moment can lose a line. A
/// failed write is not reported.
class Logger final : public Singleton<Logger> {
public:
    bool is_enabled(Severity severity) const noexcept {
        const auto bit = static_cast<std::uint32_t>(severity);
        return (severity_mask.load(std::memory_order_relaxed) & bit) == bit;
    }

    /// Starts a line: writes "2024-03-05 09:07:02.045 <info> tid=4711: " to the current output. The caller
    /// writes the message and ends the line with std::endl. If the severity is disabled, only the mask is
    /// tested.
    /// @param function  if not null, " " + function + "()" follows the severity. The library itself names the
    ///                  operation in the message instead.
    /// @return the current output, valid until it changes; a stream that discards everything if the severity
    ///         is disabled
    std::ostream& log(Severity severity, const char* function = nullptr);

    /// Enables the severities whose bits are set, and disables the others.
    void set_severity_mask(std::uint32_t mask) noexcept {
        severity_mask.store(mask, std::memory_order_relaxed);
    }

    /// Sends the following lines to memory, and discards the lines that memory contains.
    void buffer_output();

    /// Discards the following lines. Lines in memory remain there.
    void discard_output();

    /// Sends the following lines to the file, after the lines in memory. Before anything is written to it,
    /// closes the file that was registered before, which may be the same one.
    /// @param append  whether to append to an existing file, after a line about the restart, or to empty it
    /// @throws Error open_failed "error opening logfile '...'"; the output does not change then
    void register_sink(const std::string& file_name, bool append);

    /// Lock it while writing a line; the operations above lock it while they change the output. Recursive,
    /// because the streaming operator of a part may write to the log itself.
    std::recursive_mutex& mutex() noexcept { return mutex_; }

private:
    friend class Singleton<Logger>;
    Logger();
    ~Logger();

    NullOstream null_output;
    std::ostringstream memory_output;
    std::unique_ptr<FileSink> file_sink;
    std::ostream* output = &null_output; // one of the three
    std::atomic<std::uint32_t> severity_mask{0xffff};
    std::recursive_mutex mutex_;
};

/// Logs one line that consists of the parts. Pass the objects, not text made from them: if the severity is
/// disabled, nothing is converted to text.
template <typename... Parts>
void log_line(Severity severity, const Parts&... parts) {
    Logger& logger = Logger::instance();
    if (!logger.is_enabled(severity)) return;
    const std::lock_guard lock(logger.mutex());
    (logger.log(severity) << ... << parts) << std::endl;
}

/// Like log_line(), but without a line end, for parts that end with one.
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
