// zemora: the host program. It owns the window (or runs headless), hands the engine its
// command line, runs the main loop and answers the command wake-up.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <unistd.h>

#include <SDL.h>

#include "common/system/debug/Log.h"
#include "zemengine/core/commandmanager/CommandWakeup.h"
#include "zemengine/engine/Engine.h"
#include "zemengine/engine/EngineNet.h"

namespace
{
    using ZemEngine::CEngine;

    enum ExitCode
    {
        ExitOk = 0,
        ExitInitFailed = 1,
        ExitUsage = 2,
    };

    // Frames run at this rate while something advances with time; otherwise the loop
    // sleeps until it is woken.
    constexpr int64_t kFramePeriodUs = 16667;

    const char* const kUsage =
        "Usage: zemora [HOST OPTIONS] [ENGINE OPTIONS]\n"
        "\n"
        "Starts the engine in a window (when a display is available) or headless, and\n"
        "answers remote commands from an editing tool (see zemctl --help).\n"
        "\n"
        "Host options:\n"
        "  --help, -h             this text\n"
        "  -headless              no window, even when a display is available\n"
        "  --port-file FILE       write the remote command port once it listens (with\n"
        "                         -rpcport 0 the system picks a free port); -1 if none\n"
        "  --log FILE             also append the log to FILE\n"
        "\n"
        "Engine options:\n";

    const char* const kUsageTail =
        "\n"
        "Without -rpcport the engine takes no remote commands. The remote host has no\n"
        "authentication: whoever reaches its port controls the engine, so keep -rpcbind\n"
        "on 127.0.0.1 unless the network is trusted.\n"
        "Exit status: 0 after a clean stop or ForceQuit, 1 if the engine could not start,\n"
        "2 for bad usage.\n";

    struct HostOptions
    {
        bool m_bHelp = false;
        bool m_bHeadless = false;
        std::string m_sPortFile;
        std::string m_sLogFile;
        std::string m_sEngineLine;
    };

    volatile sig_atomic_t g_iQuitSignal = 0;
    int g_iSignalFd = -1;

    void OnQuitSignal(int signal)
    {
        g_iQuitSignal = signal;
        if (g_iSignalFd >= 0)
        {
            const uint64_t one = 1;
            const int saved = errno;
            if (write(g_iSignalFd, &one, sizeof(one)) < 0)
            {
            }
            errno = saved;
        }
    }

