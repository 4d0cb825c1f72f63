#pragma once
// The one object that owns the top-level parts of a running engine. A host makes it,
// parses its command line, calls Init with the description, ticks it from its own loop
// and calls Destroy at the end. A plugin library points its private instance pointer at
// the host's engine before it calls anything else.
#include <atomic>
#include <cstdint>
#include <typeinfo>

#include "common/utils/Hash.h"
#include "common/utils/String.h"
#include "common/utils/TArray.h"
#include "common/utils/TMap.h"
#include "zemengine/core/commandmanager/CommandQueue.h"
#include "zemengine/engine/EngineActor.h"

namespace ZemEngine
{
    class CEngineNet;
    class CEngineDevice;
    class IPluginManager;
    class CWorldInstance;

    namespace Mode
    {
        enum Type
        {
            None = 0,
            Host1 = 1,
            Host2 = 2,
            MaterialEditor = 3,
            WorldEditor = 4,
            PrefabEditor = 5,
            LightEditor = 6,
        };

        // Modes 3 to 6, in which an editing tool drives the engine.
        constexpr unsigned int kToolModeMask = 0x78;
        constexpr bool IsToolMode(Type mode)
        {
            return mode >= 0 && mode < 32 && ((1u << static_cast<unsigned int>(mode)) & kToolModeMask) != 0;
        }
        // The "-mode" word of a tool mode; null for the others.
        const char* GetName(Type mode);
    }

    // A native window handle: an opaque pointer-sized value (0 when headless).
    typedef uintptr_t NativeHandle;

    // Makes a native window for a new viewport; null when it can't.
    typedef NativeHandle (*PFNCreateView)(unsigned int width, unsigned int height, NativeHandle parent);
    // Called with the plugin manager once the plugins are loaded.
    typedef void (*PFNAfterPlugins)(IPluginManager* pluginManager);
    // Called at the end of each FixedUpdate with the frame's scaled milliseconds.
    typedef void (*PFNEngineTick)(int64_t scaledMs);

    struct EngineInitDesc
    {
        static constexpr unsigned int kAssetsRootSize = 1024;
        static constexpr unsigned int kAddressSize = 256;
        static constexpr unsigned int kBindAddressSize = 64;

        unsigned int m_uiWidth = 1280;
        unsigned int m_uiHeight = 720;
        // Required; "-handle" fills what it points to.
        NativeHandle* m_pHandle = nullptr;
        bool m_bWindowed = true;
        void* m_pRenderConfig = nullptr;
        // Milliseconds; negative: read the clock at Init.
        intptr_t m_pStartTime = -1;
        Mode::Type m_eMode = Mode::None;
        PFNCreateView m_pfnCreateView = nullptr;
        bool m_bUseDataProvider = true;
        bool m_bGrafcet = false;
        bool m_bCreateGameControls = true;
        bool m_bCreateMainCamera = true;
        bool m_bDebug = false;
        char m_szAssetsRoot[kAssetsRootSize] = {};
        char m_szDataProviderAddress[kAddressSize] = {};
        unsigned int m_uDataProviderTimeout = 0;
        bool m_bLoadPlugins = true;
        unsigned int m_uRenderFrameCount = 1;
        bool m_bRendererOption = false;
        // -1: no remote calls; 0: any free port (see CEngine::GetRpcPort).
        int m_iRpcPort = -1;
        PFNAfterPlugins m_pfnAfterPlugins = nullptr;
        // Where the remote host listens ("-rpcbind"); anyone who reaches it controls the
        // engine, hence loopback by default.
        char m_szRpcBindAddress[kBindAddressSize] = "127.0.0.1";
        // How queued remote commands wake the host's main loop; null: the host polls.
        ICommandWakeup* m_pCommandWakeup = nullptr;
        // A host that shows frames asks for the drawing device; it draws into
        // m_pDeviceWindow (the host's SDL window made for OpenGL) or, when that is null,
        // off-screen.
        bool m_bCreateDevice = false;
        void* m_pDeviceWindow = nullptr;
    };

    class CEngine
    {
    public:
        // The fixed step of FixedUpdate, in milliseconds.
        static constexpr int64_t kFixedStepMs = 50;
        // The longest command line that is looked at.
        static constexpr unsigned int kMaxCommandLine = 4094;
        static constexpr unsigned int kMaxToken = 1023;

        typedef ZemRenderer::TArray<Common::String> TokenList;

        CEngine();
        ~CEngine();
        CEngine(const CEngine&) = delete;
        CEngine& operator=(const CEngine&) = delete;

