// 10,000 small link files (4 KiB each) asked for by name, without an asset manager:
// data provider, loading thread, process thread, then the render thread where the
// requester's callback sees each one, against reading the same files with read(2) in
// one thread.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "common/utils/Hash.h"
#include "zemengine/dataprovider/DataProviderImpl.h"
#include "zemrenderer/device/null/NullRenderer.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/loading/LinkLoadTraits.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/Link.h"
#include "zemrenderer/thread/LoadingThread.hpp"
#include "zemrenderer/thread/RenderThread.h"

using namespace ZemRenderer;

namespace Bench
{
    // An asset whose build is taking its bytes: what is left is the road itself.
    struct Blob
    {
        static constexpr const char* kClassName = "Bench::Blob";
        unsigned char acData[8192];
        size_t uSize = 0;
    };
}

namespace ZemRenderer
{
    template <>
    struct LoadTraits<Bench::Blob>
    {
        static unsigned int TypeId() { return ::GenerateUIntIdFromString(Bench::Blob::kClassName); }
        static bool Load(Bench::Blob& blob, IOSTreamBase& stream, Bucket*)
        {
            blob.uSize = stream.Read(blob.acData, sizeof(blob.acData));
            return blob.uSize == stream.GetSize();
        }
        static void Abort(Bench::Blob*, Bucket*) {}
    };
}

namespace
{
    constexpr unsigned int kAssets = 10000;
    constexpr size_t kFileSize = 4096;

    std::vector<unsigned char> LinkFile(size_t payload)
    {
        Bucket bucket(nullptr, "writer");
        Link link(&bucket, "source");
        UserData* block = UserData::Create(&bucket, UserDataTag::MESH, static_cast<uint32_t>(payload));
        for (size_t i = 0; i < payload; ++i) static_cast<unsigned char*>(block->m_pBuffer)[i] = static_cast<unsigned char>(i);
        link.AddUserData(block);
        IOSTreamMemory out;
        out.OpenToWrite(nullptr);
        link.Save(out);
        std::vector<unsigned char> bytes;
        for (const IOSTreamMemory::Block* b = out.GetFirstBlock(); b && bytes.size() < out.GetSize(); b = b->pNext)
            bytes.insert(bytes.end(), b->aData, b->aData + std::min(IOSTreamMemory::kBlockSize, out.GetSize() - bytes.size()));
        return bytes;
    }

    void WriteFile(const std::string& path, const void* data, size_t size)
    {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        FILE* f = std::fopen(path.c_str(), "wb");
        if (!f) return;
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }

    // The assets on disk, cooked where the provider looks for them, and the provider.
    struct Assets
    {
        std::string root;
        std::vector<std::string> names;
        std::vector<std::string> paths;
        std::vector<std::string> blobNames;
        std::vector<std::string> blobPaths;
        DataProvider::DataProviderImpl provider;

        Assets()
        {
            root = std::string("/tmp/zemora_loaders_bench_") + std::to_string(getpid());
            static const char types[] =
                "[{\"EngineClassName\": \"ZemRenderer::Link\", \"Name\": \"Link\", \"OutputExt\": \"zef\", "
                "\"ImportTypeExtensions\": [\"zef\"]}, {\"EngineClassName\": \"Bench::Blob\", \"Name\": \"Blob\", "
                "\"OutputExt\": \"bin\", \"ImportTypeExtensions\": [\"bin\"]}]";
            static const char config[] = "{\"LogPackage\": false}";
            WriteFile(root + "/Toolchain/TypesInfos/Link.assetInfos", types, sizeof(types) - 1);
            WriteFile(root + "/Toolchain/TypesInfos/DataProvider.config", config, sizeof(config) - 1);
            provider.SetAssetsRoot(root.c_str());
            provider.Init(nullptr, false, 0);
            DataProvider::SetDataProvider(&provider);

            std::vector<unsigned char> file = LinkFile(kFileSize);
            file = LinkFile(2 * kFileSize - file.size());
            for (unsigned int i = 0; i < kAssets; ++i)
            {
                char name[64];
                std::snprintf(name, sizeof(name), "links/a%05u.zef", i);
                names.push_back(name);
                DataProvider::AssetQuery query;
                DataProvider::AssetResult result;
                DataProvider::MakeAssetQuery(query, Link::GetStaticClassId(), name);
                DataProvider::AssetKeyInfo info;
                provider.DescribeQuery(query, info);
                paths.push_back(root + "/" + info.m_szCookedPath);
                WriteFile(paths.back(), file.data(), file.size());

                std::snprintf(name, sizeof(name), "blobs/b%05u.bin", i);
                blobNames.push_back(name);
                DataProvider::MakeAssetQuery(query, LoadTraits<Bench::Blob>::TypeId(), name);
                provider.DescribeQuery(query, info);
                blobPaths.push_back(root + "/" + info.m_szCookedPath);
                WriteFile(blobPaths.back(), file.data(), file.size());
            }
        }
        ~Assets()
        {
            DataProvider::SetDataProvider(nullptr);
            std::error_code ignored;
            std::filesystem::remove_all(root, ignored);
        }
    };

