#include "zemengine/engine/Engine.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "common/math/Sfmt.h"
#include "common/system/debug/Log.h"
#include "common/system/filesystem/FileSystem.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/dataprovider/EngineDataProvider.h"
#include "zemengine/engine/EngineDevice.h"
#include "zemengine/engine/EngineNet.h"
#include "zemengine/plugins/BasePluginManager.h"

namespace ZemEngine
{
    namespace
    {
        CEngine* s_pInstance = nullptr;

        // An actor is freed from its most derived object, wherever CActor sits in it.
        void DeleteActor(CActor* actor)
        {
            if (!actor) return;
            void* block = dynamic_cast<void*>(actor);
            actor->~CActor();
            MEM_FREE(block);
        }

        // Subsystems that this build does not carry yet: Init names each one it skips.
        void LogAbsent(const char* what) { Common::Log("[Engine] %s: not part of this build, skipped\n", what); }

        bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

        // Standard text-to-integer reading, clamped to the int range; a word that holds
        // no number reads as 0 and is reported.
        long long ReadNumber(const char* option, const char* word)
        {
            errno = 0;
            char* end = nullptr;
            long long value = std::strtoll(word, &end, 10);
            if (end == word)
            {
                Common::Log("[Engine] Option %s: \"%s\" is not a number, read as 0\n", option, word);
                return 0;
            }
            if (errno == ERANGE || value > INT_MAX || value < INT_MIN)
            {
                Common::Log("[Engine] Option %s: %s is out of range\n", option, word);
                value = value < 0 ? INT_MIN : INT_MAX;
            }
            return value;
        }

        unsigned int ReadUnsigned(const char* option, const char* word)
        {
            const long long value = ReadNumber(option, word);
            if (value < 0)
            {
                Common::Log("[Engine] Option %s: %s is negative, read as 0\n", option, word);
                return 0;
            }
            return static_cast<unsigned int>(value);
        }

        void CopyText(const char* option, const char* word, char* out, size_t size)
        {
            const size_t length = std::strlen(word);
            if (!ZEM_ASSERT(length < size, "Option %s: value of %zu characters is too long (at most %zu)", option,
                            length, size - 1))
                return;
            std::memcpy(out, word, length + 1);
        }

        enum class OptionKind
        {
            Handle,
            Timeout,
            RpcPort,
            DpAddress,
            Width,
            Height,
            Debug,
            Grafcet,
            NoDp,
            AssetsRoot,
            Mode,
            RpcBind,
        };

        struct OptionDesc
        {
            const char* m_szName;
            OptionKind m_eKind;
            const char* m_szValue;
            const char* m_szHelp;
        };

        const OptionDesc s_aOptions[] = {
            {"-handle", OptionKind::Handle, "NUMBER", "native window handle to render into"},
            {"-timeout", OptionKind::Timeout, "NUMBER", "time-out handed back to the host"},
            {"-rpcport", OptionKind::RpcPort, "PORT", "remote command port; -1: none, 0: any free port"},
            {"-dpaddress", OptionKind::DpAddress, "ADDRESS", "address of the asset manager process"},
            {"-width", OptionKind::Width, "NUMBER", "main view width"},
            {"-height", OptionKind::Height, "NUMBER", "main view height"},
            {"-debug", OptionKind::Debug, nullptr, "debug mode"},
            {"-grafcet", OptionKind::Grafcet, nullptr, "grafcet flag, kept for the host"},
            {"-nodp", OptionKind::NoDp, nullptr, "run without the data provider"},
            {"-assetsRoot", OptionKind::AssetsRoot, "PATH", "root folder of the assets"},
            {"-mode", OptionKind::Mode, "MODE", "material_editor, world_editor, prefab_editor or light_editor"},
            {"-rpcbind", OptionKind::RpcBind, "ADDRESS",
             "address the remote host listens on (default 127.0.0.1)"},
        };

        const char* const s_aModeNames[] = {nullptr, nullptr, nullptr, "material_editor", "world_editor",
                                            "prefab_editor", "light_editor"};
    }

    const char* Mode::GetName(Type mode)
    {
        const int i = static_cast<int>(mode);
        return i >= 0 && i < static_cast<int>(sizeof(s_aModeNames) / sizeof(s_aModeNames[0])) ? s_aModeNames[i]
                                                                                              : nullptr;
    }