        // The singleton, made with the memory manager on first use.
        static CEngine* GetInstance();
        // The singleton or null, without making one.
        static CEngine* PeekInstance();
        // A plugin points its copy at the host's engine.
        static void SetInstance(CEngine* engine);

        // Splits `line` into words (blanks separate, double quotes group) and reads the
        // options into `desc`; "-timeout" goes to `timeout`. Unknown words are skipped.
        // Returns 1.
        static int ParseCommandLine(EngineInitDesc& desc, unsigned int& timeout, const char* line);
        static TokenList TokenizeCommandLine(const char* line);
        // One line per option, for a host's --help.
        static const char* GetCommandLineHelp();

        // True on success. Subsystems that this build does not have are skipped with a
        // log line each.
        bool Init(const EngineInitDesc& desc);
        // Starts the remote host on `port` (0: any free port).
        bool InitRpcConnection(int port, const char* bindAddress = "127.0.0.1");
        // Stops everything in order. The singleton deletes itself: `this` is gone
        // afterwards. An engine that is not the singleton is only emptied.
        void Destroy();

        // ---- time ---------------------------------------------------------------
        void Tick(int64_t nowMs);
        void TickFixed(int64_t deltaMs);
        void FixedUpdate();
        void Update();
        // Milliseconds of the monotonic clock.
        static int64_t GetClockMs();

        // ---- repaint and wake-up ---------------------------------------------------
        void RequestRepaint(bool counted = false);
        void CancelRepaint(bool counted = false);
        // True once after each repaint request: the host redraws then.
        bool TakeRepaintRequest() { return m_bRepaintRequested.exchange(false, std::memory_order_acq_rel); }
        int GetPendingRepaints() const { return m_iPendingRepaints.load(std::memory_order_acquire); }
        void PostCommandWakeup();
        void SendCommandWakeup();
        void SetCommandWakeup(ICommandWakeup* wakeup) { m_pCommandWakeup = wakeup; }

        // ---- published singletons ------------------------------------------------
        template <class T>
        static unsigned int GetInstanceTypeID()
        {
            return GenerateUIntIdFromString(typeid(T).name());
        }
        // Publishes `object` as the module singleton of type T; an earlier one is
        // replaced after "Instance already registered.".
        template <class T>
        void RegisterInstance(T* object)
        {
            RegisterInstanceByID(GetInstanceTypeID<T>(), static_cast<void*>(object));
        }
        template <class T>
        T* GetRegisteredInstance() const
        {
            return static_cast<T*>(GetRegisteredInstanceByID(GetInstanceTypeID<T>()));
        }
        void RegisterInstanceByID(unsigned int id, void* object);
        void* GetRegisteredInstanceByID(unsigned int id) const;
        // Takes an entry out if it still holds `object`.
        void UnregisterInstanceByID(unsigned int id, void* object);

        // ---- actors, cameras, worlds -----------------------------------------------
        // The engine owns registered actors and deletes them in Destroy. False after
        // "Already Registered Actor" for one already there.
        bool RegisterActor(CActor* actor);
        bool IsActorRegistered(CActor* actor) const;
        // Takes the actor out without deleting it; false if it was not registered.
        bool UnregisterActor(CActor* actor);
        unsigned int GetActorCount() const { return m_kActors.GetSize(); }

        // The camera of that name, or null; a null name gives the main camera.
        CActorCamera* GetCamera(const char* name) const;
        // Returns the camera of that name if one exists. Camera actors are not part of
        // this build, so no new one is made: null.
        CActorCamera* AddCamera(const char* name, NativeHandle handle, void* controls);
        // Enters an existing camera actor under `name` (and registers it as an actor).
        bool SetCamera(const char* name, CActorCamera* camera);
        void RemoveCamera(const char* name);

        void RegisterWorld(CWorldInstance* world);
        void UnregisterWorld(CWorldInstance* world);
        unsigned int GetWorldCount() const { return m_aWorlds.GetSize(); }

        // ---- state the remote root reads and writes ---------------------------------
        Mode::Type GetMode() const { return m_eMode; }
        IPluginManager* GetPluginManager() const { return m_pPluginManager; }
        CEngineNet* GetEngineNet() const { return m_pEngineNet; }
        // The port the remote host listens on; -1 without one.
        int GetRpcPort() const;
        NativeHandle GetMainWindow() const { return m_hMainWindow; }
        // The render thread and its device run and frames are presented.
        bool IsDrawing() const;

