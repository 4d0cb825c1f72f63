// End-to-end: the real zemora binary, headless on an ephemeral port, driven over TCP.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "zemengine/engine/EngineClientRPC.h"

namespace
{
    typedef std::chrono::steady_clock Clock;

    std::string ReadFile(const std::string& path)
    {
        std::ifstream in(path);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

    // One zemora process with its own scratch folder for the port file and its output.
    class CZemora
    {
    public:
        CZemora()
        {
            char dir[] = "/tmp/zemora_e2e_XXXXXX";
            if (mkdtemp(dir)) m_sDir = dir;
        }
        ~CZemora()
        {
            if (m_iPid > 0)
            {
                kill(m_iPid, SIGKILL);
                waitpid(m_iPid, nullptr, 0);
            }
            if (!m_sDir.empty())
            {
                for (const std::string& f : {PortFile(), PortFile() + ".lsan", OutputFile()}) std::remove(f.c_str());
                rmdir(m_sDir.c_str());
            }
        }

        std::string PortFile() const { return m_sDir + "/port"; }
        std::string OutputFile() const { return m_sDir + "/output.txt"; }
        std::string Output() const { return ReadFile(OutputFile()); }

        // Starts zemora from its own folder, where it finds its plugins.
        // `env` entries ("NAME=value") are added to this process's environment.
        bool Start(std::vector<std::string> args, bool withPortFile = true, std::vector<std::string> env = {})
        {
            if (m_sDir.empty()) return false;
            // The data provider has tests of its own; these must not start an asset manager.
            args.insert(args.begin(), "-nodp");
            if (withPortFile)
            {
                args.push_back("--port-file");
                args.push_back(PortFile());
            }
            std::vector<char*> argv;
            std::string bin = ZEMORA_BIN;
            argv.push_back(bin.data());
            for (std::string& a : args) argv.push_back(a.data());
            argv.push_back(nullptr);
            std::vector<char*> envp;
            for (char** e = environ; *e; ++e)
            {
                bool replaced = false;
                for (const std::string& mine : env)
                    replaced |= std::strncmp(*e, mine.c_str(), mine.find('=') + 1) == 0;
                if (!replaced) envp.push_back(*e);
            }
            for (std::string& e : env) envp.push_back(e.data());
            envp.push_back(nullptr);
            const std::string out = OutputFile();
            m_kStart = Clock::now();
            m_iPid = fork();
            if (m_iPid == 0)
            {
                const int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
                if (fd < 0 || chdir(ZEMORA_BIN_DIR) != 0) _exit(120);
                dup2(fd, 1);
                dup2(fd, 2);
                execve(argv[0], argv.data(), envp.data());
                _exit(121);
            }
            return m_iPid > 0;
        }

        // The port zemora wrote, or 0 if it stopped or took longer than `ms`.
        int WaitForPort(int ms = 10000)
        {
            const auto end = Clock::now() + std::chrono::milliseconds(ms);
            while (Clock::now() < end)
            {
                const std::string text = ReadFile(PortFile());
                if (!text.empty()) return std::atoi(text.c_str());
                if (HasExited()) return 0;
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
            return 0;
        }

        bool HasExited()
        {
            if (m_iPid <= 0) return true;
            int status = 0;
            if (waitpid(m_iPid, &status, WNOHANG) != m_iPid) return false;
            m_iStatus = status;
            m_iPid = -1;
            return true;
        }

        // The wait status, or -1 if the process still ran after `ms`.
        int WaitForExit(int ms = 10000)
        {
            const auto end = Clock::now() + std::chrono::milliseconds(ms);
            while (Clock::now() < end)
            {
                if (HasExited()) return m_iStatus;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return -1;
        }

        void Signal(int signal)
        {
            if (m_iPid > 0) kill(m_iPid, signal);
        }

        Clock::time_point StartTime() const { return m_kStart; }

    private:
        std::string m_sDir;
        pid_t m_iPid = -1;
        int m_iStatus = -1;
        Clock::time_point m_kStart;
    };

    bool ExitedWith(int status, int code) { return status >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == code; }

    std::string Command(const std::string& cls, const std::string& method, const std::string& args = "",
                        bool waitAck = true)
    {
        std::string s = "{\"ClassName\":\"" + cls + "\",\"InstanceID\":0,\"MethodName\":\"" + method +
                        "\",\"UseTcpThread\":false,\"WaitAck\":" + (waitAck ? "true" : "false");
        if (!args.empty()) s += "," + args;
        return s + "}";
    }

    class CClient
    {
    public:
        bool Connect(int port)
        {
            m_kRpc.SetTimeout(5000);
            return m_kRpc.Connect("127.0.0.1", port);
        }
        void Send(const std::string& json) { m_kRpc.SendFrame(json.c_str(), static_cast<uint32_t>(json.size())); }
        // The next frame's text, or "<none>".
        std::string Read()
        {
            ZemRenderer::TArray<char> body;
            if (m_kRpc.ReadFrame(body) != ZemEngine::FrameStatus::Ok || body.IsEmpty()) return "<none>";
            return std::string(body.GetData());
        }
        std::string Call(const std::string& cls, const std::string& method, const std::string& args = "")
        {
            Send(Command(cls, method, args));
            return Read();
        }
        ZemEngine::CEngineClientRPC& Rpc() { return m_kRpc; }

    private:
        ZemEngine::CEngineClientRPC m_kRpc;
    };

    // A zemora that listens, with one client connected to it.
    class ZemoraE2E : public ::testing::Test
    {
    protected:
        void StartEngine(std::vector<std::string> extra = {})
        {
            std::vector<std::string> args = {"-headless", "-rpcport", "0"};
            args.insert(args.end(), extra.begin(), extra.end());
            ASSERT_TRUE(m_kZemora.Start(args));
            m_iPort = m_kZemora.WaitForPort();
            ASSERT_GT(m_iPort, 0) << m_kZemora.Output();
            ASSERT_TRUE(m_kClient.Connect(m_iPort));
        }

        CZemora m_kZemora;
        CClient m_kClient;
        int m_iPort = 0;
    };

    TEST_F(ZemoraE2E, RootCommands)
    {
        StartEngine();
        const struct
        {
            const char* method;
            const char* args;
            const char* reply;
        } cases[] = {
            {"GetRPCSingleton", "", "{\"Res\":{\"InstanceID\":0}}"},
            {"GetMode", "", "{\"Res\":0}"},
            {"KeepAlive", "", "{\"Res\":true}"},
            {"GetDropFileList", "", "{\"Res\":[]}"},
            {"GetCustomNodeCount", "", "{\"Res\":1}"},
            {"GetCustomNodeHeaderDesc", "\"Arg0\":0",
             "{\"Res\":{\"Name\":\"GuiProjectNode\",\"Description\":\"GuiProject\",\"IconPath\":\"Plugin/Decal.ico\","
             "\"WatchLabelProperty\":\"\",\"Mode\":[\"WorldNode\"]}}"},
            {"GetCustomNodeHeaderDesc", "\"Arg0\":7",
             "{\"Res\":{\"Name\":\"\",\"Description\":\"\",\"IconPath\":\"\",\"WatchLabelProperty\":\"\",\"Mode\":[]}}"},
            {"GetCustomNodeDesc", "\"Arg0\":7", "{\"Res\":[]}"},
            {"GetCustomNodeDependencies", "\"Arg0\":0", "{\"Res\":[\"PLUGIN_GuiProjectNode\"]}"},
        };
        for (const auto& c : cases) EXPECT_EQ(m_kClient.Call("Root", c.method, c.args), c.reply) << c.method;

        const std::string properties = m_kClient.Call("Root", "GetCustomNodeDesc", "\"Arg0\":0");
        for (const char* name : {"\"Name\":\"ProjectPath\"", "\"Name\":\"Opacity\"", "\"Name\":\"AnimableProperties\""})
            EXPECT_NE(properties.find(name), std::string::npos) << properties;

        // Methods without a result and commands this build does not have send nothing:
        // the next reply on the connection is the next command's.
        m_kClient.Send(Command("Root", "SetFocus", "\"Arg0\":false", false));
        m_kClient.Send(Command("Root", "IgnoreDirtyFlag", "\"Arg0\":true", false));
        m_kClient.Send(Command("Root", "MarkEngineAsDirty", "", false));
        m_kClient.Send(Command("Root", "NeedUpdate", "", false));
        m_kClient.Send(Command("Root", "IsLoadingFinished"));
        m_kClient.Send(Command("Root", "GetView3D"));
        EXPECT_EQ(m_kClient.Call("Root", "GetMode"), "{\"Res\":0}");
        EXPECT_NE(m_kZemora.Output().find("this command is not registred (Root.IsLoadingFinished)"), std::string::npos)
            << m_kZemora.Output();

        // ReleaseRef counts the client's references down; one too many is reported and
        // changes nothing, and the root stays.
        for (int i = 0; i < 2; ++i) ASSERT_EQ(m_kClient.Call("Root", "GetRPCSingleton"), "{\"Res\":{\"InstanceID\":0}}");
        for (const char* left : {"{\"Res\":2}", "{\"Res\":1}", "{\"Res\":0}", "{\"Res\":0}"})
            EXPECT_EQ(m_kClient.Call("Root", "ReleaseRef"), left);
        EXPECT_EQ(m_kClient.Call("Root", "GetMode"), "{\"Res\":0}");
    }

    TEST_F(ZemoraE2E, PrefabComponentIsOneInstancePerKey)
    {
        StartEngine();
        const std::string builder = "GuiProjectNodeBuilderRpc";
        EXPECT_EQ(m_kClient.Call(builder, "GetRPCSingleton"), "{\"Res\":{\"InstanceID\":0}}");
        const std::string first = m_kClient.Call(builder, "GetPrefabComponent", "\"Arg0\":\"k1\"");
        ASSERT_EQ(first.rfind("{\"Res\":{\"InstanceID\":", 0), 0u) << first;
        EXPECT_EQ(m_kClient.Call(builder, "GetPrefabComponent", "\"Arg0\":\"k1\""), first);
        EXPECT_NE(m_kClient.Call(builder, "GetPrefabComponent", "\"Arg0\":\"k2\""), first);
    }

    TEST_F(ZemoraE2E, ForceQuitEndsTheProcessWithStatusZero)
    {
        StartEngine();
        m_kClient.Send(Command("Root", "ForceQuit"));
        const auto sent = Clock::now();
        const int status = m_kZemora.WaitForExit();
        EXPECT_TRUE(ExitedWith(status, 0)) << status;
        // The waiting client learns that no reply will come.
        EXPECT_EQ(m_kClient.Read(), "<none>");
        RecordProperty("ForceQuitToExitMs",
                       static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - sent).count()));
    }

    // SIGTERM and SIGINT stop the engine cleanly while clients are connected and one of
    // them keeps calling.
    TEST_F(ZemoraE2E, SignalsStopCleanlyWithClientsConnected)
    {
        for (int signal : {SIGTERM, SIGINT})
        {
            CZemora zemora;
            ASSERT_TRUE(zemora.Start({"-headless", "-rpcport", "0"}));
            const int port = zemora.WaitForPort();
            ASSERT_GT(port, 0) << zemora.Output();
            CClient idle[3];
            for (CClient& c : idle) ASSERT_TRUE(c.Connect(port));
            std::atomic<bool> stop{false};
            std::atomic<int> answered{0};
            std::thread busy([&] {
                CClient c;
                if (!c.Connect(port)) return;
                while (!stop.load() && c.Call("Root", "KeepAlive") == "{\"Res\":true}") ++answered;
            });
            while (answered.load() < 20) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            zemora.Signal(signal);
            const int status = zemora.WaitForExit();
            stop = true;
            busy.join();
            EXPECT_TRUE(ExitedWith(status, 0)) << "signal " << signal << ", status " << status << "\n" << zemora.Output();
            EXPECT_NE(zemora.Output().find("[zemora] stopping"), std::string::npos);
        }
    }

    TEST(ZemoraE2EStart, BusyPortRunsWithoutTheRemoteHost)
    {
        const int blocker = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(a);
        ASSERT_EQ(bind(blocker, reinterpret_cast<sockaddr*>(&a), sizeof(a)), 0);
        ASSERT_EQ(listen(blocker, 1), 0);
        ASSERT_EQ(getsockname(blocker, reinterpret_cast<sockaddr*>(&a), &len), 0);
        const int port = ntohs(a.sin_port);

        CZemora zemora;
        ASSERT_TRUE(zemora.Start({"-headless", "-rpcport", std::to_string(port)}));
        EXPECT_EQ(zemora.WaitForPort(), -1) << zemora.Output();
        EXPECT_NE(zemora.Output().find("could not open host RPC connection"), std::string::npos) << zemora.Output();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_FALSE(zemora.HasExited());
        zemora.Signal(SIGTERM);
        EXPECT_TRUE(ExitedWith(zemora.WaitForExit(), 0));
        close(blocker);
    }

    TEST(ZemoraE2EStart, BadCommandLineIsReportedAndTheEngineRuns)
    {
        CZemora zemora;
        ASSERT_TRUE(zemora.Start({"-headless", "-rpcport", "0", "-mode", "bogus_editor", "-width", "abc", "-frobnicate",
                                  "-assetsRoot", "/tmp/with blanks/assets"}));
        const int port = zemora.WaitForPort();
        ASSERT_GT(port, 0) << zemora.Output();
        CClient client;
        ASSERT_TRUE(client.Connect(port));
        EXPECT_EQ(client.Call("Root", "GetMode"), "{\"Res\":0}");
        const std::string out = zemora.Output();
        for (const char* line : {"Unknown ZemEngine mode bogus_editor", "\"abc\" is not a number",
                                 "unknown word \"-frobnicate\"", "assets root /tmp/with blanks/assets"})
            EXPECT_NE(out.find(line), std::string::npos) << line << "\n" << out;
        zemora.Signal(SIGTERM);
        EXPECT_TRUE(ExitedWith(zemora.WaitForExit(), 0));
    }

    TEST(ZemoraE2EStart, ToolModeIsAnsweredAndFindsThePlugin)
    {
        CZemora zemora;
        ASSERT_TRUE(zemora.Start({"-headless", "-rpcport", "0", "-mode", "world_editor"}));
        const int port = zemora.WaitForPort();
        ASSERT_GT(port, 0) << zemora.Output();
        CClient client;
        ASSERT_TRUE(client.Connect(port));
        EXPECT_EQ(client.Call("Root", "GetMode"), "{\"Res\":4}");
        EXPECT_EQ(client.Call("Root", "GetCustomNodeCount"), "{\"Res\":1}");
        client.Send(Command("Root", "ForceQuit", "", false));
        EXPECT_TRUE(ExitedWith(zemora.WaitForExit(), 0));
    }

    // The windowed loop, on SDL's display-less video driver: commands arrive through the
    // SDL wake-up event and a signal ends the loop through SDL's quit event.
    TEST(ZemoraE2EStart, WindowedLoopAnswersCommandsAndStops)
    {
        CZemora zemora;
        // Under LeakSanitizer: the system's D-Bus library, which SDL's video start loads,
        // keeps a buffer to the end of the process.
        const std::string suppressions = zemora.PortFile() + ".lsan";
        std::ofstream(suppressions) << "leak:libdbus-1.so\n";
        ASSERT_TRUE(zemora.Start({"-rpcport", "0", "-width", "320", "-height", "200"}, true,
                                 {"DISPLAY=:zemora-test", "SDL_VIDEODRIVER=dummy", "LSAN_OPTIONS=suppressions=" + suppressions}));
        const int port = zemora.WaitForPort();
        ASSERT_GT(port, 0) << zemora.Output();
        EXPECT_NE(zemora.Output().find("[zemora] window 320x200"), std::string::npos) << zemora.Output();
        CClient client;
        ASSERT_TRUE(client.Connect(port));
        for (int i = 0; i < 20; ++i) ASSERT_EQ(client.Call("Root", "KeepAlive"), "{\"Res\":true}") << i;
        client.Send(Command("Root", "MarkEngineAsDirty", "", false));
        EXPECT_EQ(client.Call("Root", "GetDropFileList"), "{\"Res\":[]}");
        zemora.Signal(SIGINT);
        EXPECT_TRUE(ExitedWith(zemora.WaitForExit(), 0)) << zemora.Output();
        EXPECT_NE(zemora.Output().find("[zemora] stopping"), std::string::npos);
    }

    TEST(ZemoraE2EStart, UsageAndHelp)
    {
        {
            CZemora zemora;
            ASSERT_TRUE(zemora.Start({"--help"}, false));
            EXPECT_TRUE(ExitedWith(zemora.WaitForExit(), 0));
            const std::string out = zemora.Output();
            for (const char* option : {"-handle", "-timeout", "-rpcport", "-dpaddress", "-width", "-height", "-debug",
                                       "-grafcet", "-nodp", "-assetsRoot", "-mode", "-rpcbind", "-headless",
                                       "--port-file", "--log"})
                EXPECT_NE(out.find(std::string("  ") + option + " "), std::string::npos) << option << "\n" << out;
        }
        for (const std::vector<std::string>& bad :
             {std::vector<std::string>{"-assetsRoot", "a\"b"}, std::vector<std::string>{"--port-file"}})
        {
            CZemora zemora;
            ASSERT_TRUE(zemora.Start(bad, false));
            EXPECT_TRUE(ExitedWith(zemora.WaitForExit(), 2)) << bad[0];
        }
    }
}

// The engine draws: the render thread and the OpenGL device present frames, off-screen
// when headless or into an SDL window made for OpenGL, and stop with the engine.
namespace
{
    std::string SanitizerSuppressions(const CZemora& zemora)
    {
        // The GL driver's own leaks and the D-Bus buffer SDL's video start keeps.
        const std::string path = zemora.PortFile() + ".lsan";
        std::ofstream(path) << ReadFile(std::string(ZEM_SOURCE_DIR) + "/tests/lsan.supp") << "leak:libdbus-1.so\n";
        return "LSAN_OPTIONS=suppressions=" + path;
    }