    CEngine::CEngine() = default;

    CEngine::~CEngine()
    {
        if (s_pInstance == this) s_pInstance = nullptr;
    }

    CEngine* CEngine::GetInstance()
    {
        if (!s_pInstance) s_pInstance = MEM_NEW(CEngine);
        return s_pInstance;
    }

    CEngine* CEngine::PeekInstance() { return s_pInstance; }

    void CEngine::SetInstance(CEngine* engine) { s_pInstance = engine; }

    // ---- command line ----------------------------------------------------------------

    CEngine::TokenList CEngine::TokenizeCommandLine(const char* line)
    {
        TokenList tokens;
        if (!line) return tokens;
        size_t length = std::strlen(line);
        if (length > kMaxCommandLine)
        {
            Common::Log("[Engine] Command line of %zu characters cut at %u\n", length, kMaxCommandLine);
            length = kMaxCommandLine;
        }
        // The trailing blank ends the last unquoted word.
        char text[kMaxCommandLine + 2];
        std::memcpy(text, line, length);
        text[length] = ' ';
        text[length + 1] = '\0';

        int state = 0;
        size_t start = 0;
        for (size_t i = 0; i <= length; ++i)
        {
            const char c = text[i];
            if (state == 0)
            {
                if (IsBlank(c)) continue;
                state = c == '"' ? 2 : 1;
                start = c == '"' ? i + 1 : i;
                continue;
            }
            if ((state == 1 && IsBlank(c)) || (state == 2 && c == '"'))
            {
                size_t n = i - start;
                if (n > kMaxToken) n = kMaxToken;
                tokens.Add(Common::String(text + start, n));
                state = 0;
            }
        }
        if (state == 2) Common::Log("[Engine] Command line: quoted word without its closing quote dropped\n");
        return tokens;
    }

    int CEngine::ParseCommandLine(EngineInitDesc& desc, unsigned int& timeout, const char* line)
    {
        const TokenList words = TokenizeCommandLine(line);
        const unsigned int count = words.GetSize();
        for (unsigned int i = 0; i < count; ++i)
        {
            const char* word = words[i].c_str();
            const OptionDesc* option = nullptr;
            for (const OptionDesc& o : s_aOptions)
                if (std::strcmp(word, o.m_szName) == 0)
                {
                    option = &o;
                    break;
                }
            if (!option)
            {
                Common::Log("[Engine] Command line: unknown word \"%s\" skipped\n", word);
                continue;
            }
            const char* value = nullptr;
            if (option->m_szValue)
            {
                if (i + 1 >= count)
                {
                    Common::Log("[Engine] Command line: %s needs a value (%s)\n", option->m_szName, option->m_szValue);
                    break;
                }
                value = words[++i].c_str();
            }
            switch (option->m_eKind)
            {
            case OptionKind::Handle:
                if (desc.m_pHandle)
                    *desc.m_pHandle = static_cast<NativeHandle>(std::strtoull(value, nullptr, 10));
                else
                    Common::Log("[Engine] Command line: -handle given but the host has no handle to fill\n");
                break;
            case OptionKind::Timeout: timeout = ReadUnsigned(option->m_szName, value); break;
            case OptionKind::RpcPort: desc.m_iRpcPort = static_cast<int>(ReadNumber(option->m_szName, value)); break;
            case OptionKind::DpAddress:
                CopyText(option->m_szName, value, desc.m_szDataProviderAddress, sizeof(desc.m_szDataProviderAddress));
                break;
            case OptionKind::Width: desc.m_uiWidth = ReadUnsigned(option->m_szName, value); break;
            case OptionKind::Height: desc.m_uiHeight = ReadUnsigned(option->m_szName, value); break;
            case OptionKind::Debug: desc.m_bDebug = true; break;
            case OptionKind::Grafcet: desc.m_bGrafcet = true; break;
            case OptionKind::NoDp: desc.m_bUseDataProvider = false; break;
            case OptionKind::AssetsRoot:
                CopyText(option->m_szName, value, desc.m_szAssetsRoot, sizeof(desc.m_szAssetsRoot));
                break;
            case OptionKind::Mode:
            {
                int mode = -1;
                for (int m = 0; m < static_cast<int>(sizeof(s_aModeNames) / sizeof(s_aModeNames[0])); ++m)
                    if (s_aModeNames[m] && std::strcmp(s_aModeNames[m], value) == 0) mode = m;
                if (ZEM_ASSERT(mode >= 0, "Unknown ZemEngine mode %s", value))
                    desc.m_eMode = static_cast<Mode::Type>(mode);
                break;
            }
            case OptionKind::RpcBind:
                CopyText(option->m_szName, value, desc.m_szRpcBindAddress, sizeof(desc.m_szRpcBindAddress));
                break;
            }
        }
        return 1;
    }

