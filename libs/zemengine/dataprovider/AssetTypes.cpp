#include "zemengine/dataprovider/AssetTypes.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <string>
#include <vector>

#include "common/system/debug/Log.h"
#include "common/system/filesystem/FileSystem.h"
#include "common/utils/Hash.h"
#include "zemengine/core/json/Json.h"

namespace DataProvider
{
    namespace
    {
        char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

        void LowerCopy(const char* in, char* out, size_t size)
        {
            size_t i = 0;
            for (; in[i] && i + 1 < size; ++i) out[i] = Lower(in[i]);
            out[i] = '\0';
        }

        // The extension of the last path component ("" if none) and where the part
        // before it ends.
        const char* FindExtension(const char* path, size_t& stemEnd)
        {
            const char* slash = std::strrchr(path, '/');
            const char* dot = std::strrchr(slash ? slash + 1 : path, '.');
            stemEnd = dot ? static_cast<size_t>(dot - path) : std::strlen(path);
            return dot ? dot + 1 : "";
        }

        // One entry of a file: reported and false when it can't be used.
        bool ReadEntry(const ZemEngine::Json::Value& object, const char* fileName, unsigned int index,
                       AssetExtension& base, const ZemEngine::Json::Value*& extensions)
        {
            using ZemEngine::Json::FindMember;
            if (!ZEM_ASSERT(object.IsObject(), "%s: entry %u is not an object", fileName, index)) return false;
            const ZemEngine::Json::Value* name = FindMember(object, "Name");
            if (!ZEM_ASSERT(name && name->IsString() && name->GetStringLength() > 0 &&
                                name->GetStringLength() < AssetExtension::kNameSize,
                            "%s: entry %u needs \"Name\", a text of 1 to %zu characters", fileName, index,
                            AssetExtension::kNameSize - 1))
                return false;
            std::memcpy(base.m_szName, name->GetString(), name->GetStringLength() + 1);

            const ZemEngine::Json::Value* id = FindMember(object, "EngineClassId");
            const ZemEngine::Json::Value* className = FindMember(object, "EngineClassName");
            if (id && id->IsUint())
                base.m_uEngineClassId = id->GetUint();
            else if (className && className->IsString())
                base.m_uEngineClassId = GenerateUIntIdFromString(className->GetString());
            else
            {
                ZEM_ASSERT(false, "%s: entry %u (%s) needs \"EngineClassId\" (a 32-bit number) or \"EngineClassName\"",
                           fileName, index, base.m_szName);
                return false;
            }

            const ZemEngine::Json::Value* output = FindMember(object, "OutputExt");
            if (output && !ZEM_ASSERT(output->IsString() && output->GetStringLength() < AssetExtension::kNameSize,
                                      "%s: entry %u (%s): \"OutputExt\" must be a short text", fileName, index,
                                      base.m_szName))
                return false;
            // A leading dot is forgiven: ".zef" and "zef" name the same extension.
            const char* ext = output ? output->GetString() : "";
            base.m_kOutputExt = ext[0] == '.' ? ext + 1 : ext;

            extensions = FindMember(object, "ImportTypeExtensions");
            if (extensions && !ZEM_ASSERT(extensions->IsArray(), "%s: entry %u (%s): \"ImportTypeExtensions\" must be an array",
                                          fileName, index, base.m_szName))
                return false;
            return true;
        }
    }

    unsigned int LowerCaseId(const char* text)
    {
        char lower[Common::String::kCapacity];
        LowerCopy(text ? text : "", lower, sizeof(lower));
        return GenerateUIntIdFromString(lower);
    }

    bool NormalizeAssetPath(const char* in, char* out, size_t size)
    {
        if (!size) return false;
        size_t o = 0;
        for (const char* p = in ? in : ""; *p; ++p)
        {
            const char c = *p == '\\' ? '/' : *p;
            if (c == '/' && (o == 0 || out[o - 1] == '/')) continue;
            if (o + 1 >= size)
            {
                out[0] = '\0';
                return false;
            }
            out[o++] = c;
        }
        out[o] = '\0';
        return true;
    }

