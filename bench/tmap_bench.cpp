// TMap::Find against std::lower_bound over a sorted vector of the same pairs.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include "common/utils/TMap.h"

namespace
{
    constexpr size_t kPairs = 10000;
    constexpr size_t kLookups = 4096;

    struct Data
    {
        ZemRenderer::TMap<unsigned int, void*> kMap;
        std::vector<std::pair<unsigned int, void*>> aSorted;
        std::vector<unsigned int> aProbes;
    };

    const Data& GetData()
    {
        static const Data* s_pData = [] {
            Data* d = new Data;
            std::mt19937 rng(3);
            while (d->aSorted.size() < kPairs)
            {
                const unsigned int k = rng();
                d->aSorted.emplace_back(k, reinterpret_cast<void*>(uintptr_t(k) | 1));
            }
            std::sort(d->aSorted.begin(), d->aSorted.end());
            d->aSorted.erase(std::unique(d->aSorted.begin(), d->aSorted.end(),
                                         [](auto& a, auto& b) { return a.first == b.first; }),
                             d->aSorted.end());
            d->kMap.Reserve(static_cast<unsigned int>(d->aSorted.size() + 2));
            for (auto& [k, v] : d->aSorted) d->kMap.Insert(k, v);
            // Present keys in random order, as lookups by name id are.
            for (size_t i = 0; i < kLookups; ++i) d->aProbes.push_back(d->aSorted[rng() % d->aSorted.size()].first);
            return d;
        }();
        return *s_pData;
    }

    void BM_TMapFind(benchmark::State& state)
    {
        const Data& d = GetData();
        size_t i = 0;
        for (auto _ : state)
        {
            benchmark::DoNotOptimize(d.kMap.Find(d.aProbes[i]));
            i = (i + 1) % kLookups;
        }
    }
    BENCHMARK(BM_TMapFind);

    void BM_StdLowerBound(benchmark::State& state)
    {
        const Data& d = GetData();
        size_t i = 0;
        for (auto _ : state)
        {
            const unsigned int key = d.aProbes[i];
            auto it = std::lower_bound(d.aSorted.begin(), d.aSorted.end(), key,
                                       [](const std::pair<unsigned int, void*>& p, unsigned int k) { return p.first < k; });
            void* v = (it != d.aSorted.end() && it->first == key) ? it->second : nullptr;
            benchmark::DoNotOptimize(v);
            i = (i + 1) % kLookups;
        }
    }
    BENCHMARK(BM_StdLowerBound);
}
