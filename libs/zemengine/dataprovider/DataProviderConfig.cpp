#include "zemengine/dataprovider/DataProviderConfig.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

#include "common/system/debug/Log.h"
#include "common/system/filesystem/FileSystem.h"
#include "zemengine/core/json/Json.h"

namespace DataProvider
{
    namespace
    {
        using ZemEngine::Json::Value;

        void CopyText(char* out, size_t size, const char* text) { std::snprintf(out, size, "%s", text); }

        // A required text key: absent or wrong, it is reported and the default stays.
        void ReadText(const Value& root, const char* key, char* out, size_t size, bool required)
        {
            const Value* v = ZemEngine::Json::FindMember(root, key);
            if (!v)
            {
                if (required) Common::Log(":::: [DP] Asset Manager config file: \"%s\" is missing, default \"%s\" kept\n", key, out);
                return;
            }
            if (!ZEM_ASSERT(v->IsString() && v->GetStringLength() > 0 && v->GetStringLength() < size,
                            "Asset Manager config file: \"%s\" must be a text of 1 to %zu characters", key, size - 1))
                return;
            CopyText(out, size, v->GetString());
        }
    }

    void DataProviderConfig::SetDefaults()
    {
        CopyText(m_szBinary, sizeof(m_szBinary), kDefaultBinary);
        CopyText(m_szHost, sizeof(m_szHost), kDefaultHost);
        m_uPort = kDefaultPort;
        m_bLogPackage = false;
        CopyText(m_szLogPackagePath, sizeof(m_szLogPackagePath), kDefaultLogPackagePath);
    }

    ConfigStatus ParseDataProviderConfig(const char* text, size_t length, DataProviderConfig& out)
    {
        if (!ZEM_ASSERT(text && length > 0, "Wrong file size")) return ConfigStatus::Empty;
        ZemEngine::Json::Document document;
        document.Parse<ZemEngine::Json::kParseFlags>(text, length);
        if (!ZEM_ASSERT(!document.HasParseError() && document.IsObject(), "Couldn't parse Asset Manager config file"))
        {
            if (document.HasParseError())
                Common::Log(":::: [DP] %s at offset %zu; defaults used\n",
                            rapidjson::GetParseError_En(document.GetParseError()), document.GetErrorOffset());
            else
                Common::Log(":::: [DP] the configuration is %s, not an object; defaults used\n",
                            ZemEngine::Json::KindName(document));
            return ConfigStatus::NotParsed;
        }
        ReadText(document, "Binary", out.m_szBinary, sizeof(out.m_szBinary), true);
        ReadText(document, "Host", out.m_szHost, sizeof(out.m_szHost), true);
        const Value* port = ZemEngine::Json::FindMember(document, "Port");
        if (!port)
            Common::Log(":::: [DP] Asset Manager config file: \"Port\" is missing, default %u kept\n", out.m_uPort);
        else if (ZEM_ASSERT(port->IsUint() && port->GetUint() >= 1 && port->GetUint() <= 65535,
                            "Asset Manager config file: \"Port\" must be a number from 1 to 65535"))
            out.m_uPort = port->GetUint();
        const Value* log = ZemEngine::Json::FindMember(document, "LogPackage");
        if (log && ZEM_ASSERT(log->IsBool(), "Asset Manager config file: \"LogPackage\" must be true or false"))
            out.m_bLogPackage = log->GetBool();
        ReadText(document, "LogPackagePath", out.m_szLogPackagePath, sizeof(out.m_szLogPackagePath), false);
        return ConfigStatus::Read;
    }

    ConfigStatus LoadDataProviderConfig(const char* path, DataProviderConfig& out)
    {
        struct stat st;
        const bool found = stat(path, &st) == 0;
        if (!found && (errno == ENOENT || errno == ENOTDIR)) return ConfigStatus::Absent;
        Common::CFileBase* file = found && S_ISREG(st.st_mode) ? Common::CFileSystem::LoadFile(path) : nullptr;
        if (!ZEM_ASSERT(file && file->IsValid(), "Couldn't open Asset Manager config file"))
        {
            Common::Log(":::: [DP] %s can't be read; defaults used\n", path);
            MEM_DELETE(file);
            return ConfigStatus::Unreadable;
        }
        const ConfigStatus status =
            ParseDataProviderConfig(reinterpret_cast<const char*>(file->GetBuffer()), file->GetSize(), out);
        MEM_DELETE(file);
        return status;
    }
}
