// The data provider against the disk, a real asset manager in this process, peers that
// misbehave, and the asset manager program started as a process.
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <sys/wait.h>

#include "common/system/debug/Log.h"
#include "zemengine/dataprovider/AssetManagerProcess.h"
#include "zemengine/dataprovider/AssetManagerServer.h"
#include "zemengine/dataprovider/DataProviderImpl.h"
#include "zemengine/dataprovider/EngineDataProvider.h"
#include "zemengine/dataprovider/tests/DataProviderTestKit.h"

using namespace DataProvider;
using namespace DataProviderTest;

namespace
{
    AssetQuery Query(const char* path, unsigned int type = kLinkType, const char* params = nullptr)
    {
        AssetQuery q;
        MakeAssetQuery(q, type, path);
        if (params) std::snprintf(q.m_szParams, sizeof(q.m_szParams), "%s", params);
        return q;
    }

    // A provider on `root`, initialised; `port` < 0: without an asset manager.
    struct CProvider
    {
        CProvider(const CTempRoot& root, int port, unsigned int retries = 1, unsigned int timeoutMs = 2000)
        {
            p.SetAssetsRoot(root.Str().c_str());
            p.SetReplyTimeout(timeoutMs);
            if (port >= 0) p.SetAddress(("127.0.0.1:" + std::to_string(port)).c_str());
            m_bInit = p.Init(nullptr, port >= 0, retries);
        }
        DataProviderImpl p;
        bool m_bInit = false;
    };

    // ---- without an asset manager --------------------------------------------------------

    TEST(DataProviderNoAssetManager, ServesWhatIsOnDisk)
    {
        CTempRoot root;
        // A listener the provider must never reach.
        CFakeAssetManager watcher(CFakeAssetManager::Silent);
        root.WriteConfig(watcher.Port());
        WriteFile(root.Path() / "Meshes/Box_0.zef", "box");
        WriteFile(root.Path() / "Data/level.json", "{}");
        CProvider dp(root, -1);
        ASSERT_TRUE(dp.m_bInit);
        EXPECT_TRUE(dp.p.IsReady());

        AssetResult r;
        EXPECT_TRUE(dp.p.QueryAsset(r, Query("Meshes/Box.zef")));
        EXPECT_EQ(std::string(r.m_szFilePath), root.Str() + "/Meshes/Box_0.zef");
        // Backslashes give the same file.
        AssetResult b;
        EXPECT_TRUE(dp.p.QueryAsset(b, Query("Meshes\\Box.zef")));
        EXPECT_STREQ(b.m_szFilePath, r.m_szFilePath);
        // A type without a table entry is served at its own path.
        AssetResult j;
        EXPECT_TRUE(dp.p.QueryAsset(j, Query("Data/level.json", 1234)));
        EXPECT_EQ(std::string(j.m_szFilePath), root.Str() + "/Data/level.json");

        // Missing, or cooked with other parameters: not succeeded, and the loaders'
        // report names the asset.
        SetDataProvider(&dp.p);
        Common::ScopedLogCapture log;
        AssetResult m;
        EXPECT_FALSE(ResolveOrReport(m, Query("Meshes/Missing.zef")));
        EXPECT_FALSE(m.m_bSucceeded);
        EXPECT_TRUE(log.Contains("File not found: \"Meshes/Missing.zef\" \n")) << log.Text();
        EXPECT_FALSE(Resolve(m, Query("Meshes/Box.zef", kLinkType, "-lod 1")));
        SetDataProvider(nullptr);
        EXPECT_FALSE(dp.p.IsBusy());
        EXPECT_EQ(watcher.Queries(), 0);
        EXPECT_FALSE(dp.p.IsConnected());
    }