    void InstallSignalHandlers()
    {
        struct sigaction action;
        std::memset(&action, 0, sizeof(action));
        action.sa_handler = &OnQuitSignal;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, nullptr);
        sigaction(SIGTERM, &action, nullptr);
    }

    int64_t NowUs()
    {
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
    }

    // False with a message for bad usage.
    bool ParseHostOptions(int argc, char** argv, HostOptions& out)
    {
        for (int i = 1; i < argc; ++i)
        {
            const std::string arg = argv[i];
            if (arg == "--help" || arg == "-h" || arg == "-help")
            {
                out.m_bHelp = true;
                continue;
            }
            if (arg == "-headless" || arg == "--headless")
            {
                out.m_bHeadless = true;
                continue;
            }
            if (arg == "--port-file" || arg == "--log")
            {
                if (i + 1 >= argc)
                {
                    std::fprintf(stderr, "zemora: %s needs a file name\n", arg.c_str());
                    return false;
                }
                (arg == "--port-file" ? out.m_sPortFile : out.m_sLogFile) = argv[++i];
                continue;
            }
            // The engine's line groups words by double quotes and has no escape for them.
            if (arg.find('"') != std::string::npos)
            {
                std::fprintf(stderr, "zemora: an argument can't hold a double quote: %s\n", arg.c_str());
                return false;
            }
            if (!out.m_sEngineLine.empty()) out.m_sEngineLine += ' ';
            const bool quote = arg.empty() || arg.find_first_of(" \t\r\n") != std::string::npos;
            out.m_sEngineLine += quote ? "\"" + arg + "\"" : arg;
        }
        if (out.m_sEngineLine.size() > CEngine::kMaxCommandLine)
        {
            std::fprintf(stderr, "zemora: the engine command line is longer than %u characters\n",
                         CEngine::kMaxCommandLine);
            return false;
        }
        return true;
    }

    bool WritePortFile(const std::string& path, int port)
    {
        // Written aside and renamed, so a reader never sees half a number.
        const std::string temp = path + ".tmp";
        FILE* f = std::fopen(temp.c_str(), "w");
        if (!f) return false;
        const bool ok = std::fprintf(f, "%d\n", port) > 0;
        if (std::fclose(f) != 0 || !ok || std::rename(temp.c_str(), path.c_str()) != 0)
        {
            std::remove(temp.c_str());
            return false;
        }
        return true;
    }

    void SetLogFile(const std::string& path)
    {
        const size_t slash = path.rfind('/');
        const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
        Common::InitLog(false, dir.c_str(), name.c_str());
    }

    // The wake-up of a windowed loop: one SDL user event at a time, however many
    // commands are queued behind it.
    class CSdlWakeup : public ZemEngine::ICommandWakeup
    {
    public:
        explicit CSdlWakeup(Uint32 eventType) : m_uEventType(eventType) {}

        void PostCommandWakeup() override
        {
            if (m_bPending.exchange(true, std::memory_order_acq_rel)) return;
            SDL_Event event;
            SDL_zero(event);
            event.type = m_uEventType;
            if (SDL_PushEvent(&event) < 0) m_bPending.store(false, std::memory_order_release);
        }

        // The main thread takes the wake-up before it runs the queue: a command queued
        // after this posts a new one.
        void Take() { m_bPending.store(false, std::memory_order_release); }
        Uint32 GetEventType() const { return m_uEventType; }

    private:
        Uint32 m_uEventType;
        std::atomic<bool> m_bPending{false};
    };

    class CHost
    {
    public:
        explicit CHost(CEngine* engine) : m_pEngine(engine) {}

        // Something that advances with time is there: frames run at the steady rate.
        bool IsActive() const { return m_pEngine->GetActorCount() > 0 || m_pEngine->GetWorldCount() > 0; }

        void ProcessCommands()
        {
            if (ZemEngine::CEngineNet* net = m_pEngine->GetEngineNet()) net->ProcessCommands();
        }

        // Runs a frame when one is due; returns the wait in milliseconds until the next
        // one (-1: none, sleep until woken).
        int RunFrameIfDue(bool woken)
        {
            const int64_t now = NowUs();
            const bool repaint = m_pEngine->TakeRepaintRequest();
            const bool active = IsActive();
            if (woken || repaint || (active && now >= m_iNextFrameUs))
            {
                m_pEngine->Tick(now / 1000);
                m_pEngine->FixedUpdate();
                m_pEngine->Update();
                if (repaint) m_bRepaintWanted = true;
                // A late frame sets the pace again instead of running a burst.
                m_iNextFrameUs = now >= m_iNextFrameUs + kFramePeriodUs ? now + kFramePeriodUs
                                                                        : m_iNextFrameUs + kFramePeriodUs;
            }
            if (!active) return -1;
            const int64_t wait = m_iNextFrameUs - NowUs();
            return wait <= 0 ? 0 : static_cast<int>((wait + 999) / 1000);
        }

        bool TakeRepaintWanted()
        {
            const bool wanted = m_bRepaintWanted;
            m_bRepaintWanted = false;
            return wanted;
        }

    private:
        CEngine* m_pEngine;
        int64_t m_iNextFrameUs = 0;
        bool m_bRepaintWanted = true;
    };

    void RunHeadless(CHost& host, ZemEngine::CEventFdWakeup& wakeup)
    {
        int wait = host.RunFrameIfDue(true);
        while (!g_iQuitSignal)
        {
            const bool woken = wakeup.Wait(wait);
            if (g_iQuitSignal) break;
            if (woken) host.ProcessCommands();
            wait = host.RunFrameIfDue(woken);
            host.TakeRepaintWanted();
        }
    }

    void Paint(SDL_Window* window, CEngine* engine)
    {
        // The device presents its own frames; without one, keep the window a plain colour
        // instead of garbage.
        if (engine->IsDrawing()) return;
        if (SDL_Surface* surface = SDL_GetWindowSurface(window))
        {
            SDL_FillRect(surface, nullptr, SDL_MapRGB(surface->format, 24, 26, 30));
            SDL_UpdateWindowSurface(window);
        }
    }

    void RunWindowed(CHost& host, CEngine* engine, SDL_Window* window, CSdlWakeup& wakeup)
    {
        bool quit = false;
        int wait = host.RunFrameIfDue(true);
        while (!quit)
        {
            SDL_Event event;
            bool woken = false;
            int got = wait < 0 ? SDL_WaitEvent(&event) : SDL_WaitEventTimeout(&event, wait);
            while (got)
            {
                switch (event.type)
                {
                case SDL_QUIT: quit = true; break;
                case SDL_WINDOWEVENT:
                    if (event.window.event == SDL_WINDOWEVENT_CLOSE) quit = true;
                    else if (event.window.event == SDL_WINDOWEVENT_EXPOSED ||
                             event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED)
                        engine->RequestRepaint();
                    break;
                case SDL_DROPFILE:
                    if (event.drop.file)
                    {
                        engine->AddDropFile(event.drop.file);
                        SDL_free(event.drop.file);
                    }
                    break;
                default:
                    if (event.type == wakeup.GetEventType())
                    {
                        wakeup.Take();
                        woken = true;
                    }
                    break;
                }
                got = SDL_PollEvent(&event);
            }
            if (quit) break;
            if (woken) host.ProcessCommands();
            wait = host.RunFrameIfDue(woken);
            if (host.TakeRepaintWanted()) Paint(window, engine);
        }
    }

    // A display is there (or a video driver is named) and SDL can open it.
    bool OpenVideo()
    {
        const char* x11 = std::getenv("DISPLAY");
        const char* wayland = std::getenv("WAYLAND_DISPLAY");
        const char* driver = std::getenv("SDL_VIDEODRIVER");
        if ((!x11 || !x11[0]) && (!wayland || !wayland[0]) && (!driver || !driver[0])) return false;
        if (SDL_Init(SDL_INIT_VIDEO) != 0)
        {
            Common::Log("[zemora] No window (%s): running headless\n", SDL_GetError());
            return false;
        }
        return true;
    }
}

