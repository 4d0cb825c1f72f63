#pragma once
// A data provider that serves what is on disk under a temporary folder, the way an
// engine started without its asset manager does, and remembers what it was asked.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "zemrenderer/dataprovider/DataPoviderInterface.h"

namespace ZemRenderer::LoadingTest
{
    class FolderProvider : public DataProvider::DataPoviderInterface
    {
    public:
        FolderProvider()
        {
            const char* dir = std::getenv("TMPDIR");
            m_sRoot = std::string(dir && *dir ? dir : "/tmp") + "/zemora_loaders_" + std::to_string(getpid()) + "_" +
                      std::to_string(++Counter());
            std::filesystem::create_directories(m_sRoot);
            DataProvider::SetDataProvider(this);
        }
        ~FolderProvider() override
        {
            if (DataProvider::GetDataProvider() == this) DataProvider::SetDataProvider(nullptr);
            std::error_code ignored;
            std::filesystem::remove_all(m_sRoot, ignored);
        }

        bool Init(void*, bool, unsigned int) override { return true; }
        bool IsReady() override { return true; }
        bool QueryAsset(DataProvider::AssetResult& result, const DataProvider::AssetQuery& query) override
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            m_aQueries.push_back(query);
            m_aEvents.push_back(std::string("resolve ") + query.m_szFilePath);
            result = DataProvider::AssetResult();
            const std::string path = m_sRoot + "/" + query.m_szFilePath;
            struct stat info;
            result.m_bSucceeded = ::stat(path.c_str(), &info) == 0;
            if (result.m_bSucceeded || m_bPathOnMiss)
                std::snprintf(result.m_szFilePath, sizeof(result.m_szFilePath), "%s", path.c_str());
            if (m_bAlwaysFound) result.m_bSucceeded = true;
            return result.m_bSucceeded;
        }
        void CookAsset(const DataProvider::AssetQuery& query) override
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            m_aPrefetched.push_back(query);
            m_aEvents.push_back(std::string("prefetch ") + query.m_szFilePath);
        }
        bool ListAssets(const char* platform, const char* filter, TArray<Common::String>& out) override
        {
            out.Clear();
            if (std::strcmp(platform, "PC") != 0) return false;
            for (const auto& entry : std::filesystem::directory_iterator(m_sRoot))
            {
                const std::string name = entry.path().filename().string();
                if (name.rfind(filter, 0) == 0) out.Add(Common::String(name.c_str()));
            }
            return true;
        }

        const std::string& Root() const { return m_sRoot; }
        std::string PathOf(const char* name) const { return m_sRoot + "/" + name; }
        void Write(const char* name, const void* data, size_t size) const
        {
            const std::string path = PathOf(name);
            std::filesystem::create_directories(std::filesystem::path(path).parent_path());
            FILE* f = std::fopen(path.c_str(), "wb");
            if (!f) return;
            if (size) std::fwrite(data, 1, size, f);
            std::fclose(f);
        }
        // A miss still names the file it looked for.
        void SetPathOnMiss(bool on) { m_bPathOnMiss = on; }
        // Every name is found, whether the file is there or not.
        void SetAlwaysFound(bool on) { m_bAlwaysFound = on; }

        std::vector<DataProvider::AssetQuery> Queries()
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            return m_aQueries;
        }
        // "prefetch NAME" and "resolve NAME", in the order they came.
        std::vector<std::string> Events()
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            return m_aEvents;
        }
        std::vector<DataProvider::AssetQuery> Prefetched()
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            return m_aPrefetched;
        }

    private:
        static int& Counter()
        {
            static int s_iCounter = 0;
            return s_iCounter;
        }

        std::string m_sRoot;
        bool m_bPathOnMiss = false;
        bool m_bAlwaysFound = false;
        std::mutex m_kMutex;
        std::vector<DataProvider::AssetQuery> m_aQueries;
        std::vector<DataProvider::AssetQuery> m_aPrefetched;
        std::vector<std::string> m_aEvents;
    };
}