    TEST(DataProviderNoAssetManager, AdapterWithoutAProvider)
    {
        ASSERT_EQ(GetDataProvider(), nullptr);
        Common::ScopedLogCapture log;
        AssetResult r;
        EXPECT_FALSE(Resolve(r, Query("a.zef")));
        Prefetch(Query("a.zef"));
        ZemRenderer::TArray<Common::String> list;
        list.Add(Common::String("stale"));
        EXPECT_FALSE(ListAssets("PC", "", list));
        EXPECT_TRUE(list.IsEmpty());
        EXPECT_TRUE(log.Contains("DataProvider is not instanciated !!!"));

        // The provider's last operation lists nothing.
        CTempRoot root;
        CProvider dp(root, -1);
        SetDataProvider(&dp.p);
        list.Add(Common::String("stale"));
        EXPECT_FALSE(ListAssets("PC", "Meshes/", list));
        EXPECT_TRUE(list.IsEmpty());
        SetDataProvider(nullptr);
    }

    TEST(DataProviderNoAssetManager, PackageLogAndBadTables)
    {
        CTempRoot root;
        root.WriteConfig(1, "AssetManagerApp", ", \"LogPackage\": true, \"LogPackagePath\": \"logs/Package.txt\"");
        fs::create_directories(root.Path() / "logs");
        WriteFile(root.Path() / "Meshes/Box_0.zef", std::string(2500000, 'x'));
        WriteFile(root.Path() / "Toolchain/TypesInfos/Broken.assetInfos", "{ not json");
        Common::ScopedLogCapture log;
        CProvider dp(root, -1);
        ASSERT_TRUE(dp.p.IsPackageLogOpen());
        EXPECT_TRUE(log.Contains("Couldn't parse asset infos file")) << log.Text();
        // The good table is still in use.
        EXPECT_GE(dp.p.GetTypes().GetSize(), 1u);
        AssetResult r;
        EXPECT_TRUE(dp.p.QueryAsset(r, Query("Meshes/Box.zef")));
        EXPECT_FALSE(dp.p.QueryAsset(r, Query("Meshes/None.zef", kLinkType, "p")));
        // An animation set must be asked for as one.
        dp.p.QueryAsset(r, Query("Anims/Run.fbx", DataProviderImpl::kAnimationTypeId));
        EXPECT_TRUE(log.Contains("Querying Animation data with .FBX, should be a .animset file"));
        const std::string expected = "Meshes/Box.zef::" + std::to_string(static_cast<int>(kLinkType)) +
                                     ":2.50\nMeshes/None.zef:p:" + std::to_string(static_cast<int>(kLinkType)) + ":0.00\n";
        EXPECT_EQ(ReadFile(root.Path() / "logs/Package.txt").substr(0, expected.size()), expected);

        // A log that can't be opened is reported and left off.
        CTempRoot other;
        other.WriteConfig(1, "AssetManagerApp", ", \"LogPackage\": true, \"LogPackagePath\": \"no/such/folder/p.txt\"");
        CProvider off(other, -1);
        EXPECT_FALSE(off.p.IsPackageLogOpen());
        EXPECT_TRUE(log.Contains("Couldn't open package log"));
        EXPECT_FALSE(off.p.QueryAsset(r, Query("Meshes/Box.zef")));
    }

    // ---- with the asset manager ------------------------------------------------------------

    class DataProviderWithAssetManager : public ::testing::Test
    {
    protected:
        void SetUp() override
        {
            WriteFile(m_kSource.Path() / "Meshes/Box.zef", "box v1");
            WriteFile(m_kSource.Path() / "Meshes/Crate.fbx", "crate");
            ASSERT_TRUE(m_kServer.Start(m_kSource.Str().c_str(), m_kRoot.Str().c_str(), "127.0.0.1", 0));
            m_kRoot.WriteConfig(m_kServer.GetPort());
        }
        void TearDown() override { m_kServer.Stop(); }

        CTempRoot m_kRoot{"dproot"};
        CTempRoot m_kSource{"dpsource"};
        CAssetManagerServer m_kServer;
    };

