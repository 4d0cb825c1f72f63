// End-to-end: the built AssetManagerApp program.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

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
}
