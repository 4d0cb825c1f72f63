// Package files from arbitrary bytes: mounting, looking up and reading every entry must
// stay inside the file and never crash; a bad package is passed over.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOSTreamDisk.h"
#include "zemrenderer/io/IOSTreamPackageSingle.h"
#include "zemrenderer/io/IOStreamPackage.h"
#include "zemrenderer/io/IOStreamPackageManager.h"

using namespace ZemRenderer;

namespace
{
    const std::string& ScratchPath()
    {
        static const std::string s_kPath = [] {
            char pattern[] = "/tmp/zem_package_fuzz_XXXXXX";
            const int fd = mkstemp(pattern);
            if (fd >= 0) close(fd);
            return std::string(pattern);
        }();
        static const int s_iCleanup = std::atexit([] { std::remove(ScratchPath().c_str()); });
        (void)s_iCleanup;
        return s_kPath;
    }

    void ReadAll(IOSTreamBase& s, size_t expected)
    {
        char buffer[4096];
        size_t total = 0;
        while (size_t n = s.Read(buffer, sizeof(buffer))) total += n;
        if (total != expected) std::abort();
        s.Skip(-static_cast<int64_t>(s.GetPosition()) - 5);
        if (s.GetPosition() != 0) std::abort();
        s.Skip(static_cast<int64_t>(expected) + 3);
        if (s.GetPosition() != expected || s.Read(buffer, 1) != 0) std::abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string& path = ScratchPath();
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    if (size) std::fwrite(data, 1, size, f);
    std::fclose(f);

    // On its own, as the tool uses it.
    {
        IOStreamPackage package(path.c_str(), 0);
        if (package.PostMount())
        {
            if (package.GetFileCount() > size / 128) std::abort();
            for (unsigned int i = 0; i < package.GetFileCount() && i < 64; ++i)
            {
                const stFileDesc* desc = package.GetFile(i);
                if (desc->uiSize && uint64_t(desc->uiOffset) + desc->uiSize > size) std::abort();
                IOSTreamPackageSingle* s = package.OpenEntry(desc);
                if (!s) std::abort();
                ReadAll(*s, desc->uiSize);
                MEM_DELETE(s);
            }
        }
    }
    // Through the manager and the disk stream, as the engine uses it.
    IOStreamPackageManager* manager = IOStreamPackageManager::Init();
    IOStreamPackage* package = manager->Mount(path.c_str(), 0);
    IOSTreamDisk probe;
    probe.OpenToRead("Data/a.txt");
    if (package && package->IsLive())
    {
        for (unsigned int i = 0; i < package->GetFileCount() && i < 16; ++i)
        {
            const stFileDesc* desc = package->GetFile(i);
            if (!desc->szName[0]) continue;
            std::string full = package->GetRoot();
            if (!full.empty()) full += "/";
            full += desc->szName;
            IOSTreamDisk d;
            if (d.OpenToRead(full.c_str()) && d.IsFromPackage())
            {
                char c[64];
                while (d.Read(c, sizeof(c))) {}
            }
        }
    }
    probe.Close();
    manager->Unmount(package);
    IOStreamPackageManager::Release();
    return 0;
}
