#include "zemengine/engine/CommandRequest.h"

#include <cstdio>

namespace ZemEngine
{
    bool WriteCommandRequest(const CommandRequest& request, Json::StringBuffer& out)
    {
        out.Clear();
        Json::StringWriter writer(out);
        writer.StartObject();
        writer.Key("ClassName");
        writer.String(request.m_sClassName.data(), static_cast<rapidjson::SizeType>(request.m_sClassName.size()));
        writer.Key("InstanceID");
        writer.Uint(request.m_uInstanceId);
        writer.Key("MethodName");
        writer.String(request.m_sMethodName.data(), static_cast<rapidjson::SizeType>(request.m_sMethodName.size()));
        writer.Key("UseTcpThread");
        writer.Bool(request.m_bUseTcpThread);
        writer.Key("WaitAck");
        writer.Bool(request.m_bWaitAck);
        for (unsigned int i = 0; i < request.m_uArgCount; ++i)
        {
            char key[16];
            const int n = std::snprintf(key, sizeof(key), "Arg%u", i);
            writer.Key(key, static_cast<rapidjson::SizeType>(n));
            if (!request.m_pArgs[i].Accept(writer)) return false;
        }
        writer.EndObject();
        return true;
    }
}