    TEST_F(DataProviderWithAssetManager, CooksOnFirstQueryThenServesLocally)
    {
        CProvider dp(m_kRoot, m_kServer.GetPort());
        ASSERT_TRUE(dp.m_bInit);
        EXPECT_TRUE(dp.p.IsReady());
        EXPECT_EQ(dp.p.GetCookedKeyCount(), 0u);

        Common::ScopedLogCapture log;
        AssetResult r;
        ASSERT_TRUE(dp.p.QueryAsset(r, Query("Meshes\\Box.zef")));
        EXPECT_EQ(std::string(r.m_szFilePath), m_kRoot.Str() + "/Meshes/Box_0.zef");
        EXPECT_EQ(ReadFile(r.m_szFilePath), "box v1");
        EXPECT_TRUE(log.Contains("[AM] Cooked Meshes/Box.zef -> Meshes/Box_0.zef (6 bytes)")) << log.Text();
        AssetKeyInfo info;
        ASSERT_TRUE(dp.p.DescribeQuery(Query("Meshes/Box.zef"), info));
        EXPECT_TRUE(dp.p.IsKeyCooked(info.m_uKey));

        // Known and present: no second trip, whichever separator the path uses.
        log.Clear();
        AssetResult again;
        ASSERT_TRUE(dp.p.QueryAsset(again, Query("Meshes/Box.zef")));
        EXPECT_STREQ(again.m_szFilePath, r.m_szFilePath);
        EXPECT_FALSE(log.Contains("[AM]")) << log.Text();
        EXPECT_EQ(m_kServer.GetCopyCount(), 1u);

        // Other parameters: another cooked file.
        ASSERT_TRUE(dp.p.QueryAsset(again, Query("Meshes/Crate.fbx", kMeshType, "-lod 2")));
        EXPECT_EQ(std::string(again.m_szFilePath),
                  m_kRoot.Str() + "/Meshes/Crate_" + std::to_string(GenerateUIntIdFromString("-lod 2")) + ".zef");

        // A missing source: the asset manager says so and nothing is kept.
        EXPECT_FALSE(dp.p.QueryAsset(again, Query("Meshes/Nothing.zef")));
        EXPECT_FALSE(again.m_bSucceeded);
        EXPECT_TRUE(log.Contains("[AM] Not found: Meshes/Nothing.zef")) << log.Text();
        EXPECT_FALSE(dp.p.QueryAsset(again, Query("../outside.zef")));
        EXPECT_TRUE(log.Contains("[AM] Refused \"../outside.zef\"")) << log.Text();
        EXPECT_FALSE(dp.p.IsBusy());
    }

    TEST_F(DataProviderWithAssetManager, DeletedCookedFileIsCookedAgain)
    {
        CProvider first(m_kRoot, m_kServer.GetPort());
        AssetResult r;
        ASSERT_TRUE(first.p.QueryAsset(r, Query("Meshes/Box.zef")));

        // A later engine learns the cooked keys when it connects.
        CProvider second(m_kRoot, m_kServer.GetPort());
        ASSERT_TRUE(second.m_bInit);
        EXPECT_EQ(second.p.GetCookedKeyCount(), 1u);
        fs::remove(r.m_szFilePath);
        WriteFile(m_kSource.Path() / "Meshes/Box.zef", "box v2");

        Common::ScopedLogCapture log;
        AssetResult again;
        ASSERT_TRUE(second.p.QueryAsset(again, Query("Meshes/Box.zef")));
        EXPECT_TRUE(log.Contains("[AM] Cooked Meshes/Box.zef")) << log.Text();
        EXPECT_EQ(ReadFile(again.m_szFilePath), "box v2");
        EXPECT_EQ(m_kServer.GetCopyCount(), 2u);
        EXPECT_EQ(second.p.GetCookedKeyCount(), 1u);
    }

