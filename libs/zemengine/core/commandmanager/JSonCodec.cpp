#include "zemengine/core/commandmanager/JSonCodec.h"

namespace ZemEngine::JsonCodec
{
    bool Decode(const Json::Value& v, RPC::RPCTransform& out, const char*& expected)
    {
        const char* what = "a transform {\"Translation\", \"Rotation\", \"Scale\"}";
        return DecodeMember(v, "Translation", out.m_kTranslation, expected, what) &&
               DecodeMember(v, "Rotation", out.m_kRotation, expected, what) &&
               DecodeMember(v, "Scale", out.m_kScale, expected, what);
    }

    bool Decode(const Json::Value& v, RPC::BoundingSphere& out, const char*& expected)
    {
        const char* what = "a sphere {\"Center\", \"Radius\"}";
        return DecodeMember(v, "Center", out.m_kCenter, expected, what) &&
               DecodeMember(v, "Radius", out.m_fRadius, expected, what);
    }

    bool Decode(const Json::Value& v, RPC::stBoneEditingParams& out, const char*& expected)
    {
        const char* what = "bone editing parameters {\"IsEditingBone\", \"EditBoneName\", \"EditRotation\"}";
        return DecodeMember(v, "IsEditingBone", out.m_bIsEditingBone, expected, what) &&
               DecodeMember(v, "EditBoneName", out.m_szEditBoneName, expected, what) &&
               DecodeMember(v, "EditRotation", out.m_kEditRotation, expected, what);
    }

    // {"Type": name, "Data": [up to three integers]}. An unknown name is "None"; a
    // number is taken as well, so that a client can send back what it received.
    bool Decode(const Json::Value& v, RPC::RUserID& out, const char*& expected)
    {
        const char* what = "an RUserID {\"Type\": name, \"Data\": [up to 3 integers]}";
        const Json::Value* type = Json::FindMember(v, "Type");
        const Json::Value* data = Json::FindMember(v, "Data");
        if (!type || !data || !data->IsArray() || data->Size() > 3) return Fail(expected, what);
        unsigned int kind = RPC::RUserID::None;
        if (type->IsString())
            kind = RPC::RUserID::TypeFromName(type->GetString());
        else if (type->IsUint() && type->GetUint() < 16)
            kind = type->GetUint();
        else
            return Fail(expected, what);

        const unsigned int count = data->Size();
        unsigned int params[3];
        for (unsigned int i = 0; i < 3; ++i)
        {
            if (i >= count)
            {
                // An empty array reads as zeros, a short one as "no value" (-1).
                params[i] = count == 0 ? 0u : RPC::RUserID::kInfinite;
                continue;
            }
            const Json::Value& p = (*data)[i];
            if (!p.IsInt64() || p.GetInt64() < -1 || p.GetInt64() > 0xFFFFFFFFll) return Fail(expected, what);
            params[i] = static_cast<unsigned int>(p.GetInt64());
        }
        // Simple kinds carry one value: only a second one actually sent is surplus.
        const bool simple = kind != RPC::RUserID::Node && kind != RPC::RUserID::Socket && kind != RPC::RUserID::Bone;
        if (simple && count < 2) params[1] = RPC::RUserID::kInfinite;
        out = RPC::RUserID(kind, params[0], params[1], params[2]);
        return true;
    }

    Json::Value Encode(const RPC::RPCTransform& t, Allocator& a, bool& nonFinite)
    {
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("Translation", Encode(t.m_kTranslation, a, nonFinite), a);
        o.AddMember("Rotation", Encode(t.m_kRotation, a, nonFinite), a);
        o.AddMember("Scale", Encode(t.m_kScale, a, nonFinite), a);
        return o;
    }

    Json::Value Encode(const RPC::BoundingSphere& s, Allocator& a, bool& nonFinite)
    {
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("Center", Encode(s.m_kCenter, a, nonFinite), a);
        o.AddMember("Radius", Encode(s.m_fRadius, a, nonFinite), a);
        return o;
    }

    Json::Value Encode(const RPC::stBoneEditingParams& p, Allocator& a, bool& nonFinite)
    {
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("IsEditingBone", Json::Value(p.m_bIsEditingBone), a);
        o.AddMember("EditBoneName", Encode(p.m_szEditBoneName, a, nonFinite), a);
        o.AddMember("EditRotation", Encode(p.m_kEditRotation, a, nonFinite), a);
        return o;
    }

    // The type goes out as its number, the parameters as an array.
    Json::Value Encode(const RPC::RUserID& id, Allocator& a, bool&)
    {
        unsigned int params[3];
        const unsigned int count = id.GetParams(params);
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("Type", Json::Value(id.GetType()), a);
        Json::Value data(rapidjson::kArrayType);
        for (unsigned int i = 0; i < count; ++i) data.PushBack(Json::Value(params[i]), a);
        o.AddMember("Data", data, a);
        return o;
    }
}
