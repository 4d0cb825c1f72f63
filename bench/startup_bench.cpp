// Start-up and shutdown of the host program zemora, headless, as a process: start to a
// port that accepts a connection, ForceQuit to the process's end, SIGTERM to the end.
// Baseline: the same binary started for --help, which loads and exits without an engine.
// zemora is looked for beside this program and run from there, where its plugins are.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{
    typedef std::chrono::steady_clock Clock;

    std::string BinDir()
    {
        char path[4096];
        const ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
        if (n <= 0) return ".";
        path[n] = '\0';
        std::string s(path);
        return s.substr(0, s.rfind('/'));
    }

    struct CPortFile
    {
        std::string m_sPath = "/tmp/zemora_startup_bench_" + std::to_string(getpid());
        ~CPortFile() { std::remove(m_sPath.c_str()); }
    };

    const std::string& PortFile()
    {
        static const CPortFile s_kFile;
        return s_kFile.m_sPath;
    }

    pid_t Spawn(const std::vector<std::string>& args)
    {
        static const std::string s_sDir = BinDir();
        const std::string bin = s_sDir + "/zemora";
        std::vector<std::string> all = args;
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(bin.c_str()));
        for (std::string& a : all) argv.push_back(a.data());
        argv.push_back(nullptr);
        const pid_t pid = fork();
        if (pid == 0)
        {
            const int null = open("/dev/null", O_WRONLY);
            if (null < 0 || chdir(s_sDir.c_str()) != 0) _exit(120);
            dup2(null, 1);
            dup2(null, 2);
            execv(argv[0], argv.data());
            _exit(121);
        }
        return pid;
    }

    int WaitForPort(pid_t pid)
    {
        for (;;)
        {
            if (FILE* f = std::fopen(PortFile().c_str(), "r"))
            {
                int port = 0;
                const int got = std::fscanf(f, "%d", &port);
                std::fclose(f);
                if (got == 1) return port;
            }
            if (waitpid(pid, nullptr, WNOHANG) == pid) return 0;
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }

    int Connect(int port)
    {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(port));
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0) return fd;
        if (fd >= 0) close(fd);
        return -1;
    }

    void SendFrame(int fd, const std::string& text)
    {
        std::string frame(4, '\0');
        const uint32_t n = static_cast<uint32_t>(text.size());
        for (int i = 0; i < 4; ++i) frame[i] = static_cast<char>((n >> (8 * i)) & 0xFF);
        frame += text;
        if (send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) < 0) std::perror("send");
    }

    double Seconds(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

    // A running zemora with a client connected; the start-up time is kept.
    struct Started
    {
        pid_t pid = -1;
        int client = -1;
        double startSeconds = 0;
    };

    Started StartZemora(benchmark::State& state)
    {
        Started s;
        std::remove(PortFile().c_str());
        const auto t0 = Clock::now();
        s.pid = Spawn({"-headless", "-rpcport", "0", "--port-file", PortFile()});
        const int port = s.pid > 0 ? WaitForPort(s.pid) : 0;
        s.client = port > 0 ? Connect(port) : -1;
        s.startSeconds = Seconds(t0, Clock::now());
        if (s.client < 0) state.SkipWithError("zemora did not start listening");
        return s;
    }

    void BM_HelpOnlyBaseline(benchmark::State& state)
    {
        for (auto _ : state)
        {
            const auto t0 = Clock::now();
            const pid_t pid = Spawn({"--help"});
            waitpid(pid, nullptr, 0);
            state.SetIterationTime(Seconds(t0, Clock::now()));
        }
    }

    void BM_StartToListening(benchmark::State& state)
    {
        for (auto _ : state)
        {
            Started s = StartZemora(state);
            state.SetIterationTime(s.startSeconds);
            if (s.pid > 0)
            {
                kill(s.pid, SIGKILL);
                waitpid(s.pid, nullptr, 0);
            }
            if (s.client >= 0) close(s.client);
        }
    }

    void BM_ForceQuitToExit(benchmark::State& state)
    {
        for (auto _ : state)
        {
            Started s = StartZemora(state);
            if (s.client < 0) break;
            const auto t0 = Clock::now();
            SendFrame(s.client, "{\"ClassName\":\"Root\",\"InstanceID\":0,\"MethodName\":\"ForceQuit\","
                                "\"UseTcpThread\":false,\"WaitAck\":false}");
            int status = 0;
            waitpid(s.pid, &status, 0);
            state.SetIterationTime(Seconds(t0, Clock::now()));
            close(s.client);
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("ForceQuit did not exit with 0");
        }
    }

    // A clean stop with a client still connected.
    void BM_SigtermToExit(benchmark::State& state)
    {
        for (auto _ : state)
        {
            Started s = StartZemora(state);
            if (s.client < 0) break;
            const auto t0 = Clock::now();
            kill(s.pid, SIGTERM);
            int status = 0;
            waitpid(s.pid, &status, 0);
            state.SetIterationTime(Seconds(t0, Clock::now()));
            close(s.client);
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("SIGTERM did not exit with 0");
        }
    }

    BENCHMARK(BM_HelpOnlyBaseline)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
    BENCHMARK(BM_StartToListening)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
    BENCHMARK(BM_ForceQuitToExit)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
    BENCHMARK(BM_SigtermToExit)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
}