        void SetFocus(bool focus) { m_bHasFocus = focus; }
        bool HasFocus() const { return m_bHasFocus; }
        void SetIgnoreDirty(bool ignore) { m_bIgnoreDirty = ignore; }
        bool GetIgnoreDirty() const { return m_bIgnoreDirty; }
        void KeepAlive()
        {
            m_uiKeepAliveTime = static_cast<uint64_t>(GetClockMs());
            m_iSinceKeepAlive = 0;
        }
        uint64_t GetKeepAliveTime() const { return m_uiKeepAliveTime; }
        // Scaled milliseconds ticked since the last KeepAlive (or Init).
        int64_t GetTimeSinceKeepAlive() const { return m_iSinceKeepAlive; }
        void SetPaused(bool paused) { m_bPaused = paused; }
        bool IsPaused() const { return m_bPaused; }

        // Files dropped on the window, in the order they came.
        void AddDropFile(const char* path);
        void ClearDropFiles() { m_aDropFiles.Clear(); }
        const ZemRenderer::TArray<Common::String>& GetDropFiles() const { return m_aDropFiles; }

        void SetTimeScale(float scale) { m_fTimeScale = scale; }
        float GetTimeScale() const { return m_fTimeScale; }
        void SetTickCallback(PFNEngineTick callback) { m_pfnTick = callback; }
        int64_t GetFixedAccumulator() const { return m_iFixedAccumulator; }
        int64_t GetElapsedTime() const { return m_iElapsedTime; }
        int64_t GetFrameTime() const { return m_kFrameTime; }
        int64_t GetScaledFrameTime() const { return m_kScaledFrameTime; }
        int64_t GetFixedStep() const { return m_kFixedStep; }
        uint64_t GetCurrentTime() const { return m_uiCurrentTime; }
        uint64_t GetStartTime() const { return m_uiStartTime; }
        uint32_t GetRandomSeed() const { return m_uiRandomSeed; }
        unsigned int GetRenderFrameCount() const { return m_uRenderFrameCount; }
        const EngineInitDesc& GetInitDesc() const { return m_kDesc; }

        // The plugin folder's root for a mode: empty in the tool modes, the toolchain
        // folder beside the working directory otherwise.
        static const char* GetPluginRoot(Mode::Type mode);

    private:
        class CWakeupForward : public ICommandWakeup
        {
        public:
            explicit CWakeupForward(CEngine* engine) : m_pEngine(engine) {}
            void PostCommandWakeup() override { m_pEngine->PostCommandWakeup(); }
            void SendCommandWakeup() override { m_pEngine->SendCommandWakeup(); }

        private:
            CEngine* m_pEngine;
        };

        void AdvanceTime(int64_t deltaMs);
        void ReleaseActors();

        PFNCreateView m_pfnCreateView = nullptr;
        PFNEngineTick m_pfnTick = nullptr;
        std::atomic<int> m_iPendingRepaints{0};
        std::atomic<bool> m_bRepaintRequested{false};
        ZemRenderer::TMap<unsigned int, CActorCamera*> m_kCameras;
        CActorCamera* m_pMainCamera = nullptr;
        uint64_t m_uiStartTime = 0;
        uint64_t m_uiCurrentTime = 0;
        uint64_t m_uiLastTime = 0;
        bool m_bClockStarted = false;
        int64_t m_iFixedAccumulator = 0;
        // Scaled time since Init.
        int64_t m_iElapsedTime = 0;
        int64_t m_iSinceKeepAlive = 0;
        uint32_t m_uiRandomSeed = 0;
        unsigned int m_uRenderFrameCount = 1;
        int64_t m_kFrameTime = 0;
        int64_t m_kScaledFrameTime = 0;
        int64_t m_kFixedStep = kFixedStepMs;
        float m_fTimeScale = 1.0f;
        bool m_bHasFocus = true;
        bool m_bIgnoreDirty = false;
        uint64_t m_uiKeepAliveTime = 0;
        NativeHandle m_hMainWindow = 0;
        CEngineDevice* m_pDevice = nullptr;
        ZemRenderer::TMap<unsigned long long, CActor*> m_kActors;
        ZemRenderer::TArray<Common::String> m_aDropFiles;
        IPluginManager* m_pPluginManager = nullptr;
        bool m_bPaused = false;
        CEngineNet* m_pEngineNet = nullptr;
        ZemRenderer::TArray<CWorldInstance*> m_aWorlds;
        ZemRenderer::TMap<unsigned int, void*> m_dInstances;

        Mode::Type m_eMode = Mode::None;
        ICommandWakeup* m_pCommandWakeup = nullptr;
        CWakeupForward m_kQueueWakeup{this};
        EngineInitDesc m_kDesc;
        bool m_bInitialised = false;
    };
}
