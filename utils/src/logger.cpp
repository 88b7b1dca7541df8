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

/// Collects a line and writes it to the file in one piece when it is flushed. A plain std::filebuf would
/// write a long line in several pieces, and other processes could write between them.
class LineBuffer final : public std::streambuf {
public:
    LineBuffer(const std::string& file_name, std::ios::openmode mode) {
        file.pubsetbuf(nullptr, 0); // unbuffered: line is the buffer
        file.open(file_name, mode);
    }
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    ~LineBuffer() override { write_line(); }

    bool is_open() const { return file.is_open(); }

protected:
    int_type overflow(int_type character) override {
        if (!traits_type::eq_int_type(character, traits_type::eof()))
            line += traits_type::to_char_type(character);
        return traits_type::not_eof(character);
    }

    std::streamsize xsputn(const char* text, std::streamsize count) override {
        line.append(text, static_cast<std::size_t>(count));
        return count;
    }

    int sync() override { return write_line() ? 0 : -1; }

private:
    bool write_line() {
        const auto length = static_cast<std::streamsize>(line.size());
        const bool is_written = length == 0 || file.sputn(line.data(), length) == length;
        line.clear(); // keeps the memory for the next line
        return is_written;
    }

    std::string line;
    std::filebuf file;
};

} // namespace

/// The output to a file.
class FileSink final : public std::ostream {
public:
    FileSink(const std::string& file_name, std::ios::openmode mode)
        : std::ostream(nullptr), line_buffer(file_name, mode) {
        rdbuf(&line_buffer);
        imbue(std::locale::classic());
    }

    bool is_open() const { return line_buffer.is_open(); }

private:
    LineBuffer line_buffer;
};

std::string severity_mask_name(std::uint32_t mask) {
    return mask == 0xffff ? "all" : TextHelper::mask_names(mask, severity_names);
}

// The format of the log must not depend on the client's global locale, which may group digits or use a
// decimal comma.
Logger::Logger() { memory_output.imbue(std::locale::classic()); }

Logger::~Logger() = default;

std::ostream& Logger::log(Severity severity, const char* function) {
    if (!is_enabled(severity) || output == &null_output) return null_output;
    // snprintf() formats the seven padded numbers several times faster than the stream operators.
    std::array<char, 128> text{};
    int length = std::snprintf(text.data(), text.size(), "%s <%s>", TextHelper::timestamp_text().data(),
                               severity_name(severity));
    output->write(text.data(), length);
    if (function != nullptr) *output << ' ' << function << "()";
    length = std::snprintf(text.data(), text.size(), " tid=%lu: ", platform::thread_id());
    return output->write(text.data(), length);
}

void Logger::buffer_output() {
    const std::lock_guard lock(mutex_);
    memory_output.str("");
    memory_output.clear();
    output = &memory_output;
}

void Logger::discard_output() {
    const std::lock_guard lock(mutex_);
    output = &null_output;
}

void Logger::register_sink(const std::string& file_name, bool append) {
    const std::lock_guard lock(mutex_);
    // Open the new file before anything changes: a failure must leave the current output as it is.
    auto sink =
        std::make_unique<FileSink>(file_name, std::ios::out | (append ? std::ios::app : std::ios::trunc));
    if (!sink->is_open())
        throw Error(ErrorCodeType::open_failed, "error opening logfile '" + file_name + "'",
                    "logger:90 Kes::Logger::register_sink()");
    output = sink.get();
    file_sink = std::move(sink); // closes the previous file, which may still write the end of a line
    if (append)
        *output << "[[[ ------ restart logger at " << TextHelper::timestamp_text().data() << " ------]]]"
                << std::endl;
    *output << memory_output.str() << std::flush;
    memory_output.str("");
    memory_output.clear();
}

} // namespace Kes
