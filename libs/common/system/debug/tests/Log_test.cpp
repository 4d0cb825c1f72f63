#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/system/debug/Log.h"
#include "common/system/thread/Event.h"
#include "common/system/thread/Thread.h"

namespace
{
    std::string ReadText(const std::string& path)
    {
        std::stringstream s;
        s << std::ifstream(path).rdbuf();
        return s.str();
    }

    // Logs one line, holds its log slot until released, then logs another.
    class LoggingThread : public Common::CThread
    {
    public:
        LoggingThread(int id, Common::CEvent& release) : m_iId(id), m_kRelease(release) {}
        void Run() override
        {
            Common::Log("holder %d first\n", m_iId);
            m_bLogged = true;
            m_kRelease.Wait(10000);
            Common::Log("holder %d second\n", m_iId);
        }
        int m_iId;
        Common::CEvent& m_kRelease;
        std::atomic<bool> m_bLogged{false};
    };
}

TEST(Log, AssertionLineFormat)
{
    Common::ScopedLogCapture cap;
    const int value = 3;
    EXPECT_TRUE(ZEM_ASSERT(value == 3, "never shown"));
    EXPECT_EQ(cap.Text(), "");
    const int line = __LINE__ + 1;
    EXPECT_FALSE(ZEM_ASSERT(value > 5, "value is %d", value));
    EXPECT_EQ(cap.Text(), std::string(__FILE__) + "(" + std::to_string(line) +
                              ") : Assertion \"value > 5\" failed. value is 3\n");

    cap.Clear(); // an over-long assertion is cut, never lost
    Common::ReportAssert("Fn", "f.cpp", 1, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(cap.Text().size(), 2047u);
    EXPECT_EQ(cap.Text().rfind("f.cpp(1) : xxx", 0), 0u);
}

TEST(Log, TextOverTheBufferIsReportedAndNotLogged)
{
    for (const size_t chars : {2047u, 2048u, 5000u})
    {
        SCOPED_TRACE(chars);
        Common::ScopedLogCapture cap;
        const std::string text(chars, 'q');
        Common::Log("%s", text.c_str());
        const bool fits = chars < 2048;
        EXPECT_EQ(cap.Contains(text.c_str()), fits);
        const std::string report = "Assertion \"length <= 2048\" failed. Input buffer is too large. Size is " +
                                   std::to_string(chars + 1) + "; Max is 2048.";
        EXPECT_EQ(cap.Contains(report.c_str()), !fits);
    }
}

TEST(Log, ReportErrorNamesTheSystemText)
{
    Common::ScopedLogCapture cap;
    Common::ReportError("OpenAsset", ENOENT);
    EXPECT_EQ(cap.Text(), std::string("Error : OpenAsset : 2 -- ") + std::strerror(ENOENT) + " \n");
}

TEST(Log, FileSinksAppendOneLineAtATime)
{
    char pattern[] = "/tmp/zemlogXXXXXX";
    const std::string root = mkdtemp(pattern);
    const std::string savedHome = std::getenv("HOME") ? std::getenv("HOME") : "";
    unsetenv("XDG_DOCUMENTS_DIR");
    setenv("HOME", root.c_str(), 1);
    Common::InitLog(true, "Zemora/logs", "engine.log");
    setenv("HOME", savedHome.c_str(), 1);

    const std::string dir = root + "/Documents/Zemora/logs/";
    EXPECT_EQ(std::string(Common::GetLogDirectory()), dir);
    Common::Log("first %d\n", 1);
    Common::LogToFile(nullptr, "second");
    Common::LogToFilef("channel.txt", "%s=%d", "third", 3);
    Common::LogToFile("missing/dir/x.txt", "lost"); // can't be opened: dropped in silence
    EXPECT_EQ(ReadText(dir + "engine.log"), "first 1\nsecond\n");
    EXPECT_EQ(ReadText(dir + "channel.txt"), "third=3\n");

    Common::InitLog(false, nullptr, nullptr); // back to no log file
    Common::Log("not in the file\n");
    EXPECT_EQ(ReadText(dir + "engine.log"), "first 1\nsecond\n");
    std::system(("rm -rf " + root).c_str());
}

TEST(Log, ThreadBeyondTheSlotLimitLogsNothingAndSlotsComeBack)
{
    Common::Log("main thread holds a slot\n");
    const int free = Common::GetFreeLogThreadSlots();
    ASSERT_GT(free, 0);

    Common::ScopedLogCapture cap;
    Common::CEvent release;
    release.Create(true);
    std::vector<std::unique_ptr<LoggingThread>> holders;
    for (int i = 0; i < free; ++i)
    {
        holders.push_back(std::make_unique<LoggingThread>(i, release));
        ASSERT_TRUE(holders.back()->Start("holder"));
    }
    for (auto& h : holders)
        while (!h->m_bLogged) Common::CThread::Sleep(1);
    EXPECT_EQ(Common::GetFreeLogThreadSlots(), 0);

    Common::CEvent open;
    open.Create(true);
    open.Set();
    LoggingThread extra(99, open);
    ASSERT_TRUE(extra.Start("extra"));
    extra.Wait();
    EXPECT_TRUE(cap.Contains("Increase CDebugLog MaxThread"));
    EXPECT_FALSE(cap.Contains("holder 99"));

    release.Set();
    for (auto& h : holders) h->Wait();
    for (int i = 0; i < free; ++i)
        for (const char* which : {" first\n", " second\n"})
            EXPECT_TRUE(cap.Contains(("holder " + std::to_string(i) + which).c_str()));

    // Threads that ended gave their slots back: a new one logs again.
    EXPECT_EQ(Common::GetFreeLogThreadSlots(), free);
    LoggingThread late(100, open);
    ASSERT_TRUE(late.Start("late"));
    late.Wait();
    EXPECT_TRUE(cap.Contains("holder 100 second\n"));
}
