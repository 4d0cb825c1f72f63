#include "zemengine/engine/EngineHost.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/core/commandmanager/ConnectionLogFold.h"
#include "zemengine/engine/NetFrame.h"

namespace ZemEngine
{
    namespace
    {
        // Replies to pipelined requests leave together, up to this much.
        constexpr unsigned int kFlushBytes = 64 * 1024;
        constexpr unsigned int kKeptSendBuffer = 1024 * 1024;
        // A failing accept is retried: a client that vanished before it was accepted
        // must not end the host for everyone.
        constexpr unsigned int kMaxAcceptFailures = 100;
        constexpr unsigned int kAcceptRetryMs = 20;
    }

    // ---- HostThread --------------------------------------------------------------

    CEngineHost::HostThread::~HostThread() { MEM_DELETE(m_pSocket); }

    bool CEngineHost::HostThread::Open(int port, const char* address)
    {
        m_pSocket = MEM_NEW(Common::TcpSocket);
        const bool opened = m_pSocket && m_pSocket->OpenHost(port, address) && m_pSocket->Listen();
        if (!ZEM_ASSERT(opened, "could not open host RPC connection")) return false;
        m_pHost->m_iPort = m_pSocket->GetPort();
        return Start("EngineNetListener");
    }

    void CEngineHost::HostThread::Run()
    {
        unsigned int failures = 0;
        for (;;)
        {
            Common::TcpSocket* socket = m_pSocket->AcceptSocket();
            if (m_pHost->IsStopping())
            {
                MEM_DELETE(socket);
                break;
            }
            if (!socket)
            {
                if (++failures >= kMaxAcceptFailures)
                {
                    Common::Log("[RPC] The host stops accepting connections after %u failures\n", failures);
                    break;
                }
                Common::CThread::Sleep(kAcceptRetryMs);
                continue;
            }
            failures = 0;
            // Replies must never wait for delayed acknowledgements.
            socket->SetNoDelay(true);
            m_pHost->ReapConnections(false);
            ConnectionThread* connection = MEM_NEW(ConnectionThread, m_pHost, m_pSocket, socket);
            if (!connection)
            {
                MEM_DELETE(socket);
                continue;
            }
            Common::Log("Start new client connection on port %i\n", socket->GetPort());
            if (!connection->Start("connection"))
            {
                MEM_DELETE(connection);
                continue;
            }
            m_pHost->AddConnection(connection);
        }
    }

    // ---- ConnectionThread --------------------------------------------------------

    CEngineHost::ConnectionThread::~ConnectionThread() { MEM_DELETE(m_pSocket); }

    void CEngineHost::ConnectionThread::Run()
    {
        // Connections are numbered in the order they came, so that summaries tell them apart.
        static std::atomic<unsigned int> s_uConnections{0};
        char peer[48];
        std::snprintf(peer, sizeof(peer), "connection %u", s_uConnections.fetch_add(1, std::memory_order_relaxed) + 1);
        CConnectionLogFold* fold = CConnectionLogFold::Create(peer);
        RunFrames(fold);
        if (fold) fold->Release();
        // Shut down, not closed: Stop may still be shutting this socket down from another
        // thread, and a closed descriptor could already belong to someone else. The
        // descriptor goes when the thread object is reaped.
        m_pSocket->Shutdown();
        m_bFinished.store(true, std::memory_order_release);
    }

