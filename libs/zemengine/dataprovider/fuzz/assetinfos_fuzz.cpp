// Asset type tables from arbitrary bytes: a text adds entries only when it is a JSON
// array, each entry's extension and names fit their fields, and every key and cooked
// path computed from the table fits its buffer and is repeatable.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "zemengine/core/commandmanager/fuzz/FuzzEngine.h"
#include "zemengine/dataprovider/AssetTypes.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    ZemEngine::Fuzz::SilenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    DataProvider::CAssetTypeTable table;
    const int added = table.AddFromText(reinterpret_cast<const char*>(data), size, "fuzz.assetInfos");
    if (added < -1 || (added == -1 && table.GetSize() != 0) || (added >= 0 && table.GetSize() != static_cast<unsigned int>(added)))
        std::abort();
    const char* paths[] = {"Meshes/Box.zef", "a/b.FBX", "noext", "x.png"};
    for (unsigned int i = 0; i < table.GetSize(); ++i)
    {
        const DataProvider::AssetExtension& e = table.Get(i);
        if (std::strlen(e.m_szName) >= sizeof(e.m_szName) || !e.m_szName[0]) std::abort();
        for (const char* path : paths)
        {
            DataProvider::AssetKeyInfo a;
            DataProvider::AssetKeyInfo b;
            if (!table.Describe(path, "p", e.m_uEngineClassId, a) || !table.Describe(path, "p", e.m_uEngineClassId, b))
                std::abort();
            if (a.m_uKey != b.m_uKey || std::strcmp(a.m_szCookedPath, b.m_szCookedPath) != 0) std::abort();
            if (!a.m_szCookedPath[0] || std::strlen(a.m_szKeyText) >= sizeof(a.m_szKeyText)) std::abort();
        }
    }
    return 0;
}