    bool IsContainedPath(const char* path)
    {
        for (const char* p = path; *p;)
        {
            const char* end = std::strchr(p, '/');
            const size_t n = end ? static_cast<size_t>(end - p) : std::strlen(p);
            if (n == 2 && p[0] == '.' && p[1] == '.') return false;
            p += n;
            if (*p == '/') ++p;
        }
        return true;
    }

    bool JoinPath(const char* root, const char* relative, char* out, size_t size)
    {
        size_t rootLength = std::strlen(root);
        while (rootLength > 1 && (root[rootLength - 1] == '/' || root[rootLength - 1] == '\\')) --rootLength;
        while (*relative == '/' || *relative == '\\') ++relative;
        const size_t relativeLength = std::strlen(relative);
        const bool separator = rootLength > 0 && root[rootLength - 1] != '/';
        const size_t total = rootLength + (separator ? 1 : 0) + relativeLength;
        if (total + 1 > size)
        {
            if (size) out[0] = '\0';
            return false;
        }
        std::memmove(out, root, rootLength);
        if (separator) out[rootLength] = '/';
        std::memcpy(out + rootLength + (separator ? 1 : 0), relative, relativeLength + 1);
        return true;
    }

    int CAssetTypeTable::AddFromText(const char* text, size_t length, const char* fileName)
    {
        if (!fileName) fileName = "(asset infos)";
        ZemEngine::Json::Document document;
        document.Parse<ZemEngine::Json::kParseFlags>(text ? text : "", text ? length : 0);
        if (!ZEM_ASSERT(!document.HasParseError(), "Couldn't parse asset infos file %s (%s at offset %zu)", fileName,
                        rapidjson::GetParseError_En(document.GetParseError()), document.GetErrorOffset()))
            return -1;
        if (!ZEM_ASSERT(document.IsArray(), "%s must hold a JSON array of asset types, not %s", fileName,
                        ZemEngine::Json::KindName(document)))
            return -1;
        int added = 0;
        unsigned int index = 0;
        for (const ZemEngine::Json::Value& object : document.GetArray())
        {
            AssetExtension base;
            const ZemEngine::Json::Value* extensions = nullptr;
            if (ReadEntry(object, fileName, index++, base, extensions) && extensions)
                for (const ZemEngine::Json::Value& ext : extensions->GetArray())
                {
                    if (!ZEM_ASSERT(ext.IsString() && ext.GetStringLength() < AssetExtension::kNameSize,
                                    "%s: %s: an import extension must be a short text", fileName, base.m_szName))
                        continue;
                    const char* name = ext.GetString();
                    AssetExtension& entry = m_aExtensions.Add(base);
                    entry.m_uExtensionId = LowerCaseId(name[0] == '.' ? name + 1 : name);
                    ++added;
                }
        }
        return added;
    }

    unsigned int CAssetTypeTable::LoadFromRoot(const char* assetsRoot)
    {
        char folder[Common::CFileSystem::PathBufferSize];
        JoinPath(assetsRoot ? assetsRoot : "", kTypesInfosFolder, folder, sizeof(folder));
        std::vector<std::string> names;
        if (DIR* dir = opendir(folder))
        {
            while (dirent* e = readdir(dir))
            {
                size_t stemEnd = 0;
                char ext[16];
                LowerCopy(FindExtension(e->d_name, stemEnd), ext, sizeof(ext));
                if (std::strcmp(ext, kFileExtension) == 0) names.push_back(e->d_name);
            }
            closedir(dir);
        }
        std::sort(names.begin(), names.end());
        if (!ZEM_ASSERT(!names.empty(), "Unable to find any *.assetInfos with path %s", folder)) return 0;

        unsigned int read = 0;
        for (const std::string& name : names)
        {
            char path[Common::CFileSystem::PathBufferSize];
            if (!JoinPath(folder, name.c_str(), path, sizeof(path))) continue;
            Common::CFileBase* file = Common::CFileSystem::LoadFile(path);
            if (!ZEM_ASSERT(file && file->IsValid(), "Couldn't read asset infos file %s", path))
            {
                MEM_DELETE(file);
                continue;
            }
            if (AddFromText(reinterpret_cast<const char*>(file->GetBuffer()), file->GetSize(), path) >= 0) ++read;
            MEM_DELETE(file);
        }
        return read;
    }

