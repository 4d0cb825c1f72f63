#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemengine/engine/Engine.h"
#include "zemengine/engine/EngineNet.h"

using ZemEngine::CEngine;
using ZemEngine::EngineInitDesc;
namespace Mode = ZemEngine::Mode;

namespace
{
    std::vector<std::string> Words(const char* line)
    {
        std::vector<std::string> out;
        for (const Common::String& s : CEngine::TokenizeCommandLine(line)) out.emplace_back(s.c_str());
        return out;
    }

    TEST(EngineCommandLine, Tokenizer)
    {
        struct Case
        {
            const char* line;
            std::vector<std::string> words;
        };
        const Case cases[] = {
            {"", {}},
            {"   \t ", {}},
            {"-debug", {"-debug"}},
            {"  -width   800\t-height 600  ", {"-width", "800", "-height", "600"}},
            {"-assetsRoot \"/data/My Assets/x\" -debug", {"-assetsRoot", "/data/My Assets/x", "-debug"}},
            {"-dpaddress \"\" -nodp", {"-dpaddress", "", "-nodp"}},
            {"\"a\"b", {"a", "b"}},
            {"ab\"cd", {"ab\"cd"}},
            {"-mode \"world_editor", {"-mode"}},
            {"x \"unclosed with blanks", {"x"}},
        };
        for (const Case& c : cases) EXPECT_EQ(Words(c.line), c.words) << "line: [" << c.line << "]";
        EXPECT_TRUE(Words(nullptr).empty());
    }

    TEST(EngineCommandLine, TokenizerLimits)
    {
        // A word is cut at 1023 characters.
        const std::string longWord(1500, 'w');
        std::vector<std::string> words = Words(("-a " + longWord + " -b").c_str());
        ASSERT_EQ(words.size(), 3u);
        EXPECT_EQ(words[1], std::string(1023, 'w'));
        EXPECT_EQ(words[2], "-b");

        // Only the first 4094 characters are looked at: the word that straddles the
        // limit ends there and what follows is gone.
        std::string line(4090, ' ');
        line += "abcdefgh -debug";
        words = Words(line.c_str());
        ASSERT_EQ(words.size(), 1u);
        EXPECT_EQ(words[0], "abcd");
    }

    TEST(EngineCommandLine, EveryOption)
    {
        EngineInitDesc desc;
        ZemEngine::NativeHandle handle = 0;
        desc.m_pHandle = &handle;
        unsigned int timeout = 0;
        const char* line =
            "-handle 77 -timeout 5000 -rpcport 27922 -dpaddress 10.0.0.7 -width 800 -height 600 -debug -grafcet "
            "-nodp -assetsRoot \"/srv/game data\" -mode prefab_editor -rpcbind 0.0.0.0";
        EXPECT_EQ(CEngine::ParseCommandLine(desc, timeout, line), 1);
        EXPECT_EQ(handle, 77u);
        EXPECT_EQ(timeout, 5000u);
        EXPECT_EQ(desc.m_iRpcPort, 27922);
        EXPECT_STREQ(desc.m_szDataProviderAddress, "10.0.0.7");
        EXPECT_EQ(desc.m_uiWidth, 800u);
        EXPECT_EQ(desc.m_uiHeight, 600u);
        EXPECT_TRUE(desc.m_bDebug);
        EXPECT_TRUE(desc.m_bGrafcet);
        EXPECT_FALSE(desc.m_bUseDataProvider);
        EXPECT_STREQ(desc.m_szAssetsRoot, "/srv/game data");
        EXPECT_EQ(desc.m_eMode, Mode::PrefabEditor);
        EXPECT_STREQ(desc.m_szRpcBindAddress, "0.0.0.0");
    }

