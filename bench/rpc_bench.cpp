// Remote commands over loopback: round trip of a "UseTcpThread" command against a raw
// socket ping-pong of the same bytes, pipelined throughput on one connection, and a
// main-thread command answered by an idle loop woken through its eventfd.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <dirent.h>
#include <pthread.h>
#include <sched.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "zemengine/core/commandmanager/CommandWakeup.h"
#include "zemengine/engine/EngineNet.h"

namespace
{
    class IRPCStub_BenchRoot : public ZemEngine::CSingletonManager<IRPCStub_BenchRoot>
    {
    public:
        int Add(int a, int b) { return a + b; }
    };

    const std::string kRequest =
        "{\"ClassName\":\"Bench\",\"InstanceID\":0,\"MethodName\":\"Add\",\"UseTcpThread\":true,\"WaitAck\":true,"
        "\"Arg0\":20,\"Arg1\":22}";
    const std::string kMainThreadRequest =
        "{\"ClassName\":\"Bench\",\"InstanceID\":0,\"MethodName\":\"Add\",\"UseTcpThread\":false,\"WaitAck\":true,"
        "\"Arg0\":20,\"Arg1\":22}";
    const std::string kReply = "{\"Res\":42}";

    std::string Frame(const std::string& body)
    {
        std::string out(4, '\0');
        const uint32_t n = static_cast<uint32_t>(body.size());
        for (int i = 0; i < 4; ++i) out[i] = static_cast<char>((n >> (8 * i)) & 0xFF);
        return out + body;
    }

    bool SendAll(int fd, const char* data, size_t size)
    {
        while (size)
        {
            const ssize_t n = send(fd, data, size, MSG_NOSIGNAL);
            if (n <= 0) return false;
            data += n;
            size -= static_cast<size_t>(n);
        }
        return true;
    }
    bool ReadAll(int fd, char* out, size_t size)
    {
        while (size)
        {
            const ssize_t n = recv(fd, out, size, 0);
            if (n <= 0) return false;
            out += n;
            size -= static_cast<size_t>(n);
        }
        return true;
    }
    bool ReadFrame(int fd, std::string& body)
    {
        unsigned char header[4];
        if (!ReadAll(fd, reinterpret_cast<char*>(header), 4)) return false;
        const uint32_t n = header[0] | (header[1] << 8) | (header[2] << 16) | (static_cast<uint32_t>(header[3]) << 24);
        body.resize(n);
        return ReadAll(fd, body.data(), n);
    }

