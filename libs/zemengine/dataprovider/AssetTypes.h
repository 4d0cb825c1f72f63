#pragma once
// The asset type table read from "Toolchain/TypesInfos/*.assetInfos" under the assets
// root, and what it decides: the key of an asset and the path of its cooked file. The
// engine's data provider and the asset manager program compute both the same way, so
// the keys the asset manager lists are the keys the engine looks up.
#include <cstddef>
#include <cstdint>

#include "common/utils/String.h"
#include "common/utils/TArray.h"

namespace DataProvider
{
    struct AssetExtension
    {
        static constexpr size_t kNameSize = 64;

        uint32_t m_uEngineClassId = 0;
        // The import type's name: the type name in asset keys.
        char m_szName[kNameSize] = {};
        // Id of the lower-case source extension.
        uint32_t m_uExtensionId = 0;
        // The cooked file's extension; empty: the source's own.
        Common::String m_kOutputExt;
    };

    // What the table says about one source path.
    struct AssetKeyInfo
    {
        static constexpr size_t kKeyTextSize = 2048;
        static constexpr size_t kPathSize = 1024;

        // False when no entry matched the extension and class: the path is then taken as
        // it is, and the type name is empty.
        bool m_bKnownType = false;
        unsigned int m_uKey = 0;
        // "<lower-case path with the output extension> <params> <type name>".
        char m_szKeyText[kKeyTextSize] = {};
        // The cooked file relative to the assets root, without a leading '/'.
        char m_szCookedPath[kPathSize] = {};
        char m_szOutputExt[AssetExtension::kNameSize] = {};
    };

    class CAssetTypeTable
    {
    public:
        // Where the tables lie under the assets root.
        static constexpr const char* kTypesInfosFolder = "Toolchain/TypesInfos";
        static constexpr const char* kFileExtension = "assetinfos";

        // Adds the entries of one file's text (a JSON array of objects). A text that is
        // not such an array is reported and adds nothing; a bad object is reported and
        // skipped. Returns the number of entries added, -1 for a text that is no array.
        int AddFromText(const char* text, size_t length, const char* fileName);

        // Reads every "*.assetInfos" file (extension in any case) of the types folder in
        // name order; "Unable to find any *.assetInfos with path %s" when there is none.
        // Returns the number of files read.
        unsigned int LoadFromRoot(const char* assetsRoot);

        void Clear() { m_aExtensions.Clear(); }
        unsigned int GetSize() const { return m_aExtensions.GetSize(); }
        const AssetExtension& Get(unsigned int i) const { return m_aExtensions[i]; }

        // The first entry with this extension id and class id, or null.
        const AssetExtension* Find(uint32_t extensionId, uint32_t classId) const;

        // Key, key text and cooked path of `path` (separators already '/'), `params` and
        // class `typeId`. An unknown type reports "DataProvider : Couldn't compute type
        // for %s". False when the result would not fit its buffers (reported).
        bool Describe(const char* path, const char* params, uint32_t typeId, AssetKeyInfo& out) const;

    private:
        ZemRenderer::TArray<AssetExtension> m_aExtensions;
    };

    // Copies `in` to `out` with every '\' made '/', runs of separators collapsed and
    // leading ones dropped. False (out empty) when it does not fit.
    bool NormalizeAssetPath(const char* in, char* out, size_t size);

    // True when the normalized path stays below its root: no ".." component.
    bool IsContainedPath(const char* path);

    // `root` + '/' + `relative`, with exactly one separator between them. False when it
    // does not fit.
    bool JoinPath(const char* root, const char* relative, char* out, size_t size);

    // The id of a lower-case copy of `text`.
    unsigned int LowerCaseId(const char* text);
}