    TEST_F(DataProviderWithAssetManager, CookAheadAndClientsThatVanish)
    {
        // A client that leaves in the middle of a frame ends only its own connection.
        {
            const int fd = socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in a{};
            a.sin_family = AF_INET;
            a.sin_port = htons(static_cast<uint16_t>(m_kServer.GetPort()));
            a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)), 0);
            const char half[] = {100, 0, 0, 0, '{', '"'};
            send(fd, half, sizeof(half), MSG_NOSIGNAL);
            close(fd);
        }
        CProvider dp(m_kRoot, m_kServer.GetPort());
        ASSERT_TRUE(dp.m_bInit);
        dp.p.CookAsset(Query("Meshes/Crate.fbx", kMeshType));
        const fs::path cooked = m_kRoot.Path() / "Meshes/Crate_0.zef";
        for (int i = 0; i < 400 && !fs::exists(cooked); ++i) usleep(5000);
        EXPECT_EQ(ReadFile(cooked), "crate");

        // Engines one after another on the same asset manager.
        for (int engine = 0; engine < 3; ++engine)
        {
            CProvider next(m_kRoot, m_kServer.GetPort());
            AssetResult r;
            EXPECT_TRUE(next.p.QueryAsset(r, Query("Meshes/Crate.fbx", kMeshType))) << engine;
            EXPECT_EQ(std::string(r.m_szFilePath), cooked.string());
        }
        EXPECT_EQ(m_kServer.GetCopyCount(), 1u);
    }

    // ---- peers that misbehave ------------------------------------------------------------

    TEST(DataProviderFaults, PeersThatAreNoAssetManager)
    {
        struct Case
        {
            CFakeAssetManager::Behaviour behaviour;
            bool connects;
            const char* report;
        };
        const Case cases[] = {
            {CFakeAssetManager::GarbageGreeting, false, "does not answer as an asset manager"},
            {CFakeAssetManager::GarbageReply, true, "dropped: no valid reply"},
            {CFakeAssetManager::CloseMidReply, true, "dropped: no valid reply"},
            {CFakeAssetManager::Silent, true, "dropped: no valid reply"},
            {CFakeAssetManager::WrongShape, true, "the reply is not an asset result"},
        };
        for (const Case& c : cases)
        {
            CTempRoot root;
            CFakeAssetManager fake(c.behaviour);
            root.WriteConfig(fake.Port());
            // What the disk holds is served while the asset manager fails.
            WriteFile(root.Path() / "Meshes/Box_0.zef", "old");
            Common::ScopedLogCapture log;
            CProvider dp(root, fake.Port(), 1, 300);
            EXPECT_EQ(dp.m_bInit, c.connects) << c.behaviour;
            AssetResult missing;
            EXPECT_FALSE(dp.p.QueryAsset(missing, Query("Meshes/Missing.zef"))) << c.behaviour;
            EXPECT_TRUE(log.Contains(c.report)) << c.behaviour << "\n" << log.Text();
            EXPECT_FALSE(dp.p.IsBusy());
            usleep(DataProviderImpl::kRetryDelayMs * 1000);
            AssetResult present;
            const bool served = dp.p.QueryAsset(present, Query("Meshes/Box.zef"));
            // A peer that answers in the wrong form is still connected and says no.
            if (c.behaviour == CFakeAssetManager::WrongShape)
                EXPECT_FALSE(served);
            else
                EXPECT_TRUE(served && ReadFile(present.m_szFilePath) == "old") << c.behaviour << "\n" << log.Text();
        }
    }

    TEST(DataProviderFaults, WaitsAndLogsUntilAnAssetManagerComes)
    {
        CTempRoot root;
        const int port = FreePort();
        root.WriteConfig(port);
        WriteFile(root.Path() / "Sources/Meshes/Box.zef", "late");
        // Started later; the provider leaves before it stops.
        CAssetManagerServer server;
        Common::ScopedLogCapture log;
        CProvider dp(root, port, 2);
        EXPECT_FALSE(dp.m_bInit);
        EXPECT_TRUE(log.Contains("could not connect data provider interface")) << log.Text();
        EXPECT_FALSE(dp.p.IsReady());
        char what[512];
        dp.p.DescribeWait(what, sizeof(what));
        EXPECT_NE(std::string(what).find("a process of that name runs but does not answer there"), std::string::npos) << what;

        log.Clear();
        EXPECT_FALSE(WaitForDataProvider(&dp.p, 10, 200, 700));
        const std::string waiting =
            "[Engine] Waiting for the data provider (0 s): no asset manager answers at 127.0.0.1:" + std::to_string(port);
        EXPECT_TRUE(log.Contains(waiting.c_str()))
            << log.Text();
        EXPECT_TRUE(log.Contains("-nodp"));

        // It comes up later: the wait ends by itself.
        ASSERT_TRUE(server.Start((root.Str() + "/Sources").c_str(), root.Str().c_str(), "127.0.0.1", port));
        EXPECT_TRUE(WaitForDataProvider(&dp.p, 10, 1000, 5000));
        AssetResult r;
        EXPECT_TRUE(dp.p.QueryAsset(r, Query("Meshes/Box.zef")));
        EXPECT_EQ(ReadFile(r.m_szFilePath), "late");
    }

    // ---- the asset manager as a process --------------------------------------------------

    TEST(AssetManagerProcess, ProcessCheckByName)
    {
        const std::string name = "ZemFakeAM" + std::to_string(getpid());
        EXPECT_FALSE(IsAssetManagerRunning(name.c_str()));
        EXPECT_TRUE(IsAssetManagerRunning(ThisProgramName().c_str()));
        EXPECT_GT(FindProcessByName(ThisProgramName().c_str()), 0);

        for (const char* suffix : {".exe", ".vshost.exe"})
        {
            std::string argv0 = "/nowhere/" + name + suffix;
            char sleepTime[] = "30";
            char* argv[] = {argv0.data(), sleepTime, nullptr};
            const pid_t pid = SpawnDetached("/bin/sleep", argv, nullptr);
            ASSERT_GT(pid, 0);
            // Until the child has gone through exec it still carries this program's name.
            bool running = false;
            for (int i = 0; i < 400 && !running; ++i)
                if (!(running = IsAssetManagerRunning(name.c_str()))) usleep(5000);
            EXPECT_TRUE(running) << suffix;
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            EXPECT_FALSE(IsAssetManagerRunning(name.c_str())) << suffix;
        }
        char* none[] = {const_cast<char*>("x"), nullptr};
        EXPECT_EQ(SpawnDetached("/nowhere/NoSuchProgram", none, nullptr), -1);
        EXPECT_EQ(errno, ENOENT);
    }

    TEST(AssetManagerProcess, StartedFromTheProgramFolder)
    {
        char folder[4096];
        ASSERT_TRUE(GetProgramDirectory(folder, sizeof(folder)));
        if (!fs::exists(fs::path(folder) / "AssetManagerApp")) GTEST_SKIP() << "AssetManagerApp is not built beside the tests";

        CTempRoot root;
        WriteFile(root.Path() / "Meshes/Box.zef", "spawned");
        const int port = FreePort();
        // No process goes by this name: the provider starts one.
        root.WriteConfig(port, "ZemNoAssetManager" + std::to_string(getpid()));
        Common::ScopedLogCapture log;
        std::unique_ptr<CProvider> engine = std::make_unique<CProvider>(root, port, 3);
        CProvider& dp = *engine;
        const pid_t pid = dp.p.GetStartedProcess();
        EXPECT_GT(pid, 0);
        EXPECT_TRUE(dp.m_bInit) << log.Text();
        for (const char* line : {":::: [DP] Starting Asset Manager process... ::: \n", ":::: [DP] Using directory '",
                                 ":::: [DP] Asset Manager process started. ::: \n"})
            EXPECT_TRUE(log.Contains(line)) << line << "\n" << log.Text();
        AssetResult r;
        EXPECT_TRUE(dp.p.QueryAsset(r, Query("Meshes/Box.zef")));
        EXPECT_EQ(ReadFile(r.m_szFilePath), "spawned");
        // The engine leaves first; the asset manager would outlive it.
        engine.reset();
        if (pid > 0)
        {
            kill(pid, SIGTERM);
            int status = 0;
            waitpid(pid, &status, 0);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        }
    }
}
