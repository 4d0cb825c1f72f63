#pragma once
// The text of one remote command as every client sends it: "ClassName", "InstanceID",
// "MethodName", "UseTcpThread", "WaitAck", then "Arg0", "Arg1", ... A method without
// parameters carries no argument member at all.
#include <string_view>

#include "zemengine/core/json/Json.h"

namespace ZemEngine
{
    struct CommandRequest
    {
        std::string_view m_sClassName;
        std::string_view m_sMethodName;
        unsigned int m_uInstanceId = 0;
        bool m_bUseTcpThread = false;
        bool m_bWaitAck = true;
        // `m_uArgCount` values, written as "Arg0" onwards.
        const Json::Value* m_pArgs = nullptr;
        unsigned int m_uArgCount = 0;
    };

    // Into `out`, cleared first. False only if an argument can't be written (a NaN or an
    // infinity, which JSON has no text for).
    bool WriteCommandRequest(const CommandRequest& request, Json::StringBuffer& out);
}
