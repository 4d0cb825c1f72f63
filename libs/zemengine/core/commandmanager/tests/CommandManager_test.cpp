#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/core/commandmanager/CommandWakeup.h"
#include "zemengine/core/commandmanager/tests/TestRemoteClasses.h"

using namespace ZemEngine;
using RPC::Test::Args;
using RPC::Test::MakeCommand;

namespace
{
    class CommandManagerTest : public ::testing::Test
    {
    protected:
        void SetUp() override
        {
            m_kManager.Init();
            RPC::Test::RegisterTestClasses(m_kManager);
            m_pRoot = MEM_NEW(RPC::Test::CTestRoot);
            m_kManager.GetQueue().SetWakeup(&m_kInline);
        }
        void TearDown() override
        {
            m_pRoot->FreeObjects();
            MEM_DELETE(m_pRoot);
        }

        std::string Run(const std::string& json)
        {
            CReturnBuffer result;
            m_kManager.ExecuteJSon(json.c_str(), &result);
            return result.GetText();
        }
        // The same command on the receiving thread and through the queue must agree.
        std::string RunBothWays(const std::string& className, const std::string& method, const std::string& args)
        {
            const std::string direct = Run(MakeCommand(className, method, args, true));
            const std::string queued = Run(MakeCommand(className, method, args, false));
            EXPECT_EQ(direct, queued) << className << "." << method;
            return direct;
        }

        CommandManager m_kManager;
        CInlineCommandWakeup m_kInline{&m_kManager.GetQueue()};
        RPC::Test::CTestRoot* m_pRoot = nullptr;
    };
}

TEST(CommandKey, IsChainedNotJoined)
{
    EXPECT_EQ(CommandManager::MakeKey("Root", "GetRPCSingleton"), 0x58EF814Eu);
    EXPECT_NE(CommandManager::MakeKey("a", "bc"), CommandManager::MakeKey("ab", "c"));
    EXPECT_NE(CommandManager::MakeKey("Root", "Ping"), CommandManager::MakeKey("root", "Ping"));
}

TEST_F(CommandManagerTest, EveryArityAndValueTypeRoundTrips)
{
    struct Row
    {
        const char* method;
        std::string args;
        std::string reply;
    } rows[] = {
        {"GetCounter", "", "{\"Res\":0}"},
        {"Echo", Args({"\"h\\u00e9 \\\"q\\\"\""}), "{\"Res\":\"h\xc3\xa9 \\\"q\\\"\"}"},
        {"Echo", Args({"null"}), "{\"Res\":\"\"}"},
        {"Add", Args({"2", "40"}), "{\"Res\":42}"},
        {"Add", Args({"-5", "9007199254740993"}), "{\"Res\":9007199254740988}"},
        {"MakeTransform",
         Args({"{\"x\":1,\"y\":2.5,\"z\":-3}", "{\"x\":0,\"y\":0,\"z\":0.5,\"w\":0.5}", "{\"x\":2,\"y\":2,\"z\":2}"}),
         "{\"Res\":{\"Translation\":{\"x\":1.0,\"y\":2.5,\"z\":-3.0},\"Rotation\":{\"x\":0.0,\"y\":0.0,\"z\":0.5,\"w\":0.5},"
         "\"Scale\":{\"x\":2.0,\"y\":2.0,\"z\":2.0}}}"},
        {"MakeIDs", Args({"{\"Type\":\"Bone\",\"Data\":[]}", "{\"Type\":\"Socket\",\"Data\":[3,4,5]}", "true", "1"}),
         "{\"Res\":[{\"Type\":6,\"Data\":[3,4,5]},{\"Type\":9,\"Data\":[0,0]}]}"},
        {"MakeIDs", Args({"{\"Type\":\"Link\",\"Data\":[7]}", "{\"Type\":\"Nonsense\",\"Data\":[1]}", "false", "0"}),
         "{\"Res\":[]}"},
        {"MakeSphere",
         Args({"1", "2", "3", "0.25",
               "{\"IsEditingBone\":true,\"EditBoneName\":\"arm\",\"EditRotation\":{\"x\":0,\"y\":1,\"z\":0,\"w\":0}}"}),
         "{\"Res\":{\"Center\":{\"x\":1.0,\"y\":2.0,\"z\":3.0},\"Radius\":0.25}}"},
        {"Describe",
         Args({"true", "18446744073709551615", "0.125", "null",
               "{\"Transform\":{\"Translation\":{\"x\":0,\"y\":0,\"z\":0},\"Rotation\":{\"x\":0,\"y\":0,\"z\":0,\"w\":1},"
               "\"Scale\":{\"x\":1,\"y\":1,\"z\":1}},\"Position\":{\"x\":0,\"y\":9,\"z\":0},\"GizmoFlags\":3,\"EType\":-2,"
               "\"Prefab\":null}",
               "[1,2.5,3]"}),
         "{\"Res\":\"1 18446744073709551615 0.125 [] 9 3 -2 - 3\"}"},
    };
    for (const Row& row : rows) EXPECT_EQ(RunBothWays("Root", row.method, row.args), row.reply) << row.method;
    EXPECT_TRUE(m_pRoot->m_kLastBone.m_bIsEditingBone);
    EXPECT_STREQ(m_pRoot->m_kLastBone.m_szEditBoneName.c_str(), "arm");
    EXPECT_EQ(m_pRoot->m_kLastBone.m_kEditRotation.y, 1.0f);
}

