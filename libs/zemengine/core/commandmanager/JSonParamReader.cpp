#include "zemengine/core/commandmanager/JSonParamReader.h"

#include <cstdio>

#include "common/system/debug/Log.h"

namespace ZemEngine
{
    JSonParamReader::JSonParamReader(CommandQueue::Command* command, RetWriter* retWriter)
        : m_pCommand(command), m_pRetWriter(retWriter), m_kResult(rapidjson::kObjectType)
    {
        m_szArgName[0] = '\0';
    }

    const Json::Value* JSonParamReader::NextArgument()
    {
        std::snprintf(m_szArgName, sizeof(m_szArgName), "Arg%u", m_uArgIndex++);
        const Json::Value* value = Json::FindMember(m_pCommand->m_kDocument, m_szArgName);
        if (!value)
            Common::Log("[RPC] %.64s.%.64s : argument \"%s\" is missing\n", m_pCommand->m_pClassName,
                        m_pCommand->m_pMethodName, m_szArgName);
        return value;
    }

    void JSonParamReader::ReportBadArgument(const Json::Value& value, const char* expected) const
    {
        Common::Log("[RPC] %.64s.%.64s : argument \"%s\" is %s, expected %s\n", m_pCommand->m_pClassName,
                    m_pCommand->m_pMethodName, m_szArgName, Json::KindName(value), expected ? expected : "another form");
    }

    void JSonParamReader::ReportNonFinite() const
    {
        Common::Log("[RPC] %.64s.%.64s : the result holds a NaN or an infinity, sent as null\n",
                    m_pCommand->m_pClassName, m_pCommand->m_pMethodName);
    }

    bool JSonParamReader::Finish()
    {
        if (!m_pRetWriter) return false;
        rapidjson::Writer<RetWriter, Json::Encoding, Json::Encoding, Json::CAllocator> writer(*m_pRetWriter, nullptr, 32);
        const bool ok = m_kResult.Accept(writer);
        m_pRetWriter->Flush();
        if (!ok)
            Common::Log("[RPC] %.64s.%.64s : the result could not be written\n", m_pCommand->m_pClassName,
                        m_pCommand->m_pMethodName);
        return ok;
    }
}
