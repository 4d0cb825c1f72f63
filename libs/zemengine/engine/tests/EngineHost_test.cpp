#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemengine/engine/EngineClientBroadcast.h"
#include "zemengine/engine/EngineClientRPC.h"
#include "zemengine/engine/tests/TestServer.h"

using namespace ZemEngine;
using namespace ZemEngine::Test;

namespace
{
    class EngineHostTest : public ::testing::Test
    {
    protected:
        void SetUp() override { ASSERT_TRUE(m_kServer.IsStarted()); }
        CTestServer m_kServer;
    };

    std::string Bytes(std::initializer_list<int> values)
    {
        std::string out;
        for (int v : values) out += static_cast<char>(v);
        return out;
    }
}

TEST_F(EngineHostTest, AcceptanceExchangeIsByteExact)
{
    CRawClient client(m_kServer.GetPort());
    ASSERT_TRUE(client.IsConnected());
    const std::string request =
        "{\"ClassName\":\"Root\",\"InstanceID\":0,\"MethodName\":\"GetRPCSingleton\",\"UseTcpThread\":false,\"WaitAck\":true}";
    ASSERT_EQ(request.size(), 102u);
    ASSERT_TRUE(client.SendBytes(Bytes({102, 0, 0, 0}) + request));
    EXPECT_EQ(client.ReadBytes(28), Bytes({24, 0, 0, 0}) + "{\"Res\":{\"InstanceID\":0}}");

    Common::ScopedLogCapture log;
    ASSERT_TRUE(client.SendBytes(Bytes({0xFF, 0xFF, 0xFF, 0xFF})));
    EXPECT_EQ(client.ReadBytes(4), Bytes({0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_TRUE(client.WaitForClose());
    EXPECT_TRUE(log.Contains("client connection closed...")) << log.Text();
}

TEST_F(EngineHostTest, CommandsRunOnTheThreadTheClientChose)
{
    CRawClient client(m_kServer.GetPort());
    const std::string mainTag = std::to_string(m_kServer.m_uMainThreadTag.load());
    EXPECT_EQ(client.Call(MakeCommand("Root", "GetThreadTag", "", false)), "{\"Res\":" + mainTag + "}");
    const std::string tcpReply = client.Call(MakeCommand("Root", "GetThreadTag", "", true));
    EXPECT_NE(tcpReply, "{\"Res\":" + mainTag + "}");
    EXPECT_EQ(tcpReply.rfind("{\"Res\":", 0), 0u) << tcpReply;
    EXPECT_EQ(m_kServer.m_iLoopTimeouts.load(), 0) << "the main loop was woken by time-out, not by the command";
    EXPECT_GE(m_kServer.m_iWakeups.load(), 1);
}

TEST_F(EngineHostTest, MainThreadCommandWakesTheBlockedLoop)
{
    CRawClient client(m_kServer.GetPort());
    std::vector<double> micros;
    const int wakeupsBefore = m_kServer.m_iWakeups.load();
    for (int i = 0; i < 50; ++i)
    {
        // Let the loop go back to sleep in its 10 s wait before each command.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(client.Call(MakeCommand("Root", "GetCounter"), 3000), "{\"Res\":0}");
        micros.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    EXPECT_EQ(m_kServer.m_iLoopTimeouts.load(), 0);
    EXPECT_GE(m_kServer.m_iWakeups.load() - wakeupsBefore, 50);
    std::sort(micros.begin(), micros.end());
    RecordProperty("median_round_trip_us", std::to_string(micros[micros.size() / 2]));
}

// Every value kind has its round trip in the command manager's tests; over the wire,
// an object handed out is reached again by its id.
TEST_F(EngineHostTest, ObjectsHandedOutAreReachedByTheirId)
{
    CRawClient client(m_kServer.GetPort());
    EXPECT_EQ(client.Call(MakeCommand("Root", "CreateObject", Args({"\"wired\""}))), "{\"Res\":{\"InstanceID\":0}}");
    EXPECT_EQ(client.Call(MakeCommand("TestObject", "GetName", "", true, true, 0)), "{\"Res\":\"wired\"}");
}

TEST_F(EngineHostTest, VoidAndUnwantedResultsSendNoFrame)
{
    CRawClient client(m_kServer.GetPort());
    // Neither command answers: the next frame belongs to the third command.
    ASSERT_TRUE(client.SendFrame(MakeCommand("Root", "Ping", "", false, true)));
    ASSERT_TRUE(client.SendFrame(MakeCommand("Root", "Add", Args({"1", "1"}), true, false)));
    EXPECT_EQ(client.Call(MakeCommand("Root", "Add", Args({"2", "2"}), true)), "{\"Res\":4}");
    EXPECT_EQ(m_kServer.Root().m_iPings.load(), 1);
}

TEST_F(EngineHostTest, BadFramesGetNoReplyAndTheConnectionGoesOn)
{
    CRawClient client(m_kServer.GetPort());
    CRawClient bystander(m_kServer.GetPort());
    const std::string good = MakeCommand("Root", "Add", Args({"1", "2"}), true);
    struct Row
    {
        std::string frame;
        const char* log;
    } rows[] = {
        {CRawClient::Frame(Bytes({0x00, 0x13, 0xFE, 0x80, 0x7F, 0x01})), "not a JSON text"},
        {CRawClient::Frame("hello engine"), "not a JSON text"},
        {CRawClient::Frame(""), "not a JSON text"},
        {CRawClient::Frame("{\"ClassName\":\"Root\",\"MethodName\":\"Add\",\"UseTcpThread\":true,\"WaitAck\":true}"),
         "member \"InstanceID\" is missing"},
        {CRawClient::Frame(MakeCommand("Root", "Add", Args({"true", "2"}), true)), "expected an integer"},
        {CRawClient::Frame(MakeCommand("Ghost", "Add", "", true)), "this command is not registred"},
        {CRawClient::Frame(MakeCommand("Root", "Vanish", "")), "this command is not registred"},
        {CRawClient::Frame(MakeCommand("TestObject", "GetValue", "", false, true, 4242)), "Cannot retreive instance ptr"},
        {CRawClient::Frame(MakeCommand("TestObject", "GetValue", "", true, true, 4242)), "Cannot retreive instance ptr"},
    };
    for (const Row& row : rows)
    {
        Common::ScopedLogCapture log;
        ASSERT_TRUE(client.SendBytes(row.frame));
        EXPECT_EQ(client.Call(good), "{\"Res\":3}") << row.log;
        EXPECT_TRUE(log.Contains(row.log)) << row.log << "\n" << log.Text();
    }
    EXPECT_EQ(bystander.Call(MakeCommand("Root", "Add", Args({"5", "5"}))), "{\"Res\":10}");
}

// A client that floods the host with bad frames gets its first messages logged in full,
// then one summary a second per message; the log stays a few lines long and the
// connection and the others keep working.
TEST_F(EngineHostTest, AFloodOfBadFramesIsFoldedInTheLog)
{
    CRawClient client(m_kServer.GetPort());
    CRawClient bystander(m_kServer.GetPort());
    const std::string good = MakeCommand("Root", "Add", Args({"1", "2"}), true);
    // Two kinds: one refused on the connection thread, one on the main thread.
    const std::string notJson = CRawClient::Frame("not json");
    const std::string badArgument = CRawClient::Frame(MakeCommand("Root", "Add", Args({"true", "2"}), false, false));
    constexpr int kFrames = 100000;
    std::string batch;
    for (int i = 0; i < 1000; ++i) batch += i % 2 ? notJson : badArgument;

    Common::ScopedLogCapture log;
    const auto start = std::chrono::steady_clock::now();
    for (int sent = 0; sent < kFrames; sent += 1000) ASSERT_TRUE(client.SendBytes(batch));
    EXPECT_EQ(client.Call(good), "{\"Res\":3}");
    EXPECT_EQ(bystander.Call(MakeCommand("Root", "Add", Args({"5", "5"}))), "{\"Res\":10}");
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    client.Close();
    // The last summaries come when the connection ends.
    for (int i = 0; i < 500 && !log.Contains("client connection closed"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));

    const std::string text = log.Text();
    const long lines = std::count(text.begin(), text.end(), '\n');
    // Per message kind: 10 in full, one summary a second, one at the end. The bad
    // argument logs two lines per frame (the argument, then the failed command).
    EXPECT_LE(lines, static_cast<long>(3 * (10 + seconds + 2) + 4)) << text;
    // Every frame is accounted for: shown in full or counted in a summary.
    unsigned long long folded = 0;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
    {
        const size_t at = line.find("... repeated ");
        if (at != std::string::npos && line.find("not a JSON text") != std::string::npos)
            folded += std::strtoull(line.c_str() + at + 13, nullptr, 10);
    }
    EXPECT_EQ(folded + 10, static_cast<unsigned long long>(kFrames / 2)) << text;
    RecordProperty("LogLinesFor100000BadFrames", static_cast<int>(lines));
}

TEST_F(EngineHostTest, OversizedFrameClosesOnlyThatConnection)
{
    CRawClient bystander(m_kServer.GetPort());
    CRawClient client(m_kServer.GetPort());
    Common::ScopedLogCapture log;
    const uint32_t length = kMaxFrameLength + 1;
    ASSERT_TRUE(client.SendBytes(Bytes({static_cast<int>(length & 0xFF), static_cast<int>((length >> 8) & 0xFF),
                                        static_cast<int>((length >> 16) & 0xFF), static_cast<int>(length >> 24)})));
    EXPECT_TRUE(client.WaitForClose());
    EXPECT_TRUE(log.Contains("Frame of 67108865 bytes is over the limit of 67108864 bytes: connection closed"))
        << log.Text();
    EXPECT_EQ(bystander.Call(MakeCommand("Root", "Add", Args({"1", "1"}))), "{\"Res\":2}");
}

TEST_F(EngineHostTest, LargeFrameWithinTheLimitIsServed)
{
    CRawClient client(m_kServer.GetPort());
    const std::string text(1000, 'z');
    // Padding after the arguments makes a 3 MiB request.
    const std::string padding = ",\"Pad\":\"" + std::string(3 << 20, 'p') + "\"";
    EXPECT_EQ(client.Call(MakeCommand("Root", "Echo", Args({"\"" + text + "\""}) + padding, true)),
              "{\"Res\":\"" + text + "\"}");
    EXPECT_EQ(client.Call(MakeCommand("Root", "Add", Args({"1", "1"}), true)), "{\"Res\":2}");
}

TEST_F(EngineHostTest, ClientLeavingMidFrameEndsOnlyItsConnection)
{
    Common::ScopedLogCapture accepted;
    CRawClient bystander(m_kServer.GetPort());
    {
        CRawClient client(m_kServer.GetPort());
        ASSERT_TRUE(client.SendBytes(Bytes({100, 0, 0, 0}) + "{\"ClassName\":"));
        ASSERT_TRUE(client.SendBytes(Bytes({7, 0})));
    }
    {
        CRawClient client(m_kServer.GetPort());
        ASSERT_TRUE(client.SendBytes(Bytes({100, 0})));
    }
    EXPECT_EQ(bystander.Call(MakeCommand("Root", "Add", Args({"2", "3"}))), "{\"Res\":5}");
    // The listener may not have taken the last client yet: count its accepts first.
    auto acceptCount = [&] {
        const std::string text = accepted.Text();
        size_t n = 0;
        for (size_t at = text.find("Connection accepted"); at != std::string::npos;
             at = text.find("Connection accepted", at + 1))
            ++n;
        return n;
    };
    for (int i = 0; i < 400 && acceptCount() < 3; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    for (int i = 0; i < 400 && m_kServer.Net().GetHost()->GetConnectionCount() > 1; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(m_kServer.Net().GetHost()->GetConnectionCount(), 1u);
}

TEST_F(EngineHostTest, PipelinedRequestsAreAnsweredInOrder)
{
    CRawClient client(m_kServer.GetPort());
    std::string batch;
    for (int i = 0; i < 500; ++i)
        batch += CRawClient::Frame(MakeCommand("Root", "Add", Args({std::to_string(i), "1000"}), i % 3 != 0));
    ASSERT_TRUE(client.SendBytes(batch));
    for (int i = 0; i < 500; ++i) ASSERT_EQ(client.ReadFrame(), "{\"Res\":" + std::to_string(i + 1000) + "}");
}

TEST_F(EngineHostTest, ClientsCallAtTheSameTime)
{
    std::vector<std::thread> clients;
    std::atomic<int> good{0};
    for (int c = 0; c < 4; ++c)
        clients.emplace_back([&, c] {
            CRawClient client(m_kServer.GetPort());
            for (int i = 0; i < 100; ++i)
                if (client.Call(MakeCommand("Root", "Add", Args({std::to_string(c), std::to_string(i)}), i % 2 == 0)) ==
                    "{\"Res\":" + std::to_string(c + i) + "}")
                    ++good;
        });
    for (std::thread& t : clients) t.join();
    EXPECT_EQ(good.load(), 400);
}

TEST(EngineHostStop, ReleasesAClientWaitingOnAStalledMainThread)
{
    CTestServer server(false);  // nobody runs the queue
    ASSERT_TRUE(server.IsStarted());
    CRawClient client(server.GetPort());
    ASSERT_TRUE(client.SendFrame(MakeCommand("Root", "GetCounter")));
    while (server.Manager().GetQueue().GetPendingCount() == 0) std::this_thread::yield();
    server.Net().GetHost()->Stop();
    EXPECT_TRUE(client.WaitForClose());
}

TEST(EngineNetInit, PortZeroMeansTheDefaultPortAndNegativeMeansNoHost)
{
    CEngineNet noHost;
    EXPECT_TRUE(noHost.Init(-1));
    EXPECT_EQ(noHost.GetHost(), nullptr);
    noHost.Destroy();

    CEngineNet net;
    // The default port may be taken on a shared machine; the mapping is what counts.
    if (net.Init(0))
    {
        EXPECT_EQ(net.GetHost()->GetPort(), CEngineNet::kDefaultPort);
    }
}

TEST_F(EngineHostTest, ClientRPCCallsAndReportsWhatWentWrong)
{
    CEngineClientRPC rpc;
    ASSERT_TRUE(rpc.Connect("127.0.0.1", m_kServer.GetPort()));
    Json::Document reply;
    ASSERT_TRUE(rpc.DoCall(MakeCommand("Root", "Add", Args({"3", "4"})).c_str(), &reply));
    ASSERT_TRUE(reply.IsObject() && reply.HasMember("Res") && reply["Res"].IsInt());
    EXPECT_EQ(reply["Res"].GetInt(), 7);
    EXPECT_TRUE(rpc.DoCall(MakeCommand("Root", "Ping").c_str(), nullptr));

    struct Counter : CEngineClientRPC::IWaitCallback
    {
        int* calls;
        explicit Counter(int* c) : calls(c) {}
        void Update() override { ++*calls; }
    };
    int updates = 0;
    rpc.SetWaitCallback(MEM_NEW(Counter, &updates));
    rpc.SetTimeout(150);
    EXPECT_FALSE(rpc.DoCall(MakeCommand("Root", "SleepMs", Args({"600"}), true).c_str(), &reply));
    EXPECT_EQ(rpc.GetLastStatus(), FrameStatus::Timeout);
    EXPECT_GT(updates, 3);
    rpc.Disconnect();

    CEngineClientRPC refused;
    Common::ScopedLogCapture log;
    EXPECT_FALSE(refused.Connect("127.0.0.1", 1));
    EXPECT_TRUE(log.Contains("Unable to connect to interface!")) << log.Text();
}

TEST_F(EngineHostTest, InterfaceSocketsCallEveryConnection)
{
    CEngineClientBroadcast::CInterfaceSockets<struct AssetManagerInterface> sockets;
    ASSERT_TRUE(sockets.AddConnection("127.0.0.1", m_kServer.GetPort(), 3, 10));
    ASSERT_TRUE(sockets.AddConnection("127.0.0.1", m_kServer.GetPort(), 3, 10));
    ASSERT_TRUE(sockets.CallMethod(MakeCommand("Root", "SetCounter", Args({"9"})).c_str(), nullptr));
    Json::Document reply;
    ASSERT_TRUE(sockets.CallMethod(MakeCommand("Root", "GetCounter").c_str(), &reply));
    ASSERT_TRUE(reply.IsObject() && reply["Res"].IsInt());
    EXPECT_EQ(reply["Res"].GetInt(), 9);
    EXPECT_EQ(m_kServer.Root().GetCounter(), 9);

    Common::ScopedLogCapture log;
    EXPECT_FALSE(sockets.AddConnection("127.0.0.1", 1, 2, 5));
    EXPECT_TRUE(log.Contains("Unable to connect to interface at 127.0.0.1 port 1 !")) << log.Text();
    EXPECT_EQ(sockets.GetConnectionCount(), 2u);
}