TEST_F(CommandManagerTest, AResultIsWrittenOnlyWhenWantedAndNotVoid)
{
    // Void with WaitAck: runs, answers nothing.
    EXPECT_EQ(Run(MakeCommand("Root", "Ping", "", true, true)), "");
    EXPECT_EQ(Run(MakeCommand("Root", "Ping", "", false, true)), "");
    EXPECT_EQ(m_pRoot->m_iPings.load(), 2);
    // A result without WaitAck: runs, answers nothing.
    EXPECT_EQ(Run(MakeCommand("Root", "CreateObject", Args({"\"quiet\""}), true, false)), "");
    ASSERT_EQ(m_pRoot->GetObjectCount(), 1u);
    EXPECT_EQ(m_pRoot->m_aObjects[0]->GetRefCount(), 0);
    // InstanceID is required for a singleton class too, but its value is ignored.
    EXPECT_EQ(Run(MakeCommand("Root", "GetCounter", "", true, true, 77)), "{\"Res\":0}");
}

TEST_F(CommandManagerTest, ReferencesCountClientHoldsAndIdsArePerClass)
{
    EXPECT_EQ(Run(MakeCommand("Root", "GetRPCSingleton")), "{\"Res\":{\"InstanceID\":0}}");
    EXPECT_EQ(m_pRoot->GetRefCount(), 1);
    const unsigned int firstId = CPointerResolver::GetInstance()->GetNextID<RPC::Test::IRPCStub_TestObject>();
    EXPECT_EQ(firstId, 0u) << "ids are per class: the singleton takes none";
    EXPECT_EQ(Run(MakeCommand("Root", "CreateObject", Args({"\"a\""}))), "{\"Res\":{\"InstanceID\":0}}");
    EXPECT_EQ(Run(MakeCommand("Root", "CreateObject", Args({"null"}))), "{\"Res\":{\"InstanceID\":1}}");
    EXPECT_EQ(Run(MakeCommand("TestObject", "GetName", "", false, true, 1)), "{\"Res\":\"\"}");

    // The same object returned twice counts twice.
    EXPECT_EQ(Run(MakeCommand("TestObject", "GetSelf", "", true, true, 0)), "{\"Res\":{\"InstanceID\":0}}");
    EXPECT_EQ(Run(MakeCommand("TestObject", "GetSelf", "", true, true, 0)), "{\"Res\":{\"InstanceID\":0}}");
    EXPECT_EQ(Run(MakeCommand("Root", "GetObjects")), "{\"Res\":[{\"InstanceID\":0},{\"InstanceID\":1}]}");
    EXPECT_EQ(m_pRoot->m_aObjects[0]->GetRefCount(), 4);
    EXPECT_EQ(m_pRoot->m_aObjects[1]->GetRefCount(), 2);

    EXPECT_EQ(Run(MakeCommand("TestObject", "IsSame", Args({"{\"InstanceID\":0}"}), true, true, 0)), "{\"Res\":true}");
    EXPECT_EQ(Run(MakeCommand("TestObject", "IsSame", Args({"null"}), true, true, 0)), "{\"Res\":false}");

    const int destroyedBefore = RPC::Test::CTestObject::s_iDestroyed.load();
    for (int left = 3; left >= 0; --left)
        EXPECT_EQ(Run(MakeCommand("TestObject", "ReleaseRef", "", true, true, 0)), "{\"Res\":" + std::to_string(left) + "}");
    EXPECT_EQ(RPC::Test::CTestObject::s_iDestroyed.load(), destroyedBefore + 1);
    EXPECT_EQ(m_pRoot->GetObjectCount(), 1u);

    // The id is not reused: a stale one only misses.
    Common::ScopedLogCapture log;
    EXPECT_EQ(Run(MakeCommand("TestObject", "GetValue", "", true, true, 0)), "");
    EXPECT_TRUE(log.Contains("Cannot retreive instance ptr")) << log.Text();
    EXPECT_TRUE(log.Contains("engine command failed!")) << log.Text();
    EXPECT_EQ(Run(MakeCommand("Root", "CreateObject", Args({"\"c\""}))), "{\"Res\":{\"InstanceID\":2}}");

    // ReleaseRef on a singleton counts down and never frees it.
    EXPECT_EQ(Run(MakeCommand("Root", "ReleaseRef")), "{\"Res\":0}");
    log.Clear();
    EXPECT_EQ(Run(MakeCommand("Root", "ReleaseRef")), "{\"Res\":0}");
    EXPECT_TRUE(log.Contains("ReleaseRef without a client reference")) << log.Text();
    EXPECT_EQ(Run(MakeCommand("Root", "GetCounter")), "{\"Res\":0}");
}