    const char* CEngine::GetCommandLineHelp()
    {
        static char s_szHelp[2048];
        if (!s_szHelp[0])
        {
            size_t used = 0;
            for (const OptionDesc& o : s_aOptions)
            {
                char left[64];
                std::snprintf(left, sizeof(left), "%s%s%s", o.m_szName, o.m_szValue ? " " : "",
                              o.m_szValue ? o.m_szValue : "");
                const int n = std::snprintf(s_szHelp + used, sizeof(s_szHelp) - used, "  %-22s %s\n", left, o.m_szHelp);
                if (n < 0 || used + static_cast<size_t>(n) >= sizeof(s_szHelp)) break;
                used += static_cast<size_t>(n);
            }
        }
        return s_szHelp;
    }

    const char* CEngine::GetPluginRoot(Mode::Type mode) { return Mode::IsToolMode(mode) ? "" : "../Toolchain/"; }

    // ---- start and stop ------------------------------------------------------------------

    bool CEngine::InitRpcConnection(int port, const char* bindAddress)
    {
        Common::Log("starting RPC host\n");
        if (!m_pEngineNet) m_pEngineNet = MEM_NEW(CEngineNet);
        if (!m_pEngineNet) return false;
        // The classes register before the host opens: no client sees a half-filled table.
        bool ok = m_pEngineNet->Init(-1);
        if (ok)
        {
            m_pEngineNet->SetCommandWakeup(&m_kQueueWakeup);
            ok = m_pEngineNet->StartHost(port, bindAddress);
        }
        if (!ok)
        {
            Common::Log("[Engine] No remote host on %s:%d: the engine runs without remote calls\n", bindAddress, port);
            MEM_DELETE(m_pEngineNet);
            m_pEngineNet = nullptr;
            return false;
        }
        Common::Log("[Engine] RPC host listening on %s:%d\n", bindAddress, m_pEngineNet->GetHost()->GetPort());
        return true;
    }

    int CEngine::GetRpcPort() const
    {
        return m_pEngineNet && m_pEngineNet->GetHost() ? m_pEngineNet->GetHost()->GetPort() : -1;
    }

