// Runs the built zemctl binary against the in-process test server.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <limits.h>
#include <sys/wait.h>
#include <unistd.h>

#include "zemengine/engine/tests/TestServer.h"

using namespace ZemEngine::Test;

namespace
{
    std::string ZemCtlPath()
    {
        char self[PATH_MAX] = {};
        const ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
        if (n <= 0) return "";
        std::string path(self, static_cast<size_t>(n));
        return path.substr(0, path.rfind('/') + 1) + "zemctl";
    }

    std::string Quote(const std::string& s)
    {
        std::string out = "'";
        for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
        return out + "'";
    }

    std::string ReadFile(const std::string& path)
    {
        std::ifstream in(path);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

    struct Outcome
    {
        int code = -1;
        std::string out;
        std::string err;
    };

    // A port nobody listens on.
    int ClosedPort()
    {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(addr);
        bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
        getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &length);
        close(fd);
        return ntohs(addr.sin_port);
    }

    class ZemCtlTest : public ::testing::Test
    {
    protected:
        void SetUp() override
        {
            m_szBinary = ZemCtlPath();
            if (access(m_szBinary.c_str(), X_OK) != 0) GTEST_SKIP() << "zemctl is not built next to the tests";
            ASSERT_TRUE(m_kServer.IsStarted());
            m_szDir = testing::TempDir() + "zemctl_" + std::to_string(getpid()) + "_";
        }
        void TearDown() override
        {
            for (const char* f : {"out", "err", "in"}) std::remove((m_szDir + f).c_str());
        }

        // Runs zemctl with the server's port first, then `args`; `input` is its stdin.
        Outcome Run(const std::vector<std::string>& args, const std::string& input = "", bool withPort = true)
        {
            std::string command = Quote(m_szBinary);
            if (withPort) command += " --port " + std::to_string(m_kServer.GetPort());
            for (const std::string& a : args) command += " " + Quote(a);
            std::ofstream(m_szDir + "in") << input;
            command += " <" + Quote(m_szDir + "in") + " >" + Quote(m_szDir + "out") + " 2>" + Quote(m_szDir + "err");
            Outcome o;
            const int status = std::system(command.c_str());
            o.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            o.out = ReadFile(m_szDir + "out");
            o.err = ReadFile(m_szDir + "err");
            return o;
        }

        CTestServer m_kServer;
        std::string m_szBinary;
        std::string m_szDir;
    };
}

TEST_F(ZemCtlTest, SendsOneCommandAndPrintsItsResult)
{
    struct Row
    {
        std::vector<std::string> args;
        int code;
        std::string out;
        const char* err;
    } rows[] = {
        {{"Root", "GetRPCSingleton"}, 0, "{\"InstanceID\":0}\n", ""},
        {{"Root", "Add", "2", "-40"}, 0, "-38\n", ""},
        {{"--tcp-thread", "Root", "Echo", "\"h\\u00e9llo\""}, 0, "\"h\xc3\xa9llo\"\n", ""},
        {{"Root", "CreateObject", "\"lamp\""}, 0, "{\"InstanceID\":0}\n", ""},
        {{"TestObject", "GetName", "--instance", "0"}, 0, "\"lamp\"\n", ""},
        {{"--no-wait", "Root", "Ping"}, 0, "", ""},
        {{"Root", "GetNaN"}, 0, "null\n", ""},
        {{"Root", "Ping"}, 4, "", "no reply to Root.Ping: it returns nothing (send it with --no-wait)"},
        {{"Root", "Teleport"}, 4, "", "no reply to Root.Teleport"},
        {{"Root", "Add", "1"}, 4, "", "no reply to Root.Add"},
        {{"--instance", "77", "TestObject", "GetName"}, 4, "", "no reply to TestObject.GetName"},
        {{"--timeout", "200", "--tcp-thread", "Root", "SleepMs", "1500"}, 3, "", "no reply to Root.SleepMs within 200 ms"},
        {{"Root", "Add", "2", "oops"}, 1, "", "argument 2 is not a JSON value: oops"},
        {{"Root"}, 1, "", "give a CLASS and a METHOD"},
        {{"--port", "http", "Root", "Ping"}, 1, "", "--port needs a port number"},
        {{"--frobnicate", "Root", "Ping"}, 1, "", "unknown option --frobnicate"},
    };
    for (const Row& row : rows)
    {
        const Outcome o = Run(row.args);
        std::string name;
        for (const std::string& a : row.args) name += a + " ";
        EXPECT_EQ(o.code, row.code) << name << "\n" << o.err;
        EXPECT_EQ(o.out, row.out) << name;
        EXPECT_NE(o.err.find(row.err), std::string::npos) << name << "\n" << o.err;
    }
    EXPECT_EQ(m_kServer.Root().m_iPings.load(), 2);
}

TEST_F(ZemCtlTest, ReportsAnEngineThatIsNotThere)
{
    const int port = ClosedPort();
    const Outcome o = Run({"--port", std::to_string(port), "Root", "GetCounter"}, "", false);
    EXPECT_EQ(o.code, 2);
    EXPECT_NE(o.err.find("cannot connect to the engine at 127.0.0.1:" + std::to_string(port) + ": Connection refused"),
              std::string::npos)
        << o.err;
    EXPECT_EQ(o.out, "");
}

TEST_F(ZemCtlTest, ScriptPrintsOneLinePerCommand)
{
    const std::string script =
        "# a comment, then a blank line\n"
        "\n"
        "{\"ClassName\":\"Root\",\"MethodName\":\"Add\",\"Args\":[1,2]}\n"
        "{\"ClassName\":\"Root\",\"MethodName\":\"Ping\",\"WaitAck\":false}\n"
        "this is not a command\n"
        "{\"ClassName\":\"Root\",\"MethodName\":\"Add\",\"Arg0\":5,\"Arg1\":5,\"UseTcpThread\":true}\n"
        "{\"ClassName\":\"Root\",\"MethodName\":\"Echo\",\"Args\":[\"end\"]}";
    const Outcome o = Run({"--script", "-"}, script);
    EXPECT_EQ(o.out, "3\n\n\n10\n\"end\"\n");
    EXPECT_EQ(o.code, 1);
    EXPECT_NE(o.err.find("- line 5: not JSON"), std::string::npos) << o.err;
    EXPECT_EQ(m_kServer.Root().m_iPings.load(), 1);

    const Outcome missing = Run({"--script", m_szDir + "nowhere"});
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("cannot read the script"), std::string::npos) << missing.err;
}