TEST_F(CommandManagerTest, BadRequestsAreDroppedWithTheirLogLine)
{
    const std::string good = MakeCommand("Root", "Add", Args({"1", "2"}), true);
    // Instance 0 exists, so a bad reference argument is what fails below.
    Run(MakeCommand("Root", "CreateObject", Args({"\"target\""}), true, false));
    struct Row
    {
        std::string json;
        const char* log;
    } rows[] = {
        {"", "not a JSON text"},
        {"\x01\xff garbage", "not a JSON text"},
        {"{\"ClassName\":\"Root\"", "not a JSON text"},
        {"[1,2,3]", "not a JSON object"},
        {std::string(100000, '['), "not a JSON text"},
        {"{\"InstanceID\":0,\"MethodName\":\"Add\",\"UseTcpThread\":true,\"WaitAck\":true}",
         "member \"ClassName\" is missing"},
        {"{\"ClassName\":\"Root\",\"InstanceID\":0,\"MethodName\":\"Add\",\"UseTcpThread\":true}",
         "member \"WaitAck\" is missing"},
        {"{\"ClassName\":\"Root\",\"InstanceID\":0,\"MethodName\":\"Add\",\"UseTcpThread\":1,\"WaitAck\":true}",
         "member \"UseTcpThread\" must be true or false, not a number"},
        {"{\"ClassName\":\"Root\",\"InstanceID\":-1,\"MethodName\":\"Add\",\"UseTcpThread\":true,\"WaitAck\":true}",
         "member \"InstanceID\" must be an integer"},
        {"{\"ClassName\":7,\"InstanceID\":0,\"MethodName\":\"Add\",\"UseTcpThread\":true,\"WaitAck\":true}",
         "member \"ClassName\" must be a string, not a number"},
        {MakeCommand("Nobody", "Add", "", true), "this command is not registred"},
        {MakeCommand("Root", "Nothing", "", true), "this command is not registred"},
        {MakeCommand("Root", "Add", Args({"1"}), true), "argument \"Arg1\" is missing"},
        {MakeCommand("Root", "Add", Args({"\"1\"", "2"}), true), "argument \"Arg0\" is a string, expected an integer"},
        {MakeCommand("Root", "Add", Args({"3000000000", "2"}), true), "expected an integer in range"},
        {MakeCommand("Root", "Add", Args({"1.5", "2"}), true), "expected an integer"},
        {MakeCommand("Root", "MakeSphere", Args({"1e300", "0", "0", "0", "{}"})), "expected a number in float range"},
        {MakeCommand("Root", "MakeTransform", Args({"{\"x\":1,\"y\":2}", "{}", "{}"})), "expected a vector"},
        {MakeCommand("Root", "MakeIDs", Args({"{\"Type\":\"Link\",\"Data\":[1,2,3,4]}", "{}", "true", "1"})),
         "expected an RUserID"},
        {MakeCommand("TestObject", "IsSame", Args({"{\"InstanceID\":999}"}), true), "Cannot retreive instance ptr"},
        {MakeCommand("TestObject", "IsSame", Args({"{\"ID\":0}"}), true), "expected a reference"},
    };
    for (const Row& row : rows)
    {
        Common::ScopedLogCapture log;
        EXPECT_EQ(Run(row.json), "") << row.json.substr(0, 120);
        EXPECT_TRUE(log.Contains(row.log)) << row.json.substr(0, 120) << "\n" << log.Text();
        EXPECT_EQ(Run(good), "{\"Res\":3}");
    }
}

