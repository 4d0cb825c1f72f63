#include "zemengine/engine/EngineNet.h"

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/rpc/Root.h"

namespace ZemEngine
{
    CEngineNet::~CEngineNet() { Destroy(); }

    bool CEngineNet::InitCommands()
    {
        if (m_pCommandManager) return true;
        m_pCommandManager = MEM_NEW(CommandManager);
        if (!m_pCommandManager) return false;
        m_pCommandManager->Init();
        return true;
    }

    bool CEngineNet::Init(int port, const char* bindAddress)
    {
        if (!InitCommands()) return false;
        // The built-in classes, then the root that clients start from.
        if (!m_pRoot)
        {
            RPC::IRPCStub_CRoot::Register(*m_pCommandManager);
            m_pRoot = MEM_NEW(RPC::CRoot);
        }
        if (port < 0) return true;
        return StartHost(port == 0 ? kDefaultPort : port, bindAddress);
    }

    bool CEngineNet::StartHost(int port, const char* bindAddress)
    {
        if (!InitCommands() || m_pHost) return false;
        m_pHost = MEM_NEW(CEngineHost);
        if (m_pHost && m_pHost->Start(m_pCommandManager, port, bindAddress)) return true;
        MEM_DELETE(m_pHost);
        m_pHost = nullptr;
        return false;
    }

    void CEngineNet::Destroy()
    {
        if (m_pHost) m_pHost->Stop();
        MEM_DELETE(m_pHost);
        m_pHost = nullptr;
        MEM_DELETE(m_pRoot);
        m_pRoot = nullptr;
        MEM_DELETE(m_pCommandManager);
        m_pCommandManager = nullptr;
    }

    void CEngineNet::ProcessCommands()
    {
        if (m_pCommandManager) m_pCommandManager->ProcessQueue();
    }

    void CEngineNet::SetCommandWakeup(ICommandWakeup* wakeup)
    {
        if (ZEM_ASSERT(m_pCommandManager != nullptr, "the wake-up is set after Init"))
            m_pCommandManager->GetQueue().SetWakeup(wakeup);
    }
}
