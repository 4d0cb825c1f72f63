#include "zemengine/dataprovider/AssetQueryJson.h"

#include <cstring>

#include "zemengine/engine/CommandRequest.h"

namespace DataProvider
{
    namespace
    {
        using ZemEngine::Json::FindMember;
        using ZemEngine::Json::Value;

        bool Fail(const char*& expected, const char* what)
        {
            if (!expected) expected = what;
            return false;
        }

        bool ReadBool(const Value& v, const char* key, bool& out, const char*& expected, const char* what)
        {
            const Value* m = FindMember(v, key);
            if (!m || !m->IsBool()) return Fail(expected, what);
            out = m->GetBool();
            return true;
        }

        bool ReadUint(const Value& v, const char* key, uint32_t& out, const char*& expected, const char* what)
        {
            const Value* m = FindMember(v, key);
            if (!m || !m->IsUint()) return Fail(expected, what);
            out = m->GetUint();
            return true;
        }

        template <size_t N>
        bool ReadText(const Value& v, const char* key, char (&out)[N], const char*& expected, const char* what)
        {
            const Value* m = FindMember(v, key);
            if (!m || !m->IsString() || m->GetStringLength() >= N) return Fail(expected, what);
            // An embedded zero would make the text mean less than it says.
            if (std::strlen(m->GetString()) != m->GetStringLength()) return Fail(expected, what);
            std::memcpy(out, m->GetString(), m->GetStringLength() + 1);
            return true;
        }

        Value Text(const char* text, ZemEngine::Json::PoolAllocator& a)
        {
            return Value(text, static_cast<rapidjson::SizeType>(std::strlen(text)), a);
        }
    }

    bool DecodeAssetQuery(const Value& v, AssetQuery& out, const char*& expected)
    {
        const char* what = "an asset query {\"Cooked\", \"Synchronous\", \"SendData\", \"TypeID\", \"Platform\" (< 512), "
                           "\"FilePath\" (< 512), \"Params\" (< 1024)}";
        out = AssetQuery();
        if (!v.IsObject()) return Fail(expected, what);
        return ReadBool(v, "Cooked", out.m_bCooked, expected, what) &&
               ReadBool(v, "Synchronous", out.m_bSynchronous, expected, what) &&
               ReadBool(v, "SendData", out.m_bSendData, expected, what) &&
               ReadUint(v, "TypeID", out.m_uTypeId, expected, what) &&
               ReadText(v, "Platform", out.m_szPlatform, expected, what) &&
               ReadText(v, "FilePath", out.m_szFilePath, expected, what) &&
               ReadText(v, "Params", out.m_szParams, expected, what);
    }

    bool DecodeAssetResult(const Value& v, AssetResult& out, const char*& expected)
    {
        const char* what = "an asset result {\"Succeeded\", \"FilePath\" (< 515), \"ListenPort\"}";
        out = AssetResult();
        if (!v.IsObject()) return Fail(expected, what);
        if (!ReadBool(v, "Succeeded", out.m_bSucceeded, expected, what) ||
            !ReadText(v, "FilePath", out.m_szFilePath, expected, what) ||
            !ReadUint(v, "ListenPort", out.m_uListenPort, expected, what))
        {
            out = AssetResult();
            return false;
        }
        return true;
    }

    Value EncodeAssetQuery(const AssetQuery& q, ZemEngine::Json::PoolAllocator& a)
    {
        Value o(rapidjson::kObjectType);
        o.AddMember("Cooked", Value(q.m_bCooked), a);
        o.AddMember("Synchronous", Value(q.m_bSynchronous), a);
        o.AddMember("SendData", Value(q.m_bSendData), a);
        o.AddMember("TypeID", Value(q.m_uTypeId), a);
        o.AddMember("Platform", Text(q.m_szPlatform, a), a);
        o.AddMember("FilePath", Text(q.m_szFilePath, a), a);
        o.AddMember("Params", Text(q.m_szParams, a), a);
        return o;
    }

    Value EncodeAssetResult(const AssetResult& r, ZemEngine::Json::PoolAllocator& a)
    {
        Value o(rapidjson::kObjectType);
        o.AddMember("Succeeded", Value(r.m_bSucceeded), a);
        o.AddMember("FilePath", Text(r.m_szFilePath, a), a);
        o.AddMember("ListenPort", Value(r.m_uListenPort), a);
        return o;
    }

    void WriteAssetManagerCommand(ZemEngine::Json::StringBuffer& out, const char* method, unsigned int instanceId,
                                  const AssetQuery* query, const char* platform)
    {
        ZemEngine::Json::Document d;
        ZemEngine::Json::PoolAllocator& a = d.GetAllocator();
        Value arg;
        if (query)
            arg = EncodeAssetQuery(*query, a);
        else if (platform)
            arg = Text(platform, a);
        ZemEngine::CommandRequest request;
        request.m_sClassName = kAssetManagerClass;
        request.m_sMethodName = method ? method : "";
        request.m_uInstanceId = instanceId;
        request.m_bUseTcpThread = true;
        request.m_bWaitAck = true;
        request.m_pArgs = &arg;
        request.m_uArgCount = query || platform ? 1 : 0;
        ZemEngine::WriteCommandRequest(request, out);
    }
}

namespace ZemEngine
{
    template <>
    bool JSonParamReader::Read<DataProvider::AssetQuery>(DataProvider::AssetQuery& out)
    {
        const Json::Value* value = NextArgument();
        if (!value) return false;
        const char* expected = nullptr;
        if (DataProvider::DecodeAssetQuery(*value, out, expected)) return true;
        ReportBadArgument(*value, expected);
        return false;
    }

    template <>
    void JSonParamReader::Write<DataProvider::AssetResult>(const char* name, const DataProvider::AssetResult& value)
    {
        Json::Value encoded = DataProvider::EncodeAssetResult(value, Allocator());
        m_kResult.AddMember(Json::Value(name, Allocator()), encoded, Allocator());
    }
}