    TEST(EngineCommandLine, BadInput)
    {
        struct Case
        {
            const char* line;
            const char* logged;
        };
        const Case cases[] = {
            {"-mode space_editor", "Unknown ZemEngine mode space_editor"},
            {"-mode World_Editor", "Unknown ZemEngine mode World_Editor"},
            {"-frobnicate 3 -debug", "unknown word \"-frobnicate\""},
            {"-width abc", "\"abc\" is not a number"},
            {"-rpcport", "-rpcport needs a value"},
            {"-rpcport abc", "-rpcport \"abc\" is not a port number"},
            {"-rpcport 12x", "-rpcport \"12x\" is not a port number"},
            {"-dpaddress \"never closed", "without its closing quote"},
        };
        for (const Case& c : cases)
        {
            Common::ScopedLogCapture log;
            EngineInitDesc desc;
            desc.m_eMode = Mode::LightEditor;
            desc.m_uiWidth = 1;
            unsigned int timeout = 0;
            EXPECT_EQ(CEngine::ParseCommandLine(desc, timeout, c.line), 1);
            EXPECT_TRUE(log.Contains(c.logged)) << c.line << "\n" << log.Text();
            EXPECT_EQ(desc.m_eMode, Mode::LightEditor) << c.line;
            EXPECT_EQ(desc.m_iRpcPort, -1) << c.line;
        }

        // Other numbers read as the standard conversion does: leading digits, or 0. A port
        // of 0 still asks for any free port.
        EngineInitDesc desc;
        unsigned int timeout = 0;
        CEngine::ParseCommandLine(desc, timeout, "-width abc -height 480px -rpcport 0 -timeout -5 -debug");
        EXPECT_EQ(desc.m_uiWidth, 0u);
        EXPECT_EQ(desc.m_uiHeight, 480u);
        EXPECT_EQ(desc.m_iRpcPort, 0);
        EXPECT_EQ(timeout, 0u);
        EXPECT_TRUE(desc.m_bDebug);

        // A host that gives no handle to fill loses nothing else.
        EngineInitDesc noHandle;
        CEngine::ParseCommandLine(noHandle, timeout, "-handle 5 -width 640");
        EXPECT_EQ(noHandle.m_uiWidth, 640u);

        // A value too long for its field is refused, the field kept.
        const std::string longBind = "-rpcbind " + std::string(100, '1');
        CEngine::ParseCommandLine(desc, timeout, longBind.c_str());
        EXPECT_STREQ(desc.m_szRpcBindAddress, "127.0.0.1");
    }

    TEST(EngineModes, ToolModesAndPluginRoot)
    {
        const struct
        {
            Mode::Type mode;
            bool tool;
            const char* name;
        } cases[] = {
            {Mode::None, false, nullptr},          {Mode::Host1, false, nullptr},
            {Mode::Host2, false, nullptr},         {Mode::MaterialEditor, true, "material_editor"},
            {Mode::WorldEditor, true, "world_editor"}, {Mode::PrefabEditor, true, "prefab_editor"},
            {Mode::LightEditor, true, "light_editor"},
        };
        for (const auto& c : cases)
        {
            EXPECT_EQ(Mode::IsToolMode(c.mode), c.tool) << c.mode;
            EXPECT_STREQ(Mode::GetName(c.mode), c.name);
            EXPECT_STREQ(CEngine::GetPluginRoot(c.mode), c.tool ? "" : "../Toolchain/");
            // Every tool mode's word selects it again.
            if (c.name)
            {
                EngineInitDesc desc;
                unsigned int timeout = 0;
                CEngine::ParseCommandLine(desc, timeout, (std::string("-mode ") + c.name).c_str());
                EXPECT_EQ(desc.m_eMode, c.mode);
            }
        }
    }

    // Counts the steps it is given and notes its own destruction.
    class CCountingActor : public ZemEngine::CActor
    {
    public:
        CCountingActor(std::vector<int>* destroyed, int id) : m_pDestroyed(destroyed), m_iId(id) {}
        ~CCountingActor() override
        {
            if (m_pDestroyed) m_pDestroyed->push_back(m_iId);
        }
        bool FixedUpdate(int64_t stepMs) override
        {
            ++m_iFixedSteps;
            m_iLastStep = stepMs;
            return true;
        }
        bool Update(int64_t scaledMs) override
        {
            ++m_iUpdates;
            m_iLastUpdate = scaledMs;
            return true;
        }

        std::vector<int>* m_pDestroyed;
        int m_iId;
        int m_iFixedSteps = 0;
        int m_iUpdates = 0;
        int64_t m_iLastStep = 0;
        int64_t m_iLastUpdate = 0;
    };

    TEST(EngineTime, FixedStepsFromTickFixed)
    {
        const struct
        {
            int64_t delta;
            float scale;
            int steps;
            int64_t left;
        } cases[] = {
            {30, 1.0f, 0, 30}, {50, 1.0f, 1, 0},  {120, 1.0f, 2, 20}, {99, 1.0f, 1, 49},
            {120, 0.0f, 0, 0}, {120, 0.5f, 1, 10}, {-40, 1.0f, 0, 0},  {1000, 1.0f, 20, 0},
        };
        for (const auto& c : cases)
        {
            CEngine engine;
            CCountingActor* actor = MEM_NEW(CCountingActor, nullptr, 0);
            ASSERT_TRUE(engine.RegisterActor(actor));
            engine.SetTimeScale(c.scale);
            engine.TickFixed(c.delta);
            engine.FixedUpdate();
            EXPECT_EQ(actor->m_iFixedSteps, c.steps) << c.delta << " ms at " << c.scale;
            EXPECT_EQ(engine.GetFixedAccumulator(), c.left) << c.delta << " ms at " << c.scale;
            if (c.steps)
            {
                EXPECT_EQ(actor->m_iLastStep, CEngine::kFixedStepMs);
            }
            engine.Update();
            EXPECT_EQ(actor->m_iUpdates, 1);
            EXPECT_EQ(actor->m_iLastUpdate, engine.GetScaledFrameTime());
            engine.Destroy();
            EXPECT_EQ(engine.GetActorCount(), 0u);
        }
    }

