#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <atomic>
#include <string>
#include <thread>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "common/system/net/TcpSocket.h"
#include "common/system/thread/Thread.h"

using Common::TcpSocket;

namespace
{
    // Reads until `size` bytes came or the connection failed.
    std::string ReceiveExactly(TcpSocket& s, int size)
    {
        std::string out;
        char buffer[256];
        while (static_cast<int>(out.size()) < size)
        {
            int received = 0;
            const int want = std::min<int>(sizeof(buffer), size - static_cast<int>(out.size()));
            if (!s.Receive(buffer, want, received)) break;
            out.append(buffer, received);
        }
        return out;
    }

    bool EventuallyHasData(const TcpSocket& s)
    {
        for (int i = 0; i < 2000 && !s.HasData(); ++i) Common::CThread::Sleep(1);
        return s.HasData();
    }

    struct Listener
    {
        Listener()
        {
            EXPECT_TRUE(host.OpenHost(0));
            EXPECT_NE(host.GetPort(), 0);
            EXPECT_TRUE(host.Listen());
        }
        TcpSocket host;
    };
}

TEST(TcpSocket, LoopbackExchangeAndPeerClose)
{
    Listener l;
    TcpSocket client;
    ASSERT_TRUE(client.Connect(l.host.GetPort(), "127.0.0.1"));

    Common::ScopedLogCapture cap;
    ASSERT_TRUE(l.host.Accept());
    EXPECT_TRUE(cap.Contains("Connection accepted from 127.0.0.1:"));
    EXPECT_TRUE(cap.Contains((":" + std::to_string(client.GetPort()) + " \n").c_str()));

    EXPECT_FALSE(l.host.HasData());
    EXPECT_EQ(client.Send("hello", 5), 5);
    EXPECT_TRUE(EventuallyHasData(l.host));
    EXPECT_EQ(ReceiveExactly(l.host, 5), "hello");
    EXPECT_EQ(l.host.Send("reply!", 6), 6);
    EXPECT_EQ(ReceiveExactly(client, 6), "reply!");

    cap.Clear();
    client.Close();
    char buffer[8];
    int received = 123;
    EXPECT_FALSE(l.host.Receive(buffer, sizeof(buffer), received));
    EXPECT_EQ(received, 0);
    EXPECT_TRUE(l.host.IsClosed());
    EXPECT_EQ(cap.Text(), "Connection closed\n");
}

TEST(TcpSocket, AcceptSocketGivesEachClientItsOwnSocket)
{
    Listener l;
    TcpSocket a;
    TcpSocket b;
    ASSERT_TRUE(a.Connect(l.host.GetPort(), "127.0.0.1"));
    TcpSocket* first = l.host.AcceptSocket();
    ASSERT_NE(first, nullptr);
    ASSERT_TRUE(b.Connect(l.host.GetPort(), "127.0.0.1"));
    TcpSocket* second = l.host.AcceptSocket();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(first->GetPort(), l.host.GetPort());

    EXPECT_EQ(b.Send("to-b", 4), 4);
    EXPECT_EQ(a.Send("to-a", 4), 4);
    EXPECT_EQ(ReceiveExactly(*first, 4), "to-a");
    EXPECT_EQ(ReceiveExactly(*second, 4), "to-b");
    EXPECT_EQ(second->Send("back", 4), 4);
    EXPECT_EQ(ReceiveExactly(b, 4), "back");

    MEM_DELETE(first);
    char c;
    int received = 0;
    Common::ScopedLogCapture cap;
    EXPECT_FALSE(a.Receive(&c, 1, received));
    EXPECT_TRUE(cap.Contains("Connection closed\n"));
    MEM_DELETE(second);
}

TEST(TcpSocket, RefusedConnectFailsWithTheCode)
{
    // A bound port that does not listen refuses connections, and nobody else can take it.
    TcpSocket bound;
    ASSERT_TRUE(bound.OpenHost(0));
    TcpSocket client;
    Common::ScopedLogCapture cap;
    EXPECT_FALSE(client.Connect(bound.GetPort(), "127.0.0.1"));
    EXPECT_FALSE(client.IsValid());
    EXPECT_EQ(cap.Text(), "connect failed with error: " + std::to_string(ECONNREFUSED) + "\n");

    // The same object connects once there is a listener; a bad address is refused.
    ASSERT_TRUE(bound.Listen());
    EXPECT_TRUE(client.Connect(bound.GetPort(), "127.0.0.1"));
    EXPECT_FALSE(client.Connect(bound.GetPort(), "999.1.1.1"));
}

TEST(TcpSocket, ReceiveTimeOutIsNoDataNotAnEnd)
{
    Listener l;
    TcpSocket client;
    ASSERT_TRUE(client.Connect(l.host.GetPort(), "127.0.0.1"));
    ASSERT_TRUE(l.host.Accept());
    ASSERT_TRUE(l.host.SetReceiveTimeout(30));

    Common::ScopedLogCapture cap;
    char buffer[4];
    int received = 7;
    EXPECT_FALSE(l.host.Receive(buffer, sizeof(buffer), received));
    EXPECT_EQ(received, 0);
    EXPECT_FALSE(l.host.IsClosed());
    EXPECT_EQ(cap.Text(), "");
    EXPECT_EQ(client.Send("ok", 2), 2);
    EXPECT_EQ(ReceiveExactly(l.host, 2), "ok");
}

TEST(TcpSocket, SendToAVanishedPeerIsAnErrorNotASignal)
{
    Listener l;
    TcpSocket client;
    ASSERT_TRUE(client.Connect(l.host.GetPort(), "127.0.0.1"));
    ASSERT_TRUE(l.host.Accept());
    l.host.Close();

    Common::ScopedLogCapture cap;
    char block[4096] = {};
    int result = 0;
    for (int i = 0; i < 100 && result >= 0; ++i) result = client.Send(block, sizeof(block));
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(cap.Contains("Socket send error : ")) << cap.Text();
}

// A host stopping its threads relies on Shutdown to release both a reader blocked
// without a time-out and a listener blocked in accept.
TEST(TcpSocket, ShutdownReleasesBlockedReceiveAndAccept)
{
    Listener l;
    TcpSocket client;
    ASSERT_TRUE(client.Connect(l.host.GetPort(), "127.0.0.1"));
    TcpSocket* server = l.host.AcceptSocket();
    ASSERT_NE(server, nullptr);

    std::atomic<bool> receiveReturned{false}, acceptReturned{false};
    std::thread reader([&] {
        char buffer[4];
        int received = 0;
        server->Receive(buffer, sizeof(buffer), received);
        receiveReturned = true;
    });
    std::thread acceptor([&] {
        TcpSocket* extra = l.host.AcceptSocket();
        acceptReturned = true;
        MEM_DELETE(extra);
    });
    Common::CThread::Sleep(50);
    EXPECT_FALSE(receiveReturned.load());
    EXPECT_FALSE(acceptReturned.load());
    Common::ScopedLogCapture log;
    server->Shutdown();
    l.host.Shutdown();
    reader.join();
    acceptor.join();
    EXPECT_FALSE(log.Contains("Accept error")) << "ending an accept on purpose is no error";
    EXPECT_TRUE(receiveReturned.load());
    EXPECT_TRUE(acceptReturned.load());
    MEM_DELETE(server);
}
