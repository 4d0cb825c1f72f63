#include "zemengine/engine/EngineClientBroadcast.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "common/system/thread/Thread.h"
#include "zemengine/engine/NetFrame.h"

namespace ZemEngine
{
    CEngineClientBroadcast::IInterfaceSockets::~IInterfaceSockets()
    {
        for (Common::TcpSocket* socket : m_aSockets)
        {
            SendGoodbye(*socket);
            MEM_DELETE(socket);
        }
    }

    bool CEngineClientBroadcast::IInterfaceSockets::AddConnection(const char* address, int port, int retries,
                                                                  unsigned int delayMs)
    {
        Common::TcpSocket* socket = MEM_NEW(Common::TcpSocket);
        if (!socket) return false;
        bool connected = false;
        for (int attempt = 0; attempt < retries && !connected; ++attempt)
        {
            if (attempt > 0) Common::CThread::Sleep(delayMs);
            connected = socket->Connect(port, address);
        }
        if (!ZEM_ASSERT(connected, "Unable to connect to interface at %s port %i !", address ? address : "0.0.0.0", port))
        {
            MEM_DELETE(socket);
            return false;
        }
        socket->SetNoDelay(true);
        m_aSockets.Add(socket);
        return true;
    }

    bool CEngineClientBroadcast::IInterfaceSockets::CallMethod(const char* json, Json::Document* document)
    {
        const size_t length = json ? std::strlen(json) : 0;
        if (length > kMaxFrameLength) return false;
        ZemRenderer::TArray<char> scratch;
        ZemRenderer::TArray<char> reply;
        bool ok = true;
        for (Common::TcpSocket* socket : m_aSockets)
        {
            if (!SendFrame(*socket, json ? json : "", static_cast<uint32_t>(length), scratch))
            {
                ok = false;
                continue;
            }
            if (!document) continue;
            const FrameStatus status = ReceiveFrame(*socket, reply, m_uTimeoutMs);
            document->SetNull();
            if (!ZEM_ASSERT(status == FrameStatus::Ok && !reply.IsEmpty(), "invalid interface result"))
            {
                ok = false;
                continue;
            }
            document->Parse<Json::kParseFlags>(reply.GetData(), reply.GetSize());
            if (document->HasParseError()) ok = false;
        }
        return ok;
    }
}
