#pragma once
// Holds the remote command pieces together: the command manager with its table and
// queue, the root remote object and the host that clients connect to.
#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/engine/EngineHost.h"

namespace RPC
{
    class CRoot;
}

namespace ZemEngine
{
    class CEngineNet
    {
    public:
        static constexpr int kDefaultPort = 27921;
        // The host listens here unless told otherwise: anyone who reaches the port
        // controls the engine.
        static constexpr const char* kDefaultBindAddress = "127.0.0.1";

        CEngineNet() = default;
        ~CEngineNet();
        CEngineNet(const CEngineNet&) = delete;
        CEngineNet& operator=(const CEngineNet&) = delete;

        // Makes the command manager, registers the built-in classes and makes the root,
        // then opens the host on `port` (0: the default port, negative: no host) at
        // `bindAddress`. False if the host could not open.
        bool Init(int port, const char* bindAddress = kDefaultBindAddress);
        // The command manager alone, so that classes can register before a host opens.
        bool InitCommands();
        // Opens the host on exactly `port` (0: the system picks one).
        bool StartHost(int port, const char* bindAddress = kDefaultBindAddress);
        // Stops the host and frees everything.
        void Destroy();

        // Runs the queued commands; the main loop calls it when woken.
        void ProcessCommands();
        // The main loop's wake-up, called whenever commands are queued for it.
        void SetCommandWakeup(ICommandWakeup* wakeup);

        RPC::CRoot* GetRoot() const { return m_pRoot; }
        CommandManager* GetCommandManager() const { return m_pCommandManager; }
        CEngineHost* GetHost() const { return m_pHost; }

    private:
        RPC::CRoot* m_pRoot = nullptr;
        CommandManager* m_pCommandManager = nullptr;
        CEngineHost* m_pHost = nullptr;
    };
}
