// ExecuteJSon on arbitrary text: nothing may crash, and whatever result comes back must
// be one JSON object {"Res": ...}.
#include <cstdint>
#include <cstdlib>

#include "zemengine/core/commandmanager/fuzz/FuzzEngine.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    ZemEngine::Fuzz::SilenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ZemEngine::Fuzz::CFuzzEngine& engine = ZemEngine::Fuzz::CFuzzEngine::Get();
    ZemEngine::CReturnBuffer result;
    engine.m_kManager.ExecuteJSon(reinterpret_cast<const char*>(data), size, &result);
    if (result.GetLength() > 0)
    {
        ZemEngine::Json::Document reply;
        reply.Parse<ZemEngine::Json::kParseFlags>(result.GetText(), result.GetLength());
        if (reply.HasParseError() || !reply.IsObject() || !reply.HasMember("Res")) std::abort();
    }
    engine.Trim();
    return 0;
}