    TEST(EngineTime, TickTakesDeltasAndCarriesTheRemainder)
    {
        CEngine engine;
        CCountingActor* actor = MEM_NEW(CCountingActor, nullptr, 0);
        engine.RegisterActor(actor);
        static int64_t s_iTicked = -1;
        engine.SetTickCallback([](int64_t ms) { s_iTicked = ms; });

        engine.Tick(10000);  // the first reading only starts the clock
        engine.FixedUpdate();
        EXPECT_EQ(engine.GetFrameTime(), 0);
        EXPECT_EQ(actor->m_iFixedSteps, 0);
        EXPECT_EQ(s_iTicked, 0);

        engine.Tick(10120);
        engine.FixedUpdate();
        EXPECT_EQ(actor->m_iFixedSteps, 2);
        EXPECT_EQ(engine.GetFixedAccumulator(), 20);
        EXPECT_EQ(s_iTicked, 120);

        engine.Tick(10150);  // 20 left + 30 makes one more step
        engine.FixedUpdate();
        EXPECT_EQ(actor->m_iFixedSteps, 3);
        EXPECT_EQ(engine.GetFixedAccumulator(), 0);
        EXPECT_EQ(engine.GetElapsedTime(), 150);
        EXPECT_EQ(engine.GetCurrentTime(), 10150u);
        EXPECT_EQ(engine.GetFixedStep(), CEngine::kFixedStepMs);

        engine.Tick(10100);  // a clock going back gives no time
        EXPECT_EQ(engine.GetFrameTime(), 0);
        engine.Destroy();
    }

    TEST(EngineActors, RegistrationAndReleaseOrder)
    {
        std::vector<int> destroyed;
        {
            CEngine engine;
            // Keys are addresses: release runs from the highest key down.
            std::vector<CCountingActor*> actors;
            for (int i = 0; i < 4; ++i)
            {
                actors.push_back(MEM_NEW(CCountingActor, &destroyed, i));
                ASSERT_TRUE(engine.RegisterActor(actors.back()));
            }
            {
                Common::ScopedLogCapture log;
                EXPECT_FALSE(engine.RegisterActor(actors[1]));
                EXPECT_TRUE(log.Contains("Already Registered Actor"));
            }
            EXPECT_TRUE(engine.IsActorRegistered(actors[2]));
            EXPECT_EQ(engine.GetActorCount(), 4u);
            EXPECT_TRUE(engine.UnregisterActor(actors[3]));
            EXPECT_FALSE(engine.IsActorRegistered(actors[3]));
            MEM_DELETE(actors[3]);
            destroyed.clear();

            std::vector<CCountingActor*> byKey(actors.begin(), actors.begin() + 3);
            std::sort(byKey.begin(), byKey.end());
            std::vector<int> expected;
            for (size_t i = 3; i-- > 0;) expected.push_back(byKey[i]->m_iId);
            engine.Destroy();
            EXPECT_EQ(destroyed, expected);
        }
    }

    struct CFirstModule
    {
        int m_iValue = 1;
    };
    struct CSecondModule
    {
        int m_iValue = 2;
    };

    TEST(EngineInstances, PublishFindReplace)
    {
        CEngine engine;
        CFirstModule first, replacement;
        CSecondModule second;
        EXPECT_EQ(engine.GetRegisteredInstance<CFirstModule>(), nullptr);
        engine.RegisterInstance(&first);
        engine.RegisterInstance(&second);
        EXPECT_EQ(engine.GetRegisteredInstance<CFirstModule>(), &first);
        EXPECT_EQ(engine.GetRegisteredInstance<CSecondModule>(), &second);
        {
            Common::ScopedLogCapture log;
            engine.RegisterInstance(&replacement);
            EXPECT_TRUE(log.Contains("Instance already registered."));
        }
        EXPECT_EQ(engine.GetRegisteredInstance<CFirstModule>(), &replacement);
        // Only the holder of the entry takes it out.
        engine.UnregisterInstanceByID(CEngine::GetInstanceTypeID<CFirstModule>(), &first);
        EXPECT_EQ(engine.GetRegisteredInstance<CFirstModule>(), &replacement);
        engine.UnregisterInstanceByID(CEngine::GetInstanceTypeID<CFirstModule>(), &replacement);
        EXPECT_EQ(engine.GetRegisteredInstance<CFirstModule>(), nullptr);
    }