TEST_F(CommandManagerTest, NonFiniteResultsGoOutAsNullWithALogLine)
{
    Common::ScopedLogCapture log;
    EXPECT_EQ(RunBothWays("Root", "GetNaN", ""), "{\"Res\":null}");
    EXPECT_EQ(RunBothWays("Root", "GetInfinity", ""), "{\"Res\":null}");
    EXPECT_TRUE(log.Contains("Root.GetNaN : the result holds a NaN or an infinity, sent as null")) << log.Text();
}

TEST_F(CommandManagerTest, FirstRegistrationStays)
{
    const unsigned int count = m_kManager.GetCommandCount();
    m_kManager.Register("Root", "Add", &RPC::Test::IRPCStub_TestRoot::Add);
    m_kManager.Register("Root", "GetCounter", &RPC::Test::IRPCStub_TestRoot::GetThreadTag);
    EXPECT_EQ(m_kManager.GetCommandCount(), count);
    EXPECT_EQ(Run(MakeCommand("Root", "GetCounter", "", true)), "{\"Res\":0}");
}

TEST_F(CommandManagerTest, TextCommandsReadBlankSeparatedTokens)
{
    EXPECT_EQ(m_kManager.ExecuteText("Root", "SetCounter", "  41 "), 1);
    EXPECT_EQ(Run(MakeCommand("Root", "GetCounter", "", true)), "{\"Res\":41}");
    EXPECT_EQ(m_kManager.ExecuteText("Root", "Add", "2\t40"), 1);
    Common::ScopedLogCapture log;
    EXPECT_EQ(m_kManager.ExecuteText("Root", "SetCounter", "x"), 0);
    EXPECT_EQ(m_kManager.ExecuteText("Root", "Add", "2"), 0);
    EXPECT_EQ(m_kManager.ExecuteText("Root", "MakeTransform", "1 2 3"), 0);
    EXPECT_EQ(m_kManager.ExecuteText("Root", "Missing", ""), 0);
    EXPECT_TRUE(log.Contains("this command is not registred")) << log.Text();
    EXPECT_EQ(Run(MakeCommand("Root", "GetCounter", "", true)), "{\"Res\":41}");
}

