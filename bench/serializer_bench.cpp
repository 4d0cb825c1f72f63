// Writing and reading back a graph of 100,000 small objects through the serializer,
// against writing (and reading) the same fields with fwrite/fread on a memory buffer.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/serialization/Serializer.h"

using namespace ZemRenderer;

namespace
{
    constexpr unsigned int kObjects = 100000;

    // 26 bytes of fields: three scalars and two pointers, one of them to an object that
    // other objects share.
    struct Item
    {
        int iValue = 0;
        float fWeight = 0;
        unsigned short uiFlags = 0;
        Item* pChild = nullptr;
        Item* pShared = nullptr;

        void Serialize(Serializer& s)
        {
            s.Serialize(iValue);
            s.Serialize(fWeight);
            s.Serialize(uiFlags);
            s.SerializePointer(pChild);
            s.SerializePointer(pShared);
        }
    };
    constexpr size_t kFieldBytes = 4 + 4 + 2 + 8 + 8;

    // Items in a binary tree (child links chain siblings), each also pointing at the
    // object a third of the way down: breadth first, shared objects, no cycles.
    struct Scene
    {
        ZEM_SERIALIZABLE_CLASS("ZemRendererBench::Scene")
        Item* pRoot = nullptr;
        void Serialize(Serializer& s) { s.SerializePointer(pRoot); }
    };

    struct Graph
    {
        std::vector<Item*> aItems;
        Scene kScene;
        Graph()
        {
            for (unsigned int i = 0; i < kObjects; ++i)
            {
                Item* item = MEM_NEW(Item);
                item->iValue = static_cast<int>(i);
                item->fWeight = static_cast<float>(i) * 0.5f;
                item->uiFlags = static_cast<unsigned short>(i);
                aItems.push_back(item);
            }
            for (unsigned int i = 0; i < kObjects; ++i)
            {
                aItems[i]->pChild = i + 1 < kObjects ? aItems[i + 1] : nullptr;
                aItems[i]->pShared = aItems[i / 3];
            }
            kScene.pRoot = aItems[0];
        }
        ~Graph()
        {
            for (Item* item : aItems) MEM_DELETE(item);
        }
    };

    Graph& SharedGraph()
    {
        static Graph s_kGraph;
        return s_kGraph;
    }

    std::string WriteGraph()
    {
        IOSTreamMemory m;
        m.OpenToWrite(nullptr);
        SerializationManager::WriteFile(m, SharedGraph().kScene);
        m.SwitchToRead();
        std::string bytes(m.GetSize(), '\0');
        m.Read(bytes.data(), bytes.size());
        return bytes;
    }

    void FreeRead(Scene& scene)
    {
        for (Item* item = scene.pRoot; item;)
        {
            Item* next = item->pChild;
            MEM_DELETE(item);
            item = next;
        }
        scene.pRoot = nullptr;
    }

    void BM_SerializerWrite(benchmark::State& state)
    {
        Graph& g = SharedGraph();
        size_t bytes = 0;
        for (auto _ : state)
        {
            IOSTreamMemory m;
            m.OpenToWrite(nullptr);
            if (!SerializationManager::WriteFile(m, g.kScene)) state.SkipWithError("write failed");
            bytes = m.GetSize();
        }
        state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kObjects);
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    }

    void BM_SerializerRead(benchmark::State& state)
    {
        const std::string bytes = WriteGraph();
        for (auto _ : state)
        {
            Scene scene;
            IOSTreamExistingMemory in(bytes.data(), bytes.size());
            if (!SerializationManager::ReadFile(in, scene)) state.SkipWithError("read failed");
            state.PauseTiming();
            FreeRead(scene);
            state.ResumeTiming();
        }
        state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kObjects);
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
    }

    // The same fields, one fwrite each, into a memory buffer.
    void BM_BaselineFwrite(benchmark::State& state)
    {
        Graph& g = SharedGraph();
        std::vector<char> buffer(kObjects * kFieldBytes + 64);
        for (auto _ : state)
        {
            FILE* f = fmemopen(buffer.data(), buffer.size(), "wb");
            for (const Item* item : g.aItems)
            {
                const unsigned long long child = reinterpret_cast<uintptr_t>(item->pChild);
                const unsigned long long shared = reinterpret_cast<uintptr_t>(item->pShared);
                std::fwrite(&item->iValue, 4, 1, f);
                std::fwrite(&item->fWeight, 4, 1, f);
                std::fwrite(&item->uiFlags, 2, 1, f);
                std::fwrite(&child, 8, 1, f);
                std::fwrite(&shared, 8, 1, f);
            }
            std::fclose(f);
            benchmark::DoNotOptimize(buffer.data());
        }
        state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kObjects);
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kObjects * kFieldBytes));
    }

    // The same fields, one fread each, into freshly made objects (pointers not resolved).
    void BM_BaselineFread(benchmark::State& state)
    {
        std::vector<char> buffer(kObjects * kFieldBytes);
        for (size_t i = 0; i < buffer.size(); ++i) buffer[i] = static_cast<char>(i);
        std::vector<Item*> items(kObjects);
        for (auto _ : state)
        {
            FILE* f = fmemopen(buffer.data(), buffer.size(), "rb");
            for (unsigned int i = 0; i < kObjects; ++i)
            {
                Item* item = MEM_NEW(Item);
                unsigned long long child;
                unsigned long long shared;
                std::fread(&item->iValue, 4, 1, f);
                std::fread(&item->fWeight, 4, 1, f);
                std::fread(&item->uiFlags, 2, 1, f);
                std::fread(&child, 8, 1, f);
                std::fread(&shared, 8, 1, f);
                item->pChild = reinterpret_cast<Item*>(child);
                items[i] = item;
            }
            std::fclose(f);
            state.PauseTiming();
            for (Item* item : items) MEM_DELETE(item);
            state.ResumeTiming();
        }
        state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kObjects);
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kObjects * kFieldBytes));
    }
}

BENCHMARK(BM_BaselineFwrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SerializerWrite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineFread)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SerializerRead)->Unit(benchmark::kMillisecond);