    int ConnectLoopback(int port)
    {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<uint16_t>(port));
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
        {
            close(fd);
            return -1;
        }
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
        return fd;
    }

    bool PinThread(pthread_t thread, int core)
    {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(core, &set);
        return pthread_setaffinity_np(thread, sizeof(set), &set) == 0;
    }

    // The engine makes its connection threads itself: they are found by their name.
    int PinThreadsNamed(const char* name, int core)
    {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(core, &set);
        int pinned = 0;
        DIR* dir = opendir("/proc/self/task");
        if (!dir) return 0;
        while (const dirent* entry = readdir(dir))
        {
            if (entry->d_name[0] == '.') continue;
            char comm[64] = {};
            const std::string path = std::string("/proc/self/task/") + entry->d_name + "/comm";
            FILE* f = std::fopen(path.c_str(), "r");
            if (!f) continue;
            const bool read = std::fgets(comm, sizeof(comm), f) != nullptr;
            std::fclose(f);
            if (!read || std::strncmp(comm, name, std::strlen(name)) != 0 || comm[std::strlen(name)] != '\n') continue;
            if (sched_setaffinity(static_cast<pid_t>(std::atoi(entry->d_name)), sizeof(set), &set) == 0) ++pinned;
        }
        closedir(dir);
        return pinned;
    }

    // The baseline: a server that reads a frame and writes back the engine's reply bytes,
    // with nothing in between.
    class CRawEchoServer
    {
    public:
        // `core` >= 0 pins the server thread to that processor.
        explicit CRawEchoServer(int core = -1)
        {
            m_iListen = socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in addr{};
            addr.sin_family = AF_INET;
            addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            socklen_t length = sizeof(addr);
            bind(m_iListen, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
            listen(m_iListen, 4);
            getsockname(m_iListen, reinterpret_cast<sockaddr*>(&addr), &length);
            m_iPort = ntohs(addr.sin_port);
            m_kThread = std::thread([this, core] {
                if (core >= 0) PinThread(pthread_self(), core);
                const int fd = accept(m_iListen, nullptr, nullptr);
                int one = 1;
                setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
                const std::string reply = Frame(kReply);
                std::string body;
                while (ReadFrame(fd, body))
                    if (!SendAll(fd, reply.data(), reply.size())) break;
                close(fd);
            });
        }
        ~CRawEchoServer()
        {
            m_kThread.join();
            close(m_iListen);
        }
        int m_iPort = 0;

    private:
        int m_iListen = -1;
        std::thread m_kThread;
    };

    // The engine side: host on an ephemeral port, and an idle main loop that sleeps on
    // the eventfd wake-up.
    class CEngineServer
    {
    public:
        CEngineServer()
        {
            m_kNet.InitCommands();
            m_kNet.GetCommandManager()->Register("Bench", "Add", &IRPCStub_BenchRoot::Add);
            m_pRoot = MEM_NEW(IRPCStub_BenchRoot);
            m_kNet.SetCommandWakeup(&m_kWakeup);
            m_kNet.StartHost(0, "127.0.0.1");
            m_kLoop = std::thread([this] {
                while (!m_bStop.load())
                    if (m_kWakeup.Wait(-1)) m_kNet.ProcessCommands();
            });
        }
        ~CEngineServer()
        {
            m_bStop = true;
            m_kWakeup.PostCommandWakeup();
            m_kLoop.join();
            m_kNet.Destroy();
            MEM_DELETE(m_pRoot);
        }
        int GetPort() const { return m_kNet.GetHost() ? m_kNet.GetHost()->GetPort() : 0; }
        void SetReceiveSpinUs(unsigned int us)
        {
            if (m_kNet.GetHost()) m_kNet.GetHost()->SetReceiveSpinUs(us);
        }

    private:
        ZemEngine::CEngineNet m_kNet;
        ZemEngine::CEventFdWakeup m_kWakeup;
        IRPCStub_BenchRoot* m_pRoot = nullptr;
        std::thread m_kLoop;
        std::atomic<bool> m_bStop{false};
    };

    double Percentile(std::vector<double>& v, double p)
    {
        if (v.empty()) return 0;
        std::sort(v.begin(), v.end());
        return v[static_cast<size_t>(p * static_cast<double>(v.size() - 1))];
    }

    double TimedCall(int fd, const std::string& frame, std::string& reply)
    {
        const auto start = std::chrono::steady_clock::now();
        if (!SendAll(fd, frame.data(), frame.size()) || !ReadFrame(fd, reply)) return -1;
        return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
    }
}