    const AssetExtension* CAssetTypeTable::Find(uint32_t extensionId, uint32_t classId) const
    {
        for (const AssetExtension& e : m_aExtensions)
            if (e.m_uExtensionId == extensionId && e.m_uEngineClassId == classId) return &e;
        return nullptr;
    }

    bool CAssetTypeTable::Describe(const char* path, const char* params, uint32_t typeId, AssetKeyInfo& out) const
    {
        out = AssetKeyInfo();
        if (!path) path = "";
        if (!params) params = "";
        size_t stemEnd = 0;
        const char* sourceExt = FindExtension(path, stemEnd);
        char lowerExt[AssetExtension::kNameSize];
        LowerCopy(sourceExt, lowerExt, sizeof(lowerExt));

        const AssetExtension* type = Find(GenerateUIntIdFromString(lowerExt), typeId);
        out.m_bKnownType = type != nullptr;
        if (!out.m_bKnownType) Common::Log("DataProvider : Couldn't compute type for %s\n", path);
        const char* outputExt = type && !type->m_kOutputExt.empty() ? type->m_kOutputExt.c_str() : sourceExt;
        const int extLength = std::snprintf(out.m_szOutputExt, sizeof(out.m_szOutputExt), "%s", outputExt);
        if (!ZEM_ASSERT(extLength >= 0 && static_cast<size_t>(extLength) < sizeof(out.m_szOutputExt),
                        "Extension of %s is too long", path))
        {
            out = AssetKeyInfo();
            return false;
        }

        // The key names the cooked asset: the path with its output extension, lower-case.
        char keyPath[AssetKeyInfo::kPathSize];
        const int keyLength = std::snprintf(keyPath, sizeof(keyPath), "%.*s%s%s", static_cast<int>(stemEnd), path,
                                            out.m_szOutputExt[0] ? "." : "", out.m_szOutputExt);
        int written = keyLength < 0 || static_cast<size_t>(keyLength) >= sizeof(keyPath)
                          ? -1
                          : std::snprintf(out.m_szKeyText, sizeof(out.m_szKeyText), "%s %s %s", keyPath, params,
                                          type ? type->m_szName : "");
        if (!ZEM_ASSERT(written >= 0 && static_cast<size_t>(written) < sizeof(out.m_szKeyText),
                        "Asset key of %s is too long", path))
        {
            out = AssetKeyInfo();
            return false;
        }
        for (int i = 0; i < keyLength; ++i) out.m_szKeyText[i] = Lower(out.m_szKeyText[i]);
        out.m_uKey = GenerateUIntIdFromString(out.m_szKeyText);

        // Cooked: "<path less its extension>_<id of params>.<output extension>"; a path of
        // an unknown type is taken as it is.
        const char* relative = path;
        while (*relative == '/') ++relative;
        const size_t relativeStem = stemEnd - static_cast<size_t>(relative - path);
        written = type ? std::snprintf(out.m_szCookedPath, sizeof(out.m_szCookedPath), "%.*s_%u%s%s",
                                       static_cast<int>(relativeStem), relative, GenerateUIntIdFromString(params),
                                       out.m_szOutputExt[0] ? "." : "", out.m_szOutputExt)
                       : std::snprintf(out.m_szCookedPath, sizeof(out.m_szCookedPath), "%s", relative);
        if (!ZEM_ASSERT(written >= 0 && static_cast<size_t>(written) < sizeof(out.m_szCookedPath),
                        "Cooked path of %s is too long", path))
        {
            out = AssetKeyInfo();
            return false;
        }
        return true;
    }
}
