#include "base/pko_id_list.h"

#include <benchmark/benchmark.h>
#include <memory>
#include <string>

namespace Kes {
namespace {

/// A list in the order of a scan: certificates, then private keys, one of each in every cluster.
class FilledList {
public:
    explicit FilledList(std::int64_t records) : pairs(records / 2) {
        for (std::int64_t i = 0; i < pairs; ++i)
            add(PkoType::certificate, i);
        for (std::int64_t i = 0; i < pairs; ++i)
            add(PkoType::private_key, i);
    }

    const PkoIdList& get() const { return list; }

    /// The last cluster, which a linear search would find last.
    std::string last_cluster() const { return cluster(pairs - 1); }

private:
    static std::string cluster(std::int64_t i) { return "pkcs11:id=%30%31" + std::to_string(i); }

    void add(PkoType type, std::int64_t i) {
        const std::string name = cluster(i);
        list.add(type, 0, name + ";type=object", name, name, nullptr);
    }

    PkoIdList list;
    std::int64_t pairs;
};

void find(benchmark::State& state) {
    const FilledList list(state.range(0));
    const std::string cluster = list.last_cluster();
    if (list.get().find(PkoType::private_key, 0, cluster) == nullptr) state.SkipWithError("nothing found");
    for (auto _ : state)
        benchmark::DoNotOptimize(list.get().find(PkoType::private_key, 0, cluster));
}
BENCHMARK(find)->ArgName("records")->Arg(10)->Arg(1000);

void find_matching(benchmark::State& state) {
    const FilledList list(state.range(0));
    const PkoId* key = list.get().find(PkoType::private_key, 0, list.last_cluster());
    if (list.get().find_matching(PkoType::certificate, key) == nullptr) state.SkipWithError("nothing found");
    for (auto _ : state)
        benchmark::DoNotOptimize(list.get().find_matching(PkoType::certificate, key));
}
BENCHMARK(find_matching)->ArgName("records")->Arg(10)->Arg(1000);

/// Finds every private key and its certificate, as after a scan. The rate counts records.
void walk_pairs(benchmark::State& state) {
    const FilledList list(state.range(0));
    for (auto _ : state)
        for (const PkoId* key = list.get().find_first(PkoType::private_key); key != nullptr;
             key = list.get().find_next(PkoType::private_key, key))
            benchmark::DoNotOptimize(list.get().find_matching(PkoType::certificate, key));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(walk_pairs)->ArgName("records")->Arg(10)->Arg(1000);

/// Like walk_pairs(), but without the search for certificates.
void find_next(benchmark::State& state) {
    const FilledList list(state.range(0));
    for (auto _ : state)
        for (const PkoId* key = list.get().find_first(PkoType::private_key); key != nullptr;
             key = list.get().find_next(PkoType::private_key, key))
            benchmark::DoNotOptimize(key);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(find_next)->ArgName("records")->Arg(10)->Arg(1000);

} // namespace
} // namespace Kes
