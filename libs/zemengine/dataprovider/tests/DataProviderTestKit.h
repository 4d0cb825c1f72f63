#pragma once
// Scratch assets roots and stand-in peers for the data provider's tests.
#include <arpa/inet.h>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "common/utils/Hash.h"

namespace DataProviderTest
{
    namespace fs = std::filesystem;

    inline const unsigned int kLinkType = GenerateUIntIdFromString("ZemRenderer::Link");
    inline const unsigned int kMeshType = GenerateUIntIdFromString("ZemRenderer::Mesh");

    inline void WriteFile(const fs::path& path, const std::string& text)
    {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << text;
    }

    inline std::string ReadFile(const fs::path& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    // The program running these tests, as the process check sees it.
    inline std::string ThisProgramName()
    {
        char path[4096];
        const ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
        if (n <= 0) return "";
        path[n] = '\0';
        return fs::path(path).filename().string();
    }

    // A port that was free a moment ago.
    inline int FreePort()
    {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(a);
        int port = 0;
        if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0 &&
            getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length) == 0)
            port = ntohs(a.sin_port);
        if (fd >= 0) close(fd);
        return port;
    }

    // A scratch assets root with the link type table. Its configuration names this test
    // program as the asset manager binary, so the process check finds it running and
    // nothing is started, unless a test says otherwise.
    class CTempRoot
    {
    public:
        explicit CTempRoot(const char* tag = "dp")
        {
            char pattern[128];
            std::snprintf(pattern, sizeof(pattern), "/tmp/zem_%s_XXXXXX", tag);
            if (mkdtemp(pattern)) m_kRoot = pattern;
            WriteFile(m_kRoot / "Toolchain/TypesInfos/Link.assetInfos",
                      "[{\"EngineClassName\": \"ZemRenderer::Link\", \"Name\": \"Link\", \"OutputExt\": \"zef\",\n"
                      "  \"ImportTypeExtensions\": [\"zef\"]},\n"
                      " {\"EngineClassName\": \"ZemRenderer::Mesh\", \"Name\": \"Mesh\", \"OutputExt\": \"zef\",\n"
                      "  \"ImportTypeExtensions\": [\"FBX\", \".obj\"]}]\n");
        }
        ~CTempRoot()
        {
            std::error_code ignored;
            if (!m_kRoot.empty()) fs::remove_all(m_kRoot, ignored);
        }

        void WriteConfig(int port, const std::string& binary, const std::string& extra = "")
        {
            WriteFile(m_kRoot / "Toolchain/TypesInfos/DataProvider.config",
                      "{\"Binary\": \"" + binary + "\", \"Host\": \"127.0.0.1\", \"Port\": " + std::to_string(port) +
                          extra + "}");
        }
        void WriteConfig(int port) { WriteConfig(port, ThisProgramName()); }

        const fs::path& Path() const { return m_kRoot; }
        std::string Str() const { return m_kRoot.string(); }

    private:
        fs::path m_kRoot;
    };

    // A peer on a local port that answers like an asset manager until the query, which
    // it answers as `Behaviour` says.
    class CFakeAssetManager
    {
    public:
        enum Behaviour
        {
            GarbageGreeting,  // the greeting's reply is no JSON
            GarbageReply,     // the query's reply is no JSON
            WrongShape,       // the query's reply is JSON of another form
            CloseMidReply,    // the query's reply stops half-way and the peer closes
            Silent,           // the query gets no reply at all
        };

        explicit CFakeAssetManager(Behaviour behaviour) : m_eBehaviour(behaviour)
        {
            m_iListen = socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in a{};
            a.sin_family = AF_INET;
            a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            socklen_t length = sizeof(a);
            if (bind(m_iListen, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0 && listen(m_iListen, 4) == 0 &&
                getsockname(m_iListen, reinterpret_cast<sockaddr*>(&a), &length) == 0)
                m_iPort = ntohs(a.sin_port);
            m_kThread = std::thread([this] { Serve(); });
        }
        ~CFakeAssetManager()
        {
            m_bStop = true;
            shutdown(m_iListen, SHUT_RDWR);
            const int client = m_iClient.exchange(-1);
            if (client >= 0) shutdown(client, SHUT_RDWR);
            m_kThread.join();
            if (client >= 0) close(client);
            close(m_iListen);
        }
        int Port() const { return m_iPort; }
        int Queries() const { return m_iQueries.load(); }

    private:
        bool ReadAll(int fd, char* p, size_t n)
        {
            while (n)
            {
                const ssize_t r = recv(fd, p, n, 0);
                if (r <= 0) return false;
                p += r;
                n -= static_cast<size_t>(r);
            }
            return true;
        }
        void SendFrame(int fd, const std::string& body, size_t cut = std::string::npos)
        {
            std::string frame(4, '\0');
            const uint32_t length = static_cast<uint32_t>(body.size());
            std::memcpy(frame.data(), &length, 4);
            frame += body;
            if (cut != std::string::npos) frame.resize(4 + cut);
            send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
        }
        void Serve()
        {
            while (!m_bStop)
            {
                const int fd = accept(m_iListen, nullptr, nullptr);
                if (fd < 0) return;
                m_iClient = fd;
                for (;;)
                {
                    char header[4];
                    if (!ReadAll(fd, header, 4)) break;
                    uint32_t length = 0;
                    std::memcpy(&length, header, 4);
                    if (length == 0xFFFFFFFFu) break;
                    std::string body(length, '\0');
                    if (length > (1u << 20) || !ReadAll(fd, body.data(), length)) break;
                    if (body.find("\"GetRPCSingleton\"") != std::string::npos)
                        SendFrame(fd, m_eBehaviour == GarbageGreeting ? "hello, I am no asset manager"
                                                                      : "{\"Res\":{\"InstanceID\":0}}");
                    else if (body.find("\"GetCookedAssetsList\"") != std::string::npos)
                        SendFrame(fd, "{\"Res\":[]}");
                    else if (body.find("\"QueryAssetData\"") != std::string::npos)
                    {
                        ++m_iQueries;
                        if (m_eBehaviour == GarbageReply) SendFrame(fd, "{\"Res\": {\"Succeeded\": tru");
                        if (m_eBehaviour == WrongShape) SendFrame(fd, "{\"Res\": 5}");
                        if (m_eBehaviour == CloseMidReply)
                        {
                            SendFrame(fd, "{\"Res\":{\"Succeeded\":true,\"FilePath\":\"a.zef\",\"ListenPort\":0}}", 10);
                            break;
                        }
                    }
                }
                if (m_iClient.exchange(-1) == fd) close(fd);
            }
        }

        Behaviour m_eBehaviour;
        int m_iListen = -1;
        int m_iPort = 0;
        std::atomic<int> m_iClient{-1};
        std::atomic<int> m_iQueries{0};
        std::atomic<bool> m_bStop{false};
        std::thread m_kThread;
    };
}
