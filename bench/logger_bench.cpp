#include "utils/logger.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace Kes {
namespace {

constexpr std::uint32_t info_and_above = 60;

/// Sets up the logger for one benchmark, and creates a temporary folder for its file.
class BenchLog {
public:
    BenchLog() {
        std::string pattern = (std::filesystem::temp_directory_path() / "marvo-bench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder can be made");
        folder = pattern;
        Logger::instance().set_severity_mask(info_and_above);
    }

    ~BenchLog() {
        Logger::destroy_instance();
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    BenchLog(const BenchLog&) = delete;
    BenchLog& operator=(const BenchLog&) = delete;

    void write_to(const std::string& file) { Logger::instance().register_sink(file, false); }
    std::string file() const { return (folder / "log").string(); }

private:
    std::filesystem::path folder;
};

const std::string token_label = "token label"; // the only text value in a line

void suppressed_line(benchmark::State& state) {
    BenchLog log;
    log.write_to("/dev/null");
    int slot = 0;
    for (auto _ : state) {
        log_debug("slot ", ++slot, " of ", 64, ": ", token_label);
        benchmark::DoNotOptimize(slot);
    }
}
BENCHMARK(suppressed_line);

/// For comparison: the same line, written with log(), which formats every value although the line is
/// suppressed.
void suppressed_line_streamed(benchmark::State& state) {
    BenchLog log;
    log.write_to("/dev/null");
    int slot = 0;
    for (auto _ : state)
        Logger::instance().log(Severity::debug)
            << "slot " << ++slot << " of " << 64 << ": " << token_label << std::endl;
}
BENCHMARK(suppressed_line_streamed);

void discarded_line(benchmark::State& state) {
    BenchLog log;
    Logger::instance().discard_output();
    int slot = 0;
    for (auto _ : state)
        log_info("slot ", ++slot, " of ", 64, ": ", token_label);
}
BENCHMARK(discarded_line);

void line_to_dev_null(benchmark::State& state) {
    BenchLog log;
    log.write_to("/dev/null");
    int slot = 0;
    for (auto _ : state)
        log_info("slot ", ++slot, " of ", 64, ": ", token_label);
}
BENCHMARK(line_to_dev_null);

void line_to_file(benchmark::State& state) {
    constexpr int lines_per_file = 0x10000; // the file must not fill the disk
    BenchLog log;
    log.write_to(log.file());
    int slot = 0;
    for (auto _ : state) {
        log_info("slot ", ++slot, " of ", 64, ": ", token_label);
        if (slot % lines_per_file != 0) continue;
        state.PauseTiming();
        log.write_to(log.file());
        state.ResumeTiming();
    }
}
BENCHMARK(line_to_file);

} // namespace
} // namespace Kes