    // How many frames the engine said it presented when it stopped, or -1.
    int PresentedFrames(const std::string& output)
    {
        const std::string marker = "render thread stopped after ";
        const size_t at = output.find(marker);
        return at == std::string::npos ? -1 : std::atoi(output.c_str() + at + marker.size());
    }

    void DriveAndStop(CZemora& zemora, int signal)
    {
        const int port = zemora.WaitForPort();
        ASSERT_GT(port, 0) << zemora.Output();
        CClient client;
        ASSERT_TRUE(client.Connect(port));
        // Every command wakes the host, and every wake-up runs a frame.
        for (int i = 0; i < 5; ++i) ASSERT_EQ(client.Call("Root", "KeepAlive"), "{\"Res\":true}") << i;
        zemora.Signal(signal);
        EXPECT_TRUE(ExitedWith(zemora.WaitForExit(), 0)) << zemora.Output();
    }
}

TEST(ZemoraDevice, HeadlessPresentsFramesOffScreenAndStopsCleanly)
{
    CZemora zemora;
    ASSERT_TRUE(zemora.Start({"-headless", "-rpcport", "0", "-width", "256", "-height", "256"}, true,
                             {"LP_NUM_THREADS=2", SanitizerSuppressions(zemora)}));
    DriveAndStop(zemora, SIGTERM);
    const std::string output = zemora.Output();
    if (output.find("no drawing device") != std::string::npos)
        GTEST_SKIP() << "no EGL device on this machine: " << output;
    EXPECT_NE(output.find("render thread and device up (off-screen), main view \"mainview\" 256x256"), std::string::npos)
        << output;
    EXPECT_GE(PresentedFrames(output), 3) << output;
    EXPECT_EQ(output.find("Potential leak"), std::string::npos) << output;
    EXPECT_EQ(output.find("GL error"), std::string::npos) << output;
}

TEST(ZemoraDevice, WindowedPresentsIntoItsOpenGLWindowAndStopsCleanly)
{
    CZemora zemora;
    ASSERT_TRUE(zemora.Start({"-rpcport", "0", "-width", "320", "-height", "200"}, true,
                             {"SDL_VIDEODRIVER=offscreen", "LP_NUM_THREADS=2", SanitizerSuppressions(zemora)}));
    DriveAndStop(zemora, SIGINT);
    const std::string output = zemora.Output();
    if (output.find("(OpenGL)") == std::string::npos || output.find("no drawing device") != std::string::npos)
        GTEST_SKIP() << "no OpenGL window on this machine: " << output;
    EXPECT_NE(output.find("render thread and device up (window)"), std::string::npos) << output;
    EXPECT_GE(PresentedFrames(output), 3) << output;
    EXPECT_EQ(output.find("GL error"), std::string::npos) << output;
}

TEST(ZemoraDevice, WithoutOpenGLTheEngineSaysWhyAndKeepsServingCommands)
{
    CZemora zemora;
    ASSERT_TRUE(zemora.Start({"-headless", "-rpcport", "0"}, true, {"ZEM_NO_GL=1", SanitizerSuppressions(zemora)}));
    DriveAndStop(zemora, SIGTERM);
    const std::string output = zemora.Output();
    EXPECT_NE(output.find("Init device failed with adpater : EGL surfaceless: OpenGL turned off by ZEM_NO_GL"),
              std::string::npos)
        << output;
    EXPECT_NE(output.find("the engine runs without drawing"), std::string::npos) << output;
    EXPECT_EQ(PresentedFrames(output), -1) << output;
}
