#pragma once
// Where the bytes of an asset are: the engine asks by name and type, the provider answers
// with the path of a cooked file. The implementation lives in the engine library; the
// renderer's loaders reach it through the one process-wide pointer below, which a plugin
// points at the host's provider.
#include <cstddef>
#include <cstdint>

#include "common/utils/String.h"
#include "common/utils/TArray.h"

namespace DataProvider
{
    // Both the caller's input and the "Arg0" object sent to the asset manager.
    struct AssetQuery
    {
        static constexpr size_t kPlatformSize = 512;
        static constexpr size_t kFilePathSize = 512;
        static constexpr size_t kParamsSize = 1024;

        bool m_bCooked = false;
        bool m_bSynchronous = false;
        bool m_bSendData = false;
        uint8_t m_uPadding = 0;
        // The engine class id of the asset (the id of its class name).
        uint32_t m_uTypeId = 0;
        char m_szPlatform[kPlatformSize] = {};
        char m_szFilePath[kFilePathSize] = {};
        char m_szParams[kParamsSize] = {};
    };
    static_assert(sizeof(AssetQuery) == 2056, "AssetQuery is a 2056-byte record");
    static_assert(offsetof(AssetQuery, m_uTypeId) == 4 && offsetof(AssetQuery, m_szPlatform) == 8 &&
                      offsetof(AssetQuery, m_szFilePath) == 520 && offsetof(AssetQuery, m_szParams) == 1032,
                  "AssetQuery field offsets");

    struct AssetResult
    {
        static constexpr size_t kFilePathSize = 515;

        bool m_bSucceeded = false;
        char m_szFilePath[kFilePathSize] = {};
        uint32_t m_uListenPort = 0;
    };
    static_assert(sizeof(AssetResult) == 520, "AssetResult is a 520-byte record");
    static_assert(offsetof(AssetResult, m_uListenPort) == 516, "AssetResult field offsets");

    class DataPoviderInterface
    {
    public:
        virtual ~DataPoviderInterface() = default;

        // `reserved` is unused. False when an asset manager was asked for and could not
        // be reached; the provider then keeps trying (see IsReady).
        virtual bool Init(void* reserved, bool useAssetManager, unsigned int retries) = 0;
        // True when queries can be answered: no asset manager is used, or it is connected.
        virtual bool IsReady() = 0;
        // Fills `result` and returns its succeeded flag. Runs on the loading thread.
        virtual bool QueryAsset(AssetResult& result, const AssetQuery& query) = 0;
        // Asks for the asset to be cooked ahead of its query; does not wait.
        virtual void CookAsset(const AssetQuery& query) = 0;
        // Lists the cooked assets of a platform whose path starts with `filter`. The one
        // implementation has nothing to list: it leaves `out` empty and returns false.
        virtual bool ListAssets(const char* platform, const char* filter, ZemRenderer::TArray<Common::String>& out)
        {
            (void)platform;
            (void)filter;
            out.Clear();
            return false;
        }
        // Package mounting through workers is reserved: the hooks answer no handle and
        // false, which leaves disk streams on their disk path.
        virtual void* MountPackage(const char* path, unsigned int flag)
        {
            (void)path;
            (void)flag;
            return nullptr;
        }
        virtual bool UnMountPackage(void* handle)
        {
            (void)handle;
            return false;
        }
    };

    // The provider of this library copy; null until the engine (or, in a plugin,
    // InitPlugin) sets it.
    DataPoviderInterface* GetDataProvider();
    void SetDataProvider(DataPoviderInterface* provider);

    // ---- the loaders' side ---------------------------------------------------------
    // Loaders speak of Resolve, Prefetch and ListAssets; these map them once onto the
    // provider's QueryAsset, CookAsset and its last operation. Each reports
    // "DataProvider is not instanciated !!!" when no provider is set.

    // The platform every query of this engine names.
    constexpr const char* kPlatform = "PC";

    // Fills a query for `name` of class `typeId`. With `splitParams`, a blank separates
    // the path from the parameters ("Shaders/a.zff -param X"), as stream names carry them.
    // False (query left with what fitted) when a part is too long.
    bool MakeAssetQuery(AssetQuery& query, unsigned int typeId, const char* name, bool splitParams = false);

    bool Resolve(AssetResult& result, const AssetQuery& query);
    void Prefetch(const AssetQuery& query);
    bool ListAssets(const char* platform, const char* filter, ZemRenderer::TArray<Common::String>& out);

    // Resolve, then on failure report "File not found: \"%s\" \n" with the path the
    // provider gave, or the name if it gave none.
    bool ResolveOrReport(AssetResult& result, const AssetQuery& query);
}