int main(int argc, char** argv)
{
    HostOptions options;
    if (!ParseHostOptions(argc, argv, options))
    {
        std::fprintf(stderr, "Try 'zemora --help'.\n");
        return ExitUsage;
    }
    if (options.m_bHelp)
    {
        std::printf("%s%s%s", kUsage, CEngine::GetCommandLineHelp(), kUsageTail);
        return ExitOk;
    }
    if (!options.m_sLogFile.empty()) SetLogFile(options.m_sLogFile);
    std::signal(SIGPIPE, SIG_IGN);

    CEngine* engine = CEngine::GetInstance();
    ZemEngine::EngineInitDesc desc;
    ZemEngine::NativeHandle handle = 0;
    desc.m_pHandle = &handle;
    unsigned int timeout = 0;
    CEngine::ParseCommandLine(desc, timeout, options.m_sEngineLine.c_str());

    // A handle on the command line names a window that someone else owns.
    const bool windowed = !options.m_bHeadless && handle == 0 && OpenVideo();
    SDL_Window* window = nullptr;
    bool glWindow = false;
    Uint32 wakeEvent = 0;
    if (windowed)
    {
        wakeEvent = SDL_RegisterEvents(1);
        // A window the device can draw into, OpenGL 4.5 core; a video driver without
        // OpenGL still gets a plain window, and the device draws off-screen.
        const int width = static_cast<int>(desc.m_uiWidth), height = static_cast<int>(desc.m_uiHeight);
        const char* noGL = std::getenv("ZEM_NO_GL");
        if (!noGL || !noGL[0] || noGL[0] == '0')
        {
            SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 4);
            SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 5);
            SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_CORE);
            window = SDL_CreateWindow("Zemora", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, width, height,
                                      SDL_WINDOW_RESIZABLE | SDL_WINDOW_OPENGL);
            glWindow = window != nullptr;
        }
        if (!window)
            window = SDL_CreateWindow("Zemora", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, width, height,
                                      SDL_WINDOW_RESIZABLE);
        if (!window || wakeEvent == static_cast<Uint32>(-1))
        {
            Common::Log("[zemora] No window (%s): running headless\n", SDL_GetError());
            if (window) SDL_DestroyWindow(window);
            window = nullptr;
            SDL_Quit();
        }
    }

    ZemEngine::CEventFdWakeup fdWakeup;
    CSdlWakeup sdlWakeup(wakeEvent);
    if (window)
    {
        SDL_EventState(SDL_DROPFILE, SDL_ENABLE);
        handle = reinterpret_cast<ZemEngine::NativeHandle>(window);
        desc.m_pCommandWakeup = &sdlWakeup;
        desc.m_pDeviceWindow = glWindow ? window : nullptr;
        Common::Log("[zemora] window %ux%u%s\n", desc.m_uiWidth, desc.m_uiHeight, glWindow ? " (OpenGL)" : "");
    }
    else
    {
        if (!fdWakeup.IsValid()) return ExitInitFailed;
        g_iSignalFd = fdWakeup.GetFd();
        InstallSignalHandlers();
        desc.m_pCommandWakeup = &fdWakeup;
        Common::Log("[zemora] headless\n");
    }

    // The engine draws: into the window, or off-screen when headless.
    desc.m_bCreateDevice = true;
    if (!engine->Init(desc))
    {
        Common::Log("[zemora] The engine could not start\n");
        engine->Destroy();
        if (window) SDL_DestroyWindow(window);
        if (window) SDL_Quit();
        return ExitInitFailed;
    }

    const int port = engine->GetRpcPort();
    if (port > 0)
        Common::Log("[zemora] remote commands on %s:%d (zemctl --port %d Root GetRPCSingleton)\n",
                    desc.m_szRpcBindAddress, port, port);
    if (!options.m_sPortFile.empty() && !WritePortFile(options.m_sPortFile, port))
        Common::Log("[zemora] Could not write the port file %s\n", options.m_sPortFile.c_str());

    CHost host(engine);
    if (window)
        RunWindowed(host, engine, window, sdlWakeup);
    else
        RunHeadless(host, fdWakeup);

    Common::Log("[zemora] stopping\n");
    engine->Destroy();
    if (window)
    {
        SDL_DestroyWindow(window);
        SDL_Quit();
    }
    g_iSignalFd = -1;
    return ExitOk;
}
