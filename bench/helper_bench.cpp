#include "utils/helper.h"

#include <benchmark/benchmark.h>
#include <vector>

namespace Kes {
namespace {

void hex_text(benchmark::State& state) {
    const std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)), 0xa5);
    for (auto _ : state)
        benchmark::DoNotOptimize(Helper::bytes_to_hex(bytes.data(), bytes.size(), ":"));
}
BENCHMARK(hex_text)->ArgName("bytes")->Arg(20)->Arg(1024);

void timestamp(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(Helper::timestamp());
}
BENCHMARK(timestamp);

} // namespace
} // namespace Kes
