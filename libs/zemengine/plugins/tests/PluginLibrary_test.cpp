// Plugin libraries loaded for real: each test copies the built test plugins into a
// folder of its own, so that every library it loads starts with empty statics.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/core/commandmanager/PointerResolver.h"
#include "zemengine/engine/Engine.h"
#include "zemengine/engine/EngineNet.h"
#include "zemengine/plugins/BasePluginManager.h"
#include "zemengine/plugins/tests/PluginTestUtil.h"
#include "zemengine/plugins/tests/plugins/TestPluginProbe.h"

using namespace ZemEngine;
using namespace ZemEngine::PluginTest;

namespace
{
    const std::string kBuilt = ZEM_TEST_PLUGIN_DIR;

    // The probe of a library that the manager loaded (the same path gives the same library).
    ProbeState Probe(const std::string& path)
    {
        ProbeState state;
        void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
        EXPECT_NE(library, nullptr) << path;
        if (!library) return state;
        auto probe = reinterpret_cast<ProbeFunction>(dlsym(library, "TestPluginProbe"));
        EXPECT_NE(probe, nullptr);
        if (probe) probe(&state, true, Common::Mem::CMemoryManager::GetInstance());
        dlclose(library);
        return state;
    }

    // A not yet loaded library's probe, through a handle of our own.
    ProbeState ProbeBeforeLoad(const std::string& path)
    {
        ProbeState state;
        void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(library, nullptr) << dlerror();
        if (!library) return state;
        auto probe = reinterpret_cast<ProbeFunction>(dlsym(library, "TestPluginProbe"));
        if (probe) probe(&state, true, Common::Mem::CMemoryManager::GetInstance());
        // Our reference only: the manager's load keeps the library in place.
        return state;
    }

    std::string Loading(const TempPluginFolder& folder, const std::string& file, const char* result)
    {
        return "plugin " + folder.Folder() + "/" + file + " loading : " + result;
    }
}

TEST(PluginLibrary, ScanLoadsGoodLibrariesAndGoesOnPastBadOnes)
{
    TempPluginFolder folder;
    const std::string good = PluginFileName("TestNode");
    const std::string refuses = PluginFileName("TestRefuse");
    const std::string noEntry = PluginFileName("TestNoEntry");
    const std::string junk = PluginFileName("Junk");
    const std::string otherConfig =
        std::string("PLUGIN_Other_DLL_") + (std::string(BasePluginManager::GetConfigName()) == "Debug" ? "Release" : "Debug") + "_64.so";
    folder.AddLibrary(kBuilt, "TestNode", good);
    folder.AddLibrary(kBuilt, "TestRefuse", refuses);
    folder.AddLibrary(kBuilt, "TestNoEntry", noEntry);
    folder.AddFile(junk, "this is not a library");
    folder.AddLibrary(kBuilt, "TestNode", otherConfig);
    folder.AddFile("notes.txt", "");

    CEngine engine;
    Common::ScopedLogCapture capture;
    {
        BasePluginManager manager(&engine);
        EXPECT_TRUE(manager.LoadPlugins(folder.Root().c_str()));
        EXPECT_TRUE(capture.Contains((folder.Folder() + "\n").c_str()));
        EXPECT_TRUE(capture.Contains(Loading(folder, good, "Ok").c_str()));
        EXPECT_TRUE(capture.Contains(Loading(folder, refuses, "Failed").c_str()));
        EXPECT_TRUE(capture.Contains(Loading(folder, noEntry, "Failed").c_str()));
        EXPECT_TRUE(capture.Contains(Loading(folder, junk, "Failed").c_str()));
        EXPECT_TRUE(capture.Contains(("Unable to init plugin " + folder.PathOf(refuses) + "\n").c_str()));
        EXPECT_TRUE(capture.Contains(("Unable to init plugin " + folder.PathOf(noEntry) + "\n").c_str()));
        EXPECT_TRUE(capture.Contains((" loading " + folder.PathOf(junk) + "\n").c_str()));
        EXPECT_TRUE(capture.Contains("Error "));
        EXPECT_FALSE(capture.Contains("PLUGIN_Other_DLL_"));
        EXPECT_EQ(manager.GetLoadedCount(), 1u);
        ASSERT_EQ(manager.GetNodeBuilderCount(), 1u);
        EXPECT_STREQ(manager.GetCustomNodeHeaderDesc(0).m_szName, kNodeName);

        // The refusing library keeps what it took before refusing: the host's objects.
        const ProbeState refused = Probe(folder.PathOf(refuses));
        EXPECT_EQ(refused.iInitCount, 1);
        EXPECT_EQ(refused.pEngine, &engine);
        EXPECT_EQ(refused.pMemoryManager, Common::Mem::CMemoryManager::GetInstance());
    }
    const ProbeState released = Probe(folder.PathOf(good));
    EXPECT_EQ(released.iReleaseCount, 1);
    EXPECT_EQ(Probe(folder.PathOf(refuses)).iReleaseCount, 0);
}

TEST(PluginLibrary, MissingOrEmptyFolderLoadsNothing)
{
    BasePluginManager manager;
    {
        Common::ScopedLogCapture capture;
        EXPECT_FALSE(manager.LoadPlugins("/nonexistent/zemora/"));
        EXPECT_TRUE(capture.Contains("Cannot open plugin folder /nonexistent/zemora/Plugins"));
    }
    TempPluginFolder folder;
    folder.AddFile("readme.txt", "x");
    EXPECT_FALSE(manager.LoadPlugins(folder.Root().c_str()));
    EXPECT_EQ(manager.GetNodeBuilderCount(), 0u);
    // A root given with the other separator finds the same folder.
    std::string windowsRoot = folder.Root();
    windowsRoot.back() = '\\';
    folder.AddLibrary(kBuilt, "TestNode", PluginFileName("TestNode"));
    EXPECT_TRUE(manager.LoadPlugins(windowsRoot.c_str()));
}

