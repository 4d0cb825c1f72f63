// End-to-end: the built AssetManagerApp program.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <spawn.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "common/utils/Hash.h"
#include "zemengine/dataprovider/DataProviderImpl.h"

extern char** environ;

namespace
{
    // Runs the program with `args` and returns its output; `status` gets the exit code.
    std::string RunProgram(const std::string& args, int& status)
    {
        const std::string command = std::string(ASSETMANAGER_BIN) + " " + args + " 2>&1";
        FILE* p = popen(command.c_str(), "r");
        std::string out;
        if (!p) return out;
        char buffer[4096];
        size_t n = 0;
        while ((n = fread(buffer, 1, sizeof(buffer), p)) > 0) out.append(buffer, n);
        const int raw = pclose(p);
        status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        return out;
    }

    TEST(AssetManagerApp, HelpAndBadUsage)
    {
        int status = -1;
        const std::string help = RunProgram("--help", status);
        EXPECT_EQ(status, 0);
        for (const char* option : {"--source DIR", "--root DIR", "--port N", "27674"})
            EXPECT_NE(help.find(option), std::string::npos) << option;

        struct Case
        {
            const char* args;
            const char* message;
        };
        for (const Case& c : {Case{"--frobnicate", "unknown argument --frobnicate"}, Case{"--port", "--port needs a value"},
                              Case{"--port 70000", "from 0 to 65535"}, Case{"--port abc", "from 0 to 65535"}})
        {
            const std::string out = RunProgram(c.args, status);
            EXPECT_EQ(status, 2) << c.args;
            EXPECT_NE(out.find(c.message), std::string::npos) << c.args << ": " << out;
        }
    }

    namespace fs = std::filesystem;