    class CCountingWakeup : public ZemEngine::ICommandWakeup
    {
    public:
        void PostCommandWakeup() override { ++m_iPosted; }
        void SendCommandWakeup() override { ++m_iSent; }
        int m_iPosted = 0;
        int m_iSent = 0;
    };

    TEST(EngineRepaint, CountedRequestsAndWakeups)
    {
        CEngine engine;
        CCountingWakeup wakeup;
        engine.SetCommandWakeup(&wakeup);
        EXPECT_FALSE(engine.TakeRepaintRequest());
        engine.RequestRepaint(true);
        engine.RequestRepaint(true);
        EXPECT_EQ(engine.GetPendingRepaints(), 2);
        EXPECT_TRUE(engine.TakeRepaintRequest());
        EXPECT_FALSE(engine.TakeRepaintRequest());
        engine.CancelRepaint(true);
        EXPECT_EQ(engine.GetPendingRepaints(), 1);
        EXPECT_FALSE(engine.TakeRepaintRequest());
        // Uncounted, or counted with nothing pending: a plain repaint.
        engine.CancelRepaint(false);
        EXPECT_EQ(engine.GetPendingRepaints(), 1);
        EXPECT_TRUE(engine.TakeRepaintRequest());
        engine.CancelRepaint(true);
        engine.CancelRepaint(true);
        EXPECT_EQ(engine.GetPendingRepaints(), 0);
        EXPECT_TRUE(engine.TakeRepaintRequest());
        EXPECT_EQ(wakeup.m_iPosted, 4);
        engine.SendCommandWakeup();
        EXPECT_EQ(wakeup.m_iSent, 1);
    }

    int ConnectTo(int port)
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

    EngineInitDesc HeadlessDesc(ZemEngine::NativeHandle* handle, int port)
    {
        EngineInitDesc desc;
        desc.m_pHandle = handle;
        desc.m_iRpcPort = port;
        desc.m_bLoadPlugins = false;
        // The data provider has tests of its own; these must not start an asset manager.
        desc.m_bUseDataProvider = false;
        return desc;
    }

    TEST(EngineLifecycle, InitAndDestroyWithAClientConnected)
    {
        ZemEngine::NativeHandle handle = 0;
        CEngine* engine = CEngine::GetInstance();
        ASSERT_EQ(CEngine::PeekInstance(), engine);
        Common::ScopedLogCapture log;
        ASSERT_TRUE(engine->Init(HeadlessDesc(&handle, 0)));
        EXPECT_TRUE(log.Contains("starting RPC host"));
        // Each subsystem this build lacks is named as skipped.
        for (const char* absent : {"data provider", "CRenderer", "world manager", "sound system", "ZemGui"})
            EXPECT_TRUE(log.Contains(absent)) << absent;
        EXPECT_TRUE(log.Contains("not part of this build, skipped"));
        EXPECT_EQ(engine->GetPluginManager() != nullptr, true);
        const int port = engine->GetRpcPort();
        ASSERT_GT(port, 0);
        EXPECT_NE(engine->GetStartTime(), 0u);

        const int client = ConnectTo(port);
        ASSERT_GE(client, 0);
        for (int i = 0; i < 200 && engine->GetEngineNet()->GetHost()->GetConnectionCount() == 0; ++i) usleep(5000);
        EXPECT_EQ(engine->GetEngineNet()->GetHost()->GetConnectionCount(), 1u);

        engine->Destroy();
        EXPECT_EQ(CEngine::PeekInstance(), nullptr);
        // The engine closed its side: the client reads the end of the stream.
        char byte;
        EXPECT_LE(recv(client, &byte, 1, 0), 0);
        close(client);
        // The port is free again.
        EXPECT_LT(ConnectTo(port), 0);
    }

    TEST(EngineLifecycle, NullHandleAndNoRemoteHost)
    {
        EngineInitDesc desc;
        desc.m_bLoadPlugins = false;
        // The data provider has tests of its own; these must not start an asset manager.
        desc.m_bUseDataProvider = false;
        desc.m_eMode = Mode::WorldEditor;
        CEngine* engine = CEngine::GetInstance();
        Common::ScopedLogCapture log;
        EXPECT_TRUE(engine->Init(desc));
        EXPECT_TRUE(log.Contains("window handle is NULL !"));
        EXPECT_TRUE(log.Contains("EditorManager"));
        EXPECT_FALSE(log.Contains("starting RPC host"));
        EXPECT_EQ(engine->GetEngineNet(), nullptr);
        EXPECT_EQ(engine->GetMode(), Mode::WorldEditor);
        engine->Destroy();
    }
}
