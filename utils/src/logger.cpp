#include "utils/logger.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <locale>

#include "utils/error.h"
#include "utils/platform.h"
#include "utils/text_helper.h"

namespace Kes {
namespace {

constexpr std::uint32_t bit(Severity severity) { return static_cast<std::uint32_t>(severity); }

constexpr std::array severity_names{
    BitName{bit(Severity::trace), "trace"}, BitName{bit(Severity::debug), "debug"},
    BitName{bit(Severity::info), "info"},   BitName{bit(Severity::warn), "warn"},
    BitName{bit(Severity::error), "error"}, BitName{bit(Severity::fatal), "fatal"}};

const char* severity_name(Severity severity) {
    for (const auto& entry : severity_names)
        if (entry.bit == bit(severity)) return entry.name;
    return "";
}

/// Collects a line and hands it to the file in one write when it is flushed.
class LineBuffer final : public std::streambuf {
public:
    LineBuffer(const std::string& file_name, std::ios::openmode mode) {
        file_.pubsetbuf(nullptr, 0); // the line is the buffer
        file_.open(file_name, mode);
    }
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    ~LineBuffer() override { write_line(); }

    bool is_open() const { return file_.is_open(); }

protected:
    int_type overflow(int_type character) override {
        if (!traits_type::eq_int_type(character, traits_type::eof()))
            line_ += traits_type::to_char_type(character);
        return traits_type::not_eof(character);
    }

    std::streamsize xsputn(const char* text, std::streamsize count) override {
        line_.append(text, static_cast<std::size_t>(count));
        return count;
    }

    int sync() override { return write_line() ? 0 : -1; }

private:
    bool write_line() {
        const auto length = static_cast<std::streamsize>(line_.size());
        const bool is_written = length == 0 || file_.sputn(line_.data(), length) == length;
        line_.clear(); // keeps its memory for the next line
        return is_written;
    }

    std::string line_;
    std::filebuf file_;
};

} // namespace

class FileSink final : public std::ostream {
public:
    FileSink(const std::string& file_name, std::ios::openmode mode)
        : std::ostream(nullptr), buffer_(file_name, mode) {
        rdbuf(&buffer_);
        imbue(std::locale::classic());
    }

    bool is_open() const { return buffer_.is_open(); }

private:
    LineBuffer buffer_;
};

std::string severity_mask_name(std::uint32_t mask) {
    return mask == 0xffff ? "all" : TextHelper::mask_names(mask, severity_names);
}

// Log texts are the same whatever global locale the client has set: no grouped digits, no other point.
Logger::Logger() { buffer_.imbue(std::locale::classic()); }

Logger::~Logger() = default;

std::ostream& Logger::log(Severity severity, const char* function) {
    if (!is_enabled(severity) || current_ == &null_) return null_;
    // Not by stream insertion: seven padded numbers cost several times as much that way.
    std::array<char, 128> text{};
    int length = std::snprintf(text.data(), text.size(), "%s <%s>", TextHelper::timestamp_text().data(),
                               severity_name(severity));
    current_->write(text.data(), length);
    if (function != nullptr) *current_ << ' ' << function << "()";
    length = std::snprintf(text.data(), text.size(), " tid=%lu: ", platform::thread_id());
    return current_->write(text.data(), length);
}

void Logger::buffer_output() {
    const std::lock_guard lock(mutex_);
    buffer_.str("");
    buffer_.clear();
    current_ = &buffer_;
}

void Logger::discard_output() {
    const std::lock_guard lock(mutex_);
    current_ = &null_;
}

void Logger::register_sink(const std::string& file_name, bool append) {
    const std::lock_guard lock(mutex_);
    auto sink =
        std::make_unique<FileSink>(file_name, std::ios::out | (append ? std::ios::app : std::ios::trunc));
    if (!sink->is_open())
        throw Error(ErrorCodeType::open_failed, "error opening logfile '" + file_name + "'",
                    "logger:90 Kes::Logger::register_sink()");
    if (append)
        *sink << "[[[ ------ restart logger at " << TextHelper::timestamp() << " ------]]]" << std::endl;
    current_ = sink.get();
    sink_ = std::move(sink); // closes the file before
    *current_ << buffer_.str() << std::flush;
    buffer_.str("");
    buffer_.clear();
}

} // namespace Kes