// Each iteration makes one raw ping-pong and one engine round trip of the same bytes,
// interleaved so that both see the same machine load. The client runs on processor 0,
// and both servers' threads on processor 0 too (cross_core 0) or on processor 1
// (cross_core 1): where the scheduler would put them otherwise decides the figure more
// than either server does. spin_us is the engine's look for the next request before
// its connection thread blocks. Counters give medians and 99th percentiles.
static void BM_RoundTrip_EngineVsRawSocket(benchmark::State& state)
{
    const bool crossCore = state.range(0) != 0;
    const int clientCore = 0;
    const int serverCore = crossCore ? 1 : 0;
    if (std::thread::hardware_concurrency() < 2 && crossCore)
    {
        state.SkipWithError("one processor only");
        return;
    }
    cpu_set_t before;
    pthread_getaffinity_np(pthread_self(), sizeof(before), &before);
    PinThread(pthread_self(), clientCore);
    {
        CRawEchoServer raw(serverCore);
        CEngineServer engine;
        engine.SetReceiveSpinUs(static_cast<unsigned int>(state.range(1)));
        const int rawFd = ConnectLoopback(raw.m_iPort);
        const int engineFd = ConnectLoopback(engine.GetPort());
        const std::string frame = Frame(kRequest);
        std::string reply;
        // The connection thread exists once the first call is answered.
        TimedCall(engineFd, frame, reply);
        TimedCall(rawFd, frame, reply);
        if (PinThreadsNamed("connection", serverCore) != 1) state.SkipWithError("engine connection thread not found");
        std::vector<double> rawUs, engineUs;
        for (auto _ : state)
        {
            const double r = TimedCall(rawFd, frame, reply);
            const double e = TimedCall(engineFd, frame, reply);
            if (r < 0 || e < 0 || reply != kReply)
            {
                state.SkipWithError("round trip failed");
                break;
            }
            rawUs.push_back(r);
            engineUs.push_back(e);
        }
        close(rawFd);
        close(engineFd);
        const double rawMedian = Percentile(rawUs, 0.5);
        const double engineMedian = Percentile(engineUs, 0.5);
        const double rawP99 = Percentile(rawUs, 0.99);
        const double engineP99 = Percentile(engineUs, 0.99);
        state.counters["raw_median_us"] = rawMedian;
        state.counters["engine_median_us"] = engineMedian;
        state.counters["ratio"] = rawMedian > 0 ? engineMedian / rawMedian : 0;
        state.counters["raw_p99_us"] = rawP99;
        state.counters["engine_p99_us"] = engineP99;
        state.counters["ratio_p99"] = rawP99 > 0 ? engineP99 / rawP99 : 0;
    }
    pthread_setaffinity_np(pthread_self(), sizeof(before), &before);
}
BENCHMARK(BM_RoundTrip_EngineVsRawSocket)
    ->ArgNames({"cross_core", "spin_us"})
    ->ArgsProduct({{0, 1}, {0, 50}})
    ->MinTime(1.0)
    ->UseRealTime();

// Requests written back to back while a second thread reads the replies.
static void BM_Pipelined_UseTcpThread(benchmark::State& state)
{
    CEngineServer engine;
    const int fd = ConnectLoopback(engine.GetPort());
    const int batch = static_cast<int>(state.range(0));
    std::string frames;
    for (int i = 0; i < batch; ++i) frames += Frame(kRequest);
    for (auto _ : state)
    {
        std::atomic<bool> ok{true};
        std::thread reader([&] {
            std::string reply;
            for (int i = 0; i < batch; ++i)
                if (!ReadFrame(fd, reply) || reply != kReply)
                {
                    ok = false;
                    return;
                }
        });
        SendAll(fd, frames.data(), frames.size());
        reader.join();
        if (!ok)
        {
            state.SkipWithError("pipelined replies wrong");
            break;
        }
    }
    close(fd);
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(BM_Pipelined_UseTcpThread)->Arg(1000)->Arg(10000)->UseRealTime();

// The same exchange with the command run on the main thread, whose loop sleeps in its
// wake-up until the command arrives.
static void BM_MainThreadCommand_IdleLoop(benchmark::State& state)
{
    CEngineServer engine;
    const int fd = ConnectLoopback(engine.GetPort());
    const std::string frame = Frame(kMainThreadRequest);
    std::vector<double> us;
    std::string reply;
    for (auto _ : state)
    {
        const double t = TimedCall(fd, frame, reply);
        if (t < 0 || reply != kReply)
        {
            state.SkipWithError("main-thread call failed");
            break;
        }
        us.push_back(t);
    }
    close(fd);
    state.counters["median_us"] = Percentile(us, 0.5);
    state.counters["p99_us"] = Percentile(us, 0.99);
    state.counters["max_us"] = Percentile(us, 1.0);
}
BENCHMARK(BM_MainThreadCommand_IdleLoop)->MinTime(1.0)->UseRealTime();