namespace
{
    // Pushes two commands from inside a running Process.
    class IRPCStub_Pusher : public CSingletonManager<IRPCStub_Pusher>
    {
    public:
        explicit IRPCStub_Pusher(CommandManager* manager) : m_pManager(manager) {}
        void PushTwo()
        {
            for (int i = 0; i < 2; ++i)
            {
                const std::string json = MakeCommand("Root", "SetCounter", Args({std::to_string(10 + i)}), false, false);
                m_pManager->ExecuteJSon(json.c_str(), nullptr);
            }
        }
        CommandManager* m_pManager;
    };
}

TEST_F(CommandManagerTest, QueueRunsInOrderAndLateArrivalsWaitForTheNextProcess)
{
    m_kManager.GetQueue().SetWakeup(nullptr);
    IRPCStub_Pusher pusher(&m_kManager);
    m_kManager.Register("Pusher", "PushTwo", &IRPCStub_Pusher::PushTwo);

    for (int value : {1, 2, 3})
        Run(MakeCommand("Root", "SetCounter", Args({std::to_string(value)}), false, false));
    Run(MakeCommand("Pusher", "PushTwo", "", false, false));
    EXPECT_EQ(m_kManager.GetQueue().GetPendingCount(), 4u);
    m_kManager.ProcessQueue();
    EXPECT_EQ(m_pRoot->GetCounter(), 3);
    EXPECT_EQ(m_kManager.GetQueue().GetPendingCount(), 2u);
    m_kManager.ProcessQueue();
    EXPECT_EQ(m_pRoot->GetCounter(), 11);
    m_kManager.ProcessQueue();  // empty: nothing happens
    EXPECT_EQ(m_kManager.GetQueue().GetPendingCount(), 0u);
}

TEST_F(CommandManagerTest, WaiterBlocksUntilTheMainThreadRanItsCommand)
{
    m_kManager.GetQueue().SetWakeup(nullptr);
    std::string reply;
    std::thread connection([&] { reply = Run(MakeCommand("Root", "GetThreadTag")); });
    while (m_kManager.GetQueue().GetPendingCount() == 0) std::this_thread::yield();
    EXPECT_EQ(reply, "");
    m_kManager.ProcessQueue();
    connection.join();
    EXPECT_EQ(reply, "{\"Res\":" + std::to_string(RPC::Test::ThreadTag()) + "}");

    // A closed queue releases a waiter with no result and refuses what comes later.
    std::thread late([&] { reply = Run(MakeCommand("Root", "GetCounter")); });
    while (m_kManager.GetQueue().GetPendingCount() == 0) std::this_thread::yield();
    m_kManager.GetQueue().Close();
    late.join();
    EXPECT_EQ(reply, "");
    Common::ScopedLogCapture log;
    EXPECT_EQ(Run(MakeCommand("Root", "GetCounter")), "");
    EXPECT_TRUE(log.Contains("no longer takes commands")) << log.Text();
    EXPECT_EQ(Run(MakeCommand("Root", "GetCounter", "", true)), "{\"Res\":0}");
}

TEST_F(CommandManagerTest, RegisteringWhileConnectionsExecuteIsSafe)
{
    std::atomic<bool> stop{false};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t)
        readers.emplace_back([&] {
            while (!stop.load()) EXPECT_EQ(Run(MakeCommand("Root", "Add", Args({"1", "1"}), true)), "{\"Res\":2}");
        });
    for (int i = 0; i < 300; ++i)
        m_kManager.Register("Plugin", ("Method" + std::to_string(i)).c_str(), &RPC::Test::IRPCStub_TestRoot::GetCounter);
    stop = true;
    for (std::thread& t : readers) t.join();
    EXPECT_EQ(Run(MakeCommand("Plugin", "Method299", "", true)), "{\"Res\":0}");
}
