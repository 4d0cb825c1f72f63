// Name hashing throughput on 1 KiB keys, against the standard library's string hash.
#include <benchmark/benchmark.h>

#include <functional>
#include <random>
#include <string_view>
#include <vector>

#include "common/utils/Hash.h"

namespace
{
    constexpr size_t kKeyBytes = 1024;
    constexpr size_t kKeys = 64;

    const std::vector<char>& Keys()
    {
        static const std::vector<char> s_aKeys = [] {
            std::vector<char> v(kKeyBytes * kKeys);
            std::mt19937 rng(1);
            for (char& c : v) c = static_cast<char>(rng());
            return v;
        }();
        return s_aKeys;
    }

    void BM_GenerateUIntIdFromBuffer(benchmark::State& state)
    {
        const std::vector<char>& keys = Keys();
        size_t i = 0;
        for (auto _ : state)
        {
            benchmark::DoNotOptimize(GenerateUIntIdFromBuffer(keys.data() + i * kKeyBytes, kKeyBytes));
            i = (i + 1) % kKeys;
        }
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kKeyBytes));
    }
    BENCHMARK(BM_GenerateUIntIdFromBuffer);

    void BM_StdHashStringView(benchmark::State& state)
    {
        const std::vector<char>& keys = Keys();
        const std::hash<std::string_view> hasher;
        size_t i = 0;
        for (auto _ : state)
        {
            benchmark::DoNotOptimize(hasher(std::string_view(keys.data() + i * kKeyBytes, kKeyBytes)));
            i = (i + 1) % kKeys;
        }
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kKeyBytes));
    }
    BENCHMARK(BM_StdHashStringView);
}
