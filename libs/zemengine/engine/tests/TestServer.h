#pragma once
// A real engine host inside the test process: the test remote classes registered, the
// host on an ephemeral loopback port, and a main loop thread that sleeps on the
// eventfd wake-up and runs the command queue when woken.
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "zemengine/core/commandmanager/CommandWakeup.h"
#include "zemengine/core/commandmanager/tests/TestRemoteClasses.h"
#include "zemengine/engine/EngineNet.h"

namespace ZemEngine::Test
{
    class CTestServer
    {
    public:
        explicit CTestServer(bool runMainLoop = true)
        {
            m_kNet.InitCommands();
            RPC::Test::RegisterTestClasses(*m_kNet.GetCommandManager());
            m_pRoot = MEM_NEW(RPC::Test::CTestRoot);
            m_kNet.SetCommandWakeup(&m_kWakeup);
            m_bStarted = m_kNet.StartHost(0, "127.0.0.1");
            if (runMainLoop) StartMainLoop();
        }
        ~CTestServer()
        {
            StopMainLoop();
            m_kNet.Destroy();
            if (m_pRoot) m_pRoot->FreeObjects();
            MEM_DELETE(m_pRoot);
        }

        // The engine's main loop: blocks until woken, then runs the queue. A time-out
        // of the wait would mean a lost wake-up, so they are counted.
        void StartMainLoop()
        {
            if (m_kMainLoop.joinable()) return;
            m_bStopLoop = false;
            m_kMainLoop = std::thread([this] {
                m_uMainThreadTag = RPC::Test::ThreadTag();
                while (!m_bStopLoop.load())
                {
                    if (m_kWakeup.Wait(10000))
                    {
                        ++m_iWakeups;
                        m_kNet.ProcessCommands();
                    }
                    else
                    {
                        ++m_iLoopTimeouts;
                    }
                }
            });
            while (m_uMainThreadTag.load() == 0) std::this_thread::yield();
        }
        void StopMainLoop()
        {
            if (!m_kMainLoop.joinable()) return;
            m_bStopLoop = true;
            m_kWakeup.PostCommandWakeup();
            m_kMainLoop.join();
        }

        int GetPort() const { return m_kNet.GetHost() ? m_kNet.GetHost()->GetPort() : 0; }
        bool IsStarted() const { return m_bStarted; }
        CEngineNet& Net() { return m_kNet; }
        CommandManager& Manager() { return *m_kNet.GetCommandManager(); }
        RPC::Test::CTestRoot& Root() { return *m_pRoot; }

        CEventFdWakeup m_kWakeup;
        std::atomic<int> m_iWakeups{0};
        std::atomic<int> m_iLoopTimeouts{0};
        std::atomic<unsigned long long> m_uMainThreadTag{0};

    private:
        CEngineNet m_kNet;
        RPC::Test::CTestRoot* m_pRoot = nullptr;
        bool m_bStarted = false;
        std::thread m_kMainLoop;
        std::atomic<bool> m_bStopLoop{false};
    };

    // A plain BSD socket client, so that tests see exactly the bytes on the wire.
    class CRawClient
    {
    public:
        explicit CRawClient(int port)
        {
            m_iFd = socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in addr{};
            addr.sin_family = AF_INET;
            addr.sin_port = htons(static_cast<uint16_t>(port));
            addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            if (connect(m_iFd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
            {
                close(m_iFd);
                m_iFd = -1;
            }
            int one = 1;
            if (m_iFd >= 0) setsockopt(m_iFd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
        }
        ~CRawClient() { Close(); }
        CRawClient(const CRawClient&) = delete;
        CRawClient& operator=(const CRawClient&) = delete;

        bool IsConnected() const { return m_iFd >= 0; }
        void Close()
        {
            if (m_iFd >= 0) close(m_iFd);
            m_iFd = -1;
        }

        bool SendBytes(const std::string& bytes)
        {
            size_t sent = 0;
            while (sent < bytes.size())
            {
                const ssize_t n = send(m_iFd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
                if (n <= 0) return false;
                sent += static_cast<size_t>(n);
            }
            return true;
        }
        static std::string Frame(const std::string& body)
        {
            const uint32_t n = static_cast<uint32_t>(body.size());
            std::string out(4, '\0');
            for (int i = 0; i < 4; ++i) out[i] = static_cast<char>((n >> (8 * i)) & 0xFF);
            return out + body;
        }
        bool SendFrame(const std::string& body) { return SendBytes(Frame(body)); }

        // Exactly `n` bytes within `timeoutMs`; fewer if the peer closed or time ran out.
        std::string ReadBytes(size_t n, int timeoutMs = 5000)
        {
            std::string out;
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
            while (out.size() < n)
            {
                const int left = static_cast<int>(
                    std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count());
                if (left <= 0) break;
                pollfd p{m_iFd, POLLIN, 0};
                if (poll(&p, 1, left) <= 0) break;
                char buffer[65536];
                const ssize_t got = recv(m_iFd, buffer, std::min(sizeof(buffer), n - out.size()), 0);
                if (got <= 0)
                {
                    m_bPeerClosed = true;
                    break;
                }
                out.append(buffer, static_cast<size_t>(got));
            }
            return out;
        }
        // One reply frame's body, or "<none>" when nothing came in time.
        std::string ReadFrame(int timeoutMs = 5000)
        {
            const std::string header = ReadBytes(4, timeoutMs);
            if (header.size() < 4) return "<none>";
            uint32_t n = 0;
            for (int i = 0; i < 4; ++i) n |= static_cast<uint32_t>(static_cast<unsigned char>(header[i])) << (8 * i);
            if (n == 0xFFFFFFFFu) return "<goodbye>";
            return ReadBytes(n, timeoutMs);
        }
        std::string Call(const std::string& body, int timeoutMs = 5000)
        {
            return SendFrame(body) ? ReadFrame(timeoutMs) : "<send failed>";
        }
        // True if the peer closed the connection within `timeoutMs` with no data first.
        bool WaitForClose(int timeoutMs = 5000)
        {
            const std::string rest = ReadBytes(1, timeoutMs);
            return rest.empty() && m_bPeerClosed;
        }
        bool PeerClosed() const { return m_bPeerClosed; }

    private:
        int m_iFd = -1;
        bool m_bPeerClosed = false;
    };

    using RPC::Test::Args;
    using RPC::Test::MakeCommand;
}