    bool CEngine::Init(const EngineInitDesc& desc)
    {
        if (!ZEM_ASSERT(!m_bInitialised, "CEngine::Init called twice")) return false;
        m_bInitialised = true;
        ZEM_ASSERT(desc.m_pHandle != nullptr, "window handle is NULL !");
        m_kDesc = desc;
        const NativeHandle window = desc.m_pHandle ? *desc.m_pHandle : 0;
        m_eMode = desc.m_eMode;
        m_pCommandWakeup = desc.m_pCommandWakeup;

        if (desc.m_iRpcPort != -1)
        {
            const int port = desc.m_iRpcPort < -1 || desc.m_iRpcPort > 65535 ? -2 : desc.m_iRpcPort;
            if (port == -2)
                Common::Log("[Engine] -rpcport %d is not a port: the engine runs without remote calls\n",
                            desc.m_iRpcPort);
            else
                InitRpcConnection(port, desc.m_szRpcBindAddress[0] ? desc.m_szRpcBindAddress
                                                                    : CEngineNet::kDefaultBindAddress);
        }

        if (desc.m_szAssetsRoot[0])
        {
            if (Common::CFileSystem::GetInstance()->SetDirectory(desc.m_szAssetsRoot, Common::CFileSystem::AssetsRoot))
                Common::Log("[Engine] assets root %s\n", desc.m_szAssetsRoot);
        }

        m_uRenderFrameCount = desc.m_uRenderFrameCount;
        m_pfnCreateView = desc.m_pfnCreateView;
        Common::Mem::MemoryTag tag("EngineInit");

        if (m_eMode != Mode::None) LogAbsent("EditorManager");
        // Before the plugins, which are handed it.
        DataProvider::DataPoviderInterface* dataProvider =
            DataProvider::CreateEngineDataProvider(desc.m_szDataProviderAddress);
        if (dataProvider)
        {
            RegisterInstance<DataProvider::DataPoviderInterface>(dataProvider);
            Common::Log("[Engine] data provider %s\n", desc.m_bUseDataProvider ? "with the asset manager"
                                                                               : "without an asset manager (-nodp)");
            dataProvider->Init(nullptr, desc.m_bUseDataProvider, desc.m_uDataProviderTimeout);
        }

        m_pPluginManager = MEM_NEW(BasePluginManager, this, dataProvider, static_cast<int>(m_eMode));
        if (desc.m_bLoadPlugins && m_pPluginManager) m_pPluginManager->LoadPlugins(GetPluginRoot(m_eMode));
        if (desc.m_pfnAfterPlugins) desc.m_pfnAfterPlugins(m_pPluginManager);

        if (desc.m_bCreateDevice)
        {
            m_pDevice = MEM_NEW(CEngineDevice);
            if (!m_pDevice->Start(desc.m_pDeviceWindow, desc.m_uiWidth, desc.m_uiHeight))
            {
                MEM_DELETE(m_pDevice);
                m_pDevice = nullptr;
            }
            LogAbsent("CRenderer (render contexts, materials, lights, probes)");
        }
        else
            LogAbsent("CRenderer (device, render thread, materials, lights, probes)");
        m_hMainWindow = window;
        LogAbsent("world manager");
        if (desc.m_bCreateGameControls) LogAbsent("game controls");
        LogAbsent("sound system");
        if (desc.m_bCreateMainCamera) LogAbsent("main camera \"mainview\"");

        const int64_t now = GetClockMs();
        m_uiStartTime = desc.m_pStartTime < 0 ? static_cast<uint64_t>(now) : static_cast<uint64_t>(desc.m_pStartTime);
        m_uiCurrentTime = m_uiStartTime;
        m_uiLastTime = m_uiStartTime;
        m_bClockStarted = true;
        m_iFixedAccumulator = 0;
        m_iElapsedTime = 0;
        m_iSinceKeepAlive = 0;
        const uint32_t clock = static_cast<uint32_t>(std::time(nullptr)) ^ static_cast<uint32_t>(now);
        Common::Math::SeedRandom(clock);
        m_uiRandomSeed = clock + Common::Math::Rand32();
        Common::Math::SeedRandom(m_uiRandomSeed);

        // No time limit: an engine without its assets has nothing to show. The wait says
        // once a second what it waits for.
        if (dataProvider) DataProvider::WaitForDataProvider(dataProvider);

        LogAbsent("main viewport \"mainview\"");
        LogAbsent("ZemGui system");
        return true;
    }

    void CEngine::Destroy()
    {
        // Clients go first: no connection may reach an object while it is torn down.
        if (m_pEngineNet && m_pEngineNet->GetHost()) m_pEngineNet->GetHost()->Stop();

        ReleaseActors();
        m_pMainCamera = nullptr;
        m_kCameras.Clear();

        if (m_pPluginManager)
        {
            void* block = dynamic_cast<void*>(m_pPluginManager);
            m_pPluginManager->~IPluginManager();
            MEM_FREE(block);
            m_pPluginManager = nullptr;
        }

        // After the plugins, which may use it until they are released.
        if (DataProvider::DataPoviderInterface* dataProvider = GetRegisteredInstance<DataProvider::DataPoviderInterface>())
        {
            UnregisterInstanceByID(GetInstanceTypeID<DataProvider::DataPoviderInterface>(), dataProvider);
            DataProvider::DestroyEngineDataProvider(dataProvider);
        }

        // The render thread's stop chain, then the device with it.
        if (m_pDevice)
        {
            MEM_DELETE(m_pDevice);
            m_pDevice = nullptr;
        }

        if (m_pEngineNet)
        {
            MEM_DELETE(m_pEngineNet);
            m_pEngineNet = nullptr;
        }
        m_aWorlds.Clear();
        m_dInstances.Clear();
        m_aDropFiles.Clear();
        m_bInitialised = false;

        if (s_pInstance == this)
        {
            s_pInstance = nullptr;
            MEM_DELETE(this);
        }
    }

