#pragma once
// The engine's side of the remote command protocol: a listener thread that accepts
// clients and one connection thread per client, which reads frames, runs them through
// the command manager and writes the replies.
#include <atomic>
#include <mutex>

#include "common/system/net/TcpSocket.h"
#include "common/system/thread/Thread.h"
#include "common/utils/TArray.h"
#include "zemengine/core/commandmanager/CommandManager.h"

namespace ZemEngine
{
    class CEngineHost
    {
    public:
        class HostThread : public Common::CThread
        {
        public:
            explicit HostThread(CEngineHost* host) : m_pHost(host) {}
            ~HostThread() override;
            // Opens the listening socket and starts the thread; false with "could not
            // open host RPC connection" if the socket can't be had.
            bool Open(int port, const char* address);
            void Run() override;

            CEngineHost* m_pHost;
            Common::TcpSocket* m_pSocket = nullptr;
        };

        class ConnectionThread : public Common::CThread
        {
        public:
            ConnectionThread(CEngineHost* host, Common::TcpSocket* listenSocket, Common::TcpSocket* socket)
                : m_pHost(host), m_pListenSocket(listenSocket), m_pSocket(socket)
            {
            }
            ~ConnectionThread() override;
            void Run() override;
            // Reads and answers frames until the connection ends.
            void RunFrames(CConnectionLogFold* fold);
            bool IsFinished() const { return m_bFinished.load(std::memory_order_acquire); }

            CEngineHost* m_pHost;
            Common::TcpSocket* m_pListenSocket;
            // The accepted connection, owned.
            Common::TcpSocket* m_pSocket;

        private:
            std::atomic<bool> m_bFinished{false};
        };

        CEngineHost() = default;
        ~CEngineHost();
        CEngineHost(const CEngineHost&) = delete;
        CEngineHost& operator=(const CEngineHost&) = delete;

        // Listens on `address` (127.0.0.1 unless told otherwise) and `port` (0: the
        // system picks one, see GetPort).
        bool Start(CommandManager* commandManager, int port, const char* address = "127.0.0.1");
        // Ends the listener and every connection: waiting clients are released with no
        // reply, and main-thread commands are refused from then on.
        void Stop();

        int GetPort() const { return m_iPort; }
        CommandManager* GetCommandManager() const { return m_pCommandManager; }
        bool IsStopping() const { return m_bStopping.load(std::memory_order_acquire); }
        const std::atomic<bool>* GetStopFlag() const { return &m_bStopping; }
        // Connections whose thread still runs.
        unsigned int GetConnectionCount();

        // How long a connection looks again for the next request before it blocks
        // (see CSocketByteSource); taken by connections that start afterwards.
        static constexpr unsigned int kDefaultReceiveSpinUs = 0;
        void SetReceiveSpinUs(unsigned int us) { m_uReceiveSpinUs.store(us, std::memory_order_relaxed); }
        unsigned int GetReceiveSpinUs() const { return m_uReceiveSpinUs.load(std::memory_order_relaxed); }

    private:
        friend class HostThread;
        void AddConnection(ConnectionThread* connection);
        // Joins and frees finished connection threads, or all of them.
        void ReapConnections(bool all);

        HostThread* m_pHostThread = nullptr;
        CommandManager* m_pCommandManager = nullptr;
        std::atomic<bool> m_bStopping{false};
        std::atomic<unsigned int> m_uReceiveSpinUs{kDefaultReceiveSpinUs};
        int m_iPort = 0;
        char m_szAddress[64] = {};
        std::mutex m_kConnectionsLock;
        ZemRenderer::TArray<ConnectionThread*> m_aConnections;
    };
}
