#include "zemrenderer/dataprovider/DataPoviderInterface.h"

#include <atomic>
#include <cstring>

#include "common/system/debug/Log.h"

namespace DataProvider
{
    namespace
    {
        std::atomic<DataPoviderInterface*> s_pProvider{nullptr};

        DataPoviderInterface* Provider()
        {
            DataPoviderInterface* provider = s_pProvider.load(std::memory_order_acquire);
            ZEM_ASSERT(provider != nullptr, "DataProvider is not instanciated !!!");
            return provider;
        }

        bool CopyField(char* out, size_t size, const char* text, size_t length, const char* what)
        {
            const bool fits = ZEM_ASSERT(length < size, "Asset %s of %zu characters is too long (at most %zu)", what,
                                         length, size - 1);
            if (!fits) length = size - 1;
            std::memcpy(out, text, length);
            out[length] = '\0';
            return fits;
        }
    }

    DataPoviderInterface* GetDataProvider() { return s_pProvider.load(std::memory_order_acquire); }

    void SetDataProvider(DataPoviderInterface* provider) { s_pProvider.store(provider, std::memory_order_release); }

    bool MakeAssetQuery(AssetQuery& query, unsigned int typeId, const char* name, bool splitParams)
    {
        query = AssetQuery();
        query.m_uTypeId = typeId;
        std::memcpy(query.m_szPlatform, kPlatform, std::strlen(kPlatform) + 1);
        if (!name) name = "";
        size_t pathLength = std::strlen(name);
        const char* params = nullptr;
        if (splitParams)
            if (const char* blank = std::strchr(name, ' '))
            {
                pathLength = static_cast<size_t>(blank - name);
                params = blank + 1;
            }
        bool ok = CopyField(query.m_szFilePath, sizeof(query.m_szFilePath), name, pathLength, "path");
        if (params) ok = CopyField(query.m_szParams, sizeof(query.m_szParams), params, std::strlen(params), "parameters") && ok;
        return ok;
    }

    bool Resolve(AssetResult& result, const AssetQuery& query)
    {
        result = AssetResult();
        DataPoviderInterface* provider = Provider();
        return provider && provider->QueryAsset(result, query);
    }

    void Prefetch(const AssetQuery& query)
    {
        if (DataPoviderInterface* provider = Provider()) provider->CookAsset(query);
    }

    bool ListAssets(const char* platform, const char* filter, ZemRenderer::TArray<Common::String>& out)
    {
        out.Clear();
        DataPoviderInterface* provider = Provider();
        return provider && provider->ListAssets(platform, filter, out);
    }

    bool ResolveOrReport(AssetResult& result, const AssetQuery& query)
    {
        if (Resolve(result, query) && result.m_bSucceeded) return true;
        Common::Log("File not found: \"%s\" \n", result.m_szFilePath[0] ? result.m_szFilePath : query.m_szFilePath);
        return false;
    }
}