    void CEngineHost::ConnectionThread::RunFrames(CConnectionLogFold* fold)
    {
        // A client sending the same bad request over and over must not fill the log.
        Common::ScopedLogFilter filter(fold);
        CommandManager* manager = m_pHost->GetCommandManager();
        CSocketByteSource source(m_pSocket, m_pHost->GetStopFlag());
        source.SetSpinBeforeBlocking(m_pHost->GetReceiveSpinUs());
        CFrameReader reader(&source);
        CReturnBuffer result;
        ZemRenderer::TArray<char> pending;

        for (;;)
        {
            const CFrameReader::Result read = reader.Next();
            if (read == CFrameReader::FrameRead)
            {
                result.Clear();
                manager->ExecuteJSon(reader.GetBody(), reader.GetLength(), &result, fold);
                if (result.GetLength() > 0)
                    AppendFrame(pending, result.GetText(), static_cast<uint32_t>(result.GetLength()));
                // Replies wait only while further requests are already here.
                if (!pending.IsEmpty() && (!reader.HasBufferedFrame() || pending.GetSize() >= kFlushBytes))
                {
                    SendAll(*m_pSocket, pending.GetData(), pending.GetSize());
                    if (pending.GetCapacity() > kKeptSendBuffer) pending.ClearAndFree();
                    pending.SetSize(0);
                }
                continue;
            }
            if (!pending.IsEmpty()) SendAll(*m_pSocket, pending.GetData(), pending.GetSize());
            if (read == CFrameReader::Goodbye)
            {
                Common::Log("client connection closed...\n");
                SendGoodbye(*m_pSocket);
            }
            else if (read == CFrameReader::TooLarge)
            {
                Common::Log("[RPC] Frame of %u bytes is over the limit of %u bytes: connection closed\n",
                            reader.GetLength(), kMaxFrameLength);
            }
            break;
        }
    }

    // ---- CEngineHost -------------------------------------------------------------

    CEngineHost::~CEngineHost() { Stop(); }

    bool CEngineHost::Start(CommandManager* commandManager, int port, const char* address)
    {
        if (!ZEM_ASSERT(commandManager != nullptr, "the host needs a command manager")) return false;
        if (m_pHostThread) return false;
        m_pCommandManager = commandManager;
        m_pCommandManager->GetQueue().Reopen();
        m_bStopping.store(false, std::memory_order_release);
        std::snprintf(m_szAddress, sizeof(m_szAddress), "%s", address ? address : "0.0.0.0");
        m_pHostThread = MEM_NEW(HostThread, this);
        if (m_pHostThread && m_pHostThread->Open(port, address)) return true;
        MEM_DELETE(m_pHostThread);
        m_pHostThread = nullptr;
        m_iPort = 0;
        return false;
    }

    void CEngineHost::Stop()
    {
        m_bStopping.store(true, std::memory_order_release);
        if (m_pHostThread)
        {
            // Shutting the listener down wakes the blocked accept, which then sees the flag.
            if (m_pHostThread->m_pSocket) m_pHostThread->m_pSocket->Shutdown();
            if (m_pHostThread->IsRunning()) m_pHostThread->Wait();
            MEM_DELETE(m_pHostThread);
            m_pHostThread = nullptr;
        }
        {
            // Idle connections block in their receive without a time-out: wake each one.
            std::lock_guard<std::mutex> lock(m_kConnectionsLock);
            for (ConnectionThread* connection : m_aConnections) connection->m_pSocket->Shutdown();
        }
        // Connection threads waiting on the main thread are let go.
        if (m_pCommandManager) m_pCommandManager->GetQueue().Close();
        ReapConnections(true);
    }

    void CEngineHost::AddConnection(ConnectionThread* connection)
    {
        std::lock_guard<std::mutex> lock(m_kConnectionsLock);
        m_aConnections.Add(connection);
    }

    void CEngineHost::ReapConnections(bool all)
    {
        ZemRenderer::TArray<ConnectionThread*> done;
        {
            std::lock_guard<std::mutex> lock(m_kConnectionsLock);
            for (unsigned int i = 0; i < m_aConnections.GetSize();)
            {
                if (all || m_aConnections[i]->IsFinished())
                    done.Add(m_aConnections.Remove(i));
                else
                    ++i;
            }
        }
        for (ConnectionThread* connection : done)
        {
            connection->Wait();
            MEM_DELETE(connection);
        }
    }

    unsigned int CEngineHost::GetConnectionCount()
    {
        std::lock_guard<std::mutex> lock(m_kConnectionsLock);
        unsigned int count = 0;
        for (ConnectionThread* connection : m_aConnections)
            if (!connection->IsFinished()) ++count;
        return count;
    }
}