    Assets& GetAssets()
    {
        static Assets s_kAssets;
        return s_kAssets;
    }

    template <class T>
    void OnLoaded(T*, bool loaded, void* user)
    {
        auto* counts = static_cast<std::atomic<unsigned int>*>(user);
        counts[loaded ? 0 : 1].fetch_add(1, std::memory_order_relaxed);
    }

    struct Engine
    {
        NullRenderer device;
        RenderThread* thread = nullptr;
        bool started = false;
        Engine()
        {
            thread = MEM_NEW(RenderThread);
            thread->SetRenderer(&device);
            RendererInitRecord record;
            record.bNoWindow = 1;
            record.uWidth = 64;
            record.uHeight = 32;
            thread->SetInitParameters(record);
            started = thread->Init();
        }
        ~Engine()
        {
            thread->Stop();
            thread->WaitForStop();
            MEM_DELETE(thread);
        }
    };

    // Every asset asked for at once; the clock stops when the last callback has run.
    template <class T, class Make, class Drop>
    void WholeRoad(benchmark::State& state, const std::vector<std::string>& names, Make make, Drop drop)
    {
        Engine engine;
        if (!engine.started)
        {
            state.SkipWithError("render thread did not start");
            return;
        }
        for (auto _ : state)
        {
            state.PauseTiming();
            Bucket bucket(engine.thread, "bench");
            std::vector<T*> objects;
            for (unsigned int i = 0; i < kAssets; ++i) objects.push_back(make(bucket));
            std::atomic<unsigned int> counts[2] = {0, 0};
            state.ResumeTiming();
            for (unsigned int i = 0; i < kAssets; ++i)
                engine.thread->GetLoader()->AddLoaderWork(objects[i], names[i].c_str(), &bucket, false, QueryPtr(),
                                                          &OnLoaded<T>, counts);
            while (counts[0].load() + counts[1].load() < kAssets) std::this_thread::sleep_for(std::chrono::microseconds(200));
            state.PauseTiming();
            if (counts[1].load() != 0) state.SkipWithError("some assets did not load");
            while (!bucket.IsLoaded()) std::this_thread::yield();
            for (T* object : objects) drop(bucket, object);
            state.ResumeTiming();
        }
        state.SetItemsProcessed(state.iterations() * kAssets);
    }

    // Link files: the build reads the link out of the bytes.
    void BM_LoadersWholeRoadLinks(benchmark::State& state)
    {
        WholeRoad<Link>(
            state, GetAssets().names, [](Bucket& bucket) { return bucket.CreateLink("asset"); },
            [](Bucket& bucket, Link* link) { bucket.DestroyLink(link); });
    }
    BENCHMARK(BM_LoadersWholeRoadLinks)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

    // Byte blobs: the same road with a build that only takes the bytes.
    void BM_LoadersWholeRoadBlobs(benchmark::State& state)
    {
        WholeRoad<Bench::Blob>(
            state, GetAssets().blobNames, [](Bucket&) { return MEM_NEW(Bench::Blob); },
            [](Bucket&, Bench::Blob* blob) { MEM_DELETE(blob); });
    }
    BENCHMARK(BM_LoadersWholeRoadBlobs)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

    // The road's steps without its threads: resolve, read to memory, build, one thread.
    void BM_LoadersStepsInOneThread(benchmark::State& state)
    {
        Assets& assets = GetAssets();
        Bench::Blob* blob = MEM_NEW(Bench::Blob);
        for (auto _ : state)
        {
            for (const std::string& name : assets.blobNames)
            {
                DataProvider::AssetQuery query;
                DataProvider::AssetResult result;
                DataProvider::MakeAssetQuery(query, LoadTraits<Bench::Blob>::TypeId(), name.c_str());
                if (!DataProvider::Resolve(result, query)) continue;
                IOSTreamMemory* stream = MEM_NEW(IOSTreamMemory);
                if (stream->OpenToRead(result.m_szFilePath)) LoadTraits<Bench::Blob>::Load(*blob, *stream, nullptr);
                MEM_DELETE(stream);
            }
        }
        MEM_DELETE(blob);
        state.SetItemsProcessed(state.iterations() * kAssets);
    }
    BENCHMARK(BM_LoadersStepsInOneThread)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

    // Baseline: the same files read whole with read(2), one after another, in one thread.
    void BM_LoadersPlainRead(benchmark::State& state)
    {
        Assets& assets = GetAssets();
        std::vector<unsigned char> buffer(2 * kFileSize);
        for (auto _ : state)
        {
            size_t total = 0;
            for (const std::string& path : assets.paths)
            {
                const int fd = ::open(path.c_str(), O_RDONLY);
                if (fd < 0) continue;
                ssize_t n;
                while ((n = ::read(fd, buffer.data(), buffer.size())) > 0) total += static_cast<size_t>(n);
                ::close(fd);
            }
            benchmark::DoNotOptimize(total);
        }
        state.SetItemsProcessed(state.iterations() * kAssets);
    }
    BENCHMARK(BM_LoadersPlainRead)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
}