    std::string ReadText(const fs::path& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    void WriteText(const fs::path& path, const std::string& text)
    {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << text;
    }

    // One AssetManagerApp process over a scratch root and source folder.
    class CAssetManagerProcess
    {
    public:
        CAssetManagerProcess()
        {
            char pattern[] = "/tmp/zem_am_XXXXXX";
            if (mkdtemp(pattern)) m_kDir = pattern;
            WriteText(m_kDir / "root/Toolchain/TypesInfos/Link.assetInfos",
                      "[{\"EngineClassName\": \"ZemRenderer::Link\", \"Name\": \"Link\", \"OutputExt\": \"zef\","
                      " \"ImportTypeExtensions\": [\"zef\"]}]");
        }
        ~CAssetManagerProcess()
        {
            if (m_iPid > 0)
            {
                kill(m_iPid, SIGKILL);
                waitpid(m_iPid, nullptr, 0);
            }
            std::error_code ignored;
            fs::remove_all(m_kDir, ignored);
        }

        bool Start(int port = 0)
        {
            const std::string root = (m_kDir / "root").string();
            const std::string source = (m_kDir / "source").string();
            const std::string portFile = (m_kDir / "port").string();
            const std::string portText = std::to_string(port);
            // Another name than the program's, so that engines starting meanwhile do not
            // take it for their asset manager.
            const char* argv[] = {"AssetManagerAppUnderTest", "--root", root.c_str(), "--source", source.c_str(),
                                  "--port", portText.c_str(), "--port-file", portFile.c_str(), nullptr};
            posix_spawn_file_actions_t actions;
            posix_spawn_file_actions_init(&actions);
            const std::string output = Output();
            posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            posix_spawn_file_actions_adddup2(&actions, 1, 2);
            const int error = posix_spawn(&m_iPid, ASSETMANAGER_BIN, &actions, nullptr, const_cast<char**>(argv), environ);
            posix_spawn_file_actions_destroy(&actions);
            return error == 0;
        }

        // The port it listens on, or 0 if it ended or took too long.
        int WaitForPort()
        {
            for (int i = 0; i < 1000; ++i)
            {
                const std::string text = ReadText(m_kDir / "port");
                if (!text.empty()) return std::atoi(text.c_str());
                if (Exited()) return 0;
                usleep(5000);
            }
            return 0;
        }

        bool Exited()
        {
            int status = 0;
            if (m_iPid <= 0 || waitpid(m_iPid, &status, WNOHANG) != m_iPid) return m_iPid <= 0;
            m_iStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            m_iPid = -1;
            return true;
        }

        int Stop(int signal)
        {
            if (m_iPid > 0) kill(m_iPid, signal);
            for (int i = 0; i < 1000 && !Exited(); ++i) usleep(5000);
            return m_iStatus;
        }

        std::string Output() const { return (m_kDir / "output.txt").string(); }
        const fs::path& Dir() const { return m_kDir; }

    private:
        fs::path m_kDir;
        pid_t m_iPid = -1;
        int m_iStatus = -1;
    };

    DataProvider::AssetQuery LinkQuery(const char* path)
    {
        DataProvider::AssetQuery q;
        DataProvider::MakeAssetQuery(q, GenerateUIntIdFromString("ZemRenderer::Link"), path);
        return q;
    }

    TEST(AssetManagerApp, ServesEnginesOneAfterAnotherAndStopsOnSignal)
    {
        CAssetManagerProcess am;
        WriteText(am.Dir() / "source/Meshes/Box.zef", "box");
        ASSERT_TRUE(am.Start());
        const int port = am.WaitForPort();
        ASSERT_GT(port, 0) << ReadText(am.Output());

        // A client that goes away half-way through a frame.
        {
            const int fd = socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in a{};
            a.sin_family = AF_INET;
            a.sin_port = htons(static_cast<uint16_t>(port));
            a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)), 0);
            const char half[] = {50, 0, 0, 0, '{'};
            send(fd, half, sizeof(half), MSG_NOSIGNAL);
            close(fd);
        }
        const std::string address = "127.0.0.1:" + std::to_string(port);
        // The engines must find the asset manager this test started, under its name, or
        // they start a real one that outlives the test.
        WriteText(am.Dir() / "root/Toolchain/TypesInfos/DataProvider.config",
                  "{\"Binary\": \"AssetManagerAppUnderTest\", \"Host\": \"127.0.0.1\", \"Port\": " +
                      std::to_string(port) + "}");
        for (int engine = 0; engine < 2; ++engine)
        {
            DataProvider::DataProviderImpl provider;
            provider.SetAssetsRoot((am.Dir() / "root").c_str());
            provider.SetAddress(address.c_str());
            ASSERT_TRUE(provider.Init(nullptr, true, 2)) << engine;
            // The second engine learns the cooked asset when it connects.
            EXPECT_EQ(provider.GetCookedKeyCount(), static_cast<unsigned int>(engine));
            DataProvider::AssetResult result;
            EXPECT_TRUE(provider.QueryAsset(result, LinkQuery("Meshes\\Box.zef"))) << engine;
            EXPECT_EQ(ReadText(result.m_szFilePath), "box");
            EXPECT_FALSE(provider.QueryAsset(result, LinkQuery("Meshes/Missing.zef")));
        }
        EXPECT_EQ(am.Stop(SIGTERM), 0);
        const std::string out = ReadText(am.Output());
        for (const char* line : {"[AM] Listening on 127.0.0.1:", "[AM] Cooked Meshes/Box.zef -> Meshes/Box_0.zef (3 bytes)",
                                 "[AM] Not found: Meshes/Missing.zef", "[AM] Signal 15: stopping after 1 copies"})
            EXPECT_NE(out.find(line), std::string::npos) << line << "\n" << out;
    }

    TEST(AssetManagerApp, BusyPortEndsWithStatusOne)
    {
        CAssetManagerProcess first;
        ASSERT_TRUE(first.Start());
        const int port = first.WaitForPort();
        ASSERT_GT(port, 0);
        CAssetManagerProcess second;
        ASSERT_TRUE(second.Start(port));
        EXPECT_EQ(second.Stop(0), 1);
        EXPECT_NE(ReadText(second.Output()).find("Could not listen on 127.0.0.1:" + std::to_string(port)), std::string::npos)
            << ReadText(second.Output());
        EXPECT_EQ(first.Stop(SIGINT), 0);
    }
}