    // ---- time ------------------------------------------------------------------------------

    int64_t CEngine::GetClockMs()
    {
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    }

    void CEngine::AdvanceTime(int64_t deltaMs)
    {
        if (deltaMs < 0) deltaMs = 0;
        m_kFrameTime = deltaMs;
        m_kScaledFrameTime = static_cast<int64_t>(static_cast<double>(deltaMs) * m_fTimeScale);
        if (m_kScaledFrameTime < 0) m_kScaledFrameTime = 0;
        m_kFixedStep = kFixedStepMs;
        m_iFixedAccumulator += m_kScaledFrameTime;
        m_iElapsedTime += m_kScaledFrameTime;
        m_iSinceKeepAlive += m_kScaledFrameTime;
    }

    void CEngine::Tick(int64_t nowMs)
    {
        // The first reading of a clock that Init did not start gives no time at all.
        if (!m_bClockStarted)
        {
            m_uiLastTime = static_cast<uint64_t>(nowMs);
            m_bClockStarted = true;
        }
        m_uiCurrentTime = static_cast<uint64_t>(nowMs);
        AdvanceTime(nowMs - static_cast<int64_t>(m_uiLastTime));
        m_uiLastTime = m_uiCurrentTime;
    }

    void CEngine::TickFixed(int64_t deltaMs)
    {
        m_uiCurrentTime = static_cast<uint64_t>(GetClockMs());
        AdvanceTime(deltaMs);
        m_uiLastTime = m_uiCurrentTime;
        m_bClockStarted = true;
    }

    void CEngine::FixedUpdate()
    {
        while (m_kFixedStep > 0 && m_iFixedAccumulator >= m_kFixedStep)
        {
            // By index: an actor may register another while it is stepped.
            for (unsigned int i = 0; i < m_kActors.GetSize(); ++i) m_kActors.GetValueAt(i)->FixedUpdate(m_kFixedStep);
            m_iFixedAccumulator -= m_kFixedStep;
        }
        if (m_pfnTick) m_pfnTick(m_kScaledFrameTime);
    }

    void CEngine::Update()
    {
        for (unsigned int i = 0; i < m_kActors.GetSize(); ++i) m_kActors.GetValueAt(i)->Update(m_kScaledFrameTime);
        if (m_pDevice)
            m_pDevice->Frame(static_cast<float>(m_iElapsedTime) / 1000.0f, static_cast<float>(kFixedStepMs) / 1000.0f);
    }

    bool CEngine::IsDrawing() const { return m_pDevice && m_pDevice->IsRunning(); }

    // ---- repaint and wake-up -----------------------------------------------------------------

    void CEngine::RequestRepaint(bool counted)
    {
        if (counted) m_iPendingRepaints.fetch_add(1, std::memory_order_acq_rel);
        m_bRepaintRequested.store(true, std::memory_order_release);
        // A host asleep in its loop has to notice.
        PostCommandWakeup();
    }

    void CEngine::CancelRepaint(bool counted)
    {
        if (counted)
        {
            int pending = m_iPendingRepaints.load(std::memory_order_acquire);
            while (pending > 0)
                if (m_iPendingRepaints.compare_exchange_weak(pending, pending - 1, std::memory_order_acq_rel)) return;
        }
        RequestRepaint(false);
    }

    void CEngine::PostCommandWakeup()
    {
        if (m_pCommandWakeup) m_pCommandWakeup->PostCommandWakeup();
    }

    void CEngine::SendCommandWakeup()
    {
        if (m_pCommandWakeup) m_pCommandWakeup->SendCommandWakeup();
    }

    // ---- published singletons ----------------------------------------------------------------

    void CEngine::RegisterInstanceByID(unsigned int id, void* object)
    {
        ZEM_ASSERT(!m_dInstances.Contains(id), "Instance already registered.");
        m_dInstances.Insert(id, object);
    }

