#include "zemengine/engine/EngineClientRPC.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"

namespace ZemEngine
{
    CEngineClientRPC::~CEngineClientRPC() { Disconnect(); }

    bool CEngineClientRPC::Connect(const char* address, int port)
    {
        if (m_pSocket) Disconnect();
        Common::TcpSocket* socket = MEM_NEW(Common::TcpSocket);
        const bool connected = socket && socket->Connect(port, address);
        if (!ZEM_ASSERT(connected, "Unable to connect to interface!"))
        {
            MEM_DELETE(socket);
            return false;
        }
        socket->SetNoDelay(true);
        m_pSocket = socket;
        m_eLastStatus = FrameStatus::Ok;
        return true;
    }

    void CEngineClientRPC::Disconnect()
    {
        if (m_pSocket)
        {
            ZemEngine::SendGoodbye(*m_pSocket);
            MEM_DELETE(m_pSocket);
            m_pSocket = nullptr;
        }
        MEM_DELETE(m_pWaitCallback);
        m_pWaitCallback = nullptr;
    }

    void CEngineClientRPC::SetWaitCallback(IWaitCallback* callback)
    {
        if (m_pWaitCallback != callback) MEM_DELETE(m_pWaitCallback);
        m_pWaitCallback = callback;
    }

    bool CEngineClientRPC::SendFrame(const char* text, uint32_t length)
    {
        if (!m_pSocket) return false;
        return ZemEngine::SendFrame(*m_pSocket, text, length, m_aSendBuffer);
    }

    bool CEngineClientRPC::SendGoodbye() { return m_pSocket && ZemEngine::SendGoodbye(*m_pSocket); }

    FrameStatus CEngineClientRPC::ReadFrame(ZemRenderer::TArray<char>& body)
    {
        if (!m_pSocket)
        {
            body.SetSize(0);
            return m_eLastStatus = FrameStatus::Closed;
        }
        return m_eLastStatus = ReceiveFrame(*m_pSocket, body, m_uTimeoutMs, m_pWaitCallback);
    }

    bool CEngineClientRPC::DoCall(const char* json, Json::Document* document)
    {
        const size_t length = json ? std::strlen(json) : 0;
        if (length > kMaxFrameLength || !SendFrame(json ? json : "", static_cast<uint32_t>(length))) return false;
        if (!document) return true;
        if (ReadFrame(m_aReply) != FrameStatus::Ok)
        {
            document->SetNull();
            return false;
        }
        if (m_aReply.IsEmpty())
        {
            document->SetNull();
            return true;
        }
        document->Parse<Json::kParseFlags>(m_aReply.GetData(), m_aReply.GetSize());
        return !document->HasParseError();
    }
}
