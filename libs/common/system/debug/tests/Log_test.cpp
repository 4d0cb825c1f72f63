#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "common/system/debug/Log.h"
#include "common/system/thread/Event.h"
#include "common/system/thread/Thread.h"

namespace
{
    std::string ReadText(const std::string& path)
    {
        std::ifstream in(path);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

    // A temporary folder; the log settings go back to "no file" when it goes.
    struct TempLogDir
    {
        TempLogDir()
        {
            char pattern[] = "/tmp/zemlogXXXXXX";
            path = mkdtemp(pattern);
        }
        ~TempLogDir()
        {
            Common::InitLog(false, nullptr, nullptr);
            std::system(("rm -rf " + path).c_str());
        }
        std::string path;
    };

    // Logs one line, then holds its log slot until released, then logs another.
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
    Common::ReportAssert("Fn", "engine/File.cpp", 42, "Assertion \"%s\" failed. %s %d", "p != nullptr", "no target", 7);
    EXPECT_EQ(cap.Text(), "engine/File.cpp(42) : Assertion \"p != nullptr\" failed. no target 7\n");
}

TEST(Log, AssertMacroReportsOnlyFailuresAndGivesTheCondition)
{
    Common::ScopedLogCapture cap;
    const int value = 3;
    EXPECT_TRUE(ZEM_ASSERT(value == 3, "never shown"));
    EXPECT_EQ(cap.Text(), "");
    const int line = __LINE__ + 1;
    EXPECT_FALSE(ZEM_ASSERT(value > 5, "value is %d", value));
    const std::string expected =
        std::string(__FILE__) + "(" + std::to_string(line) + ") : Assertion \"value > 5\" failed. value is 3\n";
    EXPECT_EQ(cap.Text(), expected);
}

TEST(Log, LongAssertionMessagesAreCutNotLost)
{
    Common::ScopedLogCapture cap;
    const std::string big(5000, 'x');
    Common::ReportAssert("Fn", "f.cpp", 1, "%s", big.c_str());
    const std::string text = cap.Text();
    EXPECT_EQ(text.size(), 2047u);
    EXPECT_EQ(text.rfind("f.cpp(1) : xxx", 0), 0u);
    EXPECT_EQ(text.back(), '\n');
}

TEST(Log, TextOverTheBufferIsReportedAndNotLogged)
{
    struct Case
    {
        size_t chars;
        bool logged;
    };
    for (const Case c : {Case{2046, true}, Case{2047, true}, Case{2048, false}, Case{5000, false}})
    {
        SCOPED_TRACE(c.chars);
        Common::ScopedLogCapture cap;
        const std::string text(c.chars, 'q');
        Common::Log("%s", text.c_str());
        EXPECT_EQ(cap.Contains(text.c_str()), c.logged);
        const std::string report = "Assertion \"length <= 2048\" failed. Input buffer is too large. Size is " +
                                   std::to_string(c.chars + 1) + "; Max is 2048.";
        EXPECT_EQ(cap.Contains(report.c_str()), !c.logged);
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
    TempLogDir dir;
    Common::InitLog(false, (dir.path + "/logs/deeper").c_str(), "engine.log");
    const std::string logDir = dir.path + "/logs/deeper/";
    EXPECT_EQ(std::string(Common::GetLogDirectory()), logDir);
    struct stat st;
    ASSERT_EQ(stat(logDir.c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));

    Common::Log("first %d\n", 1);
    Common::LogToFile(nullptr, "second");
    Common::LogToFilef("channel.txt", "%s=%d", "third", 3);
    Common::LogToFile("channel.txt", "fourth");
    EXPECT_EQ(ReadText(logDir + "engine.log"), "first 1\nsecond\n");
    EXPECT_EQ(ReadText(logDir + "channel.txt"), "third=3\nfourth\n");

    // A file that can't be opened drops the line and nothing else happens.
    Common::LogToFile("missing/dir/x.txt", "lost");
    Common::Log("after\n");
    EXPECT_EQ(ReadText(logDir + "engine.log"), "first 1\nsecond\nafter\n");
}

TEST(Log, InitLogStartsFromTheDocumentsFolder)
{
    TempLogDir dir;
    const char* oldHome = std::getenv("HOME");
    const std::string savedHome = oldHome ? oldHome : "";
    const char* oldDocs = std::getenv("XDG_DOCUMENTS_DIR");
    const std::string savedDocs = oldDocs ? oldDocs : "";

    unsetenv("XDG_DOCUMENTS_DIR");
    setenv("HOME", dir.path.c_str(), 1);
    Common::InitLog(true, "Zemora", "a.log");
    EXPECT_EQ(std::string(Common::GetLogDirectory()), dir.path + "/Documents/Zemora/");

    setenv("XDG_DOCUMENTS_DIR", (dir.path + "/docs/").c_str(), 1);
    Common::InitLog(true, "Zemora", "a.log");
    EXPECT_EQ(std::string(Common::GetLogDirectory()), dir.path + "/docs/Zemora/");
    Common::Log("in documents\n");
    EXPECT_EQ(ReadText(dir.path + "/docs/Zemora/a.log"), "in documents\n");

    if (oldHome) setenv("HOME", savedHome.c_str(), 1);
    else unsetenv("HOME");
    if (oldDocs) setenv("XDG_DOCUMENTS_DIR", savedDocs.c_str(), 1);
    else unsetenv("XDG_DOCUMENTS_DIR");
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

    Common::CEvent never;
    never.Create(true);
    LoggingThread extra(99, never);
    never.Set(); // the extra thread logs both lines straight away
    ASSERT_TRUE(extra.Start("extra"));
    extra.Wait();
    EXPECT_TRUE(cap.Contains("Increase CDebugLog MaxThread"));
    EXPECT_FALSE(cap.Contains("holder 99"));

    release.Set();
    for (auto& h : holders) h->Wait();
    for (int i = 0; i < free; ++i)
    {
        EXPECT_TRUE(cap.Contains(("holder " + std::to_string(i) + " first\n").c_str()));
        EXPECT_TRUE(cap.Contains(("holder " + std::to_string(i) + " second\n").c_str()));
    }

    // Threads that ended gave their slots back: a new one logs again.
    EXPECT_EQ(Common::GetFreeLogThreadSlots(), free);
    LoggingThread late(100, never);
    ASSERT_TRUE(late.Start("late"));
    late.Wait();
    EXPECT_TRUE(cap.Contains("holder 100 second\n"));
}

TEST(Log, ConcurrentNewThreadsNeverShareASlot)
{
    Common::ScopedLogCapture cap;
    Common::CEvent go;
    go.Create(true);
    go.Set();
    for (int round = 0; round < 20; ++round)
    {
        std::vector<std::unique_ptr<LoggingThread>> threads;
        for (int i = 0; i < 4; ++i)
        {
            threads.push_back(std::make_unique<LoggingThread>(round * 10 + i, go));
            ASSERT_TRUE(threads.back()->Start("race"));
        }
        for (auto& t : threads) t->Wait();
    }
    // A shared slot would interleave two threads' texts in one buffer.
    for (int round = 0; round < 20; ++round)
        for (int i = 0; i < 4; ++i)
            EXPECT_TRUE(cap.Contains(("holder " + std::to_string(round * 10 + i) + " second\n").c_str()));
}