    void* CEngine::GetRegisteredInstanceByID(unsigned int id) const { return m_dInstances.Find(id); }

    void CEngine::UnregisterInstanceByID(unsigned int id, void* object)
    {
        const unsigned int i = m_dInstances.FindIndex(id);
        if (i != m_dInstances.npos && m_dInstances.GetValueAt(i) == object) m_dInstances.RemoveAt(i);
    }

    // ---- actors, cameras, worlds ---------------------------------------------------------------

    bool CEngine::RegisterActor(CActor* actor)
    {
        if (!ZEM_ASSERT(actor != nullptr, "null actor")) return false;
        const unsigned long long key = reinterpret_cast<uintptr_t>(actor);
        if (!ZEM_ASSERT(!m_kActors.Contains(key), "Already Registered Actor")) return false;
        m_kActors.Insert(key, actor);
        return true;
    }

    bool CEngine::IsActorRegistered(CActor* actor) const
    {
        return actor && m_kActors.Contains(reinterpret_cast<uintptr_t>(actor));
    }

    bool CEngine::UnregisterActor(CActor* actor)
    {
        const unsigned int i = m_kActors.FindIndex(reinterpret_cast<uintptr_t>(actor));
        if (i == m_kActors.npos) return false;
        m_kActors.RemoveAt(i);
        for (unsigned int c = m_kCameras.GetSize(); c-- > 0;)
            if (static_cast<CActor*>(m_kCameras.GetValueAt(c)) == actor) m_kCameras.RemoveAt(c);
        if (static_cast<CActor*>(m_pMainCamera) == actor) m_pMainCamera = nullptr;
        return true;
    }

    void CEngine::ReleaseActors()
    {
        // Last to first; an actor's destructor may still look its peers up.
        while (!m_kActors.IsEmpty())
        {
            const unsigned int last = m_kActors.GetSize() - 1;
            CActor* actor = m_kActors.GetValueAt(last);
            m_kActors.RemoveAt(last);
            DeleteActor(actor);
        }
    }

    CActorCamera* CEngine::GetCamera(const char* name) const
    {
        if (!name) return m_pMainCamera;
        return m_kCameras.Find(GenerateUIntIdFromString(name));
    }

    CActorCamera* CEngine::AddCamera(const char* name, NativeHandle, void*)
    {
        if (CActorCamera* camera = GetCamera(name)) return camera;
        Common::Log("[Engine] AddCamera(%s): camera actors are not part of this build\n", name ? name : "NULL");
        return nullptr;
    }

    bool CEngine::SetCamera(const char* name, CActorCamera* camera)
    {
        if (!ZEM_ASSERT(name != nullptr && camera != nullptr, "SetCamera needs a name and a camera")) return false;
        if (!IsActorRegistered(camera) && !RegisterActor(camera)) return false;
        m_kCameras.Insert(GenerateUIntIdFromString(name), camera);
        if (std::strcmp(name, "mainview") == 0) m_pMainCamera = camera;
        return true;
    }

    void CEngine::RemoveCamera(const char* name)
    {
        if (!name) return;
        const unsigned int i = m_kCameras.FindIndex(GenerateUIntIdFromString(name));
        if (i == m_kCameras.npos) return;
        CActorCamera* camera = m_kCameras.GetValueAt(i);
        m_kCameras.RemoveAt(i);
        if (camera == m_pMainCamera) m_pMainCamera = nullptr;
        if (UnregisterActor(camera)) DeleteActor(camera);
    }

    void CEngine::RegisterWorld(CWorldInstance* world)
    {
        if (ZEM_ASSERT(world != nullptr, "null world")) m_aWorlds.Add(world);
    }

    void CEngine::UnregisterWorld(CWorldInstance* world)
    {
        for (unsigned int i = 0; i < m_aWorlds.GetSize(); ++i)
            if (m_aWorlds[i] == world)
            {
                m_aWorlds.Remove(i);
                return;
            }
        ZEM_ASSERT(false, "Cannot UnregisterWorld");
    }

    void CEngine::AddDropFile(const char* path)
    {
        if (path && path[0]) m_aDropFiles.Add(Common::String(path));
    }
}