TEST(PluginLibrary, CopiesAreSeparateUntilInitPluginSharesTheHostsObjects)
{
    TempPluginFolder folder;
    const std::string file = PluginFileName("TestNode");
    folder.AddLibrary(kBuilt, "TestNode", file);

    CEngine engine;
    ASSERT_TRUE(engine.InitRpcConnection(0));
    CPointerResolver* hostResolver = engine.GetEngineNet()->GetCommandManager()->GetResolver();
    ASSERT_NE(hostResolver, nullptr);
    Common::Mem::CMemoryManager* hostMemory = Common::Mem::CMemoryManager::GetInstance();

    const ProbeState before = ProbeBeforeLoad(folder.PathOf(file));
    EXPECT_EQ(before.iInitCount, 0);
    EXPECT_EQ(before.pEngine, nullptr);
    EXPECT_EQ(before.pResolver, nullptr);
    EXPECT_NE(before.pMemoryManager, nullptr);
    EXPECT_NE(before.pMemoryManager, hostMemory);
    // Its own code, not the host's.
    EXPECT_NE(before.pfnResolverSetInstance, reinterpret_cast<void*>(&CPointerResolver::SetInstance));
    EXPECT_NE(before.pfnEngineSetInstance, reinterpret_cast<void*>(&CEngine::SetInstance));
    // Nothing but the entry points (and the probe) can be reached from outside.
    void* library = dlopen(folder.PathOf(file).c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(dlsym(library, "_ZN9ZemEngine16CPointerResolver11SetInstanceEPS0_"), nullptr);
    EXPECT_EQ(dlsym(library, "GenerateUIntIdFromString"), nullptr);

    {
        BasePluginManager manager(&engine);
        ASSERT_TRUE(manager.LoadPlugin(folder.Folder().c_str(), file.c_str()));
        const ProbeState after = Probe(folder.PathOf(file));
        EXPECT_EQ(after.iInitCount, 1);
        EXPECT_EQ(after.pMemoryManager, hostMemory);
        EXPECT_EQ(after.pEngine, &engine);
        EXPECT_EQ(after.pResolver, hostResolver);

        // Data made by the library's code lives on the host's manager and goes back to it.
        Json::Document json;
        json.Parse<Json::kParseFlags>("{\"Value\":9}");
        const int64_t base = hostMemory->GetTotalAllocated();
        void* data = manager.BuildNodeData(kNodeName, json, nullptr, nullptr);
        ASSERT_NE(data, nullptr);
        EXPECT_GE(hostMemory->GetTotalAllocated(), base + static_cast<int64_t>(sizeof(int)));
        manager.GetPluginNode(kNodeName)->BuildFromData(nullptr, nullptr, data, nullptr);
        manager.ReleaseNodeData(kNodeName, data);
        EXPECT_EQ(hostMemory->GetTotalAllocated(), base);
        const ProbeState built = Probe(folder.PathOf(file));
        EXPECT_EQ(built.iBuildCount, 1);
        EXPECT_EQ(built.iLastBuildValue, 9);

        StepLog log;
        manager.RunStepCallbacks(kStepName, &log);
        ASSERT_EQ(log.iCount, 2);
        EXPECT_EQ(log.aMarks[0], 1);
        EXPECT_EQ(log.aMarks[1], 2);
    }
    EXPECT_EQ(Probe(folder.PathOf(file)).pResolver, nullptr);
    dlclose(library);
    dlclose(library);
    engine.Destroy();
}

TEST(PluginLibrary, SecondLibraryOfTheSameNameReplacesTheFirst)
{
    TempPluginFolder folder;
    const std::string first = PluginFileName("TestNodeA");
    const std::string second = PluginFileName("TestNodeB");
    folder.AddLibrary(kBuilt, "TestNode", first);
    folder.AddLibrary(kBuilt, "TestNode", second);
    {
        BasePluginManager manager;
        ASSERT_TRUE(manager.LoadPlugin(folder.Folder().c_str(), first.c_str()));
        PluginBuilder* firstBuilder = manager.GetNodeBuilderAt(0);
        ASSERT_TRUE(manager.LoadPlugin(folder.Folder().c_str(), second.c_str()));
        EXPECT_EQ(manager.GetNodeBuilderCount(), 1u);
        EXPECT_NE(manager.GetNodeBuilderAt(0), firstBuilder);

        // The table's node is the second library's: it builds there.
        manager.GetPluginNode(kNodeName)->Build(nullptr, nullptr, Json::Document().SetObject(), nullptr);
        Json::Document json;
        json.Parse<Json::kParseFlags>("{\"Value\":2}");
        manager.GetPluginNode(kNodeName)->Build(nullptr, nullptr, json, nullptr);
        EXPECT_EQ(Probe(folder.PathOf(first)).iBuildCount, 0);
        EXPECT_EQ(Probe(folder.PathOf(second)).iBuildCount, 1);
    }
    EXPECT_EQ(Probe(folder.PathOf(first)).iReleaseCount, 1);
    EXPECT_EQ(Probe(folder.PathOf(second)).iReleaseCount, 1);
}
