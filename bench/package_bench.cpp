// Reading every file of a 100 MB package through IOSTreamDisk, against reading the same
// files one by one with read(2) from the folder they were packed from. The data is
// made in /tmp when the program starts and removed when it ends.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include "zemrenderer/io/IOSTreamDisk.h"
#include "zemrenderer/io/IOStreamPackage.h"
#include "zemrenderer/io/IOStreamPackageManager.h"

using namespace ZemRenderer;

namespace
{
    constexpr size_t kTotalBytes = 100u << 20;

    struct PackageData
    {
        std::string kBase;
        std::string kFolder;
        std::vector<std::string> aNames;
        size_t uiLargest = 0;
        size_t uiBytes = 0;

        PackageData()
        {
            char pattern[] = "/tmp/zem_package_bench_XXXXXX";
            kBase = mkdtemp(pattern);
            kFolder = kBase + "/Data";
            std::mt19937 random(1234);
            std::vector<char> bytes(2u << 20);
            for (char& c : bytes) c = static_cast<char>(random());
            // Sizes from 4 KB to 2 MB, as textures, meshes and small files mix in real data.
            while (uiBytes < kTotalBytes)
            {
                size_t size = 4096u << (random() % 10);
                size += random() % 4096;
                if (size > bytes.size()) size = bytes.size();
                if (uiBytes + size > kTotalBytes) size = kTotalBytes - uiBytes;
                const std::string name = "dir" + std::to_string(aNames.size() % 8) + "/file" + std::to_string(aNames.size());
                std::filesystem::create_directories(kFolder + "/dir" + std::to_string(aNames.size() % 8));
                FILE* f = std::fopen((kFolder + "/" + name).c_str(), "wb");
                std::fwrite(bytes.data(), 1, size, f);
                std::fclose(f);
                aNames.push_back(name);
                uiBytes += size;
                if (size > uiLargest) uiLargest = size;
            }
            const std::string pak = kBase + "/data.pak";
            if (!IOStreamPackage::Create(kFolder.c_str(), (kBase + "/list.txt").c_str(), pak.c_str(), false, nullptr))
                std::abort();
            IOStreamPackageManager::Init()->Mount(pak.c_str(), 0);
        }
        ~PackageData()
        {
            IOStreamPackageManager* m = IOStreamPackageManager::GetInstance();
            while (m && m->GetPackageCount()) m->Unmount(m->GetPackage(0));
            IOStreamPackageManager::Release();
            std::filesystem::remove_all(kBase);
        }
    };

    PackageData& Data()
    {
        static PackageData s_kData;
        return s_kData;
    }

    void BM_FolderRead2(benchmark::State& state)
    {
        PackageData& d = Data();
        std::vector<char> buffer(d.uiLargest);
        std::vector<std::string> paths;
        for (const std::string& n : d.aNames) paths.push_back(d.kFolder + "/" + n);
        for (auto _ : state)
        {
            size_t total = 0;
            for (const std::string& p : paths)
            {
                const int fd = open(p.c_str(), O_RDONLY);
                ssize_t n;
                while ((n = read(fd, buffer.data(), buffer.size())) > 0) total += static_cast<size_t>(n);
                close(fd);
            }
            if (total != d.uiBytes) state.SkipWithError("short read");
            benchmark::DoNotOptimize(buffer.data());
        }
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * d.uiBytes));
        state.counters["files"] = static_cast<double>(d.aNames.size());
    }

    void BM_PackageIOSTreamDisk(benchmark::State& state)
    {
        PackageData& d = Data();
        std::vector<char> buffer(d.uiLargest);
        std::vector<std::string> paths;
        for (const std::string& n : d.aNames) paths.push_back("Data/" + n);
        for (auto _ : state)
        {
            size_t total = 0;
            for (const std::string& p : paths)
            {
                IOSTreamDisk s;
                if (!s.OpenToRead(p.c_str()) || !s.IsFromPackage()) state.SkipWithError("not in the package");
                size_t n;
                while ((n = s.Read(buffer.data(), buffer.size())) > 0) total += n;
                s.Close();
            }
            if (total != d.uiBytes) state.SkipWithError("short read");
            benchmark::DoNotOptimize(buffer.data());
        }
        state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * d.uiBytes));
        state.counters["files"] = static_cast<double>(d.aNames.size());
    }
}

BENCHMARK(BM_FolderRead2)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_PackageIOSTreamDisk)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
